// Each filter family on the feature volume (its extracted $MFT, or the image for the path
// filters), against the records that the facts sleuthkit read say it should select.

#include <regex>

#include "tests/integration/fixture_util.h"

namespace {

fixtures::rows_run on_mft(const std::string& tag, const std::string& options) {
  return fixtures::run_rows(tag, "-mftfile " + fixtures::q(fixtures::path("feature.mft")) + " -csv -quiet " + options);
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
      // Case folds by Unicode whatever the locale (on a volume by its $UpCase: below).
      {"-filter_fullname 'CAFÉ.TXT'", named("^café\\.txt$"), true, ""},
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
      // Sizes of the unnamed stream: sizes/big.bin (94) is 300000 bytes, sizes/sparse.bin (95)
      // 4 MiB; alternate streams of at least 9000 bytes: streams/data.txt (84) and its "bigstream".
      {"-filter_min_size 0x100000 -filter_inode '94|95' -filter_AND_logic", {95}, true, ""},
      {"-filter_min_size 200000 -filter_max_size 400000 -filter_inode '94|95' -filter_AND_logic", {94}, true, ""},
      {"-filter_min_ads_size 9000 -filter_inode '84|85' -filter_AND_logic", {84}, true, ""},
      // readme.txt was created 2020-01-02 03:04:05; no other time of the volume falls on that day.
      {"-filter_start_time \"01/02/2020\" -filter_stop_time \"01/02/2020\"", {0x42}, true, ""},
  };
  for (size_t k = 0; k < sizeof cases / sizeof cases[0]; ++k) {
    const filter_case& c = cases[k];
    SCOPED_TRACE(c.options);
    EXPECT_EQ(c.want.empty(), !c.some);
    fixtures::rows_run s = on_mft("filter" + std::to_string(k), c.options);
    EXPECT_EQ(s.records, c.want);
    for (size_t i = 0; i < s.rows.rows.size(); ++i)
      EXPECT_NE(s.rows.cell(i, "other info").find(c.note), std::string::npos);
    if (k + 1 == sizeof cases / sizeof cases[0]) {  // and only the instant inside the window makes a row
      ASSERT_EQ(s.rows.rows.size(), 1u);
      EXPECT_EQ(s.rows.cell(0, "date") + " " + s.rows.cell(0, "time-utc"), "2020-01-02 03:04:05.123");
    }
  }
  // Without -filter_AND_logic either filter selects.
  EXPECT_TRUE(on_mft("for", "-filter_inode 5 -filter_ext log").records.count(5));
}

TEST(PathFilters, DirectoriesAndFilesAsFlsListsThem) {
  const std::string image = fixtures::path("feature.img");
  ASSERT_FALSE(image.empty());
  const std::string source = "-image " + fixtures::q(image) + " -csv -quiet ";
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
    const fixtures::rows_run s = fixtures::run_rows("dir" + std::to_string(k), source + c.options);
    EXPECT_EQ(s.records, under(f, c.dir, c.levels));
    for (size_t i = 0; i < s.rows.rows.size(); ++i) EXPECT_NE(s.rows.cell(i, "other info").find("dir("), std::string::npos);
    if (c.levels) continue;
    // The records the directory's index gives are those that a walk over every record finds.
    std::string number;
    for (const fixtures::fact_path& p : f.paths)
      if (p.path == c.dir) number = std::to_string(p.inode);
    const std::string by_inode = source + "-filter_dir_inode " + number;
    EXPECT_EQ(s.records, fixtures::run_rows("dirinode" + std::to_string(k), by_inode).records);
  }

  const fixtures::rows_run files = fixtures::run_rows(
      "files", source + "-filter_file 'DOCS/REPORT.TXT | \\intl\\CAFÉ.txt | intl/日本語.txt | "
                        "c:\\attrlist\\many\\HARDLINK-number-150-with-a-long-name-to-fill-records.txt'");
  const std::set<uint64_t> want = {inode_of(f, "docs/report.txt"), inode_of(f, "intl/café.txt"),
                                   inode_of(f, "intl/日本語.txt"),
                                   inode_of(f, "attrlist/many/hardlink-number-150-with-a-long-name-to-fill-records.txt")};
  EXPECT_EQ(want.count(0), 0u);
  EXPECT_EQ(files.records, want);
  EXPECT_EQ(fixtures::run_rows("fold", source + "-filter_fullname 'CAFÉ.TXT'").records,
            std::set<uint64_t>{inode_of(f, "intl/café.txt")});
  // A stream mark selects the record through that stream.
  const fixtures::rows_run stream = fixtures::run_rows("stream", source + "-filter_file 'streams/DATA.txt:META'");
  EXPECT_EQ(stream.records, std::set<uint64_t>{inode_of(f, "streams/data.txt")});
  ASSERT_FALSE(stream.rows.rows.empty());
  EXPECT_NE(stream.rows.cell(0, "other info").find("inode(84:meta)"), std::string::npos);

  // A path the volume does not hold selects nothing, and the run says so; an extracted $MFT has no
  // directory index, so its paths select nothing either, and the run says why.
  const fixtures::rows_run none = fixtures::run_rows("none", source + "-filter_file '\\docs\\no such.txt'");
  EXPECT_TRUE(none.records.empty());
  EXPECT_NE(none.run.err.find("prob reading " + image + ": -filter_file path \\docs\\no such.txt not found\n"),
            std::string::npos) << none.run.err;
  const fixtures::rows_run mft = on_mft("mftfile", "-filter_dir docs -filter_file readme.txt");
  EXPECT_EQ(mft.run.status, 0);
  EXPECT_TRUE(mft.records.empty());
  EXPECT_NE(mft.run.err.find("prob reading " + fixtures::path("feature.mft") +
                             ": -filter_dir and -filter_file need a volume image, no record is selected by them\n"),
            std::string::npos) << mft.run.err;
}
