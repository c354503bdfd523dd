// The record dump of -find_mft for what the fixture volumes do not hold: a record without its
// header and an encrypted stream. Real records are compared with sleuthkit in
// tests/integration/text_dump_test.cpp.
#include <gtest/gtest.h>

#include "analysis/orv_scan_state.h"
#include "base/orv_results_stream.h"
#include "results/orv_text_dump.h"
#include "run/mft_entries_ctx.h"
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

  mft_entries_ctx options;
  std::string path = testutil::make_temp_dir("dump") + "/dump.txt";
  results_stream out;
  ASSERT_TRUE(out.open_file(path));
  text_dump_writer writer(options, out);
  write_text_dump(e, scan_state(), writer);
  out.close();
  EXPECT_EQ(testutil::read_text(path),
            "File Record: (no header)\n"
            "  MFT entry: 0x00000030\n"
            "  Seq Num:   0\n"
            "  Type:      del\n"
            "Ref Count: -1\n"
            "Filename Attrib: a.txt\n"
            "  parnt mft: 0x00000005\n"
            "  parnt seq# 0x0005\n"
            "  modified:  [0x0000000000000000]\n"
            "  accessed:  2021-05-06 07:08:09.000 [0x01d7424691ae9280]\n"
            "  mft mod:   [0x0000000000000000]\n"
            "  created:   [0x0000000000000000]\n"
            "Data Attrib: (unnamed), data encrypted\n"
            "  allocated:  8192\n"
            "  file size:  5000\n"
            "  valid data: 5000\n"
            "    vcn 0x0 -> lcn 0x20 -> 0x2 clusters\n"
            "  Total clusters [real]:   2\n"
            "  Total clusters [sparse]: 0\n"
            "\\a.txt\n");
}
