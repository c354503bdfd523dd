#include "base/orv_fileio.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

struct temp_dir {
  std::string m_path;
  temp_dir() {
    std::string tmpl = "/tmp/brim_fileio_XXXXXX";
    char* made = ::mkdtemp(&tmpl[0]);
    m_path = made ? made : "";
  }
  ~temp_dir() {
    if (!m_path.empty()) std::system(("rm -rf " + m_path).c_str());
  }
};

void put_file(const std::string& path, const std::vector<uint8_t>& bytes) {
  FILE* f = std::fopen(path.c_str(), "wb");
  ASSERT_TRUE(f);
  std::fwrite(bytes.data(), 1, bytes.size(), f);
  std::fclose(f);
}

std::vector<uint8_t> pattern(size_t n) {
  std::vector<uint8_t> v(n);
  for (size_t i = 0; i < n; ++i) v[i] = uint8_t(i * 7 + 3);
  return v;
}

}  // namespace

TEST(FileIo, ReadAtClampsAndRefusesPastEnd) {
  temp_dir dir;
  ASSERT_FALSE(dir.m_path.empty());
  const std::string path = dir.m_path + "/data.bin";
  const auto bytes = pattern(5000);
  put_file(path, bytes);

  uni::fileio f;
  ASSERT_TRUE(f.open(path + "//"));  // trailing slashes are dropped
  EXPECT_EQ(f.m_path, std::wstring(path.begin(), path.end()));
  EXPECT_EQ(f.fileio_size(), 5000u);

  std::vector<uint8_t> buf;
  ASSERT_TRUE(f.read_at(buf, 100, 10));
  EXPECT_EQ(buf, std::vector<uint8_t>(bytes.begin() + 10, bytes.begin() + 110));
  ASSERT_TRUE(f.read_at(buf, ~uint64_t(0), 4990));  // a lying length is cut to what the file holds
  EXPECT_EQ(buf, std::vector<uint8_t>(bytes.begin() + 4990, bytes.end()));
  EXPECT_TRUE(f.read_at(buf, 0, 0));
  EXPECT_TRUE(buf.empty());
  EXPECT_FALSE(f.read_at(buf, 10, 5000));
  EXPECT_FALSE(f.read_at(buf, 10, ~uint64_t(0)));

  uint8_t raw[16];
  EXPECT_EQ(f.read_into(raw, sizeof raw, 4995), 5u);
  EXPECT_EQ(raw[0], bytes[4995]);
  EXPECT_EQ(f.read_into(raw, sizeof raw, 5000), 0u);

  // The size is taken at open: a file that shrinks afterwards gives a cut buffer.
  ASSERT_EQ(::truncate(path.c_str(), 3000), 0);
  ASSERT_TRUE(f.read_at(buf, 1000, 2500));
  EXPECT_EQ(buf.size(), 500u);
  EXPECT_EQ(f.fileio_size(), 3000u);
  f.close();
  EXPECT_FALSE(f.is_open());
  EXPECT_FALSE(f.read_at(buf, 1, 0));
}

TEST(FileIo, OpenRefusals) {
  temp_dir dir;
  uni::fileio f;
  EXPECT_FALSE(f.open(dir.m_path + "/missing"));
  EXPECT_FALSE(f.open(std::string("")));
  EXPECT_FALSE(f.open(std::string("/")));  // nothing left once the slash goes

  const std::string fifo = dir.m_path + "/fifo";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_FALSE(f.open(fifo));  // refused, and the open does not wait for a writer
  EXPECT_FALSE(f.open(fifo, true));

  // A directory opens; its reads give nothing.
  ASSERT_TRUE(f.open(dir.m_path));
  std::vector<uint8_t> buf;
  EXPECT_FALSE(f.read_at(buf, 16, 0));
}

TEST(FileIo, ProcGuessWriteAndMemoryForm) {
  uni::fileio proc;
  ASSERT_TRUE(proc.open(std::string("/proc/self/status")));
  EXPECT_EQ(proc.fileio_size(), 0x40000u);
  std::vector<uint8_t> buf;
  ASSERT_TRUE(proc.read_at(buf, 0x40000, 0));
  EXPECT_LT(buf.size(), 0x40000u);  // cut by what the file really gave
  EXPECT_EQ(std::string(buf.begin(), buf.begin() + 5), "Name:");

  temp_dir dir;
  const std::string path = dir.m_path + "/out.txt";
  {
    uni::fileio w;
    ASSERT_TRUE(w.open(path, true));
    EXPECT_TRUE(w.write("hello ", 6));
    EXPECT_TRUE(w.write("world", 5));
    EXPECT_EQ(w.m_size, 11u);
    ASSERT_TRUE(w.read_at(buf, 100, 6));
    EXPECT_EQ(std::string(buf.begin(), buf.end()), "world");
  }
  struct stat st;
  ASSERT_EQ(::stat(path.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0600, 0600u);
  std::vector<uint8_t> whole;
  ASSERT_TRUE(uni::read_whole_file(path, whole));
  EXPECT_EQ(std::string(whole.begin(), whole.end()), "hello world");
  {
    uni::fileio again;  // opening for writing truncates
    ASSERT_TRUE(again.open(path, true));
    EXPECT_EQ(again.m_size, 0u);
    uni::fileio reader;
    ASSERT_TRUE(reader.open(path));
    EXPECT_FALSE(reader.write("x", 1));  // read-only
  }
  EXPECT_TRUE(uni::read_whole_file(path, whole));
  EXPECT_TRUE(whole.empty());
  EXPECT_FALSE(uni::read_whole_file(dir.m_path + "/none", whole));

  const auto content = pattern(64);
  uni::fileio mem;
  mem.open_memory(content);
  EXPECT_TRUE(mem.is_open());
  EXPECT_EQ(mem.fileio_size(), 64u);
  ASSERT_TRUE(mem.read_at(buf, 100, 60));
  EXPECT_EQ(buf, std::vector<uint8_t>(content.begin() + 60, content.end()));
  EXPECT_FALSE(mem.read_at(buf, 1, 64));
}
