// Each filter family run through the binary on the feature volume's extracted $MFT, with the
// records it should select worked out from what sleuthkit read of the same volume.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <set>
#include <string>

#include "tests/integration/fixture_util.h"

using fixtures::q;

namespace {

struct selection {
  std::set<uint64_t> records;
  fixtures::results rows;
  std::string err;
};

selection run(const std::string& tag, const std::string& options) {
  std::string out = fixtures::scratch_dir(tag) + "/rows.csv";
  auto r = fixtures::run_brimlock("-mftfile " + q(fixtures::path("feature.mft")) + " -csv -quiet " + options +
                                  " -out " + q(out));
  selection s;
  s.err = r.err;
  s.rows = fixtures::parse_results(testutil::read_text(out), ",");
  for (size_t i = 0; i < s.rows.rows.size(); ++i) s.records.insert(fixtures::parse_number(s.rows.cell(i, "mft entry")));
  return s;
}

std::string lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return char(std::tolower(c)); });
  return text;
}

// Records that can have rows from an extracted $MFT: base records with standard information whose
// names the $MFT alone reaches (no non-resident attribute list), chosen by a test on their names.
std::set<uint64_t> expected(const fixtures::facts& f, const std::function<bool(const fixtures::fact_name&)>& pick) {
  std::set<uint64_t> out;
  for (const auto& kv : f.records) {
    const fixtures::fact_record& rec = kv.second;
    if (rec.extension || !rec.has_si() || rec.attrlist == "nonresident") continue;
    for (const fixtures::fact_name* n : f.names_of(rec.inode))
      if (pick(*n)) out.insert(rec.inode);
  }
  return out;
}

std::string extension_of(const std::string& name) {
  size_t dot = name.rfind('.');
  return dot == std::string::npos ? std::string("\x01") : lower(name.substr(dot + 1));
}

}  // namespace

class Filters : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(fixtures::path("feature.mft").empty());
    m_facts = fixtures::load_facts("feature.facts.tsv");
    ASSERT_FALSE(m_facts.records.empty());
  }
  fixtures::facts m_facts;
};

TEST_F(Filters, NamesFullNamesExtensionsAndWildcards) {
  selection s = run("fname", "-filter_name REPORT");
  auto want = expected(m_facts, [](const fixtures::fact_name& n) { return lower(n.name).find("report") != std::string::npos; });
  ASSERT_FALSE(want.empty());
  EXPECT_EQ(s.records, want);
  for (size_t i = 0; i < s.rows.rows.size(); ++i)
    EXPECT_NE(s.rows.cell(i, "other info").find("name(report)"), std::string::npos);

  // A full name must match whole: "report" alone names nothing, "report.txt" one record.
  EXPECT_TRUE(run("ffull0", "-filter_fullname report").records.empty());
  want = expected(m_facts, [](const fixtures::fact_name& n) { return lower(n.name) == "report.txt"; });
  EXPECT_EQ(run("ffull1", "-filter_fullname Report.TXT").records, want);

  // Extensions: dots dropped, case folded, the text after the last dot compared.
  s = run("fext", "-filter_ext \".BIN;.exe\"");
  want = expected(m_facts, [](const fixtures::fact_name& n) {
    std::string e = extension_of(n.name);
    return e == "bin" || e == "exe";
  });
  ASSERT_FALSE(want.empty());
  EXPECT_EQ(s.records, want);
  for (size_t i = 0; i < s.rows.rows.size(); ++i)
    EXPECT_NE(s.rows.cell(i, "other info").find("ext("), std::string::npos);

  // Only "?" is a wildcard, and a pattern may sit anywhere in the name.
  want = expected(m_facts, [](const fixtures::fact_name& n) {
    std::string l = lower(n.name);
    for (size_t i = 0; i + 5 <= l.size(); ++i)
      if (l.compare(i, 3, "dee") == 0 && l[i + 4] == '.') return true;
    return false;
  });
  ASSERT_FALSE(want.empty());
  s = run("fwild", "-filter_wildcard \"dee?.\"");
  EXPECT_EQ(s.records, want);
  EXPECT_TRUE(run("fstar", "-filter_wildcard \"dee*\"").records.empty());
}

TEST_F(Filters, InodesDeletedRecordsAndAndLogic) {
  // The inode list scan: exactly the records named, whatever else they are.
  selection s = run("finode", "-filter_inode \"0x42 | 74 ,5\"");
  EXPECT_EQ(s.records, std::set<uint64_t>({0x42, 74, 5}));
  for (size_t i = 0; i < s.rows.rows.size(); ++i)
    EXPECT_NE(s.rows.cell(i, "other info").find("inode("), std::string::npos);

  // Deleted records: every record that is not in use and has standard information.
  std::set<uint64_t> deleted;
  for (const auto& kv : m_facts.records)
    if (!kv.second.allocated && !kv.second.extension && kv.second.has_si()) deleted.insert(kv.first);
  ASSERT_FALSE(deleted.empty());
  s = run("fdel", "-filter_deleted_files");
  EXPECT_EQ(s.records, deleted);
  for (size_t i = 0; i < s.rows.rows.size(); ++i) EXPECT_EQ(s.rows.cell(i, "type").substr(0, 3), "del");

  // AND logic: an inode and an extension must both hold.
  EXPECT_EQ(run("fand1", "-filter_inode 0x42 -filter_ext txt -filter_AND_logic").records, std::set<uint64_t>({0x42}));
  EXPECT_TRUE(run("fand2", "-filter_inode 0x42 -filter_ext log -filter_AND_logic").records.empty());
  // Without it, either selects.
  std::set<uint64_t> either = run("for", "-filter_inode 5 -filter_ext log").records;
  EXPECT_TRUE(either.count(5));
}

TEST_F(Filters, TimeWindowAndSizes) {
  // readme.txt was created 2020-01-02 03:04:05; no other time of the volume falls on that day.
  selection s = run("ftime", "-filter_start_time \"01/02/2020\" -filter_stop_time \"01/02/2020\"");
  EXPECT_EQ(s.records, std::set<uint64_t>({0x42}));
  ASSERT_EQ(s.rows.rows.size(), 1u);  // and only the instant inside the window makes a row
  EXPECT_EQ(s.rows.cell(0, "date"), "2020-01-02");
  EXPECT_EQ(s.rows.cell(0, "time-utc"), "03:04:05.123");

  // Sizes of the unnamed stream: sizes/big.bin is 300000 bytes, sizes/sparse.bin 4 MiB.
  s = run("fmin", "-filter_min_size 0x100000");
  EXPECT_TRUE(s.records.count(95));
  EXPECT_FALSE(s.records.count(94));
  s = run("fmax", "-filter_min_size 200000 -filter_max_size 400000");
  EXPECT_TRUE(s.records.count(94));
  EXPECT_FALSE(s.records.count(95));
  // Alternate streams of at least 9000 bytes: streams/data.txt (its 9000-byte "bigstream").
  s = run("fads", "-filter_min_ads_size 9000");
  EXPECT_TRUE(s.records.count(84));
  EXPECT_FALSE(s.records.count(85));  // its Zone.Identifier is small
}
