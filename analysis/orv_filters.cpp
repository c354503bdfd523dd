// The record filters. OR filters add records (any hit selects, or every filter in force must hit
// under -filter_AND_logic); the early test and the time window narrow. Each hit leaves its reason
// in the entry for the writers.
#include "analysis/orv_filters.h"

#include <cstring>
#include <string>
#include <vector>

#include "analysis/entry_record.h"
#include "analysis/orv_paths.h"
#include "analysis/orv_scan_state.h"
#include "base/orv_le.h"
#include "base/orv_string.h"
#include "run/mft_entries_ctx.h"

namespace {

// Smallest attribute that holds the sizes of a non-resident header.
constexpr size_t k_sized_header = 72;

bool within(uint64_t time, const mft_entries_ctx& ctx) {
  return time >= ctx.m_filter_start_time && time <= ctx.m_filter_stop_time;
}

void set_reason(bool& flag, std::wstring& text, const std::wstring& value) {
  flag = true;
  text = value;
}

std::wstring number_text(uint64_t number) { return std::to_wstring(number); }

// A named data stream whose lowered name the filter lists: the reason is "number:stream".
bool stream_hit(entry_record& entry, const filter_record& filter, uint64_t number) {
  for (const auto& pair : entry.m_attribs) {
    const attrib_item& item = pair.second;
    if (!item.m_is_data || item.m_name.empty()) continue;
    if (!filter.m_stream_names.count(orv::lowered(item.m_name))) continue;
    set_reason(entry.m_filter_inode, entry.m_filter_inode_text, number_text(number) + L":" + item.m_name);
    return true;
  }
  return false;
}

bool ads_size_group(entry_record& entry, const mft_entries_ctx& ctx) {
  for (const auto& pair : entry.m_attribs) {
    const attrib_item& item = pair.second;
    if (!item.m_is_data || item.m_name.empty() || item.m_raw_attrib.size() < k_sized_header) continue;
    if (item.stream_size() >= ctx.m_filter_min_ads_size) {
      entry.m_ads_mark = true;
      return true;
    }
  }
  return false;
}

// A record without unnamed data passes a maximum size: it has nothing that is too large.
bool size_group(entry_record& entry, const mft_entries_ctx& ctx) {
  bool has_unnamed = false;
  for (const auto& pair : entry.m_attribs) {
    const attrib_item& item = pair.second;
    if (!item.m_is_data || !item.m_name.empty()) continue;
    has_unnamed = true;
    uint64_t size = item.stream_size();
    if (ctx.m_filter_min_size && size < ctx.m_filter_min_size) return false;
    if (ctx.m_filter_max_size && size > ctx.m_filter_max_size) return false;
  }
  if (!has_unnamed && ctx.m_filter_min_size) return false;
  entry.m_size_mark = true;
  return true;
}

// A name as the filters compare it: names NTFS holds equal are equal here.
std::wstring compare_form(const std::wstring& text, const scan_state& scan) { return orv::fold_name(text, scan.m_upcase); }

bool wildcard_group(entry_record& entry, const mft_entries_ctx& ctx, const std::vector<std::wstring>& lowered) {
  for (const wildcard_pattern& pattern : ctx.m_filter_wildcards) {
    size_t i = 0;
    for (const auto& pair : entry.m_file_names) {
      if (wildcard_match(pattern, lowered[i++])) {
        set_reason(entry.m_filter_pattern, entry.m_filter_pattern_text, pair.second.m_name);
        return true;
      }
    }
  }
  return false;
}

bool name_group(entry_record& entry, const mft_entries_ctx& ctx, const scan_state& scan,
                const std::vector<std::wstring>& lowered) {
  for (const filter_record& filter : ctx.m_filter_names) {
    if (filter.m_text.empty()) continue;
    const std::wstring text = compare_form(filter.m_text, scan);
    for (const std::wstring& name : lowered) {
      bool hit = filter.m_partial ? name.find(text) != std::wstring::npos : name == text;
      if (hit) {
        set_reason(entry.m_filter_name, entry.m_filter_name_text, filter.m_text);
        return true;
      }
    }
  }
  return false;
}

bool dir_inode_group(entry_record& entry, scan_state& scan) {
  uint64_t previous = 0;
  bool first = true;
  for (const auto& pair : entry.m_file_names) {
    const uint64_t reference = pair.second.parent_ref();
    if (!first && reference == previous) continue;
    first = false;
    previous = reference;
    const uint64_t number = orv::ref_number(reference);
    auto found = scan.m_filter_dir_inodes.find(number);
    if (found == scan.m_filter_dir_inodes.end()) continue;
    const filter_record& filter = found->second;
    if (filter.m_whole_entry) {
      std::wstring text = filter.m_text;
      if (text.empty()) {
        uint16_t sequence = 0;
        uint32_t flags = 0;
        resolve_parent_path(text, sequence, flags, reference, scan);
      }
      if (text.empty()) text = L"dir_inode(" + number_text(number) + L")";
      set_reason(entry.m_filter_dir, entry.m_filter_dir_text, text);
      return true;
    }
    if (filter.m_by_stream && stream_hit(entry, filter, number)) return true;
  }
  return false;
}

bool inode_group(entry_record& entry, const scan_state& scan) {
  auto found = scan.m_filter_inodes.find(entry.m_inode);
  if (found == scan.m_filter_inodes.end()) return false;
  const filter_record& filter = found->second;
  if (filter.m_whole_entry) {
    set_reason(entry.m_filter_inode, entry.m_filter_inode_text, number_text(entry.m_inode));
    return true;
  }
  return filter.m_by_stream && stream_hit(entry, filter, entry.m_inode);
}

bool ext_group(entry_record& entry, const mft_entries_ctx& ctx, const scan_state& scan,
               const std::vector<std::wstring>& lowered) {
  for (const std::wstring& ext : ctx.m_filter_ext) {
    const std::wstring text = compare_form(ext, scan);
    for (const std::wstring& name : lowered) {
      size_t dot = name.rfind(L'.');
      if (dot == std::wstring::npos) break;  // a name without a dot ends the turn of this extension
      if (name.compare(dot + 1, std::wstring::npos, text) == 0) {
        set_reason(entry.m_filter_ext, entry.m_filter_ext_text, ext);
        return true;
      }
    }
  }
  return false;
}

// Head-byte tests of -filter_sig. `size` is what the head buffer holds.
bool starts_with(const uint8_t* bytes, size_t size, const void* prefix, size_t length) {
  return size >= length && std::memcmp(bytes, prefix, length) == 0;
}

bool is_mz(const uint8_t* bytes, size_t size) { return size >= 64 && bytes[0] == 'M' && bytes[1] == 'Z'; }

// PE image: "PE\0\0" at the offset the MZ header names, with room for the optional header.
// `magic` 0 skips the optional header test.
bool is_pe(const uint8_t* bytes, size_t size, uint16_t magic) {
  if (!is_mz(bytes, size)) return false;
  const uint64_t offset = orv::le32(bytes + 60);
  if (offset + 248 > size) return false;
  if (std::memcmp(bytes + offset, "PE\0\0", 4) != 0) return false;
  return magic == 0 || orv::le16(bytes + offset + 24) == magic;
}

}  // namespace

bool signature_bytes_match(uint32_t type, const uint8_t* bytes, size_t size) {
  if (!bytes) return false;
  static const uint8_t k_evt_header[] = {0x30, 0x00, 0x00, 0x00, 0x4C, 0x66, 0x4C, 0x65};
  static const uint8_t k_lnk_header[] = {0x4C, 0x00, 0x00, 0x00, 0x01, 0x14, 0x02, 0x00,
                                         0x00, 0x00, 0x00, 0x00, 0xC0, 0x00, 0x00, 0x00};
  switch (type) {
    case 30: return is_mz(bytes, size);
    case 31: {
      if (!is_mz(bytes, size)) return false;
      uint16_t relocation_offset = orv::le16(bytes + 24);
      return orv::le16(bytes + 6) != 0 && relocation_offset >= 1 && relocation_offset <= 63;
    }
    case 32: return is_pe(bytes, size, 0x10B);
    case 33: return is_pe(bytes, size, 0x20B);
    case 34: return is_pe(bytes, size, 0);
    case 35: return size >= 16 && starts_with(bytes, size, "regf", 4);
    case 36:
      return size >= 16 && (starts_with(bytes, size, k_evt_header, sizeof k_evt_header) ||
                            starts_with(bytes, size, "ElfFile", 7));
    case 37: return size >= 16 && starts_with(bytes, size, "SQLite", 6);
    case 38: return size >= 16 && starts_with(bytes, size, k_lnk_header, sizeof k_lnk_header);
    default: return false;  // byte patterns (39) select nothing
  }
}

namespace {

const wchar_t* signature_name(uint32_t type) {
  switch (type) {
    case 35: return L"RegistryHive";
    case 36: return L"EventLog";
    case 37: return L"SQLite";
    case 38: return L"lnk";
    default: return L"MZ";
  }
}

}  // namespace

// Path filters count whether or not they resolved: one that found nothing selects nothing.
bool has_or_filters(const mft_entries_ctx& ctx, const scan_state& scan) {
  return !ctx.m_filter_ext.empty() || !ctx.m_filter_names.empty() || !ctx.m_filter_dir.empty() ||
         !ctx.m_filter_file.empty() || !scan.m_filter_dir_inodes.empty() || !scan.m_filter_inodes.empty() ||
         !ctx.m_filter_wildcards.empty() || ctx.m_filter_max_size || ctx.m_filter_min_size ||
         ctx.m_filter_min_ads_size;
}

bool early_filter(entry_record& entry, const mft_entries_ctx& ctx, const scan_state& scan) {
  if (!scan.m_deleted_only && scan.m_filter_inodes.empty()) return true;
  if (scan.m_deleted_only) {
    if (entry.in_use()) return false;
    entry.m_deleted_mark = true;
    return true;
  }
  auto found = scan.m_filter_inodes.find(entry.m_inode);
  if (found == scan.m_filter_inodes.end() || !found->second.m_whole_entry) return false;
  set_reason(entry.m_filter_inode, entry.m_filter_inode_text, number_text(entry.m_inode));
  return true;
}

bool time_filter(entry_record& entry, const mft_entries_ctx& ctx) {
  if (ctx.m_filter_start_time == 0 && ctx.m_filter_stop_time == 0) return true;
  for (const auto& pair : entry.m_std_infos) {
    const si_entry& si = pair.second;
    if (within(si.accessed(), ctx) || within(si.mft_modified(), ctx) || within(si.modified(), ctx) ||
        within(si.created(), ctx)) {
      entry.m_time_mark = true;
      return true;
    }
  }
  for (const auto& pair : entry.m_file_names) {
    const file_name_entry& fn = pair.second;
    if (within(fn.accessed(), ctx) || within(fn.mft_modified(), ctx) || within(fn.modified(), ctx) ||
        within(fn.created(), ctx)) {
      entry.m_time_mark = true;
      return true;
    }
  }
  return false;
}

bool or_filters_match(entry_record& entry, const mft_entries_ctx& ctx, scan_state& scan) {
  if (!has_or_filters(ctx, scan)) return true;
  const bool all_must_hit = scan.m_and_logic;

  std::vector<std::wstring> lowered;
  if (!ctx.m_filter_wildcards.empty() || !ctx.m_filter_names.empty() || !ctx.m_filter_ext.empty()) {
    lowered.reserve(entry.m_file_names.size());
    for (const auto& pair : entry.m_file_names) lowered.push_back(compare_form(pair.second.m_name, scan));
  }

  // Each group in force either decides at once (any hit selects) or, under AND logic, must hit.
  bool any_group = false;
  auto decide = [&](bool in_force, auto&& test) -> int {
    if (!in_force) return -1;
    any_group = true;
    bool hit = test();
    if (all_must_hit) return hit ? -1 : 0;
    return hit ? 1 : -1;
  };
  int verdict;
  if ((verdict = decide(ctx.m_filter_min_ads_size != 0, [&] { return ads_size_group(entry, ctx); })) >= 0)
    return verdict;
  if ((verdict = decide(ctx.m_filter_max_size || ctx.m_filter_min_size, [&] { return size_group(entry, ctx); })) >= 0)
    return verdict;
  if ((verdict = decide(!ctx.m_filter_wildcards.empty(), [&] { return wildcard_group(entry, ctx, lowered); })) >= 0)
    return verdict;
  if ((verdict = decide(!ctx.m_filter_names.empty(), [&] { return name_group(entry, ctx, scan, lowered); })) >= 0)
    return verdict;
  if ((verdict = decide(!scan.m_filter_dir_inodes.empty(), [&] { return dir_inode_group(entry, scan); })) >= 0)
    return verdict;
  if ((verdict = decide(!scan.m_filter_inodes.empty(), [&] { return inode_group(entry, scan); })) >= 0)
    return verdict;
  if ((verdict = decide(!ctx.m_filter_ext.empty(), [&] { return ext_group(entry, ctx, scan, lowered); })) >= 0)
    return verdict;
  // Under AND logic every group in force has hit. Paths that never resolved to inodes (no volume
  // to read them from, no such path) are a filter that no record meets.
  if (all_must_hit)
    return any_group && (ctx.m_filter_dir.empty() || scan.m_dir_paths_met) &&
           (ctx.m_filter_file.empty() || scan.m_file_paths_met);
  return false;
}

bool signature_match(entry_record& entry, const mft_entries_ctx& ctx, const scan_state& scan) {
  if (ctx.m_signature_filters.empty()) return true;
  if (!scan.m_source.volume()) return true;  // no content can be read from an extracted $MFT

  const attrib_item* stream = nullptr;
  for (const auto& pair : entry.m_attribs)
    if (pair.second.m_is_data && pair.second.m_name.empty()) stream = &pair.second;
  if (!stream || stream->m_head.empty()) return false;

  const uint8_t* bytes = stream->m_head.data();
  const size_t size = stream->m_head.size();
  for (const signature_test& test : ctx.m_signature_filters) {
    if (signature_bytes_match(test.m_type, bytes, size)) {
      set_reason(entry.m_filter_type, entry.m_filter_type_text, signature_name(test.m_type));
      return true;
    }
  }
  return false;
}
