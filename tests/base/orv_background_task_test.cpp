#include "base/orv_background_task.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

// Tasks run one at a time in the order given, wait() returns only once the last has finished,
// and a task still running when its owner goes is finished, not cut off.
TEST(BackgroundTask, RunsInOrderAndFinishesBeforeTheOwnerGoes) {
  std::vector<int> order;
  std::atomic<int> finished{0};
  {
    orv::background_task task;
    task.wait();  // nothing started yet
    for (int i = 0; i < 50; ++i) task.start([&order, i] { order.push_back(i); });
    task.wait();
    ASSERT_EQ(order.size(), 50u);
    for (int i = 0; i < 50; ++i) EXPECT_EQ(order[size_t(i)], i);
    task.start([&finished] {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      finished = 1;
    });
  }
  EXPECT_EQ(finished.load(), 1);
}
