// What a stock CIMOM relies on: the registration lists exactly the kinds each
// module exports, the library exports nothing else, every symbol resolves at
// load time, and a CMPI 1.0-level broker (2.0-only slots empty) suffices.
#include <ClassRepository.h>
#include <Host.h>
#include <Registration.h>
#include <tovrasim/Simulator.h>

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <set>
#include <string>

namespace {

const std::string kLibrary = std::string(TOVRA_PROVIDER_DIR) + "/libTovraProviders.so";

std::set<std::string> exportedSymbols() {
    std::set<std::string> names;
    std::unique_ptr<FILE, int (*)(FILE *)> nm(
        popen(("nm -D --defined-only " + kLibrary + " 2>/dev/null").c_str(), "r"), pclose);
    if (!nm) return names;
    char line[512];
    while (fgets(line, sizeof line, nm.get()) != nullptr) {
        std::string l(line);
        const auto space = l.rfind(' ');
        names.insert(l.substr(space + 1, l.find_last_not_of("\n") - space));
    }
    return names;
}

TEST(Deployment, RegistrationMatchesTheExportedFactories) {
    void *lib = dlopen(kLibrary.c_str(), RTLD_NOW | RTLD_GLOBAL);
    ASSERT_NE(lib, nullptr) << dlerror();
    std::set<std::string> registered;
    for (const auto &entry : cimhost::loadRegistration(std::string(TOVRA_MOF_DIR) + "/Tovra.reg")) {
        EXPECT_EQ(entry.location, "TovraProviders");
        EXPECT_EQ(entry.unload, "never");
        for (const std::string &kind : entry.kinds) {
            std::string suffix = kind == "instance"     ? "Instance"
                                 : kind == "method"     ? "Method"
                                 : kind == "indication" ? "Indication"
                                                        : "Association";
            const std::string symbol = entry.providerName + "_Create_" + suffix + "MI";
            EXPECT_NE(dlsym(lib, symbol.c_str()), nullptr) << symbol;
            registered.insert(symbol);
        }
    }
    const std::set<std::string> exported = exportedSymbols();
    ASSERT_FALSE(exported.empty());
    for (const std::string &name : exported) {
        EXPECT_EQ(name.rfind("Tovra", 0), 0u) << "unexpected export " << name;
        if (name.find("_Create_") != std::string::npos) {
            EXPECT_TRUE(registered.count(name)) << name;
        }
        EXPECT_EQ(name.find("_Generic_"), std::string::npos) << name;
    }
    dlclose(lib);
}

// Whatever the library exports is registered (above) and declared by the MOF
// in the registered namespace: an association kind for an association class,
// a method kind exactly where the class declares methods.
TEST(Deployment, RegistrationMatchesTheMof) {
    cimhost::ClassRepository mof;
    mof.loadDirectory(TOVRA_MOF_DIR);
    EXPECT_NO_THROW(mof.validate());
    const cimhost::ClassRepository &classes = mof;
    const auto entries = cimhost::loadRegistration(std::string(TOVRA_MOF_DIR) + "/Tovra.reg");
    ASSERT_FALSE(entries.empty());
    for (const auto &entry : entries) {
        SCOPED_TRACE(entry.className);
        const cimhost::ClassDecl *decl = mof.find(entry.className);
        ASSERT_NE(decl, nullptr);
        EXPECT_EQ(entry.namespaces, std::vector<std::string>{decl->nameSpace});
        auto has = [&](const char *kind) {
            return std::find(entry.kinds.begin(), entry.kinds.end(), kind) != entry.kinds.end();
        };
        // An indication class is served by an indication provider alone.
        EXPECT_NE(has("instance"), has("indication"));
        EXPECT_EQ(has("indication"), classes.isA(entry.className, "CIM_Indication"));
        EXPECT_EQ(has("association"), decl->isAssociation);
        EXPECT_EQ(has("method"), !decl->methods.empty());
    }
}

TEST(Deployment, ServesEveryClassThroughACmpi10LevelBroker) {
    tovra::sim::reset();
    tovra::sim::loadScenario("default");
    tovra::sim::useVirtualClock(true);
    tovra::sim::captureLog(true);
    cimhost::HostOptions options;
    options.mofPaths = {TOVRA_MOF_DIR};
    options.registrationFile = std::string(TOVRA_MOF_DIR) + "/Tovra.reg";
    options.providerDirs = {TOVRA_PROVIDER_DIR};
    options.cmpi10Broker = true;
    options.widenIntegerKeys = true;
    cimhost::Host host(options);
    host.setPermission("root", 5);
    // An association is served as far as the classes at its ends are.
    cimhost::ClassRepository classes;
    classes.loadDirectory(TOVRA_MOF_DIR);
    const auto registered = host.registeredClasses();
    auto published = [&](const std::string &end) {
        return std::any_of(registered.begin(), registered.end(),
                           [&](const auto &r) { return classes.isA(r.className, end); });
    };
    auto endsPublished = [&](const std::string &cls) {
        for (const cimhost::PropertyDecl *p : classes.allProperties(cls))
            if (!p->refClass.empty() && !published(p->refClass)) return false;
        return true;
    };
    for (const auto &c : registered) {
        if (c.className.rfind("Tovra_", 0) != 0) continue;  // the host's own services
        if (std::find(c.kinds.begin(), c.kinds.end(), "instance") == c.kinds.end()) continue;  // indications
        if (!endsPublished(c.className)) continue;
        SCOPED_TRACE(c.className);
        cimhost::Reply names = host.enumerateInstanceNames(c.nameSpace, c.className);
        cimhost::Reply all = host.enumerateInstances(c.nameSpace, c.className);
        EXPECT_EQ(names.rc, CMPI_RC_OK);
        EXPECT_EQ(all.rc, CMPI_RC_OK);
        EXPECT_FALSE(all.instances.empty());
        EXPECT_EQ(names.paths.size(), all.instances.size());
        ASSERT_FALSE(names.paths.empty());
        EXPECT_EQ(host.getInstance(names.paths.front()).instances.size(), 1u);
        if (std::find(c.kinds.begin(), c.kinds.end(), "method") != c.kinds.end()) {
            cimhost::Reply r = host.invokeMethod(host.path(c.nameSpace, c.className), "TimeCalibration");
            EXPECT_EQ(r.rc, CMPI_RC_OK);
        }
    }
    EXPECT_EQ(tovra::sim::openDescriptors(), 0u);
}

}  // namespace
