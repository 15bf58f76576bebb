// Set-up of a host core and the choice of the provider blocks that serve a
// request.
#include "HostCore.h"

#include "Registration.h"

#include <algorithm>
#include <iostream>
#include <stdexcept>

namespace cimhost {

namespace {

constexpr unsigned kBrokerMagic = 0x43494D48;  // "CIMH"
constexpr size_t kLogLines = 1000;

std::optional<MiKind> kindOf(const std::string &name) {
    if (iequals(name, "instance")) return MiKind::Instance;
    if (iequals(name, "association")) return MiKind::Association;
    if (iequals(name, "method")) return MiKind::Method;
    if (iequals(name, "indication")) return MiKind::Indication;
    return std::nullopt;
}

}  // namespace

bool Binding::serves(MiKind kind, std::string_view ns) const {
    bool kindListed = std::any_of(kinds.begin(), kinds.end(), [&](const std::string &k) { return kindOf(k) == kind; });
    return kindListed && std::find(namespaces.begin(), namespaces.end(), lowerCase(ns)) != namespaces.end();
}

HostCore::HostCore(HostOptions options)
    : options_(std::move(options)),
      flavor_{options_.cmpi10Broker, options_.widenIntegerKeys, options_.charsArraysAsStrings},
      schema_(options_.mofPaths),
      bft_(brokerTable(options_.cmpi10Broker)),
      eft_(encTable(options_.cmpi10Broker)),
      xft_(extTable()) {
    broker_.broker.hdl = this;
    broker_.broker.bft = &bft_;
    broker_.broker.eft = &eft_;
    broker_.broker.xft = &xft_;
    broker_.broker.mft = nullptr;  // no memory services, as in stock CIMOMs
    broker_.core = this;
    broker_.magic = kBrokerMagic;
    initAuthService(*this);

    auto add = [&](std::string cls, std::vector<std::string> namespaces, std::vector<std::string> kinds,
                   std::shared_ptr<ProviderModule> module) {
        auto b = std::make_unique<Binding>();
        b->className = std::move(cls);
        for (const std::string &ns : namespaces) b->namespaces.push_back(lowerCase(ns));
        b->kinds = std::move(kinds);
        b->module = std::move(module);
        namespaces_.insert(b->namespaces.begin(), b->namespaces.end());
        bindings_.push_back(std::move(b));
    };

    auto auth = std::make_shared<ProviderModule>(kAuthProvider, authServiceResolver());
    modules_.push_back(auth);
    add(Schema::kAuthClass, {Schema::kAuthNamespace}, {"instance", "method"}, auth);

    if (!options_.registrationFile.empty()) {
        for (RegistrationEntry &e : loadRegistration(options_.registrationFile)) {
            if (schema_.find(e.className) == nullptr)
                throw std::runtime_error(options_.registrationFile + ": class " + e.className +
                                         " is registered but no MOF declares it");
            auto same = std::find_if(modules_.begin(), modules_.end(),
                                     [&](const auto &m) { return m->name() == e.providerName; });
            std::shared_ptr<ProviderModule> module;
            if (same != modules_.end()) {
                if ((*same)->location() != e.location)
                    throw std::runtime_error(options_.registrationFile + ": provider " + e.providerName +
                                             " is registered with two locations");
                module = *same;
            } else {
                module = std::make_shared<ProviderModule>(e.providerName, e.location, options_.providerDirs);
                modules_.push_back(module);
            }
            add(e.className, e.namespaces, e.kinds, module);
        }
    }
    namespaces_.insert(schema_.namespaces().begin(), schema_.namespaces().end());

    // The built-in authorization service runs in a process of its own.
    for (const auto &b : bindings_) {
        const bool byLibrary = options_.layout == HostOptions::ProcessLayout::ByLibrary && !b->module->location().empty();
        const std::string process = byLibrary ? "lib" + b->module->location() + ".so" : b->module->name();
        auto &worker = workers_[process];
        if (!worker) worker = std::make_unique<Worker>(process);
        b->worker = worker.get();
    }
}

HostCore::~HostCore() {
    // Providers are told the CIMOM is terminating; what they make meanwhile
    // belongs to this last request.
    rt::Scope scope;
    rt::ScopeBinding binding(&scope);
    stopIndications();
    for (auto &module : modules_) module->cleanup(flavor_);
    for (ActiveFilter &f : activeFilters_) rt::Runtime::dispose(f.selectExp);
}

HostCore *HostCore::of(const CMPIBroker *mb) {
    if (mb == nullptr) return nullptr;
    auto *hb = reinterpret_cast<const HostBroker *>(mb);
    return hb->magic == kBrokerMagic ? hb->core : nullptr;
}

HostCore *HostCore::of(const CMPIBroker *mb, CMPIStatus *rc) {
    HostCore *core = of(mb);
    if (core == nullptr) rt::setRc(rc, CMPI_RC_ERR_INVALID_HANDLE);
    return core;
}

CMPIrc HostCore::checkRequest(const std::string &ns, const std::string &cls, std::string &message) const {
    if (namespaces_.count(lowerCase(ns)) == 0) {
        message = "namespace '" + ns + "' does not exist";
        return CMPI_RC_ERR_INVALID_NAMESPACE;
    }
    if (schema_.find(cls) == nullptr) {
        message = "class " + cls + " does not exist";
        return CMPI_RC_ERR_INVALID_CLASS;
    }
    return CMPI_RC_OK;
}

// The blocks registered for the class itself or, for a superclass request,
// the nearest registered subclasses; failing those, the nearest registered
// ancestor, which also serves its subclasses.
std::vector<HostCore::Target> HostCore::instanceTargets(const std::string &ns, const std::string &cls,
                                                        Route route) const {
    std::vector<Binding *> below;
    for (const auto &b : bindings_)
        if (b->serves(MiKind::Instance, ns) && schema_.isA(b->className, cls)) below.push_back(b.get());
    std::vector<Target> targets;
    if (route == Route::Single) {
        for (Binding *b : below)
            if (iequals(b->className, cls)) return {Target{b, cls}};
    }
    for (Binding *b : below) {
        bool nearest = std::none_of(below.begin(), below.end(), [&](Binding *other) {
            return other != b && !iequals(other->className, b->className) && schema_.isA(b->className, other->className);
        });
        if (nearest) targets.push_back(Target{b, b->className});
    }
    if (!targets.empty()) return targets;
    for (const ClassDecl *c = schema_.find(cls); c != nullptr;
         c = c->superclass.empty() ? nullptr : schema_.find(c->superclass)) {
        for (const auto &b : bindings_)
            if (b->serves(MiKind::Instance, ns) && iequals(b->className, c->name)) return {Target{b.get(), cls}};
    }
    return {};
}

Binding *HostCore::methodTarget(const std::string &ns, const std::string &cls) const {
    for (const ClassDecl *c = schema_.find(cls); c != nullptr;
         c = c->superclass.empty() ? nullptr : schema_.find(c->superclass)) {
        for (const auto &b : bindings_)
            if (b->serves(MiKind::Method, ns) && iequals(b->className, c->name)) return b.get();
    }
    return nullptr;
}

// Association blocks whose class has a reference to the source class or one
// of its ancestors, narrowed by the association class filter; one per module.
std::vector<Binding *> HostCore::associationTargets(const std::string &ns, const std::string &source,
                                                    const std::string &assocClass) const {
    std::vector<Binding *> targets;
    for (const auto &b : bindings_) {
        if (!b->serves(MiKind::Association, ns)) continue;
        if (!assocClass.empty() && !schema_.isA(b->className, assocClass)) continue;
        auto refs = schema_.references(b->className);
        bool refersToSource = std::any_of(refs.begin(), refs.end(), [&](const PropertyDecl *p) {
            return schema_.isA(source, p->refClass);
        });
        bool moduleTaken = std::any_of(targets.begin(), targets.end(),
                                       [&](Binding *t) { return t->module == b->module; });
        if (refersToSource && !moduleTaken) targets.push_back(b.get());
    }
    return targets;
}

void *HostCore::usableMi(Binding &binding, MiKind kind, SharedReply &failure) {
    std::call_once(binding.checked, [&] { binding.checkError = binding.module->check(binding.kinds); });
    std::string error = binding.checkError;
    void *mi = error.empty() ? binding.module->mi(kind, broker(), flavor_, error) : nullptr;
    if (mi == nullptr) {
        log("provider " + binding.module->name() + " for " + binding.className + ": " + error);
        failure = SharedReply::error(CMPI_RC_ERR_FAILED, "Error initializing provider");
    }
    return mi;
}

void HostCore::checkTypes(const std::vector<std::shared_ptr<const InstanceV>> &instances) {
    std::vector<const InstanceV *> unchecked;
    {
        // Cached instances come back as the same shared objects: each is
        // looked at once. Entries of instances gone are dropped now and then.
        std::lock_guard lock(stateMutex_);
        for (const auto &shared : instances) {
            auto [it, added] = typesChecked_.try_emplace(shared.get(), shared);
            if (!added && it->second.lock() == shared) continue;
            it->second = shared;
            unchecked.push_back(shared.get());
        }
        if (typesChecked_.size() > typesCheckedLimit_) {
            std::erase_if(typesChecked_, [](const auto &entry) { return entry.second.expired(); });
            typesCheckedLimit_ = std::max<size_t>(1024, typesChecked_.size() * 2);
        }
    }
    for (const InstanceV *checked : unchecked) {
        const InstanceV &inst = *checked;
        const Schema::PropertyTypes *types = schema_.propertyTypes(inst.path.className);
        if (types == nullptr) continue;
        for (const auto &[name, value] : inst.properties) {
            const auto found = types->find(name);
            const CMPIType declared = found == types->end() ? CMPIType(CMPI_null) : found->second;
            CMPIType actual = value.type() == (CMPI_chars | CMPI_ARRAY) ? CMPIType(CMPI_stringA) : value.type();
            if (declared == CMPI_null || value.isNull() || actual == declared) continue;
            std::string what = inst.path.className + "." + name + " is declared " + typeName(declared) +
                               " but was returned as " + typeName(actual);
            bool first;
            {
                std::lock_guard lock(stateMutex_);
                first = typeWarnings_.insert(lowerCase(what)).second;
            }
            if (first) log(what);
        }
    }
}

std::vector<RegisteredClass> HostCore::registeredClasses() const {
    std::vector<RegisteredClass> out;
    for (const auto &b : bindings_)
        for (const std::string &ns : b->namespaces) out.push_back({b->className, ns, b->module->name(), b->kinds});
    return out;
}

unsigned HostCore::permission(const std::string &user) const {
    std::lock_guard lock(stateMutex_);
    auto it = permissions_.find(user);
    return it == permissions_.end() ? 0 : it->second;
}

void HostCore::setPermission(const std::string &user, unsigned level) {
    std::lock_guard lock(stateMutex_);
    permissions_[user] = level;
}

void HostCore::log(const std::string &line) {
    if (options_.echoBrokerLog) std::cerr << line << '\n';
    std::lock_guard lock(stateMutex_);
    log_.push_back(line);
    if (log_.size() > kLogLines) log_.pop_front();
}

std::vector<std::string> HostCore::logLines() const {
    std::lock_guard lock(stateMutex_);
    return {log_.begin(), log_.end()};
}

}  // namespace cimhost
