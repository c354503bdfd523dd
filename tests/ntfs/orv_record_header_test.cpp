// The validity test of a "FILE" record. (Header fields, names and times of real records are
// compared with sleuthkit by the integration tests; the short standard information of NTFS 1.x
// decoded in tests/analysis/entry_record_test.cpp.)
#include <cstring>
#include <gtest/gtest.h>

#include "ntfs/orv_record_header.h"
#include "tests/test_util.h"

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
