// The table writer: cell stores, number and text rendering, time cells and the header line.
#include <gtest/gtest.h>

#include "base/results_stream.h"
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
  void column(uint16_t kind, uint32_t width, const char* name, uint32_t flags = 0) {
    result_column c;
    c.m_kind = kind;
    c.m_width = width;
    c.m_name = name;
    c.m_flags = flags;
    m_columns.push_back(c);
  }
  void ready() { row_reset(m_row, uint32_t(m_columns.size())); }
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

TEST(ResultRow, HexNumbersFillToWidthOrToTheirSize) {
  one_table t;
  t.column(cell_int64, 10, "a");
  t.column(cell_int16, 10, "b");
  t.column(cell_int8, 6, "c");
  t.column(cell_int32, 10, "d");
  t.ready();
  set_number(t.m_row, 0, cell_int64, 0x2a);
  set_number(t.m_row, 1, cell_int16, 0x12345);  // only the low 16 bits belong to a 2-byte cell
  set_number(t.m_row, 2, cell_int8, 7);
  set_number(t.m_row, 3, cell_int32, 0x123456789ull);
  EXPECT_EQ(t.row(padded()), "0x0000002a | 0x00002345 | 0x0007 | 0x23456789\n");
  EXPECT_EQ(t.row(tight()), "0x0000002a,0x2345,0x07,0x23456789\n");

  set_number(t.m_row, 0, cell_int64, 0x123456789abcull);  // wider than the column: all digits stay
  EXPECT_EQ(t.row(tight()).substr(0, 14), "0x123456789abc");
}

TEST(ResultRow, DecimalNumbersAreRightAlignedAndTheDecimalFlagWins) {
  one_table t;
  t.column(cell_int16, 10, "seq", cell_flag_decimal);
  t.column(cell_int64, 6, "n");
  t.ready();
  set_number(t.m_row, 0, cell_int16, 65535);
  set_number(t.m_row, 1, cell_int64, 42, cell_flag_decimal);
  EXPECT_EQ(t.row(padded()), "     65535 |     42\n");
  result_layout base10 = padded();
  base10.m_hex_numbers = false;
  set_number(t.m_row, 1, cell_int64, 42);
  EXPECT_EQ(t.row(base10), "     65535 |     42\n");
  base10.m_no_padding = true;
  EXPECT_EQ(t.row(base10), "65535 | 42\n");
}

TEST(ResultRow, TextPaddingCountsCharactersNotBytes) {
  one_table t;
  t.column(cell_text, 6, "name");
  t.column(cell_text, 0, "last");
  t.ready();
  set_wide_text(t.m_row, 0, L"\u00e9t\u00e9");  // three characters, five bytes
  set_text(t.m_row, 1, "x");
  EXPECT_EQ(t.row(padded()), "\xc3\xa9t\xc3\xa9    | x\n");
  set_text(t.m_row, 0, "longer than six");
  EXPECT_EQ(t.row(padded()), "longer than six | x\n");
}

TEST(ResultRow, SeparatorCharacterAndLineBreaksAreCleanedInText) {
  one_table t;
  t.column(cell_text, 0, "a");
  t.ready();
  set_text(t.m_row, 0, "a,b|c\r\nd\n\re\nf\rg");
  result_layout layout = tight();
  EXPECT_EQ(t.row(layout), "a b|c\r\nd\n\re\nf\rg\n");  // tokens only for the CSV family
  layout.m_line_break_tokens = true;
  EXPECT_EQ(t.row(layout), "a b|c[CRLF]d[LFCR]e[LF]f[CR]g\n");

  result_layout bars = padded();
  EXPECT_EQ(t.row(bars), "a,b;c\r\nd\n\re\nf\rg\n");
}

TEST(ResultRow, QuotedTextKeepsSeparatorsAndLeavesJsonAlone) {
  one_table t;
  t.column(cell_text, 0, "a");
  t.column(cell_text, 0, "b");
  t.column(cell_text, 0, "c");
  t.column(cell_int64, 0, "n");
  t.ready();
  t.m_row.m_default_flags = cell_flag_quoted;
  set_text(t.m_row, 0, "x,y");
  set_text(t.m_row, 1, "{\"k\":1}");
  set_text(t.m_row, 2, "{\"");  // too short to count as an object
  set_number(t.m_row, 3, cell_int64, 1);
  EXPECT_EQ(t.row(tight()), "\"x,y\",{\"k\":1},\"{\"\",0x00000001\n");
}

TEST(ResultRow, StoresOutsideTheRowDoNothingAndSucceed) {
  one_table t;
  t.column(cell_text, 0, "a");
  t.ready();
  EXPECT_TRUE(set_text(t.m_row, -1, "x"));
  EXPECT_TRUE(set_text(t.m_row, 1, "x"));
  EXPECT_TRUE(set_number(t.m_row, 0, 32, 5));
  EXPECT_EQ(text_slot(t.m_row, 7), nullptr);
  EXPECT_EQ(t.row(tight()), "\n");

  result_row wide;
  EXPECT_TRUE(row_reset(wide, 255));
  EXPECT_FALSE(row_reset(wide, 256));
  EXPECT_TRUE(wide.m_disabled);
  EXPECT_TRUE(set_text(wide, 0, "x"));
  EXPECT_EQ(text_slot(wide, 0), nullptr);
}

TEST(ResultRow, SplitTimeCellFillsTwoColumnsWithBlankBeforeEach) {
  one_table t;
  t.column(cell_text, 0, "n");
  t.column(cell_time_split, 10, "date");
  t.column(cell_time_second, 12, "time-utc");
  t.column(cell_text, 0, "z");
  t.ready();
  set_text(t.m_row, 0, "n");
  set_text(t.m_row, 2, "stale");  // the time store clears the cell behind it
  set_time(t.m_row, 1, cell_time_split, testutil::filetime(2021, 3, 4, 5, 6, 7) + 1234567);
  set_text(t.m_row, 3, "z");
  EXPECT_EQ(t.row(tight()), "n, 2021-03-04, 05:06:07.123,z\n");
  EXPECT_EQ(t.header(tight()), "n,date, time-utc,z\n");
  EXPECT_EQ(t.header(padded()), "n | date       |  time-utc     | z\n");

  // Not displayable: one blank in a padded layout (then the fill), nothing in a tight one.
  set_time(t.m_row, 1, cell_time_split, testutil::filetime(1899, 12, 31));
  EXPECT_EQ(t.row(tight()), "n, , ,z\n");
  EXPECT_EQ(t.row(padded()), "n | " + std::string(11, ' ') + " | " + std::string(13, ' ') + " | z\n");
  result_layout no_blank = tight();
  no_blank.m_blank_before_time = false;
  EXPECT_EQ(t.row(no_blank), "n,,,z\n");
}

TEST(ResultRow, JoinedTimeCellHoldsDateAndTime) {
  one_table t;
  t.column(cell_time_joined, 23, "date/time-utc");
  t.column(cell_text, 0, "z");
  t.ready();
  set_time(t.m_row, 0, cell_time_joined, testutil::filetime(2000, 1, 2, 3, 4, 5));
  set_text(t.m_row, 1, "z");
  EXPECT_EQ(t.row(padded()), " 2000-01-02 03:04:05.000 | z\n");
  EXPECT_EQ(t.header(padded()), " date/time-utc" + std::string(10, ' ') + " | z\n");
  set_time(t.m_row, 0, cell_time_joined, 0);
  EXPECT_EQ(t.row(tight()), " ,z\n");
  EXPECT_EQ(t.row(padded()), std::string(24, ' ') + " | z\n");
}

TEST(ResultRow, TableWritesTheHeaderOnce) {
  std::string dir = testutil::make_temp_dir("table");
  std::string path = dir + "/t.txt";
  {
    results_stream out;
    ASSERT_TRUE(out.open_file(path));
    result_table table;
    table.m_layout = tight();
    add_column(table, cell_text, 5, "a");
    add_time_columns(table, true, "date", "time", "both");
    table_ready(table, 0);
    table_write_header(table, out);
    set_text(table.m_row, 0, "1");
    table_write_row(table, out);
    table_write_header(table, out);
    set_text(table.m_row, 0, "2");
    table_write_row(table, out);
  }
  EXPECT_EQ(testutil::read_text(path), "a, both\n1, \n2, \n");
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
  struct step {
    int m_column;
    const char* m_text;
    uint64_t m_number;
  };
  // Each step changes one cell, in turn at the start, middle and end of the row.
  const step steps[] = {{0, "x", 0}, {1, nullptr, 7},   {2, nullptr, t1}, {5, "end", 0}, {4, "mid", 0},
                        {0, "yy", 0}, {2, nullptr, t2}, {5, "", 0},       {1, nullptr, 8}, {4, "mid", 0}};
  for (const step& s : steps) {
    if (s.m_column == 2) set_time(row, 2, cell_time_split, s.m_number);
    else if (s.m_text) set_text(row, s.m_column, s.m_text);
    else set_number(row, s.m_column, cell_int64, s.m_number);
    std::string fresh;
    render_row(fresh, row, table.m_columns, table.m_layout);
    EXPECT_EQ(render_row_cached(row, table.m_columns, table.m_layout) + "\n", fresh);
  }
}
