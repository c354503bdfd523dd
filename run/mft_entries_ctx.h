#pragma once
// Every setting of the walk, one instance per run. The parse fills it and nothing changes it
// afterwards: what a scan opens and learns lives in its scan_state.
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "analysis/orv_filter_types.h"
#include "run/cmd_params.h"

class mft_entries_ctx : public cmd_params {
 public:

  // Output selection
  uint8_t m_hash_list_format = 0;
  uint8_t m_csvperpath = 0;
  uint8_t m_filepath_only = 0;
  uint8_t m_default_output = 0;
  uint8_t m_follow_ref_inode = 1;
  uint8_t m_include_ownersid = 0;
  std::wstring m_results_path;
  uint8_t m_hexdump = 0;
  uint8_t m_hide_dos_fntimes = 0;
  uint8_t m_metadata_only = 1;
  uint8_t m_include_clusterinfo = 0;
  uint8_t m_include_zoneinfo = 0;

  // Range and source
  uint64_t m_mft_start = 0;
  uint64_t m_mft_range = 0;
  std::wstring m_mftfile_path;
  uint32_t m_open_kind = 255;
  uint64_t m_volume_offset = 0;
  std::wstring m_image_path;
  std::wstring m_image_volume_path;
  std::wstring m_partition;
  uint32_t m_drive_num = 0xFFFFFFFFu;
  std::wstring m_mounted_vmdk;
  uint8_t m_ignore_image_size = 0;
  std::wstring m_indx_file;

  // Header capture
  uint8_t m_include_header = 0;
  uint8_t m_header_strings = 0;
  uint64_t m_header_offset = 0;
  uint32_t m_header_size = 0;

  // Filters
  std::vector<std::wstring> m_filter_ext;
  std::vector<std::wstring> m_filter_dir;
  std::vector<std::wstring> m_filter_dir_recurse;
  std::vector<std::wstring> m_filter_file;
  std::set<filter_record> m_filter_names;
  std::map<uint64_t, filter_record> m_filter_inodes;
  std::map<uint64_t, filter_record> m_filter_dir_inodes;
  uint64_t m_filter_max_size = 0;
  uint64_t m_filter_min_size = 0;
  uint64_t m_filter_min_ads_size = 0;
  std::vector<wildcard_pattern> m_filter_wildcards;
  uint64_t m_filter_start_time = 0;
  uint64_t m_filter_stop_time = 0;
  uint8_t m_filter_deleted = 0;
  uint8_t m_scan_unalloc = 0;
  uint8_t m_filter_deleted_all = 0;
  uint8_t m_filter_all_clusters = 0;
  uint8_t m_and_logic = 0;
  std::vector<uint8_t> m_pattern_bytes;
  std::vector<signature_test> m_signature_filters;
  uint64_t m_scan_start = 0;
  uint64_t m_scan_size = 4096;
  std::string m_find_objid;

  uint8_t m_time_analysis = 1;
  uint64_t m_future_limit = 0;
  uint8_t m_find_mft = 0;

  // Extraction
  uint8_t m_copy_files = 0;
  std::wstring m_results_dir;
  uint8_t m_copy_raw = 0;
  uint8_t m_skip_sparse = 0;
  uint8_t m_copy_active = 0;
  uint8_t m_use_orig_ext = 0;
  uint8_t m_regen_mft = 0;
  uint8_t m_unalloc_start_given = 0;
  uint64_t m_unalloc_start = 0;
  uint8_t m_copy_all = 0;
  uint8_t m_copy_normal_data = 0;
  uint8_t m_copy_named_data = 0;
  uint8_t m_hash_md5 = 0;
  uint8_t m_hash_sha1 = 0;
  uint8_t m_hash_sha256 = 0;
  uint8_t m_jp = 0;
  uint8_t m_lnk = 0;

  std::wstring m_list_separator;
  uint8_t m_show_record_offset = 0;
};

