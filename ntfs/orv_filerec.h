#pragma once
// Recognising what a record-sized buffer holds and applying its multi-sector fixups. Fixups are
// never verified: a torn sector is overwritten with the array's word and decoding goes on.
#include <cstddef>
#include <cstdint>
#include <vector>

class record_source;
struct diag_sink;

enum record_kind : int { record_refused = 0, record_file = 1, record_index = 2, record_baad = 3 };

// NTFS keeps one update sequence word per 512 bytes of a record or index block, whatever the
// sector size: a 4096-byte record carries 9 words on a volume of 4096-byte sectors too.
constexpr uint32_t k_fixup_stride = 512;

// How a reader takes the kinds of buffer it may meet. "FILE" (by is_valid_filerec) and "INDX"
// always pass with their fixups.
// A "BAAD" record is one whose multi-sector write failed; what its attributes still hold is
// decoded like any record's, its array applied when it lies within 64 bytes and holds at most 10
// words.
enum fixup_mode {
  fixup_scan,      // the scans and the entry decoder: "BAAD" is taken and reported
  fixup_volume,    // the volume's own reads: "BAAD" is refused
  fixup_recovery,  // blocks of free clusters: at least 1024 bytes, and the array must fit the buffer
};

// Copies word i of the array over the last two bytes of sector i-1, for i from 1 while i < count
// and i <= length / sector_size. Array words outside the buffer end the loop.
void apply_fixups(uint8_t* buffer, size_t length, uint32_t array_offset, uint32_t count, uint32_t sector_size);
// Recognises the buffer and applies its fixups as `mode` says; gives the record_kind.
int fixup_record(uint8_t* buffer, size_t length, fixup_mode mode);
// Reads record `inode` from `source` into `record` (sized by the call) and applies fixups. True
// when `record` holds something usable; `bad` flags a "BAAD" record.
bool mft_fixup_read(std::vector<uint8_t>& record, bool& bad, record_source& source, uint64_t inode,
                    const diag_sink& log);
