// The walk's own options: from the raw arguments to a filled mft_entries_ctx.
#include "run/orv_walk_options.h"

#include <cstdio>
#include <cstring>
#include <cwctype>

#include "base/orv_path.h"
#include "base/orv_string.h"
#include "base/orv_time.h"
#include "run/mft_entries_ctx.h"
#include "run/orv_source_choice.h"
#include "storage/orv_disk_structs.h"
#include "storage/orv_raw_disk_io.h"

namespace {

// Future limit of the time analysis: one hour past the start of the run.
constexpr uint64_t k_future_slack = 36000000000ull;

std::string narrow(const std::wstring& text) { return orv::to_utf8(text); }

std::wstring widen(const std::string& text) {
  std::wstring wide = orv::to_wide(text);
  if (wide.empty() && !text.empty()) {
    for (unsigned char c : text) wide.push_back(wchar_t(c));
  }
  return wide;
}

// Lists inside one option value: split at "|", "," and ";", trimmed, lowered; empty items dropped.
std::vector<std::wstring> split_list(const std::wstring& value) {
  std::vector<std::wstring> out;
  for (std::wstring& item : orv::split(orv::lowered(value), L"|,;", true))
    if (!item.empty()) out.push_back(item);
  return out;
}

void set_output_kind(mft_entries_ctx& c, uint8_t mft_entries_ctx::*chosen) {
  c.m_hash_list_format = c.m_csvperpath = c.m_filepath_only = c.m_default_output = 0;
  if (chosen) c.*chosen = 1;
}

// "-filter_inode" and "-filter_dir_inode": numbers with an optional ":stream" each.
void add_inode_list(std::map<uint64_t, filter_record>& map, uint32_t type, const std::wstring& value) {
  for (const std::wstring& item : split_list(value)) {
    size_t colon = item.find(L':');
    std::wstring stream = colon == std::wstring::npos ? std::wstring() : item.substr(colon + 1);
    uint64_t number = 0;
    if (!orv::parse_size(narrow(item.substr(0, colon)), number)) continue;
    auto it = map.find(number);
    if (it == map.end()) {
      filter_record record(type, stream.empty() ? std::wstring() : L":" + stream, number);
      it = map.emplace(number, record).first;
    } else if (!stream.empty()) {
      it->second.m_stream_names.insert(stream);
      it->second.m_has_stream = it->second.m_by_stream = 1;
    }
    if (stream.empty()) it->second.m_whole_entry = 1;
  }
}

// "mm/dd/yyyy hh:mm:ss": the date before the first blank, the time after it.
uint64_t read_filter_time(const std::wstring& value, const char* default_time) {
  std::string text = narrow(value);
  size_t blank = text.find(' ');
  std::string date = text.substr(0, blank);
  std::string time = blank == std::string::npos ? std::string(default_time) : orv::trim(text.substr(blank + 1));
  if (time.empty()) time = default_time;
  orv::_windows_systemtime st;
  if (!orv::parse_date_time(date, time, st)) return 0;
  return orv::systemtime_to_filetime(st);
}

bool hex_token(const std::string& token, uint8_t& out) {
  if (token.empty() || token.size() > 2) return false;
  unsigned value = 0;
  for (char ch : token) {
    int d = (ch >= '0' && ch <= '9') ? ch - '0' : (ch >= 'a' && ch <= 'f') ? ch - 'a' + 10
                                                 : (ch >= 'A' && ch <= 'F') ? ch - 'A' + 10 : -1;
    if (d < 0) return false;
    value = value * 16 + unsigned(d);
  }
  out = uint8_t(value);
  return true;
}

// Bytes of -filter_pattern, e.g. "4d 5a", "4d,5a", "0x4d:0x5a", "4d-5a", "4d", "x4d".
bool read_pattern_bytes(const std::string& text, std::vector<uint8_t>& out) {
  out.clear();
  char separator = 0;
  for (char c : {' ', ',', ':', '-'}) {
    if (text.find(c) != std::string::npos) {
      separator = c;
      break;
    }
  }
  std::vector<std::string> tokens;
  if (separator) {
    tokens = orv::split(text, std::string(1, separator), false);
  } else {
    bool one_byte = text.size() == 2 || (text.size() <= 4 && text.find_first_of("xX") != std::string::npos);
    if (!one_byte) return false;
    tokens.push_back(text);
  }
  for (std::string token : tokens) {
    size_t x = token.find_first_of("xX");
    if (x != std::string::npos) token.erase(0, x + 1);
    if (token.empty()) continue;
    uint8_t byte = 0;
    if (!hex_token(token, byte)) return false;
    out.push_back(byte);
  }
  return !out.empty();
}

struct signature_word {
  const wchar_t* m_word;
  uint32_t m_type;
  uint32_t m_need;  // head bytes the test looks at
};

const signature_word k_signature_words[] = {
    {L"mz", 30, 64},    {L"16bit_mz", 31, 64}, {L"32bit_pe", 32, 512}, {L"64bit_pe", 33, 512}, {L"pe", 34, 512},
    {L"hive", 35, 16},  {L"evt", 36, 16},      {L"sqlite", 37, 16},    {L"lnk", 38, 16},
};

// The printed form of an object identifier: hex digits and hyphens, braces allowed around it.
bool looks_like_objid(const std::wstring& value) {
  std::wstring text = value;
  if (!text.empty() && text.front() == L'{') text.erase(0, 1);
  if (!text.empty() && text.back() == L'}') text.pop_back();
  if (text.size() < 22) return false;
  for (wchar_t c : text)
    if (!iswxdigit(wint_t(c)) && c != L'-') return false;
  return true;
}

// A -partition name is usable when an NTFS boot sector stands at its start.
bool partition_is_ntfs_volume(const std::wstring& name) {
  RAW_DISK_IO disk;
  if (!disk.open_path(name, false, 0)) return false;
  return volume_at(disk, 0);
}

// Mapping of a drive-style name to a device; this platform has no drive-letter table.
std::wstring partition_device_name(const std::wstring& name) { return std::wstring(); }

bool copy_files_option(mft_entries_ctx& c, const std::wstring& value, std::vector<std::wstring>& list) {
  bool per_path_layout = true;
  if (c.m_fmt_csv || c.m_fmt_l2t || c.m_fmt_bodyfile) {
    c.m_fmt_csv = c.m_fmt_l2t = c.m_fmt_bodyfile = 0;
  } else if (c.m_csvperpath && c.m_filepath_only) {
    return false;
  } else if (c.m_csvperpath) {
    per_path_layout = false;
  }
  if (per_path_layout) {
    // The rows that go with the copies are comma separated, commas in text turned into blanks.
    c.m_csvperpath = 1;
    c.set_separator(",", false);
  }
  std::wstring dir = value;
  orv::strip_trailing_slashes(dir);
  if (dir.empty() && !value.empty()) dir = value.substr(0, 1);
  c.m_results_dir = dir;
  if (dir.empty() || !orv::make_directory_tree(dir)) {
    fprintf(stderr, "prob creating results directory, %s\n", narrow(dir).c_str());
    return false;
  }
  c.m_copy_files = c.m_copy_active = 1;
  if (find_flag(std::wstring(L"-all"), list, false)) {
    c.m_copy_all = 1;
  } else if (find_flag(std::wstring(L"-named_data"), list, false)) {
    c.m_copy_named_data = 1;
  } else {
    find_flag(std::wstring(L"-normal_data"), list, false);
    c.m_copy_normal_data = 1;
  }
  return true;
}

bool filter_file_option(mft_entries_ctx& c, const std::wstring& value, std::vector<std::wstring>&) {
  c.m_filter_file = split_list(value);
  return true;
}

// ---- the option table ----

enum option_form { form_flag, form_value, form_repeat, form_always };

using walk_handler = bool (*)(mft_entries_ctx& c, const std::wstring& value, std::vector<std::wstring>& list);

struct walk_option {
  const wchar_t* m_name;  // empty for rows that run on every parse
  option_form m_form;
  walk_handler m_handler;
  uint8_t mft_entries_ctx::*m_flag = nullptr;  // plain switches set this byte and nothing else
};

using wtext = std::wstring;
using wlist = std::vector<std::wstring>;

// Rows from -hide_dos_fntimes to -mftfile run as one step whose result nobody reads: a refusal
// there ends the step and leaves the later rows of the group unread.
const walk_option k_head_group[] = {
    {L"-hide_dos_fntimes", form_flag, [](mft_entries_ctx& c, const wtext&, wlist&) {
       c.m_hide_dos_fntimes = 1;
       return true;
     }},
    {L"-default_output", form_flag, [](mft_entries_ctx& c, const wtext&, wlist&) {
       set_value_separators(c, '|', ';');
       c.m_fmt_l2t = c.m_fmt_bodyfile = 0;
       set_output_kind(c, &mft_entries_ctx::m_default_output);
       return true;
     }},
    {L"-filepath_only", form_flag,
     [](mft_entries_ctx& c, const wtext&, wlist&) {
       set_value_separators(c, 0, 0);
       c.m_fmt_l2t = c.m_fmt_bodyfile = 0;
       set_output_kind(c, &mft_entries_ctx::m_filepath_only);
       return true;
     }},
    {L"", form_always, [](mft_entries_ctx& c, const wtext&, wlist&) {
       // The timeline and CSV formats cancel the per-path, path-only, hash and default layouts.
       if (c.m_fmt_csv) set_output_kind(c, nullptr);
       if (c.m_fmt_l2t || c.m_fmt_bodyfile) {
         set_output_kind(c, nullptr);
         c.m_no_whitespace = 1;
         c.m_blank_before_time = 0;
       }
       c.m_follow_ref_inode = 1;
       return true;
     }},
    {L"-csvperpath", form_flag,
     [](mft_entries_ctx& c, const wtext&, wlist&) {
       set_value_separators(c, '|', ';');
       c.m_fmt_l2t = c.m_fmt_bodyfile = 0;
       set_output_kind(c, &mft_entries_ctx::m_csvperpath);
       return true;
     }},
    {L"-verbose", form_flag, [](mft_entries_ctx& c, const wtext&, wlist&) {
       c.m_verbose = 1;
       return true;
     }},
    {L"", form_always, [](mft_entries_ctx& c, const wtext&, wlist&) {
       if (!c.m_out_given) return true;
       c.m_results_path = orv::normalize_path(c.m_out_path, '/');
       if (c.m_results_path.empty()) {
         fprintf(stderr, "prob understanding destination of %s aborting\n,", c.m_out_path.c_str());
         return false;
       }
       return true;
     }},
    {L"-mftstart", form_value, [](mft_entries_ctx& c, const wtext& v, wlist&) {
       if (orv::parse_u64(narrow(v), c.m_mft_start)) c.m_mft_range = 1;
       return true;
     }},
    {L"-mftrange", form_value, [](mft_entries_ctx& c, const wtext& v, wlist&) {
       orv::parse_u64(narrow(v), c.m_mft_range);
       return true;
     }},
    {L"-partition", form_value, [](mft_entries_ctx& c, const wtext& v, wlist&) {
       c.m_partition = v;
       bool device_form = v.compare(0, 2, L"\\\\") == 0;
       c.m_open_kind = device_form ? 35 : 32;
       if (device_form || partition_is_ntfs_volume(v)) return true;
       std::wstring device = partition_device_name(v);
       if (!device.empty() && partition_is_ntfs_volume(device)) {
         c.m_partition = device;
         c.m_open_kind = 35;
       } else {
         fprintf(stderr, "prob validating volume %s as a NTFS partition, aborting...\n", narrow(v).c_str());
       }
       return true;
     }},
    {L"-mftfile", form_value, [](mft_entries_ctx& c, const wtext& v, wlist&) {
       if (!c.m_partition.empty()) return true;
       c.m_mftfile_path = v;
       c.m_open_kind = 36;
       return true;
     }},
};

const walk_option k_walk_options[] = {
    {L"-raw", form_flag, nullptr, &mft_entries_ctx::m_copy_raw},
    {L"-skip_sparse_clusters", form_flag, nullptr, &mft_entries_ctx::m_skip_sparse},
    {L"-regen_mft", form_flag, nullptr, &mft_entries_ctx::m_regen_mft},
    {L"-filter_deleted_files", form_flag, [](mft_entries_ctx& c, const wtext&, wlist&) {
       c.m_filter_deleted = c.m_and_logic = 1;
       return true;
     }},
    {L"-use_orig_ext", form_flag, nullptr, &mft_entries_ctx::m_use_orig_ext},
    {L"-action_copy_files", form_value, copy_files_option},
    {L"-filter_start_time", form_value, [](mft_entries_ctx& c, const wtext& v, wlist&) {
       uint64_t start = read_filter_time(v, "00:00:00");
       if (start) c.m_filter_start_time = start;
       else fprintf(stderr, "Error: invalid filter start time, defaulting to 0\n");
       c.m_filter_stop_time = ~0ull;
       return true;
     }},
    {L"-filter_stop_time", form_value, [](mft_entries_ctx& c, const wtext& v, wlist&) {
       uint64_t stop = read_filter_time(v, "23:59:59");
       if (stop) c.m_filter_stop_time = stop;
       return true;
     }},
    {L"-filter_wildcard", form_repeat, [](mft_entries_ctx& c, const wtext& v, wlist&) {
       c.m_filter_wildcards.push_back(compile_wildcard(orv::lowered(v)));
       return true;
     }},
    {L"-filter_ext", form_value, [](mft_entries_ctx& c, const wtext& v, wlist&) {
       c.m_filter_ext.clear();
       for (std::wstring item : split_list(v)) {
         orv::remove_char(item, L'.');
         if (!item.empty()) c.m_filter_ext.push_back(item);
       }
       return true;
     }},
    {L"-filter_fullname", form_value, [](mft_entries_ctx& c, const wtext& v, wlist&) {
       for (const std::wstring& item : split_list(v)) c.m_filter_names.insert(filter_record(filter_full_name, item));
       return true;
     }},
    {L"-filter_name", form_value, [](mft_entries_ctx& c, const wtext& v, wlist&) {
       for (const std::wstring& item : split_list(v)) {
         filter_record record(filter_partial_name, item);
         record.m_partial = record.m_partial_end = 1;
         c.m_filter_names.insert(record);
       }
       return true;
     }},
    {L"-offset", form_value, [](mft_entries_ctx& c, const wtext& v, wlist&) {
       if (orv::parse_u64(narrow(v), c.m_volume_offset)) c.m_vmdk_offset = c.m_volume_offset;
       return true;
     }},
    {L"-action_include_zoneinfo", form_flag, nullptr, &mft_entries_ctx::m_include_zoneinfo},
    {L"-action_include_ownersid", form_flag, nullptr, &mft_entries_ctx::m_include_ownersid},
    {L"-action_include_header", form_flag,
     [](mft_entries_ctx& c, const wtext&, wlist&) {
       c.m_metadata_only = 0;
       c.m_include_header = 1;
       c.m_header_size = 32;
       return true;
     }},
    {L"-action_find_strings_in_hdr", form_flag,
     [](mft_entries_ctx& c, const wtext&, wlist&) {
       c.m_metadata_only = 0;
       c.m_include_header = c.m_header_strings = 1;
       c.m_header_size = 256;
       return true;
     }},
    {L"-action_include_clusterinfo", form_flag, [](mft_entries_ctx& c, const wtext&, wlist&) {
       c.m_metadata_only = 0;
       c.m_include_clusterinfo = 1;
       return true;
     }},
    {L"-hexdump", form_flag, nullptr, &mft_entries_ctx::m_hexdump},
    // Tried twice: a second -filter_file on the line replaces the list of the first.
    {L"-filter_file", form_value, filter_file_option},
    {L"-filter_file", form_value, filter_file_option},
    {L"-filter_dir_recurse", form_value,
     [](mft_entries_ctx& c, const wtext& v, wlist&) {
       c.m_filter_dir_recurse = split_list(v);  // accepted; selects nothing by itself
       return true;
     }},
    {L"-filter_dir", form_value,
     [](mft_entries_ctx& c, const wtext& v, wlist&) {
       c.m_filter_dir = split_list(v);
       return true;
     }},
    {L"-filter_dir_inode", form_value, [](mft_entries_ctx& c, const wtext& v, wlist&) {
       add_inode_list(c.m_filter_dir_inodes, filter_directory_inode, v);
       return true;
     }},
    {L"-filter_inode", form_value, [](mft_entries_ctx& c, const wtext& v, wlist&) {
       add_inode_list(c.m_filter_inodes, filter_inode, v);
       return true;
     }},
    {L"-filerecord_offset", form_flag, nullptr, &mft_entries_ctx::m_show_record_offset},
    {L"-filter_pattern", form_value, [](mft_entries_ctx& c, const wtext& v, wlist&) {
       if (!read_pattern_bytes(narrow(v), c.m_pattern_bytes)) {
         fprintf(stderr, "Error: -filter_pattern option specified invalid argument, aborting\n");
         return false;
       }
       signature_test test;
       test.m_type = 39;
       test.m_word = "pattern";
       test.m_pattern = c.m_pattern_bytes;
       c.m_signature_filters.push_back(test);
       return true;
     }},
    {L"-scanstart", form_value, [](mft_entries_ctx& c, const wtext& v, wlist&) {
       orv::parse_u64(narrow(v), c.m_scan_start);
       return true;
     }},
    {L"-scansize", form_value, [](mft_entries_ctx& c, const wtext& v, wlist&) {
       orv::parse_u64(narrow(v), c.m_scan_size);
       return true;
     }},
    {L"-filter_unalloc_clusters", form_flag, [](mft_entries_ctx& c, const wtext&, wlist&) {
       c.m_scan_unalloc = c.m_and_logic = 1;
       return true;
     }},
    {L"-filter_all_clusters", form_flag, nullptr, &mft_entries_ctx::m_filter_all_clusters},
    {L"-filter_deleted_files_all", form_flag, nullptr, &mft_entries_ctx::m_filter_deleted_all},
    {L"-filter_AND_logic", form_flag, nullptr, &mft_entries_ctx::m_and_logic},
    {L"-filter_sig", form_value, [](mft_entries_ctx& c, const wtext& v, wlist&) {
       for (const std::wstring& word : split_list(v)) {
         const signature_word* known = nullptr;
         for (const signature_word& w : k_signature_words)
           if (word == w.m_word) known = &w;
         if (!known) {
           fprintf(stderr, "Error: -filter_sig option specified invalid option, aborting\n");
           continue;
         }
         if (c.m_header_size < known->m_need) c.m_header_size = known->m_need;
         c.m_include_header = 1;
         c.m_header_offset = 0;
         signature_test test;
         test.m_type = known->m_type;
         test.m_word = narrow(word);
         c.m_signature_filters.push_back(test);
       }
       return true;
     }},
    {L"-find_objid", form_value, [](mft_entries_ctx& c, const wtext& v, wlist&) {
       if (!looks_like_objid(v)) {
         fprintf(stderr, "prob parsing %s as ObjID, aborting\n", narrow(v).c_str());
         return false;
       }
       c.m_find_objid = narrow(v);
       return true;
     }},
    {L"-filter_max_size", form_value, [](mft_entries_ctx& c, const wtext& v, wlist&) {
       orv::parse_size(narrow(v), c.m_filter_max_size);
       return true;
     }},
    {L"-filter_min_size", form_value, [](mft_entries_ctx& c, const wtext& v, wlist&) {
       orv::parse_size(narrow(v), c.m_filter_min_size);
       return true;
     }},
    {L"-filter_min_ads_size", form_value, [](mft_entries_ctx& c, const wtext& v, wlist&) {
       orv::parse_size(narrow(v), c.m_filter_min_ads_size);
       return true;
     }},
    {L"-find_mft", form_value,
     [](mft_entries_ctx& c, const wtext& v, wlist&) {
       c.m_find_mft = 1;
       orv::parse_u64(narrow(v), c.m_mft_start);
       c.m_mft_range = 1;
       c.m_include_header = 1;
       c.m_header_size = 2048;
       return true;
     }},
    // The value is dropped: only the capture switch is set.
    {L"-action_include_header_ex", form_value,
     [](mft_entries_ctx& c, const wtext&, wlist&) {
       c.m_include_header = 1;
       return true;
     }},
    {L"-jp", form_flag, nullptr, &mft_entries_ctx::m_jp},
    {L"-lnk", form_flag, nullptr, &mft_entries_ctx::m_lnk},
};

bool run_walk_option(mft_entries_ctx& c, const walk_option& row, std::vector<std::wstring>& list) {
  std::wstring value;
  const std::wstring name = row.m_name;
  switch (row.m_form) {
    case form_always:
      return row.m_handler(c, value, list);
    case form_flag:
      if (!find_flag(name, list, false)) return true;
      if (!row.m_handler) {
        c.*row.m_flag = 1;
        return true;
      }
      return row.m_handler(c, value, list);
    case form_value:
      if (!find_value(name, value, list)) return true;
      return row.m_handler(c, value, list);
    case form_repeat:
      while (find_value(name, value, list))
        if (!row.m_handler(c, value, list)) return false;
      return true;
  }
  return true;
}

void apply_hashfile(mft_entries_ctx& c, std::vector<std::string>& list) {
  std::string value;
  if (!find_value(std::string("-hashfile"), value, list)) return;
  bool known = false;
  for (const std::string& word : orv::split(value, "|,;", true)) {
    std::string w = orv::lowered(word);
    if (w == "md5") c.m_hash_md5 = 1, known = true;
    else if (w == "sha1") c.m_hash_sha1 = 1, known = true;
    else if (w == "sha256") c.m_hash_sha256 = 1, known = true;
  }
  if (known) {
    c.m_hash_list_format = 1;
    c.m_fmt_csv = c.m_fmt_l2t = c.m_fmt_bodyfile = 0;
  }
  c.set_separator("|", false);
  set_value_separators(c, '|', ';');
  c.m_no_whitespace = 1;
}

}  // namespace

int parse_walk_options(mft_entries_ctx& ctx, const std::vector<std::string>& arguments,
                       const std::string& version_text, const std::string& second_text,
                       const std::string& source_type) {
  ctx.m_source_type = source_type.empty() ? std::string("NTFS$MFT") : source_type;
  if (arguments.size() < 2) return -2;
  ctx.m_future_limit = orv::current_filetime() + k_future_slack;

  std::vector<std::wstring> wide;
  for (const std::string& a : arguments) wide.push_back(widen(a));
  apply_script_file(wide);
  std::vector<std::string> list;
  for (const std::wstring& w : wide) list.push_back(narrow(w));

  apply_hashfile(ctx, list);
  for (const auto& hash : {std::make_pair("-md5", &mft_entries_ctx::m_hash_md5),
                           std::make_pair("-sha1", &mft_entries_ctx::m_hash_sha1),
                           std::make_pair("-sha256", &mft_entries_ctx::m_hash_sha256)}) {
    if (!find_flag(std::string(hash.first), list, false)) continue;
    ctx.*hash.second = 1;
  }

  {
    // The results directory exists before the common layer tries the file.
    std::vector<std::string> probe = list;
    std::string out;
    if (find_value(std::string("-outfile"), out, probe) || find_value(std::string("-out"), out, probe)) {
      std::string dir, name, ext;
      orv::split_path(out, dir, name, ext);
      if (!dir.empty()) orv::make_directory_tree(dir);
    }
  }
  {
    // The common layer consumes every -filter_sig; the first one is handed back below.
    std::vector<std::string> probe = list;
    ctx.m_taken_filter_sig_given = find_value(std::string("-filter_sig"), ctx.m_taken_filter_sig, probe) ? 1 : 0;
  }

  if (!ctx.parse_common(list)) return -2;
  ctx.m_version_text = version_text;
  ctx.m_second_text = second_text;

  wide.clear();
  for (const std::string& a : list) wide.push_back(widen(a));
  if (ctx.m_taken_filter_sig_given) {
    wide.push_back(L"-filter_sig");
    wide.push_back(widen(ctx.m_taken_filter_sig));
  }

  for (const walk_option& row : k_head_group)
    if (!run_walk_option(ctx, row, wide)) break;
  for (const walk_option& row : k_walk_options)
    if (!run_walk_option(ctx, row, wide)) return -1;

  int status = choose_source(ctx, wide);
  // The list separator follows the field separator, whatever an option set there before.
  ctx.m_list_separator = orv::to_wide(ctx.m_field_separator);
  return status;
}
