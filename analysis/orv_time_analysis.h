#pragma once
// Timestamp anomaly analysis: times set back, zero or in the future.
class entry_record;
class mft_entries_ctx;

// Leaves one warning text in the entry.
void analyse_timestamps(entry_record& entry, const mft_entries_ctx& ctx);
