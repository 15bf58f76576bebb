// Pass-through disk methods of "Tovra_DiskDrive" and the event log module
// "Tovra_EventLog", through the host against the simulated adapter.
#include "MethodSupport.h"

#include <algorithm>
#include <functional>

namespace {

using namespace harness;
using namespace methods;
namespace sim = tovra::sim;

constexpr const char *kDisk = "Tovra_DiskDrive";
constexpr const char *kLog = "Tovra_EventLog";

class PassThroughMethods : public ProviderTest {};
class EventLogMethods : public ProviderTest {};

Keys target(uint32_t enc, uint32_t slt, uint32_t id = 3, uint32_t lun = 1) {
    return {{"enc", In::u32(enc)}, {"slt", In::u32(slt)}, {"id", In::u32(id)},
            {"lun", In::u32(lun)}, {"tag", In::u32(1)},   {"cache", In::u32(0)}};
}

TEST_F(PassThroughMethods, ArgumentChecksAndCounts) {
    const CMPIrc failed = CMPI_RC_ERR_FAILED;
    Keys seven = target(2, 4);
    seven.emplace_back("Type", In::u32(0));
    Keys noLun = target(2, 4);
    noLun.erase(noLun.begin() + 3);
    const ArgCase cases[] = {
        {"ModifyPassThrough", seven, {static_cast<CMPIrc>(49), "ModifyPassThrough: incorrect args number were received."}},
        {"DeletePassThrough", target(1, 6), {static_cast<CMPIrc>(49), "DeletePassThrough: incorrect args number were received."}},
        {"CreatePassThrough", noLun, {failed, "Argument lun not present in CreatePassThrough Method Command."}},
        {"CreatePassThrough", target(0, 4), {failed, "Argument enc is incorrect in CreatePassThrough Method Command."}},
        {"ModifyPassThrough", target(256, 4), {failed, "Argument enc is incorrect in ModifyPassThrough Method Command."}},
        {"DeletePassThrough", {{"slt", In::u32(1)}, {"id", In::u32(1)}},
         {failed, "Argument enc not present in DeletePassThrough Method Command."}},
        {"DeletePassThrough", {{"enc", In::u32(1)}, {"id", In::u32(1)}},
         {failed, "Argument slt not present in DeletePassThrough Method Command."}},
    };
    expectRefusedUnsent(kDisk, cases);
}

TEST_F(PassThroughMethods, RequestsCarryTheirFramesAndAnswerTheReplyLetter) {
    const FrameCase cases[] = {
        {"create on a free disk", "CreatePassThrough", target(2, 4), 0x40,
         {0x5E, 0x01, 0x61, 0x09, 0x00, 0x40, 0x01, 0x03, 0x00, 0x03, 0x01, 0x01, 0x00, 0x00, 0x52, 0x00},
         {CMPI_RC_OK, "OK"}},
        {"seven arguments are accepted by create", "CreatePassThrough",
         [] { Keys k = target(2, 5, 4); k.emplace_back("Type", In::u32(0)); return k; }(), 0x40,
         {0x5E, 0x01, 0x61, 0x09, 0x00, 0x40, 0x01, 0x04}, {CMPI_RC_OK, "OK"}},
        {"enc 1 slot 1 is a member", "CreatePassThrough", target(1, 1), 0x40,
         {0x5E, 0x01, 0x61, 0x09, 0x00, 0x40, 0x00, 0x00}, {static_cast<CMPIrc>(0x47), "PARAMETER ERROR"}},
        {"slot 0 is sent as 0xFF", "CreatePassThrough", target(1, 0), 0x40,
         {0x5E, 0x01, 0x61, 0x09, 0x00, 0x40, 0x00, 0xFF}, {static_cast<CMPIrc>(0x46), "NO PHYSICAL DRIVE"}},
        {"modify", "ModifyPassThrough", target(1, 6, 5, 2), 0x41,
         {0x5E, 0x01, 0x61, 0x09, 0x00, 0x41, 0x00, 0x05, 0x00, 0x05, 0x02, 0x01, 0x00, 0x00, 0x57},
         {CMPI_RC_OK, "OK"}},
        {"release", "DeletePassThrough", {{"enc", In::u32(1)}, {"slt", In::u32(6)}}, 0x42,
         {0x5E, 0x01, 0x61, 0x03, 0x00, 0x42, 0x00, 0x05, 0x4A, 0x00}, {CMPI_RC_OK, "OK"}},
    };
    for (const FrameCase &c : cases) {
        SCOPED_TRACE(c.name);
        sim::loadScenario("default");
        Answer a = invokeDirect(kDisk, c.method, c.args);  // the host would refuse an undeclared seventh
        EXPECT_EQ(a.doneCount, 1);
        EXPECT_EQ(sentFrame(c.command, c.frame.size()), c.frame);
        EXPECT_EQ(a.rc, c.expect.rc);
        EXPECT_EQ(a.message, c.expect.message);
        ASSERT_TRUE(a.value.has_value());
        EXPECT_EQ(*a.value, c.expect.message);
    }
    EXPECT_TRUE(logged("ParseDiskDriveCommandCode: Ending return(0)"));
}

// Each change shows in the next enumeration of the disks (the method drops
// the disk cache): the usage of the disk it concerns.
TEST_F(PassThroughMethods, DiskUsageFollowsEveryChange) {
    struct Case {
        const char *cls;
        const char *method;
        Keys args;
        unsigned enc, slot;  // as the disk reports them, from 0
        const char *usage;
    };
    const Case cases[] = {
        {kDisk, "DeletePassThrough", {{"enc", In::u32(1)}, {"slt", In::u32(6)}}, 0, 5, "Free"},
        {kDisk, "CreatePassThrough", target(2, 4), 1, 3, "Pass Through"},
        {"Tovra_StoragePool", "DeleteHotSpare", {{"Enc", In::u32(1)}, {"Disk", In::u32(5)}}, 0, 4, "Free"},
        {"Tovra_StoragePool", "CreateHotSpare",
         {{"Type", In::u32(0)}, {"RAIDNo", In::u32(1)}, {"Enc", In::u32(2)}, {"Disk", In::u32(5)}}, 1, 4, "Hot Spare"},
        {"Tovra_StoragePool", "CreateRAIDSet",
         {{"MemberDisks", In::u32(2)}, {"DiskArray", In::u32s({4, 5})}, {"Enc", In::u32(2)}, {"Name", In::str("New")}},
         1, 4, ""},
    };
    auto usageAt = [](unsigned enc, unsigned slot) {
        for (const Obj &o : enumInstances(kDisk).objects)
            if (o.num("EnclosureNumber") == enc && o.num("SlotNumber") == slot) return o.text("Usage");
        return std::string("absent");
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.method);
        sim::loadScenario("default");
        freshClock();
        const std::string before = usageAt(c.enc, c.slot);
        ASSERT_NE(before, "absent");
        EXPECT_NE(before, c.usage);
        const Answer a = invoke(c.cls, c.method, c.args);
        ASSERT_EQ(a.rc, CMPI_RC_OK) << a.message;
        EXPECT_EQ(usageAt(c.enc, c.slot), c.usage);
    }
}

TEST_F(EventLogMethods, ClearLogTimeCalibrationAndOtherNames) {
    struct Case {
        const char *name;
        const char *method;
        Keys args;
        Expect expect;
        std::optional<std::string> value;
        int done;
        unsigned clears;
    };
    const Case cases[] = {
        {"clear", "ClearLog", {}, {CMPI_RC_OK, "OK"}, "OK", 1, 1},
        {"clear with an argument", "ClearLog", {{"All", In::u32(1)}},
         {static_cast<CMPIrc>(49), "ClearLog: incorrect args number were received."}, std::nullopt, 0, 0},
        {"lower case", "clearlog", {}, {CMPI_RC_OK, ""}, std::nullopt, 0, 0},
        {"calibration", "TimeCalibration", {{"Any", In::u32(1)}}, {CMPI_RC_OK, "OK"}, "OK", 1, 0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        sim::loadScenario("default");
        freshClock();
        ASSERT_EQ(enumInstances(kLog).rc, CMPI_RC_OK);
        sim::resetCounters();
        Answer a = invokeDirect(kLog, c.method, c.args);
        EXPECT_EQ(a.rc, c.expect.rc);
        EXPECT_EQ(a.message, c.expect.message);
        EXPECT_EQ(a.doneCount, c.done);
        EXPECT_EQ(a.value.has_value(), c.value.has_value());
        if (a.value && c.value) {
            EXPECT_EQ(a.value->text, *c.value);
        }
        EXPECT_EQ(sim::exchanges(0x24), c.clears);
        // Every permitted call drops the log's cache, whatever the name.
        sim::resetCounters();
        const Answer log = enumInstances(kLog);
        ASSERT_EQ(log.objects.size(), 1u);
        EXPECT_EQ(sim::exchanges(0x19), 1u);
        EXPECT_EQ(log.objects[0].num("Events"), c.clears ? 0u : 3u);
    }
    EXPECT_TRUE(logged("ParseSySCommandCode: Ending return(0)"));
    EXPECT_TRUE(logged("ClearEvent: Sarting"));
}

TEST_F(EventLogMethods, TheLogListsEventsNewestFirstAndChangesAddTheirs) {
    const Answer before = enumInstances(kLog);
    ASSERT_EQ(before.objects.size(), 1u);
    const Obj &log = before.objects[0];
    EXPECT_EQ(log.num("Events"), 3u);
    ASSERT_EQ(log.prop("EventRecords")->kind, Val::Kind::Texts);
    const std::vector<std::string> old = log.prop("EventRecords")->texts;
    // The records' own times, newest first.
    ASSERT_EQ(old.size(), 3u);
    EXPECT_TRUE(std::is_sorted(old.begin(), old.end(), std::greater<>())) << old[0];
    ASSERT_EQ(invoke("Tovra_StorageVolume", "DeleteVolume", {{"Num", In::u32(3)}}).rc, CMPI_RC_OK);
    ASSERT_EQ(invoke(kLog, "TimeCalibration").rc, CMPI_RC_OK);
    const Answer after = enumInstances(kLog);
    ASSERT_EQ(after.objects.size(), 1u);
    EXPECT_EQ(after.objects[0].num("Events"), 4u);
    const std::vector<std::string> now = after.objects[0].prop("EventRecords")->texts;
    ASSERT_EQ(now.size(), 4u);
    EXPECT_NE(now[0].find("Volume Set # 002"), std::string::npos) << "the newest event, first: " << now[0];
    EXPECT_EQ(std::vector<std::string>(now.begin() + 1, now.end()), old) << "the older ones follow, in order";
    EXPECT_EQ(getInstance(kLog, {{"InstanceID", In::str(log.text("InstanceID"))}}).objects.size(), 1u);
}

}  // namespace
