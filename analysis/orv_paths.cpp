#include "analysis/orv_paths.h"

#include <vector>

#include "analysis/entry_record.h"
#include "analysis/orv_scan_state.h"
#include "base/orv_console.h"
#include "base/orv_le.h"
#include "base/orv_string.h"

static const wchar_t k_corrupted[] = L"<path corrupted>";
static constexpr uint64_t k_root_record = 5;
// No NTFS path is longer than 32767 UTF-16 units. A parent chain whose names pass that is damage
// or a trap: every row below a chain N deep would print all N names.
static constexpr size_t k_longest_path = 32767;
// Paths remembered for later rows are short ones; a long path is walked again when needed, so the
// memory kept stays near the size of the directory names themselves.
static constexpr size_t k_remembered_path = 1024;

dir_cache_entry::dir_cache_entry(uint64_t record_number, uint16_t sequence, const std::set<uint64_t>& parents,
                                 const std::wstring& name, uint32_t record_flags)
    : m_record_number(record_number),
      m_sequence(sequence),
      m_parents(parents),
      m_name_utf8(orv::to_utf8(name)),
      m_name(name),
      m_is_directory((record_flags & FR_FLAG_DIRECTORY) ? 1 : 0),
      m_record_flags(record_flags) {
  if (m_parents.empty()) m_parents.insert(0);
}

const std::wstring* select_name_of(const entry_record& entry, uint64_t record_number) {
  if (entry.m_file_names.empty()) return nullptr;
  if (entry.m_file_names.size() == 1) return &entry.m_file_names.begin()->second.m_name;
  const file_name_entry* any = nullptr;
  for (const auto& kv : entry.m_file_names) {
    const file_name_entry& fn = kv.second;
    uint8_t ns = fn.name_space();
    if (ns != 0 && ns % 2 == 0) continue;  // a DOS-only name is passed over
    if (record_number == UINT64_MAX || fn.m_inode == record_number) return &fn.m_name;
    if (!any) any = &fn;
  }
  return any ? &any->m_name : nullptr;
}

std::wstring select_name(const entry_record& entry, uint64_t record_number) {
  const std::wstring* name = select_name_of(entry, record_number);
  return name ? *name : std::wstring();
}

static std::set<uint64_t> parent_set(const entry_record& entry) {
  std::set<uint64_t> parents;
  for (const auto& kv : entry.m_file_names) parents.insert(kv.second.parent_ref());
  return parents;
}

bool parents_of_inode(std::wstring& name, std::set<uint64_t>& parents, uint32_t& flags, uint16_t& sequence,
                      uint64_t record_number, scan_state& scan) {
  entry_record entry;
  if (!read_entry(entry, scan, record_number, false)) return false;
  name = select_name(entry, record_number);
  parents = parent_set(entry);
  flags = entry.header_flags();
  sequence = entry.m_seq_num;
  return !parents.empty();
}

bool resolve_parent_path(std::wstring& path, uint16_t& sequence, uint32_t& flags, uint64_t reference,
                         scan_state& scan) {
  path.clear();
  sequence = 0;
  if (!scan.m_source.is_open()) return false;
  dir_store_map& cache = scan.m_dir_store;
  if (reference == UINT64_MAX) return false;

  std::vector<const std::wstring*> parts;  // names from the directory that holds the entry upward
  std::set<uint64_t> visited;
  uint64_t current = reference, previous = reference;
  bool complete = false;
  bool corrupted = false;
  size_t length = 0;  // units of the names gathered so far, a separator each
  for (;;) {
    if (orv::ref_number(current) == k_root_record) {
      complete = true;
      break;
    }
    uint64_t next;
    auto hit = cache.find(current);
    if (hit != cache.end()) {
      parts.push_back(&hit->second.m_name);
      flags = hit->second.m_record_flags;
      next = *hit->second.m_parents.begin();
    } else {
      log_line(scan.log(), "... trying to resolve [next] parent subdir ...");
      std::wstring name;
      std::set<uint64_t> parents;
      uint32_t record_flags = 0;
      uint16_t s = 0;
      if (!parents_of_inode(name, parents, record_flags, s, orv::ref_number(current), scan)) break;
      flags = record_flags;
      if (!(record_flags & FR_FLAG_DIRECTORY)) {  // a parent that became a file is no parent
        corrupted = true;
        break;
      }
      // Deleting a record raises its sequence number once, so a deleted directory that nothing
      // reused still matches the references its children hold.
      if (!(record_flags & FR_FLAG_IN_USE) && s != 0) --s;
      if (orv::ref_sequence(current) == 0) current = orv::make_ref(current, s);
      else if (orv::ref_sequence(current) != s) {
        corrupted = true;
        break;
      }
      auto stored = cache.emplace(current, dir_cache_entry(orv::ref_number(current), s, parents, name, record_flags));
      parts.push_back(&stored.first->second.m_name);
      if (sequence == 0) {
        sequence = s;
        visited.insert(current);
      }
      next = *stored.first->second.m_parents.begin();
    }
    current = next;
    length += parts.back()->size() + 1;
    if (length > k_longest_path) {
      corrupted = true;
      break;
    }
    if (!visited.insert(current).second || current == previous) {
      corrupted = true;
      break;
    }
    previous = current;
  }

  static const std::wstring marker(k_corrupted);
  static const std::wstring root(L"[root]");
  if (corrupted) parts.push_back(&marker);
  parts.push_back(&root);
  size_t total = 0;
  for (const std::wstring* p : parts) total += p->size() + 1;
  path.reserve(total);
  for (auto it = parts.rbegin(); it != parts.rend(); ++it) {
    const std::wstring& part = **it;
    if (part.empty() || part == L".") continue;
    path += part;
    path += L'\\';
  }
  return complete && !corrupted;
}

void cache_directory(const entry_record& entry, scan_state& scan) {
  if (!entry.is_directory()) return;
  uint64_t ref = orv::make_ref(entry.m_inode, entry.m_seq_num);
  if (scan.m_dir_store.count(ref)) return;
  scan.m_dir_store.emplace(
      ref, dir_cache_entry(entry.m_inode, entry.m_seq_num, parent_set(entry), select_name(entry, entry.m_inode),
                           entry.header_flags()));
}

void resolve_entry_paths(entry_record& entry, scan_state& scan) {
  for (auto& kv : entry.m_parent_names) {
    auto known = scan.m_sound_paths.find(kv.first);
    if (known != scan.m_sound_paths.end()) {
      kv.second.m_path = known->second;
      continue;
    }
    uint16_t sequence = 0;
    uint32_t flags = 0;
    std::wstring path;
    const bool sound = resolve_parent_path(path, sequence, flags, kv.first, scan);
    kv.second.m_path.clear();
    orv::append_utf8_of(kv.second.m_path, path);
    if (sound && path.size() <= k_remembered_path) scan.m_sound_paths.emplace(kv.first, kv.second.m_path);
  }
}
