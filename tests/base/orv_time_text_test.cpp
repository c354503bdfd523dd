#include "base/orv_time_text.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/test_util.h"

using namespace orv;
// FILETIME of a UTC instant through the C library, an independent route.
static const auto ft = [](auto... fields) { return testutil::filetime(fields...); };

TEST(TimeText, PatternsAndColumnWidths) {
  struct pattern_case { const char *date, *time; bool ok; char separator; unsigned digits; } const cases[] = {
      {"mmm dd, yyyy", "hh:mm:ss.xxxxxxxxxxxx", true, ' ', 9},  // at most nine digits
      {"yyyy-mm", "hh:mm:ss.xxx", false, '-', 0},               // no day: the parse ends there
  };
  for (const pattern_case& c : cases) {
    time_format_state s;
    EXPECT_EQ(parse_time_format(s, c.date, c.time, false), c.ok) << c.date;
    EXPECT_TRUE(s.parsed() && s.m_date_separator == c.separator && s.fraction_digits() == c.digits) << c.date;
  }
  time_format_state s;
  EXPECT_FALSE(parse_time_format(s, "", "hh:mm:ss.xxx", false) || s.parsed());
  EXPECT_TRUE(parse_time_format(s, "yyyy-mm-dd", "hh:mm:ss", true) && s.pair());
  const std::pair<const char*, size_t> widths[] = {
      {"yyyy-mm-dd", 10}, {"mm/dd/yy", 8},           {"m/d/yy", 0},       {"hh:mm:ss", 8},
      {"hh:mm:ss.xxx", 12}, {"hh:mm:ss.xxxxxxxxx", 18}, {"hh:mm:ss:xxx", 0}, {"hh:mm:ss.x", 0}};
  for (const auto& w : widths)
    EXPECT_EQ(w.first[0] == 'h' ? time_column_width(w.first) : date_column_width(w.first), w.second) << w.first;
}

// The formatter's text for one instant under each pattern, and the row writers' fast path giving
// the same text for every instant and pattern.
TEST(TimeText, FormatterAndFastPath) {
  const orv::time t(ft(2023, 1, 5, 6, 7, 8, 1234567), type_filetime);
  const char* const cases[][3] = {
      {"yyyy-mm-dd", "hh:mm:ss.xxx", "2023-01-05 06:07:08.123"},
      {"mm/dd/yy", "hh:mm:ss", "01/05/2023 06:07:08"},  // the full year even for "yy"
      {"dd-mmm-yyyy", "hh:mm:ss.xxxx", "05-Jan-2023 06:07:08.1234"},
      {"dd.mm.yyyy", "hh:mm:ss.xxxxxx", "05/01/2023 06:07:08.123456"},
      {"dd/mm/yyyy", "hh:mm:ss.xxxxxxx", "05/01/2023 06:07:08.1234567"},
      {"mmm dd, yyyy", "hh:mm:ss.xxxxxxxxx", "Jan 05 2023 06:07:08.123456700"},  // the comma is not kept
      {"yyyy/mmm/dd", "hh:mm:ss", " 06:07:08"},  // year-month-day with a month name: no date by rule
      {"yyyy/dd/mm", "hh:mm:ss", " 06:07:08"},   // no order
  };
  std::vector<time_format_state> states(1);  // the first stays unparsed: the default patterns
  std::string date = "x", time = "y";
  for (const auto& c : cases) {
    states.emplace_back();
    parse_time_format(states.back(), c[0], c[1], false);
    EXPECT_TRUE(format_date_time(date, time, t, states.back()));
    EXPECT_EQ(date + " " + time, c[2]) << c[0] << " " << c[1];
  }
  EXPECT_TRUE(format_date_time(date, time, t, states[0]));
  EXPECT_EQ(date + " " + time, "2023-01-05 06:07:08.123");
  // Truncated, not rounded; an instant that cannot be shown empties both.
  format_date_time(date, time, orv::time(ft(2023, 1, 5, 6, 7, 8, 9999999), type_filetime), states[3]);
  EXPECT_EQ(time, "06:07:08.9999");
  EXPECT_FALSE(format_date_time(date, time, orv::time(0, type_filetime), states[1]));
  EXPECT_EQ(date + time, "");

  std::mt19937_64 rng(3);
  for (int i = 0; i < 20000; ++i) {
    uint64_t v = i % 3 ? rng() >> (rng() % 6) : ft(1900, 1, 1) + rng() % (ft(3001, 1, 1) - ft(1900, 1, 1));
    const time_format_state& s = states[size_t(i) % states.size()];
    std::string d1, t1, d2 = "p:", t2 = "q:";
    bool ok1 = format_date_time(d1, t1, orv::time(v, type_filetime), s);
    ASSERT_EQ(ok1, append_filetime_text(d2, t2, v, s)) << v;
    ASSERT_EQ("p:" + d1 + " q:" + t1, d2 + " " + t2) << v;
  }
}

// -filter_start_time and -filter_stop_time: "mm/dd/yyyy" and "hh:mm:ss[.fff]".
TEST(TimeText, StartStopArguments) {
  struct argument_case { const char *date, *time; bool ok; uint64_t filetime; } const cases[] = {
      {"01/31/2020", "12:34:56.4996", true, ft(2020, 1, 31, 12, 34, 56, 5000000)},  // fraction rounded to ms
      {"01/31/2020", "", true, ft(2020, 1, 31)},
      {"01/31/2020", "23:59:59.9999", true, ft(2020, 1, 31, 23, 59, 59, 9990000)},  // stays in its second
      {"02/30/2020", "", true, 0},  // read, but there is no such day
      {"01/31", "00:00:00", false, 0},   {"01/31/2020", "12:34", false, 0},
      {"aa/31/2020", "", false, 0},      {"01/31/99999999", "", false, 0},
  };
  for (const argument_case& c : cases) {
    _windows_systemtime st;
    bool ok = parse_date_time(c.date, c.time, st);
    EXPECT_TRUE(ok == c.ok && (!ok || systemtime_to_filetime(st) == c.filetime)) << c.date << " " << c.time;
  }
}
