// -filter_dir and -filter_file on the feature volume, paths typed in other letter cases, against
// the records that sleuthkit's fls lists under the same paths.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>

#include "tests/integration/fixture_util.h"

namespace {

struct selection { std::set<uint64_t> records; fixtures::results rows; testutil::run_result run; };

selection run(const std::string& tag, const std::string& source, const std::string& options) {
  const std::string out = fixtures::scratch_dir(tag) + "/rows.csv";
  selection s;
  s.run = fixtures::run_brimlock(source + " -csv -quiet " + options + " -out " + fixtures::q(out));
  s.rows = fixtures::parse_results(testutil::read_text(out), ",");
  for (size_t i = 0; i < s.rows.rows.size(); ++i) s.records.insert(fixtures::parse_number(s.rows.cell(i, "mft entry")));
  return s;
}

// Records fls lists in directory `dir` or in its subdirectories down to `levels` levels.
std::set<uint64_t> under(const fixtures::facts& f, const std::string& dir, unsigned levels) {
  std::set<uint64_t> out;
  for (const fixtures::fact_path& p : f.paths) {
    const size_t slash = p.path.rfind('/');
    const std::string parent = slash == std::string::npos ? "" : p.path.substr(0, slash);
    if (parent == dir) out.insert(p.inode);
    if (parent.compare(0, dir.size() + 1, dir + "/") != 0) continue;
    if (unsigned(std::count(parent.begin() + long(dir.size()) + 1, parent.end(), '/')) + 1 <= levels) out.insert(p.inode);
  }
  return out;
}

uint64_t inode_of(const fixtures::facts& f, const std::string& path) {
  for (const fixtures::fact_path& p : f.paths)
    if (p.allocated && p.path == path) return p.inode;
  return 0;
}

}  // namespace

TEST(PathFilters, DirectoriesAndFilesAsFlsListsThem) {
  const std::string image = fixtures::path("feature.img");
  ASSERT_FALSE(image.empty());
  const std::string source = "-image " + fixtures::q(image);
  const fixtures::facts f = fixtures::load_facts("feature.facts.tsv");
  struct dir_case { const char* options; const char* dir; unsigned levels; } const dirs[] = {
      {"-filter_dir DOCS", "docs", 0},
      {"-filter_dir 'docs*'", "docs", 1},
      {"-filter_dir '/Docs/Notes/*?'", "docs/notes", 99},
      {"-filter_dir 'c:\\DOCS*2'", "docs", 2},
      {"-filter_dir 'intl/ÜNÏCÖDÉ DIR'", "intl/Ünïcödé dir", 0},
      {"-filter_dir ATTRLIST/MANY", "attrlist/many", 0},  // an index of many blocks
      {"-filter_dir trash", "trash", 0},                  // a deleted file's record still names it
  };
  for (size_t k = 0; k < sizeof dirs / sizeof dirs[0]; ++k) {
    const dir_case& c = dirs[k];
    SCOPED_TRACE(c.options);
    const selection s = run("dir" + std::to_string(k), source, c.options);
    EXPECT_EQ(s.records, under(f, c.dir, c.levels));
    for (size_t i = 0; i < s.rows.rows.size(); ++i) EXPECT_NE(s.rows.cell(i, "other info").find("dir("), std::string::npos);
    if (c.levels) continue;
    // The records the directory's index gives are those that a walk over every record finds.
    std::string number;
    for (const fixtures::fact_path& p : f.paths)
      if (p.path == c.dir) number = std::to_string(p.inode);
    EXPECT_EQ(s.records, run("dirinode" + std::to_string(k), source, "-filter_dir_inode " + number).records);
  }

  const selection files = run("files", source,
                              "-filter_file 'DOCS/REPORT.TXT | \\intl\\CAFÉ.txt | intl/日本語.txt | "
                              "c:\\attrlist\\many\\HARDLINK-number-150-with-a-long-name-to-fill-records.txt'");
  const std::set<uint64_t> want = {inode_of(f, "docs/report.txt"), inode_of(f, "intl/café.txt"),
                                   inode_of(f, "intl/日本語.txt"),
                                   inode_of(f, "attrlist/many/hardlink-number-150-with-a-long-name-to-fill-records.txt")};
  EXPECT_EQ(want.count(0), 0u);
  EXPECT_EQ(files.records, want);
  // A stream mark selects the record through that stream.
  const selection stream = run("stream", source, "-filter_file 'streams/DATA.txt:META'");
  EXPECT_EQ(stream.records, std::set<uint64_t>{inode_of(f, "streams/data.txt")});
  ASSERT_FALSE(stream.rows.rows.empty());
  EXPECT_NE(stream.rows.cell(0, "other info").find("inode(84:meta)"), std::string::npos);

  // A path the volume does not hold selects nothing, and the run says so.
  const selection none = run("none", source, "-filter_file '\\docs\\no such.txt'");
  EXPECT_TRUE(none.records.empty());
  EXPECT_NE(none.run.err.find("prob reading " + image + ": -filter_file path \\docs\\no such.txt not found\n"),
            std::string::npos) << none.run.err;
}

// An extracted $MFT has no directory index: the paths select nothing, and the run says why.
TEST(PathFilters, ExtractedMftSaysWhy) {
  const std::string mft = fixtures::path("feature.mft");
  ASSERT_FALSE(mft.empty());
  const selection s = run("mftfile", "-mftfile " + fixtures::q(mft), "-filter_dir docs -filter_file readme.txt");
  EXPECT_EQ(s.run.status, 0);
  EXPECT_TRUE(s.records.empty());
  EXPECT_NE(s.run.err.find("prob reading " + mft +
                           ": -filter_dir and -filter_file need a volume image, no record is selected by them\n"),
            std::string::npos) << s.run.err;
}
