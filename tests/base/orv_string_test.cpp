#include "base/orv_string.h"

#include <gtest/gtest.h>

using namespace orv;

TEST(Utf8, EncodesDecodesAndStopsAtWhatIsNoCharacter) {
  const std::wstring wide = {L'A', wchar_t(0xE9), wchar_t(0x7FF), wchar_t(0x20AC), wchar_t(0x1F600), wchar_t(0x10FFFF)};
  const std::string narrow = "A\xC3\xA9\xDF\xBF\xE2\x82\xAC\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF";
  EXPECT_EQ(to_utf8(wide), narrow);
  EXPECT_EQ(to_wide(narrow), wide);
  std::string one = "x";
  append_utf8(one, 0x20AC);
  EXPECT_EQ(one, "x\xE2\x82\xAC");
  // Past Unicode the text ends; a bad lead byte or a cut sequence gives nothing; overlong and
  // surrogate forms pass, only the lead byte is judged.
  EXPECT_EQ(to_utf8(std::wstring{L'a', wchar_t(0x110000), L'b'}), "a");
  EXPECT_EQ(to_utf8(std::wstring{L'a', wchar_t(-1), L'b'}), "a");
  for (const char* bad : {"abc\x80", "ab\xF8\x80\x80", "ab\xE2\x82"}) EXPECT_EQ(to_wide(bad), L"") << bad;
  EXPECT_EQ(to_wide("\xC0\x80"), std::wstring(1, wchar_t(0)));
  EXPECT_EQ(to_wide("\xED\xA0\x80"), std::wstring(1, wchar_t(0xD800)));
}

TEST(Utf16, SurrogatesTerminatorsAndLengths) {
  auto units = [](std::initializer_list<uint16_t> list) {
    std::vector<uint8_t> bytes;
    for (uint16_t u : list) bytes.push_back(uint8_t(u)), bytes.push_back(uint8_t(u >> 8));
    return bytes;
  };
  std::string narrow;
  std::wstring wide;
  auto pair = units({'a', 0xD83D, 0xDE00, 'b'});
  EXPECT_TRUE(utf16_to_utf8(pair.data(), pair.size(), narrow) && narrow == "a\xF0\x9F\x98\x80" "b");
  EXPECT_TRUE(utf16_to_wide(pair.data(), 8, wide) == 8u && wide == (std::wstring{L'a', wchar_t(0x1F600), L'b'}));
  // A lone high surrogate fails the UTF-8 form and stays in the wide one; a lone low one is
  // encoded alone.
  auto lone_high = units({'a', 0xD83D, 'b'}), high_at_end = units({'a', 0xD83D}), lone_low = units({'a', 0xDE00});
  EXPECT_FALSE(utf16_to_utf8(lone_high.data(), lone_high.size(), narrow));
  EXPECT_FALSE(utf16_to_utf8(high_at_end.data(), high_at_end.size(), narrow));
  EXPECT_TRUE(utf16_to_wide(lone_high.data(), 6, wide) == 6u && wide == (std::wstring{L'a', wchar_t(0xD83D), L'b'}));
  EXPECT_TRUE(utf16_to_utf8(lone_low.data(), lone_low.size(), narrow) && narrow == "a\xED\xB8\x80");
  // A zero unit ends the text; an odd length drops the last byte; -1 reads up to 1000 bytes.
  auto zero = units({'a', 'b', 0, 'c'});
  std::vector<uint8_t> long_name(1200, 'q');
  EXPECT_TRUE(utf16_to_wide(zero.data(), 8, wide) == 4u && wide == L"ab");
  EXPECT_TRUE(utf16_to_wide(zero.data(), 3, wide) == 2u && wide == L"a");
  EXPECT_TRUE(utf16_to_wide(long_name.data(), -1, wide) == 1000u && wide.size() == 500u);
}

TEST(Text, SplitTrimAndGuid) {
  EXPECT_EQ(split("a | B,,c ;", "|,;", true), (std::vector<std::string>{"a", "B", "", "c", ""}));
  EXPECT_EQ(split(" a |b", "|", false), (std::vector<std::string>{" a ", "b"}));
  EXPECT_TRUE(split("", "|", true).empty());
  EXPECT_EQ(trim("   "), "");
  std::wstring slashes = L"/a/b\\/\\";
  strip_trailing_slashes(slashes);  // either kind
  EXPECT_EQ(slashes, L"/a/b");
  const uint8_t g[16] = {0x33, 0x22, 0x11, 0x00, 0x55, 0x44, 0x77, 0x66,
                         0x88, 0x99, 0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xff};
  EXPECT_EQ(guid_text(g), "00112233-4455-6677-8899-aabbccddeeff");
}

// For a refusal `value` is what the target holds afterwards.
TEST(Numbers, OptionReaders) {
  struct number_case { const char* text; bool ok; uint64_t value; };
  for (const number_case& c : {number_case{" 0x1F ", true, 0x1F}, {"X10", true, 16}, {"o17", true, 15},
                               {"123456789012", true, 123456789012u}, {"0x", false, 7}, {"abc", false, 7},
                               {"", false, 7}}) {
    uint64_t v = 7;
    EXPECT_TRUE(parse_u64(c.text, v) == c.ok && v == c.value) << c.text;
  }
  // Decimal "1x" reads the digits before the "x".
  for (const number_case& c : {number_case{"x1f", true, 31}, {"0x20", true, 32}, {"o10", true, 8}, {"'a'", true, 'a'},
                               {"1x", true, 1}, {"-3", false, 9}, {"z", false, 9}}) {
    uint32_t v = 9;
    EXPECT_TRUE(parse_small(c.text, v) == c.ok && v == c.value) << c.text;
  }
  // A refused size clears the target: trailing text, 17 hex digits, past 64 bits.
  for (const number_case& c : {number_case{"  1024", true, 1024}, {"0xFFFFFFFFFFFFFFFF", true, UINT64_MAX},
                               {"12 ", false, 0}, {"0x10000000000000000", false, 0}, {"99999999999999999999", false, 0},
                               {"abc", false, 0}}) {
    uint64_t v = 5;
    EXPECT_TRUE(parse_size(c.text, v) == c.ok && v == c.value) << c.text;
  }
}
