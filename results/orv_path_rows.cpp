#include "results/orv_path_rows.h"

#include <algorithm>

#include "analysis/entry_record.h"
#include "analysis/orv_scan_state.h"
#include "analysis/orv_zone.h"
#include "base/orv_digest.h"
#include "base/orv_le.h"
#include "base/orv_results_stream.h"
#include "base/orv_string.h"
#include "results/orv_default_notes.h"
#include "results/orv_extract.h"
#include "results/orv_header_text.h"
#include "run/mft_entries_ctx.h"

namespace {

// Adds four time cells in M, A, C, B order; gives the index of the first.
int add_four_times(result_table& table, bool paired, const char* const pair_names[4], const char* const date_names[4]) {
  static const char* const k_time_names[4] = {"mtime-UTC", "atime-UTC", "ctime-UTC", "btime-UTC"};
  int first = -1;
  for (int i = 0; i < 4; ++i) {
    int column = add_time_columns(table, paired, date_names[i], k_time_names[i], pair_names[i]);
    if (i == 0) first = column;
  }
  return first;
}

void build_columns(path_writer& w) {
  const mft_entries_ctx& ctx = w.m_options;
  result_table& table = w.m_table;
  table.m_columns.clear();
  layout_from_options(table.m_layout, ctx);
  const bool paired = ctx.m_pair_datetime != 0;
  w.m_time_step = paired ? 1 : 2;

  w.m_col_entry = add_column(table, cell_int64, 10, "MFT entry");
  w.m_col_seq = add_column(table, cell_int16, 10, "mft seqnum");
  w.m_col_parent = add_column(table, cell_int64, 10, "parent MFT");
  w.m_col_parent_seq = add_column(table, cell_int16, 10, "par seqnum");
  static const char* const k_si_pairs[4] = {"SI modify-UTC", "SI access-UTC", "SI MFTchanged-UTC", "SI created-UTC"};
  static const char* const k_si_dates[4] = {"SI mdate", "SI adate", "SI cdate", "SI bdate"};
  static const char* const k_fn_pairs[4] = {"FN modify-UTC", "FN access-UTC", "FN MFTchanged-UTC", "FN created-UTC"};
  static const char* const k_fn_dates[4] = {"FN mdate", "FN adate", "FN cdate", "FN bdate"};
  w.m_col_times = add_four_times(table, paired, k_si_pairs, k_si_dates);
  add_four_times(table, paired, k_fn_pairs, k_fn_dates);
  w.m_col_type = add_column(table, cell_text, 19, "type");
  w.m_col_ext = add_column(table, cell_text, 7, "ext");
  w.m_col_size = add_column(table, cell_int64, 10, "size");
  w.m_col_offset = ctx.m_show_record_offset ? add_column(table, cell_int64, 10, "MFT Offset") : -1;
  w.m_col_name = add_column(table, cell_text, 30, "name");
  w.m_col_path = add_column(table, cell_text, 80, "path");
  w.m_col_links = add_column(table, cell_text, 15, "sym link");
  w.m_col_object = add_column(table, cell_text, 36, "object ID");
  w.m_col_ads = add_column(table, cell_text, 15, "ADS metadata");
  w.m_col_zone = ctx.m_include_zoneinfo ? add_column(table, cell_text, 15, "ZoneInfo") : -1;
  w.m_col_warning = add_column(table, cell_text, 15, "Time warning");
  w.m_col_host = ctx.m_has_hostname ? add_column(table, cell_text, uint32_t(ctx.m_hostname.size()), "hostname") : -1;
  w.m_col_dos_times = -1;
  if (!ctx.m_hide_dos_fntimes) {
    static const char* const k_dos_pairs[4] = {"FN8.3 modify-UTC", "FN8.3 access-UTC", "FN8.3 MFTchanged-UTC",
                                               "FN8.3 created-UTC"};
    static const char* const k_dos_dates[4] = {"8.3 mdate", "8.3 adate", "8.3 cdate", "8.3 bdate"};
    w.m_col_dos_times = add_four_times(table, paired, k_dos_pairs, k_dos_dates);
  }
  w.m_col_extracted = ctx.m_copy_files ? add_column(table, cell_text, 15, "extracted file path") : -1;
  w.m_col_summary = add_column(table, cell_text, 100, "summary stats");
  w.m_col_header = ctx.m_include_header ? add_column(table, cell_text, 0, "header data") : -1;
  table_ready(table, ctx.m_quoted_fields ? uint32_t(cell_flag_quoted) : 0u);
}

// Four times, modified, accessed, changed, created, from column `first` on.
void set_four_times(path_writer& w, int first, uint64_t modified, uint64_t accessed, uint64_t changed,
                    uint64_t created) {
  if (first < 0) return;
  const uint16_t kind = w.m_time_step == 2 ? cell_time_split : cell_time_joined;
  const uint64_t times[4] = {modified, accessed, changed, created};
  for (int i = 0; i < 4; ++i) set_time(w.m_table.m_row, first + i * w.m_time_step, kind, times[i]);
}

void add_part(std::string& out, const std::string& item) {
  if (item.empty()) return;
  if (!out.empty()) out += "; ";
  out += item;
}

std::string count_note(const char* label, size_t count) {
  if (count < 2) return std::string();
  std::string out = label;
  append_decimal(out, count);
  return out + "]";
}

std::string number_text(uint64_t value, bool hex) {
  std::string out;
  if (hex) out += "0x", append_hex(out, value, 1);
  else append_decimal(out, value);
  return out;
}

// Text behind the last '.', case kept; empty without a dot.
std::string name_extension(const std::wstring& name) {
  const size_t dot = name.rfind(L'.');
  return dot == std::wstring::npos ? std::string() : orv::to_utf8(name.substr(dot + 1));
}

// The summary of the data attributes, with the digests of the stream last read.
std::string summary_text(const entry_record& entry, const mft_entries_ctx& ctx) {
  static const char* const k_labels[3] = {"md5_hash: ", "sha1_hash: ", "sha256_hash: "};
  std::string out;
  append_summary(out, entry, ctx);
  append_digest_items(out, entry, k_labels);
  return out;
}

bool is_stub(const entry_record& entry) { return entry.m_file_names.empty(); }

}  // namespace

void write_path_row(entry_record& entry, const scan_state& scan, path_writer& w, const std::string& stream,
                    const std::wstring& extracted) {
  const mft_entries_ctx& ctx = w.m_options;
  if (!entry.has_rows()) return;
  result_table& table = w.m_table;
  if (!table.m_built) build_columns(w);
  if (table.m_header_pending) {
    if (ctx.m_header_line) table_write_header(table, w.m_out);
    table.m_header_pending = false;
  }
  const bool hex = ctx.m_hex_numbers != 0;
  result_row& row = table.m_row;
  const si_entry& si = entry.m_std_infos.begin()->second;

  // The cells every row of the record shares.
  row_clear(row);
  set_number(row, w.m_col_entry, cell_int64, entry.m_inode);
  set_number(row, w.m_col_seq, cell_int16, entry.m_seq_num);
  set_number(row, w.m_col_parent, cell_int64, 5);
  set_number(row, w.m_col_parent_seq, cell_int16, 0);
  set_four_times(w, w.m_col_times, si.modified(), si.accessed(), si.mft_modified(), si.created());
  set_four_times(w, w.m_col_times + 4 * w.m_time_step, 0, 0, 0, 0);
  set_text(row, w.m_col_type, record_type_text(entry, scan));
  if (w.m_col_offset >= 0) set_number(row, w.m_col_offset, cell_int64, entry.m_record_offset);

  std::string ads, objects;
  for (const auto& kv : entry.m_attribs) {
    const attrib_item& item = kv.second;
    if (item.m_is_data && item.m_name.empty() && item.m_label == "unnamed data")
      set_number(row, w.m_col_size, cell_int64, item.stream_size());
    if (item.m_is_data && !item.m_name.empty())
      add_part(ads, orv::to_utf8(item.m_name) + " [sz:" + number_text(item.stream_size(), hex) + "]");
  }
  for (const auto& kv : entry.m_object_ids) {
    const uint8_t* id = kv.second.m_ids.data();
    for (size_t at = 0; at < kv.second.m_ids.size(); at += 16)
      if (std::any_of(id + at, id + at + 16, [](uint8_t b) { return b != 0; })) add_part(objects, orv::guid_text(id + at));
  }
  set_text(row, w.m_col_ads, ads);
  set_text(row, w.m_col_object, objects);
  if (w.m_col_zone >= 0) set_text(row, w.m_col_zone, format_zone_text(entry.m_zone_info));
  if (entry.m_has_time_warning) set_text(row, w.m_col_warning, entry.m_time_warning);
  if (w.m_col_host >= 0) set_text(row, w.m_col_host, ctx.m_hostname);
  set_wide_text(row, w.m_col_extracted, extracted);
  std::string summary = summary_text(entry, ctx);
  if (ctx.m_include_ownersid) append_owner_sid(summary, entry, scan);
  set_text(row, w.m_col_summary, summary);
  if (w.m_col_header >= 0) {
    std::string header;
    append_header_text(header, entry, ctx.m_header_strings != 0);
    set_text(row, w.m_col_header, header);
  }

  const std::string names = count_note("multinames [", entry.m_file_names.size());
  const std::string roots = count_note("multiroots [", distinct_parent_count(entry));
  std::string links;
  for (const auto& kv : entry.m_reparse_targets) add_part(links, orv::to_utf8(kv.second));
  add_part(links, names);
  add_part(links, roots);
  if (entry.m_is_extension) add_part(links, "refinode: [" + number_text(orv::ref_number(entry.m_base_ref), hex) + "]");

  if (is_stub(entry)) {
    set_text(row, w.m_col_links, links);
    table_write_row(table, w.m_out);
    return;
  }

  // One DOS name: its times stand beside every row.
  const file_name_entry* dos = nullptr;
  size_t dos_count = 0, long_count = 0;
  for (const auto& kv : entry.m_file_names) {
    if (kv.second.m_is_dos_name) dos = &kv.second, ++dos_count;
    else ++long_count;
  }
  if (!ctx.m_hide_dos_fntimes && dos_count == 1) {
    set_four_times(w, w.m_col_dos_times, dos->modified(), dos->accessed(), dos->mft_modified(), dos->created());
    add_part(links, "DOS_name [" + orv::to_utf8(dos->m_name) + "]");
  }
  set_text(row, w.m_col_links, links);

  std::vector<const file_name_entry*> names_by_parent;
  for (const auto& kv : entry.m_file_names)
    if (!kv.second.m_is_dos_name || long_count == 0) names_by_parent.push_back(&kv.second);
  std::stable_sort(names_by_parent.begin(), names_by_parent.end(),
                   [](const file_name_entry* a, const file_name_entry* b) { return a->parent_ref() < b->parent_ref(); });

  for (const file_name_entry* fn : names_by_parent) {
    set_number(row, w.m_col_entry, cell_int64, fn->m_inode);
    set_number(row, w.m_col_parent, cell_int64, orv::ref_number(fn->parent_ref()));
    set_number(row, w.m_col_parent_seq, cell_int16, orv::ref_sequence(fn->parent_ref()));
    auto found = entry.m_parent_names.find(fn->parent_ref());
    set_text(row, w.m_col_path, found != entry.m_parent_names.end() ? found->second.m_path : std::string());
    std::string name = orv::to_utf8(fn->m_name);
    if (!stream.empty()) name += ":" + stream;
    set_text(row, w.m_col_name, name);
    set_text(row, w.m_col_ext, name_extension(fn->m_name));
    set_four_times(w, w.m_col_times + 4 * w.m_time_step, fn->modified(), fn->accessed(), fn->mft_modified(),
                   fn->created());
    std::string own = names;
    add_part(own, roots);
    if (fn->m_inode != entry.m_inode) add_part(own, "refinode: [" + number_text(entry.m_inode, hex) + "]");
    if (!ctx.m_hide_dos_fntimes && dos_count == 1) add_part(own, "DOS_name [" + orv::to_utf8(dos->m_name) + "]");
    set_text(row, w.m_col_links, own);
    table_write_row(table, w.m_out);
  }
}

static void path_rows_record(entry_record& entry, const scan_state& scan, path_writer& w) {
  const mft_entries_ctx& ctx = w.m_options;
  if (!entry.has_rows()) return;
  if (!ctx.m_copy_files) {
    hash_unnamed_data(entry, ctx, scan);
    write_path_row(entry, scan, w, std::string(), std::wstring());
    return;
  }
  // One set of rows for every stream copied, naming its copy; a record with no stream taken
  // still has its rows.
  const size_t taken = extract_record(entry, ctx, scan, [&](const attrib_item& item, const std::wstring& copy) {
    write_path_row(entry, scan, w, orv::to_utf8(item.m_name), copy);
  });
  if (taken == 0) write_path_row(entry, scan, w, std::string(), std::wstring());
}

record_sink path_rows_sink(path_writer& writer) { return sink_of<path_rows_record>(writer); }
