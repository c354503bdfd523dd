// Attribute lists: entries read from bytes, and the attributes they place in other records.
#include <gtest/gtest.h>
#include <map>

#include "ntfs/orv_attrib_list.h"
#include "tests/ntfs/orv_test_volume.h"

using testvol::bytes;

namespace {

bytes list_entry(uint32_t type, uint64_t holder, uint16_t sequence, uint16_t id, uint16_t length = 32) {
  return testutil::list_entry(type, orv::make_ref(holder, sequence), id, length);
}

// Records held in memory; each pull reports "holder:type:id" of what it was handed.
struct records {
  std::map<uint64_t, bytes> m_records;
  int m_fetches = 0;

  std::string pull(const bytes& list, uint64_t base, bool same_sequence) {
    attrib_list_rules rules;
    rules.m_same_sequence = same_sequence;
    std::string seen;
    pull_listed_attributes(
        list.data(), list.size(), base, rules,
        [this](uint64_t number, std::vector<uint8_t>& out) {
          ++m_fetches;
          auto found = m_records.find(number);
          if (found == m_records.end()) return false;
          out = found->second;
          return true;
        },
        [&](const uint8_t*, size_t, const uint8_t* attribute, uint32_t, uint64_t holder) {
          seen += std::to_string(holder) + ":" + std::to_string(orv::le32(attribute)) + ":" +
                  std::to_string(orv::le16(attribute + 14)) + " ";
        });
    return seen;
  }
};

bytes extension(uint16_t sequence, std::initializer_list<std::pair<uint32_t, int>> attributes) {
  testutil::record_builder b;
  b.m_sequence = sequence;
  b.m_base_ref = orv::make_ref(40, 1);
  for (const auto& a : attributes) b.resident(a.first, {1, 2, 3, 4}, u"", a.second);
  return b.build(false);
}

}  // namespace

TEST(AttributeList, PullsEachListedAttributeOnceAndDamageEndsTheWalk) {
  using testutil::cat;
  records r;
  r.m_records[41] = extension(2, {{0x30, 3}, {0x80, 5}});
  r.m_records[42] = extension(1, {{0x80, 0}});
  r.m_records[43] = r.m_records[41];
  std::memcpy(r.m_records[43].data(), "BAAD", 4);
  // The base's own entry, two from 41, one from 42 (whose sequence the list gives wrongly), one
  // naming an id that 41 does not hold, and the first one over and over, as a damaged list can.
  bytes repeated = cat({list_entry(0x10, 40, 1, 0), list_entry(0x30, 41, 2, 3), list_entry(0x80, 41, 2, 5),
                        list_entry(0x80, 42, 7, 0), list_entry(0x80, 41, 2, 9)});
  for (int i = 0; i < 500; ++i) repeated = cat({repeated, list_entry(0x30, 41, 2, 3)});
  struct pull_case { const char* m_what; bytes m_list; bool m_same_sequence; const char* m_seen; } const cases[] = {
      {"repeated entries", repeated, false, "41:48:3 41:128:5 42:128:0 "},
      {"$MFT's own extents are never taken from a reused record", repeated, true, "41:48:3 41:128:5 "},
      // Stepping by an entry shorter than its own header would read a record for nearly every byte.
      {"an entry shorter than its header ends the list",
       cat({list_entry(0x30, 41, 2, 7, 10), list_entry(0x80, 41, 2, 5)}), false, ""},
      {"an entry longer than what is left is taken, then the walk ends", list_entry(0x80, 41, 2, 5, 4000), false,
       "41:128:5 "},
      {"a holder that is no FILE record, or cannot be read",
       cat({list_entry(0x80, 43, 2, 5), list_entry(0x80, 44, 2, 5)}), false, ""},
      {"no entry at all", bytes(20, 0xFF), false, ""},
  };
  for (const pull_case& c : cases) {
    r.m_fetches = 0;
    EXPECT_EQ(r.pull(c.m_list, 40, c.m_same_sequence), c.m_seen) << c.m_what;
    EXPECT_LE(r.m_fetches, 4) << c.m_what;  // consecutive entries naming one record read it once
  }
}
