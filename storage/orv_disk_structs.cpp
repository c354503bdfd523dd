// Disk layouts: MBR with its extended chain, GPT, and bare volumes; type names and the guess of a
// volume from its first bytes.
#include "storage/orv_disk_structs.h"

#include <cstring>
#include <set>

#include "base/orv_le.h"
#include "base/orv_string.h"
#include "storage/orv_raw_disk_io.h"

namespace {

using orv::byte_span;

constexpr uint32_t FIRST_READ = 16384;  // window at offset 0 that tells the layout and sector size
constexpr uint32_t GPT_READ = 32768;
constexpr uint64_t FORCE_SCAN_LIMIT = 0x100000;
constexpr size_t MBR_TABLE = 446;  // four 16-byte entries: type +4, first sector +8, count +12
constexpr size_t MBR_ENTRY = 16;
constexpr uint16_t BOOT_SIGNATURE = 0xAA55;
constexpr uint16_t EXT_MAGIC = 0xEF53;
constexpr size_t EXT_MAGIC_AT = 1080;  // superblock at 1024, s_magic at +56
constexpr uint16_t GUESS_BIT = 0x8000;
constexpr uint8_t TYPE_GPT_PROTECTIVE = 0xEE;
constexpr uint64_t LOST_VOLUME_SECTOR = 63;  // where old partitioning tools put the first volume
// The extended chain is a linked list on disk: a loop or an absurd length must still end. Real
// disks hold a few dozen logical partitions at most.
constexpr size_t CHAIN_LIMIT = 1024;
// The entry count in a GPT header is a u32 and every entry costs a read; arrays hold 128 entries
// as a rule, so anything above this is damage, not layout.
constexpr uint32_t GPT_ENTRY_LIMIT = 65536;
// Every field of a GPT entry that is used lies in its first 128 bytes (name ends at 128), so only
// that much is read whatever the entry size claims; no buffer grows with a hostile size.
constexpr uint32_t GPT_ENTRY_FIELDS = 128;

// Where layout bytes come from: an open disk, or a buffer holding the first bytes of one.
struct layout_source {
  RAW_DISK_IO* m_disk = nullptr;
  byte_span m_bytes;

  // Same contract as RAW_DISK_IO::read: `length` comes back reduced at the end.
  bool read(uint8_t* out, uint32_t& length, uint64_t offset) const {
    if (m_disk) return m_disk->read(out, length, offset);
    if (!out || length == 0 || offset >= m_bytes.m_size) return false;
    if (length > m_bytes.m_size - offset) length = uint32_t(m_bytes.m_size - offset);
    memcpy(out, m_bytes.m_data + offset, length);
    return true;
  }
  // `out` becomes `length` bytes: what could be read at `offset`, zeros after a short read.
  bool read_block(std::vector<uint8_t>& out, uint32_t length, uint64_t offset) const {
    out.assign(length, 0);
    uint32_t got = length;
    return read(out.data(), got, offset);
  }
};

bool text_at(const byte_span& b, size_t offset, const char* text) {
  size_t n = strlen(text);
  return b.has(offset, n) && memcmp(b.at(offset), text, n) == 0;
}

// "EXFA", "MSDO" or "NTFS" at offset 3: a volume boot sector, which also carries 0xAA55 at 510.
bool has_volume_signature(const byte_span& b) {
  return text_at(b, 3, "EXFA") || text_at(b, 3, "MSDO") || text_at(b, 3, "NTFS");
}

bool is_boot_record(const byte_span& b) { return b.u16(510) == BOOT_SIGNATURE && !has_volume_signature(b); }

struct mbr_entry {
  uint8_t m_type = 0;
  uint32_t m_start = 0;
  uint32_t m_count = 0;
};

mbr_entry entry_at(const byte_span& sector, int index) {
  size_t at = MBR_TABLE + size_t(index) * MBR_ENTRY;
  mbr_entry e;
  e.m_type = sector.u8(at + 4);
  e.m_start = sector.u32(at + 8);
  e.m_count = sector.u32(at + 12);
  return e;
}

bool usable(const mbr_entry& e) { return e.m_type != 0 && e.m_count != 0 && is_recognised_mbr_type(e.m_type); }
bool is_extended(uint8_t type) { return type == 0x05 || type == 0x0F; }

partition_record make_row(uint64_t start, uint64_t count, uint16_t type, uint32_t sector_size) {
  partition_record r;
  r.m_start_sector = start;
  r.m_sector_count = count;
  r.m_type = type;
  r.m_sector_size = sector_size;
  return r;
}

bool source_volume_at(const layout_source& src, uint64_t offset) {
  uint8_t boot[36] = {};
  uint32_t length = sizeof(boot);
  if (!src.read(boot, length, offset)) return false;
  return text_at(byte_span(boot, length), 3, "NTFS    ");
}

// Row start sectors count disk sectors, so the byte offset of a row must keep the disk's sector
// size even when the volume inside reports its own.
void guess_in_place(partition_record& row, const std::vector<uint8_t>& bytes) {
  uint32_t disk_sector = row.m_sector_size;
  guess_volume(row, bytes.data(), bytes.size());
  row.m_sector_size = disk_sector;
}

void add_gap_rows(partition_list& list, bool gpt) {
  partition_list out;
  auto fixed = [&](uint64_t start, uint64_t count, const char* name) {
    partition_record r = make_row(start, count, 0, list.empty() ? 512 : list.front().m_sector_size);
    r.m_partition_name = name;
    out.push_back(r);
  };
  if (gpt) {
    fixed(0, 1, "protective_mbr");
    fixed(1, 1, "gpt header");
    fixed(2, 32, "gpt partition entries");
  } else {
    fixed(0, 1, "mbr");
  }
  uint64_t cursor = out.back().m_start_sector + out.back().m_sector_count;
  for (const partition_record& row : list) {
    if (row.m_start_sector > cursor) fixed(cursor, row.m_start_sector - cursor, "unalloc");
    out.push_back(row);
    uint64_t end = row.m_start_sector + row.m_sector_count;
    if (end >= row.m_start_sector && end > cursor) cursor = end;
  }
  list.swap(out);
}

// Extended chain. Links to the next boot record are relative to the first extended partition
// (`base`); plain entries are relative to the record that holds them.
void follow_chain(const layout_source& src, uint64_t base, uint32_t sector_size, partition_list& list) {
  std::vector<uint8_t> record;
  uint64_t next = 0;
  bool has_next = false;
  uint8_t last_plain_type = 0;
  if (base <= UINT64_MAX / sector_size && src.read_block(record, 512, base * sector_size)) {
    byte_span b(record.data(), record.size());
    for (int i = 0; i < 4; ++i) {
      mbr_entry e = entry_at(b, i);
      if (!usable(e)) break;
      list.push_back(make_row(base + e.m_start, e.m_count, e.m_type, sector_size));
      if (is_extended(e.m_type)) {
        next = base + e.m_start;
        has_next = true;
        break;
      }
      last_plain_type = e.m_type;
    }
  }
  // A volume at sector 63 ahead of the extended partition whose MBR entry has been lost.
  if (source_volume_at(src, LOST_VOLUME_SECTOR * sector_size)) {
    uint64_t count = base > LOST_VOLUME_SECTOR ? base - LOST_VOLUME_SECTOR : 0;
    list.insert(list.begin(), make_row(LOST_VOLUME_SECTOR, count, uint16_t(last_plain_type | GUESS_BIT), sector_size));
  }
  std::set<uint64_t> seen{base};
  for (size_t steps = 0; has_next && steps < CHAIN_LIMIT; ++steps) {
    uint64_t position = next;
    has_next = false;
    if (!seen.insert(position).second) break;  // a link back into the chain
    if (position > UINT64_MAX / sector_size) break;
    if (!src.read_block(record, 512, position * sector_size)) break;
    byte_span b(record.data(), record.size());
    if (!is_boot_record(b)) break;
    for (int i = 0; i < 4; ++i) {
      mbr_entry e = entry_at(b, i);
      if (!usable(e)) break;
      if (is_extended(e.m_type)) {
        list.push_back(make_row(base + e.m_start, e.m_count, e.m_type, sector_size));
        next = base + e.m_start;
        has_next = true;
      } else {
        list.push_back(make_row(position + e.m_start, e.m_count, e.m_type, sector_size));
      }
    }
  }
}

// Walk forward from the start for the first sector that looks like a boot record; used on a disk
// whose first sector shows nothing. 0 when none lies within the first megabyte.
uint64_t force_scan(const layout_source& src) {
  std::vector<uint8_t> sector;
  for (uint64_t offset = 0; offset <= FORCE_SCAN_LIMIT; offset += 512) {
    if (!src.read_block(sector, 512, offset)) return 0;
    if (is_boot_record(byte_span(sector.data(), sector.size()))) return offset / 512;
  }
  return 0;
}

// The GPT header stands in the second sector: its signature tells the disk's sector size, whether
// the protective MBR carries 0xAA55 at 510 (as partitioning tools write it on 4096-byte disks too)
// or at the end of its sector.
uint32_t gpt_sector_size(const layout_source& src) {
  std::vector<uint8_t> block;
  if (!src.read_block(block, GPT_READ, 0)) return 0;
  byte_span first(block.data(), block.size());
  for (uint32_t candidate = 512; candidate <= 16384; candidate *= 2)
    if (text_at(first, candidate, "EFI PART")) return candidate;
  for (uint32_t candidate = 512; candidate <= 16384; candidate *= 2)
    if (first.u16(candidate - 2) == BOOT_SIGNATURE) return candidate;
  return 0;
}

bool gpt_from_source(const layout_source& src, partition_list& list, bool with_gaps) {
  const uint32_t sector_size = gpt_sector_size(src);
  if (!sector_size) return false;

  // GPT header in the sector after the protective MBR.
  std::vector<uint8_t> block;
  if (!src.read_block(block, GPT_READ, sector_size)) return false;
  byte_span header(block.data(), block.size());
  if (header.u64(24) != 1) return false;  // MyLBA
  uint64_t entry_lba = header.u64(72);
  uint32_t entry_count = header.u32(80);
  uint32_t entry_size = header.u32(84);
  if (entry_count > GPT_ENTRY_LIMIT) entry_count = GPT_ENTRY_LIMIT;
  if (entry_count && entry_size == 0) return false;  // an entry of no bytes can't be read
  if (entry_lba > UINT64_MAX / sector_size) return false;
  uint64_t array_offset = entry_lba * sector_size;
  uint32_t field_bytes = entry_size < GPT_ENTRY_FIELDS ? entry_size : GPT_ENTRY_FIELDS;

  std::vector<uint8_t> entry, volume;
  static const uint8_t zero_guid[16] = {};
  for (uint32_t i = 0; i < entry_count; ++i) {
    uint64_t at = array_offset + uint64_t(i) * entry_size;
    if (at < array_offset) return false;
    entry.assign(GPT_ENTRY_FIELDS, 0);  // fields past a short entry read as zeros
    uint32_t got = field_bytes;
    if (!src.read(entry.data(), got, at)) return false;
    byte_span e(entry.data(), entry.size());
    if (memcmp(e.at(0), zero_guid, 16) == 0) continue;  // unused slot

    uint64_t first_lba = e.u64(32), last_lba = e.u64(40);
    // A last LBA before the first is damage: the row keeps its start with no length.
    uint64_t count = last_lba >= first_lba ? last_lba - first_lba + 1 : 0;
    uint32_t want = count <= 2048 / sector_size ? sector_size : 2048;
    if (first_lba > UINT64_MAX / sector_size) return false;
    if (!src.read_block(volume, want, first_lba * sector_size)) return false;

    partition_record row = make_row(first_lba, count, TYPE_GPT_PROTECTIVE, sector_size);
    row.m_is_gpt = true;
    memcpy(row.m_type_guid.data(), e.at(0), 16);
    memcpy(row.m_unique_guid.data(), e.at(16), 16);
    row.m_gpt_attributes = e.u64(48);
    // Name: up to 36 UTF-16 units at 56, ended by the first 0 unit.
    size_t name_bytes = 0;
    while (name_bytes + 1 < 72 && e.u16(56 + name_bytes) != 0) name_bytes += 2;
    std::string name;
    if (name_bytes && e.has(56, name_bytes)) orv::utf16_to_utf8(e.at(56), name_bytes, name);
    row.m_gpt_name = name;
    row.m_partition_name = name;
    guess_in_place(row, volume);
    list.push_back(row);
  }
  if (with_gaps && !list.empty()) add_gap_rows(list, true);
  return !list.empty();
}

enum first_sector_kind { FIRST_NONE, FIRST_MBR, FIRST_BARE, FIRST_EXT };

// The sector size the MBR's entries count in: the first size at which a primary entry points at a
// volume boot sector. A disk of 4096-byte sectors carries its table and 0xAA55 where a disk of
// 512-byte sectors does, so the table alone does not tell.
uint32_t entries_sector_size(const layout_source& src, const byte_span& mbr, uint32_t found) {
  std::vector<uint8_t> boot;
  for (uint32_t candidate = found; candidate <= 16384; candidate *= 2)
    for (int i = 0; i < 4; ++i) {
      const mbr_entry e = entry_at(mbr, i);
      if (!usable(e) || is_extended(e.m_type) || e.m_start == 0) continue;
      if (src.read_block(boot, 512, uint64_t(e.m_start) * candidate) &&
          has_volume_signature(byte_span(boot.data(), boot.size())))
        return candidate;
    }
  return found;
}

// Tells the layout and the disk's sector size from the first bytes of a disk.
first_sector_kind classify(const byte_span& b, uint32_t& sector_size) {
  sector_size = 512;
  if (is_boot_record(b)) return FIRST_MBR;
  if (has_volume_signature(b)) return FIRST_BARE;
  for (uint32_t candidate = 1024; candidate <= 16384; candidate *= 2) {
    if (b.u16(candidate - 2) == BOOT_SIGNATURE) {
      sector_size = candidate;
      return FIRST_MBR;
    }
  }
  if (b.u16(EXT_MAGIC_AT) == EXT_MAGIC) return FIRST_EXT;
  return FIRST_NONE;
}

bool discover(const layout_source& src, partition_list& list, bool force, bool with_gaps) {
  list.clear();
  std::vector<uint8_t> first;
  if (!src.read_block(first, FIRST_READ, 0)) return false;
  byte_span b(first.data(), first.size());
  uint32_t sector_size = 512;
  first_sector_kind kind = classify(b, sector_size);

  if (kind == FIRST_BARE || kind == FIRST_EXT) {
    partition_record row = make_row(0, 0, 0, 512);
    guess_volume(row, first.data(), kind == FIRST_EXT ? 2048 : 512);
    // The row starts at 0, so the volume's own sector size serves for its end; a boot sector
    // that claims 0 bytes per sector must not make the volume vanish.
    if (row.m_sector_size == 0) row.m_sector_size = 512;
    list.push_back(row);
    return true;
  }

  if (kind == FIRST_MBR) {
    // A hybrid MBR in front of a GPT counts in the GPT's sectors.
    bool protective = false;
    for (int i = 0; i < 4; ++i) protective |= entry_at(b, i).m_type == TYPE_GPT_PROTECTIVE;
    const uint32_t gpt_size = protective ? gpt_sector_size(src) : 0;
    sector_size = gpt_size ? gpt_size : entries_sector_size(src, b, sector_size);
    // Every primary entry counts, wherever the extended one stands; its chain follows it. Rows
    // ahead of a protective entry stay in front of the GPT's.
    bool chained = false;
    for (int i = 0; i < 4; ++i) {
      mbr_entry e = entry_at(b, i);
      if (e.m_type == TYPE_GPT_PROTECTIVE) return gpt_from_source(src, list, with_gaps);
      if (!usable(e)) continue;
      list.push_back(make_row(e.m_start, e.m_count, e.m_type, sector_size));
      if (is_extended(e.m_type) && !chained && e.m_start != 0) {
        chained = true;
        follow_chain(src, e.m_start, sector_size, list);
      }
    }
  } else {
    if (!force) return false;
    uint64_t base = force_scan(src);
    if (!base) return false;
    follow_chain(src, base, sector_size, list);
  }

  std::vector<uint8_t> volume;
  for (partition_record& row : list) {
    if (row.m_start_sector > UINT64_MAX / row.m_sector_size) continue;
    if (src.read_block(volume, row.m_sector_size, row.m_start_sector * row.m_sector_size)) guess_in_place(row, volume);
  }
  if (with_gaps && !list.empty()) add_gap_rows(list, false);
  return !list.empty();
}

// Names of the type table; empty for types it doesn't know.
const char* table_name(uint16_t type) {
  switch (type) {
    case 0: return "empty";
    case 1: case 141: return "fat12";
    case 2: return "xenix root";
    case 3: return "xenix /usr";
    case 4: return "fat16";
    case 5: case 15: return "exten";
    case 6: return "fat";
    case 7: return "ntfs or exfat";
    case 8: return "aix boot";
    case 9: return "aix data";
    case 10: return "os/2 boot";
    case 11: case 12: return "fat32";
    case 14: return "fat16 LBA mapped";
    case 17: case 20: case 22: case 30: case 144: case 145: case 146: return "hidden fat16";
    case 23: case 39: return "hidden ntfs";
    case 27: case 28: case 151: case 152: return "hidden fat32";
    case 130: return "linux swap";
    case 131: return "linux";
    case 134: return "fat16 volume set";
    case 135: return "ntfs volume set";
    case 136: return "linux partition table";
    case 139: case 140: return "fat32 fault tolerant";
    case 142: return "linux Logical Volume Mgr";
    case 147: return "hidden linux";
    case 160: case 161: return "hibernation partition";
    case 166: return "openbsd";
    case 175: return "hfs";
    case 238: return "gpt";
    default: return "";
  }
}

uint16_t plain_type(uint16_t type) { return (type & GUESS_BIT) ? uint16_t(type & 0xFF) : type; }

// 1 << shift for a shift read from disk; shifts past 31 give 0 instead of undefined behaviour.
uint32_t shifted(uint8_t shift) { return shift < 32 ? uint32_t(1) << shift : 0; }

void guess_ext(partition_record& r, const byte_span& b) {
  uint32_t log_block = b.u32(1048);
  // ext block sizes stop at 64 KiB (log 6); a larger shift is damage and sizes nothing.
  uint64_t block = log_block <= 16 ? uint64_t(1024) << log_block : 0;
  r.m_type = 131;
  r.m_type_name = "ext2/3";
  r.m_sectors_per_cluster = uint32_t(block >> 9);
  r.m_sector_size = 512;
  r.m_serial = b.u32(1128);
  if (r.m_sector_count == 0) r.m_sector_count = block * b.u32(1028);
  r.m_volume_found = true;
}

}  // namespace

bool is_recognised_mbr_type(uint8_t type) {
  static const uint8_t known[] = {
      0x01, 0x04, 0x05, 0x06, 0x07, 0x08, 0x0B, 0x0C, 0x0E, 0x0F, 0x11, 0x12, 0x14, 0x15, 0x16, 0x1B,
      0x1C, 0x1E, 0x1F, 0x24, 0x27, 0x41, 0x42, 0x43, 0x56, 0x64, 0x66, 0x74, 0x76, 0x79, 0x7A, 0x7B,
      0x7C, 0x7D, 0x80, 0x81, 0x82, 0x83, 0x84, 0x85, 0x86, 0x87, 0x88, 0x8B, 0x8C, 0x8E, 0x90, 0x91,
      0x92, 0x93, 0x97, 0x98, 0x9A, 0xA8, 0xAB, 0xAC, 0xAF, 0xB6, 0xB7, 0xBB, 0xBC, 0xC2, 0xC3, 0xC4,
      0xC5, 0xC6, 0xC7, 0xCB, 0xCC, 0xCD, 0xCE, 0xCF, 0xD4, 0xD5, 0xD6, 0xD8, 0xDE, 0xE4, 0xE5, 0xE6,
      0xE8, 0xEF, 0xF0, 0xF2, 0xF4, 0xF6, 0xF9, 0xFB, 0xFC, 0xFD, 0xFE};
  for (uint8_t k : known)
    if (k == type) return true;
  return false;
}

std::string partition_type_name(uint16_t type) {
  std::string name = table_name(plain_type(type));
  if (type & GUESS_BIT) name += " [guess]";
  return name;
}

std::string partition_row_name(const partition_record& record) {
  std::string name;
  if (record.m_type == 0 && !record.m_partition_name.empty()) name = record.m_partition_name;  // layout rows
  else name = table_name(plain_type(record.m_type));
  if (name.empty()) name = record.m_type_name;
  if (record.m_type & GUESS_BIT) name += " [guess]";
  return name;
}

bool partition_is_ntfs(const partition_record& record) {
  return partition_type_name(record.m_type).find("ntfs") != std::string::npos;
}

uint32_t ntfs_sectors_per_cluster(uint8_t value) {
  if (value <= 0x80) return value;
  const unsigned shift = 256u - value;
  return shift <= 16 ? 1u << shift : 0;  // 2 MiB of 512-byte sectors is 2^12
}

void guess_volume(partition_record& r, const uint8_t* bytes, size_t length) {
  if (!bytes || length < 512) return;
  byte_span b(bytes, length);
  r.m_boot_bytes.assign(bytes, bytes + length);
  if (b.u8(13)) r.m_sectors_per_cluster = b.u8(13);

  if (text_at(b, 3, "EXFAT   ")) {
    r.m_type = 7;
    r.m_type_name = "exfat";
    r.m_sectors_per_cluster = shifted(b.u8(109));
    r.m_sector_size = shifted(b.u8(108));
    r.m_serial = b.u32(100);
    if (r.m_sector_count == 0) r.m_sector_count = b.u64(72);
    r.m_volume_found = true;
  } else if (text_at(b, 3, "NTFS    ") || text_at(b, 3, "-FVE-FS-")) {
    r.m_type = 7;
    r.m_type_name = text_at(b, 3, "NTFS    ") ? "ntfs" : "bitlocker container";
    r.m_sectors_per_cluster = ntfs_sectors_per_cluster(b.u8(13));
    r.m_sector_size = b.u16(11);
    r.m_serial = b.u32(72);
    if (r.m_sector_count == 0) r.m_sector_count = b.u64(40);
    r.m_volume_found = true;
  } else if (text_at(b, 82, "FAT32")) {
    r.m_type = 12;
    r.m_type_name = "fat32";
    r.m_sectors_per_cluster = b.u8(13);
    r.m_sector_size = b.u16(11);
    r.m_serial = b.u32(67);
    r.m_sector_count = b.u32(32);
    r.m_volume_found = true;
  } else if (text_at(b, 54, "FAT16")) {
    r.m_type = 4;
    r.m_type_name = "fat16";
    r.m_sectors_per_cluster = b.u8(13);
    r.m_sector_size = b.u16(11);
    r.m_serial = b.u32(39);
    if (r.m_sector_count == 0) r.m_sector_count = b.u32(32);
    r.m_volume_found = true;
  } else if (length >= 2048 && b.u16(EXT_MAGIC_AT) == EXT_MAGIC) {
    guess_ext(r, b);
  } else if (length >= 2048 && b.u64(3) == 0) {
    // No boot code at all: HFS+ ("H+") or HFSX ("HX") volume header at 1024.
    uint16_t signature = b.u16(1024);
    if (b.u8(1024) == 'H' && (signature == 0x2B48 || signature == 0x5848)) {
      r.m_type = 175;
      r.m_type_name = signature == 0x2B48 ? "hfs+" : "hfsx";
      r.m_volume_found = true;
    }
  }
}

bool read_partitions(RAW_DISK_IO& disk, partition_list& list, bool force, bool with_gaps) {
  layout_source src;
  src.m_disk = &disk;
  return discover(src, list, force, with_gaps);
}

bool read_partitions_buffer(const uint8_t* bytes, size_t length, partition_list& list, bool force) {
  list.clear();
  if (!bytes || length == 0) return false;
  layout_source src;
  src.m_bytes = byte_span(bytes, length);
  return discover(src, list, force, false);
}

bool read_gpt(RAW_DISK_IO& disk, partition_list& list, bool with_gaps) {
  layout_source src;
  src.m_disk = &disk;
  return gpt_from_source(src, list, with_gaps);
}

bool volume_at(RAW_DISK_IO& disk, uint64_t offset) {
  layout_source src;
  src.m_disk = &disk;
  return source_volume_at(src, offset);
}
