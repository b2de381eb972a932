// The loadable library and Conversione as a host sees them: created through
// the entry points, reached by member name, testing good and bad sources.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <dlfcn.h>


#include "host/failure.h"
#include "source/clsAmbulor.h"
#include "support/fixture.h"

namespace {

using host::Value;

struct TestResult {
  bool result;
  std::string lista_medici;
  std::string last_error;
  bool operator==(const TestResult&) const = default;
};

void PrintTo(const TestResult& r, std::ostream* out) {
  *out << r.result << " '" << r.lista_medici << "' '" << r.last_error << "'";
}

TestResult RunTest(const host::ObjectRef& conversione, const std::string& conn) {
  Value lista = "stale";
  host::Args args{conn, host::Arg::Ref(lista)};
  Value result = conversione->Call("Test", args);
  return {host::TruthOf(result), host::TextOf(lista), host::TextOf(conversione->Get("LastError"))};
}

// A source in its own folder with the given doctors in STUDIO.
std::string Source(const fixture::TempDir& dir, const std::string& name, const std::vector<sample::Row>& doctors,
                   const std::vector<sample::Table>& schema = sample::DefaultSchema()) {
  auto archive = sample::Archive::Create(dir / name, schema);
  for (const sample::Row& doctor : doctors) archive->Insert("STUDIO", doctor);
  archive->Close();
  return dir / (name + "/GX_USER.FDB");
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

// The doctors of STUDIO, an empty list when it is empty or missing (sources
// that open only in part are the opening test's). Only the first field of
// the connection text is read; blanks come off each whole entry only, so
// inner ones stay.
TEST_F(PluginTest, TestListsTheDoctors) {
  fixture::TempDir dir;
  std::vector<sample::Table> no_studio = sample::DefaultSchema();
  sample::DropTable(no_studio, "STUDIO");
  const std::vector<std::pair<std::string, TestResult>> cases = {
      {Source(dir, "good", {{{"cognome", "Rossi"}, {"nome", "Anna"}}}) + ";x;y", {true, "Rossi Anna", ""}},
      {Source(dir, "legacy", {{{"cognome", " Rossi "}, {"nome", "Mario "}},
                              {{"cognome", "Bianchi"}, {"nome", Value::Null()}},
                              {{"cognome", Value::Null()}, {"nome", Value::Null()}},
                              {{"cognome", "Lucchetti"}, {"nome", "Nicol\xF2"}}}),
       {true, "Rossi  Mario;Bianchi;;Lucchetti Nicolò", ""}},
      {Source(dir, "empty", {}), {true, "", ""}},
      {Source(dir, "no_studio", {}, no_studio), {true, "", ""}},
  };
  host::ObjectRef conversione = plugin_.CreateConversione();
  for (const auto& [conn, expected] : cases) EXPECT_EQ(RunTest(conversione, conn), expected) << conn;

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

TEST(Worker, ErroreMsgForm) {
  cnv::clsAmbulor worker;
  worker.ErroreMsg("ROSSI MARIO - Appunti", host::Failure(-2147217900, "Tabella sconosciuta"));
  EXPECT_EQ(worker.LastError(), "ROSSI MARIO - Appunti Errore -2147217900 Tabella sconosciuta");
  worker.ErroreMsg("", host::Failure(5, "Chiamata non valida "));
  EXPECT_EQ(worker.LastError(), "Errore 5 Chiamata non valida");
}

}  // namespace
