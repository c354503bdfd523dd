#pragma once
// The table writer shared by the row formats: columns, the cells of the row being built, the
// header line and the rendering of a row under the separator, padding and number settings.
// Cell strings keep their capacity between rows, so a long run allocates almost nothing per row.
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/orv_time.h"
#include "base/orv_time_text.h"

class cmd_params;
class results_stream;

enum result_cell_kind : uint16_t {
  cell_none = 0,
  cell_int8 = 1,
  cell_int16 = 2,
  cell_int32 = 4,
  cell_int64 = 8,
  cell_text = 11,
  cell_time_split = 12,  // FILETIME: date in this column, time in the next
  cell_time_joined = 13, // FILETIME: date and time in one column
  cell_time_second = 24, // header-only kind of the column behind a cell_time_split column
};

enum : uint32_t {
  cell_flag_quoted = 1u << 15,   // text wrapped in double quotes
  cell_flag_decimal = 1u << 30,  // integer printed in decimal whatever the number base
};

constexpr uint32_t k_max_row_cells = 255;

struct result_column {
  uint16_t m_kind = cell_text;
  uint32_t m_flags = 0;
  uint32_t m_width = 0;  // 0: never padded
  std::string m_name;
};

struct result_cell {
  uint16_t m_kind = cell_none;
  uint32_t m_flags = 0;
  std::string m_text;
  uint64_t m_number = 0;
  std::vector<uint8_t> m_bytes;  // only for kinds this walker does not write
};

// How rows are laid out; taken once from the option set.
struct result_layout {
  std::string m_separator = " | ";
  bool m_no_padding = false;
  bool m_blank_before_time = true;
  bool m_hex_numbers = true;
  char m_replace_char = '|';  // 0: no replacement
  char m_replace_with = ';';
  bool m_line_break_tokens = false;  // line breaks become "[CRLF]", "[LF]", ...
  orv::time_format_state m_time_state;
  size_t m_date_width = 10;
  size_t m_time_width = 12;
};

class result_row {
 public:
  virtual ~result_row() = default;

  std::vector<result_cell> m_cells;
  uint32_t m_count = 0;
  uint32_t m_default_flags = 0;  // OR-ed into every stored cell
  bool m_disabled = false;

  std::vector<char> m_line_bytes;  // the row being rendered

  // Date texts by day, for the layout they were made under; the clock is worked out directly.
  // On a miss both texts are made in the two work strings.
  struct day_text {
    uint64_t m_day = ~0ull;
    uint8_t m_size = 0;
    char m_text[31] = {};
  };
  static constexpr size_t k_day_slots = 16;
  day_text m_days[k_day_slots];
  const result_layout* m_days_layout = nullptr;
  unsigned m_fraction_digits = 0;
  std::string m_date_work;
  std::string m_clock_work;
};

// Sizes the row; a row of more than 255 cells is refused and stays disabled.
bool row_reset(result_row& row, uint32_t count);
// Empties every cell, keeping the string capacity.
void row_clear(result_row& row);

// Cell stores. An index of -1 or beyond the count, a kind above 31, or a disabled row: nothing
// is stored and the result is still true.
bool set_number(result_row& row, int index, uint16_t kind, uint64_t value, uint32_t flags = 0);
bool set_text(result_row& row, int index, std::string_view text, uint32_t flags = 0);
bool set_wide_text(result_row& row, int index, const std::wstring& text, uint32_t flags = 0);
// Kind 12 clears the next cell, which receives the time part when the row is rendered.
bool set_time(result_row& row, int index, uint16_t kind, uint64_t filetime, uint32_t flags = 0);

void layout_from_options(result_layout& layout, const cmd_params& options);

// Header line and rows, each ended by a line feed, appended to `line`.
void render_header(std::string& line, const std::vector<result_column>& columns, const result_layout& layout);
void render_row(std::string& line, result_row& row, const std::vector<result_column>& columns,
                const result_layout& layout);

// Helpers of the renderers, also used by writers that build cell text themselves.
// The put_ forms write at `p`, which has room for what they write, and return the new end.
// put_hex may store up to eight bytes at `p` however few digits it writes.
char* put_hex(char* p, uint64_t value, int min_digits);  // at most 64 digits, no "0x"
char* put_decimal(char* p, uint64_t value);             // at most 20 digits
void append_hex(std::string& out, uint64_t value, int min_digits);
void append_decimal(std::string& out, uint64_t value);
// Replaces the separator character and, when asked, spells out line breaks.
void append_clean_text(std::string& out, std::string_view text, const result_layout& layout, bool quoted);

// One table: its columns, its row and the header-once flag. Each row format keeps its own.
struct result_table {
  std::vector<result_column> m_columns;
  result_row m_row;
  result_layout m_layout;
  bool m_built = false;
  bool m_header_pending = true;
  std::string m_line;
};

int add_column(result_table& table, uint16_t kind, uint32_t width, const std::string& name, uint32_t flags = 0);
// Adds the timestamp column(s): "date_name" and "time_name" as a kind 12 / 24 pair, or one
// kind 13 column "pair_name" of both widths plus one when the date and time are paired.
int add_time_columns(result_table& table, bool paired, const std::string& date_name, const std::string& time_name,
                     const std::string& pair_name);
// Sizes the row to the columns, with `default_flags` for every cell.
void table_ready(result_table& table, uint32_t default_flags);
void table_write_header(result_table& table, results_stream& out);
void table_write_row(result_table& table, results_stream& out);
