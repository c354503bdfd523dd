// The walk's option parse: argument vectors in, context fields and messages out.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>

#include "base/orv_time.h"
#include "run/mft_entries_ctx.h"
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

void put_boot_sector(std::vector<uint8_t>& image, size_t at, uint64_t sectors) {
  memcpy(&image[at + 3], "NTFS    ", 8);
  image[at + 11] = 0x00;
  image[at + 12] = 0x02;
  image[at + 13] = 8;
  memcpy(&image[at + 40], &sectors, 8);
  image[at + 510] = 0x55;
  image[at + 511] = 0xAA;
}

const char k_no_source[] =
    "error: need to specify at least an input source [-mftfile, -image, -drivenum, -partition, -vmdk]\n";

TEST(WalkOptions, SourceChoice) {
  std::string dir = testutil::make_temp_dir("walksrc");
  {
    mft_entries_ctx c;
    walk_result r = walk(c, {"-csv"});
    EXPECT_EQ(r.m_status, -3);
    EXPECT_EQ(r.m_err, k_no_source);
  }
  {
    mft_entries_ctx c;
    std::vector<std::string> only_name = {"brimlock"};
    EXPECT_EQ(parse_walk_options(c, only_name, "ver: 0.95", "", ""), -2);
    EXPECT_EQ(c.m_source_type, "NTFS$MFT");
  }
  {
    mft_entries_ctx c;
    EXPECT_EQ(walk(c, {"-MFTFILE", "/x/$MFT"}).m_status, 0);
    EXPECT_EQ(c.m_mftfile_path, L"/x/$MFT");
    EXPECT_EQ(c.m_open_kind, 36u);
  }
  {
    // A partition that is no NTFS volume is reported, and the parse goes on; -mftfile is not taken.
    testutil::write_text(dir + "/notntfs", std::string(4096, 'x'));
    mft_entries_ctx c;
    walk_result r = walk(c, {"-partition", dir + "/notntfs", "-mftfile", "/x/$MFT"});
    EXPECT_EQ(r.m_status, 0);
    EXPECT_EQ(r.m_err, "prob validating volume " + dir + "/notntfs as a NTFS partition, aborting...\n");
    EXPECT_EQ(c.m_open_kind, 32u);
    EXPECT_TRUE(c.m_mftfile_path.empty());
  }
  {
    mft_entries_ctx c;
    walk_result r = walk(c, {"-partition", "\\\\.\\c:"});
    EXPECT_EQ(r.m_status, 0);
    EXPECT_EQ(r.m_err, "");
    EXPECT_EQ(c.m_open_kind, 35u);
  }
  {
    mft_entries_ctx c;
    walk_result r = walk(c, {"-image", dir + "/missing.dd"});
    EXPECT_EQ(r.m_status, -1);
    EXPECT_EQ(r.m_err, "prob reading: " + dir + "/missing.dd, aborting\n,");
  }
  {
    mft_entries_ctx c;
    EXPECT_EQ(walk(c, {"-indxfile", "x"}).m_status, 0);
    EXPECT_EQ(c.m_indx_file, L"x");
  }
  {
    mft_entries_ctx c;
    walk_result r = walk(c, {"-vmdk", dir + "/a.vmdk | " + dir + "/b.vmdk"});
    EXPECT_EQ(r.m_status, -1);
    EXPECT_NE(r.m_err.find(dir + "/a.vmdk can't be opened"), std::string::npos);
    EXPECT_EQ(c.m_vmdk_list.size(), 2u);
  }
}

TEST(WalkOptions, ImageVolumes) {
  std::string dir = testutil::make_temp_dir("walkimg");
  {
    // One bare volume: filed as a volume image.
    std::vector<uint8_t> image(64 * 512);
    put_boot_sector(image, 0, 63);
    testutil::write_file(dir + "/vol.dd", image);
    mft_entries_ctx c;
    walk_result r = walk(c, {"-image", dir + "/vol.dd"});
    EXPECT_EQ(r.m_status, 0) << r.m_err;
    EXPECT_EQ(r.m_err, "");
    EXPECT_EQ(c.m_image_volume_path, std::wstring(dir.begin(), dir.end()) + L"/vol.dd");
    EXPECT_TRUE(c.m_image_path.empty());
  }
  // A disk with one NTFS partition at sector 2048.
  std::vector<uint8_t> disk((2048 + 64) * 512);
  uint8_t* entry = &disk[446];
  entry[4] = 7;
  uint32_t first = 2048, count = 64;
  memcpy(entry + 8, &first, 4);
  memcpy(entry + 12, &count, 4);
  disk[510] = 0x55;
  disk[511] = 0xAA;
  put_boot_sector(disk, 2048 * 512, 64);
  testutil::write_file(dir + "/disk.dd", disk);
  {
    // The tool does not pick a volume by itself.
    mft_entries_ctx c;
    walk_result r = walk(c, {"-image", dir + "/disk.dd"});
    EXPECT_EQ(r.m_status, -1);
    EXPECT_NE(r.m_err.find("volume offset [ 0x100000 ] : ntfs"), std::string::npos) << r.m_err;
    EXPECT_NE(r.m_err.find("use option [-offset 0x100000]"), std::string::npos);
  }
  {
    mft_entries_ctx c;
    walk_result r = walk(c, {"-image", dir + "/disk.dd", "-offset", "0x100000"});
    EXPECT_EQ(r.m_status, 0) << r.m_err;
    EXPECT_EQ(c.m_volume_offset, 0x100000u);
    EXPECT_EQ(c.m_image_path, std::wstring(dir.begin(), dir.end()) + L"/disk.dd");
  }
  {
    // Cut short: refused unless the size test is switched off.
    disk.resize((2048 + 32) * 512);
    testutil::write_file(dir + "/short.dd", disk);
    mft_entries_ctx c;
    walk_result r = walk(c, {"-image", dir + "/short.dd", "-offset", "1048576"});
    EXPECT_EQ(r.m_status, -1);
    EXPECT_NE(r.m_err.find("does not encapsulate entire volume"), std::string::npos);
    mft_entries_ctx d;
    EXPECT_EQ(walk(d, {"-image", dir + "/short.dd", "-offset", "1048576", "-ignore_image_size"}).m_status, 0);
    EXPECT_EQ(d.m_ignore_image_size, 1);
  }
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

TEST(WalkOptions, InodeLists) {
  mft_entries_ctx c;
  walk_mft(c, {"-filter_inode", "5|0x20:Zone.Identifier|5:x|bad|0x20; 12 34", "-filter_dir_inode", "0x1C"});
  ASSERT_EQ(c.m_filter_inodes.size(), 2u);
  const filter_record& five = c.m_filter_inodes.at(5);
  EXPECT_EQ(five.m_type, uint32_t(filter_inode));
  EXPECT_TRUE(five.m_whole_entry);
  EXPECT_TRUE(five.m_by_stream);
  EXPECT_EQ(five.m_stream_names.count(L"x"), 1u);
  const filter_record& hex = c.m_filter_inodes.at(0x20);
  EXPECT_TRUE(hex.m_by_stream);
  EXPECT_TRUE(hex.m_whole_entry);
  EXPECT_EQ(hex.m_stream_names.count(L"zone.identifier"), 1u);
  EXPECT_EQ(hex.m_file_text, "inode(32:zone.identifier)");
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
  {
    mft_entries_ctx c;
    walk_mft(c, {"-filter_start_time", "01/31/2020"});
    EXPECT_EQ(c.m_filter_start_time, testutil::filetime(2020, 1, 31));
    EXPECT_EQ(c.m_filter_stop_time, ~0ull);
  }
  {
    mft_entries_ctx c;
    walk_mft(c, {"-filter_stop_time", "01/31/2020"});
    EXPECT_EQ(c.m_filter_start_time, 0u);
    EXPECT_EQ(c.m_filter_stop_time, testutil::filetime(2020, 1, 31, 23, 59, 59));
  }
  {
    mft_entries_ctx c;
    walk_mft(c, {"-filter_stop_time", "02/01/2021 10:00:00", "-filter_start_time", "01/31/2020 08:30:00"});
    EXPECT_EQ(c.m_filter_start_time, testutil::filetime(2020, 1, 31, 8, 30, 0));
    EXPECT_EQ(c.m_filter_stop_time, testutil::filetime(2021, 2, 1, 10, 0, 0));
  }
  {
    mft_entries_ctx c;
    walk_result r = walk_mft(c, {"-filter_start_time", "yesterday", "-filter_stop_time", "never"});
    EXPECT_EQ(r.m_err, "Error: invalid filter start time, defaulting to 0\n");
    EXPECT_EQ(c.m_filter_start_time, 0u);
    EXPECT_EQ(c.m_filter_stop_time, ~0ull);
  }
}

TEST(WalkOptions, RangesAndFinders) {
  {
    mft_entries_ctx c;
    walk_mft(c, {"-mftstart", "0x10"});
    EXPECT_EQ(c.m_mft_start, 16u);
    EXPECT_EQ(c.m_mft_range, 1u);
  }
  {
    mft_entries_ctx c;
    walk_mft(c, {"-mftrange", "10", "-mftstart", "o20"});
    EXPECT_EQ(c.m_mft_start, 16u);
    EXPECT_EQ(c.m_mft_range, 10u);
  }
  {
    mft_entries_ctx c;
    walk_mft(c, {"-find_mft", "0x20", "-filter_max_size", "x100", "-filter_min_ads_size", "12"});
    EXPECT_EQ(c.m_find_mft, 1);
    EXPECT_EQ(c.m_mft_start, 32u);
    EXPECT_EQ(c.m_mft_range, 1u);
    EXPECT_EQ(c.m_header_size, 2048u);
    EXPECT_EQ(c.m_filter_max_size, 256u);
    EXPECT_EQ(c.m_filter_min_ads_size, 12u);
  }
  {
    mft_entries_ctx c;
    walk_result r = walk_mft(c, {"-find_objid", "1234"});
    EXPECT_EQ(r.m_status, -1);
    EXPECT_EQ(r.m_err, "prob parsing 1234 as ObjID, aborting\n");
    mft_entries_ctx d;
    EXPECT_EQ(walk_mft(d, {"-find_objid", "{0a1b2c3d-4e5f-6a7b-8c9d-0e1f2a3b4c5d}"}).m_status, 0);
  }
  {
    mft_entries_ctx c;
    uint64_t before = orv::current_filetime();
    walk_mft(c, {});
    EXPECT_GE(c.m_future_limit, before + 36000000000ull);
    EXPECT_LE(c.m_future_limit, orv::current_filetime() + 36000000000ull);
  }
}

TEST(WalkOptions, OutputSelection) {
  {
    mft_entries_ctx c;
    walk_mft(c, {"-hashfile", "md5 | SHA256 | crc"});
    EXPECT_EQ(c.m_hash_list_format, 1);
    EXPECT_EQ(c.m_hash_md5, 1);
    EXPECT_EQ(c.m_hash_sha1, 0);
    EXPECT_EQ(c.m_hash_sha256, 1);
    EXPECT_EQ(c.m_field_separator, "|");
    EXPECT_EQ(c.m_no_whitespace, 1);
  }
  {
    // -csv cancels the per-path, hash and default layouts.
    mft_entries_ctx c;
    walk_mft(c, {"-csvperpath", "-hashfile", "sha1", "-csv"});
    EXPECT_EQ(c.m_fmt_csv, 1);
    EXPECT_EQ(c.m_hash_list_format, 0);
    EXPECT_EQ(c.m_csvperpath, 1);  // its row comes after the cancellation
    EXPECT_EQ(c.m_hash_sha1, 1);
  }
  {
    mft_entries_ctx c;
    walk_mft(c, {"-default_output", "-bodyfile", "-hide_dos_fntimes"});
    EXPECT_EQ(c.m_default_output, 1);
    EXPECT_EQ(c.m_fmt_bodyfile, 0);  // cleared by -default_output before the format rule ran
    EXPECT_EQ(c.m_list_separator, L"|");
    EXPECT_EQ(c.m_hide_dos_fntimes, 1);
  }
  {
    mft_entries_ctx c;
    walk_mft(c, {"-csvl2t"});
    EXPECT_EQ(c.m_fmt_l2t, 1);
    EXPECT_EQ(c.m_no_whitespace, 1);
    EXPECT_EQ(c.m_blank_before_time, 0);
    EXPECT_EQ(c.m_follow_ref_inode, 1);
  }
  {
    mft_entries_ctx c;
    walk_mft(c, {"-filepath_only", "-csvperpath"});
    EXPECT_EQ(c.m_filepath_only, 0);
    EXPECT_EQ(c.m_csvperpath, 1);
  }
  {
    mft_entries_ctx c;
    walk_mft(c, {"-action_find_strings_in_hdr", "-action_include_clusterinfo", "-filerecord_offset",
                 "-filter_deleted_files", "-filter_all_clusters", "-jp"});
    EXPECT_EQ(c.m_metadata_only, 0);
    EXPECT_EQ(c.m_header_strings, 1);
    EXPECT_EQ(c.m_header_size, 256u);
    EXPECT_EQ(c.m_include_clusterinfo, 1);
    EXPECT_EQ(c.m_show_record_offset, 1);
    EXPECT_EQ(c.m_filter_deleted, 1);
    EXPECT_EQ(c.m_and_logic, 1);
    EXPECT_EQ(c.m_filter_all_clusters, 1);
    EXPECT_EQ(c.m_jp, 1);
  }
}

TEST(WalkOptions, ResultsPathAndCopyDirectory) {
  std::string dir = testutil::make_temp_dir("walkout");
  std::wstring wdir(dir.begin(), dir.end());
  {
    // The directory of -out is made before the file is tried.
    mft_entries_ctx c;
    walk_result r = walk_mft(c, {"-out", dir + "/a/b/r.csv"});
    EXPECT_EQ(r.m_status, 0) << r.m_err;
    EXPECT_EQ(c.m_results_path, wdir + L"/a/b/r.csv");
    EXPECT_EQ(access((dir + "/a/b").c_str(), F_OK), 0);
  }
  {
    char cwd[4096];
    ASSERT_TRUE(getcwd(cwd, sizeof(cwd)));
    ASSERT_EQ(chdir(dir.c_str()), 0);
    mft_entries_ctx c;
    walk_mft(c, {"-out", "rel.csv"});
    EXPECT_EQ(c.m_results_path, wdir + L"/rel.csv");
    ASSERT_EQ(chdir(cwd), 0);
  }
  {
    mft_entries_ctx c;
    walk_result r = walk_mft(c, {"-action_copy_files", dir + "/copy/x//", "-csv"});
    EXPECT_EQ(r.m_status, 0);
    EXPECT_EQ(c.m_results_dir, wdir + L"/copy/x");
    EXPECT_EQ(access((dir + "/copy/x").c_str(), F_OK), 0);
    EXPECT_EQ(c.m_fmt_csv, 0);
    EXPECT_EQ(c.m_csvperpath, 1);
    EXPECT_EQ(c.m_list_separator, L",");
    EXPECT_EQ(c.m_copy_files, 1);
    EXPECT_EQ(c.m_copy_active, 1);
    EXPECT_EQ(c.m_copy_normal_data, 1);
  }
  {
    mft_entries_ctx c;
    walk_mft(c, {"-action_copy_files", dir + "/copy", "-csvperpath", "-named_data", "-all"});
    EXPECT_EQ(c.m_copy_all, 1);
    EXPECT_EQ(c.m_copy_named_data, 0);
    EXPECT_EQ(c.m_list_separator, L"|");  // the per-path layout was already chosen
  }
  {
    testutil::write_text(dir + "/file", "x");
    mft_entries_ctx c;
    walk_result r = walk_mft(c, {"-action_copy_files", dir + "/file/sub"});
    EXPECT_EQ(r.m_status, -1);
    EXPECT_EQ(r.m_err, "prob creating results directory, " + dir + "/file/sub\n");
  }
  {
    // A script adds options behind the command line, quoted values kept whole.
    testutil::write_text(dir + "/opts", "-filter_name \"a b\"\n// -csv\n");
    mft_entries_ctx c;
    walk_mft(c, {"-script", dir + "/opts"});
    ASSERT_EQ(c.m_filter_names.size(), 1u);
    EXPECT_EQ(c.m_filter_names.begin()->m_text, L"a b");
    EXPECT_EQ(c.m_fmt_csv, 0);
  }
}

}  // namespace
