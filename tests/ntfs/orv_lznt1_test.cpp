// LZNT1 chunks and units built by hand or by the test compressor. (Units that ntfs-3g wrote: through
// the binary against icat.)
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "ntfs/orv_lznt1.h"
#include "tests/ntfs/lznt1_writer.h"
#include "tests/test_util.h"

using lznt1w::bytes;
using testutil::cat;

namespace {

bytes text(size_t size, unsigned seed) {
  static const char* words[] = {"the ", "volume ", "record ", "cluster ", "of ", "index ", "stream ", "a ", "\n"};
  bytes out;
  while (out.size() < size) {
    seed = seed * 1103515245u + 12345u;
    const char* w = words[(seed >> 16) % 9];
    out.insert(out.end(), w, w + std::strlen(w));
  }
  out.resize(size);
  return out;
}

// Bytes with no three-byte sequence twice among the first 251: nothing to refer back to.
bytes distinct(size_t size) {
  bytes out(size);
  for (size_t i = 0; i < size; ++i) out[i] = uint8_t((i * 7) % 251);
  return out;
}

bytes expand(const bytes& in, size_t& capacity, bool& ok, bytes out = bytes(4096, 0xEE)) {
  ok = lznt1_chunk(in.data(), in.size(), out.data(), capacity, 4096);
  return out;
}

}  // namespace

TEST(Lznt1Chunk, TokensAndSplits) {
  size_t cap = 4096;
  bool ok = false;
  // 16 literals, then at o = 16 a reference with 4 offset bits (offset 16, length 3), then at
  // o = 19 one with 5 (offset 19, length 4); "ab" repeated by an overlapping reference.
  bytes sixteen = {'0', '1', '2', '3', '4', '5', '6', '7', '8', '9', 'a', 'b', 'c', 'd', 'e', 'f'};
  bytes in = cat({{0x00}, bytes(sixteen.begin(), sixteen.begin() + 8), {0x00}, bytes(sixteen.begin() + 8, sixteen.end()),
                  {0x03, 0x00, 0xF0, 0x01, 0x90}});
  bytes out = expand(in, cap, ok);
  EXPECT_TRUE(ok);
  EXPECT_EQ(cap, 4096u);  // reported as a whole chunk
  EXPECT_EQ(std::string(out.begin(), out.begin() + 23), "0123456789abcdef0120123");
  EXPECT_EQ(out[23], 0xEE);  // past the output the buffer keeps its bytes
  out = expand({0x04, 'a', 'b', 0x07, 0x10}, cap = 4096, ok);
  EXPECT_EQ(std::string(out.begin(), out.begin() + 13), std::string("abababababab") + '\0');  // short input: zeroed
  // A reference before the output's start.
  expand({0x01, 0x00, 0x00, 'x', 'x', 'x', 'x', 'x', 'x', 'x'}, cap = 4096, ok);
  EXPECT_FALSE(ok);
  EXPECT_EQ(cap, 0u);
  EXPECT_FALSE(lznt1_chunk(in.data(), in.size(), out.data(), cap = 20000, 16385));
}

TEST(Lznt1Unit, StoredOrChunksFillerAndRecovery) {
  const bytes t1 = text(4096, 1), t2 = text(4096, 2), t3 = text(1000, 3);
  const bytes three = lznt1w::unit(cat({t1, t2, t3}).data(), 9192, 16384);
  // A chunk whose data is exactly 256 bytes: header 0xB0FF.
  const bytes lit = distinct(227);
  const bytes c256 = lznt1w::chunk(lit.data(), lit.size());
  const bytes c2 = lznt1w::chunk(t2.data(), 4096);
  const bytes bad = {0x05, 0xB0, 0x01, 0x00, 0x00, 0x41, 0x42, 0x43};  // a reference at o = 0
  const bytes tiny = {0x08, 0xB0, 0x00, 'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h'};  // 8 bytes of output
  auto padded = [](bytes b, size_t size, uint8_t tail = 0) {
    b.resize(size, 0);
    if (tail) b.back() = tail;
    return b;
  };
  auto head = [](const bytes& b, size_t n) { return bytes(b.begin(), b.begin() + int64_t(n)); };
  const uint32_t S = LZNT1_SINK_BYTES;
  ASSERT_EQ(bytes(c256.begin(), c256.begin() + 2), (bytes{0xFF, 0xB0}));
  const bytes after_bad = padded(cat({lznt1w::chunk(t1.data(), 4096), bad}), 16384, 0x99);
  struct unit_case { const char* m_what; bytes m_unit; uint32_t m_flags; uint64_t m_left; bool m_ok; bytes m_out; };
  const unit_case cases[] = {
      {"no sparse cluster: stored even though it holds chunks", three, S | 0x8, 100000, true, three},
      {"0xB0FF: 256 bytes of data, next chunk at 258", padded(cat({c256, c2}), 8192), S | 0xA, 100000, true,
       cat({lit, bytes(4096 - 227), t2})},
      {"filler jumps to the next 4096", padded(cat({padded(lznt1w::chunk(t3.data(), 1000), 4096), c2}), 8192), S | 0xA,
       100000, true, cat({t3, bytes(3096), t2})},
      {"a short chunk keeps the bytes before it", padded(cat({lznt1w::chunk(t1.data(), 4096), tiny}), 4096), S | 0xA,
       100000, true, cat({t1, bytes{'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h'}, bytes(t1.begin() + 8, t1.end())})},
      {"bad chunk after a good one: the raw unit follows", after_bad, S | 0xA, 100000, true, cat({t1, after_bad})},
      {"bad chunk, empty tail: false, the good chunk stays", padded(cat({lznt1w::chunk(t1.data(), 4096), bad}), 16384),
       S | 0xA, 100000, false, t1},
      {"unknown header with data behind", padded({0x10, 0x20, 1, 2}, 4096, 7), S | 0xA, 100, true,
       head(padded({0x10, 0x20, 1, 2}, 4096, 7), 100)},
      {"an all-zero unit gives nothing", bytes(16384), S | 0xA, 100000, true, {}},
      {"chunk data running past the unit", {0x40, 0xB0, 0x00, 'a', 'b'}, S | 0xA, 8, true, {'a', 'b', 0, 0, 0, 0, 0, 0}},
      {"nothing left to give", three, S | 0xA, 0, false, {}},
      {"no sink", three, 0xA, 100, false, {}},
  };
  for (const unit_case& c : cases) {
    SCOPED_TRACE(c.m_what);
    bytes sink = {0x55};
    size_t length = 99;
    EXPECT_EQ(decompress_unit(sink, length, c.m_unit.data(), c.m_unit.size(), c.m_left, c.m_flags), c.m_ok);
    EXPECT_EQ(length, c.m_out.size());
    EXPECT_EQ(bytes(sink.begin() + 1, sink.end()), c.m_out);  // appended
  }
}
