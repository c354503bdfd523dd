#include "ntfs/orv_index.h"

#include <algorithm>
#include <cstring>

#include "base/orv_string.h"
#include "ntfs/orv_filerec.h"

namespace {

constexpr size_t k_entry_header = 16;
constexpr size_t k_node_header = 16;
constexpr size_t k_key_header = 66;  // $FILE_NAME up to its name

// The file name key of an entry at `pos`; false when it does not fit the entry.
bool take_key(orv::byte_span node, size_t pos, uint16_t length, uint16_t key_length, uint16_t flags,
              index_entry& entry) {
  const size_t room = length - k_entry_header - ((flags & INDEX_ENTRY_NODE) ? 8 : 0);
  if (key_length < k_key_header || key_length > room) return false;
  orv::byte_span key = node.sub(pos + k_entry_header, key_length);
  const size_t units = key.u8(64);
  if (units == 0 || k_key_header + 2 * units > key_length) return false;
  entry.m_key.assign(key.m_data, key.m_size);
  entry.m_name.clear();
  orv::utf16_to_wide(key.at(k_key_header), int64_t(2 * units), entry.m_name);
  entry.m_has_key = true;
  return true;
}

// An entry left behind the last one: only a whole, sane entry whose key names `parent`.
bool slack_entry(orv::byte_span node, size_t pos, size_t end, uint64_t parent, index_entry& entry) {
  const uint16_t length = node.u16(pos + 8), key_length = node.u16(pos + 10), flags = node.u16(pos + 12);
  if (length < k_entry_header + k_key_header || length > k_max_index_entry || length % 8 || pos + length > end)
    return false;
  if ((flags & ~INDEX_ENTRY_NODE) != 0 || node.u48(pos) == 0) return false;
  entry = index_entry();
  entry.m_reference = node.u64(pos);
  entry.m_flags = flags;
  entry.m_slack = true;
  if (!take_key(node, pos, length, key_length, flags, entry)) return false;
  return entry.m_key.parent_number() == parent && entry.m_key.name_space() <= FN_WIN32_AND_DOS;
}

}  // namespace

int parse_index_node(orv::byte_span node, size_t header, bool slack, uint64_t parent, std::vector<index_entry>& out,
                     const char** why) {
  if (why) *why = nullptr;
  auto damaged = [why](const char* text) {
    if (why) *why = text;
  };
  if (!node.has(header, k_node_header)) return -1;
  const uint32_t first = node.u32(header), used = node.u32(header + 4), allocated = node.u32(header + 8);
  if (first < k_node_header || first > used || used > node.m_size - header) return -1;
  const size_t end = header + used;
  int count = 0;
  size_t pos = header + first;
  bool ended = false;
  while (pos + k_entry_header <= end) {
    index_entry entry;
    entry.m_reference = node.u64(pos);
    const uint16_t length = node.u16(pos + 8), key_length = node.u16(pos + 10);
    entry.m_flags = node.u16(pos + 12);
    if (length < k_entry_header || length > k_max_index_entry || pos + length > end) {
      damaged("entry length outside the node");
      break;
    }
    if (entry.m_flags & INDEX_ENTRY_NODE) {
      if (length < k_entry_header + 8) {
        damaged("entry too short for its child node");
        break;
      }
      entry.m_child_vcn = node.u64(pos + length - 8);
    }
    if (!entry.last() && !take_key(node, pos, length, key_length, entry.m_flags, entry)) {
      damaged("key length past its entry");
      break;
    }
    out.push_back(std::move(entry));
    ++count;
    pos += length;
    if (out.back().last()) {
      ended = true;
      break;
    }
  }
  if (!ended && !(why && *why)) damaged("no last entry inside the used size");
  if (!slack) return count;
  // Deleted names stay behind the last entry until the space is reused.
  const size_t slack_end = std::min<size_t>(node.m_size, header + std::max(allocated, used));
  for (size_t at = (pos + 7) & ~size_t(7); at + k_entry_header <= slack_end;) {
    index_entry entry;
    if (slack_entry(node, at, slack_end, parent, entry)) {
      at += node.u16(at + 8);
      out.push_back(std::move(entry));
      ++count;
    } else {
      at += 8;
    }
  }
  return count;
}

uint32_t index_root_head::block_size() const {
  const uint32_t size = m_block_size;
  const bool power_of_two = size && (size & (size - 1)) == 0;
  return power_of_two && size >= k_min_index_block && size <= k_max_index_block ? size : k_index_block_size;
}

bool decode_index_root(orv::byte_span value, index_root_head& head, std::vector<index_entry>& out,
                       const char** why) {
  head = index_root_head();
  if (why) *why = nullptr;
  if (!value.has(0, 16 + k_node_header)) return false;
  head.m_indexed_type = value.u32(0);
  head.m_collation = value.u32(4);
  head.m_block_size = value.u32(8);
  head.m_clusters_per_block = value.u8(12);
  head.m_has_children = (value.u8(16 + 12) & 1) != 0;
  if (head.m_indexed_type != 0x30) return false;
  return parse_index_node(value, 16, false, 0, out, why) >= 0;
}

bool decode_index_block(uint8_t* block, size_t size, uint64_t& vcn, bool slack, uint64_t parent,
                        std::vector<index_entry>& out, const char** why) {
  vcn = UINT64_MAX;
  if (why) *why = nullptr;
  if (!block || size < 24 + k_node_header || std::memcmp(block, "INDX", 4) != 0) return false;
  if (fixup_record(block, size, fixup_volume) != record_index) return false;
  vcn = orv::le64(block + 16);
  return parse_index_node(orv::byte_span(block, size), 24, slack, parent, out, why) >= 0;
}
