// The gzip decoder of filing: the decompressed content of a gzip stream
// (RFC 1952) written to a file of the temporary folder, a chunk at a time.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "converters/documents/filing.h"

namespace cnv::filing {

// Answers of DecodeGzip.
inline constexpr int32_t kGzipDone = 1;
inline constexpr int32_t kGzipBadStream = 0;  // not gzip, or a member truncated or corrupt
inline constexpr int32_t kGzipTooLarge = 2;   // the content would pass the cap below
inline constexpr int32_t kGzipCantWrite = 3;  // the file can't be made (a bad name) or written

// The most that one stream may expand to: 256 MiB. A document of a practice
// (a scan, a report, an RTF letter) is a few megabytes; a larger content is
// a damaged or hostile stream (a zip bomb expands a thousandfold), and the
// host's file store takes each file whole into one record, so a stream
// refused here costs the disk no more than the cap and the run no memory.
// The cap is on the content, not a ratio, since blank scans legitimately
// compress a thousandfold.
inline constexpr uint64_t kGzipLimit = uint64_t{256} << 20;

// Takes the stream's bytes and a file name in folder; gives kGzipDone when
// the whole content reached the file, another answer otherwise. Several
// members one after the other (as concatenated .gz files are) give their
// contents one after the other, as gunzip does; each member's CRC and length
// are checked. Bytes after a member that don't start with the two bytes of a
// further member's header are passed over, as gunzip does with padding; a
// further member that starts must be whole. Never raises. Whatever it began
// writing is left for the caller's Killfile (and the folder's own cleanup).
int32_t DecodeGzip(const std::vector<uint8_t>& bytes, TempFolder& folder, const std::string& file_name);

// Lowers the cap for tests; 0 restores kGzipLimit.
void SetGzipLimitForTesting(uint64_t limit);

}  // namespace cnv::filing
