#pragma once
// Disk images built in memory: partition tables, the first bytes of volumes, shared layouts.
// test_util.h goes first: <signal.h> (pulled in by gtest and POSIX headers) defines si_value.
#include "tests/test_util.h"

#include <cstring>

#include "base/orv_le.h"
#include "base/orv_string.h"
#include "storage/orv_raw_disk_io.h"

namespace diskimg {

using bytes = std::vector<uint8_t>;

inline void put_text(bytes& b, size_t at, const char* text) { memcpy(b.data() + at, text, strlen(text)); }

// One 16-byte entry of the partition table in the record at byte `record`, with its signature.
inline void mbr_entry(bytes& b, size_t record, int slot, uint8_t type, uint32_t start, uint32_t count) {
  uint8_t* e = b.data() + record + 446 + 16 * slot;
  e[4] = type;
  orv::put_le32(e + 8, start);
  orv::put_le32(e + 12, count);
  orv::put_le16(b.data() + record + 510, 0xAA55);
}

inline void ntfs_boot(bytes& b, size_t at, uint16_t bytes_per_sector, uint64_t total) {
  put_text(b, at + 3, "NTFS    ");
  orv::put_le16(b.data() + at + 11, bytes_per_sector);
  orv::put_le64(b.data() + at + 40, total);
  orv::put_le16(b.data() + at + 510, 0xAA55);
}

// GPT header at byte `at`; entries of `size` bytes from `entry_lba`.
inline void gpt_header(bytes& b, size_t at, uint64_t my_lba, uint64_t entry_lba, uint32_t count, uint32_t size) {
  put_text(b, at, "EFI PART");
  orv::put_le64(b.data() + at + 24, my_lba);
  orv::put_le64(b.data() + at + 72, entry_lba);
  orv::put_le32(b.data() + at + 80, count);
  orv::put_le32(b.data() + at + 84, size);
}

// A used entry (its type GUID not zero) for sectors `first` to `last`.
inline void gpt_entry(bytes& b, size_t at, uint64_t first, uint64_t last) {
  b[at] = 0x10;
  orv::put_le64(b.data() + at + 32, first);
  orv::put_le64(b.data() + at + 40, last);
}

// FAT32 at sector 128, NTFS at 256 and NTFS at 512, 128 sectors each (the boot sectors say 127);
// 640 sectors in all.
inline bytes mbr_disk() {
  bytes b(640 * 512);
  mbr_entry(b, 0, 0, 0x0C, 128, 128);
  mbr_entry(b, 0, 1, 0x07, 256, 128);
  mbr_entry(b, 0, 2, 0x07, 512, 128);
  put_text(b, 128 * 512 + 82, "FAT32   ");
  orv::put_le32(b.data() + 128 * 512 + 32, 128);
  ntfs_boot(b, 256 * 512, 512, 127);
  ntfs_boot(b, 512 * 512, 512, 127);
  return b;
}

// The image in a fresh temporary file, opened as a file source.
struct image_file : testutil::temp_file {
  RAW_DISK_IO m_disk;
  explicit image_file(const bytes& image) : temp_file(image, "storage") {
    m_disk.open_path(orv::to_wide(m_path), false, 0);
  }
};

}  // namespace diskimg
