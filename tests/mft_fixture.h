#pragma once
// A run on a small extracted $MFT built in memory (test_util.h), opened as the source of a scan.
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "analysis/orv_scan_state.h"
#include "run/mft_entries_ctx.h"
#include "tests/ntfs/orv_test_volume.h"
#include "tests/test_util.h"

namespace testutil {

// The options of a run on an extracted $MFT, and its scan with the source open.
struct mft_run { mft_entries_ctx m_options; scan_state m_scan; };

// A run whose source is the given image, opened with the options as `tweak` leaves them.
std::unique_ptr<mft_run> open_mft(const mft_image& image, const std::string& tag,
                                  void (*tweak)(mft_entries_ctx&) = nullptr);

// Record 0 ($MFT) with an unnamed data attribute covering `records` records, and root 5.
void add_system_records(mft_image& image, uint64_t records);
record_builder directory(uint64_t parent_ref, const std::u16string& name, uint16_t sequence = 1, bool in_use = true);
record_builder file(uint64_t parent_ref, const std::u16string& name, uint16_t sequence = 1, bool in_use = true);

// A 256 KiB volume whose record `number` holds an attribute `type` that claims 512 MiB over a run
// of 2^17 clusters from cluster 0.
std::vector<uint8_t> lying_volume(uint64_t number, uint32_t type);
// How far the peak resident set grew (KiB) while `body` ran.
long peak_growth_kib(const std::function<void()>& body);

}  // namespace testutil
