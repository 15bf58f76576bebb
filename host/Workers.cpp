#include "Workers.h"

#include <atomic>
#include <chrono>

namespace cimhost {

ThreadRole &threadRole() {
    thread_local ThreadRole role;
    return role;
}

std::string ProviderOperation::text() const {
    return std::string(provider) + " " + std::string(operation) + " " + std::string(className);
}

InWorker::InWorker(Worker *worker, ProviderOperation operation)
    : worker_(threadRole().worker), operation_(threadRole().operation) {
    threadRole().worker = worker;
    threadRole().operation = operation;
}

InWorker::~InWorker() {
    threadRole().worker = worker_;
    threadRole().operation = operation_;
}

ClientRequest::ClientRequest() : own_(!threadRole().chain) {
    if (own_) threadRole().chain = std::make_shared<Chain>();
}

ClientRequest::~ClientRequest() {
    if (own_) threadRole().chain.reset();
}

std::string ClientRequest::deadlock() const {
    const std::shared_ptr<Chain> &chain = threadRole().chain;
    if (!own_ || !chain) return {};
    std::lock_guard lock(chain->mutex);
    return chain->deadlock;
}

// ---- threads ---------------------------------------------------------------------

struct UpcallThreads::Job {
    const std::function<void()> *task;
    std::atomic<bool> done{false};
};

namespace {

// Most up-calls answer within microseconds: both sides poll this long before
// they sleep, which spares a pair of thread wake-ups per up-call.
constexpr auto kPoll = std::chrono::microseconds(50);

template <class Ready> bool pollFor(Ready &&ready) {
    const auto until = std::chrono::steady_clock::now() + kPoll;
    for (unsigned i = 0;; ++i) {
        if (ready()) return true;
        if ((i & 63) == 63 && std::chrono::steady_clock::now() > until) return false;
#if defined(__x86_64__) || defined(__i386__)
        __builtin_ia32_pause();
#endif
    }
}

}  // namespace

UpcallThreads::~UpcallThreads() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    work_.notify_all();
    for (std::thread &t : threads_) t.join();
}

void UpcallThreads::run(const std::function<void()> &task) {
    Job job{&task};
    {
        std::lock_guard lock(mutex_);
        queue_.push_back(&job);
        queued_.fetch_add(1, std::memory_order_release);
        if (idle_ < queue_.size())
            threads_.emplace_back([this] { serve(); });
        else
            work_.notify_one();
    }
    if (pollFor([&] { return job.done.load(std::memory_order_acquire); })) return;
    std::unique_lock lock(mutex_);
    done_.wait(lock, [&] { return job.done.load(std::memory_order_acquire); });
}

void UpcallThreads::serve() {
    std::unique_lock lock(mutex_);
    for (;;) {
        ++idle_;
        if (queue_.empty() && !stopping_) {
            lock.unlock();
            pollFor([&] { return queued_.load(std::memory_order_acquire) != 0; });
            lock.lock();
        }
        work_.wait(lock, [&] { return stopping_ || !queue_.empty(); });
        --idle_;
        if (queue_.empty()) return;  // stopping
        Job *job = queue_.front();
        queue_.pop_front();
        queued_.fetch_sub(1, std::memory_order_relaxed);
        lock.unlock();
        (*job->task)();
        lock.lock();
        job->done.store(true, std::memory_order_release);
        done_.notify_all();
    }
}

// ---- locks -----------------------------------------------------------------------

bool UpcallGate::acquire(Worker &worker, const std::shared_ptr<Chain> &chain, const std::string &call,
                         std::string &deadlock) {
    std::unique_lock lock(mutex_);
    while (worker.holder_ != nullptr) {
        // Follow who waits for whom from the holder: reaching this request
        // again means the lock would never be released.
        const Chain *holder = worker.holder_;
        for (size_t hops = 0; holder != nullptr && hops < 1024; ++hops) {
            if (holder == chain.get()) {
                deadlock = "nested up-call would deadlock a stock CIMOM: " + call +
                           " waits for the up-call lock of provider process " + worker.name() +
                           ", held by " + worker.holderCall_;
                std::lock_guard chainLock(chain->mutex);
                if (chain->deadlock.empty()) chain->deadlock = deadlock;
                return false;
            }
            const Worker *next = holder->waitingFor;
            if (next == nullptr) break;
            holder = next->holder_;
        }
        chain->waitingFor = &worker;
        worker.freed_.wait(lock);
        chain->waitingFor = nullptr;
    }
    worker.holder_ = chain.get();
    worker.holderCall_ = call;
    return true;
}

void UpcallGate::release(Worker &worker) {
    {
        std::lock_guard lock(mutex_);
        worker.holder_ = nullptr;
        worker.holderCall_.clear();
    }
    worker.freed_.notify_all();
}

}  // namespace cimhost
