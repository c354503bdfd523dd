// log2timeline rows from entries in memory: MACB grouping, the order of rows at one instant, texts
// and options. (Every instant of real volumes: integration/timeline_test.cpp.)
#include <gtest/gtest.h>

#include "results/orv_l2t_rows.h"
#include "tests/results/entry_fixture.h"

using namespace fixture;
using testutil::filetime;

namespace {

const uint64_t T1 = filetime(2020, 1, 2, 3, 4, 5), T2 = filetime(2021, 5, 6), T3 = filetime(2022, 7, 8);

std::vector<std::string> l2t_lines(std::initializer_list<entry_record*> entries,
                                   void (*tweak)(mft_entries_ctx&) = nullptr) {
  mft_entries_ctx options;
  options.m_fmt_l2t = options.m_no_whitespace = 1;
  options.set_separator(",", false);
  options.m_tool_name = "brimlock";
  if (tweak) tweak(options);
  return written(options, entries, write_l2t);
}

std::string field(const std::string& line, size_t index) {
  std::vector<std::string> cells = orv::split(line, ",", false);
  return index < cells.size() ? cells[index] : "?";
}

}  // namespace

TEST(L2tRows, MacbGroupsEqualTimesInMacbOrder) {
  const uint64_t y1899 = filetime(1899, 12, 31);
  // Per case: letters@instant of every row, in the order formed.
  struct { uint64_t m, a, c, b; const char* rows; } const cases[] = {
      {T1, T1, T1, T1, "MACB@1"},
      {T1, T2, T1, T2, "M.C.@1 .A.B@2"},
      {T1, T2, T1, T3, "M.C.@1 .A..@2 ...B@3"},
      {T2, T1, T1, T1, "M...@2 .ACB@1"},
      {y1899, T1, T1, y1899, ".AC.@1"},  // a time that cannot be displayed joins no row
      {0, 0, 0, 0, ""},
      {0, 0, T3, T3, "..CB@3"},
  };
  for (const auto& c : cases) {
    macb_set set{{c.m, c.a, c.c, c.b}, "$SI:"};
    std::vector<macb_row> rows;
    group_macb(set, rows);
    std::string got;
    for (const macb_row& r : rows)
      got += (got.empty() ? "" : " ") + std::string(r.m_letters) + "@" +
             (r.m_time == T1 ? "1" : r.m_time == T2 ? "2" : r.m_time == T3 ? "3" : "?");
    EXPECT_EQ(got, c.rows);
  }
}

TEST(L2tRows, RowsAtOneInstantTextsAndOptions) {
  entry_record e;
  set_header(e, 0x2a, 3, FR_FLAG_IN_USE);
  add_si(e, T1, T2, T2, T1);                                   // B, M, C, A
  add_fn(e, k_root, L"Long, Name.txt", 1, T3, T3, T3, T3);      // a comma in a name
  add_fn(e, k_root, L"LONGNA~1.TXT", 2, T1, T1, T1, T1);
  add_fn(e, 0x40 | (1ull << 48), L"link.txt", 1, T1, T1, T1, T1, 0x55);  // held by an extension record
  set_path(e, k_root, L"[root]\\");
  e.m_parent_names.erase(0x40 | (1ull << 48));
  e.m_source_name = L"disk,1.img";
  std::vector<std::string> all = l2t_lines({&e}, [](mft_entries_ctx& o) { o.m_hostname = "host,a"; });
  // At one instant the rows keep the order of the names and of SI before FN.
  std::string types;
  for (size_t i = 1; i < all.size(); ++i) types += field(all[i], 6) + "/" + field(all[i], 10) + " ";
  EXPECT_EQ(types,
            "$SI: [.A.B]/LONGNA~1.TXT $FN8.3: [MACB]/LONGNA~1.TXT $SI: [.A.B]/Long  Name.txt $SI: [.A.B]/link.txt "
            "$FN: [MACB]/link.txt $SI: [M.C.]/LONGNA~1.TXT $SI: [M.C.]/Long  Name.txt $SI: [M.C.]/link.txt "
            "$FN: [MACB]/Long  Name.txt ");
  // The host goes out as given, so the comma in it makes one field too many.
  EXPECT_NE(all.at(1).find(",,host,a,LONGNA~1.TXT,[root]\\LONGNA~1.TXT,2,disk 1.img,0x0000002a,file; FN8.3; "
                           "multinames [3]; multiroots [2],brimlock (orvenna),"),
            std::string::npos)
      << all[1];
  const std::string& linked = all.at(4);
  EXPECT_NE(linked.find(",[root]/link.txt,"), std::string::npos) << linked;  // no path known for its parent
  EXPECT_NE(linked.find("multiroots [2]; ref inode [0x00000055],"), std::string::npos) << linked;

  all = l2t_lines({&e}, [](mft_entries_ctx& o) {
    o.m_hide_dos_fntimes = 1, o.m_pair_datetime = 1, o.m_hex_numbers = 0;
    o.m_filter_start_time = T2, o.m_filter_stop_time = ~0ull;
  });
  ASSERT_EQ(all.size(), 4u);  // no DOS rows, nothing before T2
  EXPECT_EQ(all[0].substr(0, 25), "date/time,timezone,MACB,s");
  EXPECT_EQ(all[1].substr(0, 30), "2021-05-06 00:00:00.000,UTC,M.");
  EXPECT_EQ(field(all[3], 12), "42");

  // A deleted record without a name: its standard information alone.
  entry_record stub;
  set_header(stub, 7, 1, 0);
  add_si(stub, T1, T1, T1, T2);
  all = l2t_lines({&stub});
  ASSERT_EQ(all.size(), 3u);
  EXPECT_NE(all[1].find(",$SI: [M.CB],,,<no filename attribute>,<no path>\\<no filename attribute>,2,,0x00000007,"
                        "deleted (file),"),
            std::string::npos)
      << all[1];
  EXPECT_EQ(field(all[2], 3), ".A..");
}
