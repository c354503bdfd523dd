// Attribute rows of a record on a built volume, and the copy of its unnamed data stream.
#include <gtest/gtest.h>

#include <sstream>

#include "analysis/orv_attrib_rows.h"
#include "ntfs/orv_stream.h"
#include "tests/ntfs/orv_test_volume.h"

using testvol::bytes;
using testvol::extents;

namespace {

struct rows_fixture : ::testing::Test {
  testvol::image m_img{64};
  std::unique_ptr<testvol::image_file> m_file;
  std::unique_ptr<CNtfs> m_vol;

  void SetUp() override {
    extents runs = {{4, 4}};
    m_img.boot();
    m_img.put_record(runs, 0, testvol::mft_record(runs, m_img.cluster()).build());
    for (uint32_t n = 1; n < 16; ++n) m_img.put_record(runs, n, testvol::plain_record(n));
    for (size_t i = 0; i < 2 * 4096; ++i) m_img.m_bytes[30 * 4096 + i] = uint8_t(i * 13 + 5);

    // Record 7: a directory with two links, a named stream before the unnamed one in key order,
    // unnamed data in clusters 30-31, an index root.
    testutil::record_builder rb;
    rb.m_record_number = 7;
    rb.m_sequence = 9;
    rb.m_links = 2;
    rb.m_flags = 3;
    rb.resident(0x10, testutil::si_value(10, 20, 30, 40, 0x21), u"", 0);
    rb.resident(0x30, testutil::fn_value(orv::make_ref(5, 5), u"dir", 1, 11, 21, 31, 41, 4096, 123), u"", 1);
    rb.resident(0x80, {'z', 'o', 'n', 'e'}, u"Zone.Identifier", 2);
    rb.nonresident(0x80, testvol::encode_runs({{30, 2}}), 8192, 5000, 5000, u"", 3);
    rb.resident(0x90, bytes(32, 0x11), u"$I30", 4);
    m_img.put_record(runs, 7, rb.build());
    testutil::record_builder bare;  // record 9: no data stream at all
    bare.m_record_number = 9;
    bare.resident(0x10, testutil::si_value(1, 2, 3, 4));
    m_img.put_record(runs, 9, bare.build());
    m_file.reset(new testvol::image_file(m_img.m_bytes));
    m_vol = m_file->open();
  }
};

}  // namespace

using attrib_rows_test = rows_fixture;

TEST_F(attrib_rows_test, header_rows_then_attributes_in_key_order) {
  ASSERT_TRUE(m_vol);
  std::vector<attrib_row> rows;
  ASSERT_TRUE(list_attribs(*m_vol, 7, rows, true));
  ASSERT_GE(rows.size(), 3u);
  EXPECT_EQ(rows[0].m_type, ROW_RECORD_SUMMARY);
  EXPECT_EQ(rows[0].m_inode, 7u);
  EXPECT_EQ(rows[0].m_sequence, 9u);
  EXPECT_EQ(rows[0].m_record_size, 1024u);
  EXPECT_EQ(rows[0].m_record_bits, 0x2u | 0x4u | (2u << 3));  // in use, directory, two links
  EXPECT_EQ(rows[1].m_type, 0x10u);
  EXPECT_EQ(rows[1].m_times[3], 40u);
  EXPECT_EQ(rows[1].m_file_flags, 0x21u);
  EXPECT_EQ(rows[2].m_type, 0x30u);
  EXPECT_EQ(rows[2].m_name, "dir");
  EXPECT_EQ(rows[2].m_real_size, 123u);

  const attrib_row* named = nullptr;
  const attrib_row* unnamed = nullptr;
  const attrib_row* root = nullptr;
  for (const attrib_row& r : rows) {
    if (r.m_type == 0x80 && r.m_name == "Zone.Identifier") named = &r;
    if (r.m_type == 0x80 && r.m_name.empty()) unnamed = &r;
    if (r.m_type == 0x90) root = &r;
  }
  ASSERT_TRUE(named && unnamed && root);
  EXPECT_LT(named, unnamed);
  EXPECT_FALSE(named->m_non_resident);
  EXPECT_EQ(named->m_value, (bytes{'z', 'o', 'n', 'e'}));
  EXPECT_TRUE(unnamed->m_non_resident);
  EXPECT_EQ(unnamed->m_real_size, 5000u);
  EXPECT_EQ(unnamed->m_allocated_size, 8192u);
  EXPECT_EQ(unnamed->m_inode, 7u);
  ASSERT_EQ(unnamed->m_runs.size(), 1u);
  EXPECT_EQ(unnamed->m_runs[0].m_lcn, 30u);
  EXPECT_EQ(root->m_name, "$I30");
  EXPECT_EQ(root->m_value_length, 32u);

  // Without the header row only the index attributes are listed.
  std::vector<attrib_row> index_rows;
  ASSERT_TRUE(list_attribs(*m_vol, 7, index_rows, false));
  ASSERT_EQ(index_rows.size(), 1u);
  EXPECT_EQ(index_rows[0].m_type, 0x90u);

  EXPECT_FALSE(list_attribs(*m_vol, 40, rows, true));  // past the MFT: the boot area is refused
}

TEST_F(attrib_rows_test, named_data_copy_takes_the_unnamed_stream) {
  ASSERT_TRUE(m_vol);
  std::ostringstream out;
  uint64_t total = 0;
  ASSERT_TRUE(read_named_data(*m_vol, 7, out, copy_options(), total));
  EXPECT_EQ(total, 5000u);
  std::string s = out.str();
  ASSERT_EQ(s.size(), 5000u);
  EXPECT_TRUE(std::equal(s.begin(), s.end(), m_img.m_bytes.begin() + 30 * 4096,
                         [](char a, uint8_t b) { return uint8_t(a) == b; }));

  std::ostringstream resident;
  ASSERT_TRUE(read_named_data(*m_vol, 5, resident, copy_options(), total));
  EXPECT_EQ(total, 16u);
  EXPECT_EQ(uint8_t(resident.str()[0]), uint8_t(5 * 7));

  std::ostringstream none;
  EXPECT_FALSE(read_named_data(*m_vol, 9, none, copy_options(), total));
  EXPECT_EQ(none.str(), "");
}
