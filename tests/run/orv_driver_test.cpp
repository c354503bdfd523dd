// The program driver in-process: banner, refusals and their status, the results file and the
// timing of -profile. (Help, usage and -cpu: integration/cli_test.cpp.)
#include <gtest/gtest.h>

#include "base/orv_version.h"
#include "run/orv_driver.h"
#include "tests/test_util.h"

namespace {

// Status, standard output, standard error.
std::tuple<int, std::string, std::string> run_main(std::vector<std::string> args) {
  args.insert(args.begin(), "brimlock");
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(&a[0]);
  argv.push_back(nullptr);
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  int status = brimlock_main(int(args.size()), argv.data());
  std::string out = testing::internal::GetCapturedStdout();
  return std::make_tuple(status, out, testing::internal::GetCapturedStderr());
}

TEST(Driver, BannerQuotesTheCommandLine) {
  EXPECT_EQ(build_run_banner({"brimlock", "-csv", "-PIPE"}),
            "brimlock ver: " BRIMLOCK_VERSION "\n\"cmd:<filelist> ... | brimlock -csv -PIPE\"\n");
  EXPECT_EQ(build_run_banner({"-pipe"}), "brimlock ver: " BRIMLOCK_VERSION "\n\"cmd:-pipe\"\n");
}

// A refusal of the walk options prints only its own reason.
TEST(Driver, RefusalsEndWithMinusOne) {
  const std::string out = testutil::make_temp_dir("drvcpu") + "/r.csv";
  const std::pair<std::vector<std::string>, std::string> cases[] = {
      {{"-mftfile", "x", "-sqlite", "db"}, "This option is not offered in this build\ninvalid cmd options, aborting\n"},
      {{"-mftfile", "x", "-find_objid", "12"}, "prob parsing 12 as ObjID, aborting\n"},
      {{"-mftfile", "x", "-cpu", "2", "-quiet"},
       "Need to specify an output file to put the merged results in [-out <file>]\n"},
      {{"-mftfile", "x", "-cpu", "2", "-out", out, "-filter_unalloc_clusters", "-quiet"},
       "The -cpu option only supports MFT analysis\n"},
  };
  for (const auto& c : cases) {
    auto r = run_main(c.first);
    EXPECT_TRUE(std::get<0>(r) == -1 && std::get<2>(r) == c.second) << std::get<0>(r) << " " << std::get<2>(r);
  }
}

// The banner once on standard output and at the head of the results file, whose directories are
// made; the elapsed time on standard error and at the end of the debug log.
TEST(Driver, ResultsFileBannerAndProfile) {
  std::string dir = testutil::make_temp_dir("drvout");
  const std::vector<std::string> args = {"-mftfile", dir + "/missing",  "-out",  dir + "/deep/er/r.csv",
                                         "-quiet",   "-profile", "-diags", dir + "/d.log"};
  auto r = run_main(args);
  std::vector<std::string> full = args;
  full.insert(full.begin(), "brimlock");
  const std::string banner = build_run_banner(full), err = std::get<2>(r);
  EXPECT_TRUE(std::get<0>(r) == 0 && std::get<1>(r) == banner);
  EXPECT_EQ(testutil::read_text(dir + "/deep/er/r.csv"), banner + "\n");
  size_t secs = err.find(" secs\n");
  ASSERT_NE(secs, std::string::npos) << err;
  EXPECT_EQ(err.rfind("->", secs), err.rfind('\n', secs - 1) + 1);
  std::string log = testutil::read_text(dir + "/d.log");
  EXPECT_TRUE(log.compare(0, 2, "->") == 0 && log.substr(log.size() - 6) == " secs\n") << log;
}

}  // namespace
