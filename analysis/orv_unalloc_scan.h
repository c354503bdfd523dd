#pragma once
// The free-cluster walk: record-sized blocks of every free cluster offered to the selection.
class mft_entries_ctx;
struct record_sink;
struct scan_state;

bool unalloc_scan(const mft_entries_ctx& options, scan_state& scan, const record_sink& sink);
