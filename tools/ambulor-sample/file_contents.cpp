#include "tools/ambulor-sample/file_contents.h"

#include <zlib.h>

#include <cstdio>
#include <stdexcept>

#include "tools/ambulor-sample/generator.h"

namespace sample {

std::vector<uint8_t> Gzip(const std::vector<uint8_t>& content) {
  z_stream stream{};
  // 15 + 16: a gzip wrapper; without a name or time in its header the same
  // content always gives the same bytes.
  if (deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY) != Z_OK) {
    throw std::runtime_error("zlib can't start a gzip stream");
  }
  std::vector<uint8_t> compressed(deflateBound(&stream, content.size()));
  stream.next_in = const_cast<Bytef*>(content.data());
  stream.avail_in = static_cast<uInt>(content.size());
  stream.next_out = compressed.data();
  stream.avail_out = static_cast<uInt>(compressed.size());
  const int result = deflate(&stream, Z_FINISH);
  compressed.resize(stream.total_out);
  deflateEnd(&stream);
  if (result != Z_STREAM_END) throw std::runtime_error("zlib can't finish a gzip stream");
  return compressed;
}

std::vector<uint8_t> BytesOfText(std::string_view text) { return {text.begin(), text.end()}; }

// A file of the kind that the extension names, of a few hundred bytes to a
// few kilobytes; text is what a document shows.
std::vector<uint8_t> FileContent(Random& random, std::string_view extension, std::string_view text) {
  std::vector<uint8_t> content;
  const auto append = [&](std::string_view part) { content.insert(content.end(), part.begin(), part.end()); };
  const auto noise = [&](int length) {
    for (int i = 0; i < length; ++i) content.push_back(static_cast<uint8_t>(random.Next() >> 56));
  };
  if (extension == "jpg") {
    append(std::string_view("\xFF\xD8\xFF\xE0\x00\x10JFIF\x00\x01\x01\x00\x00\x48\x00\x48\x00\x00", 20));
    noise(random.Between(300, 3000));
    append("\xFF\xD9");
  } else if (extension == "png") {
    append(std::string_view("\x89PNG\r\n\x1A\n\x00\x00\x00\x0DIHDR", 16));
    noise(random.Between(200, 2000));
    append(std::string_view("\x00\x00\x00\x00IEND\xAE\x42\x60\x82", 12));
  } else if (extension == "tif") {
    append(std::string_view("II*\x00\x08\x00\x00\x00", 8));
    noise(random.Between(400, 3000));
  } else if (extension == "pdf") {
    append(
        "%PDF-1.4\n1 0 obj\n<< /Type /Catalog /Pages 2 0 R >>\nendobj\n2 0 obj\n<< /Type /Pages /Count 1 >>\n"
        "endobj\nstream\nBT /F1 11 Tf 72 720 Td (");
    append(text);
    append(") Tj ET\nendstream\ntrailer\n<< /Root 1 0 R >>\n%%EOF\n");
  } else {
    append(text);
    append("\r\n");
  }
  return content;
}

// An RTF document as the practice program's word processor writes it: the
// text's Windows-1252 letters as \'hh escapes.
std::string Rtf(std::string_view title, std::string_view body) {
  std::string rtf =
      "{\\rtf1\\ansi\\ansicpg1252\\deff0{\\fonttbl{\\f0\\fswiss Arial;}}\\viewkind4\\uc1\\pard\\qc\\b\\f0\\fs24 ";
  const auto escaped = [&](std::string_view text) {
    for (unsigned char c : text) {
      if (c < 0x80) {
        rtf += static_cast<char>(c);
      } else {
        char hex[5];
        std::snprintf(hex, sizeof hex, "\\'%02x", c);
        rtf += hex;
      }
    }
  };
  escaped(title);
  rtf += "\\b0\\par\\pard\\fs22\\par ";
  escaped(body);
  return rtf + "\\par\\par Roma, li\\par\\par Il medico\\par }";
}

}  // namespace sample
