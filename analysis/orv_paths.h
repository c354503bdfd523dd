#pragma once
// Paths: NTFS keeps no path in a record, only parent references; the walk turns them into text.
#include <cstdint>
#include <set>
#include <string>

#include "analysis/orv_dir_cache.h"

class entry_record;
class mft_entries_ctx;

bool resolve_parent_path(std::wstring& path, uint16_t& sequence, uint32_t& flags, uint64_t reference,
                         mft_entries_ctx& ctx, dir_store_map& cache);
bool parents_of_inode(std::wstring& name, std::set<uint64_t>& parents, uint32_t& flags, uint16_t& sequence,
                      uint64_t record_number, mft_entries_ctx& ctx);
std::wstring select_name(const entry_record& entry, uint64_t record_number);
// The same name in place, without a copy; nullptr where select_name gives the empty string.
const std::wstring* select_name_of(const entry_record& entry, uint64_t record_number);
// Caches a directory entry (scan step) and resolves the path of every parent reference.
void cache_directory(const entry_record& entry, mft_entries_ctx& ctx);
void resolve_entry_paths(entry_record& entry, mft_entries_ctx& ctx);
