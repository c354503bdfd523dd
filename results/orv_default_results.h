#pragma once
// The default timeline rows (" | " padded, or -csv): one row per distinct instant of a record's
// standard information and file-name times, and within an instant one row per name.
#include <memory>

#include "analysis/orv_record_sink.h"
#include "results/result_row.h"

class entry_record;
class mft_entries_ctx;
class results_stream;
struct default_row_scratch;
struct scan_state;

// The writer of a run: its table, built by the first record that reaches it, and per-record
// buffers reused for every record.
struct default_writer {
  default_writer(const mft_entries_ctx& options, results_stream& out);
  ~default_writer();
  default_writer(const default_writer&) = delete;
  default_writer& operator=(const default_writer&) = delete;

  const mft_entries_ctx& m_options;
  results_stream& m_out;
  result_table m_table;
  // Column indices, -1 when the column is absent.
  int m_col_entry = -1, m_col_seq = -1, m_col_parent = -1, m_col_parent_seq = -1, m_col_type = -1,
      m_col_ext = -1, m_col_ref = -1, m_col_size = -1, m_col_time = -1, m_col_macb = -1,
      m_col_data_type = -1, m_col_other = -1, m_col_md5 = -1, m_col_sha1 = -1, m_col_sha256 = -1,
      m_col_name = -1, m_col_path = -1, m_col_summary = -1, m_col_extracted = -1, m_col_header = -1;
  std::unique_ptr<default_row_scratch> m_scratch;
};

void write_default_results(entry_record& entry, const scan_state& scan, default_writer& writer);
// The writer as the scans see it.
record_sink default_rows_sink(default_writer& writer);
