#pragma once
// Record filters: the early test (deleted, inode), the time window, the OR groups and signatures.
#include <cstddef>
#include <cstdint>

class entry_record;
class mft_entries_ctx;
struct scan_state;

// The inode and directory filters are read from the scan, which holds the resolved paths too.
bool has_or_filters(const mft_entries_ctx& options, const scan_state& scan);
// Deleted records only, or the inode filter; passes everything when neither is in force.
bool early_filter(entry_record& entry, const mft_entries_ctx& options, const scan_state& scan);
bool time_filter(entry_record& entry, const mft_entries_ctx& options);
bool or_filters_match(entry_record& entry, const mft_entries_ctx& options, scan_state& scan);
bool signature_match(entry_record& entry, const mft_entries_ctx& options, const scan_state& scan);
// One signature test (types 30..39) over head bytes.
bool signature_bytes_match(uint32_t type, const uint8_t* bytes, size_t size);
