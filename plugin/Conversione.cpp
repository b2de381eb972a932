#include "plugin/Conversione.h"

#include <atomic>

#include "host/failure.h"
#include "plugin/modConversione.h"
#include "source/clsAmbulor.h"

namespace cnv {
namespace {

std::atomic<int> live_instances{0};

void RequireArguments(const host::Args& args, size_t count) {
  if (args.size() != count) host::failures::Raise(host::failures::kWrongArgumentCount);
}

}  // namespace

Conversione::Conversione() { ++live_instances; }

Conversione::~Conversione() { --live_instances; }

int Conversione::LiveInstances() { return live_instances; }

host::Value Conversione::Get(std::string_view member) {
  if (host::SameName(member, "LastError")) return last_error_;
  if (host::SameName(member, "NomeProgramma")) return "Ambulor";
  if (host::SameName(member, "TipoOrigine")) return host::Value::I32(3);
  if (host::SameName(member, "DefaultFile")) return "GX_USER.FDB";
  if (host::SameName(member, "ListaOpzioni")) return kListaOpzioni;
  // Beside the host's contract: why the last Test's source didn't open, and
  // the private folder of copies that a host may remove if it ends at once.
  if (host::SameName(member, "CausaApertura")) return worker_ ? worker_->CausaApertura() : std::string();
  if (host::SameName(member, "CopiaPrivata")) return worker_ ? worker_->CopiaPrivata() : std::string();
  for (const char* empty : {"DefaultDSN", "DefaultHost", "DefaultPort", "DefaultDatabaseName", "DefaultUsername",
                            "DefaultPassword", "DefaultCartellaImmagini"}) {
    if (host::SameName(member, empty)) return "";
  }
  host::failures::Raise(host::failures::kMemberNotSupported);
}

void Conversione::Set(std::string_view, const host::Value&) {
  host::failures::Raise(host::failures::kMemberNotSupported);
}

host::Value Conversione::Call(std::string_view member, host::Args& args) {
  if (host::SameName(member, "Test")) {
    RequireArguments(args, 2);
    return host::Value::Bool(Test(host::TextOf(args[0].value()), args[1].value()));
  }
  if (host::SameName(member, "Converti")) {
    RequireArguments(args, 3);
    return host::Value::Bool(
        Converti(host::TextOf(args[0].value()), host::TextOf(args[1].value()), args[2].value()));
  }
  RequireArguments(args, 0);
  return Get(member);
}

bool Conversione::Test(const std::string& conn, host::Value& lista_medici) {
  lista_medici = "";
  worker_.reset();
  worker_ = std::make_unique<clsAmbulor>();
  // Only the first field of the connection text is read: the path of the
  // user database. An empty text has no first field.
  if (conn.empty()) throw host::Failure(9, "Indice non compreso nell'intervallo");
  std::string path = conn.substr(0, conn.find(';'));
  if (!worker_->Init(path)) {
    last_error_ = worker_->LastError();
    return false;
  }
  lista_medici = worker_->ListaMedici();
  return true;
}

bool Conversione::Converti(const std::string& medico, const std::string& opzioni, const host::Value& interface) {
  // Each step that fails is passed over; nothing reaches the host.
  InterfaceCorrente() = interface;
  if (worker_ == nullptr) {
    last_error_ = "Nessuna origine aperta: Test deve precedere Converti";
    return false;
  }
  bool converted = false;
  try {
    converted = worker_->Converti(medico, opzioni);
  } catch (...) {
    converted = false;
  }
  if (!converted) last_error_ = worker_->LastError();
  return converted;
}

}  // namespace cnv
