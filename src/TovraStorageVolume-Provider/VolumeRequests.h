// The volume set requests of the storage volume methods and the operations
// that send one of them and read its one-letter result. RAID set and volume
// numbers are 1-based here and 0-based in the frames; level and stripe are
// the firmware's codes.
#pragma once

#include <cmpidt.h>

#include <cstdint>
#include <string>

#include "Wire.h"

// Capacity in units of 10^9 bytes as a count of 512-byte blocks, computed in
// double precision as the management software always has.
uint64_t capacityBlocks(uint32_t cap);

bool SendCreateVolume(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *pcmdmessagefld, uint8_t raid_no,
                      const std::string &name, uint64_t capacity, uint8_t level, uint8_t stripe, uint8_t id,
                      uint8_t lun, uint8_t tag, uint8_t cache, uint8_t fginit, uint8_t gt2tb, uint8_t entype);
bool SendModifyVolume(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *pcmdmessagefld, uint8_t vol_no,
                      const std::string &name, uint8_t level, uint64_t capacity, uint8_t stripe, uint8_t id,
                      uint8_t lun, uint8_t tag, uint8_t cache);
bool SendDeleteVolume(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *pcmdmessagefld, uint8_t vol_no);

CMPIStatus CreateVolume(const CMPIBroker *broker, int fd, uint8_t raid_no, const std::string &name, uint32_t cap,
                        uint8_t level, uint8_t stripe, uint8_t id, uint8_t lun, uint8_t tag, uint8_t cache,
                        uint8_t fg, uint8_t gt2tb, uint8_t encyp);
CMPIStatus ModifyVolume(const CMPIBroker *broker, int fd, uint8_t vol_no, const std::string &name, uint8_t level,
                        uint32_t capacity, uint8_t stripe, uint8_t id, uint8_t lun, uint8_t tag, uint8_t cache);
CMPIStatus DeleteVolume(const CMPIBroker *broker, int fd, uint8_t vol_no);
