// The documents of MODULI whose title can't be the name of their file:
// "Certificati" files each under its title followed by ".rtf", unchanged, so
// a plain document under such a title ends it in "ERR" (52) for its patient,
// and the categories after it in the option list don't run for him; a gzip
// stream under one is not filed.
#pragma once

#include <cstdint>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "source/connection.h"

namespace inspect {

struct UnfileableTitles {
  struct Document {
    std::string card, title, why;  // why in words: "holds \"/\""
  };
  bool looked = false;           // MODULI with CodCart, Titolo and bindata was there to read
  int64_t plain_rows = 0;        // plain documents: "Certificati" ends in ERR (52) at the first
  int64_t gzip_rows = 0;         // gzip streams: not filed, no ERR
  int64_t patients = 0;          // patients that hold a plain one
  std::vector<Document> first;   // the first few plain ones, for a person to find
};

// Reads every MODULI row on media (the title and the first bytes of the
// document) and counts those that a run files, of the patients for whom
// is_patient says yes, whose title plus ".rtf" isn't a file name. A
// document of 2 bytes or fewer is never written, so it doesn't count.
UnfileableTitles FindUnfileableTitles(source::Connection& media,
                                      const std::function<bool(const std::string& card)>& is_patient);

// For a person: the counts, what they do to a run in the order of
// ListaOpzioni, the remedy that loses nothing else; nothing when none.
void WriteText(std::ostream& out, const UnfileableTitles& titles);

// The same, for machines: null when MODULI couldn't be read.
nlohmann::json ToJson(const UnfileableTitles& titles);

}  // namespace inspect
