#pragma once
// Carving a lost MFT: every "FILE" record found anywhere on the volume goes into a store, the
// newest generation of each record number is chosen, and the volume is given a table of where
// each chosen record lies on the disk. The records themselves stay on the disk and are read from
// there, unfixed, when asked for, so the table costs 8 bytes per record number.
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

class CNtfs;
class RAW_DISK_IO;
struct diag_sink;

// What is kept of one found record; small on purpose, a volume may hold millions of them.
struct inode_record {
  uint64_t m_record_number = 0;       // header offset 44
  uint64_t m_lsn = 0;                 // header offset 8
  uint64_t m_base_record = UINT64_MAX;  // record number of the base reference; all ones in a base
  uint64_t m_created = 0, m_modified = 0, m_changed = 0, m_accessed = 0;  // $STANDARD_INFORMATION
  uint64_t m_disk_offset = 0;         // absolute byte offset of the record in the source
  std::vector<uint64_t> m_parents;    // whole parent references of every $FILE_NAME, ascending
  std::string m_name;                 // UTF-8; the last $FILE_NAME that is not a DOS name
  std::string m_path;                 // store walk: ends in a backslash, the own name included
  uint32_t m_si_flags = 0;
  uint16_t m_sequence = 0;            // header offset 16
  uint16_t m_flags = 0;               // header flags: 1 in use, 2 directory
  uint8_t m_is_directory = 0;
  uint8_t m_in_use = 0;
  uint8_t m_is_base = 0;
  uint8_t m_path_done = 0;
  uint8_t m_path_rooted = 0;
};

// Where the traces and the progress of a carving go; both optional.
struct carve_context {
  const diag_sink* m_log = nullptr;
  bool m_progress = false;
};

struct _inode_collection {
  std::vector<inode_record> m_records;           // in order of discovery: the "indx" of the traces
  std::map<uint64_t, size_t> m_dir_index;        // directories by record number
  // Every record as (record number, indx), in order of discovery; scan_inodes sorts it by number
  // at its end, candidates of one number keeping their order.
  std::vector<std::pair<uint64_t, size_t>> m_all_index;
  std::map<uint64_t, size_t> m_ref_index;        // by file reference (number and sequence)
  uint64_t m_scan_start = 0;                     // bytes relative to the volume
  uint64_t m_scan_end = 0;
  uint64_t m_volume_offset = 0;
  uint32_t m_record_size = 1024;
  uint32_t m_cluster_size = 0;
  uint32_t m_attr_mask = 81;
  uint8_t m_include_files = 1;
  RAW_DISK_IO* m_disk = nullptr;
  CNtfs* m_volume = nullptr;  // extension records of attribute lists are read through it, if set
  carve_context m_ctx;
};

// The result of a carving: the disk offset of the record chosen for each number, 0 for a hole.
using carved_mft = std::vector<uint64_t>;

// Carves the volume at `volume_offset` of `disk` into `out`. False when the disk is unreadable,
// holds no NTFS boot sector, or no directory record was found.
bool build_mft_image(carved_mft& out, RAW_DISK_IO* disk, uint64_t volume_offset, const carve_context& ctx,
                     CNtfs* volume = nullptr, uint32_t* record_size = nullptr);
// Carves the volume's own disk and hands the result to it. True when the volume now reads its
// records through the carved table.
bool regen_mft(CNtfs& volume, const carve_context& ctx);

// The carving walk over [m_scan_start, m_scan_end). `on_record` returns all ones when it dealt
// with the record itself, anything else to have it added. False when no directory was found.
using inode_visit = std::function<uint64_t(_inode_collection& store, inode_record& record)>;
bool scan_inodes(_inode_collection& store, const inode_visit& on_record);
// Collapses records of one file reference into the one with the latest MFT change time.
uint64_t keep_newest(_inode_collection& store, inode_record& record);
// Decodes one record (fixed up in place, 512-byte stride, sequence unchecked) into `record`.
bool read_inode(inode_record& record, uint8_t* bytes, uint32_t record_size, const _inode_collection& store);
// One record per number, ascending (number, indx): the highest sequence number, then the latest
// MFT change time. Numbers whose slot would lie past the end of the volume are not believed.
using chosen_records = std::vector<std::pair<uint64_t, size_t>>;
chosen_records choose_records(const _inode_collection& store);
// Lays out the chosen records as a table of disk offsets by record number.
void lay_out_records(const _inode_collection& store, const chosen_records& chosen, carved_mft& out);
// Fills m_path, m_path_done and m_path_rooted of the directories in m_dir_index from the store
// alone: names and parents, no record read, no sequence compared.
void resolve_store_paths(_inode_collection& store);
