#pragma once
// Record filters: the early test (deleted, inode), the time window, the OR groups and signatures.
#include <cstddef>
#include <cstdint>

class entry_record;
class mft_entries_ctx;

bool has_or_filters(const mft_entries_ctx& ctx);
bool early_filter(entry_record& entry, const mft_entries_ctx& ctx);
bool time_filter(entry_record& entry, const mft_entries_ctx& ctx);
bool or_filters_match(entry_record& entry, mft_entries_ctx& ctx);
bool signature_match(entry_record& entry, mft_entries_ctx& ctx);
// One signature test (types 30..39) over head bytes.
bool signature_bytes_match(uint32_t type, const uint8_t* bytes, size_t size);
// Resolves -filter_dir / -filter_file paths to inodes; needs an open volume.
void resolve_filter_paths(mft_entries_ctx& ctx);
