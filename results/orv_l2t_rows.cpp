// log2timeline rows: date, time, timezone, MACB, source, sourcetype, type, user, host, short,
// desc, version, filename, inode, notes, format, extra. Every attribute's four times are grouped
// by equal value; a record's rows go out in time order.
#include "results/orv_l2t_rows.h"

#include <algorithm>

#include "analysis/entry_record.h"
#include "analysis/orv_zone.h"
#include "base/orv_results_stream.h"
#include "base/orv_string.h"
#include "base/orv_time.h"
#include "results/orv_default_notes.h"
#include "results/orv_extract.h"
#include "results/orv_header_text.h"
#include "results/result_row.h"
#include "run/mft_entries_ctx.h"

namespace {

// One row waiting for its record's rows to be put in time order; `m_texts` is the name it came
// through (its short, desc and notes texts).
struct pending_row {
  uint64_t m_time;
  uint32_t m_texts;
  const char* m_prefix;
  char m_letters[5];
};

// The texts of one name as the rows show them, cleaned.
struct name_texts {
  std::string m_short, m_desc, m_notes;
};

}  // namespace

struct l2t_row_scratch {
  result_layout m_layout;
  bool m_layout_ready = false;
  std::vector<macb_row> m_grouped;
  std::vector<pending_row> m_rows;
  std::vector<name_texts> m_names;
  std::string m_format;  // the tool's name and " (orvenna)"
  std::string m_record_notes, m_notes, m_filename, m_inode, m_extra, m_work, m_date, m_clock, m_line;
};

l2t_writer::l2t_writer(const mft_entries_ctx& options, results_stream& out)
    : m_options(options), m_out(out), m_scratch(new l2t_row_scratch) {}
l2t_writer::~l2t_writer() = default;

void group_macb(const macb_set& set, std::vector<macb_row>& rows) {
  rows.clear();
  bool taken[4] = {false, false, false, false};
  for (int i = 0; i < 4; ++i) {
    const uint64_t t = set.m_times[i];
    if (taken[i] || !orv::filetime_displayable(t)) continue;
    macb_row row;
    row.m_time = t;
    for (int j = i; j < 4; ++j)
      if (!taken[j] && set.m_times[j] == t) {
        row.m_letters[j] = "MACB"[j];
        taken[j] = true;
      }
    rows.push_back(row);
  }
}

namespace {

void add_note(std::string& notes, const std::string& item) {
  if (item.empty()) return;
  if (!notes.empty()) notes.append("; ");
  notes.append(item);
}

void add_count_note(std::string& notes, const char* label, size_t count) {
  if (count < 2) return;
  if (!notes.empty()) notes.append("; ");
  notes.append(label);
  append_decimal(notes, count);
  notes.push_back(']');
}

// The extra text: data summary with the digests, the owner, the head bytes of the unnamed stream.
void build_extra(std::string& out, const entry_record& entry, const mft_entries_ctx& ctx, const scan_state& scan) {
  static const char* const k_labels[3] = {"md5_hash: ", "sha1_hash ", "sha256_hash "};
  out.clear();
  append_summary(out, entry, ctx);
  append_digest_items(out, entry, k_labels);
  if (ctx.m_include_ownersid) append_owner_sid(out, entry, scan);
  if (!ctx.m_include_header) return;
  std::string head;
  append_header_text(head, entry, ctx.m_header_strings != 0);
  if (head.empty()) return;
  out.append("; [").append(ctx.m_header_strings ? "strings: " : "bytes: ").append(head).push_back(']');
}

// "dir", "file", "deleted (dir)" or "deleted (file)", the time warning and the zone information.
void record_notes_text(std::string& out, const entry_record& entry) {
  out.clear();
  const char* kind = entry.is_directory() ? "dir" : "file";
  if (!entry.in_use()) out.append("deleted (").append(kind).push_back(')');
  else out.append(kind);
  if (entry.m_has_time_warning) add_note(out, entry.m_time_warning);
  if (!entry.m_zone_info.empty()) add_note(out, zone_info_text(entry.m_zone_info));
}

void queue_rows(l2t_row_scratch& scratch, uint32_t texts, const macb_set& set) {
  group_macb(set, scratch.m_grouped);
  for (const macb_row& row : scratch.m_grouped) {
    pending_row pending;
    pending.m_time = row.m_time;
    pending.m_texts = texts;
    pending.m_prefix = set.m_prefix;
    std::copy(row.m_letters, row.m_letters + 5, pending.m_letters);
    scratch.m_rows.push_back(pending);
  }
}

void write_header(l2t_writer& w) {
  const mft_entries_ctx& ctx = w.m_options;
  static const char* const k_fields[] = {"timezone", "MACB",    "source", "sourcetype", "type",  "user",
                                         "host",     "short",   "desc",   "version",    "filename", "inode",
                                         "notes",    "format",  "extra"};
  std::string line = ctx.m_pair_datetime ? "date/time" : "date" + ctx.m_field_separator + "time";
  for (const char* field : k_fields) line.append(ctx.m_field_separator).append(field);
  line.push_back('\n');
  w.m_out.write(line);
}

}  // namespace

void write_l2t(entry_record& entry, const scan_state& scan, l2t_writer& w) {
  if (!entry.has_rows()) return;
  const mft_entries_ctx& ctx = w.m_options;
  l2t_row_scratch& scratch = *w.m_scratch;
  if (!scratch.m_layout_ready) {
    layout_from_options(scratch.m_layout, ctx);
    scratch.m_format = ctx.m_tool_name + " (orvenna)";
    scratch.m_layout_ready = true;
  }
  if (w.m_header_pending) {
    if (ctx.m_header_line) write_header(w);
    w.m_header_pending = false;
  }
  const result_layout& layout = scratch.m_layout;
  const bool hex = ctx.m_hex_numbers != 0;
  const std::string& separator = ctx.m_field_separator;
  const si_entry& si = entry.m_std_infos.begin()->second;
  const macb_set si_set{{si.modified(), si.accessed(), si.mft_modified(), si.created()}, "$SI:"};

  std::string& record_notes = scratch.m_record_notes;
  record_notes_text(record_notes, entry);
  scratch.m_rows.clear();
  size_t used = 0;
  auto next_texts = [&]() -> name_texts& {
    if (scratch.m_names.size() <= used) scratch.m_names.emplace_back();
    name_texts& texts = scratch.m_names[used++];
    texts.m_short.clear();
    texts.m_desc.clear();
    texts.m_notes.clear();
    return texts;
  };

  if (entry.m_file_names.empty()) {
    // A record without a name still has its standard information times.
    name_texts& texts = next_texts();
    append_clean_text(texts.m_short, "<no filename attribute>", layout, false);
    append_clean_text(texts.m_desc, "<no path>\\<no filename attribute>", layout, false);
    append_clean_text(texts.m_notes, record_notes, layout, false);
    queue_rows(scratch, 0, si_set);
  } else {
    const size_t roots = distinct_parent_count(entry);
    std::string& notes = scratch.m_notes;
    std::string& work = scratch.m_work;
    for (const auto& kv : entry.m_file_names) {
      const file_name_entry& fn = kv.second;
      if (fn.m_is_dos_name && ctx.m_hide_dos_fntimes) continue;
      notes = record_notes;
      if (fn.m_is_dos_name) add_note(notes, "FN8.3");
      if (ctx.m_show_record_offset) {
        add_note(notes, "filerecord [");
        append_entry_number(notes, entry.m_record_offset, hex);
        notes.push_back(']');
      }
      if (fn.m_time_anomaly) add_note(notes, "fn:time " + fn.m_anomaly_text);
      add_count_note(notes, "multinames [", entry.m_file_names.size());
      add_count_note(notes, "multiroots [", roots);
      if (fn.m_inode != entry.m_inode) {
        add_note(notes, "ref inode [");
        append_entry_number(notes, fn.m_inode, hex);
        notes.push_back(']');
      }
      const uint32_t index = uint32_t(used);
      name_texts& texts = next_texts();
      work.clear();
      orv::append_utf8_of(work, fn.m_name);
      append_clean_text(texts.m_short, work, layout, false);
      work.clear();
      append_name_path(work, entry, fn);
      append_clean_text(texts.m_desc, work, layout, false);
      append_clean_text(texts.m_notes, notes, layout, false);
      queue_rows(scratch, index, si_set);
      const macb_set fn_set{{fn.modified(), fn.accessed(), fn.mft_modified(), fn.created()},
                            fn.m_is_dos_name ? "$FN8.3:" : "$FN:"};
      queue_rows(scratch, index, fn_set);
    }
  }
  if (scratch.m_rows.empty()) return;

  // Rows of equal instant keep the order they were formed in.
  std::stable_sort(scratch.m_rows.begin(), scratch.m_rows.end(),
                   [](const pending_row& a, const pending_row& b) { return a.m_time < b.m_time; });

  // Fields that every row of the record shares: version, filename, inode (after desc) and
  // format, extra (after notes).
  scratch.m_filename.clear();
  scratch.m_work.clear();
  orv::append_utf8_of(scratch.m_work, entry.m_source_name);
  append_clean_text(scratch.m_filename, scratch.m_work, layout, false);
  scratch.m_inode.clear();
  append_entry_number(scratch.m_inode, entry.m_inode, hex);
  build_extra(scratch.m_work, entry, ctx, scan);
  scratch.m_extra.clear();
  append_clean_text(scratch.m_extra, scratch.m_work, layout, false);

  const bool windowed = ctx.m_filter_start_time || ctx.m_filter_stop_time;
  std::string& line = scratch.m_line;
  line.clear();
  for (const pending_row& row : scratch.m_rows) {
    if (windowed && (row.m_time < ctx.m_filter_start_time || row.m_time > ctx.m_filter_stop_time)) continue;
    scratch.m_date.clear();
    scratch.m_clock.clear();
    orv::append_filetime_text(scratch.m_date, scratch.m_clock, row.m_time, layout.m_time_state);
    const name_texts& texts = scratch.m_names[row.m_texts];
    line.append(scratch.m_date).append(ctx.m_pair_datetime ? " " : separator).append(scratch.m_clock);
    line.append(separator).append("UTC");
    line.append(separator).append(row.m_letters, 4);
    line.append(separator).append("FILE");
    line.append(separator).append("NTFS$MFT");  // also for records found in free clusters
    line.append(separator).append(row.m_prefix).append(" [").append(row.m_letters, 4).push_back(']');
    // User and host go out as given: the examiner's own words.
    line.append(separator).append(ctx.m_username);
    line.append(separator).append(ctx.m_hostname);
    line.append(separator).append(texts.m_short);
    line.append(separator).append(texts.m_desc);
    line.append(separator).append("2");
    line.append(separator).append(scratch.m_filename);
    line.append(separator).append(scratch.m_inode);
    line.append(separator).append(texts.m_notes);
    line.append(separator).append(scratch.m_format);
    line.append(separator).append(scratch.m_extra);
    line.push_back('\n');
  }
  w.m_out.write(line);
}

static void l2t_rows_record(entry_record& entry, const scan_state& scan, l2t_writer& w) {
  if (!entry.has_rows()) return;
  hash_unnamed_data(entry, w.m_options, scan);  // the digests the options ask for, into "extra"
  write_l2t(entry, scan, w);
}

record_sink l2t_rows_sink(l2t_writer& writer) { return sink_of<l2t_rows_record>(writer); }
