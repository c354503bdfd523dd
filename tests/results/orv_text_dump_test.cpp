// The record dump of -find_mft for what the fixture volumes do not hold: a record without its
// header and an encrypted stream. Real records are compared with sleuthkit in
// tests/integration/text_dump_test.cpp.
#include <gtest/gtest.h>

#include "results/orv_text_dump.h"
#include "tests/results/entry_fixture.h"

using namespace fixture;

TEST(TextDump, HeaderlessRecordWithEncryptedStream) {
  entry_record e;
  e.m_inode = 0x30;
  add_fn(e, k_root, L"a.txt", 1, 0, 0, 0, testutil::filetime(2021, 5, 6, 7, 8, 9));
  set_path(e, k_root, L"[root]\\");
  attrib_item& data = add_data(e, 1, L"", 5000, true);
  data.m_raw_attrib[13] = 0x40;  // attribute flags 0x4000: encrypted
  data.m_runs = {run_entry{0x20, 0, false, 2}};

  EXPECT_EQ(written(mft_entries_ctx(), {&e}, write_text_dump),
            (std::vector<std::string>{
                "File Record: (no header)", "  MFT entry: 0x00000030", "  Seq Num:   0", "  Type:      del",
                "Ref Count: -1", "Filename Attrib: a.txt", "  parnt mft: 0x00000005", "  parnt seq# 0x0005",
                "  modified:  [0x0000000000000000]", "  accessed:  2021-05-06 07:08:09.000 [0x01d7424691ae9280]",
                "  mft mod:   [0x0000000000000000]", "  created:   [0x0000000000000000]",
                "Data Attrib: (unnamed), data encrypted", "  allocated:  8192", "  file size:  5000",
                "  valid data: 5000", "    vcn 0x0 -> lcn 0x20 -> 0x2 clusters", "  Total clusters [real]:   2",
                "  Total clusters [sparse]: 0", "\\a.txt"}));
}
