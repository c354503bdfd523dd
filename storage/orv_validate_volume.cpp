// Whether a byte offset on a source names a usable NTFS volume, and if not, which offsets do.
// The tool never picks a volume out of a partitioned disk by itself: it lists the rows and
// suggests an -offset.
#include "storage/orv_validate_volume.h"

#include <cinttypes>
#include <cstdio>

#include "storage/orv_disk_structs.h"
#include "storage/orv_raw_disk_io.h"

namespace {

std::string hex(uint64_t value) {
  char text[24];
  snprintf(text, sizeof(text), "%" PRIx64, value);
  return text;
}

void out_of_bounds(std::ostringstream& messages, uint64_t offset) {
  messages << "volume offset 0x" << hex(offset) << " is not within image bounds" << "\n";
}

// End of a row in bytes, saturating: a hostile length must not wrap round to a small end.
uint64_t row_end(const partition_record& row) {
  uint64_t sectors = row.m_start_sector + row.m_sector_count;
  if (sectors < row.m_start_sector) return UINT64_MAX;
  if (row.m_sector_size && sectors > UINT64_MAX / row.m_sector_size) return UINT64_MAX;
  return sectors * row.m_sector_size;
}

}  // namespace

bool validate_volume(std::ostringstream& messages, bool& found, uint64_t& offset, RAW_DISK_IO& disk,
                     bool ignore_image_size) {
  found = false;
  if (!disk.is_open()) return false;
  uint64_t size = disk.size();
  if (offset > size) {
    out_of_bounds(messages, offset);
    return false;
  }

  partition_list list;
  if (!read_partitions(disk, list, false, false)) {
    if (volume_at(disk, 0)) {  // a bare volume
      found = true;
      offset = 0;
      return true;
    }
    if (!read_partitions(disk, list, true, false)) {
      messages << "couldn't find any partitions on disk" << "\n";
      return false;
    }
    messages << "disk is corrupted, partition info questionable" << "\n";
  }
  if (list.empty()) {
    messages << "couldn't find any partitions on disk." << "\n";
    return false;
  }

  uint64_t last_ntfs = 0;
  const partition_record* match = nullptr;
  for (const partition_record& row : list) {
    uint64_t at = row.byte_offset();
    if (at == offset) {
      match = &row;
      break;
    }
    if (partition_is_ntfs(row)) {
      found = true;
      last_ntfs = at;
      if (at > size) out_of_bounds(messages, at);
    }
  }

  if (match && !partition_is_ntfs(*match)) {
    messages << "volume offset selected 0x" << hex(offset) << " is not a NTFS partition, but ["
             << partition_row_name(*match) << "]" << "\n";
  } else if (match) {
    found = true;
    if (!ignore_image_size && row_end(*match) > size) {
      messages << "volume offset 0x" << hex(offset)
               << " is a NTFS partition, however image size does not encapsulate entire volume" << "\n";
      return false;
    }
    return true;
  }

  messages << "\n";
  for (const partition_record& row : list)
    messages << "volume offset [ 0x" << hex(row.byte_offset()) << " ] : " << partition_row_name(row) << "\n";
  messages << "\n";
  if (last_ntfs != 0) {
    offset = last_ntfs;
    messages << "use option [-offset 0x" << hex(offset) << "]" << "\n";
  } else {
    messages << "prob detecting ntfs partition" << "\n";
  }
  return false;
}
