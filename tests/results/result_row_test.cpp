// The table writer: cell stores, number and text rendering, time cells and the header line.
#include <gtest/gtest.h>

#include "base/orv_time_text.h"
#include "results/result_row.h"
#include "tests/test_util.h"

namespace {

result_layout padded() {
  result_layout layout;
  orv::parse_time_format(layout.m_time_state, "yyyy-mm-dd", "hh:mm:ss.xxx", false);
  return layout;
}

result_layout tight() {
  result_layout layout = padded();
  layout.m_separator = ",";
  layout.m_no_padding = true;
  layout.m_replace_char = ',';
  layout.m_replace_with = ' ';
  return layout;
}

struct one_table {
  std::vector<result_column> m_columns;
  result_row m_row;
  explicit one_table(std::vector<result_column> columns) : m_columns(std::move(columns)) {
    row_reset(m_row, uint32_t(m_columns.size()));
  }
  std::string row(const result_layout& layout) {
    std::string line;
    render_row(line, m_row, m_columns, layout);
    return line;
  }
  std::string header(const result_layout& layout) {
    std::string line;
    render_header(line, m_columns, layout);
    return line;
  }
};

}  // namespace

TEST(ResultRow, Numbers) {
  one_table t({{cell_int64, 0, 10, "a"}, {cell_int16, 0, 10, "b"}, {cell_int8, 0, 6, "c"},
               {cell_int16, cell_flag_decimal, 7, "d"}});
  set_number(t.m_row, 0, cell_int64, 0x2a);
  set_number(t.m_row, 1, cell_int16, 0x12345);  // only the low 16 bits belong to a 2-byte cell
  set_number(t.m_row, 2, cell_int8, 7);
  set_number(t.m_row, 3, cell_int16, 65535);
  EXPECT_EQ(t.row(padded()), "0x0000002a | 0x00002345 | 0x0007 |   65535\n");
  EXPECT_EQ(t.row(tight()), "0x0000002a,0x2345,0x07,65535\n");
  set_number(t.m_row, 0, cell_int64, 0x123456789abcull);  // wider than the column: all digits stay
  result_layout base10 = padded();
  base10.m_hex_numbers = false;
  EXPECT_EQ(t.row(base10), "20015998343868 |       9029 |      7 |   65535\n");
}

TEST(ResultRow, TextCleaningQuotingAndPadding) {
  one_table t({{cell_text, 0, 0, "a"}});
  set_text(t.m_row, 0, "a,b|c\r\nd\n\re\nf\rg");
  result_layout layout = tight();
  EXPECT_EQ(t.row(layout), "a b|c\r\nd\n\re\nf\rg\n");  // tokens only for the CSV family
  layout.m_line_break_tokens = true;
  EXPECT_EQ(t.row(layout), "a b|c[CRLF]d[LFCR]e[LF]f[CR]g\n");
  EXPECT_EQ(t.row(padded()), "a,b;c\r\nd\n\re\nf\rg\n");

  one_table q({{cell_text, 0, 0, "a"}, {cell_text, 0, 0, "b"}, {cell_text, 0, 0, "c"}, {cell_text, 0, 6, "d"}});
  q.m_row.m_default_flags = cell_flag_quoted;
  set_text(q.m_row, 0, "x,y");
  set_text(q.m_row, 1, "{\"k\":1}");
  set_text(q.m_row, 2, "{\"");  // too short to count as an object
  set_wide_text(q.m_row, 3, L"\u00e9");  // padding counts characters, not bytes
  EXPECT_EQ(q.row(padded()), "\"x,y\" | {\"k\":1} | \"{\"\" | \"\xc3\xa9\"   \n");
}

TEST(ResultRow, StoresOutsideTheRowDoNothingAndSucceed) {
  one_table t({{cell_text, 0, 0, "a"}});
  EXPECT_TRUE(set_text(t.m_row, -1, "x"));
  EXPECT_TRUE(set_text(t.m_row, 1, "x"));
  EXPECT_TRUE(set_number(t.m_row, 0, 32, 5));
  EXPECT_EQ(t.row(tight()), "\n");

  result_row wide;
  EXPECT_TRUE(row_reset(wide, 255));
  EXPECT_FALSE(row_reset(wide, 256));
  EXPECT_TRUE(set_text(wide, 0, "x"));
  EXPECT_EQ(text_slot(wide, 0), nullptr);
}

TEST(ResultRow, TimeCells) {
  one_table t({{cell_text, 0, 0, "n"}, {cell_time_split, 0, 10, "date"}, {cell_time_second, 0, 12, "time-utc"},
               {cell_time_joined, 0, 23, "both"}});
  const uint64_t instant = testutil::filetime(2021, 3, 4, 5, 6, 7) + 1234567;
  set_text(t.m_row, 0, "n");
  set_text(t.m_row, 2, "stale");  // the split time store clears the cell behind it
  set_time(t.m_row, 1, cell_time_split, instant);
  set_time(t.m_row, 3, cell_time_joined, instant);
  EXPECT_EQ(t.row(tight()), "n, 2021-03-04, 05:06:07.123, 2021-03-04 05:06:07.123\n");
  EXPECT_EQ(t.header(tight()), "n,date, time-utc, both\n");
  EXPECT_EQ(t.header(padded()), "n | date       |  time-utc     |  both" + std::string(19, ' ') + "\n");

  // Not displayable: one blank in a padded layout (then the fill), nothing in a tight one.
  set_time(t.m_row, 1, cell_time_split, testutil::filetime(1899, 12, 31));
  set_time(t.m_row, 3, cell_time_joined, 0);
  EXPECT_EQ(t.row(tight()), "n, , , \n");
  EXPECT_EQ(t.row(padded()), "n | " + std::string(11, ' ') + " | " + std::string(13, ' ') + " | " +
                                 std::string(24, ' ') + "\n");
  result_layout no_blank = tight();
  no_blank.m_blank_before_time = false;
  EXPECT_EQ(t.row(no_blank), "n,,,\n");
}

TEST(ResultRow, CachedRowsMatchFreshRendering) {
  result_table table;
  table.m_layout = padded();
  add_column(table, cell_text, 4, "a");
  add_column(table, cell_int64, 10, "n");
  add_time_columns(table, false, "date", "time", "");
  add_column(table, cell_text, 6, "b");
  add_column(table, cell_text, 0, "c");
  table_ready(table, 0);
  result_row& row = table.m_row;
  const uint64_t t1 = testutil::filetime(2001, 2, 3, 4, 5, 6), t2 = testutil::filetime(2002, 3, 4);
  // Each step changes one cell, in turn at the start, middle and end of the row.
  const struct {
    int m_column;
    const char* m_text;
    uint64_t m_number;
  } steps[] = {{0, "x", 0}, {1, nullptr, 7}, {2, nullptr, t1}, {5, "end", 0}, {4, "mid", 0},
               {0, "yy", 0}, {2, nullptr, t2}, {5, "", 0}, {1, nullptr, 8}, {4, "mid", 0}};
  for (const auto& s : steps) {
    if (s.m_column == 2) set_time(row, 2, cell_time_split, s.m_number);
    else if (s.m_text) set_text(row, s.m_column, s.m_text);
    else set_number(row, s.m_column, cell_int64, s.m_number);
    std::string fresh;
    render_row(fresh, row, table.m_columns, table.m_layout);
    EXPECT_EQ(render_row_cached(row, table.m_columns, table.m_layout) + "\n", fresh);
  }
}
