// The walk's option parse: argument vectors in, context fields and messages out.
#include <gtest/gtest.h>
#include <unistd.h>

#include "base/orv_string.h"
#include "base/orv_time.h"
#include "run/mft_entries_ctx.h"
#include "run/orv_walk_options.h"
#include "tests/test_util.h"

namespace {

using strings = std::vector<std::string>;

struct walk_result {
  int m_status = 0;
  std::string m_err;
};

walk_result walk(mft_entries_ctx& c, strings args) {
  args.insert(args.begin(), "brimlock");
  testing::internal::CaptureStderr();
  walk_result r;
  r.m_status = parse_walk_options(c, args, "ver: 0.95", "", "");
  r.m_err = testing::internal::GetCapturedStderr();
  return r;
}

// With an extracted $MFT named, nothing is opened at parse time.
walk_result walk_mft(mft_entries_ctx& c, strings args) {
  args.insert(args.begin(), {"-mftfile", "/nonexistent/$MFT"});
  return walk(c, args);
}

const char k_no_source[] =
    "error: need to specify at least an input source [-mftfile, -image, -drivenum, -partition, -vmdk]\n";

TEST(WalkOptions, SourceChoice) {
  std::string dir = testutil::make_temp_dir("walksrc");
  testutil::write_text(dir + "/notntfs", std::string(4096, 'x'));
  struct source_case {
    strings m_args;
    int m_status;
    std::string m_err;
    uint32_t m_open_kind;  // 255: none chosen
    const wchar_t* m_mftfile;
  } const cases[] = {
      {{"-csv"}, -3, k_no_source, 255, L""},
      {{"-MFTFILE", "/x/$MFT"}, 0, "", 36, L"/x/$MFT"},
      // A partition that is no NTFS volume is reported, and the parse goes on; -mftfile is not taken.
      {{"-partition", dir + "/notntfs", "-mftfile", "/x/$MFT"},
       0,
       "prob validating volume " + dir + "/notntfs as a NTFS partition, aborting...\n",
       32,
       L""},
      {{"-partition", "\\\\.\\c:"}, 0, "", 35, L""},
      {{"-image", dir + "/missing.dd"}, -1, "prob reading: " + dir + "/missing.dd, aborting\n,", 255, L""},
  };
  for (const source_case& sc : cases) {
    mft_entries_ctx c;
    walk_result r = walk(c, sc.m_args);
    EXPECT_EQ(r.m_status, sc.m_status) << sc.m_args[0];
    EXPECT_EQ(r.m_err, sc.m_err);
    EXPECT_EQ(c.m_open_kind, sc.m_open_kind) << sc.m_args[0];
    EXPECT_EQ(c.m_mftfile_path, sc.m_mftfile) << sc.m_args[0];
  }

  mft_entries_ctx c;
  strings only_name = {"brimlock"};
  EXPECT_EQ(parse_walk_options(c, only_name, "ver: 0.95", "", ""), -2);
  EXPECT_EQ(c.m_source_type, "NTFS$MFT");
  EXPECT_EQ(walk(c, {"-indxfile", "x"}).m_status, 0);
  EXPECT_EQ(c.m_indx_file, L"x");
  mft_entries_ctx v;
  walk_result r = walk(v, {"-vmdk", dir + "/a.vmdk | " + dir + "/b.vmdk"});
  EXPECT_EQ(r.m_status, -1);
  EXPECT_NE(r.m_err.find(dir + "/a.vmdk can't be opened"), std::string::npos);
  EXPECT_EQ(v.m_vmdk_list.size(), 2u);
}

TEST(WalkOptions, NameAndExtensionFilters) {
  mft_entries_ctx c;
  walk_result r = walk_mft(c, {"-filter_ext", ".TXT;.Log|", "-filter_name", "Temp | a:Zone", "-filter_fullname",
                               "NTUSER.DAT", "-filter_wildcard", "A?C", "-filter_wildcard", "x?"});
  EXPECT_EQ(r.m_status, 0);
  EXPECT_EQ(c.m_filter_ext, (std::vector<std::wstring>{L"txt", L"log"}));
  ASSERT_EQ(c.m_filter_names.size(), 3u);
  auto it = c.m_filter_names.begin();
  EXPECT_EQ(it->m_text, L"a");
  EXPECT_TRUE(it->m_by_stream);
  EXPECT_EQ(it->m_stream_names.count(L"zone"), 1u);
  ++it;
  EXPECT_EQ(it->m_text, L"ntuser.dat");
  EXPECT_EQ(it->m_type, uint32_t(filter_full_name));
  EXPECT_FALSE(it->m_partial);
  ++it;
  EXPECT_EQ(it->m_text, L"temp");
  EXPECT_TRUE(it->m_partial);
  ASSERT_EQ(c.m_filter_wildcards.size(), 2u);
  EXPECT_EQ(c.m_filter_wildcards[0].m_source, L"a?c");

  // A second -filter_file replaces the first; directories are lowered and split.
  mft_entries_ctx d;
  walk_mft(d, {"-filter_file", "a|b", "-filter_file", "C:\\X.txt", "-filter_dir", "C:\\Windows*;\\Users*3",
               "-filter_dir_recurse", "q"});
  EXPECT_EQ(d.m_filter_file, (std::vector<std::wstring>{L"c:\\x.txt"}));
  EXPECT_EQ(d.m_filter_dir, (std::vector<std::wstring>{L"c:\\windows*", L"\\users*3"}));
  EXPECT_EQ(d.m_filter_dir_recurse, (std::vector<std::wstring>{L"q"}));
}

// Repeated numbers merge into one record: whole entry and streams together.
TEST(WalkOptions, InodeLists) {
  mft_entries_ctx c;
  walk_mft(c, {"-filter_inode", "5|0x20:Zone.Identifier|5:x|bad|0x20; 12 34", "-filter_dir_inode", "0x1C"});
  ASSERT_EQ(c.m_filter_inodes.size(), 2u);
  for (uint64_t inode : {5, 0x20}) {
    const filter_record& r = c.m_filter_inodes.at(inode);
    EXPECT_TRUE(r.m_whole_entry && r.m_by_stream) << inode;
    EXPECT_EQ(r.m_stream_names.size(), 1u) << inode;
  }
  EXPECT_EQ(c.m_filter_inodes.at(0x20).m_file_text, "inode(32:zone.identifier)");
  ASSERT_EQ(c.m_filter_dir_inodes.size(), 1u);
  EXPECT_EQ(c.m_filter_dir_inodes.at(0x1c).m_type, uint32_t(filter_directory_inode));
  EXPECT_TRUE(c.m_filter_dir_inodes.at(0x1c).m_whole_entry);
}

TEST(WalkOptions, SignaturesAndPatterns) {
  {
    mft_entries_ctx c;
    walk_result r = walk_mft(c, {"-filter_sig", "xyz|HIVE", "-filter_sig", "mz"});
    EXPECT_EQ(r.m_status, 0);
    EXPECT_EQ(r.m_err, "Error: -filter_sig option specified invalid option, aborting\n");
    ASSERT_EQ(c.m_signature_filters.size(), 1u);  // the second -filter_sig does not count
    EXPECT_EQ(c.m_signature_filters[0].m_type, 35u);
    EXPECT_EQ(c.m_header_size, 16u);
    EXPECT_EQ(c.m_include_header, 1);
  }
  {
    mft_entries_ctx c;
    walk_mft(c, {"-action_include_header", "-filter_sig", "lnk,64bit_pe,evt"});
    ASSERT_EQ(c.m_signature_filters.size(), 3u);
    EXPECT_EQ(c.m_signature_filters[1].m_type, 33u);
    EXPECT_EQ(c.m_header_size, 512u);
  }
  struct pattern_case {
    const char* m_text;
    std::vector<uint8_t> m_bytes;  // empty: refused
  };
  const pattern_case cases[] = {
      {"4d 5a", {0x4d, 0x5a}}, {"0x4D,0x5a,", {0x4d, 0x5a}}, {"4d:5a:00", {0x4d, 0x5a, 0}}, {"ff-0", {0xff, 0}},
      {"4d", {0x4d}},          {"0x4d", {0x4d}},             {"4d5a", {}},                 {"zz yy", {}},
      {"100 1", {}},           {"", {}},                     {"abc", {}},
  };
  for (const pattern_case& pc : cases) {
    mft_entries_ctx c;
    walk_result r = walk_mft(c, {"-filter_pattern", pc.m_text});
    if (pc.m_bytes.empty()) {
      EXPECT_EQ(r.m_status, -1) << pc.m_text;
      EXPECT_EQ(r.m_err, "Error: -filter_pattern option specified invalid argument, aborting\n");
    } else {
      EXPECT_EQ(r.m_status, 0) << pc.m_text;
      EXPECT_EQ(c.m_pattern_bytes, pc.m_bytes) << pc.m_text;
      ASSERT_EQ(c.m_signature_filters.size(), 1u);
      EXPECT_EQ(c.m_signature_filters[0].m_type, 39u);
    }
  }
}

TEST(WalkOptions, TimeWindow) {
  using testutil::filetime;
  struct window_case {
    strings m_args;
    uint64_t m_start, m_stop;
  } const cases[] = {
      {{"-filter_start_time", "01/31/2020"}, filetime(2020, 1, 31), ~0ull},
      {{"-filter_stop_time", "01/31/2020"}, 0, filetime(2020, 1, 31, 23, 59, 59)},  // a bare stop day ends at its end
      {{"-filter_stop_time", "02/01/2021 10:00:00", "-filter_start_time", "01/31/2020 08:30:00"},
       filetime(2020, 1, 31, 8, 30, 0),
       filetime(2021, 2, 1, 10, 0, 0)},
      {{"-filter_start_time", "yesterday", "-filter_stop_time", "never"}, 0, ~0ull},
  };
  for (const window_case& wc : cases) {
    mft_entries_ctx c;
    walk_result r = walk_mft(c, wc.m_args);
    EXPECT_EQ(c.m_filter_start_time, wc.m_start) << wc.m_args[1];
    EXPECT_EQ(c.m_filter_stop_time, wc.m_stop) << wc.m_args[1];
    if (wc.m_args[1] == "yesterday") {
      EXPECT_EQ(r.m_err, "Error: invalid filter start time, defaulting to 0\n");
    }
  }
}

TEST(WalkOptions, RangesAndFinders) {
  mft_entries_ctx c;
  walk_mft(c, {"-mftstart", "0x10"});
  EXPECT_EQ(c.m_mft_start, 16u);
  EXPECT_EQ(c.m_mft_range, 1u);
  mft_entries_ctx d;
  walk_mft(d, {"-mftrange", "10", "-mftstart", "o20"});  // the range row runs after the start row
  EXPECT_EQ(d.m_mft_start, 16u);
  EXPECT_EQ(d.m_mft_range, 10u);
  mft_entries_ctx e;
  walk_mft(e, {"-find_mft", "0x20"});
  EXPECT_EQ(e.m_find_mft, 1);
  EXPECT_EQ(e.m_mft_start, 32u);
  EXPECT_EQ(e.m_mft_range, 1u);
  EXPECT_EQ(e.m_header_size, 2048u);

  mft_entries_ctx f;
  walk_result r = walk_mft(f, {"-find_objid", "1234"});
  EXPECT_EQ(r.m_status, -1);
  EXPECT_EQ(r.m_err, "prob parsing 1234 as ObjID, aborting\n");
  mft_entries_ctx g;
  EXPECT_EQ(walk_mft(g, {"-find_objid", "{0a1b2c3d-4e5f-6a7b-8c9d-0e1f2a3b4c5d}"}).m_status, 0);

  // One hour past the start of the run.
  mft_entries_ctx h;
  uint64_t before = orv::current_filetime();
  walk_mft(h, {});
  EXPECT_GE(h.m_future_limit, before + 36000000000ull);
  EXPECT_LE(h.m_future_limit, orv::current_filetime() + 36000000000ull);
}

TEST(WalkOptions, OutputSelection) {
  mft_entries_ctx hash;
  walk_mft(hash, {"-hashfile", "md5 | SHA256 | crc"});
  EXPECT_EQ(hash.m_hash_list_format, 1);
  EXPECT_EQ(hash.m_hash_md5, 1);
  EXPECT_EQ(hash.m_hash_sha1, 0);
  EXPECT_EQ(hash.m_hash_sha256, 1);
  EXPECT_EQ(hash.m_field_separator, "|");
  EXPECT_EQ(hash.m_no_whitespace, 1);

  // -csv cancels the per-path, hash and default layouts.
  mft_entries_ctx csv;
  walk_mft(csv, {"-csvperpath", "-hashfile", "sha1", "-csv"});
  EXPECT_EQ(csv.m_fmt_csv, 1);
  EXPECT_EQ(csv.m_hash_list_format, 0);
  EXPECT_EQ(csv.m_csvperpath, 1);  // its row comes after the cancellation
  EXPECT_EQ(csv.m_hash_sha1, 1);

  mft_entries_ctx def;
  walk_mft(def, {"-default_output", "-bodyfile"});
  EXPECT_EQ(def.m_default_output, 1);
  EXPECT_EQ(def.m_fmt_bodyfile, 0);  // cleared by -default_output before the format rule ran
  EXPECT_EQ(def.m_list_separator, L"|");

  mft_entries_ctx l2t;
  walk_mft(l2t, {"-csvl2t"});
  EXPECT_EQ(l2t.m_fmt_l2t, 1);
  EXPECT_EQ(l2t.m_no_whitespace, 1);
  EXPECT_EQ(l2t.m_blank_before_time, 0);
  EXPECT_EQ(l2t.m_follow_ref_inode, 1);

  mft_entries_ctx per_path;
  walk_mft(per_path, {"-filepath_only", "-csvperpath"});
  EXPECT_EQ(per_path.m_filepath_only, 0);
  EXPECT_EQ(per_path.m_csvperpath, 1);

  // Switches with side effects beyond their own field.
  mft_entries_ctx side;
  walk_mft(side, {"-action_find_strings_in_hdr", "-filter_deleted_files"});
  EXPECT_EQ(side.m_metadata_only, 0);
  EXPECT_EQ(side.m_header_strings, 1);
  EXPECT_EQ(side.m_header_size, 256u);
  EXPECT_EQ(side.m_filter_deleted, 1);
  EXPECT_EQ(side.m_and_logic, 1);
}

TEST(WalkOptions, ResultsPathAndCopyDirectory) {
  std::string dir = testutil::make_temp_dir("walkout");
  std::wstring wdir = orv::to_wide(dir);
  // The directory of -out is made before the file is tried.
  mft_entries_ctx c;
  walk_result r = walk_mft(c, {"-out", dir + "/a/b/r.csv"});
  EXPECT_EQ(r.m_status, 0) << r.m_err;
  EXPECT_EQ(c.m_results_path, wdir + L"/a/b/r.csv");
  EXPECT_EQ(access((dir + "/a/b").c_str(), F_OK), 0);

  char cwd[4096];
  ASSERT_TRUE(getcwd(cwd, sizeof(cwd)));
  ASSERT_EQ(chdir(dir.c_str()), 0);
  mft_entries_ctx rel;
  walk_mft(rel, {"-out", "rel.csv"});
  EXPECT_EQ(rel.m_results_path, wdir + L"/rel.csv");
  ASSERT_EQ(chdir(cwd), 0);

  mft_entries_ctx copy;
  r = walk_mft(copy, {"-action_copy_files", dir + "/copy/x//", "-csv"});
  EXPECT_EQ(r.m_status, 0);
  EXPECT_EQ(copy.m_results_dir, wdir + L"/copy/x");
  EXPECT_EQ(access((dir + "/copy/x").c_str(), F_OK), 0);
  EXPECT_EQ(copy.m_fmt_csv, 0);
  EXPECT_EQ(copy.m_csvperpath, 1);
  EXPECT_EQ(copy.m_list_separator, L",");
  EXPECT_EQ(copy.m_copy_normal_data, 1);

  mft_entries_ctx all;
  walk_mft(all, {"-action_copy_files", dir + "/copy", "-csvperpath", "-named_data", "-all"});
  EXPECT_EQ(all.m_copy_all, 1);
  EXPECT_EQ(all.m_copy_named_data, 0);
  EXPECT_EQ(all.m_list_separator, L"|");  // the per-path layout was already chosen

  testutil::write_text(dir + "/file", "x");
  mft_entries_ctx bad;
  r = walk_mft(bad, {"-action_copy_files", dir + "/file/sub"});
  EXPECT_EQ(r.m_status, -1);
  EXPECT_EQ(r.m_err, "prob creating results directory, " + dir + "/file/sub\n");

  // A script adds options behind the command line, quoted values kept whole.
  testutil::write_text(dir + "/opts", "-filter_name \"a b\"\n// -csv\n");
  mft_entries_ctx script;
  walk_mft(script, {"-script", dir + "/opts"});
  ASSERT_EQ(script.m_filter_names.size(), 1u);
  EXPECT_EQ(script.m_filter_names.begin()->m_text, L"a b");
  EXPECT_EQ(script.m_fmt_csv, 0);
}

}  // namespace
