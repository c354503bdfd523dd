#include "base/orv_results_stream.h"

#include <fcntl.h>
#include <unistd.h>

#include "base/orv_fileio.h"

results_stream::results_stream() { m_buffer.reserve(k_flush_size + 4096); }

results_stream::~results_stream() { close(); }

bool results_stream::open_file(const std::string& path, bool append) {
  close();
  int fd = ::open(path.c_str(), append ? O_WRONLY | O_APPEND | O_CLOEXEC : O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return false;
  m_fd = fd;
  m_owns_fd = true;
  m_failed = false;
  m_full_failed = false;
  return true;
}

void results_stream::hand_off() {
  m_writer.wait();
  if (m_full.capacity() == 0) m_full.reserve(k_flush_size + 4096);
  m_buffer.swap(m_full);
  m_writer.start([this] {
    // After a failure nothing more is written: rows would be lost unseen, and the run reports it
    // at close.
    if (!m_full_failed && !uni::write_all(m_fd, m_full.data(), m_full.size())) m_full_failed = true;
    m_full.clear();
  });
}

void results_stream::flush() {
  m_writer.wait();
  if (m_full_failed) m_failed = true;
  if (!m_failed && !uni::write_all(m_fd, m_buffer.data(), m_buffer.size())) m_failed = true;
  m_buffer.clear();
}

bool results_stream::failed() const { return m_failed || m_full_failed; }

bool results_stream::close() {
  flush();
  if (m_owns_fd && m_fd >= 0 && ::close(m_fd) != 0) m_failed = true;
  m_fd = 1;
  m_owns_fd = false;
  return !m_failed;
}
