#include "Harness.h"

#include <Host.h>

#include "DirectCall.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include <memory>
#include <mutex>

namespace harness {
namespace sim = tovra::sim;

namespace {

// The library's cache reset counters live in a file of this test process, so
// tests running at once in other processes do not make its caches stale.
// Tests that start other processes hand them the same file.
const bool privateResetCounters = [] {
    if (std::getenv("TOVRA_CACHE_EPOCHS") != nullptr) return false;
    static const std::string file = "/tmp/tovra-cache-epochs-" + std::to_string(::getpid());
    ::setenv("TOVRA_CACHE_EPOCHS", file.c_str(), 1);
    std::atexit([] { std::remove(file.c_str()); });
    return true;
}();

using Layout = cimhost::HostOptions::ProcessLayout;

struct HostSlot {
    std::unique_ptr<cimhost::Host> host;
    Layout layout = Layout::ByLibrary;
};

HostSlot &slot() {
    static HostSlot s;
    return s;
}

std::unique_ptr<cimhost::Host> makeHost(Layout layout) {
    cimhost::HostOptions options;
    options.mofPaths = {TOVRA_MOF_DIR};
    options.registrationFile = std::string(TOVRA_MOF_DIR) + "/Tovra.reg";
    options.providerDirs = {TOVRA_PROVIDER_DIR};
    options.principal = "root";
    options.layout = layout;
    auto h = std::make_unique<cimhost::Host>(options);
    h->setPermission("root", 5);
    return h;
}

cimhost::Host &host() {
    HostSlot &s = slot();
    if (!s.host) s.host = makeHost(s.layout);
    return *s.host;
}

Val flatten(const cimhost::Value &v) {
    Val out;
    if (v.isNull()) return out;
    if (v.isArray()) {
        const CMPIType t = v.elementType();
        out.kind = t == CMPI_string || t == CMPI_chars                          ? Val::Kind::Texts
                   : t == CMPI_real32 || t == CMPI_real64                       ? Val::Kind::Reals
                   : (t & (CMPI_UINT | CMPI_SINT)) != 0                         ? Val::Kind::Numbers
                                                                                 : Val::Kind::Other;
        for (const cimhost::Value &e : v.asArray()) {
            if (e.isNull()) continue;
            if (out.kind == Val::Kind::Texts) out.texts.push_back(e.asString());
            if (out.kind == Val::Kind::Reals) out.reals.push_back(e.asReal());
            if (out.kind == Val::Kind::Numbers) out.numbers.push_back(e.asUnsigned());
        }
        return out;
    }
    const CMPIType t = v.type();
    if (t == CMPI_string || t == CMPI_chars) {
        out.kind = Val::Kind::Text;
        out.text = v.asString();
    } else if (t & (CMPI_UINT | CMPI_SINT)) {
        out.kind = Val::Kind::Number;
        out.number = v.asUnsigned();
    } else {
        out.kind = Val::Kind::Other;
        out.text = v.toText();
    }
    return out;
}

std::vector<std::pair<std::string, Val>> flattenAll(const cimhost::NamedValues &list) {
    std::vector<std::pair<std::string, Val>> out;
    for (const auto &[name, value] : list) out.emplace_back(name, flatten(value));
    return out;
}

Obj fromPath(const cimhost::ObjectPathV &p) {
    Obj o;
    o.path = p.toString();
    o.ns = p.ns;
    o.className = p.className;
    o.keys = flattenAll(p.keys);
    return o;
}

Answer fromReply(const cimhost::Reply &r) {
    Answer a;
    a.rc = r.rc;
    a.message = r.message;
    for (const auto &p : r.paths) a.objects.push_back(fromPath(p));
    for (const auto &i : r.instances) {
        Obj o = fromPath(i.path);
        o.props = flattenAll(i.properties);
        a.objects.push_back(std::move(o));
    }
    if (r.returnValue) a.value = flatten(*r.returnValue);
    a.outArgs = flattenAll(r.outArgs);
    return a;
}

cimhost::Value toValue(const In &in) {
    switch (in.kind) {
        case In::Kind::Text: return cimhost::Value::string(in.text);
        case In::Kind::Uint32: return cimhost::Value::u32(static_cast<uint32_t>(in.number));
        case In::Kind::Uint8: return cimhost::Value::u8(static_cast<uint8_t>(in.number));
        case In::Kind::Null: return cimhost::Value::null(CMPI_string);
        case In::Kind::Uint32Array: {
            cimhost::Value::Array items;
            for (uint64_t n : in.numbers) items.push_back(cimhost::Value::u32(static_cast<uint32_t>(n)));
            return cimhost::Value::array(CMPI_uint32, std::move(items));
        }
        case In::Kind::Ref: {
            auto path = cimhost::ObjectPathV::parse(in.text);
            return path ? cimhost::Value::ref(*path) : cimhost::Value::null(CMPI_ref);
        }
    }
    return {};
}

cimhost::ObjectPathV pathOf(const std::string &cls, const Keys &keys, const std::string &ns) {
    cimhost::ObjectPathV p;
    p.ns = ns;
    p.className = cls;
    for (const auto &[name, value] : keys) p.keys.emplace_back(name, toValue(value));
    return p;
}

}  // namespace

const Val *Obj::prop(const std::string &name) const {
    for (const auto &[n, v] : props)
        if (n == name) return &v;
    return nullptr;
}
const Val *Obj::key(const std::string &name) const {
    for (const auto &[n, v] : keys)
        if (n == name) return &v;
    return nullptr;
}
std::string Obj::text(const std::string &name) const {
    const Val *v = prop(name);
    if (v == nullptr) v = key(name);
    return v != nullptr && v->kind == Val::Kind::Text ? v->text : std::string();
}
uint64_t Obj::num(const std::string &name) const {
    const Val *v = prop(name);
    if (v == nullptr) v = key(name);
    return v != nullptr && v->kind == Val::Kind::Number ? v->number : 0;
}

Answer enumNames(const std::string &cls, const std::string &ns) {
    return fromReply(host().enumerateInstanceNames(ns, cls));
}
Answer enumInstances(const std::string &cls, const std::string &ns, const std::vector<std::string> *properties) {
    return fromReply(host().enumerateInstances(ns, cls, properties));
}
Answer getInstance(const std::string &cls, const Keys &keys, const std::string &ns) {
    return fromReply(host().getInstance(pathOf(cls, keys, ns), nullptr));
}
Answer invoke(const std::string &cls, const std::string &method, const Keys &args, const std::string &ns) {
    cimhost::NamedValues in;
    for (const auto &[name, value] : args) in.emplace_back(name, toValue(value));
    return fromReply(host().invokeMethod(pathOf(cls, {}, ns), method, in));
}

namespace {

const char *methodModule(const std::string &cls) {
    if (cls == "Tovra_StoragePool") return "StoragePool";
    if (cls == "Tovra_StorageVolume") return "StorageVolume";
    if (cls == "Tovra_DiskDrive") return "DiskDrive";
    if (cls == "Tovra_EventLog") return "EventLog";
    return "RAIDComputerSystem";
}

void addArg(CMPIArgs *in, const std::string &name, const In &value, const CMPIBroker *broker) {
    switch (value.kind) {
        case In::Kind::Text: CMAddArg(in, name.c_str(), value.text.c_str(), CMPI_chars); break;
        case In::Kind::Uint32: {
            CMPIUint32 v = static_cast<CMPIUint32>(value.number);
            CMAddArg(in, name.c_str(), &v, CMPI_uint32);
            break;
        }
        case In::Kind::Uint8: {
            CMPIUint8 v = static_cast<CMPIUint8>(value.number);
            CMAddArg(in, name.c_str(), &v, CMPI_uint8);
            break;
        }
        case In::Kind::Null: CMAddArg(in, name.c_str(), nullptr, CMPI_uint32); break;
        case In::Kind::Uint32Array: {
            CMPIArray *arr = CMNewArray(broker, static_cast<CMPICount>(value.numbers.size()), CMPI_uint32, nullptr);
            for (CMPICount i = 0; i < value.numbers.size(); ++i) {
                CMPIUint32 v = static_cast<CMPIUint32>(value.numbers[i]);
                CMSetArrayElementAt(arr, i, &v, CMPI_uint32);
            }
            CMAddArg(in, name.c_str(), &arr, CMPI_uint32A);
            break;
        }
        // No method takes a reference: its path text goes in as a string.
        case In::Kind::Ref: CMAddArg(in, name.c_str(), value.text.c_str(), CMPI_chars); break;
    }
}

}  // namespace

Answer invokeDirect(const std::string &cls, const std::string &method, const Keys &args) {
    auto *mi = static_cast<CMPIMethodMI *>(factory(std::string("Tovra") + methodModule(cls) + "Provider_Create_MethodMI"));
    Answer a;
    if (mi == nullptr) {
        a.rc = CMPI_RC_ERR_NOT_FOUND;
        return a;
    }
    inRequest([&](const CMPIBroker *broker, const CMPIContext *ctx) {
        direct::Outcome o = direct::invoke(mi, broker, ctx, kNs, cls.c_str(), method.c_str(), [&](CMPIArgs *in) {
            for (const auto &[name, value] : args) addArg(in, name, value, broker);
        });
        a.rc = o.rc;
        a.message = o.message;
        a.doneCount = o.doneCount;
        if (o.value) {
            Val v;
            v.kind = Val::Kind::Text;
            v.text = *o.value;
            a.value = v;
        }
    });
    return a;
}

cimhost::ObjectPathV parsed(const std::string &text) {
    auto path = cimhost::ObjectPathV::parse(text);
    if (!path) throw std::invalid_argument("not a path: " + text);
    return *path;
}
Answer associatorNames(const std::string &source, const AssocFilter &f) {
    return fromReply(host().associatorNames(parsed(source), {f.assocClass, f.resultClass, f.role, f.resultRole}));
}
Answer associators(const std::string &source, const AssocFilter &f) {
    return fromReply(host().associators(parsed(source), {f.assocClass, f.resultClass, f.role, f.resultRole}));
}
Answer referenceNames(const std::string &source, const std::string &assocClass, const std::string &role) {
    return fromReply(host().referenceNames(parsed(source), assocClass, role));
}
Answer references(const std::string &source, const std::string &assocClass, const std::string &role) {
    return fromReply(host().references(parsed(source), assocClass, role));
}

void useLayout(cimhost::HostOptions::ProcessLayout layout) {
    HostSlot &s = slot();
    if (s.host && s.layout == layout) return;
    s.host.reset();
    s.layout = layout;
}

void inRequest(const std::function<void(const CMPIBroker *, const CMPIContext *)> &body) {
    host().withRequest(body);
}

size_t liveClones() { return cimhost::Host::liveClones(); }
size_t liveRequestObjects() { return cimhost::Host::liveRequestObjects(); }
void setPermission(const std::string &user, unsigned level) { host().setPermission(user, level); }
void setPrincipal(const std::string &user) { host().setPrincipal(user); }

void *factory(const std::string &symbol) {
    host();  // the library is loaded with the host's first request
    enumNames("Tovra_RegisteredProfile", kInterop);
    void *lib = dlopen((std::string(TOVRA_PROVIDER_DIR) + "/libTovraProviders.so").c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (lib == nullptr) return nullptr;
    using Factory = void *(*)(const CMPIBroker *, const CMPIContext *, CMPIStatus *);
    auto fn = reinterpret_cast<Factory>(dlsym(lib, symbol.c_str()));
    dlclose(lib);
    if (fn == nullptr) return nullptr;
    // The factory keeps the broker it is given, so hand it the host's own.
    CMPIStatus rc{CMPI_RC_OK, nullptr};
    return fn(host().broker(), nullptr, &rc);
}

void ProviderTest::SetUp() {
    sim::reset();
    sim::loadScenario("default");
    sim::useVirtualClock(true);
    sim::captureLog(true);
    sim::clearLog();
    freshClock();
    sim::resetCounters();
    host().setPermission("root", 5);
    host().setPrincipal("root");
}

void ProviderTest::TearDown() {
    EXPECT_EQ(sim::openDescriptors(), 0u) << "a device descriptor was left open";
    EXPECT_EQ(liveRequestObjects(), 0u) << "request objects outlived their request";
    sim::clearFaults();
}

void ProviderTest::freshClock() {
    static time_t base = 2000000000;
    // Past the longest cache lifetime (a day), yet small enough that thousands
    // of steps keep the clock within 32-bit seconds and the simulator's
    // nanosecond count.
    base += 100000;
    sim::setTime(base);
}

bool ProviderTest::logged(const std::string &needle) {
    for (const std::string &line : sim::logLines())
        if (line.find(needle) != std::string::npos) return true;
    return false;
}

time_t ProviderTest::clockNow() { return static_cast<time_t>(sim::now()); }

}  // namespace harness
