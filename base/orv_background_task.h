#pragma once
// A thread of its own for one task at a time: a walk reads its next block there while it decodes
// the current one. The thread starts with the first task and ends with the owner.
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace orv {

class background_task {
 public:
  background_task() = default;
  ~background_task();
  background_task(const background_task&) = delete;
  background_task& operator=(const background_task&) = delete;

  // Runs `task` on the thread, after waiting for the one before to finish.
  void start(std::function<void()> task);
  // Returns once the task started last has finished; at once when none was started.
  void wait();

 private:
  void run();

  std::thread m_thread;
  std::mutex m_lock;
  std::condition_variable m_wakes;  // a task, or the end, for the thread
  std::condition_variable m_done;   // the task finished, for the owner
  std::function<void()> m_task;
  bool m_busy = false;  // a task is handed over and not yet finished
  bool m_stop = false;
};

// The block a sequential reader will want next, read on a background task. A block is taken only
// when it was read at exactly the place and length asked for, so a reader that takes it sees the
// bytes a direct read would have given.
class block_read_ahead {
 public:
  // Reads `length` bytes at `at` into memory given to the read, which returns how many bytes it
  // delivered (0 on failure). Runs on the background task.
  using block_reader = std::function<uint64_t(uint8_t* into, uint64_t length, uint64_t at)>;

  // Starts reading the block at `at`, after any read still running.
  void start(uint64_t at, uint64_t length, block_reader read);
  // Moves the block read ahead into `out` (resized to what it delivered) when it is the block of
  // `length` bytes at `at`; false, leaving `out` alone, when none or another was read. Either
  // way nothing stays read ahead.
  bool take(uint64_t at, uint64_t length, std::vector<uint8_t>& out);
  // Waits for a read still running and forgets its block.
  void drop();

 private:
  std::vector<uint8_t> m_block;
  uint64_t m_at = 0;
  uint64_t m_length = 0;  // 0 when no block is read ahead
  background_task m_task;  // last, so that it stops before the block it fills goes
};

}  // namespace orv
