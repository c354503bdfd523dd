#pragma once
// Fetching one file record and applying its multi-sector fixups. Fixups are never verified: a
// torn sector is overwritten with the array's word and decoding goes on.
#include <cstddef>
#include <cstdint>
#include <vector>

class mft_entries_ctx;

// "FILE", update sequence array at 48, count at most 9, first attribute offset below 73.
bool is_valid_filerec(const uint8_t* buffer, size_t length);
// Copies word i of the array over the last two bytes of sector i-1, for i from 1 while i < count
// and i <= length / sector_size. Array words outside the buffer end the loop.
void apply_fixups(uint8_t* buffer, size_t length, uint32_t array_offset, uint32_t count, uint32_t sector_size);
// Reads record `inode` from the run's source into `record` (sized by the call) and applies fixups.
// True when `record` holds something usable; `bad` flags a "BAAD" record.
bool mft_fixup_read(std::vector<uint8_t>& record, bool& bad, mft_entries_ctx& ctx, uint64_t inode);
// Variant for records read through a volume directly: 1 "FILE", 2 "INDX", 3 "BAAD", 0 refused.
// `recovery` applies the stricter "BAAD" rule of the free-cluster scan.
int fixup_raw(uint8_t* buffer, size_t length, uint32_t sector_size, bool recovery);
