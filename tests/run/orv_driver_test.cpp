// The program driver in-process: banner, status codes, results file, and the -cpu slices and merge.
#include <gtest/gtest.h>

#include "run/orv_driver.h"
#include "run/orv_instances.h"
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

// Help requests, the usage text and the missing-source message are checked from outside by the
// integration tests (cli_test.cpp), and so is -out /dev/null.
TEST(Driver, BannerQuotesTheCommandLine) {
  EXPECT_EQ(build_run_banner({"brimlock", "-mftfile", "/a b/$MFT", "-csv"}),
            "brimlock ver: 0.95\n\"cmd:brimlock -mftfile '/a b/$MFT' -csv\"\n");
  EXPECT_EQ(build_run_banner({"brimlock", "-csv", "-PIPE"}),
            "brimlock ver: 0.95\n\"cmd:<filelist> ... | brimlock -csv -PIPE\"\n");
  EXPECT_EQ(build_run_banner({"-pipe"}), "brimlock ver: 0.95\n\"cmd:-pipe\"\n");
}

TEST(Driver, StatusCodes) {
  const std::string out = testutil::make_temp_dir("drvcpu") + "/r.csv";
  struct refusal {
    std::vector<std::string> m_args;
    const char* m_err;  // a refusal of the walk options prints only its own reason
  } const cases[] = {
      {{"-mftfile", "x", "-sqlite", "db"}, "This option is not offered in this build\ninvalid cmd options, aborting\n"},
      {{"-mftfile", "x", "-find_objid", "12"}, "prob parsing 12 as ObjID, aborting\n"},
      {{"-mftfile", "x", "-cpu", "2", "-quiet"},
       "Need to specify an output file to put the merged results in [-out <file>]\n"},
      {{"-mftfile", "x", "-cpu", "2", "-out", out, "-filter_unalloc_clusters", "-quiet"},
       "The -cpu option only supports MFT analysis\n"},
  };
  for (const refusal& c : cases) {
    main_result r = run_main(c.m_args);
    EXPECT_EQ(r.m_status, -1) << c.m_err;
    EXPECT_EQ(r.m_err, c.m_err);
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
  // With a first record other than 0 the last slice comes out short by that much.
  std::vector<instance_slice> offset = instance_slices(10, 2, 4);
  EXPECT_EQ(offset[1].m_start, 9u);
  EXPECT_EQ(offset[1].m_count, 1u);
  EXPECT_EQ(counts(instance_slices(2, 4, 0)), (std::vector<uint64_t>{0, 0, 0, 2}));
}

}  // namespace
