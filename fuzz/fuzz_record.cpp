// One record from a byte buffer: the fixup kinds, the attribute walk with every value kept, and
// selection with the default writer. No source is open, so attribute lists and parent paths end
// early.
#include <cstring>

#include "analysis/entry_record.h"
#include "analysis/orv_mft_scan.h"
#include "analysis/orv_scan_state.h"
#include "base/orv_le.h"
#include "base/orv_results_stream.h"
#include "fuzz/fuzz_common.h"
#include "ntfs/orv_attrib.h"
#include "ntfs/orv_filerec.h"
#include "results/orv_default_results.h"
#include "run/mft_entries_ctx.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 65536) return 0;
  const uint32_t bits = fuzz::input_hash(data, size);
  for (fixup_mode mode : {fixup_scan, fixup_volume, fixup_recovery}) {
    std::vector<uint8_t> copy(data, data + size);
    fixup_record(copy.data(), copy.size(), mode);
  }
  std::vector<uint8_t> record(data, data + size);
  fixup_record(record.data(), record.size(), fixup_scan);

  mft_entries_ctx options;
  options.m_progress = 0;
  options.m_fmt_csv = (bits >> 3) & 1;
  options.m_time_analysis = (bits >> 4) & 1;
  options.m_include_zoneinfo = (bits >> 5) & 1;
  scan_state scan;
  scan_state_for(scan, options);
  entry_record entry;
  if (size >= 24) {
    attrib_walk_rules rules;
    rules.m_limit = (bits & 4) ? 4096 : 1024;
    walk_attributes(record.data(), record.size(), orv::le16(record.data() + 20), rules,
                    [&](const uint8_t* attr, uint32_t, size_t) {
                      bool list_seen = false;
                      return categorize_attrib(entry, scan, 1, record.data(), uint32_t(record.size()), attr,
                                               list_seen, true);
                    });
  }
  results_stream out;
  if (!out.open_file("/dev/null")) return 0;
  default_writer writer(options, out);
  if (select_record(entry, record, uint32_t(record.size()), 1, options, scan))
    write_default_results(entry, scan, writer);
  out.close();
  return 0;
}
