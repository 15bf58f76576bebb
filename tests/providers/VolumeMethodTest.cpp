// Volume methods of "Tovra_StorageVolume": every check before the device,
// every request frame, and the reply letter as status and value.
#include "MethodSupport.h"

namespace {

using namespace harness;
using namespace methods;

class VolumeMethods : public ProviderTest {};

// A create request that the default adapter accepts (RAID 5 on the
// three-disk set 2, a free target id) and a modify request of volume 3.
const Keys kCreate = {{"ID", In::u32(2)}, {"LUN", In::u32(0)},  {"RAIDNo", In::u32(2)},   {"Strp", In::u32(128)},
                      {"Ll", In::u32(5)}, {"Cap", In::u32(10)}, {"Name", In::str("Vol")}, {"Cache", In::u32(1)},
                      {"FG", In::u32(1)}, {"GtT", In::u32(1)},  {"Tag", In::u32(1)}};
const Keys kModify = {{"Cap", In::u32(1500)}, {"Num", In::u32(3)}, {"ID", In::u32(0)},       {"LUN", In::u32(2)},
                      {"Strp", In::u32(64)},  {"Ll", In::u32(5)},  {"Name", In::str("Big")}, {"Cache", In::u32(1)},
                      {"Tag", In::u32(0)}};

// The arguments with some values replaced and one dropped.
Keys edited(Keys args, const Keys &changes, const std::string &dropped = {}) {
    for (const auto &[name, value] : changes)
        for (auto &[n, v] : args)
            if (n == name) v = value;
    std::erase_if(args, [&](const auto &p) { return p.first == dropped; });
    return args;
}
Keys createArgs(const Keys &changes = {}, const std::string &dropped = {}) { return edited(kCreate, changes, dropped); }
Keys modifyArgs(const Keys &changes = {}, const std::string &dropped = {}) { return edited(kModify, changes, dropped); }

TEST_F(VolumeMethods, OneTableOfArgumentsFramesAndReplies) {
    const CMPIrc count = static_cast<CMPIrc>(49), failed = CMPI_RC_ERR_FAILED;
    const CMPIrc parameter = static_cast<CMPIrc>(0x47);
    const std::vector<uint8_t> head = {0x5E, 0x01, 0x61};
    const std::vector<uint8_t> created = {0x2A, 0x00, 0x60, 0x01, 'V', 'o', 'l', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                                          0xF2, 0x05, 0x2A, 0x01, 0, 0, 0, 0, 0x03, 0x05, 0x00, 0x02, 0x00, 0x01,
                                          0x01, 0x04, 0x03, 0x00, 0, 0, 0, 0, 0, 0};
    Keys modifyTagMissing = modifyArgs({}, "Tag");
    modifyTagMissing.emplace_back("FG", In::u32(0));
    const std::vector<MethodCase> cases = {
        {"create count", "CreateVolume", createArgs({}, "Tag"), -1, {}, count,
         "CreateVolume: incorrect args number were received."},
        {"modify count", "ModifyVolume", createArgs(), -1, {}, count, "ModifyVolume: incorrect args number were received."},
        {"delete count", "DeleteVolume", {}, -1, {}, count, "DeleteVolume: incorrect args number were received."},
        {"id 16", "CreateVolume", createArgs({{"ID", In::u32(16)}}), -1, {}, failed,
         "Argument ID in CreateVolume Method Command is greater than 15."},
        {"lun 8", "CreateVolume", createArgs({{"LUN", In::u32(8)}}), -1, {}, failed,
         "Argument LUN in CreateVolume Method Command is greater than 7."},
        {"raid 0", "CreateVolume", createArgs({{"RAIDNo", In::u32(0)}}), -1, {}, failed,
         "Argument RAIDNo is incorrect in CreateVolume Method Command."},
        {"stripe 2", "CreateVolume", createArgs({{"Strp", In::u32(2)}}), -1, {}, failed,
         "Strp not correct in CreateVolume Method Command."},
        {"level 2", "CreateVolume", createArgs({{"Ll", In::u32(2)}}), -1, {}, failed,
         "Ll in CreateVolume Method Command is incorrect."},
        {"level 4", "CreateVolume", createArgs({{"Ll", In::u32(4)}}), -1, {}, failed,
         "Ll in CreateVolume Method Command is incorrect."},
        {"name 17", "CreateVolume", createArgs({{"Name", In::str("ABCDEFGHIJKLMNOPQ")}}), -1, {}, failed,
         "Argument Name Character Size in CreateVolume Method Command is greater than 16"},
        {"cache 2", "CreateVolume", createArgs({{"Cache", In::u32(2)}}), -1, {}, failed,
         "Argument Cache in CreateVolume Method Command is neither 0(false) nor 1(true)."},
        {"fg 2", "CreateVolume", createArgs({{"FG", In::u32(2)}}), -1, {}, failed,
         "Argument FG in CreateVolume Method Command is neither 0(false) nor 1(true)."},
        {"gtt 2", "CreateVolume", createArgs({{"GtT", In::u32(2)}}), -1, {}, failed,
         "Argument GtT in CreateVolume Method Command is neither 0(64BIT) nor 2(WIN)."},
        {"tag 7", "CreateVolume", createArgs({{"Tag", In::u32(7)}}), -1, {}, failed,
         "Argument Tag in CreateVolume Method Command is neither 1(true) nor 0(false)."},
        {"lun read before cache", "CreateVolume", createArgs({{"LUN", In::u32(9)}, {"Cache", In::u32(5)}}), -1, {},
         failed, "Argument LUN in CreateVolume Method Command is greater than 7."},
        {"modify num 0", "ModifyVolume", modifyArgs({{"Num", In::u32(0)}}), -1, {}, failed,
         "Argument Num is incorrect in ModifyVolume Method Command."},
        {"modify stripe 2048", "ModifyVolume", modifyArgs({{"Strp", In::u32(2048)}}), -1, {}, failed,
         "Argument Strp not correct in ModifyVolume Method Command."},
        {"modify level 7", "ModifyVolume", modifyArgs({{"Ll", In::u32(7)}}), -1, {}, failed,
         "Argument Ll in ModifyVolume Method Command is incorrect."},
        {"modify cache Y", "ModifyVolume", modifyArgs({{"Cache", In::str("Y")}}), -1, {}, failed,
         "Argument Cache in ModifyVolume Method Command is neither N nor Y."},
        {"modify tag 3", "ModifyVolume", modifyArgs({{"Tag", In::u32(3)}}), -1, {}, failed,
         "Argument Tag in CreateVolume Method Command is neither 1(true) nor 0(false)."},
        {"modify tag missing", "ModifyVolume", modifyTagMissing, -1, {}, failed,
         "Argument Tag not present in CreateVolume Method Command."},
        {"modify cap null", "ModifyVolume", modifyArgs({{"Cap", In::null()}}), -1, {}, failed,
         "Argument Cap not present in ModifyVolume Method Command."},
        {"delete 0", "DeleteVolume", {{"Num", In::u32(0)}}, -1, {}, failed,
         "Argument Num is incorrect in DeleteVolume Method Command."},
        {"calibration", "TimeCalibration", {}, -1, {}, CMPI_RC_OK, ""},
        {"unknown name", "Frobnicate", {}, -1, {}, CMPI_RC_OK, ""},
        // Sent: 10 GB as 19,531,250 blocks, stripe 128 as code 5, RAID 5 as
        // code 3, GtT 1 with FG 1 as 0x03.
        {"create", "CreateVolume", createArgs(), 0x60, bytes({head, created}), CMPI_RC_OK, "OK"},
        {"id 15 and lun 7 pass", "CreateVolume", createArgs({{"ID", In::u32(15)}, {"LUN", In::u32(7)}}), 0x60,
         bytes({head, {0x2A, 0x00, 0x60}}), CMPI_RC_OK, "OK"},
        {"level code 4 needs four members", "CreateVolume", createArgs({{"Ll", In::u32(6)}}), 0x60,
         bytes({head, {0x2A, 0x00, 0x60}}), parameter, "PARAMETER ERROR"},
        {"id and lun taken", "CreateVolume", createArgs({{"ID", In::u32(0)}}), 0x60, head, parameter, "PARAMETER ERROR"},
        {"no set", "CreateVolume", createArgs({{"RAIDNo", In::u32(7)}}), 0x60, bytes({head, {0x2A, 0x00, 0x60, 0x06}}),
         static_cast<CMPIrc>(0x44), "NO RAIDSET"},
        {"delete 3", "DeleteVolume", {{"Num", In::u32(3)}}, 0x62, bytes({head, {0x02, 0x00, 0x62, 0x02, 0x66, 0x00}}),
         CMPI_RC_OK, "OK"},
        {"delete none", "DeleteVolume", {{"Num", In::u32(9)}}, 0x62, bytes({head, {0x02, 0x00, 0x62, 0x08, 0x6C}}),
         static_cast<CMPIrc>(0x45), "NO VOLUMESET"},
        {"modify", "ModifyVolume", modifyArgs(), 0x61,
         bytes({head, {0x26, 0x00, 0x61, 0x02}, text("Big", 16, 0),
                {0xCC, 0x7B, 0x9F, 0xAE, 0, 0, 0, 0, 0x03, 0x04, 0x00, 0x00, 0x02, 0x00, 0x01, 0x04, 0, 0, 0, 0}}),
         CMPI_RC_OK, "OK"},
    };
    expectRows({"Tovra_StorageVolume", {"Tovra_StoragePool", "Tovra_StorageVolume"}}, cases);
    EXPECT_FALSE(logged("ParseVolumeCommandCode: Ending")) << "the volume reader writes no ending line";
}

}  // namespace
