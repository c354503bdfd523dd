// Timestamp anomaly analysis: the rules in their order, and the day margin.
#include <gtest/gtest.h>

#include "analysis/orv_time_analysis.h"
#include "tests/results/entry_fixture.h"

using namespace fixture;

namespace {

const uint64_t DAY = 864000000000ull, FN_TIME = testutil::filetime(2021, 3, 1);

// SI created and MFT-changed times lagging the FN times by the given ticks; a short name with
// the given accessed time under `dos_parent` when that is not 0.
entry_record lagging(uint64_t created_lag, uint64_t changed_lag, uint64_t dos_parent = 0, uint64_t dos_time = 0) {
  entry_record e;
  set_header(e, 0x40, 1, FR_FLAG_IN_USE);
  add_si(e, FN_TIME - created_lag, FN_TIME, FN_TIME - changed_lag, FN_TIME);
  add_fn(e, k_root, L"a.exe", 1, FN_TIME, FN_TIME, FN_TIME, FN_TIME);
  if (dos_parent) add_fn(e, dos_parent, L"A~1.EXE", 2, 1, 2, 3, dos_time);
  return e;
}

std::string analysed(entry_record e) {
  analyse_timestamps(e, mft_entries_ctx());
  EXPECT_EQ(e.m_has_time_warning, !e.m_time_warning.empty());
  return e.m_time_warning;
}

}  // namespace

TEST(TimeAnalysis, RulesInOrder) {
  EXPECT_EQ(analysed(lagging(DAY + 1, DAY + 1)), "**:time warning");
  EXPECT_EQ(analysed(lagging(DAY, DAY + 1)), "");  // both times must lag more than a day
  EXPECT_EQ(analysed(lagging(DAY + 1, DAY)), "");
  // The short name's accessed time against the first long name in its directory, and only that.
  EXPECT_EQ(analysed(lagging(0, 0, k_root, FN_TIME + 1)), "fnSL:time diff");
  EXPECT_EQ(analysed(lagging(0, 0, k_root, FN_TIME)), "");
  EXPECT_EQ(analysed(lagging(0, 0, orv::make_ref(0x30, 1), FN_TIME + 1)), "");  // no long name there

  entry_record no_si = lagging(0, 0);
  no_si.m_std_infos.clear();
  EXPECT_EQ(analysed(no_si), "si:time absent");
  no_si.m_is_extension = true;  // an extension has no standard information: only its names count
  EXPECT_EQ(analysed(no_si), "");
  file_name_entry& fn = no_si.m_file_names.begin()->second;
  fn.m_time_anomaly = true, fn.m_anomaly_text = "null";
  EXPECT_EQ(analysed(no_si), "fn:time null");
  entry_record no_fn = lagging(0, 0);
  no_fn.m_file_names.clear();
  EXPECT_EQ(analysed(no_fn), "fn:time absent");
  entry_record future = lagging(5 * DAY, 5 * DAY);
  si_entry& si = future.m_std_infos.begin()->second;
  si.m_time_anomaly = true, si.m_anomaly_text = "future", future.m_time_warning = "stale";
  EXPECT_EQ(analysed(future), "si:time future");
}
