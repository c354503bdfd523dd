#include "results/orv_default_notes.h"

#include <cstring>
#include <cwctype>

#include "analysis/entry_record.h"
#include "analysis/orv_paths.h"
#include "analysis/orv_scan_state.h"
#include "analysis/orv_zone.h"
#include "base/orv_digest.h"
#include "base/orv_le.h"
#include "base/orv_string.h"
#include "ntfs/orv_security.h"
#include "results/result_row.h"
#include "run/mft_entries_ctx.h"

namespace {

void add_item(std::string& out, const std::string& item) {
  if (item.empty()) return;
  if (!out.empty()) out.append("; ");
  out.append(item);
}

void append_wide_note(std::string& out, const char* open, const std::wstring& text, const char* close) {
  out.append(open);
  orv::append_utf8_of(out, text);
  out.append(close);
}

// Start of a new "other info" item.
std::string& next_item(std::string& out) {
  if (!out.empty()) out.append("; ");
  return out;
}

void append_runs(std::string& out, const data_run_list& runs) {
  out.append("start cluster/count: ");
  for (const run_entry& run : runs) {
    out.append("0x");
    append_hex(out, run.m_lcn, 6);
    out.push_back('/');
    append_decimal(out, run.m_count);
    if (run.m_is_sparse) out.append(" [sparse]");
    out.append(" : ");
  }
}

}  // namespace

void append_entry_number(std::string& out, uint64_t number, bool hex) {
  char buffer[24];
  char* p = buffer;
  if (hex) {
    *p++ = '0';
    *p++ = 'x';
    p = put_hex(p, number, 8);
  } else {
    p = put_decimal(p, number);
  }
  out.append(buffer, size_t(p - buffer));
}

const char* record_type_text(const entry_record& entry, const scan_state& scan) {
  if (scan.m_unalloc_pass) return "unalloc";
  if (!entry.in_use()) return "del";
  return entry.is_directory() ? "dir" : "file";
}

void extension_text(std::string& out, const std::wstring& name, bool is_directory) {
  size_t dot = name.size();
  while (dot > 0 && name[dot - 1] != L'.') --dot;  // names are short: no library call
  if (is_directory || dot == 0) {
    out.append("none", 4);
    return;
  }
  --dot;
  // Lowered and written as UTF-8 one character at a time; ASCII needs no library call.
  char buffer[64];
  size_t n = 0;
  for (size_t i = dot + 1; i < name.size(); ++i) {
    if (n + 4 > sizeof(buffer)) {
      out.append(buffer, n);
      n = 0;
    }
    uint32_t c = uint32_t(name[i]);
    if (c < 0x80) {
      buffer[n++] = char(c >= 'A' && c <= 'Z' ? c + 32 : c);
      continue;
    }
    c = uint32_t(orv::fold_lower(name[i]));
    if (c > 0x10FFFF) break;  // not a code point: the text ends here, as in every UTF-8 conversion
    n = size_t(orv::put_utf8(buffer + n, c) - buffer);
  }
  out.append(buffer, n);
}

void append_digest(std::string& out, const uint8_t* bytes, size_t length) {
  bool any = false;
  for (size_t i = 0; i < length && !any; ++i) any = bytes[i] != 0;
  if (any) orv::append_hex(out, bytes, length);
}

void append_digest_items(std::string& out, const entry_record& entry, const char* const labels[3]) {
  const struct {
    bool m_has;
    const uint8_t* m_bytes;
    size_t m_length;
  } digests[3] = {{entry.m_has_md5, entry.m_md5.data(), entry.m_md5.size()},
                  {entry.m_has_sha1, entry.m_sha1.data(), entry.m_sha1.size()},
                  {entry.m_has_sha256, entry.m_sha256.data(), entry.m_sha256.size()}};
  for (int i = 0; i < 3; ++i) {
    if (!digests[i].m_has) continue;
    const size_t before = out.size();
    if (!out.empty()) out.append("; ");
    out.append("[").append(labels[i]);
    const size_t hex_at = out.size();
    append_digest(out, digests[i].m_bytes, digests[i].m_length);
    if (out.size() == hex_at) out.resize(before);  // an all-zero digest was never computed
    else out.push_back(']');
  }
}

size_t distinct_parent_count(const entry_record& entry) {
  // A record has a handful of names: compare each with those before it.
  size_t count = 0;
  for (auto it = entry.m_file_names.begin(); it != entry.m_file_names.end(); ++it) {
    bool seen = false;
    for (auto before = entry.m_file_names.begin(); before != it && !seen; ++before)
      seen = before->second.parent_ref() == it->second.parent_ref();
    if (!seen) ++count;
  }
  return count;
}

void append_name_path(std::string& out, const entry_record& entry, const file_name_entry& name) {
  auto parent = entry.m_parent_names.find(name.parent_ref());
  if (parent != entry.m_parent_names.end()) out.append(parent->second.m_path);
  else out.append("[root]/");
  out.append(name.m_name_utf8);
}

void append_summary(std::string& out, const entry_record& entry, const mft_entries_ctx& ctx) {
  // Fixed words and numbers are gathered in a local buffer and handed on in few appends.
  char buffer[256];
  size_t n = 0;
  auto flush = [&] {
    out.append(buffer, n);
    n = 0;
  };
  auto put = [&](const char* text, size_t size) {
    if (n + size > sizeof(buffer)) {
      flush();
      if (size > sizeof(buffer)) {
        out.append(text, size);
        return;
      }
    }
    std::memcpy(buffer + n, text, size);
    n += size;
  };
  auto put_hex_value = [&](uint64_t value, int min_digits) {
    if (n + 20 > sizeof(buffer)) flush();
    n = size_t(put_hex(buffer + n, value, min_digits) - buffer);
  };
  const size_t start = out.size();
  for (const auto& pair : entry.m_attribs) {
    const attrib_item& item = pair.second;
    if (!item.m_is_data) continue;
    uint64_t size = item.stream_size();
    if (size == 0) continue;
    put("[", 1);
    if (!item.m_name.empty()) {
      flush();
      orv::append_utf8_of(out, item.m_name);
      put(" : ", 3);
    }
    if (!item.m_label.empty()) {
      put(item.m_label.data(), item.m_label.size());
      put(" : ", 3);
    }
    put("sz: 0x", 6);
    put_hex_value(size, 4);
    if (!item.non_resident() && !item.m_text.empty()) {
      put(" : ", 3);
      put(item.m_text.data(), item.m_text.size());
    } else if (ctx.m_include_clusterinfo && item.non_resident()) {
      put(" : ", 3);
      flush();
      append_runs(out, item.m_runs);
    }
    put("]; ", 3);
  }
  const uint64_t lsn = entry.m_header.lsn();
  uint64_t usn = 0;
  uint32_t security_id = 0;
  if (!entry.m_std_infos.empty()) {
    const si_entry& si = entry.m_std_infos.begin()->second;
    usn = si.usn();
    security_id = si.security_id();
  }
  if (lsn) {
    put("[logfile_seqnum: 0x", 19);
    put_hex_value(lsn, 6);
    put("]; ", 3);
  }
  if (usn) {
    put("[usnjrnl_indx: 0x", 17);
    put_hex_value(usn, 6);
    put("]; ", 3);
  }
  if (security_id) {
    put("[security_id: 0x", 16);
    put_hex_value(security_id, 4);
    put("]; ", 3);
  }
  flush();
  if (out.size() >= start + 2) out.resize(out.size() - 2);
}

void append_owner_sid(std::string& out, const entry_record& entry, const scan_state& scan) {
  if (entry.m_std_infos.empty()) return;
  const uint32_t security_id = entry.m_std_infos.begin()->second.security_id();
  const security_entry* sd = security_id ? find_security_entry(scan.m_source.volume(), security_id) : nullptr;
  if (!sd || sd->m_owner_sid.empty()) return;
  if (!out.empty()) out.append("; ");
  out.append("[owner_sid: ").append(sd->m_owner_sid).push_back(']');
}

void refinode_note(std::string& out, uint64_t record_number, const mft_entries_ctx& ctx) {
  out.append("refinode [");
  append_entry_number(out, record_number, ctx.m_hex_numbers != 0);
  out.push_back(']');
}

void join_other_info(std::string& out, const record_notes& notes, const std::string& refinode) {
  add_item(out, notes.m_other_head);
  add_item(out, refinode);
  add_item(out, notes.m_other_tail);
}

void build_record_notes(record_notes& notes, const entry_record& entry, const mft_entries_ctx& ctx,
                        const scan_state& scan, size_t parent_count) {
  const bool hex = ctx.m_hex_numbers != 0;
  notes.m_entry_text.clear();
  append_entry_number(notes.m_entry_text, entry.m_inode, hex);
  notes.m_type.assign(record_type_text(entry, scan));
  notes.m_ext.clear();
  static const std::wstring k_no_name;
  const std::wstring* name = select_name_of(entry, entry.m_inode);
  extension_text(notes.m_ext, name ? *name : k_no_name, entry.is_directory());

  notes.m_md5.clear();
  notes.m_sha1.clear();
  notes.m_sha256.clear();
  if (entry.m_has_md5) append_digest(notes.m_md5, entry.m_md5.data(), entry.m_md5.size());
  if (entry.m_has_sha1) append_digest(notes.m_sha1, entry.m_sha1.data(), entry.m_sha1.size());
  if (entry.m_has_sha256) append_digest(notes.m_sha256, entry.m_sha256.data(), entry.m_sha256.size());

  notes.m_summary.clear();
  append_summary(notes.m_summary, entry, ctx);
  if (ctx.m_include_ownersid) append_owner_sid(notes.m_summary, entry, scan);

  std::string& head = notes.m_other_head;
  head.clear();
  if (entry.m_file_names.size() > 1) {
    next_item(head).append("multinames [");
    append_decimal(head, entry.m_file_names.size());
    head.push_back(']');
  }
  if (parent_count > 1) {
    next_item(head).append("multiroots [");
    append_decimal(head, parent_count);
    head.push_back(']');
  }
  if (!entry.m_reparse_targets.empty()) {
    next_item(head).append("symlink: [");
    bool first = true;
    for (const auto& target : entry.m_reparse_targets) {
      if (!first) head.append("; ");
      first = false;
      orv::append_utf8_of(head, target.second);
    }
    head.push_back(']');
  }

  std::string& tail = notes.m_other_tail;
  tail.clear();
  if (entry.m_attrib_list_nonresident && !scan.m_source.volume())
    next_item(tail).append("attrib list non-resident [not avail for parsing w/o image]");
  if (entry.m_has_time_warning && !entry.m_time_warning.empty()) next_item(tail).append(entry.m_time_warning);
  if (ctx.m_show_record_offset) {
    next_item(tail).append("filerecord: ");
    if (hex) {
      tail.append("0x");
      append_hex(tail, entry.m_record_offset, 8);
    } else {
      append_decimal(tail, entry.m_record_offset);
    }
  }
  if (entry.m_filter_type) append_wide_note(next_item(tail), "type(", entry.m_filter_type_text, ")");
  if (entry.m_filter_pattern) append_wide_note(next_item(tail), "pattern(", entry.m_filter_pattern_text, ")");
  if (entry.m_filter_dir) append_wide_note(next_item(tail), "dir(", entry.m_filter_dir_text, ")");
  if (entry.m_filter_inode) append_wide_note(next_item(tail), "inode(", entry.m_filter_inode_text, ")");
  if (entry.m_filter_ext) append_wide_note(next_item(tail), "ext(", entry.m_filter_ext_text, ")");
  if (entry.m_filter_name) append_wide_note(next_item(tail), "name(", entry.m_filter_name_text, ")");
  if (!entry.m_zone_info.empty()) next_item(tail).append(zone_info_text(entry.m_zone_info));
}
