// The adapter's identity (system information), the firmware and driver
// versions and the PCI link state, with lookups and record accessors.
#pragma once

#include "Channel.h"

#include <cstddef>
#include <cstdint>

struct DiskInfo;
struct EnclosureInfo;
struct RAIDSetInfo;
struct VolumeInfo;

// CreationClassName of the controller system: the SystemCreationClassName key
// of every device of the adapter.
inline constexpr const char SystemCreationClassName[] = "Tovra_RAIDControllerSystem";

// Text fields are NUL-terminated with trailing white space removed.
struct ControllerInfo {
    char ModelName[8 + 1];
    char BootVersion[16 + 1];
    char FirmVersion[16 + 1];
    char VendorName[40 + 1];
    char SerialNumber[16 + 1];
    char MbVersion[16 + 1];
    unsigned char LocalIp[4];
    unsigned char CurrentIp[4];
    unsigned char MacAddress[6];
    char ModelNameExt[8 + 1];
    // The 8 bytes of ModelName then the 8 bytes of ModelNameExt, NUL at 16.
    // A model name shorter than 8 characters leaves its NUL inside the first
    // half, so the full name then reads as the model name alone.
    char ModelFullName[32];
    uint32_t ICache;
    uint32_t DCache;
    uint32_t MemorySize;
    uint32_t MemorySpeed;
};

// A firmware or driver version. The driver's texts are copied as they come;
// the extra byte keeps a full-width text terminated.
struct SoftwareInfo {
    char header[5];
    char version[32 + 1];
    char name[8 + 1];
};

// The PCI link state as the driver reports it.
struct PCIInfo {
    char header[5];
    char width[16 + 1];
    char speed[16 + 1];
};

namespace tovra {

// Decoders of the reply payloads (the bytes from frame offset 5 on).
void decodeSystemInfo(const uint8_t *payload, ControllerInfo *info);
void decodeFirmwareInfo(const uint8_t *payload, SoftwareInfo *info);
void decodeDriverInfo(const uint8_t *payload, SoftwareInfo *info);
void decodePciInfo(const uint8_t *payload, PCIInfo *info);

}  // namespace tovra

// Request 0x23 (system information).
bool SendInfoS(CMPIStatus *status, int fd, CMD_MESSAGE_FIELD *pcmdmessagefld);
bool ParseComputerSystem(CMPIStatus *status, int fd, CMD_MESSAGE_FIELD *cmdmessagefld,
                         CMD_MESSAGE_FIELD *tmpcmdmessagefld, ControllerInfo *current_controllers);
bool ParsePortController(CMPIStatus *status, int fd, CMD_MESSAGE_FIELD *cmdmessagefld,
                         CMD_MESSAGE_FIELD *tmpcmdmessagefld, ControllerInfo *current_controllers);
bool ParseFirmwareInfo(CMPIStatus *status, int fd, CMD_MESSAGE_FIELD *cmdmessagefld,
                       CMD_MESSAGE_FIELD *tmpcmdmessagefld, SoftwareInfo *software);
// Driver requests: 0x02 is sent and read with ioctl 0xC4244102; 0x03 is sent
// with 0xC4244103 and read with the ordinary read ioctl.
bool SendDriverInfo(CMPIStatus *status, int fd, CMD_MESSAGE_FIELD *pcmdmessagefld);
bool ParseDriverInfo(CMPIStatus *status, int fd, CMD_MESSAGE_FIELD *cmdmessagefld,
                     CMD_MESSAGE_FIELD *tmpcmdmessagefld, SoftwareInfo *software);
bool SendPCIInfo(CMPIStatus *status, int fd, CMD_MESSAGE_FIELD *pcmdmessagefld);
bool ParsePCIInfo(CMPIStatus *status, int fd, CMD_MESSAGE_FIELD *cmdmessagefld, CMD_MESSAGE_FIELD *tmpcmdmessagefld,
                  PCIInfo *pci);

// Whole exchanges with the retry rule, under Mutex4IOCTL.
bool EnumTovraComputerSystemInfo(CMPIStatus *status, int fd, ControllerInfo *current_controllers);
bool EnumTovraControllerInfo(CMPIStatus *status, int fd, ControllerInfo *current_controllers);
bool EnumTovraPortControllerInfo(CMPIStatus *status, int fd, ControllerInfo *current_controllers);
bool EnumTovraFirmwareInfo(CMPIStatus *status, int fd, SoftwareInfo *software);
bool EnumTovraDriverInfo(CMPIStatus *status, int fd, SoftwareInfo *software);
bool EnumTovraPCIInfo(CMPIStatus *status, int fd, PCIInfo *pci);

// True when the controller's serial number equals `serial`, or when the
// controller reports no serial number at all; false for an empty request.
bool LookupControllerBySerialNumber(CMPIStatus *status, int fd, const char *serial,
                                    ControllerInfo *current_controllers);
// True for any non-empty identity while the driver or firmware version can be
// read; otherwise true when a disk's serial number occurs inside `id`.
bool LookupSoftwareIdentityByID(CMPIStatus *status, int fd, const char *id, ControllerInfo *current_controllers,
                                EnclosureInfo *enclosure_info, SoftwareInfo *software, DiskInfo *disks_info);

// Accessors: pointers into the record given.
char *GetControllerModelName(ControllerInfo *c);
const char *GetControllerModelName(const ControllerInfo *c);
char *GetControllerSerialNumber(ControllerInfo *c);
const char *GetControllerSerialNumber(const ControllerInfo *c);
unsigned char *GetCurrentIp(ControllerInfo *c);
const unsigned char *GetCurrentIp(const ControllerInfo *c);
char *GetControllerModelNameExt(ControllerInfo *c);
const char *GetControllerModelNameExt(const ControllerInfo *c);
char *GetControllerModelFullName(ControllerInfo *c);
const char *GetControllerModelFullName(const ControllerInfo *c);
char *GetFirmVersion(ControllerInfo *c);
const char *GetFirmVersion(const ControllerInfo *c);

// Accessors of the inventory records (defined with their records).
char *GetDiskDriveSerialNumber(DiskInfo *d);
const char *GetDiskDriveSerialNumber(const DiskInfo *d);
char *GetRAIDSetName(RAIDSetInfo *r);
const char *GetRAIDSetName(const RAIDSetInfo *r);
char *GetVolumeName(VolumeInfo *v);
const char *GetVolumeName(const VolumeInfo *v);
char *GetContainerName(EnclosureInfo *e);
const char *GetContainerName(const EnclosureInfo *e);
unsigned int GetSensorCount();
