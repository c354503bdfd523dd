// Compression units: the unit expander with its flags and bytes left taken from the input, and
// the chunk decoder alone on the same bytes.
#include <cstdlib>
#include <vector>

#include "base/orv_le.h"
#include "ntfs/orv_lznt1.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 6 || size > 65536 + 6) return 0;
  const uint32_t flags = orv::le16(data);                 // 0x2 sparse met, 0x8, 0x4000 the sink
  const uint64_t bytes_left = uint64_t(orv::le16(data + 2)) * 8;  // up to 512 KiB
  const size_t capacity_in = orv::le16(data + 4) & 0x7FFF;
  const uint8_t* unit = data + 6;
  const size_t unit_length = size - 6;

  std::vector<uint8_t> sink(3, 0xAB);
  size_t out_length = 0;
  decompress_unit(sink, out_length, unit, unit_length, bytes_left, flags);
  if (out_length != sink.size() - 3 || out_length > bytes_left) abort();

  std::vector<uint8_t> out(LZNT1_MAX_OUTPUT);
  size_t capacity = capacity_in < out.size() ? capacity_in : out.size();
  const size_t expected = capacity_in % (LZNT1_MAX_OUTPUT + 2);
  if (lznt1_chunk(unit, unit_length, out.data(), capacity, expected) && capacity != expected) abort();
  return 0;
}
