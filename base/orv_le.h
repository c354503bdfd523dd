#pragma once
// Little-endian field access. All on-disk integers in NTFS, MBR, GPT and VMDK structures are
// little-endian. The raw helpers take a pointer that the caller has already bounds-checked;
// byte_span checks every access against its buffer and reads 0 for anything outside it, so a
// lying length or offset on disk can never move a read past the end of a buffer.
#include <cstddef>
#include <cstdint>

namespace orv {

inline uint16_t le16(const uint8_t* p) { return uint16_t(p[0] | (uint16_t(p[1]) << 8)); }
inline uint32_t le32(const uint8_t* p) {
  return uint32_t(p[0]) | (uint32_t(p[1]) << 8) | (uint32_t(p[2]) << 16) | (uint32_t(p[3]) << 24);
}
inline uint64_t le64(const uint8_t* p) { return uint64_t(le32(p)) | (uint64_t(le32(p + 4)) << 32); }
// n bytes (0..8), unsigned.
inline uint64_t le_n(const uint8_t* p, unsigned n) {
  uint64_t v = 0;
  for (unsigned i = 0; i < n && i < 8; ++i) v |= uint64_t(p[i]) << (8 * i);
  return v;
}
// Entry number of a file reference: the low 48 bits, read byte by byte so no sequence bits leak.
inline uint64_t le48(const uint8_t* p) { return le_n(p, 6); }
inline void put_le16(uint8_t* p, uint16_t v) { p[0] = uint8_t(v); p[1] = uint8_t(v >> 8); }
inline void put_le32(uint8_t* p, uint32_t v) { for (int i = 0; i < 4; ++i) p[i] = uint8_t(v >> (8 * i)); }
inline void put_le64(uint8_t* p, uint64_t v) { for (int i = 0; i < 8; ++i) p[i] = uint8_t(v >> (8 * i)); }

constexpr uint64_t REF_NUMBER_MASK = 0x0000FFFFFFFFFFFFull;
inline uint64_t ref_number(uint64_t ref) { return ref & REF_NUMBER_MASK; }
inline uint16_t ref_sequence(uint64_t ref) { return uint16_t(ref >> 48); }
inline uint64_t make_ref(uint64_t number, uint16_t seq) { return (number & REF_NUMBER_MASK) | (uint64_t(seq) << 48); }

struct byte_span {
  const uint8_t* m_data = nullptr;
  size_t m_size = 0;

  byte_span() = default;
  byte_span(const uint8_t* data, size_t size) : m_data(data), m_size(data ? size : 0) {}

  bool has(size_t off, size_t len) const { return m_data && off <= m_size && len <= m_size - off; }
  const uint8_t* at(size_t off) const { return (m_data && off <= m_size) ? m_data + off : nullptr; }
  uint8_t u8(size_t off) const { return has(off, 1) ? m_data[off] : 0; }
  uint16_t u16(size_t off) const { return has(off, 2) ? le16(m_data + off) : 0; }
  uint32_t u32(size_t off) const { return has(off, 4) ? le32(m_data + off) : 0; }
  uint64_t u64(size_t off) const { return has(off, 8) ? le64(m_data + off) : 0; }
  uint64_t u48(size_t off) const { return has(off, 6) ? le48(m_data + off) : 0; }
  // The part [off, off+len) clamped to the buffer.
  byte_span sub(size_t off, size_t len) const {
    if (!m_data || off > m_size) return byte_span();
    return byte_span(m_data + off, len < m_size - off ? len : m_size - off);
  }
};

}  // namespace orv
