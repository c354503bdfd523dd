// VMware disks made by qemu-img: the rows of an -image run on the same bytes, snapshot chains,
// and refusals.

#include "tests/integration/fixture_util.h"

namespace {

// Every disk of the chains, decompressed side by side; the path of `name` among them.
std::string disk(const std::string& name) {
  for (const char* f : {"vmbase.vmdk", "vmsnap1.vmdk", "vmsnap2.vmdk"}) fixtures::path(f);
  return fixtures::path(name);
}

fixtures::rows_run run_csv(const std::string& tag, const std::string& args) {
  return fixtures::run_rows("vmdk_" + tag, args + " -csv");
}

// {label, -vmdk arguments ("*" is the directory of the disks), -image arguments, parent found}.
struct same_row { const char *label, *vmdk, *image; bool parent_added; };
void PrintTo(const same_row& s, std::ostream* os) { *os << s.label; }

const same_row kSame[] = {
    {"BareVolume", "*/vmbase.vmdk", "feature.img", false},
    {"GptDiskPicksItsVolume", "*/vmgpt.vmdk", "gpt.img -offset 0x100000", false},
    {"GptDiskWithOffset", "*/vmgpt.vmdk -offset 0x100000", "gpt.img -offset 0x100000", false},
    // Empty snapshots of vmbase: the parent is found beside them by the name in a hint that
    // names a Windows folder, or a Unix folder the disks have left.
    {"WindowsHint", "*/vmwin.vmdk", "feature.img", true},
    {"MovedParent", "*/vmmoved.vmdk", "feature.img", true},
};

class VmdkSameAsImage : public ::testing::TestWithParam<same_row> {};

TEST_P(VmdkSameAsImage, RowsAgree) {
  const same_row& s = GetParam();
  for (const char* f : {"vmgpt.vmdk", "vmwin.vmdk", "vmmoved.vmdk"}) disk(f);
  std::string dir = disk("vmbase.vmdk"), image = s.image;
  dir.erase(dir.rfind('/'));
  std::string vmdk = s.vmdk;
  vmdk.replace(0, 1, dir);
  image.replace(0, image.find(' ') == std::string::npos ? image.size() : image.find(' '),
                fixtures::q(fixtures::path(image.substr(0, image.find(' ')))));
  auto a = run_csv(std::string(s.label) + "_v", "-vmdk " + vmdk), b = run_csv(std::string(s.label) + "_i", "-image " + image);
  EXPECT_EQ(a.run.status, 0) << a.run.err;
  ASSERT_GT(b.rows.rows.size(), 30u) << b.run.err;
  EXPECT_EQ(a.rows.rows, b.rows.rows) << a.run.err;
  EXPECT_EQ(a.run.err.find("=> vmdk file: ") != std::string::npos, s.parent_added) << a.run.err;
}

INSTANTIATE_TEST_SUITE_P(Disks, VmdkSameAsImage, ::testing::ValuesIn(kSame),
                         [](const ::testing::TestParamInfo<same_row>& p) { return std::string(p.param.label); });

// vmsnap2 <- vmsnap1 <- vmbase: named alone, the newest disk pulls in both parents; named with
// them in any order, as a list or by repeated options, or split over child processes, the rows
// are the same. They show the volume as sleuthkit read it from the changed image.
TEST(Vmdk, SnapshotChainReadsAsTheChangedVolume) {
  const std::string top = disk("vmsnap2.vmdk"), dir = top.substr(0, top.rfind('/') + 1);
  const fixtures::rows_run alone = run_csv("alone", "-vmdk " + fixtures::q(top));
  EXPECT_EQ(alone.run.status, 0);
  // Each round tells what it added; the last one is shown.
  EXPECT_EQ(alone.run.err.find("=> vmdk file: " + dir + "vmsnap1.vmdk\n depends on parent vmdk vmbase.vmdk\n"), 0u)
      << alone.run.err;
  const std::string listed = fixtures::q(dir + "vmbase.vmdk ; " + dir + "vmsnap2.vmdk| " + dir + "vmsnap1.vmdk");
  const std::string repeated = "-vmdk " + fixtures::q(dir + "vmsnap1.vmdk") + " -vmdk " + fixtures::q(top);
  for (const std::string& args : {"-vmdk " + listed, repeated, "-vmdk " + fixtures::q(top) + " -cpu 2"}) {
    const fixtures::rows_run other = run_csv("other", args);
    auto a = alone.rows.rows, b = other.rows.rows;
    std::sort(a.begin(), a.end());  // child processes may order rows of equal keys apart
    std::sort(b.begin(), b.end());
    EXPECT_EQ(a, b) << args << "\n" << other.run.err;
  }

  const fixtures::results& results = alone.rows;
  std::set<std::pair<std::string, std::string>> shown, deleted;  // name, path cell
  for (size_t i = 0; i < results.rows.size(); ++i)
    (results.cell(i, "type") == "del" ? deleted : shown).insert({results.cell(i, "name"), results.cell(i, "path")});
  auto f = fixtures::load_facts("vmsnap2.facts.tsv");
  int checked = 0;
  for (const auto& p : f.paths) {
    if (!p.allocated || p.path.find(':') != std::string::npos || p.path[0] == '$') continue;
    size_t cut = p.path.rfind('/');
    std::string name = cut == std::string::npos ? p.path : p.path.substr(cut + 1);
    std::string parent = cut == std::string::npos ? "" : p.path.substr(0, cut) + "\\";
    std::replace(parent.begin(), parent.end(), '/', '\\');
    std::replace(name.begin(), name.end(), ',', ' ');
    std::replace(parent.begin(), parent.end(), ',', ' ');
    EXPECT_TRUE(shown.count({name, "[root]\\" + parent})) << p.path;
    ++checked;
  }
  EXPECT_GT(checked, 40);
  // Made in the first snapshot and moved in the second; deleted in the first.
  EXPECT_TRUE(shown.count({"moved.txt", "[root]\\snap2\\"}) && shown.count({"second.bin", "[root]\\snap2\\"}));
  EXPECT_FALSE(shown.count({"report.txt", "[root]\\docs\\"}));
}

// Disks that cannot be read: the message, the list to use, and no rows.
TEST(Vmdk, UnusableDisksAreRefused) {
  const std::string lone = fixtures::scratch_dir("vmdk_lone") + "/vmsnap1.vmdk";
  testutil::run_shell("cp " + fixtures::q(disk("vmsnap1.vmdk")) + " " + fixtures::q(lone));
  const struct { std::string path, message; } cases[] = {
      {lone, "Child VMDK points to a parent VMDK that doesn't exist, aborting\n"},
      {fixtures::path("vmloop.vmdk"), "Child VMDK CID errors, aborting\n"},
      {fixtures::path("vmstream.vmdk"),
       "prob opening " + fixtures::path("vmstream.vmdk") + ": compressed grains are not supported, aborting\n"},
      {fixtures::path("vmflat.vmdk"), fixtures::path("vmflat.vmdk") + " can't be opened\n"},
      {fixtures::path("feature.img"), fixtures::path("feature.img") + " can't be opened\n"},
  };
  for (const auto& c : cases) {
    const fixtures::rows_run r = run_csv("refused", "-vmdk " + fixtures::q(c.path));
    EXPECT_EQ(r.run.err.find(c.message), 0u) << r.run.err;
    EXPECT_NE(r.run.err.find("suggested array: -vmdk \"" + c.path + "\"\n"), std::string::npos) << r.run.err;
    EXPECT_TRUE(r.rows.header.empty()) << c.path;
  }
}

}  // namespace
