// The adapter's SAS/SATA ports, from the system information reply: the port
// count (gsiScsiHostChannels), the negotiated link rate code (gsiChannelUsage,
// the SAS rate codes 0x8 to 0xB) and the adapter's SAS address (gsiSasAddress).
#pragma once

#include "Controller.h"

#include <cstdint>
#include <string>

struct AdapterPortInfo {
    uint8_t Ports;         // at least 1
    uint8_t LinkRateCode;  // 0x8 1.5, 0x9 3.0, 0xA 6.0, 0xB 12.0 Gbit/s; else unknown
    uint64_t SasAddress;
};

namespace tovra {

void decodeAdapterPorts(const uint8_t *payload, AdapterPortInfo *ports);
// "6.0 Gbit/s", or "Unknown" for a code that is not a SAS link rate.
const char *linkRateText(uint8_t code);
// The link rate in bits per second; 0 when unknown.
uint64_t linkRateBitsPerSecond(uint8_t code);
// The 0-based port an enclosure is cabled to: enclosure 0 (the adapter's own
// backplane) to the first port, each further enclosure to the next port, the
// remaining enclosures chained behind the last one.
unsigned portOfEnclosure(unsigned enclosure, unsigned ports);
// Sixteen upper-case hexadecimal digits.
std::string sasAddressText(uint64_t address);

}  // namespace tovra

bool ParseSASPortInfo(CMPIStatus *status, int fd, CMD_MESSAGE_FIELD *cmdmessagefld,
                      CMD_MESSAGE_FIELD *tmpcmdmessagefld, AdapterPortInfo *ports);
bool EnumTovraSASPortInfo(CMPIStatus *status, int fd, AdapterPortInfo *ports);
