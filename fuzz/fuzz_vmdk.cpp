// A sparse VMDK file from the input: the chain check, the disk opened as a source, and reads at
// the start, across a grain boundary and near the end.
#include <sstream>

#include "base/orv_string.h"
#include "fuzz/fuzz_common.h"
#include "storage/orv_raw_disk_io.h"
#include "storage/orv_validate_volume.h"
#include "storage/orv_vmdk.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > (4u << 20)) return 0;
  fuzz::memory_file file(data, size);
  if (!file.ok()) return 0;
  const std::vector<std::wstring> list = {orv::to_wide(file.path())};
  std::ostringstream messages;
  std::vector<std::wstring> suggested;
  validate_vmdk_list(list, messages, suggested);
  RAW_DISK_IO disk;
  if (!disk.open_vmdk(list, false)) return 0;
  std::vector<uint8_t> buffer(70000);
  const uint64_t grain = disk.m_vmdk->m_base->m_grain_bytes;
  for (uint64_t at : {uint64_t(0), grain - 100, disk.size() / 2, disk.size() - 1}) {
    uint32_t length = uint32_t(buffer.size());
    disk.read(buffer.data(), length, at);
  }
  bool found = false;
  uint64_t offset = 0;
  validate_volume(messages, found, offset, disk, false);
  return 0;
}
