#include "results/orv_result_cells.h"

#include "base/orv_time.h"
#include "base/orv_time_text.h"

// The cell writers and the text helpers of result_row.h.

namespace row_text {

namespace {

constexpr uint64_t k_ones = 0x0101010101010101ull;
constexpr uint64_t k_highs = 0x8080808080808080ull;
constexpr uint64_t k_ticks_per_second = 10000000ull;
constexpr uint64_t k_ticks_per_day = 864000000000ull;

bool is_integer_kind(uint16_t kind) {
  return kind == cell_int8 || kind == cell_int16 || kind == cell_int32 || kind == cell_int64;
}
bool is_time_kind(uint16_t kind) {
  return kind == cell_time_split || kind == cell_time_joined || kind == cell_time_second;
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

}  // namespace

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

char* pad_to(char* start, char* p, size_t width) {
  const size_t chars = utf8_length(start, size_t(p - start));
  if (chars < width) {
    std::memset(p, ' ', width - chars);
    p += width - chars;
  }
  return p;
}

char* put_clean(char* p, const char* data, size_t size, char replace, char with, bool tokens) {
  if (!replace && !tokens) return size ? put_bytes(p, data, size) : p;  // an empty view may hold no pointer
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

char* put_number(char* p, uint16_t kind, uint64_t number, uint32_t flags, size_t width, const result_layout& layout) {
  uint64_t value = mask_to_kind(number, kind);
  char* start = p;
  if (layout.m_hex_numbers && !(flags & cell_flag_decimal)) {
    int digits = hex_digits_for_size(kind);
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

// Each part of a time cell: the optional blank, the text (one blank when the instant cannot be
// shown and the layout is padded), then padding.
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
      if (layout.m_separator.size() == 1) *p++ = layout.m_separator[0];
      else p = put_bytes(p, layout.m_separator.data(), layout.m_separator.size());
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

char* put_value(char* p, result_row& row, uint16_t kind, uint32_t flags, std::string_view text, uint64_t number,
                size_t i, size_t count, const std::vector<result_column>& columns, const result_layout& layout) {
  const result_column& column = columns[i];
  const size_t width = layout.m_no_padding ? 0 : column.m_width;
  if (kind == cell_text) return put_text_cell(p, text, flags, column.m_width, layout);
  if (is_integer_kind(kind)) return put_number(p, kind, number, flags, width, layout);
  if (kind == cell_time_split || kind == cell_time_joined)
    return put_time_value(p, row, kind, number, i, count, columns, layout);
  // Empty or foreign cell: blank fill keeps the columns aligned.
  if (layout.m_blank_before_time && is_time_kind(column.m_kind)) *p++ = ' ';
  if (width) {
    std::memset(p, ' ', width);
    p += width;
  }
  return p;
}

}  // namespace row_text

using namespace row_text;

char* put_hex(char* p, uint64_t value, int min_digits) {
  static const char k_hex[] = "0123456789abcdef";
  const int n = value ? (67 - __builtin_clzll(value)) >> 2 : 1;
  if (min_digits > 64) min_digits = 64;  // a column width is no reason to print pages of zeros
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  if (value <= 0xFFFFFFFFull && min_digits <= 8) {
    // All eight digits at once: one nibble to a byte, then to ASCII, most significant first;
    // the wanted digits are the last ones, and eight bytes are stored where fewer count.
    uint64_t v = value;
    v = (v | (v << 16)) & 0x0000FFFF0000FFFFull;
    v = (v | (v << 8)) & 0x00FF00FF00FF00FFull;
    v = (v | (v << 4)) & 0x0F0F0F0F0F0F0F0Full;
    const uint64_t letters = ((v + 0x0606060606060606ull) >> 4) & 0x0101010101010101ull;
    v = __builtin_bswap64(v + 0x3030303030303030ull + letters * 0x27);
    const int width = n > min_digits ? n : min_digits;
    v >>= 8 * (8 - width);
    std::memcpy(p, &v, 8);
    return p + width;
  }
#endif
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
  // Two digits a division: timestamps and sizes have ten digits and more.
  static const char k_pairs[] =
      "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
      "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
      "8081828384858687888990919293949596979899";
  char digits[24];
  char* end = digits + sizeof digits;
  char* d = end;
  while (value >= 100) {
    const char* pair = k_pairs + 2 * (value % 100);
    value /= 100;
    *--d = pair[1];
    *--d = pair[0];
  }
  if (value >= 10) {
    *--d = k_pairs[2 * value + 1];
    *--d = k_pairs[2 * value];
  } else {
    *--d = char('0' + value);
  }
  const size_t n = size_t(end - d);
  std::memcpy(p, d, n);
  return p + n;
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

