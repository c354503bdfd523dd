// VMware monolithic sparse disks and snapshot chains. Every header field, directory and table
// entry is measured against the file's size before it is used, so a damaged or hostile file is
// refused or reads as zeros, and the tables of one disk never take more memory than its file.
#include "storage/orv_vmdk.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/orv_fileio.h"
#include "base/orv_le.h"
#include "base/orv_string.h"
#include "storage/orv_disk_structs.h"
#include "storage/orv_raw_disk_io.h"

namespace {

constexpr uint64_t SECTOR = 512;
// Header fields (sparse extent header, little-endian).
constexpr size_t H_FLAGS = 8, H_CAPACITY = 12, H_GRAIN = 20, H_DESC_OFFSET = 28, H_DESC_SIZE = 36,
                 H_GT_ENTRIES = 44, H_GD_OFFSET = 56, H_OVERHEAD = 64, H_COMPRESSION = 77;
// A grain table entry of 1 means "this grain is zeros" when flags bit 2 says the disk uses it.
constexpr uint32_t FLAG_ZEROED_GRAIN = 1u << 2;
constexpr uint64_t MAX_GRAIN_SECTORS = 1ull << 24;      // 8 GiB grains: far beyond any real disk
constexpr uint64_t MAX_DESCRIPTOR_BYTES = 1ull << 20;  // the text needs a few hundred bytes
constexpr uint64_t MAX_METADATA_BLOCK = 64ull << 20;   // read in one go when no larger
constexpr int MAX_CHAIN_ROUNDS = 64;                   // parents added by one validation
const char* const BASE_PARENT_CID = "ffffffff";

// Reads `length` bytes at `pos` until done or the file ends; the count read.
size_t pread_full(int fd, uint8_t* buffer, size_t length, uint64_t pos) {
  size_t done = 0;
  while (done < length) {
    ssize_t got = ::pread(fd, buffer + done, length - done, off_t(pos + done));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    done += size_t(got);
  }
  return done;
}

std::string cid_key(const std::string& text) { return orv::lowered(orv::trim(text)); }

std::string without_quotes(std::string text) {
  orv::remove_char(text, '"');
  return orv::trim(text);
}

bool file_opens(const std::string& path) {
  uni::fileio probe;
  return !path.empty() && probe.open(path);
}

// The part of a path after its last separator of either kind: a hint written on Windows still
// names the file when the disks were moved to another machine.
std::string last_component(const std::string& path) {
  size_t cut = path.find_last_of("/\\");
  return cut == std::string::npos ? path : path.substr(cut + 1);
}

}  // namespace

vmdk_disk::~vmdk_disk() {
  if (m_fd >= 0) ::close(m_fd);
}

// Descriptor lines as "key=value"; the keys that link a chain are matched without case, and the
// values are kept as written.
static void parse_descriptor(vmdk_disk& disk, const std::vector<uint8_t>& text) {
  size_t end = std::find(text.begin(), text.end(), uint8_t(0)) - text.begin();
  std::string all(text.begin(), text.begin() + end);
  for (const std::string& raw : orv::split(all, "\n", false)) {
    std::string line = orv::trim(raw);
    if (line.empty()) continue;
    disk.m_descriptor_lines.push_back(orv::to_wide(line));
    std::string low = orv::lowered(line);
    static const struct {
      const char* m_key;
      std::string vmdk_disk::*m_field;
    } keys[] = {{"cid=", &vmdk_disk::m_cid},
                {"parentcid=", &vmdk_disk::m_parent_cid},
                {"encoding=", &vmdk_disk::m_encoding},
                {"parentfilenamehint=", &vmdk_disk::m_parent_hint}};
    for (const auto& k : keys) {
      size_t n = strlen(k.m_key);
      if (low.compare(0, n, k.m_key) == 0) {
        disk.*(k.m_field) = orv::trim(line.substr(n));
        break;
      }
    }
  }
}

bool vmdk_disk::load(const std::wstring& name) {
  m_path = name;
  m_path_utf8 = orv::to_utf8(name);
  if (m_path_utf8.empty()) return false;
  int fd = open_source_read_only(m_path_utf8.c_str(), m_file_size);
  if (fd < 0) return false;
  m_fd = fd;
  if (pread_full(m_fd, m_header, VMDK_HEADER_BYTES, 0) != VMDK_HEADER_BYTES) return false;
  const orv::byte_span h(m_header, VMDK_HEADER_BYTES);
  if (h.u32(0) != VMDK_MAGIC) return false;
  const uint32_t flags = h.u32(H_FLAGS);
  // Stream-optimised disks hold deflated grains behind markers; read as plain grains they would
  // give wrong bytes, so they are refused outright.
  if ((flags & VMDK_FLAG_COMPRESSED) || h.u16(H_COMPRESSION) != 0) {
    m_refusal = "prob opening " + m_path_utf8 + ": compressed grains are not supported, aborting";
    return false;
  }
  const uint64_t file_sectors = m_file_size / SECTOR;
  m_capacity_sectors = h.u64(H_CAPACITY);
  const uint64_t grain_sectors = h.u64(H_GRAIN);
  const uint64_t desc_offset = h.u64(H_DESC_OFFSET), desc_sectors = h.u64(H_DESC_SIZE);
  m_entries_per_table = h.u32(H_GT_ENTRIES);
  const uint64_t dir_sector = h.u64(H_GD_OFFSET), overhead = h.u64(H_OVERHEAD);
  if (m_capacity_sectors == 0 || m_capacity_sectors > UINT64_MAX / SECTOR) return false;
  if (grain_sectors == 0 || grain_sectors > MAX_GRAIN_SECTORS) return false;
  // A table is a piece of the file, so it cannot hold more entries than the file has words.
  if (m_entries_per_table == 0 || m_entries_per_table > m_file_size / 4) return false;
  m_grain_bytes = grain_sectors * SECTOR;
  if (m_entries_per_table > UINT64_MAX / m_grain_bytes) return false;
  m_table_span = m_grain_bytes * m_entries_per_table;

  if (desc_offset > file_sectors || desc_sectors > file_sectors - desc_offset) return false;
  std::vector<uint8_t> text(size_t(std::min(desc_sectors * SECTOR, MAX_DESCRIPTOR_BYTES)));
  text.resize(pread_full(m_fd, text.data(), text.size(), desc_offset * SECTOR));
  parse_descriptor(*this, text);

  // The directory has one entry per table the capacity needs; its length is not stored. All the
  // tables together are pieces of the file, which bounds what they may claim.
  const uint64_t grains = m_capacity_sectors / grain_sectors + (m_capacity_sectors % grain_sectors ? 1 : 0);
  const uint64_t tables = grains / m_entries_per_table + (grains % m_entries_per_table ? 1 : 0);
  const uint64_t table_bytes = uint64_t(m_entries_per_table) * 4;
  if (tables > m_file_size / table_bytes || dir_sector > file_sectors ||
      tables * 4 > m_file_size - dir_sector * SECTOR)
    return false;
  m_grain_dir.resize(size_t(tables));
  std::vector<uint8_t> raw(size_t(tables * 4));
  if (pread_full(m_fd, raw.data(), raw.size(), dir_sector * SECTOR) != raw.size()) return false;
  for (size_t i = 0; i < m_grain_dir.size(); ++i) m_grain_dir[i] = orv::le32(raw.data() + i * 4);
  m_first_table_offset = m_grain_dir.empty() ? 0 : uint64_t(m_grain_dir[0]) * SECTOR;

  // The metadata (directories and, on most disks, every table) lies in the overhead at the start
  // of the file: one read instead of one per table.
  std::vector<uint8_t> block;
  if (overhead <= file_sectors && overhead * SECTOR <= MAX_METADATA_BLOCK) {
    block.resize(size_t(overhead * SECTOR));
    block.resize(pread_full(m_fd, block.data(), block.size(), 0));
  }
  m_grain_tables.resize(m_grain_dir.size());
  std::vector<uint8_t> one(static_cast<size_t>(table_bytes));
  for (size_t i = 0; i < m_grain_dir.size(); ++i) {
    // 0 marks a table never allocated: none of its grains are held.
    if (m_grain_dir[i] == 0) continue;
    const uint64_t pos = uint64_t(m_grain_dir[i]) * SECTOR;
    if (pos > m_file_size || table_bytes > m_file_size - pos) return false;
    const uint8_t* src;
    if (pos + table_bytes <= block.size()) {
      src = block.data() + pos;
    } else {
      if (pread_full(m_fd, one.data(), one.size(), pos) != one.size()) return false;
      src = one.data();
    }
    std::vector<uint32_t>& table = m_grain_tables[i];
    table.resize(m_entries_per_table);
    for (size_t e = 0; e < table.size(); ++e) table[e] = orv::le32(src + e * 4);
  }
  if (m_grain_tables.empty()) return false;

  // Sector 0 of the virtual disk: its partition table, when this disk holds it.
  m_first_sector.assign(SECTOR, 0);
  uint64_t pos = 0;
  if (locate(0, pos)) {
    m_first_grain_offset = pos;
    read_file(m_first_sector.data(), uint32_t(SECTOR), pos);
  }
  partition_list rows;
  if (read_partitions_buffer(m_first_sector.data(), m_first_sector.size(), rows, false) ||
      read_partitions_buffer(m_first_sector.data(), m_first_sector.size(), rows, true)) {
    for (const partition_record& row : rows) {
      m_partition_offsets.push_back(row.byte_offset());
      m_partition_sector_sizes.insert(row.m_sector_size);
    }
  }
  m_cluster_size = 4096;
  m_grain_clusters = m_grain_bytes >> 12;
  m_valid = 1;
  return true;
}

bool vmdk_disk::locate(uint64_t v, uint64_t& file_pos) const {
  if (!m_table_span || !m_grain_bytes) return false;
  const uint64_t table = v / m_table_span;
  if (table >= m_grain_tables.size()) return false;
  const std::vector<uint32_t>& entries = m_grain_tables[size_t(table)];
  const uint64_t entry = (v % m_table_span) / m_grain_bytes;
  if (entry >= entries.size()) return false;
  const uint32_t sector = entries[size_t(entry)];
  if (sector == 0) return false;
  if (sector == 1 && (orv::le32(m_header + H_FLAGS) & FLAG_ZEROED_GRAIN)) {
    file_pos = UINT64_MAX;  // held, and zeros: past any file's end
    return true;
  }
  file_pos = uint64_t(sector) * SECTOR + v % m_grain_bytes;
  return true;
}

bool vmdk_disk::read_file(uint8_t* buffer, uint32_t length, uint64_t pos) const {
  if (m_fd < 0 || pos >= m_file_size) return false;
  const size_t want = size_t(std::min<uint64_t>(length, m_file_size - pos));
  const size_t got = pread_full(m_fd, buffer, want, pos);
  if (got == 0) return false;
  if (got < length) memset(buffer + got, 0, length - got);
  return true;
}

// ---- the chain ----

void vmdk_reader::clear() {
  m_disks.clear();
  m_count = 0;
  m_top = m_base = nullptr;
  m_chain_ok = 0;
  m_chain.clear();
  m_step = 0;
  m_refusal.clear();
}

uint64_t vmdk_reader::disk_size() const { return m_base ? m_base->capacity_bytes() : 0; }

bool vmdk_reader::read(uint8_t* buffer, uint64_t offset, uint32_t& length) const {
  if (!m_chain_ok || !buffer || length == 0) return false;
  uint32_t done = 0;
  while (done < length) {
    const uint64_t v = offset + done;
    // The owner is the newest disk holding this grain. Chunks end at the nearest grain boundary
    // of any disk, so the owner cannot change inside one.
    auto owner_of = [this](uint64_t at, uint64_t& pos) -> const vmdk_disk* {
      for (size_t i = m_chain.size(); i-- > 0;)
        if (m_chain[i]->locate(at, pos)) return m_chain[i];
      return nullptr;
    };
    auto chunk_at = [this](uint64_t at, uint32_t left) {
      uint64_t take = left;
      for (const vmdk_disk* d : m_chain) take = std::min(take, d->m_grain_bytes - at % d->m_grain_bytes);
      return uint32_t(take);
    };
    uint64_t pos = 0;
    const vmdk_disk* owner = owner_of(v, pos);
    uint32_t chunk = chunk_at(v, length - done);
    // Grains of the same disk that follow each other in its file go in one read.
    while (owner && pos != UINT64_MAX && done + chunk < length) {
      uint64_t next_pos = 0;
      if (owner_of(v + chunk, next_pos) != owner || next_pos != pos + chunk) break;
      chunk += chunk_at(v + chunk, length - done - chunk);
    }
    if (!owner || !owner->read_file(buffer + done, chunk, pos)) memset(buffer + done, 0, chunk);
    done += chunk;
  }
  return true;
}

bool load_disk(vmdk_reader& reader, const std::wstring& name) {
  reader.m_refusal.clear();
  std::unique_ptr<vmdk_disk> disk(new vmdk_disk());
  if (!disk->load(name)) {
    reader.m_refusal = disk->m_refusal;
    return false;
  }
  // The same disk named twice keeps its first entry.
  const std::string key = cid_key(disk->m_cid);
  if (!reader.m_disks.count(key)) reader.m_disks[key] = std::move(disk);
  reader.m_count = reader.m_disks.size();
  return true;
}

bool load_list(vmdk_reader& reader, const std::vector<std::wstring>& names) {
  reader.clear();
  for (const std::wstring& name : names)
    if (!load_disk(reader, name)) return false;
  return true;
}

static bool is_base(const vmdk_disk& disk) { return cid_key(disk.m_parent_cid) == BASE_PARENT_CID; }

bool link_chain(vmdk_reader& reader) {
  reader.m_base = reader.m_top = nullptr;
  reader.m_chain.clear();
  reader.m_chain_ok = 0;
  for (auto& kv : reader.m_disks) kv.second->m_child = kv.second->m_parent = nullptr;
  for (auto& kv : reader.m_disks) {
    vmdk_disk* disk = kv.second.get();
    if (is_base(*disk)) {
      reader.m_base = disk;
      continue;
    }
    auto parent = reader.m_disks.find(cid_key(disk->m_parent_cid));
    if (parent == reader.m_disks.end() || parent->second.get() == disk) return false;
    disk->m_parent = parent->second.get();
    parent->second->m_child = disk;
  }
  if (!reader.m_base) return false;
  size_t steps = 0;
  for (vmdk_disk* disk = reader.m_base; disk && steps <= reader.m_count; disk = disk->m_child, ++steps)
    reader.m_chain.push_back(disk);
  if (steps > reader.m_count) {
    reader.m_chain.clear();
    return false;
  }
  reader.m_top = reader.m_chain.back();
  reader.m_chain_ok = 1;
  return true;
}

// ---- the check before a run ----

bool validate_vmdk_list(const std::vector<std::wstring>& list, std::ostringstream& messages,
                        std::vector<std::wstring>& suggested) {
  suggested = list;
  std::ostringstream added;  // the parent found last: each round tells what it added
  auto fail = [&messages](const char* text) {
    messages.str("");
    messages << text << "\n";
    return false;
  };
  for (int round = 0; round < MAX_CHAIN_ROUNDS; ++round) {
    vmdk_reader reader;
    std::string base_dir;
    for (size_t i = 0; i < suggested.size(); ++i) {
      if (i == 0) {
        const std::string first = orv::to_utf8(suggested[0]);
        const size_t slash = first.rfind('/');
        if (slash != std::string::npos) base_dir = first.substr(0, slash + 1);
      }
      if (!load_disk(reader, suggested[i])) {
        messages << added.str();
        if (!reader.m_refusal.empty())
          messages << reader.m_refusal << "\n";
        else
          messages << orv::to_utf8(suggested[i]) << " can't be opened" << "\n";
        return false;
      }
    }
    // The first disk whose parent is not in the list, in CID order.
    vmdk_disk* base = nullptr;
    vmdk_disk* child = nullptr;
    for (auto& kv : reader.m_disks) {
      vmdk_disk* disk = kv.second.get();
      if (is_base(*disk)) {
        base = disk;
        continue;
      }
      const std::string parent = cid_key(disk->m_parent_cid);
      if (parent == kv.first) return fail("Child VMDK CID errors, aborting");
      if (!reader.m_disks.count(parent)) {
        child = disk;
        break;
      }
    }
    if (!child) {
      // Every parent is present. Whether the chain runs from the base to one top is for the
      // open that follows: a broken one cannot be opened.
      messages << added.str();
      return base != nullptr;
    }
    const std::string hint = without_quotes(child->m_parent_hint);
    if (hint.empty()) return fail("Child VMDK points to a parent VMDK that doesn't exist, aborting");
    // The file the hint names is in the list already, but under another CID (the parent changed
    // after the snapshot was taken): nothing more to add. The chain is broken, which the open
    // that follows finds.
    bool named = false;
    for (auto& kv : reader.m_disks)
      if ((base ? kv.second.get() == base : reader.m_disks.size() >= 2) &&
          kv.second->m_path_utf8.find(hint) != std::string::npos)
        named = true;
    if (named) {
      messages << added.str();
      return base != nullptr;
    }
    const char separator = orv::lowered(child->m_encoding).find("windows") != std::string::npos ? '\\' : '/';
    std::string path = hint.find(separator) == std::string::npos ? base_dir + hint : hint;
    if (!file_opens(path)) {
      // Moved disks: the hint still shows where the parent was; look beside the first disk.
      const std::string beside = base_dir + last_component(hint);
      if (base_dir.empty() || path.find(base_dir) != std::string::npos || !file_opens(beside))
        return fail("Child VMDK points to a parent VMDK that doesn't exist, aborting");
      path = beside;
    }
    const std::wstring wide = orv::to_wide(path);
    if (std::find(suggested.begin(), suggested.end(), wide) != suggested.end())
      return fail("Child VMDK CID errors, aborting");
    added.str("");
    added << "=> vmdk file: " << child->m_path_utf8 << "\n" << " depends on parent vmdk " << hint << "\n";
    suggested.push_back(wide);
  }
  return fail("Child VMDK CID errors, aborting");
}
