#include "base/orv_results_stream.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

results_stream::results_stream() { m_buffer.reserve(k_flush_size + 4096); }

results_stream::~results_stream() { close(); }

bool results_stream::open_file(const std::string& path) {
  close();
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return false;
  m_fd = fd;
  m_owns_fd = true;
  m_failed = false;
  return true;
}

void results_stream::flush() {
  size_t done = 0;
  while (!m_failed && done < m_buffer.size()) {
    ssize_t n = ::write(m_fd, m_buffer.data() + done, m_buffer.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) m_failed = true;  // a full disk, a broken device: rows would be lost unseen
    else done += size_t(n);
  }
  m_buffer.clear();
}

bool results_stream::close() {
  flush();
  if (m_owns_fd && m_fd >= 0 && ::close(m_fd) != 0) m_failed = true;
  m_fd = 1;
  m_owns_fd = false;
  return !m_failed;
}
