#include "tests/storage/orv_disk_image.h"

#include <gtest/gtest.h>

#include "storage/orv_disk_structs.h"

namespace {

using diskimg::bytes;

// MBR: FAT32 at sector 128 (128 sectors), NTFS at 256 (256 sectors); 512 sectors in all.
bytes fat_then_ntfs() {
  bytes b(512 * 512);
  diskimg::mbr_entry(b, 0, 0, 0x0C, 128, 128);
  diskimg::mbr_entry(b, 0, 1, 0x07, 256, 256);
  diskimg::boot_signature(b, 510);
  diskimg::fat32_boot(b, 128 * 512, 128, 0x11223344);
  diskimg::ntfs_boot(b, 256 * 512, 512, 8, 255, 0xCAFEF00D);
  return b;
}

TEST(Partitions, MbrWithFatThenNtfs) {
  diskimg::image_file f(fat_then_ntfs());
  partition_list list(3);  // discovery clears what was there
  ASSERT_TRUE(read_partitions(f.m_disk, list, false, false));
  ASSERT_EQ(list.size(), 2u);
  EXPECT_EQ(list[0].byte_offset(), 128u * 512);
  EXPECT_EQ(list[0].m_type, 12);
  EXPECT_EQ(list[0].m_sector_count, 128u);
  EXPECT_EQ(list[0].m_serial, 0x11223344u);
  EXPECT_EQ(partition_row_name(list[0]), "fat32");

  EXPECT_EQ(list[1].byte_offset(), 256u * 512);
  EXPECT_EQ(list[1].m_type, 7);
  EXPECT_EQ(list[1].m_type_name, "ntfs");
  EXPECT_EQ(list[1].m_sector_count, 256u);  // the MBR's count stands over the boot sector's
  EXPECT_EQ(list[1].m_sectors_per_cluster, 8u);
  EXPECT_EQ(list[1].m_serial, 0xCAFEF00Du);
  EXPECT_TRUE(list[1].m_volume_found);
  EXPECT_EQ(list[1].m_boot_bytes.size(), 512u);
  EXPECT_TRUE(volume_at(f.m_disk, 256 * 512));
  EXPECT_FALSE(volume_at(f.m_disk, 128 * 512));

  // The same first sector alone, in the buffer form: rows found, volumes out of reach.
  bytes whole = fat_then_ntfs();
  bytes first(whole.begin(), whole.begin() + 512);
  ASSERT_TRUE(read_partitions_buffer(first.data(), first.size(), list, false));
  ASSERT_EQ(list.size(), 2u);
  EXPECT_EQ(list[1].m_start_sector, 256u);
  EXPECT_FALSE(list[1].m_volume_found);
}

// Primary NTFS at 128, extended at 256. Logical records: 256 -> 456 -> 556; plain entries are
// relative to their own record, links relative to 256.
bytes extended_chain(bool loop) {
  bytes b(1024 * 512);
  diskimg::mbr_entry(b, 0, 0, 0x07, 128, 64);
  diskimg::mbr_entry(b, 0, 1, 0x0F, 256, 700);
  diskimg::mbr_entry(b, 0, 2, 0x83, 900, 10);  // after the extended entry: never looked at
  diskimg::boot_signature(b, 510);
  diskimg::ntfs_boot(b, 128 * 512, 512, 8, 63, 1);

  diskimg::mbr_entry(b, 256 * 512, 0, 0x07, 2, 100);
  diskimg::mbr_entry(b, 256 * 512, 1, 0x05, 200, 100);
  diskimg::boot_signature(b, 256 * 512 + 510);
  diskimg::ntfs_boot(b, 258 * 512, 512, 4, 99, 2);

  diskimg::mbr_entry(b, 456 * 512, 0, 0x0B, 2, 50);
  diskimg::mbr_entry(b, 456 * 512, 1, 0x05, 300, 100);
  diskimg::boot_signature(b, 456 * 512 + 510);

  diskimg::mbr_entry(b, 556 * 512, 0, 0x83, 2, 10);
  if (loop) diskimg::mbr_entry(b, 556 * 512, 1, 0x05, 200, 100);  // back to 456
  diskimg::boot_signature(b, 556 * 512 + 510);
  return b;
}

TEST(Partitions, ExtendedChain) {
  for (bool loop : {false, true}) {
    SCOPED_TRACE(loop ? "looping chain" : "plain chain");
    diskimg::image_file f(extended_chain(loop));
    partition_list list;
    ASSERT_TRUE(read_partitions(f.m_disk, list, false, false));
    std::vector<std::pair<uint64_t, uint16_t>> want = {{128, 7},   {256, 0x0F}, {258, 7},   {456, 5},
                                                       {458, 0x0B}, {556, 5},   {558, 0x83}};
    if (loop) want.push_back({456, 5});
    ASSERT_EQ(list.size(), want.size());
    for (size_t i = 0; i < want.size(); ++i) {
      EXPECT_EQ(list[i].m_start_sector, want[i].first) << i;
      EXPECT_EQ(list[i].m_type, want[i].second) << i;
    }
    EXPECT_EQ(list[2].m_type_name, "ntfs");
    EXPECT_EQ(list[2].m_sectors_per_cluster, 4u);
    EXPECT_EQ(partition_row_name(list[1]), "exten");
  }

  // The lost first volume: nothing in the MBR but the extended entry, an NTFS boot sector at 63.
  bytes b(600 * 512);
  diskimg::mbr_entry(b, 0, 0, 0x05, 256, 300);
  diskimg::boot_signature(b, 510);
  diskimg::ntfs_boot(b, 63 * 512, 512, 8, 150, 3);
  diskimg::mbr_entry(b, 256 * 512, 0, 0x87, 2, 100);
  diskimg::boot_signature(b, 256 * 512 + 510);
  diskimg::image_file f(b);
  partition_list list;
  ASSERT_TRUE(read_partitions(f.m_disk, list, false, false));
  ASSERT_EQ(list.size(), 3u);
  EXPECT_EQ(list[0].m_start_sector, 63u);
  EXPECT_EQ(list[0].m_sector_count, 256u - 63);
  EXPECT_TRUE(partition_is_ntfs(list[0]));
  EXPECT_EQ(list[1].m_start_sector, 256u);
  EXPECT_EQ(list[2].m_start_sector, 258u);
  EXPECT_EQ(partition_row_name(list[2]), "ntfs volume set");
}

// Protective MBR entry in the second slot, a FAT32 entry ahead of it; GPT entries at LBA 2.
bytes gpt_disk() {
  bytes b(400 * 512);
  diskimg::mbr_entry(b, 0, 0, 0x0C, 300, 50);
  diskimg::mbr_entry(b, 0, 1, 0xEE, 1, 399);
  diskimg::boot_signature(b, 510);
  diskimg::gpt_header(b, 512, 1, 2, 128, 128);
  diskimg::gpt_entry(b, 1024, 0x10, 64, 127, u"Basic data");
  diskimg::gpt_entry(b, 1024 + 2 * 128, 0x20, 200, 203, u"swap\u00e9");
  diskimg::ntfs_boot(b, 64 * 512, 512, 8, 63, 0xABCD);
  return b;
}

TEST(Partitions, GptBehindAProtectiveEntryInSlotTwo) {
  diskimg::image_file f(gpt_disk());
  partition_list list;
  ASSERT_TRUE(read_partitions(f.m_disk, list, false, false));
  ASSERT_EQ(list.size(), 3u);
  EXPECT_EQ(list[0].m_type, 0x0C);  // kept from the MBR
  EXPECT_FALSE(list[0].m_is_gpt);

  const partition_record& data = list[1];
  EXPECT_TRUE(data.m_is_gpt);
  EXPECT_EQ(data.m_start_sector, 64u);
  EXPECT_EQ(data.m_sector_count, 64u);
  EXPECT_EQ(data.m_type, 7);
  EXPECT_EQ(data.m_gpt_name, "Basic data");
  EXPECT_EQ(data.m_type_guid[0], 0x10);
  EXPECT_EQ(data.m_unique_guid[15], 0xAF);
  EXPECT_EQ(data.m_gpt_attributes, 0x8000000000000001ull);
  EXPECT_EQ(data.m_boot_bytes.size(), 2048u);
  EXPECT_TRUE(partition_is_ntfs(data));

  const partition_record& swap = list[2];
  EXPECT_EQ(swap.m_start_sector, 200u);
  EXPECT_EQ(swap.m_sector_count, 4u);
  EXPECT_EQ(swap.m_boot_bytes.size(), 512u);  // 2048 bytes or less: one sector read
  EXPECT_EQ(swap.m_gpt_name, "swap\xc3\xa9");
  EXPECT_EQ(partition_row_name(swap), "gpt");
  EXPECT_FALSE(partition_is_ntfs(swap));
}

TEST(Partitions, DamagedGptHeadersEndQuickly) {
  struct variant {
    const char* what;
    uint64_t my_lba, entry_lba;
    uint32_t count, size;
  };
  const variant cases[] = {
      {"MyLBA not 1", 2, 2, 128, 128},
      {"no entries", 1, 2, 0, 128},
      {"entry size 0, 4 billion entries", 1, 2, 0xFFFFFFFF, 0},
      {"4 billion entries", 1, 2, 0xFFFFFFFF, 128},
      {"huge entry size", 1, 2, 4, 0x80000000},
      {"entry array past the end", 1, 1000, 4, 128},
      {"entry array offset that overflows", 1, 0x7FFFFFFFFFFFFFFull, 4, 128},
  };
  for (const variant& v : cases) {
    SCOPED_TRACE(v.what);
    bytes b(64 * 512);
    diskimg::mbr_entry(b, 0, 0, 0xEE, 1, 63);
    diskimg::boot_signature(b, 510);
    diskimg::gpt_header(b, 512, v.my_lba, v.entry_lba, v.count, v.size);
    diskimg::image_file f(b);
    partition_list list;
    EXPECT_FALSE(read_partitions(f.m_disk, list, true, false));
    EXPECT_TRUE(list.empty());
  }

  // A last LBA far past the image is taken as it stands; a first LBA past it fails the read.
  bytes b(64 * 512);
  diskimg::mbr_entry(b, 0, 0, 0xEE, 1, 63);
  diskimg::boot_signature(b, 510);
  diskimg::gpt_header(b, 512, 1, 2, 4, 128);
  diskimg::gpt_entry(b, 1024, 0x30, 10, 1000000, u"");
  diskimg::image_file f(b);
  partition_list list;
  ASSERT_TRUE(read_partitions(f.m_disk, list, false, false));
  EXPECT_EQ(list[0].m_sector_count, 1000000u - 10 + 1);
  diskimg::gpt_entry(b, 1024 + 128, 0x40, 5000, 5001, u"");
  diskimg::image_file g(b);
  EXPECT_FALSE(read_partitions(g.m_disk, list, false, false));
}

// An ext volume in a partition of a 4096-byte-sector disk: the volume's own sector size (512)
// must not replace the disk's in the row's offset.
TEST(Partitions, FourKibSectors) {
  partition_list list;
  bytes e(64 * 4096);
  diskimg::mbr_entry(e, 0, 0, 0x83, 8, 32);
  diskimg::boot_signature(e, 4094);
  diskimg::ext_superblock(e, 8 * 4096, 2, 8, 0x5A5A);
  diskimg::image_file g(e);
  ASSERT_TRUE(read_partitions(g.m_disk, list, false, false));
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(list[0].m_type_name, "ext2/3");
  EXPECT_EQ(list[0].m_sector_size, 4096u);
  EXPECT_EQ(list[0].byte_offset(), 8u * 4096);
}

TEST(Partitions, BareVolumes) {
  bytes ntfs(64 * 512);
  diskimg::ntfs_boot(ntfs, 0, 512, 8, 63, 0x1234);
  diskimg::image_file f(ntfs);
  partition_list list;
  ASSERT_TRUE(read_partitions(f.m_disk, list, false, false));
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(list[0].m_start_sector, 0u);
  EXPECT_EQ(list[0].m_sector_count, 63u);
  EXPECT_EQ(list[0].m_type, 7);
  EXPECT_EQ(list[0].m_serial, 0x1234u);

  bytes ext(8 * 1024);
  diskimg::ext_superblock(ext, 0, 0, 8, 0xBEEF);
  diskimg::image_file h(ext);
  ASSERT_TRUE(read_partitions(h.m_disk, list, false, false));
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(list[0].m_type, 131);
  EXPECT_EQ(list[0].m_type_name, "ext2/3");
  EXPECT_EQ(list[0].m_sectors_per_cluster, 2u);
  EXPECT_EQ(list[0].m_serial, 0xBEEFu);
  EXPECT_EQ(list[0].m_boot_bytes.size(), 2048u);

  // An image shorter than a sector: still classified from what is there.
  bytes tiny(100);
  diskimg::put_text(tiny, 3, "NTFS    ");
  diskimg::image_file t(tiny);
  ASSERT_TRUE(read_partitions(t.m_disk, list, false, false));
  EXPECT_EQ(list[0].m_type_name, "ntfs");
}

// The volume guess from the first bytes of a volume, for the kinds not covered by the images above.
TEST(Partitions, VolumeGuess) {
  auto guess = [](const bytes& b, size_t length, uint64_t preset_count = 0) {
    partition_record r;
    r.m_sector_count = preset_count;
    guess_volume(r, b.data(), length);
    return r;
  };
  bytes b(2048);
  partition_record r;
  guess_volume(r, nullptr, 2048);
  EXPECT_FALSE(r.m_volume_found);
  EXPECT_FALSE(guess(b, 511).m_volume_found);
  EXPECT_TRUE(guess(b, 511).m_boot_bytes.empty());

  diskimg::put_text(b, 3, "EXFAT   ");
  b[108] = 12;
  b[109] = 3;
  orv::put_le64(b.data() + 72, 5000);
  orv::put_le32(b.data() + 100, 0xE0E0);
  r = guess(b, 512);
  EXPECT_EQ(r.m_type_name, "exfat");
  EXPECT_EQ(r.m_sector_size, 4096u);
  EXPECT_EQ(r.m_sectors_per_cluster, 8u);
  EXPECT_EQ(r.m_sector_count, 5000u);
  EXPECT_EQ(r.m_serial, 0xE0E0u);
  EXPECT_TRUE(partition_is_ntfs(r));  // type 7 reads as "ntfs or exfat"
  b[108] = 200;  // a shift no volume has
  b[109] = 255;
  r = guess(b, 512);
  EXPECT_EQ(r.m_sector_size, 0u);
  EXPECT_EQ(r.m_sectors_per_cluster, 0u);

  bytes bl(512);
  diskimg::put_text(bl, 3, "-FVE-FS-");
  bl[13] = 8;
  r = guess(bl, 512, 99);
  EXPECT_EQ(r.m_type_name, "bitlocker container");
  EXPECT_EQ(r.m_sector_count, 99u);

  bytes fat16(512);
  diskimg::put_text(fat16, 54, "FAT16   ");
  orv::put_le32(fat16.data() + 39, 0x1616);
  orv::put_le32(fat16.data() + 32, 777);
  r = guess(fat16, 512);
  EXPECT_EQ(r.m_type, 4);
  EXPECT_EQ(r.m_serial, 0x1616u);
  EXPECT_EQ(r.m_sector_count, 777u);

  bytes fat32(512);
  diskimg::fat32_boot(fat32, 0, 4321, 1);
  EXPECT_EQ(guess(fat32, 512, 5).m_sector_count, 4321u);  // FAT32 takes its own count always

  for (uint16_t sig : {uint16_t(0x2B48), uint16_t(0x5848)}) {
    bytes hfs(2048);
    orv::put_le16(hfs.data() + 1024, sig);
    EXPECT_FALSE(guess(hfs, 512).m_volume_found);  // needs 2048 bytes
    r = guess(hfs, 2048);
    EXPECT_EQ(r.m_type, 175);
    EXPECT_EQ(r.m_type_name, sig == 0x2B48 ? "hfs+" : "hfsx");
  }

  bytes ext(2048);
  diskimg::ext_superblock(ext, 0, 0xFFFFFFFF, 0xFFFFFFFF, 0);
  r = guess(ext, 2048);
  EXPECT_EQ(r.m_type, 131);
  EXPECT_EQ(r.m_sectors_per_cluster, 0u);  // a damaged block shift sizes nothing
}

// The name table itself is data; what is checked here is the handling around it.
TEST(Partitions, TypeNames) {
  EXPECT_EQ(partition_type_name(0x27), "hidden ntfs");
  EXPECT_EQ(partition_type_name(0x42), "");
  EXPECT_EQ(partition_type_name(0x8007), "ntfs or exfat [guess]");
  EXPECT_EQ(partition_type_name(0x8042), " [guess]");
  EXPECT_EQ(partition_type_name(0x0107), "");  // only a guess is cut to its low byte

  partition_record r;
  r.m_type = 0x42;
  r.m_type_name = "mine";
  EXPECT_EQ(partition_row_name(r), "mine");
  for (uint16_t t : {0x07, 0x17, 0x27, 0x87, 0x8007, 0x0C, 0xEE, 0x83, 0x42}) {
    r.m_type = t;
    EXPECT_EQ(partition_is_ntfs(r), t == 0x07 || t == 0x17 || t == 0x27 || t == 0x87 || t == 0x8007) << t;
  }
  // Entries of these types are not taken from a table.
  for (uint8_t t : {0x00, 0xEE, 0x17}) EXPECT_FALSE(is_recognised_mbr_type(t)) << int(t);
  EXPECT_TRUE(is_recognised_mbr_type(0xFE));
}

}  // namespace
