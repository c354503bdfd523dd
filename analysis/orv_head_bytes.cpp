#include "analysis/orv_head_bytes.h"

#include <algorithm>
#include <sstream>

#include "analysis/entry_record.h"
#include "analysis/orv_attrib_rows.h"
#include "analysis/orv_scan_state.h"
#include "ntfs/ntfs.h"
#include "ntfs/orv_attrib.h"
#include "ntfs/orv_stream.h"
#include "run/mft_entries_ctx.h"

void read_head_bytes(entry_record& entry, const mft_entries_ctx& options, const scan_state& scan) {
  const uint64_t want = options.m_header_size, offset = options.m_header_offset;
  CNtfs* volume = scan.m_source.volume();
  for (auto& kv : entry.m_attribs) {
    attrib_item& item = kv.second;
    if (!item.m_is_data || !item.m_name.empty()) continue;
    item.m_head.clear();
    if (!item.non_resident()) {
      attrib_view attr(orv::byte_span(item.m_raw_attrib.data(), item.m_raw_attrib.size()));
      orv::byte_span value = attr.value();
      if (offset < value.m_size) {
        orv::byte_span head = value.sub(size_t(offset), size_t(std::min<uint64_t>(want, value.m_size - offset)));
        item.m_head.assign(head.m_data, head.m_data + head.m_size);
      }
      continue;
    }
    uint64_t size = item.stream_size();
    if (!volume || item.m_runs.empty() || offset >= size) continue;
    uint64_t length = std::min(want, size - offset);
    if (item.flags() == 1 && item.compression_unit() != 0) {
      // A compressed stream's head is what its first units expand to.
      std::ostringstream expanded;
      copy_options options;
      options.m_max_bytes = offset + length;
      uint64_t total = 0;
      copy_attrib_data(volume, row_of_item(entry, item, kv.first, 0xFFFFFFFFu), expanded, options, total);
      const std::string bytes = expanded.str();
      if (bytes.size() > offset) item.m_head.assign(bytes.begin() + int64_t(offset), bytes.end());
      continue;
    }
    item.m_head.resize(length);
    uint32_t flags = 0;
    if (!read_stream(*volume, item.m_runs, offset, item.m_head.data(), length, flags)) item.m_head.clear();
    else item.m_head.resize(std::min<uint64_t>(length, item.m_head.size()));
  }
}
