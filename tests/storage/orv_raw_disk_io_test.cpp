#include "tests/storage/orv_disk_image.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "storage/raw_disk_io.h"

namespace {

diskimg::bytes pattern(size_t size) {
  diskimg::bytes b(size);
  for (size_t i = 0; i < size; ++i) b[i] = uint8_t(i * 7 + (i >> 8));
  return b;
}

TEST(RawDiskIo, FileReadsClampAtTheEnd) {
  diskimg::bytes image = pattern(3000);
  diskimg::image_file f(image);
  RAW_DISK_IO& d = f.m_disk;
  ASSERT_TRUE(d.is_open());
  EXPECT_EQ(d.m_kind, uint32_t(RAW_KIND_FILE));
  EXPECT_EQ(d.size(), 3000u);
  EXPECT_EQ(d.m_bytes_per_sector, 512u);
  EXPECT_EQ(d.m_writable, 0);

  uint8_t buf[200];
  uint32_t len = 100;
  ASSERT_TRUE(d.read(buf, len, 1000));
  EXPECT_EQ(len, 100u);
  EXPECT_EQ(0, memcmp(buf, image.data() + 1000, 100));

  // Straddling the end: true, the length reduced, the rest of the buffer untouched.
  memset(buf, 0xCC, sizeof(buf));
  len = 200;
  ASSERT_TRUE(d.read(buf, len, 2950));
  EXPECT_EQ(len, 50u);
  EXPECT_EQ(0, memcmp(buf, image.data() + 2950, 50));
  EXPECT_EQ(buf[50], 0xCC);

  len = 1;
  ASSERT_TRUE(d.read(buf, len, 2999));
  EXPECT_EQ(buf[0], image[2999]);

  len = 10;
  EXPECT_FALSE(d.read(buf, len, 3000));  // at the size
  EXPECT_FALSE(d.read(buf, len, 1ull << 40));
  len = 0;
  EXPECT_FALSE(d.read(buf, len, 0));
  len = 10;
  EXPECT_FALSE(d.read(nullptr, len, 0));

  d.close();
  EXPECT_FALSE(d.is_open());
  EXPECT_EQ(d.size(), 0u);
  EXPECT_FALSE(d.read(buf, len, 0));
}

TEST(RawDiskIo, OpenRefusals) {
  std::string dir = testutil::make_temp_dir("rawio");
  RAW_DISK_IO d;
  EXPECT_FALSE(d.open_path(L"", false, 0));
  EXPECT_FALSE(d.open_path(orv::to_wide(dir + "/missing"), false, 0));

  // A FIFO without a writer must neither hang the open nor be accepted.
  std::string fifo = dir + "/fifo";
  ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
  EXPECT_FALSE(d.open_path(orv::to_wide(fifo), false, 0));
  EXPECT_FALSE(d.is_open());

  // Kinds 1..3 with a path read as a file; anything else refuses.
  std::string file = dir + "/plain";
  testutil::write_file(file, pattern(600));
  EXPECT_FALSE(d.open_path(orv::to_wide(file), false, RAW_KIND_VMDK));
  ASSERT_TRUE(d.open_path(orv::to_wide(file), false, 3));
  EXPECT_EQ(d.m_kind, uint32_t(RAW_KIND_FILE));
  EXPECT_EQ(d.m_path_utf8, file);

  // An empty file opens and fails every read.
  std::string empty = dir + "/empty";
  testutil::write_file(empty, {});
  ASSERT_TRUE(d.open_path(orv::to_wide(empty), false, 0));
  uint8_t buf[16];
  uint32_t len = 1;
  EXPECT_FALSE(d.read(buf, len, 0));

  // A directory opens and then fails on its first read.
  ASSERT_TRUE(d.open_path(orv::to_wide(dir), false, 0));
  len = 16;
  EXPECT_FALSE(d.read(buf, len, 0));
  d.close();

  unlink(fifo.c_str());
  unlink(file.c_str());
  unlink(empty.c_str());
  rmdir(dir.c_str());
}

TEST(RawDiskIo, DriveNumbers) {
  RAW_DISK_IO d;
  testing::internal::CaptureStderr();
  EXPECT_FALSE(d.open_disk(25, false));
  EXPECT_FALSE(d.open_disk(20, false));  // past the letter table: no device is tried
  EXPECT_FALSE(d.open_disk(24, false));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");

  struct stat st;
  if (stat("/dev/sdt", &st) == 0) GTEST_SKIP() << "/dev/sdt exists here";
  testing::internal::CaptureStderr();
  EXPECT_FALSE(d.open_disk(19, false));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "prob opening /dev/sdt, error 2\n");
  EXPECT_FALSE(d.is_open());
}

// The sector-aligned path of drives, driven through a file descriptor.
TEST(RawDiskIo, SectorAlignedReads) {
  diskimg::bytes image = pattern(4096);
  diskimg::image_file f(image);
  RAW_DISK_IO& d = f.m_disk;
  ASSERT_TRUE(d.is_open());
  d.m_kind = RAW_KIND_DISK;

  // 1 byte at 1000 lies in sector 1, its 489th byte.
  uint8_t one = 0;
  uint32_t len = 1;
  ASSERT_TRUE(d.read(&one, len, 1000));
  EXPECT_EQ(one, image[512 + 488]);

  uint8_t buf[1536];
  len = 1024;
  ASSERT_TRUE(d.read(buf, len, 512));  // aligned at both ends
  EXPECT_EQ(0, memcmp(buf, image.data() + 512, 1024));

  len = 700;
  ASSERT_TRUE(d.read(buf, len, 300));  // spans three sectors
  EXPECT_EQ(len, 700u);
  EXPECT_EQ(0, memcmp(buf, image.data() + 300, 700));

  // No clamp on a device: the request runs past the end and comes back short, length kept.
  memset(buf, 0xCC, sizeof(buf));
  len = 1000;
  ASSERT_TRUE(d.read(buf, len, 3900));
  EXPECT_EQ(len, 1000u);
  EXPECT_EQ(0, memcmp(buf, image.data() + 3900, 196));

  len = 16;
  EXPECT_FALSE(d.read(buf, len, 4096));
  d.m_closed_for_reads = 1;
  EXPECT_FALSE(d.read(buf, len, 0));
}

}  // namespace
