// Sparse VMDK disks built as tiny files: grain lookup through a snapshot chain, holes, and
// headers that lie about their sizes.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <string>

#include "base/orv_le.h"
#include "base/orv_string.h"
#include "storage/orv_raw_disk_io.h"
#include "storage/orv_vmdk.h"
#include "tests/test_util.h"

namespace {

// 4 KiB grains (8 sectors), 4 entries per table: one table covers the 16 KiB capacity. Sector 0
// header, 1 descriptor, 2 directory, 3 table, grains from sector 4 in the order given.
std::string sparse_disk(const std::string& cid, const std::string& parent, const std::map<int, char>& grains,
                        std::map<size_t, uint64_t> header_patch = {}) {
  std::vector<uint8_t> f(4 * 512 + grains.size() * 4096, 0);
  orv::put_le32(&f[0], VMDK_MAGIC);
  orv::put_le32(&f[4], 1);
  orv::put_le64(&f[12], 32);  // capacity, sectors
  orv::put_le64(&f[20], 8);   // grain, sectors
  orv::put_le64(&f[28], 1);   // descriptor at sector 1, one sector
  orv::put_le64(&f[36], 1);
  orv::put_le32(&f[44], 4);   // entries per table
  orv::put_le64(&f[56], 2);   // directory
  orv::put_le64(&f[64], 4);   // overhead
  for (const auto& p : header_patch) orv::put_le64(&f[p.first], p.second);
  const std::string text = "# Disk DescriptorFile\nversion=1\nCID=" + cid + "\nparentCID=" + parent +
                           "\ncreateType=\"monolithicSparse\"\n";
  memcpy(&f[512], text.data(), text.size());
  orv::put_le32(&f[1024], 3);
  uint32_t sector = 4;
  for (const auto& g : grains) {
    orv::put_le32(&f[1536 + 4 * g.first], sector);
    memset(&f[sector * 512], g.second, 4096);
    sector += 8;
  }
  return std::string(f.begin(), f.end());
}

// A read over grains 0..2 of a base holding 0 and 1 and a child holding 1: the first grain
// comes from the base, the second from the child, the third (no disk holds it) is zeros.
TEST(Vmdk, ReadsTheNewestGrainAndZerosForHoles) {
  const std::string dir = testutil::make_temp_dir("vmdk");
  testutil::write_text(dir + "/base.vmdk", sparse_disk("aaaa0001", "ffffffff", {{0, 'A'}, {1, 'B'}}));
  testutil::write_text(dir + "/child.vmdk", sparse_disk("aaaa0002", "aaaa0001", {{1, 'C'}}));
  RAW_DISK_IO disk;
  // Named child first: the CIDs order the chain.
  ASSERT_TRUE(disk.open_vmdk({orv::to_wide(dir + "/child.vmdk"), orv::to_wide(dir + "/base.vmdk")}, false));
  EXPECT_EQ(disk.size(), 16384u);
  EXPECT_EQ(disk.m_vmdk->m_chain.size(), 2u);
  std::vector<uint8_t> buf(8192, 0xEE);
  uint32_t length = 8192;
  ASSERT_TRUE(disk.read(buf.data(), length, 2048));
  EXPECT_EQ(length, 8192u);
  for (size_t i = 0; i < buf.size(); ++i)
    ASSERT_EQ(buf[i], i < 2048 ? 'A' : i < 6144 ? 'C' : 0) << i;
  length = 100;
  EXPECT_TRUE(disk.read(buf.data(), length, 16380) && length == 4);  // clamped at the capacity
  testutil::run_shell("rm -rf " + testutil::shell_quote(dir));
}

// Headers whose fields claim more than the file holds are refused before anything is allocated
// by them; a compressed disk is refused with its own message.
TEST(Vmdk, HostileHeadersAreRefused) {
  const std::string dir = testutil::make_temp_dir("vmdk");
  const struct {
    const char* m_label;
    std::map<size_t, uint64_t> m_patch;
    bool m_loads;
  } cases[] = {
      {"sound", {}, true},
      {"huge capacity, tiny grains", {{12, 1ull << 50}, {20, 1}}, false},
      {"table larger than the file", {{44, 0x40000000}}, false},
      {"capacity overflowing bytes", {{12, ~0ull}}, false},
      {"zero grain", {{20, 0}}, false},
      {"directory past the end", {{56, 1ull << 40}}, false},
      {"descriptor past the end", {{28, 1ull << 40}}, false},
      {"compressed grains", {{8, 1u << 16}}, false},
      {"deflate", {{77, 1}}, false},
  };
  for (const auto& c : cases) {
    const std::string path = dir + "/d.vmdk";
    testutil::write_text(path, sparse_disk("aaaa0001", "ffffffff", {{0, 'A'}}, c.m_patch));
    vmdk_disk disk;
    EXPECT_EQ(disk.load(orv::to_wide(path)), c.m_loads) << c.m_label;
    const bool compressed = c.m_patch.count(77) || (c.m_patch.count(8) && c.m_patch.at(8) == (1u << 16));
    EXPECT_EQ(disk.m_refusal.empty(), !compressed) << c.m_label;
  }
  std::ostringstream messages;
  std::vector<std::wstring> suggested;
  EXPECT_FALSE(validate_vmdk_list({orv::to_wide(dir + "/d.vmdk")}, messages, suggested));
  EXPECT_EQ(messages.str(), "prob opening " + dir + "/d.vmdk: compressed grains are not supported, aborting\n");
  testutil::run_shell("rm -rf " + testutil::shell_quote(dir));
}

}  // namespace
