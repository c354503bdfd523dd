// Volume validation, geometry and record positions of CNtfs on small built images. (A fragmented
// $MFT: through the binary on mftfrag.img.)
#include <functional>
#include <gtest/gtest.h>

#include "tests/ntfs/orv_test_volume.h"

using namespace testvol;

namespace {

// An image whose MFT lies in `runs`: record 0 is $MFT, every other record a plain one.
image make_volume(const extents& runs, uint32_t record_size = 1024, uint64_t clusters = 64) {
  image img(clusters);
  img.m_mft_lcn = uint64_t(runs[0].first);
  img.m_per_record = record_size == 1024 ? -10 : -12;
  img.boot();
  img.put_record(runs, 0, testvol::mft_record(runs, img.cluster(), record_size).build());
  uint64_t records = testvol::extent_clusters(runs) * img.cluster() / record_size;
  for (uint64_t n = 1; n < records; ++n) img.put_record(runs, n, testvol::plain_record(uint32_t(n), record_size));
  return img;
}

}  // namespace

// The record size: a negative boot value is a power of two, a positive one a cluster count; a boot
// value smaller than the records is repaired from record 0's own size.
TEST(Volume, RecordSizeFromTheBootSectorOrRecordZero) {
  // {built record size, boot value}: the sizes, positions and count the volume reads.
  const std::pair<uint32_t, int8_t> cases[] = {{1024, -10}, {4096, -12}, {4096, 1}, {4096, -10}};
  for (const auto& gc : cases) {
    image img = make_volume({{4, 4}}, gc.first);
    img.m_per_record = gc.second;
    img.boot();
    image_file file(img.m_bytes);
    std::unique_ptr<CNtfs> v = file.open();
    ASSERT_TRUE(v) << int(gc.second);
    const uint64_t size = gc.first;
    EXPECT_EQ((std::vector<uint64_t>{v->m_mft_record_size, v->m_filerec_size, v->m_first_record.size(),
                                     v->cluster_size(), v->m_mft_file_pos, v->mft_inode_count(),
                                     v->get_file_pos_for_inode(2)}),
              (std::vector<uint64_t>{size, size, size, 4096, 4 * 4096, 4 * 4096 / size, 4 * 4096 + 2 * size}))
        << int(gc.second);
  }
}

TEST(Volume, RefusesWhatIsNotAnNtfsVolume) {
  const image good = make_volume({{4, 4}});
  struct damage { const char* m_what; std::function<void(bytes&)> m_apply; } const cases[] = {
      {"OEM name", [](bytes& b) { std::memcpy(b.data() + 3, "NTFSXXXX", 8); }},
      {"no sectors per cluster", [](bytes& b) { b[13] = 0; }},
      {"2^31-byte records, refused rather than allocated", [](bytes& b) { b[64] = 0xE1; }},
      {"8-byte records cannot hold a header", [](bytes& b) { b[64] = 0xFD; }},
      {"MFT far past the source", [](bytes& b) { orv::put_le64(b.data() + 48, uint64_t(1) << 62); }},
      {"record 0 not a FILE record", [](bytes& b) { std::memcpy(b.data() + 4 * 4096, "BAAD", 4); }},
      {"record 0 cut by the end of the source", [](bytes& b) { b.resize(4 * 4096 + 512); }},
  };
  for (const damage& d : cases) {
    bytes b = good.m_bytes;
    d.m_apply(b);
    EXPECT_FALSE(image_file(b).open()) << d.m_what;
  }
  EXPECT_TRUE(image_file(good.m_bytes).open());
  CNtfs no_source(nullptr, 0);
  EXPECT_FALSE(no_source.volume_open());
  EXPECT_FALSE(open_volume_path(L"/nonexistent/brimlock/volume.img", 0));
}

// $DATA of record 0 claiming 2^32-1 clusters: the count is bounded by what the image can hold.
TEST(Volume, HostileRunCountsDoNotOutgrowTheSource) {
  extents runs = {{4, 4}};
  image img = make_volume(runs);
  img.put_record(runs, 0, testvol::mft_record({{4, 0xFFFFFFFFu}}, img.cluster()).build());
  image_file file(img.m_bytes);
  std::unique_ptr<CNtfs> v = file.open();
  ASSERT_TRUE(v);
  EXPECT_LE(v->mft_inode_count(), img.m_bytes.size() / 1024);
  std::vector<uint8_t> rec;
  EXPECT_TRUE(v->read_record(5, rec));
  EXPECT_FALSE(v->read_record(uint64_t(1) << 40, rec));
}
