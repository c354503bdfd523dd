// Volumes damaged on purpose: each case is the smallest image that once broke opening or reading
// a volume (a hang, unbounded growth), rebuilt here in memory.
#include <gtest/gtest.h>

#include "ntfs/ntfs.h"
#include "tests/ntfs/orv_test_volume.h"

using testvol::bytes;
using testvol::extents;

TEST(HostileVolume, MftAttributeListRepeatingOneExtentMergesItOnce) {
  // Record 0 carries a non-resident attribute list read from two clusters over and over: some
  // 25000 entries all naming the $DATA extent of record 15, whose first VCN is 10^9. Merging it
  // once per entry grew the $MFT run list without end while the volume opened.
  testvol::image img(128);
  img.boot();
  extents mft_runs = {{4, 16}};
  extents list_runs;
  for (int i = 0; i < 200; ++i) list_runs.push_back({100 + (i & 1), 1});
  testutil::record_builder mft = testvol::mft_record(mft_runs, img.cluster());
  mft.nonresident(0x20, testvol::encode_runs(list_runs), 200 * 4096, 200 * 4096, 200 * 4096);
  img.put_record(mft_runs, 0, mft.build());
  extents far_runs;
  for (int i = 0; i < 250; ++i) far_runs.push_back({60 + (i & 1), 1});
  testutil::record_builder extension;
  extension.m_record_number = 15;
  extension.m_base_ref = orv::make_ref(0, 1);
  extension.nonresident(0x80, testvol::encode_runs(far_runs), 250 * 4096, 250 * 4096, 250 * 4096, u"", 0, 0,
                        1000000000, 1000000249);
  img.put_record(mft_runs, 15, extension.build());
  bytes entries(4096, 0);
  for (size_t at = 0; at + 32 <= entries.size(); at += 32) {
    orv::put_le32(entries.data() + at, 0x80);
    orv::put_le16(entries.data() + at + 4, 32);
    orv::put_le64(entries.data() + at + 16, orv::make_ref(15, 1));
  }
  img.put(100 * img.cluster(), entries);
  img.put(101 * img.cluster(), entries);

  testvol::image_file file(img.m_bytes);
  std::unique_ptr<CNtfs> volume = file.open();
  ASSERT_TRUE(volume);
  EXPECT_EQ(volume->get_mft_inode_stats().m_data_runs.size(), 1u + 250u);
}
