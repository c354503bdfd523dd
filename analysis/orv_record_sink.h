#pragma once
// Where the scans hand each selected record. The run picks the writer; the scans know no more
// of it than this.
class entry_record;
struct scan_state;

struct record_sink {
  void (*m_write)(void* writer, entry_record& entry, const scan_state& scan) = nullptr;
  void* m_writer = nullptr;
};

inline void sink_write(const record_sink& sink, entry_record& entry, const scan_state& scan) {
  if (sink.m_write) sink.m_write(sink.m_writer, entry, scan);
}

// The sink of a writer: `Write(entry, scan, writer)` for each record, the writer as its own type.
template <auto Write, typename Writer>
record_sink sink_of(Writer& writer) {
  record_sink sink;
  sink.m_writer = &writer;
  sink.m_write = [](void* target, entry_record& entry, const scan_state& scan) {
    Write(entry, scan, *static_cast<Writer*>(target));
  };
  return sink;
}
