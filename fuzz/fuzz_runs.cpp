// Run lists: the attribute decoder, the counted decoder, merging and sizes.
#include "fuzz/fuzz_common.h"
#include "ntfs/orv_runs.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 8192) return 0;
  raw_run_list raw;
  data_run_list list;
  if (decode_runs(data, uint32_t(size), raw)) runs_to_list(raw, list);
  data_run_list counted;
  uint64_t first_vcn = size >= 24 ? data[16] | (uint64_t(data[17]) << 8) : 0;
  decode_run_bytes(data, size, first_vcn, counted, true);
  data_run_list half;
  if (size > 2) decode_run_bytes(data + size / 2, size - size / 2, 0, half, false);
  merge_run_lists(counted, half);
  merge_run_lists(list, counted);
  list_bytes(list, 4096, false);
  list_bytes(counted, 65536 * 255, true);
  without_sparse(list);
  return 0;
}
