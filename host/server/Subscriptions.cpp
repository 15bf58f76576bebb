#include "Subscriptions.h"

#include "DestinationUrl.h"
#include "SubscriptionFile.h"

#include <algorithm>
#include <chrono>

namespace cimserver {

using cimhost::InstanceV;
using cimhost::ObjectPathV;
using cimhost::Reply;
using cimhost::Value;
using cimhost::iequals;

namespace {

constexpr const char *kFilterClass = "CIM_IndicationFilter";
constexpr const char *kDestinationClass = "CIM_ListenerDestinationCIMXML";
constexpr const char *kSubscriptionClass = "CIM_IndicationSubscription";

Reply failure(CMPIrc rc, std::string message) { return Reply::error(rc, std::move(message)); }

const std::string *text(const InstanceV &inst, std::string_view name) {
    const Value *v = inst.property(name);
    return v != nullptr && !v->isNull() && cimhost::isTextType(v->type()) ? &v->asString() : nullptr;
}

std::optional<std::uint64_t> number(const InstanceV &inst, std::string_view name) {
    const Value *v = inst.property(name);
    if (v == nullptr || v->isNull() || !cimhost::isIntegerType(v->type())) return std::nullopt;
    return v->asUnsigned();
}

Value now() {
    auto micros = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::system_clock::now().time_since_epoch());
    return Value::dateTime(cimhost::DateTimeV{static_cast<std::uint64_t>(micros.count()), false, 0});
}

// The namespaces a filter takes its indications from, as the client gave them.
std::vector<std::string> sourceNamespaces(const InstanceV &inst) {
    std::vector<std::string> out;
    if (const Value *v = inst.property("SourceNamespaces"); v != nullptr && !v->isNull() && v->isArray())
        for (const Value &item : v->asArray())
            if (!item.isNull() && cimhost::isTextType(item.type()) && !item.asString().empty())
                out.push_back(item.asString());
    if (out.empty())
        if (const std::string *one = text(inst, "SourceNamespace"); one != nullptr && !one->empty()) out.push_back(*one);
    return out;
}

}  // namespace

struct Subscriptions::Filter {
    InstanceV instance;
    std::shared_ptr<const wql::Query> query;
    std::string queryText;
    std::vector<std::string> namespaces;  // where its FROM class's indications come from
};

struct Subscriptions::Destination {
    InstanceV instance;
    std::string url;
};

struct Subscriptions::Subscription {
    InstanceV instance;
    std::string filter, destination;  // keys
    bool enabled = true;
};

// What routing needs of every enabled subscription, rebuilt after each change
// and read without waiting for operations.
struct Subscriptions::Routes {
    struct Route {
        std::string filterName;
        std::shared_ptr<const wql::Query> query;
        std::vector<std::string> namespaces;
        std::string destination;
    };
    std::vector<Route> routes;
};

Subscriptions::Subscriptions(const ClassCatalog &catalog, std::string hostName, SubscriptionOptions options,
                             Delivery &delivery, LogSink log)
    : catalog_(catalog), hostName_(std::move(hostName)), options_(std::move(options)), delivery_(delivery),
      log_(std::move(log)), routes_(std::make_shared<Routes>()) {}

// A name unique across restarts: the time of this run and a counter.
std::string Subscriptions::generatedName(const char *what) {
    static const auto run = std::chrono::duration_cast<std::chrono::microseconds>(
                                std::chrono::system_clock::now().time_since_epoch()).count();
    return std::string(what) + "-" + std::to_string(run) + "-" + std::to_string(++generated_);
}

std::optional<Subscriptions::Kind> Subscriptions::kindOf(std::string_view cls) const {
    if (catalog_.isA(cls, kSubscriptionClass)) return Kind::Subscription;
    if (catalog_.isA(cls, kFilterClass)) return Kind::Filter;
    if (catalog_.isA(cls, "CIM_ListenerDestination")) return Kind::Destination;
    return std::nullopt;
}

bool Subscriptions::serves(std::string_view ns, std::string_view cls) const {
    return iequals(ns, kInteropNamespace) && kindOf(cls).has_value();
}

std::string Subscriptions::keyOf(const ObjectPathV &path) const {
    auto kind = kindOf(path.className);
    std::string key = kind == Kind::Filter ? "F" : kind == Kind::Destination ? "D" : "S";
    std::vector<std::pair<std::string, std::string>> keys;
    for (const auto &[name, v] : path.keys) {
        std::string value = v.isNull()                     ? "\x01"
                            : v.type() == CMPI_ref         ? "{" + keyOf(v.asRef()) + "}"
                            : cimhost::isTextType(v.type()) ? v.asString()
                                                            : v.toText();
        keys.emplace_back(cimhost::lower(name), std::move(value));
    }
    std::sort(keys.begin(), keys.end());
    for (const auto &[name, value] : keys) key += "\x02" + name + "\x03" + value;
    return key;
}

// ---- start-up ---------------------------------------------------------------

void Subscriptions::start(Activation activation) {
    activation_ = std::move(activation);
    if (options_.file.empty()) return;
    std::vector<InstanceV> kept = readSubscriptionFile(options_.file);
    std::lock_guard change(changes_);
    restoring_ = true;
    std::size_t restored = 0;
    // Filters and destinations first: subscriptions name them.
    for (int pass = 0; pass < 3; ++pass) {
        for (const InstanceV &inst : kept) {
            auto kind = kindOf(inst.path.className);
            if (!kind || static_cast<int>(*kind) != pass) continue;
            Reply r = *kind == Kind::Filter        ? createFilter(inst)
                      : *kind == Kind::Destination ? createDestination(inst)
                                                   : createSubscription(inst);
            if (r.ok())
                ++restored;
            else
                log_("subscriptions: " + inst.path.className + " from " + options_.file + " not restored: " + r.message);
        }
    }
    restoring_ = false;
    if (!kept.empty()) log_("subscriptions: " + std::to_string(restored) + " instance(s) restored from " + options_.file);
}

// ---- operations ---------------------------------------------------------------

Reply Subscriptions::create(const InstanceV &instance) {
    auto kind = kindOf(instance.path.className);
    if (!kind) return failure(CMPI_RC_ERR_NOT_SUPPORTED, instance.path.className + " instances cannot be created");
    std::lock_guard change(changes_);
    Reply r = *kind == Kind::Filter        ? createFilter(instance)
              : *kind == Kind::Destination ? createDestination(instance)
                                           : createSubscription(instance);
    return r;
}

void Subscriptions::fillKeys(InstanceV &inst, const char *cls) const {
    auto fill = [&](const char *name, const std::string &value) {
        if (text(inst, name) == nullptr) setNamed(inst.properties, name, Value::string(value));
    };
    fill("SystemCreationClassName", "CIM_ComputerSystem");
    fill("SystemName", hostName_);
    fill("CreationClassName", cls);
    inst.path.className = cls;
    inst.path.ns = kInteropNamespace;
    inst.path.keys.clear();
    for (const char *key : {"SystemCreationClassName", "SystemName", "CreationClassName", "Name"})
        inst.path.keys.emplace_back(key, *inst.property(key));
}

// Properties the class does not declare, or of another type, are refused.
std::optional<Reply> Subscriptions::checkProperties(const InstanceV &inst, const char *cls) const {
    for (auto &[name, v] : inst.properties) {
        auto declared = catalog_.propertyType(cls, name);
        if (!declared) return failure(CMPI_RC_ERR_INVALID_PARAMETER, std::string(cls) + " has no property " + name);
        if (v.isNull()) continue;
        const CMPIType have = v.type() == CMPI_chars ? CMPIType(CMPI_string) : v.type();
        const CMPIType base = static_cast<CMPIType>(have & ~CMPI_ARRAY);
        const CMPIType want = static_cast<CMPIType>(*declared & ~CMPI_ARRAY);
        const bool sameArray = ((have & CMPI_ARRAY) != 0) == ((*declared & CMPI_ARRAY) != 0);
        const bool fits = sameArray && (base == want || (base == CMPI_chars && want == CMPI_string) ||
                                         (cimhost::isIntegerType(base) && cimhost::isIntegerType(want)));
        if (!fits)
            return failure(CMPI_RC_ERR_TYPE_MISMATCH,
                           std::string(cls) + "." + name + " is a " + cimhost::typeName(*declared) + ", not a " +
                               cimhost::typeName(v.type()));
    }
    return std::nullopt;
}

Reply Subscriptions::activate(const Filter &filter, bool on) {
    Reply result;
    bool any = false;
    for (const std::string &ns : filter.namespaces) {
        Reply r = activation_ ? activation_(on, ns, filter.query->fromClass(), filter.queryText) : Reply{};
        if (r.ok()) {
            any = true;
        } else {
            log_("subscriptions: " + std::string(on ? "activating" : "deactivating") + " '" + filter.queryText +
                 "' in " + ns + ": " + cimhost::rcName(r.rc) + " " + r.message);
            if (result.ok()) result = r;
        }
    }
    return any || filter.namespaces.empty() ? Reply{} : result;
}

Reply Subscriptions::createFilter(InstanceV inst) {
    if (auto refused = checkProperties(inst, kFilterClass)) return *refused;
    if (const std::string *cc = text(inst, "CreationClassName"); cc != nullptr && !iequals(*cc, kFilterClass))
        return failure(CMPI_RC_ERR_INVALID_PARAMETER, "CreationClassName must be " + std::string(kFilterClass));
    const std::string *language = text(inst, "QueryLanguage");
    const std::string *queryText = text(inst, "Query");
    if (queryText == nullptr) return failure(CMPI_RC_ERR_INVALID_PARAMETER, "Query is required");
    if (language == nullptr) return failure(CMPI_RC_ERR_INVALID_PARAMETER, "QueryLanguage is required");
    if (!iequals(*language, "WQL"))
        return failure(CMPI_RC_ERR_NOT_SUPPORTED, "QueryLanguage " + *language + " is not supported; use WQL");
    auto parsed = wql::Query::parse(*queryText);
    if (auto *e = std::get_if<wql::QueryError>(&parsed)) return failure(e->rc, "Query: " + e->message);
    auto filter = std::make_shared<Filter>();
    filter->query = std::make_shared<const wql::Query>(std::get<wql::Query>(std::move(parsed)));
    filter->queryText = *queryText;
    const std::string &from = filter->query->fromClass();
    filter->namespaces = sourceNamespaces(inst);
    if (filter->namespaces.empty()) {
        for (const std::string &ns : catalog_.namespacesOf(from))
            if (!iequals(ns, kInteropNamespace)) filter->namespaces.push_back(ns);
        if (filter->namespaces.empty())
            return failure(CMPI_RC_ERR_INVALID_PARAMETER, "Query: class " + from + " does not exist in any namespace");
    }
    for (const std::string &ns : filter->namespaces)
        if (catalog_.find(ns, from) == nullptr)
            return failure(CMPI_RC_ERR_INVALID_PARAMETER, "Query: class " + from + " does not exist in namespace " + ns);
    if (!catalog_.isIndication(from))
        return failure(CMPI_RC_ERR_NOT_SUPPORTED, "Query: " + from + " is not an indication class");
    if (auto e = filter->query->check([&](std::string_view p) { return catalog_.propertyType(from, p); }))
        return failure(e->rc, "Query: " + e->message);
    if (text(inst, "Name") == nullptr) setNamed(inst.properties, "Name", Value::string(generatedName("filter")));
    fillKeys(inst, kFilterClass);
    filter->instance = std::move(inst);
    std::lock_guard lock(mutex_);
    const std::string key = keyOf(filter->instance.path);
    if (filters_.count(key) != 0) return failure(CMPI_RC_ERR_ALREADY_EXISTS, "the filter exists");
    if (filters_.size() >= options_.maxFilters)
        return failure(CMPI_RC_ERR_FAILED, "at most " + std::to_string(options_.maxFilters) + " filters");
    filters_.emplace(key, filter);
    try {
        save();
    } catch (const std::exception &e) {
        filters_.erase(key);
        return failure(CMPI_RC_ERR_FAILED, e.what());
    }
    Reply r;
    r.paths.push_back(filter->instance.path);
    return r;
}

Reply Subscriptions::createDestination(InstanceV inst) {
    if (auto refused = checkProperties(inst, kDestinationClass)) return *refused;
    if (!iequals(inst.path.className, kDestinationClass))
        return failure(CMPI_RC_ERR_NOT_SUPPORTED, "only " + std::string(kDestinationClass) + " destinations are served");
    if (const std::string *cc = text(inst, "CreationClassName"); cc != nullptr && !iequals(*cc, kDestinationClass))
        return failure(CMPI_RC_ERR_INVALID_PARAMETER, "CreationClassName must be " + std::string(kDestinationClass));
    const std::string *destination = text(inst, "Destination");
    if (destination == nullptr) return failure(CMPI_RC_ERR_INVALID_PARAMETER, "Destination is required");
    auto url = destinationUrl(*destination, options_.allowedDestinations);
    if (auto *refused = std::get_if<UrlRefusal>(&url)) return failure(refused->rc, "Destination: " + refused->message);
    if (auto p = number(inst, "PersistenceType"); p && (*p < 1 || *p > 3))
        return failure(CMPI_RC_ERR_INVALID_PARAMETER, "PersistenceType must be 1, 2 or 3");
    if (auto p = number(inst, "Protocol"); p && *p != 2)
        return failure(CMPI_RC_ERR_NOT_SUPPORTED, "Protocol must be 2 (CIM-XML)");
    if (text(inst, "Name") == nullptr)
        setNamed(inst.properties, "Name", Value::string(generatedName("destination")));
    // NULL means Permanent and CIM-XML: say so.
    if (!number(inst, "PersistenceType")) setNamed(inst.properties, "PersistenceType", Value::u16(2));
    if (!number(inst, "Protocol")) setNamed(inst.properties, "Protocol", Value::u16(2));
    fillKeys(inst, kDestinationClass);
    auto dest = std::make_shared<Destination>(Destination{std::move(inst), std::get<std::string>(url)});
    std::lock_guard lock(mutex_);
    const std::string key = keyOf(dest->instance.path);
    if (destinations_.count(key) != 0) return failure(CMPI_RC_ERR_ALREADY_EXISTS, "the destination exists");
    if (destinations_.size() >= options_.maxDestinations)
        return failure(CMPI_RC_ERR_FAILED, "at most " + std::to_string(options_.maxDestinations) + " destinations");
    destinations_.emplace(key, dest);
    try {
        save();
    } catch (const std::exception &e) {
        destinations_.erase(key);
        return failure(CMPI_RC_ERR_FAILED, e.what());
    }
    delivery_.add(key, dest->url);
    Reply r;
    r.paths.push_back(dest->instance.path);
    return r;
}

Reply Subscriptions::createSubscription(InstanceV inst) {
    if (auto refused = checkProperties(inst, kSubscriptionClass)) return *refused;
    auto reference = [&](const char *name) -> const ObjectPathV * {
        const Value *v = inst.property(name);
        return v != nullptr && !v->isNull() && v->type() == CMPI_ref ? &v->asRef() : nullptr;
    };
    const ObjectPathV *filterRef = reference("Filter");
    const ObjectPathV *handlerRef = reference("Handler");
    if (filterRef == nullptr || handlerRef == nullptr)
        return failure(CMPI_RC_ERR_INVALID_PARAMETER, "Filter and Handler are required references");
    for (const ObjectPathV *ref : {filterRef, handlerRef})
        if (!ref->ns.empty() && !iequals(ref->ns, kInteropNamespace))
            return failure(CMPI_RC_ERR_FAILED, ref->className + " must be in " + kInteropNamespace);
    auto state = number(inst, "SubscriptionState").value_or(2);
    if (state != 2 && state != 4)
        return failure(CMPI_RC_ERR_INVALID_PARAMETER, "SubscriptionState must be 2 (Enabled) or 4 (Disabled)");

    auto sub = std::make_shared<Subscription>();
    sub->enabled = state == 2;
    std::shared_ptr<Filter> filter;
    {
        std::lock_guard lock(mutex_);
        sub->filter = keyOf(*filterRef);
        sub->destination = keyOf(*handlerRef);
        auto f = filters_.find(sub->filter);
        if (f == filters_.end() || kindOf(filterRef->className) != Kind::Filter)
            return failure(CMPI_RC_ERR_NOT_FOUND, "Filter " + filterRef->toString() + " does not exist");
        auto d = destinations_.find(sub->destination);
        if (d == destinations_.end() || kindOf(handlerRef->className) != Kind::Destination)
            return failure(CMPI_RC_ERR_NOT_FOUND, "Handler " + handlerRef->toString() + " does not exist");
        filter = f->second;
        // The references as kept: the interop namespace, no host, the instances' own keys.
        setNamed(inst.properties, "Filter", Value::ref(f->second->instance.path));
        setNamed(inst.properties, "Handler", Value::ref(d->second->instance.path));
    }
    setNamed(inst.properties, "SubscriptionState", Value::u16(static_cast<std::uint16_t>(state)));
    if (inst.property("SubscriptionStartTime") == nullptr) setNamed(inst.properties, "SubscriptionStartTime", now());
    if (inst.property("TimeOfLastStateChange") == nullptr) setNamed(inst.properties, "TimeOfLastStateChange", now());
    inst.path = ObjectPathV{kInteropNamespace, kSubscriptionClass, {},
                            {{"Filter", *inst.property("Filter")}, {"Handler", *inst.property("Handler")}}};
    sub->instance = std::move(inst);
    const std::string key = keyOf(sub->instance.path);
    {
        std::lock_guard lock(mutex_);
        if (subscriptions_.count(key) != 0) return failure(CMPI_RC_ERR_ALREADY_EXISTS, "the subscription exists");
        if (subscriptions_.size() >= options_.maxSubscriptions)
            return failure(CMPI_RC_ERR_FAILED, "at most " + std::to_string(options_.maxSubscriptions) + " subscriptions");
        subscriptions_.emplace(key, sub);
        rebuildRoutes();  // before activation: what providers deliver while activating reaches it
    }
    if (sub->enabled) {
        Reply activated = activate(*filter, true);
        // A kept subscription stays when its providers refuse it at start-up
        // (the refusal is logged): a file is not emptied by a provider that
        // failed to load.
        if (!activated.ok() && !restoring_) {
            std::lock_guard lock(mutex_);
            subscriptions_.erase(key);
            rebuildRoutes();
            return activated;
        }
    }
    std::lock_guard lock(mutex_);
    try {
        save();
    } catch (const std::exception &e) {
        subscriptions_.erase(key);
        rebuildRoutes();
        if (sub->enabled) activate(*filter, false);
        return failure(CMPI_RC_ERR_FAILED, e.what());
    }
    Reply r;
    r.paths.push_back(sub->instance.path);
    return r;
}

Reply Subscriptions::remove(const ObjectPathV &path) {
    auto kind = kindOf(path.className);
    if (!kind) return failure(CMPI_RC_ERR_NOT_SUPPORTED, path.className + " instances cannot be deleted");
    std::lock_guard change(changes_);
    const std::string key = keyOf(path);
    std::shared_ptr<Filter> deactivate;
    {
        std::lock_guard lock(mutex_);
        auto inUse = [&](bool filter) {
            return std::count_if(subscriptions_.begin(), subscriptions_.end(), [&](const auto &s) {
                return (filter ? s.second->filter : s.second->destination) == key;
            });
        };
        std::function<void()> undo;
        if (*kind == Kind::Filter) {
            auto it = filters_.find(key);
            if (it == filters_.end()) return failure(CMPI_RC_ERR_NOT_FOUND, "");
            if (auto n = inUse(true))
                return failure(CMPI_RC_ERR_FAILED, "the filter is named by " + std::to_string(n) + " subscription(s)");
            auto kept = it->second;
            filters_.erase(it);
            undo = [&, kept] { filters_.emplace(key, kept); };
        } else if (*kind == Kind::Destination) {
            auto it = destinations_.find(key);
            if (it == destinations_.end()) return failure(CMPI_RC_ERR_NOT_FOUND, "");
            if (auto n = inUse(false))
                return failure(CMPI_RC_ERR_FAILED, "the destination is named by " + std::to_string(n) + " subscription(s)");
            auto kept = it->second;
            destinations_.erase(it);
            undo = [&, kept] { destinations_.emplace(key, kept); };
        } else {
            auto it = subscriptions_.find(key);
            if (it == subscriptions_.end()) return failure(CMPI_RC_ERR_NOT_FOUND, "");
            auto kept = it->second;
            subscriptions_.erase(it);
            undo = [&, kept] { subscriptions_.emplace(key, kept); };
            if (kept->enabled) deactivate = filters_.at(kept->filter);
        }
        try {
            save();
        } catch (const std::exception &e) {
            undo();
            return failure(CMPI_RC_ERR_FAILED, e.what());
        }
        rebuildRoutes();
    }
    if (*kind == Kind::Destination) delivery_.remove(key);
    if (deactivate) activate(*deactivate, false);
    return Reply{};
}

Reply Subscriptions::get(const ObjectPathV &path) const {
    if (!kindOf(path.className)) return failure(CMPI_RC_ERR_NOT_FOUND, "");
    std::lock_guard lock(mutex_);
    const std::string key = keyOf(path);
    const InstanceV *found = nullptr;
    if (auto f = filters_.find(key); f != filters_.end()) found = &f->second->instance;
    if (auto d = destinations_.find(key); d != destinations_.end()) found = &d->second->instance;
    if (auto s = subscriptions_.find(key); s != subscriptions_.end()) found = &s->second->instance;
    if (found == nullptr || !catalog_.isA(found->path.className, path.className))
        return failure(CMPI_RC_ERR_NOT_FOUND, "");
    Reply r;
    r.instances.push_back(*found);
    return r;
}

Reply Subscriptions::enumerate(const std::string &cls) const {
    Reply r;
    std::lock_guard lock(mutex_);
    auto add = [&](const auto &map) {
        for (const auto &[key, item] : map)
            if (catalog_.isA(item->instance.path.className, cls)) {
                r.instances.push_back(item->instance);
                r.paths.push_back(item->instance.path);
            }
    };
    add(filters_);
    add(destinations_);
    add(subscriptions_);
    return r;
}

Reply Subscriptions::references(const ObjectPathV &path, const std::string &resultClass, const std::string &role) const {
    Reply r;
    if (!resultClass.empty() && !catalog_.isA(kSubscriptionClass, resultClass)) return r;
    const std::string key = keyOf(path);
    std::lock_guard lock(mutex_);
    for (const auto &[k, sub] : subscriptions_) {
        const bool asFilter = sub->filter == key && (role.empty() || iequals(role, "Filter"));
        const bool asHandler = sub->destination == key && (role.empty() || iequals(role, "Handler"));
        if (!asFilter && !asHandler) continue;
        r.instances.push_back(sub->instance);
        r.paths.push_back(sub->instance.path);
    }
    return r;
}

// ---- routing --------------------------------------------------------------------

void Subscriptions::rebuildRoutes() {
    auto routes = std::make_shared<Routes>();
    for (const auto &[key, sub] : subscriptions_) {
        if (!sub->enabled) continue;
        const Filter &f = *filters_.at(sub->filter);
        routes->routes.push_back({*text(f.instance, "Name"), f.query, f.namespaces, sub->destination});
    }
    std::lock_guard lock(routesMutex_);
    routes_ = std::move(routes);
}

void Subscriptions::route(const std::string &ns, const InstanceV &indication) const {
    std::shared_ptr<const Routes> routes;
    {
        std::lock_guard lock(routesMutex_);
        routes = routes_;
    }
    auto isA = [&](std::string_view cls, std::string_view ancestor) { return catalog_.isA(cls, ancestor); };
    for (const Routes::Route &r : routes->routes) {
        if (std::none_of(r.namespaces.begin(), r.namespaces.end(), [&](const std::string &n) { return iequals(n, ns); }))
            continue;
        if (!catalog_.isA(indication.path.className, r.query->fromClass()) || !r.query->matches(indication, isA))
            continue;
        InstanceV sent = r.query->project(indication);
        if (sent.path.ns.empty()) sent.path.ns = ns;
        setNamed(sent.properties, "IndicationFilterName", Value::string(r.filterName));
        delivery_.enqueue(r.destination, std::move(sent));
    }
}

// ---- the file -----------------------------------------------------------------

void Subscriptions::save() const {
    if (options_.file.empty()) return;
    std::vector<const InstanceV *> all;
    for (const auto &[k, f] : filters_) all.push_back(&f->instance);
    for (const auto &[k, d] : destinations_) all.push_back(&d->instance);
    for (const auto &[k, s] : subscriptions_) all.push_back(&s->instance);
    writeSubscriptionFile(options_.file, all);
}

}  // namespace cimserver
