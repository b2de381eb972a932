// The texts of the host's utente object.

#include <nlohmann/json.hpp>
#include <stdexcept>

#include "host/value.h"
#include "tools/kairon-convert/reference_host.h"

namespace refhost {

std::map<std::string, std::string> DefaultUtente() {
  return {{"nomecompleto", "BIANCHI LUCIA"},
          {"CodiceFiscale", "BNCLCU68M52H501Z"},
          {"CodiceRegione", "120"},
          {"CodiceASL", "201"},
          {"Citta", "ROMA"}};
}

std::map<std::string, std::string> ParseUtente(const std::string& json) {
  nlohmann::json parsed = nlohmann::json::parse(json, nullptr, false);
  if (parsed.is_discarded() || !parsed.is_object()) throw std::runtime_error("--utente: expected a JSON object");
  std::map<std::string, std::string> utente;
  for (const auto& [member, value] : parsed.items()) {
    if (value.is_string())
      utente[member] = value.get<std::string>();
    else if (value.is_number_float())
      utente[member] = host::NumberText(value.get<double>());
    else if (value.is_number() || value.is_boolean())
      utente[member] = value.dump();
    else
      throw std::runtime_error("--utente: member " + member + " must be a text");
  }
  return utente;
}

}  // namespace refhost
