// The free-cluster scan on a volume whose $Bitmap lies about its size.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include "analysis/orv_record_sink.h"
#include "analysis/orv_scan_state.h"
#include "analysis/orv_unalloc_scan.h"
#include "base/orv_string.h"
#include "run/mft_entries_ctx.h"
#include "tests/ntfs/orv_test_volume.h"

TEST(UnallocScan, BitmapClaimBoundedByTheSource) {
  // $Bitmap claims 512 MiB over a run of 2^17 clusters from cluster 0 of a 256 KiB volume: the
  // scan allocated the whole claim and then walked two million clusters that do not exist.
  testvol::image img(64);
  img.boot();
  testvol::extents mft_runs = {{4, 4}};
  const uint64_t claim = uint64_t(512) << 20;
  img.put_record(mft_runs, 0, testvol::mft_record(mft_runs, img.cluster()).build());
  img.put_record(mft_runs, 6,
                 testutil::record_builder()
                     .resident(0x10, testutil::si_value(1, 2, 3, 4))
                     .nonresident(0x80, testvol::encode_runs({{0, 1u << 17}}), claim, claim, claim)
                     .build());
  testvol::image_file file(img.m_bytes);
  mft_entries_ctx options;
  options.m_image_volume_path = orv::to_wide(file.m_path);
  options.m_progress = 0;
  scan_state scan;
  struct rusage before, after;
  getrusage(RUSAGE_SELF, &before);
  EXPECT_TRUE(unalloc_scan(options, scan, record_sink()));
  getrusage(RUSAGE_SELF, &after);
  EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 64 * 1024);  // KiB
}
