// Every record-sized block of every cluster that $Bitmap shows as free is offered to the same
// selection and writers as a record of $MFT.
#include "analysis/orv_unalloc_scan.h"

#include <algorithm>
#include <cstring>

#include "analysis/entry_record.h"
#include "analysis/orv_mft_scan.h"
#include "analysis/orv_record_sink.h"
#include "analysis/orv_scan_state.h"
#include "base/orv_console.h"
#include "base/orv_le.h"
#include "ntfs/ntfs.h"
#include "ntfs/orv_filerec.h"
#include "run/mft_entries_ctx.h"

bool unalloc_scan(const mft_entries_ctx& options, scan_state& scan, const record_sink& sink) {
  if (!ensure_source_open(options, scan)) return false;
  scan.m_dir_store.clear();
  scan.m_sound_paths.clear();
  scan.m_unalloc_pass = true;
  CNtfs* volume = scan.m_source.volume();
  std::vector<uint8_t> bitmap;
  if (!volume || !volume->validated() || !volume->read_cluster_bitmap(bitmap)) {
    scan.m_problem = volume ? "its cluster bitmap cannot be read" : "an extracted $MFT has no free clusters to scan";
    log_line(scan.log(), "no free clusters to scan: %s", scan.m_problem.c_str());
    close_source(scan);
    return false;
  }
  const uint64_t cluster_size = volume->cluster_size();
  const uint32_t record_size = scan.m_source.record_size();
  const uint64_t per_cluster = record_size ? cluster_size / record_size : 0;
  uint64_t clusters = uint64_t(bitmap.size()) * 8;
  // Clusters past the end of the source cannot be read: a bitmap that claims more is not walked.
  const uint64_t source = scan.m_source.size();
  if (source && cluster_size) {
    const uint64_t readable = source > volume->m_volume_offset ? source - volume->m_volume_offset : 0;
    clusters = std::min(clusters, readable / cluster_size);
  }
  std::vector<uint8_t> record(record_size);
  for (uint64_t cluster = options.m_unalloc_start_given ? options.m_unalloc_start : 0; cluster < clusters; ++cluster) {
    const size_t byte = size_t(cluster / 8);
    if (byte < bitmap.size() && (bitmap[byte] >> (cluster % 8)) & 1) continue;
    if (options.m_progress && cluster % 153 == 0)
      show_progress("analyzing entry %lld of %lld", (long long)cluster, (long long)clusters);
    entry_record entry;
    uint64_t position = cluster * cluster_size;
    for (uint64_t i = 0; i < per_cluster; ++i, position += record_size) {
      uint32_t length = record_size;
      if (!volume->read_volume(position, record.data(), length) || length < record_size) continue;
      if (std::memcmp(record.data(), "FILE", 4) != 0 && std::memcmp(record.data(), "BAAD", 4) != 0) continue;
      if (!fixup_record(record.data(), record.size(), fixup_recovery)) continue;
      // The record's own number stands at 44 in the headers that keep their array at 48.
      uint64_t number = UINT64_MAX;
      if (record.size() >= 48 && orv::le16(record.data() + 4) == 48) number = orv::le32(record.data() + 44);
      if (!select_record(entry, record, record_size, number, options, scan)) continue;
      entry.m_record_offset = options.m_show_record_offset ? volume->m_volume_offset + position : 0;
      sink_write(sink, entry, scan);
    }
  }
  close_source(scan);
  if (options.m_progress) erase_progress();
  return true;
}
