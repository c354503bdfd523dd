#pragma once
// The free-cluster walk: record-sized blocks of every free cluster offered to the selection.
class mft_entries_ctx;
class results_stream;

bool unalloc_scan(results_stream& out, mft_entries_ctx& ctx);
