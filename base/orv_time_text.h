#pragma once
// Dates and clocks as text under -dateformat and -timeformat, and the compact stamp of file names.
#include <cstddef>
#include <cstdint>
#include <string>

#include "base/orv_time.h"

namespace orv {

// Parsed -dateformat / -timeformat. An unparsed state has its first four bytes zero.
struct time_format_state {
  char m_date_separator = 0;
  uint8_t m_date_flags = 0;  // 1 mmm, 2 mm, 4 yyyy, 8 yy, 0x10 comma, 0x20 DMY, 0x40 MDY, 0x80 YMD
  uint8_t m_time_flags = 0;  // bit 0 pair date/time; bits 1..4 fraction digits 0..9
  uint8_t m_spare = 0;
  uint16_t m_base_year = 1900;
  uint8_t m_constant_a = 40;
  uint8_t m_constant_b = 10;
  uint32_t m_last = 0;

  bool parsed() const { return m_date_separator || m_date_flags || m_time_flags || m_spare; }
  unsigned fraction_digits() const { return (m_time_flags >> 1) & 0x0F; }
  bool pair() const { return m_time_flags & 1; }
};

bool parse_time_format(time_format_state& state, const std::string& date_pattern,
                       const std::string& time_pattern, bool pair);
// Both outputs cleared first; an invalid time leaves both empty and returns false.
bool format_date_time(std::string& date_out, std::string& time_out, const time& t,
                      const time_format_state& state);
// Fast path for the row writers: same text as format_date_time for a FILETIME, appended to
// the outputs (which the caller clears). False, and nothing appended, when not displayable.
bool append_filetime_text(std::string& date_out, std::string& time_out, uint64_t filetime,
                          const time_format_state& state);
// Fallback formatter used when the state is unparsed.
bool format_by_pattern(std::string& date_out, std::string& time_out, const time& t,
                       const std::string& date_pattern, const std::string& time_pattern);
// "2020_03_04_0506_07_089" (with time) or "2020_03_04".
void format_compact_stamp(std::wstring& out, uint64_t filetime, bool with_time);
// Column widths of the date and time texts a pattern gives.
size_t date_column_width(const std::string& pattern);
size_t time_column_width(const std::string& pattern);

}  // namespace orv
