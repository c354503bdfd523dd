// orv::time: raw values of several epochs and units brought to FILETIME and broken down in UTC,
// and the readers of start/stop date arguments.
#include "base/orv_time.h"

#include <sys/time.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "base/orv_le.h"
#include "base/orv_string.h"

namespace orv {

namespace {

const uint16_t k_month_start[2][13] = {
    {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334, 365},
    {0, 31, 60, 91, 121, 152, 182, 213, 244, 274, 305, 335, 366},
};

constexpr bool is_leap(int64_t year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }
// Leap years in 1601..year, for year >= 1600.
constexpr int64_t leap_days_through(int64_t year) { return year / 4 - year / 100 + year / 400 - 388; }
constexpr int64_t days_before_year(int64_t year) { return (year - 1601) * 365 + leap_days_through(year - 1); }

constexpr uint64_t k_first_displayable = uint64_t(days_before_year(1900)) * FILETIME_TICKS_PER_DAY;
constexpr uint64_t k_past_displayable = uint64_t(days_before_year(3001)) * FILETIME_TICKS_PER_DAY;

}  // namespace

bool filetime_to_systemtime(uint64_t v, _windows_systemtime& out) {
  if (v >> 63) return false;
  const uint64_t secs = v / FILETIME_TICKS_PER_SECOND;
  const uint64_t fraction = v - secs * FILETIME_TICKS_PER_SECOND;
  const uint32_t days = uint32_t(secs / 86400);  // below 2^24 for any value with the top bit clear
  const uint32_t rest = uint32_t(secs - uint64_t(days) * 86400);

  // Civil date from a day count. Counting from 1600-03-01 puts the leap day at the end of each
  // year and makes 1600 the start of a 400-year cycle of 146097 days; 1601-01-01 is day 306.
  const uint32_t z = days + 306;
  const uint32_t era = z / 146097;
  const uint32_t doe = z - era * 146097;                                     // day of the cycle
  const uint32_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;  // year of the cycle
  const uint32_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);              // day of the March year
  const uint32_t mp = (5 * doy + 2) / 153;                                   // month, March = 0
  const uint32_t month = mp < 10 ? mp + 3 : mp - 9;

  out.m_year = uint16_t(1600 + era * 400 + yoe + (month <= 2 ? 1 : 0));
  out.m_month = uint16_t(month);
  out.m_day = uint16_t(doy - (153 * mp + 2) / 5 + 1);
  out.m_hour = uint16_t(rest / 3600);
  out.m_minute = uint16_t((rest / 60) % 60);
  out.m_second = uint16_t(rest % 60);
  out.m_day_of_week = uint16_t((days + 1) % 7);  // 1601-01-01 was a Monday
  out.m_milliseconds = uint16_t(fraction / 10000);
  out.m_microseconds = fraction / 10;
  out.m_nanoseconds = fraction * 100;
  out.m_picoseconds = fraction * 100000;
  return true;
}

uint64_t systemtime_to_filetime(const _windows_systemtime& st) {
  if (st.m_year < 1601 || st.m_year > 30827 || st.m_month < 1 || st.m_month > 12) return 0;
  const uint16_t* table = k_month_start[is_leap(st.m_year) ? 1 : 0];
  const unsigned month_days = unsigned(table[st.m_month] - table[st.m_month - 1]);
  if (st.m_day < 1 || st.m_day > month_days || st.m_hour > 23 || st.m_minute > 59 || st.m_second > 59 ||
      st.m_milliseconds > 999)
    return 0;
  uint64_t days = uint64_t(days_before_year(st.m_year)) + table[st.m_month - 1] + (st.m_day - 1u);
  uint64_t seconds = days * 86400 + st.m_hour * 3600u + st.m_minute * 60u + st.m_second;
  return seconds * FILETIME_TICKS_PER_SECOND + st.m_milliseconds * 10000ull;
}

bool filetime_displayable(uint64_t v) {
  if (v < k_first_displayable || v >= k_past_displayable) return false;
  return !(v >= FILETIME_UNIX_EPOCH && v - FILETIME_UNIX_EPOCH < FILETIME_TICKS_PER_SECOND);
}

uint64_t current_filetime() {
  struct timeval tv;
  ::gettimeofday(&tv, nullptr);
  return uint64_t(tv.tv_sec) * FILETIME_TICKS_PER_SECOND + uint64_t(tv.tv_usec) * 10 + FILETIME_UNIX_EPOCH;
}

// ---- orv::time -----------------------------------------------------------------------------

void time::clear() {
  m_unix_seconds = 0;
  m_filetime = 0;
  m_filetime_copy = 0;
  m_dos_date = 0;
  m_dos_time = 0;
  m_local_tm = std::tm{};
  m_utc = _windows_systemtime{};
  m_valid = 0;
  m_tm_failed = 0;
}

// The common end of every conversion.
static bool set_from_filetime(time& t, uint64_t v) {
  t.m_filetime = v;
  t.m_valid = 0;
  if (v == 0 || (v >> 63)) return false;
  t.m_unix_seconds = (v - FILETIME_UNIX_EPOCH) / FILETIME_TICKS_PER_SECOND;  // wraps before 1970
  if (t.m_unix_seconds == 0) return false;  // the first second of 1970 stands for "no time"

  filetime_to_systemtime(v, t.m_utc);
  t.m_filetime_copy = v;
  const _windows_systemtime& u = t.m_utc;
  if (u.m_year >= 1980 && u.m_year <= 2037) {
    t.m_dos_date = uint16_t(((u.m_year - 1980) << 9) | (u.m_month << 5) | u.m_day);
    t.m_dos_time = uint16_t((u.m_hour << 11) | (u.m_minute << 5) | ((u.m_second / 2 + u.m_second % 2) & 0x1F));
  }

  // The calendar record is only a by-product: results show UTC, and validity is judged on UTC.
  if (u.m_year < 3001) {
    std::tm& tm = t.m_local_tm;
    tm.tm_year = u.m_year - 1900;
    tm.tm_mon = u.m_month - 1;
    tm.tm_mday = u.m_day;
    tm.tm_hour = u.m_hour;
    tm.tm_min = u.m_minute;
    tm.tm_sec = u.m_second;
    tm.tm_wday = u.m_day_of_week;
    tm.tm_yday = k_month_start[is_leap(u.m_year) ? 1 : 0][u.m_month - 1] + u.m_day - 1;
    tm.tm_isdst = 0;
  }
  t.m_valid = (u.m_year > 1899 && u.m_year < 3001) ? 1 : 0;
  return t.m_valid != 0;
}

bool time::set_time(uint64_t raw, type_time tag) {
  clear();
  uint64_t v = 0;
  switch (tag) {
    case type_filetime: v = raw; break;
    case type_filetime_us: v = raw * 10; break;
    case type_unix_us:
      v = (raw % 1000000) * 10 + (raw / 1000000) * FILETIME_TICKS_PER_SECOND + FILETIME_UNIX_EPOCH;
      break;
    case type_unix_sec:
      if (raw < 1) return false;
      v = raw * FILETIME_TICKS_PER_SECOND + FILETIME_UNIX_EPOCH;
      break;
    case type_unix_ms:
      if (raw < 1000) return false;
      v = (raw / 1000) * FILETIME_TICKS_PER_SECOND + FILETIME_UNIX_EPOCH + (raw % 1000) * 10000;
      break;
    case type_ole_days: {
      double days;
      std::memcpy(&days, &raw, sizeof days);  // the raw value is the double's bit pattern
      return set_time_days(days, tag);
    }
    case type_unix32_2000: v = (raw & 0xFFFFFFFFull) * FILETIME_TICKS_PER_SECOND + 125912196000000000ull; break;
    case type_ticks_0001: v = raw - 504911232000000000ull; break;
    case type_flake_2015: v = (raw >> 22) * 10000 + 130645440000000000ull; break;
    case type_mac_2001:
      if (raw > 0xFFFFFFFFull)  // nanoseconds; the remainder is taken mod 10^7 as the format has it
        v = (raw / 1000000000 + 12622780800ull) * FILETIME_TICKS_PER_SECOND + raw % 10000000;
      else
        v = (raw + 12622780800ull) * FILETIME_TICKS_PER_SECOND;
      break;
    case type_hfs_1904: v = (raw + 9561628800ull) * FILETIME_TICKS_PER_SECOND; break;
    default: return false;
  }
  return set_from_filetime(*this, v);
}

bool time::set_time_days(double days, type_time tag) {
  clear();
  if (tag != type_ole_days) return false;
  double ticks = (days * 86400.0 + 9435312000.0) * 1e7;
  // Outside 0..2^63 the value cannot be a FILETIME; NaN fails both tests.
  if (!(ticks >= 0.0 && ticks < 9.2e18)) return false;
  return set_from_filetime(*this, uint64_t(ticks));
}

bool time::set_time_at(const uint8_t* bytes, size_t offset, type_time tag) {
  clear();
  if (!bytes) return false;
  const uint8_t* p = bytes + offset;
  if (tag == type_unix32_2000) return set_time(le32(p), tag);  // a 32-bit field
  return set_time(le64(p), tag);
}

// ---- start/stop arguments ------------------------------------------------------------------

namespace {

// Whole text as a decimal number of at most 9 digits, blanks around allowed.
bool read_field(const std::string& text, uint32_t& out) {
  std::string t = trim(text, " \t");
  if (t.empty() || t.size() > 9) return false;
  uint32_t v = 0;
  for (char c : t) {
    if (c < '0' || c > '9') return false;
    v = v * 10 + uint32_t(c - '0');
  }
  out = v;
  return true;
}

bool fits16(uint32_t v) { return v <= 0xFFFF; }

// "hh:mm:ss[.fff]"; empty means midnight.
bool read_clock(const std::string& text, _windows_systemtime& out) {
  out.m_hour = out.m_minute = out.m_second = out.m_milliseconds = 0;
  if (trim(text, " \t").empty()) return true;
  std::vector<std::string> parts = split(text, ":", true);
  if (parts.size() != 3) return false;
  uint32_t h = 0, m = 0, s = 0;
  std::string seconds = parts[2], fraction;
  size_t dot = seconds.find('.');
  if (dot != std::string::npos) {
    fraction = seconds.substr(dot + 1);
    seconds.erase(dot);
  }
  if (!read_field(parts[0], h) || !read_field(parts[1], m) || !read_field(seconds, s)) return false;
  if (!fits16(h) || !fits16(m) || !fits16(s)) return false;
  uint32_t ms = 0;
  if (!fraction.empty()) {
    for (char c : fraction)
      if (c < '0' || c > '9') return false;
    double f = std::strtod(("0." + fraction).c_str(), nullptr);
    // A fraction that rounds to a whole second (".9999") stays in its second.
    ms = std::min(uint32_t(f * 1000.0 + 0.5), 999u);
  }
  out.m_hour = uint16_t(h);
  out.m_minute = uint16_t(m);
  out.m_second = uint16_t(s);
  out.m_milliseconds = uint16_t(ms);
  return true;
}

}  // namespace

bool parse_date_time_order(const std::string& date, const std::string& time, const std::string& order,
                           _windows_systemtime& out) {
  std::string word = lowered(trim(order));
  size_t year_at = word.find('y'), month_at = word.find('m'), day_at = word.find('d');
  if (word.size() != 3 || year_at == std::string::npos || month_at == std::string::npos || day_at == std::string::npos)
    return false;
  std::vector<std::string> parts = split(trim(date), "/-", true);
  if (parts.size() != 3) return false;
  uint32_t year, month, day;
  if (!read_field(parts[year_at], year) || !read_field(parts[month_at], month) || !read_field(parts[day_at], day))
    return false;
  if (!fits16(year) || !fits16(month) || !fits16(day)) return false;
  _windows_systemtime st = out;
  st.m_year = uint16_t(year);
  st.m_month = uint16_t(month);
  st.m_day = uint16_t(day);
  if (!read_clock(time, st)) return false;
  out = st;
  return true;
}

bool parse_date_time(const std::string& date, const std::string& time, _windows_systemtime& out) {
  return parse_date_time_order(date, time, "MDY", out);
}

}  // namespace orv
