// RAID set and hot spare methods of "Tovra_StoragePool": every check before the
// device, every request frame, and the reply letter as status and value.
#include "MethodSupport.h"

namespace {

using namespace harness;
using namespace methods;

class PoolMethods : public ProviderTest {};

TEST_F(PoolMethods, OneTableOfArgumentsFramesAndReplies) {
    const CMPIrc count = static_cast<CMPIrc>(49), failed = CMPI_RC_ERR_FAILED;
    const CMPIrc notNormal = static_cast<CMPIrc>(0x42), noSet = static_cast<CMPIrc>(0x44);
    const CMPIrc noDrive = static_cast<CMPIrc>(0x46), parameter = static_cast<CMPIrc>(0x47);
    const std::vector<uint8_t> head = {0x5E, 0x01, 0x61};
    auto create = [](uint32_t enc, std::vector<uint64_t> disks, const char *name) {
        return Keys{{"MemberDisks", In::u32(disks.size())}, {"DiskArray", In::u32s(std::move(disks))},
                    {"Enc", In::u32(enc)}, {"Name", In::str(name)}};
    };
    auto expand = [](std::vector<uint64_t> disks, std::vector<uint64_t> encls, uint32_t raid = 2) {
        return Keys{{"RAIDNo", In::u32(raid)}, {"DiskArray", In::u32s(std::move(disks))}, {"Encls", In::u32s(std::move(encls))}};
    };
    auto spare = [](uint32_t type, uint32_t raid, uint32_t enc, uint32_t disk) {
        return Keys{{"Type", In::u32(type)}, {"RAIDNo", In::u32(raid)}, {"Enc", In::u32(enc)}, {"Disk", In::u32(disk)}};
    };
    auto oneSet = [](sim::Model &m) {
        m.volumes[2].reset();
        m.raidSets[1].reset();
    };
    const std::vector<MethodCase> cases = {
        // Refused before the device is opened, in the order the arguments are checked.
        {"create count", "CreateRAIDSet", {{"MemberDisks", In::u32(1)}}, -1, {}, count,
         "CreateRAIDSet: incorrect args number were received."},
        {"create members missing", "CreateRAIDSet",
         {{"DiskArray", In::u32s({1})}, {"Enc", In::u32(1)}, {"Name", In::str("a")}, {"Type", In::u32(0)}}, -1, {},
         failed, "Argument MemberDisks not present in CreateRAIDSet Method Command."},
        {"create array size", "CreateRAIDSet",
         {{"MemberDisks", In::u32(3)}, {"DiskArray", In::u32s({1, 2})}, {"Enc", In::u32(1)}, {"Name", In::str("a")}},
         -1, {}, failed, "the element of DiskArray incorret"},
        {"create enc 0", "CreateRAIDSet", create(0, {1, 2}, "a"), -1, {}, failed,
         "Argument enc is incorrect in CreateRAIDSet Method Command."},
        {"create enc 256, low byte 0", "CreateRAIDSet", create(256, {1, 2}, "a"), -1, {}, failed,
         "Argument enc is incorrect in CreateRAIDSet Method Command."},
        {"create name 17", "CreateRAIDSet", create(1, {1}, "ABCDEFGHIJKLMNOPQ"), -1, {}, failed,
         "Argument Name Character Size in CreateRAIDSet Method Command is greater than 16"},
        {"delete count", "DeleteRAIDSet", {}, -1, {}, count, "DeleteRAIDSet: incorrect args number were received."},
        {"delete 0", "DeleteRAIDSet", {{"RAIDNo", In::u32(0)}}, -1, {}, failed, "Argument RAIDNo is inCorrect"},
        {"delete other name", "DeleteRAIDSet", {{"Enc", In::u32(1)}}, -1, {}, failed,
         "Argument RAIDNo not present in DeleteRAIDSet Method Command."},
        {"expand 0", "ExpandRAIDSet", expand({4}, {2}, 0), -1, {}, failed, "Argument RAIDNo is inCorrect"},
        {"expand names create", "ExpandRAIDSet", {{"RAIDNo", In::u32(1)}, {"DiskArray", In::u32s({4})}, {"Enc", In::u32(2)}},
         -1, {}, failed, "Argument Encls not present in CreateRAIDSet Method Command."},
        {"expand lengths", "ExpandRAIDSet", expand({4, 5}, {2}), -1, {}, failed,
         "the element of DiskArray and Encls incorret"},
        // The request's count byte cannot state more members: lengths equal as bytes are not let through.
        {"expand 258 disks, 2 enclosures", "ExpandRAIDSet", expand(std::vector<uint64_t>(258, 4), {2, 2}), -1, {},
         failed, "Argument DiskArray or Encls has more than 255 elements in ExpandRAIDSet Method Command."},
        {"offline count", "OfflineRAIDSet", {{"RAIDNo", In::u32(1)}, {"Enc", In::u32(1)}}, -1, {}, count,
         "OfflineRAIDSet: incorrect args number were received."},
        {"activate missing", "ActivateRAIDSet", {{"Enc", In::u32(1)}}, -1, {}, failed,
         "Argument RAIDNo not present in ActivateRAIDSet Method Command."},
        {"hot spare order", "CreateHotSpare",
         {{"RAIDNo", In::u32(1)}, {"Enc", In::u32(1)}, {"Disk", In::u32(1)}, {"Name", In::str("x")}}, -1, {}, failed,
         "Argument Type not present in CreateHotSpare Method Command."},
        {"delete hot spare names create", "DeleteHotSpare", {{"Enc", In::u32(1)}, {"Type", In::u32(1)}}, -1, {},
         failed, "Argument Disk not present in CreateHotSpare Method Command."},
        {"calibration", "TimeCalibration", {{"Any", In::u32(1)}}, -1, {}, CMPI_RC_OK, ""},
        {"unknown name", "createraidset", {}, -1, {}, CMPI_RC_OK, ""},
        // Sent: the create frame is blank-filled, its enclosure byte "Enc" - 1,
        // its disk byte reduced only for enclosure byte 1.
        {"create", "CreateRAIDSet", create(2, {4, 5}, "New"), 0x50,
         bytes({head, {0x1A, 0x00, 0x50, 0x02, 0, 0, 0}, text("New", 16, ' '), {0x01, 0x01, 0x03, 0x01, 0x04, 0x40, 0x20}}),
         CMPI_RC_OK, "OK"},
        {"create 16 characters on members", "CreateRAIDSet", create(1, {1, 2}, "ABCDEFGHIJKLMNOP"), 0x50,
         bytes({head, {0x1A, 0x00, 0x50, 0x02, 0, 0, 0}, text("ABCDEFGHIJKLMNOP", 16, 0), {0x01, 0x00, 0x01, 0x00, 0x02, 0xF8, 0x20}}),
         parameter, "PARAMETER ERROR"},
        {"delete a set with volumes", "DeleteRAIDSet", {{"RAIDNo", In::u32(2)}}, 0x51,
         bytes({head, {0x02, 0x00, 0x51, 0x01, 0x54, 0x00}}), notNormal, "RAIDSET NOT NORMAL"},
        {"delete no set", "DeleteRAIDSet", {{"RAIDNo", In::u32(8)}}, 0x51, bytes({head, {0x02, 0x00, 0x51, 0x07, 0x5A}}),
         noSet, "NO RAIDSET"},
        // "Encls" is read up to the number of cached RAID sets (the third
        // enclosure byte stays 0 - 1); 1024 payload bytes.
        {"expand", "ExpandRAIDSet", expand({4, 5, 3}, {2, 2, 2}), 0x52,
         bytes({head, {0x00, 0x04, 0x52, 0x01, 0x03, 0, 0, 0, 0x01, 0x03, 0x01, 0x04, 0xFF, 0x02},
                std::vector<uint8_t>(1012, 0), {0x64}}),
         noDrive,
         "NO PHYSICAL DRIVE"},
        {"expand with one set cached", "ExpandRAIDSet", expand({4, 5, 3}, {2, 2, 2}), 0x52,
         bytes({head, {0x00, 0x04, 0x52, 0x01, 0x03, 0, 0, 0, 0x01, 0x03, 0xFF, 0x04, 0xFF, 0x02}}), noSet, "NO RAIDSET",
         1, oneSet},
        {"offline 0 is sent", "OfflineRAIDSet", {{"RAIDNo", In::u32(0)}}, 0x56,
         bytes({head, {0x02, 0x00, 0x56, 0xFF, 0x57}}), noSet, "NO RAIDSET"},
        {"activate 258 by its low byte", "ActivateRAIDSet", {{"RAIDNo", In::u32(258)}}, 0x53,
         bytes({head, {0x02, 0x00, 0x53, 0x01, 0x56}}), CMPI_RC_OK, "OK"},
        {"hot spare", "CreateHotSpare", spare(1, 2, 2, 4), 0x54,
         bytes({head, {0x0A, 0x00, 0x54, 0xFF, 0xFF, 0xFF, 0xFF, 0x01, 0x03, 0x01, 0x01, 0x00, 0x60, 0x00}}), CMPI_RC_OK, "OK"},
        {"hot spare on a member", "CreateHotSpare", spare(0, 1, 1, 1), 0x54, bytes({head, {0x0A, 0x00, 0x54}}),
         parameter, "PARAMETER ERROR"},
        {"remove hot spare", "DeleteHotSpare", {{"Enc", In::u32(1)}, {"Disk", In::u32(5)}}, 0x55,
         bytes({head, {0x0B, 0x00, 0x55, 0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x04, 0x00, 0x00, 0x00, 0x00, 0x60}}), CMPI_RC_OK, "OK"},
    };
    expectRows({"Tovra_StoragePool", {"Tovra_StoragePool", "Tovra_StorageVolume", "Tovra_DiskDrive"}}, cases);
    EXPECT_TRUE(logged("SendCreateRAIDs: No.1"));
    EXPECT_TRUE(logged("TovraStoragePoolProviderInvokeMethod: diskArray[1] = 2"));
    EXPECT_TRUE(logged("CreateRAIDSet: Sarting"));
    EXPECT_TRUE(logged("ParseRAIDSetCommandCode: Ending return(71)"));
}

}  // namespace
