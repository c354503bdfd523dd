// Each filter family run through the binary on the feature volume's extracted $MFT, with the
// records it should select worked out from what sleuthkit read of the same volume.
#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <set>
#include <string>

#include "tests/integration/fixture_util.h"

namespace {

struct selection { std::set<uint64_t> records; fixtures::results rows; };

selection run(const std::string& tag, const std::string& options) {
  std::string out = fixtures::scratch_dir(tag) + "/rows.csv";
  fixtures::run_brimlock("-mftfile " + fixtures::q(fixtures::path("feature.mft")) + " -csv -quiet " + options +
                         " -out " + fixtures::q(out));
  selection s;
  s.rows = fixtures::parse_results(testutil::read_text(out), ",");
  for (size_t i = 0; i < s.rows.rows.size(); ++i) s.records.insert(fixtures::parse_number(s.rows.cell(i, "mft entry")));
  return s;
}

}  // namespace

TEST(FilterOptions, EachFamilySelectsTheRecordsOfTheFacts) {
  ASSERT_FALSE(fixtures::path("feature.mft").empty());
  const fixtures::facts f = fixtures::load_facts("feature.facts.tsv");
  // Records that can have rows from an extracted $MFT (base records with standard information and
  // no non-resident attribute list) with a name, lower-cased, in which `pattern` is found.
  auto named = [&](const char* pattern) {
    std::set<uint64_t> out;
    const std::regex pick(pattern);
    for (const fixtures::fact_name& n : f.names) {
      const fixtures::fact_record& rec = f.records.at(n.inode);
      std::string lower = n.name;
      std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return char(std::tolower(c)); });
      if (!rec.extension && rec.si_present && rec.attrlist != "nonresident" && std::regex_search(lower, pick))
        out.insert(n.inode);
    }
    return out;
  };
  std::set<uint64_t> deleted;  // every record not in use that has standard information
  for (const auto& kv : f.records)
    if (!kv.second.allocated && !kv.second.extension && kv.second.si_present) deleted.insert(kv.first);
  // The records to select, whether the facts give some at all, a note in every row's other info.
  struct filter_case { const char* options; std::set<uint64_t> want; bool some; const char* note; } const cases[] = {
      {"-filter_name REPORT", named("report"), true, "name(report)"},
      // A full name must match whole.
      {"-filter_fullname report", {}, false, ""},
      {"-filter_fullname Report.TXT", named("^report\\.txt$"), true, ""},
      // Extensions: dots dropped, case folded, the text after the last dot compared.
      {"-filter_ext \".BIN;.exe\"", named("\\.(bin|exe)$"), true, "ext("},
      // Only "?" is a wildcard, and a pattern may sit anywhere in the name.
      {"-filter_wildcard \"dee?.\"", named("dee.\\."), true, ""},
      {"-filter_wildcard \"dee*\"", {}, false, ""},
      // The inode list scan: exactly the records named, whatever else they are.
      {"-filter_inode \"0x42 | 74 ,5\"", {0x42, 74, 5}, true, "inode("},
      {"-filter_deleted_files", deleted, true, ""},
      {"-filter_inode 0x42 -filter_ext txt -filter_AND_logic", {0x42}, true, ""},
      {"-filter_inode 0x42 -filter_ext log -filter_AND_logic", {}, false, ""},
      // readme.txt was created 2020-01-02 03:04:05; no other time of the volume falls on that day.
      {"-filter_start_time \"01/02/2020\" -filter_stop_time \"01/02/2020\"", {0x42}, true, ""},
  };
  for (size_t k = 0; k < sizeof cases / sizeof cases[0]; ++k) {
    const filter_case& c = cases[k];
    SCOPED_TRACE(c.options);
    EXPECT_EQ(c.want.empty(), !c.some);
    selection s = run("filter" + std::to_string(k), c.options);
    EXPECT_EQ(s.records, c.want);
    for (size_t i = 0; i < s.rows.rows.size(); ++i)
      EXPECT_NE(s.rows.cell(i, "other info").find(c.note), std::string::npos);
    if (k + 1 == sizeof cases / sizeof cases[0]) {  // and only the instant inside the window makes a row
      ASSERT_EQ(s.rows.rows.size(), 1u);
      EXPECT_EQ(s.rows.cell(0, "date") + " " + s.rows.cell(0, "time-utc"), "2020-01-02 03:04:05.123");
    }
  }
  // Without -filter_AND_logic either filter selects.
  EXPECT_TRUE(run("for", "-filter_inode 5 -filter_ext log").records.count(5));
}

TEST(FilterOptions, Sizes) {
  // Sizes of the unnamed stream: sizes/big.bin (94) is 300000 bytes, sizes/sparse.bin (95) 4 MiB.
  selection s = run("fmin", "-filter_min_size 0x100000");
  EXPECT_TRUE(s.records.count(95) && !s.records.count(94));
  s = run("fmax", "-filter_min_size 200000 -filter_max_size 400000");
  EXPECT_TRUE(s.records.count(94) && !s.records.count(95));
  // Alternate streams of at least 9000 bytes: streams/data.txt (84) with its 9000-byte "bigstream";
  // the Zone.Identifier of streams/download.exe (85) is small.
  s = run("fads", "-filter_min_ads_size 9000");
  EXPECT_TRUE(s.records.count(84) && !s.records.count(85));
}
