#pragma once
// One validated NTFS volume on a raw source: boot sector, geometry, the $MFT run list, and the
// translation of an entry number into a byte position.
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "base/orv_background_task.h"
#include "ntfs/orv_dir_lookup.h"
#include "ntfs/orv_runs.h"
#include "ntfs/orv_security.h"
#include "storage/orv_raw_disk_io.h"

struct NTFS_BOOT {
  uint8_t m_bytes[512] = {};
  uint16_t bytes_per_sector() const;
  uint32_t sectors_per_cluster() const;  // the large-cluster form decoded
  uint64_t total_sectors() const;
  uint64_t mft_lcn() const;
  int8_t clusters_per_record() const;
  // File record size: 2^-v bytes for a negative field, else clusters; 0 when no record could be
  // that size.
  uint32_t record_size() const;
  bool oem_ok() const;  // "NTFS    " at offset 3
};

struct INODE_STATS {
  std::string m_owner_sid;  // through the security id, once the volume's map of $SDS is loaded
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

class CNtfs {
 public:
  // Takes ownership of `disk`; `volume_offset` is the byte position of the volume on it.
  CNtfs(std::unique_ptr<RAW_DISK_IO> disk, uint64_t volume_offset);
  virtual ~CNtfs();
  CNtfs(const CNtfs&) = delete;
  CNtfs& operator=(const CNtfs&) = delete;

  // Validates the boot sector and reads $MFT (record 0) and $Bitmap (record 6). Idempotent.
  bool volume_open(uint64_t* mft_pos = nullptr);
  bool validated() const { return m_validated; }

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
  // The cluster bitmap ($Bitmap, record 6): one bit per cluster, set when in use. Never more than
  // 512 MiB (a volume of 2^32 clusters), nor more than the source holds. False when unreadable.
  bool read_cluster_bitmap(std::vector<uint8_t>& out);
  // The volume's $UpCase (record 10): the upper case of each of the 65536 UTF-16 units, by which
  // NTFS compares names. False when it cannot be read whole.
  bool read_upcase(std::vector<uint16_t>& out);
  // Reads $Secure:$SDS into m_secure_map, once: a load that failed is tried again at the next
  // call. False when the volume has no readable $SDS.
  bool ensure_secure_map(const diag_sink* log = nullptr);
  uint64_t mft_inode_count() const { return m_mft_inode_count; }
  // Takes a carved MFT (disk offsets by record number, 0 for a hole) laid out for records of
  // `record_size` bytes as the source of records. Refused when the size differs from the
  // volume's, or the table holds 4096 bytes of records or less.
  bool use_carved_mft(std::vector<uint64_t> offsets, uint32_t record_size);
  uint32_t record_size() const { return m_mft_record_size ? m_mft_record_size : 1024; }
  uint32_t sector_size() const;
  uint64_t cluster_size() const { return m_cluster_size > 0 ? uint64_t(m_cluster_size) : 0; }
  RAW_DISK_IO* disk() { return m_disk.get(); }
  // Bytes the boot sector gives the volume; 0 when it does not say.
  uint64_t volume_bytes() const;

  NTFS_BOOT m_boot;
  std::unique_ptr<RAW_DISK_IO> m_disk;
  bool m_validated = false;
  std::string m_refusal;                // why volume_open failed
  std::vector<uint8_t> m_first_record;  // record 0 of $MFT, fixed up
  INODE_STATS m_mft_info;               // record 0 with its attribute list
  data_run_list m_bitmap_runs;          // unnamed data of record 6, $Bitmap
  uint64_t m_bitmap_bytes = 0;          // its size
  uint32_t m_filerec_size = 1024;       // stride of records inside $MFT
  // Records taken from an MFT carved out of the whole volume instead of through the runs: the
  // absolute disk offset of each record by number, 0 for a number no record was found for.
  bool m_use_mft_image = false;
  std::vector<uint64_t> m_mft_image;
  uint64_t m_mft_inode_count = 0;
  int32_t m_cluster_size = 0;
  uint64_t m_total_clusters = 0;
  uint64_t m_mft_file_pos = 0;  // byte position of $MFT inside the volume
  uint64_t m_volume_offset = 0;
  uint32_t m_mft_record_size = 1024;
  // Descriptors of $SDS by security id, decoded; filled by ensure_secure_map.
  secure_map m_secure_map;
  bool m_secure_loaded = false;
  // Directories read through their indexes, by entry number; kept while the volume is open.
  std::map<uint64_t, dir_index_node> m_dir_cache;

 private:
  uint64_t window_bytes(uint64_t left) const;
  uint64_t read_window(uint8_t* into, uint64_t length, uint64_t at);
  void read_ahead(uint64_t next);
  void drop_windows();

  std::vector<uint8_t> m_window;  // consecutive records of one $MFT run
  uint64_t m_window_first = 0;
  uint64_t m_window_count = 0;
  uint64_t m_last_inode = UINT64_MAX - 1;  // the record read last, to tell a walk from a jump
  // The window after this one, read while this one is decoded.
  orv::block_read_ahead m_ahead;  // last, so that its reads stop before the buffers they fill go
};

// Opens a volume on a path source at `offset`; nullptr when it does not validate, `why` then
// saying what was wrong.
std::unique_ptr<CNtfs> open_volume_path(const std::wstring& path, uint64_t offset, std::string* why = nullptr);
std::unique_ptr<CNtfs> open_volume_drive(uint32_t drive, uint64_t offset, std::string* why = nullptr);
// Opens a volume on a VMDK disk or chain. An `offset` of 0 with no NTFS volume at the disk's
// start takes the base disk's first partition that holds one.
std::unique_ptr<CNtfs> open_volume_vmdk(const std::vector<std::wstring>& list, uint64_t offset,
                                        std::string* why = nullptr);

