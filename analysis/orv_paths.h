#pragma once
// Paths: NTFS keeps no path in a record, only parent references; the walk turns them into text.
#include <cstdint>
#include <set>
#include <string>

#include "analysis/orv_dir_cache.h"

class entry_record;
struct scan_state;

// The path of the directory that `reference` names, "[root]\" first, walked through the scan's
// directory store and, where it has no entry, the records themselves. True when the walk reached
// the root through sound links; a broken chain ends in "<path corrupted>".
bool resolve_parent_path(std::wstring& path, uint16_t& sequence, uint32_t& flags, uint64_t reference,
                         scan_state& scan);
// Name, parent references, header flags and sequence number of one record. True when it has a
// parent.
bool parents_of_inode(std::wstring& name, std::set<uint64_t>& parents, uint32_t& flags, uint16_t& sequence,
                      uint64_t record_number, scan_state& scan);
std::wstring select_name(const entry_record& entry, uint64_t record_number);
// The same name in place, without a copy; nullptr where select_name gives the empty string.
const std::wstring* select_name_of(const entry_record& entry, uint64_t record_number);
// Caches a directory entry (scan step) and resolves the path of every parent reference.
void cache_directory(const entry_record& entry, scan_state& scan);
void resolve_entry_paths(entry_record& entry, scan_state& scan);
