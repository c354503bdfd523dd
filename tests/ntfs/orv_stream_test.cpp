// Reading byte ranges through run lists, and copying whole attributes to a stream.
#include <algorithm>
#include <gtest/gtest.h>
#include <sstream>

#include "ntfs/ntfs.h"
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

using ReadStream = stream_fixture;
using CopyAttrib = stream_fixture;

TEST_F(ReadStream, FragmentedRunsWithHeadAndTail) {
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

TEST_F(ReadStream, HolesReadAsZerosOrAreSkipped) {
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

TEST_F(ReadStream, RefusalsAndFailedReads) {
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

TEST_F(CopyAttrib, SizesFollowRealValidAndRaw) {
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
