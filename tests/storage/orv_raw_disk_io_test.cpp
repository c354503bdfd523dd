#include "tests/storage/orv_disk_image.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace {

// Reads {length asked, offset, result, length back, bytes matching}; a short read leaves the rest
// of the buffer alone. A file is clamped at its end; a drive (read in whole sectors) is not: past
// the end it comes back short with its length kept.
TEST(RawDiskIo, ReadsOfFilesAndOfDrives) {
  diskimg::bytes image(4096);
  for (size_t i = 0; i < image.size(); ++i) image[i] = uint8_t(i * 7 + (i >> 8));
  diskimg::image_file f(image);
  RAW_DISK_IO& d = f.m_disk;
  ASSERT_TRUE(d.is_open() && d.m_kind == RAW_KIND_FILE && d.size() == 4096u && d.m_writable == 0);
  const std::vector<std::array<uint64_t, 5>> file_reads = {
      {100, 1000, 1, 100, 100}, {200, 4046, 1, 50, 50}, {1, 4095, 1, 1, 1},
      {10, 4096, 0}, {10, 1ull << 40, 0}, {0, 0, 0}};
  const std::vector<std::array<uint64_t, 5>> drive_reads = {
      {1, 1000, 1, 1, 1}, {1024, 512, 1, 1024, 1024}, {700, 300, 1, 700, 700}, {1000, 3900, 1, 1000, 196},
      {16, 4096, 0}};
  for (const auto* reads : {&file_reads, &drive_reads}) {
    if (reads == &drive_reads) d.m_kind = RAW_KIND_DISK;  // the sector-aligned path, through the same descriptor
    for (const auto& r : *reads) {
      std::vector<uint8_t> buf(1536, 0xCC);
      uint32_t len = uint32_t(r[0]);
      ASSERT_EQ(d.read(buf.data(), len, r[1]), r[2] != 0) << r[1];
      if (!r[2]) continue;
      EXPECT_EQ(len, r[3]) << r[1];
      EXPECT_EQ(0, memcmp(buf.data(), image.data() + r[1], r[4])) << r[1];
      EXPECT_TRUE(len == r[0] || buf[len] == 0xCC) << r[1];
    }
  }
  uint32_t len = 10;
  EXPECT_FALSE(d.read(nullptr, len, 0));
  d.close();
  uint8_t buf[10];
  EXPECT_FALSE(d.is_open() || d.size() != 0 || d.read(buf, len, 0));
}

TEST(RawDiskIo, OpenRefusals) {
  std::string dir = testutil::make_temp_dir("rawio");
  RAW_DISK_IO d;
  EXPECT_FALSE(d.open_path(L"", false, 0) || d.open_path(orv::to_wide(dir + "/missing"), false, 0));
  // A FIFO without a writer must neither hang the open nor be accepted.
  ASSERT_EQ(0, mkfifo((dir + "/fifo").c_str(), 0600));
  EXPECT_FALSE(d.open_path(orv::to_wide(dir + "/fifo"), false, 0) || d.is_open());
  // Kinds 1..3 with a path read as a file; anything else refuses.
  testutil::write_file(dir + "/plain", diskimg::bytes(600));
  EXPECT_FALSE(d.open_path(orv::to_wide(dir + "/plain"), false, RAW_KIND_VMDK));
  ASSERT_TRUE(d.open_path(orv::to_wide(dir + "/plain"), false, 3));
  EXPECT_TRUE(d.m_kind == RAW_KIND_FILE && d.m_path_utf8 == dir + "/plain");
  // An empty file and a directory open, and fail every read.
  testutil::write_file(dir + "/empty", {});
  uint8_t buf[16];
  for (const std::string& p : {dir + "/empty", dir}) {
    uint32_t len = 16;
    ASSERT_TRUE(d.open_path(orv::to_wide(p), false, 0)) << p;
    EXPECT_FALSE(d.read(buf, len, 0)) << p;
  }
  d.close();
  testutil::run_shell("rm -rf " + testutil::shell_quote(dir));

  // Drive numbers past the letter table fail without trying a device; a missing one says so.
  testing::internal::CaptureStderr();
  EXPECT_FALSE(d.open_disk(25, false) || d.open_disk(20, false) || d.open_disk(24, false));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  struct stat st;
  if (stat("/dev/sdt", &st) == 0) GTEST_SKIP() << "/dev/sdt exists here";
  testing::internal::CaptureStderr();
  EXPECT_FALSE(d.open_disk(19, false));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "prob opening /dev/sdt, error 2\n");
}

}  // namespace
