#pragma once
// Attributes inside a file record: the common header, the one walking rule, type names, flag
// texts, and the decoders of the small resident values (volume version, reparse targets, names).
#include <cstdint>
#include <string>

#include "base/orv_le.h"

enum attrib_type : uint32_t {
  AT_STANDARD_INFORMATION = 0x10,
  AT_ATTRIBUTE_LIST = 0x20,
  AT_FILE_NAME = 0x30,
  AT_OBJECT_ID = 0x40,
  AT_SECURITY_DESCRIPTOR = 0x50,
  AT_VOLUME_NAME = 0x60,
  AT_VOLUME_INFORMATION = 0x70,
  AT_DATA = 0x80,
  AT_INDEX_ROOT = 0x90,
  AT_INDEX_ALLOCATION = 0xA0,
  AT_BITMAP = 0xB0,
  AT_REPARSE_POINT = 0xC0,
  AT_EA_INFORMATION = 0xD0,
  AT_EA = 0xE0,
  AT_PROPERTY_SET = 0xF0,
  AT_LOGGED_UTILITY_STREAM = 0x100,
  AT_END = 0xFFFFFFFF,
};

// Attribute header. Resident: value length at 16, value offset at 20. Non-resident: first VCN 16,
// last VCN 24, run list offset 32, compression unit 34, allocated 40, real 48, initialised 56,
// compressed 64. Every accessor reads inside the attribute's own bytes only.
struct attrib_view {
  orv::byte_span m_bytes;  // the attribute, header included, clipped to the record

  attrib_view() = default;
  explicit attrib_view(orv::byte_span bytes) : m_bytes(bytes) {}
  uint32_t type() const { return m_bytes.u32(0); }
  uint32_t length() const { return m_bytes.u32(4); }
  bool non_resident() const { return m_bytes.u8(8) != 0; }
  uint8_t name_length() const { return m_bytes.u8(9); }
  uint16_t name_offset() const { return m_bytes.u16(10); }
  uint16_t flags() const { return m_bytes.u16(12); }
  uint16_t id() const { return m_bytes.u16(14); }
  uint32_t value_length() const { return m_bytes.u32(16); }
  uint16_t value_offset() const { return m_bytes.u16(20); }
  uint64_t first_vcn() const { return m_bytes.u64(16); }
  uint16_t runs_offset() const { return m_bytes.u16(32); }
  uint16_t compression_unit() const { return m_bytes.u16(34); }
  uint64_t allocated_size() const { return m_bytes.u64(40); }
  uint64_t real_size() const { return m_bytes.u64(48); }
  uint64_t initialised_size() const { return m_bytes.u64(56); }
  uint64_t compressed_size() const { return m_bytes.u64(64); }
  bool compressed() const { return flags() == 1; }
  // Resident value clipped to the attribute; empty when offset or length is 0.
  orv::byte_span value() const;
  // True when the attribute names itself inside its bytes (offset and length both non-zero).
  bool has_name() const;
};

// The record walk. A type of 0xFFFFFFFF, a length of 0, a length above `limit`, or an attribute
// header that no longer fits in the record ends it. With `scan_budget` the scan's extra bound
// holds: a running sum that starts at twice the first-attribute offset grows by each following
// length and must stay within the record. `visit(attribute pointer, length, position)` returning
// false ends the walk too.
struct attrib_walk_rules {
  uint32_t m_limit = 1024;
  bool m_scan_budget = false;
};
template <class Visit>
void walk_attributes(const uint8_t* record, size_t record_length, size_t first_offset, const attrib_walk_rules& rules,
                     Visit&& visit) {
  if (!record) return;
  size_t pos = first_offset;
  uint64_t budget = 2 * uint64_t(first_offset);
  while (pos + 8 <= record_length) {
    uint32_t type = orv::le32(record + pos);
    uint32_t len = orv::le32(record + pos + 4);
    if (type == AT_END || len == 0 || len > rules.m_limit) return;
    if (!visit(record + pos, len, pos)) return;
    pos += len;
    if (rules.m_scan_budget) {
      if (pos + 8 > record_length) return;
      uint32_t next = orv::le32(record + pos + 4);
      if (next > record_length) return;
      budget += next;
      if (budget > record_length) return;
    }
  }
}

std::string attrib_type_name(uint32_t type, bool short_name);
const char* attrib_kind_label(uint32_t type, bool has_name);
std::string file_attrib_text(uint32_t flags);
// "ver: 3:1 (WinXP)" and its siblings.
std::string volume_version_text(uint8_t major, uint8_t minor);
// Target of a reparse point value (print name, else substitute name); false drops the attribute.
bool reparse_target(orv::byte_span value, std::wstring& target);
