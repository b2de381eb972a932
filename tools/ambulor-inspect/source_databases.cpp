#include "tools/ambulor-inspect/source_databases.h"

#include "host/failure.h"
#include "host/text.h"

namespace inspect {
namespace {

// The user database's file name; the other two lie beside it.
constexpr size_t kUserFileNameLength = 11;

}  // namespace

SourceDatabases::SourceDatabases(const std::string& conn) {
  const size_t length = host::text::Length(conn);
  if (length < kUserFileNameLength)
    throw Unopenable(conn + ": not the path of a GX_USER.FDB (the three databases lie in one folder)");
  const std::string folder = host::text::Left(conn, length - kUserFileNameLength);
  user_path_ = conn;
  media_path_ = source::opening::FindBeside(folder, FileName(SourceFile::Media));
  data_path_ = source::opening::FindBeside(folder, FileName(SourceFile::Data));
  for (SourceFile file : {SourceFile::User, SourceFile::Media, SourceFile::Data}) {
    const std::string& path = PathOf(file);
    try {
      const std::string attached = opening_.Prepare(path);
      try {
        Of(file).Open("Driver={Firebird/InterBase(r) driver};Uid=SYSDBA;Pwd=gravelpin; DbName=" + attached);
      } catch (const host::Failure& failure) {
        opening_.Explain(path, failure);
        throw;
      }
    } catch (const host::Failure& failure) {
      throw Unopenable(!opening_.cause().empty()
                           ? opening_.cause()
                           : path + ": " + std::to_string(failure.number()) + " " + failure.description());
    }
  }
}

}  // namespace inspect
