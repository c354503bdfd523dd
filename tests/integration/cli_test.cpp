// The program seen from outside: usage text, messages and exit statuses, the banner, a results
// file that is a device, and the stop on a partitioned disk without a usable -offset.
#include <sys/stat.h>
#include <unistd.h>

#include "base/orv_version.h"
#include "tests/integration/fixture_util.h"

using fixtures::q;
using fixtures::run_brimlock;

namespace {

const std::string k_banner = "brimlock ver: " BRIMLOCK_VERSION;

const char* const kUsageLines[] = {
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

// On standard error only: 77 hyphens, a blank line, the banner, a blank line, the text, which
// ends with the blank line after the -cpu block.
void expect_usage(const testutil::run_result& r) {
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "");
  const std::string head = std::string(77, '-') + "\n\nbrimlock ver: " BRIMLOCK_VERSION "\n\nusage:\n";
  EXPECT_EQ(r.err.compare(0, head.size(), head), 0) << r.err.substr(0, 200);
  for (const char* line : kUsageLines) EXPECT_NE(r.err.find(line), std::string::npos) << "missing usage line: " << line;
  std::string tail = "         [-separate_files]      = don't merge; each instance is separate file\n\n";
  EXPECT_TRUE(r.err.size() > tail.size() && r.err.substr(r.err.size() - tail.size()) == tail);
}

}  // namespace

TEST(Cli, UsageOnNoArgumentsAndOnHelpOptionsAnyCase) {
  auto bare = run_brimlock("");
  expect_usage(bare);
  // Any case, and anywhere: a help option wins over a source.
  for (const char* opts : {"-HELP", "-h", "--help", "'/?'", "-Help", "-mftfile x -csv -help"}) {
    SCOPED_TRACE(opts);
    auto r = run_brimlock(opts);
    expect_usage(r);
    EXPECT_EQ(r.err, bare.err);
  }
}

TEST(Cli, NoSourceNamedPrintsTheErrorAndStillEndsWithZero) {
  auto r = run_brimlock("-csv");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err.find("error: need to specify at least an input source [-mftfile, -image, -drivenum, -partition, "
                       "-vmdk]\n"), 0u) << r.err;
  // Only the banner on standard output: nothing was opened.
  EXPECT_EQ(r.out.rfind(k_banner + "\n\"cmd:", 0), 0u) << r.out;
  EXPECT_EQ(r.out.substr(r.out.size() - 7), " -csv\"\n") << r.out;
  EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), 2);
}

TEST(Cli, ResultsOnStandardOutputCarryTheBannerOnceAndUnknownOptionsAreIgnored) {
  ASSERT_FALSE(fixtures::path("rec4k.mft").empty());
  std::string mft = fixtures::scratch_dir("cli_echo") + "/with blank.mft";
  testutil::write_text(mft, testutil::read_text(fixtures::path("rec4k.mft")));
  auto r = run_brimlock("-mftfile " + q(mft) + " -csv -no_such_option");
  EXPECT_EQ(r.status, 0) << r.err;
  auto rows = fixtures::parse_results(r.out, ",", 2);  // on standard output no empty line follows
  ASSERT_GE(rows.lines.size(), 3u) << r.out;
  EXPECT_EQ(rows.lines[0], k_banner);
  // An argument with a blank echoes quoted, the others bare.
  EXPECT_NE(rows.lines[1].find(" -mftfile '" + mft + "' -csv -no_such_option\""), std::string::npos) << rows.lines[1];
  EXPECT_EQ(rows.lines[2].compare(0, 21, "mft entry,mft seqnum,"), 0) << rows.lines[2];
  EXPECT_EQ(r.out.find(k_banner, 10), std::string::npos) << "banner repeated";
  EXPECT_FALSE(rows.rows.empty());
}

TEST(Cli, OutToDevNullLeavesTheDeviceInPlace) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root: only root could remove /dev/null";
  std::string mft = fixtures::path("feature.mft");
  ASSERT_FALSE(mft.empty());
  struct stat before, after;
  ASSERT_TRUE(stat("/dev/null", &before) == 0 && S_ISCHR(before.st_mode));
  auto r = run_brimlock("-mftfile " + q(mft) + " -csv -out /dev/null");
  bool ok = stat("/dev/null", &after) == 0 && S_ISCHR(after.st_mode) && after.st_rdev == before.st_rdev;
  if (!ok) {  // put the device back before failing, so that the rest of the machine keeps working
    unlink("/dev/null");
    mknod("/dev/null", S_IFCHR | 0666, before.st_rdev);
    chmod("/dev/null", 0666);
  }
  EXPECT_TRUE(ok) << "/dev/null is no longer the null device";
  EXPECT_EQ(r.status, 0) << r.err;
}

// -cpu 3: three children of the binary, one slice of the records each, merged into the -out file
// with the rows of a single run.
TEST(Cli, CpuInstancesMergeToTheRowsOfOneRun) {
  std::string mft = fixtures::path("feature.mft"), dir = fixtures::scratch_dir("cli_cpu");
  ASSERT_FALSE(mft.empty());
  // Formats with a heading line and without one (bare paths: every child's lines are rows).
  for (const char* format : {"-csv", "-bodyfile", "-csvl2t", "-filepath_only"}) {
    std::string merged[2];
    for (int cpu : {0, 1}) {
      auto r = run_brimlock("-mftfile " + q(mft) + " " + format + " -quiet" + (cpu ? " -cpu 3" : "") + " -out " +
                            q(dir + "/r.csv"));
      EXPECT_EQ(r.status, 0) << r.err;
      merged[cpu] = testutil::read_text(dir + "/r.csv");
      merged[cpu].erase(0, merged[cpu].find("\n\n"));  // the command lines differ
    }
    EXPECT_GT(merged[0].size(), 1000u) << format;
    EXPECT_EQ(merged[1], merged[0]) << format;
  }
  // A first slice that selects nothing: the heading comes from the child that has rows.
  run_brimlock("-mftfile " + q(mft) + " -csv -quiet -filter_name streams.txt -cpu 2 -out " + q(dir + "/r.csv"));
  EXPECT_NE(testutil::read_text(dir + "/r.csv").find("\n\nmft entry,"), std::string::npos);
}

// Rows that cannot be written are never lost unseen: status 255 and the reason.
TEST(Cli, ResultsFileThatCannotBeWritten) {
  for (const char* cpu : {"", " -cpu 2"}) {
    auto r = run_brimlock("-mftfile " + q(fixtures::path("feature.mft")) + " -quiet -out /dev/full" + cpu);
    EXPECT_EQ(r.status, 255);
    EXPECT_NE(r.err.find("prob writing results file /dev/full, aborting\n"), std::string::npos) << r.err;
  }
}

// Status 255, the reason, and the volumes that mmls found listed with the offset to use.
TEST(VolumeChoice, PartitionedDisksStopWithTheReasonAndTheOffsetToUse) {
  // An image as fixtures::image takes it, options, the mmls facts of the volumes listed (or ""), a text.
  struct stop_case { const char* image; uint64_t cut; const char *options, *parts, *text; } const cases[] = {
      // The last NTFS partition is suggested, here the logical one in the extended partition.
      {"mbr.img", 0, "", "mbr.parts.tsv", "use option [-offset 0x2c00000]\n"},
      {"mbr.img", 0, "-offset 0x100000", "mbr.parts.tsv",
       "volume offset selected 0x100000 is not a NTFS partition, but [fat32]\n"},
      {"mbr.img", 0, "-offset 0x40000000", "", "volume offset 0x40000000 is not within image bounds\n"},
      {"gpt.img", 0, "", "gpt.parts.tsv", "use option [-offset 0x100000]\n"},
      {"gpt.img", 4 << 20, "-offset 0x100000", "",
       "volume offset 0x100000 is a NTFS partition, however image size does not encapsulate entire volume\n"},
      {"disk4k.img", 0, "", "disk4k.parts.tsv", "use option [-offset 0x100000]\n"},
      {"mbr4k.img", 0, "", "mbr4k.parts.tsv", "use option [-offset 0xc00000]\n"},
      // Cut one 4 KiB sector short of the end of its partition (sectors 256 to 2815).
      {"disk4k.img", 2815 * 4096, "-offset 0x100000", "",
       "volume offset 0x100000 is a NTFS partition, however image size does not encapsulate entire volume\n"},
      {"corpus:ntfs-ptrn.raw", 0, "", "", "use option [-offset 0x10000]\n"},  // the other sample disks alike
  };
  for (const stop_case& c : cases) {
    SCOPED_TRACE(std::string(c.image) + " " + c.options);
    if (std::string(c.image).compare(0, 7, "corpus:") == 0 && fixtures::corpus_dir().empty()) continue;
    std::string image = fixtures::image(c.image, c.cut);
    ASSERT_FALSE(image.empty());
    auto r = run_brimlock("-image " + q(image) + " " + c.options + " -csv");
    EXPECT_EQ(r.status, 255);
    EXPECT_NE(r.err.find(c.text), std::string::npos) << r.err;
    if (!*c.parts) continue;
    // Every partition and extended container of mmls, at its byte offset.
    auto parts = fixtures::load_facts(c.parts);
    std::set<std::string> want, listed;
    char offset[32];
    for (const auto& p : parts.parts)
      if (p.slot != "-------" && (p.slot != "Meta" || p.description.find("Extended (") != std::string::npos)) {
        snprintf(offset, sizeof offset, "0x%llx", p.start * std::stoull(parts.info.at("sector_size")));
        want.insert(offset);
      }
    const std::string lead = "volume offset [ ";
    for (size_t at = r.err.find(lead); at != std::string::npos; at = r.err.find(lead, at + 1))
      listed.insert(r.err.substr(at + lead.size(), r.err.find(' ', at + lead.size()) - at - lead.size()));
    EXPECT_EQ(listed, want) << r.err;
  }
}
