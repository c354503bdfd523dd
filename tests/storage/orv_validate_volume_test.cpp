#include "tests/storage/orv_disk_image.h"

#include <gtest/gtest.h>

#include "storage/orv_disk_structs.h"

namespace {

using diskimg::bytes;

struct outcome {
  bool m_result = false;
  bool m_found = false;
  uint64_t m_offset = 0;
  std::string m_text;
};

outcome validate(const bytes& image, uint64_t offset, bool ignore_image_size = false) {
  diskimg::image_file f(image);
  outcome o;
  std::ostringstream messages;
  o.m_offset = offset;
  o.m_result = validate_volume(messages, o.m_found, o.m_offset, f.m_disk, ignore_image_size);
  o.m_text = messages.str();
  return o;
}

// MBR: FAT32 at sector 128, NTFS at 256 and NTFS at 512 (each 128 sectors); 640 sectors in all.
bytes fat_and_two_ntfs() {
  bytes b(640 * 512);
  diskimg::mbr_entry(b, 0, 0, 0x0C, 128, 128);
  diskimg::mbr_entry(b, 0, 1, 0x07, 256, 128);
  diskimg::mbr_entry(b, 0, 2, 0x07, 512, 128);
  diskimg::boot_signature(b, 510);
  diskimg::fat32_boot(b, 128 * 512, 128, 1);
  diskimg::ntfs_boot(b, 256 * 512, 512, 8, 127, 2);
  diskimg::ntfs_boot(b, 512 * 512, 512, 8, 127, 3);
  return b;
}

const char* const LISTING =
    "\n"
    "volume offset [ 0x10000 ] : fat32\n"
    "volume offset [ 0x20000 ] : ntfs or exfat\n"
    "volume offset [ 0x40000 ] : ntfs or exfat\n"
    "\n";

TEST(ValidateVolume, PartitionedDiskNeedsAnOffset) {
  bytes image = fat_and_two_ntfs();

  // No offset given: nothing matches 0, all rows are listed, the LAST NTFS row is suggested.
  outcome o = validate(image, 0);
  EXPECT_FALSE(o.m_result);
  EXPECT_TRUE(o.m_found);
  EXPECT_EQ(o.m_offset, 0x40000u);
  EXPECT_EQ(o.m_text, std::string(LISTING) + "use option [-offset 0x40000]\n");

  o = validate(image, 0x10000);
  EXPECT_FALSE(o.m_result);
  EXPECT_FALSE(o.m_found);  // the walk stops at the matching row, before any NTFS row
  EXPECT_EQ(o.m_offset, 0x10000u);
  EXPECT_EQ(o.m_text, "volume offset selected 0x10000 is not a NTFS partition, but [fat32]\n" + std::string(LISTING) +
                          "prob detecting ntfs partition\n");

  for (uint64_t at : {uint64_t(0x20000), uint64_t(0x40000)}) {
    o = validate(image, at);
    EXPECT_TRUE(o.m_result);
    EXPECT_TRUE(o.m_found);
    EXPECT_EQ(o.m_offset, at);
    EXPECT_EQ(o.m_text, "");
  }

  // An offset between rows matches nothing.
  o = validate(image, 0x20200);
  EXPECT_FALSE(o.m_result);
  EXPECT_EQ(o.m_offset, 0x40000u);
}

TEST(ValidateVolume, ImageBounds) {
  bytes image = fat_and_two_ntfs();
  outcome o = validate(image, 0x123456789abull);
  EXPECT_FALSE(o.m_result);
  EXPECT_FALSE(o.m_found);
  EXPECT_EQ(o.m_text, "volume offset 0x123456789ab is not within image bounds\n");

  // Cut short inside the last volume: the rule refuses it unless told to ignore the size.
  image.resize(600 * 512);
  o = validate(image, 0x40000);
  EXPECT_FALSE(o.m_result);
  EXPECT_TRUE(o.m_found);
  EXPECT_EQ(o.m_text, "volume offset 0x40000 is a NTFS partition, however image size does not encapsulate entire volume\n");
  o = validate(image, 0x40000, true);
  EXPECT_TRUE(o.m_result);
  EXPECT_EQ(o.m_text, "");

  // Cut before the last volume starts: its row is still listed, with the bounds text first.
  image.resize(400 * 512);
  o = validate(image, 0);
  EXPECT_FALSE(o.m_result);
  EXPECT_EQ(o.m_offset, 0x40000u);
  EXPECT_EQ(o.m_text, "volume offset 0x40000 is not within image bounds\n" + std::string(LISTING) +
                          "use option [-offset 0x40000]\n");
}

TEST(ValidateVolume, BareVolumesAndOddLayouts) {
  bytes ntfs(64 * 512);
  diskimg::ntfs_boot(ntfs, 0, 512, 8, 64, 7);
  outcome o = validate(ntfs, 0);
  EXPECT_TRUE(o.m_result);
  EXPECT_TRUE(o.m_found);
  EXPECT_EQ(o.m_text, "");
  ntfs.resize(32 * 512);
  o = validate(ntfs, 0);
  EXPECT_FALSE(o.m_result);
  EXPECT_TRUE(o.m_found);
  EXPECT_EQ(o.m_offset, 0u);

  bytes blank(64 * 512);
  o = validate(blank, 0);
  EXPECT_FALSE(o.m_result);
  EXPECT_EQ(o.m_text, "couldn't find any partitions on disk\n");

  // A protective MBR whose GPT holds no entries.
  bytes gpt(64 * 512);
  diskimg::mbr_entry(gpt, 0, 0, 0xEE, 1, 63);
  diskimg::boot_signature(gpt, 510);
  diskimg::gpt_header(gpt, 512, 1, 2, 128, 128);
  o = validate(gpt, 0);
  EXPECT_FALSE(o.m_result);
  EXPECT_EQ(o.m_text, "couldn't find any partitions on disk\n");

  // First sector wiped: the forced scan finds a boot record further on.
  bytes wiped(64 * 512);
  diskimg::mbr_entry(wiped, 4 * 512, 0, 0x07, 4, 40);
  diskimg::boot_signature(wiped, 4 * 512 + 510);
  diskimg::ntfs_boot(wiped, 8 * 512, 512, 8, 40, 1);
  o = validate(wiped, 0x1000);
  EXPECT_TRUE(o.m_result);
  EXPECT_EQ(o.m_text, "disk is corrupted, partition info questionable\n");

  // Only a Linux partition: listed, nothing to suggest.
  bytes linux_only(64 * 512);
  diskimg::mbr_entry(linux_only, 0, 0, 0x83, 8, 40);
  diskimg::boot_signature(linux_only, 510);
  o = validate(linux_only, 0);
  EXPECT_FALSE(o.m_result);
  EXPECT_FALSE(o.m_found);
  EXPECT_EQ(o.m_text, "\nvolume offset [ 0x1000 ] : linux\n\nprob detecting ntfs partition\n");

  RAW_DISK_IO closed;
  std::ostringstream messages;
  bool found = true;
  uint64_t offset = 0;
  EXPECT_FALSE(validate_volume(messages, found, offset, closed, false));
  EXPECT_FALSE(found);
  EXPECT_EQ(messages.str(), "");
}

TEST(ValidateVolume, FourKibSectorDisk) {
  bytes b(64 * 4096);
  diskimg::mbr_entry(b, 0, 0, 0x07, 16, 48);
  diskimg::boot_signature(b, 4094);
  diskimg::ntfs_boot(b, 16 * 4096, 4096, 1, 48, 9);
  outcome o = validate(b, 0);
  EXPECT_FALSE(o.m_result);
  EXPECT_EQ(o.m_text, "\nvolume offset [ 0x10000 ] : ntfs or exfat\n\nuse option [-offset 0x10000]\n");
  o = validate(b, 0x10000);
  EXPECT_TRUE(o.m_result);
  EXPECT_EQ(o.m_text, "");
  b.resize(63 * 4096);  // one 4096-byte sector short of the volume's end
  o = validate(b, 0x10000);
  EXPECT_FALSE(o.m_result);
}

}  // namespace
