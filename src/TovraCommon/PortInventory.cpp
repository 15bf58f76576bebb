#include "PortInventory.h"

#include <algorithm>
#include <cstdio>

namespace tovra {

namespace {

constexpr std::size_t kChannelUsage = 160;
constexpr std::size_t kScsiHostChannels = 175;
constexpr std::size_t kSasAddress = 200;

struct LinkRate {
    uint8_t code;
    const char *text;
    uint64_t bitsPerSecond;
};

constexpr LinkRate kLinkRates[] = {
    {0x8, "1.5 Gbit/s", 1'500'000'000ULL},
    {0x9, "3.0 Gbit/s", 3'000'000'000ULL},
    {0xA, "6.0 Gbit/s", 6'000'000'000ULL},
    {0xB, "12.0 Gbit/s", 12'000'000'000ULL},
};

const LinkRate *rateOf(uint8_t code) {
    for (const LinkRate &r : kLinkRates)
        if (r.code == code) return &r;
    return nullptr;
}

}  // namespace

void decodeAdapterPorts(const uint8_t *p, AdapterPortInfo *ports) {
    ports->Ports = std::max<uint8_t>(p[kScsiHostChannels], 1);
    ports->LinkRateCode = p[kChannelUsage];
    ports->SasAddress = wire::getLE64(p + kSasAddress);
}

const char *linkRateText(uint8_t code) {
    const LinkRate *r = rateOf(code);
    return r != nullptr ? r->text : "Unknown";
}

uint64_t linkRateBitsPerSecond(uint8_t code) {
    const LinkRate *r = rateOf(code);
    return r != nullptr ? r->bitsPerSecond : 0;
}

unsigned portOfEnclosure(unsigned enclosure, unsigned ports) {
    return ports == 0 ? 0 : std::min(enclosure, ports - 1);
}

std::string sasAddressText(uint64_t address) {
    char text[17];
    std::snprintf(text, sizeof text, "%016llX", static_cast<unsigned long long>(address));
    return text;
}

}  // namespace tovra

using namespace tovra;

bool ParseSASPortInfo(CMPIStatus *status, int fd, CMD_MESSAGE_FIELD *cmdmessagefld,
                      CMD_MESSAGE_FIELD *tmpcmdmessagefld, AdapterPortInfo *ports) {
    if (!readInventoryReply(status, fd, cmdmessagefld, tmpcmdmessagefld, "ParseSASPortInfo")) return false;
    decodeAdapterPorts(replyPayload(cmdmessagefld), ports);
    return true;
}

bool EnumTovraSASPortInfo(CMPIStatus *status, int fd, AdapterPortInfo *ports) {
    return exchangeWithRetry(
        status, "EnumTovraSASPortInfo", [&](CMD_MESSAGE_FIELD *request) { return SendInfoS(status, fd, request); },
        [&](CMD_MESSAGE_FIELD *reassembly, CMD_MESSAGE_FIELD *reply) {
            return ParseSASPortInfo(status, fd, reassembly, reply, ports);
        });
}
