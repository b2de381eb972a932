// What the robustness tests share: programs run as real processes (as
// another user, under limits, killed), every row of a source's three
// databases for comparing before and after a run, and a sample archive of
// a few patients written once per test program.
#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "host/value.h"
#include "source/connection.h"
#include "source/recordset.h"
#include "tools/ambulor-sample/sample.h"

extern char** environ;

namespace support {

namespace fs = std::filesystem;

inline std::string ReadFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

struct Outcome {
  int status = -1;  // exit status, or -signal when a signal ended the process
  std::string out, err;
  bool Says(const std::string& text) const {
    return err.find(text) != std::string::npos || out.find(text) != std::string::npos;
  }
};

// A program started with posix_spawn, its output going to files beside
// output_base; env entries come before the inherited ones (the first of a
// name counts).
class Process {
 public:
  Process(const std::vector<std::string>& args, const fs::path& output_base, const std::vector<std::string>& env = {})
      : out_(output_base.string() + ".out"), err_(output_base.string() + ".err") {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, out_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, 2, err_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    std::vector<char*> argv;
    for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);
    std::vector<std::string> environment(env);
    for (char** e = environ; *e != nullptr; ++e) environment.emplace_back(*e);
    std::vector<char*> envp;
    for (const std::string& e : environment) envp.push_back(const_cast<char*>(e.c_str()));
    envp.push_back(nullptr);
    if (posix_spawnp(&pid_, argv[0], &actions, nullptr, argv.data(), envp.data()) != 0) pid_ = -1;
    posix_spawn_file_actions_destroy(&actions);
  }
  ~Process() {
    if (pid_ > 0 && !waited_) {
      kill(pid_, SIGKILL);
      Wait();
    }
  }
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  pid_t pid() const { return pid_; }
  void Signal(int signal) const {
    if (pid_ > 0) kill(pid_, signal);
  }
  bool Running() {
    if (pid_ <= 0 || waited_) return false;
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) == 0) return true;
    waited_ = true;
    status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    return false;
  }
  Outcome Wait() {
    if (pid_ > 0 && !waited_) {
      int status = 0;
      waitpid(pid_, &status, 0);
      waited_ = true;
      status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    return Outcome{status_, ReadFile(out_), ReadFile(err_)};
  }

 private:
  std::string out_, err_;
  pid_t pid_ = -1;
  bool waited_ = false;
  int status_ = -1;
};

inline Outcome Run(const std::vector<std::string>& args, const fs::path& output_base,
                   const std::vector<std::string>& env = {}) {
  return Process(args, output_base, env).Wait();
}

// Every row of every table of one database, as text: table name, then each
// row with its columns' types and values (binary columns byte for byte), in
// the order of the table's columns and sorted, so that two dumps compare
// equal exactly when the tables hold the same rows.
inline std::map<std::string, std::vector<std::string>> DumpDatabase(const std::string& path) {
  source::Connection connection;
  connection.Open("Uid=SYSDBA;Pwd=gravelpin; DbName=" + path);
  std::map<std::string, std::vector<std::string>> columns;
  {
    source::Recordset rs;
    rs.Open(
        "SELECT TRIM(f.RDB$RELATION_NAME) AS T, TRIM(f.RDB$FIELD_NAME) AS C FROM RDB$RELATION_FIELDS f "
        "JOIN RDB$RELATIONS r ON r.RDB$RELATION_NAME = f.RDB$RELATION_NAME "
        "WHERE COALESCE(r.RDB$SYSTEM_FLAG, 0) = 0 ORDER BY f.RDB$RELATION_NAME, f.RDB$FIELD_POSITION",
        connection);
    for (; !rs.Eof(); rs.MoveNext()) columns[host::TextOf(rs.Field("T"))].push_back(host::TextOf(rs.Field("C")));
    rs.Close();
  }
  std::map<std::string, std::vector<std::string>> dump;
  for (const auto& [table, names] : columns) {
    std::vector<std::string>& rows = dump[table];
    source::Recordset rs;
    for (rs.Open("SELECT * FROM \"" + table + "\"", connection); !rs.Eof(); rs.MoveNext()) {
      std::string row;
      for (const std::string& name : names) {
        const host::Value value = rs.Field(name);
        row += std::to_string(static_cast<int>(value.type())) + ":";
        row += value.type() == host::Type::Bytes
                   ? std::string(value.bytes().begin(), value.bytes().end())
                   : host::TextOf(value);
        row += '\x1f';
      }
      rows.push_back(row);
    }
    rs.Close();
    std::sort(rows.begin(), rows.end());
  }
  connection.Close();
  return dump;
}

// The rows of the three databases of the source in folder.
inline std::map<std::string, std::vector<std::string>> DumpSource(const fs::path& folder) {
  std::map<std::string, std::vector<std::string>> all;
  for (const char* file : {"GX_USER.FDB", "GX_MEDIA.FDB", "GX_DATA.FDB"})
    for (auto& [table, rows] : DumpDatabase((folder / file).string())) all[std::string(file) + "/" + table] = rows;
  return all;
}

// A copy of a sample of a few patients, written once per test program, in a
// new folder dir/name.
inline fs::path CopyOfSample(const fs::path& dir, const std::string& name = "src", int patients = 6) {
  static const fs::path written = [patients] {
    fs::path folder = fs::temp_directory_path() / ("kairon-test-sample-" + std::to_string(getpid()));
    fs::remove_all(folder);
    sample::SampleOptions options;
    options.patients = patients;
    sample::GenerateSample(folder.string(), options);
    return folder;
  }();
  fs::create_directories(dir / name);
  for (const char* file : {"GX_USER.FDB", "GX_MEDIA.FDB", "GX_DATA.FDB"})
    fs::copy_file(written / file, dir / name / file, fs::copy_options::overwrite_existing);
  return dir / name;
}

// Removes the folders that CopyOfSample wrote, at the end of the program.
struct SampleCleanup {
  ~SampleCleanup() {
    std::error_code ignored;
    fs::remove_all(fs::temp_directory_path() / ("kairon-test-sample-" + std::to_string(getpid())), ignored);
  }
};

}  // namespace support
