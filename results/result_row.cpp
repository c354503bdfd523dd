#include "results/result_row.h"

#include <cstring>

#include "base/results_stream.h"
#include "run/cmd_params.h"

// Rows are written with plain pointers into byte buffers that are made large enough for the
// piece about to be written; the std::string forms below wrap the same writers.

namespace {

constexpr uint64_t k_ones = 0x0101010101010101ull;
constexpr uint64_t k_highs = 0x8080808080808080ull;
constexpr uint64_t k_ticks_per_second = 10000000ull;
constexpr uint64_t k_ticks_per_day = 864000000000ull;

bool is_integer_kind(uint16_t kind) { return kind == cell_int8 || kind == cell_int16 || kind == cell_int32 || kind == cell_int64; }
bool is_time_kind(uint16_t kind) { return kind == cell_time_split || kind == cell_time_joined || kind == cell_time_second; }

inline uint64_t load8(const char* p) {
  uint64_t v;
  std::memcpy(&v, p, 8);
  return v;
}

// Nonzero when one of the eight bytes is zero.
inline uint64_t zero_byte(uint64_t v) { return (v - k_ones) & ~v & k_highs; }

// Characters, not bytes: padding is counted on the text as the reader sees it.
size_t utf8_length(const char* begin, size_t bytes) {
  size_t n = 0, i = 0;
  for (; i + 8 <= bytes; i += 8) {
    uint64_t v = load8(begin + i);
    if (!(v & k_highs)) {
      n += 8;
      continue;
    }
    for (size_t k = i; k < i + 8; ++k) n += (uint8_t(begin[k]) & 0xC0) != 0x80;
  }
  for (; i < bytes; ++i) n += (uint8_t(begin[i]) & 0xC0) != 0x80;
  return n;
}

// Blanks behind the text from `start` to `p` up to `width` characters.
inline char* pad_to(char* start, char* p, size_t width) {
  const size_t chars = utf8_length(start, size_t(p - start));
  if (chars < width) {
    std::memset(p, ' ', width - chars);
    p += width - chars;
  }
  return p;
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

// "00" to "99".
const char k_digit_pairs[201] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

inline char* put2(char* p, uint32_t v) {
  std::memcpy(p, k_digit_pairs + 2 * v, 2);
  return p + 2;
}

// The clock text of an instant with `fraction_digits` digits behind the seconds, truncated.
char* put_clock(char* p, uint64_t filetime, unsigned fraction_digits) {
  static const uint32_t k_tens[10] = {1, 10, 100, 1000, 10000, 100000, 1000000, 10000000, 100000000, 1000000000};
  const uint64_t secs = filetime / k_ticks_per_second;
  const uint32_t fraction = uint32_t(filetime - secs * k_ticks_per_second);
  const uint32_t rest = uint32_t(secs % 86400);
  const uint32_t minutes = rest / 60;
  p = put2(p, minutes / 60);
  *p++ = ':';
  p = put2(p, minutes % 60);
  *p++ = ':';
  p = put2(p, rest - minutes * 60);
  if (fraction_digits) {
    *p++ = '.';
    uint32_t v = (fraction * 100) / k_tens[9 - fraction_digits];  // nanoseconds cut to the digits
    unsigned i = fraction_digits;
    for (; i >= 2; i -= 2) {
      std::memcpy(p + i - 2, k_digit_pairs + 2 * (v % 100), 2);
      v /= 100;
    }
    if (i) p[0] = char('0' + v);
    p += fraction_digits;
  }
  return p;
}

// How the date of an instant was found: the instant cannot be shown; its day was kept, and the
// clock is to be worked out; or both texts were just made, the clock standing in m_clock_work.
enum date_source { date_hidden, date_kept, date_made };

// The date text of an instant. A date depends only on the day, so it is kept by day for the
// layout in use; the clock is cheap to work out.
date_source find_date(result_row& row, uint64_t filetime, const result_layout& layout, const char*& date,
                      size_t& size) {
  if (filetime == 0 || !orv::filetime_displayable(filetime)) return date_hidden;
  if (row.m_days_layout != &layout) {
    for (auto& slot : row.m_days) slot.m_day = ~0ull;
    row.m_days_layout = &layout;
  }
  const uint64_t day = filetime / k_ticks_per_day;
  result_row::day_text& slot = row.m_days[day % result_row::k_day_slots];
  if (slot.m_day == day) {
    date = slot.m_text;
    size = slot.m_size;
    return date_kept;
  }

  std::string& made = row.m_date_work;
  std::string& clock = row.m_clock_work;
  made.clear();
  clock.clear();
  if (!orv::append_filetime_text(made, clock, filetime, layout.m_time_state)) return date_hidden;
  // "hh:mm:ss" and, when asked for, a point and the fraction: the same for every instant. The
  // day is kept only when the clock worked out here matches the one just made.
  const unsigned digits = clock.size() > 9 ? unsigned(clock.size() - 9) : 0;
  char check[64];
  const bool same_clock = digits <= 9 && size_t(put_clock(check, filetime, digits) - check) == clock.size() &&
                          std::memcmp(check, clock.data(), clock.size()) == 0;
  if (same_clock && made.size() <= sizeof(slot.m_text)) {
    row.m_fraction_digits = digits;
    std::memcpy(slot.m_text, made.data(), made.size());
    slot.m_size = uint8_t(made.size());
    slot.m_day = day;
  }
  date = made.data();
  size = made.size();
  return date_made;
}

inline char* put_bytes(char* p, const char* text, size_t size) {
  std::memcpy(p, text, size);
  return p + size;
}

char* put_number(char* p, const result_cell& cell, uint32_t flags, size_t width, const result_layout& layout) {
  uint64_t value = mask_to_kind(cell.m_number, cell.m_kind);
  char* start = p;
  if (layout.m_hex_numbers && !(flags & cell_flag_decimal)) {
    int digits = hex_digits_for_size(cell.m_kind);
    if (!layout.m_no_padding && width > 2) digits = width - 2 > 64 ? 64 : int(width - 2);
    *p++ = '0';
    *p++ = 'x';
    p = put_hex(p, value, digits);
    if (!layout.m_no_padding) p = pad_to(start, p, width);
    return p;
  }
  if (layout.m_no_padding) return put_decimal(p, value);
  char digits[24];
  char* end = put_decimal(digits, value);
  const size_t n = size_t(end - digits);
  if (n < width) {
    std::memset(p, ' ', width - n);
    p += width - n;
  }
  return put_bytes(p, digits, n);
}

// One character of text that may need cleaning; returns the position behind what it used.
inline size_t put_clean_char(char*& p, const char* data, size_t i, size_t size, char replace, char with,
                             bool tokens) {
  const char c = data[i];
  if (replace && c == replace) {
    *p++ = with;
    return i + 1;
  }
  if (!tokens || (c != '\r' && c != '\n')) {
    *p++ = c;
    return i + 1;
  }
  const char next = i + 1 < size ? data[i + 1] : 0;
  if (c == '\r' && next == '\n') {
    std::memcpy(p, "[CRLF]", 6);
    p += 6;
    return i + 2;
  }
  if (c == '\n' && next == '\r') {
    std::memcpy(p, "[LFCR]", 6);
    p += 6;
    return i + 2;
  }
  std::memcpy(p, c == '\n' ? "[LF]" : "[CR]", 4);
  p += 4;
  return i + 1;
}

// Nonzero when one of the eight bytes may need cleaning: it equals `pattern`'s byte, or it is
// below the byte of `below` (a control character; line breaks are below 14).
inline uint64_t needs_cleaning(uint64_t v, uint64_t pattern, uint64_t below) {
  const uint64_t x = v ^ pattern;
  return (((x - k_ones) & ~x) | ((v - below) & ~v)) & k_highs;
}

// Copies text, replacing the separator character and, when asked, spelling out line breaks.
// Writes at most four bytes per byte of text.
char* put_clean(char* p, const char* data, size_t size, char replace, char with, bool tokens) {
  if (!replace && !tokens) return put_bytes(p, data, size);
  // A replacement character of 0 makes every NUL a candidate; put_clean_char copies it as it is.
  const uint8_t limit = tokens ? 14 : 0;
  size_t i = 0;
  if (size < 8) {
    for (; i < size; ++i) {
      const char c = data[i];
      if (c != replace && uint8_t(c) >= limit) {
        *p++ = c;
        continue;
      }
      i = put_clean_char(p, data, i, size, replace, with, tokens) - 1;
    }
    return p;
  }
  // Eight bytes at a time while none is a candidate.
  const uint64_t pattern = uint8_t(replace) * k_ones;
  const uint64_t below = limit * k_ones;
  while (i + 8 <= size) {
    const uint64_t v = load8(data + i);
    if (!needs_cleaning(v, pattern, below)) {
      std::memcpy(p, &v, 8);
      p += 8;
      i += 8;
      continue;
    }
    const size_t end = i + 8;
    while (i < end) i = put_clean_char(p, data, i, size, replace, with, tokens);
  }
  if (i < size) {
    // The last eight bytes: when none is a candidate, those already written went out as they
    // are, and the whole group can be written again over them.
    const uint64_t v = load8(data + size - 8);
    if (!needs_cleaning(v, pattern, below)) {
      std::memcpy(p - (i - (size - 8)), &v, 8);
      return p + (size - i);
    }
    while (i < size) i = put_clean_char(p, data, i, size, replace, with, tokens);
  }
  return p;
}

// Copies a run of the previous row: both rows have sixteen bytes of room past their end, so a
// short run goes in sixteen-byte pieces without a library call.
inline char* put_run(char* p, const char* from, size_t size) {
  if (size > 64) return put_bytes(p, from, size);
  for (size_t i = 0; i < size; i += 16) std::memcpy(p + i, from + i, 16);
  return p + size;
}

// Room for `need` more bytes behind the first `used` of the buffer.
inline char* room(std::vector<char>& buffer, size_t used, size_t need) {
  if (buffer.size() < used + need) {
    size_t grown = buffer.size() * 2;
    if (grown < used + need + 256) grown = used + need + 256;
    buffer.resize(grown);
  }
  return buffer.data() + used;
}

// More than cell `i` can write, its separator in front included.
size_t cell_bound(const result_row& row, size_t i, size_t count, const std::vector<result_column>& columns,
                  const result_layout& layout) {
  size_t bound = 4 * row.m_cells[i].m_text.size() + columns[i].m_width + 2 * layout.m_separator.size() + 200;
  if (i + 1 < count) bound += columns[i + 1].m_width;
  return bound;
}

// A text cell: quotes when asked for (not around an object), the cleaned text, padding.
inline char* put_text_cell(char* p, std::string_view text, uint32_t flags, size_t width, const result_layout& layout) {
  char* const start = p;
  const bool quoted = flags & cell_flag_quoted;
  const bool as_is = text.size() > 2 && text[0] == '{' && text[1] == '"';
  if (quoted && !as_is) *p++ = '"';
  p = put_clean(p, text.data(), text.size(), quoted ? 0 : layout.m_replace_char, layout.m_replace_with,
                layout.m_line_break_tokens);
  if (quoted && !as_is) *p++ = '"';
  if (!layout.m_no_padding && width) p = pad_to(start, p, width);
  return p;
}

// A time cell of either kind; a split one also renders the column behind it when there is one.
// Each part: the optional blank, the text (one blank when the instant cannot be shown and the
// layout is padded), then padding.
char* put_time_value(char* p, result_row& row, uint16_t kind, uint64_t filetime, size_t i, size_t count,
                     const std::vector<result_column>& columns, const result_layout& layout) {
  const char* date = nullptr;
  size_t date_size = 0;
  const date_source source = find_date(row, filetime, layout, date, date_size);
  const bool padded = !layout.m_no_padding;
  auto put_date = [&](char* q) {
    if (source == date_kept) {
      std::memcpy(q, date, 16);  // a kept date has room for sixteen bytes and more
      if (date_size > 16) std::memcpy(q + 16, date + 16, date_size - 16);
      return q + date_size;
    }
    return put_bytes(q, date, date_size);
  };
  auto put_clock_text = [&](char* q) {
    if (source == date_kept) return put_clock(q, filetime, row.m_fraction_digits);
    return put_bytes(q, row.m_clock_work.data(), row.m_clock_work.size());
  };

  if (kind == cell_time_split) {
    if (layout.m_blank_before_time) *p++ = ' ';
    char* start = p;
    if (source != date_hidden) p = put_date(p);
    else if (padded) *p++ = ' ';
    if (padded) p = pad_to(start, p, columns[i].m_width);
    if (i + 1 < count) {
      p = put_bytes(p, layout.m_separator.data(), layout.m_separator.size());
      if (layout.m_blank_before_time) *p++ = ' ';
      start = p;
      if (source != date_hidden) p = put_clock_text(p);
      else if (padded) *p++ = ' ';
      if (padded) p = pad_to(start, p, columns[i + 1].m_width);
    }
    return p;
  }
  if (layout.m_blank_before_time) *p++ = ' ';
  char* start = p;
  if (source != date_hidden) {
    p = put_date(p);
    *p++ = ' ';
    p = put_clock_text(p);
  } else if (padded) {
    *p++ = ' ';
  }
  if (padded && columns[i].m_width) p = pad_to(start, p, columns[i].m_width);
  return p;
}

// Renders cell `i` without separators in front; a split time cell also renders the column behind
// it.
char* put_cell(char* p, result_row& row, size_t i, size_t count, const std::vector<result_column>& columns,
               const result_layout& layout) {
  const result_column& column = columns[i];
  const result_cell& cell = row.m_cells[i];
  const size_t width = layout.m_no_padding ? 0 : column.m_width;
  const uint32_t flags = cell.m_flags | column.m_flags;

  if (cell.m_kind == cell_text) {
    p = put_text_cell(p, cell.m_text, flags, column.m_width, layout);
  } else if (is_integer_kind(cell.m_kind)) {
    p = put_number(p, cell, flags, width, layout);
  } else if (cell.m_kind == cell_time_split || cell.m_kind == cell_time_joined) {
    p = put_time_value(p, row, cell.m_kind, cell.m_number, i, count, columns, layout);
  } else {
    // Empty or foreign cell: blank fill keeps the columns aligned.
    if (layout.m_blank_before_time && is_time_kind(column.m_kind)) *p++ = ' ';
    if (width) {
      std::memset(p, ' ', width);
      p += width;
    }
  }
  return p;
}

size_t row_columns(const result_row& row, const std::vector<result_column>& columns) {
  return columns.size() < row.m_count ? columns.size() : row.m_count;
}

size_t cells_used(const result_row& row, size_t i, size_t count) {
  return (row.m_cells[i].m_kind == cell_time_split && i + 1 < count) ? 2 : 1;
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

  std::vector<char>& line = row.m_line_bytes[row.m_line_previous ^ 1];
  const char* const last = row.m_line_bytes[row.m_line_previous].data();
  // Room is checked before each piece; growing moves the row written so far.
  char* begin = room(line, 0, row.m_last_size + 256);
  char* end = begin + line.size();
  char* p = begin;
  auto ensure = [&](size_t need) {
    if (size_t(end - p) >= need) return;
    const size_t used = size_t(p - begin);
    p = room(line, used, need);
    begin = line.data();
    end = begin + line.size();
  };

  const uint8_t* const starts = row.m_starts.data();
  const uint8_t* const split = row.m_split.data();
  const result_cell* const cells = row.m_cells.data();
  const result_column* const cols = columns.data();
  // The separator, padded so that it can be written eight bytes at a time.
  const size_t separator_size = layout.m_separator.size();
  char separator[8] = {0, 0, 0, 0, 0, 0, 0, 0};
  const bool short_separator = separator_size <= 8;
  if (short_separator) std::memcpy(separator, layout.m_separator.data(), separator_size);
  const bool padded = !layout.m_no_padding;

  size_t next = 0;       // first cell not yet passed
  size_t last_pos = 0;   // where cell `next` starts in the previous row
  size_t copy_from = 0;  // start of the run of unchanged cells in the previous row
  for (size_t word = 0; word < words; ++word) {
    for (uint64_t bits = stored[word]; bits; bits &= bits - 1) {
      const size_t i = word * 64 + size_t(__builtin_ctzll(bits));
      if (i < next || !starts[i]) continue;  // a column of the time cell in front: left stored
      while (next < i) last_pos += length[next++];
      if (last_pos > copy_from) {
        ensure(last_pos - copy_from + 16);
        p = put_run(p, last + copy_from, last_pos - copy_from);
      }
      const size_t step = split[i] && i + 1 < count ? 2 : 1;
      last_pos += length[i] + (step == 2 ? length[i + 1] : 0);
      copy_from = last_pos;
      next = i + step;

      ensure(cell_bound(row, i, count, columns, layout));
      char* const cell_start = p;
      if (i) {
        if (short_separator) std::memcpy(p, separator, 8);
        else std::memcpy(p, layout.m_separator.data(), separator_size);
        p += separator_size;
      }
      const result_cell& cell = cells[i];
      if (cell.m_kind == cell_text && !padded && !((cell.m_flags | cols[i].m_flags) & cell_flag_quoted)) {
        p = put_clean(p, cell.m_text.data(), cell.m_text.size(), layout.m_replace_char, layout.m_replace_with,
                      layout.m_line_break_tokens);
      } else if (cell.m_kind == cell_text) {
        p = put_text_cell(p, cell.m_text, cell.m_flags | cols[i].m_flags, cols[i].m_width, layout);
      } else {
        p = put_cell(p, row, i, count, columns, layout);
      }
      length[i] = uint32_t(p - cell_start);
      row.m_stored_bits[word] &= ~(1ull << (i & 63));
      if (step == 2) {
        length[i + 1] = 0;
        row.m_stored_bits[(i + 1) >> 6] |= 1ull << ((i + 1) & 63);  // afresh should it stand alone again
      }
    }
  }
  while (next < count) last_pos += length[next++];
  if (last_pos > copy_from) {
    ensure(last_pos - copy_from + 16);
    p = put_run(p, last + copy_from, last_pos - copy_from);
  }
  ensure(17);  // the line feed, and sixteen bytes that the next row may read past a run
  *p = '\n';
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
  if (cell.m_kind == cell_text && cell.m_flags == flags && stored.size() == size &&
      (size == 0 || (stored[0] == text[0] && std::memcmp(stored.data(), text.data(), size) == 0)))
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
  if (std::string* slot = text_slot(row, index, flags)) append_utf8_of(*slot, text);
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

void append_utf8_of(std::string& out, const std::wstring& text) {
  // Names and paths are mostly ASCII: write those straight into the grown string, four at a
  // time while all four are ASCII.
  const size_t start = out.size();
  const wchar_t* const wide = text.data();
  const size_t size = text.size();
  out.resize(start + size);
  char* const ascii = &out[0] + start;
  size_t i = 0;
  for (; i + 4 <= size; i += 4) {
    const uint32_t a = uint32_t(wide[i]), b = uint32_t(wide[i + 1]), c = uint32_t(wide[i + 2]),
                   d = uint32_t(wide[i + 3]);
    if ((a | b | c | d) >= 0x80) break;
    ascii[i] = char(a);
    ascii[i + 1] = char(b);
    ascii[i + 2] = char(c);
    ascii[i + 3] = char(d);
  }
  for (; i < size && uint32_t(wide[i]) < 0x80; ++i) ascii[i] = char(wide[i]);
  if (i == size) return;
  out.resize(start + i);
  for (; i < size; ++i) {
    uint32_t cp = uint32_t(wide[i]);
    if (cp < 0x80) {
      out.push_back(char(cp));
    } else if (cp < 0x800) {
      const char bytes[2] = {char(0xC0 | (cp >> 6)), char(0x80 | (cp & 0x3F))};
      out.append(bytes, 2);
    } else if (cp < 0x10000) {
      const char bytes[3] = {char(0xE0 | (cp >> 12)), char(0x80 | ((cp >> 6) & 0x3F)), char(0x80 | (cp & 0x3F))};
      out.append(bytes, 3);
    } else if (cp <= 0x10FFFF) {
      const char bytes[4] = {char(0xF0 | (cp >> 18)), char(0x80 | ((cp >> 12) & 0x3F)),
                             char(0x80 | ((cp >> 6) & 0x3F)), char(0x80 | (cp & 0x3F))};
      out.append(bytes, 4);
    } else {
      return;  // not a code point: the conversion ends here, as everywhere else in the tool
    }
  }
}

char* put_hex(char* p, uint64_t value, int min_digits) {
  static const char k_hex[] = "0123456789abcdef";
  const int n = value ? (67 - __builtin_clzll(value)) >> 2 : 1;
  if (min_digits > 64) min_digits = 64;  // a column width is no reason to print pages of zeros
  for (int i = n; i < min_digits; ++i) *p++ = '0';
  char* q = p + n;
  for (; value > 0xF; value >>= 8) {
    q -= 2;
    q[0] = k_hex[(value >> 4) & 0xF];
    q[1] = k_hex[value & 0xF];
  }
  if (q > p) *--q = k_hex[value];
  return p + n;
}

char* put_decimal(char* p, uint64_t value) {
  char digits[24];
  int n = 0;
  do {
    digits[n++] = char('0' + value % 10);
    value /= 10;
  } while (value);
  while (n) *p++ = digits[--n];
  return p;
}

void append_hex(std::string& out, uint64_t value, int min_digits) {
  char digits[72];
  out.append(digits, size_t(put_hex(digits, value, min_digits) - digits));
}

void append_decimal(std::string& out, uint64_t value) {
  char digits[24];
  out.append(digits, size_t(put_decimal(digits, value) - digits));
}

void append_clean_text(std::string& out, std::string_view text, const result_layout& layout, bool quoted) {
  const size_t start = out.size();
  out.resize(start + 4 * text.size());
  char* const base = &out[0] + start;
  char* end = put_clean(base, text.data(), text.size(), quoted ? 0 : layout.m_replace_char, layout.m_replace_with,
                        layout.m_line_break_tokens);
  out.resize(start + size_t(end - base));
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
