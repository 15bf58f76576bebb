#include "ServerProcess.h"

#include "Users.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <algorithm>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

extern char **environ;

namespace servertest {

namespace {

std::vector<char *> pointers(std::vector<std::string> &items) {
    std::vector<char *> out;
    for (std::string &s : items) out.push_back(s.data());
    out.push_back(nullptr);
    return out;
}

std::string tempPath(const std::string &name) {
    const char *dir = std::getenv("TMPDIR");
    return std::string(dir != nullptr ? dir : "/tmp") + "/tovra-cimd-test-" + std::to_string(getpid()) + "-" + name;
}

// True once text holds a whole HTTP response with a Content-Length.
bool wholeResponse(const std::string &text) {
    size_t end = text.find("\r\n\r\n");
    if (end == std::string::npos) return false;
    std::string head = text.substr(0, end);
    for (char &c : head) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    size_t at = head.find("\r\ncontent-length:");
    return at != std::string::npos && text.size() >= end + 4 + std::stoul(head.substr(at + 17));
}

// Reads what the fd delivers within the deadline; stops at EOF, after
// stopAfter, or (for HTTP) after a whole response.
std::string readUntil(int fd, std::chrono::steady_clock::time_point deadline, const std::string &stopAfter = {},
                      bool http = false) {
    std::string out;
    char buf[65536];
    for (;;) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) break;
        pollfd p{fd, POLLIN, 0};
        if (poll(&p, 1, static_cast<int>(left.count())) <= 0) break;
        ssize_t n = read(fd, buf, sizeof buf);
        if (n <= 0) break;
        out.append(buf, static_cast<size_t>(n));
        if (!stopAfter.empty() && out.find(stopAfter) != std::string::npos) break;
        if (http && wholeResponse(out)) break;
    }
    return out;
}

bool waitExit(int pid, int &status, std::chrono::milliseconds limit) {
    auto deadline = std::chrono::steady_clock::now() + limit;
    while (std::chrono::steady_clock::now() < deadline) {
        if (waitpid(pid, &status, WNOHANG) == pid) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return false;
}

}  // namespace

Library Library::product() {
    return {TOVRA_MOF_DIR, std::string(TOVRA_MOF_DIR) + "/Tovra.reg", TOVRA_PROVIDER_DIR};
}

Library Library::testProvider() {
#ifdef TEST_MOF
    return {TEST_MOF, TEST_REGISTRATION, TEST_PROVIDER_DIR};
#else
    throw std::logic_error("built without the test provider");
#endif
}

ServerProcess::ServerProcess(std::vector<std::string> extraArgs, std::vector<std::string> extraEnv,
                             const Library &library, const std::string &program) {
    logPath_ = tempPath("log-" + std::to_string(reinterpret_cast<uintptr_t>(this)));
    std::vector<std::string> argv = {program};
    for (const auto &[option, value] : {std::pair{"--mof", library.mof}, std::pair{"--registration", library.registration},
                                        std::pair{"--provider-dir", library.providerDir}})
        if (!value.empty()) argv.insert(argv.end(), {option, value});
    bool portGiven = false;
    for (const std::string &a : extraArgs) portGiven = portGiven || a == "--port";
    if (!portGiven) argv.insert(argv.end(), {"--port", "0"});
    argv.insert(argv.end(), extraArgs.begin(), extraArgs.end());
    std::vector<std::string> env;
    for (char **e = environ; *e != nullptr; ++e)
        if (std::strncmp(*e, "LD_PRELOAD=", 11) != 0 && std::strncmp(*e, "TOVRA_SIM_", 10) != 0 &&
            std::strncmp(*e, "TOVRA_CACHE_EPOCHS=", 19) != 0)
            env.emplace_back(*e);
    env.push_back(std::string("LD_PRELOAD=") + TOVRA_SERVER_PRELOAD);
    env.push_back("TOVRA_SIM_CLOCK=virtual");
    // Unless told otherwise, each server keeps its cache reset counters to
    // itself: servers of other tests serve other simulated adapters.
    if (std::none_of(extraEnv.begin(), extraEnv.end(), [](const std::string &e) { return e.starts_with("TOVRA_CACHE_EPOCHS="); }))
        env.push_back("TOVRA_CACHE_EPOCHS=");
    // The sanitizer's options for the server join those the tests run with.
    if (const std::string options = TOVRA_SANITIZER_OPTIONS; !options.empty()) {
        const std::string name = options.substr(0, options.find('=') + 1);
        auto inherited = std::find_if(env.begin(), env.end(), [&](const std::string &e) { return e.starts_with(name); });
        if (inherited != env.end()) *inherited += ":" + options.substr(name.size());
        else env.push_back(options);
    }
    env.insert(env.end(), extraEnv.begin(), extraEnv.end());

    int out[2];
    if (pipe2(out, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_addopen(&actions, 2, logPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    auto args = pointers(argv);
    auto envp = pointers(env);
    int rc = posix_spawn(&pid_, args[0], &actions, nullptr, args.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    close(out[1]);
    if (rc != 0) {
        close(out[0]);
        throw std::runtime_error("cannot start tovra-cimd");
    }
    // The HTTP line comes last; an HTTPS line may come before it.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    std::string banner;
    while (banner.find("http://127.0.0.1:") == std::string::npos) {
        std::string more = readUntil(out[0], deadline, "/cimom\n");
        if (more.empty()) break;
        banner += more;
    }
    close(out[0]);
    auto at = banner.find("http://127.0.0.1:");
    if (at == std::string::npos) {
        stop();
        throw std::runtime_error("tovra-cimd did not start: " + banner + log());
    }
    port_ = std::atoi(banner.c_str() + at + 17);
    if (auto tls = banner.find("https://127.0.0.1:"); tls != std::string::npos)
        httpsPort_ = std::atoi(banner.c_str() + tls + 18);
}

ServerProcess::~ServerProcess() {
    stop();
    unlink(logPath_.c_str());
}

std::string ServerProcess::url(const std::string &user, const std::string &password) const {
    std::string auth = user.empty() ? "" : user + ":" + password + "@";
    return "http://" + auth + "127.0.0.1:" + std::to_string(port_);
}

int ServerProcess::stop(std::chrono::milliseconds limit) {
    if (pid_ < 0) return -1;
    int status = 0;
    kill(pid_, SIGTERM);
    bool ended = waitExit(pid_, status, limit);
    if (!ended) {
        kill(pid_, SIGKILL);
        waitpid(pid_, &status, 0);
    }
    pid_ = -1;
    return ended && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

long ServerProcess::residentKiB() const {
    if (pid_ < 0) return -1;
    std::ifstream in("/proc/" + std::to_string(pid_) + "/status");
    std::string line;
    while (std::getline(in, line))
        if (line.rfind("VmRSS:", 0) == 0) return std::atol(line.c_str() + 6);
    return -1;
}

std::string ServerProcess::log() const {
    std::ifstream in(logPath_);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

const std::string &usersFile() {
    static const std::string path = [] {
        std::string p = tempPath("users");
        std::ofstream out(p);
        out << "# test users\n"
            << "admin:" << cimserver::hashPassword("secret") << ":5\n"
            << "reader:" << cimserver::hashPassword("secret") << ":1\n";
        std::atexit([] { unlink(tempPath("users").c_str()); });
        return p;
    }();
    return path;
}

Run runProgram(const std::vector<std::string> &argvIn) {
    std::vector<std::string> argv = {"timeout", "60"};
    argv.insert(argv.end(), argvIn.begin(), argvIn.end());
    std::vector<std::string> env;
    for (char **e = environ; *e != nullptr; ++e)
        if (std::strncmp(*e, "LD_PRELOAD=", 11) != 0) env.emplace_back(*e);
    int out[2];
    if (pipe2(out, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_adddup2(&actions, out[1], 2);
    auto args = pointers(argv);
    auto envp = pointers(env);
    pid_t pid = -1;
    int rc = posix_spawnp(&pid, args[0], &actions, nullptr, args.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    close(out[1]);
    Run r;
    if (rc != 0) {
        close(out[0]);
        return r;
    }
    r.output = readUntil(out[0], std::chrono::steady_clock::now() + std::chrono::seconds(90));
    close(out[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return r;
}

std::string rawExchange(int port, const std::string &request, int timeoutMs) {
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return {};
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(port));
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    std::string reply;
    if (connect(fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr) == 0) {
        size_t sent = 0;
        while (sent < request.size()) {
            ssize_t n = send(fd, request.data() + sent, request.size() - sent, MSG_NOSIGNAL);
            if (n <= 0) break;
            sent += static_cast<size_t>(n);
        }
        reply = readUntil(fd, std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs), {}, true);
    }
    close(fd);
    return reply;
}

std::string cimPost(const std::string &body, const std::vector<std::pair<std::string, std::string>> &headers,
                    bool credentials) {
    std::vector<std::pair<std::string, std::string>> h = {
        {"Host", "127.0.0.1"},
        {"Content-Type", "application/xml; charset=\"utf-8\""},
        {"CIMProtocolVersion", "1.0"},
        {"CIMOperation", "MethodCall"},
        {"Content-Length", std::to_string(body.size())},
        {"Connection", "close"},
    };
    if (credentials) h.emplace_back("Authorization", "Basic YWRtaW46c2VjcmV0");  // admin:secret
    // CIMMethod and CIMObject follow the body unless given.
    auto between = [&](const std::string &from, const std::string &to) {
        auto a = body.find(from);
        if (a == std::string::npos) return std::string();
        a += from.size();
        return body.substr(a, body.find(to, a) - a);
    };
    std::string method = between("METHODCALL NAME=\"", "\"");
    h.emplace_back("CIMMethod", method);
    h.emplace_back("CIMObject", "tovra%2Fcimv2");
    for (const auto &[name, value] : headers) {
        bool replaced = false;
        for (auto &existing : h)
            if (existing.first == name) existing.second = value, replaced = true;
        if (!replaced) h.emplace_back(name, value);
    }
    std::string req = "POST /cimom HTTP/1.1\r\n";
    for (const auto &[name, value] : h)
        if (value != "<none>") req += name + ": " + value + "\r\n";
    return req + "\r\n" + body;
}

std::string intrinsicBody(const std::string &method, const std::string &params, const std::string &ns) {
    std::string nsXml;
    for (size_t start = 0;;) {
        size_t slash = ns.find('/', start);
        nsXml += "<NAMESPACE NAME=\"" + ns.substr(start, slash - start) + "\"/>";
        if (slash == std::string::npos) break;
        start = slash + 1;
    }
    return "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\"><MESSAGE ID=\"7\" "
           "PROTOCOLVERSION=\"1.0\"><SIMPLEREQ><IMETHODCALL NAME=\"" +
           method + "\"><LOCALNAMESPACEPATH>" + nsXml + "</LOCALNAMESPACEPATH>" + params +
           "</IMETHODCALL></SIMPLEREQ></MESSAGE></CIM>";
}

}  // namespace servertest

namespace servertest {

Connection::Connection(int port, const char *from) {
    fd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd_ < 0) return;
    sockaddr_in local{};
    local.sin_family = AF_INET;
    inet_pton(AF_INET, from, &local.sin_addr);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(port));
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (bind(fd_, reinterpret_cast<sockaddr *>(&local), sizeof local) != 0 ||
        connect(fd_, reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0) {
        close(fd_);
        fd_ = -1;
    }
}

Connection::~Connection() {
    if (fd_ >= 0) close(fd_);
}

bool Connection::send(const std::string &bytes) {
    size_t sent = 0;
    while (fd_ >= 0 && sent < bytes.size()) {
        ssize_t n = ::send(fd_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (n <= 0) return false;
        sent += static_cast<size_t>(n);
    }
    return fd_ >= 0;
}

std::string Connection::response(std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (;;) {
        if (wholeResponse(pending_)) {
            size_t end = pending_.find("\r\n\r\n");
            std::string head = pending_.substr(0, end);
            for (char &c : head) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
            size_t at = head.find("\r\ncontent-length:");
            size_t total = end + 4 + std::stoul(head.substr(at + 17));
            std::string one = pending_.substr(0, total);
            pending_.erase(0, total);
            return one;
        }
        std::string more;
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        pollfd p{fd_, POLLIN, 0};
        if (fd_ >= 0 && left.count() > 0 && poll(&p, 1, static_cast<int>(left.count())) > 0) {
            char buf[65536];
            ssize_t n = read(fd_, buf, sizeof buf);
            if (n > 0) more.assign(buf, static_cast<size_t>(n));
        }
        if (more.empty()) {
            std::string partial = std::move(pending_);
            pending_.clear();
            return partial;
        }
        pending_ += more;
    }
}

std::string Connection::rest(std::chrono::milliseconds limit) {
    std::string out = std::move(pending_);
    pending_.clear();
    if (fd_ >= 0) out += readUntil(fd_, std::chrono::steady_clock::now() + limit);
    return out;
}

}  // namespace servertest
