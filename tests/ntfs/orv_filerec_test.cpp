// Recognising record buffers, applying their fixups for each kind of reader, and the record size
// an extracted $MFT learns from its first record.
#include <cstring>
#include <gtest/gtest.h>

#include "base/orv_console.h"
#include "base/orv_le.h"
#include "base/orv_string.h"
#include "ntfs/orv_filerec.h"
#include "ntfs/orv_record_header.h"
#include "ntfs/orv_record_source.h"
#include "tests/test_util.h"

using namespace testutil;

namespace {

std::vector<uint8_t> signed_record(const char* signature, uint16_t usa_offset = 48, uint16_t count = 3) {
  record_builder b;
  b.resident(0x80, std::vector<uint8_t>(600, 0xAB));  // crosses the first sector's tail
  std::vector<uint8_t> record = b.build();
  std::memcpy(record.data(), signature, 4);
  if (usa_offset != 48) {  // the array moved: copy it along
    std::memmove(record.data() + usa_offset, record.data() + 48, 6);
    orv::put_le16(record.data() + 4, usa_offset);
  }
  orv::put_le16(record.data() + 6, count);
  return record;
}

}  // namespace

TEST(Fixups, AppliedNeverVerifiedAndBoundedByTheBuffer) {
  std::vector<uint8_t> record = signed_record("FILE");
  EXPECT_EQ(orv::le16(record.data() + 510), 0x0101);  // protected on disk
  orv::put_le16(record.data() + 1022, 0x7777);         // a torn sector: repaired all the same
  apply_fixups(record.data(), record.size(), 48, 3, 512);
  EXPECT_EQ(record[510], 0xAB);
  EXPECT_EQ(record[511], 0xAB);
  std::vector<uint8_t> cut = signed_record("FILE");
  apply_fixups(cut.data(), 600, 48, 9, 512);  // a count larger than the buffer's sectors
  EXPECT_EQ(cut[510], 0xAB);
  EXPECT_EQ(orv::le16(cut.data() + 1022), 0x0101);
  std::vector<uint8_t> tiny(512, 0);
  apply_fixups(tiny.data(), tiny.size(), 0xFFF0, 2, 512);  // an array past the buffer is not followed
}

// Each kind of buffer under each reader: the kind it gets, and whether its sector tails came back.
TEST(Fixups, KindsAndModes) {
  // The kind each mode gives: scan, volume, recovery.
  struct kind_case { const char* m_what; std::vector<uint8_t> m_record; size_t m_length;
                     int m_scan, m_volume, m_recovery; };
  const kind_case cases[] = {
      {"FILE", signed_record("FILE"), 1024, record_file, record_file, record_file},
      {"INDX with its array elsewhere", signed_record("INDX", 40), 1024, record_index, record_index, record_index},
      {"BAAD", signed_record("BAAD"), 1024, record_baad, record_refused, record_baad},
      {"BAAD with 11 words", signed_record("BAAD", 48, 11), 1024, record_baad, record_refused, record_refused},
      {"BAAD with its array past 64", signed_record("BAAD", 80), 1024, record_baad, record_refused, record_refused},
      {"FILE cut to 512 bytes", signed_record("FILE"), 512, record_file, record_file, record_refused},
      {"FILE whose array claims more than the buffer", signed_record("FILE", 48, 9), 1024, record_file,
       record_file, record_refused},
      {"anything else", std::vector<uint8_t>(1024, 0x41), 1024, record_refused, record_refused, record_refused},
  };
  for (const kind_case& c : cases) {
    SCOPED_TRACE(c.m_what);
    const int expected[] = {c.m_scan, c.m_volume, c.m_recovery};
    const fixup_mode modes[] = {fixup_scan, fixup_volume, fixup_recovery};
    for (int m = 0; m < 3; ++m) {
      std::vector<uint8_t> record = c.m_record;
      EXPECT_EQ(fixup_record(record.data(), c.m_length, modes[m]), expected[m]) << "mode " << m;
      // The scans take a "BAAD" record, repairing it only when its array is plausible.
      const bool implausible = c.m_record[6] > 10 || orv::le16(c.m_record.data() + 4) > 64;
      const bool repaired = expected[m] != record_refused && !(expected[m] == record_baad && implausible);
      if (c.m_length >= 1024) {
        EXPECT_EQ(record[510] == 0xAB, repaired) << "mode " << m;
      }
    }
  }
}

TEST(Fixups, ReaderOutcomesOnAnExtractedMft) {
  mft_image image;
  image.put(0, record_builder());
  std::vector<uint8_t> single = record_builder().build(false);
  orv::put_le16(single.data() + 6, 1);  // count 1: read without fixups
  image.m_records[1] = single;
  image.m_records[2] = signed_record("BAAD");
  image.m_records[3] = signed_record("INDX");
  image.m_records[4] = std::vector<uint8_t>(1024, 0);
  record_source source;
  ASSERT_TRUE(source.open_mftfile(orv::to_wide(image.write(make_temp_dir("outcomes")))));
  const diag_sink log;
  // {record, read, marked bad}: 99 lies past the end of the file.
  const int outcomes[][3] = {{1, 1, 0}, {2, 1, 1}, {3, 1, 0}, {4, 0, 0}, {99, 0, 0}};
  std::vector<uint8_t> record;
  for (const auto& o : outcomes) {
    bool bad = !o[2];
    EXPECT_EQ(mft_fixup_read(record, bad, source, uint64_t(o[0]), log), o[1] == 1) << o[0];
    EXPECT_TRUE(!o[1] || bad == (o[2] == 1)) << o[0];
    EXPECT_TRUE(o[0] != 2 || record[510] == 0xAB);  // "BAAD" repaired, for what its attributes still hold
  }
}

TEST(RecordHeader, ValidFileRecordLimits) {
  const std::vector<uint8_t> good = testutil::record_builder().build();
  struct change { size_t m_offset; uint16_t m_value; bool m_valid; } const changes[] = {
      {4, 42, false},   // the array where older volumes put it
      {6, 9, true},     // 4096 bytes of record
      {6, 10, false},
      {20, 72, true},   // first attribute right behind the largest header
      {20, 73, false},
  };
  EXPECT_TRUE(is_valid_filerec(good.data(), good.size()));
  for (const change& c : changes) {
    std::vector<uint8_t> record = good;
    orv::put_le16(record.data() + c.m_offset, c.m_value);
    EXPECT_EQ(is_valid_filerec(record.data(), record.size()), c.m_valid) << c.m_offset << "=" << c.m_value;
  }
  std::vector<uint8_t> other = good;
  std::memcpy(other.data(), "FILF", 4);
  EXPECT_FALSE(is_valid_filerec(other.data(), other.size()));
  EXPECT_FALSE(is_valid_filerec(good.data(), 21));
  EXPECT_FALSE(is_valid_filerec(nullptr, 1024));
}

TEST(RecordSource, RecordSizeFromTheFirstRecord) {
  // (count - 1) x 512: 3 gives 1024, 9 gives 4096. A count of 0, or one giving more than 64 KiB
  // (65535: records of 32 MiB), fails the first read only; later reads go on with 1024 bytes.
  struct size_case { uint16_t m_count; bool m_first_read; uint32_t m_size; } const cases[] = {
      {3, true, 1024}, {9, true, 4096}, {0, false, 1024}, {200, false, 1024}, {0xFFFF, false, 1024}};
  for (const size_case& c : cases) {
    SCOPED_TRACE(c.m_count);
    mft_image image;
    image.m_record_size = 4096;
    record_builder big;
    big.m_size = 4096;
    big.resident(0x80, std::vector<uint8_t>(3000, 0x5A));
    image.put(0, big);
    image.put(1, big);
    orv::put_le16(image.m_records[0].data() + 6, c.m_count);
    record_source source;
    ASSERT_TRUE(source.open_mftfile(orv::to_wide(image.write(make_temp_dir("recsize")))));
    EXPECT_EQ(source.record_size(), 1024u);
    std::vector<uint8_t> record;
    EXPECT_EQ(source.read_raw(1, record), c.m_first_read);
    EXPECT_EQ(source.record_size(), c.m_size);
    ASSERT_TRUE(source.read_raw(1, record));
    EXPECT_EQ(record.size(), c.m_size);
  }
}
