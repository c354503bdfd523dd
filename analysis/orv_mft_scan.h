#pragma once
// The scans every record passes through, and the common record selection.
#include <cstdint>
#include <vector>

class entry_record;
class mft_entries_ctx;
struct record_sink;
struct scan_state;

// Opens the source that the options name into the scan state, once; true while one is open.
bool ensure_source_open(const mft_entries_ctx& options, scan_state& scan);
void close_source(scan_state& scan);
// Every record from -mftstart on, or the records of the inode filters alone. Each ends by closing
// the source; the result tells whether a directory was seen.
bool full_scan(const mft_entries_ctx& options, scan_state& scan, const record_sink& sink);
bool inode_list_scan(const mft_entries_ctx& options, scan_state& scan, const record_sink& sink);
// The common step of every scan: decodes a fixed-up record into the entry and runs the filters,
// the head-byte read, the time analysis and the paths. True when the record is to be written.
bool select_record(entry_record& entry, const std::vector<uint8_t>& record, uint32_t record_size, uint64_t inode,
                   const mft_entries_ctx& options, scan_state& scan);
