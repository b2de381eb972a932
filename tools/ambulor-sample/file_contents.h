// File contents as a scanner or a word processor leaves them: small images
// and documents, stored as they are or as a gzip stream.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace sample {

class Random;  // generator.h

// The content as a gzip stream (RFC 1952) whose header holds no name or time,
// so that the same content always gives the same bytes.
std::vector<uint8_t> Gzip(const std::vector<uint8_t>& content);

std::vector<uint8_t> BytesOfText(std::string_view text);

// A file of the kind that the extension names, of a few hundred bytes to a
// few kilobytes; text is what a document shows.
std::vector<uint8_t> FileContent(Random& random, std::string_view extension, std::string_view text);

// An RTF document as the practice program's word processor writes it: the
// text's Windows-1252 letters as \'hh escapes.
std::string Rtf(std::string_view title, std::string_view body);

}  // namespace sample
