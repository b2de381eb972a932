#include "tools/run-report/alignment.h"

#include "host/text.h"

namespace runreport {

std::vector<DriverRow> DriverRows(const SourceTable& pazienti) {
  std::vector<DriverRow> rows;
  for (const SourceRow& row : pazienti.rows) {
    std::string key = row.QueryText("Cod_Cart");
    if (key.empty()) continue;
    rows.push_back({&row, std::move(key),
                    host::text::Upper(host::TextOf(row.Field("cognome"))) + " " +
                        host::text::Upper(host::TextOf(row.Field("nome"))) + "..."});
  }
  return rows;
}

std::optional<size_t> FindBlock(const std::vector<DriverRow>& rows, const std::vector<LogLine>& lines) {
  if (lines.size() > rows.size()) return std::nullopt;
  for (size_t start = 0; start + lines.size() <= rows.size(); ++start) {
    size_t matched = 0;
    while (matched < lines.size() && rows[start + matched].line_text == lines[matched].text) ++matched;
    if (matched == lines.size()) return start;
  }
  return std::nullopt;
}

}  // namespace runreport
