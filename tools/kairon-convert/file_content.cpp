#include "tools/kairon-convert/file_content.h"

#include <openssl/evp.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>

namespace refhost {

namespace {

std::string HexOf(const unsigned char* digest, unsigned int length) {
  static constexpr char kHex[] = "0123456789abcdef";
  std::string hex;
  for (unsigned int i = 0; i < length; ++i) {
    hex += kHex[digest[i] >> 4];
    hex += kHex[digest[i] & 15];
  }
  return hex;
}

}  // namespace

struct Sha256::Context {
  std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> md{EVP_MD_CTX_new(), EVP_MD_CTX_free};
};

Sha256::Sha256() : context_(std::make_unique<Context>()) {
  if (!context_->md || EVP_DigestInit_ex(context_->md.get(), EVP_sha256(), nullptr) != 1)
    throw std::runtime_error("SHA-256 failed");
}

Sha256::~Sha256() = default;

void Sha256::Update(const void* data, size_t size) {
  if (size > 0 && EVP_DigestUpdate(context_->md.get(), data, size) != 1) throw std::runtime_error("SHA-256 failed");
}

std::string Sha256::Hex() {
  unsigned char value[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  if (EVP_DigestFinal_ex(context_->md.get(), value, &length) != 1) throw std::runtime_error("SHA-256 failed");
  return HexOf(value, length);
}

std::optional<FileDigest> DigestFile(const std::string& path) {
  std::error_code ec;
  if (path.empty() || !std::filesystem::is_regular_file(path, ec)) return std::nullopt;
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  Sha256 sha256;
  FileDigest digest;
  std::vector<char> chunk(1 << 16);
  while (in) {
    in.read(chunk.data(), static_cast<std::streamsize>(chunk.size()));
    const std::streamsize got = in.gcount();
    if (got > 0) sha256.Update(chunk.data(), static_cast<size_t>(got));
    digest.size += got;
  }
  if (in.bad()) return std::nullopt;
  digest.sha256 = sha256.Hex();
  return digest;
}

std::string Sha256Hex(const std::vector<uint8_t>& bytes) {
  Sha256 sha256;
  sha256.Update(bytes.data(), bytes.size());
  return sha256.Hex();
}

}  // namespace refhost
