#pragma once
// Directory index entries, nodes, "INDX" blocks and index roots built in memory.
#include <cstdint>
#include <string>
#include <vector>

#include "base/orv_le.h"
#include "tests/test_util.h"

namespace testindex {

using bytes = std::vector<uint8_t>;
constexpr uint64_t k_no_child = UINT64_MAX;

// One entry naming `name` in directory `parent`; with `child`, it points at that node's VCN.
inline bytes entry(uint64_t reference, const std::u16string& name, uint64_t child = k_no_child, uint64_t parent = 5,
                   uint32_t file_flags = 0x20) {
  bytes key = testutil::fn_value(parent, name, 1, 0, 0, 0, 0, 0, 0, file_flags);
  const size_t length = ((16 + key.size() + 7) & ~size_t(7)) + (child == k_no_child ? 0 : 8);
  bytes e(length, 0);
  orv::put_le64(&e[0], reference);
  orv::put_le16(&e[8], uint16_t(length));
  orv::put_le16(&e[10], uint16_t(key.size()));
  orv::put_le16(&e[12], child == k_no_child ? 0 : 1);
  std::copy(key.begin(), key.end(), e.begin() + 16);
  if (child != k_no_child) orv::put_le64(&e[length - 8], child);
  return e;
}

inline bytes last_entry(uint64_t child = k_no_child) {
  bytes e(child == k_no_child ? 16 : 24, 0);
  orv::put_le16(&e[8], uint16_t(e.size()));
  orv::put_le16(&e[12], child == k_no_child ? 2 : 3);
  if (child != k_no_child) orv::put_le64(&e[16], child);
  return e;
}

// A node header at `at` of `out` with the entries from `first` (header-relative) on; the used
// size covers them, the allocated size runs to the end of `out`.
inline void put_node(bytes& out, size_t at, uint32_t first, const std::vector<bytes>& entries, bool has_children) {
  size_t pos = at + first;
  for (const bytes& e : entries) {
    if (pos + e.size() > out.size()) out.resize(pos + e.size(), 0);
    std::copy(e.begin(), e.end(), out.begin() + long(pos));
    pos += e.size();
  }
  orv::put_le32(&out[at], first);
  orv::put_le32(&out[at + 4], uint32_t(pos - at));
  orv::put_le32(&out[at + 8], uint32_t(out.size() - at));
  out[at + 12] = has_children ? 1 : 0;
}

// Index root value of file names with 4096-byte blocks.
inline bytes root_value(const std::vector<bytes>& entries, bool has_children) {
  bytes v(32, 0);
  orv::put_le32(&v[0], 0x30);
  orv::put_le32(&v[4], 1);
  orv::put_le32(&v[8], 4096);
  v[12] = 1;
  put_node(v, 16, 16, entries, has_children);
  orv::put_le32(&v[16 + 8], uint32_t(v.size() - 16));
  return v;
}

// A 4096-byte "INDX" block of VCN `vcn`, its sectors protected by the update sequence array.
inline bytes indx_block(uint64_t vcn, const std::vector<bytes>& entries, bool has_children = false) {
  bytes b(4096, 0);
  std::copy_n("INDX", 4, b.begin());
  orv::put_le16(&b[4], 40);
  orv::put_le16(&b[6], 9);
  orv::put_le64(&b[16], vcn);
  put_node(b, 24, 40, entries, has_children);
  b.resize(4096);
  orv::put_le32(&b[24 + 8], 4096 - 24);
  const uint16_t usn = 0x0007;
  orv::put_le16(&b[40], usn);
  for (int i = 1; i <= 8; ++i) {
    std::copy_n(&b[size_t(i) * 512 - 2], 2, &b[40 + 2 * size_t(i)]);
    orv::put_le16(&b[size_t(i) * 512 - 2], usn);
  }
  return b;
}

}  // namespace testindex
