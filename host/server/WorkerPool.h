// A fixed set of threads that run CIM operations, with a bounded queue. The
// network side never waits for it: a job that finds the queue full is
// refused at once, so the caller can answer 503.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace cimserver {

class WorkerPool {
public:
    WorkerPool(unsigned threads, std::size_t queue);
    ~WorkerPool();  // runs what is queued, then joins
    WorkerPool(const WorkerPool &) = delete;
    WorkerPool &operator=(const WorkerPool &) = delete;

    // False when the queue is full or the pool is stopping.
    bool tryPost(std::function<void()> job);
    // Waits until no job is queued or running, or the deadline passes; true
    // when idle.
    bool waitIdle(std::chrono::steady_clock::time_point deadline);
    // Stops the threads after the queued jobs. False (and the threads are
    // left to the process's exit) when a job is still running at the deadline.
    bool stop(std::chrono::steady_clock::time_point deadline);

private:
    void work();

    const std::size_t capacity_;
    std::mutex mutex_;
    std::condition_variable wake_, idle_;
    std::deque<std::function<void()>> jobs_;
    std::size_t running_ = 0;
    bool stopping_ = false;
    std::vector<std::thread> threads_;
};

}  // namespace cimserver
