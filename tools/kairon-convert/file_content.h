// The file that SalvaFile takes: its bytes and their SHA-256 digest.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace refhost {

struct FileContent {
  std::vector<uint8_t> bytes;
  std::string sha256;  // lower-case hex
};

// The content of the regular file at path (symbolic links followed);
// nullopt when none lies there or it can't be read.
std::optional<FileContent> ReadFileContent(const std::string& path);

std::string Sha256Hex(const std::vector<uint8_t>& bytes);

}  // namespace refhost
