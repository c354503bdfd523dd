// Bodyfile rows and the record dump of what the fixture volumes do not hold. (Real volumes:
// integration/timeline_test.cpp and text_dump_test.cpp.)
#include <gtest/gtest.h>

#include "results/orv_bodyfile_rows.h"
#include "results/orv_text_dump.h"
#include "tests/results/entry_fixture.h"

using namespace fixture;
using testutil::filetime;

TEST(BodyfileRows, OneRowPerAttributeWithNotesAndWholeSeconds) {
  const uint64_t T1 = filetime(2020, 1, 2, 3, 4, 5, 9999999), T2 = filetime(1969, 12, 31, 23, 59, 59);
  entry_record e;
  set_header(e, 0x2a, 3, 0);  // deleted
  add_si(e, T1, T1, T1, T1);
  add_fn(e, k_root, L"Long|Name.txt", 1, T1, T1, T1, T1);  // times as SI: one row
  add_fn(e, k_root, L"LONGNA~1.TXT", 2, T2, 0, T1, T1);
  add_fn(e, 0x40 | (1ull << 48), L"link.txt", 1, T2, T2, T2, T2, 0x55);  // held by an extension record
  set_path(e, k_root, L"[root]\\");
  e.m_parent_names.erase(0x40 | (1ull << 48));  // no path known for it
  add_data(e, 1, L"", 300);
  e.m_has_md5 = true;
  e.m_md5[0] = 0xab;
  entry_record stub;
  set_header(stub, 7, 1, FR_FLAG_IN_USE);
  add_si(stub, T1, 0, T1, T1);

  for (int hide = 0; hide < 2; ++hide) {
    mft_entries_ctx options;
    options.m_fmt_bodyfile = options.m_no_whitespace = options.m_hash_md5 = 1;
    options.set_separator("|", false);
    options.m_hide_dos_fntimes = uint8_t(hide);
    std::vector<std::string> all = written(options, {&e, &stub}, write_bodyfile);
    const std::string md5 = "ab000000000000000000000000000000";
    std::vector<std::string> expected = {
        "md5|name|inode|mode as string|uid|gid|size|access time|modify time|mft time|create time"};
    // Names in key order (parent, then name): the DOS name before the long one.
    if (!hide) {
      expected.push_back(md5 + "|[root]\\LONGNA~1.TXT (deleted; file; multinames [3]; multiroots [2]; SI times)|42||0|"
                               "0|300|1577934245|1577934245|1577934245|1577934245");
      expected.push_back(md5 + "|[root]\\LONGNA~1.TXT (deleted; file; multinames [3]; multiroots [2]; FN times)|42||0|"
                               "0|300|1577934245|0|1577934245|-1");
    }
    expected.push_back(md5 + "|[root]\\Long;Name.txt (deleted; file; multinames [3]; multiroots [2]; SI & FN times "
                             "match)|42||0|0|300|1577934245|1577934245|1577934245|1577934245");
    expected.push_back(md5 + "|[root]/link.txt (deleted; file; multinames [3]; multiroots [2]; refinode [0x00000055]; "
                             "FN times)|42||0|0|300|-1|-1|-1|-1");
    expected.push_back("0|<no filename attribute> (SI times)|7||0|0|0|1577934245|0|1577934245|1577934245");
    EXPECT_EQ(all, expected);
  }
}

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
