// The objects that the host hands a conversion. The Interface leads to all
// others: framework, archivio (ICD9, Farmaci, Esenzioni and their entries),
// utente, and the patients that DaiPaziente gives, with their stores.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "tools/kairon-convert/host_object.h"
#include "tools/kairon-convert/session.h"

namespace refhost {

// The Interface object ("Interface"), whose utente holds the texts of the
// session's utente.
host::ObjectRef MakeInterface(const std::shared_ptr<Session>& session);

// A patient object (Paziente#N): any member, in order of setting, besides
// nomecompleto (cognome, a blank, nome) and the read-only stores and Files.
class PatientObject : public HostObject {
 public:
  PatientObject(std::shared_ptr<Session> session, std::shared_ptr<PatientRecord> record);
  PatientRecord& record() { return *record_; }

 protected:
  host::Value Read(std::string_view member) override;
  void Write(std::string_view member, const host::Value& value) override;

 private:
  std::shared_ptr<PatientRecord> record_;
  std::map<std::string, host::ObjectRef, host::NameLess> stores_;  // made at first read
};

// An object of framework.NewRicetta (Ricetta#K), which remembers the
// prescriptions row of its last Ricette.Salva.
class RicettaObject : public AnyMemberObject {
 public:
  using AnyMemberObject::AnyMemberObject;
  std::optional<int64_t> prescription_id;
};

// An object of framework.NewItemRicetta (ItemRicetta#K).
class ItemRicettaObject : public AnyMemberObject {
 public:
  using AnyMemberObject::AnyMemberObject;
};

}  // namespace refhost
