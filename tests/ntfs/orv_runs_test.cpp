// Run list decoding, the sparse rules, and list arithmetic.
#include <gtest/gtest.h>

#include "base/orv_le.h"
#include "ntfs/orv_runs.h"

namespace {

// A non-resident attribute header of 64 bytes followed by `runs`; `length` 0 means the natural one.
std::vector<uint8_t> attribute(const std::vector<uint8_t>& runs, uint64_t first_vcn = 0, uint32_t length = 0) {
  std::vector<uint8_t> a(64, 0);
  a.insert(a.end(), runs.begin(), runs.end());
  orv::put_le32(a.data(), 0x80);
  orv::put_le32(a.data() + 4, length ? length : uint32_t(a.size()));
  a[8] = 1;
  orv::put_le64(a.data() + 16, first_vcn);
  orv::put_le16(a.data() + 32, 64);
  return a;
}

// "lcn@vcn+count" per entry, a hole marked "~"; an LCN of all ones reads -1.
std::string shape(const data_run_list& list) {
  std::string out;
  for (const run_entry& r : list)
    out += (r.m_is_sparse ? "~" : "") + std::to_string(int64_t(r.m_lcn)) + "@" + std::to_string(r.m_vcn) + "+" +
           std::to_string(r.m_count) + " ";
  return out;
}

std::string decoded(const std::vector<uint8_t>& runs, uint64_t first_vcn = 0) {
  std::vector<uint8_t> a = attribute(runs, first_vcn);
  data_run_list out;
  EXPECT_TRUE(attribute_run_list(a.data(), uint32_t(a.size()), out));
  return shape(out);
}

}  // namespace

TEST(RunDecoding, OffsetsAreRelativeAndSigned) {
  std::vector<uint8_t> a = attribute({0x11, 0x30, 0x60, 0x11, 0x10, 0xF0, 0x21, 0x08, 0x00, 0x01, 0x00}, 100);
  raw_run_list raw;
  ASSERT_TRUE(decode_runs(a.data(), uint32_t(a.size()), raw));
  ASSERT_EQ(raw.size(), 3u);
  EXPECT_FALSE(raw[0].m_negative);
  EXPECT_EQ(raw[1].m_offset_abs, 16u);
  EXPECT_TRUE(raw[1].m_negative);
  EXPECT_EQ(raw[1].m_bytes, (std::vector<uint8_t>{0x11, 0x10, 0xF0}));
  EXPECT_EQ(raw[1].m_following, (std::vector<uint8_t>{0x21, 0x08, 0x00}));
  data_run_list list;
  runs_to_list(raw, list);
  EXPECT_EQ(shape(list), "96@100+48 80@148+16 336@164+8 ");  // 96 - 16, then + 256

  // Wide negative offsets are masked to their width: +0x123456, then -0x100000 in three bytes.
  EXPECT_EQ(decoded({0x31, 0x01, 0x56, 0x34, 0x12, 0x31, 0x01, 0x00, 0x00, 0xF0, 0x00}),
            std::to_string(0x123456) + "@0+1 " + std::to_string(0x023456) + "@1+1 ");
  // Count width 15 and offset width 15: only the low 8 bytes are used, nothing read beyond.
  std::vector<uint8_t> wide(1, 0xFF);
  for (int i = 0; i < 30; ++i) wide.push_back(uint8_t(i == 0 ? 7 : 0));
  wide.push_back(0);
  EXPECT_EQ(decoded(wide), "0@0+7 ");
}

TEST(RunDecoding, HolesFollowTheSparseRules) {
  // A first run without offset is a hole, as is a later one whose stored offset is 0.
  EXPECT_EQ(decoded({0x01, 0x05, 0x11, 0x03, 0x20, 0x01, 0x02, 0x11, 0x04, 0x00}), "~0@0+5 32@5+3 ~0@8+2 ~0@10+4 ");
  // A first run with a stored offset of 0 is data at cluster 0 (the boot area).
  EXPECT_EQ(decoded({0x11, 0x04, 0x00}), "0@0+4 ");
}

TEST(RunDecoding, ListEndsWithTheAttribute) {
  // No end byte: the second run would need 3 bytes but only 2 remain.
  EXPECT_EQ(decoded({0x11, 0x02, 0x10, 0x11, 0x03}), "16@0+2 ");

  // Attribute length smaller than the buffer: runs beyond it are not read.
  std::vector<uint8_t> b = attribute({0x11, 0x02, 0x10, 0x11, 0x03, 0x10, 0x00}, 0, 67);
  raw_run_list raw;
  ASSERT_TRUE(decode_runs(b.data(), 67, raw));
  EXPECT_EQ(raw.size(), 1u);

  // Run list offset past the attribute: nothing decoded, not a failure.
  std::vector<uint8_t> c = attribute({0x11, 0x02, 0x10, 0x00});
  orv::put_le16(c.data() + 32, 0xFFF0);
  raw.clear();
  EXPECT_TRUE(decode_runs(c.data(), uint32_t(c.size()), raw));
  EXPECT_TRUE(raw.empty());

  EXPECT_FALSE(decode_runs(nullptr, 64, raw));
  EXPECT_FALSE(decode_runs(c.data(), 0, raw));
}

TEST(RunDecoding, CountedDecoderHolesKeepTheRunningLcn) {
  std::vector<uint8_t> bytes = {0x11, 0x04, 0x40, 0x01, 0x02, 0x11, 0x03, 0xF8, 0x00};
  data_run_list l;
  ASSERT_TRUE(decode_run_bytes(bytes.data(), bytes.size(), 10, l, true));
  EXPECT_EQ(shape(l), "64@10+4 ~-1@14+2 56@16+3 ");  // 64 - 8: the hole did not move the running LCN

  // Appending keeps what is there; replacing clears it; nothing decoded reports false.
  std::vector<uint8_t> more = {0x11, 0x01, 0x05, 0x00};
  ASSERT_TRUE(decode_run_bytes(more.data(), more.size(), 19, l, false));
  EXPECT_EQ(l.size(), 4u);
  ASSERT_TRUE(decode_run_bytes(more.data(), more.size(), 0, l, true));
  EXPECT_EQ(l.size(), 1u);
  std::vector<uint8_t> none = {0x00, 0x11, 0x01, 0x05};
  EXPECT_FALSE(decode_run_bytes(none.data(), none.size(), 0, l, false));
  std::vector<uint8_t> cut = {0x31, 0x01, 0x05};
  EXPECT_FALSE(decode_run_bytes(cut.data(), cut.size(), 0, l, true));
  EXPECT_TRUE(l.empty());
}

TEST(RunLists, MergeSizesAndSparseRemoval) {
  // Equal VCN: the stored entry wins; VCNs are renumbered from 0 by the counts.
  data_run_list stored = {{100, 0, false, 4}, {200, 4, false, 4}};
  merge_run_lists(stored, {{300, 8, false, 2}, {999, 4, false, 9}, {0, 10, true, 6}});
  EXPECT_EQ(shape(stored), "100@0+4 200@4+4 300@8+2 ~0@10+6 ");
  // An extent added out of order lands in VCN order.
  data_run_list tail_first = {{50, 16, false, 4}};
  merge_run_lists(tail_first, {{60, 0, false, 16}});
  EXPECT_EQ(shape(tail_first), "60@0+16 50@16+4 ");

  data_run_list l = {{10, 0, false, 2}, {0, 2, true, 3}, {20, 5, false, 1}};
  EXPECT_EQ(list_bytes(l, 4096, false), 6u * 4096);
  EXPECT_EQ(list_bytes(l, 4096, true), 3u * 4096);
  EXPECT_EQ(list_bytes({{0, 0, false, 0xFFFFFFFFu}, {0, 0, false, 0xFFFFFFFFu}}, uint64_t(1) << 40, false), UINT64_MAX);
  EXPECT_EQ(shape(without_sparse(l)), "10@0+2 20@2+1 ");
}
