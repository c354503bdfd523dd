#include "ntfs/orv_dir_lookup.h"

#include <algorithm>
#include <cstring>
#include <deque>

#include "base/orv_console.h"
#include "base/orv_string.h"
#include "ntfs/ntfs.h"
#include "ntfs/orv_attrib.h"
#include "ntfs/orv_attrib_list.h"
#include "ntfs/orv_stream.h"

namespace {

// A $BITMAP of an index larger than this (a bit per block of 4096 bytes: a 4 TiB index) is
// damage.
constexpr uint64_t k_max_index_bitmap = 1u << 20;

bool named_i30(const attrib_view& attr) {
  static const uint8_t k_i30[8] = {'$', 0, 'I', 0, '3', 0, '0', 0};
  if (attr.name_length() != 4 || !attr.has_name()) return false;
  const orv::byte_span name = attr.m_bytes.sub(attr.name_offset(), 8);
  return name.m_size == 8 && std::equal(name.m_data, name.m_data + 8, k_i30);
}

// One attribute of the directory's record or of an extension record into `out`.
void take_index_attribute(CNtfs& volume, const uint8_t* bytes, uint32_t length, dir_index& out,
                          std::vector<uint8_t>& root, uint64_t& alloc_size) {
  const attrib_view attr(orv::byte_span(bytes, length));
  const uint32_t type = attr.type();
  if ((type != AT_INDEX_ROOT && type != AT_INDEX_ALLOCATION && type != AT_BITMAP) || !named_i30(attr)) return;
  if (type == AT_INDEX_ROOT) {
    const orv::byte_span value = attr.value();
    if (!attr.non_resident() && root.empty()) root.assign(value.m_data, value.m_data + value.m_size);
    return;
  }
  if (!attr.non_resident()) {
    if (type == AT_BITMAP && out.m_bitmap.empty()) {
      const orv::byte_span value = attr.value();
      out.m_bitmap.assign(value.m_data, value.m_data + value.m_size);
    }
    return;
  }
  const uint16_t runs_at = attr.runs_offset();
  data_run_list runs;
  if (runs_at >= length || !decode_run_bytes(bytes + runs_at, length - runs_at, attr.first_vcn(), runs, true)) return;
  if (type == AT_BITMAP) {
    if (out.m_bitmap.empty())
      read_stream_bytes(volume, runs, std::min<uint64_t>(attr.real_size(), k_max_index_bitmap), out.m_bitmap);
    return;
  }
  if (attr.first_vcn() == 0) alloc_size = attr.real_size();
  merge_run_lists(out.m_runs, runs);
}

}  // namespace

bool dir_index::block_in_use(uint64_t block) const {
  if (m_bitmap.empty()) return true;  // without a bitmap every block counts
  return block / 8 < m_bitmap.size() && (m_bitmap[size_t(block / 8)] >> (block % 8)) & 1;
}

bool read_dir_index(CNtfs& volume, uint64_t inode, dir_index& out, const diag_sink& log) {
  out = dir_index();
  std::vector<uint8_t> record;
  if (!volume.read_record(inode, record) || record.size() < 24 || std::memcmp(record.data(), "FILE", 4) != 0) {
    log_line(log, "err: readFR: inode 0x%llx", (unsigned long long)inode);
    return false;
  }
  std::vector<uint8_t> root, list_bytes_held;
  uint64_t alloc_size = 0;
  orv::byte_span list;
  attrib_walk_rules rules;
  rules.m_limit = uint32_t(record.size());
  walk_attributes(record.data(), record.size(), orv::le16(record.data() + 20), rules,
                  [&](const uint8_t* a, uint32_t length, size_t pos) {
                    if (length > record.size() - pos) return false;
                    if (orv::le32(a) == AT_ATTRIBUTE_LIST && !list.m_data && list_bytes_held.empty()) {
                      const attrib_view attr(orv::byte_span(a, length));
                      if (!attr.non_resident()) list = attr.value();
                      else read_attrib_list_value(volume, attr.m_bytes, list_bytes_held);
                    }
                    take_index_attribute(volume, a, length, out, root, alloc_size);
                    return true;
                  });
  if (!list_bytes_held.empty()) list = orv::byte_span(list_bytes_held.data(), list_bytes_held.size());
  if (list.m_size) {
    // A large directory keeps its index allocation in extension records.
    attrib_list_rules list_rules;
    pull_listed_attributes(
        list.m_data, list.m_size, inode, list_rules,
        [&volume](uint64_t number, std::vector<uint8_t>& held) { return volume.read_record(number, held); },
        [&](const uint8_t*, size_t, const uint8_t* a, uint32_t length, uint64_t) {
          take_index_attribute(volume, a, length, out, root, alloc_size);
        });
  }
  const char* why = nullptr;
  if (root.empty() || !decode_index_root(orv::byte_span(root.data(), root.size()), out.m_head, out.m_root_entries, &why)) {
    log_line(log, "err: no index root: inode 0x%llx", (unsigned long long)inode);
    return false;
  }
  if (why) log_line(log, "err: index root of inode 0x%llx: %s", (unsigned long long)inode, why);
  out.m_block_size = out.m_head.block_size();
  const uint64_t cluster = volume.cluster_size();
  out.m_vcn_unit = out.m_block_size >= cluster ? cluster : 512;
  // Never more blocks than the runs hold, nor than the source could, nor than the volume has
  // names to fill (every block holds entries, and there are about as many names as records).
  uint64_t bytes = std::min(alloc_size, list_bytes(out.m_runs, cluster, false));
  if (volume.m_disk && volume.m_disk->size()) bytes = std::min(bytes, volume.m_disk->size());
  out.m_block_count = std::min(bytes / out.m_block_size, 4 * volume.mft_inode_count() + 64);
  return true;
}

bool read_index_block(CNtfs& volume, const dir_index& index, uint64_t block, bool slack, uint64_t parent,
                      std::vector<index_entry>& out, const diag_sink& log) {
  if (block >= index.m_block_count) return false;
  std::vector<uint8_t> bytes(index.m_block_size);
  uint64_t length = bytes.size();
  uint32_t flags = 0;
  if (!read_stream(volume, index.m_runs, block * index.m_block_size, bytes.data(), length, flags) ||
      length != bytes.size()) {
    log_line(log, "err: index block %llu of inode 0x%llx cannot be read", (unsigned long long)block,
             (unsigned long long)parent);
    return false;
  }
  log_level(log, 3, "info: index block %llu of inode 0x%llx", (unsigned long long)block, (unsigned long long)parent);
  uint64_t vcn = 0;
  const char* why = nullptr;
  std::vector<index_entry> entries;
  if (!decode_index_block(bytes.data(), bytes.size(), vcn, slack, parent, entries, &why)) {
    log_line(log, "err: index block %llu of inode 0x%llx is no INDX block", (unsigned long long)block,
             (unsigned long long)parent);
    return false;
  }
  if (index.m_vcn_unit == 0 || vcn != block * index.m_block_size / index.m_vcn_unit) {
    log_line(log, "err: index block %llu of inode 0x%llx names vcn 0x%llx", (unsigned long long)block,
             (unsigned long long)parent, (unsigned long long)vcn);
    return false;
  }
  if (why)
    log_line(log, "err: index block %llu of inode 0x%llx: %s", (unsigned long long)block, (unsigned long long)parent,
             why);
  out.insert(out.end(), entries.begin(), entries.end());
  return true;
}

namespace {

dir_child child_of(const index_entry& entry, bool deleted) {
  dir_child child;
  child.m_reference = entry.m_reference;
  child.m_name = entry.m_name;
  child.m_file_flags = entry.m_key.flags();
  child.m_deleted = deleted || entry.m_slack;
  return child;
}

// Live names of other entries than the directory itself ("." of the root); DOS-only names never
// name a path.
bool names_a_child(const index_entry& entry, uint64_t inode) {
  return entry.m_has_key && !entry.m_key.dos_only() && orv::ref_number(entry.m_reference) != inode;
}

void remember(dir_index_node& node, const dir_child& child, const std::vector<uint16_t>& upcase) {
  if (!child.m_deleted) node.m_names.emplace(orv::fold_name(child.m_name, upcase), child);
}

// UTF-16 units of a name, for the order NTFS keeps an index in.
std::vector<uint16_t> utf16_units(const std::wstring& text) {
  std::vector<uint16_t> out;
  for (wchar_t c : text) {
    uint32_t v = uint32_t(c);
    if (v >= 0x10000 && v <= 0x10FFFF) {
      v -= 0x10000;
      out.push_back(uint16_t(0xD800 + (v >> 10)));
      out.push_back(uint16_t(0xDC00 + (v & 0x3FF)));
    } else {
      out.push_back(uint16_t(v));
    }
  }
  return out;
}

// The file name collation: units compared after the volume's $UpCase.
int collate(const std::vector<uint16_t>& a, const std::vector<uint16_t>& b, const std::vector<uint16_t>& upcase) {
  for (size_t i = 0; i < a.size() && i < b.size(); ++i) {
    const uint16_t x = upcase[a[i]], y = upcase[b[i]];
    if (x != y) return x < y ? -1 : 1;
  }
  return a.size() == b.size() ? 0 : (a.size() < b.size() ? -1 : 1);
}

// Down the tree of the index from the root, reading only the blocks on the way. Gives 1 found,
// 0 not there, -1 when the way could not be followed (damage, a loop) and the index is to be read
// whole.
int descend(CNtfs& volume, uint64_t inode, const std::wstring& name, const std::vector<uint16_t>& upcase,
            dir_child& found, const diag_sink& log) {
  dir_index index;
  if (!read_dir_index(volume, inode, index, log)) return 0;
  const std::vector<uint16_t> wanted = utf16_units(name);
  std::vector<index_entry> entries = index.m_root_entries;
  std::set<uint64_t> visited;
  for (;;) {
    uint64_t next = UINT64_MAX;
    bool ended = false;
    for (const index_entry& entry : entries) {
      if (!entry.last()) {
        if (!entry.m_has_key) return -1;
        const int order = collate(wanted, utf16_units(entry.m_name), upcase);
        if (order == 0 && names_a_child(entry, inode)) {
          found = child_of(entry, false);
          return 1;
        }
        if (order >= 0) continue;
      }
      next = entry.m_child_vcn;
      ended = true;
      break;
    }
    if (!ended) return -1;  // the node had no last entry: damaged
    if (next == UINT64_MAX) return 0;
    const uint64_t byte = index.m_vcn_unit && next <= UINT64_MAX / index.m_vcn_unit ? next * index.m_vcn_unit : 1;
    const uint64_t block = byte / index.m_block_size;
    if (byte % index.m_block_size || block >= index.m_block_count || !index.block_in_use(block)) {
      log_line(log, "err: index of inode 0x%llx points at vcn 0x%llx outside its blocks", (unsigned long long)inode,
               (unsigned long long)next);
      return -1;
    }
    if (!visited.insert(block).second) {
      log_line(log, "err: index loop in inode 0x%llx at vcn 0x%llx", (unsigned long long)inode,
               (unsigned long long)next);
      return -1;
    }
    entries.clear();
    if (!read_index_block(volume, index, block, false, inode, entries, log)) return -1;
  }
}

}  // namespace

bool list_directory(CNtfs& volume, uint64_t inode, const std::vector<uint16_t>& upcase,
                    const std::vector<dir_child>*& children, const diag_sink& log) {
  dir_index_node& node = volume.m_dir_cache[inode];
  children = &node.m_children;
  if (node.m_listed) return true;
  if (node.m_unreadable) return false;
  log_line(log, "info: get children nodes");
  dir_index index;
  if (!read_dir_index(volume, inode, index, log)) {
    node.m_unreadable = true;
    return false;
  }
  node.m_children.clear();
  auto take = [&](const index_entry& entry, bool deleted) {
    if (!names_a_child(entry, inode) && !entry.m_slack) return;
    if (entry.m_slack && orv::ref_number(entry.m_reference) == inode) return;
    node.m_children.push_back(child_of(entry, deleted));
    remember(node, node.m_children.back(), upcase);
  };
  for (const index_entry& entry : index.m_root_entries) take(entry, false);
  // Every block once, in order: a block pointing back cannot make this walk longer.
  for (uint64_t block = 0; block < index.m_block_count; ++block) {
    std::vector<index_entry> entries;
    const bool in_use = index.block_in_use(block);
    if (!read_index_block(volume, index, block, true, inode, entries, log)) continue;
    for (const index_entry& entry : entries) take(entry, !in_use);
  }
  node.m_listed = true;
  log_line(log, "info: # children [%zu]", node.m_children.size());
  return true;
}

bool find_child(CNtfs& volume, uint64_t inode, const std::wstring& name, const std::vector<uint16_t>& upcase,
                dir_child& found, const diag_sink& log) {
  const std::wstring key = orv::fold_name(name, upcase);
  {
    dir_index_node& node = volume.m_dir_cache[inode];
    auto hit = node.m_names.find(key);
    if (hit != node.m_names.end()) {
      log_line(log, "info: cache lookup");
      found = hit->second;
      return true;
    }
    if (node.m_listed || node.m_unreadable) return false;
  }
  if (upcase.size() == 0x10000) {
    const int result = descend(volume, inode, name, upcase, found, log);
    if (result > 0) {
      remember(volume.m_dir_cache[inode], found, upcase);
      return true;
    }
  }
  // Not on the way down (a name that NTFS orders otherwise than it folds, a damaged index, no
  // $UpCase): the whole index.
  const std::vector<dir_child>* children = nullptr;
  if (!list_directory(volume, inode, upcase, children, log)) return false;
  const dir_index_node& node = volume.m_dir_cache[inode];
  auto hit = node.m_names.find(key);
  if (hit == node.m_names.end()) return false;
  found = hit->second;
  return true;
}

bool resolve_path_to_inode(uint64_t& found, uint64_t& parent, std::wstring& canonical, CNtfs& volume,
                           const std::wstring& path_text, const std::vector<uint16_t>& upcase, const diag_sink& log) {
  found = 0;
  parent = UINT64_MAX;
  canonical.clear();
  std::wstring path = path_text;
  if (path.empty()) return false;
  // "\\?\device\..." and "\\.\device\...": the device is the volume being read.
  if (path.compare(0, 4, L"\\\\?\\") == 0 || path.compare(0, 4, L"\\\\.\\") == 0) {
    const size_t slash = path.find(L'\\', 4);
    path = slash == std::wstring::npos ? L"\\" : path.substr(slash);
  }
  const std::string path_utf8 = orv::to_utf8(path);
  log_line(log, "anal: %s", path_utf8.c_str());
  const wchar_t separator = path.find(L'/') != std::wstring::npos ? L'/' : L'\\';
  const bool rooted = path[0] == separator;
  if (rooted) log_line(log, "root dir");
  std::vector<std::wstring> segments;
  for (const std::wstring& part : orv::split(path, std::wstring(1, separator), false))
    if (!part.empty()) segments.push_back(part);
  for (size_t i = 0; i < segments.size(); ++i) canonical += (i || rooted ? L"\\" : L"") + segments[i];
  if (segments.empty()) {
    log_line(log, "path empty");
    if (!rooted) return false;
    found = k_root_directory;
    canonical = L"\\";
    return true;
  }
  uint64_t current = k_root_directory;
  for (size_t i = 0; i < segments.size(); ++i) {
    if (i == 0 && segments[0].size() == 2 && segments[0][1] == L':') continue;  // a drive
    const std::wstring segment = segments[i].substr(0, segments[i].find(L':'));
    log_line(log, "seg: %s", orv::to_utf8(segment).c_str());
    dir_child child;
    if (!find_child(volume, current, segment, upcase, child, log)) {
      log_line(log, "err: no child nodes");
      log_line(log, "inode not found for %s", path_utf8.c_str());
      return false;
    }
    log_line(log, "info: inode found for seg: %s : 0x%llx", orv::to_utf8(segment).c_str(),
             (unsigned long long)orv::ref_number(child.m_reference));
    parent = current;
    current = orv::ref_number(child.m_reference);
  }
  found = current;
  return true;
}

void list_directory_tree(CNtfs& volume, uint64_t inode, const std::wstring& text, unsigned levels,
                         const std::vector<uint16_t>& upcase, std::vector<dir_tree_item>& out, const diag_sink& log) {
  std::set<uint64_t> listed = {inode};
  std::deque<dir_tree_item> pending = {dir_tree_item{inode, text, 0}};
  while (!pending.empty()) {
    const dir_tree_item item = pending.front();
    pending.pop_front();
    out.push_back(item);
    if (item.m_level >= levels) continue;
    const std::vector<dir_child>* children = nullptr;
    if (!list_directory(volume, item.m_inode, upcase, children, log)) continue;
    for (const dir_child& child : *children) {
      const uint64_t number = orv::ref_number(child.m_reference);
      if (child.m_deleted || !child.is_directory()) continue;
      if (!listed.insert(number).second) {
        log_line(log, "err: index loop: inode 0x%llx lists 0x%llx, already in the tree",
                 (unsigned long long)item.m_inode, (unsigned long long)number);
        continue;
      }
      dir_index probe;  // a directory by its key must have an index to be one
      if (!read_dir_index(volume, number, probe, log)) continue;
      pending.push_back(dir_tree_item{number, item.m_text + L"\\" + child.m_name, item.m_level + 1});
    }
  }
}
