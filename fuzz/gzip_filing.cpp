// The gzip step of filing over arbitrary bytes: the decoder answers with one
// of its four answers and never raises; what it wrote lies in the folder
// only, under the name it was given, and when it answers that it is done,
// the file holds exactly what zlib itself inflates from the stream. The cap
// on the content is lowered, so that a bomb shows in a few bytes.

#include <zlib.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "converters/documents/filing.h"
#include "converters/documents/gzip_decoder.h"

namespace {

constexpr uint64_t kFuzzLimit = 1 << 20;

// What zlib gives for all the gzip members of the bytes, one after the
// other, up to bytes after a member that don't start with a member's two
// first bytes; false for anything that isn't such a sequence or passes the
// limit.
bool Inflated(const std::vector<uint8_t>& bytes, std::string& out) {
  z_stream z{};
  if (inflateInit2(&z, 15 + 16) != Z_OK) return false;
  z.next_in = const_cast<Bytef*>(bytes.data());
  z.avail_in = static_cast<uInt>(bytes.size());
  std::vector<char> chunk(1 << 16);
  bool ok = false;
  for (;;) {
    z.next_out = reinterpret_cast<Bytef*>(chunk.data());
    z.avail_out = static_cast<uInt>(chunk.size());
    int result = inflate(&z, Z_NO_FLUSH);
    out.append(chunk.data(), chunk.size() - z.avail_out);
    if (out.size() > kFuzzLimit) break;
    if (result == Z_STREAM_END) {
      if (z.avail_in < 2 || z.next_in[0] != 0x1F || z.next_in[1] != 0x8B) {
        ok = true;
        break;
      }
      if (inflateReset(&z) != Z_OK) break;
      continue;
    }
    if (result != Z_OK) break;
  }
  inflateEnd(&z);
  return ok;
}

// The folder that every input is decoded into, removed at exit.
char folder_name[] = "/tmp/fuzz-gzip-XXXXXX";

const std::filesystem::path& Folder() {
  static const std::filesystem::path folder = [] {
    if (mkdtemp(folder_name) == nullptr) std::abort();
    std::atexit([] {
      std::error_code ignored;
      std::filesystem::remove_all(folder_name, ignored);
    });
    return std::filesystem::path(folder_name);
  }();
  return folder;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  cnv::filing::SetGzipLimitForTesting(kFuzzLimit);
  const std::vector<uint8_t> bytes(data, data + size);
  int32_t answer;
  {
    cnv::filing::TempFolder folder(Folder().string());
    answer = cnv::filing::DecodeGzip(bytes, folder, "file.bin");
    if (answer != cnv::filing::kGzipDone && answer != cnv::filing::kGzipBadStream &&
        answer != cnv::filing::kGzipTooLarge && answer != cnv::filing::kGzipCantWrite)
      std::abort();
    for (const auto& entry : std::filesystem::directory_iterator(Folder()))
      if (entry.path().filename() != "file.bin") std::abort();
    if (answer == cnv::filing::kGzipDone) {
      std::ifstream file(Folder() / "file.bin", std::ios::binary);
      const std::string written((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
      std::string expected;
      if (!Inflated(bytes, expected) || written != expected) std::abort();
    }
  }
  // The folder removes what it wrote when it goes.
  if (!std::filesystem::is_empty(Folder())) std::abort();
  return 0;
}
