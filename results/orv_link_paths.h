#pragma once
// Bare paths (-filepath_only): one line per name of a file, its directory path from the root with
// the name behind it.
#include <string>

#include "analysis/orv_record_sink.h"

class entry_record;
class mft_entries_ctx;
class results_stream;
struct scan_state;

struct link_paths_writer {
  link_paths_writer(const mft_entries_ctx& options, results_stream& out) : m_options(options), m_out(out) {}
  const mft_entries_ctx& m_options;
  results_stream& m_out;
};

// One line per name of the entry; `stream` (UTF-8, may be empty) follows each name after a colon.
void write_hard_link_paths(const entry_record& entry, const scan_state& scan, results_stream& out,
                           const std::string& stream);
record_sink link_paths_sink(link_paths_writer& writer);
