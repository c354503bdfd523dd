#include "storage/orv_validate_volume.h"
#include "tests/storage/orv_disk_image.h"

#include <gtest/gtest.h>

#include "storage/orv_disk_structs.h"

namespace {

using diskimg::bytes;

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

bytes bare_ntfs() {
  bytes b(64 * 512);
  diskimg::ntfs_boot(b, 0, 512, 8, 64, 7);
  return b;
}

// A protective MBR whose GPT holds no entries.
bytes empty_gpt() {
  bytes b(64 * 512);
  diskimg::mbr_entry(b, 0, 0, 0xEE, 1, 63);
  diskimg::boot_signature(b, 510);
  diskimg::gpt_header(b, 512, 1, 2, 128, 128);
  return b;
}

// First sector wiped: only a forced scan finds the boot record at sector 4.
bytes wiped_first_sector() {
  bytes b(64 * 512);
  diskimg::mbr_entry(b, 4 * 512, 0, 0x07, 4, 40);
  diskimg::boot_signature(b, 4 * 512 + 510);
  diskimg::ntfs_boot(b, 8 * 512, 512, 8, 40, 1);
  return b;
}

bytes linux_only() {
  bytes b(64 * 512);
  diskimg::mbr_entry(b, 0, 0, 0x83, 8, 40);
  diskimg::boot_signature(b, 510);
  return b;
}

bytes four_kib_sectors() {
  bytes b(64 * 4096);
  diskimg::mbr_entry(b, 0, 0, 0x07, 16, 48);
  diskimg::boot_signature(b, 4094);
  diskimg::ntfs_boot(b, 16 * 4096, 4096, 1, 48, 9);
  return b;
}

bytes cut(bytes b, size_t size) {
  b.resize(size);
  return b;
}

const std::string k_listing =
    "\n"
    "volume offset [ 0x10000 ] : fat32\n"
    "volume offset [ 0x20000 ] : ntfs or exfat\n"
    "volume offset [ 0x40000 ] : ntfs or exfat\n"
    "\n";
const std::string k_no_partitions = "couldn't find any partitions on disk\n";

}  // namespace

TEST(ValidateVolume, OffsetsMessagesAndSuggestions) {
  const bytes disk = fat_and_two_ntfs();
  struct validate_case {
    const char* m_what;
    bytes m_image;
    uint64_t m_offset;
    bool m_ignore_size, m_result, m_found;
    uint64_t m_offset_out;
    std::string m_text;
  } const cases[] = {
      // No offset given: nothing matches 0, all rows are listed, the LAST NTFS row is suggested.
      {"no offset", disk, 0, false, false, true, 0x40000, k_listing + "use option [-offset 0x40000]\n"},
      // The walk stops at the matching row, before any NTFS row.
      {"FAT row", disk, 0x10000, false, false, false, 0x10000,
       "volume offset selected 0x10000 is not a NTFS partition, but [fat32]\n" + k_listing +
           "prob detecting ntfs partition\n"},
      {"first NTFS row", disk, 0x20000, false, true, true, 0x20000, ""},
      {"second NTFS row", disk, 0x40000, false, true, true, 0x40000, ""},
      {"between rows", disk, 0x20200, false, false, true, 0x40000, k_listing + "use option [-offset 0x40000]\n"},
      {"past the image", disk, 0x123456789ab, false, false, false, 0x123456789ab,
       "volume offset 0x123456789ab is not within image bounds\n"},
      // Cut short inside the last volume: refused unless told to ignore the size.
      {"cut inside", cut(disk, 600 * 512), 0x40000, false, false, true, 0x40000,
       "volume offset 0x40000 is a NTFS partition, however image size does not encapsulate entire volume\n"},
      {"cut inside, size ignored", cut(disk, 600 * 512), 0x40000, true, true, true, 0x40000, ""},
      // Cut before the last volume starts: its row is still listed, with the bounds text first.
      {"cut before", cut(disk, 400 * 512), 0, false, false, true, 0x40000,
       "volume offset 0x40000 is not within image bounds\n" + k_listing + "use option [-offset 0x40000]\n"},
      {"bare volume", bare_ntfs(), 0, false, true, true, 0, ""},
      {"bare volume cut short", cut(bare_ntfs(), 32 * 512), 0, false, false, true, 0,
       "volume offset 0x0 is a NTFS partition, however image size does not encapsulate entire volume\n"},
      {"blank", bytes(64 * 512), 0, false, false, false, 0, k_no_partitions},
      {"empty GPT", empty_gpt(), 0, false, false, false, 0, k_no_partitions},
      {"wiped first sector", wiped_first_sector(), 0x1000, false, true, true, 0x1000,
       "disk is corrupted, partition info questionable\n"},
      {"linux only: listed, nothing to suggest", linux_only(), 0, false, false, false, 0,
       "\nvolume offset [ 0x1000 ] : linux\n\nprob detecting ntfs partition\n"},
      {"4K sectors, no offset", four_kib_sectors(), 0, false, false, true, 0x10000,
       "\nvolume offset [ 0x10000 ] : ntfs or exfat\n\nuse option [-offset 0x10000]\n"},
      {"4K sectors", four_kib_sectors(), 0x10000, false, true, true, 0x10000, ""},
      {"4K sectors, one sector short", cut(four_kib_sectors(), 63 * 4096), 0x10000, false, false, true, 0x10000,
       "volume offset 0x10000 is a NTFS partition, however image size does not encapsulate entire volume\n"},
  };
  for (const validate_case& c : cases) {
    SCOPED_TRACE(c.m_what);
    diskimg::image_file f(c.m_image);
    std::ostringstream messages;
    bool found = !c.m_found;
    uint64_t offset = c.m_offset;
    EXPECT_EQ(validate_volume(messages, found, offset, f.m_disk, c.m_ignore_size), c.m_result);
    EXPECT_EQ(found, c.m_found);
    EXPECT_EQ(offset, c.m_offset_out);
    EXPECT_EQ(messages.str(), c.m_text);
  }

  RAW_DISK_IO closed;
  std::ostringstream messages;
  bool found = true;
  uint64_t offset = 0;
  EXPECT_FALSE(validate_volume(messages, found, offset, closed, false));
  EXPECT_FALSE(found);
  EXPECT_EQ(messages.str(), "");
}
