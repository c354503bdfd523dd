#pragma once
// Directory indexes ($I30): the index root value and "INDX" blocks of the index allocation.
//
// Index root value: indexed attribute type u32 at 0 (0x30 for file names), collation rule u32 at
// 4, bytes per index block u32 at 8, clusters per index block u8 at 12; the node header at 16.
// "INDX" block: update sequence array offset u16 at 4, count u16 at 6, log sequence number u64 at
// 8, the block's own VCN u64 at 16, the node header at 24.
// Node header: first entry u32 at 0 and used size u32 at 4, both from the header's start,
// allocated size u32 at 8, flags u8 at 12 (1: entries point at child nodes).
// Index entry: file reference u64 at 0, entry length u16 at 8, key length u16 at 10, flags u16 at
// 12 (1: child node, its VCN in the entry's last 8 bytes; 2: last entry, no key), key from 16: a
// $FILE_NAME value.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "base/orv_le.h"
#include "ntfs/orv_file_name.h"

// Windows and ntfs-3g write 4096-byte index blocks; other sizes are taken from the index root
// when they are a power of two in this range.
constexpr uint32_t k_index_block_size = 4096;
constexpr uint32_t k_min_index_block = 512;
constexpr uint32_t k_max_index_block = 65536;
// No index entry is longer: a key of 255 UTF-16 units plus the headers and a child VCN.
constexpr uint32_t k_max_index_entry = 768;

enum : uint16_t { INDEX_ENTRY_NODE = 1, INDEX_ENTRY_END = 2 };

struct index_entry {
  uint64_t m_reference = 0;
  uint16_t m_flags = 0;
  uint64_t m_child_vcn = UINT64_MAX;  // child node, when the entry points at one
  bool m_has_key = false;             // a whole file name key
  bool m_slack = false;               // found behind the node's last entry
  file_name_value m_key;
  std::wstring m_name;                // the key's name
  bool last() const { return (m_flags & INDEX_ENTRY_END) != 0; }
};

// Entries of the node whose header starts at `header` inside `node`. Entries lie inside the used
// size and the buffer; the walk ends at the last entry, at a length of 0, below the 16-byte entry
// header or above k_max_index_entry, or at a key that does not fit its entry. With `slack`, the
// bytes between the last entry and the node's allocated size are searched for entries whose key
// names `parent` as the directory (deleted names). Gives the entries' count, -1 when the node
// header is unusable (no room, first entry or used size outside the buffer). `why` comes back
// with what ended the walk before the last entry, or null.
int parse_index_node(orv::byte_span node, size_t header, bool slack, uint64_t parent,
                     std::vector<index_entry>& out, const char** why = nullptr);

struct index_root_head {
  uint32_t m_indexed_type = 0;
  uint32_t m_collation = 0;
  uint32_t m_block_size = 0;   // as stored
  uint8_t m_clusters_per_block = 0;
  bool m_has_children = false; // node flag 1: the allocation holds the rest
  // The block size to read the allocation with: the stored one when plausible, else 4096.
  uint32_t block_size() const;
};
// The index root value; false when it is too short or indexes no file names.
bool decode_index_root(orv::byte_span value, index_root_head& head, std::vector<index_entry>& out,
                       const char** why = nullptr);

// Applies the fixups of an "INDX" block in place (one word per 512 bytes) and decodes its node.
// `vcn` comes back with the VCN the block gives itself. False without the signature or with an
// unusable node header.
bool decode_index_block(uint8_t* block, size_t size, uint64_t& vcn, bool slack, uint64_t parent,
                        std::vector<index_entry>& out, const char** why = nullptr);
