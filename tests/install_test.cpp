// An installation laid out by cmake --install and copied elsewhere: each
// program finds the plug-in and the catalogues beside itself, tells its
// version, and every catalogue can be given in place of the installed one.

#include <gtest/gtest.h>

#include <filesystem>

#include "support/fixture.h"
#include "support/process.h"

namespace {

namespace fs = std::filesystem;

TEST(Installation, ACopyOfTheInstalledTreeRunsWhereverItLies) {
  fixture::TempDir dir;
  const fs::path prefix = dir.path() / "prefix", copy = dir.path() / "elsewhere" / "cnvkairon";
  support::Outcome install =
      support::Run({KAIRON_CMAKE, "--install", KAIRON_BUILD_DIR, "--prefix", prefix.string()}, dir.path() / "install");
  ASSERT_EQ(install.status, 0) << install.err;
  fs::create_directories(copy.parent_path());
  fs::copy(prefix, copy, fs::copy_options::recursive);
  fs::remove_all(prefix);
  for (const char* file : {"bin/kairon-convert", "bin/ambulor-inspect", "bin/ambulor-sample", "lib/libcnvKairon.so",
                           "share/cnvkairon/icd9.csv", "share/cnvkairon/farmaci.csv", "share/cnvkairon/esenzioni.csv",
                           "share/cnvkairon/province.csv"})
    EXPECT_TRUE(fs::is_regular_file(copy / file)) << file;

  int run = 0;
  auto from_copy = [&](const std::string& program, std::vector<std::string> args) {
    args.insert(args.begin(), (copy / "bin" / program).string());
    return support::Run(args, dir.path() / ("run" + std::to_string(++run)));
  };
  for (const char* program : {"kairon-convert", "ambulor-inspect", "ambulor-sample"}) {
    support::Outcome version = from_copy(program, {"--version"});
    EXPECT_EQ(version.status, 0) << program << version.err;
    EXPECT_EQ(version.out.rfind(std::string(program) + " ", 0), 0u) << version.out;
  }

  const fs::path source = dir.path() / "src";
  ASSERT_EQ(from_copy("ambulor-sample", {"--out", source.string(), "--patients", "4"}).status, 0);
  const std::string user = (source / "GX_USER.FDB").string();
  EXPECT_NE(from_copy("ambulor-inspect", {user}).status, 2);
  support::Outcome converted =
      from_copy("kairon-convert", {"convert", user, "--archive", dir / "a.sqlite", "--report", dir / "r.json"});
  EXPECT_TRUE(fs::exists(dir / "a.sqlite")) << converted.err;
  EXPECT_NE(converted.out.find("Accounts: every record accounted for"), std::string::npos) << converted.out;

  // Without the installed catalogues, each is given by its option.
  const fs::path catalogues = dir.path() / "catalogues";
  fs::rename(copy / "share" / "cnvkairon", catalogues);
  support::Outcome given = from_copy(
      "kairon-convert", {"convert", user, "--archive", dir / "b.sqlite", "--icd9", catalogues / "icd9.csv", "--farmaci",
                         catalogues / "farmaci.csv", "--esenzioni", catalogues / "esenzioni.csv", "--province",
                         catalogues / "province.csv"});
  EXPECT_NE(given.status, 2) << given.err;
  EXPECT_TRUE(fs::exists(dir / "b.sqlite")) << given.err;
}

}  // namespace
