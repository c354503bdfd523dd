#include "analysis/orv_scan_state.h"

#include "run/mft_entries_ctx.h"

namespace {
// The debug log of a scan made without options: off.
const diag_sink k_no_log;
}  // namespace

const diag_sink& scan_state::log() const { return m_log ? *m_log : k_no_log; }

void scan_state_for(scan_state& scan, const mft_entries_ctx& options) {
  scan.m_log = &options;
  scan.m_future_limit = options.m_future_limit;
  scan.m_zone_info = options.m_include_zoneinfo != 0;
  scan.m_follow_ref_inode = options.m_follow_ref_inode != 0;
  scan.m_owner_sids = options.m_include_ownersid != 0;
  scan.m_deleted_only = options.m_filter_deleted != 0;
  scan.m_and_logic = options.m_and_logic != 0;
  scan.m_filter_inodes = options.m_filter_inodes;
  scan.m_filter_dir_inodes = options.m_filter_dir_inodes;
  scan.m_listed_records.clear();
  for (const auto& kv : options.m_filter_inodes) scan.m_listed_records.insert(kv.first);
  scan.m_dirs_listed = options.m_filter_dir_inodes.empty();
}
