#include "tests/mft_fixture.h"

#include <sys/resource.h>

#include "analysis/orv_mft_scan.h"
#include "base/orv_string.h"

namespace testutil {

std::unique_ptr<mft_run> open_mft(const mft_image& image, const std::string& tag, void (*tweak)(mft_entries_ctx&)) {
  auto run = std::make_unique<mft_run>();
  run->m_options.m_progress = 0;
  run->m_options.m_mftfile_path = orv::to_wide(image.write(make_temp_dir(tag)));
  if (tweak) tweak(run->m_options);
  scan_state_for(run->m_scan, run->m_options);
  return ensure_source_open(run->m_options, run->m_scan) ? std::move(run) : nullptr;
}

static const uint64_t k_time = 132000000000000000ull;  // 2019-04-14

void add_system_records(mft_image& image, uint64_t records) {
  // $MFT's data: one run of `clusters` clusters at LCN 4.
  const uint64_t bytes = records * image.m_record_size, clusters = (bytes + 4095) / 4096, root = 5 | (5ull << 48);
  image.put(0, record_builder()
                   .resident(0x10, si_value(k_time, k_time, k_time, k_time, 6))
                   .resident(0x30, fn_value(root, u"$MFT", 3, k_time, k_time, k_time, k_time))
                   .nonresident(0x80, {0x12, uint8_t(clusters), uint8_t(clusters >> 8), 0x04}, clusters * 4096, bytes,
                                bytes));
  record_builder dir = directory(root, u".", 5);
  dir.m_record_number = 5;
  image.put(5, dir);
}

record_builder directory(uint64_t parent_ref, const std::u16string& name, uint16_t sequence, bool in_use) {
  record_builder b;
  b.m_sequence = sequence, b.m_flags = uint16_t((in_use ? 1 : 0) | 2);
  b.resident(0x10, si_value(k_time, k_time, k_time, k_time, 0x10));
  return b.resident(0x30, fn_value(parent_ref, name, 3, k_time, k_time, k_time, k_time, 0, 0, 0x10000000));
}

record_builder file(uint64_t parent_ref, const std::u16string& name, uint16_t sequence, bool in_use) {
  record_builder b;
  b.m_sequence = sequence, b.m_flags = in_use ? 1 : 0;
  b.resident(0x10, si_value(k_time, k_time + 10000000, k_time + 20000000, k_time + 30000000));
  return b.resident(0x30, fn_value(parent_ref, name, 1, k_time, k_time, k_time, k_time)).resident(0x80, {'h', 'i'});
}

std::vector<uint8_t> lying_volume(uint64_t number, uint32_t type) {
  testvol::image img(64);
  testvol::extents mft = {{4, 8}};
  const uint64_t claim = uint64_t(512) << 20;
  img.boot();
  img.put_record(mft, 0, testvol::mft_record(mft, img.cluster()).build());
  img.put_record(mft, number, record_builder()
                                  .resident(0x10, si_value(1, 2, 3, 4))
                                  .nonresident(type, testvol::encode_runs({{0, 1u << 17}}), claim, claim, claim)
                                  .build());
  return img.m_bytes;
}

long peak_growth_kib(const std::function<void()>& body) {
  struct rusage before, after;
  getrusage(RUSAGE_SELF, &before);
  body();
  getrusage(RUSAGE_SELF, &after);
  return after.ru_maxrss - before.ru_maxrss;
}

}  // namespace testutil
