// Path walks and directory listings on a small volume built in memory.
#include <gtest/gtest.h>

#include "base/orv_console.h"
#include "ntfs/orv_dir_lookup.h"
#include "tests/ntfs/orv_index_builder.h"
#include "tests/ntfs/orv_test_volume.h"

using testindex::entry;
using testindex::last_entry;

namespace {

constexpr uint32_t k_dir = 0x10000000;

// Root (5) sends every name to block 0 ("apple", directory "cherry", then block 1); block 1 holds
// "date" and points back at block 0. "cherry" (0x41) names the root again as "up".
testvol::bytes make_image() {
  const testvol::extents mft = {{4, 20}};
  testvol::image img(64);
  img.boot();
  img.put_record(mft, 0, testvol::mft_record(mft, img.cluster()).build());
  testutil::record_builder root;
  root.m_record_number = 5;
  root.m_flags = 3;
  root.resident(0x90, testindex::root_value({last_entry(0)}, true), u"$I30");
  root.nonresident(0xA0, testvol::encode_runs({{40, 2}}), 8192, 8192, 8192, u"$I30", -1, 0, 0, 1);
  root.resident(0xB0, {0x03}, u"$I30");
  img.put_record(mft, 5, root.build());
  img.put(40 * 4096, testindex::indx_block(0, {entry(0x40, u"apple"), entry(0x41, u"cherry", UINT64_MAX, 5, k_dir),
                                               last_entry(1)}, true));
  img.put(41 * 4096, testindex::indx_block(1, {entry(0x42, u"date"), last_entry(0)}, true));
  testutil::record_builder cherry;
  cherry.m_record_number = 0x41;
  cherry.m_flags = 3;
  cherry.resident(0x90, testindex::root_value({entry(5, u"up", UINT64_MAX, 0x41, k_dir), last_entry()}, false), u"$I30");
  img.put_record(mft, 0x41, cherry.build());
  return img.m_bytes;
}

std::vector<uint16_t> ascii_upcase() {
  std::vector<uint16_t> table(0x10000);
  for (size_t i = 0; i < table.size(); ++i) table[i] = uint16_t(i >= 'a' && i <= 'z' ? i - 32 : i);
  return table;
}

}  // namespace

TEST(DirLookup, PathsListingsAndLoops) {
  testvol::image_file file(make_image());
  std::unique_ptr<CNtfs> volume = file.open();
  ASSERT_TRUE(volume);
  const std::vector<uint16_t> upcase = ascii_upcase();
  diag_sink log;
  const std::string log_path = testutil::make_temp_dir("dirlookup") + "/log";
  ASSERT_TRUE(log.open_diags(log_path));
  struct path_case { const wchar_t* m_path; bool m_ok; uint64_t m_found; const wchar_t* m_canonical; } const cases[] = {
      {L"\\APPLE", true, 0x40, L"\\APPLE"},        {L"c:\\Date:stream", true, 0x42, L"c:\\Date:stream"},
      {L"cherry/up/apple", true, 0x40, L"cherry\\up\\apple"}, {L"\\", true, 5, L"\\"},
      {L"\\zzz", false, 0, L""},                   {L"", false, 0, L""},
  };
  for (const path_case& c : cases) {
    SCOPED_TRACE(orv::to_utf8(c.m_path));
    uint64_t found = 0, parent = 0;
    std::wstring canonical;
    EXPECT_EQ(resolve_path_to_inode(found, parent, canonical, *volume, c.m_path, upcase, log), c.m_ok);
    if (!c.m_ok) continue;
    EXPECT_EQ(found, c.m_found);
    EXPECT_EQ(canonical, c.m_canonical);
  }
  // "zzz" went down block 0, block 1, and back to block 0: the loop ended that way down, and the
  // whole index was read instead, each block once.
  EXPECT_NE(testutil::read_text(log_path).find("index loop in inode 0x5"), std::string::npos);
  const std::vector<dir_child>* children = nullptr;
  ASSERT_TRUE(list_directory(*volume, 5, upcase, children, log));
  EXPECT_EQ(children->size(), 3u);
  // A tree whose subdirectory names its ancestor again stops there.
  std::vector<dir_tree_item> tree;
  list_directory_tree(*volume, 5, L"[root]", 99, upcase, tree, log);
  ASSERT_EQ(tree.size(), 2u);
  EXPECT_EQ(tree[1].m_text, L"[root]\\cherry");
  EXPECT_NE(testutil::read_text(log_path).find("lists 0x5, already in the tree"), std::string::npos);
}
