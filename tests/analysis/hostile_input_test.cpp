// Records damaged on purpose: each case is the smallest input that once broke decoding (undefined
// behaviour, a read out of bounds, a hang), rebuilt here in memory.
#include <gtest/gtest.h>
#include <unistd.h>

#include "analysis/entry_record.h"
#include "analysis/mft_scan.h"
#include "base/orv_le.h"
#include "base/orv_string.h"
#include "base/results_stream.h"
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
