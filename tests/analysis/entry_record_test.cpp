// One record decoded into its entry: attributes by kind, names and path keys, attribute lists,
// and records whose lengths, counts and offsets lie.
#include <gtest/gtest.h>

#include "analysis/entry_record.h"
#include "tests/mft_fixture.h"

using namespace testutil;

namespace {

const uint64_t T1 = filetime(2020, 1, 2, 3, 4, 5);
const uint64_t ROOT = 5ull | (5ull << 48);

// Record 20 of a small extracted $MFT, decoded; record 21 beside it when given.
entry_record decode(const std::vector<uint8_t>& record, bool capture = false, bool zone = false,
                    const std::vector<uint8_t>& at21 = {}) {
  mft_image image;
  add_system_records(image, 64);
  image.m_records[20] = record;
  if (!at21.empty()) image.m_records[21] = at21;
  entry_record entry;
  auto run = open_mft(image, "entry", [](mft_entries_ctx& o) { o.m_future_limit = filetime(2030, 1, 1); });
  run->m_scan.m_zone_info = zone;
  EXPECT_TRUE(read_entry(entry, run->m_scan, 20, capture));
  return entry;
}

}  // namespace

TEST(EntryRecord, StandardInformationAndNames) {
  const uint64_t parent = 0xabcd | (3ull << 48), future = filetime(2999, 1, 1);
  entry_record e = decode(record_builder()
                              .resident(0x10, si_value(T1, T1, T1, 0, 0x20, true))  // short: nothing read past it
                              .resident(0x30, fn_value(parent, u"LONGFI~1.TXT", 2, T1, T1, T1, T1))
                              .resident(0x30, fn_value(parent, u"Long file name.txt", 1, T1, T1, T1, T1))
                              .resident(0x30, fn_value(parent, u"second link.txt", 0, T1, T1, T1, T1))
                              .resident(0x30, fn_value(ROOT, u"caf\u00e9 \U0001F600.txt", 1, future, T1, T1, T1))
                              .resident(0x30, fn_value(ROOT, u"both.txt", 3, future, 0, T1, T1))
                              .build());
  const si_entry& si = e.m_std_infos.at(0);
  EXPECT_EQ(si.owner_id() | si.security_id() | si.quota() | si.usn(), 0u);
  EXPECT_EQ(si.m_anomaly_text, "null");

  ASSERT_EQ(e.m_file_names.size(), 5u);
  EXPECT_EQ(e.m_file_names.at("00000005_caf\xc3\xa9 \xf0\x9f\x98\x80.txt_00000014").m_anomaly_text, "future");
  EXPECT_EQ(e.m_file_names.at("00000005_both.txt_00000014").m_anomaly_text, "null");  // null outranks future
  // One name per parent reference, never a DOS name: the first long name under a parent stays.
  ASSERT_EQ(e.m_parent_names.size(), 2u);
  EXPECT_EQ(e.m_parent_names.at(parent).m_name, L"Long file name.txt");
}

TEST(EntryRecord, LyingAttributesStayInsideTheRecord) {
  // 0xFFFFFFFE is no end marker: it goes under the pseudo type. An object id whose value offset
  // points just past its attribute gives zeros. An attribute longer than the rest of the record is
  // not kept, and the walk ends before anything behind it.
  std::vector<uint8_t> oid = {0x40, 0, 0, 0, 40, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 16, 0, 0, 0, 40, 0},
                       liar = {0x80, 0, 0, 0, 0x88, 0x13, 0, 0, 0, 0, 0, 0, 0, 0, 9};  // 5000 bytes, id 9
  oid.resize(40);
  liar.resize(24);
  entry_record e = decode(record_builder()
                              .resident(0x10, si_value(T1, T1, T1, T1))
                              .resident(0xFFFFFFFE, {1, 2, 3}, u"", 7)
                              .raw_attribute(oid)
                              .resident(0x30, fn_value(ROOT, u"seen.txt", 1, T1, T1, T1, T1))
                              .raw_attribute(liar)
                              .resident(0x30, fn_value(ROOT, u"hidden.txt", 1, T1, T1, T1, T1))
                              .build());
  EXPECT_EQ(e.m_attribs.at(make_attrib_key(0xFFFFFFFF, 7)).m_label, "");
  ASSERT_EQ(e.m_object_ids.size(), 1u);
  EXPECT_EQ(e.m_object_ids.begin()->second.m_ids, (std::array<uint8_t, 64>{}));
  ASSERT_EQ(e.m_file_names.size(), 1u);
  EXPECT_EQ(e.m_file_names.begin()->second.m_name, L"seen.txt");
  EXPECT_FALSE(e.m_attribs.count(make_attrib_key(0x80, 9)));
}

// Values of named streams only on request; a Zone.Identifier parsed when asked for.
TEST(EntryRecord, StreamValuesAndZoneIdentifier) {
  record_builder b;
  b.resident(0x10, si_value(T1, T1, T1, T1));
  b.resident(0x80, {'a', 'd', 's'}, u"notes", 3);
  b.resident(0x80, {'x'}, u"other", 3);  // same key, other name: dropped
  std::string zone = "[ZoneTransfer]\r\nZoneId=3\r\nHostUrl=about:internet\r\n";
  b.resident(0x80, std::vector<uint8_t>(zone.begin(), zone.end()), u"Zone.Identifier", 4);

  entry_record e = decode(b.build());
  const attrib_item& ads = e.m_attribs.at(make_attrib_key(0x80, 3));
  EXPECT_TRUE(ads.m_is_data && ads.m_name == L"notes" && ads.m_value.empty());
  EXPECT_TRUE(e.m_attribs.count(make_attrib_key(0x80, 4)) && e.m_zone_info.empty());
  entry_record zoned = decode(b.build(), true, true);
  EXPECT_EQ(zoned.m_attribs.at(make_attrib_key(0x80, 3)).m_value.size(), 3u);
  EXPECT_EQ(zoned.m_zone_info, (std::map<std::string, std::string>{{"HostUrl", "about:internet"}, {"ZoneId", "3"}}));
  entry_record zone_only = decode(b.build(), false, true);  // without capture the zone map alone knows it
  EXPECT_FALSE(zone_only.m_attribs.count(make_attrib_key(0x80, 4)));
}

TEST(EntryRecord, AttributeListsOnAnExtractedMft) {
  // Record 20 lists: its own $STANDARD_INFORMATION (skipped), a $FILE_NAME in extension record
  // 21, an id that record 21 does not hold, and record 21's $DATA extent (from VCN 1000) over and
  // over: merged once per entry, the extent's runs grew without end.
  const uint64_t base_ref = orv::make_ref(20, 1), ext_ref = orv::make_ref(21, 1);
  std::vector<uint8_t> list =
      cat({list_entry(0x10, base_ref, 0), list_entry(0x30, ext_ref, 3), list_entry(0x80, ext_ref, 9)});
  for (int i = 0; i < 20; ++i) list = cat({list, list_entry(0x80, ext_ref, 4)});
  record_builder ext;
  ext.m_base_ref = base_ref;
  ext.resident(0x30, fn_value(ROOT, u"many links.txt", 1, T1, T1, T1, T1), u"", 3);
  ext.nonresident(0x80, {0x11, 0x02, 0x30, 0x11, 0x02, 0x40}, 4 * 4096, 4 * 4096, 4 * 4096, u"", 4, 0, 1000, 1003);
  record_builder base;
  base.resident(0x10, si_value(T1, T1, T1, T1), u"", 0).resident(0x20, list);
  entry_record listed = decode(base.build(), false, false, ext.build());
  ASSERT_EQ(listed.m_file_names.size(), 1u);
  EXPECT_EQ(listed.m_file_names.begin()->second.m_inode, 21u);  // the record that held it
  ASSERT_EQ(listed.m_attribs.size(), 1u);
  EXPECT_EQ(listed.m_attribs.begin()->second.m_inode, 21u);
  EXPECT_EQ(listed.m_attribs.begin()->second.m_runs.size(), 2u);
}

TEST(EntryRecord, NonResidentAttributeListBoundedByTheSource) {
  // A list over 2^17 clusters of a 256 KiB volume: its buffer was 64 MiB, allocated and cleared
  // for every record that carries such a list.
  testvol::image_file file(lying_volume(20, 0x20));
  std::unique_ptr<CNtfs> volume = file.open();
  ASSERT_TRUE(volume);
  scan_state scan;
  scan.m_source.lend_volume(volume.get());
  entry_record entry;
  EXPECT_LT(peak_growth_kib([&] { EXPECT_TRUE(read_entry(entry, scan, 20, false)); }), 32 * 1024);
  EXPECT_TRUE(entry.m_attrib_list_nonresident);
}
