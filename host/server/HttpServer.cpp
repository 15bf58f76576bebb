#include "HttpServer.h"

#include "Host.h"

#include <httplib.h>
#include <openssl/evp.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <thread>

namespace cimserver {

using cimhost::iequals;

namespace {

// A fixed set of workers and a bounded queue of accepted connections. When
// the queue is full the accepting thread waits, and further clients wait in
// the kernel's listen backlog.
class BoundedPool : public httplib::TaskQueue {
public:
    BoundedPool(unsigned threads, std::size_t capacity) : capacity_(capacity == 0 ? 1 : capacity) {
        for (unsigned i = 0; i < (threads == 0 ? 1 : threads); ++i) workers_.emplace_back([this] { work(); });
    }
    ~BoundedPool() override { shutdown(); }

    void enqueue(std::function<void()> fn) override {
        std::unique_lock lock(mutex_);
        notFull_.wait(lock, [&] { return jobs_.size() < capacity_ || stopping_; });
        jobs_.push_back(std::move(fn));
        notEmpty_.notify_one();
    }
    void shutdown() override {
        {
            std::lock_guard lock(mutex_);
            if (stopping_ && workers_.empty()) return;
            stopping_ = true;
        }
        notEmpty_.notify_all();
        notFull_.notify_all();
        for (std::thread &t : workers_) t.join();
        workers_.clear();
    }

private:
    void work() {
        for (;;) {
            std::function<void()> job;
            {
                std::unique_lock lock(mutex_);
                notEmpty_.wait(lock, [&] { return !jobs_.empty() || stopping_; });
                if (jobs_.empty()) return;  // stopping, and nothing left to serve
                job = std::move(jobs_.front());
                jobs_.pop_front();
                notFull_.notify_one();
            }
            job();
        }
    }

    const std::size_t capacity_;
    std::mutex mutex_;
    std::condition_variable notEmpty_, notFull_;
    std::deque<std::function<void()>> jobs_;
    std::vector<std::thread> workers_;
    bool stopping_ = false;
};

// "%2F" escapes of a CIMObject header; nullopt for a broken escape.
std::optional<std::string> percentDecoded(std::string_view s) {
    std::string out;
    for (std::size_t i = 0; i < s.size(); ++i) {
        if (s[i] != '%') {
            out += s[i];
            continue;
        }
        auto hex = [](char c) -> int {
            if (c >= '0' && c <= '9') return c - '0';
            if (c >= 'a' && c <= 'f') return c - 'a' + 10;
            if (c >= 'A' && c <= 'F') return c - 'A' + 10;
            return -1;
        };
        if (i + 2 >= s.size()) return std::nullopt;
        int hi = hex(s[i + 1]), lo = hex(s[i + 2]);
        if (hi < 0 || lo < 0) return std::nullopt;
        out += static_cast<char>(hi * 16 + lo);
        i += 2;
    }
    return out;
}

std::string_view trimSlashes(std::string_view s) {
    while (!s.empty() && s.front() == '/') s.remove_prefix(1);
    while (!s.empty() && s.back() == '/') s.remove_suffix(1);
    return s;
}

// CIMObject names the namespace of an intrinsic call, or "ns:Class[.keys]"
// of a method call. Keys are not compared: clients leave them unescaped.
bool objectHeaderMatches(const std::string &header, const CimRequest &r) {
    auto decoded = percentDecoded(header);
    if (!decoded) return false;
    std::string_view text = *decoded;
    if (text.substr(0, 2) == "//") {  // a host in front
        std::size_t slash = text.find('/', 2);
        if (slash == std::string_view::npos) return false;
        text.remove_prefix(slash);
    }
    if (r.intrinsic) return iequals(trimSlashes(text), trimSlashes(r.nameSpace));
    std::size_t colon = text.find(':');
    if (colon == std::string_view::npos) return false;
    std::string_view cls = text.substr(colon + 1);
    cls = cls.substr(0, cls.find('.'));
    return iequals(trimSlashes(text.substr(0, colon)), trimSlashes(r.nameSpace)) &&
           iequals(cls, r.target.className);
}

// "Basic base64(user:password)"; nullopt when the header is not that.
std::optional<std::pair<std::string, std::string>> basicCredentials(const std::string &header) {
    if (header.size() < 6 || !iequals(std::string_view(header).substr(0, 6), "Basic ")) return std::nullopt;
    std::string b64 = header.substr(6);
    while (!b64.empty() && b64.front() == ' ') b64.erase(0, 1);
    while (!b64.empty() && b64.back() == ' ') b64.pop_back();
    if (b64.empty() || b64.size() % 4 != 0 || b64.size() > 1024) return std::nullopt;
    std::string raw(b64.size() / 4 * 3, '\0');
    int n = EVP_DecodeBlock(reinterpret_cast<unsigned char *>(raw.data()),
                            reinterpret_cast<const unsigned char *>(b64.data()), static_cast<int>(b64.size()));
    if (n < 0) return std::nullopt;
    std::size_t padding = b64.size() - b64.find_last_not_of('=') - 1;
    raw.resize(static_cast<std::size_t>(n) - std::min<std::size_t>(padding, 2));
    std::size_t colon = raw.find(':');
    if (colon == std::string::npos) return std::nullopt;
    return std::make_pair(raw.substr(0, colon), raw.substr(colon + 1));
}

// application/xml or text/xml, with no charset or UTF-8.
bool xmlInUtf8(const std::string &contentType) {
    std::string type = cimhost::lowerCase(contentType);
    bool xml = type.rfind("application/xml", 0) == 0 || type.rfind("text/xml", 0) == 0;
    std::size_t charset = type.find("charset=");
    if (charset == std::string::npos) return xml;
    std::string_view value = std::string_view(type).substr(charset + 8);
    if (!value.empty() && value.front() == '"') value.remove_prefix(1);
    return xml && value.rfind("utf-8", 0) == 0;
}

bool versionMajorIs(const std::string &v, char major) {
    return !v.empty() && v[0] == major && (v.size() == 1 || v[1] == '.');
}

// What one request did, for its log line; kept per worker thread between
// the handler and the logger, which run one after the other.
struct RequestRecord {
    std::chrono::steady_clock::time_point start;
    bool started = false;
    std::string user = "-";
    std::string operation = "-";
    std::string className = "-";
    std::string cimStatus = "-";
};
thread_local RequestRecord record;

}  // namespace

struct HttpServer::Impl {
    Impl(const CimService &svc, const Users *u, ServerOptions o, LogSink l)
        : service(svc), users(u), options(std::move(o)), log(std::move(l)) {}

    const CimService &service;
    const Users *users;
    ServerOptions options;
    LogSink log;
    httplib::Server server;

    void refuse(httplib::Response &res, int status, const char *cimError) {
        res.status = status;
        if (cimError != nullptr) res.set_header("CIMError", cimError);
    }

    void handle(const httplib::Request &req, httplib::Response &res) {
        std::string principal;
        if (options.authenticate) {
            auto creds = basicCredentials(req.get_header_value("Authorization"));
            if (creds) record.user = creds->first;
            if (!creds || !users->verify(creds->first, creds->second)) {
                res.status = 401;
                res.set_header("WWW-Authenticate", "Basic realm=\"tovra-cimd\"");
                return;
            }
            principal = creds->first;
        }
        if (!req.has_header("CIMOperation") || !iequals(req.get_header_value("CIMOperation"), "MethodCall"))
            return refuse(res, 400, "unsupported-operation");
        if (req.has_header("CIMProtocolVersion") && !versionMajorIs(req.get_header_value("CIMProtocolVersion"), '1'))
            return refuse(res, 501, "unsupported-protocol-version");
        if (req.has_header("CIMBatch")) return refuse(res, 501, "multiple-requests-unsupported");
        if (req.has_header("Content-Type") && !xmlInUtf8(req.get_header_value("Content-Type")))
            return refuse(res, 400, "request-not-valid");

        DecodeResult decoded = decodeRequest(req.body, options.limits);
        if (auto *error = std::get_if<RequestError>(&decoded))
            return refuse(res, httpStatusOf(error->kind), cimErrorHeaderOf(error->kind));
        const CimRequest &cim = std::get<CimRequest>(decoded);
        record.operation = cim.method;
        if (!iequals(req.get_header_value("CIMMethod"), cim.method) ||
            !objectHeaderMatches(req.get_header_value("CIMObject"), cim))
            return refuse(res, 400, "header-mismatch");

        std::optional<cimhost::Host::ThreadPrincipal> as;
        if (options.authenticate)
            as.emplace(principal);
        else
            as.emplace(std::string(), cimhost::HostOptions::PrincipalEntry::NullText);
        Outcome outcome = service.run(cim);
        record.className = outcome.className.empty() ? "-" : outcome.className;
        record.cimStatus = std::to_string(outcome.code);
        res.status = 200;
        res.set_header("CIMOperation", "MethodResponse");
        res.set_content(std::move(outcome.body), "application/xml; charset=\"utf-8\"");
    }

    void writeLog(const httplib::Request &req, const httplib::Response &res) {
        auto ms = record.started ? std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() -
                                                                             record.start)
                                       .count()
                                 : 0.0;
        char duration[32];
        std::snprintf(duration, sizeof duration, "%.1fms", ms);
        log((req.remote_addr.empty() ? "-" : req.remote_addr) + " " + record.user + " " + req.method + " " + record.operation + " " + record.className +
            " http=" + std::to_string(res.status) + " cim=" + record.cimStatus + " " + duration);
        record = RequestRecord{};
    }
};

HttpServer::HttpServer(const CimService &service, const Users *users, ServerOptions options, LogSink log)
    : impl_(std::make_unique<Impl>(service, users, std::move(options), std::move(log))) {
    if (impl_->options.authenticate && users == nullptr)
        throw std::invalid_argument("authentication needs a users file");
    Impl &s = *impl_;
    httplib::Server &srv = s.server;
    const unsigned threads = s.options.threads;
    const std::size_t queue = s.options.queue;
    srv.new_task_queue = [threads, queue] { return new BoundedPool(threads, queue); };
    srv.set_payload_max_length(s.options.limits.maxBytes);
    srv.set_keep_alive_timeout(s.options.keepAliveSeconds);
    srv.set_keep_alive_max_count(100);
    srv.set_tcp_nodelay(true);  // a reply goes out as head and body: no waiting on delayed ACKs
    srv.set_read_timeout(s.options.ioTimeoutSeconds, 0);
    srv.set_write_timeout(s.options.ioTimeoutSeconds, 0);
    srv.set_pre_routing_handler([&s](const httplib::Request &req, httplib::Response &res) {
        record = RequestRecord{};
        record.start = std::chrono::steady_clock::now();
        record.started = true;
        if (req.method == "POST") return httplib::Server::HandlerResponse::Unhandled;
        // M-POST (the HTTP extension framework) is not served: clients retry with POST.
        res.status = req.method == "M-POST" ? 501 : 405;
        if (res.status == 405) res.set_header("Allow", "POST");
        return httplib::Server::HandlerResponse::Handled;
    });
    // httplib refuses methods it does not know, M-POST among them, before
    // routing; DSP0200 wants 501 for it.
    srv.set_error_handler([](const httplib::Request &req, httplib::Response &res) {
        if (req.method == "M-POST") res.status = 501;
    });
    srv.Post(".*", [&s](const httplib::Request &req, httplib::Response &res) { s.handle(req, res); });
    srv.set_exception_handler([](const httplib::Request &, httplib::Response &res, std::exception_ptr) {
        res.status = 500;
    });
    srv.set_logger([&s](const httplib::Request &req, const httplib::Response &res) { s.writeLog(req, res); });
}

HttpServer::~HttpServer() { stop(); }

int HttpServer::bind() {
    Impl &s = *impl_;
    int port = s.options.port;
    if (port == 0) {
        port = s.server.bind_to_any_port(s.options.address);
    } else if (!s.server.bind_to_port(s.options.address, port)) {
        port = -1;
    }
    if (port < 0)
        throw std::runtime_error("cannot listen on " + s.options.address + ":" + std::to_string(s.options.port));
    return port;
}

void HttpServer::run() { impl_->server.listen_after_bind(); }

void HttpServer::stop() { impl_->server.stop(); }

}  // namespace cimserver
