#include "base/orv_background_task.h"

#include <utility>

namespace orv {

background_task::~background_task() {
  if (!m_thread.joinable()) return;
  {
    std::lock_guard<std::mutex> hold(m_lock);
    m_stop = true;
  }
  m_wakes.notify_one();
  m_thread.join();
}

void background_task::start(std::function<void()> task) {
  {
    std::unique_lock<std::mutex> hold(m_lock);
    m_done.wait(hold, [this] { return !m_busy; });
    m_task = std::move(task);
    m_busy = true;
  }
  if (!m_thread.joinable()) m_thread = std::thread([this] { run(); });
  else m_wakes.notify_one();
}

void background_task::wait() {
  std::unique_lock<std::mutex> hold(m_lock);
  m_done.wait(hold, [this] { return !m_busy; });
}

void background_task::run() {
  std::unique_lock<std::mutex> hold(m_lock);
  for (;;) {
    m_wakes.wait(hold, [this] { return m_busy || m_stop; });
    // A task handed over before the end still runs: its owner may be waiting for it.
    if (!m_busy) return;
    std::function<void()> task = std::move(m_task);
    hold.unlock();
    task();
    hold.lock();
    m_busy = false;
    m_done.notify_all();
  }
}

void block_read_ahead::start(uint64_t at, uint64_t length, block_reader read) {
  m_task.wait();
  m_at = at;
  m_length = length;
  m_block.resize(length);
  m_task.start([this, read = std::move(read)] { m_block.resize(read(m_block.data(), m_length, m_at)); });
}

bool block_read_ahead::take(uint64_t at, uint64_t length, std::vector<uint8_t>& out) {
  m_task.wait();
  const bool ours = m_length && m_at == at && m_length == length;
  if (ours) out.swap(m_block);
  m_length = 0;
  return ours;
}

void block_read_ahead::drop() {
  m_task.wait();
  m_length = 0;
}

}  // namespace orv
