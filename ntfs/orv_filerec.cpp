#include "ntfs/orv_filerec.h"

#include <cstring>

#include "base/orv_console.h"
#include "base/orv_le.h"
#include "ntfs/orv_record_header.h"
#include "ntfs/orv_record_source.h"

void apply_fixups(uint8_t* buffer, size_t length, uint32_t array_offset, uint32_t count, uint32_t sector_size) {
  if (!buffer || sector_size < 2) return;
  size_t sectors = length / sector_size;
  for (uint32_t i = 1; i < count && i <= sectors; ++i) {
    size_t word = size_t(array_offset) + 2 * size_t(i);
    if (word + 2 > length) break;  // the array itself runs off the buffer
    size_t tail = size_t(i) * sector_size - 2;
    std::memcpy(buffer + tail, buffer + word, 2);
  }
}

int fixup_record(uint8_t* buffer, size_t length, fixup_mode mode) {
  if (!buffer || (mode == fixup_recovery && length < 1024)) return record_refused;
  int kind;
  uint32_t array_offset;
  if (is_valid_filerec(buffer, length)) {
    kind = record_file;
    array_offset = 48;
  } else if (length >= 8 && std::memcmp(buffer, "INDX", 4) == 0) {
    kind = record_index;
    array_offset = orv::le16(buffer + 4);
  } else if (length >= 4 && std::memcmp(buffer, "BAAD", 4) == 0) {
    if (mode == fixup_volume) return record_refused;
    const bool plausible = length >= 8 && orv::le16(buffer + 6) <= 10 && orv::le16(buffer + 4) <= 64;
    if (!plausible) return mode == fixup_scan ? record_baad : record_refused;
    kind = record_baad;
    array_offset = orv::le16(buffer + 4);
  } else {
    return record_refused;
  }
  const uint32_t count = orv::le16(buffer + 6);
  if (count < 2) return kind;
  if (mode == fixup_recovery && uint64_t(count - 1) * k_fixup_stride > length) return record_refused;
  apply_fixups(buffer, length, array_offset, count, k_fixup_stride);
  return kind;
}

bool mft_fixup_read(std::vector<uint8_t>& record, bool& bad, record_source& source, uint64_t inode,
                    const diag_sink& log) {
  bad = false;
  if (!source.read_raw(inode, record) || record.empty()) return false;
  switch (fixup_record(record.data(), record.size(), fixup_scan)) {
    case record_refused:
      return false;
    case record_baad:
      log_line(log, "err: fixup_mft type: BAAD");
      bad = true;
      return true;
    default:
      return true;
  }
}
