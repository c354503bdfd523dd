// Records damaged on purpose: each case is the smallest input that once broke decoding (undefined
// behaviour, a read out of bounds, a hang), rebuilt here in memory.
#include <gtest/gtest.h>

#include "analysis/entry_record.h"
#include "analysis/mft_scan.h"
#include "base/orv_le.h"
#include "run/mft_entries_ctx.h"
#include "tests/mft_fixture.h"

using namespace testutil;

namespace {

std::vector<uint8_t> attribute_bytes(uint32_t type, uint32_t length, uint16_t id) {
  std::vector<uint8_t> a(length, 0);
  orv::put_le32(a.data(), type);
  orv::put_le32(a.data() + 4, length);
  orv::put_le16(a.data() + 14, id);
  return a;
}

}  // namespace

TEST(HostileInput, EmptyRecordIsRefused) {
  mft_entries_ctx ctx;
  entry_record entry;
  std::vector<uint8_t> none;
  EXPECT_FALSE(select_record(entry, none, 1024, 7, ctx));
}
