#include <gtest/gtest.h>

#include "analysis/entry_record.h"
#include "analysis/orv_paths.h"
#include "tests/mft_fixture.h"

using namespace testutil;

namespace {
uint64_t ref(uint64_t number, uint16_t seq) { return number | (uint64_t(seq) << 48); }

// A hand-made tree:
//   5 root; 30 "Users" (5); 31 "name" (30); 32 "self" (32, its own parent);
//   33 "A" (34) and 34 "B" (33), a cycle; 35 "gone" deleted, header sequence 6;
//   36 "plain.txt" a file; 37 "reused" directory now at sequence 9; 38 "deep" (900: unreadable).
std::unique_ptr<mft_entries_ctx> tree() {
  mft_image image;
  add_system_records(image, 64);
  image.put(30, directory(ref(5, 5), u"Users"));
  image.put(31, directory(ref(30, 1), u"name"));
  image.put(32, directory(ref(32, 1), u"self"));
  image.put(33, directory(ref(34, 1), u"A"));
  image.put(34, directory(ref(33, 1), u"B"));
  image.put(35, directory(ref(31, 1), u"gone", 6, false));
  image.put(36, file(ref(5, 5), u"plain.txt"));
  image.put(37, directory(ref(5, 5), u"reused", 9));
  image.put(38, directory(ref(900, 1), u"deep"));
  record_builder dos_only = directory(ref(5, 5), u"DOSDIR~1", 1);
  dos_only.m_attributes.pop_back();
  dos_only.resident(0x30, fn_value(ref(5, 5), u"DOSDIR~1", 2, 1, 1, 1, 1));
  image.put(39, dos_only);
  record_builder both = directory(ref(5, 5), u"Long Directory", 1);
  both.resident(0x30, fn_value(ref(5, 5), u"LONGDI~1", 2, 1, 1, 1, 1));
  image.put(40, both);
  return open_mft(image, "paths");
}

std::wstring path_of(mft_entries_ctx& ctx, uint64_t parent, bool* ok = nullptr) {
  std::wstring path;
  uint16_t seq = 0;
  uint32_t flags = 0;
  bool result = resolve_parent_path(path, seq, flags, parent, ctx, ctx.m_dir_store);
  if (ok) *ok = result;
  return path;
}
}  // namespace

TEST(Paths, SoundChainsAndTheRoot) {
  auto ctx = tree();
  ASSERT_TRUE(ctx);
  bool ok = false;
  EXPECT_EQ(path_of(*ctx, ref(31, 1), &ok), L"[root]\\Users\\name\\");
  EXPECT_TRUE(ok);
  EXPECT_EQ(ctx->m_dir_store.size(), 2u);  // each directory read once, then cached
  EXPECT_EQ(path_of(*ctx, ref(31, 1)), L"[root]\\Users\\name\\");
  EXPECT_EQ(path_of(*ctx, ref(5, 77), &ok), L"[root]\\");  // the root's sequence is not checked
  EXPECT_TRUE(ok);
  EXPECT_EQ(path_of(*ctx, UINT64_MAX, &ok), L"");
  EXPECT_FALSE(ok);
  // A directory with a long and a DOS name shows the long one; one with only a DOS name shows it.
  EXPECT_EQ(path_of(*ctx, ref(40, 1)), L"[root]\\Long Directory\\");
  EXPECT_EQ(path_of(*ctx, ref(39, 1)), L"[root]\\DOSDIR~1\\");
}

TEST(Paths, BrokenChainsAreMarked) {
  auto ctx = tree();
  ASSERT_TRUE(ctx);
  bool ok = true;
  EXPECT_EQ(path_of(*ctx, ref(32, 1), &ok), L"[root]\\<path corrupted>\\self\\");
  EXPECT_FALSE(ok);
  EXPECT_EQ(path_of(*ctx, ref(33, 1), &ok), L"[root]\\<path corrupted>\\B\\A\\");
  EXPECT_FALSE(ok);
  EXPECT_EQ(path_of(*ctx, ref(36, 1), &ok), L"[root]\\<path corrupted>\\");  // parent became a file
  EXPECT_FALSE(ok);
  EXPECT_EQ(path_of(*ctx, ref(37, 3), &ok), L"[root]\\<path corrupted>\\");  // parent reused
  EXPECT_FALSE(ok);
  // An unreadable parent shortens the path, without a marker.
  EXPECT_EQ(path_of(*ctx, ref(38, 1), &ok), L"[root]\\deep\\");
  EXPECT_FALSE(ok);
}

TEST(Paths, DeletedDirectorySequenceRule) {
  // Deleting raised the header's sequence from 5 to 6: a child holding 5 still matches.
  auto ctx = tree();
  ASSERT_TRUE(ctx);
  bool ok = false;
  EXPECT_EQ(path_of(*ctx, ref(35, 5), &ok), L"[root]\\Users\\name\\gone\\");
  EXPECT_TRUE(ok);
  auto fresh = tree();
  EXPECT_EQ(path_of(*fresh, ref(35, 6), &ok), L"[root]\\<path corrupted>\\");
  EXPECT_FALSE(ok);
  // A reference with sequence 0 accepts any record and is completed from it.
  auto third = tree();
  EXPECT_EQ(path_of(*third, ref(31, 0), &ok), L"[root]\\Users\\name\\");
  EXPECT_TRUE(ok);
  EXPECT_TRUE(third->m_dir_store.count(ref(31, 1)));
}

TEST(Paths, SelectNamePrefersLongNamesOfTheRecord) {
  entry_record e;
  auto add = [&](const std::string& key, const std::wstring& name, uint8_t ns, uint64_t inode) {
    file_name_entry fn;
    fn.m_name = name;
    fn.m_raw[65] = ns;
    fn.m_inode = inode;
    e.m_file_names[key] = fn;
  };
  EXPECT_EQ(select_name(e, 7), L"");
  add("a", L"ONLYDOS", 2, 7);
  EXPECT_EQ(select_name(e, 7), L"ONLYDOS");  // a single name, whatever its namespace
  add("b", L"from extension", 1, 9);
  add("c", L"own long", 3, 7);
  EXPECT_EQ(select_name(e, 7), L"own long");
  EXPECT_EQ(select_name(e, 8), L"from extension");
  EXPECT_EQ(select_name(e, UINT64_MAX), L"from extension");
}
