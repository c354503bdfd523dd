// What real volumes hold that the text of a rule may not foresee: damaged records, volumes that
// cannot be read, 2 MiB clusters, streams behind attribute lists.

#include "tests/integration/fixture_util.h"

namespace {

using fixtures::q;
using fixtures::run_brimlock;

// A copy of a fixture with `bytes` written at `offset`.
std::string patched(const std::string& fixture, const std::string& tag, uint64_t offset, const std::string& bytes) {
  std::string image = fixtures::scratch_dir(tag) + "/" + fixture, text = testutil::read_text(fixtures::path(fixture));
  testutil::write_text(image, text.replace(offset, bytes.size(), bytes));
  return image;
}

// The rows of a run, banner and command line left out.
std::string rows_of(const std::string& options) {
  std::string out = run_brimlock(options + " -csv -quiet").out;
  return out.substr(out.find("\nmft entry") + 1);
}

}  // namespace

// A directory whose record chkdsk marked "BAAD" still shows, and its files keep their full path.
TEST(RealVolumes, BaadRecordsAreDecodedForWhatTheyHold) {
  ASSERT_FALSE(fixtures::path("feature.img").empty());
  const std::string image = patched("feature.img", "baad", 4 * 4096 + 0x43 * 1024, "BAAD");  // docs
  EXPECT_EQ(rows_of("-image " + q(image)), rows_of("-image " + q(fixtures::path("feature.img"))));
}

// A run that reads no record, or part of its volume, says why; the exit status stays 0.
TEST(RealVolumes, SourcesThatGiveNoRecordsSaySo) {
  const std::string empty = fixtures::scratch_dir("norecords") + "/empty.mft";
  testutil::write_text(empty, "");
  struct silent { std::string options, says; } const cases[] = {
      {"-image " + q(patched("feature.img", "spc0", 13, std::string(1, '\0'))),
       "impossible bytes per sector or sectors per cluster, aborting\n"},
      {"-mftfile " + q(empty), "it holds no records, aborting\n"},
      {"-image " + q(fixtures::image("feature.img", 4 << 20)), "it holds 0x400000 of the 0xfffe00 bytes the volume"},
  };
  for (const silent& c : cases) {
    auto r = run_brimlock(c.options + " -csv -quiet");
    EXPECT_TRUE(r.status == 0 && r.err.find(c.says) != std::string::npos) << c.options << ": " << r.err;
  }
}

// 2 MiB clusters (boot byte 0xF4), which sleuthkit does not read: the paths libfsntfs lists.
TEST(RealVolumes, TwoMegabyteClustersGiveThePathsOfLibfsntfs) {
  std::set<std::string> listed, expected;
  const std::string paths = testutil::read_text(fixtures::path("bigcluster.paths.txt"));
  for (size_t at = 0, end; (end = paths.find('\n', at)) != std::string::npos; at = end + 1)
    expected.insert("[root]\\" + paths.substr(at, end - at));
  auto rows = fixtures::parse_results(rows_of("-image " + q(fixtures::path("bigcluster.img"))), ",", 0);
  for (size_t i = 0; i < rows.rows.size(); ++i)
    if (rows.cell(i, "path").compare(0, 1, "[") == 0 && rows.cell(i, "name").compare(0, 1, "$") &&
        rows.cell(i, "name") != ".")  // records without a name, system files and the root aside
      listed.insert(rows.cell(i, "path") + rows.cell(i, "name"));
  EXPECT_EQ(listed, expected);
}

// Streams in extension records are numbered from 0 again: each one is listed all the same.
TEST(RealVolumes, EveryStreamBehindAnAttributeListIsListed) {
  for (const auto& c : {std::make_pair("stride4k.img", 60), std::make_pair("feature.img", 2)}) {
    auto rows = fixtures::parse_results(
        rows_of("-image " + q(fixtures::path(c.first)) + " -filter_fullname streams.txt"), ",", 0);
    ASSERT_FALSE(rows.rows.empty()) << c.first;
    const std::string summary = rows.cell(0, "various data types");
    size_t streams = 0;
    for (size_t at = 0; (at = summary.find(" : ads : ", at)) != std::string::npos; ++at) ++streams;
    EXPECT_EQ(streams, size_t(c.second)) << summary;
  }
}
