#include "base/orv_results_stream.h"

#include <fcntl.h>
#include <unistd.h>

#include <condition_variable>
#include <mutex>
#include <thread>

#include "base/orv_fileio.h"

// The writing thread and the one buffer it holds. `m_full` is the handed-off buffer; the
// writer empties it (keeping its capacity) and hands it back by clearing `m_busy`.
struct results_stream::background {
  std::mutex m_lock;
  std::condition_variable m_changed;
  std::string m_full;
  bool m_busy = false;
  bool m_stop = false;
  bool m_failed = false;
  int m_fd = -1;
  std::thread m_thread;

  void run() {
    std::unique_lock<std::mutex> hold(m_lock);
    for (;;) {
      m_changed.wait(hold, [this] { return m_busy || m_stop; });
      if (!m_busy) return;
      const bool failed = m_failed;
      hold.unlock();
      const bool written = failed || uni::write_all(m_fd, m_full.data(), m_full.size());
      m_full.clear();
      hold.lock();
      if (!written) m_failed = true;  // rows would be lost unseen: the run reports it at close
      m_busy = false;
      m_changed.notify_all();
    }
  }
  void wait_idle() {
    std::unique_lock<std::mutex> hold(m_lock);
    m_changed.wait(hold, [this] { return !m_busy; });
  }
  void stop() {
    {
      std::lock_guard<std::mutex> hold(m_lock);
      m_stop = true;
    }
    m_changed.notify_all();
    m_thread.join();
  }
};

results_stream::results_stream() { m_buffer.reserve(k_flush_size + 4096); }

results_stream::~results_stream() { close(); }

bool results_stream::open_file(const std::string& path, bool append) {
  close();
  int fd = ::open(path.c_str(), append ? O_WRONLY | O_APPEND | O_CLOEXEC : O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return false;
  m_fd = fd;
  m_owns_fd = true;
  m_failed = false;
  return true;
}

void results_stream::hand_off() {
  if (!m_background) {
    m_background = std::make_unique<background>();
    m_background->m_full.reserve(k_flush_size + 4096);
    m_background->m_fd = m_fd;
    background* writer = m_background.get();
    m_background->m_thread = std::thread([writer] { writer->run(); });
  }
  background& writer = *m_background;
  std::unique_lock<std::mutex> hold(writer.m_lock);
  writer.m_changed.wait(hold, [&writer] { return !writer.m_busy; });
  m_buffer.swap(writer.m_full);
  writer.m_busy = true;
  hold.unlock();
  writer.m_changed.notify_all();
}

void results_stream::flush() {
  if (m_background) {
    m_background->wait_idle();
    if (m_background->m_failed) m_failed = true;
  }
  if (!m_failed && !uni::write_all(m_fd, m_buffer.data(), m_buffer.size())) m_failed = true;
  m_buffer.clear();
}

bool results_stream::failed() const {
  if (!m_background) return m_failed;
  std::lock_guard<std::mutex> hold(m_background->m_lock);
  return m_failed || m_background->m_failed;
}

bool results_stream::close() {
  flush();
  if (m_background) {
    m_background->stop();
    m_background.reset();
  }
  if (m_owns_fd && m_fd >= 0 && ::close(m_fd) != 0) m_failed = true;
  m_fd = 1;
  m_owns_fd = false;
  return !m_failed;
}
