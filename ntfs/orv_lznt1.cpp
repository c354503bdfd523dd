#include "ntfs/orv_lznt1.h"

#include <algorithm>
#include <cstring>

#include "base/orv_le.h"

bool lznt1_chunk(const uint8_t* in, size_t in_length, uint8_t* out, size_t& out_capacity, size_t expected) {
  if (!in || !out || expected > LZNT1_MAX_OUTPUT || expected > out_capacity) return false;
  if (in_length < 9) std::memset(out, 0, expected);
  const size_t capacity = std::min(out_capacity, LZNT1_MAX_OUTPUT);
  size_t i = 0, o = 0;
  // A back reference splits its 16 bits into offset and length by the output position: the
  // offset takes 4 + n bits, where n is the bit length of (o - 1) >> 4; n grows each time o
  // passes 16 << n.
  unsigned n = 0;
  size_t bound = 16;
  while (i < in_length && o < capacity) {
    unsigned flag = in[i++];
    // Eight literals in a row, with room on both sides: one copy.
    if (flag == 0 && in_length - i >= 8 && capacity - o >= 8) {
      std::memcpy(out + o, in + i, 8);
      i += 8;
      o += 8;
      continue;
    }
    for (int token = 0; token < 8 && i < in_length; ++token, flag >>= 1) {
      if (!(flag & 1)) {
        out[o++] = in[i++];
        if (o >= capacity) break;
        continue;
      }
      if (in_length - i < 2) {  // half a reference at the end of the data
        i = in_length;
        break;
      }
      const unsigned ref = orv::le16(in + i);
      i += 2;
      while (o > bound) {
        ++n;
        bound <<= 1;
      }
      const size_t offset = (ref >> (12 - n)) + 1;
      const size_t length = (ref & (0xFFFu >> n)) + 3;
      if (offset > o) {
        out_capacity = 0;
        return false;
      }
      const size_t end = std::min(o + length, capacity);
      uint8_t* dst = out + o;
      const uint8_t* src = dst - offset;
      const size_t count = end - o;
      if (offset >= count) {
        std::memcpy(dst, src, count);
      } else if (offset == 1) {
        std::memset(dst, *src, count);
      } else {
        // Overlapping: the copy repeats. Eight bytes at a time while the source stays behind.
        size_t k = 0;
        if (offset >= 8)
          for (; k + 8 <= count; k += 8) std::memcpy(dst + k, src + k, 8);
        for (; k < count; ++k) dst[k] = src[k];
      }
      o = end;
      if (o >= capacity) break;
    }
  }
  out_capacity = expected;
  return true;
}

namespace {

// True when the unit's last 4096 bytes (all of a shorter unit) are zero: what the tail of a unit
// whose compressed data saved clusters reads as.
bool zero_tail(const uint8_t* unit, size_t unit_length) {
  const size_t from = unit_length > LZNT1_CHUNK_OUTPUT ? unit_length - LZNT1_CHUNK_OUTPUT : 0;
  return std::all_of(unit + from, unit + unit_length, [](uint8_t b) { return b == 0; });
}

}  // namespace

bool decompress_unit(std::vector<uint8_t>& sink, size_t& out_length, const uint8_t* unit, size_t unit_length,
                     uint64_t bytes_left, uint32_t flags) {
  out_length = 0;
  if (!unit || unit_length == 0 || bytes_left == 0 || !(flags & LZNT1_SINK_BYTES)) return false;
  auto give = [&](const uint8_t* bytes, size_t length) {
    length = size_t(std::min<uint64_t>(bytes_left, length));
    sink.insert(sink.end(), bytes, bytes + length);
    out_length += length;
    bytes_left -= length;
  };
  // Only a unit whose compression saved clusters has a sparse tail; a full unit is stored as it
  // is, unless it starts with a stored chunk.
  const bool stored_chunk = unit_length >= 2 && unit[0] == 0xFF && unit[1] == 0x3F;
  if (!stored_chunk && !(flags & 0x2) && (flags & 0x8)) {
    give(unit, unit_length);
    return true;
  }
  // Each chunk expands into the same buffer: a chunk that writes less than 4096 bytes leaves the
  // previous chunk's bytes behind its own, and they go out with it.
  uint8_t buffer[LZNT1_CHUNK_OUTPUT] = {};
  const orv::byte_span span(unit, unit_length);
  size_t p = 0;
  while (p < unit_length) {
    const unsigned header = span.u16(p);  // a lone last byte reads with a zero high byte
    const size_t low = header & 0xFFF;
    if (header & 0x8000) {
      // Chunk data running past the unit is cut at its end.
      const size_t in_length = std::min(low + 1, unit_length - p - 2);
      size_t capacity = sizeof buffer;
      if (!lznt1_chunk(unit + p + 2, in_length, buffer, capacity, sizeof buffer)) break;
      give(buffer, sizeof buffer);
      p += low + 3;
    } else if (low == 0xFFF) {
      give(unit + p + 2, std::min(LZNT1_CHUNK_OUTPUT, unit_length - p - 2));
      p += LZNT1_CHUNK_OUTPUT + 2;
    } else if (low == 0) {
      p = (p & ~size_t(0xFFF)) + LZNT1_CHUNK_OUTPUT;  // zeros up to the next 4096-byte boundary
    } else {
      break;
    }
  }
  if (p >= unit_length) return true;
  // A malformed chunk: a unit whose tail holds data was not compressed after all and is taken as
  // stored; one with an empty tail is damaged compressed data.
  if (zero_tail(unit, unit_length)) return false;
  give(unit, unit_length);
  return true;
}
