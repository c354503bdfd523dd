// Records damaged on purpose: each case is the smallest input that once broke decoding (undefined
// behaviour, a read out of bounds, a hang), rebuilt here in memory.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include "analysis/entry_record.h"
#include "analysis/orv_mft_scan.h"
#include "analysis/orv_paths.h"
#include "analysis/orv_unalloc_scan.h"
#include "base/orv_le.h"
#include "base/orv_string.h"
#include "base/orv_results_stream.h"
#include "run/mft_entries_ctx.h"
#include "tests/mft_fixture.h"
#include "tests/ntfs/orv_test_volume.h"

using namespace testutil;

namespace {

std::vector<uint8_t> attribute_bytes(uint32_t type, uint32_t length, uint16_t id) {
  std::vector<uint8_t> a(length, 0);
  orv::put_le32(a.data(), type);
  orv::put_le32(a.data() + 4, length);
  orv::put_le16(a.data() + 14, id);
  return a;
}

}  // namespace

TEST(HostileInput, EmptyRecordIsRefused) {
  mft_entries_ctx ctx;
  entry_record entry;
  std::vector<uint8_t> none;
  EXPECT_FALSE(select_record(entry, none, 1024, 7, ctx));
}

TEST(HostileInput, ObjectIdValueOffsetPastTheAttribute) {
  std::vector<uint8_t> oid = attribute_bytes(0x40, 40, 1);
  orv::put_le32(oid.data() + 16, 16);     // value length
  orv::put_le16(oid.data() + 20, 0x200);  // value offset beyond the 40 bytes of the attribute
  record_builder b;
  b.resident(0x10, si_value(1, 2, 3, 4));
  b.raw_attribute(oid);
  std::vector<uint8_t> record = b.build(false);
  mft_entries_ctx ctx;
  entry_record entry;
  EXPECT_TRUE(select_record(entry, record, uint32_t(record.size()), 30, ctx));
  ASSERT_EQ(entry.m_object_ids.size(), 1u);
  EXPECT_EQ(entry.m_object_ids.begin()->second.m_ids[0], 0);
}

TEST(HostileInput, VolumeScanBoundedBySourceWhenMftRunsGiveNoCount) {
  // Record 0 claims a $DATA of 2^40 bytes but its run list is empty: the scan must not walk
  // 2^30 record numbers that all fall outside the $MFT.
  testvol::image img(64);
  img.boot();
  record_builder mft;
  mft.resident(0x10, si_value(1, 2, 3, 4));
  mft.nonresident(0x80, {0}, uint64_t(1) << 40, uint64_t(1) << 40, uint64_t(1) << 40);
  img.put(img.m_mft_lcn * img.cluster(), mft.build());
  testvol::image_file file(img.m_bytes);
  mft_entries_ctx ctx;
  ctx.m_image_volume_path = orv::to_wide(file.m_path);
  ctx.m_progress = 0;
  results_stream out;
  ASSERT_TRUE(out.open_file(file.m_dir + "/rows.txt"));
  full_scan(out, ctx);
  EXPECT_LE(ctx.m_mft_range, img.m_bytes.size() / 1024);
  EXPECT_GT(ctx.m_mft_range, 0u);
  out.close();
  unlink((file.m_dir + "/rows.txt").c_str());
}

TEST(HostileInput, AttributeListEntriesRepeatingOneExtentMergeItOnce) {
  // A non-resident attribute list read from two clusters over and over: some 25000 entries that
  // all name the same $DATA extent (first VCN 10^9) of record 30. Merging that extent once per
  // entry grew the run list without end; it is pulled in once.
  testvol::image img(128);
  img.boot();
  testvol::extents mft_runs = {{4, 16}};
  img.put_record(mft_runs, 0, testvol::mft_record(mft_runs, img.cluster()).build());
  testvol::extents list_runs;
  for (int i = 0; i < 200; ++i) list_runs.push_back({100 + (i & 1), 1});
  record_builder base;
  base.m_record_number = 20;
  base.resident(0x10, si_value(1, 2, 3, 4));
  base.nonresident(0x20, testvol::encode_runs(list_runs), 200 * 4096, 200 * 4096, 200 * 4096);
  img.put_record(mft_runs, 20, base.build());
  testvol::extents data_runs;
  for (int i = 0; i < 250; ++i) data_runs.push_back({60 + (i & 1), 1});
  record_builder extension;
  extension.m_record_number = 30;
  extension.m_base_ref = 20 | (uint64_t(1) << 48);
  extension.nonresident(0x80, testvol::encode_runs(data_runs), 250 * 4096, 250 * 4096, 250 * 4096, u"", 0, 0,
                        1000000000, 1000000249);
  img.put_record(mft_runs, 30, extension.build());
  std::vector<uint8_t> entries(4096, 0);
  for (size_t at = 0; at + 32 <= entries.size(); at += 32) {
    orv::put_le32(entries.data() + at, 0x80);
    orv::put_le16(entries.data() + at + 4, 32);
    orv::put_le64(entries.data() + at + 16, 30 | (uint64_t(1) << 48));
  }
  img.put(100 * img.cluster(), entries);
  img.put(101 * img.cluster(), entries);

  testvol::image_file file(img.m_bytes);
  std::unique_ptr<CNtfs> volume = file.open();
  ASSERT_TRUE(volume);
  mft_entries_ctx ctx;
  ctx.m_volume = volume.get();
  ctx.m_owns_volume = 0;
  ctx.m_source_open = 1;
  entry_record entry;
  ASSERT_TRUE(read_entry(entry, ctx, 20, false));
  ctx.m_volume = nullptr;
  ctx.m_source_open = 0;
  ASSERT_EQ(entry.m_attribs.size(), 1u);
  EXPECT_EQ(entry.m_attribs.begin()->second.m_runs.size(), 250u);
}

TEST(HostileInput, AttributeListEntryShorterThanItsHeaderEndsTheList) {
  // Entries step by their length; one of 13 bytes would land the next entry inside this one.
  mft_image image;
  add_system_records(image, 64);
  record_builder extension = file(5 | (uint64_t(5) << 48), u"hidden.txt");
  extension.m_base_ref = 20 | (uint64_t(1) << 48);
  image.put(30, extension);
  std::vector<uint8_t> list(13 + 32, 0);
  orv::put_le32(list.data(), 0x10);
  orv::put_le16(list.data() + 4, 13);
  orv::put_le32(list.data() + 13, 0x30);
  orv::put_le16(list.data() + 13 + 4, 32);
  orv::put_le64(list.data() + 13 + 16, 30 | (uint64_t(1) << 48));
  orv::put_le16(list.data() + 13 + 24, 1);  // the id of the extension's file name
  record_builder base;
  base.resident(0x10, si_value(1, 2, 3, 4));
  base.resident(0x20, list);
  image.put(20, base);
  auto ctx = open_mft(image, "shortlist");
  ASSERT_TRUE(ctx);
  entry_record entry;
  ASSERT_TRUE(read_entry(entry, *ctx, 20, false));
  EXPECT_TRUE(entry.m_has_attrib_list);
  EXPECT_TRUE(entry.m_file_names.empty());
}

TEST(HostileInput, ExtractedMftRecordSizeFromAnAbsurdCountIsNotTaken) {
  // The first record's update sequence count gives the record size of an extracted $MFT; 65535
  // would mean records of 32 MiB, each read and walked whole. Anything over 64 KiB is damage
  // and, like a count of 0, leaves the default size.
  mft_image image;
  add_system_records(image, 64);
  image.put(20, file(5 | (uint64_t(5) << 48), u"a.txt"));
  std::string dir = make_temp_dir("bigcount");
  std::string path = image.write(dir);
  std::vector<uint8_t> bytes = read_bytes(path);
  orv::put_le16(bytes.data() + 6, 0xFFFF);
  write_file(path, bytes);
  mft_entries_ctx ctx;
  ctx.m_progress = 0;
  ctx.m_mftfile_path = orv::to_wide(path);
  ASSERT_TRUE(ensure_source_open(ctx));
  entry_record entry;
  read_entry(entry, ctx, 0, false);
  EXPECT_EQ(ctx.record_size(), 1024u);
  EXPECT_TRUE(read_entry(entry, ctx, 20, false));
  EXPECT_EQ(entry.m_file_names.size(), 1u);
  close_source(ctx);
  unlink(path.c_str());
  rmdir(dir.c_str());
}

TEST(HostileInput, DeepDirectoryChainEndsAsCorruptedPastTheLongestPath) {
  // 200 nested directories with 200-character names: no NTFS path is that long (32767 UTF-16
  // units at most). Every row below such a chain printed the whole chain and the remembered
  // paths grew with the square of the depth; the walk now stops and marks the path corrupted.
  const uint64_t depth = 200;
  mft_image image;
  add_system_records(image, depth + 24);
  uint64_t parent = 5 | (uint64_t(5) << 48);
  for (uint64_t n = 16; n < 16 + depth; ++n) {
    std::u16string name = u"d" + std::u16string(199, u'x');
    name[1] = char16_t(u'a' + n % 26);
    image.put(n, directory(parent, name));
    parent = n | (uint64_t(1) << 48);
  }
  auto ctx = open_mft(image, "deep");
  ASSERT_TRUE(ctx);
  std::wstring path;
  uint16_t sequence = 0;
  uint32_t flags = 0;
  EXPECT_FALSE(resolve_parent_path(path, sequence, flags, parent, *ctx, ctx->m_dir_store));
  EXPECT_LE(path.size(), 32767u + 400u);
  EXPECT_EQ(path.compare(0, 24, L"[root]\\<path corrupted>\\"), 0);
  EXPECT_EQ(path.substr(path.size() - 201), L"d" + std::wstring(199, L'x').replace(0, 1, 1, wchar_t(L'a' + (15 + depth) % 26)) + L"\\");

  results_stream out;
  ASSERT_TRUE(out.open_file("/dev/null"));
  full_scan(out, *ctx);
  size_t remembered = 0;
  for (const auto& kv : ctx->m_sound_paths) remembered += kv.second.size();
  EXPECT_LT(remembered, 200000u);
}

TEST(HostileInput, FreeClusterScanBoundedByTheSource) {
  // $Bitmap claims 512 MiB over a run of 2^17 clusters from cluster 0 of a 256 KiB volume: the
  // scan allocated the whole claim and then walked two million clusters that do not exist.
  testvol::image img(64);
  img.boot();
  testvol::extents mft_runs = {{4, 4}};
  img.put_record(mft_runs, 0, testvol::mft_record(mft_runs, img.cluster()).build());
  record_builder bitmap;
  bitmap.m_record_number = 6;
  bitmap.resident(0x10, si_value(1, 2, 3, 4));
  uint64_t claim = uint64_t(512) << 20;
  bitmap.nonresident(0x80, testvol::encode_runs({{0, 1u << 17}}), claim, claim, claim);
  img.put_record(mft_runs, 6, bitmap.build());
  testvol::image_file file(img.m_bytes);
  mft_entries_ctx ctx;
  ctx.m_image_volume_path = orv::to_wide(file.m_path);
  ctx.m_progress = 0;
  results_stream out;
  ASSERT_TRUE(out.open_file("/dev/null"));
  struct rusage before, after;
  getrusage(RUSAGE_SELF, &before);
  EXPECT_TRUE(unalloc_scan(out, ctx));
  getrusage(RUSAGE_SELF, &after);
  EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 64 * 1024);  // KiB
}

TEST(HostileInput, NonResidentAttributeListBoundedByTheSource) {
  // A list over 2^17 clusters of a 256 KiB volume: the buffer for it was 64 MiB, allocated and
  // cleared for every record that carries such a list.
  testvol::image img(64);
  img.boot();
  testvol::extents mft_runs = {{4, 8}};
  img.put_record(mft_runs, 0, testvol::mft_record(mft_runs, img.cluster()).build());
  record_builder base;
  base.m_record_number = 20;
  base.resident(0x10, si_value(1, 2, 3, 4));
  uint64_t claim = uint64_t(512) << 20;
  base.nonresident(0x20, testvol::encode_runs({{0, 1u << 17}}), claim, claim, claim);
  img.put_record(mft_runs, 20, base.build());
  testvol::image_file file(img.m_bytes);
  std::unique_ptr<CNtfs> volume = file.open();
  ASSERT_TRUE(volume);
  mft_entries_ctx ctx;
  ctx.m_volume = volume.get();
  ctx.m_owns_volume = 0;
  ctx.m_source_open = 1;
  struct rusage before, after;
  getrusage(RUSAGE_SELF, &before);
  entry_record entry;
  EXPECT_TRUE(read_entry(entry, ctx, 20, false));
  EXPECT_TRUE(entry.m_attrib_list_nonresident);
  getrusage(RUSAGE_SELF, &after);
  ctx.m_volume = nullptr;
  ctx.m_source_open = 0;
  EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 32 * 1024);  // KiB
}
