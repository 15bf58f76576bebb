// One listening socket served by one libmicrohttpd daemon in external-loop
// mode, driven by its own thread. The thread owns every connection of the
// socket: it parses heads, collects bodies within their limits, enforces the
// request deadline, and hands complete requests to the worker pool.
#pragma once

#include "CimExchange.h"
#include "HttpRules.h"
#include "MetricsExchange.h"
#include "WorkerPool.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <unordered_set>

struct MHD_Daemon;
struct MHD_Connection;

namespace cimserver {

// Counts connections across listeners, in total and per client address.
class Admission {
public:
    Admission(unsigned total, unsigned perAddress) : total_(total), perAddress_(perAddress) {}
    bool admit(const std::string &address);
    void release(const std::string &address);
    unsigned open();

private:
    std::mutex mutex_;
    const unsigned total_, perAddress_;
    unsigned count_ = 0;
    std::map<std::string, unsigned> byAddress_;
};

struct ListenerConfig {
    HeadLimits head;
    std::chrono::milliseconds requestTimeout{10000};
    unsigned idleSeconds = 5;
    std::size_t connectionPool = 48 * 1024;  // libmicrohttpd's memory per connection
    unsigned hardConnectionLimit = 512;       // beyond, connections are closed on accept
    std::string certPem, keyPem;              // both set: TLS 1.2 or later
};

class Listener {
public:
    using LogSink = std::function<void(const std::string &)>;
    // Takes the listening socket; throws std::runtime_error.
    Listener(int listenFd, ListenerConfig config, const CimContext &cim, const MetricsContext &metrics, WorkerPool &pool,
             Admission &admission, LogSink log);
    ~Listener();
    Listener(const Listener &) = delete;
    Listener &operator=(const Listener &) = delete;

    // The event loop: serves until stopping is set, then stops accepting and
    // waits for operations in flight until drainDeadline. False when one was
    // still running then (the daemon is left to the process's exit).
    bool run(const std::atomic<bool> &stopping, const std::function<std::chrono::steady_clock::time_point()> &drainDeadline);

    struct Conn;
    struct Exchange;

private:
    friend struct DaemonCallbacks;  // libmicrohttpd's callbacks, all on the loop thread

    void opened(MHD_Connection *c, void **socketContext);
    void closed(void **socketContext);
    void completed(void **reqCls);
    int request(MHD_Connection *c, const char *url, const char *method, const char *version, const char *data,
                std::size_t *size, void **reqCls);
    int queue(MHD_Connection *c, Exchange &ex, Reply reply);
    void dispatch(MHD_Connection *c, Exchange &ex);
    void turn(int waitMs);
    void wake();
    void sweep();
    bool busy() const;
    void writeLog(const Conn &conn, const Exchange *ex, int status);
    void count(const Exchange &ex);

    ListenerConfig config_;
    const CimContext &cim_;
    const MetricsContext &metrics_;
    WorkerPool &pool_;
    Admission &admission_;
    LogSink log_;
    int listenFd_;
    bool tls_;
    bool draining_ = false;
    bool abandoned_ = false;  // stopped with an operation in flight
    MHD_Daemon *daemon_ = nullptr;
    std::unordered_set<Conn *> conns_;
    int epollFd_ = -1;  // the daemon's
    int wakeFd_ = -1;   // eventfd written by workers after a resume
    std::chrono::steady_clock::time_point lastSweep_;
};

}  // namespace cimserver
