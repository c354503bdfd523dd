// The default results: a per-file timeline, one row per distinct instant of a record's standard
// information and file-name times, and within an instant one row per name that reached it.
#include "results/orv_default_results.h"

#include <algorithm>
#include <cstring>

#include "analysis/entry_record.h"
#include "base/orv_le.h"
#include "base/orv_results_stream.h"
#include "base/orv_string.h"
#include "results/orv_default_notes.h"
#include "results/orv_extract.h"
#include "results/orv_header_text.h"
#include "results/orv_result_cells.h"
#include "results/result_row.h"
#include "run/mft_entries_ctx.h"

namespace {

enum mark_group : uint8_t { group_si = 0, group_fn = 1, group_fn83 = 2 };
enum : uint8_t { show_si = 1, show_fn = 2, show_fn83 = 4 };
enum : uint8_t { letter_m = 0, letter_a = 1, letter_c = 2, letter_b = 3 };
constexpr uint64_t k_stub_parent = ~0ull;
constexpr uint32_t k_stub_name = 0xFFFFFFFFu;

// Where the value of a column comes from.
enum column_source : uint8_t {
  from_entry, from_seq, from_parent, from_parent_seq, from_type, from_ext, from_ref, from_size, from_time,
  from_macb, from_data_type, from_other, from_md5, from_sha1, from_sha256, from_name, from_path, from_summary,
  from_extracted, from_header, from_nothing
};

// A cell of the row as it is walked; a split time cell takes its column and the one behind it.
struct planned_cell {
  uint8_t m_source;
  uint32_t m_column;
  uint32_t m_flags;  // the column's flags and those of every cell
};

bool changes_per_row(uint8_t source) {
  return source == from_type || source == from_time || source == from_macb || source == from_name;
}

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
  std::vector<const std::string*> m_name_text;  // UTF-8 of each name, same index
  std::vector<uint64_t> m_parents;
  std::vector<time_mark> m_marks;
  std::vector<uint32_t> m_long;
  std::vector<uint32_t> m_dos;
  record_notes m_notes;
  std::string m_type_dos;
  std::string_view m_path;  // the entry's own text, or a fixed one
  std::string m_refinode;
  std::string m_other;
  std::string m_extracted;
  std::string m_header;

  // Rows are written straight from the values, with the cell writers of the table: the cells
  // that stay put for a timeline are written once into the frame, whose pieces come between the
  // cells that change from row to row (the gaps: type, time, MACB and name).
  std::vector<planned_cell> m_plan;
  uint16_t m_time_kind = cell_time_split;
  size_t m_column_count = 0;
  bool m_type_plain = false;
  bool m_macb_plain = false;
  size_t m_frame_room = 0;  // room for the frame and for the gaps of a row, their texts aside
  size_t m_gap_room = 0;
  size_t m_gaps = 0;
  size_t m_gap_cell[4] = {0, 0, 0, 0};    // plan index of each gap
  std::vector<char> m_frame;
  uint32_t m_piece_end[5] = {0, 0, 0, 0, 0};  // end of the piece before each gap, then of the last
  std::vector<char> m_line;  // the rows of a timeline, written out together
  size_t m_line_used = 0;
};

default_writer::default_writer(const mft_entries_ctx& options, results_stream& out)
    : m_options(options), m_out(out), m_scratch(new default_row_scratch) {}
default_writer::~default_writer() = default;

namespace {

// More than a cell of the plan takes with its separator, its text aside (four bytes a byte).
inline size_t cell_room(const planned_cell& cell, const result_table& table) {
  const size_t column = cell.m_column;
  return table.m_columns[column].m_width + 2 * table.m_layout.m_separator.size() + 200 +
         (column + 1 < table.m_columns.size() ? table.m_columns[column + 1].m_width : 0);
}

void build_columns(default_writer& state, const mft_entries_ctx& ctx) {
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

  // The walk over the row, as the table renders it once every column holds its value.
  default_row_scratch& scratch = *state.m_scratch;
  std::vector<uint8_t> source(table.m_columns.size(), from_nothing);
  const std::pair<int, uint8_t> sources[] = {
      {state.m_col_entry, from_entry},         {state.m_col_seq, from_seq},       {state.m_col_parent, from_parent},
      {state.m_col_parent_seq, from_parent_seq}, {state.m_col_type, from_type},   {state.m_col_ext, from_ext},
      {state.m_col_ref, from_ref},             {state.m_col_size, from_size},     {state.m_col_time, from_time},
      {state.m_col_macb, from_macb},           {state.m_col_data_type, from_data_type},
      {state.m_col_other, from_other},         {state.m_col_md5, from_md5},       {state.m_col_sha1, from_sha1},
      {state.m_col_sha256, from_sha256},       {state.m_col_name, from_name},     {state.m_col_path, from_path},
      {state.m_col_summary, from_summary},     {state.m_col_extracted, from_extracted},
      {state.m_col_header, from_header}};
  for (const auto& item : sources)
    if (item.first >= 0) source[size_t(item.first)] = item.second;
  scratch.m_time_kind = ctx.m_pair_datetime ? cell_time_joined : cell_time_split;
  scratch.m_plan.clear();
  scratch.m_gaps = 0;
  const size_t count = table.m_row.m_disabled ? 0 : std::min(table.m_columns.size(), size_t(table.m_row.m_count));
  scratch.m_column_count = count;
  for (size_t i = 0; i < count;) {
    const planned_cell cell{source[i], uint32_t(i), table.m_columns[i].m_flags | table.m_row.m_default_flags};
    if (changes_per_row(cell.m_source) && scratch.m_gaps < 4)
      scratch.m_gap_cell[scratch.m_gaps++] = scratch.m_plan.size();
    scratch.m_plan.push_back(cell);
    i += cell.m_source == from_time && scratch.m_time_kind == cell_time_split && i + 1 < count ? 2 : 1;
  }
  // The type and MACB texts are made of few characters; when none of them needs cleaning and the
  // cells are neither quoted nor padded, they go out as they are.
  auto plain = [&](int column, const char* alphabet) {
    if (column < 0 || !table.m_layout.m_no_padding) return false;
    if ((table.m_columns[size_t(column)].m_flags | table.m_row.m_default_flags) & cell_flag_quoted) return false;
    const char replace = table.m_layout.m_replace_char;
    return replace == 0 || std::strchr(alphabet, replace) == nullptr;
  };
  scratch.m_type_plain = plain(state.m_col_type, "abcdefghijklmnopqrstuvwxyz (FN8.3)");
  scratch.m_macb_plain = plain(state.m_col_macb, "si:[macb.]; fn83");
  scratch.m_frame_room = 32;
  scratch.m_gap_room = 32;
  for (const planned_cell& cell : scratch.m_plan)
    (changes_per_row(cell.m_source) ? scratch.m_gap_room : scratch.m_frame_room) += cell_room(cell, table);
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
  return index == k_stub_name ? k_stub_text : *scratch.m_name_text[index];
}

// Sorts the names that reached an instant and drops repeats of the same text.
void unique_names(std::vector<uint32_t>& names, const default_row_scratch& scratch) {
  if (names.size() < 2) return;
  // One name usually brings several marks to an instant: drop those repeats first, cheaply.
  std::sort(names.begin(), names.end());
  names.erase(std::unique(names.begin(), names.end()), names.end());
  if (names.size() < 2) return;
  std::sort(names.begin(), names.end(),
            [&](uint32_t a, uint32_t b) { return name_text(scratch, a) < name_text(scratch, b); });
  names.erase(std::unique(names.begin(), names.end(),
                          [&](uint32_t a, uint32_t b) { return name_text(scratch, a) == name_text(scratch, b); }),
              names.end());
}

// A text cell of the plan.
inline char* put_text(char* p, std::string_view text, const planned_cell& cell, const result_table& table) {
  const result_layout& layout = table.m_layout;
  if (layout.m_no_padding && !(cell.m_flags & cell_flag_quoted))
    return row_text::put_clean(p, text.data(), text.size(), layout.m_replace_char, layout.m_replace_with,
                               layout.m_line_break_tokens);
  return row_text::put_text_cell(p, text, cell.m_flags, table.m_columns[cell.m_column].m_width, layout);
}

inline char* put_int(char* p, uint16_t kind, uint64_t number, const planned_cell& cell, const result_table& table) {
  const result_layout& layout = table.m_layout;
  return row_text::put_number(p, kind, number, cell.m_flags,
                              layout.m_no_padding ? 0 : table.m_columns[cell.m_column].m_width, layout);
}

// Writes the cells that stay put for the timeline, with the separators of all cells.
void write_frame(default_row_scratch& scratch, result_table& table, const entry_record& entry,
                 uint64_t parent, const std::string_view* texts) {
  const std::string& separator = table.m_layout.m_separator;
  size_t need = scratch.m_frame_room;
  for (const planned_cell& cell : scratch.m_plan) need += 4 * texts[cell.m_source].size();
  char* const begin = row_text::room(scratch.m_frame, 0, need);
  char* p = begin;
  size_t gap = 0;
  for (const planned_cell& cell : scratch.m_plan) {
    if (cell.m_column) p = row_text::put_bytes(p, separator.data(), separator.size());
    switch (cell.m_source) {
      case from_seq: p = put_int(p, cell_int16, entry.m_seq_num, cell, table); break;
      case from_parent: p = put_int(p, cell_int64, orv::ref_number(parent), cell, table); break;
      case from_parent_seq: p = put_int(p, cell_int16, orv::ref_sequence(parent), cell, table); break;
      case from_ref: p = put_int(p, cell_int32, entry.link_count(), cell, table); break;
      case from_size: p = put_int(p, cell_int64, 0, cell, table); break;
      case from_nothing:
        p = row_text::put_value(p, table.m_row, cell_none, cell.m_flags, std::string_view(), 0, cell.m_column,
                                scratch.m_column_count, table.m_columns, table.m_layout);
        break;
      default:
        if (changes_per_row(cell.m_source)) {
          if (gap < 4) scratch.m_piece_end[gap++] = uint32_t(p - begin);
        } else {
          p = put_text(p, texts[cell.m_source], cell, table);
        }
    }
  }
  scratch.m_piece_end[gap] = uint32_t(p - begin);
}

// One row: the frame's pieces with the type, time, MACB and name in the gaps between them, added
// to the timeline's rows.
void write_row(default_row_scratch& scratch, result_table& table, std::string_view type, uint64_t instant,
               std::string_view macb, std::string_view name) {
  const size_t gaps = scratch.m_gaps;
  const size_t need = scratch.m_piece_end[gaps] + scratch.m_gap_room + 4 * (type.size() + macb.size() + name.size());
  char* const begin = row_text::room(scratch.m_line, scratch.m_line_used, need);
  const char* const frame = scratch.m_frame.data();
  char* p = begin;
  size_t from = 0;
  for (size_t g = 0; g < gaps; ++g) {
    p = row_text::put_run(p, frame + from, scratch.m_piece_end[g] - from);
    from = scratch.m_piece_end[g];
    const planned_cell& cell = scratch.m_plan[scratch.m_gap_cell[g]];
    switch (cell.m_source) {
      case from_type:
        p = scratch.m_type_plain ? row_text::put_bytes(p, type.data(), type.size()) : put_text(p, type, cell, table);
        break;
      case from_macb:
        if (scratch.m_macb_plain) {
          std::memcpy(p, macb.data(), 32);  // from render_macb's buffer of 48 bytes
          if (macb.size() > 32) std::memcpy(p + 32, macb.data() + 32, macb.size() - 32);
          p += macb.size();
        } else {
          p = put_text(p, macb, cell, table);
        }
        break;
      case from_name: p = put_text(p, name, cell, table); break;
      default:
        p = row_text::put_time_value(p, table.m_row, scratch.m_time_kind, instant, cell.m_column,
                                     scratch.m_column_count, table.m_columns, table.m_layout);
    }
  }
  p = row_text::put_run(p, frame + from, scratch.m_piece_end[gaps] - from);
  *p++ = '\n';
  scratch.m_line_used += size_t(p - begin);
}

// Writes the accumulated timeline of one parent and one referring record, then empties it.
void flush_timeline(default_writer& state, const entry_record& entry, uint64_t parent, uint64_t referring_record) {
  const mft_entries_ctx& ctx = state.m_options;
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
  const record_notes& notes = scratch.m_notes;
  if (table.m_row.m_disabled) {
    marks.clear();
    return;
  }

  // The texts of the cells that stay the same for every row of this timeline, by source.
  std::string_view texts[from_nothing + 1];
  texts[from_entry] = notes.m_entry_text;
  texts[from_ext] = notes.m_ext;
  if (state.m_col_other >= 0) {
    scratch.m_refinode.clear();
    if (referring_record != entry.m_inode) refinode_note(scratch.m_refinode, referring_record, ctx);
    else if (entry.m_is_extension) refinode_note(scratch.m_refinode, orv::ref_number(entry.m_base_ref), ctx);
    scratch.m_other.clear();
    join_other_info(scratch.m_other, notes, scratch.m_refinode);
    texts[from_other] = scratch.m_other;
  }
  texts[from_md5] = notes.m_md5;
  texts[from_sha1] = notes.m_sha1;
  texts[from_sha256] = notes.m_sha256;
  texts[from_path] = scratch.m_path;
  texts[from_summary] = notes.m_summary;
  if (state.m_col_extracted >= 0) {
    scratch.m_extracted.clear();
    orv::append_utf8_of(scratch.m_extracted, entry.m_extracted_path);
    texts[from_extracted] = scratch.m_extracted;
  }
  if (state.m_col_header >= 0) {
    scratch.m_header.clear();
    append_header_text(scratch.m_header, entry, ctx.m_header_strings != 0);
    texts[from_header] = scratch.m_header;
  }
  write_frame(scratch, table, entry, parent, texts);

  const bool windowed = ctx.m_filter_start_time || ctx.m_filter_stop_time;
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

    char macb[48];
    if (!scratch.m_long.empty()) {
      const std::string_view letters_text(macb, render_macb(macb, letters, present, show_si | show_fn));
      for (uint32_t name : scratch.m_long)
        write_row(scratch, table, notes.m_type, instant, letters_text, name_text(scratch, name));
    }
    if (!scratch.m_dos.empty()) {
      if (scratch.m_type_dos.empty()) scratch.m_type_dos.assign(notes.m_type).append(" (FN 8.3)");
      const std::string_view letters_text(macb, render_macb(macb, letters, present, show_si | show_fn83));
      for (uint32_t name : scratch.m_dos)
        write_row(scratch, table, scratch.m_type_dos, instant, letters_text, name_text(scratch, name));
    }
  }
  if (scratch.m_line_used) state.m_out.write(std::string_view(scratch.m_line.data(), scratch.m_line_used));
  scratch.m_line_used = 0;
  marks.clear();
}

bool is_stub(const entry_record& entry) {
  if (!entry.m_file_names.empty()) return false;
  for (const auto& item : entry.m_attribs)
    if (attrib_key_type(item.first) == 0x30) return false;
  return true;
}

void write_timeline_rows(entry_record& entry, const scan_state& scan, default_writer& state) {
  const mft_entries_ctx& ctx = state.m_options;
  default_row_scratch& scratch = *state.m_scratch;
  const si_entry& si = entry.m_std_infos.begin()->second;

  scratch.m_names.clear();
  scratch.m_parents.clear();
  scratch.m_name_text.clear();
  for (const auto& item : entry.m_file_names) {
    const file_name_entry& fn = item.second;
    scratch.m_names.push_back(&fn);
    scratch.m_name_text.push_back(&fn.m_name_utf8);
    scratch.m_parents.push_back(fn.parent_ref());
  }
  std::sort(scratch.m_parents.begin(), scratch.m_parents.end());
  scratch.m_parents.erase(std::unique(scratch.m_parents.begin(), scratch.m_parents.end()), scratch.m_parents.end());

  build_record_notes(scratch.m_notes, entry, ctx, scan, scratch.m_parents.size());
  scratch.m_type_dos.clear();  // made when a DOS name first needs it

  if (is_stub(entry)) {
    // A record without names still has a history: its standard information times.
    scratch.m_path = "<no path>";
    add_marks(scratch.m_marks, group_si, k_stub_name, false, si.modified(), si.accessed(), si.mft_modified(),
              si.created());
    flush_timeline(state, entry, k_stub_parent, entry.m_inode);
    return;
  }

  for (uint64_t parent : scratch.m_parents) {
    scratch.m_path = std::string_view();
    auto found = entry.m_parent_names.find(parent);
    if (found != entry.m_parent_names.end()) scratch.m_path = found->second.m_path;

    bool have_record = false;
    uint64_t referring_record = 0;
    for (uint32_t i = 0; i < scratch.m_names.size(); ++i) {
      const file_name_entry& fn = *scratch.m_names[i];
      if (fn.parent_ref() != parent) continue;
      // Names held by an extension record form their own timeline.
      if (have_record && fn.m_inode != referring_record)
        flush_timeline(state, entry, parent, referring_record);
      have_record = true;
      referring_record = fn.m_inode;
      if (fn.m_is_dos_name && ctx.m_hide_dos_fntimes) continue;
      add_marks(scratch.m_marks, group_si, i, fn.m_is_dos_name, si.modified(), si.accessed(), si.mft_modified(),
                si.created());
      add_marks(scratch.m_marks, fn.m_is_dos_name ? group_fn83 : group_fn, i, fn.m_is_dos_name, fn.modified(),
                fn.accessed(), fn.mft_modified(), fn.created());
    }
    flush_timeline(state, entry, parent, referring_record);
  }
}

}  // namespace

void write_default_results(entry_record& entry, const scan_state& scan, default_writer& writer) {
  // Extension records are shown through their base record; a record without standard
  // information has no timeline of its own.
  if (!entry.has_rows()) return;
  if (!writer.m_table.m_built) build_columns(writer, writer.m_options);
  if (writer.m_table.m_header_pending) {
    if (writer.m_options.m_header_line) table_write_header(writer.m_table, writer.m_out);
    writer.m_table.m_header_pending = false;
  }
  write_timeline_rows(entry, scan, writer);
}

static void default_rows_record(entry_record& entry, const scan_state& scan, default_writer& writer) {
  const mft_entries_ctx& ctx = writer.m_options;
  if (entry.has_rows()) {
    // Copies and digests first: the rows show them.
    if (ctx.m_copy_files) extract_record(entry, ctx, scan);
    else hash_unnamed_data(entry, ctx, scan);
  }
  write_default_results(entry, scan, writer);
}

record_sink default_rows_sink(default_writer& writer) { return sink_of<default_rows_record>(writer); }
