#include "base/orv_fileio.h"
#include "base/orv_results_stream.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/test_util.h"

TEST(FileIo, ReadsClampRefusalsAndProcFiles) {
  const std::string dir = testutil::make_temp_dir("fileio"), path = dir + "/data.bin";
  std::vector<uint8_t> bytes(5000);
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = uint8_t(i * 7 + 3);
  testutil::write_file(path, bytes);

  uni::fileio f;
  ASSERT_TRUE(f.open(path + "//"));  // trailing slashes are dropped
  EXPECT_EQ(f.m_path, std::wstring(path.begin(), path.end()));
  EXPECT_EQ(f.fileio_size(), 5000u);
  std::vector<uint8_t> buf;
  ASSERT_TRUE(f.read_at(buf, 100, 10));
  EXPECT_EQ(buf, std::vector<uint8_t>(bytes.begin() + 10, bytes.begin() + 110));
  ASSERT_TRUE(f.read_at(buf, ~uint64_t(0), 4990));  // a lying length is cut to what the file holds
  EXPECT_EQ(buf, std::vector<uint8_t>(bytes.begin() + 4990, bytes.end()));
  EXPECT_TRUE(f.read_at(buf, 0, 0) && buf.empty());
  EXPECT_FALSE(f.read_at(buf, 10, 5000) || f.read_at(buf, 10, ~uint64_t(0)));
  uint8_t raw[16];
  EXPECT_TRUE(f.read_into(raw, sizeof raw, 4995) == 5u && raw[0] == bytes[4995]);
  EXPECT_EQ(f.read_into(raw, sizeof raw, 5000), 0u);
  ASSERT_EQ(::truncate(path.c_str(), 3000), 0);  // shrunk after the open: a cut buffer
  ASSERT_TRUE(f.read_at(buf, 1000, 2500));
  EXPECT_EQ(buf.size(), 500u);
  f.close();
  EXPECT_FALSE(f.is_open() || f.read_at(buf, 1, 0));

  // Refused: missing, empty, nothing left once the slash goes, a FIFO (without waiting for a
  // writer). A directory opens and reads nothing.
  const std::string fifo = dir + "/fifo";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  for (const std::string& p : {dir + "/missing", std::string(), std::string("/"), fifo}) EXPECT_FALSE(f.open(p)) << p;
  ASSERT_TRUE(f.open(dir));
  EXPECT_FALSE(f.read_at(buf, 16, 0));

  // An unseekable /proc file is taken as 256 KiB, cut by what the reads give.
  ASSERT_TRUE(f.open(std::string("/proc/self/status")));
  EXPECT_EQ(f.fileio_size(), 0x40000u);
  ASSERT_TRUE(f.read_at(buf, 0x40000, 0));
  EXPECT_LT(buf.size(), 0x40000u);
  EXPECT_EQ(std::string(buf.begin(), buf.begin() + 5), "Name:");
  testutil::run_shell("rm -rf " + dir);
}

// Buffers past the first are written by the stream's own thread: every byte arrives, in order,
// and a device that takes none makes close() fail, however many buffers went before.
TEST(ResultsStream, BuffersWrittenInOrderAndFailuresSeen) {
  const std::string path = testutil::make_temp_dir("results") + "/rows.txt";
  std::string expected;
  {
    results_stream out;
    ASSERT_TRUE(out.open_file(path));
    for (int i = 0; expected.size() < (7u << 20) / 2; ++i) {
      std::string line = std::to_string(i) + std::string(size_t(i % 300), char('a' + i % 26)) + "\n";
      out << line;
      expected += line;
      if (i == 5000) out.flush();  // a flush in the middle waits for the thread, then goes on
    }
    EXPECT_TRUE(out.close());
  }
  EXPECT_EQ(testutil::read_text(path), expected);

  results_stream full;
  ASSERT_TRUE(full.open_file("/dev/full"));
  full << std::string(3u << 20, 'x');
  EXPECT_FALSE(full.close());
  EXPECT_TRUE(full.failed());
}
