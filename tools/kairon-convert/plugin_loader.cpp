#include <dlfcn.h>

#include <cstdio>
#include <stdexcept>
#include <string>

#include "tools/kairon-convert/reference_host.h"

namespace refhost {

const char* const kConversioneClassId = "{6B1F3C52-8E0A-4D7B-9C21-5A4E7D0B3F18}";

namespace {

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// The value of the hex digits text[at, at + digits).
uint32_t HexField(std::string_view text, size_t at, size_t digits) {
  uint32_t value = 0;
  for (size_t i = at; i < at + digits; ++i) {
    int d = HexDigit(text[i]);
    if (d < 0) throw std::invalid_argument("not a class identity: " + std::string(text));
    value = value * 16 + static_cast<uint32_t>(d);
  }
  return value;
}

void* Symbol(void* handle, const char* name) {
  dlerror();
  void* symbol = dlsym(handle, name);
  if (symbol == nullptr) {
    const char* error = dlerror();
    throw std::runtime_error(error ? error : std::string("missing entry point ") + name);
  }
  return symbol;
}

}  // namespace

host::ClassId ParseClassId(std::string_view text) {
  // {6B1F3C52-8E0A-4D7B-9C21-5A4E7D0B3F18}
  if (text.size() != 38 || text.front() != '{' || text.back() != '}' || text[9] != '-' || text[14] != '-' ||
      text[19] != '-' || text[24] != '-')
    throw std::invalid_argument("not a class identity: " + std::string(text));
  host::ClassId id{};
  id.data1 = HexField(text, 1, 8);
  id.data2 = static_cast<uint16_t>(HexField(text, 10, 4));
  id.data3 = static_cast<uint16_t>(HexField(text, 15, 4));
  id.data4[0] = static_cast<uint8_t>(HexField(text, 20, 2));
  id.data4[1] = static_cast<uint8_t>(HexField(text, 22, 2));
  for (size_t i = 0; i < 6; ++i) id.data4[2 + i] = static_cast<uint8_t>(HexField(text, 25 + 2 * i, 2));
  return id;
}

Plugin::Plugin(const std::string& path) {
  handle_ = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle_ == nullptr) {
    const char* error = dlerror();
    throw std::runtime_error(error ? error : "cannot load " + path);
  }
  try {
    for (const char* name : {"DllGetClassObject", "DllCanUnloadNow", "DllRegisterServer", "DllUnregisterServer"})
      Symbol(handle_, name);
  } catch (...) {
    dlclose(handle_);
    throw;
  }
}

Plugin::~Plugin() {
  // Objects of the library that are still alive would lose their code.
  auto can_unload = reinterpret_cast<host::DllCanUnloadNowFn>(dlsym(handle_, "DllCanUnloadNow"));
  if (can_unload != nullptr && can_unload() == host::kOk) dlclose(handle_);
}

host::ObjectRef Plugin::CreateConversione() {
  auto get_class_object = reinterpret_cast<host::DllGetClassObjectFn>(Symbol(handle_, "DllGetClassObject"));
  const host::ClassId clsid = ParseClassId(kConversioneClassId);
  void* factory = nullptr;
  int32_t status = get_class_object(&clsid, &host::kClassFactoryInterface, &factory);
  if (status != host::kOk || factory == nullptr) {
    char code[16];
    std::snprintf(code, sizeof code, "0x%08X", static_cast<uint32_t>(status));
    throw std::runtime_error(std::string("DllGetClassObject refused Conversione: ") + code);
  }
  host::ObjectRef conversione = static_cast<host::ClassFactory*>(factory)->CreateInstance();
  if (!conversione) throw std::runtime_error("the class factory gave no Conversione");
  return conversione;
}

void* Plugin::FindSymbol(const char* name) const { return dlsym(handle_, name); }

int32_t Plugin::CanUnloadNow() {
  auto can_unload = reinterpret_cast<host::DllCanUnloadNowFn>(Symbol(handle_, "DllCanUnloadNow"));
  return can_unload();
}

}  // namespace refhost
