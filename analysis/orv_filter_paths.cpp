// -filter_dir and -filter_file: each path is walked through the directory indexes of the volume to
// an entry number. A directory becomes a directory filter (its files are those whose parent it
// is), a file an inode filter. The children a directory's index lists, and the records $MFT marks
// free (where deleted files of the directory are), are what a scan of listed records reads.
#include "analysis/orv_filter_paths.h"

#include "analysis/orv_scan_state.h"
#include "base/orv_string.h"
#include "ntfs/ntfs.h"
#include "ntfs/orv_dir_lookup.h"
#include "ntfs/orv_stream.h"
#include "run/mft_entries_ctx.h"

namespace {

void notice(scan_state& scan, const std::string& text) {
  log_line(scan.log(), "%s", text.c_str());
  scan.m_notices.push_back(text);
}

// Records not in use by $MFT's own bitmap: a deleted file still names its directory there.
bool add_free_records(CNtfs& volume, scan_state& scan) {
  const uint64_t total = volume.mft_inode_count();
  std::vector<uint8_t> bitmap;
  if (volume.m_mft_info.m_bitmap_runs.empty() ||
      !read_stream_bytes(volume, volume.m_mft_info.m_bitmap_runs,
                         std::min(volume.m_mft_info.m_bitmap_size, (total + 7) / 8), bitmap))
    return false;
  for (uint64_t record = 0; record < total && record / 8 < bitmap.size(); ++record)
    if (!((bitmap[size_t(record / 8)] >> (record % 8)) & 1)) scan.m_listed_records.insert(record);
  return true;
}

// A directory filter for `inode` with its children listed; merged into one already there.
void add_directory(CNtfs& volume, scan_state& scan, uint64_t inode, const std::wstring& text) {
  auto it = scan.m_filter_dir_inodes.find(inode);
  if (it == scan.m_filter_dir_inodes.end())
    it = scan.m_filter_dir_inodes.emplace(inode, filter_record(filter_directory_inode, text, inode)).first;
  it->second.m_whole_entry = 1;
  scan.m_listed_records.insert(inode);  // the root directory is its own parent
  const std::vector<dir_child>* children = nullptr;
  if (!list_directory(volume, inode, scan.m_upcase, children, scan.log())) {
    scan.m_dirs_listed = false;
    return;
  }
  for (const dir_child& child : *children) scan.m_listed_records.insert(orv::ref_number(child.m_reference));
}

void resolve_dir_item(CNtfs& volume, scan_state& scan, const std::wstring& item) {
  std::wstring path, canonical;
  const unsigned depth = filter_dir_depth(item, path);
  uint64_t inode = 0, parent = 0;
  if (!resolve_path_to_inode(inode, parent, canonical, volume, path, scan.m_upcase, scan.log())) {
    notice(scan, "-filter_dir path " + orv::to_utf8(path) + " not found");
    return;
  }
  scan.m_dir_paths_met = true;
  const std::wstring text = inode == k_root_directory ? L"[root]" : canonical;
  if (depth == 0) return add_directory(volume, scan, inode, text);
  // The tree's texts start with the drive of the path, or "[root]".
  const bool drive = text.size() >= 2 && text[1] == L':';
  std::wstring rest = inode == k_root_directory ? L"" : canonical.substr(drive ? 2 : 0);
  if (!rest.empty() && rest[0] == L'\\') rest.erase(0, 1);
  const std::wstring top = (drive ? text.substr(0, 2) : L"[root]") + (rest.empty() ? L"" : L"\\" + rest);
  std::vector<dir_tree_item> tree;
  list_directory_tree(volume, inode, top, depth, scan.m_upcase, tree, scan.log());
  for (const dir_tree_item& dir : tree) add_directory(volume, scan, dir.m_inode, dir.m_text);
}

void resolve_file_item(CNtfs& volume, scan_state& scan, const std::wstring& item) {
  std::wstring path, stream, canonical;
  split_file_stream(item, path, stream);
  uint64_t inode = 0, parent = 0;
  if (!resolve_path_to_inode(inode, parent, canonical, volume, path, scan.m_upcase, scan.log())) {
    notice(scan, "-filter_file path " + orv::to_utf8(path) + " not found");
    return;
  }
  scan.m_file_paths_met = true;
  auto it = scan.m_filter_inodes.find(inode);
  if (it == scan.m_filter_inodes.end()) {
    // The path is the record's text; what it selects by is set below.
    it = scan.m_filter_inodes.emplace(inode, filter_record(filter_inode, canonical, inode)).first;
    it->second.m_whole_entry = 0;
    it->second.m_stream_names.clear();
  }
  filter_record& record = it->second;
  if (stream.empty()) {
    record.m_whole_entry = 1;
  } else {
    record.m_stream_names.insert(stream);
    record.m_has_stream = record.m_by_stream = 1;
  }
  scan.m_listed_records.insert(inode);
}

}  // namespace

unsigned filter_dir_depth(const std::wstring& item, std::wstring& path) {
  const size_t star = item.find(L'*');
  path = item.substr(0, star);
  if (star == std::wstring::npos) return 0;
  const std::wstring mark = orv::trim(item.substr(star + 1));
  if (mark.empty()) return 1;
  if (mark[0] == L'?') return 99;
  uint32_t depth = 0;
  if (!orv::parse_u32(orv::to_utf8(mark), depth)) return 1;
  return std::min<uint32_t>(depth, 99);
}

void split_file_stream(const std::wstring& item, std::wstring& path, std::wstring& stream) {
  size_t colon = item.rfind(L':');
  const bool drive = colon == 1 && item.size() > 2 && (item[2] == L'\\' || item[2] == L'/');
  if (colon == std::wstring::npos || drive) colon = item.size();
  path = item.substr(0, colon);
  stream = colon < item.size() ? item.substr(colon + 1) : std::wstring();
}

void resolve_filter_paths(const mft_entries_ctx& options, scan_state& scan) {
  if (scan.m_paths_resolved || (options.m_filter_dir.empty() && options.m_filter_file.empty())) return;
  CNtfs* volume = scan.m_source.volume();
  if (!volume) {
    if (!scan.m_source.is_mftfile()) return;
    scan.m_paths_resolved = true;
    log_line(scan.log(), "path filters: an extracted $MFT has no volume to read directory indexes from");
    scan.m_notices.push_back("-filter_dir and -filter_file need a volume image, no record is selected by them");
    return;
  }
  scan.m_paths_resolved = true;
  for (const std::wstring& item : options.m_filter_dir) resolve_dir_item(*volume, scan, item);
  for (const std::wstring& item : options.m_filter_file) resolve_file_item(*volume, scan, item);
  if (!scan.m_filter_dir_inodes.empty() && scan.m_dirs_listed && !add_free_records(*volume, scan))
    scan.m_dirs_listed = false;
}
