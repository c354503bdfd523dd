#pragma once
// The default timeline rows (" | " padded, or -csv).
class entry_record;
class mft_entries_ctx;
class results_stream;

void write_default_results(entry_record& entry, results_stream& out, mft_entries_ctx& ctx);
