// One record from a byte buffer: fixups, the attribute walk of read and selection, and the
// default writer. No source is open, so attribute lists and parent paths end early.
#include <cstring>

#include "analysis/entry_record.h"
#include "analysis/orv_mft_scan.h"
#include "base/orv_le.h"
#include "base/orv_results_stream.h"
#include "fuzz/fuzz_common.h"
#include "ntfs/orv_attrib.h"
#include "ntfs/orv_filerec.h"
#include "run/mft_entries_ctx.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 65536) return 0;
  std::vector<uint8_t> record(data, data + size);
  uint32_t bits = fuzz::input_hash(data, size);
  if (is_valid_filerec(record.data(), record.size()))
    apply_fixups(record.data(), record.size(), 48, orv::le16(record.data() + 6), 512);
  int raw_kind = 0;
  if (size >= 1024) {
    std::vector<uint8_t> copy = record;
    raw_kind = fixup_raw(copy.data(), copy.size(), (bits & 1) ? 4096 : 512, bits & 2);
  }
  (void)raw_kind;

  mft_entries_ctx ctx;
  ctx.m_progress = 0;
  ctx.m_record_size = (bits & 4) ? 4096 : 1024;
  ctx.m_fmt_csv = (bits >> 3) & 1;
  ctx.m_time_analysis = (bits >> 4) & 1;
  entry_record entry;
  // The walk of read_entry, keeping every value.
  if (size >= 24) {
    uint16_t first = orv::le16(record.data() + 20);
    attrib_walk_rules rules;
    rules.m_limit = ctx.record_size();
    bool list_seen = false;
    walk_attributes(record.data(), record.size(), first, rules, [&](const uint8_t* attr, uint32_t len, size_t) {
      attrib_view view(orv::byte_span(attr, std::min<size_t>(len, record.size() - size_t(attr - record.data()))));
      view.value();
      view.has_name();
      std::wstring target;
      if (view.type() == AT_REPARSE_POINT) reparse_target(view.value(), target);
      return categorize_attrib(entry, ctx, 1, record.data(), uint32_t(record.size()), attr, list_seen, true);
    });
  }
  results_stream out;
  if (!out.open_file("/dev/null")) return 0;
  if (select_record(entry, record, uint32_t(record.size()), 1, ctx)) write_selected(entry, out, ctx);
  out.close();
  return 0;
}
