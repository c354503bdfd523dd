#pragma once
// The scans every record passes through, and the common record selection.
#include <cstdint>
#include <vector>

class entry_record;
class mft_entries_ctx;
class results_stream;

bool ensure_source_open(mft_entries_ctx& ctx);
void close_source(mft_entries_ctx& ctx);
bool full_scan(results_stream& out, mft_entries_ctx& ctx);
bool inode_list_scan(results_stream& out, mft_entries_ctx& ctx);
bool select_record(entry_record& entry, const std::vector<uint8_t>& record, uint32_t record_size, uint64_t inode,
                   mft_entries_ctx& ctx);
void write_selected(entry_record& entry, results_stream& out, mft_entries_ctx& ctx);
