// A volume on an in-memory image: validation, record reads through the $MFT runs, the record
// summaries, attribute rows and their content, and selection with the default writer.
#include <ostream>
#include <streambuf>

#include "analysis/entry_record.h"
#include "analysis/orv_mft_scan.h"
#include "base/orv_string.h"
#include "base/orv_results_stream.h"
#include "fuzz/fuzz_common.h"
#include "ntfs/ntfs.h"
#include "analysis/orv_attrib_rows.h"
#include "ntfs/orv_filerec.h"
#include "ntfs/orv_stream.h"
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
  uint32_t bits = fuzz::input_hash(data, size);
  volume->get_last_allocated_indo_per_mftbitmap();
  uint64_t count = std::min<uint64_t>(volume->mft_inode_count(), 48);

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
      uint64_t total = 0;
      if (row.m_type != ROW_RECORD_SUMMARY) copy_attrib_data(volume.get(), row, null_out, options, total);
    }
  }

  mft_entries_ctx ctx;
  ctx.m_volume = volume.get();
  ctx.m_owns_volume = 0;
  ctx.m_progress = 0;
  ctx.m_fmt_csv = (bits >> 3) & 1;
  ctx.m_include_header = (bits >> 4) & 1;
  ctx.m_header_size = 32;
  ctx.m_include_zoneinfo = (bits >> 5) & 1;
  ctx.m_source_open = 1;
  ctx.m_record_size = volume->record_size();
  results_stream out;
  if (out.open_file("/dev/null")) {
    entry_record entry;
    for (uint64_t i = 0; i < count; ++i) {
      bool bad = false;
      if (!mft_fixup_read(record, bad, ctx, i) || record.empty()) continue;
      if (select_record(entry, record, uint32_t(record.size()), i, ctx)) write_selected(entry, out, ctx);
    }
    out.close();
  }
  ctx.m_volume = nullptr;
  ctx.m_source_open = 0;
  return 0;
}
