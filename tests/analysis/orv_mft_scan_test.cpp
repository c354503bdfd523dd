#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <sstream>

#include "analysis/orv_mft_scan.h"
#include "base/orv_string.h"
#include "base/orv_results_stream.h"
#include "tests/mft_fixture.h"

using namespace testutil;

namespace {
uint64_t ref(uint64_t number, uint16_t seq) { return number | (uint64_t(seq) << 48); }

// 64 records: system records 0 and 5, a directory 20, live files 21..29 under it, deleted files
// 30..33, and nothing else.
mft_image volume() {
  mft_image image;
  add_system_records(image, 64);
  image.put(20, directory(ref(5, 5), u"docs"));
  for (uint64_t n = 21; n < 30; ++n)
    image.put(n, file(ref(20, 1), u"f" + std::u16string(1, char16_t(u'0' + (n - 20))) + u".txt"));
  for (uint64_t n = 30; n < 34; ++n) image.put(n, file(ref(20, 1), u"old.log", 2, false));
  image.put(63, record_builder());  // keeps the file 64 records long
  return image;
}

// Runs a scan with -csv rows and returns the record numbers written.
std::set<uint64_t> scanned(mft_entries_ctx& ctx, bool inode_list = false) {
  ctx.m_fmt_csv = 1;
  ctx.m_field_separator = ",";
  ctx.m_no_whitespace = 1;
  ctx.m_hex_numbers = 0;
  std::string dir = make_temp_dir("scan");
  {
    results_stream out;
    EXPECT_TRUE(out.open_file(dir + "/rows.csv"));
    if (inode_list) inode_list_scan(out, ctx);
    else full_scan(out, ctx);
  }
  std::set<uint64_t> numbers;
  std::istringstream rows(read_text(dir + "/rows.csv"));
  std::string line;
  while (std::getline(rows, line))  // the header comes once per results stream, not per pass
    if (line.compare(0, 9, "mft entry") != 0) numbers.insert(std::stoull(line.substr(0, line.find(','))));
  return numbers;
}
}  // namespace

TEST(Scan, RangesOfTheFullScan) {
  auto ctx = open_mft(volume(), "range");
  ASSERT_TRUE(ctx);
  std::set<uint64_t> all = scanned(*ctx);
  std::set<uint64_t> expected = {0, 5};
  for (uint64_t n = 20; n < 34; ++n) expected.insert(n);
  EXPECT_EQ(all, expected);  // zero-filled slots and a record without attributes are not rows

  ctx = open_mft(volume(), "range1");
  ctx->m_mft_start = 21;
  ctx->m_mft_range = 1;  // what -mftstart alone sets
  EXPECT_EQ(scanned(*ctx), std::set<uint64_t>({21}));

  ctx = open_mft(volume(), "range3");
  ctx->m_mft_start = 21;
  ctx->m_mft_range = 3;
  EXPECT_EQ(scanned(*ctx), std::set<uint64_t>({21, 22, 23}));

  ctx = open_mft(volume(), "range0");
  ctx->m_mft_start = 30;
  ctx->m_mft_range = 0;  // from the start to the end
  EXPECT_EQ(scanned(*ctx), std::set<uint64_t>({30, 31, 32, 33}));

  ctx = open_mft(volume(), "rangefar");
  ctx->m_mft_start = 60;
  ctx->m_mft_range = 1000;  // not clamped: the surplus numbers fail to read
  EXPECT_TRUE(scanned(*ctx).empty());
}

TEST(Scan, DeletedSelectionAndInodeList) {
  auto ctx = open_mft(volume(), "deleted");
  ASSERT_TRUE(ctx);
  ctx->m_filter_deleted = 1;
  ctx->m_and_logic = 1;
  EXPECT_EQ(scanned(*ctx), std::set<uint64_t>({30, 31, 32, 33}));

  ctx = open_mft(volume(), "inodes");
  filter_record whole;
  whole.m_type = filter_inode;
  whole.m_whole_entry = 1;
  for (uint64_t n : {22, 31, 500}) {
    whole.m_inode = n;
    ctx->m_filter_inodes[n] = whole;
  }
  EXPECT_EQ(scanned(*ctx, true), std::set<uint64_t>({22, 31}));
}

TEST(Scan, SourceOpensOnceAndClosesAtTheEnd) {
  auto ctx = open_mft(volume(), "close");
  ASSERT_TRUE(ctx);
  EXPECT_TRUE(ctx->m_source_open);
  scanned(*ctx);
  EXPECT_FALSE(ctx->m_source_open);
  EXPECT_FALSE(ctx->m_mftfile);
  EXPECT_FALSE(ctx->m_dir_store.empty());  // kept until the next scan starts
  // A second pass reopens the same source.
  EXPECT_EQ(scanned(*ctx).size(), 16u);  // 0, 5, 20 and 21..33
  mft_entries_ctx none;
  EXPECT_FALSE(ensure_source_open(none));
  none.m_mftfile_path = L"/nonexistent/mft.bin";
  EXPECT_FALSE(ensure_source_open(none));
}

TEST(Scan, DamagedRecordsAreSkippedAndLogged) {
  mft_image image = volume();
  auto baad = file(ref(20, 1), u"torn.txt").build();
  std::memcpy(baad.data(), "BAAD", 4);
  image.m_records[24] = baad;
  auto wide = file(ref(20, 1), u"wide.txt").build();
  wide[6] = 10;  // update sequence count above 9
  image.m_records[25] = wide;
  auto late = file(ref(20, 1), u"late.txt").build();
  late[20] = 73;  // first attribute offset above 72
  image.m_records[26] = late;
  auto ctx = open_mft(image, "damaged");
  ASSERT_TRUE(ctx);
  std::string log = make_temp_dir("diags") + "/diags.log";
  ASSERT_TRUE(ctx->open_diags(log));
  ctx->m_diags_on = 1;
  std::set<uint64_t> rows = scanned(*ctx);
  ctx->close_diags();
  EXPECT_FALSE(rows.count(24) || rows.count(25) || rows.count(26));
  EXPECT_TRUE(rows.count(23) && rows.count(27));  // the walk goes on past them
  std::string text = read_text(log);
  EXPECT_NE(text.find("->err: fixup_mft type: BAAD\n->err: recd bad 18\n->mft entry 24 has bad filerecord\n"),
            std::string::npos);
  EXPECT_NE(text.find("->err: mftfixup 19\n"), std::string::npos);
  EXPECT_NE(text.find("->err: mftfixup 1a\n"), std::string::npos);
}
