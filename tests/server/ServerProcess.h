// tovra-cimd as a client meets it: the built server in its own process, with
// the simulator preloaded, listening on a free loopback port.
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace servertest {

// The provider library a server loads, with its MOF and registration.
struct Library {
    std::string mof, registration, providerDir;
    static Library product();       // the Tovra providers
    static Library testProvider();  // the host's test provider: associations and typed methods
    static Library found() { return {}; }  // no path options: what the server finds beside itself
};

class ServerProcess {
public:
    // Starts the server (the built one unless `program` names another) with
    // the library; extraEnv entries are "NAME=value".
    explicit ServerProcess(std::vector<std::string> extraArgs, std::vector<std::string> extraEnv = {},
                           const Library &library = Library::product(), const std::string &program = TOVRA_CIMD);
    ~ServerProcess();
    ServerProcess(const ServerProcess &) = delete;
    ServerProcess &operator=(const ServerProcess &) = delete;

    int port() const { return port_; }
    int httpsPort() const { return httpsPort_; }  // 0 when HTTPS is not served
    int pid() const { return pid_; }
    std::string url(const std::string &user = {}, const std::string &password = {}) const;
    // SIGTERM, then the exit status (-1 when it did not end within the limit
    // or died of a signal; it is then killed).
    int stop(std::chrono::milliseconds limit = std::chrono::seconds(30));
    // VmRSS from /proc/<pid>/status, in KiB; -1 when the process is gone.
    long residentKiB() const;
    std::string log() const;  // what it wrote to standard error

private:
    int pid_ = -1;
    int port_ = 0;
    int httpsPort_ = 0;
    std::string logPath_;
};

// A users file with admin:secret (level 5) and reader:secret (level 1).
const std::string &usersFile();

struct Run {
    int status = -1;
    std::string output;  // standard output and error together
};
// Runs a program (searched in PATH) without the preload.
Run runProgram(const std::vector<std::string> &argv);

// Sends raw bytes, then reads until the server closes, a whole response has
// come, or the timeout passes.
std::string rawExchange(int port, const std::string &request, int timeoutMs = 10000);

// A TCP connection to the server from a chosen loopback address (so that
// per-address limits can tell attackers from a normal client).
class Connection {
public:
    explicit Connection(int port, const char *from = "127.0.0.1");
    ~Connection();
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    bool open() const { return fd_ >= 0; }
    // False once the server has closed the connection.
    bool send(const std::string &bytes);
    // One whole response (Content-Length framed), or what came before the
    // server closed or the deadline passed.
    std::string response(std::chrono::milliseconds limit);
    // Everything until the server closes or the deadline passes.
    std::string rest(std::chrono::milliseconds limit);

private:
    int fd_ = -1;
    std::string pending_;
};

// A complete CIM operation request; headers given replace the defaults.
std::string cimPost(const std::string &body, const std::vector<std::pair<std::string, std::string>> &headers = {},
                    bool credentials = true);
// The XML of an intrinsic call in tovra/cimv2 with the given IPARAMVALUEs.
std::string intrinsicBody(const std::string &method, const std::string &params, const std::string &ns = "tovra/cimv2");

}  // namespace servertest
