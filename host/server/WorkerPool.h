// A fixed set of threads that run CIM operations, with a bounded queue. The
// network side never waits for it: a job that finds the queue full is
// refused at once, so the caller can answer 503. A job goes to the worker
// that went idle last: the host keeps per-thread state warm, and a client's
// requests one after the other keep landing on the same thread (spreading
// them over every worker doubled the time of a GetInstance).
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
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
    struct Worker {
        std::condition_variable wake;
        std::function<void()> job;  // handed over directly while idle
        bool handed = false;
    };
    void work(Worker &me);

    const std::size_t capacity_;
    std::mutex mutex_;
    std::condition_variable idleAll_, ready_;
    std::deque<std::function<void()>> jobs_;  // waiting while every worker is busy
    std::vector<Worker *> idle_;              // most recently idle last
    std::size_t busy_ = 0;                    // jobs handed over or running
    bool stopping_ = false;
    std::vector<std::unique_ptr<Worker>> workers_;
    std::vector<std::thread> threads_;
};

}  // namespace cimserver
