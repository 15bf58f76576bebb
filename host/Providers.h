// Provider modules as a stock CIMOM loads them: the library lib<location>.so
// from the provider directories (RTLD_NOW | RTLD_GLOBAL), factories
// <provider>_Create_<Kind>MI called lazily, once per provider and kind.
#pragma once

#include "ObjectRuntime.h"

#include <cmpift.h>

#include <array>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace cimhost {

enum class MiKind { Instance, Association, Method, Indication };
constexpr int kMiKinds = 4;

// The registration's name of a kind ("instance", "association", "method", "indication").
const char *kindName(MiKind kind);

class ProviderModule {
public:
    // Finds a factory symbol; nullptr when it is not there.
    using Resolver = std::function<void *(const std::string &symbol)>;

    // A module loaded from lib<location>.so in one of `dirs`.
    ProviderModule(std::string name, std::string location, std::vector<std::string> dirs);
    // A module built into the host.
    ProviderModule(std::string name, Resolver resolver);
    ~ProviderModule();
    ProviderModule(const ProviderModule &) = delete;
    ProviderModule &operator=(const ProviderModule &) = delete;

    const std::string &name() const { return name_; }
    const std::string &location() const { return location_; }

    // Loads the library (once) and checks that the factory of every listed
    // kind is exported. Empty on success, else the reason.
    std::string check(const std::vector<std::string> &listedKinds);
    // The MI of a kind, from its factory on first use; nullptr on failure.
    void *mi(MiKind kind, const CMPIBroker *broker, const rt::Flavor &flavor, std::string &error);
    // Calls cleanup(terminating) on every MI made so far.
    void cleanup(const rt::Flavor &flavor);

private:
    std::string load();

    std::string name_;
    std::string location_;
    std::vector<std::string> dirs_;
    Resolver resolver_;
    void *library_ = nullptr;
    bool loadTried_ = false;
    std::string loadError_;
    std::recursive_mutex mutex_;
    std::array<void *, kMiKinds> mis_{};
    std::array<bool, kMiKinds> tried_{};
};

}  // namespace cimhost
