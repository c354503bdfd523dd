#include "results/result_row.h"

#include "base/orv_results_stream.h"
#include "base/orv_string.h"
#include "base/orv_time_text.h"
#include "results/orv_result_cells.h"
#include "run/cmd_params.h"

// Rows are written with plain pointers into a byte buffer made large enough for the cell about
// to be written (orv_result_cells.h).

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

void empty_cell(result_cell& cell) {
  cell.m_kind = cell_none;
  cell.m_flags = 0;
  cell.m_text.clear();
  cell.m_number = 0;
  cell.m_bytes.clear();
}

// A text cell whose string the caller fills; null when not storable.
std::string* text_slot(result_row& row, int index, uint32_t flags) {
  if (!storable(row, index, cell_text)) return nullptr;
  result_cell& cell = row.m_cells[size_t(index)];
  cell.m_kind = cell_text;
  cell.m_flags = flags | row.m_default_flags;
  cell.m_number = 0;
  cell.m_text.clear();
  return &cell.m_text;
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
  row_clear(row);
  return true;
}

void row_clear(result_row& row) {
  for (uint32_t i = 0; i < row.m_count; ++i) empty_cell(row.m_cells[i]);
  row.m_days_layout = nullptr;
}

bool set_number(result_row& row, int index, uint16_t kind, uint64_t value, uint32_t flags) {
  if (!storable(row, index, kind)) return true;
  result_cell& cell = row.m_cells[size_t(index)];
  cell.m_kind = kind;
  cell.m_flags = flags | row.m_default_flags;
  cell.m_number = value;
  cell.m_text.clear();
  return true;
}

bool set_text(result_row& row, int index, std::string_view text, uint32_t flags) {
  if (std::string* slot = text_slot(row, index, flags)) slot->append(text.data(), text.size());
  return true;
}

bool set_wide_text(result_row& row, int index, const std::wstring& text, uint32_t flags) {
  if (std::string* slot = text_slot(row, index, flags)) orv::append_utf8_of(*slot, text);
  return true;
}

bool set_time(result_row& row, int index, uint16_t kind, uint64_t filetime, uint32_t flags) {
  set_number(row, index, kind, filetime, flags);
  if (kind == cell_time_split && storable(row, index, kind) && uint32_t(index) + 1 < row.m_count)
    empty_cell(row.m_cells[size_t(index) + 1]);
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
  const size_t count = columns.size() < row.m_count ? columns.size() : row.m_count;
  size_t used = 0;
  for (size_t i = 0; i < count;) {
    char* const base = room(row.m_line_bytes, used, cell_bound(row, i, count, columns, layout));
    char* p = base;
    if (i) p = put_bytes(p, layout.m_separator.data(), layout.m_separator.size());
    const result_cell& cell = row.m_cells[i];
    p = put_value(p, row, cell.m_kind, cell.m_flags | columns[i].m_flags, cell.m_text, cell.m_number, i, count,
                  columns, layout);
    used += size_t(p - base);
    // A split time cell renders the column behind it too.
    i += (cell.m_kind == cell_time_split && i + 1 < count) ? 2 : 1;
  }
  line.append(row.m_line_bytes.data(), used);
  line.push_back('\n');
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
  table.m_line.clear();
  render_row(table.m_line, table.m_row, table.m_columns, table.m_layout);
  out.write(table.m_line);
}
