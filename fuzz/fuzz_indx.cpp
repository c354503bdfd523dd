// Index roots and "INDX" blocks: the input is decoded as an index root value and as a block, the
// block with and without its slack searched.
#include <vector>

#include "ntfs/orv_index.h"

namespace {

// Entries never overlap and never come from outside the input.
void check(const std::vector<index_entry>& entries, size_t size) {
  if (entries.size() > size / 16) __builtin_trap();
  for (const index_entry& e : entries)
    if (e.m_name.size() > 255) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 65536) return 0;
  index_root_head head;
  std::vector<index_entry> entries;
  decode_index_root(orv::byte_span(data, size), head, entries);
  check(entries, size);
  for (bool slack : {false, true}) {
    std::vector<uint8_t> block(data, data + size);
    uint64_t vcn = 0;
    entries.clear();
    decode_index_block(block.data(), block.size(), vcn, slack, 5, entries);
    check(entries, size);
  }
  return 0;
}
