// The CIMOM core behind a Host: the broker handed to providers, the
// registered classes, and the routing of operations to provider MIs. Client
// operations and providers' up-calls take the same routes.
#pragma once

#include "HostOptions.h"
#include "Objects.h"
#include "ObjectRuntime.h"
#include "Providers.h"
#include "Reply.h"
#include "Schema.h"
#include "Workers.h"

#include <cmpift.h>

#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <unordered_map>
#include <set>
#include <string>
#include <vector>

namespace cimhost {

// What the context handed to a provider carries.
struct CallContext {
    NamedValues entries;
    std::vector<std::string> nullText;  // string entries whose characters are NULL
};

class HostCore;

// A reply whose instances stay shared: what up-calls hand on to providers
// without copying them. A client's Reply gets its own copies.
struct SharedReply {
    CMPIrc rc = CMPI_RC_OK;
    std::string message;
    std::vector<ObjectPathV> paths;
    std::vector<std::shared_ptr<const InstanceV>> instances;
    std::optional<Value> returnValue;

    bool ok() const { return rc == CMPI_RC_OK; }
    static SharedReply error(CMPIrc rc, std::string message);
    Reply toReply() &&;
};

// The broker providers see, followed by the host it belongs to.
struct HostBroker {
    CMPIBroker broker;
    HostCore *core;
    unsigned magic;
};

// One registration block: a class, its namespaces, kinds and provider.
struct Binding {
    std::string className;
    std::vector<std::string> namespaces;  // lower case
    std::vector<std::string> kinds;
    std::shared_ptr<ProviderModule> module;
    Worker *worker = nullptr;  // the provider process that runs it
    std::once_flag checked;
    std::string checkError;  // why the block is unusable, once checked

    bool serves(MiKind kind, std::string_view ns) const;
};

class HostCore {
public:
    explicit HostCore(HostOptions options);
    ~HostCore();
    HostCore(const HostCore &) = delete;
    HostCore &operator=(const HostCore &) = delete;

    // The host of a broker pointer, or nullptr when it is not one of ours.
    static HostCore *of(const CMPIBroker *mb);
    // The same, setting CMPI_RC_ERR_INVALID_HANDLE in rc when it is not ours.
    static HostCore *of(const CMPIBroker *mb, CMPIStatus *rc);
    const CMPIBroker *broker() const { return &broker_.broker; }
    const rt::Flavor &flavor() const { return flavor_; }
    const Schema &schema() const { return schema_; }
    UpcallGate &upcalls() { return gate_; }

    Reply enumerateInstanceNames(const CallContext &cc, const ObjectPathV &op);
    Reply enumerateInstances(const CallContext &cc, const ObjectPathV &op, const PropertyList *props);
    Reply getInstance(const CallContext &cc, const ObjectPathV &op, const PropertyList *props);
    Reply associators(const CallContext &cc, const ObjectPathV &op, const AssocFilter &filter,
                      const PropertyList *props);
    Reply associatorNames(const CallContext &cc, const ObjectPathV &op, const AssocFilter &filter);
    Reply references(const CallContext &cc, const ObjectPathV &op, const std::string &resultClass,
                     const std::string &role, const PropertyList *props);
    Reply referenceNames(const CallContext &cc, const ObjectPathV &op, const std::string &resultClass,
                         const std::string &role);
    Reply invokeMethod(const CallContext &cc, const ObjectPathV &op, const std::string &method, const NamedValues &in);

    // The same operations with shared instances, for up-calls.
    SharedReply enumerateShared(const CallContext &cc, const ObjectPathV &op, const PropertyList *props, bool names);
    SharedReply getInstanceShared(const CallContext &cc, const ObjectPathV &op, const PropertyList *props);
    SharedReply associatorsShared(const CallContext &cc, const ObjectPathV &op, const AssocFilter &filter,
                                  const PropertyList *props, bool names);
    SharedReply referencesShared(const CallContext &cc, const ObjectPathV &op, const std::string &resultClass,
                                 const std::string &role, const PropertyList *props, bool names);

    // Indications (Indications.cpp).
    Reply activateFilter(const CallContext &cc, const std::string &ns, const std::string &cls,
                         const std::string &query);
    Reply deactivateFilter(const CallContext &cc, const std::string &ns, const std::string &cls,
                           const std::string &query);
    // A select expression of a query, or nullptr with rc set.
    rt::SelectExpObj *makeSelectExp(const std::string &query, const std::string &language, rt::Lifetime lifetime,
                                    CMPIStatus *rc);
    // Hands a delivered indication to the sink of the options.
    void deliverIndication(const std::string &ns, const InstanceV &indication);

    std::vector<RegisteredClass> registeredClasses() const;
    unsigned permission(const std::string &user) const;
    void setPermission(const std::string &user, unsigned level);
    void log(const std::string &line);
    std::vector<std::string> logLines() const;

    // The built-in authorization service's MI records (hdl is this host).
    CMPIInstanceMI authInstanceMI;
    CMPIMethodMI authMethodMI;

private:
    struct Target {
        Binding *binding;
        std::string className;  // the class named in the path handed to the provider
    };
    enum class Route { Instance, Single };

    CMPIrc checkRequest(const std::string &ns, const std::string &cls, std::string &message) const;
    std::vector<Target> instanceTargets(const std::string &ns, const std::string &cls, Route route) const;
    Binding *methodTarget(const std::string &ns, const std::string &cls) const;
    std::vector<Binding *> associationTargets(const std::string &ns, const std::string &source,
                                              const std::string &assocClass) const;
    // The MI of a block, or nullptr with the reply set to the failure.
    void *usableMi(Binding &binding, MiKind kind, SharedReply &failure);
    // Logs, once per class and property, a returned type the MOF does not declare.
    void checkTypes(const std::vector<std::shared_ptr<const InstanceV>> &instances);
    // A filter activated by one or more subscriptions, and the blocks it reached.
    struct ActiveFilter {
        std::string ns, cls, query;
        size_t subscriptions = 0;
        rt::SelectExpObj *selectExp = nullptr;  // a clone, handed to every call for this filter
        std::vector<Binding *> providers;
    };
    // An indication provider's filters and whether it was enabled.
    struct IndicationState {
        size_t filters = 0;
        bool enabled = false;
    };
    Reply deactivateIn(const CallContext &cc, ActiveFilter &filter, const std::vector<Binding *> &providers);
    // At the end: disable every enabled indication provider.
    void stopIndications();

    template <class Call>
    SharedReply forEachAssociation(const char *operation, const CallContext &cc, const ObjectPathV &op,
                                   const std::string &assocClass, bool names, Call &&call);

    HostOptions options_;
    rt::Flavor flavor_;
    Schema schema_;
    CMPIBrokerFT bft_;
    CMPIBrokerEncFT eft_;
    CMPIBrokerExtFT xft_;
    HostBroker broker_;
    std::vector<std::unique_ptr<Binding>> bindings_;
    std::vector<std::shared_ptr<ProviderModule>> modules_;
    std::set<std::string> namespaces_;  // lower case
    std::map<std::string, std::unique_ptr<Worker>> workers_;  // by process name

    mutable std::mutex stateMutex_;
    std::map<std::string, unsigned> permissions_;  // by user name
    std::deque<std::string> log_;
    std::set<std::string> typeWarnings_;
    // Shared instances whose property types were checked already, so a
    // cached instance handed out again is not looked at property by property.
    std::unordered_map<const InstanceV *, std::weak_ptr<const InstanceV>> typesChecked_;
    size_t typesCheckedLimit_ = 1024;
    // Serialises filter changes, provider calls included.
    std::mutex indicationMutex_;
    std::vector<ActiveFilter> activeFilters_;
    std::map<const ProviderModule *, IndicationState> indicationStates_;
    // Last, so its threads end before anything they might touch.
    UpcallGate gate_;
};

// Broker function tables (BrokerUpcalls.cpp, BrokerEnc.cpp, BrokerExt.cpp).
CMPIBrokerFT brokerTable(bool legacy);
CMPIBrokerEncFT encTable(bool legacy);
CMPIBrokerExtFT extTable();
// The built-in provider of the authorization service (AuthService.cpp).
ProviderModule::Resolver authServiceResolver();
void initAuthService(HostCore &core);
constexpr const char *kAuthProvider = "HostUserAuthorizationProvider";

}  // namespace cimhost
