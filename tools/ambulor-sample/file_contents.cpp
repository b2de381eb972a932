#include "tools/ambulor-sample/file_contents.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>
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
  if (extension == "jpg") {
    const int width = 8 * random.Between(4, 40);
    content = Jpeg(random, width, 8 * random.Between(3, 30));
  } else if (extension == "png") {
    const int width = random.Between(8, 64);
    content = Png(random, width, random.Between(8, 64));
  } else if (extension == "tif") {
    const uint64_t seed = random.Next();
    const int width = random.Between(16, 64);
    content = Tiff(seed, width, random.Between(16, 64));
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

namespace {

void Append(std::vector<uint8_t>& out, std::initializer_list<uint8_t> bytes) { out.insert(out.end(), bytes); }
void Append(std::vector<uint8_t>& out, std::string_view bytes) { out.insert(out.end(), bytes.begin(), bytes.end()); }
void BigEndian16(std::vector<uint8_t>& out, unsigned n) { Append(out, {uint8_t(n >> 8), uint8_t(n)}); }
void BigEndian32(std::vector<uint8_t>& out, uint32_t n) {
  Append(out, {uint8_t(n >> 24), uint8_t(n >> 16), uint8_t(n >> 8), uint8_t(n)});
}
void LittleEndian16(std::vector<uint8_t>& out, unsigned n) { Append(out, {uint8_t(n), uint8_t(n >> 8)}); }
void LittleEndian32(std::vector<uint8_t>& out, uint32_t n) {
  Append(out, {uint8_t(n), uint8_t(n >> 8), uint8_t(n >> 16), uint8_t(n >> 24)});
}

// Bits of entropy-coded JPEG data, first bit highest, with a 0x00 after each
// 0xFF byte; the last byte is filled with ones.
class JpegBits {
 public:
  explicit JpegBits(std::vector<uint8_t>& out) : out_(out) {}
  void Put(uint32_t bits, int count) {
    for (int i = count - 1; i >= 0; --i) {
      byte_ = static_cast<uint8_t>(byte_ << 1 | (bits >> i & 1));
      if (++filled_ == 8) Flush();
    }
  }
  void Finish() {
    while (filled_ != 0) Put(1, 1);
  }

 private:
  void Flush() {
    out_.push_back(byte_);
    if (byte_ == 0xFF) out_.push_back(0x00);
    byte_ = 0;
    filled_ = 0;
  }
  std::vector<uint8_t>& out_;
  uint8_t byte_ = 0;
  int filled_ = 0;
};

// A row of grey pixels of a scanned page: light paper with lines of darker
// "writing" and a little grain. Each row comes from a random source of its
// own, so that any row can be made without those before it.
void PageRow(uint64_t seed, int y, int width, uint8_t* row) {
  Random grain(seed ^ (static_cast<uint64_t>(y) * 0x9E3779B97F4A7C15ull));
  const bool writing = y % 60 >= 20 && y % 60 < 44 && y > 200;
  uint64_t bits = 0;
  for (int x = 0; x < width; ++x) {
    if (x % 8 == 0) bits = grain.Next();
    const auto noise = static_cast<uint8_t>(bits >> (8 * (x % 8)));
    const bool ink = writing && x > 150 && x < width - 150 && noise < 90;
    row[x] = ink ? static_cast<uint8_t>(40 + noise % 40) : static_cast<uint8_t>(235 + noise % 16);
  }
}

// What comes before the pixels of a one-strip grey TIFF: the header, an
// image directory of 12 entries and the two resolutions.
std::vector<uint8_t> TiffHeader(int width, int height) {
  std::vector<uint8_t> out;
  Append(out, std::string_view("II*\0", 4));
  LittleEndian32(out, 8);
  constexpr uint32_t kEntries = 12, kResolutions = 8 + 2 + kEntries * 12 + 4, kPixels = kResolutions + 16;
  LittleEndian16(out, kEntries);
  constexpr unsigned kShort = 3, kLong = 4, kRational = 5;
  const auto entry = [&](unsigned tag, unsigned type, uint32_t value) {
    LittleEndian16(out, tag);
    LittleEndian16(out, type);
    LittleEndian32(out, 1);
    if (type == kShort) {
      LittleEndian16(out, value);
      LittleEndian16(out, 0);
    } else {
      LittleEndian32(out, value);
    }
  };
  entry(256, kLong, static_cast<uint32_t>(width));
  entry(257, kLong, static_cast<uint32_t>(height));
  entry(258, kShort, 8);  // bits per sample
  entry(259, kShort, 1);  // no compression
  entry(262, kShort, 1);  // black is zero
  entry(273, kLong, kPixels);
  entry(277, kShort, 1);                             // samples per pixel
  entry(278, kLong, static_cast<uint32_t>(height));  // rows per strip: one strip
  entry(279, kLong, static_cast<uint32_t>(width) * static_cast<uint32_t>(height));
  entry(282, kRational, kResolutions);
  entry(283, kRational, kResolutions + 8);
  entry(296, kShort, 2);   // inches
  LittleEndian32(out, 0);  // no further image
  for (int i = 0; i < 2; ++i) {
    LittleEndian32(out, 300);
    LittleEndian32(out, 1);
  }
  return out;
}

}  // namespace

std::vector<uint8_t> Jpeg(Random& random, int width, int height) {
  std::vector<uint8_t> out;
  Append(out, {0xFF, 0xD8, 0xFF, 0xE0, 0x00, 0x10, 'J',  'F',  'I',  'F',
               0x00, 0x01, 0x01, 0x00, 0x00, 0x01, 0x00, 0x01, 0x00, 0x00});
  Append(out, {0xFF, 0xDB, 0x00, 0x43, 0x00});  // one quantization table, 16 everywhere
  out.insert(out.end(), 64, 16);
  Append(out, {0xFF, 0xC0, 0x00, 0x0B, 0x08});  // baseline, 8 bits
  BigEndian16(out, static_cast<unsigned>(height));
  BigEndian16(out, static_cast<unsigned>(width));
  Append(out, {0x01, 0x01, 0x11, 0x00});  // one component, no subsampling, table 0
  // The usual table of DC differences, and an AC table that holds only the
  // end of block, as the one-bit code 0.
  static constexpr uint8_t kDcLengths[16] = {0, 1, 5, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0};
  Append(out, {0xFF, 0xC4, 0x00, 0x1F, 0x00});
  out.insert(out.end(), std::begin(kDcLengths), std::end(kDcLengths));
  for (uint8_t category = 0; category < 12; ++category) out.push_back(category);
  Append(out, {0xFF, 0xC4, 0x00, 0x14, 0x10, 1});
  out.insert(out.end(), 15, 0);
  out.push_back(0x00);
  Append(out, {0xFF, 0xDA, 0x00, 0x08, 0x01, 0x01, 0x00, 0x00, 0x3F, 0x00});

  std::array<uint16_t, 12> codes{};
  std::array<int, 12> lengths{};
  uint16_t code = 0;
  for (int length = 1, category = 0; length <= 16; ++length, code = static_cast<uint16_t>(code << 1)) {
    for (int i = 0; i < kDcLengths[length - 1]; ++i, ++category, ++code) {
      codes[category] = code;
      lengths[category] = length;
    }
  }
  JpegBits bits(out);
  int previous = 0;
  const int columns = width / 8, rows = height / 8;
  for (int by = 0; by < rows; ++by) {
    for (int bx = 0; bx < columns; ++bx) {
      const int shade = std::clamp(60 + 150 * (bx + by) / (columns + rows) + random.Between(-20, 20), 0, 255);
      const int dc = (shade - 128) / 2;  // the block's mean less 128, times 8, over the quantizer
      const int difference = dc - previous;
      previous = dc;
      int category = 0;
      for (int magnitude = std::abs(difference); magnitude != 0; magnitude >>= 1) ++category;
      bits.Put(codes[category], lengths[category]);
      if (category != 0) {
        bits.Put(static_cast<uint32_t>(difference > 0 ? difference : difference + (1 << category) - 1), category);
      }
      bits.Put(0, 1);  // end of block
    }
  }
  bits.Finish();
  Append(out, {0xFF, 0xD9});
  return out;
}

std::vector<uint8_t> Png(Random& random, int width, int height) {
  std::vector<uint8_t> out;
  const auto chunk = [&](std::string_view type, const std::vector<uint8_t>& data) {
    BigEndian32(out, static_cast<uint32_t>(data.size()));
    const size_t start = out.size();
    Append(out, type);
    out.insert(out.end(), data.begin(), data.end());
    BigEndian32(out, static_cast<uint32_t>(crc32(0, out.data() + start, static_cast<uInt>(out.size() - start))));
  };
  Append(out, std::string_view("\x89PNG\r\n\x1A\n", 8));
  std::vector<uint8_t> header;
  BigEndian32(header, static_cast<uint32_t>(width));
  BigEndian32(header, static_cast<uint32_t>(height));
  Append(header, {8, 0, 0, 0, 0});  // 8-bit grey, deflate, adaptive filters, no interlace
  chunk("IHDR", header);
  std::vector<uint8_t> pixels;
  const int base = random.Between(0, 255);
  for (int y = 0; y < height; ++y) {
    pixels.push_back(0);  // filter: none
    for (int x = 0; x < width; ++x) pixels.push_back(static_cast<uint8_t>(base + x * 3 + y * 2 + random.Between(0, 9)));
  }
  uLongf size = compressBound(static_cast<uLong>(pixels.size()));
  std::vector<uint8_t> compressed(size);
  if (compress2(compressed.data(), &size, pixels.data(), static_cast<uLong>(pixels.size()), Z_BEST_COMPRESSION) !=
      Z_OK) {
    throw std::runtime_error("zlib can't compress the pixels of a PNG");
  }
  compressed.resize(size);
  chunk("IDAT", compressed);
  chunk("IEND", {});
  return out;
}

std::vector<uint8_t> Tiff(uint64_t seed, int width, int height) {
  std::vector<uint8_t> out = TiffHeader(width, height);
  const size_t start = out.size();
  out.resize(start + static_cast<size_t>(width) * height);
  for (int y = 0; y < height; ++y) PageRow(seed, y, width, out.data() + start + static_cast<size_t>(y) * width);
  return out;
}

std::vector<uint8_t> Gathered(const Producer& produce) {
  std::vector<uint8_t> out;
  produce([&](const uint8_t* data, size_t size) { out.insert(out.end(), data, data + size); });
  return out;
}

Producer ScannedPage(uint64_t seed, size_t size) {
  constexpr int kWidth = 2480;
  const size_t header = TiffHeader(kWidth, 1).size();
  const int height = std::max(1, static_cast<int>((std::max(size, header) - header) / kWidth));
  return [=](const PutBytes& put) {
    const std::vector<uint8_t> head = TiffHeader(kWidth, height);
    put(head.data(), head.size());
    constexpr int kRowsAPiece = 26;  // about 64 KB
    std::vector<uint8_t> piece(static_cast<size_t>(kWidth) * kRowsAPiece);
    for (int y = 0; y < height; y += kRowsAPiece) {
      const int rows = std::min(kRowsAPiece, height - y);
      for (int r = 0; r < rows; ++r) PageRow(seed, y + r, kWidth, piece.data() + static_cast<size_t>(r) * kWidth);
      put(piece.data(), static_cast<size_t>(rows) * kWidth);
    }
  };
}

Producer LongRtf(uint64_t seed, std::string title, size_t size) {
  return [=](const PutBytes& put) {
    static const char* const kEntries[] = {
        "Visita di controllo: PA 135/85, FC 72 ritmica. Prosegue la terapia in atto.",
        "Riferisce astenia da alcuni giorni. Obiettivit\\'e0 toracica negativa. Si richiedono esami ematici.",
        "Ritira gli esiti degli esami: glicemia 118 mg/dl, colesterolo totale 212 mg/dl. Consigli dietetici.",
        "Rinnovo del piano terapeutico. Nessun effetto indesiderato riferito.",
        "Controllo pressorio domiciliare nella norma. Prossimo controllo tra tre mesi."};
    Random random(seed);
    std::string text = Rtf(title, "Diario clinico.");
    text.erase(text.rfind('}'));
    size_t written = 0;
    const auto hand_over = [&] {
      put(reinterpret_cast<const uint8_t*>(text.data()), text.size());
      written += text.size();
      text.clear();
    };
    for (int day = 0; written + text.size() + 200 < size; ++day) {
      char date[32];
      std::snprintf(date, sizeof date, "%02d/%02d/%04d", day % 28 + 1, day / 28 % 12 + 1, 2008 + day / 336 % 17);
      text += "\\par\\b ";
      text += date;
      text += "\\b0\\par ";
      text += random.Pick(kEntries);
      if (text.size() >= 64 * 1024) hand_over();
    }
    text += "\\par }";
    hand_over();
  };
}

Producer Gzipped(Producer plain) {
  return [plain = std::move(plain)](const PutBytes& put) {
    z_stream stream{};
    if (deflateInit2(&stream, Z_BEST_SPEED, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY) != Z_OK) {
      throw std::runtime_error("zlib can't start a gzip stream");
    }
    const std::unique_ptr<z_stream, int (*)(z_stream*)> end(&stream, deflateEnd);
    std::vector<uint8_t> out(64 * 1024);
    const auto pump = [&](int flush) {
      int result = Z_OK;
      do {
        stream.next_out = out.data();
        stream.avail_out = static_cast<uInt>(out.size());
        result = deflate(&stream, flush);
        if (result == Z_STREAM_ERROR) throw std::runtime_error("zlib can't go on with a gzip stream");
        if (stream.avail_out != out.size()) put(out.data(), out.size() - stream.avail_out);
      } while (stream.avail_out == 0 || (flush == Z_FINISH && result != Z_STREAM_END));
    };
    plain([&](const uint8_t* data, size_t size) {
      stream.next_in = const_cast<Bytef*>(data);
      stream.avail_in = static_cast<uInt>(size);
      pump(Z_NO_FLUSH);
    });
    stream.next_in = nullptr;
    stream.avail_in = 0;
    pump(Z_FINISH);
  };
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
