#include "tools/run-report/alignment.h"

#include <map>

#include "host/text.h"
#include "host/value.h"

namespace runreport {

std::vector<DriverRow> DriverRows(SourceTables& tables, const SourceTable& pazienti) {
  std::vector<DriverRow> rows;
  tables.Each(pazienti, "COGNOME, NOME", [&](const SourceRow& row) {
    std::string key = row.QueryText("Cod_Cart");
    if (key.empty()) return;
    DriverRow taken{std::move(key),
                    host::text::Upper(host::TextOf(row.Field("cognome"))) + " " +
                        host::text::Upper(host::TextOf(row.Field("nome"))) + "...",
                    row.Field("cognome"), std::nullopt};
    try {
      taken.identity = {host::text::Trim(host::text::Upper(host::TextOf(row.Field("CodFisc")))),
                        host::text::Left(host::text::Trim(host::text::Upper(host::TextOf(row.Field("CodiceSSN")))), 30)};
    } catch (const ColumnMissing&) {
    }
    rows.push_back(std::move(taken));
  });
  return rows;
}

namespace {

std::optional<size_t> FindBlock(const std::vector<DriverRow>& rows, const std::vector<LogLine>& lines) {
  if (lines.size() > rows.size()) return std::nullopt;
  for (size_t start = 0; start + lines.size() <= rows.size(); ++start) {
    size_t matched = 0;
    while (matched < lines.size() && rows[start + matched].line_text == lines[matched].text) ++matched;
    if (matched == lines.size()) return start;
  }
  return std::nullopt;
}

// The patient's identity as ConvertiAnagrafica gave it to the host.
bool SameIdentity(const DriverRow& row, const std::map<std::string, std::string>& received) {
  auto member = [&](const char* name) {
    auto found = received.find(name);
    return found == received.end() ? std::string() : found->second;
  };
  return row.identity && member("CodiceFiscale") == row.identity->first && member("Tessera") == row.identity->second;
}

}  // namespace

std::optional<std::vector<const DriverRow*>> Align(const std::vector<DriverRow>& rows, const RunRecord& run,
                                                   ReceivedByPatient& received) {
  const std::vector<LogLine>& lines = run.patient_lines;
  const std::optional<size_t> block = FindBlock(rows, lines);
  if (!block) return std::nullopt;
  std::vector<const DriverRow*> aligned(lines.size(), nullptr);
  for (size_t first = 0; first < lines.size();) {
    size_t end = first + 1;
    while (end < lines.size() && lines[end].text == lines[first].text) ++end;
    std::vector<bool> taken(end - first, false);
    for (size_t line = first; end - first > 1 && line < end; ++line) {
      if (lines[line].patient == 0) continue;
      const auto master = received.MasterTexts(lines[line].patient);
      if (!master) continue;
      for (size_t row = first; row < end; ++row)
        if (!taken[row - first] && SameIdentity(rows[*block + row], *master)) {
          taken[row - first] = true;
          aligned[line] = &rows[*block + row];
          break;
        }
    }
    size_t next = first;
    for (size_t line = first; line < end; ++line) {
      if (aligned[line]) continue;
      while (taken[next - first]) ++next;
      taken[next - first] = true;
      aligned[line] = &rows[*block + next];
    }
    first = end;
  }
  return aligned;
}

}  // namespace runreport
