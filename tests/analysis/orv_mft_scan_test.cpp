// The scans over $MFT and the free clusters: ranges, damaged records, sources that lie about their
// size. (Randomly damaged records are the fuzzers' ground.)
#include <gtest/gtest.h>

#include <cstring>
#include <set>

#include "analysis/entry_record.h"
#include "analysis/orv_mft_scan.h"
#include "analysis/orv_record_sink.h"
#include "analysis/orv_unalloc_scan.h"
#include "tests/mft_fixture.h"

using namespace testutil;

namespace {

// Runs a full scan; gives the numbers of the records handed to the sink, and the debug log.
std::set<uint64_t> scanned(mft_entries_ctx& options, scan_state& scan, std::string* log = nullptr) {
  std::set<uint64_t> numbers;
  record_sink sink{
      [](void* to, entry_record& e, const scan_state&) { static_cast<std::set<uint64_t>*>(to)->insert(e.m_inode); },
      &numbers};
  std::string path = make_temp_dir("diags") + "/diags.log";
  scan_state_for(scan, options);
  options.m_diags_on = log && options.open_diags(path);
  full_scan(options, scan, sink);
  if (log) options.close_diags(), *log = read_text(path);
  options.m_diags_on = 0;
  return numbers;
}

}  // namespace

TEST(MftScan, RangesPassesAndDamagedRecords) {
  // System records 0 and 5, a directory 20, live files 21..29 under it, deleted files 30..33 and
  // a record without attributes at 63. 24 is "BAAD": reported, and decoded for what it holds. Two
  // records cannot be read: 25 has more than 9 update sequence words, 26 its first attribute past 72.
  mft_image image;
  add_system_records(image, 64);
  image.put(20, directory(orv::make_ref(5, 5), u"docs"));
  for (uint64_t n = 21; n < 34; ++n)
    image.put(n, file(orv::make_ref(20, 1), u"f" + std::u16string(1, char16_t(u'a' + n - 20)), 2, n < 30));
  image.put(63, record_builder());
  std::memcpy(image.m_records[24].data(), "BAAD", 4);
  image.m_records[25][6] = 10;
  image.m_records[26][20] = 73;
  auto run = open_mft(image, "range");
  ASSERT_TRUE(run);
  std::string log;
  std::set<uint64_t> rows = scanned(run->m_options, run->m_scan, &log);
  EXPECT_EQ(rows, std::set<uint64_t>(
                      {0, 5, 20, 21, 22, 23, 24, 27, 28, 29, 30, 31, 32, 33}));  // the walk goes on past the damage
  EXPECT_NE(log.find("->err: recd bad 18\n->mft entry 24 has bad filerecord\n"), std::string::npos) << log;
  EXPECT_TRUE(log.find("->err: mftfixup 19\n") != std::string::npos && log.find("->err: mftfixup 1a\n") != log.npos);
  // Each scan closes its source and the next one opens it again; the directories stay known.
  EXPECT_TRUE(!run->m_scan.m_source.is_open() && !run->m_scan.m_dir_store.empty());
  const struct { uint64_t m_start, m_range; std::set<uint64_t> m_rows; } ranges[] = {
      {21, 1, {21}}, {21, 3, {21, 22, 23}}, {30, 0, {30, 31, 32, 33}}, {60, 1000, {}}};
  for (const auto& r : ranges) {
    run->m_options.m_mft_start = r.m_start, run->m_options.m_mft_range = r.m_range;
    EXPECT_EQ(scanned(run->m_options, run->m_scan), r.m_rows) << r.m_start << "+" << r.m_range;
  }
}

TEST(MftScan, SourcesThatLieAboutTheirSize) {
  // An empty buffer is refused before its header is read.
  mft_entries_ctx options;
  options.m_progress = 0;
  scan_state scan;
  entry_record entry;
  EXPECT_FALSE(select_record(entry, {}, 1024, 7, options, scan));

  // Record 0 of a volume claims a $DATA of 2^40 bytes over an empty run list: the record count
  // comes from the source, not from 2^30 numbers that all miss the $MFT. Started near 2^30, the
  // scan tells its range in the debug log without walking it.
  testvol::image img(64);
  img.boot();
  const uint64_t claim = uint64_t(1) << 40;
  img.put(img.m_mft_lcn * img.cluster(), record_builder().nonresident(0x80, {0}, claim, claim, claim).build());
  testvol::image_file file(img.m_bytes);
  options.m_image_volume_path = orv::to_wide(file.m_path);
  options.m_mft_start = (uint64_t(1) << 30) - 4;
  std::string log;
  scanned(options, scan, &log);
  EXPECT_NE(log.find("range of inodes to analyze: 1073741820 -> 256\n"), std::string::npos) << log;
}

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
