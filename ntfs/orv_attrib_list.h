#pragma once
// $ATTRIBUTE_LIST: where each attribute of a file lives when its attributes fill more than one
// record. Entry layout, little-endian: type u32 at 0, entry length u16 at 4, name length in
// units u8 at 6, name offset u8 at 7, first VCN u64 at 8, reference of the record holding the
// attribute at 16 (entry number in 48 bits, sequence number u16 at 22), attribute id u16 at 24,
// the name from 26.
#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "base/orv_le.h"

class CNtfs;
struct diag_sink;

constexpr size_t k_list_entry_header = 26;

struct attrib_list_entry {
  orv::byte_span m_bytes;

  explicit attrib_list_entry(orv::byte_span bytes) : m_bytes(bytes) {}
  uint32_t type() const { return m_bytes.u32(0); }
  uint16_t length() const { return m_bytes.u16(4); }
  uint8_t name_length() const { return m_bytes.u8(6); }
  uint8_t name_offset() const { return m_bytes.u8(7); }
  uint64_t first_vcn() const { return m_bytes.u64(8); }
  uint64_t reference() const { return m_bytes.u64(16); }
  uint64_t holder() const { return m_bytes.u48(16); }
  uint16_t holder_sequence() const { return m_bytes.u16(22); }
  uint16_t attrib_id() const { return m_bytes.u16(24); }
};

// Reads the value of a non-resident attribute list (the attribute's bytes, header included)
// cluster by cluster into `out`, sized by its runs: never more than 64 MiB, nor more than the
// source holds. Clusters that cannot be read stay zero; the entry walk ends at them. False when
// the run list yields nothing to read.
bool read_attrib_list_value(CNtfs& volume, orv::byte_span attribute, std::vector<uint8_t>& out);

struct attrib_list_rules {
  // The holding record's sequence number must equal the reference's: extents of $MFT itself are
  // never taken from a reused record. The entries of other files are followed as they stand.
  bool m_same_sequence = false;
  const diag_sink* m_log = nullptr;  // "primary entry ... pointing to ref entry ..." per entry
};

// Fetches record `number` with its fixups applied; false when it cannot be read.
using record_fetch = std::function<bool(uint64_t number, std::vector<uint8_t>& record)>;
// One attribute that an entry names, inside the record that holds it.
using listed_attribute = std::function<void(const uint8_t* record, size_t record_length, const uint8_t* attribute,
                                            uint32_t attrib_length, uint64_t holder)>;

// Walks the entries of a list (`length` bytes, entry by entry until one is shorter than its
// header) and pulls in every attribute that lives in another record than `base`: the holding
// record is read, must be a "FILE" record with attributes, and the attribute of the entry's type
// and id is handed to `visit`. Each attribute is pulled once, however often the list names it.
void pull_listed_attributes(const uint8_t* list, size_t length, uint64_t base, const attrib_list_rules& rules,
                            const record_fetch& fetch, const listed_attribute& visit);
