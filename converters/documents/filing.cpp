#include "converters/documents/filing.h"

#include "converters/documents/file_name.h"
#include "converters/documents/gzip_decoder.h"
#include "host/failure.h"
#include "host/object.h"
#include "plugin/modConversione.h"

namespace cnv::filing {
namespace {

[[noreturn]] void RaiseBadFileName() { throw host::Failure(kBadFileName, "Nome o numero di file non valido"); }

}  // namespace

void RaiseFileFailure(temp_files::Failure failure) {
  switch (failure) {
    case temp_files::Failure::kBadName:
      RaiseBadFileName();
    case temp_files::Failure::kPathNotFound:
      throw host::Failure(kPathNotFound, "Impossibile trovare il percorso");
    case temp_files::Failure::kAccess:
      break;
  }
  throw host::Failure(kPathAccessError, "Errore di accesso al percorso/file");
}

TempFolder::~TempFolder() {
  for (const auto& [name, identity] : written_) folder_.RemoveIfSame(name, identity);
}

bool TempFolder::Make(const std::string& file_name, temp_files::File& file, temp_files::Failure& failure) {
  if (!IsFileName(file_name)) {
    failure = temp_files::Failure::kBadName;
    return false;
  }
  if (!folder_.Create(file_name, file, failure)) return false;
  written_[file_name] = file.identity();
  return true;
}

temp_files::File TempFolder::Create(const std::string& file_name) {
  temp_files::File file;
  temp_files::Failure failure;
  Make(file_name, file, failure);
  return file;
}

void TempFolder::Write(const std::string& file_name, const std::vector<uint8_t>& bytes) {
  temp_files::File file;
  temp_files::Failure failure;
  if (!Make(file_name, file, failure)) RaiseFileFailure(failure);
  if (!file.Write(bytes.data(), bytes.size(), failure)) {
    folder_.Discard(file, file_name);
    RaiseFileFailure(failure);
  }
  const temp_files::Identity identity = file.identity();
  if (!file.Close(failure)) {
    folder_.RemoveIfSame(file_name, identity);
    RaiseFileFailure(failure);
  }
}

bool IsGzip(const std::vector<uint8_t>& bytes) {
  if (bytes.size() < 3) throw host::Failure(kSubscriptOutOfRange, "Indice non compreso nell'intervallo");
  return bytes[0] == 0x1F && bytes[1] == 0x8B && bytes[2] == 0x08;
}

host::Value RequiredBytes(host::Value column) {
  if (column.is_null()) host::failures::Raise(host::failures::kInvalidUseOfNull);
  return BytesOf(std::move(column));
}

std::string CleanName(const std::string& name) {
  std::string blanks;
  for (char c : name) blanks += c == ' ' ? '_' : c;
  std::string clean;
  for (char c : blanks) {
    if (c == '/')
      clean += " di ";
    else
      clean += c;
  }
  return clean;
}

void Killfile(const TempFolder& folder, const std::string& file_name) {
  if (!file_name.empty() && !IsFileName(file_name)) return;
  host::Value percorso = file_name.empty() ? std::string() : folder.PathOf(file_name);
  host::Call(host::Get(InterfaceCorrente(), "framework"), "Killfile", {host::Arg::Ref(percorso)});
}

void SalvaFile(host::Value& paziente, host::Value& id, const std::string& title, const TempFolder& folder,
               const std::string& file_name) {
  if (!IsFileName(file_name)) return;
  host::Value percorso = folder.PathOf(file_name);
  host::Call(host::Get(paziente, "Files"), "SalvaFile", {host::Arg::Ref(id), title, host::Arg::Ref(percorso)});
}

bool File(TempFolder& folder, host::Value& paziente, host::Value& id, const std::string& title,
          const std::string& file_name, const std::vector<uint8_t>& bytes) {
  if (IsGzip(bytes)) {
    if (DecodeGzip(bytes, folder, file_name) != kGzipDone) return false;
  } else {
    if (!IsFileName(file_name)) RaiseBadFileName();
    Killfile(folder, file_name);
    folder.Write(file_name, bytes);
  }
  SalvaFile(paziente, id, title, folder, file_name);
  return true;
}

}  // namespace cnv::filing
