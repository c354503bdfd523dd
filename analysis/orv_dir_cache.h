#pragma once
// One directory as the path walk needs it: its name and the references of its parents.
#include <cstdint>
#include <map>
#include <set>
#include <string>

struct dir_cache_entry {
  dir_cache_entry() = default;
  dir_cache_entry(uint64_t record_number, uint16_t sequence, const std::set<uint64_t>& parents,
                  const std::wstring& name, uint32_t record_flags);
  uint64_t m_record_number = 0;
  uint16_t m_sequence = 0;
  std::set<uint64_t> m_parents;  // whole references; never empty (a single 0 when none)
  std::string m_name_utf8;
  std::wstring m_name;
  uint8_t m_is_directory = 0;
  uint32_t m_record_flags = 0;
};

// Orders file references by record number first, then sequence number.
struct file_reference_less {
  bool operator()(uint64_t a, uint64_t b) const {
    uint64_t na = a & 0x0000FFFFFFFFFFFFull, nb = b & 0x0000FFFFFFFFFFFFull;
    if (na != nb) return na < nb;
    return (a >> 48) < (b >> 48);
  }
};
using dir_store_map = std::map<uint64_t, dir_cache_entry, file_reference_less>;
