#pragma once
// Byte ranges of a stream through its run list, and the copy of one attribute's content.
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "ntfs/orv_runs.h"

class CNtfs;
struct diag_sink;

// Reads a byte range of a stream through its run list (sparse clusters as zeros; flag 0x1 in
// `flags` skips them). `length` comes back with the bytes delivered.
bool read_stream(CNtfs& volume, const data_run_list& runs, uint64_t position, uint8_t* buffer,
                 uint64_t& length, uint32_t& flags);
// The first `size` bytes of a stream in memory, cut to what its runs and the source hold. False
// when nothing comes back.
bool read_stream_bytes(CNtfs& volume, const data_run_list& runs, uint64_t size, std::vector<uint8_t>& out);

// Pseudo type of the first row of a record: its summary.
constexpr uint32_t ROW_RECORD_SUMMARY = 0x110;

struct attrib_row {
  uint32_t m_type = 0;
  uint16_t m_id = 0;
  uint16_t m_flags = 0;             // attribute flags: 1 compressed, 0x4000 encrypted, 0x8000 sparse
  uint64_t m_key = 0;               // attrib_key of record and id
  bool m_non_resident = false;
  // Resident form.
  uint32_t m_value_length = 0;
  std::vector<uint8_t> m_value;
  // Non-resident form.
  uint64_t m_inode = 0;             // record that holds the attribute (its base when it has one)
  uint64_t m_allocated_size = 0;
  uint64_t m_real_size = 0;
  uint64_t m_valid_size = 0;
  uint64_t m_compressed_size = 0;
  uint8_t m_compression_unit = 0;
  data_run_list m_runs;
  std::string m_name;               // UTF-8
  // Summary row (ROW_RECORD_SUMMARY): entry number in m_inode, and these.
  uint16_t m_sequence = 0;
  uint32_t m_record_size = 0;       // (update sequence count - 1) x 512
  uint64_t m_base_ref = 0;
  uint32_t m_record_bits = 0;       // 1 not in use, 2 directory, 4 always, links << 3, 0x80 has base
  // Standard information and file name rows: the four times, file attribute flags; a file name
  // row carries its sizes in m_allocated_size / m_real_size.
  uint64_t m_times[4] = {0, 0, 0, 0};
  uint32_t m_file_flags = 0;
  std::string m_text;               // volume name, or object id text
};

struct copy_options {
  bool m_raw = false;          // allocated size, stored bytes, index blocks as on disk
  bool m_skip_sparse = false;  // holes are left out instead of written as zeros
  bool m_append_slack = false; // after the data, the rest of the allocation
  uint64_t m_max_bytes = 0;    // non-resident streams: at most this many bytes of content; 0 all
  // Sparse clusters come out as zeros; a stream whose holes would give more zeros than this is
  // refused (m_holes_refused set) rather than copied: a few bytes of a hostile record must not
  // turn into terabytes of output. 0: no limit.
  uint64_t m_max_hole_bytes = 0;
  mutable bool m_holes_refused = false;
  // Sees every byte written, in order (digests).
  void (*m_feed)(void* user, const uint8_t* bytes, size_t length) = nullptr;
  void* m_feed_user = nullptr;
  const diag_sink* m_log = nullptr;
};

// Copies the content of one attribute to `out`; a resident value needs no volume. `total` comes
// back with the bytes written. False
// with nothing to copy (no runs, no value, size 0), on a bad stream or a failed write; a read
// failure part-way ends the copy with true and what was written so far.
bool copy_attrib_data(CNtfs* volume, const attrib_row& row, std::ostream& out, const copy_options& options,
                      uint64_t& total);
