#pragma once
// The one output stream every writer prints to: the results file, or standard output.
// Rows are gathered in a large buffer and written with few system calls; nothing flushes per row.
// A full buffer is written by a thread of the stream while the next one fills, so the copy into
// the page cache runs beside the decoding; the bytes and their order are those of one thread.
#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

#include "base/orv_background_task.h"

class results_stream {
 public:
  results_stream();  // standard output
  ~results_stream();
  results_stream(const results_stream&) = delete;
  results_stream& operator=(const results_stream&) = delete;

  // Opens (creating or truncating) a results file, or with `append` adds to the end of one that
  // exists. False when it cannot be opened.
  bool open_file(const std::string& path, bool append = false);
  bool is_stdout() const { return m_fd == 1; }

  // Only one thread at a time may write to a stream.
  void write(std::string_view text) {
    m_buffer.append(text.data(), text.size());
    if (m_buffer.size() >= k_flush_size) hand_off();
  }
  void put(char c) {
    m_buffer.push_back(c);
    if (m_buffer.size() >= k_flush_size) hand_off();
  }
  results_stream& operator<<(std::string_view text) { write(text); return *this; }
  // Every byte given so far is written when this returns.
  void flush();
  // False when any byte could not be written (the file is then incomplete).
  bool close();
  bool failed() const;

 private:
  // Gives the full buffer to the writing thread, once it has written the one before.
  void hand_off();

  static constexpr size_t k_flush_size = 1 << 20;
  int m_fd = 1;
  bool m_owns_fd = false;
  bool m_failed = false;
  std::string m_buffer;
  std::string m_full;                        // the buffer the writing task holds
  std::atomic<bool> m_full_failed{false};    // set by the writing task
  orv::background_task m_writer;             // last, so that it stops before the buffers it writes go
};
