#pragma once
// -hashfile: one row per name of a record with the digests of its unnamed data stream, the size,
// the standard information and file-name times, the name and its parent path.
#include "analysis/orv_record_sink.h"
#include "results/result_row.h"

class entry_record;
class mft_entries_ctx;
class results_stream;
struct attrib_item;
struct scan_state;

struct hash_writer {
  hash_writer(const mft_entries_ctx& options, results_stream& out) : m_options(options), m_out(out) {}
  const mft_entries_ctx& m_options;
  results_stream& m_out;
  result_table m_table;
  int m_col_md5 = -1, m_col_sha1 = -1, m_col_sha256 = -1, m_col_inode = -1, m_col_size = -1, m_col_times = -1,
      m_col_name = -1, m_col_path = -1, m_col_host = -1, m_col_valid = -1, m_col_filter = -1, m_col_comment = -1;
  int m_time_step = 2;
};

// The rows of one record for the stream `hashed` (null for a record without one), with the
// digests the entry holds.
void write_hash_rows(entry_record& entry, const scan_state& scan, hash_writer& writer, const attrib_item* hashed);
// The writer as the scans see it: the unnamed stream is hashed first.
record_sink hash_rows_sink(hash_writer& writer);
