#pragma once
// One validated NTFS volume on a raw source: boot sector, geometry, the $MFT run list, and the
// translation of an entry number into a byte position.
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "ntfs/orv_runs.h"
#include "storage/orv_raw_disk_io.h"

class mft_entries_ctx;

struct NTFS_BOOT {
  uint8_t m_bytes[512] = {};
  uint16_t bytes_per_sector() const;
  uint8_t sectors_per_cluster() const;
  uint64_t total_sectors() const;
  uint64_t mft_lcn() const;
  int8_t clusters_per_record() const;
  bool oem_ok() const;  // "NTFS    " at offset 3
};

struct security_entry {
  uint64_t m_position = 0;
  uint64_t m_security_id = 0;
  std::string m_owner_sid;
  std::string m_group_sid;
  std::vector<std::string> m_sacl_rows;
  std::vector<std::string> m_dacl_rows;
  std::string m_spare1, m_spare2;
};

struct INODE_STATS {
  std::string m_owner_sid;
  std::string m_name;
  std::wstring m_wname;
  uint8_t m_file_name_raw[68] = {};
  uint64_t m_size = 0;
  data_run_list m_bitmap_runs;
  data_run_list m_data_runs;
  std::vector<data_run_list> m_index_alloc_runs;
  uint64_t m_bitmap_size = 0;
  std::vector<std::string> m_index_alloc_names;
  bool m_has_data_runs = false;
};

struct dir_cache_node {
  std::set<uint64_t> m_children;
  std::map<std::string, uint64_t> m_child_names;
  std::set<uint64_t> m_parents;
  bool m_is_directory = false;
  bool m_names_filled = false;
};

class CNtfs {
 public:
  // Takes ownership of `disk`; `volume_offset` is the byte position of the volume on it.
  CNtfs(std::unique_ptr<RAW_DISK_IO> disk, uint64_t volume_offset);
  virtual ~CNtfs();
  CNtfs(const CNtfs&) = delete;
  CNtfs& operator=(const CNtfs&) = delete;

  // Validates the boot sector and reads $MFT (record 0) and $Bitmap (record 6). Idempotent.
  bool volume_open(uint64_t* mft_pos = nullptr);
  bool validated() const { return m_Validated; }

  // Reads whole clusters starting at `lcn`; `length` must be a multiple of the cluster size.
  bool read_clusters(uint64_t lcn, uint8_t* buffer, uint64_t length);
  // Plain byte read relative to the volume start; `length` comes back with what was read.
  bool read_volume(uint64_t offset, uint8_t* buffer, uint32_t& length);
  // Byte position of a record inside the volume; 0 when past the last run or not validated.
  uint64_t get_file_pos_for_inode(uint64_t inode) const;
  // Reads record `inode` (m_mft_record_size bytes) into `out` without fixups, through a
  // read-ahead window over the $MFT runs. False on a failed read.
  bool read_record_raw(uint64_t inode, std::vector<uint8_t>& out);
  // Reads and fixes up one record with the volume's own reader; only "FILE" and "INDX" pass.
  bool read_record(uint64_t inode, std::vector<uint8_t>& out);
  // Summary of record `inode`, already read and fixed up in `record`, extents from its attribute
  // list included. False when a run list in it fails to decode; what was gathered stays in `out`.
  bool read_inode_stats(uint64_t inode, const std::vector<uint8_t>& record, INODE_STATS& out);
  data_run_list get_mft_inode_bitmap_runlist() const;
  data_run_list get_bitmap_inode_runlist() const;
  INODE_STATS get_mft_inode_stats() const;
  uint64_t get_last_allocated_indo_per_mftbitmap();
  uint64_t mft_inode_count() const { return m_mft_inode_count; }
  uint32_t record_size() const { return m_mft_record_size ? m_mft_record_size : 1024; }
  uint32_t sector_size() const;
  uint64_t cluster_size() const { return m_cluster_size > 0 ? uint64_t(m_cluster_size) : 0; }
  RAW_DISK_IO* disk() { return m_disk.get(); }

  NTFS_BOOT m_boot;
  std::map<uint32_t, security_entry> m_secure_map;
  bool m_secure_loaded = false;
  std::unique_ptr<RAW_DISK_IO> m_disk;
  bool m_Validated = false;
  std::vector<uint8_t> m_first_record;
  INODE_STATS m_mft_info;
  data_run_list m_bitmap_runs;
  uint32_t m_filerec_size = 1024;
  std::map<uint64_t, dir_cache_node> m_dir_cache;
  bool m_use_mft_image = false;
  std::vector<uint8_t> m_mft_image;
  uint64_t m_mft_inode_count = 0;
  int32_t m_cluster_size = 0;
  uint64_t m_total_clusters = 0;
  int32_t m_mft_cluster_per_record_fixed = 0;
  uint64_t m_mft_file_pos = 0;
  uint64_t m_sectors_per_cluster = 0;
  uint64_t m_volume_offset = 0;
  uint32_t m_mft_record_size = 1024;

 private:
  std::vector<uint8_t> m_window;  // read-ahead of consecutive records
  uint64_t m_window_first = 0;
  uint64_t m_window_count = 0;
  uint64_t m_last_inode = UINT64_MAX - 1;  // the record read last, to tell a walk from a jump
};

// Opens a volume on a path source at `offset`; nullptr when it does not validate.
std::unique_ptr<CNtfs> open_volume_path(const std::wstring& path, uint64_t offset);
std::unique_ptr<CNtfs> open_volume_drive(uint32_t drive, uint64_t offset);

