#pragma once
// -find_mft: one record as labelled text, its header, standard information, names and data
// attributes with their cluster runs, then the paths of its names.
#include "analysis/orv_record_sink.h"

class entry_record;
class mft_entries_ctx;
class results_stream;
struct scan_state;

struct text_dump_writer {
  text_dump_writer(const mft_entries_ctx& options, results_stream& out) : m_options(options), m_out(out) {}
  const mft_entries_ctx& m_options;
  results_stream& m_out;
};

void write_text_dump(entry_record& entry, const scan_state& scan, text_dump_writer& writer);
record_sink text_dump_sink(text_dump_writer& writer);
