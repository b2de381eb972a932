// Conversione: the one class of the plug-in that a host creates. It tells the
// fixed facts of the source program, tests a source (Test) and runs a
// conversion (Converti); all the work is done by its worker, clsAmbulor.
// Members are reached by name through host::Object.
#pragma once

#include <memory>
#include <string>

#include "host/component.h"
#include "host/object.h"

namespace cnv {

class clsAmbulor;

// {6B1F3C52-8E0A-4D7B-9C21-5A4E7D0B3F18}
inline constexpr host::ClassId kConversioneClassId = {
    0x6B1F3C52, 0x8E0A, 0x4D7B, {0x9C, 0x21, 0x5A, 0x4E, 0x7D, 0x0B, 0x3F, 0x18}};

inline constexpr const char* kListaOpzioni =
    "Allergie; Appunti; BMI; Certificati; Certificati INPS; Diagnosi; Esenzioni; Eventi; Piani Terapeutici; "
    "Prescrizioni Esami Laboratorio; Prescrizioni Farmaceutiche; Prescrizioni Libere; Pressione Arteriosa; "
    "Prestazioni; Referti; Registrazioni Private; Scansioni; Vaccinazioni; Visite Ambulatoriali";

class Conversione : public host::Object {
 public:
  Conversione();
  ~Conversione() override;

  // Properties: LastError, NomeProgramma, TipoOrigine, the Default...
  // texts, ListaOpzioni; and, for hosts that know them, CausaApertura (why
  // the source of the last Test didn't open, in words with a remedy; empty
  // if it did) and CopiaPrivata (the folder of the private copies of a
  // read-only source while they are open). All read-only.
  host::Value Get(std::string_view member) override;
  // Every property is read-only: raises 438.
  void Set(std::string_view member, const host::Value& value) override;
  // Test(Conn, ListaMedici by reference) and Converti(Medico, Opzioni,
  // Interface by reference), each giving a boolean; a property called
  // without arguments gives its value.
  host::Value Call(std::string_view member, host::Args& args) override;

  // How many instances are alive in this process.
  static int LiveInstances();

 private:
  bool Test(const std::string& conn, host::Value& lista_medici);
  bool Converti(const std::string& medico, const std::string& opzioni, const host::Value& interface);

  std::string last_error_;
  std::unique_ptr<clsAmbulor> worker_;
};

}  // namespace cnv
