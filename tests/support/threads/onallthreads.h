// Work on many threads at once.
#pragma once

#include <atomic>
#include <thread>
#include <vector>

namespace testsupport {

inline constexpr int threadCount = 4;

/// Runs `work(thread number)` on `count` threads, which begin together, and waits for their end.
/// They wait for each other in a loop, because a program once hung in std::latch under Wine.
template <class Work>
void onAllThreads(Work work, int count = threadCount) {
    std::atomic<int> ready = 0;
    std::vector<std::thread> threads;
    for (int number = 0; number != count; ++number)
        threads.emplace_back([&, number] {
            ++ready;
            while (ready != count)
                std::this_thread::yield();
            work(number);
        });
    for (std::thread& thread : threads)
        thread.join();
}

} // namespace testsupport
