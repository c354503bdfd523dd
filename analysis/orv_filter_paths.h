#pragma once
// -filter_dir and -filter_file paths turned into directory and inode filters on the open volume.
#include <cstdint>
#include <string>

class mft_entries_ctx;
struct scan_state;

// Depth mark of a -filter_dir item: the text from the first "*" on. None: 0 (the directory
// alone); "*": 1 level of subdirectories; "*?": 99; "*N": N. `path` is the item before the "*".
unsigned filter_dir_depth(const std::wstring& item, std::wstring& path);
// A -filter_file item split at its stream mark, the last ":" that is no drive's.
void split_file_stream(const std::wstring& item, std::wstring& path, std::wstring& stream);

// Resolves the paths once per run into the scan's filters, with the records their directories
// list. Without a volume (an extracted $MFT) nothing resolves and the run is told so.
void resolve_filter_paths(const mft_entries_ctx& options, scan_state& scan);
