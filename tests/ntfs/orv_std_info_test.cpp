// The standard information value in its two forms.
#include <gtest/gtest.h>

#include "ntfs/orv_std_info.h"
#include "tests/test_util.h"

TEST(StandardInformation, LongAndShortForms) {
  const std::vector<uint8_t> value = testutil::si_value(11, 22, 33, 44, 0x20, false, 0x105);
  ASSERT_EQ(value.size(), 72u);
  std::vector<uint8_t> with_usn = value;
  orv::put_le64(with_usn.data() + 64, 0xABCDEF);
  std_info_value si;
  si.assign(with_usn.data(), with_usn.size());
  EXPECT_TRUE(si.created() == 11u && si.modified() == 22u && si.mft_modified() == 33u && si.accessed() == 44u);
  EXPECT_EQ(si.flags(), 0x20u);
  EXPECT_EQ(si.security_id(), 0x105u);
  EXPECT_EQ(si.usn(), 0xABCDEFu);

  // The 48-byte form of NTFS 1.x: the later fields read zero, nothing is read past the value.
  const std::vector<uint8_t> short_form = testutil::si_value(11, 22, 33, 44, 0x20, true, 0x105);
  ASSERT_EQ(short_form.size(), 48u);
  si.assign(short_form.data(), short_form.size());
  EXPECT_TRUE(si.accessed() == 44u && si.security_id() == 0 && si.usn() == 0);
}
