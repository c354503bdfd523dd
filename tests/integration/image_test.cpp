// Volume and disk images (-image, -offset) against what sleuthkit read from them, and the
// messages of the volume chooser.
#include <gtest/gtest.h>

#include <string>

#include "tests/integration/fixture_util.h"

using fixtures::q;
using fixtures::run_brimlock;
using fixtures::run_output;
using fixtures::run_to_file;

namespace {

void expect_matches(const std::string& facts_name, const run_output& o) {
  EXPECT_EQ(o.run.status, 0) << o.run.err;
  ASSERT_GE(o.rows.lines.size(), 4u) << o.text.substr(0, 400) << "\nstderr: " << o.run.err;
  EXPECT_NE(o.rows.lines[0].find("ver: 0.95"), std::string::npos);
  EXPECT_EQ(o.rows.lines[2], "");
  auto f = fixtures::load_facts(facts_name);
  fixtures::compare_options opt;
  opt.extracted_mft = false;
  auto problems = fixtures::compare_rows(f, o.rows, opt);
  EXPECT_TRUE(problems.empty()) << fixtures::join_lines(problems);
}

std::string hex(uint64_t v) {
  char buf[32];
  snprintf(buf, sizeof buf, "0x%llx", static_cast<unsigned long long>(v));
  return buf;
}

// Byte offset of the partition of the facts whose first sector is `start`.
uint64_t part_offset(const fixtures::facts& parts, uint64_t start) {
  return start * std::stoull(parts.info.at("sector_size"));
}

}  // namespace

TEST(Image, BareFeatureVolumeMatchesSleuthkit) {
  std::string img = fixtures::path("feature.img");
  ASSERT_FALSE(img.empty());
  auto o = run_to_file("img_feature", "-image " + q(img), true);
  expect_matches("feature.facts.tsv", o);
  // Through the volume, the attribute lists are followed wherever they are: all 200 names of
  // the file with a non-resident list come out, each in attrlist\many.
  auto f = fixtures::load_facts("feature.facts.tsv");
  uint64_t many = 0;
  for (const auto& p : f.paths)
    if (p.path == "attrlist/many/nonres-list.txt") many = p.inode;
  ASSERT_NE(many, 0u);
  std::set<std::string> names;
  for (size_t i = 0; i < o.rows.rows.size(); ++i) {
    if (fixtures::parse_number(o.rows.cell(i, "mft entry")) != many) continue;
    names.insert(o.rows.cell(i, "name"));
    EXPECT_EQ(o.rows.cell(i, "path"), "[root]\\attrlist\\many\\");
    EXPECT_EQ(o.rows.cell(i, "other info").find("not avail for parsing"), std::string::npos);
  }
  EXPECT_EQ(names.size(), 200u);
}

TEST(Image, FourKilobyteRecordVolumeMatchesSleuthkit) {
  std::string img = fixtures::path("rec4k.img");
  ASSERT_FALSE(img.empty());
  expect_matches("rec4k.facts.tsv", run_to_file("img_rec4k", "-image " + q(img), true));
}

TEST(Image, FragmentedMftWithAttributeListMatchesSleuthkit) {
  std::string img = fixtures::path("mftfrag.img");
  ASSERT_FALSE(img.empty());
  auto o = run_to_file("img_mftfrag", "-image " + q(img), true);
  expect_matches("mftfrag.facts.tsv", o);
  // Records far into the $MFT (in its last runs, reached only through the attribute list)
  // are there.
  auto f = fixtures::load_facts("mftfrag.facts.tsv");
  uint64_t last_alloc = 0;
  for (const auto& kv : f.records)
    if (kv.second.allocated && !kv.second.extension && kv.second.si_present) last_alloc = kv.first;
  bool found = false;
  for (size_t i = 0; i < o.rows.rows.size() && !found; ++i)
    found = fixtures::parse_number(o.rows.cell(i, "mft entry")) == last_alloc;
  EXPECT_TRUE(found) << "no rows for record " << last_alloc;
}

TEST(Image, TruncatedBareVolumeStillRuns) {
  // The $MFT lies in the first clusters; cutting the image at 4 MiB leaves it whole. A bare
  // volume image is taken at offset 0 even though it does not hold the whole volume.
  std::string img = fixtures::truncated_copy("feature.img", 4 << 20);
  ASSERT_FALSE(img.empty());
  auto o = run_to_file("img_feature_cut", "-image " + q(img), true);
  expect_matches("feature.facts.tsv", o);
}

TEST(Image, MbrDiskNeedsAnOffsetAndReadsEachNtfsPartition) {
  std::string img = fixtures::path("mbr.img");
  ASSERT_FALSE(img.empty());
  auto parts = fixtures::load_facts("mbr.parts.tsv");
  // Layout: FAT32 at sector 2048, NTFS at 71680, extended at 88064 with a logical NTFS at 90112.
  uint64_t fat = part_offset(parts, 2048), primary = part_offset(parts, 71680), logical = part_offset(parts, 90112);
  bool seen_fat = false, seen_logical = false;
  for (const auto& p : parts.parts) {
    if (p.start == 2048 && p.description.find("FAT32") != std::string::npos) seen_fat = true;
    if (p.start == 90112 && p.description.find("NTFS") != std::string::npos) seen_logical = true;
  }
  ASSERT_TRUE(seen_fat && seen_logical) << "fixture layout changed";

  // No offset: the rows of the layout, then the suggestion of the last NTFS partition.
  auto r = run_brimlock("-image " + q(img) + " -csv");
  EXPECT_EQ(r.status, 255);
  EXPECT_NE(r.err.find("use option [-offset " + hex(logical) + "]\n"), std::string::npos) << r.err;
  for (uint64_t off : {fat, primary, logical})
    EXPECT_NE(r.err.find("volume offset [ " + hex(off) + " ] : "), std::string::npos) << hex(off) << "\n" << r.err;

  // A FAT partition is refused by name.
  auto rf = run_brimlock("-image " + q(img) + " -offset " + hex(fat) + " -csv");
  EXPECT_EQ(rf.status, 255);
  EXPECT_NE(rf.err.find("volume offset selected " + hex(fat) + " is not a NTFS partition, but [fat32]"),
            std::string::npos)
      << rf.err;

  expect_matches("mbr.p2.facts.tsv", run_to_file("img_mbr_p2", "-image " + q(img) + " -offset " + hex(primary), true));
  expect_matches("mbr.p5.facts.tsv", run_to_file("img_mbr_p5", "-image " + q(img) + " -offset " + hex(logical), true));

  // An offset past the end: the bounds text.
  auto rb = run_brimlock("-image " + q(img) + " -offset 0x40000000 -csv");
  EXPECT_EQ(rb.status, 255);
  EXPECT_NE(rb.err.find("volume offset 0x40000000 is not within image bounds"), std::string::npos) << rb.err;
}

TEST(Image, GptDiskNeedsAnOffsetAndReadsItsPartition) {
  std::string img = fixtures::path("gpt.img");
  ASSERT_FALSE(img.empty());
  auto parts = fixtures::load_facts("gpt.parts.tsv");
  uint64_t first = part_offset(parts, 2048);
  auto r = run_brimlock("-image " + q(img) + " -csv");
  EXPECT_EQ(r.status, 255);
  EXPECT_NE(r.err.find("use option [-offset " + hex(first) + "]\n"), std::string::npos) << r.err;
  expect_matches("gpt.p1.facts.tsv", run_to_file("img_gpt", "-image " + q(img) + " -offset " + hex(first), true));
}

TEST(Image, DiskCutShortInsideItsPartition) {
  // The GPT disk cut 3 MiB into its NTFS partition (which starts at 1 MiB).
  std::string img = fixtures::truncated_copy("gpt.img", 4 << 20);
  ASSERT_FALSE(img.empty());
  auto r = run_brimlock("-image " + q(img) + " -offset 0x100000 -csv");
  EXPECT_EQ(r.status, 255);
  EXPECT_NE(r.err.find("volume offset 0x100000 is a NTFS partition, however image size does not encapsulate "
                       "entire volume"),
            std::string::npos)
      << r.err;
  // -ignore_image_size goes on with what there is: the $MFT lies near the start.
  expect_matches("gpt.p1.facts.tsv",
                 run_to_file("img_gpt_cut", "-image " + q(img) + " -offset 0x100000 -ignore_image_size", true));
}

TEST(Image, DiskOfFourKilobyteSectors) {
  std::string img = fixtures::path("disk4k.img");
  ASSERT_FALSE(img.empty());
  auto parts = fixtures::load_facts("disk4k.parts.tsv");
  ASSERT_EQ(parts.info["sector_size"], "4096");
  uint64_t first = part_offset(parts, 256);
  ASSERT_EQ(first, 0x100000u);
  auto r = run_brimlock("-image " + q(img) + " -csv");
  EXPECT_EQ(r.status, 255);
  EXPECT_NE(r.err.find("use option [-offset 0x100000]\n"), std::string::npos) << r.err;
  expect_matches("disk4k.p1.facts.tsv", run_to_file("img_disk4k", "-image " + q(img) + " -offset 0x100000", true));
}

// Disks written by Windows, shared outside the repository.
TEST(Corpus, WindowsDisksNeedTheirOffsetAndMatchSleuthkit) {
  if (fixtures::corpus_dir().empty()) GTEST_SKIP() << "no ../shared/corpus";
  struct sample {
    const char* image;
    const char* facts;
    const char* file;
    const char* path;
  } samples[] = {
      {"ntfs-ptrn.raw", "corpus-ptrn.facts.tsv", "2.txt", "[root]\\"},
      {"ntfs-ramslack.raw", "corpus-ramslack.facts.tsv", "1.txt", "[root]\\"},
      {"ntfs-lastaccess.raw", "corpus-lastaccess.facts.tsv", "1.txt", "[root]\\test\\"},
  };
  for (const auto& s : samples) {
    SCOPED_TRACE(s.image);
    std::string img = fixtures::corpus_image(s.image);
    ASSERT_FALSE(img.empty());
    auto r = run_brimlock("-image " + q(img) + " -csv");
    EXPECT_EQ(r.status, 255);
    EXPECT_NE(r.err.find("use option [-offset 0x10000]\n"), std::string::npos) << r.err;
    auto o = run_to_file(std::string("corpus_") + s.image, "-image " + q(img) + " -offset 0x10000", true);
    if (!fixtures::path(s.facts).empty()) expect_matches(s.facts, o);
    bool found = false;
    for (size_t i = 0; i < o.rows.rows.size(); ++i)
      if (o.rows.cell(i, "name") == s.file && o.rows.cell(i, "path") == s.path) found = true;
    EXPECT_TRUE(found) << s.file;
  }
}
