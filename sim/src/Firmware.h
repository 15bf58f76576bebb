// The adapter firmware: decodes one request frame, applies it to the model and
// returns the reply payload (data, or a one-letter result).
#pragma once

#include <cstdint>
#include <string>

#include "Frame.h"
#include "tovrasim/Model.h"

namespace tovra::sim {

// A verified request frame inside the 1032-byte message buffer.
struct Request {
    const uint8_t *buf;
    uint16_t len;
    uint8_t cmd() const { return buf[5]; }
    uint8_t at(std::size_t i) const;
};

struct Outcome {
    Bytes payload;
    bool changed = false;  // the model was modified (persist it)
};

// What one command handler sees.
struct Context {
    Model &model;
    const Request &req;
    uint32_t now;  // seconds, for event time stamps
    void event(uint8_t severity, const std::string &device, const std::string &message);
};

Outcome runFirmware(Model &model, const Request &req, uint32_t now);

// Answers to the two driver calls.
Bytes driverInfoPayload(const Model &model);
Bytes pciInfoPayload(const Model &model);

// Command areas, each called for its own codes.
Outcome inventoryCommand(Context &ctx);    // 0x13, 0x20, 0x21, 0x22, 0x23
Outcome enclosureCommand(Context &ctx);    // 0x1B
Outcome eventCommand(Context &ctx);        // 0x19, 0x1A, 0x24
Outcome passThroughCommand(Context &ctx);  // 0x40 to 0x42
Outcome raidSetCommand(Context &ctx);      // 0x50 to 0x56
Outcome volumeCommand(Context &ctx);       // 0x60 to 0x62
Outcome settingsCommand(Context &ctx);     // 0x14, 0x1F, 0x30 to 0x33, 0x39

// The 0x1F firmware page (length 527).
Outcome firmwarePage(Context &ctx);
// NetMask and Gateway in the reserved bytes 216..223 of the system information.
void putNetworkSettings(const Model &model, PayloadWriter &w);

inline Outcome reply(char c, bool changed = false) { return Outcome{letter(c), changed}; }
inline Outcome data(Bytes payload) { return Outcome{std::move(payload), false}; }

// Result letters.
namespace result {
inline constexpr char Ok = 'A';
inline constexpr char RaidSetNotNormal = 'B';
inline constexpr char VolumeNotNormal = 'C';
inline constexpr char NoRaidSet = 'D';
inline constexpr char NoVolume = 'E';
inline constexpr char NoDisk = 'F';
inline constexpr char BadParameter = 'G';
inline constexpr char Unsupported = 'H';
inline constexpr char BadPassword = 'J';
inline constexpr char NoSpace = 'K';
inline constexpr char BadChecksum = 'L';
inline constexpr char PasswordRequired = 'M';
inline constexpr char FirmwareCrc = 'P';
inline constexpr char FirmwareInvalid = 'Q';
inline constexpr char FirmwareFailed = 'R';
inline constexpr char EndOfData = 'T';
}  // namespace result

inline constexpr unsigned kEventLogSize = 256;

// Adds an event as the newest of the log, which keeps its last kEventLogSize.
void logEvent(Model &model, uint32_t now, uint8_t severity, const std::string &device, const std::string &message);

// "Raid Set # 000", or "RaidSet #<n>" for a set without a name.
std::string setLabel(const RaidSet &rs, unsigned no);

// "Enc1 Slot3" style device text for events (1-based, as an administrator reads it).
inline std::string diskLabel(unsigned enc, unsigned slot) {
    return "Enc" + std::to_string(enc + 1) + " Slot" + std::to_string(slot + 1);
}

}  // namespace tovra::sim
