#pragma once
// Head bytes of a record's unnamed data streams, for header capture and the signature filters.
class entry_record;
class mft_entries_ctx;
struct scan_state;

// Reads the asked bytes of every unnamed data stream into its head buffer: resident values as
// they are, non-resident streams through the volume (an extracted $MFT has none to read).
void read_head_bytes(entry_record& entry, const mft_entries_ctx& options, const scan_state& scan);
