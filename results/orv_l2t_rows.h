#pragma once
// -csvl2t: the 17 fields of a log2timeline CSV, one row per distinct instant of a standard
// information or file-name attribute, with the MACB letters of the times that share it.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "analysis/orv_record_sink.h"

class entry_record;
class mft_entries_ctx;
class results_stream;
struct scan_state;

// The four times of one attribute given to the grouping, in M, A, C, B order.
struct macb_set {
  uint64_t m_times[4] = {0, 0, 0, 0};  // modified, accessed, changed (MFT), born
  const char* m_prefix = "$SI:";       // "$SI:", "$FN:" or "$FN8.3:"
};

// One grouped row: its instant and letters ("M.C.", ".A.B", ...).
struct macb_row {
  uint64_t m_time = 0;
  char m_letters[5] = {'.', '.', '.', '.', 0};
};

// Rows in M, A, C, B order, each taking the later letters of equal time; times that are zero or
// cannot be displayed make no row and join none.
void group_macb(const macb_set& set, std::vector<macb_row>& rows);

struct l2t_row_scratch;

// The writer of a run: the header-once flag and per-record buffers reused for every record.
struct l2t_writer {
  l2t_writer(const mft_entries_ctx& options, results_stream& out);
  ~l2t_writer();
  l2t_writer(const l2t_writer&) = delete;
  l2t_writer& operator=(const l2t_writer&) = delete;
  const mft_entries_ctx& m_options;
  results_stream& m_out;
  bool m_header_pending = true;
  std::unique_ptr<l2t_row_scratch> m_scratch;
};

void write_l2t(entry_record& entry, const scan_state& scan, l2t_writer& writer);
record_sink l2t_rows_sink(l2t_writer& writer);
