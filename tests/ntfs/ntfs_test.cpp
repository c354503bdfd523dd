// Volume validation, geometry, record positions and record reads of CNtfs on small built images.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

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

// One entry of an attribute list value.
bytes list_entry(uint32_t type, uint64_t first_vcn, uint64_t record, uint16_t seq, uint16_t id) {
  bytes e(32, 0);
  orv::put_le32(e.data(), type);
  orv::put_le16(e.data() + 4, 32);
  e[7] = 26;
  orv::put_le64(e.data() + 8, first_vcn);
  orv::put_le64(e.data() + 16, orv::make_ref(record, seq));
  orv::put_le16(e.data() + 24, id);
  return e;
}

// $MFT in two pieces: VCN 0-3 at cluster 4 described in record 0, VCN 4-7 at cluster 20 held by
// extension record 15 and reached through record 0's attribute list. `ref_seq` is the sequence
// number the list gives for record 15, whose own sequence number is 3.
image fragmented_mft(uint16_t ref_seq, bool list_nonresident) {
  extents first = {{4, 4}}, all = {{4, 4}, {20, 4}};
  image img = make_volume(all);
  testutil::record_builder rb;
  rb.m_record_number = 0;
  rb.resident(0x10, testutil::si_value(1, 2, 3, 4, 6), u"", 0);
  bytes list;
  for (const bytes& e : {list_entry(0x10, 0, 0, 1, 0), list_entry(0x80, 0, 0, 1, 2), list_entry(0x80, 4, 15, ref_seq, 5)})
    list.insert(list.end(), e.begin(), e.end());
  if (list_nonresident) {
    img.put(40 * img.cluster(), list);
    rb.nonresident(0x20, testvol::encode_runs({{40, 1}}), img.cluster(), list.size(), list.size(), u"", 1);
  } else {
    rb.resident(0x20, list, u"", 1);
  }
  rb.nonresident(0x80, testvol::encode_runs(first), 8 * img.cluster(), 8 * img.cluster(), 8 * img.cluster(), u"", 2, 0,
                 0, 3);
  img.put_record(all, 0, rb.build());

  testutil::record_builder ext;
  ext.m_record_number = 15;
  ext.m_sequence = 3;
  ext.m_base_ref = orv::make_ref(0, 1);
  ext.nonresident(0x80, testvol::encode_runs({{20, 4}}), 0, 0, 0, u"", 5, 0, 4, 7);
  img.put_record(all, 15, ext.build());
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
TEST(volume_geometry, record_size_from_the_boot_sector_or_record_zero) {
  struct geometry_case {
    uint32_t m_built_size;
    int8_t m_boot_value;
    uint32_t m_record_size, m_inodes;
    int32_t m_fixed;  // clusters per record; -1: not looked at
  } const cases[] = {{1024, -10, 1024, 16, 0}, {4096, -12, 4096, 4, 1}, {4096, 1, 4096, 4, 1}, {4096, -10, 4096, 4, -1}};
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
    if (gc.m_fixed >= 0) {
      EXPECT_EQ(v->m_mft_cluster_per_record_fixed, gc.m_fixed);
    }
    EXPECT_EQ(v->mft_inode_count(), gc.m_inodes);
    EXPECT_EQ(v->cluster_size(), 4096u);
    EXPECT_EQ(v->m_mft_file_pos, 4u * 4096);
    EXPECT_EQ(v->get_file_pos_for_inode(2), 4u * 4096 + 2 * gc.m_record_size);
  }
}

TEST(volume_geometry, refuses_what_is_not_an_ntfs_volume) {
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

TEST(volume_geometry, volume_offset_shifts_every_read) {
  image img = make_volume({{4, 4}});
  bytes shifted(3 * 512, 0xEE);
  shifted.insert(shifted.end(), img.m_bytes.begin(), img.m_bytes.end());
  EXPECT_FALSE(opened(shifted, 0).m_vol);
  opened v(shifted, 3 * 512);
  ASSERT_TRUE(v.m_vol);
  std::vector<uint8_t> rec;
  ASSERT_TRUE(v->read_record(9, rec));
  EXPECT_EQ(orv::le32(rec.data() + 44), 9u);
}

TEST(volume_records, positions_follow_the_mft_runs_and_end_with_zero) {
  opened v(make_volume({{4, 4}, {20, 4}}).m_bytes);
  ASSERT_TRUE(v.m_vol);
  EXPECT_EQ(v->mft_inode_count(), 32u);
  EXPECT_EQ(v->get_file_pos_for_inode(0), 4u * 4096);
  EXPECT_EQ(v->get_file_pos_for_inode(15), 4u * 4096 + 15 * 1024);
  EXPECT_EQ(v->get_file_pos_for_inode(16), 20u * 4096);
  EXPECT_EQ(v->get_file_pos_for_inode(31), 20u * 4096 + 15 * 1024);
  EXPECT_EQ(v->get_file_pos_for_inode(32), 0u);
  EXPECT_EQ(v->get_file_pos_for_inode(uint64_t(1) << 62), 0u);
}

TEST(volume_records, window_reads_match_direct_reads_in_any_order) {
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

  // A walk reads ahead in one piece: records changed on the source after that read are still
  // served from the read-ahead.
  opened w(img.m_bytes);
  ASSERT_TRUE(w->read_record(1, rec));
  ASSERT_TRUE(w->read_record(2, rec));
  bytes changed = img.m_bytes;
  std::memset(changed.data() + img.record_pos(runs, 3, 1024), 0, 1024);
  testutil::write_file(w.m_file.m_path, changed);
  ASSERT_TRUE(w->read_record(3, rec));
  EXPECT_EQ(orv::le32(rec.data() + 44), 3u);
}

// 512-byte clusters: record 1 starts in the last cluster of the first run (LCN 6) and ends in the
// first cluster of the second (LCN 40).
TEST(volume_records, a_record_split_between_two_runs_is_read_piece_by_piece) {
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

TEST(volume_records, read_record_restores_sector_tails) {
  extents runs = {{4, 4}};
  image img = make_volume(runs);
  testutil::record_builder rb;
  rb.m_record_number = 7;
  rb.resident(0x80, bytes(900, 0x5A));
  img.put_record(runs, 7, rb.build());
  opened v(img.m_bytes);
  ASSERT_TRUE(v.m_vol);
  std::vector<uint8_t> raw, fixed;
  ASSERT_TRUE(v->read_record_raw(7, raw));
  ASSERT_TRUE(v->read_record(7, fixed));
  EXPECT_EQ(orv::le16(raw.data() + 510), 0x0101);  // the sequence number stands in the tail
  EXPECT_EQ(fixed[510], 0x5A);
  EXPECT_EQ(fixed[1022], 0);
  EXPECT_EQ(fixed[1023], 0);
}

TEST(volume_records, in_memory_image_is_indexed_by_record_size) {
  opened v(make_volume({{4, 4}}).m_bytes);
  ASSERT_TRUE(v.m_vol);
  v->m_mft_image.assign(3 * 1024, 0);
  v->m_mft_image[2 * 1024] = 0x77;
  v->m_use_mft_image = true;
  std::vector<uint8_t> rec;
  ASSERT_TRUE(v->read_record_raw(2, rec));
  EXPECT_EQ(rec[0], 0x77);
  EXPECT_FALSE(v->read_record_raw(3, rec));
  EXPECT_FALSE(v->read_record_raw(uint64_t(1) << 60, rec));
}

TEST(volume_mft, extension_record_extends_the_mft_through_the_attribute_list) {
  for (bool nonresident : {false, true}) {
    SCOPED_TRACE(nonresident ? "non-resident list" : "resident list");
    opened v(fragmented_mft(3, nonresident).m_bytes);
    ASSERT_TRUE(v.m_vol);
    EXPECT_EQ(v->mft_inode_count(), 32u);
    EXPECT_EQ(v->get_file_pos_for_inode(20), 20u * 4096 + 4 * 1024);
    std::vector<uint8_t> rec;
    ASSERT_TRUE(v->read_record(20, rec));
    EXPECT_EQ(orv::le32(rec.data() + 44), 20u);
  }
  // A reused extension record (the list says sequence 2, record 15 has 3) adds no extents.
  opened v(fragmented_mft(2, false).m_bytes);
  ASSERT_TRUE(v.m_vol);
  EXPECT_EQ(v->mft_inode_count(), 16u);
  EXPECT_EQ(v->get_file_pos_for_inode(20), 0u);
}

TEST(volume_mft, bitmap_runs_come_from_record_six_when_readable) {
  extents runs = {{4, 4}};
  image img = make_volume(runs);
  testutil::record_builder rb;
  rb.m_record_number = 6;
  rb.nonresident(0x80, testvol::encode_runs({{50, 2}}), 8192, 8192, 8192);
  img.put_record(runs, 6, rb.build());
  opened v(img.m_bytes);
  ASSERT_TRUE(v.m_vol);
  data_run_list b = v->get_bitmap_inode_runlist();
  ASSERT_EQ(b.size(), 1u);
  EXPECT_EQ(b[0].m_lcn, 50u);
  EXPECT_EQ(b[0].m_count, 2u);

  // Record 6 destroyed: the volume is valid all the same, without cluster bitmap.
  std::memset(img.m_bytes.data() + img.record_pos(runs, 6, 1024), 0, 1024);
  opened w(img.m_bytes);
  ASSERT_TRUE(w.m_vol);
  EXPECT_TRUE(w->get_bitmap_inode_runlist().empty());

  // An MFT of four records has no record 6 at all.
  opened x(make_volume({{4, 1}}).m_bytes);
  ASSERT_TRUE(x.m_vol);
  EXPECT_EQ(x->mft_inode_count(), 4u);
  EXPECT_TRUE(x->get_bitmap_inode_runlist().empty());
}

TEST(volume_mft, last_allocated_record_is_the_highest_bit_of_the_mft_bitmap) {
  extents runs = {{4, 4}};
  image img = make_volume(runs);
  opened plain(img.m_bytes);  // no $BITMAP attribute
  ASSERT_TRUE(plain.m_vol);
  EXPECT_EQ(plain->get_last_allocated_indo_per_mftbitmap(), 0u);

  testutil::record_builder rb = testvol::mft_record(runs, img.cluster());
  rb.nonresident(0xB0, testvol::encode_runs({{45, 1}, {-1, 1}, {46, 1}}), 3 * 4096, 3 * 4096, 3 * 4096);
  img.put_record(runs, 0, rb.build());
  img.m_bytes[45 * 4096] = 0xFF;
  img.m_bytes[46 * 4096 + 2] = 0x05;  // bits 2 and 0 of byte 2 of the third cluster
  opened v(img.m_bytes);
  ASSERT_TRUE(v.m_vol);
  EXPECT_EQ(v->get_mft_inode_bitmap_runlist().size(), 3u);
  EXPECT_EQ(v->get_last_allocated_indo_per_mftbitmap(), (2 * 4096 + 2) * 8 + 2u);
}

// $DATA of record 0 claiming 2^32-1 clusters: positions stay computable, the count is bounded by
// what the image can hold.
TEST(volume_mft, hostile_run_counts_do_not_outgrow_the_source) {
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

TEST(volume_open, second_call_is_free_and_reports_the_mft_position) {
  opened v(make_volume({{6, 4}}).m_bytes);
  ASSERT_TRUE(v.m_vol);
  uint64_t pos = 0;
  EXPECT_TRUE(v->volume_open(&pos));
  EXPECT_EQ(pos, 6u * 4096);
  EXPECT_EQ(v->get_mft_inode_stats().m_name, "$MFT");
  EXPECT_EQ(v->get_mft_inode_stats().m_size, 4u * 4096);
}

TEST(volume_open_death, getters_refuse_an_unvalidated_volume) {
  image_file f(make_volume({{4, 4}}).m_bytes);
  auto v = f.raw(4096);
  EXPECT_FALSE(v->validated());
  EXPECT_EQ(v->get_file_pos_for_inode(1), 0u);
  EXPECT_DEATH(v->get_mft_inode_stats(), "m_Validated");
  EXPECT_DEATH(v->get_bitmap_inode_runlist(), "m_Validated");
  EXPECT_DEATH(v->get_mft_inode_bitmap_runlist(), "m_Validated");
}
