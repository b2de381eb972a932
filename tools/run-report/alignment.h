// Which source patient each patient line of a run stands for. The driver
// walks PAZIENTI ordered by surname and name, passes over the rows without
// a card code, and opens a line "SURNAME NAME..." for each of the others; a
// surname filter takes a block of that order and a stop a beginning of it.
// So the run's lines are a block of the source's lines, found by their texts.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/run-report/run_record.h"
#include "tools/run-report/source_tables.h"

namespace runreport {

// What the accounts keep of a row of PAZIENTI that the driver takes.
struct DriverRow {
  std::string key;        // Cod_Cart as the driver binds it
  std::string line_text;  // what the driver's AddMsg gives for it
  host::Value cognome;
  // The tax code and card as ConvertiAnagrafica gives them to the host;
  // none when PAZIENTI lacks their columns.
  std::optional<std::pair<std::string, std::string>> identity;
};

// The rows of PAZIENTI that the driver takes, in its order. Raises
// ColumnMissing for a missing Cod_Cart, cognome or nome.
std::vector<DriverRow> DriverRows(SourceTables& tables, const SourceTable& pazienti);

// The row of each line: the block of rows whose texts are the lines' texts,
// in order; empty when there is none. Patients of one name stand in an
// order that the database doesn't fix (a surname filter may give them
// another), so among the lines of one text each goes to the row whose tax
// code and card are those of the master record that its patient received;
// the others take the rows left, in order.
std::optional<std::vector<const DriverRow*>> Align(const std::vector<DriverRow>& rows, const RunRecord& run,
                                                   ReceivedByPatient& received);

}  // namespace runreport
