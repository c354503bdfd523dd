#include "base/orv_time.h"

#include <gtest/gtest.h>

#include <array>
#include <random>

#include "tests/test_util.h"

using namespace orv;
// FILETIME of a UTC instant through the C library, an independent route.
static const auto ft = [](auto... fields) { return testutil::filetime(fields...); };

static constexpr uint64_t k_second = FILETIME_TICKS_PER_SECOND;

// The breakdown agrees with gmtime over the whole positive range (leap days, 1900 and 2100 that
// are no leap years, the far future) and converts back; fields out of range convert to 0.
TEST(Time, CalendarMatchesTheCLibrary) {
  std::mt19937_64 rng(11);
  const uint64_t top = ft(9999, 12, 31, 23, 59, 59);
  const uint64_t fixed[] = {0, top, ft(2000, 2, 29, 23, 59, 59), ft(1900, 2, 28, 23, 59, 59) + k_second,
                            ft(2100, 3, 1) - 1, ft(1601, 12, 31, 23, 59, 59, 9999999)};
  for (int i = 0; i < 50000; ++i) {
    uint64_t v = i < 6 ? fixed[i] : (i % 2) ? rng() % top : rng() >> 1;
    _windows_systemtime st;
    ASSERT_TRUE(filetime_to_systemtime(v, st));
    time_t secs = time_t(int64_t(v / k_second) - int64_t(FILETIME_UNIX_EPOCH / k_second));
    std::tm tm;
    ASSERT_TRUE(gmtime_r(&secs, &tm));
    ASSERT_EQ((std::array<int, 7>{st.m_year, st.m_month, st.m_day, st.m_hour, st.m_minute, st.m_second,
                                   st.m_day_of_week}),
              (std::array<int, 7>{tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec,
                                   tm.tm_wday}))
        << v;
    uint64_t back = st.m_year <= 30827 ? v - v % k_second + st.m_milliseconds * 10000ull : 0;
    ASSERT_EQ(systemtime_to_filetime(st), back) << v;
  }
  _windows_systemtime st;
  EXPECT_TRUE(filetime_to_systemtime(0x7FFFFFFFFFFFFFFFull, st) && st.m_year == 30828);  // no overflow
  EXPECT_FALSE(filetime_to_systemtime(uint64_t(1) << 63, st));
  filetime_to_systemtime(ft(2021, 6, 7, 8, 9, 10, 1234567), st);
  EXPECT_EQ((std::array<uint64_t, 3>{st.m_milliseconds, st.m_microseconds, st.m_nanoseconds}),
            (std::array<uint64_t, 3>{123, 123456, 123456700}));
  const std::array<uint64_t, 4> days[] = {{2021, 2, 29, 0},  {2020, 2, 29, ft(2020, 2, 29)}, {1900, 2, 29, 0},
                                          {2020, 13, 1, 0},  {2020, 4, 31, 0}, {1600, 12, 31, 0},
                                          {1601, 1, 2, ft(1601, 1, 2)}};
  for (const auto& d : days) {
    _windows_systemtime in{};
    in.m_year = uint16_t(d[0]), in.m_month = uint16_t(d[1]), in.m_day = uint16_t(d[2]);
    EXPECT_EQ(systemtime_to_filetime(in), d[3]) << d[0] << "-" << d[1] << "-" << d[2];
  }
}

// Shown: 1900 through 3000, except the first second of 1970.
TEST(Time, DisplayableRule) {
  const uint64_t epoch = FILETIME_UNIX_EPOCH;
  const std::pair<uint64_t, bool> rule[] = {
      {0, false},         {epoch, false},          {epoch + k_second - 1, false}, {epoch + k_second, true},
      {epoch - 1, true},  {ft(3001, 1, 1), false}, {ft(3001, 1, 1) - 1, true},    {ft(1900, 1, 1), true},
      {ft(1900, 1, 1) - 1, false}, {0x7FFFFFFFFFFFFFFFull, false}, {~uint64_t(0), false},
  };
  for (const auto& r : rule) EXPECT_EQ(filetime_displayable(r.first), r.second) << r.first;
}
