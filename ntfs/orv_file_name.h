#pragma once
// The $FILE_NAME value, little-endian: parent reference 0 (entry number in 48 bits, sequence
// number at 6), created 8, modified 16, MFT modified 24, accessed 32 (FILETIMEs), allocated size
// 40, real size 48, file attribute flags 56, reparse tag 60, name length in UTF-16 units 64,
// namespace 65 (0 POSIX, 1 Win32, 2 DOS, 3 Win32 and DOS), the name from 66.
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "base/orv_le.h"

enum : uint8_t { FN_POSIX = 0, FN_WIN32 = 1, FN_DOS = 2, FN_WIN32_AND_DOS = 3 };

// The value up to its name.
struct file_name_value {
  std::array<uint8_t, 68> m_raw{};

  void assign(const uint8_t* value, size_t length) {
    m_raw.fill(0);
    if (value) std::memcpy(m_raw.data(), value, length < m_raw.size() ? length : m_raw.size());
  }
  uint64_t parent_ref() const { return orv::le64(m_raw.data()); }
  uint64_t parent_number() const { return orv::le48(m_raw.data()); }
  uint16_t parent_sequence() const { return orv::le16(m_raw.data() + 6); }
  uint64_t created() const { return orv::le64(m_raw.data() + 8); }
  uint64_t modified() const { return orv::le64(m_raw.data() + 16); }
  uint64_t mft_modified() const { return orv::le64(m_raw.data() + 24); }
  uint64_t accessed() const { return orv::le64(m_raw.data() + 32); }
  uint64_t allocated_size() const { return orv::le64(m_raw.data() + 40); }
  uint64_t real_size() const { return orv::le64(m_raw.data() + 48); }
  uint32_t flags() const { return orv::le32(m_raw.data() + 56); }
  uint8_t name_units() const { return m_raw[64]; }
  uint8_t name_space() const { return m_raw[65]; }
  // A DOS-only name (namespace 2, and any other non-zero even value) never names a path.
  bool dos_only() const { return name_space() != 0 && name_space() % 2 == 0; }
};
