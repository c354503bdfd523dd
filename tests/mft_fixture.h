#pragma once
// A small extracted $MFT assembled from records built in memory, opened as the run's source.
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "run/mft_entries_ctx.h"
#include "tests/test_util.h"

namespace testutil {

struct mft_image {
  uint32_t m_record_size = 1024;
  std::map<uint64_t, std::vector<uint8_t>> m_records;  // record number -> bytes

  void put(uint64_t number, const record_builder& builder) { m_records[number] = builder.build(); }
  // Writes the file (holes are zero-filled) and opens it as `ctx`'s source.
  std::string write(const std::string& dir) const;
};

// A context whose source is the given image; the context owns nothing else.
std::unique_ptr<mft_entries_ctx> open_mft(const mft_image& image, const std::string& tag);

// Record 0 ($MFT) with an unnamed data attribute covering `records` records, and root 5.
void add_system_records(mft_image& image, uint64_t records);
record_builder directory(uint64_t parent_ref, const std::u16string& name, uint16_t sequence = 1, bool in_use = true);
record_builder file(uint64_t parent_ref, const std::u16string& name, uint16_t sequence = 1, bool in_use = true);

}  // namespace testutil
