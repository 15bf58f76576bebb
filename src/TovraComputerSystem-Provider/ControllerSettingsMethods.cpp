#include "ControllerSettingsMethods.h"

#include "ControllerSettings.h"
#include "FirmwareImage.h"
#include "MethodCommand.h"

#include <string>
#include <string_view>
#include <vector>

namespace tovra {

namespace {

// Other modules whose published data come from the system information
// (address, firmware version); those without a method provider ignore the
// reset, and their caches age as usual.
constexpr std::initializer_list<const char *> kInfoReaders = {"Tovra_PortController", "Tovra_SoftwareIdentity"};
constexpr std::initializer_list<const char *> kNoReaders = {};

const CommandPlan kSettingsCommand{ParseSySCommandCode};

// One method call: its argument checks with messages that name the method and
// the argument, and its firmware command.
class Method {
public:
    explicit Method(const SettingsCall &call)
        : call_(call), name_(call.method != nullptr ? call.method : ""), args_(call.in) {}

    void expectArgs(unsigned count) const { requireArgCount(name_.c_str(), args_.count(), count); }

    uint32_t number(const char *arg, uint32_t min, uint32_t max) const {
        const uint32_t v = args_.number(arg, missing(arg).c_str(), wrongType(arg, "an integer").c_str());
        if (v < min || v > max)
            fail(arg, "is outside " + std::to_string(min) + " to " + std::to_string(max) + ".");
        return v;
    }

    std::string text(const char *arg) const {
        return args_.text(arg, missing(arg).c_str(), wrongType(arg, "a string").c_str());
    }

    std::array<uint8_t, 4> address(const char *arg) const {
        const std::string value = text(arg);
        const auto parsed = parseDottedAddress(value);
        if (!parsed) fail(arg, "is not a dotted IPv4 address: \"" + value + "\".");
        return *parsed;
    }

    std::string password(const char *arg) const {
        std::string value = text(arg);
        if (value.size() > kMaxPasswordLength)
            fail(arg, "is longer than " + std::to_string(kMaxPasswordLength) + " characters.");
        return value;
    }

    // The device, one command (or several, for `run`) and the method's tail.
    // A change that shows in the system information makes the caches that
    // publish it stale.
    template <class Operation> CMPIStatus onDevice(bool altersInfo, Operation &&operation) const {
        const std::string openFailed = name_ + ": File Open Failed.";
        return deviceMethod(call_.broker, call_.ctx, call_.rslt, openFailed.c_str(),
                            altersInfo ? kInfoReaders : kNoReaders, [&](int fd) {
                                CMPIStatus st = operation(fd);
                                if (altersInfo) call_.staleOwnCaches();
                                return st;
                            });
    }

    template <class Send> CMPIStatus command(bool altersInfo, Send &&send) const {
        return onDevice(altersInfo, [&](int fd) { return runCommand(call_.broker, fd, name_.c_str(), kSettingsCommand, send); });
    }

    const SettingsCall &call() const { return call_; }
    const std::string &name() const { return name_; }

    [[noreturn]] void fail(const char *arg, const std::string &what) const {
        throw MethodFailure(CMPI_RC_ERR_FAILED, "Argument " + std::string(arg) + " in " + name_ + " Method Command " + what);
    }

private:
    std::string missing(const char *arg) const {
        return "Argument " + std::string(arg) + " not present in " + name_ + " Method Command.";
    }
    std::string wrongType(const char *arg, const char *type) const {
        return "Argument " + std::string(arg) + " in " + name_ + " Method Command is not " + type + ".";
    }

    const SettingsCall &call_;
    std::string name_;
    ArgReader args_;
};

CMPIStatus passwordMethod(const Method &m, bool set) {
    m.expectArgs(1);
    const std::string password = m.password("Password");
    return m.command(false, [&](CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *request) {
        return set ? SendSetPassword(rc, fd, request, password) : SendCheckPassword(rc, fd, request, password);
    });
}

CMPIStatus setIPAddress(const Method &m) {
    m.expectArgs(1);
    const auto address = m.address("Address");
    return m.command(true, [&](CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *request) {
        return SendSetIP(rc, fd, request, address);
    });
}

CMPIStatus muteBeeper(const Method &m) {
    m.expectArgs(0);
    return m.command(false, [](CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *request) {
        return SendMuteBeeper(rc, fd, request);
    });
}

CMPIStatus setBeeper(const Method &m) {
    m.expectArgs(1);
    const auto value = static_cast<uint8_t>(m.number("Beeper", 0, 255));
    return m.command(true, [&](CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *request) {
        return SendSetBeeper(rc, fd, request, value);
    });
}

CMPIStatus setMode(const Method &m) {
    m.expectArgs(1);
    const auto value = static_cast<uint8_t>(m.number("Mode", 0, 255));
    return m.command(false, [&](CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *request) {
        return SendSetMode(rc, fd, request, value);
    });
}

// The argument of a 0x1F setting as its value bytes.
std::vector<uint8_t> settingBytes(const Method &m, const SettingDef &s) {
    switch (s.value) {
        case SettingValue::Address: {
            const auto a = m.address("Value");
            return {a.begin(), a.end()};
        }
        case SettingValue::Port: {
            const uint32_t port = m.number("Value", 1, 65535);
            return {static_cast<uint8_t>(port), static_cast<uint8_t>(port >> 8)};
        }
        case SettingValue::Byte:
            return {static_cast<uint8_t>(m.number("Value", 0, 255))};
        case SettingValue::Minus128:
            return {static_cast<uint8_t>(m.number("Value", 128, 383) - 128)};
    }
    return {};
}

CMPIStatus setSetting(const Method &m, const SettingDef &s) {
    m.expectArgs(1);
    const std::vector<uint8_t> bytes = settingBytes(m, s);
    return m.command(s.value == SettingValue::Address, [&](CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *request) {
        return SendSetting(rc, fd, request, s, bytes);
    });
}

// Sends the image page by page and stops at the first page the adapter does
// not accept; "PagesAccepted" tells how far it got.
CMPIStatus updateFirmware(const Method &m) {
    m.expectArgs(1);
    const std::string path = m.text("FileName");
    FirmwareImage image;
    std::string error;
    if (!loadFirmwareImage(path, image, error)) m.fail("FileName", error);
    return m.onDevice(true, [&](int fd) {
        CMPIStatus st = okStatus();
        CMPIUint32 accepted = 0;
        for (std::size_t page = 0; page < image.pageCount(); ++page) {
            st = runCommand(m.call().broker, fd, m.name().c_str(), kSettingsCommand,
                            [&](CMPIStatus *rc, int device, CMD_MESSAGE_FIELD *request) {
                                return SendSetUpdateFW(rc, device, request, static_cast<uint16_t>(page),
                                                       image.page(page));
                            });
            if (st.rc != CMPI_RC_OK || st.msg == nullptr) break;
            ++accepted;
        }
        CMAddArg(m.call().out, "PagesAccepted", &accepted, CMPI_uint32);
        return st;
    });
}

// The cache lifetime of every module; the next freshness test of each cache
// uses the new value. No firmware command.
CMPIStatus setWaTP(const Method &m) {
    m.expectArgs(1);
    WaTP = m.number("Seconds", kMinCacheLifetime, kMaxCacheLifetime);
    CMReturnData(m.call().rslt, "OK", CMPI_chars);
    CMReturnDone(m.call().rslt);
    return okStatus();
}

}  // namespace

CMPIStatus invokeControllerSettingsMethod(const SettingsCall &call) {
    const std::string_view name = call.method != nullptr ? call.method : "";
    const Method m(call);
    if (name == "CheckPassword") return passwordMethod(m, false);
    if (name == "SetPassword") return passwordMethod(m, true);
    if (name == "SetIPAddress") return setIPAddress(m);
    if (name == "MuteBeeper") return muteBeeper(m);
    if (name == "SetBeeper") return setBeeper(m);
    if (name == "SetMode") return setMode(m);
    if (name == "UpdateFirmware") return updateFirmware(m);
    if (name == "SetWaTP") return setWaTP(m);
    if (name.starts_with("Set"))
        if (const SettingDef *s = findSetting(name.substr(3))) return setSetting(m, *s);
    CMReturnDone(call.rslt);
    return okStatus();
}

}  // namespace tovra
