// Attribute rows of a record on a built volume, and the copy of its unnamed data stream. Stream
// contents of real volumes are compared with icat in tests/integration/stream_test.cpp.
#include <gtest/gtest.h>

#include <sstream>

#include "analysis/orv_attrib_rows.h"
#include "tests/ntfs/orv_test_volume.h"

TEST(AttribRows, RowsOfARecordAndItsUnnamedData) {
  // Record 7: a directory with two links, a named stream before the unnamed one in key order,
  // unnamed data of 5000 bytes in clusters 30-31, an index root.
  testvol::image img(64);
  testvol::extents runs = {{4, 4}};
  img.boot();
  img.put_record(runs, 0, testvol::mft_record(runs, img.cluster()).build());
  testutil::record_builder rb;
  rb.m_links = 2, rb.m_flags = 3;
  rb.resident(0x10, testutil::si_value(10, 20, 30, 40, 0x21))
      .resident(0x30, testutil::fn_value(orv::make_ref(5, 5), u"dir", 1, 11, 21, 31, 41, 4096, 123))
      .resident(0x80, {'z', 'o', 'n', 'e'}, u"Zone.Identifier")
      .nonresident(0x80, testvol::encode_runs({{30, 2}}), 8192, 5000, 5000)
      .resident(0x90, testvol::bytes(32, 0x11), u"$I30");
  img.put_record(runs, 7, rb.build());
  img.m_bytes[30 * 4096] = 'x';
  testvol::image_file file(img.m_bytes);
  std::unique_ptr<CNtfs> vol = file.open();
  ASSERT_TRUE(vol);

  std::vector<attrib_row> rows, index_rows;
  ASSERT_TRUE(list_attribs(*vol, 7, rows, true));
  ASSERT_EQ(rows.size(), 6u);
  EXPECT_EQ(rows[0].m_type, ROW_RECORD_SUMMARY);
  EXPECT_EQ(rows[0].m_record_bits, 0x2u | 0x4u | (2u << 3));  // in use, directory, two links
  ASSERT_TRUE(list_attribs(*vol, 7, index_rows, false));      // without the header rows: the index attributes
  ASSERT_EQ(index_rows.size(), 1u);
  EXPECT_EQ(index_rows[0].m_type, 0x90u);
  EXPECT_FALSE(list_attribs(*vol, 40, rows, true));  // past the $MFT: the boot area is refused
  std::ostringstream out;
  uint64_t total = 0;
  ASSERT_TRUE(read_unnamed_data(*vol, 7, out, copy_options(), total));
  EXPECT_EQ(total, 5000u);
  EXPECT_EQ(out.str(), "x" + std::string(4999, '\0'));
}
