#pragma once
// The $STANDARD_INFORMATION value, little-endian: created 0, modified 8, MFT modified 16,
// accessed 24 (FILETIMEs), file attribute flags 32, maximum versions 36, version 40, class id 44;
// from NTFS 3.0 on also owner id 48, security id 52, quota charged 56, update sequence number 64.
// The older 48-byte form is kept zero-padded to 72 bytes.
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "base/orv_le.h"

struct std_info_value {
  std::array<uint8_t, 72> m_value{};

  void assign(const uint8_t* value, size_t length) {
    m_value.fill(0);
    if (value) std::memcpy(m_value.data(), value, length < m_value.size() ? length : m_value.size());
  }
  uint64_t created() const { return orv::le64(m_value.data()); }
  uint64_t modified() const { return orv::le64(m_value.data() + 8); }
  uint64_t mft_modified() const { return orv::le64(m_value.data() + 16); }
  uint64_t accessed() const { return orv::le64(m_value.data() + 24); }
  uint32_t flags() const { return orv::le32(m_value.data() + 32); }
  uint32_t owner_id() const { return orv::le32(m_value.data() + 48); }
  uint32_t security_id() const { return orv::le32(m_value.data() + 52); }
  uint64_t quota() const { return orv::le64(m_value.data() + 56); }
  uint64_t usn() const { return orv::le64(m_value.data() + 64); }
};
