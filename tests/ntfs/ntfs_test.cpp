// Volume validation, geometry, record positions and record reads of CNtfs on small built images.
#include <algorithm>
#include <functional>
#include <gtest/gtest.h>

#include "ntfs/ntfs.h"
#include "tests/ntfs/orv_test_volume.h"

using testvol::bytes;
using testvol::extents;
using testvol::image;
using testvol::image_file;

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

// An image written out and the volume opened on it; the file stays while the object lives.
struct opened {
  image_file m_file;
  std::unique_ptr<CNtfs> m_vol;
  explicit opened(const bytes& b, uint64_t offset = 0) : m_file(b), m_vol(m_file.open(offset)) {}
  CNtfs* operator->() const { return m_vol.get(); }
};

}  // namespace

// The record size: a negative boot value is a power of two, a positive one a cluster count; a boot
// value smaller than the records is repaired from record 0's own size.
TEST(Volume, RecordSizeFromTheBootSectorOrRecordZero) {
  struct geometry_case {
    uint32_t m_built_size;
    int8_t m_boot_value;
    uint32_t m_record_size, m_inodes;
  } const cases[] = {{1024, -10, 1024, 16}, {4096, -12, 4096, 4}, {4096, 1, 4096, 4}, {4096, -10, 4096, 4}};
  for (const geometry_case& gc : cases) {
    SCOPED_TRACE(int(gc.m_boot_value));
    image img = make_volume({{4, 4}}, gc.m_built_size);
    img.m_per_record = gc.m_boot_value;
    img.boot();
    opened v(img.m_bytes);
    ASSERT_TRUE(v.m_vol);
    EXPECT_EQ(v->m_mft_record_size, gc.m_record_size);
    EXPECT_EQ(v->m_filerec_size, gc.m_record_size);
    EXPECT_EQ(v->m_first_record.size(), gc.m_record_size);
    EXPECT_EQ(v->mft_inode_count(), gc.m_inodes);
    EXPECT_EQ(v->cluster_size(), 4096u);
    EXPECT_EQ(v->m_mft_file_pos, 4u * 4096);
    EXPECT_EQ(v->get_file_pos_for_inode(2), 4u * 4096 + 2 * gc.m_record_size);
  }
}

TEST(Volume, RefusesWhatIsNotAnNtfsVolume) {
  const image good = make_volume({{4, 4}});
  struct damage {
    const char* m_what;
    std::function<void(bytes&)> m_apply;
  } const cases[] = {
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

TEST(Volume, WindowReadsMatchDirectReadsInAnyOrder) {
  extents runs = {{4, 3}, {30, 2}, {12, 3}};
  image img = make_volume(runs);
  opened v(img.m_bytes);
  ASSERT_TRUE(v.m_vol);
  ASSERT_EQ(v->mft_inode_count(), 32u);
  std::vector<uint64_t> order;
  for (uint64_t n = 0; n < 36; ++n) order.push_back(n);            // a walk across the runs
  for (uint64_t n = 0; n < 36; ++n) order.push_back((n * 11) % 36);  // jumps
  for (uint64_t n = 1; n < 20; ++n) {                               // a walk with lookups between
    order.push_back(n);
    order.push_back(31 - n);
  }
  std::vector<uint8_t> rec;
  for (uint64_t n : order) {
    ASSERT_TRUE(v->read_record_raw(n, rec)) << n;
    ASSERT_EQ(rec.size(), 1024u);
    uint64_t pos = n < 32 ? img.record_pos(runs, n, 1024) : 0;  // past the end: the boot area
    EXPECT_TRUE(std::equal(rec.begin(), rec.end(), img.m_bytes.begin() + int64_t(pos))) << n;
  }
  EXPECT_FALSE(v->read_record(33, rec));
}

// 512-byte clusters: record 1 starts in the last cluster of the first run (LCN 6) and ends in the
// first cluster of the second (LCN 40).
TEST(Volume, RecordSplitBetweenTwoRunsIsReadPieceByPiece) {
  extents runs = {{4, 3}, {40, 5}};
  image img(128, 1);
  img.m_mft_lcn = 4;
  img.boot();
  auto place = [&](uint64_t n, const bytes& record) {
    for (uint64_t half = 0; half < 2; ++half) {
      uint64_t vcn = n * 2 + half, lcn = vcn < 3 ? 4 + vcn : 40 + (vcn - 3);
      img.put(lcn * 512, bytes(record.begin() + int64_t(half * 512), record.begin() + int64_t(half * 512 + 512)));
    }
  };
  place(0, testvol::mft_record(runs, 512).build());
  for (uint32_t n = 1; n < 4; ++n) place(n, testvol::plain_record(n));
  opened v(img.m_bytes);
  ASSERT_TRUE(v.m_vol);
  std::vector<uint8_t> rec;
  for (uint64_t pass = 0; pass < 2; ++pass)  // a walk, then the same records as lookups
    for (uint64_t n : {1, 2, 3, 1}) {
      ASSERT_TRUE(v->read_record_raw(n, rec)) << n;
      EXPECT_EQ(rec, testvol::plain_record(uint32_t(n))) << n;  // both halves, each from its own run
    }
}

// $DATA of record 0 claiming 2^32-1 clusters: positions stay computable, the count is bounded by
// what the image can hold.
TEST(Volume, HostileRunCountsDoNotOutgrowTheSource) {
  extents runs = {{4, 4}};
  image img = make_volume(runs);
  img.put_record(runs, 0, testvol::mft_record({{4, 0xFFFFFFFFu}}, img.cluster()).build());
  opened v(img.m_bytes);
  ASSERT_TRUE(v.m_vol);
  EXPECT_LE(v->mft_inode_count(), img.m_bytes.size() / 1024);
  std::vector<uint8_t> rec;
  EXPECT_TRUE(v->read_record(5, rec));
  EXPECT_FALSE(v->read_record(uint64_t(1) << 40, rec));
}
