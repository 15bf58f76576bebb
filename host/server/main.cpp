// tovra-cimd: serves CIM-XML over HTTP (DSP0200) from our CMPI host, so that
// standard WBEM clients reach the provider libraries without a CIMOM.
// Exit status: 0 after a clean stop (SIGTERM or SIGINT), 2 when it cannot start.
#include "ClassCatalog.h"
#include "CimService.h"
#include "Host.h"
#include "HttpServer.h"
#include "Users.h"

#include <CLI/CLI.hpp>
#include <libxml/parser.h>

#include <csignal>
#include <cstdio>
#include <iostream>
#include <mutex>
#include <pthread.h>
#include <syslog.h>
#include <thread>
#include <unistd.h>

using namespace cimserver;

namespace {

std::string machineName() {
    char name[256] = {};
    if (gethostname(name, sizeof name - 1) != 0 || name[0] == '\0') return "localhost";
    return name;
}

int hashPasswordCommand() {
    std::string password;
    if (!std::getline(std::cin, password) || password.empty()) {
        std::cerr << "tovra-cimd: give the password on standard input\n";
        return 2;
    }
    std::cout << hashPassword(password) << '\n';
    return 0;
}

}  // namespace

int main(int argc, char **argv) {
    CLI::App app{"CIM-XML server over the Tovra CMPI host"};
    cimhost::HostOptions hostOptions;
    ServerOptions serverOptions;
    std::string usersFile;
    bool noAuth = false, useSyslog = false, hashOnly = false;
    app.add_option("--mof", hostOptions.mofPaths, "MOF file or directory")->required(false);
    app.add_option("--registration", hostOptions.registrationFile, "provider registration file");
    app.add_option("--provider-dir", hostOptions.providerDirs, "where provider libraries are found");
    app.add_option("--listen", serverOptions.address, "address to listen on")->capture_default_str();
    app.add_option("--port", serverOptions.port, "port; 0 picks a free one")->capture_default_str();
    app.add_option("--threads", serverOptions.threads, "worker threads")->capture_default_str()->check(CLI::Range(1, 256));
    app.add_option("--queue", serverOptions.queue, "connections waiting for a worker")->capture_default_str();
    app.add_option("--max-body", serverOptions.limits.maxBytes, "largest request body in bytes")->capture_default_str();
    app.add_option("--users", usersFile, "users file: name:crypt-hash:level lines");
    app.add_flag("--no-auth", noAuth, "serve without authentication (methods are then refused)");
    app.add_flag("--syslog", useSyslog, "log requests to syslog instead of standard error");
    app.add_flag("--echo-broker-log", hostOptions.echoBrokerLog, "broker log lines also to standard error");
    app.add_flag("--hash-password", hashOnly, "print a hash for a users file of the password read from standard input");
    CLI11_PARSE(app, argc, argv);
    if (hashOnly) return hashPasswordCommand();
    if (usersFile.empty() == !noAuth) {
        std::cerr << "tovra-cimd: give --users FILE, or --no-auth to serve without authentication\n";
        return 2;
    }
    if (hostOptions.mofPaths.empty()) {
        std::cerr << "tovra-cimd: give --mof\n";
        return 2;
    }

    // Signals are taken by one thread that stops the server; every other
    // thread starts with them blocked.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGTERM);
    sigaddset(&stopSignals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    xmlInitParser();

    std::mutex logMutex;
    auto log = [&](const std::string &line) {
        if (useSyslog) {
            syslog(LOG_INFO, "%s", line.c_str());
        } else {
            std::lock_guard lock(logMutex);
            std::fprintf(stderr, "tovra-cimd: %s\n", line.c_str());
        }
    };
    if (useSyslog) openlog("tovra-cimd", LOG_PID, LOG_DAEMON);

    try {
        std::optional<Users> users;
        if (!noAuth) users.emplace(Users::load(usersFile));
        serverOptions.authenticate = !noAuth;
        cimhost::Host host(hostOptions);
        if (users)
            for (const User &u : users->all()) host.setPermission(u.name, u.level);
        ClassCatalog catalog(hostOptions.mofPaths);
        CimService service(host, catalog, machineName());
        HttpServer server(service, users ? &*users : nullptr, serverOptions, log);
        int port = server.bind();
        std::printf("tovra-cimd: listening on http://%s:%d/cimom\n", serverOptions.address.c_str(), port);
        std::fflush(stdout);

        std::thread stopper([&] {
            int sig = 0;
            sigwait(&stopSignals, &sig);
            server.stop();
        });
        server.run();
        // Stopped some other way: wake the signal thread so it can end.
        pthread_kill(stopper.native_handle(), SIGTERM);
        stopper.join();
        log("stopped");
    } catch (const std::exception &e) {
        std::fprintf(stderr, "tovra-cimd: %s\n", e.what());
        return 2;
    }
    xmlCleanupParser();
    return 0;
}
