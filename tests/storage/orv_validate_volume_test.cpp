#include "storage/orv_validate_volume.h"
#include "tests/storage/orv_disk_image.h"

#include <gtest/gtest.h>

namespace {

using diskimg::bytes;

// Blank but for a partition table: a Linux partition, or an NTFS one in a table at sector 4 (its
// first sector wiped) that only a forced scan finds.
bytes table_only(bool wiped) {
  bytes b(64 * 512);
  if (!wiped) diskimg::mbr_entry(b, 0, 0, 0x83, 8, 40);
  if (wiped) diskimg::mbr_entry(b, 4 * 512, 0, 0x07, 4, 40), diskimg::ntfs_boot(b, 8 * 512, 512, 40);
  return b;
}

const std::string k_listing =
    "\nvolume offset [ 0x10000 ] : fat32\nvolume offset [ 0x20000 ] : ntfs or exfat\n"
    "volume offset [ 0x40000 ] : ntfs or exfat\n\n";
const std::string k_cut = " is a NTFS partition, however image size does not encapsulate entire volume\n";

}  // namespace

TEST(ValidateVolume, OffsetsMessagesAndSuggestions) {
  const bytes disk = diskimg::mbr_disk(), four_kib = diskimg::four_kib_disk();
  const bytes bare(disk.begin() + 256 * 512, disk.begin() + 384 * 512);  // the first NTFS volume alone
  auto cut = [](bytes b, size_t size) { return b.resize(size), b; };
  struct validate_case {
    const char* what;
    bytes image;
    uint64_t offset;
    bool ignore_size, result, found;  // result and found: what validate_volume gives
    uint64_t offset_out;
    std::string text;
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
      {"cut inside", cut(disk, 600 * 512), 0x40000, false, false, true, 0x40000, "volume offset 0x40000" + k_cut},
      {"cut inside, size ignored", cut(disk, 600 * 512), 0x40000, true, true, true, 0x40000, ""},
      // Cut before the last volume starts: its row is still listed, with the bounds text first.
      {"cut before", cut(disk, 400 * 512), 0, false, false, true, 0x40000,
       "volume offset 0x40000 is not within image bounds\n" + k_listing + "use option [-offset 0x40000]\n"},
      {"bare volume", bare, 0, false, true, true, 0, ""},
      {"bare volume cut short", cut(bare, 32 * 512), 0, false, false, true, 0,
       "volume offset 0x0" + k_cut},
      {"blank", bytes(64 * 512), 0, false, false, false, 0, "couldn't find any partitions on disk\n"},
      {"linux only: listed, nothing to suggest", table_only(false), 0, false, false, false, 0,
       "\nvolume offset [ 0x1000 ] : linux\n\nprob detecting ntfs partition\n"},
      {"wiped first sector", table_only(true), 0x1000, false, true, true, 0x1000,
       "disk is corrupted, partition info questionable\n"},
      {"4K sectors, no offset", four_kib, 0, false, false, true, 0x10000,
       "\nvolume offset [ 0x8000 ] : linux\nvolume offset [ 0x10000 ] : ntfs or exfat\n\n"
       "use option [-offset 0x10000]\n"},
      {"4K sectors, one sector short", cut(four_kib, 63 * 4096), 0x10000, false, false, true, 0x10000,
       "volume offset 0x10000" + k_cut},
  };
  for (const validate_case& c : cases) {
    diskimg::image_file f(c.image);
    std::ostringstream messages;
    bool found = !c.found;
    uint64_t offset = c.offset;
    EXPECT_EQ(validate_volume(messages, found, offset, f.m_disk, c.ignore_size), c.result) << c.what;
    EXPECT_TRUE(found == c.found && offset == c.offset_out) << c.what;
    EXPECT_EQ(messages.str(), c.text) << c.what;
  }
  RAW_DISK_IO closed;
  std::ostringstream messages;
  bool found = true;
  uint64_t offset = 0;
  EXPECT_FALSE(validate_volume(messages, found, offset, closed, false) || found);
  EXPECT_EQ(messages.str(), "");
}
