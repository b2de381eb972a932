// The patient object and what hangs from it: the record stores, Problemi
// with its Lista, Ricette and the four prescription item stores, and Files.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/failure.h"
#include "tools/kairon-convert/file_content.h"
#include "tools/kairon-convert/objects.h"
#include "tools/kairon-convert/paths.h"
#include "tools/kairon-convert/typed_value.h"

namespace refhost {

namespace {

// The stores of a patient, as the host spells them.
constexpr std::string_view kStores[] = {
    "ADI", "ADP", "Allergie", "Appunti", "BMI", "Certificati", "CertificatiINPS", "Esenzioni", "Eventi", "PPIP",
    "PrescrizioneEsami", "PrescrizioneFarmaci", "PrescrizioneLibera", "PrescrizioneVisite", "Pressione", "Problemi",
    "Rapporti", "RefertiEsami", "RefertiVisite", "Ricette", "Ricoveri", "TerapieCroniche", "Vaccinazioni",
    "VisiteAmbDom"};

// The store's name as the host spells it, or "" for a name that isn't a
// store.
std::string_view StoreName(std::string_view member) {
  for (std::string_view store : kStores)
    if (host::SameName(store, member)) return store;
  return {};
}

bool IsItemStore(std::string_view store) { return store.rfind("Prescrizione", 0) == 0; }

template <typename T>
T& ObjectArg(const host::Arg& arg) {
  T* object = dynamic_cast<T*>(arg.value().object().get());  // 424 for no object
  if (object == nullptr) host::failures::Raise(host::failures::kTypeMismatch);
  return *object;
}

// The arguments as a JSON array of typed values.
std::string TypedArgsText(const host::Args& args) {
  std::string text;
  text.reserve(64 * args.size() + 2);  // about the length of an argument as JSON
  text += '[';
  for (const host::Arg& arg : args) {
    if (text.size() > 1) text += ',';
    AppendTypedValue(text, arg.value());
  }
  return text + "]";
}

class StoreObject : public HostObject {
 public:
  StoreObject(std::shared_ptr<Session> session, const std::string& holder, std::string store, int64_t patient)
      : HostObject(std::move(session), holder + "." + store), store_(std::move(store)), patient_(patient) {}

 protected:
  host::Value Read(std::string_view) override { host::failures::Raise(host::failures::kMemberNotSupported); }

  host::Value Invoke(std::string_view member, host::Args& args) override {
    if (!host::SameName(member, "Salva")) return HostObject::Invoke(member, args);
    Save(args);
    session().CountRecord(store_);
    return host::Value::Bool(true);
  }

  // One Salva: a records row, unless the store says otherwise. Arguments
  // with a long text go into the row a piece at a time.
  virtual void Save(host::Args& args) {
    std::vector<host::Value> values;  // sharing the arguments' texts
    for (const host::Arg& arg : args) values.push_back(arg.value());
    if (!HoldsLongText(values)) return session().archive().AddRecord(patient_, store_, TypedArgsText(args));
    size_t length = 0;
    WriteTypedArray(values, [&](std::string_view piece) { length += piece.size(); });
    session().archive().AddRecord(patient_, store_, length, [&](const std::function<void(std::string_view)>& write) {
      WriteTypedArray(values, write);
    });
  }

  const std::string& store() const { return store_; }
  int64_t patient() const { return patient_; }

 private:
  std::string store_;
  int64_t patient_;
};

// An entry of Problemi.Lista: ID, Descrizione, idrif1.
class ProblemItem : public HostObject {
 public:
  ProblemItem(std::shared_ptr<Session> session, const std::string& list, std::string id, host::Value description)
      : HostObject(std::move(session), list + "." + id), id_(std::move(id)), description_(std::move(description)) {}

 protected:
  host::Value Read(std::string_view member) override {
    if (host::SameName(member, "ID")) return id_;
    if (host::SameName(member, "Descrizione")) return description_;
    if (host::SameName(member, "idrif1")) return "";
    host::failures::Raise(host::failures::kMemberNotSupported);
  }

 private:
  std::string id_;
  host::Value description_;
};

// Problemi.Lista: the problems saved, first to last.
class ProblemList : public HostObject {
 public:
  using HostObject::HostObject;

  std::vector<host::Value> Items() override { return items_; }

  void Add(const std::string& id, const host::Value& description) {
    items_.emplace_back(std::make_shared<ProblemItem>(shared_session(), trace_name(), id, description));
  }

 protected:
  host::Value Read(std::string_view member) override {
    if (host::SameName(member, "Count")) return host::Value::I32(static_cast<int32_t>(items_.size()));
    host::failures::Raise(host::failures::kMemberNotSupported);
  }

 private:
  std::vector<host::Value> items_;
};

class ProblemStore : public StoreObject {
 public:
  ProblemStore(std::shared_ptr<Session> session, const std::string& holder, int64_t patient)
      : StoreObject(session, holder, "Problemi", patient),
        list_(std::make_shared<ProblemList>(session, trace_name() + ".Lista")) {}

 protected:
  host::Value Read(std::string_view member) override {
    if (host::SameName(member, "Lista")) return host::ObjectRef(list_);
    return StoreObject::Read(member);
  }

  void Save(host::Args& args) override {
    StoreObject::Save(args);
    list_->Add("P" + std::to_string(session().NextProblem()), args.size() >= 4 ? args[3].value() : host::Value());
  }

 private:
  std::shared_ptr<ProblemList> list_;
};

// Ricette.Salva(ricetta): a prescriptions row with the members of that moment.
class RicetteStore : public StoreObject {
 public:
  using StoreObject::StoreObject;

 protected:
  void Save(host::Args& args) override {
    RequireArgs(args, 1);
    auto& ricetta = ObjectArg<RicettaObject>(args[0]);
    ricetta.prescription_id = session().archive().AddPrescription(patient(), ricetta.members().JsonText());
  }
};

// PrescrizioneXxx.Salva(item, ricetta): an item of the prescriptions row
// that the ricetta's last Ricette.Salva wrote (none if it was never saved).
class ItemStore : public StoreObject {
 public:
  using StoreObject::StoreObject;

 protected:
  void Save(host::Args& args) override {
    RequireArgs(args, 2);
    auto& item = ObjectArg<ItemRicettaObject>(args[0]);
    auto& ricetta = ObjectArg<RicettaObject>(args[1]);
    session().archive().AddPrescriptionItem(ricetta.prescription_id, store(), item.members().JsonText());
  }
};

// An open file, closed with its holder.
struct Descriptor {
  int fd;
  ~Descriptor() {
    if (fd >= 0) close(fd);
  }
};

// Failures of SalvaFile, which the run outlives: a path that leads out of
// the temporary folder, and a file larger than a row of the archive holds.
constexpr int32_t kPathAccessError = 75;
constexpr int32_t kFileTooLarge = 1002;

// Files.SalvaFile(id, title, path).
class FilesStore : public HostObject {
 public:
  FilesStore(std::shared_ptr<Session> session, const std::string& holder, int64_t patient)
      : HostObject(std::move(session), holder + ".Files"), patient_(patient) {}

 protected:
  host::Value Read(std::string_view) override { host::failures::Raise(host::failures::kMemberNotSupported); }

  void DescribeCall(std::string_view member, const host::Args& args, std::string& line) override {
    if (!host::SameName(member, "SalvaFile") || args.size() != 3) return;
    std::optional<FileDigest> file = Digest(args[2]);
    if (!file) {
      line += ",\"file\":null";
      return;
    }
    line += ",\"file\":{\"size\":" + std::to_string(file->size) + ",\"sha256\":";
    AppendJsonString(line, file->sha256);
    line += '}';
  }

  host::Value Invoke(std::string_view member, host::Args& args) override {
    if (!host::SameName(member, "SalvaFile")) return HostObject::Invoke(member, args);
    RequireArgs(args, 3);
    if (args[2].value().type() == host::Type::Object) return {};
    StoredFile stored;
    stored.path = host::TextOf(args[2].value());
    if (!stored.path.empty() && !InFolder(stored.path))
      throw host::Failure(kPathAccessError, "Errore di accesso al percorso/file");
    // The file is read once: its digest is taken while it is stored.
    const Descriptor file{stored.path.empty() ? -1 : open(stored.path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)};
    struct stat st {};
    if (file.fd < 0 || fstat(file.fd, &st) != 0 || !S_ISREG(st.st_mode)) return {};
    stored.id = "F" + std::to_string(session().PeekFile());
    stored.patient_id = patient_;
    stored.title = host::TextOf(args[1].value());
    stored.name = BaseName(stored.path);
    stored.size = st.st_size;
    if (!session().archive().Holds(stored))
      throw host::Failure(kFileTooLarge, "File troppo grande per l'archivio");
    std::optional<std::string> sha256 = session().archive().AddFileDigesting(stored, file.fd);
    if (!sha256) return {};
    session().NextFile();
    session().CountFile(stored.size);
    args[0].value() = stored.id;
    return {};
  }

 private:
  // The file at the path argument, nullopt for none (or a path that isn't
  // text, or that leads out of the temporary folder: nothing is read there).
  std::optional<FileDigest> Digest(const host::Arg& path) {
    if (path.value().type() == host::Type::Object) return std::nullopt;
    const std::string text = host::TextOf(path.value());
    if (text.empty() || !InFolder(text)) return std::nullopt;
    return DigestFile(text);
  }

  bool InFolder(const std::string& path) {
    const std::string* folder = TemporaryFolderOf(session().setup().utente);
    return folder != nullptr && InTemporaryFolder(path, *folder);
  }

  // The plug-in may build its paths with either separator.
  static std::string BaseName(const std::string& path) {
    size_t slash = path.find_last_of("/\\");
    return slash == std::string::npos ? path : path.substr(slash + 1);
  }

  int64_t patient_;
};

}  // namespace

PatientObject::PatientObject(std::shared_ptr<Session> session, std::shared_ptr<PatientRecord> record)
    : HostObject(std::move(session), "Paziente#" + std::to_string(record->number)), record_(std::move(record)) {}

host::Value PatientObject::Read(std::string_view member) {
  if (host::SameName(member, "nomecompleto"))
    return host::TextOf(record_->members.Get("cognome")) + " " + host::TextOf(record_->members.Get("nome"));
  std::string_view store = StoreName(member);
  if (store.empty() && !host::SameName(member, "Files")) return record_->members.Get(member);
  if (store.empty()) store = "Files";
  auto it = stores_.find(store);
  if (it != stores_.end()) return it->second;
  host::ObjectRef object;
  if (store == "Files")
    object = std::make_shared<FilesStore>(shared_session(), trace_name(), record_->number);
  else if (store == "Problemi")
    object = std::make_shared<ProblemStore>(shared_session(), trace_name(), record_->number);
  else if (store == "Ricette")
    object = std::make_shared<RicetteStore>(shared_session(), trace_name(), std::string(store), record_->number);
  else if (IsItemStore(store))
    object = std::make_shared<ItemStore>(shared_session(), trace_name(), std::string(store), record_->number);
  else
    object = std::make_shared<StoreObject>(shared_session(), trace_name(), std::string(store), record_->number);
  stores_.emplace(store, object);
  return object;
}

void PatientObject::Write(std::string_view member, const host::Value& value) {
  if (host::SameName(member, "nomecompleto") || host::SameName(member, "Files") || !StoreName(member).empty())
    host::failures::Raise(host::failures::kMemberNotSupported);
  record_->members.Set(member, value);
  session().PatientChanged(record_);
}

}  // namespace refhost
