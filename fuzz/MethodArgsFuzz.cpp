// Fuzz entry for the management methods: the input chooses a method module,
// a method name and a list of arguments of any CMPI type (nulls, arrays where
// scalars belong, oversized strings and arrays, unknown names), which are
// handed through CMPIArgs to the module's invokeMethod inside a host request,
// against the simulated adapter on its virtual clock. After every call no
// device descriptor may stay open and no request object may outlive its
// request; a lock left held would hang the next call.
#include "DirectCall.h"

#include <Host.h>
#include <tovrasim/Simulator.h>

#include <dlfcn.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace {

namespace sim = tovra::sim;

class Input {
public:
    Input(const uint8_t *data, size_t size) : data_(data), size_(size) {}
    uint8_t byte() { return at_ < size_ ? data_[at_++] : 0; }
    uint32_t u32() {
        uint32_t v = 0;
        for (int i = 0; i < 4; ++i) v = (v << 8) | byte();
        return v;
    }
    bool empty() const { return at_ >= size_; }

private:
    const uint8_t *data_;
    size_t size_;
    size_t at_ = 0;
};

// Each module with its own methods and argument names; inputs mostly call a
// module's own methods with its own names, now and then anything at all.
struct Module {
    const char *module;
    const char *cls;
    std::vector<const char *> methods;
    std::vector<const char *> args;
};

const std::array<Module, 5> kModules = {{
    {"StoragePool", "Tovra_StoragePool",
     {"CreateRAIDSet", "DeleteRAIDSet", "ExpandRAIDSet", "OfflineRAIDSet", "ActivateRAIDSet", "CreateHotSpare",
      "DeleteHotSpare", "TimeCalibration"},
     {"MemberDisks", "DiskArray", "Enc", "Name", "RAIDNo", "Encls", "Type", "Disk"}},
    {"StorageVolume", "Tovra_StorageVolume", {"CreateVolume", "ModifyVolume", "DeleteVolume", "TimeCalibration"},
     {"ID", "LUN", "RAIDNo", "Strp", "Ll", "Cap", "Name", "Cache", "FG", "GtT", "Tag", "Num"}},
    {"DiskDrive", "Tovra_DiskDrive", {"CreatePassThrough", "ModifyPassThrough", "DeletePassThrough", "TimeCalibration"},
     {"enc", "slt", "id", "lun", "tag", "cache"}},
    {"EventLog", "Tovra_EventLog", {"ClearLog", "TimeCalibration"}, {"All"}},
    {"RAIDComputerSystem", "Tovra_RAIDControllerSystem", {"TimeCalibration", "SetWaTP"}, {"WaTP", "Password"}},
}};

// The arguments each method reads, in order: a well-formed input adds
// exactly these (with values of any type), so the checks and the firmware
// path behind them are reached too.
const std::vector<std::pair<const char *, std::vector<const char *>>> kSignatures = {
    {"CreateRAIDSet", {"MemberDisks", "DiskArray", "Enc", "Name"}},
    {"DeleteRAIDSet", {"RAIDNo"}},
    {"ExpandRAIDSet", {"RAIDNo", "DiskArray", "Encls"}},
    {"OfflineRAIDSet", {"RAIDNo"}},
    {"ActivateRAIDSet", {"RAIDNo"}},
    {"CreateHotSpare", {"Type", "RAIDNo", "Enc", "Disk"}},
    {"DeleteHotSpare", {"Enc", "Disk"}},
    {"CreateVolume", {"ID", "LUN", "RAIDNo", "Strp", "Ll", "Cap", "Name", "Cache", "FG", "GtT", "Tag"}},
    {"ModifyVolume", {"Cap", "Num", "ID", "LUN", "Strp", "Ll", "Name", "Cache", "Tag"}},
    {"DeleteVolume", {"Num"}},
    {"CreatePassThrough", {"enc", "slt", "id", "lun", "tag", "cache"}},
    {"ModifyPassThrough", {"enc", "slt", "id", "lun", "tag", "cache"}},
    {"DeletePassThrough", {"enc", "slt"}},
};

const std::vector<const char *> *signatureOf(const char *method) {
    for (const auto &[name, args] : kSignatures)
        if (std::string(name) == method) return &args;
    return nullptr;
}

constexpr std::array<const char *, 6> kOddNames = {"", "clearlog", "createvolume", "X", "DeleteRAIDSet ", "name"};

constexpr std::array<uint32_t, 16> kNumbers = {0, 1, 2, 3, 4, 5, 6, 7, 8, 15, 16, 64, 128, 256, 1024, 0xFFFFFFFF};

uint32_t number(Input &in) { return in.byte() & 1 ? kNumbers[in.byte() % kNumbers.size()] : in.u32(); }

std::string text(Input &in) {
    const uint8_t kind = in.byte();
    size_t length = kind % 24;
    if (kind > 240) length = 4096 + in.byte() * 16;  // oversized
    std::string s(length, 'A');
    for (size_t i = 0; i < std::min<size_t>(length, 32); ++i) s[i] = static_cast<char>(32 + in.byte() % 95);
    return s;
}

std::string argName(Input &in, const Module &m) {
    const uint8_t nameByte = in.byte();
    return nameByte < 224   ? m.args[nameByte % m.args.size()]
           : nameByte < 240 ? kModules[nameByte % kModules.size()].args[0]
                            : text(in);
}

// Mostly the type the method reads (a string for names, an integer array for
// disk lists, an integer otherwise), now and then any type.
void addArg(Input &in, const std::string &name, const CMPIBroker *broker, CMPIArgs *args) {
    const uint8_t type = in.byte();
    const int usual = name == "Name" ? 7 : name == "DiskArray" || name == "Encls" ? 10 : 2;
    switch (type < 176 ? usual : type % 12) {
        case 0: { CMPIUint8 v = static_cast<CMPIUint8>(number(in)); CMAddArg(args, name.c_str(), &v, CMPI_uint8); break; }
        case 1: { CMPIUint16 v = static_cast<CMPIUint16>(number(in)); CMAddArg(args, name.c_str(), &v, CMPI_uint16); break; }
        case 2: case 3: { CMPIUint32 v = number(in); CMAddArg(args, name.c_str(), &v, CMPI_uint32); break; }
        case 4: { CMPIUint64 v = (static_cast<uint64_t>(in.u32()) << 32) | number(in); CMAddArg(args, name.c_str(), &v, CMPI_uint64); break; }
        case 5: { CMPISint32 v = static_cast<CMPISint32>(number(in)); CMAddArg(args, name.c_str(), &v, CMPI_sint32); break; }
        case 6: { CMPIBoolean v = in.byte() & 1; CMAddArg(args, name.c_str(), &v, CMPI_boolean); break; }
        case 7: { const std::string s = text(in); CMAddArg(args, name.c_str(), s.c_str(), CMPI_chars); break; }
        case 8: CMAddArg(args, name.c_str(), nullptr, in.byte() & 1 ? CMPI_uint32 : CMPI_string); break;
        case 9: { CMPIReal64 v = number(in) / 3.0; CMAddArg(args, name.c_str(), &v, CMPI_real64); break; }
        case 10: {  // an array of integers, now and then oversized, with a null element now and then
            const uint8_t kind = in.byte();
            const CMPICount n = kind > 250 ? 2000 + in.byte() * 8 : kind % 6;
            CMPIArray *arr = CMNewArray(broker, n, CMPI_uint32, nullptr);
            if (arr == nullptr) break;
            for (CMPICount i = 0; i < n; ++i) {
                if (i < 64 && (in.byte() % 17) == 0) continue;  // left null
                CMPIUint32 v = i < 64 ? number(in) : i;
                CMSetArrayElementAt(arr, i, &v, CMPI_uint32);
            }
            CMAddArg(args, name.c_str(), &arr, CMPI_uint32A);
            break;
        }
        default: {  // an array of strings
            const CMPICount n = in.byte() % 8;
            CMPIArray *arr = CMNewArray(broker, n, CMPI_string, nullptr);
            if (arr == nullptr) break;
            for (CMPICount i = 0; i < n; ++i) {
                CMPIString *s = CMNewString(broker, text(in).c_str(), nullptr);
                CMSetArrayElementAt(arr, i, &s, CMPI_string);
            }
            CMAddArg(args, name.c_str(), &arr, CMPI_stringA);
            break;
        }
    }
}

struct Setup {
    std::unique_ptr<cimhost::Host> host;
    std::array<CMPIMethodMI *, kModules.size()> modules{};
};

Setup &setup() {
    static Setup s = [] {
        Setup made;
        sim::loadScenario("default");
        sim::useVirtualClock(true);
        sim::captureLog(true);
        cimhost::HostOptions options;
        options.mofPaths = {TOVRA_MOF_DIR};
        options.registrationFile = std::string(TOVRA_MOF_DIR) + "/Tovra.reg";
        options.providerDirs = {TOVRA_PROVIDER_DIR};
        made.host = std::make_unique<cimhost::Host>(options);
        made.host->setPermission("root", 5);
        made.host->enumerateInstanceNames("tovra/cimv2", "Tovra_StoragePool");  // loads the library
        void *lib = dlopen(TOVRA_PROVIDER_DIR "/libTovraProviders.so", RTLD_NOW | RTLD_NOLOAD);
        if (lib == nullptr) __builtin_trap();
        using Factory = CMPIMethodMI *(*)(const CMPIBroker *, const CMPIContext *, CMPIStatus *);
        for (size_t i = 0; i < kModules.size(); ++i) {
            const std::string symbol = std::string("Tovra") + kModules[i].module + "Provider_Create_MethodMI";
            auto factory = reinterpret_cast<Factory>(dlsym(lib, symbol.c_str()));
            if (factory == nullptr) __builtin_trap();
            made.modules[i] = factory(made.host->broker(), nullptr, nullptr);
        }
        dlclose(lib);
        return made;
    }();
    return s;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Setup &s = setup();
    static unsigned calls = 0;
    if (++calls % 256 == 0) sim::loadScenario("default");  // the changes of earlier inputs do not pile up
    Input in(data, size);
    const uint32_t choice = in.u32();
    const Module &m = kModules[choice % kModules.size()];
    const uint32_t methodChoice = (choice >> 8) % 64;
    const char *method = methodChoice < 56 ? m.methods[methodChoice % m.methods.size()]
                                           : kOddNames[methodChoice % kOddNames.size()];
    s.host->setPermission("root", in.byte() % 16 == 0 ? 4 : 5);
    const uint8_t countByte = in.byte();
    const bool wellFormed = countByte < 160;
    const unsigned count = countByte % 14;
    const size_t module = static_cast<size_t>(&m - kModules.data());
    s.host->withRequest([&](const CMPIBroker *broker, const CMPIContext *ctx) {
        const std::vector<const char *> *signature = signatureOf(method);
        direct::invoke(s.modules[module], broker, ctx, "tovra/cimv2", m.cls, method, [&](CMPIArgs *args) {
            if (signature != nullptr && wellFormed) {
                for (const char *name : *signature) addArg(in, name, broker, args);
                return;
            }
            for (unsigned i = 0; i < count && !in.empty(); ++i) addArg(in, argName(in, m), broker, args);
        });
    });
    // Log lines of this input go, so that an input frees what it allocated and
    // the leak check runs only where memory really stays behind.
    sim::clearLog();
    if (sim::openDescriptors() != 0) __builtin_trap();
    if (cimhost::Host::liveRequestObjects() != 0) __builtin_trap();
    return 0;
}
