#include "ntfs/orv_stream.h"

#include <algorithm>
#include <cstring>

#include "base/orv_console.h"
#include "base/orv_le.h"
#include "ntfs/ntfs.h"
#include "ntfs/orv_filerec.h"
#include "ntfs/orv_lznt1.h"

namespace {

// Index of the run holding virtual cluster `vcn`, or -1. The hint (the run of the previous
// cluster) serves the common case; lists in VCN order are then bisected, and anything else is
// searched run by run.
int64_t find_run(const data_run_list& runs, uint64_t vcn, int64_t hint) {
  auto holds = [&](int64_t i) {
    return i >= 0 && size_t(i) < runs.size() && vcn >= runs[i].m_vcn && vcn - runs[i].m_vcn < runs[i].m_count;
  };
  if (holds(hint)) return hint;
  if (holds(hint + 1)) return hint + 1;
  auto it = std::upper_bound(runs.begin(), runs.end(), vcn,
                             [](uint64_t v, const run_entry& r) { return v < r.m_vcn; });
  if (it != runs.begin() && holds(int64_t(it - runs.begin()) - 1)) return int64_t(it - runs.begin()) - 1;
  for (size_t i = 0; i < runs.size(); ++i)
    if (holds(int64_t(i))) return int64_t(i);
  return -1;
}

// Bytes of consecutive clusters that lie back to back on the volume and go to consecutive places
// of the caller's buffer: read with one call.
struct cluster_span {
  uint64_t m_pos = 0;    // byte position inside the volume
  uint64_t m_dest = 0;   // offset in the caller's buffer
  uint64_t m_bytes = 0;
  uint64_t m_clusters = 0;
};

// Reads a span; when the single read fails the span is read again cluster by cluster, so exactly
// the clusters before the first bad one are delivered. Gives the bytes and clusters delivered.
void read_span(CNtfs& volume, const cluster_span& span, uint8_t* buffer, uint64_t& bytes, uint64_t& clusters) {
  bytes = clusters = 0;
  if (span.m_bytes == 0) return;
  uint32_t got = uint32_t(span.m_bytes);
  if (volume.read_volume(span.m_pos, buffer + span.m_dest, got) && got == span.m_bytes) {
    bytes = span.m_bytes;
    clusters = span.m_clusters;
    return;
  }
  uint64_t c = volume.cluster_size();
  while (bytes < span.m_bytes) {
    uint64_t pos = span.m_pos + bytes;
    uint32_t one = uint32_t(std::min(c - pos % c, span.m_bytes - bytes));
    uint32_t want = one;
    if (!volume.read_volume(pos, buffer + span.m_dest + bytes, one) || one != want) return;
    bytes += one;
    ++clusters;
  }
}

}  // namespace

bool read_stream(CNtfs& volume, const data_run_list& runs, uint64_t position, uint8_t* buffer, uint64_t& length,
                 uint32_t& flags) {
  uint64_t c = volume.cluster_size();
  if (!buffer || length == 0 || runs.empty() || c == 0 || position > UINT64_MAX - length) return false;
  bool skip_sparse = flags & 0x1;
  uint64_t v0 = position / c, v1 = (position + length) / c;
  uint64_t head = position - v0 * c, tail = (position + length) % c;
  // 0x10: the range starts on a 65536-cluster boundary; 0x20: and spans exactly 16 clusters.
  flags = 0x8;
  if ((v0 & 0xFFFF) == 0) flags = v0 + 16 == v1 ? 0x38 : 0x18;

  cluster_span pending;    // clusters back to back on the volume, not read yet
  uint64_t planned = 0;    // bytes of the buffer given out to clusters so far
  uint64_t delivered = 0;  // bytes actually in the buffer
  uint64_t clusters = 0;   // clusters delivered
  auto flush = [&]() {
    uint64_t bytes = 0, count = 0;
    read_span(volume, pending, buffer, bytes, count);
    delivered += bytes;
    clusters += count;
    bool all = bytes == pending.m_bytes;
    pending = cluster_span();
    return all;
  };

  bool first = true, failed = false;
  int64_t hint = -1;
  for (uint64_t v = v0; v <= v1 && planned < length; ++v) {
    hint = find_run(runs, v, hint);
    if (hint < 0) break;  // past every run
    const run_entry& r = runs[size_t(hint)];
    if (r.m_is_sparse && skip_sparse) {
      if (v == v0) head = 0;
      continue;
    }
    uint64_t off = first ? head : 0;
    uint64_t n = first ? std::min(c - head, length) : c;
    if (v == v1 && tail != 0) n = std::min(length - planned, tail);
    n = std::min(n, length - planned);
    first = false;
    if (r.m_is_sparse) {
      if (!flush()) {
        failed = true;
        break;
      }
      std::memset(buffer + planned, 0, n);
      flags |= 0x2;
      delivered += n;
      ++clusters;
      planned += n;
      continue;
    }
    uint64_t lcn = r.m_lcn + (v - r.m_vcn);
    if (lcn < r.m_lcn || lcn > (UINT64_MAX - off) / c) {  // a cluster no volume can have
      flush();
      failed = true;
      break;
    }
    uint64_t pos = lcn * c + off;
    bool adjacent = pending.m_bytes && pending.m_pos + pending.m_bytes == pos;
    if (pending.m_bytes && (!adjacent || pending.m_bytes + n > (1u << 30))) {
      if (!flush()) {
        failed = true;
        break;
      }
    }
    if (!pending.m_bytes) {
      pending.m_pos = pos;
      pending.m_dest = planned;
    }
    pending.m_bytes += n;
    ++pending.m_clusters;
    planned += n;
  }
  if (!failed) flush();
  if (skip_sparse) flags &= ~uint32_t(0x2);
  if (clusters == 0) {
    length = 0;
    return false;
  }
  length = delivered;
  return true;
}

bool read_stream_bytes(CNtfs& volume, const data_run_list& runs, uint64_t size, std::vector<uint8_t>& out) {
  out.clear();
  size = std::min(size, list_bytes(runs, volume.cluster_size(), false));
  const uint64_t source = volume.disk() ? volume.disk()->size() : 0;
  if (source) size = std::min(size, source);
  if (size == 0) return false;
  out.assign(size, 0);
  uint64_t length = size;
  uint32_t flags = 0;
  if (!read_stream(volume, runs, 0, out.data(), length, flags)) {
    out.clear();
    return false;
  }
  out.resize(length);
  return true;
}

namespace {

// Index allocation blocks carry an update sequence array as file records do: each 4096-byte block
// of the copy gets its sector tails back. No signature is tested, so damaged blocks come out too.
void fix_index_blocks(uint8_t* buf, uint64_t length) {
  for (uint64_t off = 0; off + 8 <= length; off += 4096) {
    uint64_t block = std::min<uint64_t>(4096, length - off);
    uint16_t count = orv::le16(buf + off + 6);
    if (count > 1) apply_fixups(buf + off, size_t(block), orv::le16(buf + off + 4), count, k_fixup_stride);
  }
}

bool emit(std::ostream& out, const copy_options& options, const uint8_t* bytes, uint64_t length) {
  if (options.m_feed) options.m_feed(options.m_feed_user, bytes, size_t(length));
  out.write(reinterpret_cast<const char*>(bytes), std::streamsize(length));
  return bool(out);
}

// Reads `limit` bytes of the stream (then the slack, when asked) through a buffer of 16 clusters.
bool copy_plain(CNtfs& volume, const attrib_row& row, const data_run_list& runs, uint64_t limit, uint64_t slack,
                std::ostream& out, const copy_options& options, uint64_t& total) {
  uint64_t unit = 16 * volume.cluster_size();
  // Never more buffer than there is data, nor than the source holds: a lying size or a huge
  // cluster must not turn into a huge allocation.
  uint64_t source = volume.m_disk ? volume.m_disk->size() : 0;
  uint64_t size = std::min(unit, limit);
  if (source && size > source) size = source;
  if (size == 0) return false;
  std::vector<uint8_t> buf(size);
  uint64_t pos = 0, remaining = limit;
  uint64_t chunk = std::min<uint64_t>(buf.size(), remaining);
  while (chunk) {
    uint64_t length = chunk;
    uint32_t flags = 0;
    if (!read_stream(volume, runs, pos, buf.data(), length, flags) || length == 0) break;
    if (row.m_type == 0xA0 && !options.m_raw) fix_index_blocks(buf.data(), length);
    if (!emit(out, options, buf.data(), length)) return false;
    total += length;
    pos += length;
    remaining -= std::min(length, remaining);
    if (remaining == 0) {
      if (slack == 0) break;
      remaining = slack;
      slack = 0;
    }
    // A remainder of up to 5 units is read in one go.
    if (remaining > unit && remaining < 5 * unit && (!source || remaining <= source)) buf.resize(remaining);
    chunk = std::min<uint64_t>(buf.size(), remaining);
  }
  return true;
}

// A compressed attribute is stored in units of 16 clusters, each expanded on its own (LZNT1).
// `wanted` counts stored bytes: every unit read takes its stored length off it, whatever it
// expands to. The last unit is read to the end of the runs (`wanted` plus the extra bytes the
// runs hold), so that its sparse tail shows and a chunk running past the data's end is whole.
// A unit that fails to expand ends the copy with false; what was written stays.
bool copy_compressed(CNtfs& volume, const data_run_list& runs, uint64_t wanted, std::ostream& out,
                     const copy_options& options, uint64_t& total) {
  uint64_t unit = 16 * volume.cluster_size();
  uint64_t source = volume.m_disk ? volume.m_disk->size() : 0;
  if (source && unit > source) unit = source;
  if (unit == 0 || wanted == 0) return false;
  const uint64_t run_bytes = list_bytes(runs, volume.cluster_size(), false);
  const uint64_t extra = run_bytes > wanted ? run_bytes - wanted : 0;
  std::vector<uint8_t> buf(static_cast<size_t>(unit));
  std::vector<uint8_t> expanded;
  uint64_t pos = 0, length = unit;
  bool ok = false;
  while (true) {
    uint32_t flags = 0;
    if (!read_stream(volume, runs, pos, buf.data(), length, flags) || length == 0) break;
    expanded.clear();
    size_t out_length = 0;
    ok = decompress_unit(expanded, out_length, buf.data(), size_t(length), wanted, flags | LZNT1_SINK_BYTES);
    // A unit of zeros with sparse clusters is a hole in the file: zeros, not the end of it.
    if (ok && out_length == 0 && (flags & 0x2) &&
        std::all_of(buf.begin(), buf.begin() + int64_t(length), [](uint8_t b) { return b == 0; })) {
      out_length = size_t(std::min(wanted, length));
      expanded.assign(out_length, 0);
    }
    if (!ok || out_length == 0) break;
    if (!emit(out, options, expanded.data(), out_length)) return false;
    total += out_length;
    if (length >= wanted) break;
    wanted -= length;
    pos += length;
    if (length > wanted) length = std::min(unit, wanted + extra);
  }
  return ok;
}

}  // namespace

bool copy_attrib_data(CNtfs* volume, const attrib_row& row, std::ostream& out, const copy_options& options,
                      uint64_t& total) {
  total = 0;
  bool has_value = !row.m_non_resident && !row.m_value.empty();
  if (row.m_runs.empty() && !has_value) {
    if (options.m_log) log_line(*options.m_log, "err: no data");
    return false;
  }
  if (!out) return false;
  // A resident value lies in the record itself: an extracted $MFT gives it without a volume.
  if (!row.m_non_resident) {
    if (options.m_log) log_line(*options.m_log, "info: data size 0x%llx", (unsigned long long)row.m_value.size());
    if (!emit(out, options, row.m_value.data(), row.m_value.size())) return false;
    total = row.m_value.size();
    return true;
  }
  if (!volume) return false;
  uint64_t c = volume->cluster_size();
  if (c == 0) return false;
  uint64_t wanted = options.m_raw ? row.m_allocated_size : std::max(row.m_real_size, row.m_valid_size);
  if (options.m_max_bytes) wanted = std::min(wanted, options.m_max_bytes);
  if (options.m_log) log_line(*options.m_log, "info: data size 0x%llx", (unsigned long long)wanted);
  bool compressed = row.m_flags == 1 && row.m_compression_unit != 0 && !options.m_raw && row.m_compressed_size != 0;
  data_run_list runs = options.m_skip_sparse && !compressed ? without_sparse(row.m_runs) : row.m_runs;
  uint64_t limit = std::min(list_bytes(runs, c, false), wanted);
  if (limit == 0) return false;
  if (options.m_max_hole_bytes && !options.m_skip_sparse) {
    const uint64_t stored = list_bytes(runs, c, true);
    if (limit > stored && limit - stored > options.m_max_hole_bytes) {
      options.m_holes_refused = true;
      if (options.m_log)
        log_line(*options.m_log, "err: holes of 0x%llx bytes in a stream of 0x%llx, refused",
                 (unsigned long long)(limit - stored), (unsigned long long)limit);
      return false;
    }
  }
  if (compressed) return copy_compressed(*volume, runs, limit, out, options, total);
  uint64_t slack = options.m_append_slack && row.m_allocated_size > wanted ? row.m_allocated_size - wanted : 0;
  return copy_plain(*volume, row, runs, limit, slack, out, options, total);
}
