// A small CIMOM for tests, the CLI and a server: it loads the MOF and the
// provider registration, loads provider libraries as a stock CIMOM does, and
// answers client operations by calling the providers through CMPI.
//
// Semantics chosen where a stock CIMOM leaves a choice:
//  - A class unknown to the MOF answers CMPI_RC_ERR_INVALID_CLASS; a known
//    class that no provider serves answers CMPI_RC_ERR_NOT_SUPPORTED; an
//    unknown namespace CMPI_RC_ERR_INVALID_NAMESPACE.
//  - Enumerating a class reaches the providers of the class or of its nearest
//    registered subclasses (each is handed a path of its own class); failing
//    those, the provider of the nearest registered ancestor.
//  - Association requests reach the association providers whose class has a
//    reference to the source class or one of its ancestors (narrowed by the
//    association class filter); other filters are the provider's business.
//  - A method must be declared in the MOF (else METHOD_NOT_FOUND); its
//    arguments take the declared types, and unknown names are refused with
//    CMPI_RC_ERR_INVALID_PARAMETER. Keys of client paths take the declared
//    key types the same way.
//  - A provider that fails to load, lacks a factory its registration lists,
//    or whose factory fails, answers CMPI_RC_ERR_FAILED "Error initializing
//    provider" (the reason goes to brokerLog()).
//  - A client property list is applied to returned instances (keys are kept).
//  - getInstance passes on what the provider did: OK without an instance is
//    returned as such.
// Several client operations may run at once on different threads; no lock is
// taken around provider calls.
#pragma once

#include "HostOptions.h"
#include "ObjectRuntime.h"
#include "Reply.h"
#include "Value.h"

#include <cmpift.h>

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace cimhost {

class HostCore;
struct CallContext;

class Host {
public:
    // Reads the MOF and the registration; throws std::runtime_error (a
    // MofError or RegistrationError for bad files) when they do not load.
    explicit Host(HostOptions options);
    // Calls every provider's cleanup (terminating) and unloads the libraries.
    ~Host();
    Host(const Host &) = delete;
    Host &operator=(const Host &) = delete;

    Reply enumerateInstanceNames(const std::string &ns, const std::string &cls);
    Reply enumerateInstances(const std::string &ns, const std::string &cls, const PropertyList *props = nullptr);
    Reply getInstance(const ObjectPathV &path, const PropertyList *props = nullptr);
    Reply associators(const ObjectPathV &path, const AssocFilter &filter = {}, const PropertyList *props = nullptr);
    Reply associatorNames(const ObjectPathV &path, const AssocFilter &filter = {});
    // resultClass narrows the association class, as in CMPI.
    Reply references(const ObjectPathV &path, const std::string &resultClass = {}, const std::string &role = {},
                     const PropertyList *props = nullptr);
    Reply referenceNames(const ObjectPathV &path, const std::string &resultClass = {}, const std::string &role = {});
    // Typed values convert with range checks; strings are parsed.
    Reply invokeMethod(const ObjectPathV &path, const std::string &method, const NamedValues &args = {});

    // A subscription's filter reaches the indication providers registered for cls
    // (and its subclasses) in ns: authorizeFilter, then activateFilter (firstActivation
    // for the provider's first), enableIndications after the first. Returns their status.
    // The same (ns, cls, query) activated again counts one more subscription and
    // reaches no provider; deactivateFilter reaches them when the last goes:
    // disableIndications before the provider's last filter, then deActivateFilter
    // (lastActivation for its last). An unknown filter answers CMPI_RC_ERR_NOT_FOUND,
    // a class no indication provider serves CMPI_RC_ERR_NOT_SUPPORTED, a query
    // that does not read CMPI_RC_ERR_INVALID_QUERY.
    Reply activateFilter(const std::string &ns, const std::string &cls, const std::string &query);
    Reply deactivateFilter(const std::string &ns, const std::string &cls, const std::string &query);

    // A path of a class with keys typed after its key properties (strings
    // are parsed); keys that do not convert stay as given.
    ObjectPathV path(const std::string &ns, const std::string &cls, const NamedValues &keys = {}) const;

    std::vector<RegisteredClass> registeredClasses() const;
    // The level the authorization service answers for a user (default 0; 5 is read-write).
    void setPermission(const std::string &user, unsigned level);
    // The principal of later requests.
    void setPrincipal(const std::string &user,
                      HostOptions::PrincipalEntry entry = HostOptions::PrincipalEntry::Named);
    // While one lives, requests made on the constructing thread carry this
    // principal instead of setPrincipal's: a server serves several users at once.
    class ThreadPrincipal {
    public:
        explicit ThreadPrincipal(std::string user,
                                 HostOptions::PrincipalEntry entry = HostOptions::PrincipalEntry::Named);
        ~ThreadPrincipal();
        ThreadPrincipal(const ThreadPrincipal &) = delete;
        ThreadPrincipal &operator=(const ThreadPrincipal &) = delete;

    private:
        friend class Host;
        std::string user_;
        HostOptions::PrincipalEntry entry_;
        const ThreadPrincipal *outer_;
    };

    // Runs body as one request with the raw broker and the request's context:
    // what it makes through the broker is released when it returns.
    void withRequest(const std::function<void(const CMPIBroker *, const CMPIContext *)> &body);
    const CMPIBroker *broker() const;
    // Broker log and trace lines, and the reasons providers failed to load.
    std::vector<std::string> brokerLog() const;

    // Process-wide object accounting, for leak checks.
    static size_t liveRequestObjects() { return rt::Runtime::stats().liveRequestObjects; }
    static size_t liveClones() { return rt::Runtime::stats().liveClones; }
    static rt::Stats objectStats() { return rt::Runtime::stats(); }

private:
    CallContext baseContext() const;
    template <class Op> Reply request(const ObjectPathV *path, Op &&op);

    std::unique_ptr<HostCore> core_;
    mutable std::mutex principalMutex_;
    std::string principal_;
    HostOptions::PrincipalEntry principalEntry_;
};

}  // namespace cimhost
