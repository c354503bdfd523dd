// The walk's option parse: argument vectors in, context fields and messages out. Only fields that
// the scan or the writers read are looked at.
#include <gtest/gtest.h>
#include <unistd.h>

#include "base/orv_version.h"
#include "base/orv_string.h"
#include "base/orv_time.h"
#include "run/mft_entries_ctx.h"
#include "run/orv_walk_options.h"
#include "tests/test_util.h"

namespace {

using strings = std::vector<std::string>;

// The status and what went to standard error; with `mft`, an extracted $MFT is named first, so
// that nothing is opened at parse time.
std::pair<int, std::string> walk(mft_entries_ctx& c, strings args, bool mft = true) {
  if (mft) args.insert(args.begin(), {"-mftfile", "/nonexistent/$MFT"});
  args.insert(args.begin(), "brimlock");
  testing::internal::CaptureStderr();
  int status = parse_walk_options(c, args, "ver: " BRIMLOCK_VERSION, "", "");
  return {status, testing::internal::GetCapturedStderr()};
}

TEST(WalkOptions, SourceChoice) {
  std::string dir = testutil::make_temp_dir("walksrc");
  testutil::write_text(dir + "/notntfs", std::string(4096, 'x'));
  // (No source at all: its message and status are checked through the binary.)
  struct source_case { strings args; int status; std::string err; const wchar_t* mftfile; } const cases[] = {
      {{"-MFTFILE", "/x/$MFT"}, 0, "", L"/x/$MFT"},
      // A partition that is no NTFS volume is reported, and the parse goes on; -mftfile is not taken.
      {{"-partition", dir + "/notntfs", "-mftfile", "/x/$MFT"}, 0,
       "prob validating volume " + dir + "/notntfs as a NTFS partition, aborting...\n", L""},
      {{"-partition", "\\\\.\\c:"}, 0, "", L""},
      {{"-image", dir + "/missing.dd"}, -1, "prob reading: " + dir + "/missing.dd, aborting\n,", L""},
      {{"-vmdk", dir + "/a.vmdk | " + dir + "/b.vmdk"}, -1,
       dir + "/a.vmdk can't be opened\n\nsuggested array: -vmdk \"" + dir + "/a.vmdk | " + dir + "/b.vmdk\"\n", L""},
  };
  for (const source_case& sc : cases) {
    mft_entries_ctx c;
    EXPECT_EQ(walk(c, sc.args, false), std::make_pair(sc.status, sc.err)) << sc.args[0];
    EXPECT_EQ(c.m_mftfile_path, sc.mftfile) << sc.args[0];
  }
}

// Lists split at "|", "," and ";", lowered, empty items dropped; a name may name a stream;
// repeated inode numbers merge. (Plain lists: integration/filter_test.cpp.)
TEST(WalkOptions, StreamDirectoryAndInodeFilters) {
  mft_entries_ctx c;
  EXPECT_EQ(walk(c, {"-filter_name", "Temp | a:Zone", "-filter_dir", "C:\\Windows*;\\Users*3|"}).first, 0);
  ASSERT_EQ(c.m_filter_names.size(), 2u);
  const filter_record& stream = *c.m_filter_names.begin();
  EXPECT_TRUE(stream.m_text == L"a" && stream.m_by_stream && stream.m_stream_names.count(L"zone"));
  EXPECT_EQ(c.m_filter_dir, (std::vector<std::wstring>{L"c:\\windows*", L"\\users*3"}));

  mft_entries_ctx n;
  walk(n, {"-filter_inode", "5|0x20:Zone.Identifier|5:x|bad|0x20; 12 34", "-filter_dir_inode", "0x1C"});
  ASSERT_EQ(n.m_filter_inodes.size(), 2u);
  for (uint64_t inode : {5, 0x20}) {
    const filter_record& r = n.m_filter_inodes.at(inode);
    EXPECT_TRUE(r.m_whole_entry && r.m_by_stream && r.m_stream_names.size() == 1u) << inode;
  }
  EXPECT_EQ(n.m_filter_inodes.at(0x20).m_file_text, "inode(32:zone.identifier)");
  ASSERT_EQ(n.m_filter_dir_inodes.size(), 1u);
  const filter_record& dir_inode = n.m_filter_dir_inodes.at(0x1c);
  EXPECT_TRUE(dir_inode.m_type == filter_directory_inode && dir_inode.m_whole_entry);
}

TEST(WalkOptions, SignaturesAndPatterns) {
  // An unknown word is reported and skipped; only the first -filter_sig counts; the head size is
  // the largest any signature needs.
  mft_entries_ctx c;
  EXPECT_EQ(walk(c, {"-filter_sig", "xyz|HIVE", "-filter_sig", "mz"}),
            std::make_pair(0, std::string("Error: -filter_sig option specified invalid option, aborting\n")));
  ASSERT_EQ(c.m_signature_filters.size(), 1u);
  EXPECT_TRUE(c.m_signature_filters[0].m_type == 35u && c.m_header_size == 16u && c.m_include_header == 1);
  mft_entries_ctx d;
  walk(d, {"-filter_sig", "lnk,64bit_pe,evt"});
  EXPECT_TRUE(d.m_signature_filters.size() == 3u && d.m_header_size == 512u);
  const std::pair<const char*, std::vector<uint8_t>> patterns[] = {
      {"4d 5a", {0x4d, 0x5a}}, {"0x4D,0x5a,", {0x4d, 0x5a}}, {"4d:5a:00", {0x4d, 0x5a, 0}}, {"ff-0", {0xff, 0}},
      {"0x4d", {0x4d}},        {"4d5a", {}},                  {"zz yy", {}},                 {"100 1", {}}
  };
  const std::string refused = "Error: -filter_pattern option specified invalid argument, aborting\n";
  for (const auto& p : patterns) {
    mft_entries_ctx e;
    auto want = p.second.empty() ? std::make_pair(-1, refused) : std::make_pair(0, std::string());
    EXPECT_EQ(walk(e, {"-filter_pattern", p.first}), want) << p.first;
    EXPECT_EQ(e.m_signature_filters.empty() ? std::vector<uint8_t>() : e.m_signature_filters[0].m_pattern, p.second);
  }
}

TEST(WalkOptions, TimeWindowAndRanges) {
  using testutil::filetime;
  struct window_case { strings args; uint64_t start, stop; const char* err; } const cases[] = {
      {{"-filter_start_time", "01/31/2020"}, filetime(2020, 1, 31), ~0ull, ""},
      {{"-filter_stop_time", "02/01/2021 10:00:00", "-filter_start_time", "01/31/2020 08:30:00"},
       filetime(2020, 1, 31, 8, 30, 0), filetime(2021, 2, 1, 10, 0, 0), ""},
      {{"-filter_start_time", "yesterday", "-filter_stop_time", "never"}, 0, ~0ull,
       "Error: invalid filter start time, defaulting to 0\n"},
  };
  for (const window_case& wc : cases) {
    mft_entries_ctx c;
    EXPECT_EQ(walk(c, wc.args).second, wc.err) << wc.args[1];
    EXPECT_TRUE(c.m_filter_start_time == wc.start && c.m_filter_stop_time == wc.stop) << wc.args[1];
  }
  // The range row runs after the start row.
  mft_entries_ctx d, h;
  walk(d, {"-mftrange", "10", "-mftstart", "o20"});
  EXPECT_TRUE(d.m_mft_start == 16u && d.m_mft_range == 10u);
  // The future limit of the time analysis: one hour past the start of the run.
  uint64_t before = orv::current_filetime();
  walk(h, {});
  const uint64_t hour = 36000000000ull;
  EXPECT_TRUE(h.m_future_limit >= before + hour && h.m_future_limit <= orv::current_filetime() + hour);
}

TEST(WalkOptions, OutputFormatsResultsPathAndCopyDirectory) {
  // -default_output clears -bodyfile.
  mft_entries_ctx def;
  walk(def, {"-default_output", "-bodyfile"});
  EXPECT_EQ(def.m_fmt_bodyfile, 0);

  // A relative -out is taken from the current directory.
  std::string dir = testutil::make_temp_dir("walkout");
  mft_entries_ctx rel, copy, bad;
  char cwd[4096];
  ASSERT_TRUE(getcwd(cwd, sizeof(cwd)) && chdir(dir.c_str()) == 0);
  walk(rel, {"-out", "rel.csv"});
  EXPECT_EQ(rel.m_results_path, orv::to_wide(dir + "/rel.csv"));
  ASSERT_EQ(chdir(cwd), 0);
  // Copying files makes its directory and leaves -csv for the per-path layout.
  EXPECT_EQ(walk(copy, {"-action_copy_files", dir + "/copy/x//", "-csv"}).first, 0);
  EXPECT_TRUE(access((dir + "/copy/x").c_str(), F_OK) == 0 && copy.m_fmt_csv == 0);
  testutil::write_text(dir + "/file", "x");
  EXPECT_EQ(walk(bad, {"-action_copy_files", dir + "/file/sub"}),
            std::make_pair(-1, "prob creating results directory, " + dir + "/file/sub\n"));
}

}  // namespace
