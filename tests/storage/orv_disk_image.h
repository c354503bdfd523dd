#pragma once
// Small disk images built in memory for the storage tests: MBR and EBR entries, GPT headers and
// entries, and the first bytes of NTFS, FAT, exFAT and ext volumes.
// test_util.h goes first: <signal.h> (pulled in by gtest and POSIX headers) defines si_value.
#include "tests/test_util.h"

#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "base/orv_le.h"
#include "base/orv_string.h"
#include "storage/orv_raw_disk_io.h"

namespace diskimg {

using bytes = std::vector<uint8_t>;

inline void put_text(bytes& b, size_t at, const char* text) { memcpy(b.data() + at, text, strlen(text)); }

inline void boot_signature(bytes& b, size_t at) { orv::put_le16(b.data() + at, 0xAA55); }

// One 16-byte partition entry of the table in the record that starts at byte `record`.
inline void mbr_entry(bytes& b, size_t record, int slot, uint8_t type, uint32_t start, uint32_t count) {
  uint8_t* e = b.data() + record + 446 + 16 * slot;
  e[4] = type;
  orv::put_le32(e + 8, start);
  orv::put_le32(e + 12, count);
}

inline void ntfs_boot(bytes& b, size_t at, uint16_t bytes_per_sector, uint8_t spc, uint64_t total, uint32_t serial) {
  put_text(b, at + 3, "NTFS    ");
  orv::put_le16(b.data() + at + 11, bytes_per_sector);
  b[at + 13] = spc;
  orv::put_le64(b.data() + at + 40, total);
  orv::put_le32(b.data() + at + 72, serial);
  boot_signature(b, at + 510);
}

inline void fat32_boot(bytes& b, size_t at, uint32_t total, uint32_t serial) {
  put_text(b, at + 3, "MSDOS5.0");
  orv::put_le16(b.data() + at + 11, 512);
  b[at + 13] = 8;
  orv::put_le32(b.data() + at + 32, total);
  orv::put_le32(b.data() + at + 67, serial);
  put_text(b, at + 82, "FAT32   ");
  boot_signature(b, at + 510);
}

inline void ext_superblock(bytes& b, size_t at, uint32_t log_block, uint32_t blocks, uint32_t uuid_head) {
  orv::put_le32(b.data() + at + 1028, blocks);
  orv::put_le32(b.data() + at + 1048, log_block);
  orv::put_le16(b.data() + at + 1080, 0xEF53);
  orv::put_le32(b.data() + at + 1128, uuid_head);
}

// GPT header at sector 1 and entries from `entry_lba`, 128 bytes each.
inline void gpt_header(bytes& b, uint32_t sector, uint64_t my_lba, uint64_t entry_lba, uint32_t count, uint32_t size) {
  uint8_t* h = b.data() + sector;
  put_text(b, sector, "EFI PART");
  orv::put_le64(h + 24, my_lba);
  orv::put_le64(h + 72, entry_lba);
  orv::put_le32(h + 80, count);
  orv::put_le32(h + 84, size);
}

inline void gpt_entry(bytes& b, size_t at, uint8_t guid_seed, uint64_t first, uint64_t last, const std::u16string& name) {
  for (int i = 0; i < 16; ++i) {
    b[at + i] = uint8_t(guid_seed + i);
    b[at + 16 + i] = uint8_t(0xA0 + i);
  }
  orv::put_le64(b.data() + at + 32, first);
  orv::put_le64(b.data() + at + 40, last);
  orv::put_le64(b.data() + at + 48, 0x8000000000000001ull);
  for (size_t i = 0; i < name.size() && i < 36; ++i) orv::put_le16(b.data() + at + 56 + 2 * i, uint16_t(name[i]));
}

// Writes the image to a fresh temporary file and opens it as a file source.
struct image_file {
  std::string m_path;
  RAW_DISK_IO m_disk;

  explicit image_file(const bytes& image) {
    m_path = testutil::make_temp_dir("storage") + "/disk.img";
    testutil::write_file(m_path, image);
    m_disk.open_path(orv::to_wide(m_path), false, 0);
  }
  ~image_file() {
    m_disk.close();
    unlink(m_path.c_str());
    rmdir(m_path.substr(0, m_path.rfind('/')).c_str());
  }
};

}  // namespace diskimg
