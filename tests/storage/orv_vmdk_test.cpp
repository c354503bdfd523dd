// Sparse VMDK headers that lie about their sizes, built as tiny files. (Real disks and chains:
// integration/vmdk_test.cpp.)
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "base/orv_le.h"
#include "base/orv_string.h"
#include "storage/orv_raw_disk_io.h"
#include "storage/orv_vmdk.h"
#include "tests/test_util.h"

namespace {

// 4 KiB grains (8 sectors), 4 entries per table: one table covers the 16 KiB capacity. Sector 0
// header, 1 descriptor, 2 directory, 3 table, grain 0 at sector 4; the header patched as given.
std::string sparse_disk(const std::map<size_t, uint64_t>& header_patch) {
  std::vector<uint8_t> f(4 * 512 + 4096, 'A');
  std::fill(f.begin(), f.begin() + 4 * 512, 0);
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
  const std::string text = "# Disk DescriptorFile\nversion=1\nCID=aaaa0001\nparentCID=ffffffff\n"
                           "createType=\"monolithicSparse\"\n";
  memcpy(&f[512], text.data(), text.size());
  orv::put_le32(&f[1024], 3);
  orv::put_le32(&f[1536], 4);
  return std::string(f.begin(), f.end());
}

// Headers whose fields claim more than the file holds are refused before anything is allocated
// by them; a compressed disk is refused with a reason of its own; reads stop at the capacity.
TEST(Vmdk, HostileHeadersAreRefused) {
  const std::string dir = testutil::make_temp_dir("vmdk");
  const struct { const char* m_label; std::map<size_t, uint64_t> m_patch; bool m_loads; } cases[] = {
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
    testutil::write_text(path, sparse_disk(c.m_patch));
    vmdk_disk disk;
    EXPECT_EQ(disk.load(orv::to_wide(path)), c.m_loads) << c.m_label;
    const bool compressed = c.m_patch.count(77) || (c.m_patch.count(8) && c.m_patch.at(8) == (1u << 16));
    EXPECT_EQ(disk.m_refusal.empty(), !compressed) << c.m_label;
  }
  // A read that runs past the capacity is cut there.
  testutil::write_text(dir + "/d.vmdk", sparse_disk({}));
  RAW_DISK_IO disk;
  ASSERT_TRUE(disk.open_vmdk({orv::to_wide(dir + "/d.vmdk")}, false));
  std::vector<uint8_t> buf(100, 0xEE);
  uint32_t length = 100;
  EXPECT_TRUE(disk.read(buf.data(), length, 16380) && length == 4 && buf[0] == 0 && buf[4] == 0xEE);
  testutil::run_shell("rm -rf " + testutil::shell_quote(dir));
}

}  // namespace
