// Security descriptors built in memory: SIDs, ACLs and $SDS entries, sound and damaged, and the
// map of a small volume's $SDS.
#include <gtest/gtest.h>

#include "ntfs/orv_security.h"
#include "tests/ntfs/orv_test_volume.h"

using testvol::bytes;
using testvol::extents;

namespace {

bytes sid(uint8_t authority, std::initializer_list<uint32_t> subs) {
  bytes b(8 + 4 * subs.size(), 0);
  b[0] = 1;
  b[1] = uint8_t(subs.size());
  b[7] = authority;
  size_t at = 8;
  for (uint32_t s : subs) orv::put_le32(&b[at], s), at += 4;
  return b;
}
const bytes k_system = sid(5, {18}), k_admins = sid(5, {32, 544}), k_world = sid(1, {0});
const bytes k_user = sid(5, {21, 1, 2, 3, 1013}), k_admin = sid(5, {21, 1, 2, 3, 500});

bytes ace(uint8_t type, uint32_t mask, const bytes& who) {
  bytes b = {type, 0, uint8_t(8 + who.size()), 0, 0, 0, 0, 0};
  orv::put_le32(&b[4], mask);
  b.insert(b.end(), who.begin(), who.end());
  return b;
}

bytes acl(std::initializer_list<bytes> aces) {
  bytes b = {2, 0, 0, 0, uint8_t(aces.size()), 0, 0, 0};
  for (const bytes& a : aces) b.insert(b.end(), a.begin(), a.end());
  orv::put_le16(&b[2], uint16_t(b.size()));
  return b;
}

// A self-relative descriptor: header, then owner, group, SACL and DACL where given.
bytes descriptor(const bytes& owner, const bytes& group, const bytes& sacl, const bytes& dacl) {
  bytes b(20, 0);
  b[0] = 1;
  const bytes* parts[] = {&owner, &group, &sacl, &dacl};
  for (int i = 0; i < 4; ++i) {
    if (parts[i]->empty()) continue;
    orv::put_le32(&b[4 + 4 * i], uint32_t(b.size()));
    b.insert(b.end(), parts[i]->begin(), parts[i]->end());
  }
  return b;
}

// An $SDS entry of `id` standing at `position`.
bytes sds_entry(uint32_t id, uint64_t position, const bytes& desc) {
  bytes b(20, 0);
  orv::put_le32(&b[4], id);
  orv::put_le64(&b[8], position);
  orv::put_le32(&b[16], uint32_t(20 + desc.size()));
  b.insert(b.end(), desc.begin(), desc.end());
  return b;
}

}  // namespace

// One entry (six ACEs, two of equal SID and type joined: five rows), and offsets and counts that
// point outside it, which must end a lookup quietly. (Real owners: integration/owner_test.cpp.)
TEST(SecurityDescriptor, EntriesDecodeAndDamageStaysInside) {
  const bytes dacl = acl({ace(0, 0x1F01FF, k_admins), ace(0, 0x80000000, k_admins), ace(1, 0x10000, k_world),
                          ace(0, 0x120089, k_system), ace(0, 0x10000000, k_user), ace(9, 0, k_admin)});
  const bytes sacl = acl({ace(2, 0x1000000, sid(3, {1}))});
  const bytes good = sds_entry(0x101, 0x40, descriptor(k_system, k_admins, sacl, dacl));
  auto patched = [&](size_t at, uint32_t value, size_t width = 4) {
    bytes b = good;
    for (size_t i = 0; i < width; ++i) b[at + i] = uint8_t(value >> (8 * i));
    return b;
  };
  const size_t dacl_at = 20 + 20 + k_system.size() + k_admins.size() + sacl.size();
  // Rows of the SACL and the DACL; -1 where the damage leaves them unchecked.
  struct decode_case { const char* what; bytes entry; bool ok; const char *owner, *group; int sacl, dacl; };
  const decode_case cases[] = {
      {"sound", good, true, "S-1-5-18", "S-1-5-32-544", 1, 5},
      {"owner outside", patched(24, 0x1000), true, "", "S-1-5-32-544", 1, -1},
      {"owner with 200 sub-authorities", patched(41, 200, 1), true, "", "S-1-5-32-544", -1, -1},
      {"ace count far beyond the acl", patched(dacl_at + 4, 0xFFFF, 2), true, "S-1-5-18", "S-1-5-32-544", -1, 5},
      {"ace of size 0", patched(dacl_at + 8 + 2, 0, 2), true, "S-1-5-18", "S-1-5-32-544", -1, 0},
      {"entry longer than its bytes", patched(16, uint32_t(good.size() + 1)), false, "", "", -1, -1},
      {"entry too short for a descriptor", patched(16, 39), false, "", "", -1, -1},
  };
  for (const decode_case& c : cases) {
    SCOPED_TRACE(c.what);
    security_entry e;
    EXPECT_EQ(decode_security_entry(e, c.entry.data(), c.entry.size()), c.ok);
    EXPECT_EQ(e.m_owner_sid, c.owner);
    EXPECT_EQ(e.m_group_sid, c.group);
    EXPECT_TRUE(c.sacl < 0 || e.m_sacl_rows.size() == size_t(c.sacl));
    EXPECT_TRUE(c.dacl < 0 || e.m_dacl_rows.size() == size_t(c.dacl));
    EXPECT_EQ(e.m_id, c.ok ? 0x101u : 0u);
  }
  // A descriptor whose ACL lies in its last bytes: the rows read before the damage stay.
  std::map<std::string, ace_line> rows;
  const bytes cut = descriptor({}, {}, {}, acl({ace(0, 0x10000, k_world), ace(0, 0x20000, k_system)}));
  EXPECT_FALSE(parse_acl(rows, orv::byte_span(cut.data(), cut.size() - 1), 20));
  EXPECT_EQ(rows.size(), 1u);
}

// A volume whose $Secure:$SDS holds good entries among what must be passed over: an entry of 40
// bytes, one whose offset field names another place, and a second entry of a known id.
TEST(SecurityDescriptor, VolumeMapTakesEachIdOnceFromSds) {
  const extents mft = {{4, 4}};
  testvol::image img(64);
  img.boot();
  img.put_record(mft, 0, testvol::mft_record(mft, img.cluster()).build());
  bytes sds(0x2000, 0);
  auto place = [&](uint64_t at, const bytes& entry) { std::copy(entry.begin(), entry.end(), sds.begin() + long(at)); };
  const bytes small = descriptor(k_system, {}, {}, {});
  place(0x00, sds_entry(0x100, 0x00, descriptor(k_system, k_admins, {}, {})));
  place(0x40, sds_entry(0x200, 0x40, bytes(20, 0)));                     // 40 bytes: passed by 16
  place(0x50, sds_entry(0x101, 0x50, descriptor(k_user, {}, {}, {})));
  place(0xA0, sds_entry(0x102, 0x1234, small));                         // lies about its place
  place(0xE0, sds_entry(0x100, 0xE0, descriptor(k_world, {}, {}, {}))); // the first 0x100 wins
  std::copy(sds.begin(), sds.begin() + 0x100, sds.begin() + 0x1000);    // the mirror half: offsets of the first
  place(0x1100, sds_entry(0x103, 0x1100, small));
  testutil::record_builder secure;
  secure.m_record_number = 9;
  secure.resident(0x10, testutil::si_value(1, 2, 3, 4, 0x6, false, 0x101));
  secure.nonresident(0x80, testvol::encode_runs({{20, 2}}), 0x2000, 0x2000, 0x2000, u"$SDS");
  img.put_record(mft, 9, secure.build());
  img.put(20 * img.cluster(), sds);
  testvol::image_file file(img.m_bytes);
  std::unique_ptr<CNtfs> volume = file.open();
  ASSERT_TRUE(volume);
  EXPECT_EQ(find_security_entry(volume.get(), 0x100), nullptr);  // not loaded yet
  ASSERT_TRUE(volume->ensure_secure_map());
  std::map<uint32_t, std::string> owners;
  for (const auto& kv : volume->m_secure_map) owners[kv.first] = kv.second.m_owner_sid;
  EXPECT_EQ(owners, (std::map<uint32_t, std::string>{
                        {0x100, "S-1-5-18"}, {0x101, "S-1-5-21-1-2-3-1013"}, {0x103, "S-1-5-18"}}));
  EXPECT_EQ(volume->m_secure_map.at(0x101).m_position, 0x50u);
}
