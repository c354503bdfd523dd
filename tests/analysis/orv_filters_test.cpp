// Record filters: early test, time window, the OR groups (and their AND reading), signatures.
#include <gtest/gtest.h>

#include <cstring>

#include "analysis/orv_filters.h"
#include "ntfs/ntfs.h"
#include "tests/results/entry_fixture.h"

using namespace fixture;
using testutil::filetime;

namespace {

const uint64_t T1 = filetime(2020, 1, 2, 3, 4, 5);

entry_record named(const std::wstring& name, uint64_t inode = 0x40, uint64_t parent = k_root) {
  entry_record e;
  set_header(e, inode, 1, FR_FLAG_IN_USE);
  add_si(e, T1, T1, T1, T1);
  add_fn(e, parent, name, 1, T1, T1, T1, T1);
  return e;
}

bool hits(mft_entries_ctx& ctx, entry_record e) { return or_filters_match(e, ctx); }

filter_record whole_inode(uint32_t type, uint64_t number, const std::wstring& text = L"") {
  filter_record r(type, text, number);
  r.m_whole_entry = 1;
  return r;
}

}  // namespace

TEST(Filters, EarlyTestForDeletedAndInodes) {
  mft_entries_ctx deleted;
  deleted.m_filter_deleted = 1;
  deleted.m_filter_inodes[0x40] = whole_inode(filter_inode, 0x40);  // not consulted
  entry_record live = named(L"a");
  EXPECT_FALSE(early_filter(live, deleted));
  entry_record gone = named(L"a", 0x41);
  set_header(gone, 0x41, 2, 0);
  EXPECT_TRUE(early_filter(gone, deleted));
  EXPECT_TRUE(gone.m_deleted_mark);

  mft_entries_ctx inodes;
  inodes.m_filter_inodes[0x40] = whole_inode(filter_inode, 0x40);
  inodes.m_filter_inodes[0x41] = filter_record(filter_inode, L":ads", 0x41);
  EXPECT_TRUE(early_filter(live, inodes));
  EXPECT_EQ(live.m_filter_inode_text, L"64");
  EXPECT_FALSE(early_filter(gone, inodes));  // by stream only: left to the OR groups
}

TEST(Filters, TimeWindowIsInclusiveAndLooksAtEveryTime) {
  mft_entries_ctx ctx;
  const uint64_t old = filetime(2010, 1, 1), fn_accessed = filetime(2015, 6, 1);
  entry_record e;
  set_header(e, 0x40, 1, FR_FLAG_IN_USE);
  add_si(e, old, old, old, old);
  add_fn(e, k_root, L"a", 1, old, old, old, fn_accessed);
  EXPECT_TRUE(time_filter(e, ctx));
  EXPECT_FALSE(e.m_time_mark);

  ctx.m_filter_start_time = fn_accessed;
  ctx.m_filter_stop_time = ~0ull;
  EXPECT_TRUE(time_filter(e, ctx));
  EXPECT_TRUE(e.m_time_mark);
  ctx.m_filter_start_time = fn_accessed + 1;
  EXPECT_FALSE(time_filter(e, ctx));
  ctx.m_filter_start_time = 0;  // a stop time alone: from the beginning of the time scale
  ctx.m_filter_stop_time = old;
  EXPECT_TRUE(time_filter(e, ctx));
  ctx.m_filter_stop_time = old - 1;
  EXPECT_FALSE(time_filter(e, ctx));
}

TEST(Filters, NamesExtensionsAndWildcards) {
  mft_entries_ctx partial;
  partial.m_filter_names.insert(filter_record(filter_partial_name, L"temp"));
  entry_record mytemp = named(L"MyTemp.dat");
  EXPECT_TRUE(or_filters_match(mytemp, partial));
  EXPECT_EQ(mytemp.m_filter_name_text, L"temp");
  mft_entries_ctx full;
  full.m_filter_names.insert(filter_record(filter_full_name, L"temp"));
  EXPECT_FALSE(hits(full, named(L"MyTemp.dat")));
  EXPECT_TRUE(hits(full, named(L"TEMP")));

  mft_entries_ctx ext;
  ext.m_filter_ext = {L"txt"};
  EXPECT_FALSE(hits(ext, named(L"a.txt.bak")));
  EXPECT_TRUE(hits(ext, named(L"NOTES.TXT")));
  entry_record two = named(L"aaa");  // a name without a dot ends the turn of the extension
  add_fn(two, k_root, L"zzz.txt", 1, T1, T1, T1, T1);
  EXPECT_FALSE(hits(ext, two));

  mft_entries_ctx wild;
  wild.m_filter_wildcards.push_back(compile_wildcard(L"a?c"));
  entry_record inside = named(L"xxABCxx");
  EXPECT_TRUE(or_filters_match(inside, wild));
  EXPECT_EQ(inside.m_filter_pattern_text, L"xxABCxx");
  EXPECT_FALSE(hits(wild, named(L"ac")));
}

TEST(Filters, SizeGroups) {
  entry_record none = named(L"a");
  entry_record big = named(L"b");
  add_data(big, 1, L"", 5000, true);
  entry_record small = named(L"c");
  add_data(small, 1, L"", 100);
  add_data(small, 2, L"ads", 5000);  // named streams do not count for the size limits

  mft_entries_ctx max_only;
  max_only.m_filter_max_size = 100;
  EXPECT_TRUE(hits(max_only, none));  // nothing there to be too large
  EXPECT_FALSE(hits(max_only, big));
  EXPECT_TRUE(hits(max_only, small));
  mft_entries_ctx min_only;
  min_only.m_filter_min_size = 10;
  EXPECT_FALSE(hits(min_only, none));
  EXPECT_TRUE(hits(min_only, big));

  mft_entries_ctx ads;
  ads.m_filter_min_ads_size = 20;
  entry_record with_ads = named(L"e");
  add_data(with_ads, 2, L"stream", 20);
  EXPECT_TRUE(or_filters_match(with_ads, ads));
  EXPECT_TRUE(with_ads.m_ads_mark);
  add_data(with_ads, 2, L"stream", 20).m_raw_attrib.resize(64);  // too short to hold its sizes
  EXPECT_FALSE(hits(ads, with_ads));
  EXPECT_FALSE(hits(ads, big));
}

TEST(Filters, InodeAndDirectoryInodeGroups) {
  mft_entries_ctx ctx;
  ctx.m_filter_inodes[0x20] = filter_record(filter_inode, L":secret", 0x20);
  entry_record plain = named(L"a", 0x20);
  add_data(plain, 1, L"", 10);
  EXPECT_FALSE(hits(ctx, plain));
  add_data(plain, 2, L"Secret", 10);
  EXPECT_TRUE(or_filters_match(plain, ctx));
  EXPECT_EQ(plain.m_filter_inode_text, L"32:Secret");

  mft_entries_ctx dirs;
  dirs.m_filter_dir_inodes[0x30] = filter_record(filter_directory_inode, L"[root]\\docs", 0x30);
  entry_record inside = named(L"x", 0x50, ref(0x30, 7));  // the sequence number is not compared
  EXPECT_TRUE(or_filters_match(inside, dirs));
  EXPECT_EQ(inside.m_filter_dir_text, L"[root]\\docs");
  EXPECT_FALSE(hits(dirs, named(L"x", 0x51, ref(0x31, 7))));
  // Without a text and without a source to walk the path, the number stands in.
  dirs.m_filter_dir_inodes[0x30] = whole_inode(filter_directory_inode, 0x30);
  EXPECT_TRUE(or_filters_match(inside, dirs));
  EXPECT_EQ(inside.m_filter_dir_text, L"dir_inode(48)");

  mft_entries_ctx unresolved;  // a directory path with no volume to resolve it selects nothing
  unresolved.m_filter_dir.push_back(L"c:\\windows");
  EXPECT_TRUE(has_or_filters(unresolved));
  EXPECT_FALSE(hits(unresolved, inside));
  unresolved.m_and_logic = 1;
  EXPECT_FALSE(hits(unresolved, inside));
}

TEST(Filters, AndLogicNeedsEveryGroupInForce) {
  mft_entries_ctx ctx;
  ctx.m_filter_inodes[5] = whole_inode(filter_inode, 5);
  ctx.m_filter_ext = {L"log"};
  EXPECT_TRUE(hits(ctx, named(L"a.txt", 5)));  // any hit selects
  EXPECT_TRUE(hits(ctx, named(L"b.log", 6)));
  ctx.m_and_logic = 1;
  EXPECT_FALSE(hits(ctx, named(L"a.txt", 5)));
  EXPECT_TRUE(hits(ctx, named(L"a.log", 5)));
  EXPECT_FALSE(hits(ctx, named(L"b.log", 6)));
  mft_entries_ctx only_deleted;
  only_deleted.m_and_logic = 1;
  EXPECT_TRUE(hits(only_deleted, named(L"a.txt")));  // no OR filter: nothing to narrow
}

TEST(Filters, SignatureBytes) {
  std::vector<uint8_t> pe(1024, 0);
  std::memcpy(pe.data(), "MZ", 2);
  orv::put_le16(pe.data() + 6, 3);
  orv::put_le16(pe.data() + 24, 0x40);
  orv::put_le32(pe.data() + 60, 0x80);
  std::memcpy(pe.data() + 0x80, "PE\0\0", 4);
  orv::put_le16(pe.data() + 0x80 + 24, 0x20B);
  EXPECT_TRUE(signature_bytes_match(30, pe.data(), pe.size()));
  EXPECT_FALSE(signature_bytes_match(31, pe.data(), pe.size()));  // relocation offset 64 is too far
  EXPECT_FALSE(signature_bytes_match(32, pe.data(), pe.size()));
  EXPECT_TRUE(signature_bytes_match(33, pe.data(), pe.size()));
  EXPECT_FALSE(signature_bytes_match(34, pe.data(), 0x80 + 247));  // no room for the optional header
  orv::put_le32(pe.data() + 60, 0xFFFFFFF0u);
  EXPECT_FALSE(signature_bytes_match(34, pe.data(), pe.size()));
  std::memcpy(pe.data(), "ElfFile", 7);
  EXPECT_TRUE(signature_bytes_match(36, pe.data(), 16));
  EXPECT_FALSE(signature_bytes_match(36, pe.data(), 15));
  EXPECT_FALSE(signature_bytes_match(39, pe.data(), pe.size()));
}

TEST(Filters, SignatureMatchUsesTheLastUnnamedStream) {
  mft_entries_ctx ctx;
  signature_test hive;
  hive.m_type = 35;
  ctx.m_signature_filters.push_back(hive);
  EXPECT_FALSE(has_or_filters(ctx));
  entry_record e = named(L"ntuser.dat");
  EXPECT_TRUE(signature_match(e, ctx));  // extracted $MFT: no content to test
  EXPECT_FALSE(e.m_filter_type);

  ctx.m_volume = new CNtfs(nullptr, 0);
  EXPECT_FALSE(signature_match(e, ctx));
  attrib_item& first = add_data(e, 1, L"", 4096, true);
  first.m_head.assign(16, 0);
  std::memcpy(first.m_head.data(), "regf", 4);
  attrib_item& second = add_data(e, 2, L"", 4096, true);
  EXPECT_FALSE(signature_match(e, ctx));  // the last one has no head bytes
  second.m_head = first.m_head;
  EXPECT_TRUE(signature_match(e, ctx));
  EXPECT_EQ(e.m_filter_type_text, L"RegistryHive");
}
