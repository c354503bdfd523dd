// Copies made by -action_copy_files, and the digest and header columns: every copy against what
// icat read (the md5 facts) and against md5sum/sha1sum/sha256sum of the same bytes.

#include <regex>

#include "tests/integration/fixture_util.h"

namespace {

std::string digest_of(const std::string& tool, const std::string& file) {
  return testutil::run_shell(tool + " " + fixtures::q(file)).out.substr(0, tool == "md5sum" ? 32 : tool == "sha1sum" ? 40 : 64);
}

// One extraction run, the copies in the scratch directory of `tag`; its rows are per-path rows.
struct copy_run {
  std::string dir;
  fixtures::rows_run r;
};

copy_run extract(const std::string& tag, const std::string& source, const std::string& options) {
  const std::string dir = fixtures::scratch_dir(tag);
  return {dir, fixtures::run_rows(tag, source + " -quiet -action_copy_files " + fixtures::q(dir + "/copies") + " " +
                                           options)};
}

// The copy named in the row of `name` (with ":stream" for a named stream), "" when none.
std::string copy_of(const copy_run& run, const std::string& name) {
  for (size_t i = 0; i < run.r.rows.rows.size(); ++i)
    if (run.r.rows.cell(i, "name") == name && !run.r.rows.cell(i, "extracted file path").empty())
      return run.r.rows.cell(i, "extracted file path");
  return "";
}

std::string base_name(const std::string& path) { return path.substr(path.rfind('/') + 1); }

}  // namespace

TEST(Extraction, CopiesMatchIcatAndAreNamedByStampAndDigest) {
  const std::regex form(".*/copies/valid/catchall/[0-9]{4}_[0-9]{2}_[0-9]{2}_[0-9]{4}_[0-9]{2}_[0-9]{3}_"
                        "([0-9a-f]{32})_[^/]+\\.bin$");
  // Plain, sparse, fragmented, resident and named streams; NTFS-compressed ones (text, random
  // data, zeros, a hole, many units, a named stream).
  for (const char* volume : {"feature", "compress"}) {
    SCOPED_TRACE(volume);
    const std::string image = fixtures::path(std::string(volume) + ".img");
    ASSERT_FALSE(image.empty());
    const fixtures::facts f = fixtures::load_facts(std::string(volume) + ".facts.tsv");
    const copy_run run = extract(std::string("extract-") + volume, "-image " + fixtures::q(image), "-all");
    ASSERT_EQ(run.r.run.status, 0);
    for (const fixtures::fact_md5& m : f.md5s) {
      std::string name = base_name(m.path);
      const size_t colon = name.find(':');
      const std::string copy = copy_of(run, name);
      ASSERT_FALSE(copy.empty()) << m.path;
      std::smatch parts;
      ASSERT_TRUE(std::regex_match(copy, parts, form)) << copy;
      EXPECT_EQ(parts[1].str(), m.md5) << m.path;                // the digest in the name
      EXPECT_EQ(digest_of("md5sum", copy), m.md5) << m.path;    // and of the bytes written
      if (colon != std::string::npos) {
        EXPECT_NE(copy.find("." + name.substr(colon + 1) + "_ads.bin"), std::string::npos) << copy;
      }
    }
    // Nothing but the copies: no temporary file left behind.
    EXPECT_EQ(testutil::run_shell("find " + fixtures::q(run.dir + "/copies") + " -name '*__temp__*'").out, "");
    if (std::string(volume) == "feature") {
      // Hard links: one copy of the record's stream, named by its first name, in the rows of both.
      EXPECT_EQ(copy_of(run, "report-copy.txt"), copy_of(run, "report.txt"));
      // Directories and empty files: a row without a copy.
      for (const char* none : {"docs", "empty.bin"}) EXPECT_EQ(copy_of(run, none), "") << none;
    } else {
      // A unit that cannot be expanded ends the copy: no copy, an empty cell.
      EXPECT_EQ(copy_of(run, "damaged.txt"), "");
      // Names that hold '/', a control character or are ".." stay one component of the copy's
      // path; the rows keep them as the volume has them.
      const std::pair<const char*, const char*> names[] = {
          {"sl/ash.txt", "_sl_ash.txt.bin"}, {"ctl\x01name.txt", "_ctl_name.txt.bin"}, {"..", "___.bin"}};
      for (const auto& n : names) {
        const std::string copy = copy_of(run, n.first);
        EXPECT_EQ(copy.substr(copy.size() - std::string(n.second).size()), n.second) << copy;
        EXPECT_EQ(copy.find("/copies/valid/catchall/"), copy.rfind('/') - 22) << copy;
      }
    }
  }
}

TEST(Extraction, OptionsSourcesAndFilterDirectories) {
  const std::string image = fixtures::path("feature.img"), mft = fixtures::path("feature.mft");
  ASSERT_FALSE(image.empty());
  const std::string on_image = "-image " + fixtures::q(image);
  // An extracted $MFT gives resident content only.
  copy_run run = extract("extract-mft", "-mftfile " + fixtures::q(mft), "");
  EXPECT_EQ(digest_of("md5sum", copy_of(run, "readme.txt")), "bbc77d4ba20e2e4f12ae8519fc0b9a3f");
  EXPECT_EQ(copy_of(run, "big.bin"), "");
  // Sparse ranges left out: only the allocated clusters, as icat -h gives them.
  run = extract("extract-skip", on_image, "-skip_sparse_clusters -filter_name sparse");
  EXPECT_EQ(digest_of("md5sum", copy_of(run, "sparse.bin")), "df7681360e7398b48efdf1c4b58c2e6b");
  EXPECT_NE(copy_of(run, "sparse.bin").find("/valid/sparse/"), std::string::npos) << copy_of(run, "sparse.bin");
  // -raw adds the slack to the allocation: 300000 bytes in 4096-byte clusters.
  run = extract("extract-raw", on_image, "-raw -use_orig_ext -filter_inode 94");
  const std::string raw = copy_of(run, "big.bin");
  EXPECT_NE(raw.find("/valid/inodes/"), std::string::npos) << raw;
  EXPECT_EQ(raw.substr(raw.size() - 8), "_big.bin");
  EXPECT_EQ(testutil::run_shell("stat -c %s " + fixtures::q(raw)).out, "303104\n");
  EXPECT_EQ(testutil::run_shell("head -c 300000 " + fixtures::q(raw) + " | md5sum").out.substr(0, 32),
            "1224042ab2f887844e4d4279c36424fe");
  // Deleted records go under their own status directory.
  run = extract("extract-deleted", on_image, "-filter_deleted_files -all");
  bool deleted_copy = false;
  for (size_t i = 0; i < run.r.rows.rows.size(); ++i) {
    const std::string copy = run.r.rows.cell(i, "extracted file path");
    EXPECT_TRUE(copy.empty() || copy.find("/copies/deleted-mft/") != std::string::npos) << copy;
    deleted_copy = deleted_copy || !copy.empty();
  }
  EXPECT_TRUE(deleted_copy);
}

TEST(Extraction, DigestAndHeaderColumnsOfTheDefaultRows) {
  const std::string image = fixtures::path("feature.img");
  ASSERT_FALSE(image.empty());
  // Reference bytes of big.bin: its icat-checked copy.
  const copy_run copied = extract("digest-reference", "-image " + fixtures::q(image), "-filter_inode 94");
  const std::string reference = copy_of(copied, "big.bin");
  ASSERT_EQ(digest_of("md5sum", reference), "1224042ab2f887844e4d4279c36424fe");

  const std::string columns = " -quiet -csv -md5 -sha1 -sha256 -action_include_header -filter_inode 94";
  const fixtures::rows_run digests = fixtures::run_rows("digest-columns", "-image " + fixtures::q(image) + columns);
  const fixtures::results& rows = digests.rows;
  ASSERT_FALSE(rows.rows.empty()) << digests.run.err;
  const std::vector<std::string>& h = rows.header;
  // Columns in order: the SHA-256 digest stands under a second "SHA1 hash" heading.
  auto at = [&](size_t i) { return rows.rows[0][i]; };
  size_t md5 = std::find(h.begin(), h.end(), "MD5 hash") - h.begin();
  ASSERT_LT(md5 + 2, h.size());
  EXPECT_EQ(h[md5 + 1], "SHA1 hash");
  EXPECT_EQ(h[md5 + 2], "SHA1 hash");
  EXPECT_EQ(at(md5), digest_of("md5sum", reference));
  EXPECT_EQ(at(md5 + 1), digest_of("sha1sum", reference));
  EXPECT_EQ(at(md5 + 2), digest_of("sha256sum", reference));
  // The first 32 bytes as hex, as the copy holds them; for a compressed file, as they expand.
  auto head_of = [](const std::string& file) {
    return testutil::run_shell("head -c 32 " + fixtures::q(file) +
                               " | od -An -tx1 -v | tr -s ' \\n' ' ' | sed 's/^ //;s/ $//'").out;
  };
  EXPECT_EQ(rows.cell(0, "header info"), head_of(reference));
  const std::string packed = fixtures::path("compress.img");
  const copy_run text = extract("header-compressed", "-image " + fixtures::q(packed), "-filter_inode 66");
  const fixtures::results compressed = fixtures::run_rows(
      "header-columns", "-image " + fixtures::q(packed) + " -quiet -csv -action_include_header -filter_inode 66").rows;
  ASSERT_FALSE(compressed.rows.empty());
  EXPECT_EQ(compressed.cell(0, "header info"), head_of(copy_of(text, "text.txt")));
}

// -hashfile on compressed content: every digest of the list against the tools of coreutils, run
// on the copies made in the same run (whose MD5 sleuthkit vouches for through the facts).
TEST(Extraction, HashListMatchesCoreutils) {
  const std::string image = fixtures::path("compress.img");
  ASSERT_FALSE(image.empty());
  const fixtures::facts f = fixtures::load_facts("compress.facts.tsv");
  // The copies' rows are comma separated, and so is the list that goes with them.
  const copy_run run = extract("hash-list", "-image " + fixtures::q(image), "-hashfile \"md5 | sha1 | sha256\"");
  ASSERT_EQ(run.r.run.status, 0);
  const std::string dir = run.dir;
  const fixtures::results& rows = run.r.rows;
  ASSERT_GE(rows.header.size(), 21u);
  EXPECT_EQ(rows.header[0] + "," + rows.header[1] + "," + rows.header[2], "md5 hash,sha1 hash,sha256 hash");
  EXPECT_EQ(rows.header[20], "time-utc");  // the FN "mftdate" pair closes the times
  std::set<std::string> listed;
  for (size_t i = 0; i < rows.rows.size(); ++i) {
    const std::string md5 = rows.cell(i, "md5 hash");
    if (md5.empty()) continue;
    listed.insert(md5);
    const std::string copy =
        testutil::run_shell("find " + fixtures::q(dir + "/copies") + " -name '*_" + md5 + "_*' | head -1").out;
    ASSERT_FALSE(copy.empty()) << md5;
    const std::string file = copy.substr(0, copy.size() - 1);
    EXPECT_EQ(digest_of("sha1sum", file), rows.cell(i, "sha1 hash")) << file;
    EXPECT_EQ(digest_of("sha256sum", file), rows.cell(i, "sha256 hash")) << file;
  }
  for (const fixtures::fact_md5& m : f.md5s)
    if (m.path.find(':') == std::string::npos) {
      EXPECT_TRUE(listed.count(m.md5)) << m.path;
    }
}

// A file compressed by Windows itself: /1.txt of the shared ramslack disk (skipped without it).
TEST(Extraction, WindowsCompressedFileOfTheCorpus) {
  if (fixtures::corpus_dir().empty()) GTEST_SKIP() << "no ../shared/corpus";
  const std::string image = fixtures::image("corpus:ntfs-ramslack.raw");
  ASSERT_FALSE(image.empty());
  const copy_run run = extract("extract-corpus", "-image " + fixtures::q(image) + " -offset 0x10000", "-filter_inode 39");
  EXPECT_EQ(digest_of("md5sum", copy_of(run, "1.txt")), "36f90669011e09f6f82dc12e5383a32e");  // icat, record 39
}

// A hostile record found by fuzzing claims terabytes of sparse zeros: the copy is refused with a
// message and the run ends at once.
TEST(Extraction, HolesBeyondTheSourceAreRefused) {
  const std::string image = fixtures::path("holes.img");
  ASSERT_FALSE(image.empty());
  const copy_run run = extract("holes", "-image " + fixtures::q(image), "-all -raw");
  const testutil::run_result& r = run.r.run;
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.err.find("prob reading inode 0x1: its sparse ranges claim more than the volume holds"), std::string::npos)
      << r.err;
  EXPECT_LT(std::stoull(testutil::run_shell("du -sk " + fixtures::q(run.dir + "/copies") + " | cut -f1").out), 1024u);
}
