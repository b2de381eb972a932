// The file operations of filing's temporary folder, the one part of filing
// that differs by platform: temp_files_posix.cpp works through descriptors
// relative to the folder's own, windows/temp_files.cpp through wide-character
// paths and handles. Names come here already judged by IsFileName.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace cnv::filing::temp_files {

// How a file step failed; filing raises 52, 76 and 75 for them.
enum class Failure { kBadName, kPathNotFound, kAccess };

// What tells a file from every other of its volume while it exists: device
// and inode, or volume serial number and file index.
struct Identity {
  uint64_t volume = 0;
  uint64_t index = 0;
  bool operator==(const Identity&) const = default;
};

// A file that Folder::Create made, open for writing; closed when it ends.
class File {
 public:
  File() = default;
  File(File&& other) noexcept;
  File& operator=(File&& other) noexcept;
  ~File();

  bool is_open() const { return handle_ != kNone; }
  const Identity& identity() const { return identity_; }

  // Writes all size bytes in order; false, with how it failed, when the
  // file system refuses part of them (a full disk).
  bool Write(const void* data, size_t size, Failure& failure);

  // Closes the file; false when closing reports that the writes failed.
  bool Close(Failure& failure);

 private:
  friend class Folder;
  static constexpr intptr_t kNone = -1;
  intptr_t handle_ = kNone;  // a descriptor, or a HANDLE
  Identity identity_;
};

// The folder, opened once, at its first file, and held open until it ends,
// so that every file lies in the folder that was opened even if its path
// comes to name another.
class Folder {
 public:
  explicit Folder(std::string path) : path_(std::move(path)) {}
  ~Folder();
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  const std::string& path() const { return path_; }

  // The folder's path, the platform's separator ("/", or "\" on Windows)
  // and the name.
  std::string PathOf(const std::string& name) const;

  // Removes whatever lies at name (a file, a link, a FIFO; a folder stays,
  // and then the creation refuses) and creates a new regular file there
  // exclusively, never following a link, so nothing else is ever opened and
  // the call never waits. False, with how it failed, when it can't.
  bool Create(const std::string& name, File& file, Failure& failure);

  // Removes the file at name if it is still the regular file of identity.
  void RemoveIfSame(const std::string& name, const Identity& identity);

  // Closes file and removes what it was made as, if that still lies at name.
  void Discard(File& file, const std::string& name);

 private:
  bool Open(Failure& failure);

  std::string path_;
  intptr_t handle_ = File::kNone;
};

// Makes the folder at path, one level, when nothing lies there; nullopt when
// something lies there or it was made.
std::optional<Failure> MakeFolder(const std::string& path);

}  // namespace cnv::filing::temp_files
