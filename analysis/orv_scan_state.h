#pragma once
// What a run holds while it walks records. The options stay as the parse left them; everything
// that a scan opens, learns or changes lives here: the record source, the directories seen, the
// paths worked out, and the selection rules of the pass under way.
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "analysis/orv_dir_cache.h"
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

  // Directories seen in this scan, and the paths of parent references whose walk reached the
  // root through sound links: such a walk gives the same text every time, so each directory is
  // walked once per scan.
  dir_store_map m_dir_store;
  std::unordered_map<uint64_t, std::wstring> m_sound_paths;

  const diag_sink& log() const;
};

// Takes the decoding and selection settings of the options (the debug log included).
void scan_state_for(scan_state& scan, const mft_entries_ctx& options);
