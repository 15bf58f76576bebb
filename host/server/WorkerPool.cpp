#include "WorkerPool.h"

namespace cimserver {

WorkerPool::WorkerPool(unsigned threads, std::size_t queue) : capacity_(queue == 0 ? 1 : queue) {
    for (unsigned i = 0; i < (threads == 0 ? 1 : threads); ++i) workers_.push_back(std::make_unique<Worker>());
    for (auto &w : workers_) threads_.emplace_back([this, me = w.get()] { work(*me); });
    // Ready once every worker waits for a job, so the first jobs are handed
    // over rather than queued.
    std::unique_lock lock(mutex_);
    ready_.wait(lock, [&] { return idle_.size() == workers_.size(); });
}

WorkerPool::~WorkerPool() {
    if (!threads_.empty()) stop(std::chrono::steady_clock::time_point::max());
}

bool WorkerPool::tryPost(std::function<void()> job) {
    std::lock_guard lock(mutex_);
    if (stopping_) return false;
    ++busy_;
    if (!idle_.empty()) {
        Worker *w = idle_.back();
        idle_.pop_back();
        w->job = std::move(job);
        w->handed = true;
        w->wake.notify_one();
        return true;
    }
    if (jobs_.size() >= capacity_) {
        --busy_;
        return false;
    }
    jobs_.push_back(std::move(job));
    return true;
}

bool WorkerPool::waitIdle(std::chrono::steady_clock::time_point deadline) {
    std::unique_lock lock(mutex_);
    return idleAll_.wait_until(lock, deadline, [&] { return busy_ == 0; });
}

bool WorkerPool::stop(std::chrono::steady_clock::time_point deadline) {
    bool idle = waitIdle(deadline);
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
        for (auto &w : workers_) w->wake.notify_one();
    }
    if (!idle) {
        for (std::thread &t : threads_) t.detach();
        threads_.clear();
        return false;
    }
    for (std::thread &t : threads_) t.join();
    threads_.clear();
    return true;
}

void WorkerPool::work(Worker &me) {
    std::unique_lock lock(mutex_);
    for (;;) {
        std::function<void()> job;
        if (me.handed) {
            job = std::move(me.job);
            me.handed = false;
        } else if (!jobs_.empty()) {
            job = std::move(jobs_.front());
            jobs_.pop_front();
        } else if (stopping_) {
            return;
        } else {
            idle_.push_back(&me);
            ready_.notify_all();
            me.wake.wait(lock, [&] { return me.handed || stopping_; });
            if (!me.handed) return;  // stopping; nothing can be handed over any more
            continue;
        }
        lock.unlock();
        job();
        job = nullptr;  // its captures go before the pool counts it done
        lock.lock();
        if (--busy_ == 0) idleAll_.notify_all();
    }
}

}  // namespace cimserver
