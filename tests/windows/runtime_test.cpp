// What of the plug-in's runtime already holds as a Windows program, built
// with the project's own MinGW flags and run under Wine: failures thrown and
// caught through the statically linked C++ runtime, zlib linked in
// statically, and Firebird's message types with the sizes that the source's
// reader takes them at.
#include <zlib.h>

#include <firebird/Interface.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/failure.h"
#include "tests/support/failure_of.h"

namespace {

using fixture::FailureRaisedBy;

// The reader loads each column at its offset in the message buffer as one of
// these; on Windows, where long is 32 bits also for 64-bit programs, a
// header that typedef'd them otherwise would shift every field.
static_assert(sizeof(ISC_LONG) == 4 && sizeof(ISC_INT64) == 8);
static_assert(sizeof(ISC_DATE) == 4 && sizeof(ISC_TIME) == 4 && sizeof(ISC_TIMESTAMP) == 8);
static_assert(sizeof(ISC_QUAD) == 8 && sizeof(FB_BOOLEAN) == 1);
static_assert(sizeof(ISC_STATUS) == sizeof(void*));

TEST(WindowsRuntime, FailuresKeepTheirNumberAndDescriptionThroughTheRuntime) {
  host::Failure raised = FailureRaisedBy([] { host::failures::Raise(host::failures::kMemberNotSupported); });
  EXPECT_EQ(raised.number(), 438);
  EXPECT_EQ(raised.description(), "Propriet\xC3\xA0 o metodo non supportati dall'oggetto");

  host::Failure user = FailureRaisedBy([] { host::failures::Raise(1234); });
  EXPECT_EQ(user.number(), 1234);
  EXPECT_EQ(user.description(), "Errore definito dall'applicazione o dall'oggetto");

  host::Failure library = FailureRaisedBy([] { throw std::out_of_range("vector"); });
  EXPECT_EQ(library.number(), 51);
  EXPECT_EQ(library.description(), "Errore interno: vector");

  host::Failure foreign = FailureRaisedBy([] { throw 3; });
  EXPECT_EQ(foreign.number(), 51);
}

TEST(WindowsRuntime, AnAllocationThatFailsIsOutOfMemoryNotAnAbort) {
  host::Failure failure = FailureRaisedBy([] {
    void* block = ::operator new(SIZE_MAX / 2);
    ::operator delete(block);
  });
  EXPECT_EQ(failure.number(), 7);
  EXPECT_EQ(failure.description(), "Memoria esaurita");
}

TEST(WindowsRuntime, StaticZlibRoundTripsAGzipStream) {
  const std::string check = "123456789";
  EXPECT_EQ(crc32(0, reinterpret_cast<const Bytef*>(check.data()), static_cast<uInt>(check.size())), 0xCBF43926u);

  std::string content;
  for (int i = 0; i < 5000; ++i) content += "riga " + std::to_string(i) + "\r\n";

  z_stream deflater{};
  ASSERT_EQ(deflateInit2(&deflater, Z_BEST_COMPRESSION, Z_DEFLATED, 16 + MAX_WBITS, 8, Z_DEFAULT_STRATEGY), Z_OK);
  std::vector<uint8_t> gzip(deflateBound(&deflater, static_cast<uLong>(content.size())) + 32);
  deflater.next_in = reinterpret_cast<Bytef*>(content.data());
  deflater.avail_in = static_cast<uInt>(content.size());
  deflater.next_out = gzip.data();
  deflater.avail_out = static_cast<uInt>(gzip.size());
  ASSERT_EQ(deflate(&deflater, Z_FINISH), Z_STREAM_END);
  gzip.resize(deflater.total_out);
  deflateEnd(&deflater);
  ASSERT_EQ(gzip[0], 0x1F);
  ASSERT_EQ(gzip[1], 0x8B);

  z_stream inflater{};
  ASSERT_EQ(inflateInit2(&inflater, 16 + MAX_WBITS), Z_OK);
  std::string back(content.size(), '\0');
  inflater.next_in = gzip.data();
  inflater.avail_in = static_cast<uInt>(gzip.size());
  inflater.next_out = reinterpret_cast<Bytef*>(back.data());
  inflater.avail_out = static_cast<uInt>(back.size());
  EXPECT_EQ(inflate(&inflater, Z_FINISH), Z_STREAM_END);
  EXPECT_EQ(inflater.total_out, content.size());
  inflateEnd(&inflater);
  EXPECT_EQ(back, content);
}

}  // namespace
