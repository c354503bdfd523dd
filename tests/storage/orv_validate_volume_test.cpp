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
  const bytes disk = diskimg::mbr_disk();
  const bytes bare(disk.begin() + 256 * 512, disk.begin() + 384 * 512);  // the first NTFS volume alone
  auto cut = [](bytes b, size_t size) { return b.resize(size), b; };
  // The offset given, then what validate_volume gives: its result, found, the offset and the messages.
  struct validate_case { const char* what; bytes image; uint64_t offset; bool result, found; uint64_t offset_out;
                         std::string text; } const cases[] = {
      // (Against mmls through the binary: integration/cli_test.cpp.) The walk stops at the matching row.
      {"FAT row", disk, 0x10000, false, false, 0x10000,
       "volume offset selected 0x10000 is not a NTFS partition, but [fat32]\n" + k_listing +
           "prob detecting ntfs partition\n"},
      // Nothing matches: all rows are listed, the LAST NTFS row is suggested.
      {"between rows", disk, 0x20200, false, true, 0x40000, k_listing + "use option [-offset 0x40000]\n"},
      // Cut before the last volume starts: its row is still listed, with the bounds text first.
      {"cut before", cut(disk, 400 * 512), 0, false, true, 0x40000,
       "volume offset 0x40000 is not within image bounds\n" + k_listing + "use option [-offset 0x40000]\n"},
      {"bare volume cut short", cut(bare, 32 * 512), 0, false, true, 0, "volume offset 0x0" + k_cut},
      {"blank", bytes(64 * 512), 0, false, false, 0, "couldn't find any partitions on disk\n"},
      {"linux only: listed, nothing to suggest", table_only(false), 0, false, false, 0,
       "\nvolume offset [ 0x1000 ] : linux\n\nprob detecting ntfs partition\n"},
      {"wiped first sector", table_only(true), 0x1000, true, true, 0x1000,
       "disk is corrupted, partition info questionable\n"},
  };
  for (const validate_case& c : cases) {
    diskimg::image_file f(c.image);
    std::ostringstream messages;
    bool found = !c.found;
    uint64_t offset = c.offset;
    EXPECT_EQ(validate_volume(messages, found, offset, f.m_disk, false), c.result) << c.what;
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
