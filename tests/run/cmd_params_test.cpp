// Argument search, script files and the common option table.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "run/cmd_params.h"
#include "tests/test_util.h"

namespace {

using strings = std::vector<std::string>;
using wstrings = std::vector<std::wstring>;

// The result of the parse and what went to standard error.
std::pair<bool, std::string> parse(cmd_params& p, strings args) {
  args.insert(args.begin(), "brimlock");
  testing::internal::CaptureStderr();
  bool ok = p.parse_common(args);
  return {ok, testing::internal::GetCapturedStderr()};
}

std::pair<bool, std::string> accepted(const std::string& err = "") { return {true, err}; }

TEST(ArgumentSearch, WholeArgumentsCaseInsensitiveFirstOccurrence) {
  strings list = {"prog", "-CSV", "-out", "a", "-out", "b", "-csvx"};
  std::string value;
  EXPECT_TRUE(find_flag(std::string("-csv"), list, true) && list.size() == 7u);  // kept
  EXPECT_TRUE(find_value(std::string("-OUT"), value, list) && value == "a");
  EXPECT_TRUE(find_flag(std::string("-csv"), list, false) && !find_flag(std::string("-cs"), list, false));
  EXPECT_EQ(list, (strings{"prog", "-out", "b", "-csvx"}));
  // A value option with nothing behind it is absent and stays in the list.
  strings tail = {"prog", "-mftfile", "x", "-out"};
  EXPECT_FALSE(find_value(std::string("-out"), value, tail) || tail.size() != 4u);
  EXPECT_FALSE(has_arg(std::string("-pipe"), strings{"-pipe", "x"}, 1));
  wstrings wide = {L"prog", L"-Filter_Name", L"\u00c9t\u00e9"};
  std::wstring wvalue;
  EXPECT_TRUE(find_value(std::wstring(L"-filter_name"), wvalue, wide) && wvalue == L"\u00c9t\u00e9");
}

// The line ends of the first bytes decide: CRLF, CR, LF or LFCR alike; mixed ends or none add
// nothing. "//" lines are comments; quotes keep blanks; a one-token line is copied as it stands;
// an unfinished quote runs to the line end.
TEST(ScriptFile, LineEndsCommentsAndQuotes) {
  const wstrings three = {L"-csv", L"-out", L"x"};
  for (const char* text : {"-csv\n-out x\n", "-csv\r\n-out x\r\n", "-csv\r-out x\r", "-csv\n\r-out x\n\r"})
    EXPECT_EQ(script_tokens(text), three) << text;
  EXPECT_EQ(script_tokens("-csv\n// -bodyfile\n-filter_name \"a b\" -quiet\n"),
            (wstrings{L"-csv", L"-filter_name", L"a b", L"-quiet"}));
  EXPECT_EQ(script_tokens("-a\r\n"), (wstrings{L"-a"}));  // the pair at the very end counts
  EXPECT_TRUE(script_tokens("-csv\n-out x\r\n-quiet\n").empty());
  EXPECT_TRUE(script_tokens("-csv -quiet").empty());
  EXPECT_EQ(script_tokens("\"-csv\"\n-filter_ext \"txt log\n"), (wstrings{L"\"-csv\"", L"-filter_ext", L"txt log"}));
  EXPECT_EQ(script_tokens("  \t\n-a \"b\"\n"), (wstrings{L"-a", L"b"}));

  // The file's options go behind the command line; a missing file only loses "-script".
  std::string dir = testutil::make_temp_dir("script");
  testutil::write_text(dir + "/opts.txt", "-csv\n-filter_ext \"txt | log\"\n");
  wstrings list = {L"prog", L"-script", std::wstring(dir.begin(), dir.end()) + L"/opts.txt", L"-quiet"};
  apply_script_file(list);
  EXPECT_EQ(list, (wstrings{L"prog", L"-quiet", L"-csv", L"-filter_ext", L"txt | log"}));
  wstrings missing = {L"prog", L"-script", L"/nonexistent/opts.txt"};
  apply_script_file(missing);
  EXPECT_EQ(missing, (wstrings{L"prog"}));
}

TEST(CommonOptions, FormatsSeparatorsAndRefusals) {
  // Paired date and time keep their blank; a tab replaces nothing; quoted cells need no replacement.
  cmd_params pair, tab, q;
  EXPECT_EQ(parse(pair, {"-csv", "-pair_datetime"}), accepted());
  EXPECT_TRUE(pair.m_field_separator == "," && pair.m_replace_char == ',' && pair.m_replace_with == ' ' &&
              !pair.m_no_whitespace);
  parse(tab, {"-csv_separator", "TAB"});
  EXPECT_TRUE(tab.m_field_separator == "\t" && !tab.m_replace_char && !tab.m_no_whitespace);
  parse(q, {"-no_whitespace", "-enable_quoted_csv_fields"});
  EXPECT_TRUE(q.m_field_separator == "|" && q.m_quoted_fields && !q.m_blank_before_time && !q.m_replace_char);

  // Formats: kept when valid, the default with a message when not.
  cmd_params d, bad;
  EXPECT_EQ(parse(d, {"-dateformat", "MM/DD/YY", "-timeformat", "hh:mm:ss.xxx"}), accepted());
  EXPECT_TRUE(d.m_date_format == "mm/dd/yy" && d.m_time_state.parsed());
  EXPECT_EQ(parse(bad, {"-dateformat", "m/d/yy", "-timeformat", "hh:mm:ss."}),
            accepted("invalid m/d/yy, using default format\ninvalid hh:mm:ss., using default format\n"));
  EXPECT_TRUE(bad.m_date_format == "yyyy-mm-dd" && bad.m_time_format == "hh:mm:ss.xxx");

  // An unbalanced alias list refuses.
  cmd_params a;
  EXPECT_EQ(parse(a, {"-alias", "c:|d:|e:"}),
            std::make_pair(false, std::string("imbalanced alias to true pathfiles, aborting\n")));
}

// The -out test open: the file is made and removed again, but only a regular file is removed.
TEST(CommonOptions, OutputFileTest) {
  std::string dir = testutil::make_temp_dir("out");
  setenv("BRIMLOCK_TEST_DIR", dir.c_str(), 1);
  struct stat st;
  cmd_params p;
  EXPECT_EQ(parse(p, {"-out", "%BRIMLOCK_TEST_DIR%/r.csv"}), accepted());
  EXPECT_TRUE(p.m_out_path == dir + "/r.csv" && p.m_out_given == 1);
  EXPECT_NE(access((dir + "/r.csv").c_str(), F_OK), 0);
  // An existing file is removed too, with or without -append.
  testutil::write_text(dir + "/old.csv", "old");
  EXPECT_EQ(parse(p, {"-append", "-outfile", dir + "/old.csv"}), accepted());
  EXPECT_NE(access((dir + "/old.csv").c_str(), F_OK), 0);
  // A symbolic link is not removed, nor what it points at.
  testutil::write_text(dir + "/target", "keep");
  ASSERT_EQ(symlink((dir + "/target").c_str(), (dir + "/link").c_str()), 0);
  EXPECT_EQ(parse(p, {"-out", dir + "/link"}), accepted());
  EXPECT_TRUE(lstat((dir + "/link").c_str(), &st) == 0 && S_ISLNK(st.st_mode));
  EXPECT_EQ(access((dir + "/target").c_str(), F_OK), 0);
  // A FIFO without a reader neither hangs nor disappears.
  ASSERT_EQ(mkfifo((dir + "/fifo").c_str(), 0600), 0);
  parse(p, {"-out", dir + "/fifo"});
  EXPECT_TRUE(lstat((dir + "/fifo").c_str(), &st) == 0 && S_ISFIFO(st.st_mode));
  EXPECT_EQ(parse(p, {"-out", dir + "/no/such/dir/r.csv"}),
            std::make_pair(false, "prob opening file " + dir + "/no/such/dir/r.csv for output, aborting\n"));
}

}  // namespace
