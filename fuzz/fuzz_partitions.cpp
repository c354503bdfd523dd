// Disk layouts from a buffer (the VMDK path), and from an open source through the volume check.
#include <sstream>

#include "base/orv_string.h"
#include "fuzz/fuzz_common.h"
#include "storage/orv_disk_structs.h"
#include "storage/orv_raw_disk_io.h"
#include "storage/orv_validate_volume.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > (2u << 20)) return 0;
  for (bool force : {false, true}) {
    partition_list list;
    read_partitions_buffer(data, size, list, force);
    for (const partition_record& row : list) {
      partition_row_name(row);
      partition_is_ntfs(row);
      row.byte_offset();
    }
  }
  fuzz::memory_file file(data, size);
  if (!file.ok()) return 0;
  RAW_DISK_IO disk;
  if (!disk.open_path(orv::to_wide(file.path()), false, RAW_KIND_FILE)) return 0;
  partition_list list;
  read_partitions(disk, list, true, true);
  std::ostringstream messages;
  bool found = false;
  uint64_t offset = 0;
  validate_volume(messages, found, offset, disk, false);
  offset = 0x100000;
  validate_volume(messages, found, offset, disk, true);
  return 0;
}
