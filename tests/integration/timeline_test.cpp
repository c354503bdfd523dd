// The timeline formats and bare paths against what istat, mactime and fls read.

#include "base/orv_string.h"
#include "tests/integration/fixture_util.h"

namespace {

struct timeline_source { const char *label, *image, *options, *facts; };
void PrintTo(const timeline_source& s, std::ostream* os) { *os << s.label; }

const timeline_source kTimelineSources[] = {
    {"Feature", "feature.img", "", "feature.facts.tsv"},
    {"FragmentedMft", "mftfrag.img", "", "mftfrag.facts.tsv"},  // names in extension records
    {"MbrLogical", "mbr.img", "-offset 0x2c00000", "mbr.p5.facts.tsv"},
    {"CorpusPtrn", "corpus:ntfs-ptrn.raw", "-offset 0x10000", "corpus-ptrn.facts.tsv"},
    {"CorpusLastaccess", "corpus:ntfs-lastaccess.raw", "-offset 0x10000", "corpus-lastaccess.facts.tsv"},
};

class Timelines : public ::testing::TestWithParam<timeline_source> {
 protected:
  void SetUp() override {
    const std::string which = GetParam().image;
    if (which.compare(0, 7, "corpus:") == 0 && fixtures::corpus_dir().empty()) GTEST_SKIP() << "no ../shared/corpus";
    m_image = fixtures::image(which);
    ASSERT_FALSE(m_image.empty()) << which;
    m_facts = fixtures::load_facts(GetParam().facts);
  }
  std::string run(const std::string& format) {
    auto r = fixtures::run_brimlock("-image " + fixtures::q(m_image) + " " + GetParam().options + " " + format +
                                    " -quiet");
    EXPECT_EQ(r.status, 0) << r.err;
    return r.out;
  }
  // Records that have rows: base records with standard information.
  template <typename F>
  void for_each_record(F body) {
    for (const auto& kv : m_facts.records)
      if (!kv.second.extension && kv.second.si_present) body(kv.second, m_facts.names_of(kv.first));
  }
  std::string m_image;
  fixtures::facts m_facts;
};

// Lines after the banner and the quoted command line: the header first.
std::vector<std::string> body_lines(const std::string& out) {
  std::vector<std::string> lines = orv::split(out, "\n", false);
  if (!lines.empty() && lines.back().empty()) lines.pop_back();
  lines.erase(lines.begin(), lines.begin() + std::min<size_t>(2, lines.size()));
  return lines;
}

// Items missing from `got` and items it has too many of, the first 20.
std::string differences(const std::multiset<std::string>& expected, const std::multiset<std::string>& got) {
  std::string out;
  int shown = 0;
  for (int pass = 0; pass < 2; ++pass) {
    const auto& from = pass ? got : expected;
    const auto& against = pass ? expected : got;
    for (const std::string& item : from)
      if (from.count(item) != against.count(item) && ++shown <= 20) out += (pass ? "unexpected " : "missing ") + item + "\n";
  }
  return out;
}

// "inode a m c b" of a bodyfile row; facts hold times as created, modified, mft modified, accessed.
std::string body_row(uint64_t inode, const std::string (&t)[4]) {
  std::string out = std::to_string(inode);
  for (int k : {3, 1, 2, 0}) out += " " + std::to_string(fixtures::unix_seconds(t[k]));
  return out;
}

// One row per name and attribute, one for both where the file-name times equal the standard
// information ones; a name in an extension record brings its file-name row alone.
TEST_P(Timelines, BodyfileTimesAreThoseIstatReads) {
  const std::string out = run("-bodyfile");
  std::vector<std::string> lines = body_lines(out);
  ASSERT_GT(lines.size(), 3u);
  EXPECT_EQ(lines[0], "md5|name|inode|mode as string|uid|gid|size|access time|modify time|mft time|create time");
  std::multiset<std::string> expected, got;
  for_each_record([&](const fixtures::fact_record& rec, const std::vector<const fixtures::fact_name*>& names) {
    if (names.empty()) expected.insert(body_row(rec.inode, rec.si));
    for (const fixtures::fact_name* n : names) {
      const bool match = std::equal(n->fn, n->fn + 4, rec.si);
      if (match || n->holder == rec.inode) expected.insert(body_row(rec.inode, rec.si));
      if (!match) expected.insert(body_row(rec.inode, n->fn));
    }
  });
  for (size_t i = 1; i < lines.size(); ++i) {
    std::vector<std::string> f = orv::split(lines[i], "|", false);
    ASSERT_EQ(f.size(), 11u) << lines[i];
    EXPECT_TRUE(f[0] == "0" && f[3].empty() && f[4] == "0" && f[5] == "0") << lines[i];
    const std::string& name = f[1];
    auto ends = [&](const std::string& tail) {
      return name.size() > tail.size() && name.compare(name.size() - tail.size(), tail.size(), tail) == 0;
    };
    EXPECT_TRUE(ends("SI times)") || ends("FN times)") || ends("; SI & FN times match)")) << lines[i];
    got.insert(f[2] + " " + f[7] + " " + f[8] + " " + f[9] + " " + f[10]);
  }
  EXPECT_EQ(differences(expected, got), "");

  if (std::string(GetParam().label) != "Feature") return;
  // mactime reads the file as written, banner lines included, and sorts its instants.
  if (testutil::run_shell("command -v mactime").status != 0) GTEST_SKIP() << "no sleuthkit mactime";
  const std::string file = fixtures::scratch_dir("bodyfile") + "/body.txt";
  auto r = fixtures::run_brimlock("-image " + fixtures::q(m_image) + " -bodyfile -quiet -out " + fixtures::q(file));
  ASSERT_EQ(r.status, 0) << r.err;
  auto m = testutil::run_shell("mactime -b " + fixtures::q(file) + " -d");
  ASSERT_EQ(m.status, 0) << m.err;
  EXPECT_EQ(m.err, "");
  for (const char* row : {"Thu Jan 02 2020 03:04:05,21,...b,,0,0,66,", "Wed Feb 03 2021 04:05:06,21,m...,,0,0,66,",
                          "Fri Mar 04 2022 05:06:07,21,.a..,,0,0,66,", "Mon Jul 08 2024 09:10:11,4,.a..,,0,0,99,"})
    EXPECT_NE(m.out.find(row), std::string::npos) << row;
}

// Every row has the 17 fields; each displayable instant of each attribute, under each name,
// stands in one row of its own prefix.
TEST_P(Timelines, L2tRowsAreCsvWithEveryInstant) {
  std::vector<std::string> lines = body_lines(run("-csvl2t"));
  ASSERT_GT(lines.size(), 3u);
  EXPECT_EQ(lines[0], "date,time,timezone,MACB,source,sourcetype,type,user,host,short,desc,version,filename,inode,"
                      "notes,format,extra");
  std::set<std::string> expected, got;  // "inode short type date time"
  auto add = [&](uint64_t inode, const std::string& name, const char* prefix, const std::string (&t)[4]) {
    std::string clean = name, d, tm;
    std::replace(clean.begin(), clean.end(), ',', ' ');
    for (const std::string& instant : t)
      if (fixtures::ms_cells(instant, d, tm) && !d.empty()) expected.insert(std::to_string(inode) + " " + clean + " " + prefix + " " + d + " " + tm);
  };
  for_each_record([&](const fixtures::fact_record& rec, const std::vector<const fixtures::fact_name*>& names) {
    if (names.empty()) add(rec.inode, "<no filename attribute>", "$SI:", rec.si);
    for (const fixtures::fact_name* n : names) {
      add(rec.inode, n->name, "$SI:", rec.si);
      add(rec.inode, n->name, n->name_space == 2 ? "$FN8.3:" : "$FN:", n->fn);
    }
  });
  std::string previous_time;
  uint64_t previous_inode = ~0ull;
  for (size_t i = 1; i < lines.size(); ++i) {
    std::vector<std::string> f = orv::split(lines[i], ",", false);
    ASSERT_EQ(f.size(), 17u) << lines[i];
    EXPECT_TRUE(f[2] == "UTC" && f[4] == "FILE" && f[5] == "NTFS$MFT" && f[11] == "2" && f[15] == "brimlock (orvenna)")
        << lines[i];
    const size_t bracket = f[6].find(" [");
    ASSERT_NE(bracket, std::string::npos) << lines[i];
    EXPECT_EQ(f[6].substr(bracket), " [" + f[3] + "]");
    const uint64_t inode = fixtures::parse_number(f[13]);
    // A record's rows ascend in time.
    if (inode == previous_inode) {
      EXPECT_LE(previous_time, f[0] + f[1]) << lines[i];
    }
    previous_inode = inode, previous_time = f[0] + f[1];
    got.insert(std::to_string(inode) + " " + f[9] + " " + f[6].substr(0, bracket) + " " + f[0] + " " + f[1]);
  }
  EXPECT_EQ(differences({expected.begin(), expected.end()}, {got.begin(), got.end()}), "");
}

// Every file in use that fls lists has its line, written from the root without "[root]", and every
// line is a path fls lists or a DOS name.
TEST_P(Timelines, BarePathsAreThoseFlsLists) {
  std::vector<std::string> lines = body_lines(run("-filepath_only"));
  std::set<std::string> got(lines.begin(), lines.end()), listed, in_use;  // no header
  for (const fixtures::fact_path& p : m_facts.paths) {
    std::string path = "\\" + p.path;
    std::replace(path.begin(), path.end(), '/', '\\');
    listed.insert(path.substr(0, path.find(':')));  // fls lists some files by their streams alone
    if (p.allocated && p.kind != 'd' && p.path.find(':') == std::string::npos && p.path.compare(0, 1, "$") != 0)
      in_use.insert(path);
  }
  // DOS names have lines of their own; fls does not list them.
  for (const fixtures::fact_name& n : m_facts.names) {
    std::string dir;
    if (n.name_space != 2 || !m_facts.dir_path(n.parent, dir)) continue;
    std::string path = "\\" + dir + (dir.empty() ? "" : "\\") + n.name;
    std::replace(path.begin(), path.end(), '/', '\\');
    listed.insert(path);
  }
  for (const std::string& path : in_use) EXPECT_TRUE(got.count(path)) << "missing " << path;
  for (const std::string& path : got) EXPECT_TRUE(listed.count(path)) << "unexpected " << path;
}

INSTANTIATE_TEST_SUITE_P(Sources, Timelines, ::testing::ValuesIn(kTimelineSources),
                         [](const ::testing::TestParamInfo<timeline_source>& i) { return std::string(i.param.label); });

}  // namespace
