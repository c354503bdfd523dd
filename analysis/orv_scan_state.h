#pragma once
// What a run holds while it walks records. The options stay as the parse left them; everything
// that a scan opens, learns or changes lives here: the record source, the directories seen, the
// paths worked out, and the selection rules of the pass under way.
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "analysis/orv_dir_cache.h"
#include "analysis/orv_filter_types.h"
#include "base/orv_console.h"
#include "ntfs/orv_record_source.h"

class mft_entries_ctx;

struct scan_state {
  record_source m_source;
  std::wstring m_source_text;  // description of the source, copied to every entry
  uint64_t m_mft_total = 0;    // records the source holds; 0 when it did not tell
  // Why the last scan read no record at all, for the run to say; empty when it read some.
  std::string m_problem;

  // The volume's $UpCase, by which names compare as NTFS compares them; empty without a volume.
  std::vector<uint16_t> m_upcase;

  // Record decoding, as the options ask for it.
  const diag_sink* m_log = nullptr;  // never null once made by scan_state_for
  uint64_t m_future_limit = 0;       // file-name times past this are "future"; 0 unset
  bool m_zone_info = false;          // Zone.Identifier streams are read and parsed
  bool m_follow_ref_inode = true;    // a listed attribute belongs to its extension record
  bool m_owner_sids = false;         // the volume's $SDS is read when the scan takes it

  // Selection of the pass under way: deleted records only, and the AND reading of the filters.
  // A run over $MFT and then free clusters sets them anew for each pass.
  bool m_deleted_only = false;
  bool m_and_logic = false;
  bool m_unalloc_pass = false;  // the records come from free clusters

  // Inode and directory filters in force: those of the options, joined by the -filter_file and
  // -filter_dir paths once they are resolved on the volume.
  std::map<uint64_t, filter_record> m_filter_inodes;
  std::map<uint64_t, filter_record> m_filter_dir_inodes;
  // Records a scan of listed records reads: the inode filters', and the children that the indexes
  // of the directory filters list with the records $MFT marks free (deleted files keep their
  // parent there). `m_dirs_listed`: every directory filter has its children here.
  std::set<uint64_t> m_listed_records;
  bool m_dirs_listed = true;
  bool m_paths_resolved = false;  // the paths are resolved once per run
  bool m_dir_paths_met = false;   // some -filter_dir path resolved
  bool m_file_paths_met = false;  // some -filter_file path resolved
  // What the run tells on standard error about its filters ("prob reading <source>: " first).
  std::vector<std::string> m_notices;

  // Directories seen in this scan, and the paths of parent references whose walk reached the
  // root through sound links: such a walk gives the same text every time, so each directory is
  // walked once per scan.
  dir_store_map m_dir_store;
  std::unordered_map<uint64_t, std::string> m_sound_paths;  // UTF-8

  const diag_sink& log() const;
};

// Takes the decoding and selection settings of the options (the debug log included).
void scan_state_for(scan_state& scan, const mft_entries_ctx& options);
