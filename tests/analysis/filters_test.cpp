// Record filters: early test, time window, the OR groups (and their AND reading), signatures.
#include <gtest/gtest.h>

#include <cstring>

#include "analysis/orv_filters.h"
#include "ntfs/ntfs.h"
#include "tests/results/entry_fixture.h"

using fixture::add_data;
using fixture::add_fn;
using fixture::add_si;
using fixture::k_root;
using fixture::ref;
using fixture::set_header;
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

filter_record name_filter(uint32_t type, const std::wstring& text) { return filter_record(type, text); }

bool select_or(mft_entries_ctx& ctx, entry_record& e) { return or_filters_match(e, ctx); }

}  // namespace

TEST(Filters, OrFiltersInForce) {
  mft_entries_ctx ctx;
  EXPECT_FALSE(has_or_filters(ctx));
  signature_test hive;
  hive.m_type = 35;
  ctx.m_signature_filters.push_back(hive);
  EXPECT_FALSE(has_or_filters(ctx));  // signatures are a family of their own
  ctx.m_filter_min_ads_size = 1;
  EXPECT_TRUE(has_or_filters(ctx));
  mft_entries_ctx dirs;
  dirs.m_filter_dir.push_back(L"c:\\windows");
  EXPECT_TRUE(has_or_filters(dirs));
  entry_record e = named(L"a.txt");
  EXPECT_FALSE(or_filters_match(e, dirs));  // an unresolved directory path selects nothing
}

TEST(Filters, EarlyTestForDeletedAndInodes) {
  mft_entries_ctx none;
  entry_record live = named(L"a");
  EXPECT_TRUE(early_filter(live, none));

  mft_entries_ctx deleted;
  deleted.m_filter_deleted = 1;
  deleted.m_filter_inodes[0x40] = filter_record(filter_inode, L"", 0x40);  // not consulted
  EXPECT_FALSE(early_filter(live, deleted));
  entry_record gone = named(L"a");
  set_header(gone, 0x41, 2, 0);
  EXPECT_TRUE(early_filter(gone, deleted));
  EXPECT_TRUE(gone.m_deleted_mark);

  mft_entries_ctx inodes;
  filter_record whole(filter_inode, L"", 0x40);
  whole.m_whole_entry = 1;
  inodes.m_filter_inodes[0x40] = whole;
  filter_record by_stream(filter_inode, L":ads", 0x41);
  inodes.m_filter_inodes[0x41] = by_stream;
  EXPECT_TRUE(early_filter(live, inodes));
  EXPECT_TRUE(live.m_filter_inode);
  EXPECT_EQ(live.m_filter_inode_text, L"64");
  EXPECT_FALSE(early_filter(gone, inodes));  // by stream only: left to the OR groups
  entry_record other = named(L"b", 0x99);
  EXPECT_FALSE(early_filter(other, inodes));
}

TEST(Filters, TimeWindowIsInclusiveAndLooksAtEveryTime) {
  mft_entries_ctx ctx;
  entry_record e;
  set_header(e, 0x40, 1, FR_FLAG_IN_USE);
  add_si(e, filetime(2010, 1, 1), filetime(2010, 1, 1), filetime(2010, 1, 1), filetime(2010, 1, 1));
  add_fn(e, k_root, L"a", 1, filetime(2010, 1, 1), filetime(2010, 1, 1), filetime(2010, 1, 1),
         filetime(2015, 6, 1));
  EXPECT_TRUE(time_filter(e, ctx));
  EXPECT_FALSE(e.m_time_mark);

  ctx.m_filter_start_time = filetime(2015, 6, 1);
  ctx.m_filter_stop_time = ~0ull;
  EXPECT_TRUE(time_filter(e, ctx));  // the FN accessed time sits on the start
  EXPECT_TRUE(e.m_time_mark);

  ctx.m_filter_start_time = filetime(2015, 6, 1) + 1;
  EXPECT_FALSE(time_filter(e, ctx));

  ctx.m_filter_start_time = 0;  // a stop time alone: from the beginning of the time scale
  ctx.m_filter_stop_time = filetime(2010, 1, 1);
  EXPECT_TRUE(time_filter(e, ctx));
  ctx.m_filter_stop_time = filetime(2009, 12, 31);
  EXPECT_FALSE(time_filter(e, ctx));
}

TEST(Filters, NameFiltersPartialAndFull) {
  mft_entries_ctx partial;
  partial.m_filter_names.insert(name_filter(filter_partial_name, L"temp"));
  entry_record mytemp = named(L"MyTemp.dat");
  EXPECT_TRUE(select_or(partial, mytemp));
  EXPECT_TRUE(mytemp.m_filter_name);
  EXPECT_EQ(mytemp.m_filter_name_text, L"temp");

  mft_entries_ctx full;
  full.m_filter_names.insert(name_filter(filter_full_name, L"temp"));
  entry_record other = named(L"MyTemp.dat");
  EXPECT_FALSE(select_or(full, other));
  entry_record exact = named(L"TEMP");
  EXPECT_TRUE(select_or(full, exact));
}

TEST(Filters, ExtensionIsTheTextBehindTheLastDot) {
  mft_entries_ctx ctx;
  ctx.m_filter_ext = {L"txt"};
  entry_record bak = named(L"a.txt.bak");
  EXPECT_FALSE(select_or(ctx, bak));
  entry_record upper = named(L"NOTES.TXT");
  EXPECT_TRUE(select_or(ctx, upper));
  EXPECT_EQ(upper.m_filter_ext_text, L"txt");

  // A name without a dot ends the turn of the extension, even if a later name has it.
  entry_record two = named(L"aaa");
  add_fn(two, k_root, L"zzz.txt", 1, T1, T1, T1, T1);
  EXPECT_FALSE(select_or(ctx, two));
}

TEST(Filters, WildcardMayStandAnywhereInTheName) {
  mft_entries_ctx ctx;
  ctx.m_filter_wildcards.push_back(compile_wildcard(L"a?c"));
  entry_record e = named(L"xxABCxx");
  EXPECT_TRUE(select_or(ctx, e));
  EXPECT_TRUE(e.m_filter_pattern);
  EXPECT_EQ(e.m_filter_pattern_text, L"xxABCxx");
  entry_record miss = named(L"ac");
  EXPECT_FALSE(select_or(ctx, miss));
}

TEST(Filters, SizeGroups) {
  mft_entries_ctx max_only;
  max_only.m_filter_max_size = 100;
  entry_record no_data = named(L"a");
  EXPECT_TRUE(select_or(max_only, no_data));  // nothing to be too large
  entry_record big = named(L"b");
  add_data(big, 1, L"", 5000, true);
  EXPECT_FALSE(select_or(max_only, big));
  entry_record small = named(L"c");
  add_data(small, 1, L"", 100);
  add_data(small, 2, L"ads", 5000);  // named streams do not count here
  EXPECT_TRUE(select_or(max_only, small));
  EXPECT_TRUE(small.m_size_mark);

  mft_entries_ctx min_only;
  min_only.m_filter_min_size = 10;
  entry_record none = named(L"d");
  EXPECT_FALSE(select_or(min_only, none));
  EXPECT_TRUE(select_or(min_only, big));

  mft_entries_ctx ads;
  ads.m_filter_min_ads_size = 20;
  entry_record with_ads = named(L"e");
  add_data(with_ads, 2, L"stream", 20);
  EXPECT_TRUE(select_or(ads, with_ads));
  EXPECT_TRUE(with_ads.m_ads_mark);
  entry_record short_attr = named(L"f");
  add_data(short_attr, 2, L"stream", 20).m_raw_attrib.resize(64);  // too short to hold its sizes
  EXPECT_FALSE(select_or(ads, short_attr));
  entry_record unnamed_only = named(L"g");
  add_data(unnamed_only, 1, L"", 5000);
  EXPECT_FALSE(select_or(ads, unnamed_only));
}

TEST(Filters, InodeAndDirectoryInodeGroups) {
  mft_entries_ctx ctx;
  filter_record stream_only(filter_inode, L":secret", 0x20);
  ctx.m_filter_inodes[0x20] = stream_only;
  entry_record plain = named(L"a", 0x20);
  add_data(plain, 1, L"", 10);
  EXPECT_FALSE(select_or(ctx, plain));
  entry_record with_stream = named(L"a", 0x20);
  add_data(with_stream, 2, L"Secret", 10);
  EXPECT_TRUE(select_or(ctx, with_stream));
  EXPECT_EQ(with_stream.m_filter_inode_text, L"32:Secret");

  mft_entries_ctx dirs;
  filter_record dir(filter_directory_inode, L"[root]\\docs", 0x30);
  dirs.m_filter_dir_inodes[0x30] = dir;
  entry_record inside = named(L"x", 0x50, ref(0x30, 7));  // the sequence number is not compared
  EXPECT_TRUE(select_or(dirs, inside));
  EXPECT_TRUE(inside.m_filter_dir);
  EXPECT_EQ(inside.m_filter_dir_text, L"[root]\\docs");
  entry_record outside = named(L"x", 0x51, ref(0x31, 7));
  EXPECT_FALSE(select_or(dirs, outside));

  // Without a text and without a source to walk the path: the number stands in.
  mft_entries_ctx bare;
  filter_record no_text(filter_directory_inode, L"", 0x30);
  no_text.m_whole_entry = 1;
  bare.m_filter_dir_inodes[0x30] = no_text;
  entry_record again = named(L"x", 0x50, ref(0x30, 7));
  EXPECT_TRUE(select_or(bare, again));
  EXPECT_EQ(again.m_filter_dir_text, L"dir_inode(48)");
}

TEST(Filters, AndLogicNeedsEveryGroupInForce) {
  mft_entries_ctx ctx;
  filter_record five(filter_inode, L"", 5);
  five.m_whole_entry = 1;
  ctx.m_filter_inodes[5] = five;
  ctx.m_filter_ext = {L"log"};
  entry_record five_txt = named(L"a.txt", 5);
  entry_record five_log = named(L"a.log", 5);
  entry_record other_log = named(L"b.log", 6);
  EXPECT_TRUE(select_or(ctx, five_txt));  // any hit selects
  EXPECT_TRUE(select_or(ctx, other_log));

  ctx.m_and_logic = 1;
  entry_record five_txt2 = named(L"a.txt", 5);
  EXPECT_FALSE(select_or(ctx, five_txt2));
  EXPECT_TRUE(select_or(ctx, five_log));
  entry_record other_log2 = named(L"b.log", 6);
  EXPECT_FALSE(select_or(ctx, other_log2));

  mft_entries_ctx only_deleted;
  only_deleted.m_and_logic = 1;
  EXPECT_TRUE(select_or(only_deleted, five_txt));  // no OR filter: nothing to narrow
}

TEST(Filters, SignatureBytes) {
  std::vector<uint8_t> pe(1024, 0);
  pe[0] = 'M';
  pe[1] = 'Z';
  orv::put_le16(pe.data() + 6, 3);
  orv::put_le16(pe.data() + 24, 0x40);
  orv::put_le32(pe.data() + 60, 0x80);
  std::memcpy(pe.data() + 0x80, "PE\0\0", 4);
  orv::put_le16(pe.data() + 0x80 + 24, 0x20B);
  EXPECT_TRUE(signature_bytes_match(30, pe.data(), pe.size()));
  EXPECT_FALSE(signature_bytes_match(31, pe.data(), pe.size()));  // relocation offset 64 is not below 64
  EXPECT_FALSE(signature_bytes_match(32, pe.data(), pe.size()));
  EXPECT_TRUE(signature_bytes_match(33, pe.data(), pe.size()));
  EXPECT_TRUE(signature_bytes_match(34, pe.data(), pe.size()));
  EXPECT_FALSE(signature_bytes_match(34, pe.data(), 0x80 + 247));  // no room for the optional header
  EXPECT_FALSE(signature_bytes_match(30, pe.data(), 63));
  orv::put_le32(pe.data() + 60, 0xFFFFFFF0u);  // an offset far outside the bytes
  EXPECT_FALSE(signature_bytes_match(34, pe.data(), pe.size()));

  std::vector<uint8_t> head(16, 0);
  std::memcpy(head.data(), "ElfFile", 7);
  EXPECT_TRUE(signature_bytes_match(36, head.data(), head.size()));
  EXPECT_FALSE(signature_bytes_match(36, head.data(), 15));
  const uint8_t evt[] = {0x30, 0, 0, 0, 0x4C, 0x66, 0x4C, 0x65};
  std::memcpy(head.data(), evt, sizeof evt);
  EXPECT_TRUE(signature_bytes_match(36, head.data(), head.size()));
  std::memcpy(head.data(), "regf", 4);
  EXPECT_TRUE(signature_bytes_match(35, head.data(), head.size()));
  std::memcpy(head.data(), "SQLite format 3", 15);
  EXPECT_TRUE(signature_bytes_match(37, head.data(), head.size()));
  const uint8_t lnk[] = {0x4C, 0, 0, 0, 1, 0x14, 2, 0, 0, 0, 0, 0, 0xC0, 0, 0, 0};
  std::memcpy(head.data(), lnk, sizeof lnk);
  EXPECT_TRUE(signature_bytes_match(38, head.data(), head.size()));
  EXPECT_FALSE(signature_bytes_match(39, head.data(), head.size()));
}

TEST(Filters, SignatureMatchUsesTheLastUnnamedStream) {
  mft_entries_ctx ctx;
  signature_test hive;
  hive.m_type = 35;
  ctx.m_signature_filters.push_back(hive);
  entry_record e = named(L"ntuser.dat");
  EXPECT_TRUE(signature_match(e, ctx));  // extracted $MFT: no content to test
  EXPECT_FALSE(e.m_filter_type);

  ctx.m_volume = new CNtfs(nullptr, 0);
  EXPECT_FALSE(signature_match(e, ctx));  // no data
  attrib_item& first = add_data(e, 1, L"", 4096, true);
  first.m_head.assign(16, 0);
  std::memcpy(first.m_head.data(), "regf", 4);
  attrib_item& second = add_data(e, 2, L"", 4096, true);
  EXPECT_FALSE(signature_match(e, ctx));  // the last one has no head bytes
  second.m_head = first.m_head;
  EXPECT_TRUE(signature_match(e, ctx));
  EXPECT_EQ(e.m_filter_type_text, L"RegistryHive");
}
