#include "tools/run-report/report_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <optional>

#include "tools/kairon-convert/output_files.h"

namespace runreport {

namespace fs = std::filesystem;

namespace {

// What a report of ours carries near its start.
constexpr const char* kHtmlMark = "<meta name=\"generator\" content=\"kairon-convert run report\">";
constexpr const char* kJsonMark = "\"report\": \"kairon-convert run report\"";

[[noreturn]] void Refuse(const std::string& text) { throw std::runtime_error(text); }

std::optional<struct stat> LinkStat(const std::string& path) {
  struct stat st {};
  if (lstat(path.c_str(), &st) != 0) return std::nullopt;
  return st;
}

std::string Canonical(const std::string& path) {
  std::error_code ec;
  fs::path canonical = fs::weakly_canonical(fs::absolute(path, ec), ec);
  return ec ? path : canonical.string();
}

bool SameFile(const std::string& a, const std::string& b) {
  struct stat sa {}, sb {};
  if (stat(a.c_str(), &sa) == 0 && stat(b.c_str(), &sb) == 0 && sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino)
    return true;
  return Canonical(a) == Canonical(b);
}

std::string FolderOf(const std::string& path) {
  fs::path parent = fs::path(path).parent_path();
  return parent.empty() ? "." : parent.string();
}

bool IsOurReport(const std::string& path, Format format) {
  int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  std::string head(1024, '\0');
  ssize_t got = read(fd, head.data(), head.size());
  close(fd);
  head.resize(got > 0 ? static_cast<size_t>(got) : 0);
  return head.find(format == Format::Html ? kHtmlMark : kJsonMark) != std::string::npos;
}

void CheckTarget(const ReportTarget& target, bool overwrite) {
  const std::string& path = target.path;
  if (std::optional<struct stat> st = LinkStat(path)) {
    if (S_ISDIR(st->st_mode)) Refuse("the report " + path + " is a folder");
    if (S_ISLNK(st->st_mode)) Refuse("the report " + path + " is a symbolic link (give the path of the file itself)");
    if (!S_ISREG(st->st_mode)) Refuse("the report " + path + " is not a regular file");
    if (!overwrite) Refuse(path + " exists already (give --overwrite to replace the report of an earlier run)");
    if (!IsOurReport(path, target.format))
      Refuse("--overwrite replaces only a report of an earlier run: " + path + " is not one");
  }
  const std::string folder = FolderOf(path);
  struct stat st {};
  if (stat(folder.c_str(), &st) != 0) Refuse("the folder " + folder + " of the report doesn't exist");
  if (!S_ISDIR(st.st_mode)) Refuse(folder + ", the folder of the report, is not a folder");
  struct statvfs fs_info {};
  if (statvfs(folder.c_str(), &fs_info) == 0 && (fs_info.f_flag & ST_RDONLY) != 0)
    Refuse("the folder " + folder + " of the report is on a read-only file system");
  if (access(folder.c_str(), W_OK | X_OK) != 0) Refuse("no permission to write in the folder " + folder + " of the report");
}

}  // namespace

ReportTarget TargetOf(const std::string& path) {
  std::string extension = fs::path(path).extension().string();
  for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  if (extension == ".html") return {path, Format::Html};
  if (extension == ".json") return {path, Format::Json};
  Refuse("the report " + path + " must end in .html or .json");
}

void CheckTargets(const std::vector<ReportTarget>& targets, const std::vector<std::string>& others, bool overwrite) {
  for (size_t i = 0; i < targets.size(); ++i) {
    const std::string& path = targets[i].path;
    if (fs::path(path).filename().empty() || fs::path(path).stem().empty()) Refuse("the report " + path + " names no file");
    for (size_t j = 0; j < i; ++j)
      if (SameFile(path, targets[j].path)) Refuse("two reports are one file: " + path);
    for (const std::string& other : others)
      if (!other.empty() && SameFile(path, other)) Refuse("the report " + path + " is " + other + ", which the run uses");
    CheckTarget(targets[i], overwrite);
  }
}

void WriteReport(const ReportTarget& target, const std::string& content, bool overwrite) {
  const std::string& path = target.path;
  auto fail = [&](const std::string& what, int error) -> void {
    throw ReportWriteError("cannot write the report " + path + ": " + what + refhost::CauseOf(error));
  };
  std::string temporary = (fs::path(FolderOf(path)) / refhost::ReplacementName(fs::path(path).filename().string())).string();
  int fd = mkostemp(temporary.data(), O_CLOEXEC);
  if (fd < 0) fail("", errno);
  const mode_t mask = umask(0);
  umask(mask);
  fchmod(fd, 0666 & ~mask);
  size_t done = 0;
  int error = 0;
  while (done < content.size() && error == 0) {
    ssize_t wrote = write(fd, content.data() + done, content.size() - done);
    if (wrote < 0 && errno != EINTR) error = errno;
    if (wrote > 0) done += static_cast<size_t>(wrote);
  }
  if (error == 0 && fsync(fd) != 0) error = errno;
  if (close(fd) != 0 && error == 0) error = errno;
  // Without overwrite, link refuses a file that was made meanwhile.
  if (error == 0 && (overwrite ? rename(temporary.c_str(), path.c_str()) : link(temporary.c_str(), path.c_str())) != 0) {
    error = errno;
    // A file system without hard links: the check came just before.
    struct stat st {};
    if (!overwrite && (error == EPERM || error == EOPNOTSUPP) && lstat(path.c_str(), &st) != 0 &&
        rename(temporary.c_str(), path.c_str()) == 0)
      return;
  }
  if (error != 0 || !overwrite) unlink(temporary.c_str());
  if (error != 0) fail("", error);
}

}  // namespace runreport
