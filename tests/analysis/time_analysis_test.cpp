// Timestamp anomaly analysis: the rules in their order, and the day margin.
#include <gtest/gtest.h>

#include "analysis/orv_filters.h"
#include "tests/results/entry_fixture.h"

using fixture::add_fn;
using fixture::add_si;
using fixture::k_root;
using fixture::ref;
using fixture::set_header;
using testutil::filetime;

namespace {

const uint64_t DAY = 864000000000ull;
const uint64_t FN_TIME = filetime(2021, 3, 1);

// SI created and changed `created_lag` and `changed_lag` ticks before the FN times.
entry_record lagging(uint64_t created_lag, uint64_t changed_lag) {
  entry_record e;
  set_header(e, 0x40, 1, FR_FLAG_IN_USE);
  add_si(e, FN_TIME - created_lag, FN_TIME, FN_TIME - changed_lag, FN_TIME);
  add_fn(e, k_root, L"a.exe", 1, FN_TIME, FN_TIME, FN_TIME, FN_TIME);
  return e;
}

std::string analysed(entry_record& e) {
  mft_entries_ctx ctx;
  analyse_timestamps(e, ctx);
  EXPECT_EQ(e.m_has_time_warning, !e.m_time_warning.empty());
  return e.m_time_warning;
}

}  // namespace

TEST(TimeAnalysis, BothTimesMoreThanADayBehind) {
  entry_record exact = lagging(DAY, DAY);
  EXPECT_EQ(analysed(exact), "");
  entry_record beyond = lagging(DAY + 1, DAY + 1);
  EXPECT_EQ(analysed(beyond), "**:time warning");
  entry_record created_only = lagging(2 * DAY, 0);
  EXPECT_EQ(analysed(created_only), "");
}

TEST(TimeAnalysis, MissingAttributes) {
  entry_record no_si;
  set_header(no_si, 0x40, 1, FR_FLAG_IN_USE);
  add_fn(no_si, k_root, L"a", 1, FN_TIME, FN_TIME, FN_TIME, FN_TIME);
  EXPECT_EQ(analysed(no_si), "si:time absent");

  // An extension record has no standard information of its own: only its names are tested.
  entry_record extension = no_si;
  extension.m_is_extension = true;
  extension.m_base_ref = ref(0x20, 1);
  EXPECT_EQ(analysed(extension), "");
  extension.m_file_names.begin()->second.m_time_anomaly = true;
  extension.m_file_names.begin()->second.m_anomaly_text = "null";
  EXPECT_EQ(analysed(extension), "fn:time null");

  entry_record no_fn;
  set_header(no_fn, 0x40, 1, FR_FLAG_IN_USE);
  add_si(no_fn, FN_TIME, FN_TIME, FN_TIME, FN_TIME);
  EXPECT_EQ(analysed(no_fn), "fn:time absent");
}

TEST(TimeAnalysis, AnomaliesComeBeforeTheComparison) {
  entry_record si_future = lagging(5 * DAY, 5 * DAY);
  si_future.m_std_infos.begin()->second.m_time_anomaly = true;
  si_future.m_std_infos.begin()->second.m_anomaly_text = "future";
  EXPECT_EQ(analysed(si_future), "si:time future");

  entry_record fn_null = lagging(5 * DAY, 5 * DAY);
  fn_null.m_file_names.begin()->second.m_time_anomaly = true;
  fn_null.m_file_names.begin()->second.m_anomaly_text = "null";
  EXPECT_EQ(analysed(fn_null), "fn:time null");

  entry_record stale = lagging(5 * DAY, 5 * DAY);
  stale.m_time_warning = "old";
  stale.m_has_time_warning = true;
  EXPECT_EQ(analysed(stale), "**:time warning");
}

TEST(TimeAnalysis, ShortNameAccessTimeAgainstItsLongName) {
  entry_record e = lagging(0, 0);
  add_fn(e, k_root, L"A~1.EXE", 2, FN_TIME, FN_TIME, FN_TIME, FN_TIME + 1);
  EXPECT_EQ(analysed(e), "fnSL:time diff");

  // In another directory there is no long name to compare with.
  entry_record elsewhere = lagging(0, 0);
  add_fn(elsewhere, ref(0x30, 1), L"A~1.EXE", 2, FN_TIME, FN_TIME, FN_TIME, FN_TIME + 1);
  EXPECT_EQ(analysed(elsewhere), "");

  // Only the accessed time is compared.
  entry_record other_times = lagging(0, 0);
  add_fn(other_times, k_root, L"A~1.EXE", 2, 1, 2, 3, FN_TIME);
  EXPECT_EQ(analysed(other_times), "");
}
