#include "converters/documents/gzip_decoder.h"

#include <zlib.h>

#include <algorithm>

namespace cnv::filing {
namespace {

constexpr size_t kChunk = 64 * 1024;
constexpr size_t kLargestInput = size_t{1} << 30;  // what one call of inflate is given at most

uint64_t test_limit = 0;

}  // namespace

void SetGzipLimitForTesting(uint64_t limit) { test_limit = limit; }

int32_t DecodeGzip(const std::vector<uint8_t>& bytes, TempFolder& folder, const std::string& file_name) {
  if (bytes.size() < 3 || bytes[0] != 0x1F || bytes[1] != 0x8B || bytes[2] != 0x08) return kGzipBadStream;
  const uint64_t limit = test_limit != 0 ? test_limit : kGzipLimit;
  temp_files::File file = folder.Create(file_name);
  if (!file.is_open()) return kGzipCantWrite;

  z_stream stream{};
  if (inflateInit2(&stream, 16 + MAX_WBITS) != Z_OK) return kGzipBadStream;
  temp_files::Failure failure;
  std::vector<unsigned char> out(kChunk);
  uint64_t total = 0;
  size_t position = 0;  // of the next byte that inflate hasn't been given
  stream.next_in = const_cast<Bytef*>(bytes.data());
  int32_t answer = kGzipBadStream;
  for (;;) {
    if (stream.avail_in == 0 && position < bytes.size()) {
      stream.next_in = const_cast<Bytef*>(bytes.data() + position);
      stream.avail_in = static_cast<uInt>(std::min(bytes.size() - position, kLargestInput));
      position += stream.avail_in;
    }
    stream.next_out = out.data();
    stream.avail_out = static_cast<uInt>(out.size());
    const int result = inflate(&stream, Z_NO_FLUSH);
    const size_t produced = out.size() - stream.avail_out;
    if (produced > 0) {
      total += produced;
      if (total > limit) {
        answer = kGzipTooLarge;
        break;
      }
      if (!file.Write(out.data(), produced, failure)) {
        answer = kGzipCantWrite;
        break;
      }
    }
    if (result == Z_STREAM_END) {
      const size_t next = static_cast<size_t>(stream.next_in - bytes.data());
      if (next == bytes.size()) {
        answer = kGzipDone;
        break;
      }
      // Bytes that don't begin a further member (the zeros with which older
      // programs pad a column, or any other tail) end the stream after its
      // last whole member; a further member must be whole.
      if (bytes.size() - next < 2 || bytes[next] != 0x1F || bytes[next + 1] != 0x8B) {
        answer = kGzipDone;
        break;
      }
      if (inflateReset(&stream) != Z_OK) break;
      continue;
    }
    if (result == Z_OK) continue;
    if (result == Z_BUF_ERROR && stream.avail_in == 0 && position < bytes.size()) continue;
    break;  // truncated (no progress without further input), corrupt, or out of memory
  }
  inflateEnd(&stream);
  if (!file.Close(failure) && answer == kGzipDone) answer = kGzipCantWrite;
  return answer;
}

}  // namespace cnv::filing
