// The file that SalvaFile takes, read a chunk at a time: its size and its
// SHA-256 digest, never its whole content in memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
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

// A SHA-256 digest taken a piece at a time: Hex gives the digest of every
// piece given so far, in lower-case hex, and ends it.
class Sha256 {
 public:
  Sha256();
  ~Sha256();
  Sha256(const Sha256&) = delete;
  Sha256& operator=(const Sha256&) = delete;
  void Update(const void* data, size_t size);
  std::string Hex();

 private:
  struct Context;
  std::unique_ptr<Context> context_;
};

}  // namespace refhost
