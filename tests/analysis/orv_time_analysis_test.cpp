// Timestamp anomaly analysis: the rules in their order, and the day margin.
#include <gtest/gtest.h>

#include "analysis/orv_filters.h"
#include "analysis/orv_time_analysis.h"
#include "tests/results/entry_fixture.h"

using namespace fixture;

namespace {

const uint64_t DAY = 864000000000ull;
const uint64_t FN_TIME = testutil::filetime(2021, 3, 1);

// SI created and MFT-changed times lagging the FN times by the given ticks.
entry_record lagging(uint64_t created_lag, uint64_t changed_lag) {
  entry_record e;
  set_header(e, 0x40, 1, FR_FLAG_IN_USE);
  add_si(e, FN_TIME - created_lag, FN_TIME, FN_TIME - changed_lag, FN_TIME);
  add_fn(e, k_root, L"a.exe", 1, FN_TIME, FN_TIME, FN_TIME, FN_TIME);
  return e;
}

std::string analysed(entry_record e) {
  mft_entries_ctx ctx;
  analyse_timestamps(e, ctx);
  EXPECT_EQ(e.m_has_time_warning, !e.m_time_warning.empty());
  return e.m_time_warning;
}

}  // namespace

TEST(TimeAnalysis, RulesInOrder) {
  EXPECT_EQ(analysed(lagging(DAY, DAY)), "");  // exactly a day is not more than a day
  EXPECT_EQ(analysed(lagging(DAY + 1, DAY + 1)), "**:time warning");
  EXPECT_EQ(analysed(lagging(2 * DAY, 0)), "");  // both times must lag

  entry_record no_si = lagging(0, 0);
  no_si.m_std_infos.clear();
  EXPECT_EQ(analysed(no_si), "si:time absent");
  // An extension record has no standard information of its own: only its names are tested.
  no_si.m_is_extension = true;
  EXPECT_EQ(analysed(no_si), "");
  no_si.m_file_names.begin()->second.m_time_anomaly = true;
  no_si.m_file_names.begin()->second.m_anomaly_text = "null";
  EXPECT_EQ(analysed(no_si), "fn:time null");

  entry_record no_fn = lagging(0, 0);
  no_fn.m_file_names.clear();
  EXPECT_EQ(analysed(no_fn), "fn:time absent");

  entry_record future = lagging(5 * DAY, 5 * DAY);
  future.m_std_infos.begin()->second.m_time_anomaly = true;
  future.m_std_infos.begin()->second.m_anomaly_text = "future";
  future.m_time_warning = "stale";
  EXPECT_EQ(analysed(future), "si:time future");
}

TEST(TimeAnalysis, ShortNameAccessTimeAgainstItsLongName) {
  entry_record e = lagging(0, 0);
  add_fn(e, k_root, L"A~1.EXE", 2, FN_TIME, FN_TIME, FN_TIME, FN_TIME + 1);
  EXPECT_EQ(analysed(e), "fnSL:time diff");

  entry_record elsewhere = lagging(0, 0);  // no long name in that directory to compare with
  add_fn(elsewhere, ref(0x30, 1), L"A~1.EXE", 2, FN_TIME, FN_TIME, FN_TIME, FN_TIME + 1);
  EXPECT_EQ(analysed(elsewhere), "");

  entry_record other_times = lagging(0, 0);  // only the accessed time is compared
  add_fn(other_times, k_root, L"A~1.EXE", 2, 1, 2, 3, FN_TIME);
  EXPECT_EQ(analysed(other_times), "");
}
