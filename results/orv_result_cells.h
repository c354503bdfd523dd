#pragma once
// Writers of cell text for the row renderer. Each writes at `p`, which has room for what it
// writes (and, where told, for a few bytes more), and returns the end of what it wrote.
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

#include "results/result_row.h"

namespace row_text {

inline uint64_t load8(const char* p) {
  uint64_t v;
  std::memcpy(&v, p, 8);
  return v;
}

inline char* put_bytes(char* p, const char* text, size_t size) {
  std::memcpy(p, text, size);
  return p + size;
}

// Characters, not bytes: padding is counted on the text as the reader sees it.
size_t utf8_length(const char* begin, size_t bytes);
// Blanks behind the text from `start` to `p` up to `width` characters.
char* pad_to(char* start, char* p, size_t width);
// Replaces the separator character and, when asked, spells out line breaks; at most four bytes
// per byte of text.
char* put_clean(char* p, const char* data, size_t size, char replace, char with, bool tokens);

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

// Copies bytes where both sides have sixteen bytes of room past the end: a short copy goes in
// sixteen-byte pieces without a library call.
inline char* put_run(char* p, const char* from, size_t size) {
  if (size > 64) return put_bytes(p, from, size);
  for (size_t i = 0; i < size; i += 16) std::memcpy(p + i, from + i, 16);
  return p + size;
}

// Room for `need` more bytes behind the first `used` of the buffer; the buffer's size is its room.
inline char* room(std::vector<char>& buffer, size_t used, size_t need) {
  if (buffer.size() < used + need) {
    size_t grown = buffer.size() * 2;
    if (grown < used + need + 256) grown = used + need + 256;
    buffer.resize(grown);
  }
  return buffer.data() + used;
}

// An integer cell of `kind`; `width` is 0 when the layout is not padded. put_hex's eight bytes apply.
char* put_number(char* p, uint16_t kind, uint64_t number, uint32_t flags, size_t width, const result_layout& layout);
// A time cell of kind 12 or 13 in column `i` of `count`; a split one also renders the column
// behind it when there is one, with the separator between.
char* put_time_value(char* p, result_row& row, uint16_t kind, uint64_t filetime, size_t i, size_t count,
                     const std::vector<result_column>& columns, const result_layout& layout);

// A cell of column `i` of `count` without the separator in front; a split time cell also renders
// the column behind it. `flags` holds the cell's and the column's flags. Time cells use the
// row's dates kept by day.
char* put_value(char* p, result_row& row, uint16_t kind, uint32_t flags, std::string_view text, uint64_t number,
                size_t i, size_t count, const std::vector<result_column>& columns, const result_layout& layout);

}  // namespace row_text
