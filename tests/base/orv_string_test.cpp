#include "base/orv_path.h"
#include "base/orv_string.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <sys/stat.h>
#include <unistd.h>

using namespace orv;

namespace {

std::vector<uint8_t> units(std::initializer_list<uint16_t> list) {
  std::vector<uint8_t> bytes;
  for (uint16_t u : list) {
    bytes.push_back(uint8_t(u));
    bytes.push_back(uint8_t(u >> 8));
  }
  return bytes;
}

bool is_dir(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

std::string temp_root(const char* tag) {
  std::string tmpl = std::string("/tmp/brim_base_") + tag + "_XXXXXX";
  char* made = ::mkdtemp(&tmpl[0]);
  return made ? std::string(made) : std::string();
}

}  // namespace

TEST(Utf8, EncodesByRangeAndStopsPastUnicode) {
  std::wstring w = {L'A', wchar_t(0xE9), wchar_t(0x20AC), wchar_t(0x1F600)};
  EXPECT_EQ(to_utf8(w), "A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80");
  EXPECT_EQ(to_utf8(std::wstring{L'a', wchar_t(0x110000), L'b'}), "a");
  EXPECT_EQ(to_utf8(std::wstring{L'a', wchar_t(-1), L'b'}), "a");
  EXPECT_EQ(to_utf8(L""), "");

  std::string one;
  append_utf8(one, 0x7FF);
  EXPECT_EQ(one, "\xDF\xBF");
}

TEST(Utf8, DecodesByLeadByteAndRefusesBadLeadOrCut) {
  EXPECT_EQ(to_wide("A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"),
            (std::wstring{L'A', wchar_t(0xE9), wchar_t(0x20AC), wchar_t(0x1F600)}));
  EXPECT_EQ(to_wide("abc\x80"), L"");       // continuation byte as lead
  EXPECT_EQ(to_wide("ab\xF8\x80\x80"), L"");  // 11111xxx lead
  EXPECT_EQ(to_wide("ab\xE2\x82"), L"");    // cut by the end
  // Overlong and surrogate forms pass: only the lead byte is judged.
  EXPECT_EQ(to_wide("\xC0\x80"), std::wstring(1, wchar_t(0)));
  EXPECT_EQ(to_wide("\xED\xA0\x80"), std::wstring(1, wchar_t(0xD800)));
  std::wstring round = {wchar_t(0x10FFFF), L'z', wchar_t(0x800)};
  EXPECT_EQ(to_wide(to_utf8(round)), round);
}

TEST(Utf16, PairsJoinAndLoneSurrogatesFallBack) {
  auto pair = units({'a', 0xD83D, 0xDE00, 'b'});
  std::string narrow;
  EXPECT_TRUE(utf16_to_utf8(pair.data(), pair.size(), narrow));
  EXPECT_EQ(narrow, "a\xF0\x9F\x98\x80"
                    "b");
  std::wstring wide;
  EXPECT_EQ(utf16_to_wide(pair.data(), int64_t(pair.size()), wide), 8u);
  EXPECT_EQ(wide, (std::wstring{L'a', wchar_t(0x1F600), L'b'}));

  auto lone_high = units({'a', 0xD83D, 'b'});
  EXPECT_FALSE(utf16_to_utf8(lone_high.data(), lone_high.size(), narrow));
  EXPECT_EQ(utf16_to_wide(lone_high.data(), int64_t(lone_high.size()), wide), 6u);
  EXPECT_EQ(wide, (std::wstring{L'a', wchar_t(0xD83D), L'b'}));
  auto high_at_end = units({'a', 0xD83D});
  EXPECT_FALSE(utf16_to_utf8(high_at_end.data(), high_at_end.size(), narrow));

  auto lone_low = units({'a', 0xDE00});
  EXPECT_TRUE(utf16_to_utf8(lone_low.data(), lone_low.size(), narrow));
  EXPECT_EQ(narrow, "a\xED\xB8\x80");
}

TEST(Utf16, StopsAtZeroOrLengthAndCountsTerminator) {
  auto bytes = units({'a', 'b', 0, 'c'});
  std::wstring wide;
  EXPECT_EQ(utf16_to_wide(bytes.data(), int64_t(bytes.size()), wide), 4u);
  EXPECT_EQ(wide, L"ab");
  EXPECT_EQ(utf16_to_wide(bytes.data(), 3, wide), 2u);  // odd length: one unit
  EXPECT_EQ(wide, L"a");

  std::string out;
  EXPECT_EQ(utf16_name_to_utf8(bytes.data(), int64_t(bytes.size()), out, true), 6u);
  EXPECT_EQ(out, "ab");
  EXPECT_EQ(utf16_name_to_utf8(bytes.data(), int64_t(bytes.size()), out, false), 4u);
  EXPECT_EQ(utf16_name_to_utf8(bytes.data(), 4, out, true), 4u);  // ran to the end: no terminator
  auto empty = units({0, 'x'});
  EXPECT_EQ(utf16_name_to_utf8(empty.data(), 4, out, true), 0u);
  EXPECT_EQ(out, "");

  std::vector<uint8_t> long_name(1200, 'q');  // 'qq' units, no terminator
  EXPECT_EQ(utf16_to_wide(long_name.data(), -1, wide), 1000u);
  EXPECT_EQ(wide.size(), 500u);
}

TEST(Text, SplitAndCaseFolding) {
  std::wstring r = L"aAbA";
  replace_char(r, L'a', L'_', true);
  EXPECT_EQ(r, L"__b_");
  std::wstring sl = L"/a/b\\/\\";
  strip_trailing_slashes(sl);
  EXPECT_EQ(sl, L"/a/b");

  EXPECT_EQ(split("a | B,,c ;", "|,;", true), (std::vector<std::string>{"a", "B", "", "c", ""}));
  EXPECT_EQ(split(" a |b", "|", false), (std::vector<std::string>{" a ", "b"}));
  EXPECT_TRUE(split("", "|", true).empty());
  EXPECT_EQ(trim("   "), "");
}

TEST(Numbers, OptionReaders) {
  struct number_case {
    const char* m_text;
    bool m_ok;
    uint64_t m_value;  // for a refusal: what the target holds afterwards
  };
  const number_case u64_cases[] = {
      {" 0x1F ", true, 0x1F}, {"X10", true, 16},  {"o17", true, 15}, {"123456789012", true, 123456789012u},
      {"abc", false, 7},      {"", false, 7},     {"0x", false, 7},
  };
  for (const number_case& c : u64_cases) {
    uint64_t v = 7;
    EXPECT_EQ(parse_u64(c.m_text, v), c.m_ok) << c.m_text;
    EXPECT_EQ(v, c.m_value) << c.m_text;
  }
  const number_case small_cases[] = {
      {"x1f", true, 31}, {"0x20", true, 32}, {"o10", true, 8},   {"'a'", true, 'a'},
      {"1x", true, 1},  // decimal: the digits before the "x"
      {"-3", false, 9},  {"z", false, 9},
  };
  for (const number_case& c : small_cases) {
    uint32_t v = 9;
    EXPECT_EQ(parse_small(c.m_text, v), c.m_ok) << c.m_text;
    EXPECT_EQ(v, c.m_value) << c.m_text;
  }
  const number_case size_cases[] = {
      {"  1024", true, 1024},
      {"0x1000", true, 0x1000},
      {"0xFFFFFFFFFFFFFFFF", true, UINT64_MAX},
      {"12 ", false, 0},  // a refusal clears the target
      {"0x10000000000000000", false, 0},  // 17 hex digits
      {"11111111111111111111111111111111", false, 0},
      {"99999999999999999999", false, 0},  // past 64 bits
      {"abc", false, 0},
  };
  for (const number_case& c : size_cases) {
    uint64_t v = 5;
    EXPECT_EQ(parse_size(c.m_text, v), c.m_ok) << c.m_text;
    EXPECT_EQ(v, c.m_value) << c.m_text;
  }
}

TEST(Text, GuidHexAndLineEnds) {
  const uint8_t g[16] = {0x33, 0x22, 0x11, 0x00, 0x55, 0x44, 0x77, 0x66,
                         0x88, 0x99, 0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xff};
  EXPECT_EQ(guid_text(g), "00112233-4455-6677-8899-aabbccddeeff");
  EXPECT_EQ(hex_digits(0xabc, 6), "000abc");
  EXPECT_EQ(hex_digits(0x12345, 2), "12345");

  auto kind = [](const std::string& t) { return line_end_kind(reinterpret_cast<const uint8_t*>(t.data()), t.size()); };
  EXPECT_EQ(kind("a\r\nb\r\nc"), 1);
  EXPECT_EQ(kind("a\rb\rc"), 2);
  EXPECT_EQ(kind("a\nb\nc"), 3);
  EXPECT_EQ(kind("a\n\rb\n\rc"), 4);
  EXPECT_EQ(kind("a\nb\r\nc"), 6);
  EXPECT_EQ(kind("abc"), 7);
  EXPECT_EQ(kind("abc\n"), 7);  // the last byte only counts as the second of a pair
  EXPECT_EQ(kind("ab\r\n"), 1);
}

TEST(Paths, EnvironmentExpansion) {
  ::setenv("BRIM_TEST_VAR", "value", 1);
  ::unsetenv("BRIM_TEST_UNSET");
  EXPECT_EQ(expand_environment("a/%BRIM_TEST_VAR%/b"), "a/value/b");
  EXPECT_EQ(expand_environment("%BRIM_TEST_UNSET%/x"), "%BRIM_TEST_UNSET%/x");
  EXPECT_EQ(expand_environment("50%"), "50%");
  std::string big(600, 'v');
  ::setenv("BRIM_TEST_BIG", big.c_str(), 1);
  EXPECT_EQ(expand_environment("%BRIM_TEST_BIG%%BRIM_TEST_VAR%"), big + "%BRIM_TEST_VAR%");
}

TEST(Paths, DirectoryTreeAndSplit) {
  std::string root = temp_root("tree");
  ASSERT_FALSE(root.empty());
  EXPECT_TRUE(make_directory_tree(root + "/a/b//c"));
  EXPECT_TRUE(is_dir(root + "/a/b/c"));
  EXPECT_TRUE(make_directory_tree(root + "/a/b/c"));  // existing levels are fine
  EXPECT_TRUE(make_directory_tree("\"" + root + "\\q\\r\""));
  EXPECT_TRUE(is_dir(root + "/q/r"));
  EXPECT_TRUE(make_directory_tree(std::wstring(L"") + to_wide(root) + L"/w\u00e9"));
  EXPECT_TRUE(is_dir(root + "/w\xC3\xA9"));
  EXPECT_FALSE(make_directory_tree(""));
  EXPECT_FALSE(make_directory_tree("\"\""));
  std::string file = root + "/plain";
  FILE* f = std::fopen(file.c_str(), "w");
  ASSERT_TRUE(f);
  std::fclose(f);
  EXPECT_FALSE(make_directory_tree(file + "/below"));

  auto parts = [](const std::string& path) {
    std::string dir, name, ext;
    split_path(path, dir, name, ext);
    return dir + "|" + name + "|" + ext;
  };
  EXPECT_EQ(parts("/x/y/name.tar.gz"), "/x/y|name.tar|gz");
  EXPECT_EQ(parts("plain"), "|plain|");
  EXPECT_EQ(parts("/top.csv"), "/|top|csv");
  std::system(("rm -rf " + root).c_str());
}

TEST(Paths, NormalizeAgainstCurrentDirectory) {
  std::string root = temp_root("norm");
  ASSERT_FALSE(root.empty());
  ASSERT_TRUE(make_directory(root + "/sub"));
  char saved[4096];
  ASSERT_TRUE(::getcwd(saved, sizeof saved));
  ASSERT_EQ(::chdir((root + "/sub").c_str()), 0);
  char real_sub[4096];
  ASSERT_TRUE(::getcwd(real_sub, sizeof real_sub));
  std::string sub = real_sub;
  std::string parent = sub.substr(0, sub.rfind('/'));

  EXPECT_EQ(normalize_path("/abs/x.img", '/'), L"/abs/x.img");
  EXPECT_EQ(normalize_path(" \"/abs/q.img\" ", '/'), L"/abs/q.img");
  EXPECT_EQ(normalize_path("img.dd", '/'), to_wide(sub + "/img.dd"));
  EXPECT_EQ(normalize_path("./d/img.dd", '/'), to_wide(sub + "/d/img.dd"));
  EXPECT_EQ(normalize_path("../img.dd", '/'), to_wide(parent + "/img.dd"));
  EXPECT_EQ(normalize_path("./../a/../b", '/'), to_wide(parent + "/a/../b"));
  EXPECT_EQ(normalize_path("..", '/'), to_wide(parent));
  EXPECT_EQ(normalize_path("''img''", '/'), to_wide(sub + "/img"));
  EXPECT_EQ(normalize_path("  ", '/'), L"");
  EXPECT_EQ(normalize_path("\\abs", '/'), L"\\abs");  // backslash is the separator here
  ASSERT_EQ(::chdir(saved), 0);
  std::system(("rm -rf " + root).c_str());
}
