#include "ntfs/orv_runs.h"

#include <map>

#include "base/orv_le.h"

// A run on disk: header byte with the count width L in the low nibble and the offset width O in
// the high nibble, then L bytes of cluster count and O bytes of signed LCN offset relative to the
// previous run. A header byte of 0 ends the list. Widths above 8 bytes cannot be represented:
// only the low 8 bytes of such a field are used, the sign still taken from its top byte.

namespace {

// Signed LCN offset of width `width`. `negative` tells whether its top bit was set; `magnitude`
// is the absolute value, masked to the field width as the two's complement of the stored bytes.
void read_offset(const uint8_t* p, unsigned width, uint64_t& magnitude, bool& negative) {
  magnitude = 0;
  negative = false;
  if (width == 0) return;
  unsigned used = width < 8 ? width : 8;
  uint64_t value = orv::le_n(p, used);
  negative = (p[width - 1] & 0x80) != 0;
  if (!negative) {
    magnitude = value;
    return;
  }
  uint64_t mask = used >= 8 ? ~uint64_t(0) : ((uint64_t(1) << (8 * used)) - 1);
  magnitude = (~value + 1) & mask;
}

}  // namespace

bool decode_runs(const uint8_t* attribute, uint32_t attrib_length, raw_run_list& out) {
  if (!attribute || attrib_length == 0) return false;
  orv::byte_span attr(attribute, attrib_length);
  uint32_t type = attr.u32(0);
  uint64_t vcn = attr.u64(16);
  uint32_t pos = attr.u16(32);
  if (pos >= attrib_length) return true;  // no room for a single run
  int64_t remaining = int64_t(attrib_length) - pos;
  uint64_t lcn = 0;
  while (remaining >= 1) {
    uint8_t header = attribute[pos];
    if (header == 0) break;
    unsigned len_width = header & 0x0F, off_width = header >> 4;
    uint32_t run_size = len_width + off_width + 1;
    if (run_size > remaining) break;  // cut by the end of the attribute
    raw_run run;
    bool negative = false;
    uint64_t magnitude = 0;
    read_offset(attribute + pos + 1 + len_width, off_width, magnitude, negative);
    if (negative)
      lcn -= magnitude;
    else
      lcn += magnitude;
    run.m_lcn = lcn;
    run.m_offset_abs = magnitude;
    run.m_negative = negative;
    run.m_count = uint32_t(orv::le_n(attribute + pos + 1, len_width < 8 ? len_width : 8));
    run.m_vcn = vcn;
    run.m_position = pos;
    run.m_attrib_type = type;
    run.m_bytes.assign(attribute + pos, attribute + pos + run_size);
    uint32_t next = pos + run_size;
    for (uint32_t i = next; i < next + 3 && i < attrib_length; ++i) run.m_following.push_back(attribute[i]);
    out.push_back(std::move(run));
    vcn += out.back().m_count;
    pos = next;
    remaining -= run_size;
  }
  return true;
}

void runs_to_list(const raw_run_list& raw, data_run_list& out) {
  for (size_t i = 0; i < raw.size(); ++i) {
    const raw_run& r = raw[i];
    run_entry e;
    e.m_vcn = r.m_vcn;
    e.m_count = r.m_count;
    if (r.m_offset_abs != 0) {
      e.m_lcn = r.m_lcn;
    } else if (i > 0) {
      // Later runs with a zero offset (stored or not) are holes.
      e.m_is_sparse = true;
    } else {
      // First run: a hole when no offset was stored; a stored zero offset is a run at cluster 0.
      bool stored = !r.m_bytes.empty() && (r.m_bytes[0] >> 4) != 0;
      e.m_is_sparse = !stored;
      e.m_lcn = stored ? r.m_lcn : 0;
    }
    out.push_back(e);
  }
}

bool attribute_run_list(const uint8_t* attribute, uint32_t attrib_length, data_run_list& out) {
  raw_run_list raw;
  if (!decode_runs(attribute, attrib_length, raw)) return false;
  runs_to_list(raw, out);
  return true;
}

bool decode_run_bytes(const uint8_t* bytes, size_t length, uint64_t first_vcn, data_run_list& out, bool replace) {
  if (replace) out.clear();
  if (!bytes) return false;
  size_t pos = 0;
  int64_t lcn = 0;
  uint64_t vcn = first_vcn;
  bool any = false;
  while (pos < length && bytes[pos] != 0) {
    unsigned len_width = bytes[pos] & 0x0F, off_width = bytes[pos] >> 4;
    if (pos + 1 + len_width + off_width > length) break;
    run_entry e;
    e.m_vcn = vcn;
    e.m_count = uint32_t(orv::le_n(bytes + pos + 1, len_width < 8 ? len_width : 8));
    if (off_width == 0) {
      // No offset stored: a hole. The running LCN stays where it is.
      e.m_lcn = ~uint64_t(0);
      e.m_is_sparse = true;
    } else {
      const uint8_t* p = bytes + pos + 1 + len_width;
      unsigned used = off_width < 8 ? off_width : 8;
      uint64_t value = orv::le_n(p, used);
      if ((p[off_width - 1] & 0x80) && used < 8) value |= ~uint64_t(0) << (8 * used);  // sign-extend
      lcn = int64_t(uint64_t(lcn) + value);
      e.m_lcn = uint64_t(lcn);
    }
    out.push_back(e);
    any = true;
    vcn += e.m_count;
    pos += 1 + len_width + off_width;
  }
  return any;
}

void merge_run_lists(data_run_list& list, const data_run_list& more) {
  std::map<uint64_t, run_entry> by_vcn;
  for (const run_entry& e : list) by_vcn.emplace(e.m_vcn, e);
  for (const run_entry& e : more) by_vcn.emplace(e.m_vcn, e);  // a stored entry keeps its place
  list.clear();
  uint64_t vcn = 0;
  for (auto& kv : by_vcn) {
    run_entry e = kv.second;
    e.m_vcn = vcn;
    vcn += e.m_count;
    list.push_back(e);
  }
}

uint64_t list_bytes(const data_run_list& list, uint64_t cluster_size, bool skip_sparse) {
  uint64_t clusters = 0;
  for (const run_entry& e : list)
    if (!(skip_sparse && e.m_is_sparse)) clusters += e.m_count;  // at most 2^32 runs of 2^32: no wrap
  if (cluster_size && clusters > UINT64_MAX / cluster_size) return UINT64_MAX;
  return clusters * cluster_size;
}

data_run_list without_sparse(const data_run_list& list) {
  data_run_list out;
  uint64_t vcn = 0;
  for (const run_entry& e : list) {
    if (e.m_is_sparse) continue;
    run_entry c = e;
    c.m_vcn = vcn;
    vcn += c.m_count;
    out.push_back(c);
  }
  return out;
}
