// Cell rendering of the table writer (its cell writers serve the default rows as well), the header
// column's text and the names of copies.
#include <gtest/gtest.h>

#include <functional>

#include "base/orv_time_text.h"
#include "results/orv_extract.h"
#include "results/orv_header_text.h"
#include "results/result_row.h"
#include "tests/test_util.h"

namespace {

result_layout layout(bool tight, bool hex = true, bool tokens = false, bool blank = true) {
  result_layout l;
  orv::parse_time_format(l.m_time_state, "yyyy-mm-dd", "hh:mm:ss.xxx", false);
  if (tight) l.m_separator = ",", l.m_no_padding = true, l.m_replace_char = ',', l.m_replace_with = ' ';
  l.m_hex_numbers = hex, l.m_line_break_tokens = tokens, l.m_blank_before_time = blank;
  return l;
}

const uint64_t k_early = testutil::filetime(1899, 12, 31);  // not displayable
const std::vector<result_column> k_numbers = {
    {cell_int64, 0, 10, ""}, {cell_int16, 0, 10, ""}, {cell_int8, 0, 6, ""}, {cell_int16, cell_flag_decimal, 7, ""}};
const std::vector<result_column> k_texts = {
    {cell_text, 0, 0, ""}, {cell_text, 0, 0, ""}, {cell_text, 0, 0, ""}, {cell_text, 0, 6, ""}};
const std::vector<result_column> k_times = {
    {cell_text, 0, 0, ""}, {cell_time_split, 0, 10, ""}, {cell_time_second, 0, 12, ""}, {cell_time_joined, 0, 23, ""}};

void numbers(result_row& r, uint64_t first) {
  const uint64_t values[] = {first, 0x12345, 7, 65535};  // the 2-byte cell keeps 16 of the 17 bits
  for (int i = 0; i < 4; ++i) set_number(r, i, k_numbers[size_t(i)].m_kind, values[i]);
}
void texts(result_row& r, std::vector<std::string> cells) {
  for (size_t i = 0; i < cells.size(); ++i) set_text(r, int(i), cells[i]);
}
void times(result_row& r, uint64_t split, uint64_t joined) {
  set_text(r, 0, "n");
  set_time(r, 1, cell_time_split, split);
  set_time(r, 3, cell_time_joined, joined);
}

}  // namespace

TEST(ResultRow, CellsRenderUnderEachLayout) {
  const std::string breaks = "a,b|c\r\nd\n\re\nf\rg";
  const struct { const std::vector<result_column>& m_columns; result_layout m_layout;
                 std::function<void(result_row&)> m_fill; std::string m_want; } cases[] = {
      {k_numbers, layout(false), [](result_row& r) { numbers(r, 0x2a); }, "0x0000002a | 0x00002345 | 0x0007 |   65535"},
      {k_numbers, layout(true), [](result_row& r) { numbers(r, 0x2a); }, "0x0000002a,0x2345,0x07,65535"},
      {k_numbers, layout(false, false), [](result_row& r) { numbers(r, 0x123456789abcull); },  // all digits stay
       "20015998343868 |       9029 |      7 |   65535"},
      {k_texts, layout(true), [&](result_row& r) { texts(r, {breaks}); }, "a b|c\r\nd\n\re\nf\rg,,,"},
      {k_texts, layout(true, true, true), [&](result_row& r) { texts(r, {breaks}); },
       "a b|c[CRLF]d[LFCR]e[LF]f[CR]g,,,"},
      {k_texts, layout(false), [&](result_row& r) { texts(r, {breaks}); }, "a,b;c\r\nd\n\re\nf\rg |  |  |       "},
      {k_texts, layout(false),  // quoted but for objects ("{\"" is too short for one); padding counts characters
       [](result_row& r) {
         r.m_default_flags = cell_flag_quoted, texts(r, {"x,y", "{\"k\":1}", "{\""}), set_wide_text(r, 3, L"\u00e9");
       },
       "\"x,y\" | {\"k\":1} | \"{\"\" | \"\xc3\xa9\"   "},
      {k_texts, layout(true),  // stores outside the row do nothing
       [](result_row& r) { EXPECT_TRUE(set_text(r, -1, "x") && set_text(r, 4, "x") && set_number(r, 0, 32, 5)); },
       ",,,"},
      {k_times, layout(true), [](result_row& r) { times(r, k_early, 0); }, "n, , , "},
      {k_times, layout(true, true, false, false), [](result_row& r) { times(r, k_early, 0); }, "n,,,"},
      {k_times, layout(false), [](result_row& r) { times(r, 0, 0); },
       "n | " + std::string(11, ' ') + " | " + std::string(13, ' ') + " | " + std::string(24, ' ')},
  };
  for (size_t i = 0; i < sizeof cases / sizeof cases[0]; ++i) {
    result_row row;
    row_reset(row, uint32_t(cases[i].m_columns.size()));
    cases[i].m_fill(row);
    std::string line;
    render_row(line, row, cases[i].m_columns, cases[i].m_layout);
    EXPECT_EQ(line, cases[i].m_want + "\n") << "case " << i;
  }
}

TEST(HeaderText, BytesAndStrings) {
  struct header_case { std::string bytes; bool strings; const char* want; } const cases[] = {
      {std::string("MZ\x90\x00", 4), false, "4d 5a 90 00"},
      {"", false, ""},
      // Runs of five or more printable characters, "; " between them.
      {std::string("\x01hello\x02worlds!\x7f" "abcd\x00" "SQLite format 3", 35), true,
       "hello; worlds!; SQLite format 3"},
      {"abcd", true, ""},                                 // shorter than the minimum
      {std::string("\x01\x02\x03\x04\x05\x06", 6), true, ""},  // no printable run
  };
  for (const header_case& c : cases) {
    std::string out;
    format_header(out, reinterpret_cast<const uint8_t*>(c.bytes.data()), c.bytes.size(), c.strings, 5, "; ");
    EXPECT_EQ(out, c.want) << c.want;
  }
}

TEST(CopyNames, VolumeNamesStayOnePathComponent) {
  struct name_case { std::wstring name, want; } const cases[] = {
      {L"report.doc", L"report.doc"},
      {L"a/b.txt", L"a_b.txt"},
      {std::wstring(L"nul\0in", 6), L"nul_in"},
      {L"tab\tand\x7f", L"tab_and_"},
      {L"..", L"__"},
      {L".", L"_"},
      {L"...x", L"...x"},
      {L"caf\u00e9\\x", L"caf\u00e9\\x"},  // a back-slash is an ordinary character here
  };
  for (const name_case& c : cases) EXPECT_EQ(path_component(c.name), c.want);
}
