#include "results/orv_hash_rows.h"

#include "analysis/entry_record.h"
#include "analysis/orv_scan_state.h"
#include "base/orv_le.h"
#include "base/orv_results_stream.h"
#include "base/orv_string.h"
#include "results/orv_default_notes.h"
#include "results/orv_extract.h"
#include "run/mft_entries_ctx.h"

namespace {

void build_columns(hash_writer& w) {
  const mft_entries_ctx& ctx = w.m_options;
  result_table& table = w.m_table;
  table.m_columns.clear();
  layout_from_options(table.m_layout, ctx);
  const bool paired = ctx.m_pair_datetime != 0;
  w.m_time_step = paired ? 1 : 2;
  w.m_col_md5 = ctx.m_hash_md5 ? add_column(table, cell_text, 32, "md5 hash") : -1;
  w.m_col_sha1 = ctx.m_hash_sha1 ? add_column(table, cell_text, 40, "sha1 hash") : -1;
  w.m_col_sha256 = ctx.m_hash_sha256 ? add_column(table, cell_text, 64, "sha256 hash") : -1;
  w.m_col_inode = add_column(table, cell_int64, 10, "inode");
  w.m_col_size = add_column(table, cell_int64, 10, "file size");
  // Modify, access, create, MFT change: this order here, and the brace of the last heading, are
  // what readers of these lists expect.
  static const char* const k_pairs[8] = {"Modify UTC [SI]", "Access UTC [SI]", "Create UTC [SI]",
                                         "MFT Change UTC [SI]", "Modify UTC [FN]", "Access UTC [FN]",
                                         "Create UTC [FN]", "MFT Change UTC {FN]"};
  static const char* const k_dates[8] = {"mdate (SI)", "adate (SI)", "cdate (SI)", "mftdate (SI)",
                                         "mdate (FN)", "adate (FN)", "cdate (FN)", "mftdate (FN)"};
  static const char* const k_clocks[4] = {"mtime-utc", "atime-utc", "ctime-utc", "time-utc"};
  for (int i = 0; i < 8; ++i) {
    int column = add_time_columns(table, paired, k_dates[i], k_clocks[i % 4], k_pairs[i]);
    if (i == 0) w.m_col_times = column;
  }
  w.m_col_name = add_column(table, cell_text, 10, "filename");
  w.m_col_path = add_column(table, cell_text, 20, "path");
  w.m_col_host = add_column(table, cell_text, 14, "hostname");
  w.m_col_valid = add_column(table, cell_text, 3, "valid");
  w.m_col_filter = add_column(table, cell_text, 10, "filter");
  w.m_col_comment = add_column(table, cell_text, 10, "comment");
  table_ready(table, ctx.m_quoted_fields ? uint32_t(cell_flag_quoted) : 0u);
}

// Four times in the order modified, accessed, created, changed, from cell `first` on.
void set_times(hash_writer& w, int first, uint64_t modified, uint64_t accessed, uint64_t created, uint64_t changed) {
  const uint16_t kind = w.m_time_step == 2 ? cell_time_split : cell_time_joined;
  const uint64_t times[4] = {modified, accessed, created, changed};
  for (int i = 0; i < 4; ++i) set_time(w.m_table.m_row, first + i * w.m_time_step, kind, times[i]);
}

void set_digest(result_row& row, int column, bool has, const uint8_t* bytes, size_t length) {
  std::string text;
  if (has) append_digest(text, bytes, length);
  set_text(row, column, text);
}

// The first filter that selected the record, with its reason.
std::string filter_text(const entry_record& entry) {
  const std::pair<bool, std::pair<const char*, const std::wstring*>> hits[] = {
      {entry.m_filter_pattern, {"pattern(", &entry.m_filter_pattern_text}},
      {entry.m_filter_dir, {"dir(", &entry.m_filter_dir_text}},
      {entry.m_filter_inode, {"inode(", &entry.m_filter_inode_text}},
      {entry.m_filter_ext, {"ext(", &entry.m_filter_ext_text}},
      {entry.m_filter_name, {"name(", &entry.m_filter_name_text}},
      {entry.m_filter_type, {"type(", &entry.m_filter_type_text}}};
  for (const auto& hit : hits)
    if (hit.first) return hit.second.first + orv::to_utf8(*hit.second.second) + ")";
  return std::string();
}

}  // namespace

void write_hash_rows(entry_record& entry, const scan_state& scan, hash_writer& w, const attrib_item* hashed) {
  const mft_entries_ctx& ctx = w.m_options;
  if (!ctx.m_hash_md5 && !ctx.m_hash_sha1 && !ctx.m_hash_sha256) return;
  result_table& table = w.m_table;
  if (!table.m_built) build_columns(w);
  if (table.m_header_pending) {
    if (ctx.m_header_line) table_write_header(table, w.m_out);
    table.m_header_pending = false;
  }
  result_row& row = table.m_row;
  row_clear(row);
  set_digest(row, w.m_col_md5, entry.m_has_md5, entry.m_md5.data(), entry.m_md5.size());
  set_digest(row, w.m_col_sha1, entry.m_has_sha1, entry.m_sha1.data(), entry.m_sha1.size());
  set_digest(row, w.m_col_sha256, entry.m_has_sha256, entry.m_sha256.data(), entry.m_sha256.size());
  set_number(row, w.m_col_inode, cell_int64, entry.m_inode);
  if (hashed) set_number(row, w.m_col_size, cell_int64, hashed->stream_size());
  const si_entry& si = entry.m_std_infos.begin()->second;
  set_times(w, w.m_col_times, si.modified(), si.accessed(), si.created(), si.mft_modified());
  set_times(w, w.m_col_times + 4 * w.m_time_step, 0, 0, 0, 0);
  set_text(row, w.m_col_host, ctx.m_hostname);
  set_text(row, w.m_col_valid, scan.m_unalloc_pass ? "unalloc-deleted" : entry.in_use() ? "yes" : "deleted");
  set_text(row, w.m_col_filter, filter_text(entry));
  const std::string warning = entry.m_has_time_warning ? entry.m_time_warning : std::string();
  set_text(row, w.m_col_comment, warning);
  if (entry.m_file_names.empty()) {
    table_write_row(table, w.m_out);
    return;
  }
  for (const auto& kv : entry.m_file_names) {
    const file_name_entry& fn = kv.second;
    if (fn.m_is_dos_name) continue;
    set_number(row, w.m_col_inode, cell_int64, fn.m_inode);
    set_times(w, w.m_col_times + 4 * w.m_time_step, fn.modified(), fn.accessed(), fn.created(), fn.mft_modified());
    set_wide_text(row, w.m_col_name, fn.m_name);
    auto found = entry.m_parent_names.find(fn.parent_ref());
    set_text(row, w.m_col_path, found != entry.m_parent_names.end() ? found->second.m_path : std::string());
    std::string comment = warning;
    if (fn.m_inode != entry.m_inode) {
      if (!comment.empty()) comment += "; ";
      comment += "refinode=[";
      append_entry_number(comment, entry.m_inode, ctx.m_hex_numbers != 0);
      comment += "]";
    }
    set_text(row, w.m_col_comment, comment);
    table_write_row(table, w.m_out);
  }
}

static void hash_rows_record(entry_record& entry, const scan_state& scan, hash_writer& w) {
  if (!entry.has_rows()) return;
  // Copies asked for together with a hash list are made too; the list shows the digests.
  if (w.m_options.m_copy_files)
    extract_record(entry, w.m_options, scan);
  const attrib_item* hashed = hash_unnamed_data(entry, w.m_options, scan);
  write_hash_rows(entry, scan, w, hashed);
}

record_sink hash_rows_sink(hash_writer& writer) { return sink_of<hash_rows_record>(writer); }
