// The file that SalvaFile takes, read a chunk at a time: its size and its
// SHA-256 digest, never its whole content in memory.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace refhost {

struct FileDigest {
  int64_t size = 0;
  std::string sha256;  // lower-case hex
};

// The size and digest of the regular file at path (symbolic links
// followed); nullopt when none lies there or it can't be read.
std::optional<FileDigest> DigestFile(const std::string& path);

std::string Sha256Hex(const std::vector<uint8_t>& bytes);

}  // namespace refhost
