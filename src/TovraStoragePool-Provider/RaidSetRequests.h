// The RAID set and hot spare requests of the storage pool methods and the
// operations that send one of them and read its one-letter result.
// RAID set, enclosure and disk numbers are 1-based here; the frames carry
// them 0-based where the firmware wants that.
#pragma once

#include <cmpidt.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "Wire.h"

// An expand request states its number of new members in one byte.
inline constexpr std::size_t kMaxExpandMembers = 255;

bool SendCreateRAIDs(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *pcmdmessagefld, uint8_t disk_num,
                     const std::string &name, uint8_t enc, const std::vector<uint8_t> &disk, uint8_t mode);
bool SendDeleteRAIDs(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *pcmdmessagefld, uint8_t raid_no);
// More than kMaxExpandMembers members: nothing is sent, status 1, false.
bool SendExpandRAIDs(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *pcmdmessagefld, uint8_t raid_no,
                     std::size_t memberdisks, const std::vector<uint8_t> &diskArray,
                     const std::vector<uint8_t> &encArray);
bool SendOffLineRAIDs(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *pcmdmessagefld, uint8_t raid_no);
bool SendActivateRAIDs(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *pcmdmessagefld, uint8_t raid_no);
bool SendCreateHotSpare(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *pcmdmessagefld, uint8_t enc, uint8_t disk,
                        uint8_t type, uint8_t raid_no);
bool SendDeleteHotSpare(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *pcmdmessagefld, uint8_t enc, uint8_t disk);

// `enc` of CreateRAIDSet is already 0-based (the method subtracts 1).
CMPIStatus CreateRAIDSet(const CMPIBroker *broker, int fd, uint8_t disk_num, const std::string &name, uint8_t enc,
                         const std::vector<uint8_t> &disk, uint8_t mode);
CMPIStatus DeleteRAIDSet(const CMPIBroker *broker, int fd, uint8_t raid_no);
CMPIStatus ExpandRAIDSet(const CMPIBroker *broker, int fd, uint8_t raid_no, std::size_t memberdisks,
                         const std::vector<uint8_t> &diskArray, const std::vector<uint8_t> &encArray);
CMPIStatus OffLineRAIDSet(const CMPIBroker *broker, int fd, uint8_t raid_no);
CMPIStatus ActivateRAIDSet(const CMPIBroker *broker, int fd, uint8_t raid_no);
CMPIStatus CreateHotSpare(const CMPIBroker *broker, int fd, uint8_t enc, uint8_t disk, uint8_t type,
                          uint8_t raid_no);
CMPIStatus DeleteHotSpare(const CMPIBroker *broker, int fd, uint8_t enc, uint8_t disk);
