#include "tools/kairon-convert/file_content.h"

#include <openssl/evp.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>

namespace refhost {

namespace {

using Context = std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)>;

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

std::optional<FileDigest> DigestFile(const std::string& path) {
  std::error_code ec;
  if (path.empty() || !std::filesystem::is_regular_file(path, ec)) return std::nullopt;
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  Context context(EVP_MD_CTX_new(), EVP_MD_CTX_free);
  if (!context || EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) != 1)
    throw std::runtime_error("SHA-256 failed");
  FileDigest digest;
  std::vector<char> chunk(1 << 16);
  while (in) {
    in.read(chunk.data(), static_cast<std::streamsize>(chunk.size()));
    const std::streamsize got = in.gcount();
    if (got > 0 && EVP_DigestUpdate(context.get(), chunk.data(), static_cast<size_t>(got)) != 1)
      throw std::runtime_error("SHA-256 failed");
    digest.size += got;
  }
  if (in.bad()) return std::nullopt;
  unsigned char value[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  if (EVP_DigestFinal_ex(context.get(), value, &length) != 1) throw std::runtime_error("SHA-256 failed");
  digest.sha256 = HexOf(value, length);
  return digest;
}

std::string Sha256Hex(const std::vector<uint8_t>& bytes) {
  Context context(EVP_MD_CTX_new(), EVP_MD_CTX_free);
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  if (!context || EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) != 1 ||
      EVP_DigestUpdate(context.get(), bytes.data(), bytes.size()) != 1 ||
      EVP_DigestFinal_ex(context.get(), digest, &length) != 1)
    throw std::runtime_error("SHA-256 failed");
  return HexOf(digest, length);
}

}  // namespace refhost
