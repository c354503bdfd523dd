#include "tests/mft_fixture.h"

#include "analysis/orv_mft_scan.h"
#include "base/orv_string.h"

namespace testutil {

std::unique_ptr<mft_run> open_mft(const mft_image& image, const std::string& tag, void (*tweak)(mft_entries_ctx&)) {
  auto run = std::make_unique<mft_run>();
  run->m_options.m_progress = 0;
  run->m_options.m_mftfile_path = orv::to_wide(image.write(make_temp_dir(tag)));
  if (tweak) tweak(run->m_options);
  scan_state_for(run->m_scan, run->m_options);
  if (!ensure_source_open(run->m_options, run->m_scan)) return nullptr;
  return run;
}

static const uint64_t k_time = 132000000000000000ull;  // 2019-04-14

void add_system_records(mft_image& image, uint64_t records) {
  record_builder mft;
  mft.m_record_number = 0;
  mft.resident(0x10, si_value(k_time, k_time, k_time, k_time, 6));
  mft.resident(0x30, fn_value((5ull | (5ull << 48)), u"$MFT", 3, k_time, k_time, k_time, k_time));
  uint64_t bytes = records * image.m_record_size;
  uint64_t clusters = (bytes + 4095) / 4096;
  // One run of `clusters` clusters at LCN 4.
  std::vector<uint8_t> runs = {0x12, uint8_t(clusters), uint8_t(clusters >> 8), 0x04};
  mft.nonresident(0x80, runs, clusters * 4096, bytes, bytes);
  image.put(0, mft);
  record_builder root = directory((5ull | (5ull << 48)), u".", 5);
  root.m_record_number = 5;
  image.put(5, root);
}

record_builder directory(uint64_t parent_ref, const std::u16string& name, uint16_t sequence, bool in_use) {
  record_builder b;
  b.m_sequence = sequence;
  b.m_flags = uint16_t((in_use ? 1 : 0) | 2);
  b.resident(0x10, si_value(k_time, k_time, k_time, k_time, 0x10));
  b.resident(0x30, fn_value(parent_ref, name, 3, k_time, k_time, k_time, k_time, 0, 0, 0x10000000));
  return b;
}

record_builder file(uint64_t parent_ref, const std::u16string& name, uint16_t sequence, bool in_use) {
  record_builder b;
  b.m_sequence = sequence;
  b.m_flags = in_use ? 1 : 0;
  b.resident(0x10, si_value(k_time, k_time + 10000000, k_time + 20000000, k_time + 30000000));
  b.resident(0x30, fn_value(parent_ref, name, 1, k_time, k_time, k_time, k_time));
  b.resident(0x80, {'h', 'i'});
  return b;
}

}  // namespace testutil
