#include "analysis/orv_mft_scan.h"

#include <algorithm>
#include <cstring>

#include "analysis/entry_record.h"
#include "analysis/orv_filters.h"
#include "analysis/orv_head_bytes.h"
#include "analysis/orv_paths.h"
#include "analysis/orv_time_analysis.h"
#include "base/orv_console.h"
#include "base/orv_le.h"
#include "base/orv_string.h"
#include "base/orv_results_stream.h"
#include "ntfs/orv_mft_file_reader.h"
#include "ntfs/ntfs.h"
#include "ntfs/orv_attrib.h"
#include "ntfs/orv_filerec.h"
#include "results/orv_default_results.h"
#include "run/mft_entries_ctx.h"

// ---- source ----------------------------------------------------------------------------------

static void adopt_volume(mft_entries_ctx& ctx, std::unique_ptr<CNtfs> volume) {
  if (!volume || !volume->validated()) return;
  if (ctx.m_owns_volume) delete ctx.m_volume;
  ctx.m_volume = volume.release();
  ctx.m_owns_volume = 1;
  ctx.m_source_open = 1;
  ctx.m_mft_total = ctx.m_volume->mft_inode_count();
  ctx.m_record_size = ctx.m_volume->record_size();
}

static bool starts_with_two_backslashes(const std::wstring& name) {
  return name.size() >= 2 && name[0] == L'\\' && name[1] == L'\\';
}

bool ensure_source_open(mft_entries_ctx& ctx) {
  if (ctx.m_source_open) return true;
  if (!ctx.m_mftfile_path.empty()) {
    auto reader = std::make_unique<mft_file_reader>();
    if (!reader->open(ctx.m_mftfile_path)) return false;
    ctx.m_source_text = ctx.m_mftfile_path;
    ctx.m_mft_total = reader->size() / ctx.record_size();
    ctx.m_mftfile = std::move(reader);
    ctx.m_source_open = 1;
    return true;  // an extracted $MFT has no volume, so there is nothing to resolve against
  }
  if (ctx.m_volume && ctx.m_volume->volume_open()) {
    ctx.m_source_open = 1;
    ctx.m_mft_total = ctx.m_volume->mft_inode_count();
    ctx.m_record_size = ctx.m_volume->record_size();
  } else if (!ctx.m_vmdk_list.empty()) {
    return false;  // VMDK chains are not readable in this build
  } else if (ctx.m_drive_num != 0xFFFFFFFFu) {
    ctx.m_source_text = L"physical drive: " + std::to_wstring(ctx.m_drive_num);
    adopt_volume(ctx, open_volume_drive(ctx.m_drive_num, ctx.m_volume_offset));
  } else if (!ctx.m_image_volume_path.empty() || !ctx.m_image_path.empty()) {
    const std::wstring& path = ctx.m_image_volume_path.empty() ? ctx.m_image_path : ctx.m_image_volume_path;
    ctx.m_source_text = path;
    adopt_volume(ctx, open_volume_path(path, ctx.m_volume_offset));
  } else if (!ctx.m_partition.empty()) {
    // Without a drive-letter table a plain name can only stand for "X:", opened as a path.
    std::wstring open_name = ctx.m_partition;
    if (!starts_with_two_backslashes(open_name)) open_name = open_name.substr(0, 1) + L":";
    ctx.m_source_text = L"partition: " + ctx.m_partition;
    adopt_volume(ctx, open_volume_path(open_name, 0));
  } else if (!ctx.m_mounted_vmdk.empty()) {
    if (ctx.m_mounted_vmdk.compare(0, 4, L"\\\\.\\") != 0) return false;
    ctx.m_source_text = ctx.m_mounted_vmdk;
    adopt_volume(ctx, open_volume_path(ctx.m_mounted_vmdk, ctx.m_volume_offset));
  } else {
    return false;
  }
  if (ctx.m_source_open && ctx.m_volume && ctx.m_volume->validated()) resolve_filter_paths(ctx);
  return ctx.m_source_open != 0;
}

void close_source(mft_entries_ctx& ctx) {
  if (!ctx.m_source_open) return;
  ctx.m_mftfile.reset();
  if (ctx.m_owns_volume) delete ctx.m_volume;
  ctx.m_volume = nullptr;
  ctx.m_source_open = 0;
}

static bool source_readable(const mft_entries_ctx& ctx) {
  if (ctx.m_mftfile) return ctx.m_mftfile->size() > 0;
  return ctx.m_volume && ctx.m_volume->validated();
}

// ---- scans -----------------------------------------------------------------------------------

struct scan_setup {
  uint64_t m_total = 0;
  uint64_t m_end = 0;
  uint64_t m_step = 53;
};

// Reads record 0 for the size of $MFT's data and settles the number of records.
static bool scan_prologue(mft_entries_ctx& ctx, bool inode_list, scan_setup& setup) {
  if (!ensure_source_open(ctx) || !source_readable(ctx)) return false;
  ctx.m_dir_store.clear();
  ctx.m_sound_paths.clear();
  entry_record entry;
  if (!read_entry(entry, ctx, 0, false)) return false;
  uint64_t data_size = 0, bitmap_size = 0;
  for (const auto& kv : entry.m_attribs) {
    uint64_t type = attrib_key_type(kv.first);
    const attrib_item& item = kv.second;
    uint64_t size = item.non_resident() ? item.real_size() : item.value_length();
    if (type == AT_DATA) data_size = size;
    else if (type == AT_BITMAP) bitmap_size = size;
    if (type == AT_DATA && (inode_list || entry.m_attribs.size() == 1)) break;
    if (data_size && bitmap_size) break;
  }
  if (data_size == 0) return false;
  uint64_t record_size = ctx.record_size();
  setup.m_total = (!inode_list && ctx.m_mft_total) ? ctx.m_mft_total : data_size / record_size;
  if (ctx.m_mftfile) setup.m_total = std::min(setup.m_total, ctx.m_mftfile->size() / record_size);
  // Without a count from the $MFT runs the size in record 0 decides: never more records than the
  // source could hold, or a lying size walks billions of numbers that all miss the $MFT.
  uint64_t source = ctx.m_volume && ctx.m_volume->disk() ? ctx.m_volume->disk()->size() : 0;
  if (!ctx.m_mftfile && source) setup.m_total = std::min(setup.m_total, source / record_size);
  if (inode_list) {
    if (ctx.m_mft_range == 0) ctx.m_mft_range = setup.m_total;
  } else if (ctx.m_mft_range == 0) {
    ctx.m_mft_range = setup.m_total;
    setup.m_end = setup.m_total;
  } else {
    setup.m_end = ctx.m_mft_range + ctx.m_mft_start;
  }
  setup.m_step = ctx.m_include_header ? 13 : 53;
  return true;
}

static bool scan_end(mft_entries_ctx& ctx) {
  close_source(ctx);
  if (ctx.m_progress) erase_progress();
  return !ctx.m_dir_store.empty();
}

// One record of the full or inode list scan: read, select, write.
static void scan_record(entry_record& entry, std::vector<uint8_t>& buffer, uint64_t inode, results_stream& out,
                        mft_entries_ctx& ctx) {
  bool bad = false;
  if (!mft_fixup_read(buffer, bad, ctx, inode) || buffer.empty()) {
    log_line(ctx, "err: mftfixup %llx", (unsigned long long)inode);
    return;
  }
  if (bad) {
    // A "BAAD" record failed its multi-sector write: its sectors cannot be trusted, so it is
    // reported and skipped, never decoded.
    log_line(ctx, "err: recd bad %llx", (unsigned long long)inode);
    log_line(ctx, "mft entry %llu has bad filerecord", (unsigned long long)inode);
    return;
  }
  if (!select_record(entry, buffer, uint32_t(buffer.size()), inode, ctx)) return;
  entry.m_record_offset = ctx.m_show_record_offset ? uint64_t(ctx.record_size()) * inode : 0;
  write_selected(entry, out, ctx);
}

bool full_scan(results_stream& out, mft_entries_ctx& ctx) {
  scan_setup setup;
  if (!scan_prologue(ctx, false, setup)) return scan_end(ctx), false;
  log_line(ctx, "range of inodes to analyze: %llu -> %llu", (unsigned long long)ctx.m_mft_start,
           (unsigned long long)setup.m_end);
  entry_record entry;
  std::vector<uint8_t> buffer;
  for (uint64_t inode = ctx.m_mft_start; inode < setup.m_end; ++inode) {
    log_line(ctx, "-------------------------------");
    if (ctx.m_progress && inode % setup.m_step == 0)
      show_progress("analyzing entry %llu of %llu", (unsigned long long)inode, (unsigned long long)setup.m_total);
    scan_record(entry, buffer, inode, out, ctx);
  }
  return scan_end(ctx);
}

bool inode_list_scan(results_stream& out, mft_entries_ctx& ctx) {
  scan_setup setup;
  if (!scan_prologue(ctx, true, setup)) return scan_end(ctx), false;
  entry_record entry;
  std::vector<uint8_t> buffer;
  for (const auto& kv : ctx.m_filter_inodes) {
    uint64_t inode = kv.first;
    log_line(ctx, "-------------------------------");
    if (ctx.m_progress && inode % setup.m_step == 0)
      show_progress("analyzing entry %llu of %llu", (unsigned long long)inode, (unsigned long long)setup.m_total);
    scan_record(entry, buffer, inode, out, ctx);
  }
  return scan_end(ctx);
}

// ---- selection -------------------------------------------------------------------------------

bool select_record(entry_record& entry, const std::vector<uint8_t>& record, uint32_t record_size, uint64_t inode,
                   mft_entries_ctx& ctx) {
  entry.clear();
  entry.m_source_name = ctx.m_source_text;
  entry.m_inode = inode;
  if (record.empty()) return false;
  record_size = std::min<uint32_t>(record_size, uint32_t(record.size()));
  std::memcpy(entry.m_header.data(), record.data(), std::min<size_t>(record.size(), entry.m_header.size()));
  entry.m_seq_num = orv::le16(entry.m_header.data() + FR_SEQUENCE);
  uint64_t base = orv::le64(entry.m_header.data() + FR_BASE_REF);
  entry.m_is_extension = base != 0;
  entry.m_base_ref = base;
  uint32_t first = orv::le16(entry.m_header.data() + FR_FIRST_ATTRIB);
  entry.m_first_attrib_offset = uint16_t(first);
  if (record_size < 1 || record_size < first) return false;

  bool early_pass = false;
  if (!early_filter(entry, ctx)) {
    if (ctx.m_signature_filters.empty() && !has_or_filters(ctx)) return false;
    if (ctx.m_and_logic) return false;
  } else {
    early_pass = ctx.m_filter_deleted || !ctx.m_filter_inodes.empty();
  }
  if (first + 72 > record_size || record_size < 2 * first) return false;

  const uint8_t* rec = record.data();
  std::vector<size_t> lists;
  bool walked = false;
  attrib_walk_rules rules;
  rules.m_limit = ctx.record_size();
  rules.m_scan_budget = true;
  walk_attributes(rec, record_size, first, rules, [&](const uint8_t* attr, uint32_t, size_t pos) {
    bool list_seen = false;
    if (!categorize_attrib(entry, ctx, inode, rec, record_size, attr, list_seen, false)) return false;
    walked = true;
    if (list_seen) lists.push_back(pos);
    return true;
  });
  for (size_t pos : lists)
    read_attrib_list(entry, ctx, inode, rec + pos, std::min<uint32_t>(orv::le32(rec + pos + 4), record_size - uint32_t(pos)),
                     false);
  if (!walked) return false;

  cache_directory(entry, ctx);
  if (!time_filter(entry, ctx)) return false;

  bool or_flag = false;
  if (or_filters_match(entry, ctx)) {
    or_flag = has_or_filters(ctx);
  } else {
    if (!early_pass && (ctx.m_and_logic || ctx.m_signature_filters.empty())) return false;
    if (early_pass && ctx.m_and_logic) return false;
  }
  if (ctx.m_include_header && ctx.m_header_size) read_head_bytes(entry, ctx);
  if (!signature_match(entry, ctx)) {
    if ((!early_pass && !or_flag) || ctx.m_and_logic) return false;
  }
  if (ctx.m_time_analysis) analyse_timestamps(entry, ctx);
  resolve_entry_paths(entry, ctx);
  return true;
}

void write_selected(entry_record& entry, results_stream& out, mft_entries_ctx& ctx) {
  // The text dump, the timeline formats and the hash rows are written by the default writer
  // until their own writers exist.
  write_default_results(entry, out, ctx);
}
