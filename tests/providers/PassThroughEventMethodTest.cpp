// Pass-through disk methods of "Tovra_DiskDrive" and the methods of the event
// log module "Tovra_EventLog": checks, request frames, replies; and the
// frames with which the log is read.
#include "MethodSupport.h"

#include <algorithm>
#include <functional>

namespace {

using namespace harness;
using namespace methods;

class PassThroughMethods : public ProviderTest {};
class EventLogMethods : public ProviderTest {};

Keys target(uint32_t enc, uint32_t slt, uint32_t id = 3, uint32_t lun = 1) {
    return {{"enc", In::u32(enc)}, {"slt", In::u32(slt)}, {"id", In::u32(id)},
            {"lun", In::u32(lun)}, {"tag", In::u32(1)},   {"cache", In::u32(0)}};
}

TEST_F(PassThroughMethods, OneTableOfArgumentsFramesAndReplies) {
    const CMPIrc failed = CMPI_RC_ERR_FAILED, parameter = static_cast<CMPIrc>(0x47);
    const std::vector<uint8_t> head = {0x5E, 0x01, 0x61};
    Keys seven = target(2, 5, 4);
    seven.emplace_back("Type", In::u32(0));
    Keys noLun = target(2, 4);
    noLun.erase(noLun.begin() + 3);
    const std::vector<MethodCase> cases = {
        {"modify takes six", "ModifyPassThrough", seven, -1, {}, static_cast<CMPIrc>(49),
         "ModifyPassThrough: incorrect args number were received."},
        {"delete takes two", "DeletePassThrough", target(1, 6), -1, {}, static_cast<CMPIrc>(49),
         "DeletePassThrough: incorrect args number were received."},
        {"lun missing", "CreatePassThrough", noLun, -1, {}, failed,
         "Argument lun not present in CreatePassThrough Method Command."},
        {"enc 0", "CreatePassThrough", target(0, 4), -1, {}, failed,
         "Argument enc is incorrect in CreatePassThrough Method Command."},
        {"enc 256, low byte 0", "ModifyPassThrough", target(256, 4), -1, {}, failed,
         "Argument enc is incorrect in ModifyPassThrough Method Command."},
        {"enc missing", "DeletePassThrough", {{"slt", In::u32(1)}, {"id", In::u32(1)}}, -1, {}, failed,
         "Argument enc not present in DeletePassThrough Method Command."},
        {"slot missing", "DeletePassThrough", {{"enc", In::u32(1)}, {"id", In::u32(1)}}, -1, {}, failed,
         "Argument slt not present in DeletePassThrough Method Command."},
        {"calibration", "TimeCalibration", {{"Any", In::u32(1)}}, -1, {}, CMPI_RC_OK, ""},
        {"unknown name", "Frobnicate", {}, -1, {}, CMPI_RC_OK, ""},
        {"create on a free disk", "CreatePassThrough", target(2, 4), 0x40,
         bytes({head, {0x09, 0x00, 0x40, 0x01, 0x03, 0x00, 0x03, 0x01, 0x01, 0x00, 0x00, 0x52, 0x00}}), CMPI_RC_OK, "OK"},
        {"create takes a seventh", "CreatePassThrough", seven, 0x40, bytes({head, {0x09, 0x00, 0x40, 0x01, 0x04}}),
         CMPI_RC_OK, "OK"},
        {"enc 1 slot 1 is a member", "CreatePassThrough", target(1, 1), 0x40,
         bytes({head, {0x09, 0x00, 0x40, 0x00, 0x00}}), parameter, "PARAMETER ERROR"},
        {"slot 0 is sent as 0xFF", "CreatePassThrough", target(1, 0), 0x40, bytes({head, {0x09, 0x00, 0x40, 0x00, 0xFF}}),
         static_cast<CMPIrc>(0x46), "NO PHYSICAL DRIVE"},
        {"modify", "ModifyPassThrough", target(1, 6, 5, 2), 0x41,
         bytes({head, {0x09, 0x00, 0x41, 0x00, 0x05, 0x00, 0x05, 0x02, 0x01, 0x00, 0x00, 0x57}}), CMPI_RC_OK, "OK"},
        {"release", "DeletePassThrough", {{"enc", In::u32(1)}, {"slt", In::u32(6)}}, 0x42,
         bytes({head, {0x03, 0x00, 0x42, 0x00, 0x05, 0x4A, 0x00}}), CMPI_RC_OK, "OK"},
    };
    expectRows({"Tovra_DiskDrive", {"Tovra_StoragePool", "Tovra_StorageVolume", "Tovra_DiskDrive"}}, cases);
    EXPECT_TRUE(logged("ParseDiskDriveCommandCode: Ending return(0)"));
}

// "ClearLog" only by its exact name and without arguments; another name
// answers success without ending the result. Every call drops the log cache.
TEST_F(EventLogMethods, OneTableOfArgumentsFramesAndReplies) {
    const std::vector<MethodCase> cases = {
        {"clear", "ClearLog", {}, 0x24, {0x5E, 0x01, 0x61, 0x01, 0x00, 0x24, 0x25, 0x00}, CMPI_RC_OK, "OK"},
        {"clear with an argument", "ClearLog", {{"All", In::u32(1)}}, -1, {}, static_cast<CMPIrc>(49),
         "ClearLog: incorrect args number were received.", 0},
        {"lower case", "clearlog", {}, -1, {}, CMPI_RC_OK, "", 0},
        {"calibration", "TimeCalibration", {{"Any", In::u32(1)}}, -1, {}, CMPI_RC_OK, "OK"},
    };
    expectRows({"Tovra_EventLog", {"Tovra_EventLog"}}, cases);
    EXPECT_TRUE(logged("ParseSySCommandCode: Ending return(0)"));
    EXPECT_TRUE(logged("ClearEvent: Sarting"));
}

// The log is read with one poll and a get-event request per event, newest
// (index 0) first; a change adds its event in front.
TEST_F(EventLogMethods, TheLogIsReadWithPollAndGetEventFrames) {
    const Answer before = enumInstances("Tovra_EventLog");
    ASSERT_EQ(before.objects.size(), 1u);
    EXPECT_EQ(sentFrame(0x19, 8), (std::vector<uint8_t>{0x5E, 0x01, 0x61, 0x01, 0x00, 0x19, 0x1A, 0x00}));
    EXPECT_EQ(sim::exchanges(0x1A), 3u);
    EXPECT_EQ(sentFrame(0x1A, 9), (std::vector<uint8_t>{0x5E, 0x01, 0x61, 0x02, 0x00, 0x1A, 0x02, 0x1E, 0x00}));
    const std::vector<std::string> old = before.objects[0].prop("EventRecords")->texts;
    ASSERT_EQ(old.size(), 3u);
    EXPECT_TRUE(std::is_sorted(old.begin(), old.end(), std::greater<>())) << old[0];
    ASSERT_EQ(invoke("Tovra_StorageVolume", "DeleteVolume", {{"Num", In::u32(3)}}).rc, CMPI_RC_OK);
    ASSERT_EQ(invoke("Tovra_EventLog", "TimeCalibration").rc, CMPI_RC_OK);
    const std::vector<std::string> now = enumInstances("Tovra_EventLog").objects.at(0).prop("EventRecords")->texts;
    ASSERT_EQ(now.size(), 4u);
    EXPECT_NE(now[0].find("Volume Set # 002"), std::string::npos) << "the newest event, first: " << now[0];
    EXPECT_EQ(std::vector<std::string>(now.begin() + 1, now.end()), old) << "the older ones follow, in order";
}

}  // namespace
