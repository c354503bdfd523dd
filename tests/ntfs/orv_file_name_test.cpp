// The file name value: parent reference, times, sizes and namespace.
#include <gtest/gtest.h>

#include "ntfs/orv_file_name.h"
#include "tests/test_util.h"

TEST(FileNameValue, FieldsAndNamespaces) {
  const uint64_t parent = orv::make_ref(0xA1B2C3D4E5ull, 0x77);
  const std::vector<uint8_t> value =
      testutil::fn_value(parent, u"report.txt", FN_WIN32, 1, 2, 3, 4, 8192, 5000, 0x20);
  file_name_value fn;
  fn.assign(value.data(), value.size());
  EXPECT_EQ(fn.parent_ref(), parent);
  EXPECT_EQ(fn.parent_number(), 0xA1B2C3D4E5ull);  // no sequence bits in the number
  EXPECT_EQ(fn.parent_sequence(), 0x77u);
  EXPECT_EQ(fn.created(), 1u);
  EXPECT_EQ(fn.modified(), 2u);
  EXPECT_EQ(fn.mft_modified(), 3u);
  EXPECT_EQ(fn.accessed(), 4u);
  EXPECT_EQ(fn.allocated_size(), 8192u);
  EXPECT_EQ(fn.real_size(), 5000u);
  EXPECT_EQ(fn.flags(), 0x20u);
  EXPECT_EQ(fn.name_units(), 10u);
  EXPECT_FALSE(fn.dos_only());

  // Only a namespace that is non-zero and even names no path.
  for (int name_space = 0; name_space < 6; ++name_space) {
    std::vector<uint8_t> v = value;
    v[65] = uint8_t(name_space);
    fn.assign(v.data(), v.size());
    EXPECT_EQ(fn.dos_only(), name_space != 0 && name_space % 2 == 0) << name_space;
  }
}
