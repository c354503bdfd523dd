#pragma once
// VMware monolithic sparse disks and their snapshot chains, read as one virtual disk.
//
// A sparse extent file begins with a 512-byte header ("KDMV"), carries its text descriptor
// inside, and maps the virtual disk in grains through a grain directory of grain tables. A
// snapshot is a further sparse file whose descriptor names its parent by CID; a grain it does
// not hold is read from the parent, and a grain no disk holds reads as zeros.
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

// Sparse extent header, offsets in bytes; sector values count 512-byte sectors.
constexpr uint32_t VMDK_MAGIC = 0x564D444B;  // "KDMV"
constexpr size_t VMDK_HEADER_BYTES = 513;
constexpr uint32_t VMDK_FLAG_COMPRESSED = 1u << 16;

class vmdk_disk {
 public:
  vmdk_disk() = default;
  virtual ~vmdk_disk();
  vmdk_disk(const vmdk_disk&) = delete;
  vmdk_disk& operator=(const vmdk_disk&) = delete;

  // Opens the file, checks the header against the file's size, reads the descriptor and every
  // grain table. False leaves m_valid 0, and m_refusal set when the disk was refused for a
  // reason the user must hear of.
  bool load(const std::wstring& name);
  // File position of virtual byte `v`, or false when this disk does not hold its grain.
  bool locate(uint64_t v, uint64_t& file_pos) const;
  // Reads `length` bytes at file position `pos`; what lies past the end of the file reads as
  // zeros. False when nothing at all could be read.
  bool read_file(uint8_t* buffer, uint32_t length, uint64_t pos) const;
  uint64_t capacity_bytes() const { return m_capacity_sectors * m_sector_size; }

  uint8_t m_header[VMDK_HEADER_BYTES] = {};
  std::vector<std::wstring> m_descriptor_lines;
  std::string m_encoding;
  std::string m_parent_cid;
  std::string m_cid;
  std::string m_parent_hint;
  vmdk_disk* m_child = nullptr;
  vmdk_disk* m_parent = nullptr;
  std::vector<uint32_t> m_grain_dir;
  uint64_t m_first_table_offset = 0;
  std::vector<std::vector<uint32_t>> m_grain_tables;
  uint64_t m_first_grain_offset = 0;
  std::vector<uint8_t> m_first_sector;
  std::vector<uint64_t> m_partition_offsets;
  std::set<uint32_t> m_partition_sector_sizes;
  uint32_t m_cluster_size = 4096;
  uint64_t m_grain_clusters = 0;
  uint8_t m_valid = 0;
  int32_t m_fd = -1;
  uint8_t m_writable = 0;
  std::string m_path_utf8;
  std::wstring m_path;
  uint32_t m_sector_size = 512;
  uint64_t m_file_size = 0;
  uint64_t m_table_span = 0;
  uint64_t m_grain_bytes = 0;
  uint64_t m_capacity_sectors = 0;
  uint32_t m_entries_per_table = 0;
  std::string m_refusal;
};

class vmdk_reader {
 public:
  vmdk_reader() = default;
  virtual ~vmdk_reader() = default;
  vmdk_reader(const vmdk_reader&) = delete;
  vmdk_reader& operator=(const vmdk_reader&) = delete;

  // Reads at virtual byte `offset`, the newest disk holding each grain serving it; holes and
  // unreadable parts are zeros. `length` comes back as the bytes delivered.
  bool read(uint8_t* buffer, uint64_t offset, uint32_t& length) const;
  // Capacity of the base disk in bytes.
  uint64_t disk_size() const;
  void clear();

  std::map<std::string, std::unique_ptr<vmdk_disk>> m_disks;  // by CID
  size_t m_count = 0;
  vmdk_disk* m_top = nullptr;
  vmdk_disk* m_base = nullptr;
  uint8_t m_chain_ok = 0;
  std::vector<vmdk_disk*> m_chain;  // base first
  uint8_t m_writable = 0;
  uint64_t m_step = 0;  // smallest grain of the chain: no owner changes inside one step
  std::string m_refusal;  // why the last load_disk refused its file, if it said
};

bool load_disk(vmdk_reader& reader, const std::wstring& name);
// load_disk for each name in order, stopping at the first failure.
bool load_list(vmdk_reader& reader, const std::vector<std::wstring>& names);
bool link_chain(vmdk_reader& reader);
// The check made before a run: every file must load and the chain must link. Parents missing
// from `list` are looked for through the children's "parentFileNameHint"; `suggested` comes back
// as the whole list, and `messages` says what was added or why the chain cannot be used.
bool validate_vmdk_list(const std::vector<std::wstring>& list, std::ostringstream& messages,
                        std::vector<std::wstring>& suggested);
