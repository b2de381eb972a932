// One conversion as the convert command runs it: everything that can be
// refused is checked first, then the archive (and trace) is created, Test
// and Converti run, and the runs row is closed with the outcome.

#include <chrono>
#include <ctime>
#include <filesystem>
#include <stdexcept>

#include "host/failure.h"
#include "tools/kairon-convert/objects.h"
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

std::string Path(const std::string& given, const std::string& data_dir, const char* name) {
  return given.empty() ? (std::filesystem::path(data_dir) / name).string() : given;
}

// utente: the defaults, with the given members in place of those of the
// same name (without regard to case).
std::map<std::string, std::string> Utente(const std::map<std::string, std::string>& given) {
  std::map<std::string, std::string> utente = DefaultUtente();
  for (const auto& [member, text] : given) {
    std::erase_if(utente, [&](const auto& held) { return host::SameName(held.first, member); });
    utente[member] = text;
  }
  return utente;
}

std::string* FindMember(std::map<std::string, std::string>& utente, std::string_view member) {
  for (auto& [name, text] : utente)
    if (host::SameName(name, member)) return &text;
  return nullptr;
}

// The folder for temporary files: the one given, or a new one under the
// system's temporary folder that goes with this object.
class TemporaryFolder {
 public:
  explicit TemporaryFolder(const std::string& given) : path_(given) {
    if (!path_.empty()) return;
    path_ = (std::filesystem::temp_directory_path() / "kairon-convert-XXXXXX").string();
    if (mkdtemp(path_.data()) == nullptr) throw std::runtime_error("cannot create a temporary folder " + path_);
    own_ = true;
  }
  ~TemporaryFolder() {
    std::error_code ec;
    if (own_) std::filesystem::remove_all(path_, ec);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
  bool own_ = false;
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
  setup.provinces = Provinces::Load(Path("", options.data_dir, "province.csv"));
  setup.stop_at_progress = options.stop_at_patient;
  setup.from = options.from;
  setup.to = options.to;
  setup.utente = Utente(options.utente);
  setup.progress = options.progress;
  return setup;
}

PluginFailure Raised(const host::Failure& failure) { return {failure.number(), failure.description()}; }

}  // namespace

ConvertOutcome Convert(const host::ObjectRef& conversione, const ConvertOptions& options) {
  auto started = std::chrono::steady_clock::now();
  ConvertOutcome outcome;
  if (options.archive.empty()) throw std::runtime_error("no archive file given");
  std::error_code ec;
  if (std::filesystem::exists(options.archive, ec) && !options.overwrite)
    throw std::runtime_error(options.archive + " exists already (give --overwrite to replace it)");
  SessionSetup setup = ReadSetup(options);

  std::string option_list;
  try {
    option_list = options.options ? *options.options : DefaultOptions(host::TextOf(conversione->Get("ListaOpzioni")));
  } catch (const host::Failure& failure) {
    outcome.raised = Raised(failure);
    return outcome;
  }

  if (!options.trace.empty()) setup.trace = Trace::Open(options.trace);
  try {
    setup.archive = Archive::Create(options.archive, options.overwrite);
  } catch (...) {
    if (!options.trace.empty()) std::filesystem::remove(options.trace, ec);
    throw;
  }
  std::string* utente_tempdir = FindMember(setup.utente, "tempdir");
  TemporaryFolder tempdir(!options.tempdir.empty() || utente_tempdir == nullptr ? options.tempdir : *utente_tempdir);
  if (utente_tempdir != nullptr)
    *utente_tempdir = tempdir.path();
  else
    setup.utente["tempdir"] = tempdir.path();

  ClearStopRequest();
  auto session = std::make_shared<Session>(std::move(setup));
  int64_t run = session->archive().BeginRun(LocalTime(), options.conn, option_list);
  try {
    TestOutcome test = RunTest(conversione, options.conn);
    outcome.test_result = test.result;
    outcome.lista_medici = test.lista_medici;
    outcome.last_error = test.last_error;
    if (test.result) {
      std::vector<std::string> doctors = SplitDoctors(test.lista_medici);
      std::string medico = options.medico ? *options.medico : doctors.empty() ? "" : doctors.front();
      host::Value interface = MakeInterface(session);
      host::Args args{host::Arg(medico), host::Arg(option_list), host::Arg::Ref(interface)};
      outcome.result = ResultOf(conversione->Call("Converti", args));
      outcome.last_error = host::TextOf(conversione->Get("LastError"));
    }
  } catch (const host::Failure& failure) {
    outcome.raised = Raised(failure);
  }
  session->Finish();
  std::string last_error =
      outcome.raised ? std::to_string(outcome.raised->number) + " " + outcome.raised->description : outcome.last_error;
  session->archive().EndRun(run, LocalTime(), outcome.result, last_error);
  session->archive().Close();

  const SessionCounts& counts = session->counts();
  outcome.records_per_store = counts.records_per_store;
  outcome.patients_ok = counts.patients_ok;
  outcome.patients_err = counts.patients_err;
  outcome.files = counts.files;
  outcome.file_bytes = counts.file_bytes;
  outcome.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
  return outcome;
}

}  // namespace refhost
