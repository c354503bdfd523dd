#include "base/orv_string.h"
#include "base/orv_time_text.h"
#include "results/result_row.h"

#include <cstring>

#include "base/orv_results_stream.h"
#include "results/orv_result_cells.h"
#include "run/cmd_params.h"

// Rows are written with plain pointers into byte buffers that are made large enough for the
// piece about to be written (result_cells.h).

using namespace row_text;

namespace {

bool storable(const result_row& row, int index, uint16_t kind) {
  return !row.m_disabled && index >= 0 && uint32_t(index) < row.m_count && kind <= 31;
}

// More than cell `i` can write, its separator in front included.
size_t cell_bound(const result_row& row, size_t i, size_t count, const std::vector<result_column>& columns,
                  const result_layout& layout) {
  size_t bound = 4 * row.m_cells[i].m_text.size() + columns[i].m_width + 2 * layout.m_separator.size() + 200;
  if (i + 1 < count) bound += columns[i + 1].m_width;
  return bound;
}

inline char* put_cell(char* p, result_row& row, size_t i, size_t count, const std::vector<result_column>& columns,
                      const result_layout& layout) {
  const result_cell& cell = row.m_cells[i];
  return put_value(p, row, cell.m_kind, cell.m_flags | columns[i].m_flags, cell.m_text, cell.m_number, i, count,
                   columns, layout);
}

// Writes cell `i` with the separator in front of it when it is not the first.
char* put_separated_cell(char* p, result_row& row, size_t i, size_t count, const std::vector<result_column>& columns,
                         const result_layout& layout) {
  const std::string& separator = layout.m_separator;
  if (i) {
    if (separator.size() == 1) *p++ = separator[0];
    else p = put_bytes(p, separator.data(), separator.size());
  }
  const result_cell& cell = row.m_cells[i];
  const result_column& column = columns[i];
  if (cell.m_kind == cell_text) {
    const uint32_t flags = cell.m_flags | column.m_flags;
    if (layout.m_no_padding && !(flags & cell_flag_quoted))
      return put_clean(p, cell.m_text.data(), cell.m_text.size(), layout.m_replace_char, layout.m_replace_with,
                       layout.m_line_break_tokens);
    return put_text_cell(p, cell.m_text, flags, column.m_width, layout);
  }
  return put_value(p, row, cell.m_kind, cell.m_flags | column.m_flags, cell.m_text, cell.m_number, i, count, columns,
                   layout);
}

size_t row_columns(const result_row& row, const std::vector<result_column>& columns) {
  return columns.size() < row.m_count ? columns.size() : row.m_count;
}

size_t cells_used(const result_row& row, size_t i, size_t count) {
  return (row.m_cells[i].m_kind == cell_time_split && i + 1 < count) ? 2 : 1;
}

// Equal bytes; short texts are compared without a library call.
inline bool same_bytes(const char* a, const char* b, size_t size) {
  if (size > 16) return std::memcmp(a, b, size) == 0;
  size_t i = 0;
  for (; i + 8 <= size; i += 8)
    if (load8(a + i) != load8(b + i)) return false;
  for (; i < size; ++i)
    if (a[i] != b[i]) return false;
  return true;
}

inline void mark_stored(result_row& row, size_t index, bool split) {
  row.m_stored_bits[index >> 6] |= 1ull << (index & 63);
  if (row.m_split[index] != uint8_t(split)) {
    row.m_split[index] = uint8_t(split);
    row.m_starts_valid = false;
  }
}

// Which cells start a column group when the row is walked from its first cell.
void find_starts(result_row& row, size_t count) {
  std::memset(row.m_starts.data(), 0, row.m_starts.size());
  for (size_t i = 0; i < count;) {
    row.m_starts[i] = 1;
    i += row.m_split[i] && i + 1 < count ? 2 : 1;
  }
  row.m_starts_count = uint32_t(count);
  row.m_starts_valid = true;
}

// Renders the row into the buffer that does not hold the previous row, re-rendering only the
// cells stored since the previous call and copying the others from the previous row, a run of
// neighbours (separators included) at a time. A line feed follows the returned bytes.
std::string_view render_line(result_row& row, const std::vector<result_column>& columns,
                             const result_layout& layout) {
  if (row.m_disabled) return {};
  const size_t count = row_columns(row, columns);
  uint32_t* const length = row.m_last_length.data();
  if (!row.m_last_valid || row.m_last_count != count) {
    for (size_t i = 0; i < count; ++i) row.m_stored_bits[i >> 6] |= 1ull << (i & 63);
    std::memset(length, 0, row.m_last_length.size() * sizeof(uint32_t));
  }
  if (!row.m_starts_valid || row.m_starts_count != count) find_starts(row, count);
  const size_t words = (count + 63) / 64;
  uint64_t stored[4] = {0, 0, 0, 0};
  for (size_t word = 0; word < words; ++word) {
    stored[word] = row.m_stored_bits[word];
    if (count - word * 64 < 64) stored[word] &= (1ull << (count - word * 64)) - 1;
  }

  // Room for the whole row: the previous one bounds what is copied from it, and each cell to
  // render has its own bound.
  size_t need = row.m_last_size + 32;
  for (size_t word = 0; word < words; ++word)
    for (uint64_t bits = stored[word]; bits; bits &= bits - 1)
      need += cell_bound(row, word * 64 + size_t(__builtin_ctzll(bits)), count, columns, layout);
  std::vector<char>& line = row.m_line_bytes[row.m_line_previous ^ 1];
  char* const begin = room(line, 0, need);
  const char* const last = row.m_line_bytes[row.m_line_previous].data();
  const uint8_t* const starts = row.m_starts.data();
  const uint8_t* const split = row.m_split.data();

  char* p = begin;
  size_t next = 0;       // first cell not yet passed
  size_t last_pos = 0;   // where cell `next` starts in the previous row
  size_t copy_from = 0;  // start of the run of unchanged cells in the previous row
  for (size_t word = 0; word < words; ++word) {
    for (uint64_t bits = stored[word]; bits; bits &= bits - 1) {
      const size_t i = word * 64 + size_t(__builtin_ctzll(bits));
      if (i < next || !starts[i]) continue;  // a column of the time cell in front: left stored
      size_t pos = last_pos;
      for (size_t k = next; k < i; ++k) pos += length[k];
      if (pos > copy_from) p = put_run(p, last + copy_from, pos - copy_from);
      const bool wide = split[i] && i + 1 < count;
      last_pos = copy_from = pos + length[i] + (wide ? length[i + 1] : 0);
      next = i + (wide ? 2 : 1);
      char* const cell_start = p;
      p = put_separated_cell(p, row, i, count, columns, layout);
      length[i] = uint32_t(p - cell_start);
      row.m_stored_bits[word] &= ~(1ull << (i & 63));
      if (wide) {
        length[i + 1] = 0;
        row.m_stored_bits[(i + 1) >> 6] |= 1ull << ((i + 1) & 63);  // afresh should it stand alone again
      }
    }
  }
  for (size_t k = next; k < count; ++k) last_pos += length[k];
  if (last_pos > copy_from) p = put_run(p, last + copy_from, last_pos - copy_from);
  *p = '\n';  // and sixteen bytes of room behind it, which the next row may read past a run
  const size_t used = size_t(p - begin);
  row.m_line_previous ^= 1;
  row.m_last_size = used;
  row.m_last_count = uint32_t(count);
  row.m_last_valid = true;
  return std::string_view(begin, used);
}

}  // namespace

bool row_reset(result_row& row, uint32_t count) {
  if (count > k_max_row_cells) {
    row.m_cells.clear();
    row.m_count = 0;
    row.m_disabled = true;
    return false;
  }
  row.m_disabled = false;
  row.m_count = count;
  if (row.m_cells.size() < count) row.m_cells.resize(count);
  row.m_last_length.assign(row.m_cells.size() + 1, 0);
  row.m_split.assign(row.m_cells.size() + 1, 0);
  row.m_starts.assign(row.m_cells.size() + 1, 0);
  row.m_starts_valid = false;
  row_clear(row);
  return true;
}

namespace {

void empty_cell(result_row& row, size_t index) {
  result_cell& cell = row.m_cells[index];
  cell.m_kind = cell_none;
  cell.m_flags = 0;
  cell.m_text.clear();
  cell.m_number = 0;
  cell.m_bytes.clear();
  mark_stored(row, index, false);
}

}  // namespace

void row_clear(result_row& row) {
  for (uint32_t i = 0; i < row.m_count; ++i) empty_cell(row, i);
  row.m_last_valid = false;
  row.m_days_layout = nullptr;
}

bool set_number(result_row& row, int index, uint16_t kind, uint64_t value, uint32_t flags) {
  if (!storable(row, index, kind)) return true;
  result_cell& cell = row.m_cells[size_t(index)];
  // The same number again keeps the cell's rendering.
  if (cell.m_kind == kind && kind != cell_text && kind != cell_none && cell.m_number == value &&
      cell.m_flags == (flags | row.m_default_flags) && cell.m_text.empty())
    return true;
  cell.m_kind = kind;
  cell.m_flags = flags | row.m_default_flags;
  cell.m_number = value;
  cell.m_text.clear();
  mark_stored(row, size_t(index), kind == cell_time_split);
  return true;
}

std::string* text_slot(result_row& row, int index, uint32_t flags) {
  if (!storable(row, index, cell_text)) return nullptr;
  result_cell& cell = row.m_cells[size_t(index)];
  cell.m_kind = cell_text;
  cell.m_flags = flags | row.m_default_flags;
  cell.m_number = 0;
  cell.m_text.clear();
  mark_stored(row, size_t(index), false);
  return &cell.m_text;
}

bool set_text(result_row& row, int index, std::string_view text, uint32_t flags) {
  if (uint32_t(index) >= row.m_count || row.m_disabled) return true;  // -1 included
  result_cell& cell = row.m_cells[size_t(index)];
  flags |= row.m_default_flags;
  std::string& stored = cell.m_text;
  const size_t size = text.size();
  // Rows of one record store the same texts again; an unchanged cell keeps its rendering.
  if (cell.m_kind == cell_text && cell.m_flags == flags && stored.size() == size && same_bytes(stored.data(), text.data(), size))
    return true;
  cell.m_kind = cell_text;
  cell.m_flags = flags;
  cell.m_number = 0;
  mark_stored(row, size_t(index), false);
  stored.clear();
  stored.append(text.data(), size);  // cheaper than assign, which guards against overlap
  return true;
}

bool set_wide_text(result_row& row, int index, const std::wstring& text, uint32_t flags) {
  if (std::string* slot = text_slot(row, index, flags)) orv::append_utf8_of(*slot, text);
  return true;
}

bool set_time(result_row& row, int index, uint16_t kind, uint64_t filetime, uint32_t flags) {
  if (!set_number(row, index, kind, filetime, flags)) return false;
  if (kind == cell_time_split && storable(row, index, kind) && uint32_t(index) + 1 < row.m_count) {
    const result_cell& next = row.m_cells[size_t(index) + 1];
    // Mostly still empty from the previous time stored here.
    if (next.m_kind != cell_none || next.m_flags || next.m_number || !next.m_text.empty() || !next.m_bytes.empty() ||
        row.m_split[size_t(index) + 1])
      empty_cell(row, size_t(index) + 1);
    else
      row.m_stored_bits[(size_t(index) + 1) >> 6] |= 1ull << ((size_t(index) + 1) & 63);
  }
  return true;
}

void layout_from_options(result_layout& layout, const cmd_params& options) {
  layout.m_separator = options.m_field_separator;
  layout.m_no_padding = options.m_no_whitespace != 0;
  layout.m_blank_before_time = options.m_blank_before_time != 0;
  layout.m_hex_numbers = options.m_hex_numbers != 0;
  layout.m_replace_char = options.m_quoted_fields ? 0 : options.m_replace_char;
  layout.m_replace_with = options.m_replace_with;
  layout.m_line_break_tokens =
      options.m_fmt_csv || options.m_fmt_csvgen || options.m_fmt_l2t || options.m_fmt_bodyfile;
  layout.m_time_state = options.m_time_state;
  if (!layout.m_time_state.parsed())
    orv::parse_time_format(layout.m_time_state, options.m_date_format, options.m_time_format,
                           options.m_pair_datetime != 0);
  layout.m_date_width = orv::date_column_width(options.m_date_format);
  layout.m_time_width = orv::time_column_width(options.m_time_format);
}

void render_header(std::string& line, const std::vector<result_column>& columns, const result_layout& layout) {
  for (size_t i = 0; i < columns.size(); ++i) {
    const result_column& column = columns[i];
    if (i) line.append(layout.m_separator);
    if (layout.m_blank_before_time && (column.m_kind == cell_time_joined || column.m_kind == cell_time_second))
      line.push_back(' ');
    size_t start = line.size();
    line.append(column.m_name);
    if (!layout.m_no_padding) {
      size_t len = utf8_length(line.data() + start, line.size() - start);
      if (len < column.m_width) line.append(column.m_width - len, ' ');
    }
  }
  line.push_back('\n');
}

void render_row(std::string& line, result_row& row, const std::vector<result_column>& columns,
                const result_layout& layout) {
  if (row.m_disabled) return;
  row.m_days_layout = nullptr;  // the layout may differ from that of the previous call
  // Written in the buffer of the next cached row, which is rebuilt from scratch afterwards.
  std::vector<char>& bytes = row.m_line_bytes[row.m_line_previous ^ 1];
  const size_t count = row_columns(row, columns);
  size_t used = 0;
  for (size_t i = 0; i < count;) {
    char* const base = room(bytes, used, cell_bound(row, i, count, columns, layout));
    char* p = base;
    if (i) p = put_bytes(p, layout.m_separator.data(), layout.m_separator.size());
    p = put_cell(p, row, i, count, columns, layout);
    used += size_t(p - base);
    i += cells_used(row, i, count);
  }
  line.append(bytes.data(), used);
  line.push_back('\n');
}

const std::string& render_row_cached(result_row& row, const std::vector<result_column>& columns,
                                     const result_layout& layout) {
  std::string_view text = render_line(row, columns, layout);
  if (text.empty()) row.m_last_line.clear();
  else row.m_last_line.assign(text.data(), text.size());
  return row.m_last_line;
}

int add_column(result_table& table, uint16_t kind, uint32_t width, const std::string& name, uint32_t flags) {
  result_column column;
  column.m_kind = kind;
  column.m_flags = flags;
  column.m_width = width;
  column.m_name = name;
  table.m_columns.push_back(std::move(column));
  return int(table.m_columns.size() - 1);
}

int add_time_columns(result_table& table, bool paired, const std::string& date_name, const std::string& time_name,
                     const std::string& pair_name) {
  const result_layout& layout = table.m_layout;
  if (paired)
    return add_column(table, cell_time_joined, uint32_t(layout.m_date_width + layout.m_time_width + 1), pair_name);
  int index = add_column(table, cell_time_split, uint32_t(layout.m_date_width), date_name);
  add_column(table, cell_time_second, uint32_t(layout.m_time_width), time_name);
  return index;
}

void table_ready(result_table& table, uint32_t default_flags) {
  table.m_row.m_default_flags = default_flags;
  row_reset(table.m_row, uint32_t(table.m_columns.size()));
  table.m_built = true;
}

void table_write_header(result_table& table, results_stream& out) {
  if (!table.m_header_pending) return;
  table.m_header_pending = false;
  table.m_line.clear();
  render_header(table.m_line, table.m_columns, table.m_layout);
  out.write(table.m_line);
}

void table_write_row(result_table& table, results_stream& out) {
  if (table.m_row.m_disabled) return;
  std::string_view text = render_line(table.m_row, table.m_columns, table.m_layout);
  out.write(std::string_view(text.data(), text.size() + 1));  // the line feed behind the row
}
