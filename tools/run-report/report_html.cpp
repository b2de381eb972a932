#include <algorithm>
#include <cstdio>
#include <sstream>

#include "tools/run-report/report.h"

namespace runreport {

namespace {

constexpr const char* kStyle = R"(
body{font:14px/1.45 system-ui,-apple-system,"Segoe UI",Roboto,Arial,sans-serif;color:#1d2329;background:#f4f5f7;margin:0}
main{max-width:1180px;margin:0 auto;padding:20px 28px 40px}
h1{font-size:24px;margin:4px 0 2px}h2{font-size:18px;margin:28px 0 8px;border-bottom:1px solid #d5d9de;padding-bottom:4px}
.sub{color:#5b6670;margin:0 0 14px;word-break:break-all}
.banner{padding:10px 14px;border-radius:6px;font-weight:600;margin:8px 0}
.banner.ok{background:#dff3e4;color:#17612c;border:1px solid #9fd6ad}
.banner.bad{background:#fde2e1;color:#9b1c1c;border:1px solid #f1a5a2}
.banner.unknown,.banner.partial{background:#fff4d6;color:#7a5600;border:1px solid #ecd38a}
table{border-collapse:collapse;background:#fff;width:100%;margin:6px 0}
th,td{border:1px solid #d5d9de;padding:4px 8px;text-align:left;vertical-align:top}
th{background:#eceff2;font-weight:600}
td.n,th.n{text-align:right;font-variant-numeric:tabular-nums;white-space:nowrap}
td.bad{background:#fbd5d3;color:#8a1010;font-weight:700}
td.err{color:#9b1c1c}
table.kv th{width:190px}
.charts{display:flex;flex-wrap:wrap;gap:18px}
.chart{background:#fff;border:1px solid #d5d9de;border-radius:6px;padding:10px}
.chart h3{font-size:14px;margin:0 0 6px}
.muted{color:#5b6670}
.names{font-size:13px}
details summary{cursor:pointer;color:#1f5f9f}
ul{margin:4px 0 4px 20px;padding:0}
)";

std::string E(const std::string& text) { return EscapeHtml(text); }

std::string Number(double value, int decimals) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", decimals, value);
  return text;
}

std::string Bytes(int64_t bytes) {
  if (bytes < 1024) return std::to_string(bytes) + " B";
  if (bytes < 1024 * 1024) return Number(bytes / 1024.0, 1) + " KiB";
  return Number(bytes / (1024.0 * 1024.0), 1) + " MiB";
}

// A horizontal bar chart, one bar a label.
std::string BarChart(const std::string& title, const std::vector<std::pair<std::string, int64_t>>& bars,
                     const std::string& color) {
  std::ostringstream svg;
  svg << "<div class=\"chart\"><h3>" << E(title) << "</h3>";
  if (bars.empty()) {
    svg << "<p class=\"muted\">nothing to show</p></div>";
    return svg.str();
  }
  constexpr int kLabel = 215, kBar = 245, kValue = 50, kRow = 20;
  int64_t top = 1;
  for (const auto& bar : bars) top = std::max(top, bar.second);
  const int height = static_cast<int>(bars.size()) * kRow + 4;
  svg << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << kLabel + kBar + kValue << "\" height=\"" << height
      << "\" role=\"img\" aria-label=\"" << E(title) << "\" font-family=\"system-ui,Arial,sans-serif\" font-size=\"12\">";
  int y = 2;
  for (const auto& [label, value] : bars) {
    std::string shown = label;
    if (label.size() > 31) {
      size_t cut = 29;  // not inside a character of several bytes
      while (cut > 0 && (static_cast<unsigned char>(label[cut]) & 0xC0) == 0x80) --cut;
      shown = label.substr(0, cut) + "\xE2\x80\xA6";
    }
    const int width = value > 0 ? std::max(1, static_cast<int>(kBar * value / top)) : 0;
    svg << "<g><title>" << E(label) << ": " << value << "</title>"
        << "<text x=\"" << kLabel - 6 << "\" y=\"" << y + 13 << "\" text-anchor=\"end\">" << E(shown) << "</text>"
        << "<rect x=\"" << kLabel << "\" y=\"" << y + 2 << "\" width=\"" << width << "\" height=\"" << kRow - 5
        << "\" fill=\"" << color << "\"/>"
        << "<text x=\"" << kLabel + width + 4 << "\" y=\"" << y + 13 << "\">" << value << "</text></g>";
    y += kRow;
  }
  svg << "</svg></div>";
  return svg.str();
}

std::string JoinEscaped(const std::vector<std::string>& items, const std::string& separator = ", ") {
  std::string out;
  for (const std::string& item : items) out += (out.empty() ? "" : separator) + E(item);
  return out;
}

std::string OrDash(const std::optional<int64_t>& value) { return value ? std::to_string(*value) : "&mdash;"; }

std::string CausesCell(const std::vector<Cause>& causes) {
  if (causes.empty()) return "";
  std::string out = "<ul>";
  for (const Cause& cause : causes) out += "<li>" + std::to_string(cause.rows) + " &middot; " + E(cause.text) + "</li>";
  return out + "</ul>";
}

// A list of names, folded away when it is long.
std::string Names(const std::vector<std::string>& names) {
  if (names.size() <= 12) return "<span class=\"names\">" + JoinEscaped(names) + "</span>";
  return "<details><summary>" + std::to_string(names.size()) + " patients</summary><span class=\"names\">" +
         JoinEscaped(names) + "</span></details>";
}

void RunSection(std::ostringstream& html, const Figures& f) {
  const RunRecord& run = f.run;
  html << "<h2>Run</h2><table class=\"kv\">";
  auto row = [&](const std::string& name, const std::string& value_html) {
    html << "<tr><th>" << E(name) << "</th><td>" << value_html << "</td></tr>";
  };
  row("Archive", E(f.archive));
  row("Connection", E(run.conn));
  row("Options", E(run.options));
  row("Started", E(run.started));
  row("Ended", run.ended.empty() ? "<span class=\"muted\">never</span>" : E(run.ended));
  row("Result", E(f.Outcome()));
  row("LastError", E(run.last_error));
  row("Patients", std::to_string(f.patient_lines) + " taken: " + std::to_string(f.patients_ok) + " OK, " +
                      std::to_string(f.patients_err) + " ERR (" + std::to_string(f.patients_refused) +
                      " refused by the host)");
  // Files are counted apart, as the conversion's summary counts them.
  int64_t records = 0, stores = 0;
  for (const auto& [store, count] : run.records_per_store)
    if (store != "Files") records += count, ++stores;
  row("Records", std::to_string(records) + " in " + std::to_string(stores) + " stores");
  row("Files", std::to_string(run.files) + " (" + SizeText(run.file_bytes) + ")");
  if (f.live && !f.live->warnings.empty()) row("Warnings", "<ul><li>" + JoinEscaped(f.live->warnings, "</li><li>") + "</li></ul>");
  html << "</table>";
  if (!run.driver_lines.empty()) {
    html << "<p class=\"muted\">Driver: ";
    for (size_t i = 0; i < run.driver_lines.size(); ++i)
      html << (i ? " &middot; " : "") << E(run.driver_lines[i].text) << " " << E(run.driver_lines[i].outcome);
    html << "</p>";
  }
}

void Charts(std::ostringstream& html, const Figures& f) {
  std::vector<std::pair<std::string, int64_t>> records, reasons;
  if (f.accounts_done) {
    for (const Figures::Category& category : f.categories) records.emplace_back(category.name, category.records);
  } else {
    for (const auto& [store, count] : f.run.records_per_store) records.emplace_back(store, count);
  }
  for (const Figures::ErrReason& reason : f.err_reasons)
    reasons.emplace_back(reason.reason, static_cast<int64_t>(reason.patients.size()));
  html << "<div class=\"charts\">"
       << BarChart(f.accounts_done ? "Records per category" : "Records per store", records, "#3d7cc9")
       << BarChart("Patients in ERR, by reason", reasons, "#d0544b") << "</div>";
}

void CategoriesSection(std::ostringstream& html, const Figures& f) {
  html << "<h2>Categories</h2>";
  if (!f.accounts_done)
    html << "<p class=\"muted\">Without the accounts, the source rows are not known; a store that several categories "
            "of the run file into shows its records whole under each of them.</p>";
  html << "<table><tr><th>Category</th><th>Source tables</th><th class=\"n\">Source rows</th><th>Left out</th>"
          "<th>Not arrived</th><th>Stores: arrived / expected</th><th class=\"n\">Unexplained</th>"
          "<th class=\"n\">ERR</th></tr>";
  for (const Figures::Category& c : f.categories) {
    html << "<tr><td><b>" << E(c.name) << "</b></td><td>" << JoinEscaped(c.tables) << "</td><td class=\"n\">"
         << OrDash(c.source_rows) << "</td><td>" << CausesCell(c.left_out) << "</td><td>" << CausesCell(c.not_arrived);
    if (!c.ended_by_rule.empty()) html << "<span class=\"muted\">where the rules end it:</span>" << CausesCell(c.ended_by_rule);
    html << "</td><td>";
    for (const Figures::Store& store : c.stores) {
      html << E(store.store) << ": " << store.arrived;
      if (store.expected) html << " / " << *store.expected;
      if (!store.shared_with.empty()) html << " <span class=\"muted\">(with " << JoinEscaped(store.shared_with) << ")</span>";
      html << "<br>";
    }
    const bool bad = c.unexplained && *c.unexplained != 0;
    html << "</td><td class=\"n" << (bad ? " bad" : "") << "\">" << OrDash(c.unexplained);
    if (!c.unforeseen.empty()) html << "<br><span class=\"muted\">not foreseen: " << JoinEscaped(c.unforeseen) << "</span>";
    html << "</td><td class=\"n"
         << (c.err_patients.empty() ? "" : " err") << "\">" << c.err_patients.size() << "</td></tr>";
  }
  html << "</table>";
}

void ErrSection(std::ostringstream& html, const Figures& f) {
  html << "<h2>Patients in ERR (" << f.patients_err << ")</h2>";
  if (f.err_reasons.empty()) {
    html << "<p>No patient ended in ERR.</p>";
    return;
  }
  html << "<table><tr><th>Reason</th><th>Category</th><th class=\"n\">Patients</th><th>Who</th></tr>";
  for (const Figures::ErrReason& reason : f.err_reasons)
    html << "<tr><td>" << E(reason.reason) << "</td><td>" << E(reason.category) << "</td><td class=\"n\">"
         << reason.patients.size() << "</td><td>" << Names(reason.patients) << "</td></tr>";
  html << "</table>";
}

// Beside the reasons, the document whose title ended each such category.
void EndingDocumentsTable(std::ostringstream& html, const Figures& f) {
  if (f.ending_documents.empty()) return;
  html << "<h3>Documents at which a category ended (" << f.ending_documents.size()
       << ")</h3><table><tr><th>Patient</th><th>Category</th><th>Title</th><th>Why</th></tr>";
  for (const Figures::EndingDocument& d : f.ending_documents)
    html << "<tr><td>" << E(d.patient) << "</td><td>" << E(d.category) << "</td><td>" << E(d.title) << "</td><td>"
         << E(d.why) << "</td></tr>";
  html << "</table>";
}

// Patients whose key another patient shares, whatever their line says.
void SharedKeysSection(std::ostringstream& html, const Figures& f) {
  if (f.shared_keys.empty()) return;
  html << "<h2>Patients who share a key (" << f.shared_keys.size()
       << ")</h2><p>The source's database takes each of these keys as one: the conversion gave each of these "
          "patients the master record and the records of all of them.</p>"
       << "<table><tr><th>Cod_Cart</th><th>Who</th></tr>";
  for (const Figures::SharedKey& shared : f.shared_keys)
    html << "<tr><td>'" << E(shared.key) << "'</td><td>" << Names(shared.patients) << "</td></tr>";
  html << "</table>";
}

void FilesSection(std::ostringstream& html, const Figures& f) {
  html << "<h2>Files</h2><p>" << f.run.files << " files stored, " << Bytes(f.run.file_bytes) << " (" << f.run.file_bytes
       << " bytes).</p>";
  if (!f.accounts_done) {
    html << "<p class=\"muted\">The streams that did not decode are known from the accounts only.</p>";
  } else if (f.undecoded.empty()) {
    html << "<p>Every stream found decoded.</p>";
  } else {
    html << "<h3>Streams that did not decode (" << f.undecoded.size()
         << ")</h3><table><tr><th>Patient</th><th>Category</th><th>Title</th><th>Why</th></tr>";
    for (const Figures::Undecoded& s : f.undecoded)
      html << "<tr><td>" << E(s.patient) << "</td><td>" << E(s.category) << "</td><td>" << E(s.title) << "</td><td>"
           << E(s.why) << "</td></tr>";
    html << "</table>";
  }
  if (f.files.empty()) return;
  html << "<details" << (f.files.size() <= 30 ? " open" : "") << "><summary>The " << f.files.size()
       << " files</summary><table><tr><th>Patient</th><th>Id</th><th>Title</th><th>Name</th><th class=\"n\">Bytes</th></tr>";
  for (const Figures::File& file : f.files)
    html << "<tr><td>" << E(file.patient) << "</td><td>" << E(file.id) << "</td><td>" << E(file.title) << "</td><td>"
         << E(file.name) << "</td><td class=\"n\">" << file.size << "</td></tr>";
  html << "</table></details>";
}

void TimesSection(std::ostringstream& html, const Figures& f) {
  html << "<h2>Times</h2>";
  if (!f.live) {
    html << "<p>Made from the archive alone: only the run's start and end are known";
    if (f.archive_seconds) html << " (" << Number(*f.archive_seconds, 0) << " s)";
    html << ". The phases are timed when the conversion writes the report (<code>convert --report</code>).</p>";
    return;
  }
  const double total = std::max(f.live->seconds, 1e-9);
  html << "<table><tr><th>Phase</th><th class=\"n\">Seconds</th><th class=\"n\">Share</th><th style=\"width:40%\"></th></tr>";
  double patients = 0;
  for (const Phase& phase : f.live->phases) {
    if (phase.name == "patients") patients = phase.seconds;
    const double share = phase.seconds / total;
    html << "<tr><td>" << E(phase.name) << "</td><td class=\"n\">" << Number(phase.seconds, 3) << "</td><td class=\"n\">"
         << Number(100 * share, 1) << "%</td><td><svg width=\"100%\" height=\"12\" xmlns=\"http://www.w3.org/2000/svg\">"
         << "<rect width=\"" << Number(100 * share, 2) << "%\" height=\"12\" fill=\"#7a9cc6\"/></svg></td></tr>";
  }
  html << "<tr><th>the whole run</th><th class=\"n\">" << Number(f.live->seconds, 3) << "</th><th></th><th></th></tr></table>";
  if (patients > 0)
    html << "<p>" << Number(static_cast<double>(f.patient_lines) / patients, 1) << " patients a second.</p>";
}

}  // namespace

std::string SizeText(int64_t bytes) {
  if (bytes < 1024) return std::to_string(bytes) + " bytes";
  return Bytes(bytes) + ", " + std::to_string(bytes) + " bytes";
}

std::string RenderHtml(const Figures& f) {
  std::ostringstream html;
  html << "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">"
          "<meta name=\"viewport\" content=\"width=device-width,initial-scale=1\">"
          "<meta name=\"generator\" content=\"kairon-convert run report\">"
          "<title>Conversion report &middot; "
       << E(f.run.started) << "</title><style>" << kStyle << "</style></head><body><main>";
  html << "<h1>Conversion report</h1><p class=\"sub\">" << E(f.archive) << " &middot; run " << f.run.run_id << " &middot; "
       << E(f.run.started) << "</p>";
  // Green only when everything converted: a run that ended true with
  // patients in ERR, or that was stopped, is not a success whose records
  // all add up.
  const bool run_ended = f.run.result == true && f.ended_with_error.empty() &&
                         !(f.live && (f.live->stopped || !f.live->write_failure.empty()));
  const bool all_converted = run_ended && f.patients_err == 0;
  const char* state = !f.accounts_done ? "unknown" : f.unexplained != 0 ? "bad" : all_converted ? "ok" : "partial";
  html << "<div class=\"banner " << state << "\">" << E(f.AccountsSummary()) << "</div>";
  html << "<div class=\"banner " << (all_converted ? "ok" : "bad") << "\">" << E(f.Outcome()) << " &middot; "
       << f.patients_ok << " patients OK, " << f.patients_err << " ERR</div>";
  RunSection(html, f);
  html << "<h2>At a glance</h2>";
  Charts(html, f);
  CategoriesSection(html, f);
  ErrSection(html, f);
  EndingDocumentsTable(html, f);
  SharedKeysSection(html, f);
  FilesSection(html, f);
  TimesSection(html, f);
  html << "</main></body></html>\n";
  return html.str();
}

}  // namespace runreport
