#include <gtest/gtest.h>

#include "analysis/entry_record.h"
#include "base/orv_le.h"
#include "ntfs/orv_attrib.h"
#include "tests/mft_fixture.h"

using namespace testutil;

namespace {
const uint64_t T1 = filetime(2020, 1, 2, 3, 4, 5);
const uint64_t ROOT = 5ull | (5ull << 48);

std::unique_ptr<mft_entries_ctx> open_with(uint64_t number, const record_builder& b, const char* tag) {
  mft_image image;
  add_system_records(image, 64);
  image.put(number, b);
  return open_mft(image, tag);
}
}  // namespace

TEST(EntryRecord, StandardInformationShortFormAndNullTime) {
  record_builder b;
  b.resident(0x10, si_value(T1, T1, T1, 0, 0x20, true));
  auto ctx = open_with(20, b, "si");
  ASSERT_TRUE(ctx);
  entry_record e;
  ASSERT_TRUE(read_entry(e, *ctx, 20, false));
  ASSERT_EQ(e.m_std_infos.size(), 1u);
  const si_entry& si = e.m_std_infos.begin()->second;
  EXPECT_EQ(si.created(), T1);
  EXPECT_EQ(si.owner_id(), 0u);
  EXPECT_EQ(si.security_id(), 0u);
  EXPECT_EQ(si.quota(), 0u);
  EXPECT_EQ(si.usn(), 0u);
  EXPECT_TRUE(si.m_time_anomaly);
  EXPECT_EQ(si.m_anomaly_text, "null");
}

TEST(EntryRecord, FileNamesByNamespaceAndPathKeys) {
  record_builder b;
  uint64_t parent = 0xabcd | (3ull << 48);
  b.resident(0x10, si_value(T1, T1, T1, T1));
  b.resident(0x30, fn_value(parent, u"LONGFI~1.TXT", 2, T1, T1, T1, T1));
  b.resident(0x30, fn_value(parent, u"Long file name.txt", 1, T1, T1, T1, T1));
  b.resident(0x30, fn_value(parent, u"second link.txt", 0, T1, T1, T1, T1));  // same parent, POSIX
  b.resident(0x30, fn_value(ROOT, u"caf\u00e9 \U0001F600.txt", 1, T1, T1, T1, T1));
  auto ctx = open_with(0x123, b, "fn");
  ASSERT_TRUE(ctx);
  entry_record e;
  ASSERT_TRUE(read_entry(e, *ctx, 0x123, false));
  EXPECT_EQ(e.m_file_names.size(), 4u);
  EXPECT_TRUE(e.m_file_names.count("0000abcd_Long file name.txt_00000123"));
  const file_name_entry& dos = e.m_file_names.at("0000abcd_LONGFI~1.TXT_00000123");
  EXPECT_TRUE(dos.m_is_dos_name);
  EXPECT_EQ(dos.parent_ref(), parent);
  EXPECT_EQ(dos.parent_number(), 0xabcdu);
  // One name per parent reference, DOS names never; the first long name under a parent stays.
  ASSERT_EQ(e.m_parent_names.size(), 2u);
  EXPECT_EQ(e.m_parent_names.at(parent).m_name, L"Long file name.txt");
  EXPECT_EQ(e.m_parent_names.at(ROOT).m_name, L"caf\u00e9 \U0001F600.txt");
  EXPECT_TRUE(e.m_name_index.count(L"second link.txt"));
  EXPECT_FALSE(e.m_name_index.count(L"longfi~1.txt"));
  EXPECT_EQ(make_path_key(0xabcd, "file.txt", 0x123), "0000abcd_file.txt_00000123");
}

TEST(EntryRecord, FileNameTimeAnomalies) {
  record_builder b;
  uint64_t future = filetime(2999, 1, 1);
  b.resident(0x10, si_value(T1, T1, T1, T1));
  b.resident(0x30, fn_value(ROOT, u"future.txt", 1, future, T1, T1, T1));
  b.resident(0x30, fn_value(ROOT, u"both.txt", 3, future, 0, T1, T1));
  auto ctx = open_with(20, b, "future");
  ASSERT_TRUE(ctx);
  ctx->m_future_limit = filetime(2030, 1, 1);
  entry_record e;
  ASSERT_TRUE(read_entry(e, *ctx, 20, false));
  EXPECT_EQ(e.m_file_names.at("00000005_future.txt_00000014").m_anomaly_text, "future");
  EXPECT_EQ(e.m_file_names.at("00000005_both.txt_00000014").m_anomaly_text, "null");  // null replaces future
}

TEST(EntryRecord, WalkStopsAndUnknownTypes) {
  // 0xFFFFFFFE is not the end marker: it is stored under the pseudo type with an empty label.
  record_builder b;
  b.resident(0x10, si_value(T1, T1, T1, T1));
  b.resident(0xFFFFFFFE, {1, 2, 3}, u"", 7);
  b.resident(0xE0, {9}, u"", 8);
  b.resident(0x30, fn_value(ROOT, u"after.txt", 1, T1, T1, T1, T1));
  auto ctx = open_with(20, b, "walk");
  ASSERT_TRUE(ctx);
  entry_record e;
  ASSERT_TRUE(read_entry(e, *ctx, 20, false));
  ASSERT_TRUE(e.m_attribs.count(make_attrib_key(0xFFFFFFFF, 7)));
  EXPECT_EQ(e.m_attribs.at(make_attrib_key(0xFFFFFFFF, 7)).m_label, "");
  EXPECT_EQ(e.m_attribs.at(make_attrib_key(0xFFFFFFFF, 8)).m_label, "extended attribs");
  EXPECT_EQ(e.m_file_names.size(), 1u);

  // An attribute whose length runs past the record ends the walk before anything after it.
  record_builder c;
  c.resident(0x10, si_value(T1, T1, T1, T1));
  std::vector<uint8_t> liar(24, 0);
  orv::put_le32(liar.data(), 0x40);
  orv::put_le32(liar.data() + 4, 5000);
  c.raw_attribute(liar);
  c.resident(0x30, fn_value(ROOT, u"hidden.txt", 1, T1, T1, T1, T1));
  ctx = open_with(21, c, "walk2");
  ASSERT_TRUE(read_entry(e, *ctx, 21, false));
  EXPECT_EQ(e.m_std_infos.size(), 1u);
  EXPECT_TRUE(e.m_file_names.empty());

  // A first attribute offset of 0: read, but empty.
  auto raw = record_builder().build();
  orv::put_le16(raw.data() + 20, 0);
  mft_image image;
  add_system_records(image, 64);
  image.m_records[22] = raw;
  ctx = open_mft(image, "walk3");
  ASSERT_TRUE(read_entry(e, *ctx, 22, false));
  EXPECT_TRUE(e.m_attribs.empty());
  EXPECT_TRUE(e.m_std_infos.empty());
}

TEST(EntryRecord, DataStreamsJoinAndAlternateStreams) {
  record_builder b;
  b.resident(0x10, si_value(T1, T1, T1, T1));
  b.resident(0x30, fn_value(ROOT, u"big.bin", 1, T1, T1, T1, T1));
  // Two extents of one unnamed stream under different attribute ids: clusters 0-15, then 16-23.
  b.nonresident(0x80, {0x11, 0x10, 0x20}, 0x18000, 0x18000, 0x18000, u"", 1, 0, 0, 15);
  b.nonresident(0x80, {0x11, 0x08, 0x40}, 0, 0, 0, u"", 2, 0, 16, 23);
  b.resident(0x80, {'a', 'd', 's'}, u"notes", 3);
  b.resident(0x80, {'x'}, u"other", 3);  // same key, other name: dropped
  auto ctx = open_with(20, b, "data");
  ASSERT_TRUE(ctx);
  entry_record e;
  ASSERT_TRUE(read_entry(e, *ctx, 20, false));
  ASSERT_EQ(e.m_attribs.size(), 2u);
  const attrib_item& data = e.m_attribs.at(make_attrib_key(0x80, 1));
  EXPECT_EQ(data.m_label, "unnamed data");
  ASSERT_EQ(data.m_runs.size(), 2u);
  EXPECT_EQ(data.m_runs[0].m_vcn, 0u);
  EXPECT_EQ(data.m_runs[0].m_lcn, 0x20u);
  EXPECT_EQ(data.m_runs[1].m_vcn, 16u);
  EXPECT_EQ(data.m_runs[1].m_lcn, 0x40u);
  EXPECT_EQ(data.stream_size(), 0x18000u);
  const attrib_item& ads = e.m_attribs.at(make_attrib_key(0x80, 3));
  EXPECT_EQ(ads.m_label, "ads");
  EXPECT_EQ(ads.m_name, L"notes");
  EXPECT_TRUE(ads.m_is_ads);
  EXPECT_EQ(ads.stream_size(), 3u);
  EXPECT_TRUE(ads.m_value.empty());  // values are not captured by default
  ASSERT_TRUE(read_entry(e, *ctx, 20, true));
  EXPECT_EQ(e.m_attribs.at(make_attrib_key(0x80, 3)).m_value.size(), 3u);
}

TEST(EntryRecord, ZoneIdentifierIsParsedWhenAsked) {
  record_builder b;
  b.resident(0x10, si_value(T1, T1, T1, T1));
  b.resident(0x30, fn_value(ROOT, u"setup.exe", 1, T1, T1, T1, T1));
  std::string zone = "[ZoneTransfer]\r\nZoneId=3\r\nHostUrl=about:internet\r\n";
  b.resident(0x80, std::vector<uint8_t>(zone.begin(), zone.end()), u"Zone.Identifier", 4);
  auto ctx = open_with(20, b, "zone");
  ASSERT_TRUE(ctx);
  entry_record e;
  ASSERT_TRUE(read_entry(e, *ctx, 20, false));
  EXPECT_TRUE(e.m_zone_info.empty());
  EXPECT_EQ(e.m_attribs.size(), 1u);
  ctx->m_include_zoneinfo = 1;
  ASSERT_TRUE(read_entry(e, *ctx, 20, false));
  EXPECT_EQ(e.m_zone_info.at("ZoneId"), "3");
  EXPECT_EQ(e.m_zone_info.at("HostUrl"), "about:internet");
  EXPECT_FALSE(e.m_attribs.count(make_attrib_key(0x80, 4)));  // known by the zone map alone
}

TEST(EntryRecord, VolumeReparseAndObjectIdTexts) {
  record_builder b;
  b.resident(0x10, si_value(T1, T1, T1, T1));
  b.resident(0x30, fn_value(ROOT, u"link", 1, T1, T1, T1, T1));
  std::vector<uint8_t> info(12, 0);
  info[8] = 3;
  info[9] = 1;
  b.resident(0x70, info);
  b.resident(0x60, utf16le(u"EVIDENCE"));
  // Symbolic link: tag, data length, names, 4 flag bytes of zeros, then the path buffer.
  auto sub = utf16le(u"\\??\\C:\\target");
  auto print = utf16le(u"C:\\target");
  std::vector<uint8_t> rp(20, 0);
  orv::put_le32(rp.data(), 0xA000000C);
  orv::put_le16(rp.data() + 4, uint16_t(12 + sub.size() + print.size()));
  orv::put_le16(rp.data() + 8, 0);
  orv::put_le16(rp.data() + 10, uint16_t(sub.size()));
  orv::put_le16(rp.data() + 12, uint16_t(sub.size()));
  orv::put_le16(rp.data() + 14, uint16_t(print.size()));
  rp.insert(rp.end(), sub.begin(), sub.end());
  rp.insert(rp.end(), print.begin(), print.end());
  b.resident(0xC0, rp);
  std::vector<uint8_t> oid(16);
  for (int i = 0; i < 16; ++i) oid[size_t(i)] = uint8_t(i);
  b.resident(0x40, oid);
  auto ctx = open_with(20, b, "texts");
  ASSERT_TRUE(ctx);
  entry_record e;
  ASSERT_TRUE(read_entry(e, *ctx, 20, false));
  ASSERT_EQ(e.m_volume_infos.size(), 1u);
  EXPECT_EQ(e.m_volume_infos.begin()->second.m_text, "ver: 3:1 (WinXP)");
  ASSERT_EQ(e.m_reparse_targets.size(), 1u);
  EXPECT_EQ(e.m_reparse_targets.begin()->second, L"C:\\target");
  ASSERT_EQ(e.m_object_ids.size(), 1u);
  EXPECT_EQ(e.m_object_ids.begin()->second.m_guid_text, "03020100-0504-0706-0809-0a0b0c0d0e0f");
  bool saw_name = false;
  for (const auto& kv : e.m_attribs)
    if (kv.second.m_label == "vol name") saw_name = kv.second.m_text == "EVIDENCE";
  EXPECT_TRUE(saw_name);
  EXPECT_EQ(volume_version_text(2, 0), "ver: 2:0(Unk version)");
  EXPECT_EQ(volume_version_text(1, 2), "ver: 1:2 (WinNT)");
  EXPECT_EQ(file_attrib_text(0), "none set");
  EXPECT_EQ(file_attrib_text(0x8), "");
  EXPECT_EQ(file_attrib_text(0x10000010), "DIRECTORY, DIRECTORY");
  EXPECT_EQ(file_attrib_text(0x21), "READ_ONLY, ARCHIVE");
}

TEST(EntryRecord, AttributeListJoinsExtensionRecords) {
  mft_image image;
  add_system_records(image, 64);
  // Base record 20 lists: its own $STANDARD_INFORMATION (itself: skipped), a $FILE_NAME and a
  // $DATA in extension record 21, and an id that record 21 does not hold.
  auto list_entry = [](uint32_t type, uint64_t ref, uint16_t id) {
    std::vector<uint8_t> e(32, 0);
    orv::put_le32(e.data(), type);
    orv::put_le16(e.data() + 4, 32);
    orv::put_le64(e.data() + 16, ref);
    orv::put_le16(e.data() + 24, id);
    return e;
  };
  std::vector<uint8_t> list;
  for (auto part : {list_entry(0x10, 20 | (1ull << 48), 0), list_entry(0x30, 21 | (1ull << 48), 3),
                    list_entry(0x80, 21 | (1ull << 48), 4), list_entry(0x80, 21 | (1ull << 48), 9)})
    list.insert(list.end(), part.begin(), part.end());
  record_builder base;
  base.resident(0x10, si_value(T1, T1, T1, T1), u"", 0);
  base.resident(0x20, list, u"", 1);
  image.put(20, base);
  record_builder ext;
  ext.m_base_ref = 20 | (1ull << 48);
  ext.resident(0x30, fn_value(ROOT, u"many links.txt", 1, T1, T1, T1, T1), u"", 3);
  ext.resident(0x80, {'d', 'a', 't', 'a'}, u"", 4);
  image.put(21, ext);
  auto ctx = open_mft(image, "alist");
  ASSERT_TRUE(ctx);
  entry_record e;
  ASSERT_TRUE(read_entry(e, *ctx, 20, false));
  EXPECT_TRUE(e.m_has_attrib_list);
  EXPECT_FALSE(e.m_attrib_list_nonresident);
  ASSERT_EQ(e.m_file_names.size(), 1u);
  EXPECT_EQ(e.m_file_names.begin()->second.m_inode, 21u);  // the record that held it
  ASSERT_EQ(e.m_attribs.size(), 1u);
  EXPECT_EQ(e.m_attribs.begin()->second.m_inode, 21u);
  ASSERT_TRUE(read_entry(e, *ctx, 21, false));
  EXPECT_TRUE(e.m_is_extension);
  EXPECT_EQ(e.m_base_ref, 20 | (1ull << 48));
}

TEST(EntryRecord, NonResidentListOnExtractedMft) {
  record_builder b;
  b.resident(0x10, si_value(T1, T1, T1, T1));
  b.nonresident(0x20, {0x11, 0x01, 0x30}, 4096, 200, 200);
  b.resident(0x30, fn_value(ROOT, u"huge.txt", 1, T1, T1, T1, T1));
  auto ctx = open_with(20, b, "nrlist");
  ASSERT_TRUE(ctx);
  entry_record e;
  ASSERT_TRUE(read_entry(e, *ctx, 20, false));
  EXPECT_TRUE(e.m_has_attrib_list);
  EXPECT_TRUE(e.m_attrib_list_nonresident);
  EXPECT_EQ(e.m_file_names.size(), 1u);
}

TEST(EntryRecord, HostileRecordsDoNotEscapeTheBuffer) {
  // Every length, offset and count in a record is randomised; decoding must stay in bounds.
  mft_image image;
  add_system_records(image, 64);
  uint32_t seed = 12345;
  auto next = [&] { seed = seed * 1103515245u + 12345u; return seed >> 8; };
  for (uint64_t n = 16; n < 64; ++n) {
    record_builder b;
    b.resident(0x10, si_value(T1, T1, T1, T1));
    b.resident(0x30, fn_value(ROOT, u"victim.txt", 1, T1, T1, T1, T1));
    b.nonresident(0x80, {0x31, 0x05, 0x01, 0x02, 0x03}, 100, 100, 100);
    b.resident(0x20, std::vector<uint8_t>(64, 0x11));
    auto rec = b.build(false);
    for (int k = 0; k < 40; ++k) rec[56 + next() % (1024 - 56)] = uint8_t(next());
    rec[48] = 1; rec[49] = 1;
    image.m_records[n] = rec;
  }
  auto ctx = open_mft(image, "hostile");
  ASSERT_TRUE(ctx);
  entry_record e;
  for (uint64_t n = 16; n < 64; ++n) read_entry(e, *ctx, n, n % 2 == 0);
}
