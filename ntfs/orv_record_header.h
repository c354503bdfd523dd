#pragma once
// The header of a file record, little-endian:
//    0 signature: "FILE", "INDX" or "BAAD"     4 update sequence array offset (48 in a "FILE")
//    6 update sequence count in words          8 log sequence number
//   16 sequence number                        18 hard link count
//   20 offset of the first attribute          22 flags: 1 in use, 2 directory
//   24 used size                              28 allocated size: the stride of records in $MFT
//   32 base record reference, 0 in a base record (entry number in the low 48 bits)
//   40 next attribute id
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "base/orv_le.h"

enum : uint16_t { FR_FLAG_IN_USE = 1, FR_FLAG_DIRECTORY = 2 };

// The first 42 bytes of a record header, as an entry keeps them.
struct record_header {
  static constexpr size_t k_size = 42;
  std::array<uint8_t, k_size> m_bytes{};

  // Copies the head of `record`; what a short buffer lacks stays zero.
  void assign(const uint8_t* record, size_t length) {
    m_bytes.fill(0);
    if (record) std::memcpy(m_bytes.data(), record, length < k_size ? length : k_size);
  }
  void clear() { m_bytes.fill(0); }
  uint16_t usa_offset() const { return orv::le16(m_bytes.data() + 4); }
  uint16_t usa_count() const { return orv::le16(m_bytes.data() + 6); }
  uint64_t lsn() const { return orv::le64(m_bytes.data() + 8); }
  uint16_t sequence() const { return orv::le16(m_bytes.data() + 16); }
  uint16_t link_count() const { return orv::le16(m_bytes.data() + 18); }
  uint16_t first_attrib() const { return orv::le16(m_bytes.data() + 20); }
  uint16_t flags() const { return orv::le16(m_bytes.data() + 22); }
  uint32_t used_size() const { return orv::le32(m_bytes.data() + 24); }
  uint32_t allocated_size() const { return orv::le32(m_bytes.data() + 28); }
  uint64_t base_ref() const { return orv::le64(m_bytes.data() + 32); }
  uint16_t next_attrib_id() const { return orv::le16(m_bytes.data() + 40); }
  bool in_use() const { return flags() & FR_FLAG_IN_USE; }
  bool is_directory() const { return flags() & FR_FLAG_DIRECTORY; }
};

// A "FILE" record this tool decodes: array at 48, at most 9 words in it (4096 bytes of record),
// first attribute below 73.
inline bool is_valid_filerec(const uint8_t* buffer, size_t length) {
  if (!buffer || length < 22) return false;
  return std::memcmp(buffer, "FILE", 4) == 0 && orv::le16(buffer + 4) == 48 && orv::le16(buffer + 6) <= 9 &&
         orv::le16(buffer + 20) < 73;
}
