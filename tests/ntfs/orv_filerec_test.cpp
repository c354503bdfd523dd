#include <gtest/gtest.h>

#include <cstring>

#include "base/orv_le.h"
#include "ntfs/orv_filerec.h"
#include "tests/mft_fixture.h"

using namespace testutil;

TEST(FileRecord, ValidityTests) {
  auto rec = record_builder().build();
  EXPECT_TRUE(is_valid_filerec(rec.data(), rec.size()));
  auto bad = rec;
  orv::put_le16(bad.data() + 4, 42);  // array written where older volumes put it
  EXPECT_FALSE(is_valid_filerec(bad.data(), bad.size()));
  bad = rec;
  orv::put_le16(bad.data() + 6, 9);
  EXPECT_TRUE(is_valid_filerec(bad.data(), bad.size()));
  orv::put_le16(bad.data() + 6, 10);
  EXPECT_FALSE(is_valid_filerec(bad.data(), bad.size()));
  bad = rec;
  orv::put_le16(bad.data() + 20, 72);
  EXPECT_TRUE(is_valid_filerec(bad.data(), bad.size()));
  orv::put_le16(bad.data() + 20, 73);
  EXPECT_FALSE(is_valid_filerec(bad.data(), bad.size()));
  std::memcpy(bad.data(), "FILF", 4);
  EXPECT_FALSE(is_valid_filerec(bad.data(), bad.size()));
  EXPECT_FALSE(is_valid_filerec(rec.data(), 10));
}

TEST(FileRecord, FixupsAreAppliedNeverVerified) {
  record_builder b;
  b.resident(0x80, std::vector<uint8_t>(600, 0xAB));  // crosses the first sector's tail
  auto rec = b.build();
  EXPECT_EQ(orv::le16(rec.data() + 510), 0x0101);  // protected on disk
  // A torn sector: its tail no longer holds the sequence number. It is repaired all the same.
  orv::put_le16(rec.data() + 1022, 0x7777);
  apply_fixups(rec.data(), rec.size(), 48, 3, 512);
  EXPECT_EQ(rec[510], 0xAB);
  EXPECT_EQ(rec[511], 0xAB);
  // A count larger than the sectors in the buffer stops at the buffer.
  auto small = b.build();
  apply_fixups(small.data(), 600, 48, 9, 512);
  EXPECT_EQ(small[510], 0xAB);
  // An array that lies past the end of the buffer is not followed.
  std::vector<uint8_t> tiny(512, 0);
  apply_fixups(tiny.data(), tiny.size(), 0xFFF0, 2, 512);
}

TEST(FileRecord, RawVariantTypesAndLimits) {
  auto rec = record_builder().build();
  EXPECT_EQ(fixup_raw(rec.data(), rec.size(), 512, false), 1);
  EXPECT_EQ(fixup_raw(rec.data(), 512, 512, false), 0);  // under 1024 bytes
  auto baad = record_builder().build();
  std::memcpy(baad.data(), "BAAD", 4);
  EXPECT_EQ(fixup_raw(baad.data(), baad.size(), 512, false), 3);
  orv::put_le16(baad.data() + 6, 11);
  EXPECT_EQ(fixup_raw(baad.data(), baad.size(), 512, false), 0);
  orv::put_le16(baad.data() + 6, 3);
  orv::put_le16(baad.data() + 4, 80);
  EXPECT_EQ(fixup_raw(baad.data(), baad.size(), 512, false), 3);
  EXPECT_EQ(fixup_raw(baad.data(), baad.size(), 512, true), 0);  // the free-cluster scan is stricter
  auto indx = record_builder().build();
  std::memcpy(indx.data(), "INDX", 4);
  EXPECT_EQ(fixup_raw(indx.data(), indx.size(), 512, false), 2);
  auto junk = std::vector<uint8_t>(1024, 0x41);
  EXPECT_EQ(fixup_raw(junk.data(), junk.size(), 512, false), 0);
}

TEST(FileRecord, ExtractedMftRecordSizeComesFromTheFirstRecord) {
  mft_image image;
  image.m_record_size = 4096;
  record_builder big;
  big.m_size = 4096;
  big.resident(0x80, std::vector<uint8_t>(3000, 0x5A));
  image.put(0, big);
  image.put(1, big);
  auto ctx = open_mft(image, "rs4k");
  ASSERT_TRUE(ctx);
  std::vector<uint8_t> rec;
  bool bad = true;
  ASSERT_TRUE(mft_fixup_read(rec, bad, *ctx, 1));
  EXPECT_FALSE(bad);
  EXPECT_EQ(ctx->m_record_size, 4096u);
  EXPECT_EQ(rec.size(), 4096u);
  EXPECT_EQ(rec[1022], 0x5A);  // sector tails restored
  EXPECT_EQ(rec[2046], 0x5A);
}

TEST(FileRecord, CountZeroFailsOnlyTheFirstRead) {
  mft_image image;
  auto first = record_builder().build();
  orv::put_le16(first.data() + 6, 0);
  image.m_records[0] = first;
  image.put(1, record_builder());
  auto ctx = open_mft(image, "count0");
  ASSERT_TRUE(ctx);
  std::vector<uint8_t> rec;
  bool bad = false;
  EXPECT_FALSE(mft_fixup_read(rec, bad, *ctx, 1));
  EXPECT_TRUE(ctx->m_record_size_known);
  EXPECT_TRUE(mft_fixup_read(rec, bad, *ctx, 1));
  EXPECT_EQ(rec.size(), 1024u);
}

TEST(FileRecord, ReaderOutcomes) {
  mft_image image;
  image.put(0, record_builder());
  record_builder single;
  auto one = single.build(false);
  orv::put_le16(one.data() + 6, 1);  // count 1: decoded without fixups
  image.m_records[1] = one;
  auto baad = record_builder().build();
  std::memcpy(baad.data(), "BAAD", 4);
  image.m_records[2] = baad;
  auto indx = record_builder().build();
  std::memcpy(indx.data(), "INDX", 4);
  image.m_records[3] = indx;
  image.m_records[4] = std::vector<uint8_t>(1024, 0);
  auto ctx = open_mft(image, "outcomes");
  ASSERT_TRUE(ctx);
  std::vector<uint8_t> rec;
  bool bad = false;
  EXPECT_TRUE(mft_fixup_read(rec, bad, *ctx, 1));
  EXPECT_FALSE(bad);
  EXPECT_TRUE(mft_fixup_read(rec, bad, *ctx, 2));
  EXPECT_TRUE(bad);
  EXPECT_EQ(orv::le16(rec.data() + 510), 0x0101);  // "BAAD" gets no fixups here
  EXPECT_TRUE(mft_fixup_read(rec, bad, *ctx, 3));
  EXPECT_FALSE(bad);
  EXPECT_FALSE(mft_fixup_read(rec, bad, *ctx, 4));
  EXPECT_FALSE(mft_fixup_read(rec, bad, *ctx, 99));  // past the end of the file
}
