// The loadable library and Conversione as a host sees them: created through
// the entry points, reached by member name, testing good and bad sources.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <fstream>

#include "host/failure.h"
#include "source/clsAmbulor.h"
#include "support/fixture.h"

namespace {

using host::Value;

struct TestResult {
  bool result;
  std::string lista_medici;
  std::string last_error;
};

TestResult RunTest(const host::ObjectRef& conversione, const std::string& conn) {
  Value lista = "stale";
  host::Args args{conn, host::Arg::Ref(lista)};
  Value result = conversione->Call("Test", args);
  return {host::TruthOf(result), host::TextOf(lista), host::TextOf(conversione->Get("LastError"))};
}

class PluginTest : public ::testing::Test {
 protected:
  refhost::Plugin plugin_{KAIRON_PLUGIN_PATH};
};

TEST_F(PluginTest, ExportsTheFourEntryPointsOnly) {
  void* handle = dlopen(KAIRON_PLUGIN_PATH, RTLD_NOW | RTLD_NOLOAD);
  ASSERT_NE(handle, nullptr);
  for (const char* entry : {"DllGetClassObject", "DllCanUnloadNow", "DllRegisterServer", "DllUnregisterServer"})
    EXPECT_NE(dlsym(handle, entry), nullptr) << entry;
  EXPECT_EQ(dlsym(handle, "_ZN3cnv10clsAmbulor8ConvertiERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEES8_"),
            nullptr);
  auto register_server = reinterpret_cast<host::DllRegisterServerFn>(dlsym(handle, "DllRegisterServer"));
  EXPECT_EQ(register_server(), host::kOk);

  auto get_class = reinterpret_cast<host::DllGetClassObjectFn>(dlsym(handle, "DllGetClassObject"));
  void* factory = reinterpret_cast<void*>(1);
  host::ClassId unknown = {1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};
  EXPECT_EQ(get_class(&unknown, &host::kClassFactoryInterface, &factory), host::kClassNotAvailable);
  EXPECT_EQ(factory, nullptr);
  EXPECT_EQ(get_class(nullptr, nullptr, nullptr), host::kNullPointer);
  dlclose(handle);
}

TEST_F(PluginTest, FixedPropertiesAndUnloading) {
  EXPECT_EQ(plugin_.CanUnloadNow(), host::kOk);
  {
    host::ObjectRef conversione = plugin_.CreateConversione();
    EXPECT_EQ(plugin_.CanUnloadNow(), host::kFalse);
    EXPECT_EQ(conversione->Get("NomeProgramma"), Value("Ambulor"));
    EXPECT_EQ(conversione->Get("tipoorigine"), Value::I32(3));
    EXPECT_EQ(conversione->Get("DefaultFile"), Value("GX_USER.FDB"));
    for (const char* empty : {"DefaultDSN", "DefaultHost", "DefaultPort", "DefaultDatabaseName", "DefaultUsername",
                              "DefaultPassword", "DefaultCartellaImmagini", "LastError"})
      EXPECT_EQ(conversione->Get(empty), Value("")) << empty;
    EXPECT_EQ(host::TextOf(conversione->Get("ListaOpzioni")),
              "Allergie; Appunti; BMI; Certificati; Certificati INPS; Diagnosi; Esenzioni; Eventi; Piani "
              "Terapeutici; Prescrizioni Esami Laboratorio; Prescrizioni Farmaceutiche; Prescrizioni Libere; "
              "Pressione Arteriosa; Prestazioni; Referti; Registrazioni Private; Scansioni; Vaccinazioni; Visite "
              "Ambulatoriali");
    EXPECT_THROW(conversione->Get("Inesistente"), host::Failure);
    EXPECT_THROW(conversione->Set("NomeProgramma", Value("x")), host::Failure);
  }
  EXPECT_EQ(plugin_.CanUnloadNow(), host::kOk);
}

TEST_F(PluginTest, TestOfMissingAndBrokenSources) {
  fixture::TempDir dir;
  host::ObjectRef conversione = plugin_.CreateConversione();

  TestResult missing = RunTest(conversione, dir / "GX_USER.FDB");
  EXPECT_FALSE(missing.result);
  EXPECT_EQ(missing.lista_medici, "");
  EXPECT_EQ(missing.last_error, "");

  // A user database without its media database beside it: the file test
  // passes, the list is empty, and the failure stays inside the worker.
  {
    auto archive = sample::Archive::Create(dir.path().string());
    archive->Insert("STUDIO", {{"cognome", "Rossi"}, {"nome", "Anna"}});
    archive->Close();
  }
  std::filesystem::remove(dir / "GX_MEDIA.FDB");
  TestResult no_media = RunTest(conversione, dir / "GX_USER.FDB");
  EXPECT_TRUE(no_media.result);
  EXPECT_EQ(no_media.lista_medici, "");
  EXPECT_EQ(no_media.last_error, "");

  std::ofstream(dir / "GX_MEDIA.FDB") << "this is not a database";
  TestResult corrupt = RunTest(conversione, dir / "GX_USER.FDB" + ";extra;fields");
  EXPECT_TRUE(corrupt.result);
  EXPECT_EQ(corrupt.lista_medici, "");

  // Only the first field of the connection text is read.
  fixture::TempDir good_dir;
  {
    auto archive = sample::Archive::Create(good_dir.path().string());
    archive->Insert("STUDIO", {{"cognome", "Rossi"}, {"nome", "Anna"}});
    archive->Close();
  }
  TestResult good = RunTest(conversione, good_dir / "GX_USER.FDB" + ";x;y");
  EXPECT_TRUE(good.result);
  EXPECT_EQ(good.lista_medici, "Rossi Anna");

  // An empty connection text has no first field: the call itself fails.
  Value lista;
  host::Args args{"", host::Arg::Ref(lista)};
  try {
    conversione->Call("Test", args);
    ADD_FAILURE() << "Test of an empty connection text succeeded";
  } catch (const host::Failure& failure) {
    EXPECT_EQ(failure.number(), 9);
  }
}

TEST_F(PluginTest, ListaMediciNullsAndLegacyBytes) {
  fixture::TempDir dir;
  {
    auto archive = sample::Archive::Create(dir.path().string());
    archive->Insert("STUDIO", {{"cognome", " Rossi "}, {"nome", "Mario "}});
    archive->Insert("STUDIO", {{"cognome", "Bianchi"}, {"nome", Value::Null()}});
    archive->Insert("STUDIO", {{"cognome", Value::Null()}, {"nome", Value::Null()}});
    archive->Insert("STUDIO", {{"cognome", "Lucchetti"}, {"nome", "Nicol\xF2"}});
    archive->Close();
  }
  host::ObjectRef conversione = plugin_.CreateConversione();
  TestResult result = RunTest(conversione, dir / "GX_USER.FDB");
  EXPECT_TRUE(result.result);
  // Blanks come off the whole entry only, so inner ones stay.
  EXPECT_EQ(result.lista_medici, "Rossi  Mario;Bianchi;;Lucchetti Nicolò");
  EXPECT_EQ(result.last_error, "");
}

TEST_F(PluginTest, EmptyOrMissingStudio) {
  fixture::TempDir empty_dir, missing_dir;
  sample::Archive::Create(empty_dir.path().string())->Close();
  std::vector<sample::Table> schema = sample::DefaultSchema();
  sample::DropTable(schema, "STUDIO");
  sample::Archive::Create(missing_dir.path().string(), schema)->Close();

  host::ObjectRef conversione = plugin_.CreateConversione();
  TestResult empty = RunTest(conversione, empty_dir / "GX_USER.FDB");
  EXPECT_TRUE(empty.result);
  EXPECT_EQ(empty.lista_medici, "");
  TestResult missing = RunTest(conversione, missing_dir / "GX_USER.FDB");
  EXPECT_TRUE(missing.result);
  EXPECT_EQ(missing.lista_medici, "");
}

// The worker keeps the database's own number and description of a source
// that opens only in part; the connections opened before stay open.
TEST(Worker, ListaMediciKeepsTheDatabaseFailure) {
  fixture::TempDir dir;
  sample::Archive::Create(dir.path().string())->Close();
  std::ofstream(dir / "GX_DATA.FDB", std::ios::trunc) << "garbage";
  cnv::clsAmbulor worker;
  ASSERT_TRUE(worker.Init(dir / "GX_USER.FDB"));
  EXPECT_EQ(worker.ListaMedici(), "");
  EXPECT_THAT(worker.LastError(), ::testing::MatchesRegex("-?[0-9]+ - .+"));
  EXPECT_THAT(worker.LastError(), ::testing::HasSubstr("GX_DATA.FDB"));

  cnv::clsAmbulor never_opened;
  EXPECT_FALSE(never_opened.Init(dir / "missing/GX_USER.FDB"));
  EXPECT_EQ(never_opened.LastError(), "");
}

TEST(Worker, ErroreMsgForm) {
  cnv::clsAmbulor worker;
  worker.ErroreMsg("ROSSI MARIO - Appunti", host::Failure(-2147217900, "Tabella sconosciuta"));
  EXPECT_EQ(worker.LastError(), "ROSSI MARIO - Appunti Errore -2147217900 Tabella sconosciuta");
  worker.ErroreMsg("", host::Failure(5, "Chiamata non valida "));
  EXPECT_EQ(worker.LastError(), "Errore 5 Chiamata non valida");
}

}  // namespace
