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

}  // namespace

TEST(RunDecoding, AttributeDecoder) {
  std::vector<uint8_t> wide(1, 0xFF);  // widths of 15 bytes: only the low 8 are used, nothing beyond
  for (int i = 0; i < 30; ++i) wide.push_back(uint8_t(i == 0 ? 7 : 0));
  wide.push_back(0);
  // An attribute length of 0 stands for the natural one.
  struct decode_case { const char* m_what; std::vector<uint8_t> m_runs; uint64_t m_first_vcn; uint32_t m_length;
                       std::string m_shape; } const cases[] = {
      {"relative, signed offsets", {0x11, 0x30, 0x60, 0x11, 0x10, 0xF0, 0x21, 0x08, 0x00, 0x01, 0x00}, 100, 0,
       "96@100+48 80@148+16 336@164+8 "},
      {"wide negative offsets masked to the width", {0x31, 0x01, 0x56, 0x34, 0x12, 0x31, 0x01, 0x00, 0x00, 0xF0, 0x00},
       0, 0, std::to_string(0x123456) + "@0+1 " + std::to_string(0x023456) + "@1+1 "},
      {"over-wide fields", wide, 0, 0, "0@0+7 "},
      {"holes: no offset first, stored zero later", {0x01, 0x05, 0x11, 0x03, 0x20, 0x01, 0x02, 0x11, 0x04, 0x00}, 0, 0,
       "~0@0+5 32@5+3 ~0@8+2 ~0@10+4 "},
      {"a first run with a stored zero offset is data at cluster 0", {0x11, 0x04, 0x00}, 0, 0, "0@0+4 "},
      {"no end byte: a run cut by the attribute's end", {0x11, 0x02, 0x10, 0x11, 0x03}, 0, 0, "16@0+2 "},
      {"an attribute length shorter than the buffer", {0x11, 0x02, 0x10, 0x11, 0x03, 0x10, 0x00}, 0, 67, "16@0+2 "},
  };
  for (const decode_case& c : cases) {
    std::vector<uint8_t> a = attribute(c.m_runs, c.m_first_vcn, c.m_length);
    data_run_list list;
    EXPECT_TRUE(attribute_run_list(a.data(), c.m_length ? c.m_length : uint32_t(a.size()), list)) << c.m_what;
    EXPECT_EQ(shape(list), c.m_shape) << c.m_what;
  }
  raw_run_list raw;
  std::vector<uint8_t> a = attribute({0x11, 0x30, 0x60, 0x11, 0x10, 0xF0, 0x21, 0x08, 0x00, 0x01, 0x00});
  ASSERT_TRUE(decode_runs(a.data(), uint32_t(a.size()), raw));
  EXPECT_TRUE(raw[1].m_negative && raw[1].m_offset_abs == 16u);
  EXPECT_EQ(raw[1].m_bytes, (std::vector<uint8_t>{0x11, 0x10, 0xF0}));
  EXPECT_EQ(raw[1].m_following, (std::vector<uint8_t>{0x21, 0x08, 0x00}));
  orv::put_le16(a.data() + 32, 0xFFF0);  // run list offset past the attribute: nothing, no failure
  raw.clear();
  EXPECT_TRUE(decode_runs(a.data(), uint32_t(a.size()), raw) && raw.empty());
  EXPECT_FALSE(decode_runs(nullptr, 64, raw));
  EXPECT_FALSE(decode_runs(a.data(), 0, raw));
}

TEST(RunDecoding, CountedDecoderHolesKeepTheRunningLcn) {
  std::vector<uint8_t> bytes = {0x11, 0x04, 0x40, 0x01, 0x02, 0x11, 0x03, 0xF8, 0x00};
  data_run_list l;
  ASSERT_TRUE(decode_run_bytes(bytes.data(), bytes.size(), 10, l, true));
  EXPECT_EQ(shape(l), "64@10+4 ~-1@14+2 56@16+3 ");  // 64 - 8: the hole did not move the running LCN
  std::vector<uint8_t> more = {0x11, 0x01, 0x05, 0x00};
  ASSERT_TRUE(decode_run_bytes(more.data(), more.size(), 19, l, false));  // appends
  EXPECT_EQ(l.size(), 4u);
  std::vector<uint8_t> cut = {0x31, 0x01, 0x05};
  EXPECT_FALSE(decode_run_bytes(cut.data(), cut.size(), 0, l, true));  // replaces, decodes nothing
  EXPECT_TRUE(l.empty());
}

TEST(RunLists, MergeSizesAndSparseRemoval) {
  // Equal VCN: the stored entry wins; VCNs are renumbered from 0 by the counts, in VCN order.
  data_run_list stored = {{100, 0, false, 4}, {200, 4, false, 4}};
  merge_run_lists(stored, {{300, 8, false, 2}, {999, 4, false, 9}, {0, 10, true, 6}});
  EXPECT_EQ(shape(stored), "100@0+4 200@4+4 300@8+2 ~0@10+6 ");
  data_run_list tail_first = {{50, 16, false, 4}};
  merge_run_lists(tail_first, {{60, 0, false, 16}});
  EXPECT_EQ(shape(tail_first), "60@0+16 50@16+4 ");

  data_run_list l = {{10, 0, false, 2}, {0, 2, true, 3}, {20, 5, false, 1}};
  EXPECT_EQ(list_bytes(l, 4096, false), 6u * 4096);
  EXPECT_EQ(list_bytes(l, 4096, true), 3u * 4096);
  EXPECT_EQ(list_bytes({{0, 0, false, 0xFFFFFFFFu}, {0, 0, false, 0xFFFFFFFFu}}, uint64_t(1) << 40, false), UINT64_MAX);
  EXPECT_EQ(shape(without_sparse(l)), "10@0+2 20@2+1 ");
}
