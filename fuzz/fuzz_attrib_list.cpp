// An attribute list and the records it points into: the first two bytes give the list's length,
// the list follows, and the rest is cut into 1024-byte records 0, 1, 2, ... that the walk may
// fetch. The walk runs with and without the sequence rule.
#include <cstring>

#include "base/orv_le.h"
#include "fuzz/fuzz_common.h"
#include "ntfs/orv_attrib_list.h"
#include "ntfs/orv_filerec.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2 || size > 262144) return 0;
  const size_t list_length = std::min<size_t>(orv::le16(data), size - 2);
  const uint8_t* list = data + 2;
  const uint8_t* records = list + list_length;
  const size_t record_bytes = size - 2 - list_length;
  for (bool same_sequence : {false, true}) {
    attrib_list_rules rules;
    rules.m_same_sequence = same_sequence;
    size_t seen = 0;
    pull_listed_attributes(
        list, list_length, 0, rules,
        [&](uint64_t number, std::vector<uint8_t>& out) {
          if (number >= record_bytes / 1024) return false;
          out.assign(records + number * 1024, records + number * 1024 + 1024);
          return fixup_record(out.data(), out.size(), fixup_scan) == record_file;
        },
        [&](const uint8_t* record, size_t length, const uint8_t* attribute, uint32_t attribute_length, uint64_t) {
          // What is handed on lies whole inside its record.
          if (attribute < record || attribute + attribute_length > record + length) __builtin_trap();
          seen += attribute_length;
        });
    (void)seen;
  }
  return 0;
}
