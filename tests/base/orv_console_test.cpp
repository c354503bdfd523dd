#include "base/orv_console.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <fstream>
#include <functional>
#include <iterator>

namespace {

// Everything the call writes to standard error.
std::string capture_stderr(const std::function<void()>& body) {
  testing::internal::CaptureStderr();
  body();
  return testing::internal::GetCapturedStderr();
}

std::string read_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

const std::string k_start = "\x1b[2K\r    \r";
const std::string k_erase = "\x1b[2K\r" + std::string(27, ' ') + "\r";

}  // namespace

TEST(Console, ProgressLines) {
  EXPECT_EQ(capture_stderr([] { show_progress("analyzing entry %llu of %llu", 5ull, 10ull); }),
            k_start + "analyzing entry 5 of 10\r");
  std::string long_text(100, 'a');
  EXPECT_EQ(capture_stderr([&] { show_progress("%s", long_text.c_str()); }), k_start + std::string(60, 'a') + "\r");
  EXPECT_EQ(capture_stderr([] { show_progress("a\nb\n"); }), k_start + "ab\r");
  EXPECT_EQ(capture_stderr([] { show_text(3, "abcdef"); }), k_start + "abc\r");
  EXPECT_EQ(capture_stderr([] { erase_progress(); }), k_erase);
}

TEST(Console, Messages) {
  EXPECT_EQ(capture_stderr([] { print_message("prob opening file %s for output, aborting\n", "x"); }),
            k_erase + "prob opening file x for output, aborting\n");
  std::string just_cut(4096, 'm');
  std::string out = capture_stderr([&] { print_message("%s", just_cut.c_str()); });
  EXPECT_EQ(out.size(), k_erase.size() + 4095);
  EXPECT_EQ(out.substr(out.size() - 4), "...\n");
  std::string too_long(4097, 'm');
  EXPECT_EQ(capture_stderr([&] { print_message("%s", too_long.c_str()); }), k_erase);
}

TEST(Console, PercentThresholds) {
  // One percent display per process: the first call fixes the step at 10% of 1000.
  std::string out = capture_stderr([] {
    for (uint64_t done = 0; done <= 1000; done += 50) show_percent(60, done, 1000, 10);
  });
  std::string expect;
  for (int p = 10; p <= 100; p += 10) expect += k_start + "percent done: " + std::to_string(p) + "\r";
  EXPECT_EQ(out, expect);
}

TEST(Console, DiagnosticLog) {
  char dir_tmpl[] = "/tmp/brim_diags_XXXXXX";
  ASSERT_TRUE(::mkdtemp(dir_tmpl));
  const std::string path = std::string(dir_tmpl) + "/diags.txt";
  {
    diag_sink sink;
    log_line(sink, "not open %d", 1);  // off: nothing, no crash
    EXPECT_FALSE(sink.open_diags(std::string(dir_tmpl) + "/no/such/dir/log"));
    EXPECT_TRUE(sink.m_diags_path.empty());
    EXPECT_FALSE(log_enabled(sink));

    ASSERT_TRUE(sink.open_diags(path));
    EXPECT_TRUE(log_enabled(sink));
    EXPECT_EQ(sink.m_diags_path, path);
    log_line(sink, "err: recd bad %llx", 0x1fULL);
    log_level(sink, 2, "level two");
    sink.m_diags_level = 2;
    log_level(sink, 2, "level %s", "two");
    log_level(sink, 3, "level three");
    log_text(sink, "text", "pre", "post");
    std::string big(1000, 'z');
    log_line(sink, "%s", big.c_str());  // longer than the format plus 256: cut
    EXPECT_EQ(read_file(path), "->err: recd bad 1f\n->level two\n->pre : text: post\n->" + std::string(256 + 2, 'z') +
                                   "\n");
    sink.close_diags();
    EXPECT_FALSE(log_enabled(sink));
    log_line(sink, "after close");
  }
  EXPECT_EQ(read_file(path).find("after close"), std::string::npos);
  ::unlink(path.c_str());
  ::rmdir(dir_tmpl);
}
