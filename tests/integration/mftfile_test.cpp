// Extracted $MFT files (-mftfile) against what sleuthkit read from the same volumes.
#include <gtest/gtest.h>

#include <string>

#include "tests/integration/fixture_util.h"

using fixtures::q;
using fixtures::run_brimlock;
using fixtures::run_output;
using fixtures::run_to_file;

namespace {

const char* const kCsvHeader =
    "mft entry,mft seqnum,parent mft,par seqnum,type,ext,ref,date, time-utc,MACB,other info,name,path,various data "
    "types";

// The first lines of a results file: banner, quoted command line, empty line.
void expect_preamble(const run_output& o, const std::string& must_hold) {
  ASSERT_GE(o.rows.lines.size(), 4u) << o.text.substr(0, 500) << "\nstderr: " << o.run.err;
  EXPECT_NE(o.rows.lines[0].find("brimlock"), std::string::npos) << o.rows.lines[0];
  EXPECT_NE(o.rows.lines[0].find("ver: 0.95"), std::string::npos) << o.rows.lines[0];
  const std::string& cmd = o.rows.lines[1];
  ASSERT_GE(cmd.size(), 2u);
  EXPECT_EQ(cmd.front(), '"') << cmd;
  EXPECT_EQ(cmd.back(), '"') << cmd;
  EXPECT_NE(cmd.find(must_hold), std::string::npos) << cmd;
  EXPECT_EQ(o.rows.lines[2], "");
  EXPECT_EQ(o.text.find('\r'), std::string::npos) << "line ends are a single line feed";
  ASSERT_FALSE(o.text.empty());
  EXPECT_EQ(o.text.back(), '\n');
}

std::vector<size_t> rows_of(const fixtures::results& r, uint64_t inode) {
  std::vector<size_t> out;
  for (size_t i = 0; i < r.rows.size(); ++i) {
    try {
      if (fixtures::parse_number(r.cell(i, "mft entry")) == inode) out.push_back(i);
    } catch (...) {
    }
  }
  return out;
}

uint64_t inode_of(const fixtures::facts& f, const std::string& fls_path) {
  for (const auto& p : f.paths)
    if (p.path == fls_path) return p.inode;
  return UINT64_MAX;
}

}  // namespace

TEST(MftFile, FeatureCsvRowsMatchSleuthkit) {
  std::string mft = fixtures::path("feature.mft");
  ASSERT_FALSE(mft.empty());
  auto f = fixtures::load_facts("feature.facts.tsv");
  auto o = run_to_file("mft_feature_csv", "-mftfile " + q(mft), true);
  EXPECT_EQ(o.run.status, 0) << o.run.err;
  expect_preamble(o, mft);
  ASSERT_GE(o.rows.lines.size(), 4u);
  EXPECT_EQ(o.rows.lines[3], kCsvHeader);
  // -csv: no padding, a blank in front of each time cell.
  for (size_t i = 4; i < o.rows.lines.size() && i < 40; ++i) {
    const std::string& line = o.rows.lines[i];
    EXPECT_EQ(line.find("  |"), std::string::npos);
    EXPECT_EQ(line.find(" | "), std::string::npos) << line;
  }
  bool blank_time = false;
  int time_col = o.rows.col("time-utc");
  ASSERT_GE(time_col, 0);
  for (size_t i = 4; i < o.rows.lines.size(); ++i) {
    std::vector<std::string> raw;
    std::string cell;
    for (char ch : o.rows.lines[i] + ",") {
      if (ch == ',') {
        raw.push_back(cell);
        cell.clear();
      } else {
        cell += ch;
      }
    }
    if (raw.size() > size_t(time_col) && raw[size_t(time_col)].size() > 1) {
      blank_time = true;
      EXPECT_EQ(raw[size_t(time_col)][0], ' ') << o.rows.lines[i];
    }
  }
  EXPECT_TRUE(blank_time) << "time cells follow the comma with a blank";
  fixtures::compare_options opt;
  opt.extracted_mft = true;
  opt.csv = true;
  auto problems = fixtures::compare_rows(f, o.rows, opt);
  EXPECT_TRUE(problems.empty()) << fixtures::join_lines(problems);
}

TEST(MftFile, FeatureDefaultLayoutMatchesSleuthkit) {
  std::string mft = fixtures::path("feature.mft");
  ASSERT_FALSE(mft.empty());
  auto f = fixtures::load_facts("feature.facts.tsv");
  auto o = run_to_file("mft_feature_default", "-mftfile " + q(mft), false);
  EXPECT_EQ(o.run.status, 0) << o.run.err;
  expect_preamble(o, mft);
  ASSERT_GE(o.rows.lines.size(), 4u);
  const std::string& header = o.rows.lines[3];
  EXPECT_EQ(header.compare(0, 13, "mft entry  | "), 0) << header;
  EXPECT_NE(header.find(" | MACB"), std::string::npos) << header;
  fixtures::compare_options opt;
  opt.extracted_mft = true;
  opt.csv = false;
  auto problems = fixtures::compare_rows(f, o.rows, opt);
  EXPECT_TRUE(problems.empty()) << fixtures::join_lines(problems);
  // Padded columns: every row has the header's separators at the same places up to the
  // first variable-width column (the path and what follows are wider than their columns).
  for (size_t i = 4; i < o.rows.lines.size(); ++i) {
    const std::string& line = o.rows.lines[i];
    ASSERT_GE(line.size(), 13u);
    EXPECT_EQ(line.substr(10, 3), " | ") << line;
    EXPECT_EQ(line.compare(0, 2, "0x"), 0) << line;
  }
}

TEST(MftFile, ResultsOnStandardOutputCarryTheBannerOnce) {
  std::string mft = fixtures::path("rec4k.mft");
  ASSERT_FALSE(mft.empty());
  auto r = run_brimlock("-mftfile " + q(mft) + " -csv");
  EXPECT_EQ(r.status, 0) << r.err;
  auto rows = fixtures::parse_results(r.out, ",", 2);
  ASSERT_GE(rows.lines.size(), 3u) << r.out;
  EXPECT_NE(rows.lines[0].find("ver: 0.95"), std::string::npos);
  EXPECT_EQ(rows.lines[2], kCsvHeader);
  EXPECT_EQ(r.out.find("ver: 0.95", rows.lines[0].size()), std::string::npos) << "banner repeated";
  EXPECT_FALSE(rows.rows.empty());
}

TEST(MftFile, FeatureNamesPathsAndMarks) {
  std::string mft = fixtures::path("feature.mft");
  ASSERT_FALSE(mft.empty());
  auto f = fixtures::load_facts("feature.facts.tsv");
  auto o = run_to_file("mft_feature_marks", "-mftfile " + q(mft), true);
  const auto& r = o.rows;
  ASSERT_FALSE(r.rows.empty()) << o.run.err;

  // Deleted items keep their paths through deleted directories that nothing reused.
  struct want {
    const char* fls_path;
    const char* name;
    const char* path;
    const char* type;
  } wants[] = {
      {"trash/gone.txt", "gone.txt", "[root]\\trash\\", "del"},
      {"deldir/inner.txt", "inner.txt", "[root]\\deldir\\", "del"},
      {"deldir/sub/deep.txt", "deep.txt", "[root]\\deldir\\sub\\", "del"},
      {"deldir/sub", "sub", "[root]\\deldir\\", "del"},
      {"deldir", "deldir", "[root]\\", "del"},
      // The parent of this child was a directory whose record now holds reused.txt.
      {"$OrphanFiles/child.txt", "child.txt", "[root]\\<path corrupted>\\", "del"},
      {"docs/notes/deep/deeper/deepest/leaf.txt", "leaf.txt", "[root]\\docs\\notes\\deep\\deeper\\deepest\\", "file"},
      {"intl/😀.txt", "😀.txt", "[root]\\intl\\", "file"},
      {"intl/日本語.txt", "日本語.txt", "[root]\\intl\\", "file"},
      {"intl/café.txt", "café.txt", "[root]\\intl\\", "file"},
      {"intl/Ünïcödé dir/ñ, comma.txt", "ñ  comma.txt", "[root]\\intl\\Ünïcödé dir\\", "file"},
      {"reused.txt", "reused.txt", "[root]\\", "file"},
  };
  for (const auto& w : wants) {
    SCOPED_TRACE(w.fls_path);
    uint64_t inode = inode_of(f, w.fls_path);
    ASSERT_NE(inode, UINT64_MAX);
    auto rows = rows_of(r, inode);
    ASSERT_FALSE(rows.empty());
    for (size_t i : rows) {
      EXPECT_EQ(r.cell(i, "name"), w.name);
      EXPECT_EQ(r.cell(i, "path"), w.path);
      EXPECT_EQ(r.cell(i, "type"), w.type);
    }
  }

  // A deleted directory: "del" and no extension.
  for (size_t i : rows_of(r, inode_of(f, "deldir"))) EXPECT_EQ(r.cell(i, "ext"), "none");
  // Extensions: lower-cased text after the last point; "none" for directories.
  for (size_t i : rows_of(r, inode_of(f, "streams/download.exe"))) EXPECT_EQ(r.cell(i, "ext"), "exe");
  for (size_t i : rows_of(r, inode_of(f, "docs"))) EXPECT_EQ(r.cell(i, "ext"), "none");
  for (size_t i : rows_of(r, inode_of(f, "links/abslink"))) EXPECT_EQ(r.cell(i, "ext"), "none");

  // Hard links in two directories: one path each, and the notes tell of it.
  uint64_t report = inode_of(f, "docs/report.txt");
  std::set<std::pair<std::string, std::string>> seen;
  for (size_t i : rows_of(r, report)) {
    seen.insert({r.cell(i, "name"), r.cell(i, "path")});
    EXPECT_NE(r.cell(i, "other info").find("multinames [2]"), std::string::npos) << r.cell(i, "other info");
  }
  EXPECT_EQ(seen, (std::set<std::pair<std::string, std::string>>{{"report.txt", "[root]\\docs\\"},
                                                                 {"report-copy.txt", "[root]\\archive\\2023\\"}}));

  // A long name with its DOS name: the DOS rows are typed "file (FN 8.3)", and where the DOS
  // name's own times stand, the marks carry the fn8.3 group.
  uint64_t longname = inode_of(f, "docs/Long File Name Document.txt");
  int dos_rows = 0, dos_marks = 0;
  for (size_t i : rows_of(r, longname))
    if (r.cell(i, "name") == "LONGFI~1.TXT") {
      ++dos_rows;
      EXPECT_EQ(r.cell(i, "type"), "file (FN 8.3)");
      EXPECT_EQ(r.cell(i, "MACB").find("fn:["), std::string::npos) << r.cell(i, "MACB");
      if (r.cell(i, "MACB").find("fn8.3[") != std::string::npos) ++dos_marks;
    } else {
      EXPECT_EQ(r.cell(i, "MACB").find("fn8.3["), std::string::npos) << r.cell(i, "MACB");
    }
  EXPECT_GT(dos_rows, 0);
  EXPECT_GT(dos_marks, 0);

  // readme.txt: its times were set to 2020..2023 after creation; the created time
  // 2020-01-02 03:04:05.1234567 prints truncated, and stands in both groups.
  uint64_t readme = inode_of(f, "readme.txt");
  bool created = false;
  for (size_t i : rows_of(r, readme)) {
    if (r.cell(i, "date") == "2020-01-02") {
      created = true;
      EXPECT_EQ(r.cell(i, "time-utc"), "03:04:05.123");
    }
  }
  EXPECT_TRUE(created);

  // times/old.txt: SI times of 1850, 3100 and the first second of 1970 print blank cells;
  // the rows remain.
  uint64_t old = inode_of(f, "times/old.txt");
  int blank = 0;
  for (size_t i : rows_of(r, old))
    if (r.cell(i, "date").empty()) {
      ++blank;
      EXPECT_EQ(r.cell(i, "time-utc"), "");
    }
  EXPECT_GE(blank, 1);

  // The non-resident attribute lists cannot be followed in an extracted $MFT.
  for (const char* p : {"attrlist/many/nonres-list.txt", "attrlist/few/nonres-few.txt"}) {
    uint64_t inode = inode_of(f, p);
    auto rows = rows_of(r, inode);
    ASSERT_FALSE(rows.empty()) << p;
    for (size_t i : rows)
      EXPECT_NE(r.cell(i, "other info").find("attrib list non-resident [not avail for parsing w/o image]"),
                std::string::npos)
          << p << ": " << r.cell(i, "other info");
  }
  // The resident one can: its only name lives in an extension record.
  uint64_t res = inode_of(f, "attrlist/resident/streams.txt");
  auto res_rows = rows_of(r, res);
  ASSERT_FALSE(res_rows.empty());
  for (size_t i : res_rows) {
    EXPECT_EQ(r.cell(i, "name"), "streams.txt");
    EXPECT_EQ(r.cell(i, "path"), "[root]\\attrlist\\resident\\");
  }
}

// For records with one name, the marks of each instant follow from the eight times: m, a, c, b
// for modified, accessed, changed (mft modified) and created, per group.
TEST(MftFile, MacbMarksFollowTheTimesOfSingleNameRecords) {
  std::string mft = fixtures::path("feature.mft");
  ASSERT_FALSE(mft.empty());
  auto f = fixtures::load_facts("feature.facts.tsv");
  auto o = run_to_file("mft_feature_macb", "-mftfile " + q(mft), true);
  const auto& r = o.rows;
  ASSERT_FALSE(r.rows.empty()) << o.run.err;
  int checked = 0;
  for (const auto& kv : f.records) {
    const auto& rec = kv.second;
    auto names = f.names_of(rec.inode);
    if (rec.extension || !rec.si_present || names.size() != 1) continue;
    // instant (full text) -> letters per group; position m=0, a=1, c=2, b=3
    std::map<std::string, std::pair<std::string, std::string>> marks;
    const int pos[4] = {3, 0, 2, 1};  // created, modified, mft modified, accessed
    const char letter[4] = {'b', 'm', 'c', 'a'};
    for (int k = 0; k < 4; ++k) {
      if (rec.si[k] != "-") {
        auto& m = marks[rec.si[k]];
        if (m.first.empty()) m.first = "....";
        m.first[pos[k]] = letter[k];
      }
      if (names[0]->fn[k] != "-") {
        auto& m = marks[names[0]->fn[k]];
        if (m.second.empty()) m.second = "....";
        m.second[pos[k]] = letter[k];
      }
    }
    // Expected cell per displayed (date, time), where one instant alone has that display.
    std::map<std::pair<std::string, std::string>, std::vector<std::string>> by_cells;
    for (const auto& m : marks) {
      std::string d, t;
      fixtures::ms_cells(m.first, d, t);
      std::string cell;
      if (!m.second.first.empty()) cell += "si:[" + m.second.first + "]";
      if (!m.second.second.empty()) cell += (cell.empty() ? "" : "; ") + std::string("fn:[") + m.second.second + "]";
      by_cells[{d, t}].push_back(cell);
    }
    for (size_t i : rows_of(r, rec.inode)) {
      auto it = by_cells.find({r.cell(i, "date"), r.cell(i, "time-utc")});
      if (it == by_cells.end() || it->second.size() != 1 || it->first.first.empty()) continue;
      EXPECT_EQ(r.cell(i, "MACB"), it->second[0]) << "record " << rec.inode << " at " << it->first.first << " "
                                                   << it->first.second;
      ++checked;
    }
  }
  EXPECT_GT(checked, 50);
}

TEST(MftFile, FourKilobyteRecordsMatchSleuthkit) {
  std::string mft = fixtures::path("rec4k.mft");
  ASSERT_FALSE(mft.empty());
  auto f = fixtures::load_facts("rec4k.facts.tsv");
  ASSERT_EQ(f.info["record_size"], "4096");
  auto o = run_to_file("mft_rec4k", "-mftfile " + q(mft), true);
  EXPECT_EQ(o.run.status, 0) << o.run.err;
  expect_preamble(o, mft);
  fixtures::compare_options opt;
  opt.extracted_mft = true;
  auto problems = fixtures::compare_rows(f, o.rows, opt);
  EXPECT_TRUE(problems.empty()) << fixtures::join_lines(problems);
  uint64_t second = inode_of(f, "big records/inner/second.bin");
  auto rows = rows_of(o.rows, second);
  ASSERT_FALSE(rows.empty());
  for (size_t i : rows) EXPECT_EQ(o.rows.cell(i, "path"), "[root]\\big records\\inner\\");
}

TEST(MftFile, FragmentedMftWithAttributeListMatchesSleuthkit) {
  std::string mft = fixtures::path("mftfrag.mft");
  ASSERT_FALSE(mft.empty());
  auto f = fixtures::load_facts("mftfrag.facts.tsv");
  auto o = run_to_file("mft_mftfrag", "-mftfile " + q(mft), true);
  EXPECT_EQ(o.run.status, 0) << o.run.err;
  expect_preamble(o, mft);
  fixtures::compare_options opt;
  opt.extracted_mft = true;
  auto problems = fixtures::compare_rows(f, o.rows, opt);
  EXPECT_TRUE(problems.empty()) << fixtures::join_lines(problems);
}
