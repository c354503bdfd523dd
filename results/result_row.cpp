#include "results/result_row.h"

#include <cstring>

#include "base/results_stream.h"
#include "run/cmd_params.h"

namespace {

bool is_integer_kind(uint16_t kind) { return kind == cell_int8 || kind == cell_int16 || kind == cell_int32 || kind == cell_int64; }
bool is_time_kind(uint16_t kind) { return kind == cell_time_split || kind == cell_time_joined || kind == cell_time_second; }

// Characters, not bytes: padding is counted on the text as the reader sees it.
size_t utf8_length(const char* begin, size_t bytes) {
  size_t n = 0;
  for (size_t i = 0; i < bytes; ++i) n += (uint8_t(begin[i]) & 0xC0) != 0x80;
  return n;
}

void pad_from(std::string& line, size_t start, size_t width) {
  size_t len = utf8_length(line.data() + start, line.size() - start);
  if (len < width) line.append(width - len, ' ');
}

int hex_digits_for_size(uint16_t kind) {
  switch (kind) {
    case cell_int8: return 2;
    case cell_int16: return 4;
    default: return 8;
  }
}

uint64_t mask_to_kind(uint64_t value, uint16_t kind) {
  switch (kind) {
    case cell_int8: return value & 0xFF;
    case cell_int16: return value & 0xFFFF;
    case cell_int32: return value & 0xFFFFFFFFull;
    default: return value;
  }
}

bool storable(const result_row& row, int index, uint16_t kind) {
  return !row.m_disabled && index >= 0 && uint32_t(index) < row.m_count && kind <= 31;
}

// Date and time text of an instant; the rows of one timeline entry ask for the same instant again.
bool time_text(result_row& row, uint64_t filetime, const result_layout& layout) {
  if (row.m_cache_filled && row.m_cached_time == filetime) return row.m_cached_valid;
  row.m_cached_date.clear();
  row.m_cached_clock.clear();
  row.m_cached_valid = filetime != 0 &&
                       orv::append_filetime_text(row.m_cached_date, row.m_cached_clock, filetime, layout.m_time_state);
  if (!row.m_cached_valid) {
    row.m_cached_date.clear();
    row.m_cached_clock.clear();
  }
  row.m_cached_time = filetime;
  row.m_cache_filled = true;
  return row.m_cached_valid;
}

// One part of a time cell: the optional blank, the text (one blank when the instant cannot be
// shown and the layout is padded), then padding.
void render_time_part(std::string& line, const std::string& text, bool valid, size_t width,
                      const result_layout& layout) {
  if (layout.m_blank_before_time) line.push_back(' ');
  size_t start = line.size();
  if (valid) line.append(text);
  else if (!layout.m_no_padding) line.push_back(' ');
  if (!layout.m_no_padding) pad_from(line, start, width);
}

void render_number(std::string& line, const result_cell& cell, uint32_t flags, size_t width,
                   const result_layout& layout) {
  uint64_t value = mask_to_kind(cell.m_number, cell.m_kind);
  size_t start = line.size();
  if (layout.m_hex_numbers && !(flags & cell_flag_decimal)) {
    int digits = hex_digits_for_size(cell.m_kind);
    if (!layout.m_no_padding && width > 2) digits = int(width - 2);
    line.append("0x");
    append_hex(line, value, digits);
    if (!layout.m_no_padding) pad_from(line, start, width);
    return;
  }
  if (layout.m_no_padding) {
    append_decimal(line, value);
    return;
  }
  char digits[24];
  int n = 0;
  do {
    digits[n++] = char('0' + value % 10);
    value /= 10;
  } while (value);
  if (size_t(n) < width) line.append(width - size_t(n), ' ');
  while (n) line.push_back(digits[--n]);
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

namespace {

void empty_cell(result_cell& cell) {
  cell.m_kind = cell_none;
  cell.m_flags = 0;
  cell.m_text.clear();
  cell.m_number = 0;
  cell.m_bytes.clear();
  cell.m_rendered_valid = false;
}

}  // namespace

void row_clear(result_row& row) {
  for (uint32_t i = 0; i < row.m_count; ++i) empty_cell(row.m_cells[i]);
  row.m_last_valid = false;
  row.m_cache_filled = false;
}

bool set_number(result_row& row, int index, uint16_t kind, uint64_t value, uint32_t flags) {
  if (!storable(row, index, kind)) return true;
  result_cell& cell = row.m_cells[size_t(index)];
  cell.m_kind = kind;
  cell.m_flags = flags | row.m_default_flags;
  cell.m_number = value;
  cell.m_text.clear();
  cell.m_rendered_valid = false;
  return true;
}

std::string* text_slot(result_row& row, int index, uint32_t flags) {
  if (!storable(row, index, cell_text)) return nullptr;
  result_cell& cell = row.m_cells[size_t(index)];
  cell.m_kind = cell_text;
  cell.m_flags = flags | row.m_default_flags;
  cell.m_number = 0;
  cell.m_text.clear();
  cell.m_rendered_valid = false;
  return &cell.m_text;
}

bool set_text(result_row& row, int index, std::string_view text, uint32_t flags) {
  if (!storable(row, index, cell_text)) return true;
  result_cell& cell = row.m_cells[size_t(index)];
  // Rows of one record store the same texts again; an unchanged cell keeps its rendering.
  if (cell.m_kind == cell_text && cell.m_flags == (flags | row.m_default_flags) && cell.m_text == text) return true;
  if (std::string* slot = text_slot(row, index, flags)) slot->assign(text.data(), text.size());
  return true;
}

bool set_wide_text(result_row& row, int index, const std::wstring& text, uint32_t flags) {
  if (std::string* slot = text_slot(row, index, flags)) append_utf8_of(*slot, text);
  return true;
}

bool set_time(result_row& row, int index, uint16_t kind, uint64_t filetime, uint32_t flags) {
  if (!set_number(row, index, kind, filetime, flags)) return false;
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

void append_utf8_of(std::string& out, const std::wstring& text) {
  // Names and paths are mostly ASCII: write those straight into the grown string.
  size_t start = out.size();
  out.resize(start + text.size());
  char* ascii = &out[0] + start;
  size_t i = 0;
  for (; i < text.size() && uint32_t(text[i]) < 0x80; ++i) ascii[i] = char(text[i]);
  out.resize(start + i);
  for (; i < text.size(); ++i) {
    uint32_t cp = uint32_t(text[i]);
    if (cp < 0x80) {
      out.push_back(char(cp));
    } else if (cp < 0x800) {
      out.push_back(char(0xC0 | (cp >> 6)));
      out.push_back(char(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
      out.push_back(char(0xE0 | (cp >> 12)));
      out.push_back(char(0x80 | ((cp >> 6) & 0x3F)));
      out.push_back(char(0x80 | (cp & 0x3F)));
    } else if (cp <= 0x10FFFF) {
      out.push_back(char(0xF0 | (cp >> 18)));
      out.push_back(char(0x80 | ((cp >> 12) & 0x3F)));
      out.push_back(char(0x80 | ((cp >> 6) & 0x3F)));
      out.push_back(char(0x80 | (cp & 0x3F)));
    } else {
      return;  // not a code point: the conversion ends here, as everywhere else in the tool
    }
  }
}

void append_hex(std::string& out, uint64_t value, int min_digits) {
  static const char k_hex[] = "0123456789abcdef";
  char digits[16];
  int n = 0;
  do {
    digits[n++] = k_hex[value & 0xF];
    value >>= 4;
  } while (value);
  if (min_digits > 64) min_digits = 64;  // a column width is no reason to print pages of zeros
  if (n < min_digits) out.append(size_t(min_digits - n), '0');
  while (n) out.push_back(digits[--n]);
}

void append_decimal(std::string& out, uint64_t value) {
  char digits[24];
  int n = 0;
  do {
    digits[n++] = char('0' + value % 10);
    value /= 10;
  } while (value);
  while (n) out.push_back(digits[--n]);
}

void append_clean_text(std::string& out, std::string_view text, const result_layout& layout, bool quoted) {
  const char replace = quoted ? 0 : layout.m_replace_char;
  const bool tokens = layout.m_line_break_tokens;
  const char* const data = text.data();
  const size_t size = text.size();
  size_t plain = 0;  // start of the run not yet copied
  size_t i = 0;
  while (true) {
    // Most text has nothing to change: find the next candidate in a tight loop.
    while (i < size && data[i] != replace && data[i] != '\r' && data[i] != '\n') ++i;
    if (i >= size) break;
    const char c = data[i];
    if (replace && c == replace) {
      out.append(data + plain, i - plain);
      out.push_back(layout.m_replace_with);
      plain = ++i;
      continue;
    }
    if (!tokens || (c != '\r' && c != '\n')) {
      ++i;  // a NUL with no replacement set, or a line break outside the CSV family
      continue;
    }
    out.append(data + plain, i - plain);
    const char next = i + 1 < size ? data[i + 1] : 0;
    if (c == '\r' && next == '\n') {
      out.append("[CRLF]");
      ++i;
    } else if (c == '\n' && next == '\r') {
      out.append("[LFCR]");
      ++i;
    } else {
      out.append(c == '\n' ? "[LF]" : "[CR]");
    }
    plain = ++i;
  }
  out.append(data + plain, size - plain);
}

void render_header(std::string& line, const std::vector<result_column>& columns, const result_layout& layout) {
  for (size_t i = 0; i < columns.size(); ++i) {
    const result_column& column = columns[i];
    if (i) line.append(layout.m_separator);
    if (layout.m_blank_before_time && (column.m_kind == cell_time_joined || column.m_kind == cell_time_second))
      line.push_back(' ');
    size_t start = line.size();
    line.append(column.m_name);
    if (!layout.m_no_padding) pad_from(line, start, column.m_width);
  }
  line.push_back('\n');
}

namespace {

// Renders cell `i` without separators in front; a split time cell also renders the column behind
// it. Returns the number of columns used.
size_t render_cell(std::string& line, result_row& row, size_t i, size_t count,
                   const std::vector<result_column>& columns, const result_layout& layout) {
  const result_column& column = columns[i];
  const result_cell& cell = row.m_cells[i];
  const size_t width = layout.m_no_padding ? 0 : column.m_width;
  const uint32_t flags = cell.m_flags | column.m_flags;

  if (is_integer_kind(cell.m_kind)) {
    render_number(line, cell, flags, width, layout);
  } else if (cell.m_kind == cell_text) {
    size_t start = line.size();
    const std::string& text = cell.m_text;
    bool quoted = flags & cell_flag_quoted;
    bool as_is = text.size() > 2 && text[0] == '{' && text[1] == '"';
    if (quoted && !as_is) line.push_back('"');
    append_clean_text(line, text, layout, quoted);
    if (quoted && !as_is) line.push_back('"');
    if (width) pad_from(line, start, width);
  } else if (cell.m_kind == cell_time_joined) {
    bool valid = time_text(row, cell.m_number, layout);
    if (layout.m_blank_before_time) line.push_back(' ');
    size_t start = line.size();
    if (valid) {
      line.append(row.m_cached_date);
      line.push_back(' ');
      line.append(row.m_cached_clock);
    } else if (!layout.m_no_padding) {
      line.push_back(' ');
    }
    if (width) pad_from(line, start, width);
  } else if (cell.m_kind == cell_time_split) {
    bool valid = time_text(row, cell.m_number, layout);
    render_time_part(line, row.m_cached_date, valid, column.m_width, layout);
    if (i + 1 < count) {
      line.append(layout.m_separator);
      render_time_part(line, row.m_cached_clock, valid, columns[i + 1].m_width, layout);
      return 2;
    }
  } else {
    // Empty or foreign cell: blank fill keeps the columns aligned.
    if (layout.m_blank_before_time && is_time_kind(column.m_kind)) line.push_back(' ');
    if (width) line.append(width, ' ');
  }
  return 1;
}

size_t row_columns(const result_row& row, const std::vector<result_column>& columns) {
  return columns.size() < row.m_count ? columns.size() : row.m_count;
}

}  // namespace

void render_row(std::string& line, result_row& row, const std::vector<result_column>& columns,
                const result_layout& layout) {
  if (row.m_disabled) return;
  row.m_cache_filled = false;  // the layout may differ from that of the previous call
  const size_t count = row_columns(row, columns);
  for (size_t i = 0; i < count;) {
    if (i) line.append(layout.m_separator);
    i += render_cell(line, row, i, count, columns, layout);
  }
  line.push_back('\n');
}

const std::string& render_row_cached(result_row& row, const std::vector<result_column>& columns,
                                     const result_layout& layout) {
  std::string& line = row.m_next_line;
  line.clear();
  if (row.m_disabled) return line;
  const size_t count = row_columns(row, columns);
  const std::string& separator = layout.m_separator;
  const std::string& last = row.m_last_line;
  const bool reuse = row.m_last_valid && row.m_last_start.size() >= count;
  row.m_last_start.resize(count);
  row.m_last_end.resize(count);

  // Unchanged cells come from the previous row, a run of neighbours (separators included) at a
  // time: a row is many short pieces, and copying them one by one costs more than the bytes do.
  size_t run_begin = 0, run_end = 0;
  bool run_open = false;
  auto flush_run = [&] {
    if (run_open) line.append(last, run_begin, run_end - run_begin);
    run_open = false;
  };
  size_t logical = 0;  // length of the new line including the pending run
  for (size_t i = 0; i < count;) {
    result_cell& cell = row.m_cells[i];
    const size_t used = (cell.m_kind == cell_time_split && i + 1 < count) ? 2 : 1;
    const size_t lead = i ? separator.size() : 0;
    if (reuse && cell.m_rendered_valid) {
      size_t begin = row.m_last_start[i] - lead, end = row.m_last_end[i];
      if (run_open && run_end == begin) {
        run_end = end;
      } else {
        flush_run();
        run_begin = begin;
        run_end = end;
        run_open = true;
      }
      row.m_last_start[i] = uint32_t(logical + lead);
      logical += end - begin;
      row.m_last_end[i] = uint32_t(logical);
    } else {
      flush_run();
      if (i) line.append(separator);
      size_t start = line.size();
      render_cell(line, row, i, count, columns, layout);
      cell.m_rendered_valid = true;
      row.m_last_start[i] = uint32_t(start);
      row.m_last_end[i] = uint32_t(line.size());
      logical = line.size();
    }
    i += used;
  }
  flush_run();
  row.m_last_line.swap(row.m_next_line);
  row.m_last_valid = true;
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
  out.write(render_row_cached(table.m_row, table.m_columns, table.m_layout));
  out.put('\n');
}
