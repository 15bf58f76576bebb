#include "Listen.h"

#include "CimRequest.h"
#include "Format.h"
#include "PeerAddress.h"
#include "XmlWriter.h"

#include <microhttpd.h>

#include <arpa/inet.h>
#include <algorithm>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <map>
#include <memory>
#include <mutex>
#include <ostream>

namespace cimhost::cli {

namespace {

using Clock = std::chrono::steady_clock;

const char *severityName(std::uint64_t v) {
    static const char *names[] = {"Unknown", "Other", "Information", "Degraded/Warning", "Minor", "Major", "Critical",
                                  "Fatal/NonRecoverable"};
    return v < std::size(names) ? names[v] : nullptr;
}

const char *alertTypeName(std::uint64_t v) {
    static const char *names[] = {nullptr, "Other", "Communications Alert", "Quality of Service Alert",
                                  "Processing Error", "Device Alert", "Environmental Alert", "Model Change",
                                  "Security Alert"};
    return v < std::size(names) ? names[v] : nullptr;
}

const char *probableCauseName(std::uint64_t v) {
    static const std::map<std::uint64_t, const char *> names = {
        {0, "Unknown"}, {1, "Other"}, {2, "Adapter/Card Error"}, {10, "Corrupt Data"},
        {16, "Equipment Malfunction"}, {24, "I/O Device Error"}, {35, "Performance Degraded"},
        {36, "Power Problem"}, {47, "Software Error"}, {50, "Storage Capacity Problem"},
        {51, "Temperature Unacceptable"}, {52, "Threshold Crossed"}, {59, "Previous Alert Cleared"},
        {73, "Element Missing"}, {86, "Disk Failure"}, {88, "Loss of Redundancy"}, {89, "Power Supply Failure"},
        {94, "Fan Failure"}, {128, "Out of Service"}};
    auto it = names.find(v);
    return it == names.end() ? nullptr : it->second;
}

// The properties a text line shows, in this order, with the names of their codes.
struct Shown {
    const char *name;
    const char *(*meaning)(std::uint64_t);
    bool bookkeeping = false;  // said of every indication a server sends
};
constexpr Shown kShown[] = {
    {"PerceivedSeverity", severityName}, {"AlertType", alertTypeName}, {"ProbableCause", probableCauseName},
    {"AlertingManagedElement", nullptr}, {"Message", nullptr},         {"Description", nullptr},
    {"EventID", nullptr},                {"SourceInstance", nullptr},  {"PreviousInstance", nullptr},
    {"IndicationFilterName", nullptr, true}, {"SequenceNumber", nullptr, true},
};

std::string shownValue(const Value &v, const char *(*meaning)(std::uint64_t)) {
    if (v.type() == CMPI_instance) {
        const InstanceV &inner = v.asInstance();
        std::string text = inner.path.className;
        for (const char *p : {"DeviceID", "Name", "InstanceID", "Tag", "OperationalStatus", "HealthState"})
            if (const Value *x = inner.property(p); x != nullptr && !x->isNull()) text += " " + std::string(p) + "=" + x->toText();
        return text;
    }
    std::string text = cimhost::isTextType(v.type()) && !v.isArray() ? v.asString() : v.toText();
    if (meaning != nullptr && cimhost::isIntegerType(v.type()))
        if (const char *name = meaning(v.asUnsigned())) text += " (" + std::string(name) + ")";
    return text;
}

// Text fit for one line of a terminal: control characters as \xNN.
std::string printable(std::string_view s) {
    std::string out;
    for (char c : s) {
        auto u = static_cast<unsigned char>(c);
        if (u < 0x20 || u == 0x7F) {
            char buf[8];
            std::snprintf(buf, sizeof buf, "\\x%02X", u);
            out += buf;
        } else {
            out += c;
        }
    }
    return out;
}

std::string timeOf(const InstanceV &indication) {
    const Value *t = indication.property("IndicationTime");
    if (t != nullptr && !t->isNull() && t->type() == CMPI_dateTime) return t->asDateTime().toCim();
    auto micros = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::system_clock::now().time_since_epoch());
    return DateTimeV{static_cast<std::uint64_t>(micros.count()), false, 0}.toCim();
}

}  // namespace

std::string indicationText(const InstanceV &indication, const std::string &peer) {
    std::string out = timeOf(indication) + " " + printable(indication.path.className);
    if (!indication.path.ns.empty()) out += " " + printable(indication.path.ns);
    out += " from " + peer + "\n";
    bool any = false;
    for (const Shown &s : kShown)
        if (const Value *v = indication.property(s.name); v != nullptr && !v->isNull()) {
            out += "  " + std::string(s.name) + " = " + printable(shownValue(*v, s.meaning)) + "\n";
            any = any || !s.bookkeeping;
        }
    if (!any)  // not an alert: whatever else it carries
        for (const auto &[name, v] : indication.properties)
            if (!v.isNull() && std::none_of(std::begin(kShown), std::end(kShown), [&](const Shown &s) {
                    return cimhost::iequals(s.name, name);
                }) && !cimhost::iequals(name, "SequenceContext"))
                out += "  " + printable(name) + " = " + printable(shownValue(v, nullptr)) + "\n";
    return out;
}

std::string indicationJson(const InstanceV &indication, const std::string &peer) {
    Json doc;
    doc["class"] = indication.path.className;
    if (!indication.path.ns.empty()) doc["namespace"] = indication.path.ns;
    doc["time"] = timeOf(indication);
    doc["from"] = peer;
    Json props = Json::object();
    for (const auto &[name, v] : indication.properties) props[name] = toJson(v);
    doc["properties"] = std::move(props);
    return doc.dump(-1, ' ', false, nlohmann::detail::error_handler_t::replace) + "\n";
}

namespace {

struct Exchange {
    Clock::time_point start = Clock::now();
    std::string body;
    bool tooLarge = false;
    bool printed = false;  // its indication was printed; the answer follows
};

class ExportListener {
public:
    ExportListener(const ListenOptions &options, std::ostream &out, std::ostream &err)
        : options_(options), out_(out), err_(err) {}
    ~ExportListener() {
        if (daemon_ != nullptr) MHD_stop_daemon(daemon_);
    }

    // The bound port, or -1.
    int start() {
        sockaddr_storage storage{};
        auto *v4 = reinterpret_cast<sockaddr_in *>(&storage);
        auto *v6 = reinterpret_cast<sockaddr_in6 *>(&storage);
        unsigned flags = MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_EPOLL | MHD_USE_ERROR_LOG;
        if (inet_pton(AF_INET, options_.address.c_str(), &v4->sin_addr) == 1) {
            v4->sin_family = AF_INET;
            v4->sin_port = htons(static_cast<std::uint16_t>(options_.port));
        } else if (inet_pton(AF_INET6, options_.address.c_str(), &v6->sin6_addr) == 1) {
            v6->sin6_family = AF_INET6;
            v6->sin6_port = htons(static_cast<std::uint16_t>(options_.port));
            flags |= MHD_USE_IPv6;
        } else {
            err_ << "tovra-cim listen: " << options_.address << " is not an IP address\n";
            return -1;
        }
        daemon_ = MHD_start_daemon(
            flags, static_cast<std::uint16_t>(options_.port), nullptr, nullptr, &ExportListener::onRequest, this,
            MHD_OPTION_EXTERNAL_LOGGER, &ExportListener::onLog, this, MHD_OPTION_SOCK_ADDR, &storage,
            MHD_OPTION_CONNECTION_LIMIT, options_.maxConnections, MHD_OPTION_PER_IP_CONNECTION_LIMIT,
            options_.maxConnectionsPerAddress, MHD_OPTION_CONNECTION_TIMEOUT, options_.idleTimeout,
            MHD_OPTION_CONNECTION_MEMORY_LIMIT, static_cast<size_t>(64 * 1024), MHD_OPTION_NOTIFY_COMPLETED,
            &ExportListener::onCompleted, this, MHD_OPTION_END);
        if (daemon_ == nullptr) {
            err_ << "tovra-cim listen: cannot listen on " << options_.address << ":" << options_.port << "\n";
            return -1;
        }
        const MHD_DaemonInfo *info = MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_BIND_PORT);
        return info != nullptr ? info->port : options_.port;
    }

    bool done() const { return options_.count > 0 && printed_.load() >= options_.count; }
    // Every printed indication's answer has gone out.
    bool answered() const { return answered_.load() >= printed_.load(); }

private:
    static void onLog(void *cls, const char *format, va_list args) {
        char text[512];
        std::vsnprintf(text, sizeof text, format, args);
        auto *self = static_cast<ExportListener *>(cls);
        std::lock_guard lock(self->outMutex_);
        self->err_ << "tovra-cim listen: http-layer: " << printable(text);
        if (std::string_view(text).ends_with('\n') == false) self->err_ << '\n';
        self->err_.flush();
    }

    static void onCompleted(void *cls, MHD_Connection *, void **reqCls, MHD_RequestTerminationCode) {
        std::unique_ptr<Exchange> owned(static_cast<Exchange *>(*reqCls));
        *reqCls = nullptr;
        if (owned && owned->printed) ++static_cast<ExportListener *>(cls)->answered_;
    }

    static MHD_Result onRequest(void *cls, MHD_Connection *c, const char *, const char *method, const char *,
                                const char *data, size_t *size, void **reqCls) {
        return static_cast<ExportListener *>(cls)->request(c, method, data, size, reqCls);
    }

    static const char *header(MHD_Connection *c, const char *name) {
        return MHD_lookup_connection_value(c, MHD_HEADER_KIND, name);
    }

    MHD_Result reply(MHD_Connection *c, unsigned status, const char *cimError, std::string body = {}) {
        auto text = std::make_unique<std::string>(std::move(body));
        MHD_Response *r = MHD_create_response_from_buffer_with_free_callback_cls(
            text->size(), text->data(), [](void *p) { std::unique_ptr<std::string>(static_cast<std::string *>(p)); },
            text.get());
        if (r == nullptr) return MHD_NO;
        text.release();
        MHD_add_response_header(r, "CIMExport", "MethodResponse");
        if (cimError != nullptr) MHD_add_response_header(r, "CIMError", cimError);
        if (status == 200) MHD_add_response_header(r, "Content-Type", "application/xml; charset=\"utf-8\"");
        if (status == 405) MHD_add_response_header(r, "Allow", "POST");
        MHD_Result queued = MHD_queue_response(c, status, r);
        MHD_destroy_response(r);
        return queued;
    }

    static std::string response(const std::string &id, int code, const std::string &description) {
        std::string out = "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\">";
        cimserver::XmlWriter w(out);
        w.openWith("MESSAGE", {{"ID", id}, {"PROTOCOLVERSION", "1.0"}});
        out += "<SIMPLEEXPRSP>";
        if (code == 0) {
            w.openWith("EXPMETHODRESPONSE", {{"NAME", "ExportIndication"}}, true);
        } else {
            w.openWith("EXPMETHODRESPONSE", {{"NAME", "ExportIndication"}});
            w.openWith("ERROR", {{"CODE", std::to_string(code)}, {"DESCRIPTION", description}}, true);
            out += "</EXPMETHODRESPONSE>";
        }
        out += "</SIMPLEEXPRSP></MESSAGE></CIM>\n";
        return out;
    }

    MHD_Result request(MHD_Connection *c, const char *method, const char *data, size_t *size, void **reqCls) {
        auto *ex = static_cast<Exchange *>(*reqCls);
        if (ex == nullptr) {
            *reqCls = ex = new Exchange;
            // What the head alone settles, before any body is read.
            if (std::string_view(method) != "POST") return reply(c, 405, nullptr);
            const char *exportHeader = header(c, "CIMExport");
            if (exportHeader == nullptr || std::string_view(exportHeader) != "MethodRequest")
                return reply(c, 400, "unsupported-operation");
            if (header(c, "CIMExportBatch") != nullptr) return reply(c, 501, "multiple-requests-unsupported");
            if (header(c, "CIMExportMethod") == nullptr) return reply(c, 400, "header-mismatch");
            if (const char *v = header(c, "CIMProtocolVersion"); v != nullptr && !(v[0] == '1' && (v[1] == '\0' || v[1] == '.')))
                return reply(c, 501, "unsupported-protocol-version");
            if (const char *length = header(c, MHD_HTTP_HEADER_CONTENT_LENGTH);
                length != nullptr && std::strtoull(length, nullptr, 10) > options_.maxBody)
                return reply(c, 413, "request-not-valid");
            return MHD_YES;
        }
        const auto deadline = std::chrono::duration<double>(options_.requestTimeout);
        if (Clock::now() - ex->start > deadline) return MHD_NO;  // too slow: the connection is closed
        if (*size != 0) {
            if (ex->body.size() + *size > options_.maxBody) {
                ex->tooLarge = true;
                std::string().swap(ex->body);
            } else if (!ex->tooLarge) {
                ex->body.append(data, *size);
            }
            *size = 0;
            return MHD_YES;
        }
        if (ex->tooLarge) return reply(c, 413, "request-not-valid");
        cimserver::DecodeLimits limits;
        limits.maxBytes = options_.maxBody;
        auto decoded = cimserver::decodeExportRequest(ex->body, limits);
        if (auto *error = std::get_if<cimserver::RequestError>(&decoded))
            return reply(c, static_cast<unsigned>(cimserver::httpStatusOf(error->kind)),
                         cimserver::cimErrorHeaderOf(error->kind));
        const auto &r = std::get<cimserver::ExportRequest>(decoded);
        if (!cimhost::iequals(header(c, "CIMExportMethod"), r.method)) return reply(c, 400, "header-mismatch");
        if (!cimhost::iequals(r.method, "ExportIndication"))
            return reply(c, 200, nullptr, response(r.messageId, CMPI_RC_ERR_NOT_SUPPORTED, r.method + " is not supported"));
        const cimserver::NamedParam *p = r.param("NewIndication");
        if (p == nullptr || p->value.kind != cimserver::RawValue::Kind::Instance || r.params.size() != 1)
            return reply(c, 200, nullptr,
                         response(r.messageId, CMPI_RC_ERR_INVALID_PARAMETER, "NewIndication must be the one INSTANCE"));
        ex->printed = print(p->value.instance, cimserver::peerAddress(c));
        return reply(c, 200, nullptr, response(r.messageId, 0, {}));
    }

    // A redelivery (a sequence number seen before in its context) is
    // answered but not printed again.
    bool repeated(const InstanceV &indication) {
        const Value *context = indication.property("SequenceContext");
        const Value *number = indication.property("SequenceNumber");
        if (context == nullptr || number == nullptr || context->isNull() || number->isNull() ||
            !cimhost::isTextType(context->type()) || !cimhost::isIntegerType(number->type()))
            return false;
        if (lastSeen_.size() > 1024) lastSeen_.clear();
        auto [it, fresh] = lastSeen_.emplace(context->asString(), number->asSigned());
        if (fresh) return false;
        if (number->asSigned() <= it->second && number->asSigned() != 0) return true;
        it->second = number->asSigned();
        return false;
    }

    bool print(const InstanceV &indication, const std::string &peer) {
        std::lock_guard lock(outMutex_);
        if (repeated(indication)) return false;
        if (options_.count > 0 && printed_.load() >= options_.count) return false;
        out_ << (options_.json ? indicationJson(indication, peer) : indicationText(indication, peer));
        out_.flush();
        ++printed_;
        return true;
    }

    const ListenOptions &options_;
    std::ostream &out_;
    std::ostream &err_;
    MHD_Daemon *daemon_ = nullptr;
    std::mutex outMutex_;
    std::map<std::string, long long> lastSeen_;  // SequenceContext -> highest SequenceNumber printed
    std::atomic<long long> printed_{0};
    std::atomic<long long> answered_{0};
};

}  // namespace

int listen(const ListenOptions &options, std::ostream &out, std::ostream &err) {
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGINT);
    sigaddset(&stop, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stop, nullptr);  // before the daemon's thread starts
    signal(SIGPIPE, SIG_IGN);
    ExportListener listener(options, out, err);
    const int port = listener.start();
    if (port < 0) return 2;
    const bool v6 = options.address.find(':') != std::string::npos;
    err << "tovra-cim listen: listening on http://" << (v6 ? "[" + options.address + "]" : options.address) << ":"
        << port << "/\n";
    err.flush();
    const timespec tick{0, 50 * 1000 * 1000};
    while (!listener.done())
        if (sigtimedwait(&stop, nullptr, &tick) > 0) return 0;
    // The last indication's sender gets its answer before the port closes.
    const auto deadline = Clock::now() + std::chrono::seconds(2);
    while (!listener.answered() && Clock::now() < deadline) nanosleep(&tick, nullptr);
    return 0;
}

}  // namespace cimhost::cli
