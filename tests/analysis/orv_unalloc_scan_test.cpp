// The free-cluster scan on a volume whose $Bitmap lies about its size.
#include <gtest/gtest.h>

#include "analysis/orv_record_sink.h"
#include "analysis/orv_unalloc_scan.h"
#include "tests/mft_fixture.h"

TEST(UnallocScan, BitmapClaimBoundedByTheSource) {
  // $Bitmap claims 512 MiB over a run of 2^17 clusters from cluster 0 of a 256 KiB volume: the
  // scan allocated the whole claim and then walked two million clusters that do not exist.
  testvol::image_file file(testutil::lying_volume(6, 0x80));
  mft_entries_ctx options;
  options.m_image_volume_path = orv::to_wide(file.m_path);
  options.m_progress = 0;
  scan_state scan;
  EXPECT_LT(testutil::peak_growth_kib([&] { EXPECT_TRUE(unalloc_scan(options, scan, record_sink())); }), 64 * 1024);
}
