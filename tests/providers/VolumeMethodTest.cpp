// Volume methods of "Tovra_StorageVolume", through the host against the
// simulated adapter.
#include "MethodSupport.h"

namespace {

using namespace harness;
using namespace methods;
namespace sim = tovra::sim;

constexpr const char *kVolume = "Tovra_StorageVolume";

class VolumeMethods : public ProviderTest {};

// A create request that the default adapter accepts (RAID 5 on the
// three-disk set 2, a free target id), with one argument replaced.
Keys createArgs(const std::string &name = {}, In value = In::u32(0)) {
    Keys args = {{"ID", In::u32(2)},     {"LUN", In::u32(0)},         {"RAIDNo", In::u32(2)}, {"Strp", In::u32(128)},
                 {"Ll", In::u32(5)},     {"Cap", In::u32(10)},        {"Name", In::str("Vol")}, {"Cache", In::u32(1)},
                 {"FG", In::u32(1)},     {"GtT", In::u32(1)},         {"Tag", In::u32(1)}};
    for (auto &[n, v] : args)
        if (n == name) v = value;
    return args;
}

Keys modifyArgs(const std::string &name = {}, In value = In::u32(0)) {
    Keys args = {{"Cap", In::u32(1500)}, {"Num", In::u32(3)},  {"ID", In::u32(0)},       {"LUN", In::u32(2)},
                 {"Strp", In::u32(64)},  {"Ll", In::u32(5)},   {"Name", In::str("Big")}, {"Cache", In::u32(1)},
                 {"Tag", In::u32(0)}};
    for (auto &[n, v] : args)
        if (n == name) v = value;
    return args;
}

Keys without(Keys args, const std::string &name) {
    std::erase_if(args, [&](const auto &p) { return p.first == name; });
    return args;
}

TEST_F(VolumeMethods, ArgumentChecksRunInOrderWithTheirMessages) {
    const CMPIrc failed = CMPI_RC_ERR_FAILED;
    const ArgCase cases[] = {
        {"CreateVolume", without(createArgs(), "Tag"), {static_cast<CMPIrc>(49), "CreateVolume: incorrect args number were received."}},
        {"ModifyVolume", createArgs(), {static_cast<CMPIrc>(49), "ModifyVolume: incorrect args number were received."}},
        {"DeleteVolume", {}, {static_cast<CMPIrc>(49), "DeleteVolume: incorrect args number were received."}},
        {"CreateVolume", createArgs("ID", In::u32(16)), {failed, "Argument ID in CreateVolume Method Command is greater than 15."}},
        {"CreateVolume", createArgs("ID", In::u32(256)), {failed, "Argument ID in CreateVolume Method Command is greater than 15."}},
        {"CreateVolume", createArgs("LUN", In::u32(8)), {failed, "Argument LUN in CreateVolume Method Command is greater than 7."}},
        {"CreateVolume", createArgs("RAIDNo", In::u32(0)), {failed, "Argument RAIDNo is incorrect in CreateVolume Method Command."}},
        {"CreateVolume", createArgs("Strp", In::u32(2)), {failed, "Strp not correct in CreateVolume Method Command."}},
        {"CreateVolume", createArgs("Ll", In::u32(2)), {failed, "Ll in CreateVolume Method Command is incorrect."}},
        {"CreateVolume", createArgs("Ll", In::u32(4)), {failed, "Ll in CreateVolume Method Command is incorrect."}},
        {"CreateVolume", createArgs("Name", In::str("ABCDEFGHIJKLMNOPQ")),
         {failed, "Argument Name Character Size in CreateVolume Method Command is greater than 16"}},
        {"CreateVolume", createArgs("Cache", In::u32(2)),
         {failed, "Argument Cache in CreateVolume Method Command is neither 0(false) nor 1(true)."}},
        {"CreateVolume", createArgs("FG", In::u32(2)),
         {failed, "Argument FG in CreateVolume Method Command is neither 0(false) nor 1(true)."}},
        {"CreateVolume", createArgs("GtT", In::u32(2)),
         {failed, "Argument GtT in CreateVolume Method Command is neither 0(64BIT) nor 2(WIN)."}},
        {"CreateVolume", createArgs("Tag", In::u32(7)),
         {failed, "Argument Tag in CreateVolume Method Command is neither 1(true) nor 0(false)."}},
        // The first failing argument wins: "LUN" is read before "Cache".
        {"CreateVolume", [] { Keys k = createArgs("LUN", In::u32(9)); k[7].second = In::u32(5); return k; }(),
         {failed, "Argument LUN in CreateVolume Method Command is greater than 7."}},
        {"ModifyVolume", modifyArgs("Num", In::u32(0)), {failed, "Argument Num is incorrect in ModifyVolume Method Command."}},
        {"ModifyVolume", modifyArgs("Strp", In::u32(2048)), {failed, "Argument Strp not correct in ModifyVolume Method Command."}},
        {"ModifyVolume", modifyArgs("Ll", In::u32(7)), {failed, "Argument Ll in ModifyVolume Method Command is incorrect."}},
        {"ModifyVolume", modifyArgs("Cache", In::str("Y")), {failed, "Argument Cache in ModifyVolume Method Command is neither N nor Y."}},
        {"ModifyVolume", modifyArgs("Tag", In::u32(3)),
         {failed, "Argument Tag in CreateVolume Method Command is neither 1(true) nor 0(false)."}},
        {"ModifyVolume", [] { Keys k = without(modifyArgs(), "Tag"); k.emplace_back("FG", In::u32(0)); return k; }(),
         {failed, "Argument Tag not present in CreateVolume Method Command."}},
        {"ModifyVolume", modifyArgs("Cap", In::null()), {failed, "Argument Cap not present in ModifyVolume Method Command."}},
        {"DeleteVolume", {{"Num", In::u32(0)}}, {failed, "Argument Num is incorrect in DeleteVolume Method Command."}},
        {"DeleteVolume", {{"Num", In::str("3")}}, {failed, "Argument Num not present in DeleteVolume Method Command."}},
    };
    expectRefusedUnsent(kVolume, cases);
}

TEST_F(VolumeMethods, RequestsCarryTheirFramesAndAnswerTheReplyLetter) {
    const std::vector<uint8_t> createHead = {0x5E, 0x01, 0x61, 0x2A, 0x00, 0x60, 0x01, 'V', 'o', 'l', 0, 0, 0, 0, 0, 0, 0,
                                             0,    0,    0,    0,    0,    0,    0xF2, 0x05, 0x2A, 0x01, 0, 0, 0, 0,
                                             0x03, 0x05, 0x00, 0x02, 0x00, 0x01, 0x01, 0x04, 0x03, 0x00, 0, 0, 0, 0, 0, 0};
    const FrameCase cases[] = {
        {"create", "CreateVolume", createArgs(), 0x60, createHead, {CMPI_RC_OK, "OK"}},
        {"id 15 and lun 7 pass", "CreateVolume",
         [] { Keys k = createArgs("ID", In::u32(15)); k[1].second = In::u32(7); return k; }(), 0x60,
         {0x5E, 0x01, 0x61, 0x2A, 0x00, 0x60}, {CMPI_RC_OK, "OK"}},
        {"level code 4 needs four members", "CreateVolume", createArgs("Ll", In::u32(6)), 0x60,
         {0x5E, 0x01, 0x61, 0x2A, 0x00, 0x60}, {static_cast<CMPIrc>(0x47), "PARAMETER ERROR"}},
        {"id and lun taken", "CreateVolume", createArgs("ID", In::u32(0)), 0x60, {0x5E, 0x01, 0x61, 0x2A},
         {static_cast<CMPIrc>(0x47), "PARAMETER ERROR"}},
        {"no set", "CreateVolume", createArgs("RAIDNo", In::u32(7)), 0x60, {0x5E, 0x01, 0x61, 0x2A, 0x00, 0x60, 0x06},
         {static_cast<CMPIrc>(0x44), "NO RAIDSET"}},
        {"delete 3", "DeleteVolume", {{"Num", In::u32(3)}}, 0x62, {0x5E, 0x01, 0x61, 0x02, 0x00, 0x62, 0x02, 0x66, 0x00},
         {CMPI_RC_OK, "OK"}},
        {"delete none", "DeleteVolume", {{"Num", In::u32(9)}}, 0x62, {0x5E, 0x01, 0x61, 0x02, 0x00, 0x62, 0x08, 0x6C},
         {static_cast<CMPIrc>(0x45), "NO VOLUMESET"}},
        {"modify", "ModifyVolume", modifyArgs(), 0x61,
         {0x5E, 0x01, 0x61, 0x26, 0x00, 0x61, 0x02, 'B', 'i', 'g', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
          0xCC, 0x7B, 0x9F, 0xAE, 0x00, 0x00, 0x00, 0x00, 0x03, 0x04, 0x00, 0x00, 0x02, 0x00, 0x01, 0x04, 0, 0, 0, 0},
         {CMPI_RC_OK, "OK"}},
    };
    for (const FrameCase &c : cases) {
        SCOPED_TRACE(c.name);
        sim::loadScenario("default");
        Answer a = invoke(kVolume, c.method, c.args);
        EXPECT_EQ(sentFrame(c.command, c.frame.size()), c.frame);
        EXPECT_EQ(a.rc, c.expect.rc);
        EXPECT_EQ(a.message, c.expect.message);
        ASSERT_TRUE(a.value.has_value());
        EXPECT_EQ(*a.value, c.expect.message);
    }
    EXPECT_FALSE(logged("ParseVolumeCommandCode: Ending")) << "the volume reader writes no ending line";
}

// A created volume is published at once (this module's own cache time is
// zeroed), and the pool it lives in shows one more volume and less space.
TEST_F(VolumeMethods, CreateAndDeleteAreSeenByTheNextEnumerations) {
    auto poolOf = [](const char *id) {
        for (const Obj &o : enumInstances("Tovra_StoragePool").objects)
            if (o.text("InstanceID") == id) return o;
        return Obj{};
    };
    ASSERT_EQ(enumInstances(kVolume).objects.size(), 3u);
    const Obj before = poolOf("Raid Set # 001");
    ASSERT_EQ(invoke(kVolume, "CreateVolume", createArgs()).rc, CMPI_RC_OK);
    const Answer created = enumInstances(kVolume);
    ASSERT_EQ(created.objects.size(), 4u);
    EXPECT_EQ(created.objects.back().text("DeviceID"), "Vol");
    EXPECT_EQ(created.objects.back().num("Capacity"), 10000000000u);
    const Obj after = poolOf("Raid Set # 001");
    EXPECT_EQ(after.num("Volumes"), before.num("Volumes") + 1);
    EXPECT_LT(after.num("FreeRawCapacity"), before.num("FreeRawCapacity"));

    ASSERT_EQ(invoke(kVolume, "DeleteVolume", {{"Num", In::u32(4)}}).rc, CMPI_RC_OK);
    EXPECT_EQ(enumInstances(kVolume).objects.size(), 3u);
    EXPECT_EQ(poolOf("Raid Set # 001").num("Volumes"), before.num("Volumes"));
}

}  // namespace
