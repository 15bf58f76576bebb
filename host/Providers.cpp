#include "Providers.h"

#include "Objects.h"

#include <dlfcn.h>

#include <cctype>

#include <filesystem>

namespace cimhost {

namespace {

// A factory is called through its own type: each kind returns its own MI.
template <class MI>
void *callFactory(void *symbol, const CMPIBroker *broker, const CMPIContext *ctx, CMPIStatus *rc) {
    using Factory = MI *(*)(const CMPIBroker *, const CMPIContext *, CMPIStatus *);
    return reinterpret_cast<Factory>(symbol)(broker, ctx, rc);
}

void *callFactory(MiKind kind, void *symbol, const CMPIBroker *broker, const CMPIContext *ctx, CMPIStatus *rc) {
    switch (kind) {
        case MiKind::Instance: return callFactory<CMPIInstanceMI>(symbol, broker, ctx, rc);
        case MiKind::Association: return callFactory<CMPIAssociationMI>(symbol, broker, ctx, rc);
        case MiKind::Method: return callFactory<CMPIMethodMI>(symbol, broker, ctx, rc);
        case MiKind::Indication: return callFactory<CMPIIndicationMI>(symbol, broker, ctx, rc);
    }
    return nullptr;
}

std::string factorySymbol(const std::string &provider, const std::string &kind) {
    std::string k = kind;
    if (!k.empty()) k[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(k[0])));
    return provider + "_Create_" + k + "MI";
}

template <class MI> void cleanupMi(void *made, const CMPIContext *ctx) {
    auto *mi = static_cast<MI *>(made);
    if (mi->ft != nullptr && mi->ft->cleanup != nullptr) mi->ft->cleanup(mi, ctx, 1);
}

}  // namespace

const char *kindName(MiKind kind) {
    switch (kind) {
        case MiKind::Instance: return "instance";
        case MiKind::Association: return "association";
        case MiKind::Method: return "method";
        case MiKind::Indication: return "indication";
    }
    return "";
}

ProviderModule::ProviderModule(std::string name, std::string location, std::vector<std::string> dirs)
    : name_(std::move(name)), location_(std::move(location)), dirs_(std::move(dirs)) {}

ProviderModule::ProviderModule(std::string name, Resolver resolver)
    : name_(std::move(name)), resolver_(std::move(resolver)), loadTried_(true) {}

ProviderModule::~ProviderModule() {
    if (library_ != nullptr) dlclose(library_);
}

std::string ProviderModule::load() {
    if (loadTried_) return loadError_;
    loadTried_ = true;
    const std::string file = "lib" + location_ + ".so";
    for (const std::string &dir : dirs_) {
        std::filesystem::path candidate = std::filesystem::path(dir) / file;
        std::error_code ec;
        if (!std::filesystem::is_regular_file(candidate, ec)) continue;
        // Every symbol must resolve now, as in a stock CIMOM.
        library_ = dlopen(candidate.c_str(), RTLD_NOW | RTLD_GLOBAL);
        if (library_ == nullptr) {
            const char *why = dlerror();
            loadError_ = "cannot load " + candidate.string() + ": " + (why != nullptr ? why : "unknown error");
            return loadError_;
        }
        resolver_ = [lib = library_](const std::string &symbol) { return dlsym(lib, symbol.c_str()); };
        return loadError_;
    }
    loadError_ = file + " is not in any provider directory";
    return loadError_;
}

std::string ProviderModule::check(const std::vector<std::string> &listedKinds) {
    std::lock_guard lock(mutex_);
    if (std::string error = load(); !error.empty()) return error;
    for (const std::string &kind : listedKinds) {
        std::string symbol = factorySymbol(name_, kind);
        if (resolver_(symbol) == nullptr) return "the library exports no " + symbol;
    }
    return {};
}

void *ProviderModule::mi(MiKind kind, const CMPIBroker *broker, const rt::Flavor &flavor, std::string &error) {
    std::lock_guard lock(mutex_);
    if (error = load(); !error.empty()) return nullptr;
    const auto k = static_cast<size_t>(kind);
    if (!tried_[k]) {
        tried_[k] = true;
        const std::string symbol = factorySymbol(name_, kindName(kind));
        if (void *factory = resolver_(symbol); factory != nullptr) {
            // The factory's context carries no entries and lives for the call only.
            auto *ctx = rt::Runtime::make<rt::ContextObj>(rt::Lifetime::PassedIn, flavor, NamedValues{});
            CMPIStatus rc{CMPI_RC_OK, nullptr};
            void *made = callFactory(kind, factory, broker, ctx->as<CMPIContext>(), &rc);
            rt::Runtime::dispose(ctx);
            if (made != nullptr && rc.rc == CMPI_RC_OK) mis_[k] = made;
        }
    }
    if (mis_[k] == nullptr) error = "the " + std::string(kindName(kind)) + " factory of " + name_ + " failed";
    return mis_[k];
}

void ProviderModule::cleanup(const rt::Flavor &flavor) {
    std::lock_guard lock(mutex_);
    for (size_t k = 0; k < mis_.size(); ++k) {
        if (mis_[k] == nullptr) continue;
        auto *ctx = rt::Runtime::make<rt::ContextObj>(rt::Lifetime::PassedIn, flavor, NamedValues{});
        switch (static_cast<MiKind>(k)) {
            case MiKind::Instance: cleanupMi<CMPIInstanceMI>(mis_[k], ctx->as<CMPIContext>()); break;
            case MiKind::Association: cleanupMi<CMPIAssociationMI>(mis_[k], ctx->as<CMPIContext>()); break;
            case MiKind::Method: cleanupMi<CMPIMethodMI>(mis_[k], ctx->as<CMPIContext>()); break;
            case MiKind::Indication: cleanupMi<CMPIIndicationMI>(mis_[k], ctx->as<CMPIContext>()); break;
        }
        rt::Runtime::dispose(ctx);
    }
    mis_ = {};
}

}  // namespace cimhost
