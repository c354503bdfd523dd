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

bool parse(cmd_params& p, strings args, strings* rest = nullptr) {
  args.insert(args.begin(), "brimlock");
  bool ok = p.parse_common(args);
  if (rest) *rest = args;
  return ok;
}

TEST(ArgumentSearch, WholeArgumentsCaseInsensitiveFirstOccurrence) {
  strings list = {"prog", "-CSV", "-out", "a", "-out", "b", "-csvx"};
  EXPECT_TRUE(find_flag(std::string("-csv"), list, true));
  EXPECT_EQ(list.size(), 7u);
  EXPECT_FALSE(find_flag(std::string("-cs"), list, false));
  std::string value;
  EXPECT_TRUE(find_value(std::string("-OUT"), value, list));
  EXPECT_EQ(value, "a");
  EXPECT_EQ(list, (strings{"prog", "-CSV", "-out", "b", "-csvx"}));
  EXPECT_TRUE(find_flag(std::string("-csv"), list, false));
  EXPECT_EQ(list, (strings{"prog", "-out", "b", "-csvx"}));

  // A value option with nothing behind it is absent and stays in the list.
  strings tail = {"prog", "-mftfile", "x", "-out"};
  EXPECT_FALSE(find_value(std::string("-out"), value, tail));
  EXPECT_EQ(tail.size(), 4u);

  EXPECT_TRUE(has_arg(std::string("-pipe"), strings{"-pipe", "x"}, 0));
  EXPECT_FALSE(has_arg(std::string("-pipe"), strings{"-pipe", "x"}, 1));

  wstrings wide = {L"prog", L"-Filter_Name", L"\u00c9t\u00e9"};
  std::wstring wvalue;
  EXPECT_TRUE(find_value(std::wstring(L"-filter_name"), wvalue, wide));
  EXPECT_EQ(wvalue, L"\u00c9t\u00e9");
  EXPECT_EQ(wide.size(), 1u);
}

TEST(ScriptFile, LineEndsCommentsAndQuotes) {
  EXPECT_EQ(script_tokens("-csv\n// -bodyfile\n-filter_name \"a b\" -quiet\n"),
            (wstrings{L"-csv", L"-filter_name", L"a b", L"-quiet"}));
  EXPECT_EQ(script_tokens("-csv\r\n-out x\r\n"), (wstrings{L"-csv", L"-out", L"x"}));
  EXPECT_EQ(script_tokens("-csv\r-out x\r"), (wstrings{L"-csv", L"-out", L"x"}));
  EXPECT_EQ(script_tokens("-csv\n\r-out x\n\r"), (wstrings{L"-csv", L"-out", L"x"}));
  // Mixed line ends, or none at all, add nothing.
  EXPECT_TRUE(script_tokens("-csv\n-out x\r\n-quiet\n").empty());
  EXPECT_TRUE(script_tokens("-csv -quiet").empty());
  // A one-token line is copied as it stands; an unfinished quote runs to the line end.
  EXPECT_EQ(script_tokens("\"-csv\"\n-filter_ext \"txt log\n"), (wstrings{L"\"-csv\"", L"-filter_ext", L"txt log"}));
  EXPECT_EQ(script_tokens("  \t\n-a \"b\"\n"), (wstrings{L"-a", L"b"}));
}

TEST(ScriptFile, AppendedBehindTheCommandLine) {
  std::string dir = testutil::make_temp_dir("script");
  testutil::write_text(dir + "/opts.txt", "-csv\n-filter_ext \"txt | log\"\n");
  wstrings list = {L"prog", L"-script", std::wstring(dir.begin(), dir.end()) + L"/opts.txt", L"-quiet"};
  apply_script_file(list);
  EXPECT_EQ(list, (wstrings{L"prog", L"-quiet", L"-csv", L"-filter_ext", L"txt | log"}));

  wstrings missing = {L"prog", L"-script", L"/nonexistent/opts.txt"};
  apply_script_file(missing);
  EXPECT_EQ(missing, (wstrings{L"prog"}));
}

TEST(CommonOptions, FormatSwitchesAndSeparators) {
  struct format_case {
    strings m_args;
    const char* m_separator;
    char m_value_separator[2];
    int m_no_whitespace;
  } const cases[] = {
      {{"-CSV"}, ",", {',', ' '}, 1},
      {{"-csv", "-pair_datetime"}, ",", {',', ' '}, 0},  // paired date and time keep their blank
      {{"-csv_separator", ", ", "-csv"}, ", ", {',', ';'}, 1},
      {{"-csv_separator", "TAB"}, "\t", {0, 0}, 0},
  };
  for (const format_case& c : cases) {
    cmd_params p;
    EXPECT_TRUE(parse(p, c.m_args)) << c.m_args[0];
    EXPECT_EQ(p.m_field_separator, c.m_separator) << c.m_args[0];
    EXPECT_EQ(p.m_value_separators[0], c.m_value_separator[0]) << c.m_args[0];
    EXPECT_EQ(p.m_value_separators[1], c.m_value_separator[1]) << c.m_args[0];
    EXPECT_EQ(p.m_no_whitespace, c.m_no_whitespace) << c.m_args[0];
  }
  // The later table row wins, whatever the typed order.
  for (strings args : {strings{"-csv", "-bodyfile"}, strings{"-bodyfile", "-csv"}}) {
    cmd_params p;
    parse(p, args);
    EXPECT_EQ(p.m_fmt_bodyfile, 1);
    EXPECT_EQ(p.m_fmt_csv, 0);
    EXPECT_EQ(p.m_field_separator, "|");
    EXPECT_EQ(p.m_replace_char, '|');
    EXPECT_EQ(p.m_replace_with, ';');
  }
  cmd_params q;
  parse(q, {"-no_whitespace", "-enable_quoted_csv_fields"});
  EXPECT_EQ(q.m_field_separator, "|");
  EXPECT_EQ(q.m_quoted_fields, 1);
  EXPECT_EQ(q.m_blank_before_time, 0);
  EXPECT_EQ(q.m_replace_char, 0);

  cmd_params m;
  parse(m, {"-multiline", "-quiet", "-hostname", "pc1", "-cpu", "3"});
  EXPECT_EQ(m.m_header_line, 1);
  EXPECT_EQ(m.m_progress, 0);
  EXPECT_EQ(m.m_has_hostname, 1);
  EXPECT_EQ(m.m_instance_count, 3u);
  EXPECT_EQ(m.m_tool_name, "brimlock");
}

TEST(CommonOptions, DateAndTimeFormats) {
  cmd_params p;
  testing::internal::CaptureStderr();
  parse(p, {"-dateformat", "MM/DD/YY", "-timeformat", "hh:mm:ss.xxx"});
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(p.m_date_format, "mm/dd/yy");
  EXPECT_EQ(p.m_time_format, "hh:mm:ss.xxx");
  EXPECT_TRUE(p.m_time_state.parsed());

  cmd_params q;
  testing::internal::CaptureStderr();
  EXPECT_TRUE(parse(q, {"-dateformat", "m/d/yy", "-timeformat", "hh:mm:ss."}));
  std::string err = testing::internal::GetCapturedStderr();
  EXPECT_NE(err.find("invalid m/d/yy, using default format\n"), std::string::npos);
  EXPECT_NE(err.find("invalid hh:mm:ss., using default format\n"), std::string::npos);
  EXPECT_EQ(q.m_date_format, "yyyy-mm-dd");
  EXPECT_EQ(q.m_time_format, "hh:mm:ss.xxx");
}

TEST(CommonOptions, RefusalsAndUnknownOptions) {
  strings rest;
  cmd_params p;
  EXPECT_TRUE(parse(p, {"-nonsense", "-csv", "-l2"}, &rest));
  EXPECT_EQ(rest, (strings{"brimlock", "-nonsense", "-l2"}));

  cmd_params a;
  testing::internal::CaptureStderr();
  EXPECT_FALSE(parse(a, {"-alias", "c:|d:|e:"}));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "imbalanced alias to true pathfiles, aborting\n");
  cmd_params b;
  EXPECT_TRUE(parse(b, {"-aliaspath", "C:/|\"/mnt/c/\""}));
  EXPECT_EQ(b.m_alias_path_map["c:"], "/mnt/c");

  cmd_params e;
  strings empty;
  EXPECT_FALSE(e.parse_common(empty));

  // Every -filter_sig is consumed here.
  cmd_params f;
  parse(f, {"-filter_sig", "mz", "-filter_sig", "hive"}, &rest);
  EXPECT_EQ(rest, (strings{"brimlock"}));
}

// The -out test open: the file is made and removed again, but only a regular file is removed.
TEST(CommonOptions, OutputFileTest) {
  std::string dir = testutil::make_temp_dir("out");
  setenv("BRIMLOCK_TEST_DIR", dir.c_str(), 1);
  struct stat st;
  cmd_params p;
  EXPECT_TRUE(parse(p, {"-out", "%BRIMLOCK_TEST_DIR%/r.csv"}));
  EXPECT_EQ(p.m_out_path, dir + "/r.csv");
  EXPECT_EQ(p.m_out_given, 1);
  EXPECT_NE(access((dir + "/r.csv").c_str(), F_OK), 0);

  // An existing file is removed too, with or without -append.
  testutil::write_text(dir + "/old.csv", "old");
  EXPECT_TRUE(parse(p, {"-append", "-outfile", dir + "/old.csv"}));
  EXPECT_NE(access((dir + "/old.csv").c_str(), F_OK), 0);

  // A symbolic link is not removed, nor what it points at.
  testutil::write_text(dir + "/target", "keep");
  ASSERT_EQ(symlink((dir + "/target").c_str(), (dir + "/link").c_str()), 0);
  EXPECT_TRUE(parse(p, {"-out", dir + "/link"}));
  EXPECT_EQ(lstat((dir + "/link").c_str(), &st), 0);
  EXPECT_TRUE(S_ISLNK(st.st_mode));
  EXPECT_EQ(access((dir + "/target").c_str(), F_OK), 0);

  // A FIFO without a reader neither hangs nor disappears.
  ASSERT_EQ(mkfifo((dir + "/fifo").c_str(), 0600), 0);
  testing::internal::CaptureStderr();
  parse(p, {"-out", dir + "/fifo"});
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(lstat((dir + "/fifo").c_str(), &st), 0);
  EXPECT_TRUE(S_ISFIFO(st.st_mode));

  testing::internal::CaptureStderr();
  EXPECT_FALSE(parse(p, {"-out", dir + "/no/such/dir/r.csv"}));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "prob opening file " + dir + "/no/such/dir/r.csv for output, aborting\n");

  // A trailing -out is no option at all.
  cmd_params t;
  EXPECT_TRUE(parse(t, {"-csv", "-out"}));
  EXPECT_EQ(t.m_out_given, 0);
}

TEST(CommonOptions, DevNullSurvivesAsRoot) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to be able to remove /dev/null";
  cmd_params p;
  EXPECT_TRUE(parse(p, {"-out", "/dev/null"}));
  struct stat st;
  ASSERT_EQ(lstat("/dev/null", &st), 0);
  EXPECT_TRUE(S_ISCHR(st.st_mode));
}

}  // namespace
