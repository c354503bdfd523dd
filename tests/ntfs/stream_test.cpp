// Reading byte ranges through run lists, and copying whole attributes to a stream.
#include <gtest/gtest.h>

#include <sstream>

#include "ntfs/ntfs.h"
#include "ntfs/orv_attrib_rows.h"
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

struct stream_fixture : ::testing::Test {
  bytes m_img = patterned_image();
  testvol::image_file m_file{m_img};
  std::unique_ptr<CNtfs> m_vol = m_file.raw(C);
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

std::string copy(CNtfs* vol, const attrib_row& row, const copy_options& options, bool& ok, uint64_t& total) {
  std::ostringstream out;
  ok = copy_attrib_data(vol, row, out, options, total);
  return out.str();
}

bytes as_bytes(const std::string& s) { return bytes(s.begin(), s.end()); }

}  // namespace

using read_stream_test = stream_fixture;
using copy_attrib_test = stream_fixture;

TEST_F(read_stream_test, fragmented_runs_with_head_and_tail) {
  data_run_list runs = {run(10, 0, 2), run(3, 2, 3), run(4, 5, 1)};  // clusters 3,4 and 4 again: not adjacent in order
  bytes buf(5 * C, 0xCC);
  uint64_t length = 3 * C + 500;
  uint32_t flags = 0;
  ASSERT_TRUE(read_stream(*m_vol, runs, 1000, buf.data(), length, flags));
  EXPECT_EQ(length, 3 * C + 500);
  EXPECT_TRUE(std::equal(buf.begin(), buf.begin() + int64_t(length), expected(m_img, runs, 1000, length).begin()));
  EXPECT_EQ(buf[length], 0xCC);  // nothing written past the range
  EXPECT_EQ(flags, 0x18u);       // starts in cluster 0: a 65536-cluster boundary

  length = 2 * C;
  flags = 0;
  ASSERT_TRUE(read_stream(*m_vol, runs, 4 * C + 7, buf.data(), length, flags));
  EXPECT_EQ(length, 2 * C - 7);  // the runs end first
  EXPECT_EQ(flags, 0x8u);
  EXPECT_TRUE(std::equal(buf.begin(), buf.begin() + int64_t(length), expected(m_img, runs, 4 * C + 7, length).begin()));
}

TEST_F(read_stream_test, holes_read_as_zeros_or_are_skipped) {
  data_run_list runs = {run(10, 0, 2), run(0, 2, 2, true), run(20, 4, 2)};
  bytes buf(6 * C, 0xCC);
  uint64_t length = 6 * C;
  uint32_t flags = 0;
  ASSERT_TRUE(read_stream(*m_vol, runs, 0, buf.data(), length, flags));
  EXPECT_EQ(length, 6 * C);
  EXPECT_EQ(flags, 0x1Au);
  EXPECT_TRUE(std::equal(buf.begin(), buf.end(), expected(m_img, runs, 0, 6 * C).begin()));
  EXPECT_EQ(buf[2 * C], 0);
  EXPECT_EQ(buf[4 * C - 1], 0);

  std::fill(buf.begin(), buf.end(), 0xCC);
  length = 6 * C;
  flags = 0x1;
  ASSERT_TRUE(read_stream(*m_vol, runs, 0, buf.data(), length, flags));
  EXPECT_EQ(length, 4 * C);  // only the real clusters
  EXPECT_EQ(flags & 0x2, 0u);
  bytes real = expected(m_img, runs, 0, 2 * C), tail = expected(m_img, runs, 4 * C, 2 * C);
  real.insert(real.end(), tail.begin(), tail.end());
  EXPECT_TRUE(std::equal(real.begin(), real.end(), buf.begin()));

  // Starting inside a skipped hole: the head offset goes, and the range's last cluster gives its
  // tail from its start.
  length = C;
  flags = 0x1;
  ASSERT_TRUE(read_stream(*m_vol, runs, 3 * C + 100, buf.data(), length, flags));
  EXPECT_EQ(length, 100u);
  EXPECT_EQ(buf[0], m_img[20 * C]);
  // A range that lies in a hole alone delivers nothing.
  length = C;
  flags = 0x1;
  EXPECT_FALSE(read_stream(*m_vol, runs, 2 * C + 100, buf.data(), length, flags));
}

TEST_F(read_stream_test, unit_flags_mark_65536_cluster_boundaries) {
  data_run_list runs = {run(10, 0, 16), run(30, 65536, 16)};
  bytes buf(16 * C);
  uint64_t length = 16 * C;
  uint32_t flags = 0;
  ASSERT_TRUE(read_stream(*m_vol, runs, 0, buf.data(), length, flags));
  EXPECT_EQ(flags, 0x38u);
  length = 4 * C;
  ASSERT_TRUE(read_stream(*m_vol, runs, 65536 * C, buf.data(), length, flags));
  EXPECT_EQ(flags, 0x18u);
  EXPECT_EQ(buf[0], m_img[30 * C]);
  length = 4 * C;
  ASSERT_TRUE(read_stream(*m_vol, runs, C, buf.data(), length, flags));
  EXPECT_EQ(flags, 0x8u);
}

TEST_F(read_stream_test, refusals_and_failed_reads) {
  data_run_list runs = {run(10, 0, 2), run(5000, 2, 2), run(12, 4, 1)};  // clusters 5000+ are off the image
  bytes buf(5 * C);
  uint64_t length = 5 * C;
  uint32_t flags = 0;
  ASSERT_TRUE(read_stream(*m_vol, runs, 0, buf.data(), length, flags));
  EXPECT_EQ(length, 2 * C);  // the first bad cluster ends the read

  // A run that leaves the source part-way: the clusters before its end still come.
  length = 4 * C;
  ASSERT_TRUE(read_stream(*m_vol, {run(126, 0, 4)}, 100, buf.data(), length, flags));
  EXPECT_EQ(length, 2 * C - 100);
  EXPECT_EQ(buf[C - 100], m_img[127 * C]);

  length = C;
  EXPECT_FALSE(read_stream(*m_vol, runs, 2 * C, buf.data(), length, flags));
  EXPECT_EQ(length, 0u);
  length = C;
  EXPECT_FALSE(read_stream(*m_vol, runs, 9 * C, buf.data(), length, flags));  // past every run
  length = 0;
  EXPECT_FALSE(read_stream(*m_vol, runs, 0, buf.data(), length, flags));
  length = C;
  EXPECT_FALSE(read_stream(*m_vol, runs, 0, nullptr, length, flags));
  EXPECT_FALSE(read_stream(*m_vol, data_run_list(), 0, buf.data(), length, flags));
  // A run whose clusters cannot exist on any volume.
  length = C;
  EXPECT_FALSE(read_stream(*m_vol, {run(UINT64_MAX - 1, 0, 4)}, C * 3, buf.data(), length, flags));
}

TEST_F(copy_attrib_test, resident_value_is_written_whole) {
  attrib_row row;
  row.m_type = 0x80;
  row.m_value = {1, 2, 3, 4, 5};
  row.m_value_length = 5;
  bool ok = false;
  uint64_t total = 0;
  EXPECT_EQ(as_bytes(copy(m_vol.get(), row, copy_options(), ok, total)), row.m_value);
  EXPECT_TRUE(ok);
  EXPECT_EQ(total, 5u);

  row.m_value.clear();
  EXPECT_EQ(copy(m_vol.get(), row, copy_options(), ok, total), "");
  EXPECT_FALSE(ok);
}

TEST_F(copy_attrib_test, sizes_follow_real_valid_and_raw) {
  data_run_list runs = {run(40, 0, 1), run(7, 1, 2)};
  bool ok = false;
  uint64_t total = 0;
  std::string s = copy(m_vol.get(), data_row(runs, 10000, 10000, 3 * C), copy_options(), ok, total);
  EXPECT_TRUE(ok);
  EXPECT_EQ(as_bytes(s), expected(m_img, runs, 0, 10000));
  EXPECT_EQ(total, 10000u);

  // Valid size above the real size: the copy goes to the valid size.
  s = copy(m_vol.get(), data_row(runs, 5000, 9000, 3 * C), copy_options(), ok, total);
  EXPECT_EQ(s.size(), 9000u);

  copy_options raw;
  raw.m_raw = true;
  s = copy(m_vol.get(), data_row(runs, 10000, 10000, 3 * C), raw, ok, total);
  EXPECT_EQ(as_bytes(s), expected(m_img, runs, 0, 3 * C));

  // Sizes beyond what the runs hold are cut to the runs.
  s = copy(m_vol.get(), data_row(runs, 50 * C, 50 * C, 50 * C), copy_options(), ok, total);
  EXPECT_EQ(s.size(), 3 * C);

  copy_options slack;
  slack.m_append_slack = true;
  s = copy(m_vol.get(), data_row(runs, 5000, 5000, 3 * C), slack, ok, total);
  EXPECT_EQ(as_bytes(s), expected(m_img, runs, 0, 3 * C));

  s = copy(m_vol.get(), data_row(runs, 0, 0, 3 * C), copy_options(), ok, total);
  EXPECT_FALSE(ok);
  EXPECT_EQ(s, "");
  std::ostringstream out;
  EXPECT_FALSE(copy_attrib_data(m_vol.get(), data_row({}, 10, 10, C), out, copy_options(), total));
  EXPECT_FALSE(copy_attrib_data(nullptr, data_row(runs, 10, 10, C), out, copy_options(), total));
  out.setstate(std::ios::badbit);
  EXPECT_FALSE(copy_attrib_data(m_vol.get(), data_row(runs, 10, 10, C), out, copy_options(), total));
  EXPECT_EQ(out.str(), "");
}

TEST_F(copy_attrib_test, holes_as_zeros_or_left_out) {
  data_run_list runs = {run(10, 0, 2), run(0, 2, 2, true), run(20, 4, 1)};
  bool ok = false;
  uint64_t total = 0;
  std::string s = copy(m_vol.get(), data_row(runs, 5 * C - 10, 5 * C - 10, 5 * C), copy_options(), ok, total);
  EXPECT_EQ(as_bytes(s), expected(m_img, runs, 0, 5 * C - 10));

  copy_options skip;
  skip.m_skip_sparse = true;
  s = copy(m_vol.get(), data_row(runs, 5 * C - 10, 5 * C - 10, 5 * C), skip, ok, total);
  bytes want = expected(m_img, runs, 0, 2 * C), last = expected(m_img, runs, 4 * C, C);
  want.insert(want.end(), last.begin(), last.end());
  EXPECT_EQ(as_bytes(s), want);
  EXPECT_EQ(total, 3 * C);
}

TEST_F(copy_attrib_test, long_fragmented_stream_and_its_observer) {
  // 40 clusters in five scattered runs, copied through several 16-cluster buffers.
  data_run_list runs = {run(90, 0, 8), run(2, 8, 8), run(60, 16, 8), run(30, 24, 8), run(110, 32, 8)};
  uint64_t size = 40 * C - 123;
  struct seen_bytes {
    bytes m_all;
  } seen;
  copy_options options;
  options.m_feed = [](void* user, const uint8_t* b, size_t n) {
    static_cast<seen_bytes*>(user)->m_all.insert(static_cast<seen_bytes*>(user)->m_all.end(), b, b + n);
  };
  options.m_feed_user = &seen;
  bool ok = false;
  uint64_t total = 0;
  std::string s = copy(m_vol.get(), data_row(runs, size, size, 40 * C), options, ok, total);
  EXPECT_TRUE(ok);
  EXPECT_EQ(as_bytes(s), expected(m_img, runs, 0, size));
  EXPECT_EQ(seen.m_all, as_bytes(s));
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
      uint8_t* tail = b + i * 512 - 2;
      b[0x28 + 2 * i] = uint8_t(lcn + i);
      b[0x28 + 2 * i + 1] = 0x11;
      orv::put_le16(tail, 0x4242);
    }
  }
  testvol::image_file f(img);
  auto vol = f.raw(C);
  data_run_list runs = {run(70, 0, 2)};
  bool ok = false;
  uint64_t total = 0;
  bytes fixed = as_bytes(copy(vol.get(), data_row(runs, 2 * C, 2 * C, 2 * C, 0xA0), copy_options(), ok, total));
  ASSERT_EQ(fixed.size(), 2 * C);
  EXPECT_EQ(fixed[510], 71);
  EXPECT_EQ(fixed[511], 0x11);
  EXPECT_EQ(fixed[C + 8 * 512 - 2], 72 + 7);

  copy_options raw;
  raw.m_raw = true;
  bytes stored = as_bytes(copy(vol.get(), data_row(runs, 2 * C, 2 * C, 2 * C, 0xA0), raw, ok, total));
  EXPECT_EQ(orv::le16(stored.data() + 510), 0x4242);

  // The same bytes as a data stream are not touched.
  bytes data = as_bytes(copy(vol.get(), data_row(runs, 2 * C, 2 * C, 2 * C, 0x80), copy_options(), ok, total));
  EXPECT_EQ(data, stored);
}
