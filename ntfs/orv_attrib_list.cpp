#include "ntfs/orv_attrib_list.h"

#include <algorithm>
#include <cstring>
#include <set>
#include <utility>

#include "base/orv_console.h"
#include "ntfs/ntfs.h"
#include "ntfs/orv_attrib.h"
#include "ntfs/orv_record_header.h"
#include "ntfs/orv_runs.h"

namespace {

// No real file needs more bytes of list entries than this, and a lying run list must not make
// the reader allocate the volume.
constexpr uint64_t k_max_list_bytes = 64ull << 20;

// The attribute of `type` and `id` in a fixed-up record; null when the walk does not meet it
// whole. An attribute as long as the record itself ends the search.
const uint8_t* find_attribute(const uint8_t* record, size_t length, uint32_t type, uint16_t id,
                              uint32_t& found_length) {
  const uint8_t* found = nullptr;
  attrib_walk_rules rules;
  rules.m_limit = uint32_t(std::min<size_t>(length, UINT32_MAX)) - 1;
  walk_attributes(record, length, orv::le16(record + 20), rules, [&](const uint8_t* attr, uint32_t alen, size_t at) {
    if (at + 16 > length || alen > length - at) return false;
    if (orv::le32(attr) != type || orv::le16(attr + 14) != id) return true;
    found = attr;
    found_length = alen;
    return false;
  });
  return found;
}

}  // namespace

bool read_attrib_list_value(CNtfs& volume, orv::byte_span attribute, std::vector<uint8_t>& out) {
  out.clear();
  data_run_list runs;
  const uint64_t cluster = volume.cluster_size();
  if (!cluster || !attribute_run_list(attribute.m_data, uint32_t(attribute.m_size), runs) || runs.empty()) return false;
  uint64_t total = std::min(list_bytes(runs, cluster, false), k_max_list_bytes);
  const uint64_t source = volume.disk() ? volume.disk()->size() : 0;
  if (source) total = std::min(total, source);
  total -= total % cluster;
  out.assign(total, 0);
  uint64_t at = 0;
  for (const run_entry& run : runs) {
    for (uint32_t i = 0; i < run.m_count && at + cluster <= total; ++i, at += cluster) {
      if (run.m_is_sparse) continue;
      if (!volume.read_clusters(run.m_lcn + i, out.data() + at, cluster)) {
        at += uint64_t(run.m_count - i) * cluster;  // a failed read gives up on the rest of the run
        break;
      }
    }
    if (at >= total) break;
  }
  return true;
}

void pull_listed_attributes(const uint8_t* list, size_t length, uint64_t base, const attrib_list_rules& rules,
                            const record_fetch& fetch, const listed_attribute& visit) {
  if (!list) return;
  std::vector<uint8_t> record;
  uint64_t record_number = UINT64_MAX;  // consecutive entries mostly name one record: read it once
  bool record_ok = false;
  std::set<std::pair<uint64_t, uint64_t>> pulled;
  for (size_t pos = 0; pos + k_list_entry_header <= length;) {
    const attrib_list_entry entry(orv::byte_span(list + pos, length - pos));
    // An entry shorter than its own header is damage; stepping by such lengths would read a
    // record for nearly every byte of the list.
    if (entry.length() < k_list_entry_header) break;
    const uint64_t holder = entry.holder();
    if (holder != base) {
      if (rules.m_log)
        log_line(*rules.m_log, "primary entry %llu pointing to ref entry %llu", (unsigned long long)base,
                 (unsigned long long)holder);
      const std::pair<uint64_t, uint64_t> key(entry.reference(), (uint64_t(entry.type()) << 16) | entry.attrib_id());
      if (!pulled.count(key)) {
        if (holder != record_number) {
          record_number = holder;
          record_ok = fetch(holder, record) && record.size() >= 24 && std::memcmp(record.data(), "FILE", 4) == 0 &&
                      orv::le16(record.data() + 20) != 0;
        }
        const bool same =
            record_ok && (!rules.m_same_sequence || orv::le16(record.data() + 16) == entry.holder_sequence());
        uint32_t found_length = 0;
        const uint8_t* found =
            same ? find_attribute(record.data(), record.size(), entry.type(), entry.attrib_id(), found_length)
                 : nullptr;
        if (found) {
          visit(record.data(), record.size(), found, found_length, holder);
          pulled.insert(key);
        }
      }
    }
    pos += entry.length();
  }
}
