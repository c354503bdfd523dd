// Stream content read through the volume code, compared with what sleuthkit's icat gave for the
// same attributes of the committed feature volume (the md5 facts).
#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>

#include "base/orv_string.h"
#include "ntfs/ntfs.h"
#include "analysis/orv_attrib_rows.h"
#include "ntfs/orv_stream.h"
#include "tests/integration/fixture_util.h"

namespace {

std::string md5_of(const std::string& bytes) {
  std::string dir = fixtures::scratch_dir("md5");
  testutil::write_text(dir + "/content", bytes);
  auto r = testutil::run_shell("md5sum " + fixtures::q(dir + "/content"));
  return r.out.substr(0, 32);
}

// "inode-type-id" as icat takes it.
bool copy_address(CNtfs& volume, const std::string& address, const copy_options& options, std::string& out) {
  auto parts = orv::split(address, "-", false);
  if (parts.size() != 3) return false;
  uint64_t inode = std::stoull(parts[0]);
  uint32_t type = uint32_t(std::stoul(parts[1]));
  uint16_t id = uint16_t(std::stoul(parts[2]));
  std::vector<attrib_row> rows;
  if (!list_attribs(volume, inode, rows, true)) return false;
  for (const attrib_row& row : rows) {
    if (row.m_type != type || row.m_id != id) continue;
    std::ostringstream stream;
    uint64_t total = 0;
    if (!copy_attrib_data(&volume, row, stream, options, total)) return false;
    out = stream.str();
    return true;
  }
  return false;
}

}  // namespace

TEST(Streams, ContentMatchesIcat) {
  std::string image = fixtures::path("feature.img");
  ASSERT_FALSE(image.empty());
  auto volume = open_volume_path(orv::to_wide(image), 0);
  ASSERT_TRUE(volume);
  fixtures::facts f = fixtures::load_facts("feature.facts.tsv");
  ASSERT_GE(f.md5s.size(), 6u);  // resident, plain, big, sparse, fragmented, and a named stream
  for (const fixtures::fact_md5& m : f.md5s) {
    std::string content;
    ASSERT_TRUE(copy_address(*volume, m.address, copy_options(), content)) << m.path;
    EXPECT_EQ(md5_of(content), m.md5) << m.path;
  }
}

TEST(Streams, SkipSparseIndexBlocksAndNamedStreams) {
  std::string image = fixtures::path("feature.img");
  ASSERT_FALSE(image.empty());
  auto volume = open_volume_path(orv::to_wide(image), 0);
  ASSERT_TRUE(volume);
  std::string content;
  // icat -h of sizes/sparse.bin: only the allocated clusters, 12288 bytes.
  copy_options skip;
  skip.m_skip_sparse = true;
  ASSERT_TRUE(copy_address(*volume, "95-128-2", skip, content));
  EXPECT_EQ(content.size(), 12288u);
  EXPECT_EQ(md5_of(content), "df7681360e7398b48efdf1c4b58c2e6b");
  // The root directory's $I30 allocation as it lies on disk, and repaired: the repaired block
  // no longer carries the update sequence number in its sector tails. The on-disk bytes are
  // taken straight from the image at the stream's first cluster.
  std::vector<attrib_row> rows;
  ASSERT_TRUE(list_attribs(*volume, 5, rows, true));
  const attrib_row* index = nullptr;
  for (const attrib_row& row : rows)
    if (row.m_type == 0xA0) index = &row;
  ASSERT_TRUE(index && !index->m_runs.empty());
  std::string disk = testutil::read_text(image).substr(index->m_runs[0].m_lcn * volume->cluster_size(), 4096);
  copy_options raw;
  raw.m_raw = true;
  ASSERT_TRUE(copy_address(*volume, "5-160-" + std::to_string(index->m_id), raw, content));
  EXPECT_EQ(content, disk);
  std::string repaired;
  ASSERT_TRUE(copy_address(*volume, "5-160-" + std::to_string(index->m_id), copy_options(), repaired));
  ASSERT_EQ(repaired.size(), content.size());
  EXPECT_NE(repaired, content);
  EXPECT_EQ(repaired.compare(0, 510, content, 0, 510), 0);
  // A 9000-byte named stream (streams/data.txt:bigstream).
  ASSERT_TRUE(copy_address(*volume, "84-128-5", copy_options(), content));
  EXPECT_EQ(content.size(), 9000u);
  EXPECT_EQ(md5_of(content), "a847955af1782cd3d5de825e92af0040");
}
