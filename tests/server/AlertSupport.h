// What the alert tests share: a tovra-cim listen process, the interop
// requests that make subscriptions, and polling with a deadline.
#pragma once

#include "ServerProcess.h"

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace servertest {

// Polls until the condition holds or the deadline passes; true when it held.
bool eventually(const std::function<bool()> &condition, std::chrono::milliseconds limit = std::chrono::seconds(20));

// tovra-cim listen in its own process on a free loopback port.
class ListenerProcess {
public:
    explicit ListenerProcess(std::vector<std::string> extraArgs = {});
    ~ListenerProcess();
    ListenerProcess(const ListenerProcess &) = delete;
    ListenerProcess &operator=(const ListenerProcess &) = delete;

    int port() const { return port_; }
    std::string url() const { return "http://127.0.0.1:" + std::to_string(port_); }
    std::string output() const;  // standard output so far
    std::string errors() const;  // standard error so far
    // Lines of standard output holding the text.
    std::size_t count(const std::string &text) const;
    // Waits for the process to end; its exit status, or -1.
    int wait(std::chrono::milliseconds limit);

private:
    int pid_ = -1;
    int port_ = 0;
    std::string outPath_, errPath_;
};

// The server of the alert tests: the test library (whose indication provider
// reports every call it gets as a Test_Beacon indication) beside the
// standard classes, with the users file and the given options.
std::vector<std::string> alertServerArgs(const std::string &subscriptionFile, std::vector<std::string> more = {});

// Requests in root/interop.
std::string interopBody(const std::string &method, const std::string &params);
std::string interopPost(const std::string &body, const std::string &user = "admin");
std::string createFilter(const std::string &name, const std::string &query, const std::string &language = "WQL");
std::string createDestination(const std::string &name, const std::string &url);
std::string createSubscription(const std::string &filter, const std::string &destination);
std::string filterName(const std::string &name);       // its INSTANCENAME
std::string destinationName(const std::string &name);  // its INSTANCENAME
std::string subscriptionName(const std::string &filter, const std::string &destination);
std::string instanceParam(const std::string &instanceName);  // IPARAMVALUE InstanceName
std::string classParam(const std::string &cls);              // IPARAMVALUE ClassName

// A port on loopback where nothing listens (bound, then closed).
int deadPort();

}  // namespace servertest
