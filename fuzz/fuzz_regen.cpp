// Carving a lost MFT out of an in-memory volume image: the walk over the whole image, the choice
// of one record per number, the store paths, and the volume reading its records through the
// carved table.
#include "analysis/orv_regen_mft.h"
#include "base/orv_string.h"
#include "fuzz/fuzz_common.h"
#include "ntfs/ntfs.h"
#include "storage/orv_raw_disk_io.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > (4u << 20)) return 0;
  fuzz::memory_file file(data, size);
  if (!file.ok()) return 0;
  RAW_DISK_IO disk;
  if (!disk.open_path(orv::to_wide(file.path()), false, 0)) return 0;
  carved_mft table;
  build_mft_image(table, &disk, 0, carve_context());
  std::unique_ptr<CNtfs> volume = open_volume_path(orv::to_wide(file.path()), 0);
  if (!volume || !regen_mft(*volume, carve_context())) return 0;
  std::vector<uint8_t> record;
  for (uint64_t i = 0; i < volume->mft_inode_count() && i < 256; ++i) volume->read_record(i, record);
  return 0;
}
