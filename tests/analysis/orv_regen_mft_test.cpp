// Carving a lost MFT out of a volume built in memory: one record per number, holes where nothing
// was found, and copies or boot sectors that claim places past the source's end.
#include <gtest/gtest.h>

#include "analysis/orv_regen_mft.h"
#include "tests/mft_fixture.h"

TEST(RegenMft, OneRecordPerNumberAndClaimsPastTheSource) {
  // Each copy lies at the start of its own cluster of a 64-cluster volume of 1024-byte records.
  struct copy { uint32_t number; uint16_t sequence, flags; uint64_t changed; uint64_t cluster; };
  const copy copies[] = {
      {0, 1, 1, 3, 4},       // $MFT, at the start of the table
      {0, 16, 0, 3, 20},     // a formatted spare record with 0 in its number field: not believed
      {5, 5, 3, 3, 5},       // the root directory
      {9, 3, 1, 5, 12},      // a file (generations and copies of one record: tests/integration/regen_test.cpp)
      {70000, 1, 1, 1, 14},  // its slot would lie far past the source's end: not believed
  };
  testvol::image volume(64);
  volume.boot();
  orv::put_le64(volume.m_bytes.data() + 40, 1ull << 40);  // a boot sector that claims 512 TiB
  for (const copy& c : copies) {
    testutil::record_builder record;
    record.m_record_number = c.number, record.m_sequence = c.sequence, record.m_flags = c.flags;
    record.resident(0x10, testutil::si_value(1, 2, c.changed, 4));
    record.resident(0x30, testutil::fn_value(5 | (5ull << 48), u"f", 1, 1, 2, 3, 4));
    volume.put(c.cluster * 4096, record.build());
  }
  testvol::image_file file(volume.m_bytes);
  RAW_DISK_IO disk;
  ASSERT_TRUE(disk.open_path(orv::to_wide(file.m_path), false, 0));
  carved_mft table;
  ASSERT_TRUE(build_mft_image(table, &disk, 0, carve_context()));
  ASSERT_EQ(table.size(), 10u);
  const std::pair<uint64_t, uint64_t> expected[] = {{0, 4}, {5, 5}, {9, 12}};
  for (const auto& [number, cluster] : expected) EXPECT_EQ(table[number], cluster * 4096) << number;
  size_t holes = 0;
  for (uint64_t offset : table) holes += offset == 0;
  EXPECT_EQ(holes, table.size() - 3);

  // Without a directory record there is nothing to carve paths from: the carving fails.
  testvol::image files_only(64);
  files_only.boot();
  files_only.put(4 * 4096, testutil::file(5 | (5ull << 48), u"f", 1).build());
  testvol::image_file other(files_only.m_bytes);
  RAW_DISK_IO other_disk;
  ASSERT_TRUE(other_disk.open_path(orv::to_wide(other.m_path), false, 0));
  EXPECT_FALSE(build_mft_image(table, &other_disk, 0, carve_context()));
  EXPECT_TRUE(table.empty());
}
