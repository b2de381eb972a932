// Patients' keys as the database compares them, which is how the
// conversion's queries select rows by them: trailing blanks, the column's
// collation and a number column's reading of a text all count, as they do
// for the plug-in.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "source/connection.h"

namespace inspect {

// The key of PAZIENTI of each patient that a run converts (a Cod_Cart whose
// text isn't empty), in the bytes the driver binds, each once.
std::vector<std::string> PatientKeys(source::Connection& user);

// Patients whose keys the database takes as one: the run reads the same rows
// for each of them, so each gets the master record and the records of all.
struct SharedKey {
  std::string key;                    // Cod_Cart of the first of them, as stored
  std::vector<std::string> patients;  // "COGNOME NOME" as the run's log names them, in its order
  std::vector<std::string> keys;      // each one's Cod_Cart in the bytes the driver binds
};

// The keys of PAZIENTI that two or more patients share, at least one of whom
// a run converts. Raises host::Failure when PAZIENTI can't be grouped by its
// key.
std::vector<SharedKey> SharedKeys(source::Connection& user);

// The rows of table (on connection, with a column CodCart) that no patient's
// query selects: the conversion's own "CodCart = key" for each of keys,
// bound as the plug-in binds it. A key that makes the query fail (a text
// that a number column can't read) selects nothing.
int64_t RowsOfNoPatient(source::Connection& connection, const std::string& table,
                        const std::vector<std::string>& keys);

}  // namespace inspect
