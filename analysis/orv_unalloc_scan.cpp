// The free-cluster walk: every record-sized block of every cluster that $Bitmap shows as free is
// offered to the same selection and writers as a record of $MFT.
#include <algorithm>
#include <cstring>

#include "analysis/entry_record.h"
#include "analysis/orv_mft_scan.h"
#include "analysis/orv_unalloc_scan.h"
#include "base/orv_console.h"
#include "base/orv_le.h"
#include "ntfs/ntfs.h"
#include "ntfs/orv_attrib.h"
#include "ntfs/orv_filerec.h"
#include "ntfs/orv_stream.h"
#include "run/mft_entries_ctx.h"

// $Bitmap of a volume of 2^32 clusters is 512 MiB; anything claiming more is not believed.
static constexpr uint64_t k_max_bitmap_bytes = 512ull << 20;

static bool read_cluster_bitmap(mft_entries_ctx& ctx, std::vector<uint8_t>& bitmap) {
  entry_record entry;
  if (!read_entry(entry, ctx, 6, false)) return false;
  for (const auto& kv : entry.m_attribs) {
    const attrib_item& item = kv.second;
    if (item.m_label != "unnamed data" || item.m_runs.empty()) continue;
    uint64_t size = std::min<uint64_t>(item.stream_size(), k_max_bitmap_bytes);
    size = std::min<uint64_t>(size, list_bytes(item.m_runs, ctx.m_volume->cluster_size(), false));
    // Its bytes are read from the source, so it never holds more than the source does.
    uint64_t source = ctx.m_volume->disk() ? ctx.m_volume->disk()->size() : 0;
    if (source) size = std::min(size, source);
    bitmap.assign(size, 0);
    uint64_t length = size;
    uint32_t flags = 0;
    if (size == 0 || !read_stream(*ctx.m_volume, item.m_runs, 0, bitmap.data(), length, flags)) return false;
    bitmap.resize(length);
    return true;
  }
  return false;
}

bool unalloc_scan(results_stream& out, mft_entries_ctx& ctx) {
  if (!ensure_source_open(ctx)) return false;
  ctx.m_dir_store.clear();
  ctx.m_sound_paths.clear();
  ctx.m_unalloc_pass = 1;
  if (!ctx.m_volume || !ctx.m_volume->validated()) {
    close_source(ctx);
    return false;
  }
  CNtfs& volume = *ctx.m_volume;
  std::vector<uint8_t> bitmap;
  if (!read_cluster_bitmap(ctx, bitmap)) {
    close_source(ctx);
    return false;
  }
  uint64_t cluster_size = volume.cluster_size();
  uint32_t record_size = ctx.record_size();
  uint64_t per_cluster = record_size ? cluster_size / record_size : 0;
  uint64_t clusters = uint64_t(bitmap.size()) * 8;
  // Clusters past the end of the source cannot be read: a bitmap that claims more is not walked.
  uint64_t source = volume.disk() ? volume.disk()->size() : 0;
  if (source && cluster_size) {
    uint64_t readable = source > volume.m_volume_offset ? source - volume.m_volume_offset : 0;
    clusters = std::min(clusters, readable / cluster_size);
  }
  std::vector<uint8_t> record(record_size);
  uint64_t start = ctx.m_unalloc_start_given ? ctx.m_unalloc_start : 0;
  for (uint64_t cluster = start; cluster < clusters; ++cluster) {
    size_t byte = size_t(cluster / 8);
    if (byte < bitmap.size() && (bitmap[byte] >> (cluster % 8)) & 1) continue;
    if (ctx.m_progress && cluster % 153 == 0)
      show_progress("analyzing entry %lld of %lld", (long long)cluster, (long long)clusters);
    entry_record entry;
    uint64_t position = cluster * cluster_size;
    for (uint64_t i = 0; i < per_cluster; ++i, position += record_size) {
      uint32_t length = record_size;
      if (!volume.read_volume(position, record.data(), length) || length < record_size) continue;
      if (std::memcmp(record.data(), "FILE", 4) != 0 && std::memcmp(record.data(), "BAAD", 4) != 0) continue;
      if (!fixup_raw(record.data(), record.size(), volume.sector_size(), true)) continue;
      uint64_t number = UINT64_MAX;
      if (record.size() >= 48 && orv::le16(record.data() + 4) == 48) number = orv::le32(record.data() + 44);
      entry.m_record_offset = ctx.m_show_record_offset ? volume.m_volume_offset + position : 0;
      uint64_t offset = entry.m_record_offset;
      if (!select_record(entry, record, record_size, number, ctx)) continue;
      entry.m_record_offset = offset;
      write_selected(entry, out, ctx);
    }
  }
  close_source(ctx);
  if (ctx.m_progress) erase_progress();
  return true;
}
