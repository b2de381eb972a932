#include "tools/kairon-convert/output_files.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <optional>

#include "host/process_mark.h"
#include "tools/kairon-convert/archive.h"
#include "tools/kairon-convert/trace.h"

namespace refhost {

namespace fs = std::filesystem;

namespace {

// The files that SQLite keeps beside an archive while it is open, or after
// a run that didn't end.
constexpr const char* kCompanions[] = {"-wal", "-shm", "-journal"};

[[noreturn]] void Refuse(const std::string& text) { throw std::runtime_error(text); }

std::optional<struct stat> StatOf(const std::string& path, bool follow) {
  struct stat st {};
  if ((follow ? stat(path.c_str(), &st) : lstat(path.c_str(), &st)) != 0) return std::nullopt;
  return st;
}

bool SameFile(const struct stat& a, const struct stat& b) { return a.st_dev == b.st_dev && a.st_ino == b.st_ino; }

std::string Canonical(const std::string& path) {
  std::error_code ec;
  fs::path canonical = fs::weakly_canonical(fs::absolute(path, ec), ec);
  return ec ? path : canonical.string();
}

std::string FolderOf(const std::string& path) {
  fs::path parent = fs::path(path).parent_path();
  return parent.empty() ? "." : parent.string();
}

// What lies at path, for a refusal: "a folder", "a device", ...; empty for
// a regular file.
std::string KindOf(const struct stat& st) {
  if (S_ISREG(st.st_mode)) return "";
  if (S_ISDIR(st.st_mode)) return "a folder";
  if (S_ISCHR(st.st_mode) || S_ISBLK(st.st_mode)) return "a device";
  if (S_ISFIFO(st.st_mode)) return "a FIFO";
  if (S_ISSOCK(st.st_mode)) return "a socket";
  if (S_ISLNK(st.st_mode)) return "a symbolic link (give the path of the file itself)";
  return "not a regular file";
}

// The folder that will hold a new file (or the replacement of one) can be
// written in.
void CheckFolder(const std::string& path, const std::string& what) {
  const std::string folder = FolderOf(path);
  std::optional<struct stat> st = StatOf(folder, true);
  if (!st) Refuse("the folder " + folder + " of the " + what + " doesn't exist");
  if (!S_ISDIR(st->st_mode)) Refuse(folder + ", the folder of the " + what + ", is not a folder");
  struct statvfs fs_info {};
  if (statvfs(folder.c_str(), &fs_info) == 0 && (fs_info.f_flag & ST_RDONLY) != 0)
    Refuse("the folder " + folder + " of the " + what + " is on a read-only file system");
  if (access(folder.c_str(), W_OK | X_OK) != 0)
    Refuse("no permission to write in the folder " + folder + " of the " + what);
}

// True if another process holds the lock that a run takes on the files it
// writes.
bool HeldByAnotherRun(const std::string& path) {
  int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  bool held = flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  close(fd);
  return held;
}

void CheckReplaceable(const std::string& path, const std::string& what) {
  if (HeldByAnotherRun(path)) Refuse(path + " is being written by another run");
  if (what == "archive") {
    for (const char* companion : kCompanions)
      if (StatOf(path + companion, false))
        Refuse("cannot replace " + path + ": " + path + companion +
               " lies beside it, left by a run that is still writing the archive or that didn't end (opening the "
               "archive once with sqlite3 takes it in)");
    std::string mismatch = Archive::NotOurArchive(path);
    if (!mismatch.empty()) Refuse("--overwrite replaces only an archive of an earlier run: " + path + " " + mismatch);
  } else {
    std::string mismatch = Trace::NotOurTrace(path);
    if (!mismatch.empty()) Refuse("--overwrite replaces only a trace of an earlier run: " + path + " " + mismatch);
  }
}

void CheckOutput(const std::string& path, const std::string& what, const OutputPaths& paths) {
  if (path.empty()) Refuse("no " + what + " file given");
  std::optional<struct stat> st = StatOf(path, false);
  for (const std::string& source : paths.sources) {
    std::optional<struct stat> source_st = StatOf(source, true);
    if ((st && source_st && SameFile(*st, *source_st)) || Canonical(path) == Canonical(source))
      Refuse("the " + what + " " + path + " is " + fs::path(source).filename().string() + " of the source");
  }
  if (st) {
    std::string kind = KindOf(*st);
    if (!kind.empty()) Refuse("the " + what + " " + path + " is " + kind);
    if (!paths.overwrite) {
      const std::string made_by = what == "archive" ? Archive::RunThatMadeIt(path) : "";
      Refuse(path + " exists already" + (made_by.empty() ? "" : ", " + made_by) +
             " (give --overwrite to replace the " + what + " of an earlier run)");
    }
    CheckReplaceable(path, what);
  }
  CheckFolder(path, what);
}

}  // namespace

std::string CauseOf(int error_number) {
  switch (error_number) {
    case ENOSPC:
      return "the disk is full";
    case EDQUOT:
      return "the disk quota is used up";
    case EACCES:
    case EPERM:
      return "no permission";
    case EROFS:
      return "the file system is read-only";
    case ENOENT:
      return "no such file or folder";
    case ENOTDIR:
      return "a part of the path is not a folder";
    case EEXIST:
      return "a file of that name was made meanwhile";
    case EIO:
      return "an input/output error of the disk";
    default:
      return std::strerror(error_number);
  }
}

std::string ReplacementName(const std::string& name) {
  return "." + name + ".kairon-" + host::process_mark::Own() + "-XXXXXX";
}

std::vector<std::string> SourceFiles(const std::string& conn) {
  const std::string user = conn.substr(0, conn.find(';'));
  if (user.empty()) return {};
  const fs::path folder = fs::path(user).parent_path();
  return {user, (folder / "GX_USER.FDB").string(), (folder / "GX_MEDIA.FDB").string(),
          (folder / "GX_DATA.FDB").string()};
}

void OutputFiles::Check(const OutputPaths& paths) {
  CheckOutput(paths.archive, "archive", paths);
  if (paths.trace.empty()) return;
  CheckOutput(paths.trace, "trace", paths);
  std::optional<struct stat> archive = StatOf(paths.archive, false), trace = StatOf(paths.trace, false);
  if ((archive && trace && SameFile(*archive, *trace)) || Canonical(paths.archive) == Canonical(paths.trace))
    Refuse("the archive and the trace are one file: " + paths.trace);
  for (const char* companion : kCompanions)
    if (Canonical(paths.archive + companion) == Canonical(paths.trace))
      Refuse("the trace " + paths.trace + " is where SQLite keeps the archive's journal");
}

std::unique_ptr<OutputFiles> OutputFiles::Reserve(const OutputPaths& paths) {
  Check(paths);
  std::unique_ptr<OutputFiles> files(new OutputFiles());
  files->archive_.path = paths.archive;
  files->trace_.path = paths.trace;
  Create(files->archive_, StatOf(paths.archive, false).has_value());
  if (!paths.trace.empty()) Create(files->trace_, StatOf(paths.trace, false).has_value());
  return files;
}

void OutputFiles::Create(Output& output, bool replace) {
  if (!replace) {
    output.descriptor = open(output.path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (output.descriptor < 0) Refuse("cannot create " + output.path + ": " + CauseOf(errno));
    output.written = output.path;
    flock(output.descriptor, LOCK_EX | LOCK_NB);
    return;
  }
  output.replaced_descriptor = open(output.path.c_str(), O_RDONLY | O_CLOEXEC);
  if (output.replaced_descriptor < 0) Refuse("cannot open " + output.path + ": " + CauseOf(errno));
  if (flock(output.replaced_descriptor, LOCK_EX | LOCK_NB) != 0)
    Refuse(output.path + " is being written by another run");
  fs::path target(output.path);
  std::string written = (fs::path(FolderOf(output.path)) / ReplacementName(target.filename().string())).string();
  output.descriptor = mkostemp(written.data(), O_CLOEXEC);
  if (output.descriptor < 0) Refuse("cannot create a file beside " + output.path + ": " + CauseOf(errno));
  output.written = written;
  flock(output.descriptor, LOCK_EX | LOCK_NB);
  struct stat replaced {};
  if (fstat(output.replaced_descriptor, &replaced) == 0) fchmod(output.descriptor, replaced.st_mode & 07777);
}

void OutputFiles::PutInPlace() {
  std::lock_guard<std::mutex> lock(mutex_);
  for (Output* output : {&archive_, &trace_}) {
    if (output->written.empty() || output->kept) continue;
    if (output->written != output->path && rename(output->written.c_str(), output->path.c_str()) != 0)
      throw WriteError("cannot put " + output->written + " in place of " + output->path + ": " + CauseOf(errno));
    output->written = output->path;
    output->kept = true;
  }
}

void OutputFiles::Discard() {
  std::lock_guard<std::mutex> lock(mutex_);
  for (Output* output : {&archive_, &trace_}) {
    if (output->kept || output->written.empty()) continue;
    unlink(output->written.c_str());
    for (const char* companion : kCompanions) unlink((output->written + companion).c_str());
    output->written.clear();
  }
}

void OutputFiles::Release(Output& output) {
  if (output.descriptor >= 0) close(output.descriptor);
  if (output.replaced_descriptor >= 0) close(output.replaced_descriptor);
  output.descriptor = output.replaced_descriptor = -1;
  if (output.kept || output.written.empty()) return;
  unlink(output.written.c_str());
  for (const char* companion : kCompanions) unlink((output.written + companion).c_str());
}

OutputFiles::~OutputFiles() {
  std::lock_guard<std::mutex> lock(mutex_);
  Release(trace_);
  Release(archive_);
}

}  // namespace refhost
