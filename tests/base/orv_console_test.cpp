#include "base/orv_console.h"

#include <gtest/gtest.h>

#include <functional>

#include "tests/test_util.h"

// Everything the call writes to standard error.
static std::string capture_stderr(const std::function<void()>& body) {
  testing::internal::CaptureStderr();
  body();
  return testing::internal::GetCapturedStderr();
}

static const std::string k_start = "\x1b[2K\r    \r";
static const std::string k_erase = "\x1b[2K\r" + std::string(27, ' ') + "\r";

// The progress line is cut at 60 characters and loses its line feeds; a message first erases it,
// and one that does not fit the 4096-byte buffer ends with "...", or is dropped when longer still.
TEST(Console, ProgressAndMessages) {
  EXPECT_EQ(capture_stderr([] { show_progress("analyzing entry %llu of %llu", 5ull, 10ull); }),
            k_start + "analyzing entry 5 of 10\r");
  EXPECT_EQ(capture_stderr([] { show_progress("%s", std::string(100, 'a').c_str()); }),
            k_start + std::string(60, 'a') + "\r");
  EXPECT_EQ(capture_stderr([] { show_progress("a\nb\n"); }), k_start + "ab\r");
  EXPECT_EQ(capture_stderr([] { erase_progress(); }), k_erase);
  EXPECT_EQ(capture_stderr([] { print_message("prob opening file %s for output, aborting\n", "x"); }),
            k_erase + "prob opening file x for output, aborting\n");
  EXPECT_EQ(capture_stderr([] { print_message("%s", std::string(4096, 'm').c_str()); }),
            k_erase + std::string(4091, 'm') + "...\n");
  EXPECT_EQ(capture_stderr([] { print_message("%s", std::string(4097, 'm').c_str()); }), k_erase);
}

TEST(Console, DiagnosticLog) {
  const std::string dir = testutil::make_temp_dir("diags"), path = dir + "/diags.txt";
  diag_sink sink;
  log_line(sink, "not open %d", 1);  // off: nothing, no crash
  EXPECT_FALSE(sink.open_diags(dir + "/no/such/dir/log"));
  EXPECT_FALSE(log_enabled(sink) || !sink.m_diags_path.empty());
  ASSERT_TRUE(sink.open_diags(path));
  log_line(sink, "err: recd bad %llx", 0x1fULL);
  log_level(sink, 2, "level two");  // level 0: not written
  sink.m_diags_level = 2;
  log_level(sink, 2, "level %s", "two");
  log_level(sink, 3, "level three");
  log_line(sink, "%s", std::string(1000, 'z').c_str());  // longer than the format plus 256: cut
  sink.close_diags();
  log_line(sink, "after close");
  EXPECT_EQ(testutil::read_text(path), "->err: recd bad 1f\n->level two\n->" + std::string(258, 'z') + "\n");
  testutil::run_shell("rm -rf " + dir);
}
