// tovra-cimd: serves CIM-XML over HTTP and HTTPS (DSP0200) from our CMPI
// host, so that standard WBEM clients reach the provider libraries without a
// CIMOM. The MOF, the registration and the providers are found beside the
// executable (installed, or in its build folder) unless given. Exit status:
// 0 after a stop (SIGTERM or SIGINT), 2 when it cannot start.
#include "ClassCatalog.h"
#include "CimService.h"
#include "Host.h"
#include "Delivery.h"
#include "HttpServer.h"
#include "Installation.h"
#include "Subscriptions.h"
#include "Users.h"

#include <CLI/CLI.hpp>
#include <libxml/parser.h>

#include <csignal>
#include <cstdlib>
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
    if (!std::getline(std::cin, password) || password.empty() || password.find('\0') != std::string::npos) {
        std::cerr << "tovra-cimd: give the password (not empty, no NUL) on standard input\n";
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
    UsersPolicy usersPolicy;
    bool noAuth = false, useSyslog = false, hashOnly = false;
    SubscriptionOptions subscriptionOptions;
    DeliveryOptions deliveryOptions;
    app.add_option("--mof", hostOptions.mofPaths, "MOF file or directory (default: found beside the program)");
    app.add_option("--registration", hostOptions.registrationFile,
                   "provider registration file (default: found beside the program)");
    app.add_option("--provider-dir", hostOptions.providerDirs,
                   "where provider libraries are found (default: found beside the program)");
    app.add_option("--layout", hostOptions.layout,
                   "provider processes: one per provider library (a stock CIMOM's default) or one per provider")
        ->transform(CLI::CheckedTransformer(cimhost::HostOptions::kLayoutNames));
    app.add_option("--listen", serverOptions.address, "address to listen on")->capture_default_str();
    app.add_option("--port", serverOptions.port, "HTTP port; 0 picks a free one")->capture_default_str();
    app.add_option("--https-port", serverOptions.httpsPort, "HTTPS port, served with --cert and --key; 0 picks a free one")
        ->capture_default_str();
    app.add_option("--cert", serverOptions.certFile, "PEM certificate (chain) for HTTPS")->check(CLI::ExistingFile);
    app.add_option("--key", serverOptions.keyFile, "PEM private key for HTTPS")->check(CLI::ExistingFile);
    app.add_option("--threads", serverOptions.threads, "workers running operations")->capture_default_str()->check(CLI::Range(1, 256));
    app.add_option("--queue", serverOptions.queue, "operations waiting for a worker (beyond: 503)")->capture_default_str()
        ->check(CLI::Range(1, 100000));
    app.add_option("--max-body", serverOptions.limits.maxBytes, "largest request body in bytes, whatever its framing")
        ->capture_default_str()->check(CLI::Range(1, 1 << 30));
    app.add_option("--max-header-bytes", serverOptions.maxHeaderBytes, "largest request head (request line and headers) in bytes")
        ->capture_default_str()->check(CLI::Range(1024, 1 << 20));
    app.add_option("--max-headers", serverOptions.maxHeaders, "most header lines in a request")->capture_default_str()
        ->check(CLI::Range(1, 10000));
    app.add_option("--max-connections", serverOptions.maxConnections, "open connections in total (beyond: 503)")
        ->capture_default_str()->check(CLI::Range(1, 100000));
    app.add_option("--max-connections-per-address", serverOptions.maxConnectionsPerAddress,
                   "open connections from one client address (beyond: 503)")->capture_default_str()->check(CLI::Range(1, 100000));
    app.add_option("--request-timeout", serverOptions.requestTimeout,
                   "seconds for a whole request to arrive, and for a reply to be taken")->capture_default_str()
        ->check(CLI::Range(0.05, 3600.0));
    app.add_option("--idle-timeout", serverOptions.idleTimeout, "seconds a connection may stay silent")->capture_default_str()
        ->check(CLI::Range(1.0, 3600.0));
    app.add_option("--shutdown-timeout", serverOptions.shutdownTimeout,
                   "seconds operations in flight get to finish after SIGTERM")->capture_default_str()->check(CLI::Range(0.0, 3600.0));
    app.add_option("--max-xml-depth", serverOptions.limits.maxDepth, "deepest element nesting of a request")
        ->capture_default_str()->check(CLI::Range(8, 1000));
    app.add_option("--max-xml-elements", serverOptions.limits.maxElements, "most elements in a request")
        ->capture_default_str()->check(CLI::Range(16, 10000000));
    app.add_option("--max-xml-attributes", serverOptions.limits.maxAttributes, "most attributes in a request")
        ->capture_default_str()->check(CLI::Range(16, 10000000));
    app.add_option("--max-xml-attributes-per-element", serverOptions.limits.maxAttributesPerElement,
                   "most attributes on one element")->capture_default_str()->check(CLI::Range(8, 10000));
    app.add_option("--users", usersFile, "users file: name:crypt-hash:level lines");
    app.add_flag("--allow-weak-hashes", usersPolicy.allowWeakHashes,
                 "accept users-file hash kinds weaker than yescrypt (SHA-512, bcrypt, MD5)");
    app.add_option("--subscriptions", subscriptionOptions.file,
                   "file the indication subscriptions are kept in (default: the users file's path + "
                   "\".subscriptions\"; none with --no-auth)");
    app.add_option("--allow-destination", subscriptionOptions.allowedDestinations,
                   "address, network (a.b.c.d/n) or host name listener destinations may name besides loopback "
                   "(repeatable)")->take_all()->expected(1);
    app.add_option("--delivery-queue", deliveryOptions.queue, "indications waiting per listener (beyond: dropped, counted)")
        ->capture_default_str()->check(CLI::Range(1, 1000000));
    app.add_option("--delivery-retries", deliveryOptions.retries, "attempts after a failed delivery before it is dropped")
        ->capture_default_str()->check(CLI::Range(0, 1000));
    app.add_option("--delivery-retry-interval", deliveryOptions.retryInterval,
                   "seconds before the first retry, doubled for each further one")->capture_default_str()
        ->check(CLI::Range(0.01, 86400.0));
    app.add_option("--delivery-max-retry-interval", deliveryOptions.maxRetryInterval, "longest wait between retries, seconds")
        ->capture_default_str()->check(CLI::Range(0.01, 86400.0));
    app.add_option("--delivery-timeout", deliveryOptions.timeout, "seconds one export request may take")
        ->capture_default_str()->check(CLI::Range(0.05, 3600.0));
    app.add_flag("--no-auth", noAuth, "serve without authentication (methods are then refused)");
    app.add_flag("--metrics-no-auth", serverOptions.metricsNoAuth, "serve GET /metrics without authentication");
    app.add_flag("--syslog", useSyslog, "log requests to syslog instead of standard error");
    app.add_flag("--echo-broker-log", hostOptions.echoBrokerLog, "broker log lines also to standard error");
    app.add_flag("--hash-password", hashOnly, "print a hash for a users file of the password read from standard input");
    CLI11_PARSE(app, argc, argv);
    if (hashOnly) return hashPasswordCommand();
    if (usersFile.empty() == !noAuth) {
        std::cerr << "tovra-cimd: give --users FILE, or --no-auth to serve without authentication\n";
        return 2;
    }
    // Path options left out are found beside the executable (installed, or in
    // its build folder); those given win.
    const std::filesystem::path program = cimhost::executablePath();
    if (const std::optional<cimhost::Installation> found = cimhost::locateInstallation(program.parent_path()))
        cimhost::applyInstallation(hostOptions, *found);
    if (hostOptions.mofPaths.empty()) {
        std::cerr << "tovra-cimd: no MOF found beside " << program.string()
                  << "; give --mof, --registration and --provider-dir\n";
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
        if (!noAuth) users.emplace(Users::load(usersFile, usersPolicy));
        serverOptions.authenticate = !noAuth;
        if (subscriptionOptions.file.empty() && !noAuth) subscriptionOptions.file = usersFile + ".subscriptions";
        // Delivery and the subscriptions outlive the host, whose providers
        // report indications to them until it is gone.
        Delivery delivery(deliveryOptions, log);
        ClassCatalog catalog(hostOptions.mofPaths);
        Subscriptions subscriptions(catalog, machineName(), subscriptionOptions, delivery, log);
        hostOptions.indicationSink = [&subscriptions](const std::string &ns, const cimhost::InstanceV &indication) {
            subscriptions.route(ns, indication);
        };
        cimhost::Host host(hostOptions);
        if (users)
            for (const User &u : users->all()) host.setPermission(u.name, u.level);
        subscriptions.start([&host](bool on, const std::string &ns, const std::string &cls, const std::string &query) {
            return on ? host.activateFilter(ns, cls, query) : host.deactivateFilter(ns, cls, query);
        });
        CimService service(host, catalog, machineName(), &subscriptions);
        HttpServer server(service, users ? &*users : nullptr, serverOptions, log);
        HttpServer::Ports ports = server.bind();
        if (ports.https >= 0)
            std::printf("tovra-cimd: listening on https://%s:%d/cimom\n", serverOptions.address.c_str(), ports.https);
        std::printf("tovra-cimd: listening on http://%s:%d/cimom\n", serverOptions.address.c_str(), ports.http);
        std::fflush(stdout);

        std::thread stopper([&] {
            int sig = 0;
            sigwait(&stopSignals, &sig);
            server.stop();
        });
        bool clean = server.run();
        // Stopped some other way: wake the signal thread so it can end.
        pthread_kill(stopper.native_handle(), SIGTERM);
        stopper.join();
        if (!clean) {
            // An operation still runs on a worker: leave without unwinding
            // the host it uses.
            log("stopped with an operation unfinished after the shutdown deadline");
            std::fflush(stderr);
            std::_Exit(0);
        }
        log("stopped");
    } catch (const std::exception &e) {
        std::fprintf(stderr, "tovra-cimd: %s\n", e.what());
        return 2;
    }
    xmlCleanupParser();
    return 0;
}
