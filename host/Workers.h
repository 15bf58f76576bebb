// Provider processes as a stock CIMOM runs them, and its up-call rule.
//
// A stock CIMOM runs the providers of one library in one process (or, with
// grouping off, each provider in its own) and serialises a process's broker
// up-calls: one lock per process, taken when an up-call starts and held until
// its result is back, while the target is served on another thread. An
// operation that is itself serving an up-call and makes one of its own waits
// forever there. Our host keeps the same rule with one `Worker` per process;
// instead of hanging, an up-call that could only wait forever fails with a
// message naming both up-calls, and the client request it belongs to fails
// with that message too.
#pragma once

#include "ObjectRuntime.h"

#include <atomic>
#include <condition_variable>
#include <exception>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace cimhost {

// What stands for one provider process.
class Worker {
public:
    explicit Worker(std::string name) : name_(std::move(name)) {}
    const std::string &name() const { return name_; }

private:
    friend class UpcallGate;
    std::string name_;
    struct Chain *holder_ = nullptr;  // the request whose up-call holds the lock
    std::string holderCall_;
    std::condition_variable freed_;
};

// One client request and everything its up-calls cause, on any thread.
struct Chain {
    const Worker *waitingFor = nullptr;  // guarded by the gate's mutex
    std::mutex mutex;
    std::string deadlock;  // the first up-call refused, with the one it waited for
};

// Who runs on this thread: the provider process whose code is running (none
// for a client), the request it serves, and how deeply up-calls are nested.
// The provider operation running on a thread, named only when a message
// needs it; the texts belong to the provider call, which outlives it.
struct ProviderOperation {
    std::string_view provider, operation, className;
    std::string text() const;  // "<provider> <operation> <class>"
};

struct ThreadRole {
    Worker *worker = nullptr;
    ProviderOperation operation;  // while provider code runs
    std::shared_ptr<Chain> chain;
    int depth = 0;
};
ThreadRole &threadRole();

// While one lives, provider code of `worker` runs on this thread.
class InWorker {
public:
    InWorker(Worker *worker, ProviderOperation operation);
    ~InWorker();
    InWorker(const InWorker &) = delete;
    InWorker &operator=(const InWorker &) = delete;

private:
    Worker *worker_;
    ProviderOperation operation_;
};

// While one lives, this thread runs a client request (unless it already did).
class ClientRequest {
public:
    ClientRequest();
    ~ClientRequest();
    ClientRequest(const ClientRequest &) = delete;
    ClientRequest &operator=(const ClientRequest &) = delete;
    // The refused up-call of this request, or "".
    std::string deadlock() const;

private:
    bool own_;
};

// Threads that serve up-calls; one is started when none is idle.
class UpcallThreads {
public:
    UpcallThreads() = default;
    ~UpcallThreads();
    UpcallThreads(const UpcallThreads &) = delete;
    UpcallThreads &operator=(const UpcallThreads &) = delete;
    // Runs task on another thread and waits for it.
    void run(const std::function<void()> &task);

private:
    struct Job;
    void serve();

    std::mutex mutex_;
    std::condition_variable work_;
    std::condition_variable done_;
    std::deque<Job *> queue_;
    std::atomic<size_t> queued_{0};  // queue_.size(), for polling without the lock
    std::vector<std::thread> threads_;
    size_t idle_ = 0;
    bool stopping_ = false;
};

// The per-process up-call locks and the threads that serve up-calls.
class UpcallGate {
public:
    // Runs an up-call described as `call` ("EnumerateInstances Tovra_DiskDrive")
    // from provider code of this thread's worker: under that worker's lock, on
    // another thread. Outside provider code it runs here, with no lock. When
    // the lock could only be waited for forever, fn is not run and `refused`
    // is called with the message instead.
    template <class R, class Fn, class Refused> R run(const std::string &call, Fn &&fn, Refused &&refused) {
        ThreadRole &role = threadRole();
        if (role.worker == nullptr) return fn();
        const std::string described = call + " made by " + role.operation.text();
        std::string deadlock;
        if (!role.chain) role.chain = std::make_shared<Chain>();
        if (!acquire(*role.worker, role.chain, described, deadlock)) return refused(deadlock);
        Release release{this, role.worker};
        R result{};
        std::exception_ptr failure;
        const ThreadRole caller{nullptr, {}, role.chain, role.depth + 1};
        threads_.run([&] {
            // What the served provider makes belongs to this up-call alone.
            rt::Scope scope;
            rt::ScopeBinding binding(&scope);
            threadRole() = caller;
            try {
                result = fn();
            } catch (...) {
                failure = std::current_exception();
            }
            threadRole() = ThreadRole{};
        });
        if (failure) std::rethrow_exception(failure);
        return result;
    }

private:
    struct Release {
        UpcallGate *gate;
        Worker *worker;
        ~Release() { gate->release(*worker); }
    };
    bool acquire(Worker &worker, const std::shared_ptr<Chain> &chain, const std::string &call, std::string &deadlock);
    void release(Worker &worker);

    std::mutex mutex_;
    UpcallThreads threads_;
};

}  // namespace cimhost
