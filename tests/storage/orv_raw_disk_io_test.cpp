#include "tests/storage/orv_disk_image.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "storage/orv_raw_disk_io.h"

namespace {

diskimg::bytes pattern(size_t size) {
  diskimg::bytes b(size);
  for (size_t i = 0; i < size; ++i) b[i] = uint8_t(i * 7 + (i >> 8));
  return b;
}

struct read_case {
  uint32_t m_length;
  uint64_t m_offset;
  bool m_ok;
  uint32_t m_length_out, m_bytes_checked;
};

// Each read on a fresh 0xCC buffer: the bytes checked match the image; a shortened read leaves
// the rest of the buffer untouched.
void check_reads(RAW_DISK_IO& d, const diskimg::bytes& image, std::initializer_list<read_case> cases) {
  for (const read_case& c : cases) {
    uint8_t buf[1536];
    memset(buf, 0xCC, sizeof(buf));
    uint32_t len = c.m_length;
    EXPECT_EQ(d.read(buf, len, c.m_offset), c.m_ok) << c.m_offset;
    if (!c.m_ok) continue;
    EXPECT_EQ(len, c.m_length_out) << c.m_offset;
    EXPECT_EQ(0, memcmp(buf, image.data() + c.m_offset, c.m_bytes_checked)) << c.m_offset;
    if (c.m_length_out < c.m_length) {
      EXPECT_EQ(buf[c.m_length_out], 0xCC) << c.m_offset;
    }
  }
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
  // Straddling the end: true, the length reduced. At or past the size, or nothing asked: false.
  check_reads(d, image, {{100, 1000, true, 100, 100}, {200, 2950, true, 50, 50}, {1, 2999, true, 1, 1},
                         {10, 3000, false, 0, 0}, {10, 1ull << 40, false, 0, 0}, {0, 0, false, 0, 0}});
  uint32_t len = 10;
  EXPECT_FALSE(d.read(nullptr, len, 0));

  d.close();
  EXPECT_FALSE(d.is_open());
  EXPECT_EQ(d.size(), 0u);
  uint8_t buf[10];
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
  check_reads(d, image, {
                            {1, 1000, true, 1, 1},         // inside sector 1
                            {1024, 512, true, 1024, 1024},  // aligned at both ends
                            {700, 300, true, 700, 700},     // spans three sectors
                            // No clamp on a device: the request runs past the end and comes back
                            // short, length kept.
                            {1000, 3900, true, 1000, 196},
                            {16, 4096, false, 0, 0},
                        });
  d.m_closed_for_reads = 1;
  check_reads(d, image, {{16, 0, false, 0, 0}});
}

}  // namespace
