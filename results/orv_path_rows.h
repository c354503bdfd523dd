#pragma once
// One row per path of a record (-csvperpath, and the rows of -action_copy_files): the record's
// numbers, its standard information and file-name times side by side, the name and parent path,
// and, when files are copied, the path of each copy.
#include <string>

#include "analysis/orv_record_sink.h"
#include "results/result_row.h"

class entry_record;
class mft_entries_ctx;
class results_stream;
struct scan_state;

struct path_writer {
  path_writer(const mft_entries_ctx& options, results_stream& out) : m_options(options), m_out(out) {}
  const mft_entries_ctx& m_options;
  results_stream& m_out;
  result_table m_table;
  int m_col_entry = -1, m_col_seq = -1, m_col_parent = -1, m_col_parent_seq = -1, m_col_times = -1,
      m_col_type = -1, m_col_ext = -1, m_col_size = -1, m_col_offset = -1, m_col_name = -1, m_col_path = -1,
      m_col_links = -1, m_col_object = -1, m_col_ads = -1, m_col_zone = -1, m_col_warning = -1,
      m_col_host = -1, m_col_dos_times = -1, m_col_extracted = -1, m_col_summary = -1, m_col_header = -1;
  int m_time_step = 2;  // columns per time cell: 2 for a date and a time, 1 under -pair_datetime
};

// The rows of one record for one stream: `stream` (UTF-8, may be empty) follows the name after a
// colon, `extracted` fills "extracted file path".
void write_path_row(entry_record& entry, const scan_state& scan, path_writer& writer, const std::string& stream,
                    const std::wstring& extracted);
// The writer as the scans see it: the content pass of extraction or hashing first, then the rows.
record_sink path_rows_sink(path_writer& writer);
