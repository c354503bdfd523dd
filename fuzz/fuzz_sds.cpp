// $SDS bytes: the entry walk and every descriptor it decodes, the input read as one entry and as
// one bare descriptor (the dump of a resident security attribute).
#include <cstring>

#include "fuzz/fuzz_common.h"
#include "ntfs/orv_security.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 262144) return 0;
  secure_map map;
  decode_sds(data, size, map);
  // Each entry taken is over 40 bytes and steps to the next multiple of 16.
  if (map.size() > size / 48 + 1) __builtin_trap();
  security_entry entry;
  decode_security_entry(entry, data, size);
  std::string dump;
  dump_security_descriptor(dump, data, size, "  ");
  std::map<std::string, ace_line> rows;
  parse_acl(rows, orv::byte_span(data, size), 0);
  return 0;
}
