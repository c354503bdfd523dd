// The edges of a read through a run list, and the limits a copy of a whole attribute meets. (Whole
// copies: through the binary against icat.)
#include <gtest/gtest.h>
#include <sstream>

#include "ntfs/orv_stream.h"
#include "tests/ntfs/orv_test_volume.h"

using testvol::bytes;

namespace {

constexpr uint64_t C = 4096;

run_entry run(uint64_t lcn, uint64_t vcn, uint32_t count, bool sparse = false) { return {lcn, vcn, sparse, count}; }

struct stream_fixture : ::testing::Test {
  // 128 clusters, each byte telling its cluster and place, so a misplaced read shows.
  bytes m_img = [] {
    bytes img(128 * C);
    for (size_t i = 0; i < img.size(); ++i) img[i] = uint8_t((i / C) * 37 + (i % C) * 3 + 1);
    return img;
  }();
  testvol::image_file m_file{m_img};
  std::unique_ptr<CNtfs> m_vol = m_file.raw(C);

  // The first `length` bytes the stream holds from `pos` on, walked byte by byte through the list
  // (holes as zeros, or left out with `skip`).
  bytes expected(const data_run_list& runs, uint64_t pos, uint64_t length, bool skip = false) const {
    bytes out;
    for (uint64_t p = pos; out.size() < length && p < pos + 64 * C; ++p)
      for (const run_entry& r : runs)
        if (p / C >= r.m_vcn && p / C < r.m_vcn + r.m_count) {
          const uint64_t at = (r.m_lcn + p / C - r.m_vcn) * C + p % C;
          if (!r.m_is_sparse && at >= m_img.size()) return out;
          if (!(r.m_is_sparse && skip)) out.push_back(r.m_is_sparse ? 0 : m_img[at]);
          break;
        }
    return out;
  }
};

}  // namespace

using ReadStream = stream_fixture;
using CopyAttrib = stream_fixture;

TEST_F(ReadStream, RangesHolesAndFailures) {
  const data_run_list scattered = {run(10, 0, 2), run(3, 2, 3), run(4, 5, 1)};  // cluster 4 twice, out of order
  const data_run_list holed = {run(10, 0, 2), run(0, 2, 2, true), run(20, 4, 2)};
  const data_run_list off_image = {run(10, 0, 2), run(5000, 2, 2), run(12, 4, 1)};
  // Bytes delivered (their content is what `expected` gives) and the flags that come back.
  struct read_case { const char* m_what; data_run_list m_runs; uint64_t m_pos, m_length; uint32_t m_flags_in;
                     bool m_ok; uint64_t m_delivered; uint32_t m_flags_out; } const cases[] = {
      {"the runs end first", scattered, 4 * C + 7, 2 * C, 0, true, 2 * C - 7, 0x8},
      {"holes left out", holed, 0, 6 * C, 0x1, true, 4 * C, 0x18},
      {"starting inside a skipped hole", holed, 3 * C + 100, C, 0x1, true, 100, 0x8},
      {"a range inside a skipped hole alone", holed, 2 * C + 100, C, 0x1, false, 0, 0x8},
      {"a whole unit at a 65536-cluster boundary", {run(10, 0, 16)}, 0, 16 * C, 0, true, 16 * C, 0x38},
      {"the first unreadable cluster ends the read", off_image, 0, 5 * C, 0, true, 2 * C, 0x18},
      {"nothing readable at all", off_image, 2 * C, C, 0, false, 0, 0x8},
      {"a run leaving the source part-way", {run(126, 0, 4)}, 100, 4 * C, 0, true, 2 * C - 100, 0x18},
      {"past every run", scattered, 9 * C, C, 0, false, 0, 0x8},
      {"clusters no volume can have", {run(UINT64_MAX - 1, 0, 4)}, 3 * C, C, 0, false, 0, 0x8},
  };
  for (const read_case& c : cases) {
    SCOPED_TRACE(c.m_what);
    bytes buffer(c.m_length + 1, 0xCC);
    uint64_t length = c.m_length;
    uint32_t flags = c.m_flags_in;
    EXPECT_EQ(read_stream(*m_vol, c.m_runs, c.m_pos, buffer.data(), length, flags), c.m_ok);
    EXPECT_EQ(length, c.m_delivered);
    EXPECT_EQ(flags, c.m_flags_out);
    if (!c.m_ok) continue;
    EXPECT_EQ(bytes(buffer.begin(), buffer.begin() + int64_t(length)),
              expected(c.m_runs, c.m_pos, length, c.m_flags_in));
    EXPECT_EQ(buffer[length], 0xCC);  // nothing written past what was delivered
  }
  uint64_t length = C;
  uint32_t flags = 0;
  EXPECT_FALSE(read_stream(*m_vol, scattered, 0, nullptr, length, flags));
  length = 0;
  EXPECT_FALSE(read_stream(*m_vol, scattered, 0, m_img.data(), length, flags));
  length = C;
  EXPECT_FALSE(read_stream(*m_vol, data_run_list(), 0, m_img.data(), length, flags));
}

// Which size a copy takes: the greater of real and valid size, never more than the runs hold;
// nothing to copy is a failure. (-raw's allocation and resident values: through the binary.)
TEST_F(CopyAttrib, SizesAndRefusals) {
  const data_run_list runs = {run(40, 0, 1), run(7, 1, 2)};
  auto copy = [&](CNtfs* volume, const data_run_list& list, uint64_t real, uint64_t valid, bool& ok) {
    attrib_row row;
    row.m_type = 0x80;
    row.m_non_resident = true;
    row.m_runs = list;
    row.m_real_size = real;
    row.m_valid_size = valid;
    row.m_allocated_size = 3 * C;
    copy_options options;
    options.m_max_hole_bytes = 1u << 20;
    std::ostringstream out;
    uint64_t total = 0;
    ok = copy_attrib_data(volume, row, out, options, total);
    const std::string text = out.str();
    EXPECT_EQ(total, text.size());
    return bytes(text.begin(), text.end());
  };
  bool ok = false;
  EXPECT_EQ(copy(m_vol.get(), runs, 10000, 10000, ok), expected(runs, 0, 10000));
  EXPECT_TRUE(ok);
  EXPECT_EQ(copy(m_vol.get(), runs, 5000, 9000, ok).size(), 9000u);  // valid above real
  EXPECT_EQ(copy(m_vol.get(), runs, 50 * C, 50 * C, ok).size(), 3 * C);  // cut to the runs
  EXPECT_TRUE(copy(m_vol.get(), runs, 0, 0, ok).empty());
  EXPECT_FALSE(ok);
  copy(m_vol.get(), data_run_list(), 10, 10, ok);
  EXPECT_FALSE(ok);
  copy(nullptr, runs, 10, 10, ok);
  EXPECT_FALSE(ok);
  // A few bytes of run list claiming terabytes of holes: refused beyond the limit (1 MiB here).
  const data_run_list holes = {run(40, 0, 1), run(0, 1, 1u << 30, true)};
  EXPECT_TRUE(copy(m_vol.get(), holes, 1ull << 52, 1ull << 52, ok).empty());
  EXPECT_FALSE(ok);
  EXPECT_EQ(copy(m_vol.get(), holes, 200 * C, 200 * C, ok).size(), 200 * C);  // within it
}
