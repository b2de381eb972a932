// Filing: the way from a binary column to a reference in the patient's file
// store. A document is written as a temporary file in the folder that the
// host's utente names (gzip streams decoded on the way), handed to
// Paziente.Files.SalvaFile, and removed through framework.Killfile. The
// converters compose these steps each in its own order; what differs between
// them (least length, Null, title, when the file is removed) stays theirs.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "converters/documents/file_name.h"
#include "converters/documents/temp_files.h"
#include "host/value.h"

namespace cnv::filing {

// Failures of the file steps, with the descriptions of an Italian runtime.
inline constexpr int32_t kBadFileName = 52;       // a name that isn't one file name in the folder
inline constexpr int32_t kPathAccessError = 75;   // the file system refused to create or write
inline constexpr int32_t kPathNotFound = 76;      // the folder isn't there
inline constexpr int32_t kSubscriptOutOfRange = 9;  // fewer bytes than the look at the start needs

// Raises the failure of a file step: 52, 76 or 75 with its description.
[[noreturn]] void RaiseFileFailure(temp_files::Failure failure);

// The folder for temporary files during one routine, and every file that the
// plug-in writes there. Takes the folder's path (utente's tempdir). Promises
// that nothing is created or written outside that folder, and that each file
// it wrote and that still lies there, unchanged in identity, is removed when
// it ends, normally or by a failure (no host call is made for it).
class TempFolder {
 public:
  explicit TempFolder(std::string path) : folder_(std::move(path)) {}
  ~TempFolder();
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const std::string& path() const { return folder_.path(); }

  // The folder, the platform's separator ("/", "\" on Windows), and the
  // file name (name and extension).
  std::string PathOf(const std::string& file_name) const { return folder_.PathOf(file_name); }

  // The plain-file step: creates file_name in the folder, writes all the
  // bytes in order and closes it. Raises 52 for a name that isn't one file
  // name (IsFileName), 76 for a missing folder, 75 for any other refusal.
  // A write that fails (a full disk) removes the file first, so that no
  // part of the content is left to be stored.
  void Write(const std::string& file_name, const std::vector<uint8_t>& bytes);

  // For the decoder: makes file_name as Write does and gives it open for
  // writing, or a file that isn't open when it can't be made. Whatever lay
  // at the name (a file, a link, a FIFO) is removed first and a new regular
  // file created exclusively, so nothing else is ever opened and the call
  // never waits.
  temp_files::File Create(const std::string& file_name);

 private:
  bool Make(const std::string& file_name, temp_files::File& file, temp_files::Failure& failure);

  temp_files::Folder folder_;
  std::map<std::string, temp_files::Identity> written_;
};

// True when the content starts with 0x1F 0x8B 0x08, a gzip stream. Raises 9
// for fewer than three bytes, which have no third byte to look at.
bool IsGzip(const std::vector<uint8_t>& bytes);

// The bytes of a column that must hold a file, as a value of bytes (binary
// content shared, not copied): Null raises invalid use of Null (94); a text
// or binary value gives its bytes as stored.
host::Value RequiredBytes(host::Value column);

// The name of a scan, a recording, an exam image or a plan: each " " becomes
// "_", then each "/" becomes " di " (whose blanks stay).
std::string CleanName(const std::string& name);

// framework.Killfile(path) of the host's Interface object, path by
// reference, for file_name in folder; an empty file_name gives the empty
// path. A name that isn't one file name makes no call: nothing of the
// plug-in can lie there.
void Killfile(const TempFolder& folder, const std::string& file_name);

// Paziente.Files.SalvaFile(id, title, path) for file_name in folder: id and
// path by reference; the host puts the reference of the stored file in id,
// or leaves it empty. A name that isn't one file name makes no call and
// leaves id as it is: nothing was written there to store.
void SalvaFile(host::Value& paziente, host::Value& id, const std::string& title, const TempFolder& folder,
               const std::string& file_name);

// Steps 2 to 4 of filing for file_name in folder: a gzip stream goes through
// the decoder, and on its 1 to SalvaFile; any other content is written as a
// plain file after a Killfile of its path, then SalvaFile. Gives whether
// SalvaFile was called. A name that isn't one file name gives false for a
// stream (the decoder can't write it) and 52 for a plain file, before any
// call of the host. Failures of the file steps and of the host pass on.
bool File(TempFolder& folder, host::Value& paziente, host::Value& id, const std::string& title,
          const std::string& file_name, const std::vector<uint8_t>& bytes);

}  // namespace cnv::filing
