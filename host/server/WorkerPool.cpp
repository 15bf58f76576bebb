#include "WorkerPool.h"

namespace cimserver {

WorkerPool::WorkerPool(unsigned threads, std::size_t queue) : capacity_(queue == 0 ? 1 : queue) {
    for (unsigned i = 0; i < (threads == 0 ? 1 : threads); ++i) threads_.emplace_back([this] { work(); });
}

WorkerPool::~WorkerPool() {
    if (!threads_.empty()) stop(std::chrono::steady_clock::time_point::max());
}

bool WorkerPool::tryPost(std::function<void()> job) {
    {
        std::lock_guard lock(mutex_);
        if (stopping_ || jobs_.size() >= capacity_) return false;
        jobs_.push_back(std::move(job));
    }
    wake_.notify_one();
    return true;
}

bool WorkerPool::waitIdle(std::chrono::steady_clock::time_point deadline) {
    std::unique_lock lock(mutex_);
    return idle_.wait_until(lock, deadline, [&] { return jobs_.empty() && running_ == 0; });
}

bool WorkerPool::stop(std::chrono::steady_clock::time_point deadline) {
    bool idle = waitIdle(deadline);
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    if (!idle) {
        for (std::thread &t : threads_) t.detach();
        threads_.clear();
        return false;
    }
    for (std::thread &t : threads_) t.join();
    threads_.clear();
    return true;
}

void WorkerPool::work() {
    for (;;) {
        std::function<void()> job;
        {
            std::unique_lock lock(mutex_);
            wake_.wait(lock, [&] { return !jobs_.empty() || stopping_; });
            if (jobs_.empty()) return;
            job = std::move(jobs_.front());
            jobs_.pop_front();
            ++running_;
        }
        job();
        {
            std::lock_guard lock(mutex_);
            --running_;
            if (jobs_.empty() && running_ == 0) idle_.notify_all();
        }
    }
}

}  // namespace cimserver
