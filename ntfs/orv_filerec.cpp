#include "ntfs/orv_filerec.h"

#include <cstring>

#include "base/orv_console.h"
#include "base/orv_le.h"
#include "ntfs/orv_mft_file_reader.h"
#include "ntfs/ntfs.h"
#include "run/mft_entries_ctx.h"

using orv::le16;

bool is_valid_filerec(const uint8_t* buffer, size_t length) {
  if (!buffer || length < 22) return false;
  return std::memcmp(buffer, "FILE", 4) == 0 && le16(buffer + 4) == 48 && le16(buffer + 6) <= 9 &&
         le16(buffer + 20) < 73;
}

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

// The record size of an extracted $MFT is learnt from its first record: (count - 1) sectors.
static bool settle_mftfile_record_size(mft_entries_ctx& ctx) {
  ctx.m_record_size_known = 1;
  std::vector<uint8_t> first;
  if (!ctx.m_mftfile->read(first, ctx.record_size(), 0) || first.size() < 8) return false;
  uint16_t count = le16(first.data() + 6);
  if (count == 0) return false;
  // Records are 1 or 4 KiB; a size past 64 KiB (up to 32 MiB from a count of 65535) is damage,
  // and is refused like a count of 0 rather than read and walked for every record.
  uint64_t size = uint64_t(count - 1) * ctx.m_sector_size;
  if (size > 65536) return false;
  ctx.m_record_size = uint32_t(size);
  return true;
}

bool mft_fixup_read(std::vector<uint8_t>& record, bool& bad, mft_entries_ctx& ctx, uint64_t inode) {
  bad = false;
  if (ctx.m_mftfile) {
    if (!ctx.m_record_size_known && !settle_mftfile_record_size(ctx)) return false;
    uint64_t size = ctx.record_size();
    if (inode > UINT64_MAX / size) return false;
    if (!ctx.m_mftfile->read(record, size, size * inode)) return false;
  } else if (ctx.m_volume && ctx.m_volume->validated()) {
    CNtfs& volume = *ctx.m_volume;
    if (!ctx.m_record_size_known) {
      ctx.m_record_size_known = 1;
      ctx.m_record_size = volume.record_size();
      ctx.m_sector_size = volume.sector_size();
    }
    if (!volume.read_record_raw(inode, record)) return false;
  } else {
    return false;
  }
  if (record.empty()) return false;

  uint8_t* buf = record.data();
  size_t len = record.size();
  uint32_t array_offset = 0, count = 0;
  if (is_valid_filerec(buf, len)) {
    array_offset = 48;
    count = le16(buf + 6);
  } else if (len >= 8 && std::memcmp(buf, "INDX", 4) == 0) {
    array_offset = le16(buf + 4);
    count = le16(buf + 6);
  } else if (len >= 4 && std::memcmp(buf, "BAAD", 4) == 0) {
    log_line(ctx, "err: fixup_mft type: BAAD");
    bad = true;
    return true;
  } else {
    return false;
  }
  if (count < 2) return true;
  apply_fixups(buf, len, array_offset, count, ctx.m_sector_size ? ctx.m_sector_size : 512);
  return true;
}

int fixup_raw(uint8_t* buffer, size_t length, uint32_t sector_size, bool recovery) {
  if (!buffer || length < 1024) return 0;
  if (sector_size < 2) sector_size = 512;
  int type = 0;
  uint32_t array_offset = le16(buffer + 4), count = le16(buffer + 6);
  if (is_valid_filerec(buffer, length)) {
    type = 1;
  } else if (std::memcmp(buffer, "INDX", 4) == 0) {
    type = 2;
  } else if (std::memcmp(buffer, "BAAD", 4) == 0) {
    if (count > 10) return 0;
    if (recovery && array_offset > 64) return 0;
    type = 3;
  } else {
    return 0;
  }
  if (count < 2) return type;
  if (uint64_t(count - 1) * sector_size > length) return 0;
  apply_fixups(buffer, length, array_offset, count, sector_size);
  return type;
}
