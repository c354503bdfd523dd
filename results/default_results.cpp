// The default results: a per-file timeline, one row per distinct instant of a record's standard
// information and file-name times, and within an instant one row per name that reached it.
#include "results/default_results.h"

#include <algorithm>
#include <cstring>

#include "analysis/entry_record.h"
#include "analysis/orv_paths.h"
#include "base/orv_le.h"
#include "base/results_stream.h"
#include "results/orv_default_notes.h"
#include "results/result_row.h"
#include "run/mft_entries_ctx.h"

namespace {

enum mark_group : uint8_t { group_si = 0, group_fn = 1, group_fn83 = 2 };
enum : uint8_t { show_si = 1, show_fn = 2, show_fn83 = 4 };
enum : uint8_t { letter_m = 0, letter_a = 1, letter_c = 2, letter_b = 3 };
constexpr uint64_t k_stub_parent = ~0ull;
constexpr uint32_t k_stub_name = 0xFFFFFFFFu;
constexpr uint32_t k_no_name = 0xFFFFFFFEu;  // no name shown yet

// One time of one attribute, reached through one name.
struct time_mark {
  uint64_t m_time;
  uint32_t m_name;  // index into the record's names, or k_stub_name
  uint8_t m_group;
  uint8_t m_letter;
  bool m_dos;
};

}  // namespace

struct default_row_scratch {
  std::vector<const file_name_entry*> m_names;
  std::vector<std::string> m_name_text;  // UTF-8 of each name, same index
  std::vector<uint64_t> m_parents;
  std::vector<time_mark> m_marks;
  std::vector<uint32_t> m_long;
  std::vector<uint32_t> m_dos;
  record_notes m_notes;
  std::string m_type_dos;
  std::string m_path;
  std::string m_refinode;
  std::string m_other;
};

default_writer_state::default_writer_state() : m_scratch(new default_row_scratch) {}
default_writer_state::~default_writer_state() = default;

namespace {

void build_columns(default_writer_state& state, const mft_entries_ctx& ctx) {
  result_table& table = state.m_table;
  table.m_columns.clear();
  layout_from_options(table.m_layout, ctx);
  const bool extra_columns = !ctx.m_metadata_only;  // header capture or cluster info asked for

  state.m_col_entry = add_column(table, cell_text, 10, "mft entry");
  state.m_col_seq = add_column(table, cell_int16, 10, "mft seqnum", cell_flag_decimal);
  state.m_col_parent = add_column(table, cell_int64, 10, "parent mft");
  state.m_col_parent_seq = add_column(table, cell_int16, 10, "par seqnum", cell_flag_decimal);
  state.m_col_type = add_column(table, cell_text, 7, "type");
  state.m_col_ext = add_column(table, cell_text, 9, "ext");
  state.m_col_ref = add_column(table, cell_int32, 3, "ref", cell_flag_decimal);
  state.m_col_size = extra_columns ? add_column(table, cell_int64, 10, "size data") : -1;
  state.m_col_time = add_time_columns(table, ctx.m_pair_datetime != 0, "date", "time-utc", "date/time-utc");
  state.m_col_macb = add_column(table, cell_text, 33, "MACB");
  state.m_col_data_type = extra_columns ? add_column(table, cell_text, 14, "data type") : -1;
  state.m_col_other = add_column(table, cell_text, 14, "other info");
  state.m_col_md5 = ctx.m_hash_md5 ? add_column(table, cell_text, 32, "MD5 hash") : -1;
  state.m_col_sha1 = ctx.m_hash_sha1 ? add_column(table, cell_text, 40, "SHA1 hash") : -1;
  // The SHA-256 column carries the SHA-1 title and width: readers of these files expect it so.
  state.m_col_sha256 = ctx.m_hash_sha256 ? add_column(table, cell_text, 40, "SHA1 hash") : -1;
  state.m_col_name = add_column(table, cell_text, 15, "name");
  state.m_col_path = add_column(table, cell_text, 60, "path");
  state.m_col_summary = ctx.m_include_clusterinfo ? add_column(table, cell_text, 80, "clusters/relevant data")
                                                  : add_column(table, cell_text, 100, "various data types");
  state.m_col_extracted = -1;
  state.m_col_header = -1;
  if (ctx.m_copy_files) state.m_col_extracted = add_column(table, cell_text, 0, "extracted path/file");
  else if (ctx.m_include_header) state.m_col_header = add_column(table, cell_text, 0, "header info");

  table_ready(table, ctx.m_quoted_fields ? uint32_t(cell_flag_quoted) : 0u);
}

void add_marks(std::vector<time_mark>& marks, uint8_t group, uint32_t name, bool dos, uint64_t modified,
               uint64_t accessed, uint64_t changed, uint64_t created) {
  const uint64_t times[4] = {modified, accessed, changed, created};
  for (uint8_t letter = 0; letter < 4; ++letter) {
    if (times[letter] == 0) continue;  // an unset time is no instant
    marks.push_back(time_mark{times[letter], name, group, letter, dos});
  }
}

// "si:[mac.]; fn:[m...]" for the groups that have marks at this instant and are asked for.
size_t render_macb(char* out, const char letters[3][4], const bool present[3], uint8_t show) {
  static const char k_prefix[3][7] = {"si:[", "fn:[", "fn8.3["};
  static const uint8_t k_prefix_size[3] = {4, 4, 6};
  char* p = out;
  for (int g = 0; g < 3; ++g) {
    if (!present[g] || !(show & (1u << g))) continue;
    if (p != out) {
      *p++ = ';';
      *p++ = ' ';
    }
    std::memcpy(p, k_prefix[g], k_prefix_size[g]);
    p += k_prefix_size[g];
    std::memcpy(p, letters[g], 4);
    p += 4;
    *p++ = ']';
  }
  return size_t(p - out);
}

const std::string& name_text(const default_row_scratch& scratch, uint32_t index) {
  static const std::string k_stub_text = "<no filename attribute>";
  return index == k_stub_name ? k_stub_text : scratch.m_name_text[index];
}

// Sorts the names that reached an instant and drops repeats of the same text.
void unique_names(std::vector<uint32_t>& names, const default_row_scratch& scratch) {
  if (names.size() < 2) return;
  // One name usually brings several marks to an instant: drop those repeats first, cheaply.
  std::sort(names.begin(), names.end());
  names.erase(std::unique(names.begin(), names.end()), names.end());
  if (names.size() < 2) return;
  std::sort(names.begin(), names.end(), [&](uint32_t a, uint32_t b) { return name_text(scratch, a) < name_text(scratch, b); });
  names.erase(std::unique(names.begin(), names.end(),
                          [&](uint32_t a, uint32_t b) { return name_text(scratch, a) == name_text(scratch, b); }),
              names.end());
}

// Writes the accumulated timeline of one parent and one referring record, then empties it.
void flush_timeline(default_writer_state& state, const entry_record& entry, const mft_entries_ctx& ctx,
                    results_stream& out, uint64_t parent, uint64_t referring_record) {
  default_row_scratch& scratch = *state.m_scratch;
  std::vector<time_mark>& marks = scratch.m_marks;
  if (marks.empty()) return;
  // A record has a handful of marks: insertion sort by instant. Marks of one instant may come in
  // any order; what a row shows of them does not depend on it.
  for (size_t i = 1; i < marks.size(); ++i) {
    const time_mark mark = marks[i];
    size_t j = i;
    for (; j > 0 && marks[j - 1].m_time > mark.m_time; --j) marks[j] = marks[j - 1];
    marks[j] = mark;
  }

  result_table& table = state.m_table;
  result_row& row = table.m_row;
  const record_notes& notes = scratch.m_notes;

  // Cells that stay the same for every row of this timeline.
  set_text(row, state.m_col_entry, notes.m_entry_text);
  set_number(row, state.m_col_seq, cell_int16, entry.m_seq_num);
  set_number(row, state.m_col_parent, cell_int64, orv::ref_number(parent));
  set_number(row, state.m_col_parent_seq, cell_int16, orv::ref_sequence(parent));
  set_text(row, state.m_col_ext, notes.m_ext);
  set_number(row, state.m_col_ref, cell_int32, entry.link_count());
  set_number(row, state.m_col_size, cell_int64, 0);
  set_text(row, state.m_col_data_type, "");
  if (state.m_col_other >= 0) {
    scratch.m_refinode.clear();
    if (referring_record != entry.m_inode) refinode_note(scratch.m_refinode, referring_record, ctx);
    else if (entry.m_is_extension) refinode_note(scratch.m_refinode, orv::ref_number(entry.m_base_ref), ctx);
    scratch.m_other.clear();
    join_other_info(scratch.m_other, notes, scratch.m_refinode);
    set_text(row, state.m_col_other, scratch.m_other);
  }
  set_text(row, state.m_col_md5, notes.m_md5);
  set_text(row, state.m_col_sha1, notes.m_sha1);
  set_text(row, state.m_col_sha256, notes.m_sha256);
  set_text(row, state.m_col_summary, notes.m_summary);
  if (state.m_col_extracted >= 0) set_wide_text(row, state.m_col_extracted, entry.m_extracted_path);
  set_text(row, state.m_col_header, "");
  set_text(row, state.m_col_path, scratch.m_path);

  // The type and name cells hold these since the first row of this timeline; no other code
  // stores into them meanwhile.
  int shown_type = -1;
  uint32_t shown_name = k_no_name;

  const bool windowed = ctx.m_filter_start_time || ctx.m_filter_stop_time;
  const uint16_t time_kind = ctx.m_pair_datetime ? cell_time_joined : cell_time_split;
  for (size_t begin = 0; begin < marks.size();) {
    const uint64_t instant = marks[begin].m_time;
    size_t end = begin;
    while (end < marks.size() && marks[end].m_time == instant) ++end;
    const size_t first = begin;
    begin = end;
    if (windowed && (instant < ctx.m_filter_start_time || instant > ctx.m_filter_stop_time)) continue;

    char letters[3][4];
    bool present[3] = {false, false, false};
    for (auto& group : letters) std::fill(group, group + 4, '.');
    scratch.m_long.clear();
    scratch.m_dos.clear();
    for (size_t i = first; i < end; ++i) {
      const time_mark& mark = marks[i];
      letters[mark.m_group][mark.m_letter] = "macb"[mark.m_letter];
      present[mark.m_group] = true;
      // One name brings several marks to an instant, mostly side by side.
      std::vector<uint32_t>& names = mark.m_dos ? scratch.m_dos : scratch.m_long;
      if (names.empty() || names.back() != mark.m_name) names.push_back(mark.m_name);
    }
    if (scratch.m_long.size() > 1) unique_names(scratch.m_long, scratch);
    if (scratch.m_dos.size() > 1) unique_names(scratch.m_dos, scratch);

    set_time(row, state.m_col_time, time_kind, instant);
    char macb[48];
    if (!scratch.m_long.empty()) {
      if (shown_type != 0) set_text(row, state.m_col_type, notes.m_type);
      shown_type = 0;
      set_text(row, state.m_col_macb, std::string_view(macb, render_macb(macb, letters, present, show_si | show_fn)));
      for (uint32_t name : scratch.m_long) {
        if (name != shown_name) set_text(row, state.m_col_name, name_text(scratch, name));
        shown_name = name;
        table_write_row(table, out);
      }
    }
    if (!scratch.m_dos.empty()) {
      if (scratch.m_type_dos.empty()) scratch.m_type_dos.assign(notes.m_type).append(" (FN 8.3)");
      if (shown_type != 1) set_text(row, state.m_col_type, scratch.m_type_dos);
      shown_type = 1;
      set_text(row, state.m_col_macb, std::string_view(macb, render_macb(macb, letters, present, show_si | show_fn83)));
      for (uint32_t name : scratch.m_dos) {
        if (name != shown_name) set_text(row, state.m_col_name, name_text(scratch, name));
        shown_name = name;
        table_write_row(table, out);
      }
    }
  }
  marks.clear();
}

bool is_stub(const entry_record& entry) {
  if (!entry.m_file_names.empty()) return false;
  for (const auto& item : entry.m_attribs)
    if (attrib_key_type(item.first) == 0x30) return false;
  return true;
}

void write_timeline_rows(entry_record& entry, results_stream& out, mft_entries_ctx& ctx) {
  default_writer_state& state = *ctx.m_default_writer;
  default_row_scratch& scratch = *state.m_scratch;
  const si_entry& si = entry.m_std_infos.begin()->second;

  scratch.m_names.clear();
  scratch.m_parents.clear();
  size_t name_count = 0;
  for (const auto& item : entry.m_file_names) {
    const file_name_entry& fn = item.second;
    scratch.m_names.push_back(&fn);
    if (scratch.m_name_text.size() <= name_count) scratch.m_name_text.emplace_back();
    std::string& text = scratch.m_name_text[name_count++];
    text.clear();
    append_utf8_of(text, fn.m_name);
    scratch.m_parents.push_back(fn.parent_ref());
  }
  std::sort(scratch.m_parents.begin(), scratch.m_parents.end());
  scratch.m_parents.erase(std::unique(scratch.m_parents.begin(), scratch.m_parents.end()), scratch.m_parents.end());

  build_record_notes(scratch.m_notes, entry, ctx, scratch.m_parents.size());
  scratch.m_type_dos.clear();  // made when a DOS name first needs it

  if (is_stub(entry)) {
    // A record without names still has a history: its standard information times.
    scratch.m_path.assign("<no path>");
    add_marks(scratch.m_marks, group_si, k_stub_name, false, si.modified(), si.accessed(), si.mft_modified(),
              si.created());
    flush_timeline(state, entry, ctx, out, k_stub_parent, entry.m_inode);
    return;
  }

  for (uint64_t parent : scratch.m_parents) {
    scratch.m_path.clear();
    auto found = entry.m_parent_names.find(parent);
    if (found != entry.m_parent_names.end()) append_utf8_of(scratch.m_path, found->second.m_path);

    bool have_record = false;
    uint64_t referring_record = 0;
    for (uint32_t i = 0; i < scratch.m_names.size(); ++i) {
      const file_name_entry& fn = *scratch.m_names[i];
      if (fn.parent_ref() != parent) continue;
      // Names held by an extension record form their own timeline.
      if (have_record && fn.m_inode != referring_record)
        flush_timeline(state, entry, ctx, out, parent, referring_record);
      have_record = true;
      referring_record = fn.m_inode;
      if (fn.m_is_dos_name && ctx.m_hide_dos_fntimes) continue;
      add_marks(scratch.m_marks, group_si, i, fn.m_is_dos_name, si.modified(), si.accessed(), si.mft_modified(),
                si.created());
      add_marks(scratch.m_marks, fn.m_is_dos_name ? group_fn83 : group_fn, i, fn.m_is_dos_name, fn.modified(),
                fn.accessed(), fn.mft_modified(), fn.created());
    }
    flush_timeline(state, entry, ctx, out, parent, referring_record);
  }
}

}  // namespace

void write_default_results(entry_record& entry, results_stream& out, mft_entries_ctx& ctx) {
  // Extension records are shown through their base record; a record without standard
  // information has no timeline of its own.
  if (entry.m_is_extension || entry.m_base_ref != 0 || entry.m_std_infos.empty()) return;

  if (!ctx.m_default_writer) ctx.m_default_writer = std::make_shared<default_writer_state>();
  default_writer_state& state = *ctx.m_default_writer;
  if (!state.m_table.m_built) build_columns(state, ctx);
  if (state.m_table.m_header_pending) {
    if (ctx.m_header_line) table_write_header(state.m_table, out);
    state.m_table.m_header_pending = false;
  }
  write_timeline_rows(entry, out, ctx);
}
