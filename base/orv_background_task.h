#pragma once
// A thread of its own for one task at a time: a walk reads its next block there while it decodes
// the current one. The thread starts with the first task and ends with the owner.
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

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

}  // namespace orv
