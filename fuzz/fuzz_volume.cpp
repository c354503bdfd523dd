// A volume on an in-memory image: validation with the $MFT attribute list, record reads through
// the $MFT runs, the record summaries, attribute rows and their content, the cluster bitmap, the
// descriptors of $SDS, and selection with the default writer.
#include <ostream>
#include <streambuf>

#include "analysis/entry_record.h"
#include "analysis/orv_attrib_rows.h"
#include "analysis/orv_mft_scan.h"
#include "analysis/orv_scan_state.h"
#include "base/orv_results_stream.h"
#include "base/orv_string.h"
#include "fuzz/fuzz_common.h"
#include "ntfs/ntfs.h"
#include "ntfs/orv_filerec.h"
#include "ntfs/orv_stream.h"
#include "results/orv_default_results.h"
#include "run/mft_entries_ctx.h"

namespace {
struct null_buffer : std::streambuf {
  int overflow(int c) override { return c; }
  std::streamsize xsputn(const char*, std::streamsize n) override { return n; }
};
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > (4u << 20)) return 0;
  fuzz::memory_file file(data, size);
  if (!file.ok()) return 0;
  std::unique_ptr<CNtfs> volume = open_volume_path(orv::to_wide(file.path()), 0);
  if (!volume) return 0;
  const uint32_t bits = fuzz::input_hash(data, size);
  std::vector<uint8_t> bitmap;
  volume->read_cluster_bitmap(bitmap);
  const uint64_t count = std::min<uint64_t>(volume->mft_inode_count(), 48);
  if (bits & 0x40) volume->ensure_secure_map();  // the summaries below then carry owners

  null_buffer sink;
  std::ostream null_out(&sink);
  std::vector<uint8_t> record;
  for (uint64_t i = 0; i < count; ++i) {
    volume->get_file_pos_for_inode(i);
    if (volume->read_record(i, record)) {
      INODE_STATS stats;
      volume->read_inode_stats(i, record, stats);
    }
    std::vector<attrib_row> rows;
    if (!list_attribs(*volume, i, rows, true)) continue;
    for (const attrib_row& row : rows) {
      copy_options options;
      options.m_raw = bits & 1;
      options.m_skip_sparse = bits & 2;
      options.m_append_slack = bits & 4;
      options.m_max_hole_bytes = 1u << 24;  // as the program bounds them, smaller
      uint64_t total = 0;
      if (row.m_type != ROW_RECORD_SUMMARY) copy_attrib_data(volume.get(), row, null_out, options, total);
    }
  }

  mft_entries_ctx options;
  options.m_progress = 0;
  options.m_fmt_csv = (bits >> 3) & 1;
  options.m_include_header = (bits >> 4) & 1;
  options.m_header_size = 32;
  options.m_include_zoneinfo = (bits >> 5) & 1;
  options.m_include_ownersid = (bits >> 6) & 1;
  scan_state scan;
  scan_state_for(scan, options);
  scan.m_source.lend_volume(volume.get());
  results_stream out;
  if (out.open_file("/dev/null")) {
    default_writer writer(options, out);
    entry_record entry;
    for (uint64_t i = 0; i < count; ++i) {
      bool bad = false;
      if (!mft_fixup_read(record, bad, scan.m_source, i, scan.log()) || record.empty()) continue;
      if (select_record(entry, record, uint32_t(record.size()), i, options, scan))
        write_default_results(entry, scan, writer);
    }
    out.close();
  }
  return 0;
}
