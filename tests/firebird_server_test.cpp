// A source reached through a Firebird server as "host/port:path": a private
// server of the system's Firebird package on a loopback port, started for
// this program and stopped at its end.

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <netinet/in.h>
#include <arpa/inet.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <regex>

#include "support/fixture.h"
#include "support/process.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* kServer = "/usr/sbin/firebird";
constexpr const char* kFirebirdRoot = "/usr/lib/x86_64-linux-gnu/firebird/3.0";
constexpr const char* kSecurityTemplate = "/var/lib/firebird/3.0/system/security3.fdb";

// A loopback port that nothing listens on now.
int FreePort() {
  int s = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  bind(s, reinterpret_cast<sockaddr*>(&address), sizeof address);
  socklen_t length = sizeof address;
  getsockname(s, reinterpret_cast<sockaddr*>(&address), &length);
  close(s);
  return ntohs(address.sin_port);
}

bool Listening(int port) {
  int s = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const bool ok = connect(s, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  close(s);
  return ok;
}

using fixture::ArchiveRows;

// The private server: a root folder of its own that borrows the package's
// plug-ins and messages, a firebird.conf with the port, the security
// database (a copy of the package's, with SYSDBA given the source's
// password through the embedded engine) and the lock folder.
class Server {
 public:
  explicit Server(const fs::path& folder) : folder_(folder), port_(FreePort()) {
    fs::create_directories(folder_ / "root");
    fs::create_directories(folder_ / "lock");
    for (const char* entry : {"plugins", "intl", "UDF", "firebird.msg", "plugins.conf", "lib"})
      if (fs::exists(fs::path(kFirebirdRoot) / entry)) fs::create_symlink(fs::path(kFirebirdRoot) / entry, folder_ / "root" / entry);
    fs::copy_file(kSecurityTemplate, folder_ / "security3.fdb");
    std::ofstream(folder_ / "root/firebird.conf")
        << "RemoteServicePort = " << port_ << "\nRemoteBindAddress = 127.0.0.1\nSecurityDatabase = "
        << (folder_ / "security3.fdb").string() << "\nAuthServer = Srp, Legacy_Auth\nUserManager = Srp\n"
        << "ServerMode = Super\nIpcName = KAIRON_TEST_" << port_ << "\n";
    std::ofstream(folder_ / "root/databases.conf") << "security.db = " << (folder_ / "security3.fdb").string() << "\n";
    std::ofstream(folder_ / "sysdba.sql") << "create or alter user SYSDBA password 'gravelpin' using plugin Srp;\ncommit;\n";
    support::Outcome user = support::Run({"sh", "-c",
                                          "isql-fb -q -user SYSDBA -i " + (folder_ / "sysdba.sql").string() + " " +
                                              (folder_ / "security3.fdb").string()},
                                         folder_ / "isql", Environment());
    if (user.status != 0) {
      why_not_ = "isql-fb couldn't give SYSDBA a password: " + user.err;
      return;
    }
    Start();
  }
  ~Server() { Stop(); }

  void Start() {
    process_ = std::make_unique<support::Process>(std::vector<std::string>{kServer}, folder_ / "server", Environment());
    for (int i = 0; i < 200 && !Listening(port_); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(25));
    if (!Listening(port_)) why_not_ = "the server didn't listen: " + process_->Wait().err;
  }
  void Stop() {
    if (!process_) return;
    process_->Signal(SIGKILL);
    process_->Wait();
    process_.reset();
  }

  const std::string& why_not() const { return why_not_; }
  std::string Path(const fs::path& file) const { return "127.0.0.1/" + std::to_string(port_) + ":" + file.string(); }

 private:
  std::vector<std::string> Environment() const {
    return {"FIREBIRD=" + (folder_ / "root").string(), "FIREBIRD_LOCK=" + (folder_ / "lock").string()};
  }
  fs::path folder_;
  int port_;
  std::unique_ptr<support::Process> process_;
  std::string why_not_;
};

class FirebirdServer : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    if (access(kServer, X_OK) != 0 || !fs::exists(kSecurityTemplate)) return;
    folder_ = new fixture::TempDir;
    sample::SampleOptions options;
    options.patients = 150;
    sample::GenerateSample((folder_->path() / "src").string(), options);
    server_ = new Server(folder_->path() / "server");
  }
  static void TearDownTestSuite() {
    delete server_;
    delete folder_;
  }
  void SetUp() override {
    if (server_ == nullptr) GTEST_SKIP() << "no Firebird server: scripts/install-deps.sh installs firebird3.0-server";
    if (!server_->why_not().empty()) GTEST_SKIP() << server_->why_not();
  }

  static std::vector<std::string> Convert(const std::string& conn, const std::string& archive, const std::string& trace) {
    return {KAIRON_CONVERT_PATH, "convert", conn,    "--archive", archive, "--trace",
            trace,               "--plugin", KAIRON_PLUGIN_PATH};
  }
  // The trace without the paths of the run's own temporary files.
  static std::vector<std::string> Calls(const std::string& trace) {
    std::vector<std::string> calls;
    std::ifstream in(trace);
    for (std::string line; std::getline(in, line);) {
      nlohmann::json call = nlohmann::json::parse(line);
      if (call.value("member", "") == "SalvaFile" || call.value("member", "") == "Killfile") call.erase("args");
      calls.push_back(call.dump());
    }
    return calls;
  }

  static inline fixture::TempDir* folder_ = nullptr;
  static inline Server* server_ = nullptr;
  fixture::TempDir dir_;
};

TEST_F(FirebirdServer, ConvertsAsTheEmbeddedEngineDoes) {
  const fs::path user = folder_->path() / "src/GX_USER.FDB";
  support::Outcome embedded =
      support::Run(Convert(user.string(), dir_ / "e.sqlite", dir_ / "e.jsonl"), dir_.path() / "e");
  ASSERT_EQ(embedded.status, 5) << embedded.err;  // the sample's planted failures
  support::Outcome served =
      support::Run(Convert(server_->Path(user), dir_ / "s.sqlite", dir_ / "s.jsonl"), dir_.path() / "s");
  ASSERT_EQ(served.status, 5) << served.err << served.out;
  EXPECT_EQ(Calls(dir_ / "s.jsonl"), Calls(dir_ / "e.jsonl"));

  // A file the server doesn't have, and a server that doesn't answer, are
  // named as such.
  for (const auto& [conn, says] : {std::pair{server_->Path(folder_->path() / "none/GX_USER.FDB"),
                                             "non trova o non legge il file"},
                                   std::pair{"127.0.0.1/1:" + user.string(), "non risponde"}}) {
    support::Outcome test =
        support::Run({KAIRON_CONVERT_PATH, "test", conn, "--plugin", KAIRON_PLUGIN_PATH}, dir_.path() / "test");
    EXPECT_TRUE(test.Says(says)) << test.out;
  }
}

TEST_F(FirebirdServer, AServerThatGoesAwayEndsTheRunCleanly) {
  const fs::path user = folder_->path() / "src/GX_USER.FDB";
  const std::string archive = dir_ / "gone.sqlite";
  support::Process run(Convert(server_->Path(user), archive, dir_ / "gone.jsonl"), dir_.path() / "gone");
  for (int i = 0; i < 2000 && run.Running(); ++i) {
    auto count = ArchiveRows(archive, "SELECT count(*) FROM patients");
    if (!count.empty() && std::stoi(count.front().front()) >= 5) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  ASSERT_TRUE(run.Running()) << "the run ended before the server could be stopped";
  server_->Stop();
  support::Outcome outcome = run.Wait();
  server_->Start();
  // The patient under way, and each one after it, ends with ERR and the
  // server's text (the driver's own rows may already be in the client's
  // buffer, so the run itself may still end as a finished one); the run
  // doesn't hang, and the archive opens.
  EXPECT_TRUE(outcome.status == 5 || outcome.status == 1) << outcome.err << outcome.out;
  EXPECT_EQ(ArchiveRows(archive, "PRAGMA integrity_check"), (std::vector<std::vector<std::string>>{{"ok"}}));
  const auto runs = ArchiveRows(archive, "SELECT result, last_error FROM runs");
  ASSERT_EQ(runs.size(), 1u);
  bool told = std::regex_search(runs[0][1], std::regex("connection|network"));
  for (const auto& info : ArchiveRows(archive, "SELECT text FROM messages WHERE kind = 'AddInfo'"))
    told = told || std::regex_search(info[0], std::regex("Error (reading|writing) data (from|to) the connection|"
                                                         "connection shutdown|Unable to complete network request"));
  EXPECT_TRUE(told) << runs[0][1];
  // The patients filed before the loss stay.
  const auto ok_before = ArchiveRows(archive, "SELECT count(*) FROM messages WHERE kind = 'ChangeMsg' AND text = 'OK'");
  EXPECT_GE(std::stoi(ok_before[0][0]), 5);
}

}  // namespace
