// The file record header read from the bytes ntfs-3g writes, and the validity test of a "FILE".
#include <cstring>
#include <gtest/gtest.h>

#include "ntfs/orv_record_header.h"
#include "tests/test_util.h"

TEST(RecordHeader, FieldsAtTheirOffsets) {
  testutil::record_builder b;
  b.m_sequence = 0x1234;
  b.m_flags = FR_FLAG_IN_USE | FR_FLAG_DIRECTORY;
  b.m_links = 3;
  b.m_base_ref = orv::make_ref(0x0102030405ull, 7);
  std::vector<uint8_t> record = b.build();
  orv::put_le64(record.data() + 8, 0x1122334455667788ull);  // log sequence number

  record_header h;
  h.assign(record.data(), record.size());
  EXPECT_EQ(h.usa_offset(), 48u);
  EXPECT_EQ(h.usa_count(), 3u);  // 1024 bytes: the sequence number and two sector tails
  EXPECT_EQ(h.lsn(), 0x1122334455667788ull);
  EXPECT_EQ(h.sequence(), 0x1234u);
  EXPECT_EQ(h.link_count(), 3u);
  EXPECT_EQ(h.first_attrib(), orv::le16(record.data() + 20));
  EXPECT_TRUE(h.in_use() && h.is_directory());
  EXPECT_EQ(h.allocated_size(), 1024u);
  EXPECT_EQ(h.base_ref(), orv::make_ref(0x0102030405ull, 7));
  h.assign(record.data(), 20);  // a buffer shorter than the header leaves the rest zero
  EXPECT_TRUE(h.sequence() == 0x1234u && h.flags() == 0 && h.base_ref() == 0);
}

TEST(RecordHeader, ValidFileRecordLimits) {
  const std::vector<uint8_t> good = testutil::record_builder().build();
  struct change {
    size_t m_offset;
    uint16_t m_value;
    bool m_valid;
  } const changes[] = {
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
