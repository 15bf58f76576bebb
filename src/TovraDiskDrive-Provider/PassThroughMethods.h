// The pass-through disk methods of "Tovra_DiskDrive": the requests 0x40 to
// 0x42, their operations, and the method bodies with their argument checks.
#pragma once

#include <cmpidt.h>

#include <cstdint>

#include "Wire.h"

bool SendCreatePassThrough(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *pcmdmessagefld, uint8_t enc, uint8_t disk,
                           uint8_t id, uint8_t lun, uint8_t tag, uint8_t cache);
bool SendModifyPassThrough(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *pcmdmessagefld, uint8_t enc, uint8_t disk,
                           uint8_t id, uint8_t lun, uint8_t tag, uint8_t cache);
bool SendDeletePassThrough(CMPIStatus *rc, int fd, CMD_MESSAGE_FIELD *pcmdmessagefld, uint8_t enc, uint8_t disk);

CMPIStatus CreatePassThrough(const CMPIBroker *broker, int fd, uint8_t enc, uint8_t disk, uint8_t id, uint8_t lun,
                             uint8_t tag, uint8_t cache);
CMPIStatus ModifyPassThrough(const CMPIBroker *broker, int fd, uint8_t enc, uint8_t disk, uint8_t id, uint8_t lun,
                             uint8_t tag, uint8_t cache);
CMPIStatus DeletePassThrough(const CMPIBroker *broker, int fd, uint8_t enc, uint8_t disk);

// The module's own methods; any other name answers success with no value.
CMPIStatus invokePassThroughMethod(const CMPIBroker *broker, const CMPIContext *ctx, const CMPIResult *rslt,
                                   const char *method, const CMPIArgs *in);
