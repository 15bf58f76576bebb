#include "Listener.h"

#include "PeerAddress.h"

#include <microhttpd.h>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <stdexcept>

namespace cimserver {

using Clock = std::chrono::steady_clock;

bool Admission::admit(const std::string &address) {
    std::lock_guard lock(mutex_);
    unsigned &mine = byAddress_[address];
    ++count_;
    ++mine;
    return count_ <= total_ && mine <= perAddress_;
}

unsigned Admission::open() {
    std::lock_guard lock(mutex_);
    return count_;
}

void Admission::release(const std::string &address) {
    std::lock_guard lock(mutex_);
    auto it = byAddress_.find(address);
    --count_;
    if (it != byAddress_.end() && --it->second == 0) byAddress_.erase(it);
}

struct Listener::Conn {
    enum class Phase { Reading, Working, Writing };
    int fd = -1;
    std::string peer;
    Phase phase = Phase::Reading;
    Clock::time_point since = Clock::now();
    bool expired = false;
    Exchange *exchange = nullptr;  // the request being served, if its head is in
};

struct Listener::Exchange {
    Conn *conn = nullptr;
    Clock::time_point start = Clock::now();
    Route route = Route::Cim;
    RequestHead head;
    std::string body;
    bool queued = false;    // a reply went to the daemon
    bool tooLarge = false;  // the body passed the limit: the rest is dropped
    int status = 0;
    RequestNotes notes;
    Reply reply;                     // a worker's result
    std::atomic<bool> ready{false};  // reply is set; written before the resume
};

namespace {

// The fixed replies written straight to a plain socket: before a request
// (connection limit) or instead of one (deadline).
constexpr std::string_view kBusy =
    "HTTP/1.1 503 Service Unavailable\r\nConnection: close\r\nRetry-After: 1\r\nContent-Length: 0\r\n\r\n";
constexpr std::string_view kTimeout = "HTTP/1.1 408 Request Timeout\r\nConnection: close\r\nContent-Length: 0\r\n\r\n";

void freeString(void *cls) { std::unique_ptr<std::string> owned(static_cast<std::string *>(cls)); }

}  // namespace

struct DaemonCallbacks {
    static MHD_Result request(void *cls, MHD_Connection *c, const char *url, const char *method, const char *version,
                              const char *data, size_t *size, void **reqCls) {
        return static_cast<Listener *>(cls)->request(c, url, method, version, data, size, reqCls) != 0 ? MHD_YES
                                                                                                       : MHD_NO;
    }
    static void completed(void *cls, MHD_Connection *, void **reqCls, MHD_RequestTerminationCode) {
        static_cast<Listener *>(cls)->completed(reqCls);
    }
    static void connection(void *cls, MHD_Connection *c, void **socketContext, MHD_ConnectionNotificationCode event) {
        auto *self = static_cast<Listener *>(cls);
        if (event == MHD_CONNECTION_NOTIFY_STARTED)
            self->opened(c, socketContext);
        else
            self->closed(socketContext);
    }
    // The daemon's own complaints (a malformed head, a failed handshake).
    static void logger(void *cls, const char *format, va_list args) {
        char text[512];
        std::vsnprintf(text, sizeof text, format, args);
        std::string_view message = text;
        while (!message.empty() && (message.back() == '\n' || message.back() == '.')) message.remove_suffix(1);
        static_cast<Listener *>(cls)->log_("http-layer: " + logText(message));
    }
    static MHD_Result header(void *cls, MHD_ValueKind, const char *key, size_t keySize, const char *value,
                             size_t valueSize) {
        static_cast<RequestHead *>(cls)->headers.emplace_back(std::string(key, keySize),
                                                              value != nullptr ? std::string(value, valueSize) : "");
        return MHD_YES;
    }
};

Listener::Listener(int listenFd, ListenerConfig config, const CimContext &cim, const MetricsContext &metrics,
                   WorkerPool &pool, Admission &admission, LogSink log)
    : config_(std::move(config)), cim_(cim), metrics_(metrics), pool_(pool), admission_(admission), log_(std::move(log)),
      listenFd_(listenFd), tls_(!config_.certPem.empty()) {
    unsigned flags = MHD_USE_EPOLL | MHD_ALLOW_SUSPEND_RESUME | MHD_USE_ERROR_LOG | MHD_USE_TURBO;
    if (tls_) flags |= MHD_USE_TLS;
    std::vector<MHD_OptionItem> options = {
        {MHD_OPTION_EXTERNAL_LOGGER, reinterpret_cast<intptr_t>(&DaemonCallbacks::logger), this},  // first, so all goes there
        {MHD_OPTION_LISTEN_SOCKET, listenFd_, nullptr},
        {MHD_OPTION_CONNECTION_LIMIT, static_cast<intptr_t>(config_.hardConnectionLimit), nullptr},
        {MHD_OPTION_CONNECTION_TIMEOUT, static_cast<intptr_t>(config_.idleSeconds), nullptr},
        {MHD_OPTION_CONNECTION_MEMORY_LIMIT, static_cast<intptr_t>(config_.connectionPool), nullptr},
        {MHD_OPTION_NOTIFY_COMPLETED, reinterpret_cast<intptr_t>(&DaemonCallbacks::completed), this},
        {MHD_OPTION_NOTIFY_CONNECTION, reinterpret_cast<intptr_t>(&DaemonCallbacks::connection), this},
        {MHD_OPTION_SIGPIPE_HANDLED_BY_APP, 1, nullptr},
    };
    if (tls_) {
        options.push_back({MHD_OPTION_HTTPS_MEM_KEY, 0, config_.keyPem.data()});
        options.push_back({MHD_OPTION_HTTPS_MEM_CERT, 0, config_.certPem.data()});
        options.push_back({MHD_OPTION_HTTPS_PRIORITIES, 0,
                           const_cast<char *>("NORMAL:-VERS-ALL:+VERS-TLS1.3:+VERS-TLS1.2")});
    }
    options.push_back({MHD_OPTION_END, 0, nullptr});
    daemon_ = MHD_start_daemon(flags, 0, nullptr, nullptr, &DaemonCallbacks::request, this, MHD_OPTION_ARRAY,
                               options.data(), MHD_OPTION_END);
    if (daemon_ == nullptr) {
        close(listenFd_);
        throw std::runtime_error(tls_ ? "cannot start HTTPS (is the key the certificate's?)" : "cannot start HTTP");
    }
    const MHD_DaemonInfo *info = MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_EPOLL_FD);
    epollFd_ = info != nullptr ? info->epoll_fd : -1;
    wakeFd_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (epollFd_ < 0 || wakeFd_ < 0) {
        MHD_stop_daemon(daemon_);  // closes the listening socket too
        if (wakeFd_ >= 0) close(wakeFd_);
        throw std::runtime_error("cannot set up the event loop");
    }
}

Listener::~Listener() {
    if (daemon_ != nullptr && !abandoned_) {
        MHD_stop_daemon(daemon_);  // never run, so nothing is suspended; closes the listening socket
        listenFd_ = -1;
    }
    if (listenFd_ >= 0) close(listenFd_);
    if (wakeFd_ >= 0) close(wakeFd_);
}

void Listener::opened(MHD_Connection *c, void **socketContext) {
    auto *conn = std::make_unique<Conn>().release();  // owned by the daemon until closed()
    conn->peer = peerAddress(c);
    if (const MHD_ConnectionInfo *info = MHD_get_connection_info(c, MHD_CONNECTION_INFO_CONNECTION_FD))
        conn->fd = info->connect_fd;
    *socketContext = conn;
    conns_.insert(conn);
    if (!admission_.admit(conn->peer) || draining_) {
        // Over a limit: answered before it sends anything, and closed.
        if (!tls_) (void)send(conn->fd, kBusy.data(), kBusy.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        shutdown(conn->fd, SHUT_RDWR);
        conn->expired = true;
        metrics_.stats.connectionRefused();
        log_(logField(conn->peer) + " - - - - http=503 cim=- 0.0ms");
    }
}

void Listener::closed(void **socketContext) {
    std::unique_ptr<Conn> conn(static_cast<Conn *>(*socketContext));
    *socketContext = nullptr;
    if (!conn) return;
    admission_.release(conn->peer);
    conns_.erase(conn.get());
}

void Listener::completed(void **reqCls) {
    std::unique_ptr<Exchange> ex(static_cast<Exchange *>(*reqCls));
    *reqCls = nullptr;
    if (!ex) return;
    Conn &conn = *ex->conn;
    writeLog(conn, ex.get(), ex->status);
    count(*ex);
    conn.exchange = nullptr;
    conn.phase = Conn::Phase::Reading;
    conn.since = Clock::now();
}

void Listener::writeLog(const Conn &conn, const Exchange *ex, int status) {
    double ms = ex != nullptr ? std::chrono::duration<double, std::milli>(Clock::now() - ex->start).count() : 0.0;
    char duration[32];
    std::snprintf(duration, sizeof duration, "%.1fms", ms);
    auto field = [](const std::string &s) { return logField(s); };
    std::string line = field(conn.peer) + " " + (ex ? field(ex->notes.user) : "-") + " " +
                       (ex ? field(ex->head.method) : "-") + " " + (ex ? field(ex->notes.operation) : "-") + " " +
                       (ex ? field(ex->notes.className) : "-") + " http=" + (status != 0 ? std::to_string(status) : "-") +
                       " cim=" + (ex ? field(ex->notes.cimStatus) : "-") + " " + duration;
    log_(line);
}

void Listener::count(const Exchange &ex) {
    ServerStats::Finished f;
    f.route = ex.route;
    f.httpStatus = ex.status;
    f.operation = ex.notes.operationLabel;
    f.cimStatus = ex.notes.cimCode;
    f.providerError = ex.notes.providerError;
    f.seconds = std::chrono::duration<double>(Clock::now() - ex.start).count();
    metrics_.stats.finished(f);
}

int Listener::request(MHD_Connection *c, const char *url, const char *method, const char *version, const char *data,
                      std::size_t *size, void **reqCls) {
    auto *ex = static_cast<Exchange *>(*reqCls);
    if (ex == nullptr) {
        const MHD_ConnectionInfo *info = MHD_get_connection_info(c, MHD_CONNECTION_INFO_SOCKET_CONTEXT);
        auto *conn = static_cast<Conn *>(info != nullptr ? info->socket_context : nullptr);
        if (conn == nullptr) return 0;
        auto owned = std::make_unique<Exchange>();  // owned by the daemon until completed()
        ex = owned.release();
        *reqCls = ex;
        ex->conn = conn;
        conn->exchange = ex;
        ex->head.method = method;
        ex->head.url = url;
        ex->head.version = version;
        ex->route = routeOf(ex->head.url);
        MHD_get_connection_values_n(c, MHD_HEADER_KIND, &DaemonCallbacks::header, &ex->head);
        if (draining_) return queue(c, *ex, refusal(503, nullptr, true));
        if (auto refused = checkHead(ex->head, config_.head, ex->route)) return queue(c, *ex, std::move(*refused));
        return 1;
    }
    if (ex->queued) {  // refused from its head: whatever body comes is dropped
        *size = 0;
        return 1;
    }
    if (*size != 0) {
        // A body past the limit is read to its end without being kept (the
        // daemon takes no reply while a body is coming), then refused; the
        // request deadline bounds how long that may take.
        if (ex->tooLarge || ex->body.size() + *size > config_.head.maxBody) {
            ex->tooLarge = true;
            std::string().swap(ex->body);
        } else {
            ex->body.append(data, *size);
        }
        *size = 0;
        return 1;
    }
    if (ex->tooLarge) return queue(c, *ex, refusal(413, "request-not-valid", true));
    if (ex->ready.load(std::memory_order_acquire)) return queue(c, *ex, std::move(ex->reply));
    dispatch(c, *ex);
    return 1;
}

void Listener::dispatch(MHD_Connection *c, Exchange &ex) {
    ex.conn->phase = Conn::Phase::Working;
    MHD_suspend_connection(c);
    Exchange *job = &ex;
    bool posted = pool_.tryPost([this, c, job] {
        try {
            job->reply = job->route == Route::Metrics ? serveMetrics(metrics_, job->head, job->notes)
                                                      : serveCim(cim_, job->head, job->body, job->notes);
        } catch (const std::exception &) {
            job->reply = refusal(500, nullptr);
        }
        job->ready.store(true, std::memory_order_release);
        MHD_resume_connection(c);
        wake();
    });
    if (!posted) {
        job->reply = refusal(503, nullptr, true);
        job->reply.headers.emplace_back("Retry-After", "1");
        job->ready.store(true, std::memory_order_release);
        MHD_resume_connection(c);
        wake();
    }
}

void Listener::wake() {
    const std::uint64_t one = 1;
    (void)!write(wakeFd_, &one, sizeof one);
}

int Listener::queue(MHD_Connection *c, Exchange &ex, Reply reply) {
    ex.queued = true;
    ex.status = reply.status;
    ex.conn->phase = Conn::Phase::Writing;
    ex.conn->since = Clock::now();
    // The reply's text goes to the daemon, which frees it once sent.
    auto body = std::make_unique<std::string>(std::move(reply.body));
    MHD_Response *response =
        MHD_create_response_from_buffer_with_free_callback_cls(body->size(), body->data(), &freeString, body.get());
    if (response == nullptr) return 0;
    body.release();
    for (const auto &[name, value] : reply.headers) MHD_add_response_header(response, name.c_str(), value.c_str());
    if (reply.close || draining_) MHD_add_response_header(response, MHD_HTTP_HEADER_CONNECTION, "close");
    MHD_Result queued = MHD_queue_response(c, static_cast<unsigned>(reply.status), response);
    MHD_destroy_response(response);
    return queued == MHD_YES ? 1 : 0;
}

void Listener::sweep() {
    const auto now = Clock::now();
    if (now - lastSweep_ < std::chrono::milliseconds(20)) return;
    lastSweep_ = now;
    for (Conn *conn : conns_) {
        if (conn->expired || conn->phase == Conn::Phase::Working || now - conn->since < config_.requestTimeout)
            continue;
        // Past the deadline: a plain connection still reading its request is
        // told so; either way the socket is shut and the daemon closes it.
        conn->expired = true;
        bool answered = conn->exchange != nullptr && conn->exchange->queued;
        if (conn->phase == Conn::Phase::Reading && !answered) {
            if (!tls_) (void)send(conn->fd, kTimeout.data(), kTimeout.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
            if (conn->exchange != nullptr)
                conn->exchange->status = 408;
            else
                writeLog(*conn, nullptr, 408);
        }
        shutdown(conn->fd, SHUT_RDWR);
    }
}

bool Listener::busy() const {
    for (const Conn *conn : conns_)
        if (conn->phase != Conn::Phase::Reading && !conn->expired) return true;
    return false;
}

void Listener::turn(int waitMs) {
    // The daemon does not wake its own wait when a worker resumes a
    // connection, so the loop waits on the daemon's epoll descriptor and on
    // the workers' eventfd together, then lets the daemon run without waiting.
    MHD_UNSIGNED_LONG_LONG timeout = 0;
    if (MHD_get_timeout(daemon_, &timeout) == MHD_YES && timeout < static_cast<MHD_UNSIGNED_LONG_LONG>(waitMs))
        waitMs = static_cast<int>(timeout);
    pollfd fds[2] = {{epollFd_, POLLIN, 0}, {wakeFd_, POLLIN, 0}};
    if (poll(fds, 2, waitMs) > 0 && (fds[1].revents & POLLIN) != 0) {
        std::uint64_t count = 0;
        (void)!read(wakeFd_, &count, sizeof count);
    }
    MHD_run(daemon_);
    sweep();
}

bool Listener::run(const std::atomic<bool> &stopping, const std::function<Clock::time_point()> &drainDeadline) {
    while (!stopping.load()) turn(50);
    // Stop accepting; let operations in flight finish and their replies go.
    MHD_quiesce_daemon(daemon_);
    close(listenFd_);
    listenFd_ = -1;
    draining_ = true;
    const auto deadline = drainDeadline();
    while (busy() && Clock::now() < deadline) turn(20);
    for (const Conn *conn : conns_)
        if (conn->phase == Conn::Phase::Working) {
            abandoned_ = true;  // a suspended connection: the daemon cannot be stopped
            return false;
        }
    MHD_stop_daemon(daemon_);
    daemon_ = nullptr;
    return true;
}

}  // namespace cimserver
