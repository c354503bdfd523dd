#include "tests/storage/orv_disk_image.h"

#include <gtest/gtest.h>

#include <tuple>

#include "storage/orv_disk_structs.h"

namespace {

using diskimg::bytes;
// Offset in 512-byte units, sectors, type, name as listed.
using row = std::tuple<uint64_t, uint64_t, int, std::string>;

std::vector<row> rows(const bytes& image, bool ok = true, bool force = false) {
  diskimg::image_file f(image);
  partition_list list(3);  // discovery clears what was there
  EXPECT_EQ(read_partitions(f.m_disk, list, force, false), ok);
  std::vector<row> out;
  for (const partition_record& r : list)
    out.emplace_back(r.byte_offset() / 512, r.m_sector_count, r.m_type, partition_row_name(r));
  return out;
}

// Primary NTFS at 128, extended at 256, logical records 256 -> 456 -> 556 (plain entries are
// relative to their own record, links to 256); the last one may link back to 456.
bytes extended_chain(bool loop) {
  bytes b(1024 * 512);
  diskimg::mbr_entry(b, 0, 0, 0x07, 128, 64);
  diskimg::mbr_entry(b, 0, 1, 0x0F, 256, 700);
  diskimg::mbr_entry(b, 0, 2, 0x83, 900, 10);  // after the extended entry, behind its chain
  diskimg::ntfs_boot(b, 128 * 512, 512, 63);
  diskimg::mbr_entry(b, 256 * 512, 0, 0x07, 2, 100);
  diskimg::mbr_entry(b, 256 * 512, 1, 0x05, 200, 100);
  diskimg::ntfs_boot(b, 258 * 512, 512, 99);
  diskimg::mbr_entry(b, 456 * 512, 0, 0x0B, 2, 50);
  diskimg::mbr_entry(b, 456 * 512, 1, 0x05, 300, 100);
  diskimg::mbr_entry(b, 556 * 512, 0, 0x83, 2, 10);
  if (loop) diskimg::mbr_entry(b, 556 * 512, 1, 0x05, 200, 100);
  return b;
}

// The lost first volume: nothing in the MBR but the extended entry, an NTFS boot sector at 63.
bytes lost_first_volume() {
  bytes b(600 * 512);
  diskimg::mbr_entry(b, 0, 0, 0x05, 256, 300);
  diskimg::ntfs_boot(b, 63 * 512, 512, 150);
  diskimg::mbr_entry(b, 256 * 512, 0, 0x87, 2, 100);
  return b;
}

// The protective entry in the second slot behind a FAT32 entry, which stays; entries at LBA 2.
// (Disks of 4096-byte sectors: disk4k.img through the binary.)
bytes gpt_disk() {
  bytes b(400 * 512);
  diskimg::mbr_entry(b, 0, 0, 0x0C, 300, 50);
  diskimg::mbr_entry(b, 0, 1, 0xEE, 1, 399);
  diskimg::gpt_header(b, 512, 1, 2, 128, 128);
  diskimg::gpt_entry(b, 2 * 512, 64, 127);
  diskimg::gpt_entry(b, 2 * 512 + 2 * 128, 200, 203);
  diskimg::ntfs_boot(b, 64 * 512, 512, 63);
  return b;
}

TEST(Partitions, LayoutsGiveTheirRows) {
  bytes tiny(100);  // shorter than a sector: still classified from what is there
  diskimg::put_text(tiny, 3, "NTFS    ");
  std::vector<row> chain = {{128, 64, 7, "ntfs or exfat"}, {256, 700, 0x0F, "exten"}, {258, 100, 7, "ntfs or exfat"},
                            {456, 100, 5, "exten"},        {458, 50, 0x0B, "fat32"},  {556, 100, 5, "exten"},
                            {558, 10, 0x83, "linux"}},
                   loop = chain;
  loop.push_back({456, 100, 5, "exten"});  // the chain stops where it comes back
  chain.push_back({900, 10, 0x83, "linux"});
  loop.push_back({900, 10, 0x83, "linux"});
  struct layout_case { const char* what; bytes image; std::vector<row> rows; } const cases[] = {
      // The MBR's sector count stands over the boot sector's.
      {"MBR", diskimg::mbr_disk(),
       {{128, 128, 0x0C, "fat32"}, {256, 128, 7, "ntfs or exfat"}, {512, 128, 7, "ntfs or exfat"}}},
      {"extended chain", extended_chain(false), chain},
      {"looping extended chain", extended_chain(true), loop},
      {"lost first volume", lost_first_volume(), {{63, 193, 7, "ntfs or exfat"}, {256, 300, 5, "exten"},
                                                  {258, 100, 0x87, "ntfs volume set"}}},
      {"GPT", gpt_disk(), {{300, 50, 0x0C, "fat32"}, {64, 64, 7, "ntfs or exfat"}, {200, 4, 0xEE, "gpt"}}},
      {"tiny NTFS", tiny, {{0, 0, 7, "ntfs or exfat"}}},
  };
  for (const layout_case& c : cases) EXPECT_EQ(rows(c.image), c.rows) << c.what;

  diskimg::image_file f(diskimg::mbr_disk());
  EXPECT_TRUE(volume_at(f.m_disk, 256 * 512) && !volume_at(f.m_disk, 128 * 512));
}

TEST(Partitions, DamagedGptHeadersEndQuickly) {
  struct variant { const char* what; uint64_t my_lba, entry_lba; uint32_t count, size; } const cases[] = {
      {"MyLBA not 1", 2, 2, 128, 128},          {"no entries", 1, 2, 0, 128},
      {"entry size 0, 4 billion entries", 1, 2, 0xFFFFFFFF, 0}, {"4 billion entries", 1, 2, 0xFFFFFFFF, 128},
      {"huge entry size", 1, 2, 4, 0x80000000}, {"entry array past the end", 1, 1000, 4, 128},
      {"entry array offset that overflows", 1, 0x7FFFFFFFFFFFFFFull, 4, 128},
  };
  bytes b(64 * 512);
  diskimg::mbr_entry(b, 0, 0, 0xEE, 1, 63);
  for (const variant& v : cases) {
    diskimg::gpt_header(b, 512, v.my_lba, v.entry_lba, v.count, v.size);
    EXPECT_TRUE(rows(b, false, true).empty()) << v.what;
  }
  // A last LBA far past the image is taken as it stands; a first LBA past it fails the read.
  diskimg::gpt_header(b, 512, 1, 2, 4, 128);
  diskimg::gpt_entry(b, 1024, 10, 1000000);
  EXPECT_EQ(std::get<1>(rows(b).at(0)), 1000000u - 10 + 1);
  diskimg::gpt_entry(b, 1024 + 128, 5000, 5001);
  rows(b, false);
}

// What a row takes from a volume's first bytes (type, sectors, their size, sectors per cluster)
// for kinds the layouts lack; damaged sizes size nothing.
TEST(Partitions, VolumeGuess) {
  auto guess = [](const bytes& b, size_t length) {
    partition_record r;
    guess_volume(r, b.data(), length);
    return std::make_tuple(r.m_type, r.m_sector_count, r.m_sector_size, r.m_sectors_per_cluster);
  };
  using guessed = std::tuple<uint16_t, uint64_t, uint32_t, uint32_t>;
  bytes exfat(512), hfs(2048), ext(2048);
  EXPECT_EQ(guess(exfat, 511), guessed(0, 0, 512, 0));  // too short: nothing
  diskimg::put_text(exfat, 3, "EXFAT   ");
  exfat[108] = 12, exfat[109] = 3;
  orv::put_le64(exfat.data() + 72, 5000);
  EXPECT_EQ(guess(exfat, 512), guessed(7, 5000, 4096, 8));  // type 7: "ntfs or exfat"
  exfat[108] = 200, exfat[109] = 255;
  EXPECT_EQ(guess(exfat, 512), guessed(7, 5000, 0, 0));
  orv::put_le16(hfs.data() + 1024, 0x2B48);
  EXPECT_EQ(guess(hfs, 512), guessed(0, 0, 512, 0));  // needs 2048 bytes
  EXPECT_EQ(guess(hfs, 2048), guessed(175, 0, 512, 0));
  orv::put_le32(ext.data() + 1028, 0xFFFFFFFF);  // the block count and the log of the block size
  orv::put_le32(ext.data() + 1048, 0xFFFFFFFF);
  orv::put_le16(ext.data() + 1080, 0xEF53);
  EXPECT_EQ(guess(ext, 2048), guessed(131, 0, 512, 0));
  // NTFS keeps clusters of 128 KiB and more as a power of two: 0xF4 is 2^12 sectors.
  const std::pair<uint8_t, uint32_t> powers[] = {{8, 8}, {0x80, 128}, {0xF4, 4096}, {0xF0, 65536}, {0x81, 0}};
  for (const auto& p : powers) EXPECT_EQ(ntfs_sectors_per_cluster(p.first), p.second) << int(p.first);
}

}  // namespace
