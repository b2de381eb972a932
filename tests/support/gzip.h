// Gzip streams for tests of both platforms to hand the plug-in.
#pragma once

#include <zlib.h>

#include <cstdint>
#include <string_view>
#include <vector>

namespace fixture {

// content as one gzip stream, compressed at the best level.
inline std::vector<uint8_t> Gzip(std::string_view content) {
  z_stream stream{};
  deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY);
  std::vector<uint8_t> out(deflateBound(&stream, static_cast<uLong>(content.size())) + 32);
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(content.data()));
  stream.avail_in = static_cast<uInt>(content.size());
  stream.next_out = out.data();
  stream.avail_out = static_cast<uInt>(out.size());
  deflate(&stream, Z_FINISH);
  out.resize(stream.total_out);
  deflateEnd(&stream);
  return out;
}

inline std::vector<uint8_t> Gzip(const std::vector<uint8_t>& content) {
  return Gzip(std::string_view(reinterpret_cast<const char*>(content.data()), content.size()));
}

}  // namespace fixture
