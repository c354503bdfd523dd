#include "base/orv_time.h"
#include "base/orv_time_text.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <random>

using namespace orv;

namespace {

constexpr uint64_t k_epoch = FILETIME_UNIX_EPOCH;
constexpr uint64_t k_second = FILETIME_TICKS_PER_SECOND;

// FILETIME of a UTC instant through the C library, an independent route.
uint64_t ft(int y, int mo, int d, int h = 0, int mi = 0, int s = 0, uint64_t ticks = 0) {
  std::tm tm{};
  tm.tm_year = y - 1900;
  tm.tm_mon = mo - 1;
  tm.tm_mday = d;
  tm.tm_hour = h;
  tm.tm_min = mi;
  tm.tm_sec = s;
  int64_t secs = int64_t(timegm(&tm));
  return uint64_t(secs * int64_t(k_second) + int64_t(k_epoch)) + ticks;
}

struct texts {
  std::string date, time;
};

texts render(uint64_t filetime, const std::string& date_pattern, const std::string& time_pattern) {
  time_format_state s;
  parse_time_format(s, date_pattern, time_pattern, false);
  texts out;
  format_date_time(out.date, out.time, orv::time(filetime, type_filetime), s);
  return out;
}

}  // namespace

TEST(Time, ConversionTable) {
  const uint64_t t2020 = ft(2020, 3, 4, 5, 6, 7);
  const uint64_t unix2020 = (t2020 - k_epoch) / k_second;
  struct row {
    uint64_t raw;
    type_time tag;
    uint64_t expect;
  } rows[] = {
      {t2020, type_filetime, t2020},
      {t2020 / 10, type_filetime_us, t2020},
      {unix2020 * 1000000 + 123456, type_unix_us, t2020 + 1234560},
      {unix2020, type_unix_sec, t2020},
      {unix2020 * 1000 + 89, type_unix_ms, t2020 + 890000},
      {(t2020 - 125912196000000000ull) / k_second, type_unix32_2000, t2020},
      {t2020 + 504911232000000000ull, type_ticks_0001, t2020},
      {((t2020 - 130645440000000000ull) / 10000) << 22 | 0x3FFFFF, type_flake_2015, t2020},
      {(t2020 / k_second) - 12622780800ull, type_mac_2001, t2020},
      {(t2020 / k_second) - 9561628800ull, type_hfs_1904, t2020},
  };
  for (const row& r : rows) {
    orv::time t(r.raw, r.tag);
    EXPECT_EQ(t.m_filetime, r.expect) << "tag " << r.tag;
    EXPECT_TRUE(t.m_valid) << "tag " << r.tag;
  }
  // Nanosecond form of the 2001 epoch keeps the remainder mod 10^7, as the format has it.
  const uint64_t mac_secs = (t2020 / k_second) - 12622780800ull;
  orv::time mac(mac_secs * 1000000000ull + 123456789, type_mac_2001);
  EXPECT_EQ(mac.m_filetime, t2020 + 3456789);

  double days = double(t2020 - ft(1899, 12, 30)) / double(FILETIME_TICKS_PER_DAY);
  orv::time ole;
  EXPECT_TRUE(ole.set_time_days(days, type_ole_days));
  EXPECT_NEAR(double(ole.m_filetime), double(t2020), 1e4);
  EXPECT_FALSE(ole.set_time_days(std::nan(""), type_ole_days));
  EXPECT_FALSE(ole.set_time_days(-1e300, type_ole_days));
  uint64_t bits;
  std::memcpy(&bits, &days, 8);
  EXPECT_TRUE(orv::time(bits, type_ole_days).m_valid);

  EXPECT_FALSE(orv::time(0, type_unix_sec).m_valid);
  EXPECT_FALSE(orv::time(999, type_unix_ms).m_valid);
  orv::time unknown(t2020, type_time(3));
  EXPECT_FALSE(unknown.m_valid);
  EXPECT_EQ(unknown.m_filetime, 0u);

  uint8_t buf[12] = {};
  std::memcpy(buf + 4, &t2020, 8);  // little-endian host
  orv::time at;
  EXPECT_TRUE(at.set_time_at(buf, 4, type_filetime));
  EXPECT_EQ(at.m_filetime, t2020);
}

TEST(Time, ValidityRule) {
  // Shown: 1900 through 3000, except the first second of 1970; before 1970 the Unix seconds wrap but
  // the time shows.
  const std::pair<uint64_t, bool> rule[] = {
      {0, false},         {k_epoch, false},          {k_epoch + k_second - 1, false}, {k_epoch + k_second, true},
      {k_epoch - 1, true}, {ft(3000, 12, 31, 23, 59, 59, 9999999), true}, {ft(3001, 1, 1), false},
      {ft(1900, 1, 1), true}, {ft(1900, 1, 1) - 1, false}, {uint64_t(1) << 63, false}, {~uint64_t(0), false},
      {0x7FFFFFFFFFFFFFFFull, false},
  };
  std::vector<uint64_t> probes;
  for (const auto& r : rule) {
    EXPECT_EQ(bool(orv::time(r.first, type_filetime).m_valid), r.second) << r.first;
    probes.push_back(r.first);
  }
  EXPECT_GT(orv::time(k_epoch - 1, type_filetime).m_unix_seconds, uint64_t(1) << 40);

  // The fast test agrees with the object on boundaries and at random.
  std::mt19937_64 rng(7);
  for (int i = 0; i < 20000; ++i) probes.push_back(rng() >> (rng() % 8));
  for (uint64_t v : probes) EXPECT_EQ(filetime_displayable(v), bool(orv::time(v, type_filetime).m_valid)) << v;
}

TEST(Time, BreakdownMatchesCalendar) {
  std::mt19937_64 rng(11);
  const uint64_t top = ft(9999, 12, 31, 23, 59, 59);
  for (int i = 0; i < 50000; ++i) {
    uint64_t v = (i % 2) ? rng() % top : rng() >> 1;  // calendar years, and the whole positive range
    if (i < 4) v = (uint64_t[]){0, top, ft(2000, 2, 29, 23, 59, 59), ft(1900, 2, 28, 23, 59, 59) + k_second}[i];
    _windows_systemtime st;
    ASSERT_TRUE(filetime_to_systemtime(v, st));
    time_t secs = time_t(int64_t(v / k_second) - int64_t(k_epoch / k_second));
    std::tm tm;
    ASSERT_TRUE(gmtime_r(&secs, &tm));
    ASSERT_EQ((std::array<int, 7>{st.m_year, st.m_month, st.m_day, st.m_hour, st.m_minute, st.m_second,
                                   st.m_day_of_week}),
              (std::array<int, 7>{tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec,
                                   tm.tm_wday}))
        << v;
    if (st.m_year <= 30827) {
      ASSERT_EQ(systemtime_to_filetime(st), v - v % k_second + st.m_milliseconds * 10000ull);
    }
  }
  _windows_systemtime st;
  EXPECT_TRUE(filetime_to_systemtime(0x7FFFFFFFFFFFFFFFull, st));  // far future: no crash
  EXPECT_EQ(st.m_year, 30828);
  EXPECT_FALSE(filetime_to_systemtime(uint64_t(1) << 63, st));

  ASSERT_TRUE(filetime_to_systemtime(ft(2021, 6, 7, 8, 9, 10, 1234567), st));
  EXPECT_EQ(st.m_milliseconds, 123);
  EXPECT_EQ(st.m_microseconds, 123456u);
  EXPECT_EQ(st.m_nanoseconds, 123456700u);
  EXPECT_EQ(st.m_picoseconds, 123456700000u);

  _windows_systemtime bad{};
  bad.m_year = 2021;
  bad.m_month = 2;
  bad.m_day = 29;
  EXPECT_EQ(systemtime_to_filetime(bad), 0u);
  bad.m_year = 2020;
  EXPECT_EQ(systemtime_to_filetime(bad), ft(2020, 2, 29));
  bad.m_month = 13;
  EXPECT_EQ(systemtime_to_filetime(bad), 0u);
}

TEST(Time, DosForm) {
  orv::time t(ft(1980, 1, 1, 0, 0, 1), type_filetime);
  EXPECT_EQ(t.m_dos_date, (1 << 5) | 1);
  EXPECT_EQ(t.m_dos_time, 1);  // odd seconds round up
  orv::time u(ft(2037, 12, 31, 23, 59, 58), type_filetime);
  EXPECT_EQ(u.m_dos_date, (57 << 9) | (12 << 5) | 31);
  EXPECT_EQ(u.m_dos_time, (23 << 11) | (59 << 5) | 29);
  EXPECT_EQ(orv::time(ft(1979, 12, 31), type_filetime).m_dos_date, 0);
  EXPECT_EQ(orv::time(ft(2038, 1, 1), type_filetime).m_dos_date, 0);
}

TEST(TimeText, ParsePatterns) {
  time_format_state s;
  EXPECT_FALSE(s.parsed());
  EXPECT_TRUE(parse_time_format(s, "yyyy-mm-dd", "hh:mm:ss.xxx", false));
  EXPECT_EQ(s.m_date_separator, '-');
  EXPECT_EQ(s.fraction_digits(), 3u);
  EXPECT_FALSE(s.pair());

  parse_time_format(s, "mmm dd, yyyy", "hh:mm:ss.xxxxxxxxxxxx", true);
  EXPECT_EQ(s.m_date_separator, ' ');
  EXPECT_EQ(s.fraction_digits(), 9u);
  EXPECT_TRUE(s.pair());

  parse_time_format(s, "dd.mm.yy", "hh:mm:ss", false);
  EXPECT_EQ(s.m_date_separator, '/');  // '.' is no separator: '/' stands in
  EXPECT_EQ(s.fraction_digits(), 0u);

  EXPECT_FALSE(parse_time_format(s, "yyyy-mm", "hh:mm:ss.xxx", false));  // no day: parse ends
  EXPECT_TRUE(s.parsed());
  EXPECT_EQ(s.fraction_digits(), 0u);
  EXPECT_FALSE(parse_time_format(s, "", "hh:mm:ss.xxx", false));
  EXPECT_FALSE(s.parsed());

  EXPECT_EQ(date_column_width("yyyy-mm-dd"), 10u);
  EXPECT_EQ(date_column_width("mm/dd/yy"), 8u);
  EXPECT_EQ(date_column_width("m/d/yy"), 0u);
  EXPECT_EQ(time_column_width("hh:mm:ss"), 8u);
  EXPECT_EQ(time_column_width("hh:mm:ss.xxx"), 12u);
  EXPECT_EQ(time_column_width("hh:mm:ss.xxxxxxxxx"), 18u);
  EXPECT_EQ(time_column_width("hh:mm:ss:xxx"), 0u);
  EXPECT_EQ(time_column_width("hh:mm:ss.x"), 0u);
}

TEST(TimeText, FormatByState) {
  const uint64_t v = ft(2023, 1, 5, 6, 7, 8, 1234567);
  texts t = render(v, "yyyy-mm-dd", "hh:mm:ss.xxx");
  EXPECT_EQ(t.date, "2023-01-05");
  EXPECT_EQ(t.time, "06:07:08.123");
  EXPECT_EQ(render(v, "mm/dd/yy", "hh:mm:ss").date, "01/05/2023");  // full year even for "yy"
  EXPECT_EQ(render(v, "mm/dd/yy", "hh:mm:ss").time, "06:07:08");
  EXPECT_EQ(render(v, "dd-mmm-yyyy", "").date, "05-Jan-2023");
  EXPECT_EQ(render(v, "dd/mm/yyyy", "").date, "05/01/2023");
  EXPECT_EQ(render(v, "mmm dd, yyyy", "").date, "Jan 05 2023");  // the comma is not kept
  EXPECT_EQ(render(v, "dd.mm.yy", "").date, "05/01/2023");
  EXPECT_EQ(render(v, "yyyy/mmm/dd", "").date, "");  // year-month-day with a name: empty by rule
  EXPECT_EQ(render(v, "yyyy/dd/mm", "").date, "");    // no order flag

  const char* fractions[] = {"", "", "", "123", "1234", "12345", "123456", "1234567", "12345670", "123456700"};
  for (int n = 3; n <= 9; ++n)
    EXPECT_EQ(render(v, "yyyy-mm-dd", "hh:mm:ss." + std::string(size_t(n), 'x')).time,
              std::string("06:07:08.") + fractions[n]);
  // Truncated, not rounded.
  EXPECT_EQ(render(ft(2023, 1, 5, 6, 7, 8, 9999999), "yyyy-mm-dd", "hh:mm:ss.xxxx").time, "06:07:08.9999");

  texts invalid{"x", "y"};
  time_format_state s;
  parse_time_format(s, "yyyy-mm-dd", "hh:mm:ss.xxx", false);
  EXPECT_FALSE(format_date_time(invalid.date, invalid.time, orv::time(0, type_filetime), s));
  EXPECT_EQ(invalid.date, "");
  EXPECT_EQ(invalid.time, "");

  // An unparsed state falls back to the default patterns.
  texts fallback;
  EXPECT_TRUE(format_date_time(fallback.date, fallback.time, orv::time(v, type_filetime), time_format_state()));
  EXPECT_EQ(fallback.date, "2023-01-05");
  EXPECT_EQ(fallback.time, "06:07:08.123");
}

TEST(TimeText, PatternFallbackQuirks) {
  orv::time t(ft(2023, 1, 5, 6, 7, 8, 1234567), type_filetime);
  std::string d, tm;
  EXPECT_TRUE(format_by_pattern(d, tm, t, "mm/dd/yy", "hh:mm"));
  EXPECT_EQ(d, "01/05/23");
  EXPECT_EQ(tm, "06:07");
  format_by_pattern(d, tm, t, "mmm dd, yyyy", "hh:mm:ss.xxxxx");
  EXPECT_EQ(d, "Jan 05, 2023");
  EXPECT_EQ(tm, "06:07:08.12345");
  format_by_pattern(d, tm, t, "yyyy/mmm/dd", "ss");
  EXPECT_EQ(d, "2023/Jan/05");
  EXPECT_EQ(tm, "08");
  format_by_pattern(d, tm, t, "dd-yyyy", "");
  EXPECT_EQ(d, "01/05/2023");  // a field is missing: month/day/year regardless
  EXPECT_EQ(tm, "");
  EXPECT_FALSE(format_by_pattern(d, tm, orv::time(), "yyyy-mm-dd", "hh:mm:ss"));
  EXPECT_EQ(d, "");
}

TEST(TimeText, FastPathEqualsFormatter) {
  std::vector<std::pair<std::string, std::string>> patterns = {
      {"yyyy-mm-dd", "hh:mm:ss.xxx"}, {"mm/dd/yy", "hh:mm:ss"},        {"dd/mmm/yyyy", "hh:mm:ss.xxxxxxxxx"},
      {"mmm dd, yyyy", "hh:mm:ss.xxxx"}, {"yyyy/mmm/dd", "hh:mm:ss.xxxxxxx"}, {"dd.mm.yyyy", "hh:mm:ss.xxxxxx"},
      {"yyyy-mm", "hh:mm:ss.xxx"}};
  std::vector<time_format_state> states(1);  // the first stays unparsed
  for (auto& p : patterns) {
    time_format_state s;
    parse_time_format(s, p.first, p.second, false);
    states.push_back(s);
  }
  std::mt19937_64 rng(3);
  for (int i = 0; i < 20000; ++i) {
    uint64_t v = rng() >> (rng() % 6);
    if (i % 3 == 0) v = ft(1900, 1, 1) + rng() % (ft(3001, 1, 1) - ft(1900, 1, 1));
    const time_format_state& s = states[size_t(i) % states.size()];
    std::string d1, t1, d2 = "p:", t2 = "q:";
    bool ok1 = format_date_time(d1, t1, orv::time(v, type_filetime), s);
    bool ok2 = append_filetime_text(d2, t2, v, s);
    ASSERT_EQ(ok1, ok2) << v;
    ASSERT_EQ("p:" + d1, d2) << v;
    ASSERT_EQ("q:" + t1, t2) << v;
  }
}

TEST(TimeText, CompactStamp) {
  std::wstring out;
  format_compact_stamp(out, ft(2020, 3, 4, 5, 6, 7, 890000), true);
  EXPECT_EQ(out, L"2020_03_04_0506_07_089");
  out.clear();
  format_compact_stamp(out, ft(2020, 3, 4, 5, 6, 7), false);
  EXPECT_EQ(out, L"2020_03_04");
}

TEST(TimeText, StartStopArguments) {
  _windows_systemtime st;
  ASSERT_TRUE(parse_date_time("01/31/2020", "12:34:56.4996", st));
  EXPECT_EQ(st.m_milliseconds, 500);  // fraction x 1000 + 0.5, truncated
  EXPECT_EQ(systemtime_to_filetime(st), ft(2020, 1, 31, 12, 34, 56, 5000000));

  ASSERT_TRUE(parse_date_time("01/31/2020", "", st));
  EXPECT_EQ(systemtime_to_filetime(st), ft(2020, 1, 31));
  ASSERT_TRUE(parse_date_time_order("2020-12-01", "23:59:59", "YMD", st));
  EXPECT_EQ(systemtime_to_filetime(st), ft(2020, 12, 1, 23, 59, 59));
  ASSERT_TRUE(parse_date_time_order("1/12/2020", "00:00:00", "dmy", st));
  EXPECT_EQ(st.m_month, 12);

  EXPECT_FALSE(parse_date_time("01/31", "00:00:00", st));
  EXPECT_FALSE(parse_date_time("01/31/2020", "12:34", st));
  EXPECT_FALSE(parse_date_time("aa/31/2020", "", st));
  EXPECT_FALSE(parse_date_time("01/31/99999999", "", st));
  EXPECT_FALSE(parse_date_time_order("2020/01/31", "", "YYD", st));
  ASSERT_TRUE(parse_date_time("02/30/2020", "", st));
  EXPECT_EQ(systemtime_to_filetime(st), 0u);  // read, but no such day
}
