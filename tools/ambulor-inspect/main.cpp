// ambulor-inspect: tells, before a conversion, whether a source will convert
// and what in it won't. Exit status: 0 every category can run, 4 some can't,
// 2 bad command line or a source that can't be opened.

#include <CLI/CLI.hpp>
#include <iostream>

#include "tools/ambulor-inspect/inspection.h"
#include "tools/common/character_type.h"
#include "tools/common/installation.h"
#include "tools/common/user_database.h"

int main(int argc, char** argv) {
  tools::UseEnvironmentCharacterType();
  CLI::App app{"Inspects an Ambulor source before a conversion, without writing to it", "ambulor-inspect"};
  std::string conn;
  bool json = false;
  app.add_option("CONN", conn, "the user database GX_USER.FDB (path, or host:path of a server)")->required();
  app.add_flag("--json", json, "print one JSON object");
  app.set_version_flag("--version", tools::VersionText("ambulor-inspect"));
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? 0 : 2;
  }
  if (std::string wrong = tools::WrongUserDatabase(conn); !wrong.empty()) {
    std::cerr << "ambulor-inspect: " << wrong << "\n";
    return 2;
  }
  try {
    inspect::Inspection inspection = inspect::Inspect(conn);
    if (json)
      std::cout << inspect::ToJson(inspection).dump(2) << "\n";
    else
      std::cout << inspect::ToText(inspection);
    return inspection.CanRunAll() ? 0 : 4;
  } catch (const inspect::Unopenable& e) {
    std::cerr << "ambulor-inspect: " << e.what() << "\n";
    return 2;
  }
}
