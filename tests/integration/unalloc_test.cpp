// The free-cluster pass: a file record copied into a cluster that $Bitmap shows as free is found,
// numbered from its own header, and written with the "unalloc" type.

#include <fstream>

#include "base/orv_string.h"
#include "ntfs/ntfs.h"
#include "tests/integration/fixture_util.h"

namespace {
// A cluster past `from` whose whole bitmap byte is clear, so its neighbours are free too.
uint64_t free_cluster(const std::string& image, uint64_t from) {
  std::vector<uint8_t> bitmap;
  auto volume = open_volume_path(orv::to_wide(image), 0);
  if (!volume || !volume->read_cluster_bitmap(bitmap)) return 0;
  const std::string bits(bitmap.begin(), bitmap.end());
  for (uint64_t byte = from / 8; byte < bits.size(); ++byte)
    if (bits[byte] == 0) return byte * 8 + 3;
  return 0;
}
}  // namespace

// A record copied into the free clusters of each volume: 1024-byte records in 4096-byte clusters,
// and 4096-byte records, whose update sequence words stand every 512 bytes, on 4096-byte sectors.
TEST(Unallocated, PlantedRecordIsFoundInFreeSpace) {
  struct planted { const char *volume, *mft; uint64_t number, size, slot; const char* row; } const cases[] = {
      {"feature", "feature.mft", 0x42, 1024, 1, "0x00000042 unalloc [root]\\readme.txt"},
      {"stride4k", "stride4k.mft", 0x43, 4096, 0, "0x00000043 unalloc [root]\\tails\\short.bin"},
  };
  for (const planted& c : cases) {
    SCOPED_TRACE(c.volume);
    std::string source = fixtures::path(std::string(c.volume) + ".img"), mft = fixtures::path(c.mft);
    ASSERT_FALSE(source.empty() || mft.empty());
    std::string image = fixtures::scratch_dir(std::string("unalloc_") + c.volume) + "/planted.img";
    testutil::write_text(image, testutil::read_text(source));
    uint64_t cluster = free_cluster(image, 1000);
    ASSERT_NE(cluster, 0u);
    std::string record = testutil::read_text(mft).substr(c.number * c.size, c.size);
    uint64_t offset = cluster * 4096 + c.slot * c.size;
    std::fstream(image, std::ios::in | std::ios::out | std::ios::binary)
        .seekp(std::streamoff(offset))
        .write(record.data(), std::streamsize(record.size()));
    auto r = fixtures::run_brimlock("-image " + fixtures::q(image) +
                                    " -filter_unalloc_clusters -csv -quiet -filerecord_offset");
    fixtures::results rows = fixtures::parse_results(r.out, ",", 2);
    ASSERT_FALSE(rows.rows.empty()) << r.out;
    char expected_offset[40];
    std::snprintf(expected_offset, sizeof expected_offset, "filerecord: 0x%08llx", (unsigned long long)offset);
    for (size_t i = 0; i < rows.rows.size(); ++i) {
      EXPECT_EQ(rows.cell(i, "mft entry") + " " + rows.cell(i, "type") + " " + rows.cell(i, "path") +
                    rows.cell(i, "name"),
                c.row);
      EXPECT_NE(rows.cell(i, "other info").find(expected_offset), std::string::npos) << rows.cell(i, "other info");
    }
    if (std::string(c.volume) != "feature") continue;
    // Both passes into one results stream: the live rows first, then the recovered copy.
    r = fixtures::run_brimlock("-image " + fixtures::q(image) + " -filter_all_clusters -csv -quiet");
    rows = fixtures::parse_results(r.out, ",", 2);
    ASSERT_GT(rows.rows.size(), 4u);
    EXPECT_EQ(rows.cell(rows.rows.size() - 1, "type"), "unalloc");
    EXPECT_NE(rows.cell(0, "type"), "unalloc");
    // An extracted $MFT has no free clusters: only the banner, and the reason.
    r = fixtures::run_brimlock("-mftfile " + fixtures::q(mft) + " -filter_unalloc_clusters -csv -quiet");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out.find("mft entry"), std::string::npos) << r.out;
    EXPECT_NE(r.err.find("an extracted $MFT has no free clusters to scan, aborting"), std::string::npos) << r.err;
  }
}
