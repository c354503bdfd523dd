// Stream content read through the volume code in the ways a copy through the binary does not
// show: index blocks raw and repaired, a damaged compression unit, stored clusters.

#include <sstream>

#include "base/orv_string.h"
#include "ntfs/ntfs.h"
#include "analysis/orv_attrib_rows.h"
#include "ntfs/orv_stream.h"
#include "tests/integration/fixture_util.h"

namespace {

std::string md5_of(const std::string& bytes) {
  std::string file = fixtures::scratch_dir("md5") + "/content";
  testutil::write_text(file, bytes);
  return testutil::run_shell("md5sum " + fixtures::q(file)).out.substr(0, 32);
}

// "inode-type-id" as icat takes it.
bool copy_address(CNtfs& volume, const std::string& address, const copy_options& options, std::string& out) {
  auto parts = orv::split(address, "-", false);
  std::vector<attrib_row> rows;
  if (parts.size() != 3 || !list_attribs(volume, std::stoull(parts[0]), rows, true)) return false;
  for (const attrib_row& row : rows) {
    if (row.m_type != std::stoul(parts[1]) || row.m_id != std::stoul(parts[2])) continue;
    std::ostringstream stream;
    uint64_t total = 0;
    bool copied = copy_attrib_data(&volume, row, stream, options, total);
    return out = stream.str(), copied;
  }
  return false;
}

// The volume of fixture NAME.img and its facts; null when the image is missing.
std::unique_ptr<CNtfs> open_fixture(const std::string& name, fixtures::facts& f) {
  f = fixtures::load_facts(name + ".facts.tsv");
  const std::string image = fixtures::path(name + ".img");
  return image.empty() ? nullptr : open_volume_path(orv::to_wide(image), 0);
}

}  // namespace

TEST(Streams, ContentMatchesIcat) {
  fixtures::facts f;
  auto volume = open_fixture("feature", f);
  ASSERT_TRUE(volume);
  const std::string image = fixtures::path("feature.img");
  std::string content;

  copy_options raw;
  raw.m_raw = true;
  // The root directory's $I30 allocation as it lies on disk (taken straight from the image at the
  // stream's first cluster), and repaired.
  std::vector<attrib_row> rows;
  ASSERT_TRUE(list_attribs(*volume, 5, rows, true));
  const attrib_row* index = nullptr;
  for (const attrib_row& row : rows)
    if (row.m_type == 0xA0) index = &row;
  ASSERT_TRUE(index && !index->m_runs.empty());
  std::string disk = testutil::read_text(image).substr(index->m_runs[0].m_lcn * volume->cluster_size(), 4096);
  ASSERT_TRUE(copy_address(*volume, "5-160-" + std::to_string(index->m_id), raw, content));
  EXPECT_EQ(content, disk);
  std::string repaired;  // no longer has the update sequence number in its sector tails
  ASSERT_TRUE(copy_address(*volume, "5-160-" + std::to_string(index->m_id), copy_options(), repaired));
  EXPECT_TRUE(repaired.size() == content.size() && repaired != content);
  EXPECT_EQ(repaired.compare(0, 510, content, 0, 510), 0);
  // A non-resident named stream of 9000 bytes (streams/data.txt:bigstream).
  ASSERT_TRUE(copy_address(*volume, "84-128-5", copy_options(), content));
  EXPECT_EQ(md5_of(content), "a847955af1782cd3d5de825e92af0040");
}

// Compressed streams (icat expands them), a unit damaged on purpose, and -raw: the stored clusters.
TEST(Streams, CompressedMatchIcat) {
  fixtures::facts f;
  auto volume = open_fixture("compress", f);
  ASSERT_TRUE(volume);
  ASSERT_EQ(f.damaged.size(), 1u);
  std::string content;
  EXPECT_FALSE(copy_address(*volume, f.damaged[0].address, copy_options(), content));
  EXPECT_EQ(md5_of(content), f.damaged[0].md5);

  copy_options raw;
  raw.m_raw = raw.m_skip_sparse = true;
  std::vector<attrib_row> rows;
  ASSERT_EQ(f.md5s[0].path, "packed/text.txt");
  ASSERT_TRUE(list_attribs(*volume, std::stoull(f.md5s[0].address), rows, true));
  std::string disk, all = testutil::read_text(fixtures::path("compress.img"));
  for (const attrib_row& row : rows)
    for (const run_entry& r : row.m_type == 0x80 ? row.m_runs : data_run_list())
      if (!r.m_is_sparse) disk += all.substr(r.m_lcn * volume->cluster_size(), r.m_count * volume->cluster_size());
  ASSERT_TRUE(copy_address(*volume, f.md5s[0].address, raw, content));
  EXPECT_EQ(content.size(), 7 * volume->cluster_size());
  EXPECT_EQ(content, disk);
}
