#include "tools/ambulor-inspect/document_titles.h"

#include <set>

#include "converters/documents/file_name.h"
#include "host/failure.h"
#include "host/value.h"
#include "source/recordset.h"
#include "tools/ambulor-inspect/catalogue.h"

namespace inspect {
namespace {

constexpr size_t kFirstShown = 5;

const char* const kOutcome =
    "their \"Certificati\" will end in \"ERR\" (52 Nome o numero di file non valido) at the first of them";
const char* const kRemedy =
    "put \"Certificati\" last in the options (no other category depends on it); then only its documents from the "
    "first such one on stay unfiled, until their titles are changed";

std::string Counted(int64_t n, const std::string& one, const std::string& many) {
  return std::to_string(n) + " " + (n == 1 ? one : many);
}

// "Certificati INPS" from " - Certificati INPS".
std::string NameOf(const Category& category) {
  return category.suffix.rfind(" - ", 0) == 0 ? category.suffix.substr(3) : category.suffix;
}

// The categories that come after "Certificati" in ListaOpzioni.
std::vector<std::string> CategoriesAfterCertificati() {
  std::vector<std::string> after;
  bool seen = false;
  for (const Category& category : Categories()) {
    if (seen) after.push_back(NameOf(category));
    seen = seen || category.keyword == "certificati";
  }
  return after;
}

bool IsGzip(const std::vector<uint8_t>& start) {
  return start.size() >= 3 && start[0] == 0x1F && start[1] == 0x8B && start[2] == 0x08;
}

}  // namespace

UnfileableTitles FindUnfileableTitles(source::Connection& media,
                                      const std::function<bool(const std::string& card)>& is_patient) {
  UnfileableTitles found;
  std::set<std::string> patients;
  try {
    source::Recordset rs;
    rs.Open("SELECT CodCart, Titolo, OCTET_LENGTH(bindata) AS L, SUBSTRING(bindata FROM 1 FOR 3) AS S FROM MODULI",
            media);
    for (; !rs.Eof(); rs.MoveNext()) {
      const host::Value length = rs.Field("L");
      if (length.is_null() || std::stoll(host::TextOf(length)) < 3) continue;
      const std::string card = rs.QueryText("CodCart");
      if (!is_patient(card)) continue;
      const std::string title = host::TextOf(rs.Field("Titolo"));
      const std::string_view why = cnv::filing::WhyNotFileName(title + ".rtf");
      if (why.empty()) continue;
      if (IsGzip(rs.Bytes("S").bytes())) {
        ++found.gzip_rows;
        continue;
      }
      ++found.plain_rows;
      patients.insert(card);
      if (found.first.size() < kFirstShown) found.first.push_back({card, title, std::string(why)});
    }
    rs.Close();
    found.looked = true;
  } catch (const host::Failure&) {
    // MODULI or one of its columns is missing: the categories already say so.
    return UnfileableTitles{};
  }
  found.patients = static_cast<int64_t>(patients.size());
  return found;
}

void WriteText(std::ostream& out, const UnfileableTitles& titles) {
  if (titles.plain_rows == 0 && titles.gzip_rows == 0) return;
  out << "\nDocuments whose title can't be a file name (MODULI, filed as TITLE.rtf)\n";
  if (titles.plain_rows > 0) {
    out << "  " << Counted(titles.plain_rows, "plain document", "plain documents") << " of "
        << Counted(titles.patients, "patient", "patients") << ": " << kOutcome
        << ",\n  and in the order of ListaOpzioni the categories after it won't run for them:\n    ";
    const std::vector<std::string> after = CategoriesAfterCertificati();
    for (size_t i = 0; i < after.size(); ++i) out << (i ? ", " : "") << after[i];
    out << ".\n  Remedy that loses nothing else: " << kRemedy << ".\n";
    for (const UnfileableTitles::Document& document : titles.first)
      out << "    " << document.card << "  \"" << document.title << "\": its file name " << document.why << "\n";
  }
  if (titles.gzip_rows > 0)
    out << "  " << Counted(titles.gzip_rows, "gzip stream", "gzip streams")
        << " under such a title: not filed, without ERR.\n";
}

nlohmann::json ToJson(const UnfileableTitles& titles) {
  using nlohmann::json;
  if (!titles.looked) return nullptr;
  json first = json::array();
  for (const UnfileableTitles::Document& document : titles.first)
    first.push_back({{"card", document.card}, {"title", document.title}, {"why", document.why}});
  return {{"plain_rows", titles.plain_rows},
          {"patients", titles.patients},
          {"gzip_rows", titles.gzip_rows},
          {"outcome", kOutcome},
          {"categories_not_run", CategoriesAfterCertificati()},
          {"remedy", kRemedy},
          {"first", first}};
}

}  // namespace inspect
