// File contents as a scanner or a word processor leaves them: small images
// and documents, stored as they are or as a gzip stream.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tools/ambulor-sample/database_writer.h"

namespace sample {

class Random;  // generator.h

// The content as a gzip stream (RFC 1952) whose header holds no name or time,
// so that the same content always gives the same bytes.
std::vector<uint8_t> Gzip(const std::vector<uint8_t>& content);

std::vector<uint8_t> BytesOfText(std::string_view text);

// A file of the kind that the extension names, of a few hundred bytes to a
// few kilobytes; text is what a document shows.
std::vector<uint8_t> FileContent(Random& random, std::string_view extension, std::string_view text);

// Real images, as small as a thumbnail: a grey baseline JPEG whose 8x8 blocks
// are each of one shade (width and height multiples of 8), a grey PNG, and
// an uncompressed grey TIFF, as a scanner leaves a page.
std::vector<uint8_t> Jpeg(Random& random, int width, int height);
std::vector<uint8_t> Png(Random& random, int width, int height);
std::vector<uint8_t> Tiff(uint64_t seed, int width, int height);

// The bytes that a producer hands over, gathered.
std::vector<uint8_t> Gathered(const Producer& produce);

// Large files, made piece by piece: a scanned page as an uncompressed grey
// TIFF of about size bytes, 2480 pixels wide (A4 at 300 dpi) and as tall as
// the size asks; and a long RTF document of about size bytes, a clinical
// diary of dated paragraphs. The same seed gives the same bytes.
Producer ScannedPage(uint64_t seed, size_t size);
Producer LongRtf(uint64_t seed, std::string title, size_t size);

// What plain hands over, as one gzip stream (fastest compression), still
// piece by piece.
Producer Gzipped(Producer plain);

// An RTF document as the practice program's word processor writes it: the
// text's Windows-1252 letters as \'hh escapes.
std::string Rtf(std::string_view title, std::string_view body);

}  // namespace sample
