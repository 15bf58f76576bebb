#include "ControllerSettings.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <string>
#include <vector>

#include "Channel.h"
#include "Platform.h"

namespace tovra {

namespace {

constexpr uint8_t kSettingsCommand = 0x1F;
constexpr uint16_t kSettingsLength = 1024;
constexpr uint16_t kFirmwarePageLength = 527;
constexpr uint16_t kPasswordLength = 17;

// Parameter offsets are message-buffer offsets; the parameters start at 6.
constexpr std::size_t kParamBase = 6;

// [6] 0x08 and [7..14] the signature, shared by every 0x1F request.
void putSignature(std::vector<uint8_t> &params) {
    params[6 - kParamBase] = 0x08;
    std::copy(kAccessSignature.begin(), kAccessSignature.end(), params.begin() + (7 - kParamBase));
}

}  // namespace

const SettingDef *findSetting(std::string_view name) {
    for (const SettingDef &s : kSettings)
        if (name == s.name) return &s;
    return nullptr;
}

void frameSetting(CMD_MESSAGE_FIELD *m, const SettingDef &setting, char form, std::span<const uint8_t> value) {
    std::vector<uint8_t> params(kSettingsLength - 1, 0);
    auto at = [&](std::size_t offset) -> uint8_t & { return params[offset - kParamBase]; };
    putSignature(params);
    at(15) = static_cast<uint8_t>(form);
    std::copy(setting.selector.begin(), setting.selector.end(), &at(16));
    // Form "A" carries a one-byte length at [19]; form "B" leaves [19..20]
    // zero and carries a 16-bit length at [21..22].
    const std::size_t valueAt = form == 'A' ? 20 : 23;
    const std::size_t n = std::min(value.size(), params.size() + kParamBase - valueAt);
    if (form == 'A')
        at(19) = static_cast<uint8_t>(n);
    else
        wire::putLE16(&at(21), static_cast<uint16_t>(n));
    std::copy_n(value.begin(), n, &at(valueAt));
    frameRequest(m, kSettingsCommand, kSettingsLength, params);
}

void framePassword(CMD_MESSAGE_FIELD *m, uint8_t command, std::string_view password) {
    const std::size_t n = std::min(password.size(), kMaxPasswordLength);
    std::vector<uint8_t> params(kPasswordLength - 1, 0);
    params[0] = static_cast<uint8_t>(n);
    std::copy_n(password.begin(), n, params.begin() + 1);
    frameRequest(m, command, kPasswordLength, params);
}

void frameSetIP(CMD_MESSAGE_FIELD *m, const std::array<uint8_t, 4> &address) {
    const uint8_t params[5] = {0, address[0], address[1], address[2], address[3]};
    frameRequest(m, 0x39, 6, params);
}

void frameFirmwarePage(CMD_MESSAGE_FIELD *m, uint16_t page, std::span<const uint8_t> data) {
    std::vector<uint8_t> params(kFirmwarePageLength - 1, 0);
    putSignature(params);
    wire::putLE16(&params[17 - kParamBase], page);
    std::copy_n(data.begin(), std::min(data.size(), kFirmwarePageSize), params.begin() + (19 - kParamBase));
    frameRequest(m, kSettingsCommand, kFirmwarePageLength, params);
}

std::optional<std::array<uint8_t, 4>> parseDottedAddress(std::string_view text) {
    std::array<uint8_t, 4> out{};
    const char *p = text.data();
    const char *end = text.data() + text.size();
    for (std::size_t i = 0; i < out.size(); ++i) {
        if (i > 0) {
            if (p == end || *p != '.') return std::nullopt;
            ++p;
        }
        // Up to three decimal digits; from_chars takes no sign and no blanks.
        const char *digitsEnd = std::find_if(p, std::min(end, p + 4), [](char c) { return c < '0' || c > '9'; });
        if (digitsEnd == p || digitsEnd - p > 3) return std::nullopt;
        unsigned part = 0;
        std::from_chars(p, digitsEnd, part);
        if (part > 255) return std::nullopt;
        out[i] = static_cast<uint8_t>(part);
        p = digitsEnd;
    }
    if (p != end) return std::nullopt;
    return out;
}

namespace {

// The common tail of every settings sender.
bool writeSettingsRequest(CMPIStatus *status, int fd, CMD_MESSAGE_FIELD *request, const char *sender) {
    const bool sent = sendRequest(fd, request);
    if (!sent) *status = failedStatus();
    logAlert("%s: Ending(0x%x)\n", sender, status->rc);
    return sent;
}

bool sendSettingAs(CMPIStatus *status, int fd, CMD_MESSAGE_FIELD *request, const SettingDef &setting, char form,
                   std::span<const uint8_t> bytes, const char *sender) {
    frameSetting(request, setting, form, bytes);
    return writeSettingsRequest(status, fd, request, sender);
}

}  // namespace

}  // namespace tovra

using tovra::writeSettingsRequest;

bool SendCheckPassword(CMPIStatus *status, int fd, CMD_MESSAGE_FIELD *request, std::string_view password) {
    tovra::framePassword(request, 0x14, password);
    return writeSettingsRequest(status, fd, request, "SendCheckPassword");
}

bool SendSetPassword(CMPIStatus *status, int fd, CMD_MESSAGE_FIELD *request, std::string_view password) {
    tovra::framePassword(request, 0x32, password);
    return writeSettingsRequest(status, fd, request, "SendSetPassword");
}

bool SendMuteBeeper(CMPIStatus *status, int fd, CMD_MESSAGE_FIELD *request) {
    tovra::frameRequest(request, 0x30, 1);
    return writeSettingsRequest(status, fd, request, "SendMuteBeeper");
}

bool SendSetBeeper(CMPIStatus *status, int fd, CMD_MESSAGE_FIELD *request, uint8_t setting) {
    const uint8_t params[1] = {setting};
    tovra::frameRequest(request, 0x31, 2, params);
    return writeSettingsRequest(status, fd, request, "SendSetBeeper");
}

bool SendSetMode(CMPIStatus *status, int fd, CMD_MESSAGE_FIELD *request, uint8_t mode) {
    const uint8_t params[1] = {mode};
    tovra::frameRequest(request, 0x33, 2, params);
    return writeSettingsRequest(status, fd, request, "SendSetMode");
}

bool SendSetIP(CMPIStatus *status, int fd, CMD_MESSAGE_FIELD *request, const std::array<uint8_t, 4> &address) {
    tovra::frameSetIP(request, address);
    return writeSettingsRequest(status, fd, request, "SendSetIP");
}

bool SendSetUpdateFW(CMPIStatus *status, int fd, CMD_MESSAGE_FIELD *request, uint16_t page,
                     std::span<const uint8_t> data) {
    tovra::frameFirmwarePage(request, page, data);
    return writeSettingsRequest(status, fd, request, "SendSetUpdateFW");
}

#define TOVRA_SETTING_SENDERS(Name, s16, s17, s18, width, form, value)                                    \
    bool SendSet##Name##_A(CMPIStatus *status, int fd, CMD_MESSAGE_FIELD *request,                     \
                           std::span<const uint8_t> bytes) {                                           \
        return tovra::sendSettingAs(status, fd, request, *tovra::findSetting(#Name), 'A', bytes,       \
                                    "SendSet" #Name "_A");                                             \
    }                                                                                                  \
    bool SendSet##Name##_B(CMPIStatus *status, int fd, CMD_MESSAGE_FIELD *request,                     \
                           std::span<const uint8_t> bytes) {                                           \
        return tovra::sendSettingAs(status, fd, request, *tovra::findSetting(#Name), 'B', bytes,       \
                                    "SendSet" #Name "_B");                                             \
    }
TOVRA_CONTROLLER_SETTINGS(TOVRA_SETTING_SENDERS)
#undef TOVRA_SETTING_SENDERS

bool SendSetting(CMPIStatus *status, int fd, CMD_MESSAGE_FIELD *request, const tovra::SettingDef &setting,
                 std::span<const uint8_t> bytes) {
    const std::string sender = std::string("SendSet") + setting.name + "_" + setting.form;
    return tovra::sendSettingAs(status, fd, request, setting, setting.form, bytes, sender.c_str());
}
