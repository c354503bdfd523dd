#include "analysis/orv_mft_scan.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "analysis/entry_record.h"
#include "analysis/orv_filter_paths.h"
#include "analysis/orv_filters.h"
#include "analysis/orv_head_bytes.h"
#include "analysis/orv_paths.h"
#include "analysis/orv_record_sink.h"
#include "analysis/orv_regen_mft.h"
#include "analysis/orv_scan_state.h"
#include "analysis/orv_time_analysis.h"
#include "base/orv_console.h"
#include "base/orv_string.h"
#include "ntfs/ntfs.h"
#include "ntfs/orv_attrib.h"
#include "ntfs/orv_filerec.h"
#include "run/mft_entries_ctx.h"

// ---- source ----------------------------------------------------------------------------------

// What a scan takes from its volume once it is open: the record count, the $UpCase table, and
// the descriptors of $SDS when owners are asked for (read once for the volume).
static void take_volume(scan_state& scan, CNtfs& volume) {
  scan.m_mft_total = volume.mft_inode_count();
  if (scan.m_upcase.empty()) volume.read_upcase(scan.m_upcase);
  if (scan.m_owner_sids) volume.ensure_secure_map(&scan.log());
}

static void adopt_volume(scan_state& scan, std::unique_ptr<CNtfs> volume, const std::string& why) {
  if (!volume || !volume->validated()) {
    scan.m_problem = why.empty() ? "no NTFS volume there" : why;
    return;
  }
  scan.m_source.adopt_volume(std::move(volume));
  take_volume(scan, *scan.m_source.volume());
}

// -regen_mft: a volume just opened reads its records from an MFT carved out of the whole volume
// when the carving gives one; otherwise the run goes on with the volume's own $MFT.
static void carve_mft(const mft_entries_ctx& options, scan_state& scan, CNtfs& volume) {
  carve_context ctx;
  ctx.m_log = &scan.log();
  ctx.m_progress = options.m_progress;
  if (regen_mft(volume, ctx)) take_volume(scan, volume);
}

static bool starts_with_two_backslashes(const std::wstring& name) {
  return name.size() >= 2 && name[0] == L'\\' && name[1] == L'\\';
}

bool ensure_source_open(const mft_entries_ctx& options, scan_state& scan) {
  record_source& source = scan.m_source;
  scan.m_problem.clear();
  if (source.is_open()) {
    // A volume lent to the scan is taken as it is; one that does not validate is no source.
    CNtfs* volume = source.volume();
    if (!volume || volume->volume_open()) {
      if (volume) take_volume(scan, *volume);
      resolve_filter_paths(options, scan);
      return true;
    }
    source.close();
    scan.m_problem = volume->m_refusal;
    return false;
  }
  if (!options.m_mftfile_path.empty()) {
    scan.m_source_text = options.m_mftfile_path;
    if (!source.open_mftfile(options.m_mftfile_path)) {
      scan.m_problem = "it cannot be opened";
      return false;
    }
    scan.m_mft_total = source.size() / source.record_size();
    resolve_filter_paths(options, scan);
    return true;
  }
  std::string why;
  if (!options.m_vmdk_list.empty()) {
    // "vmdk file(s): 'a'; 'b'", each disk of the chain as the run names it.
    std::wstring names;
    for (const std::wstring& name : options.m_vmdk_list) names += (names.empty() ? L"'" : L"; '") + name + L"'";
    scan.m_source_text = std::wstring(L"vmdk file") + (options.m_vmdk_list.size() > 1 ? L"s" : L"") + L": " + names;
    adopt_volume(scan, open_volume_vmdk(options.m_vmdk_list, options.m_vmdk_offset, &why), why);
  } else if (options.m_drive_num != 0xFFFFFFFFu) {
    scan.m_source_text = L"physical drive: " + std::to_wstring(options.m_drive_num);
    adopt_volume(scan, open_volume_drive(options.m_drive_num, options.m_volume_offset, &why), why);
  } else if (!options.m_image_volume_path.empty() || !options.m_image_path.empty()) {
    const std::wstring& path = options.m_image_volume_path.empty() ? options.m_image_path : options.m_image_volume_path;
    scan.m_source_text = path;
    adopt_volume(scan, open_volume_path(path, options.m_volume_offset, &why), why);
  } else if (!options.m_partition.empty()) {
    // Without a drive-letter table a plain name can only stand for "X:", opened as a path.
    std::wstring open_name = options.m_partition;
    if (!starts_with_two_backslashes(open_name)) open_name = open_name.substr(0, 1) + L":";
    scan.m_source_text = L"partition: " + options.m_partition;
    adopt_volume(scan, open_volume_path(open_name, 0, &why), why);
  } else if (!options.m_mounted_vmdk.empty()) {
    if (options.m_mounted_vmdk.compare(0, 4, L"\\\\.\\") != 0) return false;
    scan.m_source_text = options.m_mounted_vmdk;
    adopt_volume(scan, open_volume_path(options.m_mounted_vmdk, options.m_volume_offset, &why), why);
  }
  if (options.m_regen_mft && source.volume()) carve_mft(options, scan, *source.volume());
  if (!scan.m_problem.empty())
    log_line(scan.log(), "source %s not opened: %s", orv::to_utf8(scan.m_source_text).c_str(), scan.m_problem.c_str());
  if (source.is_open()) resolve_filter_paths(options, scan);
  return source.is_open();
}

void close_source(scan_state& scan) { scan.m_source.close(); }

// ---- scans -----------------------------------------------------------------------------------

namespace {

struct scan_setup {
  uint64_t m_total = 0;
  uint64_t m_end = 0;
  uint64_t m_step = 53;
};

// Reads record 0 for the size of $MFT's data and settles the number of records.
bool scan_prologue(const mft_entries_ctx& options, scan_state& scan, bool inode_list, scan_setup& setup) {
  if (!ensure_source_open(options, scan)) return false;
  auto fail = [&scan](const char* why) {
    scan.m_problem = why;
    log_line(scan.log(), "no records to scan: %s", why);
    return false;
  };
  if (!scan.m_source.readable()) return fail("it holds no records");
  scan.m_dir_store.clear();
  scan.m_sound_paths.clear();
  entry_record entry;
  if (!read_entry(entry, scan, 0, false)) return fail("record 0 ($MFT) cannot be read");
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
  if (data_size == 0) return fail("record 0 ($MFT) gives no size of its data");
  const uint64_t record_size = scan.m_source.record_size();
  setup.m_total = (!inode_list && scan.m_mft_total) ? scan.m_mft_total : data_size / record_size;
  // Never more records than the source could hold: a lying size in record 0 would otherwise walk
  // billions of numbers that all miss the $MFT.
  const uint64_t source = scan.m_source.size();
  if (source) setup.m_total = std::min(setup.m_total, source / record_size);
  setup.m_end = options.m_mft_range ? options.m_mft_range + options.m_mft_start : setup.m_total;
  setup.m_step = options.m_include_header ? 13 : 53;
  return true;
}

bool scan_end(const mft_entries_ctx& options, scan_state& scan) {
  close_source(scan);
  if (options.m_progress) erase_progress();
  return !scan.m_dir_store.empty();
}

// One record of the full or inode list scan: read and select. True when it is to be written.
bool take_record(entry_record& entry, std::vector<uint8_t>& buffer, uint64_t inode, const mft_entries_ctx& options,
                 scan_state& scan) {
  bool bad = false;
  if (!mft_fixup_read(buffer, bad, scan.m_source, inode, scan.log()) || buffer.empty()) {
    log_line(scan.log(), "err: mftfixup %llx", (unsigned long long)inode);
    return false;
  }
  if (bad) {
    // A "BAAD" record failed its multi-sector write; it is reported and offered to the selection
    // with whatever its attributes still hold.
    log_line(scan.log(), "err: recd bad %llx", (unsigned long long)inode);
    log_line(scan.log(), "mft entry %llu has bad filerecord", (unsigned long long)inode);
  }
  if (!select_record(entry, buffer, uint32_t(buffer.size()), inode, options, scan)) return false;
  entry.m_record_offset = options.m_show_record_offset ? uint64_t(scan.m_source.record_size()) * inode : 0;
  return true;
}

void scan_record(entry_record& entry, std::vector<uint8_t>& buffer, uint64_t inode, const mft_entries_ctx& options,
                 scan_state& scan, const record_sink& sink) {
  if (take_record(entry, buffer, inode, options, scan)) sink_write(sink, entry, scan);
}

void show_entry_progress(const mft_entries_ctx& options, const scan_setup& setup, uint64_t inode) {
  if (options.m_progress && inode % setup.m_step == 0)
    show_progress("analyzing entry %llu of %llu", (unsigned long long)inode, (unsigned long long)setup.m_total);
}

// Whether the rows of a walk may be written on a thread of their own while this one decodes. The
// writers then read only what the decoding handed them: copies and digests read file content
// through the source and the record dump reads the source, so those stay on one thread, as does
// a run with the debug log, whose lines keep one thread's order. A -cpu child shares the machine
// with its siblings: it writes apart only where each of them has two cores.
bool writes_apart(const mft_entries_ctx& options, const scan_state& scan) {
  const bool child = options.m_instance_number != 0xFFFFFFFFu;
  const uint64_t walks = child ? std::max<uint64_t>(options.m_instance_count, 1) : 1;
  if (std::thread::hardware_concurrency() < 2 * walks) return false;
  if (options.m_copy_files || options.m_hash_md5 || options.m_hash_sha1 || options.m_hash_sha256) return false;
  if (options.m_hash_list_format || options.m_find_mft || log_enabled(scan.log())) return false;
  return true;
}

// Records decoded on the walk's thread, waiting for the writing thread. Entries are reused from
// batch to batch, keeping their elements and strings.
struct record_batch {
  std::vector<entry_record> m_entries;
  std::vector<uint8_t> m_selected;
  size_t m_count = 0;
};

// The walk of `full_scan` on two threads. This one reads and selects records into a ring of
// batches; the other hands the selected ones to the sink in record order, so the output is that
// of the one-thread walk byte for byte. Handing over whole batches keeps the locking rare, and
// batches of a few hundred records keep the waking rarer still: a thread that sleeps and wakes
// for every few dozen records spends more than it saves (a third more time on a 2-core VM),
// while much larger batches no longer fit the caches.
void split_walk(const mft_entries_ctx& options, scan_state& scan, const record_sink& sink, const scan_setup& setup) {
  constexpr size_t k_batch_records = 256;
  constexpr size_t k_batches = 4;
  std::vector<record_batch> ring(k_batches);
  for (record_batch& batch : ring) {
    batch.m_entries.resize(k_batch_records);
    batch.m_selected.resize(k_batch_records);
  }
  // Each side sleeps on its own condition and is woken only when it sleeps: a wake-up is a system
  // call, and the side that keeps up would otherwise pay one for every batch.
  std::mutex lock;
  std::condition_variable reader_wakes, writer_wakes;
  bool reader_waits = false, writer_waits = false;
  size_t filled = 0;   // batches handed over since the start
  size_t written = 0;  // batches the writer has finished
  bool finished = false;

  const scan_state& shared = scan;
  std::thread writer([&] {
    for (size_t n = 0;; ++n) {
      {
        std::unique_lock<std::mutex> hold(lock);
        writer_waits = true;
        writer_wakes.wait(hold, [&] { return filled > n || finished; });
        writer_waits = false;
        if (filled <= n) return;
      }
      record_batch& batch = ring[n % k_batches];
      for (size_t i = 0; i < batch.m_count; ++i)
        if (batch.m_selected[i]) sink_write(sink, batch.m_entries[i], shared);
      bool wake = false;
      {
        std::lock_guard<std::mutex> hold(lock);
        written = n + 1;
        wake = reader_waits;
      }
      if (wake) reader_wakes.notify_one();
    }
  });

  std::vector<uint8_t> buffer;
  size_t n = 0;
  for (uint64_t inode = options.m_mft_start; inode < setup.m_end; ++n) {
    {
      std::unique_lock<std::mutex> hold(lock);
      reader_waits = true;
      reader_wakes.wait(hold, [&] { return n - written < k_batches; });
      reader_waits = false;
    }
    record_batch& batch = ring[n % k_batches];
    batch.m_count = 0;
    for (; batch.m_count < k_batch_records && inode < setup.m_end; ++inode, ++batch.m_count) {
      show_entry_progress(options, setup, inode);
      batch.m_selected[batch.m_count] = take_record(batch.m_entries[batch.m_count], buffer, inode, options, scan);
    }
    bool wake = false;
    {
      std::lock_guard<std::mutex> hold(lock);
      filled = n + 1;
      wake = writer_waits;
    }
    if (wake) writer_wakes.notify_one();
  }
  {
    std::lock_guard<std::mutex> hold(lock);
    finished = true;
  }
  writer_wakes.notify_one();
  writer.join();
}

}  // namespace

bool full_scan(const mft_entries_ctx& options, scan_state& scan, const record_sink& sink) {
  scan_setup setup;
  if (!scan_prologue(options, scan, false, setup)) return scan_end(options, scan), false;
  log_line(scan.log(), "range of inodes to analyze: %llu -> %llu", (unsigned long long)options.m_mft_start,
           (unsigned long long)setup.m_end);
  if (sink.m_write && setup.m_end > options.m_mft_start && writes_apart(options, scan)) {
    split_walk(options, scan, sink, setup);
    return scan_end(options, scan);
  }
  entry_record entry;
  std::vector<uint8_t> buffer;
  for (uint64_t inode = options.m_mft_start; inode < setup.m_end; ++inode) {
    log_line(scan.log(), "-------------------------------");
    show_entry_progress(options, setup, inode);
    scan_record(entry, buffer, inode, options, scan, sink);
  }
  return scan_end(options, scan);
}

bool inode_list_scan(const mft_entries_ctx& options, scan_state& scan, const record_sink& sink) {
  scan_setup setup;
  if (!scan_prologue(options, scan, true, setup)) return scan_end(options, scan), false;
  entry_record entry;
  std::vector<uint8_t> buffer;
  for (uint64_t inode : scan.m_listed_records) {
    log_line(scan.log(), "-------------------------------");
    show_entry_progress(options, setup, inode);
    scan_record(entry, buffer, inode, options, scan, sink);
  }
  return scan_end(options, scan);
}

// ---- selection -------------------------------------------------------------------------------

bool select_record(entry_record& entry, const std::vector<uint8_t>& record, uint32_t record_size, uint64_t inode,
                   const mft_entries_ctx& options, scan_state& scan) {
  entry.clear();
  entry.m_source_name = scan.m_source_text;
  entry.m_inode = inode;
  if (record.empty()) return false;
  record_size = std::min<uint32_t>(record_size, uint32_t(record.size()));
  const uint32_t first = take_record_header(entry, record.data(), record.size(), inode);
  if (record_size < 1 || record_size < first) return false;

  bool early_pass = false;
  if (!early_filter(entry, options, scan)) {
    if (options.m_signature_filters.empty() && !has_or_filters(options, scan)) return false;
    if (scan.m_and_logic) return false;
  } else {
    early_pass = scan.m_deleted_only || !scan.m_filter_inodes.empty();
  }
  if (first + 72 > record_size || record_size < 2 * first) return false;

  attrib_walk_rules rules;
  rules.m_limit = scan.m_source.record_size();
  rules.m_scan_budget = true;
  if (categorize_record(entry, scan, inode, record.data(), record_size, uint16_t(first), rules, false) == 0)
    return false;

  cache_directory(entry, scan);
  if (!time_filter(entry, options)) return false;

  bool or_flag = false;
  if (or_filters_match(entry, options, scan)) {
    or_flag = has_or_filters(options, scan);
  } else {
    if (!early_pass && (scan.m_and_logic || options.m_signature_filters.empty())) return false;
    if (early_pass && scan.m_and_logic) return false;
  }
  if (options.m_include_header && options.m_header_size) read_head_bytes(entry, options, scan);
  if (!signature_match(entry, options, scan)) {
    if ((!early_pass && !or_flag) || scan.m_and_logic) return false;
  }
  if (options.m_time_analysis) analyse_timestamps(entry, options);
  resolve_entry_paths(entry, scan);
  return true;
}
