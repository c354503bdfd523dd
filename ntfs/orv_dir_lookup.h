#pragma once
// Directories through their $I30 indexes: the children of a directory, a path walked name by name
// from the root directory (entry 5), and the directories of a tree down to a depth. Names compare
// case-insensitively as the filters compare them: the volume's $UpCase, then the built-in Unicode
// lower case (orv::fold_name).
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "ntfs/orv_index.h"
#include "ntfs/orv_runs.h"

class CNtfs;
struct diag_sink;

constexpr uint64_t k_root_directory = 5;

// A directory's $I30, gathered from its record and the extension records its attribute list names.
struct dir_index {
  index_root_head m_head;
  std::vector<index_entry> m_root_entries;
  data_run_list m_runs;               // $INDEX_ALLOCATION, extents merged
  std::vector<uint8_t> m_bitmap;      // one bit per allocation block, set when in use
  uint64_t m_block_count = 0;         // blocks the allocation holds, cut to its runs and the source
  uint32_t m_block_size = k_index_block_size;
  uint64_t m_vcn_unit = 0;            // bytes per VCN step of a child node pointer
  bool block_in_use(uint64_t block) const;
};

// Reads the $I30 of record `inode`. False (with a debug line) when the record cannot be read or
// holds no usable index root.
bool read_dir_index(CNtfs& volume, uint64_t inode, dir_index& out, const diag_sink& log);
// Reads allocation block `block` (numbered from 0), applies its fixups and decodes it. False,
// with a debug line, for a block that cannot be read, is no "INDX" block, or names another VCN.
bool read_index_block(CNtfs& volume, const dir_index& index, uint64_t block, bool slack, uint64_t parent,
                      std::vector<index_entry>& out, const diag_sink& log);

struct dir_child {
  uint64_t m_reference = 0;
  std::wstring m_name;
  uint32_t m_file_flags = 0;  // of the key's $FILE_NAME value
  bool m_deleted = false;     // found in slack or in a block the index no longer uses
  bool is_directory() const { return (m_file_flags & 0x10000000u) != 0; }
};

// One directory in the volume's cache: names found so far (by folded name) and, once the whole
// index has been read, every child.
struct dir_index_node {
  std::map<std::wstring, dir_child> m_names;
  std::vector<dir_child> m_children;
  bool m_listed = false;
  bool m_unreadable = false;
};

// Every child of directory `inode` that its index lists, names in slack and unused blocks
// included (marked deleted); DOS-only names are left out. Cached on the volume. False when the
// index cannot be read.
bool list_directory(CNtfs& volume, uint64_t inode, const std::vector<uint16_t>& upcase,
                    const std::vector<dir_child>*& children, const diag_sink& log);
// The child of directory `inode` named `name`. Reads only the index blocks on the way down the
// tree of the index, and the whole index only when that way does not find it.
bool find_child(CNtfs& volume, uint64_t inode, const std::wstring& name, const std::vector<uint16_t>& upcase,
                dir_child& found, const diag_sink& log);

// Walks `path` ("\" or "/" separated, an optional drive "c:" first, a ":stream" of a segment
// ignored) from the root. `found` the entry reached, `parent` the directory before it,
// `canonical` the segments joined by "\" (with a leading "\" when the path had one).
bool resolve_path_to_inode(uint64_t& found, uint64_t& parent, std::wstring& canonical, CNtfs& volume,
                           const std::wstring& path, const std::vector<uint16_t>& upcase, const diag_sink& log);

struct dir_tree_item {
  uint64_t m_inode = 0;
  std::wstring m_text;  // `text` of the top, then "\" and each name down to this directory
  unsigned m_level = 0;
};
// Directory `inode` and the directories below it down to `levels` levels, each listed once: a
// child that is already in the list (an ancestor named again, a loop) is logged and left out.
void list_directory_tree(CNtfs& volume, uint64_t inode, const std::wstring& text, unsigned levels,
                         const std::vector<uint16_t>& upcase, std::vector<dir_tree_item>& out, const diag_sink& log);
