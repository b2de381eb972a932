// The Interface object and the objects it holds: framework, archivio with
// its catalogues and their entries, and utente.

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>

#include "host/failure.h"
#include "host/text.h"
#include "tools/kairon-convert/objects.h"
#include "tools/kairon-convert/paths.h"

namespace refhost {

namespace {

// A failure to remove a file, as the host's runtime numbers it.
constexpr int32_t kPathAccessError = 75;

bool IsBlank(const host::Value& value) { return host::text::Trim(host::TextOf(value)).empty(); }

// The percentage of UpdateProgress, whatever numeric form it comes in.
int PercentOf(const host::Value& value) {
  switch (value.type()) {
    case host::Type::I16:
    case host::Type::I32:
    case host::Type::Bool:
      return value.integer();
    case host::Type::F64:
      return static_cast<int>(std::lround(value.number()));
    case host::Type::Text:
      return std::atoi(value.text().c_str());
    default:
      return 0;
  }
}

// An entry of a catalogue ("ICD9:401.9"): its members are the catalogue's
// columns after code.
class EntryObject : public HostObject {
 public:
  EntryObject(std::shared_ptr<Session> session, std::string name, const std::vector<std::string>& columns,
              const std::vector<std::string>& values)
      : HostObject(std::move(session), std::move(name)) {
    for (size_t i = 0; i < columns.size(); ++i) members_.emplace(columns[i], host::Value(values[i]));
  }

 protected:
  host::Value Read(std::string_view member) override { return Find(member); }
  void Write(std::string_view member, const host::Value& value) override { Find(member) = value; }

 private:
  host::Value& Find(std::string_view member) {
    auto it = members_.find(member);
    if (it == members_.end()) host::failures::Raise(host::failures::kMemberNotSupported);
    return it->second;
  }
  std::map<std::string, host::Value, host::NameLess> members_;
};

// archivio.ICD9, archivio.Farmaci (Carica) and archivio.Esenzioni
// (CaricaCodice): the entry of a code, or Empty.
class CatalogueObject : public HostObject {
 public:
  CatalogueObject(std::shared_ptr<Session> session, const std::string& kind, std::string method,
                  const Catalogue& catalogue)
      : HostObject(std::move(session), "Interface.archivio." + kind),
        kind_(kind),
        method_(std::move(method)),
        catalogue_(catalogue) {}

 protected:
  host::Value Read(std::string_view) override { host::failures::Raise(host::failures::kMemberNotSupported); }

  host::Value Invoke(std::string_view member, host::Args& args) override {
    if (!host::SameName(member, method_)) return HostObject::Invoke(member, args);
    RequireArgs(args, 1);
    std::string code = host::TextOf(args[0].value());
    const std::vector<std::string>* values = catalogue_.Find(code);
    if (values == nullptr) return {};
    return host::ObjectRef(
        std::make_shared<EntryObject>(shared_session(), kind_ + ":" + code, catalogue_.columns(), *values));
  }

 private:
  std::string kind_, method_;
  const Catalogue& catalogue_;
};

class ArchivioObject : public HostObject {
 public:
  explicit ArchivioObject(const std::shared_ptr<Session>& session)
      : HostObject(session, "Interface.archivio"),
        icd9_(std::make_shared<CatalogueObject>(session, "ICD9", "Carica", session->setup().icd9)),
        farmaci_(std::make_shared<CatalogueObject>(session, "Farmaci", "Carica", session->setup().farmaci)),
        esenzioni_(
            std::make_shared<CatalogueObject>(session, "Esenzioni", "CaricaCodice", session->setup().esenzioni)) {}

 protected:
  host::Value Read(std::string_view member) override {
    if (host::SameName(member, "ICD9")) return icd9_;
    if (host::SameName(member, "Farmaci")) return farmaci_;
    if (host::SameName(member, "Esenzioni")) return esenzioni_;
    host::failures::Raise(host::failures::kMemberNotSupported);
  }

 private:
  host::ObjectRef icd9_, farmaci_, esenzioni_;
};

class FrameworkObject : public HostObject {
 public:
  explicit FrameworkObject(const std::shared_ptr<Session>& session) : HostObject(session, "Interface.framework") {}

 protected:
  host::Value Read(std::string_view) override { host::failures::Raise(host::failures::kMemberNotSupported); }

  host::Value Invoke(std::string_view member, host::Args& args) override {
    if (host::SameName(member, "Killfile")) {
      RequireArgs(args, 1);
      Killfile(host::TextOf(args[0].value()));
      return {};
    }
    if (host::SameName(member, "NewRicetta")) {
      RequireArgs(args, 0);
      return host::ObjectRef(
          std::make_shared<RicettaObject>(shared_session(), "Ricetta#" + std::to_string(session().NextRicetta())));
    }
    if (host::SameName(member, "NewItemRicetta")) {
      RequireArgs(args, 0);
      return host::ObjectRef(std::make_shared<ItemRicettaObject>(
          shared_session(), "ItemRicetta#" + std::to_string(session().NextItemRicetta())));
    }
    return HostObject::Invoke(member, args);
  }

 private:
  // Removes the file at path; nothing for a blank path or where no file
  // lies. Only what lies in the temporary folder is the plug-in's to remove:
  // a path that leads out of it (a title with "..", a link) is refused with
  // 75, and nothing is looked at there.
  void Killfile(const std::string& path) {
    if (host::text::Trim(path).empty()) return;
    const std::string* folder = TemporaryFolderOf(session().setup().utente);
    if (folder == nullptr || !InTemporaryFolder(path, *folder))
      throw host::Failure(kPathAccessError, "Errore di accesso al percorso/file");
    std::error_code ec;
    const std::filesystem::file_status status = std::filesystem::symlink_status(path, ec);
    if (ec || std::filesystem::is_directory(status) || !std::filesystem::exists(status)) return;
    if (!std::filesystem::remove(path, ec) && ec)
      throw host::Failure(kPathAccessError, "Errore di accesso al percorso/file");
  }
};

class InterfaceObject : public HostObject {
 public:
  explicit InterfaceObject(const std::shared_ptr<Session>& session)
      : HostObject(session, "Interface"),
        framework_(std::make_shared<FrameworkObject>(session)),
        archivio_(std::make_shared<ArchivioObject>(session)) {
    auto user = std::make_shared<AnyMemberObject>(session, "Interface.utente");
    for (const auto& [member, text] : session->setup().utente) user->Assign(member, text);
    utente_ = user;
  }

 protected:
  host::Value Read(std::string_view member) override {
    if (host::SameName(member, "FiltroDa")) return session().setup().from;
    if (host::SameName(member, "FiltroA")) return session().setup().to;
    if (host::SameName(member, "framework")) return framework_;
    if (host::SameName(member, "archivio")) return archivio_;
    if (host::SameName(member, "utente")) return utente_;
    host::failures::Raise(host::failures::kMemberNotSupported);
  }

  host::Value Invoke(std::string_view member, host::Args& args) override {
    for (const char* kind : {"AddMsg", "ChangeMsg", "AddInfo"})
      if (host::SameName(member, kind)) {
        RequireArgs(args, 1);
        session().Message(kind, host::TextOf(args[0].value()));
        return {};
      }
    if (host::SameName(member, "UpdateProgress")) {
      RequireArgs(args, 2);
      if (session().Progress(PercentOf(args[0].value()))) args[1].value() = host::Value::Bool(true);
      return {};
    }
    if (host::SameName(member, "DaiPaziente")) return DaiPaziente(args);
    if (host::SameName(member, "DaiCodiceRegioneASL")) {
      RequireArgs(args, 2, 3);
      std::optional<std::string> region = session().setup().provinces.RegionOf(host::TextOf(args[1].value()));
      return region ? *region + host::TextOf(args[0].value()) : "";
    }
    if (host::SameName(member, "ImportaAnagrafica")) {
      RequireArgs(args, 1);
      auto* patient = dynamic_cast<PatientObject*>(args[0].value().object().get());
      if (patient == nullptr) host::failures::Raise(host::failures::kTypeMismatch);
      if (IsBlank(patient->record().members.Get("cognome"))) return host::Value::Bool(false);
      session().ImportPatient(patient->record());
      return host::Value::Bool(true);
    }
    return HostObject::Invoke(member, args);
  }

 private:
  // DaiPaziente(cognome, nome, CodFisc, DataNat, CodiceSSN).
  host::Value DaiPaziente(host::Args& args) {
    RequireArgs(args, 5);
    session().PatientLineOpened();
    if (IsBlank(args[2].value()) && IsBlank(args[3].value()) && IsBlank(args[4].value())) {
      session().PatientRefused();
      return {};
    }
    std::shared_ptr<PatientRecord> record = session().BeginPatient();
    if (std::optional<host::Date> born = host::DateOf(args[3].value())) record->members.Set("DataNascita", *born);
    return host::ObjectRef(std::make_shared<PatientObject>(shared_session(), std::move(record)));
  }

  host::ObjectRef framework_, archivio_, utente_;
};

}  // namespace

host::ObjectRef MakeInterface(const std::shared_ptr<Session>& session) {
  return std::make_shared<InterfaceObject>(session);
}

}  // namespace refhost
