// Date and time text under the -dateformat / -timeformat patterns. The parsed state drives the
// cell formatter used for every row; format_by_pattern is the slower fallback for an unparsed one.
#include "base/orv_time_text.h"

#include <cstring>

#include "base/orv_string.h"
#include "base/orv_time.h"

namespace orv {

namespace {

const char k_month_names[12][4] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                   "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

const char* month_name(unsigned month) { return (month >= 1 && month <= 12) ? k_month_names[month - 1] : "???"; }

// Decimal, zero-filled to `width`; a longer number is written in full.
inline char* put_number(char* p, uint64_t v, unsigned width) {
  if (width <= 10 && v < 4000000000u) {
    // The usual case: the number fits its width; fill from the right in 32-bit arithmetic.
    uint32_t w = uint32_t(v);
    uint32_t limit = 1;
    for (unsigned i = 0; i < width; ++i) limit *= 10;
    if (width == 10 || w < limit) {
      for (unsigned i = width; i-- > 0;) {
        p[i] = char('0' + w % 10);
        w /= 10;
      }
      return p + width;
    }
  }
  char digits[20];
  unsigned n = 0;
  do {
    digits[n++] = char('0' + v % 10);
    v /= 10;
  } while (v);
  while (width > n) {
    *p++ = '0';
    --width;
  }
  while (n) *p++ = digits[--n];
  return p;
}

inline char* put2(char* p, unsigned v) {
  if (v > 99) return put_number(p, v, 2);
  p[0] = char('0' + v / 10);
  p[1] = char('0' + v % 10);
  return p + 2;
}

// A year is four digits in every displayable case, even under a two-digit pattern.
inline char* put_year(char* p, unsigned year, unsigned width) {
  return put_number(p, year, (year > 999 && year < 10000) ? 4 : width);
}

inline char* put_month_name(char* p, unsigned month) {
  std::memcpy(p, month_name(month), 3);
  return p + 3;
}

// The fraction, truncated (never rounded) to n digits.
char* put_fraction(char* p, const _windows_systemtime& u, unsigned n) {
  *p++ = '.';
  switch (n) {
    case 1: return put_number(p, u.m_milliseconds / 100u, 1);
    case 2: return put_number(p, u.m_milliseconds / 10u, 2);
    case 3: return put_number(p, u.m_milliseconds, 3);
    case 4: return put_number(p, u.m_microseconds / 100, 4);
    case 5: return put_number(p, u.m_microseconds / 10, 5);
    case 6: return put_number(p, u.m_microseconds, 6);
    case 7: return put_number(p, u.m_nanoseconds / 100, 7);
    case 8: return put_number(p, u.m_nanoseconds / 10, 8);
    default: return put_number(p, u.m_nanoseconds, 9);
  }
}

void append_date(std::string& out, const _windows_systemtime& u, const time_format_state& s) {
  const uint8_t f = s.m_date_flags;
  const bool by_name = f & 0x01;
  const unsigned year_width = (f & 0x04) ? 4 : 2;  // the full year goes out either way
  const char sep = s.m_date_separator;
  char buf[64];
  char* p = buf;
  if (f & 0x40) {  // month day year
    p = by_name ? put_month_name(p, u.m_month) : put2(p, u.m_month);
    *p++ = sep;
    p = put2(p, u.m_day);
    *p++ = sep;
    p = put_year(p, u.m_year, year_width);
  } else if (f & 0x20) {  // day month year
    p = put2(p, u.m_day);
    *p++ = sep;
    p = by_name ? put_month_name(p, u.m_month) : put2(p, u.m_month);
    *p++ = sep;
    p = put_year(p, u.m_year, year_width);
  } else if ((f & 0x80) && !by_name) {  // year month day; with a month name the date stays empty
    p = put_year(p, u.m_year, year_width);
    *p++ = sep;
    p = put2(p, u.m_month);
    *p++ = sep;
    p = put2(p, u.m_day);
  }
  out.append(buf, size_t(p - buf));
}

void append_clock(std::string& out, const _windows_systemtime& u, unsigned fraction_digits) {
  char buf[64];
  char* p = put2(buf, u.m_hour);
  *p++ = ':';
  p = put2(p, u.m_minute);
  *p++ = ':';
  p = put2(p, u.m_second);
  if (fraction_digits) p = put_fraction(p, u, fraction_digits);
  out.append(buf, size_t(p - buf));
}

const time_format_state& default_state() {
  static const time_format_state state = [] {
    time_format_state s;
    parse_time_format(s, "yyyy-mm-dd", "hh:mm:ss.xxx", false);
    return s;
  }();
  return state;
}

char pattern_separator(const std::string& pattern) {
  if (pattern.find('/') != std::string::npos) return '/';
  if (pattern.find('-') != std::string::npos) return '-';
  if (pattern.find(' ') != std::string::npos) return ' ';
  return '/';
}

// Digits asked for by "xxx...": from the first "xxx" to the last "x", at most 9.
unsigned pattern_fraction_digits(const std::string& pattern) {
  size_t first = pattern.find("xxx");
  if (first == std::string::npos) return 0;
  size_t count = pattern.rfind('x') - first + 1;
  return count > 9 ? 9u : unsigned(count);
}

}  // namespace

bool parse_time_format(time_format_state& state, const std::string& date_pattern, const std::string& time_pattern,
                       bool pair) {
  state = time_format_state();
  if (pair) state.m_time_flags |= 1;
  if (date_pattern.empty()) return false;
  const std::string d = lowered(date_pattern);
  state.m_date_separator = pattern_separator(d);

  if (d.find("mmm") != std::string::npos)
    state.m_date_flags |= 0x01;
  else if (d.find("mm") != std::string::npos)
    state.m_date_flags |= 0x02;
  else
    return false;
  if (d.find("yyyy") != std::string::npos)
    state.m_date_flags |= 0x04;
  else if (d.find("yy") != std::string::npos)
    state.m_date_flags |= 0x08;
  else
    return false;
  if (d.find(',') != std::string::npos) state.m_date_flags |= 0x10;
  const size_t day = d.find("dd");
  if (day == std::string::npos) return false;

  const size_t month = d.find("mm"), year = d.find("yy");
  if (month > day && month < year)
    state.m_date_flags |= 0x20;
  else if (month < day && day < year)
    state.m_date_flags |= 0x40;
  else if (year < month && month < day)
    state.m_date_flags |= 0x80;

  if (time_pattern.empty()) return true;
  state.m_time_flags |= uint8_t(pattern_fraction_digits(lowered(time_pattern)) << 1);
  return true;
}

bool format_date_time(std::string& date_out, std::string& time_out, const time& t, const time_format_state& state) {
  date_out.clear();
  time_out.clear();
  if (!t.m_valid) return false;
  if (!state.parsed()) return format_by_pattern(date_out, time_out, t, "yyyy-mm-dd", "hh:mm:ss.xxx");
  append_date(date_out, t.m_utc, state);
  append_clock(time_out, t.m_utc, state.fraction_digits());
  return true;
}

bool append_filetime_text(std::string& date_out, std::string& time_out, uint64_t filetime,
                          const time_format_state& state) {
  if (!filetime_displayable(filetime)) return false;
  _windows_systemtime u;
  filetime_to_systemtime(filetime, u);
  // The fallback's text for the default patterns equals that of the parsed defaults.
  const time_format_state& s = state.parsed() ? state : default_state();
  append_date(date_out, u, s);
  append_clock(time_out, u, s.fraction_digits());
  return true;
}

bool format_by_pattern(std::string& date_out, std::string& time_out, const time& t, const std::string& date_pattern,
                       const std::string& time_pattern) {
  date_out.clear();
  time_out.clear();
  if (!t.m_valid) return false;
  const _windows_systemtime& u = t.m_utc;
  char buf[96];
  const std::string dp = lowered(date_pattern), tp = lowered(time_pattern);

  if (!dp.empty()) {
    const size_t year = dp.find("yy"), month = dp.find("mm"), day = dp.find("dd");
    char* p = buf;
    if (year == std::string::npos || month == std::string::npos || day == std::string::npos) {
      p = put2(p, u.m_month);
      *p++ = '/';
      p = put2(p, u.m_day);
      *p++ = '/';
      p = put_number(p, u.m_year, 4);
      date_out.append(buf, size_t(p - buf));
    } else {
      const char sep = pattern_separator(dp);
      std::string year_text = std::to_string(u.m_year);
      if (dp.find("yyyy") == std::string::npos) year_text.erase(0, 2);  // "yy": 2023 prints as 23
      char two[8];
      std::string month_text = dp.find("mmm") != std::string::npos
                                   ? std::string(month_name(u.m_month))
                                   : std::string(two, size_t(put2(two, u.m_month) - two));
      std::string day_text(two, size_t(put2(two, u.m_day) - two));

      // The three fields in the order they stand in the pattern.
      struct field { size_t at; const std::string* text; bool month_or_day; };
      field fields[3] = {{year, &year_text, false}, {month, &month_text, true}, {day, &day_text, true}};
      for (int i = 0; i < 2; ++i)
        for (int j = 0; j < 2 - i; ++j)
          if (fields[j + 1].at < fields[j].at) std::swap(fields[j], fields[j + 1]);
      // With blanks between the fields, "mmm dd, yyyy" puts its comma behind the month-day pair.
      int comma_after = -1;
      if (sep == ' ' && dp.find(',', day) != std::string::npos)
        for (int i = 0; i < 3; ++i)
          if (fields[i].month_or_day) comma_after = i;
      for (int i = 0; i < 3; ++i) {
        if (i) date_out.push_back(sep);
        date_out += *fields[i].text;
        if (i == comma_after) date_out.push_back(',');
      }
    }
  }

  char* p = buf;
  const bool clock = tp.find("hh:mm") != std::string::npos;
  if (clock) {
    p = put2(p, u.m_hour);
    *p++ = ':';
    p = put2(p, u.m_minute);
  }
  if (tp.find("ss") != std::string::npos) {
    if (p != buf) *p++ = ':';
    p = put2(p, u.m_second);
  }
  if (unsigned n = pattern_fraction_digits(tp)) p = put_fraction(p, u, n);
  time_out.append(buf, size_t(p - buf));
  return true;
}

void format_compact_stamp(std::wstring& out, uint64_t filetime, bool with_time) {
  _windows_systemtime u;
  if (!filetime_to_systemtime(filetime, u)) return;
  char buf[64];
  char* p = put_number(buf, u.m_year, 4);
  *p++ = '_';
  p = put2(p, u.m_month);
  *p++ = '_';
  p = put2(p, u.m_day);
  if (with_time) {
    *p++ = '_';
    p = put2(p, u.m_hour);
    p = put2(p, u.m_minute);
    *p++ = '_';
    p = put2(p, u.m_second);
    *p++ = '_';
    p = put_number(p, u.m_milliseconds, 3);
  }
  for (char* c = buf; c < p; ++c) out.push_back(wchar_t(*c));
}

size_t date_column_width(const std::string& pattern) {
  return (pattern.size() == 8 || pattern.size() == 10) ? pattern.size() : 0;
}

size_t time_column_width(const std::string& pattern) {
  if (pattern.size() == 8) return 8;
  if (pattern.size() >= 12 && pattern.size() <= 18 && pattern.find(".xxx") != std::string::npos)
    return pattern.size();
  return 0;
}

}  // namespace orv
