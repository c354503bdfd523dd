// Reading byte ranges through run lists, and copying whole attributes to a stream.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "ntfs/ntfs.h"
#include "analysis/orv_attrib_rows.h"
#include "ntfs/orv_stream.h"
#include "tests/ntfs/orv_test_volume.h"

using testvol::bytes;

namespace {

constexpr uint64_t C = 4096;

// 128 clusters, each byte telling its cluster and place, so a misplaced read shows.
bytes patterned_image() {
  bytes img(128 * C);
  for (size_t i = 0; i < img.size(); ++i) img[i] = uint8_t((i / C) * 37 + (i % C) * 3 + 1);
  return img;
}

run_entry run(uint64_t lcn, uint64_t vcn, uint32_t count, bool sparse = false) {
  run_entry r;
  r.m_lcn = lcn;
  r.m_vcn = vcn;
  r.m_count = count;
  r.m_is_sparse = sparse;
  return r;
}

// What the stream holds from `pos` on, byte by byte through the list (holes as zeros).
bytes expected(const bytes& img, const data_run_list& runs, uint64_t pos, uint64_t length) {
  bytes out;
  for (uint64_t p = pos; p < pos + length; ++p) {
    uint64_t v = p / C;
    for (const run_entry& r : runs)
      if (v >= r.m_vcn && v < r.m_vcn + r.m_count) {
        out.push_back(r.m_is_sparse ? 0 : img[(r.m_lcn + v - r.m_vcn) * C + p % C]);
        break;
      }
  }
  return out;
}

struct read_result {
  bool m_ok = false;
  uint64_t m_length = 0;
  uint32_t m_flags = 0;
  bytes m_data;         // the bytes delivered
  uint8_t m_past = 0;  // the buffer byte right after them: 0xCC unless written
};

struct stream_fixture : ::testing::Test {
  bytes m_img = patterned_image();
  testvol::image_file m_file{m_img};
  std::unique_ptr<CNtfs> m_vol = m_file.raw(C);

  read_result read(const data_run_list& runs, uint64_t pos, uint64_t length, uint32_t flags = 0) {
    bytes buf(length + 1, 0xCC);
    read_result r;
    r.m_length = length;
    r.m_flags = flags;
    r.m_ok = read_stream(*m_vol, runs, pos, buf.data(), r.m_length, r.m_flags);
    r.m_data.assign(buf.begin(), buf.begin() + int64_t(std::min(r.m_length, length)));
    r.m_past = buf[std::min(r.m_length, length)];
    return r;
  }
};

attrib_row data_row(const data_run_list& runs, uint64_t real, uint64_t valid, uint64_t allocated, uint32_t type = 0x80) {
  attrib_row row;
  row.m_type = type;
  row.m_non_resident = true;
  row.m_runs = runs;
  row.m_real_size = real;
  row.m_valid_size = valid;
  row.m_allocated_size = allocated;
  return row;
}

struct copied {
  bool m_ok = false;
  uint64_t m_total = 0;
  bytes m_data;
};

copy_options with(bool copy_options::*flag) {
  copy_options options;
  options.*flag = true;
  return options;
}

copied copy(CNtfs* vol, const attrib_row& row, const copy_options& options = copy_options()) {
  std::ostringstream out;
  copied c;
  c.m_ok = copy_attrib_data(vol, row, out, options, c.m_total);
  std::string s = out.str();
  c.m_data.assign(s.begin(), s.end());
  return c;
}

bytes joined(bytes a, const bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

}  // namespace

using read_stream_test = stream_fixture;
using copy_attrib_test = stream_fixture;

TEST_F(read_stream_test, fragmented_runs_with_head_and_tail) {
  data_run_list runs = {run(10, 0, 2), run(3, 2, 3), run(4, 5, 1)};  // clusters 3,4 and 4 again: not adjacent in order
  read_result r = read(runs, 1000, 3 * C + 500);
  ASSERT_TRUE(r.m_ok);
  EXPECT_EQ(r.m_length, 3 * C + 500);
  EXPECT_EQ(r.m_data, expected(m_img, runs, 1000, 3 * C + 500));
  EXPECT_EQ(r.m_past, 0xCC);     // nothing written past the range
  EXPECT_EQ(r.m_flags, 0x18u);  // starts in cluster 0: a 65536-cluster boundary

  r = read(runs, 4 * C + 7, 2 * C);
  ASSERT_TRUE(r.m_ok);
  EXPECT_EQ(r.m_length, 2 * C - 7);  // the runs end first
  EXPECT_EQ(r.m_flags, 0x8u);
  EXPECT_EQ(r.m_data, expected(m_img, runs, 4 * C + 7, 2 * C - 7));
}

TEST_F(read_stream_test, holes_read_as_zeros_or_are_skipped) {
  data_run_list runs = {run(10, 0, 2), run(0, 2, 2, true), run(20, 4, 2)};
  read_result r = read(runs, 0, 6 * C);
  ASSERT_TRUE(r.m_ok);
  EXPECT_EQ(r.m_flags, 0x1Au);
  EXPECT_EQ(r.m_data, expected(m_img, runs, 0, 6 * C));
  EXPECT_EQ(r.m_data[2 * C], 0);
  EXPECT_EQ(r.m_data[4 * C - 1], 0);

  r = read(runs, 0, 6 * C, 0x1);
  ASSERT_TRUE(r.m_ok);
  EXPECT_EQ(r.m_flags & 0x2, 0u);
  EXPECT_EQ(r.m_data, joined(expected(m_img, runs, 0, 2 * C), expected(m_img, runs, 4 * C, 2 * C)));  // only real clusters

  // Starting inside a skipped hole: the head offset goes, and the range's last cluster gives its
  // tail from its start.
  r = read(runs, 3 * C + 100, C, 0x1);
  ASSERT_TRUE(r.m_ok);
  EXPECT_EQ(r.m_length, 100u);
  EXPECT_EQ(r.m_data[0], m_img[20 * C]);
  // A range that lies in a hole alone delivers nothing.
  EXPECT_FALSE(read(runs, 2 * C + 100, C, 0x1).m_ok);
}

TEST_F(read_stream_test, unit_flags_mark_65536_cluster_boundaries) {
  data_run_list runs = {run(10, 0, 16), run(30, 65536, 16)};
  EXPECT_EQ(read(runs, 0, 16 * C).m_flags, 0x38u);
  read_result r = read(runs, 65536 * C, 4 * C);
  EXPECT_EQ(r.m_flags, 0x18u);
  EXPECT_EQ(r.m_data[0], m_img[30 * C]);
  EXPECT_EQ(read(runs, C, 4 * C).m_flags, 0x8u);
}

TEST_F(read_stream_test, refusals_and_failed_reads) {
  data_run_list runs = {run(10, 0, 2), run(5000, 2, 2), run(12, 4, 1)};  // clusters 5000+ are off the image
  read_result r = read(runs, 0, 5 * C);
  ASSERT_TRUE(r.m_ok);
  EXPECT_EQ(r.m_length, 2 * C);  // the first bad cluster ends the read

  // A run that leaves the source part-way: the clusters before its end still come.
  r = read({run(126, 0, 4)}, 100, 4 * C);
  ASSERT_TRUE(r.m_ok);
  EXPECT_EQ(r.m_length, 2 * C - 100);
  EXPECT_EQ(r.m_data[C - 100], m_img[127 * C]);

  r = read(runs, 2 * C, C);
  EXPECT_FALSE(r.m_ok);
  EXPECT_EQ(r.m_length, 0u);
  EXPECT_FALSE(read(runs, 9 * C, C).m_ok);  // past every run
  EXPECT_FALSE(read(runs, 0, 0).m_ok);
  EXPECT_FALSE(read(data_run_list(), 0, C).m_ok);
  EXPECT_FALSE(read({run(UINT64_MAX - 1, 0, 4)}, 3 * C, C).m_ok);  // clusters no volume can have
  uint64_t length = C;
  uint32_t flags = 0;
  EXPECT_FALSE(read_stream(*m_vol, runs, 0, nullptr, length, flags));
}

TEST_F(copy_attrib_test, resident_value_is_written_whole) {
  attrib_row row;
  row.m_type = 0x80;
  row.m_value = {1, 2, 3, 4, 5};
  row.m_value_length = 5;
  copied c = copy(m_vol.get(), row);
  EXPECT_TRUE(c.m_ok);
  EXPECT_EQ(c.m_data, row.m_value);
  EXPECT_EQ(c.m_total, 5u);
  row.m_value.clear();
  c = copy(m_vol.get(), row);
  EXPECT_FALSE(c.m_ok);
  EXPECT_TRUE(c.m_data.empty());
}

TEST_F(copy_attrib_test, sizes_follow_real_valid_and_raw) {
  data_run_list runs = {run(40, 0, 1), run(7, 1, 2)};
  copied c = copy(m_vol.get(), data_row(runs, 10000, 10000, 3 * C));
  EXPECT_TRUE(c.m_ok);
  EXPECT_EQ(c.m_data, expected(m_img, runs, 0, 10000));
  EXPECT_EQ(c.m_total, 10000u);
  // Valid size above the real size: the copy goes to the valid size.
  EXPECT_EQ(copy(m_vol.get(), data_row(runs, 5000, 9000, 3 * C)).m_data.size(), 9000u);
  EXPECT_EQ(copy(m_vol.get(), data_row(runs, 10000, 10000, 3 * C), with(&copy_options::m_raw)).m_data,
            expected(m_img, runs, 0, 3 * C));
  // Sizes beyond what the runs hold are cut to the runs.
  EXPECT_EQ(copy(m_vol.get(), data_row(runs, 50 * C, 50 * C, 50 * C)).m_data.size(), 3 * C);
  EXPECT_EQ(copy(m_vol.get(), data_row(runs, 5000, 5000, 3 * C), with(&copy_options::m_append_slack)).m_data,
            expected(m_img, runs, 0, 3 * C));

  c = copy(m_vol.get(), data_row(runs, 0, 0, 3 * C));
  EXPECT_FALSE(c.m_ok);
  EXPECT_TRUE(c.m_data.empty());
  EXPECT_FALSE(copy(m_vol.get(), data_row({}, 10, 10, C)).m_ok);
  EXPECT_FALSE(copy(nullptr, data_row(runs, 10, 10, C)).m_ok);
  std::ostringstream out;
  uint64_t total = 0;
  out.setstate(std::ios::badbit);
  EXPECT_FALSE(copy_attrib_data(m_vol.get(), data_row(runs, 10, 10, C), out, copy_options(), total));
  EXPECT_EQ(out.str(), "");
}

TEST_F(copy_attrib_test, holes_as_zeros_or_left_out) {
  data_run_list runs = {run(10, 0, 2), run(0, 2, 2, true), run(20, 4, 1)};
  attrib_row row = data_row(runs, 5 * C - 10, 5 * C - 10, 5 * C);
  EXPECT_EQ(copy(m_vol.get(), row).m_data, expected(m_img, runs, 0, 5 * C - 10));
  copied c = copy(m_vol.get(), row, with(&copy_options::m_skip_sparse));
  EXPECT_EQ(c.m_data, joined(expected(m_img, runs, 0, 2 * C), expected(m_img, runs, 4 * C, C)));
  EXPECT_EQ(c.m_total, 3 * C);
}

TEST_F(copy_attrib_test, long_fragmented_stream_and_its_observer) {
  // 40 clusters in five scattered runs, copied through several 16-cluster buffers.
  data_run_list runs = {run(90, 0, 8), run(2, 8, 8), run(60, 16, 8), run(30, 24, 8), run(110, 32, 8)};
  uint64_t size = 40 * C - 123;
  bytes seen;
  copy_options options;
  options.m_feed = [](void* user, const uint8_t* b, size_t n) {
    static_cast<bytes*>(user)->insert(static_cast<bytes*>(user)->end(), b, b + n);
  };
  options.m_feed_user = &seen;
  copied c = copy(m_vol.get(), data_row(runs, size, size, 40 * C), options);
  EXPECT_TRUE(c.m_ok);
  EXPECT_EQ(c.m_data, expected(m_img, runs, 0, size));
  EXPECT_EQ(seen, c.m_data);
}

TEST_F(copy_attrib_test, index_blocks_are_fixed_up_unless_raw) {
  // Two INDX blocks at clusters 70 and 71, update sequence array at 0x28 with 9 words.
  bytes img = m_img;
  for (uint64_t lcn : {70u, 71u}) {
    uint8_t* b = img.data() + lcn * C;
    std::memcpy(b, "INDX", 4);
    orv::put_le16(b + 4, 0x28);
    orv::put_le16(b + 6, 9);
    orv::put_le16(b + 0x28, 0x4242);
    for (int i = 1; i <= 8; ++i) {
      b[0x28 + 2 * i] = uint8_t(lcn + i);
      b[0x28 + 2 * i + 1] = 0x11;
      orv::put_le16(b + i * 512 - 2, 0x4242);
    }
  }
  testvol::image_file f(img);
  auto vol = f.raw(C);
  data_run_list runs = {run(70, 0, 2)};
  bytes fixed = copy(vol.get(), data_row(runs, 2 * C, 2 * C, 2 * C, 0xA0)).m_data;
  ASSERT_EQ(fixed.size(), 2 * C);
  EXPECT_EQ(fixed[510], 71);
  EXPECT_EQ(fixed[511], 0x11);
  EXPECT_EQ(fixed[C + 8 * 512 - 2], 72 + 7);

  bytes stored = copy(vol.get(), data_row(runs, 2 * C, 2 * C, 2 * C, 0xA0), with(&copy_options::m_raw)).m_data;
  EXPECT_EQ(orv::le16(stored.data() + 510), 0x4242);
  // The same bytes as a data stream are not touched.
  EXPECT_EQ(copy(vol.get(), data_row(runs, 2 * C, 2 * C, 2 * C, 0x80)).m_data, stored);
}
