// What a conversion reads of the source, category by category: the tables,
// on which database, and their columns, each with what a source that lacks
// it does to the conversion. It is written from the converters' queries and
// reads; ambulor-inspect holds a source against it.
#pragma once

#include <string>
#include <vector>

namespace inspect {

enum class SourceFile { User, Media, Data };  // GX_USER.FDB, GX_MEDIA.FDB, GX_DATA.FDB

// What becomes of a conversion when a column is missing.
enum class Effect {
  RunEnds,           // the run's own query fails: Converti ends with false at once
  EveryPatientErr,   // the category's query fails: every patient ends in "ERR" for it
  PatientsWithRows,  // read from each row: a patient with rows there ends in "ERR" for it
  PassedOver,        // read within a row whose failing steps are passed over: nothing is filed
};

struct ColumnUse {
  std::string name;
  Effect effect;
};

struct TableUse {
  std::string table;
  SourceFile file;
  std::vector<ColumnUse> columns;
  bool per_patient;  // selected by the patient's card code (CodCart)
};

struct Category {
  std::string keyword;  // as in ListaOpzioni, lower case; "anagrafica" for the master record
  std::string suffix;   // the text that an "ERR" line of the category carries, " - Diagnosi"
  std::vector<TableUse> tables;
};

// The master record first, then the 19 categories in the order of ListaOpzioni.
const std::vector<Category>& Categories();

// "GX_USER.FDB" for SourceFile::User, and so on.
const char* FileName(SourceFile file);

// The effect in words, for a person: "every patient ends in ERR".
const char* Describe(Effect effect);

}  // namespace inspect
