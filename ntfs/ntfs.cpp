// One NTFS volume on a raw source: the boot sector, the geometry derived from it, the $MFT run
// list taken from record 0 (with its attribute list), and record reads through that list.
#include "ntfs/ntfs.h"

#include <algorithm>
#include <cstring>

#include "base/orv_le.h"
#include "base/orv_string.h"
#include "ntfs/orv_attrib.h"
#include "ntfs/orv_attrib_list.h"
#include "ntfs/orv_filerec.h"
#include "ntfs/orv_record_header.h"
#include "ntfs/orv_stream.h"
#include "storage/orv_disk_structs.h"
#include "storage/orv_vmdk.h"

using orv::le16;
using orv::le32;
using orv::le64;

namespace {

// NTFS writes records of 1 KiB or 4 KiB. A size field beyond 64 KiB is damage, and honouring it
// would mean allocating up to 2 GiB for a single record.
constexpr uint32_t MAX_RECORD_SIZE = 65536;
// Below this a record cannot even hold its header and update sequence array.
constexpr uint32_t MIN_RECORD_SIZE = 256;
// Read-ahead window for record reads: a walk gets this many bytes of consecutive records per
// system call.
constexpr uint64_t WINDOW_BYTES = 1 << 20;
// $Bitmap of a volume of 2^32 clusters is 512 MiB; anything claiming more is not believed.
constexpr uint64_t MAX_CLUSTER_BITMAP = 512ull << 20;

// Reads exactly `length` bytes; RAW_DISK_IO takes 32-bit lengths, so long reads go in pieces.
bool read_exact(RAW_DISK_IO* disk, uint64_t offset, uint8_t* buffer, uint64_t length) {
  if (!disk || !buffer) return false;
  while (length > 0) {
    uint32_t piece = uint32_t(std::min<uint64_t>(length, 1u << 30));
    uint32_t got = piece;
    if (!disk->read(buffer, got, offset) || got != piece) return false;
    buffer += piece;
    offset += piece;
    length -= piece;
  }
  return true;
}

// Byte `byte` of the MFT as a position inside the volume, found through the $MFT data runs by
// their cumulated cluster counts; `left` is what the same run holds from there on. False past the
// last run, in a hole (no clusters to read), or when the arithmetic would wrap.
bool mft_locate(const data_run_list& runs, uint64_t cluster_size, uint64_t byte, uint64_t& pos, uint64_t& left) {
  if (cluster_size == 0) return false;
  uint64_t vcn = byte / cluster_size;
  uint64_t first = 0;
  for (const run_entry& r : runs) {
    if (vcn >= first && vcn - first < r.m_count) {
      if (r.m_is_sparse) return false;
      uint64_t cluster = r.m_lcn + (vcn - first);
      if (cluster < r.m_lcn || cluster > UINT64_MAX / cluster_size) return false;
      pos = cluster * cluster_size + (byte - vcn * cluster_size);
      left = (first + r.m_count - vcn) * cluster_size - (byte - vcn * cluster_size);
      return true;
    }
    first += r.m_count;
  }
  return false;
}

}  // namespace

uint16_t NTFS_BOOT::bytes_per_sector() const { return le16(m_bytes + 11); }
uint32_t NTFS_BOOT::sectors_per_cluster() const { return ntfs_sectors_per_cluster(m_bytes[13]); }
uint64_t NTFS_BOOT::total_sectors() const { return le64(m_bytes + 40); }
uint64_t NTFS_BOOT::mft_lcn() const { return le64(m_bytes + 48); }
int8_t NTFS_BOOT::clusters_per_record() const { return int8_t(m_bytes[64]); }
uint32_t NTFS_BOOT::record_size() const {
  const int8_t per_record = clusters_per_record();
  uint64_t size = per_record < 0 ? uint64_t(1) << ((256 - uint8_t(per_record)) % 32)
                                 : uint64_t(bytes_per_sector()) * sectors_per_cluster() * uint8_t(per_record);
  if (size == 0) size = 1024;
  return size < MIN_RECORD_SIZE || size > MAX_RECORD_SIZE ? 0 : uint32_t(size);
}
bool NTFS_BOOT::oem_ok() const { return std::memcmp(m_bytes + 3, "NTFS    ", 8) == 0; }

CNtfs::CNtfs(std::unique_ptr<RAW_DISK_IO> disk, uint64_t volume_offset)
    : m_disk(std::move(disk)), m_volume_offset(volume_offset) {}

CNtfs::~CNtfs() = default;

uint32_t CNtfs::sector_size() const {
  uint16_t bps = m_boot.bytes_per_sector();
  return bps ? bps : 512;
}

// ---- attribute summary (INODE_STATS) ----

namespace {

// The attribute walk of the summary: the common walk bounded by the record stride, and stopped
// as well by an attribute that would run past the buffer.
template <class Visit>
void walk_stats(const uint8_t* record, size_t length, uint32_t stride, Visit visit) {
  if (!record || length < 24) return;
  attrib_walk_rules rules;
  rules.m_limit = stride;
  walk_attributes(record, length, le16(record + 20), rules, [&](const uint8_t* a, uint32_t alen, size_t pos) {
    return alen <= length - pos && visit(a, alen);
  });
}

std::string attribute_name(orv::byte_span attr) {
  uint8_t chars = attr.u8(9);
  uint16_t off = attr.u16(10);
  std::string name;
  if (chars && off && attr.has(off, size_t(chars) * 2)) orv::utf16_to_utf8(attr.at(off), size_t(chars) * 2, name);
  return name;
}

// Run list of a non-resident attribute by the counted decoder: replaces `list`, or merges into it
// for an extent read from an extension record. Attributes without run bytes and without an
// initialised size are left alone. False when run bytes are expected and none decode.
bool stats_runs(orv::byte_span attr, data_run_list& list, bool merge) {
  uint16_t runs_off = attr.u16(32);
  if (attr.u64(56) == 0 && attr.m_size <= runs_off) return true;
  size_t avail = runs_off < attr.m_size ? attr.m_size - runs_off : 0;
  data_run_list decoded;
  if (!decode_run_bytes(attr.at(runs_off), avail, attr.u64(16), decoded, true)) return false;
  if (merge)
    merge_run_lists(list, decoded);
  else
    list = std::move(decoded);
  return true;
}

// One attribute into the summary. Only the unnamed data stream counts as the data of the file.
bool stats_attribute(const uint8_t* a, uint32_t alen, INODE_STATS& st, bool merge) {
  orv::byte_span attr(a, alen);
  uint32_t type = attr.u32(0);
  bool nonres = attr.u8(8) != 0;
  switch (type) {
    case 0x10:
      // The owner SID needs the $Secure map of the volume: read_inode_stats looks it up.
      break;
    case 0x30: {
      if (nonres) break;
      if (attr.u8(9)) {
        st.m_name = attribute_name(attr);
        st.m_wname = orv::to_wide(st.m_name);
        break;
      }
      orv::byte_span value = attr.sub(attr.u16(20), attr.u32(16));
      std::memset(st.m_file_name_raw, 0, sizeof st.m_file_name_raw);
      if (value.m_size) std::memcpy(st.m_file_name_raw, value.m_data, std::min<size_t>(value.m_size, 68));
      size_t bytes = size_t(value.u8(64)) * 2;
      orv::byte_span name = value.sub(66, bytes);
      st.m_wname.clear();
      st.m_name.clear();
      if (name.m_size) orv::utf16_to_wide(name.m_data, int64_t(name.m_size), st.m_wname);
      st.m_name = orv::to_utf8(st.m_wname);
      st.m_size = value.u64(48);
      break;
    }
    case 0x80:
      if (attr.u8(9)) break;
      if (!nonres) {
        if (!st.m_size) st.m_size = attr.u32(16);
        break;
      }
      if (!stats_runs(attr, st.m_data_runs, merge)) return false;
      st.m_has_data_runs = !st.m_data_runs.empty();
      if (!st.m_size) st.m_size = attr.u64(48);
      break;
    case 0xA0: {
      if (!nonres) break;
      data_run_list runs;
      if (!stats_runs(attr, runs, false)) return false;
      st.m_index_alloc_runs.push_back(std::move(runs));
      st.m_index_alloc_names.push_back(attribute_name(attr));
      break;
    }
    case 0xB0:
      if (attr.u8(9)) break;
      if (!nonres) {
        if (!st.m_bitmap_size) st.m_bitmap_size = attr.u32(16);
        break;
      }
      if (!stats_runs(attr, st.m_bitmap_runs, merge)) return false;
      if (!st.m_bitmap_size) st.m_bitmap_size = attr.u64(48);
      break;
    default:
      break;
  }
  return true;
}

}  // namespace

bool CNtfs::read_inode_stats(uint64_t inode, const std::vector<uint8_t>& record, INODE_STATS& st) {
  st = INODE_STATS();
  const uint8_t* list_attr = nullptr;
  uint32_t list_len = 0;
  bool ok = true;
  walk_stats(record.data(), record.size(), m_filerec_size, [&](const uint8_t* a, uint32_t alen) {
    orv::byte_span attr(a, alen);
    const uint32_t security_id = le32(a) == 0x10 ? attr.sub(attr.u16(20), attr.u32(16)).u32(52) : 0;
    if (security_id && m_validated)
      if (const security_entry* sd = find_security_entry(this, security_id)) st.m_owner_sid = sd->m_owner_sid;
    if (le32(a) == 0x20 && !list_attr) {
      list_attr = a;
      list_len = alen;
    }
    ok = stats_attribute(a, alen, st, false);
    return ok;
  });
  if (!list_attr || !(st.m_has_data_runs || inode == 0)) return ok;
  // Extents in other records: for $MFT itself this is what makes a fragmented MFT readable.
  orv::byte_span attr(list_attr, list_len);
  std::vector<uint8_t> stored;
  orv::byte_span list = attr.u8(8) == 0 ? attr.sub(attr.u16(20), attr.u32(16)) : orv::byte_span();
  if (attr.u8(8) != 0 && read_attrib_list_value(*this, attr, stored))
    list = orv::byte_span(stored.data(), stored.size());
  attrib_list_rules rules;
  rules.m_same_sequence = true;
  pull_listed_attributes(
      list.m_data, list.m_size, inode, rules,
      [this](uint64_t number, std::vector<uint8_t>& record) { return read_record(number, record); },
      [&st](const uint8_t*, size_t, const uint8_t* attribute, uint32_t length, uint64_t) {
        stats_attribute(attribute, length, st, true);
      });
  return ok;
}

// ---- validation ----

bool CNtfs::volume_open(uint64_t* mft_pos) {
  if (m_validated) {
    if (mft_pos) *mft_pos = m_mft_file_pos;
    return true;
  }
  auto refuse = [this](const char* why) {
    m_refusal = why;
    return false;
  };
  if (!m_disk) return refuse("no source");
  if (!read_exact(m_disk.get(), m_volume_offset, m_boot.m_bytes, sizeof m_boot.m_bytes))
    return refuse("its boot sector cannot be read");
  if (!m_boot.oem_ok()) return refuse("no \"NTFS\" in its boot sector");

  uint32_t spc = m_boot.sectors_per_cluster();
  const uint64_t cluster_bytes = uint64_t(m_boot.bytes_per_sector()) * spc;
  // Nothing on a volume without clusters can be located.
  if (cluster_bytes == 0 || cluster_bytes > INT32_MAX)
    return refuse("impossible bytes per sector or sectors per cluster");
  m_cluster_size = int32_t(cluster_bytes);
  m_mft_record_size = m_boot.record_size();
  if (m_mft_record_size == 0) return refuse("impossible file record size");
  m_total_clusters = spc ? m_boot.total_sectors() / spc : 0;
  if (m_boot.mft_lcn() > (UINT64_MAX - m_volume_offset) / uint64_t(m_cluster_size) - 1)
    return refuse("$MFT placed past any source");
  m_mft_file_pos = uint64_t(m_cluster_size) * m_boot.mft_lcn();

  std::vector<uint8_t> rec(m_mft_record_size);
  if (!read_exact(m_disk.get(), m_volume_offset + m_mft_file_pos, rec.data(), rec.size()))
    return refuse("record 0 of $MFT cannot be read");
  if (fixup_record(rec.data(), rec.size(), fixup_volume) == record_refused)
    return refuse("record 0 of $MFT is no file record");
  if (is_valid_filerec(rec.data(), rec.size())) {
    // The record knows its own size: (count - 1) sectors of 512. A boot sector that claims less
    // (count 9 with 1024) is overruled and record 0 read again at the larger size.
    uint16_t count = le16(rec.data() + 6);
    uint32_t own = count ? uint32_t(count - 1) * 512 : 0;
    if (own > m_mft_record_size) {
      m_mft_record_size = own;
      rec.assign(own, 0);
      if (!read_exact(m_disk.get(), m_volume_offset + m_mft_file_pos, rec.data(), rec.size()) ||
          fixup_record(rec.data(), rec.size(), fixup_volume) != record_file)
        return refuse("record 0 of $MFT cannot be read at its own size");
    }
  }
  // The allocated size at offset 28 is the stride of records inside the MFT. A value that cannot
  // be a record size falls back to the record size itself.
  m_filerec_size = le32(rec.data() + 28);
  if (m_filerec_size < MIN_RECORD_SIZE || m_filerec_size > MAX_RECORD_SIZE) m_filerec_size = m_mft_record_size;
  m_first_record = rec;

  read_inode_stats(0, m_first_record, m_mft_info);
  uint64_t clusters = 0;
  for (const run_entry& r : m_mft_info.m_data_runs) clusters += r.m_count;
  m_validated = true;
  uint64_t cs = uint64_t(m_cluster_size);
  uint64_t count = clusters > UINT64_MAX / cs ? UINT64_MAX / m_filerec_size : clusters * cs / m_filerec_size;
  // No more records than the source could hold: a lying run count must not send a walk over
  // billions of entries.
  uint64_t source = m_disk->size();
  if (source && count > source / m_filerec_size) count = source / m_filerec_size;
  m_mft_inode_count = count;
  drop_windows();

  std::vector<uint8_t> bitmap_rec;
  INODE_STATS bitmap;
  if (read_record(6, bitmap_rec) && read_inode_stats(6, bitmap_rec, bitmap)) {
    m_bitmap_runs = bitmap.m_data_runs;
    m_bitmap_bytes = bitmap.m_size;
  }
  if (mft_pos) *mft_pos = m_mft_file_pos;
  return true;
}

// ---- positions and reads ----

uint64_t CNtfs::get_file_pos_for_inode(uint64_t inode) const {
  if (!m_validated || m_filerec_size == 0 || inode > UINT64_MAX / m_filerec_size) return 0;
  uint64_t pos = 0, left = 0;
  if (!mft_locate(m_mft_info.m_data_runs, cluster_size(), inode * m_filerec_size, pos, left)) return 0;
  return pos;
}

bool CNtfs::read_clusters(uint64_t lcn, uint8_t* buffer, uint64_t length) {
  uint64_t cs = cluster_size();
  if (!buffer || cs == 0 || length == 0 || length % cs != 0) return false;
  if (lcn > UINT64_MAX / cs || lcn * cs > UINT64_MAX - m_volume_offset - length) return false;
  return read_exact(m_disk.get(), m_volume_offset + lcn * cs, buffer, length);
}

bool CNtfs::read_volume(uint64_t offset, uint8_t* buffer, uint32_t& length) {
  if (!m_disk || !buffer || length == 0 || offset > UINT64_MAX - m_volume_offset) return false;
  return m_disk->read(buffer, length, m_volume_offset + offset);
}

bool CNtfs::read_record_raw(uint64_t inode, std::vector<uint8_t>& out) {
  if (!m_disk) return false;
  uint32_t rs = record_size();
  if (m_use_mft_image) {
    // A hole reads as a zero record, which has no "FILE" mark and is refused by every reader.
    if (inode >= m_mft_image.size()) return false;
    out.assign(rs, 0);
    return m_mft_image[inode] == 0 || read_exact(m_disk.get(), m_mft_image[inode], out.data(), rs);
  }
  out.resize(rs);
  uint64_t previous = m_last_inode;
  m_last_inode = inode;
  if (m_window_count && inode >= m_window_first && inode - m_window_first < m_window_count) {
    std::memcpy(out.data(), m_window.data() + (inode - m_window_first) * m_filerec_size, rs);
    return true;
  }
  uint64_t pos = 0, left = 0;
  bool located = inode != 0 && m_filerec_size && inode <= UINT64_MAX / m_filerec_size &&
                 mft_locate(m_mft_info.m_data_runs, cluster_size(), inode * m_filerec_size, pos, left);
  if (inode == 0) pos = m_mft_file_pos;
  // Records come from the window only once the run list is final; while volume_open still
  // gathers extents, and for record 0 and unplaced records, each read stands alone. A record
  // past the last run reads position 0, the boot area, which the record tests then refuse.
  // Only a walk refills the window: a read that follows the previous one or the window's end.
  // A jump elsewhere (a parent lookup, an extension record) is read alone and leaves the window
  // to the walk it interrupted.
  bool walking = inode == previous + 1 || (m_window_count && inode == m_window_first + m_window_count);
  if (located && left < rs) {
    // A record larger than a cluster can begin in one run of $MFT and end in the next: each
    // piece is read where its own run puts it.
    uint64_t byte = inode * m_filerec_size;
    for (uint32_t done = 0; done < rs;) {
      uint64_t piece_pos = 0, piece_left = 0;
      if (!mft_locate(m_mft_info.m_data_runs, cluster_size(), byte + done, piece_pos, piece_left) || piece_left == 0)
        return false;
      uint32_t piece = uint32_t(std::min<uint64_t>(piece_left, rs - done));
      if (piece_pos > UINT64_MAX - m_volume_offset ||
          !read_exact(m_disk.get(), m_volume_offset + piece_pos, out.data() + done, piece))
        return false;
      done += piece;
    }
    return true;
  }
  if (!m_validated || !located || !walking) return read_exact(m_disk.get(), m_volume_offset + pos, out.data(), rs);

  // Fill the window with the whole records that lie in the same run from this one on: inside a
  // run the positions are consecutive, so each record sits where a direct read would find it.
  const uint64_t bytes = window_bytes(left);
  if (pos > UINT64_MAX - m_volume_offset) return read_exact(m_disk.get(), m_volume_offset + pos, out.data(), rs);
  const uint64_t at = m_volume_offset + pos;
  m_window_count = 0;
  if (!m_ahead.take(at, bytes, m_window)) {
    m_window.resize(bytes);
    m_window.resize(read_window(m_window.data(), bytes, at));
  }
  const uint64_t got = m_window.size();
  if (got < rs) return read_exact(m_disk.get(), at, out.data(), rs);
  m_window_first = inode;
  m_window_count = (got - rs) / m_filerec_size + 1;  // fewer when the read was cut by the source end
  std::memcpy(out.data(), m_window.data(), rs);
  if (got == bytes) read_ahead(inode + m_window_count);
  return true;
}

// Reads `length` bytes of records at disk position `at`; the bytes read, 0 on failure.
uint64_t CNtfs::read_window(uint8_t* into, uint64_t length, uint64_t at) {
  uint32_t got = uint32_t(length);
  return m_disk->read(into, got, at) ? got : 0;
}

// Bytes of the window that starts at a record with `left` bytes of its run from there on.
uint64_t CNtfs::window_bytes(uint64_t left) const {
  const uint64_t rs = record_size(), stride = m_filerec_size;
  const uint64_t in_run = left < rs ? 1 : (left - rs) / stride + 1;
  const uint64_t fit = rs >= WINDOW_BYTES ? 1 : (WINDOW_BYTES - rs) / stride + 1;
  return (std::min(in_run, fit) - 1) * stride + rs;
}

// Starts reading the window that a walk will want after this one, the one that begins at record
// `next`, on the read-ahead thread. Only sources that take reads from two threads at once (a
// file, a drive) read ahead.
void CNtfs::read_ahead(uint64_t next) {
  if (!m_disk->reads_concurrently() || next >= m_mft_inode_count || next > UINT64_MAX / m_filerec_size) return;
  uint64_t pos = 0, left = 0;
  if (!mft_locate(m_mft_info.m_data_runs, cluster_size(), next * m_filerec_size, pos, left) || left < record_size() ||
      pos > UINT64_MAX - m_volume_offset)
    return;
  m_ahead.start(m_volume_offset + pos, window_bytes(left),
                [this](uint8_t* into, uint64_t length, uint64_t at) { return read_window(into, length, at); });
}

void CNtfs::drop_windows() {
  m_ahead.drop();
  m_window.clear();
  m_window_count = 0;
}

bool CNtfs::use_carved_mft(std::vector<uint64_t> offsets, uint32_t record_size) {
  if (record_size != this->record_size() || offsets.size() <= 4096 / record_size) return false;
  m_mft_image = std::move(offsets);
  m_use_mft_image = true;
  m_mft_inode_count = m_mft_image.size();
  drop_windows();
  return true;
}

bool CNtfs::read_record(uint64_t inode, std::vector<uint8_t>& out) {
  if (!read_record_raw(inode, out)) return false;
  return fixup_record(out.data(), out.size(), fixup_volume) != record_refused;
}

bool CNtfs::read_cluster_bitmap(std::vector<uint8_t>& out) {
  out.clear();
  if (!m_validated || m_bitmap_runs.empty()) return false;
  return read_stream_bytes(*this, m_bitmap_runs, std::min(m_bitmap_bytes, MAX_CLUSTER_BITMAP), out);
}

bool CNtfs::read_upcase(std::vector<uint16_t>& out) {
  out.clear();
  std::vector<uint8_t> record, bytes;
  INODE_STATS upcase;
  if (!m_validated || !read_record(10, record) || !read_inode_stats(10, record, upcase) ||
      !read_stream_bytes(*this, upcase.m_data_runs, 0x20000, bytes) || bytes.size() != 0x20000)
    return false;
  out.resize(0x10000);
  for (size_t i = 0; i < out.size(); ++i) out[i] = le16(bytes.data() + 2 * i);
  return true;
}

bool CNtfs::ensure_secure_map(const diag_sink* log) {
  if (!m_secure_loaded) m_secure_loaded = load_secure_map(*this, m_secure_map, log);
  return m_secure_loaded;
}

// ---- creators ----

namespace {

std::unique_ptr<CNtfs> validated(std::unique_ptr<RAW_DISK_IO> disk, uint64_t offset, std::string* why) {
  std::unique_ptr<CNtfs> volume(new CNtfs(std::move(disk), offset));
  if (volume->volume_open()) return volume;
  if (why) *why = volume->m_refusal;
  return nullptr;
}

}  // namespace

std::unique_ptr<CNtfs> open_volume_path(const std::wstring& path, uint64_t offset, std::string* why) {
  std::unique_ptr<RAW_DISK_IO> disk(new RAW_DISK_IO());
  if (!disk->open_path(path, false, RAW_KIND_FILE)) {
    if (why) *why = "it cannot be opened";
    return nullptr;
  }
  return validated(std::move(disk), offset, why);
}

std::unique_ptr<CNtfs> open_volume_drive(uint32_t drive, uint64_t offset, std::string* why) {
  std::unique_ptr<RAW_DISK_IO> disk(new RAW_DISK_IO());
  if (!disk->open_disk(drive, false)) {
    if (why) *why = "the drive cannot be opened";
    return nullptr;
  }
  return validated(std::move(disk), offset, why);
}

std::unique_ptr<CNtfs> open_volume_vmdk(const std::vector<std::wstring>& list, uint64_t offset, std::string* why) {
  std::unique_ptr<RAW_DISK_IO> disk(new RAW_DISK_IO());
  if (!disk->open_vmdk(list, false)) {
    if (why) *why = "the vmdk chain cannot be opened";
    return nullptr;
  }
  if (offset == 0 && !volume_at(*disk, 0)) {
    const std::vector<uint64_t>& found = disk->m_vmdk->m_base->m_partition_offsets;
    for (uint64_t at : found)
      if (volume_at(*disk, at)) {
        offset = at;
        break;
      }
    if (offset == 0 && !found.empty()) offset = found.front();
  }
  disk->m_start_offset = offset;
  return validated(std::move(disk), offset, why);
}

uint64_t CNtfs::volume_bytes() const {
  const uint64_t sectors = m_boot.total_sectors(), bps = m_boot.bytes_per_sector();
  return bps && sectors <= UINT64_MAX / bps ? sectors * bps : 0;
}
