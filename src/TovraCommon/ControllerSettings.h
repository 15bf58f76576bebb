// The controller settings commands: password check and change, beeper, mode,
// management address, firmware pages and the 0x1F settings in their two forms.
// Framing is kept apart from sending so the exact bytes can be checked without
// a device.
#pragma once

#include <cmpidt.h>

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "Wire.h"

namespace tovra {

// How a method argument becomes the value bytes of a setting.
enum class SettingValue : uint8_t {
    Address,   // dotted IPv4 text, the four bytes in the order written
    Port,      // 1..65535, little-endian
    Byte,      // 0..255 as it stands
    Minus128,  // 128..383, sent as the argument minus 128
};

// The 0x1F settings. One line per setting: its selector bytes [16] [17] [18],
// the value width on the wire, the form its method sends ("B" for the
// multi-byte values, whose 16-bit length field fits them naturally; "A" for
// the one-byte options), and how the argument is turned into the value.
// Both senders exist for every setting (SendSet<Setting>_A, _B).
#define TOVRA_CONTROLLER_SETTINGS(X)                       \
    X(NetMask, 0x01, 0x14, 0x00, 4, B, Address)            \
    X(Gateway, 0x01, 0x88, 0x00, 4, B, Address)            \
    X(NCQ, 0x01, 0x9B, 0x00, 1, A, Byte)                   \
    X(DiskCache, 0x01, 0x9F, 0x00, 1, A, Byte)             \
    X(Truncation, 0x01, 0xEF, 0x00, 1, A, Byte)            \
    X(CPUFan, 0x01, 0xF9, 0x00, 1, A, Byte)                \
    X(HttpPort, 0x01, 0xD6, 0x00, 2, B, Port)              \
    X(TelnetPort, 0x01, 0xF0, 0x00, 2, B, Port)            \
    X(SMTPPort, 0x01, 0x02, 0x03, 2, B, Port)              \
    X(HDDReadAhead, 0x01, 0x01, 0x03, 1, A, Byte)          \
    X(HDDLED, 0x01, 0x08, 0x03, 1, A, Byte)                \
    X(AutoActivate, 0x01, 0x0C, 0x03, 1, A, Byte)          \
    X(HDDQdepth, 0x01, 0x14, 0x03, 1, A, Byte)             \
    X(SASMux, 0x01, 0x15, 0x03, 1, A, Byte)                \
    X(VolReadAhead, 0x01, 0x17, 0x03, 1, A, Byte)          \
    X(SES2Support, 0x01, 0x18, 0x03, 1, A, Byte)           \
    X(MAXCMDLen, 0x01, 0x27, 0x03, 1, A, Minus128)         \
    X(WriteSame, 0x01, 0x34, 0x03, 1, A, Byte)             \
    X(HPDRebuilding, 0x01, 0x36, 0x03, 1, A, Byte)

struct SettingDef {
    const char *name;
    std::array<uint8_t, 3> selector;
    uint8_t width;
    char form;  // 'A' or 'B'
    SettingValue value;
};

inline constexpr SettingDef kSettings[] = {
#define TOVRA_SETTING_ROW(Name, s16, s17, s18, width, form, value) \
    {#Name, {s16, s17, s18}, width, #form[0], SettingValue::value},
    TOVRA_CONTROLLER_SETTINGS(TOVRA_SETTING_ROW)
#undef TOVRA_SETTING_ROW
};

const SettingDef *findSetting(std::string_view name);

// The access signature of the 0x1F requests, eight bytes without terminator.
inline constexpr std::array<uint8_t, 8> kAccessSignature = {'K', 'e', 'L', 'p', 'O', 'r', 'I', 'n'};

// Longest password the 17-byte frame carries (bytes 7..21).
inline constexpr std::size_t kMaxPasswordLength = 15;
// Data bytes of one firmware page.
inline constexpr std::size_t kFirmwarePageSize = 512;

// Framing, no I/O. Each zeroes the message buffer first.
void frameSetting(CMD_MESSAGE_FIELD *m, const SettingDef &setting, char form, std::span<const uint8_t> value);
// 0x14 or 0x32; the password is cut at kMaxPasswordLength.
void framePassword(CMD_MESSAGE_FIELD *m, uint8_t command, std::string_view password);
void frameSetIP(CMD_MESSAGE_FIELD *m, const std::array<uint8_t, 4> &address);
void frameFirmwarePage(CMD_MESSAGE_FIELD *m, uint16_t page, std::span<const uint8_t> data);

// Four decimal parts 0..255 separated by dots, nothing else.
std::optional<std::array<uint8_t, 4>> parseDottedAddress(std::string_view text);

}  // namespace tovra

// Senders: frame into the caller's zeroed buffer, stamp t1, write; each logs
// "<sender>: Ending(<status>)" after the write and sets the status to 1 when
// it fails.
bool SendCheckPassword(CMPIStatus *status, int fd, CMD_MESSAGE_FIELD *request, std::string_view password);
bool SendSetPassword(CMPIStatus *status, int fd, CMD_MESSAGE_FIELD *request, std::string_view password);
bool SendMuteBeeper(CMPIStatus *status, int fd, CMD_MESSAGE_FIELD *request);
bool SendSetBeeper(CMPIStatus *status, int fd, CMD_MESSAGE_FIELD *request, uint8_t setting);
bool SendSetMode(CMPIStatus *status, int fd, CMD_MESSAGE_FIELD *request, uint8_t mode);
bool SendSetIP(CMPIStatus *status, int fd, CMD_MESSAGE_FIELD *request, const std::array<uint8_t, 4> &address);
bool SendSetUpdateFW(CMPIStatus *status, int fd, CMD_MESSAGE_FIELD *request, uint16_t page,
                     std::span<const uint8_t> data);

#define TOVRA_SETTING_SENDERS(Name, s16, s17, s18, width, form, value)                                 \
    bool SendSet##Name##_A(CMPIStatus *status, int fd, CMD_MESSAGE_FIELD *request,                  \
                           std::span<const uint8_t> bytes);                                         \
    bool SendSet##Name##_B(CMPIStatus *status, int fd, CMD_MESSAGE_FIELD *request,                  \
                           std::span<const uint8_t> bytes);
TOVRA_CONTROLLER_SETTINGS(TOVRA_SETTING_SENDERS)
#undef TOVRA_SETTING_SENDERS

// The sender a setting's method uses (its own form), by table entry.
bool SendSetting(CMPIStatus *status, int fd, CMD_MESSAGE_FIELD *request, const tovra::SettingDef &setting,
                 std::span<const uint8_t> bytes);
