#include "HttpServer.h"

#include "Listener.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace cimserver {

namespace {

using Clock = std::chrono::steady_clock;

// A listening TCP socket on address:port, without SO_REUSEPORT, so a second
// server on a busy port fails. Returns the descriptor and the bound port.
std::pair<int, int> listenOn(const std::string &address, int port) {
    sockaddr_storage storage{};
    socklen_t length = 0;
    auto *v4 = reinterpret_cast<sockaddr_in *>(&storage);
    auto *v6 = reinterpret_cast<sockaddr_in6 *>(&storage);
    if (inet_pton(AF_INET, address.c_str(), &v4->sin_addr) == 1) {
        v4->sin_family = AF_INET;
        v4->sin_port = htons(static_cast<uint16_t>(port));
        length = sizeof *v4;
    } else if (inet_pton(AF_INET6, address.c_str(), &v6->sin6_addr) == 1) {
        v6->sin6_family = AF_INET6;
        v6->sin6_port = htons(static_cast<uint16_t>(port));
        length = sizeof *v6;
    } else {
        throw std::runtime_error("cannot listen on " + address + ": not an IP address");
    }
    const std::string where = address + ":" + std::to_string(port);
    int fd = socket(storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) throw std::runtime_error("cannot listen on " + where + ": " + std::strerror(errno));
    int on = 1;
    // SO_REUSEADDR lets a restarted server bind while old connections linger
    // in TIME_WAIT; it does not let two servers listen on one port.
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (::bind(fd, reinterpret_cast<sockaddr *>(&storage), length) != 0 || listen(fd, 128) != 0) {
        int error = errno;
        close(fd);
        throw std::runtime_error("cannot listen on " + where + ": " +
                                 (error == EADDRINUSE ? std::string("address in use") : std::strerror(error)));
    }
    getsockname(fd, reinterpret_cast<sockaddr *>(&storage), &length);
    int bound = ntohs(storage.ss_family == AF_INET ? v4->sin_port : v6->sin6_port);
    return {fd, bound};
}

std::string fileText(const std::string &path) {
    std::ifstream in(path);
    if (!in) throw std::runtime_error(path + ": cannot be read");
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

}  // namespace

struct HttpServer::Impl {
    Impl(const CimService &service, const Users *users, ServerOptions o, LogSink l)
        : options(std::move(o)), log(std::move(l)), cim{service, users, options.limits}, adapter(service.host()),
          metrics{adapter, options.metricsNoAuth ? nullptr : users, stats, [this] { return admission.open(); }},
          pool(options.threads, options.queue),
          admission(options.maxConnections, options.maxConnectionsPerAddress) {}

    ServerOptions options;
    LogSink log;
    CimContext cim;
    AdapterMetrics adapter;
    ServerStats stats;
    MetricsContext metrics;
    WorkerPool pool;
    Admission admission;
    std::vector<std::unique_ptr<Listener>> listeners;
    std::atomic<bool> stopping{false};
    std::mutex deadlineMutex;
    std::optional<Clock::time_point> deadline;

    ListenerConfig config() const {
        ListenerConfig c;
        c.head.maxBody = options.limits.maxBytes;
        c.head.maxHeaderBytes = options.maxHeaderBytes;
        c.head.maxHeaders = options.maxHeaders;
        c.requestTimeout = std::chrono::milliseconds(static_cast<long>(options.requestTimeout * 1000));
        c.idleSeconds = static_cast<unsigned>(std::max(1.0, std::ceil(options.idleTimeout)));
        // The daemon's pool holds the head and the read buffer. Twice the
        // head limit lets heads just past it reach our check (431 with a
        // CIMError); larger ones the daemon refuses itself.
        c.connectionPool = 2 * options.maxHeaderBytes + 16 * 1024;
        c.hardConnectionLimit = options.maxConnections + 64;
        return c;
    }

    // One deadline for every listener, fixed when the first one asks.
    Clock::time_point drainDeadline() {
        std::lock_guard lock(deadlineMutex);
        if (!deadline)
            deadline = Clock::now() + std::chrono::milliseconds(static_cast<long>(options.shutdownTimeout * 1000));
        return *deadline;
    }
};

HttpServer::HttpServer(const CimService &service, const Users *users, ServerOptions options, LogSink log) {
    if (options.authenticate && users == nullptr) throw std::invalid_argument("authentication needs a users file");
    if (!options.authenticate) users = nullptr;
    impl_ = std::make_unique<Impl>(service, users, std::move(options), std::move(log));
}

HttpServer::~HttpServer() = default;

HttpServer::Ports HttpServer::bind() {
    Impl &s = *impl_;
    Ports ports;
    const bool https = !s.options.certFile.empty() || !s.options.keyFile.empty();
    ListenerConfig tlsConfig = s.config();
    if (https) {
        if (s.options.certFile.empty() || s.options.keyFile.empty())
            throw std::runtime_error("HTTPS needs both --cert and --key");
        tlsConfig.certPem = fileText(s.options.certFile);
        tlsConfig.keyPem = fileText(s.options.keyFile);
    }
    auto [fd, port] = listenOn(s.options.address, s.options.port);
    s.listeners.push_back(std::make_unique<Listener>(fd, s.config(), s.cim, s.metrics, s.pool, s.admission, s.log));
    ports.http = port;
    if (https) {
        auto [tlsFd, tlsPort] = listenOn(s.options.address, s.options.httpsPort);
        s.listeners.push_back(
            std::make_unique<Listener>(tlsFd, std::move(tlsConfig), s.cim, s.metrics, s.pool, s.admission, s.log));
        ports.https = tlsPort;
    }
    return ports;
}

bool HttpServer::run() {
    Impl &s = *impl_;
    std::vector<std::thread> loops;
    std::vector<char> clean(s.listeners.size(), 0);
    for (std::size_t i = 0; i < s.listeners.size(); ++i)
        loops.emplace_back([&s, &clean, i] { clean[i] = s.listeners[i]->run(s.stopping, [&s] { return s.drainDeadline(); }); });
    for (std::thread &t : loops) t.join();
    bool allClean = true;
    for (char c : clean) allClean = allClean && c != 0;
    if (!allClean) {
        s.pool.stop(Clock::now());
        return false;
    }
    s.listeners.clear();
    return s.pool.stop(s.drainDeadline());
}

void HttpServer::stop() { impl_->stopping.store(true); }

}  // namespace cimserver
