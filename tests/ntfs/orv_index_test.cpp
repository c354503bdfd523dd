// Index roots and "INDX" blocks built in memory, sound and damaged.
#include <gtest/gtest.h>

#include <functional>

#include "base/orv_string.h"
#include "ntfs/orv_index.h"
#include "tests/ntfs/orv_index_builder.h"

using testindex::bytes;

namespace {

std::vector<std::string> names_of(const std::vector<index_entry>& entries) {
  std::vector<std::string> out;
  for (const index_entry& e : entries)
    if (e.m_has_key) out.push_back(orv::to_utf8(e.m_name));
  return out;
}

// Entries at 64 ("alpha"), 160 ("beta"), 256 ("gamma"), the last entry at 352; behind it, in the
// slack, an old entry of this directory (368) and one of directory 9 (464).
bytes sample_block() {
  bytes b = testindex::indx_block(3, {testindex::entry(0x40, u"alpha"), testindex::entry(0x41, u"beta"),
                                      testindex::entry(0x42, u"gamma"), testindex::last_entry()});
  const bytes old = testindex::entry(0x43, u"old"), other = testindex::entry(0x44, u"other", UINT64_MAX, 9);
  std::copy(old.begin(), old.end(), b.begin() + 368);
  std::copy(other.begin(), other.end(), b.begin() + 464);
  return b;
}

}  // namespace

TEST(IndexBlock, EntriesAndDamage) {
  using poke = std::function<void(bytes&)>;
  struct block_case { const char* m_what; poke m_poke; bool m_ok; std::vector<std::string> m_names; bool m_damaged; };
  const block_case cases[] = {
      {"sound", [](bytes&) {}, true, {"alpha", "beta", "gamma"}, false},
      {"entry length 0", [](bytes& b) { orv::put_le16(&b[160 + 8], 0); }, true, {"alpha"}, true},
      {"entry past the used size", [](bytes& b) { orv::put_le16(&b[160 + 8], 4000); }, true, {"alpha"}, true},
      {"entry above 768 bytes", [](bytes& b) { orv::put_le16(&b[160 + 8], 800); }, true, {"alpha"}, true},
      {"key past its entry", [](bytes& b) { orv::put_le16(&b[160 + 10], 200); }, true, {"alpha"}, true},
      {"name past its key", [](bytes& b) { b[160 + 16 + 64] = 100; }, true, {"alpha"}, true},
      {"no last entry", [](bytes& b) { orv::put_le32(&b[28], 352 - 24); }, true, {"alpha", "beta", "gamma"}, true},
      {"used size past the block", [](bytes& b) { orv::put_le32(&b[28], 5000); }, false, {}, false},
      {"first entry past the used size", [](bytes& b) { orv::put_le32(&b[24], 4000); }, false, {}, false},
      {"first entry inside the header", [](bytes& b) { orv::put_le32(&b[24], 8); }, false, {}, false},
      {"no signature", [](bytes& b) { b[3] = 'Y'; }, false, {}, false},
  };
  for (const block_case& c : cases) {
    SCOPED_TRACE(c.m_what);
    bytes b = sample_block();
    c.m_poke(b);
    std::vector<index_entry> entries;
    uint64_t vcn = 0;
    const char* why = nullptr;
    EXPECT_EQ(decode_index_block(b.data(), b.size(), vcn, false, 5, entries, &why), c.m_ok);
    EXPECT_EQ(names_of(entries), c.m_names);
    EXPECT_EQ(why != nullptr, c.m_damaged);
    if (c.m_ok) {
      EXPECT_EQ(vcn, 3u);
    }
  }
  // The fixups are applied, and behind the last entry only this directory's old names count.
  bytes b = sample_block();
  std::vector<index_entry> entries;
  uint64_t vcn = 0;
  ASSERT_TRUE(decode_index_block(b.data(), b.size(), vcn, true, 5, entries));
  EXPECT_EQ(names_of(entries), (std::vector<std::string>{"alpha", "beta", "gamma", "old"}));
  EXPECT_TRUE(entries.back().m_slack && entries.back().m_reference == 0x43);
  EXPECT_EQ(orv::le16(b.data() + 510), 0);
}

TEST(IndexRoot, HeadAndEntries) {
  const bytes value = testindex::root_value({testindex::entry(0x40, u"a", 1), testindex::last_entry(2)}, true);
  index_root_head head;
  std::vector<index_entry> entries;
  // (Child nodes of sound roots are followed in tests/ntfs/orv_dir_lookup_test.cpp and by -filter_dir.)
  ASSERT_TRUE(decode_index_root(orv::byte_span(value.data(), value.size()), head, entries));
  EXPECT_TRUE(head.m_has_children && entries.size() == 2u && entries[1].last());
  // The block size is the stored one where it can be a block size.
  for (uint32_t stored : {0u, 1024u, 3000u, 1u << 20}) {
    head.m_block_size = stored;
    EXPECT_EQ(head.block_size(), stored == 1024 ? 1024u : 4096u) << stored;
  }
  bytes other = value;
  other[0] = 0x20;  // an index of something other than file names
  EXPECT_FALSE(decode_index_root(orv::byte_span(other.data(), other.size()), head, entries));
  EXPECT_FALSE(decode_index_root(orv::byte_span(value.data(), 20), head, entries));
}
