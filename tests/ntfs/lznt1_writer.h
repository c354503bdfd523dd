#pragma once
// A small LZNT1 compressor for tests and the speed probe: greedy, longest of a few earlier
// places that share the next three bytes. It makes valid chunks of known content, not small ones.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace lznt1w {

using bytes = std::vector<uint8_t>;

// Offset bits above 4 at output position o: the bit length of (o - 1) >> 4.
inline unsigned split_bits(size_t o) {
  unsigned n = 0;
  while (o > (size_t(16) << n)) ++n;
  return n;
}

// The compressed data of up to 4096 bytes, without header.
inline bytes compress_data(const uint8_t* data, size_t size) {
  constexpr int tries = 16;
  std::vector<int> head(4096, -1), prev(size, -1);
  auto hash = [&](size_t i) { return (data[i] * 33u * 33u + data[i + 1] * 33u + data[i + 2]) & 4095u; };
  auto remember = [&](size_t i) {
    if (i + 2 >= size) return;
    unsigned h = hash(i);
    prev[i] = head[h];
    head[h] = int(i);
  };
  bytes out;
  size_t o = 0;
  while (o < size) {
    size_t flag_at = out.size();
    out.push_back(0);
    for (int bit = 0; bit < 8 && o < size; ++bit) {
      unsigned n = split_bits(o);
      size_t max_offset = size_t(1) << (4 + n), max_length = (0xFFFu >> n) + 3;
      size_t best = 0, best_offset = 0;
      if (o + 2 < size) {
        int k = head[hash(o)];
        for (int t = 0; t < tries && k >= 0 && o - size_t(k) <= max_offset; ++t, k = prev[size_t(k)]) {
          size_t len = 0, limit = std::min(max_length, size - o);
          while (len < limit && data[size_t(k) + len] == data[o + len]) ++len;
          if (len > best) best = len, best_offset = o - size_t(k);
        }
      }
      if (best >= 3) {
        unsigned token = unsigned((best_offset - 1) << (12 - n)) | unsigned(best - 3);
        out.push_back(uint8_t(token));
        out.push_back(uint8_t(token >> 8));
        out[flag_at] |= uint8_t(1u << bit);
        for (size_t e = o + best; o < e; ++o) remember(o);
      } else {
        out.push_back(data[o]);
        remember(o++);
      }
    }
  }
  return out;
}

// One chunk with its header: compressed (0xB000 | length - 1), or stored (0x3FFF and 4096 bytes)
// when compression gains nothing on a full 4096 bytes.
inline bytes chunk(const uint8_t* data, size_t size) {
  bytes body = compress_data(data, size);
  const bool stored = size == 4096 && body.size() >= 4096;
  const unsigned header = stored ? 0x3FFF : 0xB000 | unsigned(body.size() - 1);
  bytes out(2 + (stored ? size : body.size()));
  out[0] = uint8_t(header);
  out[1] = uint8_t(header >> 8);
  std::memcpy(out.data() + 2, stored ? data : body.data(), out.size() - 2);
  return out;
}

// The chunks of `size` bytes, one per 4096, back to back and padded with zeros to `unit_size`
// when they are shorter.
inline bytes unit(const uint8_t* data, size_t size, size_t unit_size) {
  bytes out;
  for (size_t at = 0; at < size; at += 4096) {
    bytes c = chunk(data + at, std::min<size_t>(4096, size - at));
    out.insert(out.end(), c.begin(), c.end());
  }
  if (out.size() < unit_size) out.resize(unit_size, 0);
  return out;
}

}  // namespace lznt1w
