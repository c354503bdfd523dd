// Filter records, "?" wildcards and the rules of the record filters that the binary's selections
// on a real volume (tests/integration/filter_test.cpp) do not reach.
#include <gtest/gtest.h>

#include <cstring>

#include "analysis/orv_filter_types.h"
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

bool hits(const mft_entries_ctx& options, entry_record& e, bool and_logic = false) {
  scan_state scan;
  scan_state_for(scan, options);
  scan.m_and_logic = and_logic;
  return or_filters_match(e, options, scan);
}

}  // namespace

TEST(RecordFilters, EarlyTestAndTimeWindow) {
  mft_entries_ctx options;
  options.m_filter_inodes[0x40] = filter_record(filter_inode, L"[root]\\a", 0x40);
  options.m_filter_inodes[0x41] = filter_record(filter_inode, L":ads", 0x41);
  scan_state deleted, plain;
  scan_state_for(deleted, options);
  scan_state_for(plain, options);
  deleted.m_deleted_only = true;  // the inode filter is not consulted then
  entry_record live = named(L"a"), gone = named(L"a", 0x41);
  set_header(gone, 0x41, 2, 0);
  EXPECT_FALSE(early_filter(live, options, deleted));
  EXPECT_TRUE(early_filter(gone, options, deleted) && gone.m_deleted_mark);
  EXPECT_TRUE(early_filter(live, options, plain));
  EXPECT_EQ(live.m_filter_inode_text, L"64");
  EXPECT_FALSE(early_filter(gone, options, plain));  // by stream only: left to the OR groups

  // Inclusive bounds to the tick, and every time of every attribute counts.
  const uint64_t old = filetime(2010, 1, 1), late = filetime(2015, 6, 1);
  entry_record e;
  add_si(e, old, old, old, old);
  add_fn(e, k_root, L"a", 1, old, old, old, late);
  const uint64_t windows[][3] = {{0, 0, 1}, {late, ~0ull, 1}, {late + 1, ~0ull, 0}, {0, old, 1}, {0, old - 1, 0}};
  for (const auto& w : windows) {
    options.m_filter_start_time = w[0], options.m_filter_stop_time = w[1];
    EXPECT_EQ(time_filter(e, options), w[2] == 1) << w[0] << ".." << w[1];
  }
}

TEST(RecordFilters, GroupEdgesReasonsAndAndLogic) {
  mft_entries_ctx ext, max_size, ads, streams, dirs;
  ext.m_filter_ext = {L"txt"};
  max_size.m_filter_max_size = 100;
  ads.m_filter_min_ads_size = 20;
  streams.m_filter_inodes[0x20] = filter_record(filter_inode, L":secret", 0x20);
  dirs.m_filter_dir_inodes[0x30] = filter_record(filter_directory_inode, L"[root]\\docs", 0x30);
  entry_record two = named(L"aaa"), none = named(L"a"), small = named(L"c"), with_ads = named(L"e");
  add_fn(two, k_root, L"zzz.txt", 1, T1, T1, T1, T1);  // a name without a dot ends the extension's turn
  add_data(small, 1, L"", 100);
  add_data(small, 2, L"ads", 5000);  // named streams do not count for the size limits
  add_data(with_ads, 2, L"stream", 20);
  entry_record secret = named(L"a", 0x20), inside = named(L"x", 0x50, orv::make_ref(0x30, 7));
  add_data(secret, 2, L"Secret", 10);
  EXPECT_FALSE(hits(ext, two));
  EXPECT_TRUE(hits(max_size, none) && hits(max_size, small));  // no unnamed data is not too large
  EXPECT_TRUE(hits(ads, with_ads) && with_ads.m_ads_mark);
  EXPECT_TRUE(hits(streams, secret));
  EXPECT_EQ(secret.m_filter_inode_text, L"32:Secret");
  EXPECT_TRUE(hits(dirs, inside));  // the sequence number of the parent is not compared
  EXPECT_EQ(inside.m_filter_dir_text, L"[root]\\docs");
  dirs.m_filter_dir_inodes[0x30] = filter_record(filter_directory_inode, L"", 0x30);
  dirs.m_filter_dir_inodes[0x30].m_whole_entry = 1;
  EXPECT_TRUE(hits(dirs, inside));  // without a text or a source to walk, the number stands in
  EXPECT_EQ(inside.m_filter_dir_text, L"dir_inode(48)");
  add_data(with_ads, 2, L"stream", 20).m_raw_attrib.resize(64);  // too short to hold its sizes
  EXPECT_FALSE(hits(ads, with_ads));
  // Under AND logic with no OR filter there is nothing to narrow.
  EXPECT_TRUE(hits(mft_entries_ctx(), inside, true));
}

TEST(RecordFilters, Signatures) {
  std::vector<uint8_t> pe(1024, 0);
  std::memcpy(pe.data(), "MZ", 2);
  orv::put_le16(pe.data() + 6, 3);
  orv::put_le16(pe.data() + 24, 0x40);  // relocations at 64: too far for a 16-bit image
  orv::put_le32(pe.data() + 60, 0x80);
  std::memcpy(pe.data() + 0x80, "PE\0\0", 4);
  orv::put_le16(pe.data() + 0x80 + 24, 0x20B);
  for (uint32_t type : {30u, 33u}) EXPECT_TRUE(signature_bytes_match(type, pe.data(), pe.size())) << type;
  for (uint32_t type : {31u, 32u}) EXPECT_FALSE(signature_bytes_match(type, pe.data(), pe.size())) << type;
  EXPECT_FALSE(signature_bytes_match(34, pe.data(), 0x80 + 247));  // no room for the optional header
  orv::put_le32(pe.data() + 60, 0xFFFFFFF0u);                      // the PE header far outside the buffer
  EXPECT_FALSE(signature_bytes_match(34, pe.data(), pe.size()));
  std::memcpy(pe.data(), "ElfFile", 7);
  EXPECT_TRUE(signature_bytes_match(36, pe.data(), 16));
  EXPECT_FALSE(signature_bytes_match(36, pe.data(), 15));

  // The last unnamed stream's head bytes decide; an extracted $MFT has no content to test.
  mft_entries_ctx options;
  options.m_signature_filters.emplace_back();
  options.m_signature_filters.back().m_type = 35;
  scan_state scan;
  EXPECT_FALSE(has_or_filters(options, scan));
  entry_record e = named(L"ntuser.dat");
  EXPECT_TRUE(signature_match(e, options, scan));
  CNtfs volume(nullptr, 0);
  scan.m_source.lend_volume(&volume);
  std::vector<uint8_t> hive(16, 0);
  std::memcpy(hive.data(), "regf", 4);
  add_data(e, 1, L"", 4096, true).m_head = hive;
  // The attributes sit in a vector: a reference into it lasts only until the next one is added.
  attrib_item& second = add_data(e, 2, L"", 4096, true);
  EXPECT_FALSE(signature_match(e, options, scan));  // the last one has no head bytes
  second.m_head = hive;
  EXPECT_TRUE(signature_match(e, options, scan));
  EXPECT_EQ(e.m_filter_type_text, L"RegistryHive");
}

TEST(FilterRecord, StreamPartsAndWildcards) {
  filter_record stream(filter_inode, L":ads", 0x20);
  EXPECT_TRUE(stream.m_by_stream && stream.m_text.empty());
  filter_record bare(filter_inode, L"", 7);  // no text: no stream name and no flag of its own
  EXPECT_TRUE(bare.m_stream_names.empty() && !bare.m_whole_entry && !bare.m_by_stream);
  // A drive mark behind one letter belongs to the path; for inode records a ":" before a
  // backslash or "//" does too, wherever it stands.
  for (const filter_record& r :
       {filter_record(filter_full_name, L"c:\\windows\\notepad.exe"), filter_record(filter_full_name, L"c:/windows"),
        filter_record(filter_directory_inode, L"[root]\\x:\\y", 5), filter_record(filter_inode, L"[root]\\x://y", 5)})
    EXPECT_TRUE(r.m_whole_entry && !r.m_by_stream) << r.m_text;

  // "?" needs a character where it stands, at the ends too; "*" is a literal.
  const struct { const wchar_t *m_pattern, *m_name; bool m_match; } cases[] = {
      {L"a?c", L"xxabcxx", true}, {L"a?c", L"ac", false},   {L"??ab?", L"12ab3", true}, {L"??ab?", L"12ab", false},
      {L"??ab?", L"1ab3", false}, {L"???", L"ab", false},   {L"*.txt", L"x*.txt", true}};
  for (const auto& c : cases)
    EXPECT_EQ(wildcard_match(compile_wildcard(c.m_pattern), c.m_name), c.m_match) << c.m_pattern << " ~ " << c.m_name;
}
