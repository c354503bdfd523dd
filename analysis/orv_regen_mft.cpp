// Carving of a lost MFT. The whole volume is read in large sequential blocks; every position
// that starts a "FILE" record is decoded into a compact store entry. Of the records found for
// one number, the newest generation is chosen, and the volume learns where on the disk each one
// lies.
#include "analysis/orv_regen_mft.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>

#include "base/orv_background_task.h"
#include "base/orv_console.h"
#include "base/orv_le.h"
#include "base/orv_string.h"
#include "ntfs/ntfs.h"
#include "ntfs/orv_attrib.h"
#include "ntfs/orv_attrib_list.h"
#include "ntfs/orv_filerec.h"
#include "ntfs/orv_record_header.h"
#include "storage/orv_raw_disk_io.h"

namespace {

// Bytes per read of the carving walk: large sequential reads run at the speed of the medium.
constexpr uint64_t k_block_bytes = 4u << 20;
// A non-resident attribute list longer than this is not followed while carving: a real one of a
// file with thousands of extents stays far below it, and a stale run list must not make one
// found record read megabytes.
constexpr uint64_t k_max_carved_list = 1u << 20;

void add_parent(inode_record& record, uint64_t reference) {
  auto at = std::lower_bound(record.m_parents.begin(), record.m_parents.end(), reference);
  if (at == record.m_parents.end() || *at != reference) record.m_parents.insert(at, reference);
}

// $STANDARD_INFORMATION and $FILE_NAME, from the base record or from an extension record that
// its attribute list names. Both are always resident.
void take_attribute(inode_record& record, const uint8_t* attribute, uint32_t length) {
  attrib_view view(orv::byte_span(attribute, length));
  if (view.non_resident()) return;
  orv::byte_span value = view.value();
  if (view.type() == AT_STANDARD_INFORMATION && value.m_size >= 32) {
    record.m_created = value.u64(0);
    record.m_modified = value.u64(8);
    record.m_changed = value.u64(16);
    record.m_accessed = value.u64(24);
    record.m_si_flags = value.u32(32);
  } else if (view.type() == AT_FILE_NAME && value.m_size >= 66) {
    add_parent(record, value.u64(0));
    const uint8_t units = value.u8(64);
    if (value.u8(65) == 2 || !value.has(66, size_t(units) * 2)) return;  // DOS names give no name
    std::string name;
    if (orv::utf16_to_utf8(value.at(66), size_t(units) * 2, name)) record.m_name = std::move(name);
  }
}

void follow_attribute_list(inode_record& record, const uint8_t* attribute, uint32_t length, CNtfs& volume) {
  attrib_view view(orv::byte_span(attribute, length));
  std::vector<uint8_t> nonresident;
  orv::byte_span list = view.value();
  if (view.non_resident()) {
    if (view.real_size() > k_max_carved_list || !read_attrib_list_value(volume, view.m_bytes, nonresident)) return;
    list = orv::byte_span(nonresident.data(), std::min<uint64_t>(nonresident.size(), view.real_size()));
  }
  auto fetch = [&volume](uint64_t number, std::vector<uint8_t>& out) { return volume.read_record(number, out); };
  auto visit = [&record](const uint8_t*, size_t, const uint8_t* a, uint32_t alen, uint64_t) {
    uint32_t type = orv::le32(a);
    if (type == AT_STANDARD_INFORMATION || type == AT_FILE_NAME) take_attribute(record, a, alen);
  };
  pull_listed_attributes(list.m_data, list.m_size, record.m_record_number, attrib_list_rules(), fetch, visit);
}

void trace(const _inode_collection& store, const char* format, unsigned long long a, unsigned long long b,
           unsigned long long c = 0) {
  if (store.m_ctx.m_log) log_line(*store.m_ctx.m_log, format, a, b, c);
}

// A directory enters the directory index; an in-use copy outranks a deleted one of its number.
void index_directory(_inode_collection& store, size_t indx) {
  const inode_record& record = store.m_records[indx];
  if (!record.m_is_directory) return;
  auto placed = store.m_dir_index.emplace(record.m_record_number, indx);
  if (!placed.second && record.m_in_use) placed.first->second = indx;
}

}  // namespace

bool read_inode(inode_record& record, uint8_t* bytes, uint32_t record_size, const _inode_collection& store) {
  const uint32_t size = store.m_record_size;
  if (!is_valid_filerec(bytes, record_size) || !store.m_disk || record_size < size || size < 48) return false;
  // One update sequence word per 512 bytes, whatever the sector size; torn sectors are not judged.
  apply_fixups(bytes, size, 48, orv::le16(bytes + 6), k_fixup_stride);
  record_header header;
  header.assign(bytes, size);
  record.m_record_number = orv::le32(bytes + 44);
  record.m_sequence = header.sequence();
  record.m_lsn = header.lsn();
  record.m_flags = header.flags();
  record.m_in_use = header.in_use();
  record.m_is_directory = header.is_directory();
  if (header.base_ref()) record.m_base_record = orv::ref_number(header.base_ref());
  else record.m_is_base = 1;

  attrib_walk_rules rules;
  rules.m_limit = size;
  walk_attributes(bytes, size, header.first_attrib(), rules, [&](const uint8_t* a, uint32_t alen, size_t pos) {
    if (alen > size - pos) return false;  // an attribute that runs past the record ends the walk
    uint32_t type = orv::le32(a);
    if (type == AT_STANDARD_INFORMATION || type == AT_FILE_NAME) take_attribute(record, a, alen);
    else if (type == AT_ATTRIBUTE_LIST && store.m_volume) follow_attribute_list(record, a, alen, *store.m_volume);
    return true;
  });
  return true;
}

uint64_t keep_newest(_inode_collection& store, inode_record& record) {
  auto found = store.m_ref_index.find(orv::make_ref(record.m_record_number, record.m_sequence));
  if (found == store.m_ref_index.end()) return 1;
  const size_t indx = found->second;
  if (indx < store.m_records.size() && record.m_changed > store.m_records[indx].m_changed) {
    auto dir = store.m_dir_index.find(record.m_record_number);
    if (dir != store.m_dir_index.end() && dir->second == indx && !record.m_is_directory) store.m_dir_index.erase(dir);
    store.m_records[indx] = std::move(record);
    index_directory(store, indx);
  }
  return UINT64_MAX;
}

bool scan_inodes(_inode_collection& store, const inode_visit& on_record) {
  store.m_dir_index.clear();
  RAW_DISK_IO* disk = store.m_disk;
  const uint32_t size = store.m_record_size;
  if (!disk || size < 256 || size > 65536) return false;
  // Records of $MFT lie back to back from the start of each of its runs, so each begins on a
  // cluster boundary; with clusters smaller than a record the walk steps by the cluster.
  uint32_t stride = size;
  if (store.m_cluster_size >= 512 && store.m_cluster_size < size) stride = store.m_cluster_size;
  uint64_t end = store.m_scan_end;
  if (const uint64_t source = disk->size())
    end = std::min(end, source > store.m_volume_offset ? source - store.m_volume_offset : 0);
  const uint64_t block = k_block_bytes / stride * stride;
  // Reads follow each other without gap or overlap, so the source sees one sequential stream and
  // reads ahead. The read of the next block runs on a second thread while this one is decoded,
  // where the source takes reads from two threads: the decoding reads attribute lists from it.
  // Each buffer keeps a record's worth of room before its block, where the bytes that the block
  // before left too short for a record are put back.
  uint64_t base = store.m_scan_start - store.m_scan_start % stride;  // volume position of the held bytes
  const size_t room = size;
  std::vector<uint8_t> buffers[2], record(size);
  for (std::vector<uint8_t>& b : buffers) b.resize(room + size_t(std::min<uint64_t>(block, end > base ? end - base : 0)));
  uint64_t next = base;  // of the next read
  uint32_t want = 0, length = 0;
  bool pending = false, read = false;
  const bool apart = disk->reads_concurrently();
  orv::background_task reader;  // after what its reads fill, so that it stops before they go
  auto start_read = [&](std::vector<uint8_t>& into) {
    want = length = uint32_t(std::min<uint64_t>(block, end - next));
    uint8_t* to = into.data() + room;
    const uint64_t at = store.m_volume_offset + next;
    auto read_block = [disk, to, at, &length, &read] { read = disk->read(to, length, at); };
    pending = true;
    if (apart) reader.start(read_block);
    else read_block();
  };
  if (next < end && next <= UINT64_MAX - store.m_volume_offset) start_read(buffers[0]);
  size_t carry = 0, current = 0;
  uint64_t shown_count = 0;
  while (pending) {
    reader.wait();
    pending = false;
    if (!read) break;
    const uint32_t got = length;
    next += got;
    uint8_t* const held_bytes = buffers[current].data() + room - carry;
    const size_t held = carry + got;
    std::vector<uint8_t>& other = buffers[current ^ 1];
    if (got == want && next < end && next <= UINT64_MAX - store.m_volume_offset) start_read(other);
    uint64_t number = 0;
    size_t at = 0;
    try {
      for (; at + size <= held; at += stride) {
        if (!is_valid_filerec(held_bytes + at, size)) continue;
        // The fixups go into the bytes decoded. With a stride of a record they are fixed where
        // they lie, since nothing else reads them; a smaller stride tests the bytes a record
        // covers again, so these are copied out first.
        uint8_t* bytes = held_bytes + at;
        if (stride < size) bytes = static_cast<uint8_t*>(std::memcpy(record.data(), bytes, size));
        inode_record found;
        if (!read_inode(found, bytes, size, store)) continue;
        number = found.m_record_number;
        const unsigned long long indx = store.m_records.size(), offset = store.m_volume_offset + base + at;
        found.m_disk_offset = offset;
        if (on_record(store, found) == UINT64_MAX) {
          trace(store, "checking/updating store entry with: inode: 0x%llx, indx 0x%llx, offset 0x%llx", number, indx,
                offset);
          continue;
        }
        trace(store, "adding inode: 0x%llx, indx 0x%llx, offset 0x%llx", number, indx, offset);
        store.m_records.push_back(std::move(found));
        const inode_record& added = store.m_records.back();
        store.m_ref_index[orv::make_ref(added.m_record_number, added.m_sequence)] = indx;
        store.m_all_index.emplace_back(added.m_record_number, indx);
        index_directory(store, indx);
      }
    } catch (const std::exception&) {
      // The rest of the block is given up; the walk goes on with the next one.
      print_message("exception caught: %llu\n", (unsigned long long)number);
      at = held - held % stride;
    }
    // Fewer than a record's bytes remain (or, after an exception, less than a stride).
    carry = held - at;
    std::memcpy(other.data() + room - carry, held_bytes + at, carry);
    base += at;
    current ^= 1;
    if (store.m_ctx.m_progress) {
      if (store.m_records.size() != shown_count) {
        shown_count = store.m_records.size();
        show_progress("inode count %lld, offset 0x%0llx", (long long)shown_count, (unsigned long long)base);
      } else {
        show_progress("percent done: %llu", (unsigned long long)((unsigned __int128)next * 100 / end));
      }
    }
  }
  if (store.m_ctx.m_progress) erase_progress();
  std::sort(store.m_all_index.begin(), store.m_all_index.end());  // indx ascending within a number
  if (store.m_dir_index.empty()) return false;
  resolve_store_paths(store);
  return true;
}

chosen_records choose_records(const _inode_collection& store) {
  chosen_records chosen;  // m_all_index runs in ascending number: a number's candidates follow each other
  const uint64_t size = store.m_record_size;
  for (const auto& [number, indx] : store.m_all_index) {
    if (indx >= store.m_records.size()) continue;
    // A number whose slot lies past the volume's end cannot be a record of this volume's MFT:
    // one damaged number field would otherwise size the table by itself. Number 0 is only
    // believed of a record in use: $MFT is never deleted, while formatted spare records (mkntfs
    // leaves 16 to 23 so) carry 0 in the field with a higher sequence number.
    if (size == 0 || number >= store.m_scan_end / size || (number == 0 && !store.m_records[indx].m_in_use)) {
      trace(store, "inode number not trusted: 0x%llx : indx 0x%llx", number, indx);
      continue;
    }
    if (chosen.empty() || chosen.back().first != number) {
      if (store.m_ctx.m_log) log_line(*store.m_ctx.m_log, "validating inode: 0x%llx : indx 0x%x",
                                      (unsigned long long)number, unsigned(indx));
      chosen.emplace_back(number, indx);
      continue;
    }
    size_t& taken = chosen.back().second;
    const inode_record& now = store.m_records[taken];
    const inode_record& other = store.m_records[indx];
    if (other.m_sequence > now.m_sequence || (other.m_sequence == now.m_sequence && other.m_changed > now.m_changed))
      taken = indx;
  }
  return chosen;
}

void lay_out_records(const _inode_collection& store, const chosen_records& chosen, carved_mft& out) {
  out.clear();
  if (chosen.empty()) return;
  out.assign(chosen.back().first + 1, 0);
  for (const auto& [number, indx] : chosen) {
    if (indx >= store.m_records.size()) {
      if (store.m_ctx.m_log) log_line(*store.m_ctx.m_log, "indx into store outside range: [0x%x : 0x%llx]",
                                      unsigned(indx), (unsigned long long)store.m_records.size());
      continue;
    }
    trace(store, "writing inode: 0x%llx : offset 0x%llx", number, number * store.m_record_size);
    out[number] = store.m_records[indx].m_disk_offset;
  }
}

bool build_mft_image(carved_mft& out, RAW_DISK_IO* disk, uint64_t volume_offset, const carve_context& ctx,
                     CNtfs* volume, uint32_t* record_size) {
  out.clear();
  if (!disk || !disk->is_open()) return false;
  NTFS_BOOT boot;
  uint32_t length = sizeof boot.m_bytes;
  if (!disk->read(boot.m_bytes, length, volume_offset) || length < sizeof boot.m_bytes) {
    print_message("prob reading disk at offset 0\n");
    return false;
  }
  if (std::memcmp(boot.m_bytes + 3, "NTFS", 4) != 0) return false;
  _inode_collection store;
  const uint64_t cluster = uint64_t(boot.bytes_per_sector()) * boot.sectors_per_cluster();
  store.m_record_size = boot.record_size();
  if (cluster == 0 || cluster > INT32_MAX || store.m_record_size == 0) return false;
  store.m_cluster_size = uint32_t(cluster);
  const uint64_t sectors = boot.total_sectors(), bps = boot.bytes_per_sector();
  store.m_scan_end = sectors > UINT64_MAX / bps ? UINT64_MAX : sectors * bps;
  // The volume ends where the source ends, whatever its boot sector claims: record numbers are
  // believed up to there only, which bounds the table by the size of the source.
  if (const uint64_t source = disk->size())
    store.m_scan_end = std::min(store.m_scan_end, source > volume_offset ? source - volume_offset : 0);
  store.m_volume_offset = volume_offset;
  store.m_disk = disk;
  store.m_volume = volume;
  store.m_ctx = ctx;
  if (!scan_inodes(store, keep_newest)) return false;
  store.m_dir_index.clear();
  lay_out_records(store, choose_records(store), out);
  if (record_size) *record_size = store.m_record_size;
  return true;
}

bool regen_mft(CNtfs& volume, const carve_context& ctx) {
  carved_mft table;
  uint32_t record_size = 0;
  if (!build_mft_image(table, volume.disk(), volume.m_volume_offset, ctx, &volume, &record_size)) return false;
  return volume.use_carved_mft(std::move(table), record_size);
}

// ---- paths of the store ----------------------------------------------------------------------

namespace {

struct chain_link {
  std::string m_name;
  uint64_t m_number = 0;
  bool m_from_done_entry = false;
  bool m_rooted = true;
};

std::string unknown_inode(uint64_t number) {
  char text[40];
  std::snprintf(text, sizeof text, "[unk_inode_0x%08llx]", (unsigned long long)number);
  return text;
}

}  // namespace

void resolve_store_paths(_inode_collection& store) {
  std::vector<chain_link> chain;
  const size_t count = store.m_records.size();
  // A chain that holds no cycle names each directory at most once; a longer one goes round a
  // cycle of recovered directories and is cut there, as one that ran out.
  const size_t bound = store.m_dir_index.size() + 2;
  for (const auto& [number, indx] : store.m_dir_index) {
    if (indx >= count) continue;
    inode_record& entry = store.m_records[indx];
    if (number == 5) {
      entry.m_path = "[root]/";
      entry.m_path_done = entry.m_path_rooted = entry.m_is_directory = 1;
      continue;
    }
    if (entry.m_path_done) continue;
    chain.clear();
    chain.push_back({entry.m_name, number, false, true});
    bool found = false;
    if (!entry.m_parents.empty()) {
      uint64_t p = orv::ref_number(entry.m_parents.front()), last = 0;
      while (chain.size() <= bound) {
        if (p == 5) {
          chain.push_back({"[root]", 5, true, true});
          found = true;
          break;
        }
        auto parent_at = store.m_dir_index.find(p);
        if (parent_at == store.m_dir_index.end() || parent_at->second >= count) {
          chain.push_back({unknown_inode(p), p, false, false});
          break;
        }
        const inode_record& parent = store.m_records[parent_at->second];
        if (parent.m_path_done) {
          chain.push_back({parent.m_path, p, true, parent.m_path_rooted != 0});
          found = true;
          break;
        }
        chain.push_back({parent.m_name, p, false, true});
        if (parent.m_parents.empty()) break;
        const uint64_t q = orv::ref_number(parent.m_parents.front());
        if (q == last) break;
        last = p = q;
      }
    }
    // From the top down: each directory met on the way is finished by the same pass.
    std::string text;
    for (size_t i = chain.size(); i-- > 0;) {
      const chain_link& link = chain[i];
      if (!link.m_rooted) found = false;
      text += link.m_name.empty() ? unknown_inode(link.m_number) : link.m_name;
      if (text.back() != '\\') text += '\\';
      if (link.m_from_done_entry) continue;
      auto at = store.m_dir_index.find(link.m_number);
      if (at == store.m_dir_index.end() || at->second >= count) continue;
      inode_record& on_way = store.m_records[at->second];
      if (on_way.m_path_done) continue;
      on_way.m_path = text;
      on_way.m_path_rooted = found;
      on_way.m_path_done = 1;
    }
  }
}
