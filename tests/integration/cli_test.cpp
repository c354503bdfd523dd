// The program driver seen from outside: usage text, the missing-source message, and a results
// file that is a device.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <string>

#include "tests/integration/fixture_util.h"

using fixtures::q;
using fixtures::run_brimlock;

namespace {

const char* const kUsageLines[] = {
    "usage:\n",
    "\n",
    " Running 'brimlock' on an extracted $MFT file\n",
    "  brimlock -mftfile <name> [-opts]        = source is extract $MFT file\n",
    " Running 'brimlock' on a disk/partition image captured w/ a 'dd' type tool\n",
    "  brimlock -image <file> [-offset <vol>]  = dd image\n",
    "  -vmdk \"disk1 | disk2 | ...\"             = VMWare VMDK disk(s)\n",
    "  -filter_inode \"inode1 | inode2 | ...\"   = extract specified inodes\n",
    "  -filter_sig \"mz | hive | evt | sqlite\"  = extract using signatures\n",
    "  -filter_start_time <date time>          = format \"mm/dd/yyyy hh:mm:ss\"\n",
    "  -filter_all_clusters                    = analyze $MFT & unalloc clusters\n",
    "         [-raw]                           = incl slack & skip sparse clusters\n",
    "  -csv                                    = csv format, has most output\n",
    "  -hashfile  \"md5 | sha1 | sha256\"        = display hashes in output\n",
    "  -base10                                 = use base10 vice std::hex \n",
    "  -dateformat mm/dd/yy                    = \"yyyy-mm-dd\" is the default\n",
    "  -timeformat hh:mm:ss                    = \"hh:mm:ss.xxx\" is the default\n",
    "  -csv_separator \"|\"                      = use a pipe char for separator\n",
    " Experimental option [split processing into multiple instances]\n",
    "  -cpu <#instances> -out <file> = merge instances into 1 file\n",
    "         [-separate_files]      = don't merge; each instance is separate file\n",
};

void expect_usage(const testutil::run_result& r) {
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "") << "usage goes to standard error only";
  // A line of 77 hyphens, a blank line, the banner line, a blank line, then the text.
  ASSERT_EQ(r.err.compare(0, 78, std::string(77, '-') + "\n"), 0) << r.err.substr(0, 200);
  EXPECT_EQ(r.err.compare(78, 1, "\n"), 0);
  size_t banner_end = r.err.find('\n', 79);
  ASSERT_NE(banner_end, std::string::npos);
  std::string banner = r.err.substr(79, banner_end - 79);
  EXPECT_NE(banner.find("brimlock"), std::string::npos) << banner;
  EXPECT_NE(banner.find("ver: 0.95"), std::string::npos) << banner;
  EXPECT_EQ(r.err.compare(banner_end + 1, 8, "\nusage:\n"), 0) << r.err.substr(banner_end, 40);
  for (const char* line : kUsageLines) EXPECT_NE(r.err.find(line), std::string::npos) << "missing usage line: " << line;
  // The text ends with the blank line after the -cpu block.
  std::string tail = "         [-separate_files]      = don't merge; each instance is separate file\n\n";
  ASSERT_GE(r.err.size(), tail.size());
  EXPECT_EQ(r.err.substr(r.err.size() - tail.size()), tail);
}

}  // namespace

TEST(Cli, UsageOnNoArgumentsAndOnHelpOptionsAnyCase) {
  auto bare = run_brimlock("");
  expect_usage(bare);
  for (const char* opt : {"-HELP", "-h", "--help", "/?", "-Help"}) {
    SCOPED_TRACE(opt);
    auto r = run_brimlock(q(opt));
    expect_usage(r);
    EXPECT_EQ(r.err, bare.err);
  }
  // A help option anywhere wins over a source.
  std::string mft = fixtures::path("feature.mft");
  ASSERT_FALSE(mft.empty());
  auto r = run_brimlock("-mftfile " + q(mft) + " -csv -help");
  expect_usage(r);
}

TEST(Cli, NoSourceNamedPrintsTheErrorAndStillEndsWithZero) {
  auto r = run_brimlock("-csv");
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.err.find("error: need to specify at least an input source [-mftfile, -image, -drivenum, -partition, "
                       "-vmdk]\n"),
            std::string::npos)
      << r.err;
  // The banner is on standard output: the banner line and the quoted command line.
  size_t nl = r.out.find('\n');
  ASSERT_NE(nl, std::string::npos) << r.out;
  std::string banner = r.out.substr(0, nl);
  EXPECT_NE(banner.find("brimlock"), std::string::npos);
  EXPECT_NE(banner.find("ver: 0.95"), std::string::npos);
  size_t nl2 = r.out.find('\n', nl + 1);
  ASSERT_NE(nl2, std::string::npos);
  std::string cmd = r.out.substr(nl + 1, nl2 - nl - 1);
  ASSERT_GE(cmd.size(), 2u);
  EXPECT_EQ(cmd.front(), '"');
  EXPECT_EQ(cmd.back(), '"');
  EXPECT_NE(cmd.find("-csv"), std::string::npos);
  // No rows: nothing was opened.
  EXPECT_EQ(r.out.find("0x00000000"), std::string::npos);
}

TEST(Cli, UnknownOptionsAreIgnoredAndArgumentsWithBlanksEchoQuoted) {
  std::string mft = fixtures::path("feature.mft");
  ASSERT_FALSE(mft.empty());
  std::string dir = fixtures::scratch_dir("cli_echo");
  std::string out = dir + "/with blank.csv";
  auto r = run_brimlock("-mftfile " + q(mft) + " -csv -no_such_option -out " + q(out));
  EXPECT_EQ(r.status, 0) << r.err;
  std::string text = testutil::read_text(out);
  size_t nl = text.find('\n');
  ASSERT_NE(nl, std::string::npos);
  size_t nl2 = text.find('\n', nl + 1);
  ASSERT_NE(nl2, std::string::npos);
  std::string cmd = text.substr(nl + 1, nl2 - nl - 1);
  EXPECT_NE(cmd.find("'" + out + "'"), std::string::npos) << cmd;
  EXPECT_NE(cmd.find(" -no_such_option "), std::string::npos) << cmd;
  EXPECT_NE(cmd.find(" " + mft + " "), std::string::npos) << "an argument without a blank echoes bare: " << cmd;
  EXPECT_GT(text.size(), nl2 + 100) << "the run wrote rows";
}

TEST(Cli, OutToDevNullLeavesTheDeviceInPlace) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root: only root could remove /dev/null";
  std::string mft = fixtures::path("feature.mft");
  ASSERT_FALSE(mft.empty());
  struct stat before;
  ASSERT_EQ(stat("/dev/null", &before), 0);
  ASSERT_TRUE(S_ISCHR(before.st_mode));
  auto r = run_brimlock("-mftfile " + q(mft) + " -csv -out /dev/null");
  struct stat after;
  bool ok = stat("/dev/null", &after) == 0 && S_ISCHR(after.st_mode) && after.st_rdev == before.st_rdev;
  if (!ok) {
    // Put the device back before failing, so that the rest of the machine keeps working.
    unlink("/dev/null");
    mknod("/dev/null", S_IFCHR | 0666, before.st_rdev);
    chmod("/dev/null", 0666);
  }
  EXPECT_TRUE(ok) << "/dev/null is no longer the null device";
  EXPECT_EQ(r.status, 0) << r.err;
}
