// Bodyfile rows as mactime reads them: md5|name|inode|mode|uid|gid|size|atime|mtime|ctime|crtime,
// times in whole seconds since 1970. The name field carries the notes and, behind them, which
// attribute the times came from.
#include "results/orv_bodyfile_rows.h"

#include <algorithm>
#include <vector>

#include "analysis/entry_record.h"
#include "analysis/orv_scan_state.h"
#include "analysis/orv_zone.h"
#include "base/orv_results_stream.h"
#include "base/orv_string.h"
#include "base/orv_time.h"
#include "ntfs/orv_security.h"
#include "results/orv_default_notes.h"
#include "results/orv_extract.h"
#include "results/orv_result_cells.h"
#include "results/result_row.h"
#include "run/mft_entries_ctx.h"

namespace {

// Seconds since 1970 of a FILETIME, rounded down; earlier instants are negative, zero stays 0.
int64_t unix_seconds(uint64_t filetime) {
  if (filetime == 0) return 0;
  const int64_t seconds = int64_t(filetime / orv::FILETIME_TICKS_PER_SECOND);
  return seconds - int64_t(orv::FILETIME_UNIX_EPOCH / orv::FILETIME_TICKS_PER_SECOND);
}

char* put_seconds(char* p, uint64_t filetime) {
  const int64_t seconds = unix_seconds(filetime);
  if (seconds < 0) *p++ = '-';
  return put_decimal(p, seconds < 0 ? uint64_t(-seconds) : uint64_t(seconds));
}

void add_count_note(std::string& notes, const char* label, size_t count) {
  if (count < 2) return;
  notes.append(label);
  append_decimal(notes, count);
  notes.append("]; ");
}

// One row: the fields behind the name, with the times in access, modify, change, create order.
// Formed in place at the end of `line`, grown first by what the row can take at the most.
void write_row(std::string& line, const bodyfile_writer& w, std::string_view first, std::string_view name,
               std::string_view tail, uint64_t accessed, uint64_t modified, uint64_t changed, uint64_t created,
               const result_layout& layout) {
  const std::string& separator = w.m_options.m_field_separator;
  const size_t start = line.size();
  line.resize(start + first.size() + 4 * (name.size() + tail.size()) + w.m_text.size() + 6 * separator.size() +
              4 * 21 + 1);
  char* const base = &line[0];
  char* p = base + start;
  using row_text::put_bytes;
  using row_text::put_clean;
  p = put_bytes(p, first.data(), first.size());
  p = put_bytes(p, separator.data(), separator.size());
  p = put_clean(p, name.data(), name.size(), layout.m_replace_char, layout.m_replace_with, layout.m_line_break_tokens);
  p = put_clean(p, tail.data(), tail.size(), layout.m_replace_char, layout.m_replace_with, layout.m_line_break_tokens);
  p = put_bytes(p, separator.data(), separator.size());
  p = put_bytes(p, w.m_text.data(), w.m_text.size());  // entry number, mode, uid, gid, size
  const uint64_t times[4] = {accessed, modified, changed, created};
  for (uint64_t t : times) {
    p = put_bytes(p, separator.data(), separator.size());
    p = put_seconds(p, t);
  }
  *p++ = '\n';
  line.resize(size_t(p - base));
}

}  // namespace

void write_bodyfile(entry_record& entry, const scan_state& scan, bodyfile_writer& w) {
  if (!entry.has_rows()) return;
  const mft_entries_ctx& ctx = w.m_options;
  const std::string& separator = ctx.m_field_separator;
  if (w.m_header_pending) {
    if (ctx.m_header_line) {
      static const char* const k_fields[] = {"md5",  "name", "inode", "mode as string", "uid", "gid",
                                             "size", "access time", "modify time", "mft time", "create time"};
      std::string header;
      for (const char* field : k_fields) header.append(header.empty() ? "" : separator).append(field);
      header.push_back('\n');
      w.m_out.write(header);
    }
    w.m_header_pending = false;
  }
  if (!w.m_layout_ready) {
    layout_from_options(w.m_layout, ctx);
    w.m_layout_ready = true;
  }
  const result_layout& layout = w.m_layout;

  w.m_first.clear();
  if (ctx.m_hash_md5 && entry.m_has_md5) append_digest(w.m_first, entry.m_md5.data(), entry.m_md5.size());
  if (w.m_first.empty()) w.m_first = "0";

  uint64_t size = 0;
  for (const auto& kv : entry.m_attribs)
    if (kv.second.m_is_data && kv.second.m_name.empty() && kv.second.m_label == "unnamed data") {
      size = kv.second.stream_size();
      break;
    }
  // Entry number, empty mode, uid and gid 0, and the size: the same for every row of the record.
  w.m_text.clear();
  append_decimal(w.m_text, entry.m_inode);
  w.m_text.append(separator).append(separator).append("0").append(separator).append("0").append(separator);
  append_decimal(w.m_text, size);

  const si_entry& si = entry.m_std_infos.begin()->second;
  std::string& line = w.m_line;
  line.clear();
  if (entry.m_file_names.empty()) {
    write_row(line, w, w.m_first, "<no filename attribute> (", "SI times)", si.accessed(), si.modified(),
              si.mft_modified(), si.created(), layout);
    w.m_out.write(line);
    return;
  }

  // Notes that every name of the record shares.
  const size_t roots = distinct_parent_count(entry);
  const bool hex = ctx.m_hex_numbers != 0;
  std::string head, tail;
  if (!entry.in_use()) head.append("deleted; ");
  head.append(entry.is_directory() ? "dir; " : "file; ");
  add_count_note(head, "multinames [", entry.m_file_names.size());
  add_count_note(head, "multiroots [", roots);
  if (ctx.m_show_record_offset) {
    tail.append("filerecord [");
    append_entry_number(tail, entry.m_record_offset, hex);
    tail.append("]; ");
  }
  if (ctx.m_include_ownersid) {
    const uint32_t security_id = si.security_id();
    const security_entry* sd = security_id ? find_security_entry(scan.m_source.volume(), security_id) : nullptr;
    if (sd && !sd->m_owner_sid.empty()) tail.append("owner_sid [ ").append(sd->m_owner_sid).append("]; ");
  }
  if (!entry.m_zone_info.empty()) tail.append(zone_info_text(entry.m_zone_info));

  std::string& name = w.m_notes;
  for (const auto& kv : entry.m_file_names) {
    const file_name_entry& fn = kv.second;
    if (fn.m_is_dos_name && ctx.m_hide_dos_fntimes) continue;
    name.clear();
    append_name_path(name, entry, fn);
    name.append(" (").append(head);
    const bool in_extension = fn.m_inode != entry.m_inode;
    if (in_extension) {
      name.append("refinode [");
      append_entry_number(name, fn.m_inode, hex);
      name.append("]; ");
    }
    name.append(tail);
    const bool match = fn.modified() == si.modified() && fn.accessed() == si.accessed() &&
                       fn.mft_modified() == si.mft_modified() && fn.created() == si.created();
    if (match) {
      write_row(line, w, w.m_first, name, "SI & FN times match)", si.accessed(), si.modified(), si.mft_modified(),
                si.created(), layout);
      continue;
    }
    // A name held by an extension record is shown with its own times only.
    if (!in_extension)
      write_row(line, w, w.m_first, name, "SI times)", si.accessed(), si.modified(), si.mft_modified(), si.created(),
                layout);
    write_row(line, w, w.m_first, name, "FN times)", fn.accessed(), fn.modified(), fn.mft_modified(), fn.created(),
              layout);
  }
  w.m_out.write(line);
}

static void bodyfile_rows_record(entry_record& entry, const scan_state& scan, bodyfile_writer& w) {
  if (!entry.has_rows()) return;
  if (w.m_options.m_hash_md5) hash_unnamed_data(entry, w.m_options, scan);
  write_bodyfile(entry, scan, w);
}

record_sink bodyfile_rows_sink(bodyfile_writer& writer) { return sink_of<bodyfile_rows_record>(writer); }
