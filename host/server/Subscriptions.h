// Indication subscriptions as a CIMOM keeps them in its interop namespace:
// CIM_IndicationFilter, CIM_ListenerDestinationCIMXML and the
// CIM_IndicationSubscription joining a filter to a destination, created,
// read and deleted by clients, kept in a file (rewritten atomically after
// every change) and reloaded at start-up.
//
// An enabled subscription activates its filter's query on the host for each
// source namespace when it is made (and at start-up); its deletion
// deactivates it, so the host hears of the last one going. Indications the
// host reports are matched against every enabled subscription's filter (its
// class, source namespaces and WHERE condition) and queued for the
// subscription's destination; that path takes no lock an operation holds
// for long, so a provider delivering an indication never waits for one.
//
// Choices where a stock CIMOM leaves one:
//  - Missing keys are filled in: SystemCreationClassName "CIM_ComputerSystem",
//    SystemName the server's host name, CreationClassName the class, and a
//    generated Name.
//  - A filter without SourceNamespaces (or SourceNamespace) selects the
//    indications of every namespace that shows its FROM class (a stock CIMOM
//    takes its interop namespace, where no provider's indications arrive).
//  - Only WQL is taken; the FROM class must be an indication class, and the
//    query's properties are checked against it.
//  - Destinations are http URLs whose host is a loopback address or one the
//    administrator allows (an address, a network "a.b.c.d/n", or a name).
//  - SubscriptionState may be 2 (Enabled, the default) or 4 (Disabled: kept
//    but not delivered); the repeat and error policies are kept as given and
//    not acted on.
//  - A filter or destination still named by a subscription cannot be deleted
//    (CIM_ERR_FAILED).
#pragma once

#include "ClassCatalog.h"
#include "Delivery.h"
#include "Reply.h"
#include "Wql.h"

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace cimserver {

struct SubscriptionOptions {
    std::string file;                          // where they are kept; empty: not kept
    std::vector<std::string> allowedDestinations;  // besides loopback
    std::size_t maxFilters = 256;
    std::size_t maxDestinations = 32;  // each has a delivery thread
    std::size_t maxSubscriptions = 1024;
};

class Subscriptions {
public:
    static constexpr const char *kInteropNamespace = "root/interop";

    // on: activate (true) or deactivate a query for a class in a namespace.
    using Activation = std::function<cimhost::Reply(bool on, const std::string &ns, const std::string &cls,
                                                    const std::string &query)>;
    using LogSink = std::function<void(const std::string &)>;

    Subscriptions(const ClassCatalog &catalog, std::string hostName, SubscriptionOptions options, Delivery &delivery,
                  LogSink log);

    // Reads the kept subscriptions and activates the enabled ones; throws
    // std::runtime_error for a file it cannot read.
    void start(Activation activation);

    // True for the classes kept here, in the interop namespace.
    bool serves(std::string_view ns, std::string_view cls) const;

    // The intrinsic operations; a created instance's path comes back in paths.
    cimhost::Reply create(const cimhost::InstanceV &instance);
    cimhost::Reply remove(const cimhost::ObjectPathV &path);
    cimhost::Reply get(const cimhost::ObjectPathV &path) const;
    cimhost::Reply enumerate(const std::string &cls) const;
    // The subscriptions naming a filter or destination (role "Filter" or
    // "Handler" narrows them): what a client asks before deleting one.
    cimhost::Reply references(const cimhost::ObjectPathV &path, const std::string &resultClass,
                              const std::string &role) const;

    // The host's indication sink: matches and queues, never blocks.
    void route(const std::string &ns, const cimhost::InstanceV &indication) const;

    struct Filter;
    struct Destination;
    struct Subscription;
    struct Routes;

private:
    enum class Kind { Filter, Destination, Subscription };
    std::optional<Kind> kindOf(std::string_view cls) const;
    std::string keyOf(const cimhost::ObjectPathV &path) const;

    cimhost::Reply createFilter(cimhost::InstanceV inst);
    cimhost::Reply createDestination(cimhost::InstanceV inst);
    cimhost::Reply createSubscription(cimhost::InstanceV inst);
    void fillKeys(cimhost::InstanceV &inst, const char *cls) const;
    std::optional<cimhost::Reply> checkProperties(const cimhost::InstanceV &inst, const char *cls) const;
    cimhost::Reply activate(const Filter &filter, bool on);

    void rebuildRoutes();  // with mutex_ held
    void save() const;     // with mutex_ held; throws std::runtime_error
    std::string generatedName(const char *what);

    const ClassCatalog &catalog_;
    const std::string hostName_;
    const SubscriptionOptions options_;
    Delivery &delivery_;
    LogSink log_;
    Activation activation_;

    std::mutex changes_;        // one create or delete at a time, activation included
    mutable std::mutex mutex_;  // the maps below, briefly
    std::map<std::string, std::shared_ptr<Filter>> filters_;  // by keyOf
    std::map<std::string, std::shared_ptr<Destination>> destinations_;
    std::map<std::string, std::shared_ptr<Subscription>> subscriptions_;
    mutable std::mutex routesMutex_;
    std::shared_ptr<const Routes> routes_;
    unsigned long long generated_ = 0;  // for generated names
    bool restoring_ = false;            // start() is reading the file
};

}  // namespace cimserver
