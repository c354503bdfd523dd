// An extracted $MFT learns its record size from its first record.
#include <gtest/gtest.h>

#include "base/orv_le.h"
#include "base/orv_string.h"
#include "ntfs/orv_record_source.h"
#include "tests/test_util.h"

using namespace testutil;

TEST(RecordSource, RecordSizeFromTheFirstRecord) {
  // (count - 1) x 512: 3 gives 1024, 9 gives 4096. A count of 0, or one giving more than 64 KiB
  // (65535 would mean records of 32 MiB, each read and walked whole), fails the first read only;
  // later reads go on with 1024 bytes.
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
