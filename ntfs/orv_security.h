#pragma once
// Security descriptors. $Secure (record 9) keeps every descriptor of the volume once, in its
// named stream $SDS; a file names its descriptor by the security id in its standard information.
//
// $SDS entry, at a multiple of 16: hash u32 at 0, security id u32 at 4, offset of the entry in
// the stream u64 at 8, entry length u32 at 16 (header included), the descriptor from 20. Every
// 256 KiB block is followed by a mirror copy of itself, whose entries keep the offsets of the
// originals.
//
// Self-relative descriptor: revision u8 at 0, control u16 at 2, and the offsets (from the
// descriptor's start, 0 when absent) of the owner SID at 4, group SID at 8, SACL at 12, DACL at 16.
// ACL: revision u8, size u16 at 2, ACE count u16 at 4, ACEs from 8. ACE: type u8 at 0, flags u8
// at 1, size u16 at 2, access mask u32 at 4, SID at 8. SID: revision u8, sub-authority count u8,
// authority in 6 big-endian bytes, then the sub-authorities, u32 each.
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "base/orv_le.h"

class CNtfs;
struct diag_sink;

// One descriptor of $SDS, decoded to text.
struct security_entry {
  uint64_t m_position = 0;  // of the entry in $SDS
  uint64_t m_id = 0;        // security id
  std::string m_owner_sid;
  std::string m_group_sid;
  std::vector<std::string> m_sacl_rows;
  std::vector<std::string> m_dacl_rows;
};

// One row of an ACL: the SID, the short type text, the access masks (" | " between the masks of
// ACEs with equal SID and type) and the well-known name of the SID.
struct ace_line {
  std::string m_sid;
  std::string m_type;
  std::string m_mask;
  std::string m_name;
};

using secure_map = std::map<uint32_t, security_entry>;

// $SDS is not read beyond this: real volumes keep a few MiB of descriptors, and the decoded map
// takes up to some ten times the bytes it comes from.
constexpr uint64_t k_max_sds_bytes = 64ull << 20;

// Fills `map` from the $SDS stream of a validated volume, keyed by security id (the first entry
// of an id in stream order wins). False, with the map empty, when the volume is not validated or
// has no readable $SDS. Entries that do not decode are left out, with a line to `log`.
bool load_secure_map(CNtfs& volume, secure_map& map, const diag_sink* log = nullptr);
// The entries of $SDS bytes in memory added to `map`, as load_secure_map takes them.
void decode_sds(const uint8_t* stream, size_t size, secure_map& map, const diag_sink* log = nullptr);

// Decodes the $SDS entry at `entry`, `length` bytes available there. True when the owner or the
// group SID was rendered. A SID or ACL placed outside the entry is left out, told to `log`.
bool decode_security_entry(security_entry& out, const uint8_t* entry, size_t length, const diag_sink* log = nullptr);

// The ACL at `acl_offset` of `descriptor`, keyed by SID text and type text. False when the ACL or
// one of its ACEs does not lie inside the descriptor (the rows read before it stay).
bool parse_acl(std::map<std::string, ace_line>& rows, orv::byte_span descriptor, uint32_t acl_offset);

// "S-1-5-21-...", empty when the SID does not fit in `length` bytes or `length` is under 12.
void sid_text(std::string& out, const uint8_t* bytes, size_t length);
// Name of a well-known SID or relative id ("Local System", "Admins"), empty for others.
void sid_known_name(std::string& out, orv::byte_span sid);

// Text of a descriptor, each line behind `prefix`: its SIDs, then the rows of SACL and DACL.
void dump_security_descriptor(std::string& out, const uint8_t* descriptor, size_t length, const std::string& prefix);

// Names of the generic and standard rights in `mask`, joined by " | "; empty when none is set.
void access_mask_text(uint32_t mask, std::string& out);
// "ACCESS_ALLOWED_ACE_TYPE" ... , or with `short_form` "access allowed" ...; "unknown" for others.
void ace_type_text(uint8_t type, std::string& out, bool short_form);

// The decoded descriptor of `security_id` on `volume`; null without a volume, without a loaded
// map, or when the map has no such id.
const security_entry* find_security_entry(const CNtfs* volume, uint32_t security_id);
