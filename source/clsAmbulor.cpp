#include "source/clsAmbulor.h"

#include "host/object.h"
#include "host/text.h"
#include "plugin/modConversione.h"
#include "source/opening.h"
#include "source/recordset.h"

namespace cnv {
namespace {

// The user database's file name is 11 characters long ("GX_USER.FDB"); the
// folder is what is left of the path without it.
constexpr size_t kUserFileNameLength = 11;

std::string ConnectionTextOf(const std::string& path) {
  return "Driver={Firebird/InterBase(r) driver};Uid=SYSDBA;Pwd=gravelpin; DbName=" + path;
}

}  // namespace

clsAmbulor::clsAmbulor() = default;

clsAmbulor::~clsAmbulor() { ChiudiDatabase(); }

bool clsAmbulor::Init(const std::string& path_ambulor) {
  try {
    // A server's "host:path" names no file here: the server tells whether
    // it has it when the databases are opened.
    if (!EsisteFile(path_ambulor) && source::opening::IsLocalPath(path_ambulor)) {
      // Nothing in LastError; the person is still told why.
      if (!host::text::Trim(path_ambulor).empty()) apertura_.SetCause(source::opening::CheckFile(path_ambulor).cause);
      return false;
    }
    path_ambulor_ = path_ambulor;
    return true;
  } catch (...) {
    host::Failure failure = host::CurrentFailure();
    last_error_ = std::to_string(failure.number()) + " - " + failure.description();
    return false;
  }
}

void clsAmbulor::ApriDatabase() {
  size_t length = host::text::Length(path_ambulor_);
  if (length < kUserFileNameLength) host::failures::Raise(host::failures::kInvalidArgument);
  std::string folder = host::text::Left(path_ambulor_, length - kUserFileNameLength);
  // Each file is checked before the engine sees it, and opened through a
  // private copy when it can't be written; a failure keeps its cause.
  const auto open = [this](source::Connection& connection, const std::string& path) {
    const std::string attached = apertura_.Prepare(path);
    try {
      connection.Open(ConnectionTextOf(attached));
    } catch (const host::Failure& failure) {
      apertura_.Explain(path, failure);
      throw;
    }
  };
  open(conn_user_, path_ambulor_);
  open(conn_media_, source::opening::FindBeside(folder, "GX_MEDIA.FDB"));
  open(conn_data_, source::opening::FindBeside(folder, "GX_DATA.FDB"));
}

void clsAmbulor::ChiudiDatabase() {
  conn_user_.Close();
  conn_media_.Close();
  conn_data_.Close();
  apertura_.RemoveCopies();
}

std::string clsAmbulor::ListaMedici() {
  try {
    ApriDatabase();
    std::string lista;
    source::Recordset rs;
    rs.Open("Select * from STUDIO", conn_user_);
    while (!rs.Eof()) {
      if (!lista.empty()) lista += ";";
      lista += host::text::Trim(TextOf(rs.Field("cognome")) + " " + TextOf(rs.Field("nome")));
      rs.MoveNext();
    }
    rs.Close();
    return lista;
  } catch (...) {
    host::Failure failure = host::CurrentFailure();
    last_error_ = std::to_string(failure.number()) + " - " + failure.description();
    return "";
  }
}

void clsAmbulor::ErroreMsg(const std::string& msg, const host::Failure& failure) {
  last_error_ = host::text::Trim(msg + " Errore " + std::to_string(failure.number()) + " " + failure.description());
}

void clsAmbulor::FailureTail(host::Value& paziente, const char* suffix) {
  host::Failure failure = host::CurrentFailure();
  ErroreMsg(TextOf(host::Get(paziente, "nomecompleto")) + suffix, failure);
}

}  // namespace cnv
