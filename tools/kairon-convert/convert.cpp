// One conversion as the convert command runs it: everything that can be
// refused is checked first, then the archive (and trace) is created, Test
// and Converti run, and the runs row is closed with the outcome.

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <stdexcept>

#include "host/failure.h"
#include "host/process_mark.h"
#include "tools/kairon-convert/objects.h"
#include "tools/kairon-convert/output_files.h"
#include "tools/kairon-convert/paths.h"
#include "tools/kairon-convert/reference_host.h"
#include "tools/kairon-convert/typed_value.h"

namespace refhost {

namespace {

std::string LocalTime() {
  std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &local);
  return text;
}

// The connection text as the archive keeps it: a path of this machine made
// absolute, so that the run's source is found again from any folder; a
// server's "host:path" as given.
std::string ArchivedConn(const std::string& conn) {
  if (conn.empty() || conn.find(':') != std::string::npos || conn.front() == '/') return conn;
  std::error_code ec;
  const std::filesystem::path absolute = std::filesystem::absolute(conn, ec);
  return ec ? conn : absolute.lexically_normal().string();
}

std::string Path(const std::string& given, const std::string& data_dir, const char* name) {
  return given.empty() ? (std::filesystem::path(data_dir) / name).string() : given;
}

// utente: the defaults, with the given members in place of those of the
// same name (without regard to case).
std::map<std::string, std::string> Utente(const std::map<std::string, std::string>& given) {
  std::map<std::string, std::string> utente = DefaultUtente();
  for (const auto& entry : given) {
    const std::string& member = entry.first;
    std::erase_if(utente, [&](const auto& held) { return host::SameName(held.first, member); });
    utente[member] = entry.second;
  }
  return utente;
}

std::string* FindMember(std::map<std::string, std::string>& utente, std::string_view member) {
  for (auto& [name, text] : utente)
    if (host::SameName(name, member)) return &text;
  return nullptr;
}

// Why a folder for temporary files can't be used, in words; empty if it
// can. A new folder (nothing of its name there yet) is made by the plug-in,
// one level, so its parent must be usable.
std::string UnusableFolder(const std::string& path, bool may_be_new) {
  struct stat st {};
  if (stat(path.c_str(), &st) != 0) {
    std::filesystem::path folder(path);
    if (!folder.has_filename()) folder = folder.parent_path();  // a final "/"
    const std::string parent = folder.parent_path().string();
    if (errno != ENOENT || !may_be_new) return path + " doesn't exist";
    if (std::string why = UnusableFolder(parent.empty() ? "." : parent, false); !why.empty())
      return path + " is new, and its parent can't be used: " + why;
    return "";
  }
  if (!S_ISDIR(st.st_mode)) return path + " is not a folder";
  struct statvfs fs_info {};
  if (statvfs(path.c_str(), &fs_info) == 0 && (fs_info.f_flag & ST_RDONLY) != 0)
    return path + " is on a read-only file system";
  if (access(path.c_str(), W_OK | X_OK) != 0) return "no permission to write in " + path;
  return "";
}

// Why a folder given for temporary files would let the plug-in's Killfile
// calls, which name files in it, reach what isn't its own; empty if not. It
// must hold nothing yet, lie apart from the source's folder, and hold none
// of the files that the run writes. Paths are compared as they resolve.
std::string OverlappingFolder(const std::string& path, const std::string& source_folder,
                              const std::vector<std::pair<std::string, std::string>>& outputs) {
  if (LeadsInto(path, source_folder))
    return path + " is the source's folder " + source_folder + " or lies inside it";
  for (const auto& [what, file] : outputs)
    if (!file.empty() && LeadsInto(file, path)) return path + " holds the " + what + " " + file;
  struct stat st {};
  if (stat(path.c_str(), &st) == 0) {
    std::error_code ec;
    const bool empty = std::filesystem::is_empty(path, ec);
    if (ec) return path + " can't be read: " + CauseOf(ec.value());
    if (!empty) return path + " is not empty (give a new or empty folder)";
  }
  return "";
}

// The folder for temporary files: the one given, or a new one under the
// system's temporary folder (TMPDIR, else /tmp) that goes with this object.
class TemporaryFolder {
 public:
  // Raises std::runtime_error, naming the cause, when the folder given can't
  // be used (see UnusableFolder and OverlappingFolder); creates nothing.
  static void Check(const std::string& given, const char* option, const std::string& source_folder,
                    const std::vector<std::pair<std::string, std::string>>& outputs) {
    if (given.empty()) {
      std::string system = SystemFolder();
      if (std::string why = UnusableFolder(system, false); !why.empty())
        throw std::runtime_error("no folder for temporary files: TMPDIR names " + system + ", and " + why +
                                 " (set TMPDIR to a folder, or give --tempdir)");
      return;
    }
    std::string why = UnusableFolder(given, true);
    if (why.empty()) why = OverlappingFolder(given, source_folder, outputs);
    if (!why.empty()) throw std::runtime_error(std::string(option) + " can't be used: " + why);
  }

  explicit TemporaryFolder(const std::string& given) : path_(given) {
    if (!path_.empty()) return;
    path_ = (std::filesystem::path(SystemFolder()) / ("kairon-convert-" + host::process_mark::Own() + "-XXXXXX")).string();
    if (mkdtemp(path_.data()) == nullptr)
      throw std::runtime_error("cannot create a temporary folder in " + SystemFolder() + ": " + CauseOf(errno));
    own_ = true;
  }
  ~TemporaryFolder() { Remove(); }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  const std::string& path() const { return path_; }

  // Removes a folder of its own with its content; a folder given stays.
  void Remove() {
    std::error_code ec;
    if (own_) std::filesystem::remove_all(path_, ec);
    own_ = false;
  }

 private:
  static std::string SystemFolder() {
    const char* tmpdir = std::getenv("TMPDIR");
    return tmpdir != nullptr && *tmpdir != '\0' ? tmpdir : "/tmp";
  }
  std::string path_;
  bool own_ = false;
};

// The columns of each catalogue that the plug-in reads.
struct CatalogueColumns {
  const char* option;
  const Catalogue SessionSetup::*catalogue;
  std::vector<std::string> columns;
};

// The run under way, which a second signal ends at once (EndRunNow).
std::mutex under_way_mutex;
std::function<void()> end_under_way;

// Says what ending the run at once means, from the reservation of its files
// to the end of the run.
class UnderWay {
 public:
  explicit UnderWay(std::function<void()> end) { Then(std::move(end)); }
  void Then(std::function<void()> end) {
    std::lock_guard<std::mutex> lock(under_way_mutex);
    end_under_way = std::move(end);
  }
  // Runs make with the end held off until make returns: a signal that comes
  // meanwhile ends the run once what make created is there to remove.
  void Hold(const std::function<void()>& make) {
    std::lock_guard<std::mutex> lock(under_way_mutex);
    make();
  }
  ~UnderWay() {
    std::lock_guard<std::mutex> lock(under_way_mutex);
    end_under_way = nullptr;
  }
  UnderWay(const UnderWay&) = delete;
  UnderWay& operator=(const UnderWay&) = delete;
};

// What a conversion needs from files, read before anything is written.
SessionSetup ReadSetup(const ConvertOptions& options) {
  SessionSetup setup;
  try {
    setup.failures = FailurePlan::Parse(options.fail);
  } catch (const std::invalid_argument& e) {
    throw std::runtime_error(e.what());
  }
  setup.icd9 = Catalogue::Load(Path(options.icd9_csv, options.data_dir, "icd9.csv"));
  setup.farmaci = Catalogue::Load(Path(options.farmaci_csv, options.data_dir, "farmaci.csv"));
  setup.esenzioni = Catalogue::Load(Path(options.esenzioni_csv, options.data_dir, "esenzioni.csv"));
  setup.provinces = Provinces::Load(Path(options.province_csv, options.data_dir, "province.csv"));
  setup.stop_at_progress = options.stop_at_patient;
  setup.from = options.from;
  setup.to = options.to;
  setup.utente = Utente(options.utente);
  setup.progress = options.progress;
  setup.progress_lines = options.progress_lines;
  return setup;
}

PluginFailure Raised(const host::Failure& failure) { return {failure.number(), failure.description()}; }

// The columns of wanted that a catalogue lacks (names compare without regard
// to case, as an entry's members do).
std::vector<std::string> MissingColumns(const Catalogue& catalogue, const std::vector<std::string>& wanted) {
  std::vector<std::string> missing;
  for (const std::string& column : wanted) {
    auto same = [&](const std::string& held) { return host::SameName(held, column); };
    if (std::none_of(catalogue.columns().begin(), catalogue.columns().end(), same)) missing.push_back(column);
  }
  return missing;
}

}  // namespace

ConvertOutcome Convert(const host::ObjectRef& conversione, const ConvertOptions& options) {
  auto started = std::chrono::steady_clock::now();
  ConvertOutcome outcome;
  auto warn = [&](const std::string& text) {
    outcome.warnings.push_back(text);
    if (options.warn) options.warn(text);
  };

  const OutputPaths paths{options.archive, options.trace, SourceFiles(options.conn), options.overwrite};
  OutputFiles::Check(paths);
  SessionSetup setup = ReadSetup(options);
  std::string* utente_tempdir = FindMember(setup.utente, "tempdir");
  const bool tempdir_of_utente = options.tempdir.empty() && utente_tempdir != nullptr;
  const std::string given_tempdir = tempdir_of_utente ? *utente_tempdir : options.tempdir;
  std::vector<std::pair<std::string, std::string>> written{{"archive", options.archive}, {"trace", options.trace}};
  for (const std::string& report : options.reports) written.emplace_back("report", report);
  const std::string source_folder = std::filesystem::path(paths.sources.empty() ? "" : paths.sources.front())
                                        .parent_path()
                                        .string();
  TemporaryFolder::Check(given_tempdir, tempdir_of_utente ? "tempdir of --utente" : "--tempdir",
                         source_folder.empty() ? "." : source_folder, written);

  const CatalogueColumns read_columns[] = {
      {"--icd9", &SessionSetup::icd9, {"ID", "Descrizione"}},
      {"--farmaci", &SessionSetup::farmaci, {"Descrizione", "Tipo"}},
      {"--esenzioni", &SessionSetup::esenzioni, {"ID", "Descrizione", "CodiceFarmaci", "CodiceEsami"}}};
  for (const CatalogueColumns& catalogue : read_columns)
    for (const std::string& missing : MissingColumns(setup.*catalogue.catalogue, catalogue.columns))
      warn(std::string(catalogue.option) + ": the header has no column " + missing +
           ", which the plug-in reads: its entries will fail with 438 there");

  std::string option_list;
  try {
    const std::string lista_opzioni = host::TextOf(conversione->Get("ListaOpzioni"));
    if (options.categories) {
      option_list = CategoryOptions(*options.categories, lista_opzioni);
    } else {
      option_list = options.options ? *options.options : DefaultOptions(lista_opzioni);
      if (std::string unmatched = UnmatchedOptions(option_list, lista_opzioni); !unmatched.empty()) warn(unmatched);
    }
  } catch (const host::Failure& failure) {
    outcome.raised = Raised(failure);
    return outcome;
  }

  // What killed runs left where this run makes its folders and files goes
  // before it starts.
  std::vector<std::string> leftover_folders = SystemTemporaryFolders();
  for (const auto& [what, file] : written)
    if (!file.empty()) leftover_folders.push_back(std::filesystem::path(file).parent_path().string());
  for (const Removal& removal : RemoveLeftovers(leftover_folders))
    if (options.leftover_removed) options.leftover_removed(removal);

  std::optional<TemporaryFolder> tempdir;
  std::unique_ptr<OutputFiles> outputs;
  std::shared_ptr<Session> session;
  // Until the run is under way, ending at once leaves nothing written. The
  // folder and the files are made with that end held off, so that a signal
  // that comes meanwhile finds them and removes them.
  UnderWay under_way([&] {
    if (outputs) outputs->Discard();
    if (tempdir) tempdir->Remove();
  });
  under_way.Hold([&] {
    tempdir.emplace(given_tempdir);
    outputs = OutputFiles::Reserve(paths);
  });
  setup.archive = Archive::Open(outputs->archive_file());
  if (!options.trace.empty()) setup.trace = std::make_unique<Trace>(outputs->trace_descriptor(), options.trace);
  if (utente_tempdir != nullptr)
    *utente_tempdir = tempdir->path();
  else
    setup.utente["tempdir"] = tempdir->path();

  session = std::make_shared<Session>(std::move(setup));
  int64_t run = session->archive().BeginRun(LocalTime(), ArchivedConn(options.conn), option_list);
  outcome.archived = true;
  // Once the run is under way, ending at once keeps what it filed.
  auto end_run_under_way = [&] {
    session->Abandon();
    try {
      outputs->PutInPlace();
    } catch (const WriteError&) {
    }
    tempdir->Remove();
  };
  under_way.Then(end_run_under_way);
  try {
    TestOutcome test = RunTest(conversione, options.conn);
    outcome.test_result = test.result;
    outcome.lista_medici = test.lista_medici;
    outcome.last_error = test.last_error;
    outcome.opening_cause = test.opening_cause;
    if (!test.private_copy.empty()) {
      // The plug-in removes its private copies when it is done with them;
      // a program that ends at once removes them here.
      under_way.Then([end_run_under_way, copy = test.private_copy] {
        end_run_under_way();
        std::error_code ignored;
        std::filesystem::remove_all(copy, ignored);
      });
    }
    if (test.result) {
      if (options.count_source_patients)
        if (std::optional<int64_t> patients = options.count_source_patients(options.conn))
          session->SourcePatientsKnown(*patients);
      std::vector<std::string> doctors = SplitDoctors(test.lista_medici);
      std::string medico = options.medico ? *options.medico : doctors.empty() ? "" : doctors.front();
      host::Value interface = MakeInterface(session);
      host::Args args{host::Arg(medico), host::Arg(option_list), host::Arg::Ref(interface)};
      outcome.result = ResultOf(conversione->Call("Converti", args));
      outcome.last_error = host::TextOf(conversione->Get("LastError"));
    }
  } catch (const host::Failure& failure) {
    outcome.raised = Raised(failure);
  } catch (...) {
    session->Abandon();
    throw;
  }
  session->Finish();
  std::string last_error =
      outcome.raised ? std::to_string(outcome.raised->number) + " " + outcome.raised->description : outcome.last_error;
  session->Record([&] { session->archive().EndRun(run, LocalTime(), outcome.result, last_error); });
  session->Record([&] { session->archive().Close(); });
  // An archive of a run that never reached a patient would only bar the
  // corrected command: it goes, with its trace.
  const bool failed = !outcome.test_result || outcome.raised || !outcome.result;
  outcome.removed_empty = failed && session->counts().patients_taken == 0 && session->write_failure().empty();
  if (outcome.removed_empty) {
    outputs->Discard();
    outcome.archived = false;
  } else {
    session->Record([&] { outputs->PutInPlace(); });
  }
  if (!outcome.removed_empty && std::filesystem::exists(options.archive + "-wal"))
    warn(options.archive + "-wal lies beside the archive and holds patients that the archive needs: keep the two "
         "together (SQLite takes the log in when the archive is next opened with room on the disk)");
  ClearStopRequest();

  for (const std::string& rule : session->setup().failures.Unfired()) warn(rule);
  const SessionCounts& counts = session->counts();
  outcome.write_failure = session->write_failure();
  outcome.records_per_store = counts.records_per_store;
  outcome.patients_taken = counts.patients_taken;
  outcome.patients_refused = counts.patients_refused;
  outcome.patients_ok = counts.patients_ok;
  outcome.patients_err = counts.patients_err;
  outcome.files = counts.files;
  outcome.file_bytes = counts.file_bytes;
  outcome.stopped = session->stop_answered() && session->last_percent() < 100;
  auto since_start = [&](std::chrono::steady_clock::time_point at) {
    return std::chrono::duration<double>(at - started).count();
  };
  outcome.line_seconds.reserve(session->line_times().size());
  for (const Session::LineTime& line : session->line_times())
    outcome.line_seconds.emplace_back(since_start(line.opened), since_start(line.last));
  outcome.seconds = since_start(std::chrono::steady_clock::now());
  return outcome;
}

void EndRunNow() {
  std::lock_guard<std::mutex> lock(under_way_mutex);
  if (!end_under_way) return;
  end_under_way();
  end_under_way = nullptr;
}

}  // namespace refhost
