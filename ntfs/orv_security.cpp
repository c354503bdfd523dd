#include "ntfs/orv_security.h"

#include <algorithm>
#include <cstring>

#include "base/orv_console.h"
#include "ntfs/ntfs.h"
#include "ntfs/orv_attrib.h"
#include "ntfs/orv_attrib_list.h"
#include "ntfs/orv_runs.h"
#include "ntfs/orv_stream.h"

namespace {

constexpr uint32_t k_secure_record = 9;
constexpr size_t k_entry_header = 20;       // hash, id, offset, length
constexpr size_t k_descriptor_header = 20;  // revision, control, four offsets
constexpr size_t k_ace_header = 8;          // type, flags, size, mask
// The smallest ACE that can hold a SID (header and a SID of no sub-authority). Anything shorter
// is damage, and walking it would let a few bytes make many rows.
constexpr size_t k_min_ace = k_ace_header + 8;

// Well-known relative ids: the last sub-authority of SIDs with more than one.
struct rid_name {
  uint32_t m_rid;
  const char* m_name;
};
constexpr rid_name k_rids[] = {
    {500, "User Admin"},
    {501, "User Guest"},
    {502, "KRBTGT [key distrib center]"},
    {512, "Domain Admin"},
    {513, "Domain Users"},
    {514, "Domain Guests"},
    {515, "Domain Computers"},
    {516, "Domain Controllers"},
    {517, "Domain Certificate Publishers"},
    {518, "Domain Schema Admins"},
    {519, "Domain Server Admins"},
    {520, "Domain Policy Creater/Owner"},
    {533, "Domain RAS & IAS Servers"},
    {544, "Admins"},
    {545, "Users"},
    {546, "Guests"},
    {547, "Power Users"},
    {548, "Account Operators"},
    {549, "Server Operators"},
    {550, "Print Operators"},
    {551, "Backup Operators"},
    {552, "Replicators"},
    {553, "RAS Services"},
    {554, "Pre Win2k Compatible Access"},
    {555, "Remote Desktop Users"},
    {556, "Network Configuration Operators"},
    {557, "Incoming Trust Forest Builders"},
    {558, "Performance Monitor Users"},
    {559, "Performance Log Users"},
    {560, "Windows Authorization Access Group"},
    {561, "Terminal Server License Servers"},
};

// SIDs of one sub-authority under the creator authority (S-1-3-n) and the NT authority (S-1-5-n).
constexpr rid_name k_creator_names[] = {{0, "Owner"}, {1, "Group"}, {2, "Owner Server"}, {3, "Group Server"}};
constexpr rid_name k_nt_names[] = {
    {1, "Dialup"},
    {2, "Network"},
    {3, "Batch"},
    {4, "Interactive"},
    {5, "Logon Ids"},
    {6, "Service"},
    {7, "Anonymous Logon"},
    {8, "Proxy"},
    {9, "Server Logon [Domain Controllers]"},
    {10, "Principal Self"},
    {11, "Authenticated User"},
    {12, "Restricted Code"},
    {13, "Terminal Server Users"},
    {18, "Local System"},
    {19, "Local Service"},
    {20, "Network Service"},
    {21, "NT Non Unique"},
    {32, "Builtin Domain"},
};

template <size_t N>
const char* name_of(const rid_name (&table)[N], uint32_t id) {
  for (const rid_name& r : table)
    if (r.m_rid == id) return r.m_name;
  return nullptr;
}

struct mask_name {
  uint32_t m_bit;
  const char* m_name;
};
constexpr mask_name k_masks[] = {
    {0x80000000, "GENERIC_READ"},
    {0x40000000, "GENERIC_WRITE"},
    {0x20000000, "GENERIC_EXECUTE"},
    {0x10000000, "GENERIC_ALL"},
    {0x10000, "DELETE"},
    {0x20000, "READ_CONTROL"},
    {0x40000, "WRITE_DAC"},
    {0x80000, "WRITE_OWNER"},
    {0x100000, "SYNCHRONIZE"},
    {0x1000000, "ACCESS_SYSTEM_SECURITY"},
    {0x2000000, "MAXIMUM_ALLOWED"},
};

// ACE types 0 to 8, long and short texts.
const char* const k_ace_texts[9][2] = {
    {"ACCESS_ALLOWED_ACE_TYPE", "access allowed"},
    {"ACCESS_DENIED_ACE_TYPE", "access denied"},
    {"SYSTEM_AUDIT_ACE_TYPE", "system audit"},
    {"SYSTEM_ALARM_ACE_TYPE", "system alarm"},
    {"ACCESS_ALLOWED_COMPOUND_ACE_TYPE", "access allowed"},
    {"ACCESS_ALLOWED_OBJECT_ACE_TYPE", "access allowed"},
    {"ACCESS_DENIED_OBJECT_ACE_TYPE", "access denied"},
    {"SYSTEM_AUDIT_OBJECT_ACE_TYPE", "system audit"},
    {"SYSTEM_ALARM_OBJECT_ACE_TYPE", "system alarm"},
};

void pad_to(std::string& out, const std::string& text, size_t width) {
  out.append(text);
  if (text.size() < width) out.append(width - text.size(), ' ');
}

// "type name mask": type and name left-justified in 15 characters.
void append_ace_row(std::string& out, const ace_line& line) {
  pad_to(out, line.m_type, 15);
  out.push_back(' ');
  pad_to(out, line.m_name, 15);
  out.push_back(' ');
  out.append(line.m_mask);
}

// The SID at `offset` of the descriptor; false when the offset or the SID lies outside it.
bool sid_at(std::string& out, orv::byte_span descriptor, uint32_t offset) {
  out.clear();
  if (offset >= descriptor.m_size) return false;
  sid_text(out, descriptor.at(offset), descriptor.m_size - offset);
  return !out.empty();
}

// Rows of the ACL at `offset` in key order; false when it was cut short.
bool acl_rows(std::vector<std::string>& rows, orv::byte_span descriptor, uint32_t offset) {
  std::map<std::string, ace_line> lines;
  bool whole = parse_acl(lines, descriptor, offset);
  for (const auto& kv : lines) {
    rows.emplace_back();
    append_ace_row(rows.back(), kv.second);
  }
  return whole;
}

// The named $DATA "$SDS" inside one record.
bool is_sds(const uint8_t* attribute, uint32_t length) {
  static const uint8_t k_name[8] = {'$', 0, 'S', 0, 'D', 0, 'S', 0};
  attrib_view view(orv::byte_span(attribute, length));
  return view.type() == AT_DATA && view.name_length() == 4 && view.m_bytes.has(view.name_offset(), 8) &&
         std::memcmp(view.m_bytes.at(view.name_offset()), k_name, 8) == 0;
}

// Where $SDS lies: its run list (extents in other records merged in through the attribute list)
// and size, or its value when resident.
struct sds_place {
  data_run_list m_runs;
  uint64_t m_size = 0;
  std::vector<uint8_t> m_value;
  bool m_found = false;
};

void take_sds_extent(const uint8_t* attribute, uint32_t length, sds_place& place) {
  attrib_view view(orv::byte_span(attribute, length));
  if (!view.non_resident()) {
    if (place.m_found) return;
    orv::byte_span value = view.value();
    place.m_value.assign(value.m_data, value.m_data + value.m_size);
    place.m_size = value.m_size;
    place.m_found = true;
    return;
  }
  data_run_list runs;
  if (!attribute_run_list(attribute, length, runs)) return;
  if (view.first_vcn() == 0) place.m_size = view.real_size();
  merge_run_lists(place.m_runs, runs);
  place.m_found = true;
}

void find_sds(CNtfs& volume, const std::vector<uint8_t>& record, sds_place& place) {
  const uint8_t* list_attr = nullptr;
  uint32_t list_length = 0;
  attrib_walk_rules rules;
  rules.m_limit = uint32_t(record.size());
  walk_attributes(record.data(), record.size(), orv::le16(record.data() + 20), rules,
                  [&](const uint8_t* a, uint32_t length, size_t at) {
                    if (length > record.size() - at) return false;
                    if (orv::le32(a) == AT_ATTRIBUTE_LIST && !list_attr) {
                      list_attr = a;
                      list_length = length;
                    }
                    if (is_sds(a, length)) take_sds_extent(a, length, place);
                    return true;
                  });
  if (!list_attr) return;
  attrib_view view(orv::byte_span(list_attr, list_length));
  std::vector<uint8_t> stored;
  orv::byte_span list = view.non_resident() ? orv::byte_span() : view.value();
  if (view.non_resident() && read_attrib_list_value(volume, view.m_bytes, stored))
    list = orv::byte_span(stored.data(), stored.size());
  attrib_list_rules list_rules;
  list_rules.m_same_sequence = true;
  pull_listed_attributes(
      list.m_data, list.m_size, k_secure_record, list_rules,
      [&volume](uint64_t number, std::vector<uint8_t>& out) { return volume.read_record(number, out); },
      [&place](const uint8_t*, size_t, const uint8_t* attribute, uint32_t length, uint64_t) {
        if (is_sds(attribute, length)) take_sds_extent(attribute, length, place);
      });
}

}  // namespace

void sid_text(std::string& out, const uint8_t* bytes, size_t length) {
  out.clear();
  if (!bytes || length <= 11) return;
  const size_t count = bytes[1];
  if (length < (count + 2) * 4) return;
  out.append("S-");
  out.append(std::to_string(bytes[0]));
  out.push_back('-');
  out.append(std::to_string(bytes[7]));  // only the lowest byte of the big-endian authority
  for (size_t i = 0; i < count; ++i) {
    out.push_back('-');
    out.append(std::to_string(orv::le32(bytes + 8 + 4 * i)));
  }
}

void sid_known_name(std::string& out, orv::byte_span sid) {
  out.clear();
  const size_t count = sid.u8(1);
  if (count == 0 || !sid.has(8, count * 4)) return;
  const char* name = nullptr;
  if (count != 1) {
    name = name_of(k_rids, sid.u32(8 + 4 * (count - 1)));
  } else {
    switch (sid.u8(7)) {
      case 0: name = "null"; break;
      case 1: name = "World"; break;
      case 2: name = "Local"; break;
      case 3: name = name_of(k_creator_names, sid.u32(8)); break;
      case 5: name = name_of(k_nt_names, sid.u32(8)); break;
      default: break;
    }
  }
  if (name) out.assign(name);
}

void access_mask_text(uint32_t mask, std::string& out) {
  out.clear();
  for (const mask_name& m : k_masks)
    if (mask & m.m_bit) out.append(m.m_name).append(" | ");
  if (!out.empty()) out.resize(out.size() - 3);
}

void ace_type_text(uint8_t type, std::string& out, bool short_form) {
  out.assign(type < 9 ? k_ace_texts[type][short_form ? 1 : 0] : "unknown");
}

bool parse_acl(std::map<std::string, ace_line>& rows, orv::byte_span descriptor, uint32_t acl_offset) {
  if (!descriptor.has(acl_offset, 8)) return false;
  const uint16_t count = descriptor.u16(size_t(acl_offset) + 4);
  size_t pos = size_t(acl_offset) + 8;
  ace_line line;
  std::string key;
  for (uint16_t i = 0; i < count; ++i) {
    const size_t size = descriptor.u16(pos + 2);
    if (size < k_min_ace || !descriptor.has(pos, size)) return false;
    orv::byte_span sid = descriptor.sub(pos + k_ace_header, size - k_ace_header);
    const size_t sid_length = (size_t(sid.u8(1)) + 2) * 4;
    ace_type_text(descriptor.u8(pos), line.m_type, true);
    access_mask_text(descriptor.u32(pos + 4), line.m_mask);
    sid_text(line.m_sid, sid.m_data, std::min(sid_length, sid.m_size));
    sid_known_name(line.m_name, sid);
    key = line.m_sid + line.m_type;
    auto found = rows.find(key);
    if (found == rows.end())
      rows.emplace(key, line);
    else
      found->second.m_mask.append(" | ").append(line.m_mask);
    pos += size;
  }
  return true;
}

bool decode_security_entry(security_entry& out, const uint8_t* entry, size_t length, const diag_sink* log) {
  out = security_entry();
  orv::byte_span bytes(entry, length);
  const uint32_t own = bytes.u32(16);
  if (!entry || own > length || own < k_entry_header + k_descriptor_header) {
    if (log && entry) log_line(*log, "err: sds entry length 0x%x of 0x%zx bytes", own, length);
    return false;
  }
  out.m_position = bytes.u64(8);
  out.m_id = bytes.u32(4);
  const orv::byte_span descriptor = bytes.sub(k_entry_header, own - k_entry_header);
  auto tell = [&](const char* what, uint32_t offset) {
    if (log)
      log_line(*log, "err: sds entry at 0x%llx id 0x%llx: %s at 0x%x outside its 0x%zx bytes",
               (unsigned long long)out.m_position, (unsigned long long)out.m_id, what, offset, descriptor.m_size);
  };
  const uint32_t owner = descriptor.u32(4), group = descriptor.u32(8);
  if (owner && !sid_at(out.m_owner_sid, descriptor, owner)) tell("owner sid", owner);
  if (group && !sid_at(out.m_group_sid, descriptor, group)) tell("group sid", group);
  const uint32_t sacl = descriptor.u32(12), dacl = descriptor.u32(16);
  if (sacl && !acl_rows(out.m_sacl_rows, descriptor, sacl)) tell("sacl", sacl);
  if (dacl && !acl_rows(out.m_dacl_rows, descriptor, dacl)) tell("dacl", dacl);
  return !out.m_owner_sid.empty() || !out.m_group_sid.empty();
}

void dump_security_descriptor(std::string& out, const uint8_t* descriptor, size_t length, const std::string& prefix) {
  const orv::byte_span bytes(descriptor, length);
  out.append(prefix).append("Security Identifiers\n");
  std::string sid;
  const struct {
    uint32_t m_offset;
    const char* m_label;
  } sids[] = {{bytes.u32(4), "owner sid ["}, {bytes.u32(8), "group sid ["}};
  for (const auto& s : sids) {
    if (!s.m_offset) continue;
    sid_at(sid, bytes, s.m_offset);
    out.append(prefix).append(s.m_label).append(sid).append("]\n");
  }
  const struct {
    uint32_t m_offset;
    const char* m_title;
  } acls[] = {{bytes.u32(12), "System Access Control List"}, {bytes.u32(16), "Discretionary Access Control List"}};
  for (const auto& a : acls) {
    std::vector<std::string> rows;
    if (!a.m_offset) continue;
    acl_rows(rows, bytes, a.m_offset);
    if (rows.empty()) continue;
    out.append("\n").append(prefix).append(a.m_title).append("\n");
    for (const std::string& row : rows) out.append(prefix).append(row).append("\n");
  }
}

bool load_secure_map(CNtfs& volume, secure_map& map, const diag_sink* log) {
  map.clear();
  if (!volume.validated()) return false;
  std::vector<uint8_t> record;
  sds_place place;
  if (volume.read_record(k_secure_record, record)) find_sds(volume, record, place);
  if (!place.m_found) {
    if (log) log_line(*log, "err: no $SDS in record 9");
    return false;
  }
  std::vector<uint8_t> stream = std::move(place.m_value);
  uint64_t size = place.m_size;
  if (size > k_max_sds_bytes) {
    if (log) log_line(*log, "err: $SDS of 0x%llx bytes read up to 0x%llx", (unsigned long long)size,
                      (unsigned long long)k_max_sds_bytes);
    size = k_max_sds_bytes;
  }
  if (stream.empty() && (size == 0 || !read_stream_bytes(volume, place.m_runs, size, stream))) {
    if (log) log_line(*log, "err: $SDS cannot be read");
    return false;
  }
  decode_sds(stream.data(), stream.size(), map, log);
  if (log) log_line(*log, "info: $SDS of 0x%zx bytes gives %zu descriptors", stream.size(), map.size());
  return true;
}

void decode_sds(const uint8_t* stream, size_t size, secure_map& map, const diag_sink* log) {
  // An entry counts where its own offset field names the place it stands; anything else (the
  // mirror halves, damage) is passed 16 bytes at a time.
  const orv::byte_span sds(stream, size);
  security_entry decoded;
  for (uint64_t p = 0; p < sds.m_size;) {
    const uint32_t length = sds.u32(size_t(p) + 16);
    if (sds.u64(size_t(p) + 8) != p || length <= 40 || length > sds.m_size - p) {
      p += 16;
      continue;
    }
    if (decode_security_entry(decoded, sds.at(size_t(p)), length, log))
      map.emplace(uint32_t(decoded.m_id), std::move(decoded));
    p += (uint64_t(length) + 15) & ~uint64_t(15);
  }
}

const security_entry* find_security_entry(const CNtfs* volume, uint32_t security_id) {
  if (!volume || !volume->m_secure_loaded) return nullptr;
  auto found = volume->m_secure_map.find(security_id);
  return found == volume->m_secure_map.end() ? nullptr : &found->second;
}
