// The program driver in-process: help, banner, status codes, results file and teardown.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "run/driver.h"
#include "tests/test_util.h"

namespace {

struct main_result {
  int m_status = 0;
  std::string m_out;
  std::string m_err;
};

main_result run_main(std::vector<std::string> args) {
  args.insert(args.begin(), "brimlock");
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(&a[0]);
  argv.push_back(nullptr);
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  main_result r;
  r.m_status = brimlock_main(int(args.size()), argv.data());
  r.m_out = testing::internal::GetCapturedStdout();
  r.m_err = testing::internal::GetCapturedStderr();
  return r;
}

const char* const k_usage_lines[] = {
    "usage:\n",
    "\n",
    " Running 'brimlock' on an extracted $MFT file\n",
    "  brimlock -mftfile <name> [-opts]        = source is extract $MFT file\n",
    "\n",
    " Running 'brimlock' on a disk/partition image captured w/ a 'dd' type tool\n",
    "  brimlock -image <file> [-offset <vol>]  = dd image\n",
    "\n",
    " Running 'brimlock' on a VMWare monolithic virtual volume\n",
    "  -vmdk \"disk1 | disk2 | ...\"             = VMWare VMDK disk(s)\n",
    "\n",
    " Filter 'OR' logic options\n",
    "  -filter_ext \"ext1 | ext2 | ...\"         = extract using exts\n",
    "  -filter_name \"name1 | name2 | ...\"      = extract using partial names\n",
    "  -filter_fullname \"name1 | name2 | ...\"  = extract using full names\n",
    "  -filter_dir \"dir1 | dir2 | ...\"         = extract using dirs\n",
    "  -filter_file \"path/file1 | ...\"         = extract specified files\n",
    "  -filter_dir_inode \"inode1 | inode2 ..\"  = extract using dir inodes\n",
    "  -filter_inode \"inode1 | inode2 | ...\"   = extract specified inodes\n",
    "  -filter_sig \"mz | hive | evt | sqlite\"  = extract using signatures\n",
    "  -filter_max_size <size>                 = extract if doesn't exceed size\n",
    "  -filter_min_ads_size <size>             = extract ADS sizes greater than\n",
    "\n",
    " Filter 'AND' logic options\n",
    "  -filter_start_time <date time>          = format \"mm/dd/yyyy hh:mm:ss\"\n",
    "  -filter_stop_time <date time>           = format \"mm/dd/yyyy hh:mm:ss\"\n",
    "  -filter_deleted_files                   = analyzes only filerecs in $MFT\n",
    "  -filter_deleted_files_all               = analyzes both $MFT and unalloc\n",
    "  -filter_unalloc_clusters                = analyze unallocated clusters\n",
    "  -filter_all_clusters                    = analyze $MFT & unalloc clusters\n",
    "\n",
    " Extraction options\n",
    "  -action_copy_files <dir> [-raw]         = extract file into dir\n",
    "         [-raw]                           = incl slack & skip sparse clusters\n",
    "         [-skip_sparse_clusters]          = don't incl sparse clusters\n",
    "  -action_include_header                  = extracts 0x20 bytes from file\n",
    "  -action_find_strings_in_hdr             = find strings in first 0x100 bytes\n",
    "  -action_include_clusterinfo             = show cluster info\n",
    "  -action_include_zoneinfo                = show any ADS: Zone info\n",
    "  -action_include_ownersid                = show owner SID\n",
    "\n",
    " Results file format options\n",
    "  -csv                                    = csv format, has most output\n",
    "  -csvl2t                                 = log2timeline format\n",
    "  -bodyfile                               = bodyfile format\n",
    "  -csvperpath                             = only one csv entry/pathfile\n",
    "  -hashfile  \"md5 | sha1 | sha256\"        = display hashes in output\n",
    "\n",
    " General purpose options\n",
    "  -out <results file>                     = output results to this file\n",
    "  -hide_dos_fntimes                       = don't include dos 8.3 fn time\n",
    "  -hostname <name>                        = output hostname\n",
    "  -base10                                 = use base10 vice std::hex \n",
    "  -use_orig_ext                           = only for [-action_copy_files]\n",
    "  -script <file>                          = use file to express options\n",
    "  -mftstart <value> [-mftrange <value>]   = only process these inodes\n",
    "  -filerecord_offset                      = output the offset of the filerec\n",
    "  -quiet                                  = suppress progress during run\n",
    "  -dateformat mm/dd/yy                    = \"yyyy-mm-dd\" is the default\n",
    "  -timeformat hh:mm:ss                    = \"hh:mm:ss.xxx\" is the default\n",
    "  -pair_datetime                          = combine date/time into 1 field\n",
    "  -no_whitespace                          = remove whitespace between delims\n",
    "  -csv_separator \"|\"                      = use a pipe char for separator\n",
    "\n",
    " Experimental option [split processing into multiple instances]\n",
    "  -cpu <#instances> -out <file> = merge instances into 1 file\n",
    "         [-tempdir <folder>]    = use this temp dir for file merge\n",
    "         [-separate_files]      = don't merge; each instance is separate file\n",
    "\n",
};

TEST(Driver, UsageTextAndHelpRequests) {
  std::string expected = std::string(77, '-') + "\n\nbrimlock ver: 0.95\n\n";
  for (const char* line : k_usage_lines) expected += line;
  EXPECT_EQ(usage_text(), expected);

  for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
           {}, {"-HELP"}, {"-mftfile", "x", "/?"}, {"--help"}, {"-h", "-csv"}}) {
    main_result r = run_main(args);
    EXPECT_EQ(r.m_status, 0);
    EXPECT_EQ(r.m_err, expected);
    EXPECT_EQ(r.m_out, "");
  }
}

TEST(Driver, BannerQuotesTheCommandLine) {
  EXPECT_EQ(build_run_banner({"brimlock", "-mftfile", "/a b/$MFT", "-csv"}),
            "brimlock ver: 0.95\n\"cmd:brimlock -mftfile '/a b/$MFT' -csv\"\n");
  EXPECT_EQ(build_run_banner({"brimlock", "-csv", "-PIPE"}),
            "brimlock ver: 0.95\n\"cmd:<filelist> ... | brimlock -csv -PIPE\"\n");
  EXPECT_EQ(build_run_banner({"-pipe"}), "brimlock ver: 0.95\n\"cmd:-pipe\"\n");
}

TEST(Driver, StatusCodes) {
  {
    // No source: the message, the banner, and still status 0.
    main_result r = run_main({"-csv", "-quiet"});
    EXPECT_EQ(r.m_status, 0);
    EXPECT_EQ(r.m_out, build_run_banner({"brimlock", "-csv", "-quiet"}));
    EXPECT_EQ(r.m_err,
              "error: need to specify at least an input source [-mftfile, -image, -drivenum, -partition, -vmdk]\n");
  }
  {
    main_result r = run_main({"-mftfile", "x", "-sqlite", "db"});
    EXPECT_EQ(r.m_status, -1);
    EXPECT_EQ(r.m_err, "This option is not offered in this build\ninvalid cmd options, aborting\n");
  }
  {
    // A refusal of the walk options prints only its own reason.
    main_result r = run_main({"-mftfile", "x", "-find_objid", "12"});
    EXPECT_EQ(r.m_status, -1);
    EXPECT_EQ(r.m_err, "prob parsing 12 as ObjID, aborting\n");
  }
  {
    main_result r = run_main({"-mftfile", "x", "-cpu", "2", "-quiet"});
    EXPECT_EQ(r.m_status, -1);
    EXPECT_EQ(r.m_err, "Need to specify an output file to put the merged results in [-out <file>]\n");
  }
  {
    std::string dir = testutil::make_temp_dir("drvcpu");
    main_result r = run_main({"-mftfile", "x", "-cpu", "2", "-out", dir + "/r.csv", "-filter_unalloc_clusters",
                              "-quiet"});
    EXPECT_EQ(r.m_status, -1);
    EXPECT_EQ(r.m_err, "The -cpu option only supports MFT analysis\n");
  }
}

TEST(Driver, ResultsFileBeginsWithTheBanner) {
  std::string dir = testutil::make_temp_dir("drvout");
  std::string out = dir + "/deep/er/r.csv";
  main_result r = run_main({"-mftfile", dir + "/missing", "-out", out, "-quiet", "-profile", "-diags", dir + "/d.log"});
  EXPECT_EQ(r.m_status, 0);
  std::string banner = build_run_banner({"brimlock", "-mftfile", dir + "/missing", "-out", out, "-quiet", "-profile",
                                         "-diags", dir + "/d.log"});
  EXPECT_EQ(r.m_out, banner);  // not repeated on standard output
  EXPECT_EQ(testutil::read_text(out), banner + "\n");
  // The elapsed time goes to standard error and to the end of the debug log.
  size_t secs = r.m_err.find(" secs\n");
  ASSERT_NE(secs, std::string::npos) << r.m_err;
  EXPECT_EQ(r.m_err.rfind("->", secs), r.m_err.rfind('\n', secs - 1) + 1);
  std::string log = testutil::read_text(dir + "/d.log");
  EXPECT_EQ(log.compare(0, 2, "->"), 0);
  EXPECT_EQ(log.substr(log.size() - 6), " secs\n");
}

TEST(Driver, DevNullAsResultsFileSurvivesAsRoot) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to be able to remove /dev/null";
  main_result r = run_main({"-mftfile", "/nonexistent/$MFT", "-out", "/dev/null", "-quiet"});
  EXPECT_EQ(r.m_status, 0);
  struct stat st;
  ASSERT_EQ(lstat("/dev/null", &st), 0);
  EXPECT_TRUE(S_ISCHR(st.st_mode));
}

TEST(Driver, MergeStartOfChildFiles) {
  const std::string file = "banner\n\"cmd:x\"\n\nheading\nrow1\nrow2\n";
  EXPECT_EQ(file.substr(merge_start(file, true)), "heading\nrow1\nrow2\n");
  EXPECT_EQ(file.substr(merge_start(file, false)), "row1\nrow2\n");
  const std::string crlf = "banner\r\n\r\n\r\nheading\r\n\r\nrow1\r\n";
  EXPECT_EQ(crlf.substr(merge_start(crlf, true)), "heading\r\n\r\nrow1\r\n");
  EXPECT_EQ(crlf.substr(merge_start(crlf, false)), "row1\r\n");
  EXPECT_EQ(merge_start("banner\nno blank line\n", true), std::string::npos);
  EXPECT_EQ(merge_start("banner\n\nheading only", false), std::string::npos);
  EXPECT_EQ(merge_start("", true), std::string::npos);
}

TEST(Driver, InstanceSlices) {
  auto counts = [](const std::vector<instance_slice>& slices) {
    std::vector<uint64_t> out;
    for (const instance_slice& s : slices) out.push_back(s.m_count);
    return out;
  };
  std::vector<instance_slice> three = instance_slices(10, 3, 0);
  EXPECT_EQ(counts(three), (std::vector<uint64_t>{3, 3, 4}));
  EXPECT_EQ(three[2].m_start, 6u);
  EXPECT_EQ(counts(instance_slices(8, 2, 0)), (std::vector<uint64_t>{4, 4}));
  // With a first record other than 0 the last slice comes out short by that much.
  std::vector<instance_slice> offset = instance_slices(10, 2, 4);
  EXPECT_EQ(offset[1].m_start, 9u);
  EXPECT_EQ(offset[1].m_count, 1u);
  EXPECT_EQ(counts(instance_slices(2, 4, 0)), (std::vector<uint64_t>{0, 0, 0, 2}));
  EXPECT_EQ(instance_slices(5, 1, 0)[0].m_count, 5u);
}

}  // namespace
