#pragma once
// -bodyfile: the pipe-separated rows mactime reads, one for the standard information and one for
// the file-name times of each name (or one when the two sets agree).
#include <string>

#include "analysis/orv_record_sink.h"
#include "results/result_row.h"

class entry_record;
class mft_entries_ctx;
class results_stream;
struct scan_state;

struct bodyfile_writer {
  bodyfile_writer(const mft_entries_ctx& options, results_stream& out) : m_options(options), m_out(out) {}
  const mft_entries_ctx& m_options;
  results_stream& m_out;
  bool m_header_pending = true;
  bool m_layout_ready = false;
  result_layout m_layout;
  // Per-record buffers, reused: the rows, the fields behind the name, the name, the first field.
  std::string m_line, m_text, m_notes, m_first;
};

void write_bodyfile(entry_record& entry, const scan_state& scan, bodyfile_writer& writer);
record_sink bodyfile_rows_sink(bodyfile_writer& writer);
