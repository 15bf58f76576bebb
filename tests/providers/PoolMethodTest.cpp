// RAID set and hot spare methods of "Tovra_StoragePool", through the host
// against the simulated adapter.
#include "MethodSupport.h"

namespace {

using namespace harness;
using namespace methods;
namespace sim = tovra::sim;

constexpr const char *kPool = "Tovra_StoragePool";

class PoolMethods : public ProviderTest {};

struct NamedArgCase {
    const char *name;
    const char *method;
    Keys args;
    Expect expect;
};

// Every case fails before the device is opened: nothing reaches the firmware.
TEST_F(PoolMethods, ArgumentChecksRunInOrderWithTheirMessages) {
    const CMPIrc count = static_cast<CMPIrc>(49);
    const char *kTooManyMembers = "Argument DiskArray or Encls has more than 255 elements in ExpandRAIDSet Method Command.";
    const NamedArgCase cases[] = {
        {"create count", "CreateRAIDSet", {{"MemberDisks", In::u32(1)}},
         {count, "CreateRAIDSet: incorrect args number were received."}},
        {"create members missing", "CreateRAIDSet",
         {{"DiskArray", In::u32s({1})}, {"Enc", In::u32(1)}, {"Name", In::str("a")}, {"Type", In::u32(0)}},
         {CMPI_RC_ERR_FAILED, "Argument MemberDisks not present in CreateRAIDSet Method Command."}},
        {"create array size", "CreateRAIDSet",
         {{"MemberDisks", In::u32(3)}, {"DiskArray", In::u32s({1, 2})}, {"Enc", In::u32(1)}, {"Name", In::str("a")}},
         {CMPI_RC_ERR_FAILED, "the element of DiskArray incorret"}},
        {"create enc 0", "CreateRAIDSet",
         {{"MemberDisks", In::u32(2)}, {"DiskArray", In::u32s({1, 2})}, {"Enc", In::u32(0)}, {"Name", In::str("a")}},
         {CMPI_RC_ERR_FAILED, "Argument enc is incorrect in CreateRAIDSet Method Command."}},
        {"create enc 256 is its low byte 0", "CreateRAIDSet",
         {{"MemberDisks", In::u32(2)}, {"DiskArray", In::u32s({1, 2})}, {"Enc", In::u32(256)}, {"Name", In::str("a")}},
         {CMPI_RC_ERR_FAILED, "Argument enc is incorrect in CreateRAIDSet Method Command."}},
        {"create name 17", "CreateRAIDSet",
         {{"MemberDisks", In::u32(1)}, {"DiskArray", In::u32s({1})}, {"Enc", In::u32(1)},
          {"Name", In::str("ABCDEFGHIJKLMNOPQ")}},
         {CMPI_RC_ERR_FAILED, "Argument Name Character Size in CreateRAIDSet Method Command is greater than 16"}},
        {"create null name", "CreateRAIDSet",
         {{"MemberDisks", In::u32(1)}, {"DiskArray", In::u32s({1})}, {"Enc", In::u32(1)}, {"Name", In::null()}},
         {CMPI_RC_ERR_FAILED, "Argument Name not present in CreateRAIDSet Method Command."}},
        {"delete count", "DeleteRAIDSet", {}, {count, "DeleteRAIDSet: incorrect args number were received."}},
        {"delete 0", "DeleteRAIDSet", {{"RAIDNo", In::u32(0)}}, {CMPI_RC_ERR_FAILED, "Argument RAIDNo is inCorrect"}},
        {"delete other name", "DeleteRAIDSet", {{"Enc", In::u32(1)}},
         {CMPI_RC_ERR_FAILED, "Argument RAIDNo not present in DeleteRAIDSet Method Command."}},
        {"expand lengths", "ExpandRAIDSet",
         {{"RAIDNo", In::u32(1)}, {"DiskArray", In::u32s({4, 5})}, {"Encls", In::u32s({2})}},
         {CMPI_RC_ERR_FAILED, "the element of DiskArray and Encls incorret"}},
        {"expand names create", "ExpandRAIDSet",
         {{"RAIDNo", In::u32(1)}, {"DiskArray", In::u32s({4})}, {"Enc", In::u32(2)}},
         {CMPI_RC_ERR_FAILED, "Argument Encls not present in CreateRAIDSet Method Command."}},
        // The count byte of the request cannot state more than 255 new members; equal
        // lengths taken as bytes would otherwise let these through.
        {"expand 256 disks, no enclosures", "ExpandRAIDSet",
         {{"RAIDNo", In::u32(1)}, {"DiskArray", In::u32s(std::vector<uint64_t>(256, 4))}, {"Encls", In::u32s({})}},
         {CMPI_RC_ERR_FAILED, kTooManyMembers}},
        {"expand 258 disks, 2 enclosures", "ExpandRAIDSet",
         {{"RAIDNo", In::u32(1)}, {"DiskArray", In::u32s(std::vector<uint64_t>(258, 4))}, {"Encls", In::u32s({2, 2})}},
         {CMPI_RC_ERR_FAILED, kTooManyMembers}},
        {"expand no disks, 256 enclosures", "ExpandRAIDSet",
         {{"RAIDNo", In::u32(1)}, {"DiskArray", In::u32s({})}, {"Encls", In::u32s(std::vector<uint64_t>(256, 2))}},
         {CMPI_RC_ERR_FAILED, kTooManyMembers}},
        {"expand 0", "ExpandRAIDSet",
         {{"RAIDNo", In::u32(0)}, {"DiskArray", In::u32s({4})}, {"Encls", In::u32s({2})}},
         {CMPI_RC_ERR_FAILED, "Argument RAIDNo is inCorrect"}},
        {"offline count", "OfflineRAIDSet", {{"RAIDNo", In::u32(1)}, {"Enc", In::u32(1)}},
         {count, "OfflineRAIDSet: incorrect args number were received."}},
        {"activate missing", "ActivateRAIDSet", {{"Enc", In::u32(1)}},
         {CMPI_RC_ERR_FAILED, "Argument RAIDNo not present in ActivateRAIDSet Method Command."}},
        {"hot spare order", "CreateHotSpare",
         {{"RAIDNo", In::u32(1)}, {"Enc", In::u32(1)}, {"Disk", In::u32(1)}, {"Name", In::str("x")}},
         {CMPI_RC_ERR_FAILED, "Argument Type not present in CreateHotSpare Method Command."}},
        {"delete hot spare names create", "DeleteHotSpare", {{"Enc", In::u32(1)}, {"Type", In::u32(1)}},
         {CMPI_RC_ERR_FAILED, "Argument Disk not present in CreateHotSpare Method Command."}},
    };
    for (const NamedArgCase &c : cases) {
        SCOPED_TRACE(c.name);
        sim::resetCounters();
        Answer a = invokeDirect(kPool, c.method, c.args);
        EXPECT_EQ(a.rc, c.expect.rc);
        EXPECT_EQ(a.message, c.expect.message);
        EXPECT_EQ(a.doneCount, 1);
        EXPECT_EQ(changeRequests(), 0u);
        EXPECT_EQ(sim::openDescriptors(), 0u);
    }
}

TEST_F(PoolMethods, RequestsCarryTheirFramesAndAnswerTheReplyLetter) {
    const FrameCase cases[] = {
        {"delete a set with volumes", "DeleteRAIDSet", {{"RAIDNo", In::u32(2)}}, 0x51,
         {0x5E, 0x01, 0x61, 0x02, 0x00, 0x51, 0x01, 0x54, 0x00}, {static_cast<CMPIrc>(0x42), "RAIDSET NOT NORMAL"}},
        {"delete no set", "DeleteRAIDSet", {{"RAIDNo", In::u32(8)}}, 0x51,
         {0x5E, 0x01, 0x61, 0x02, 0x00, 0x51, 0x07, 0x5A}, {static_cast<CMPIrc>(0x44), "NO RAIDSET"}},
        {"offline 0 is sent", "OfflineRAIDSet", {{"RAIDNo", In::u32(0)}}, 0x56,
         {0x5E, 0x01, 0x61, 0x02, 0x00, 0x56, 0xFF, 0x57}, {static_cast<CMPIrc>(0x44), "NO RAIDSET"}},
        {"activate 258 by its low byte", "ActivateRAIDSet", {{"RAIDNo", In::u32(258)}}, 0x53,
         {0x5E, 0x01, 0x61, 0x02, 0x00, 0x53, 0x01, 0x56}, {CMPI_RC_OK, "OK"}},
        {"hot spare", "CreateHotSpare",
         {{"Type", In::u32(1)}, {"RAIDNo", In::u32(2)}, {"Enc", In::u32(2)}, {"Disk", In::u32(4)}}, 0x54,
         {0x5E, 0x01, 0x61, 0x0A, 0x00, 0x54, 0xFF, 0xFF, 0xFF, 0xFF, 0x01, 0x03, 0x01, 0x01, 0x00, 0x60, 0x00},
         {CMPI_RC_OK, "OK"}},
        {"remove hot spare", "DeleteHotSpare", {{"Enc", In::u32(1)}, {"Disk", In::u32(5)}}, 0x55,
         {0x5E, 0x01, 0x61, 0x0B, 0x00, 0x55, 0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x04, 0x00, 0x00, 0x00, 0x00, 0x60},
         {CMPI_RC_OK, "OK"}},
        {"hot spare on a member", "CreateHotSpare",
         {{"Type", In::u32(0)}, {"RAIDNo", In::u32(1)}, {"Enc", In::u32(1)}, {"Disk", In::u32(1)}}, 0x54,
         {0x5E, 0x01, 0x61, 0x0A, 0x00, 0x54}, {static_cast<CMPIrc>(0x47), "PARAMETER ERROR"}},
    };
    for (const FrameCase &c : cases) {
        SCOPED_TRACE(c.name);
        sim::loadScenario("default");
        Answer a = invoke(kPool, c.method, c.args);
        EXPECT_EQ(sentFrame(c.command, c.frame.size()), c.frame);
        EXPECT_EQ(a.rc, c.expect.rc);
        EXPECT_EQ(a.message, c.expect.message);
        ASSERT_TRUE(a.value.has_value());
        EXPECT_EQ(*a.value, c.expect.message) << "the reply text is the return value";
    }
}

// The create frame starts as blanks; the enclosure byte is "Enc" - 1 and the
// disk byte is reduced only for enclosure byte 1.
TEST_F(PoolMethods, CreateRaidSetFrameIsBlankFilledWithTheEnclosureAsymmetry) {
    struct Case {
        uint32_t enc;
        std::vector<uint64_t> disks;
        std::string name;
        std::vector<uint8_t> pairs;
        Expect expect;
    };
    const Case cases[] = {
        {2, {4, 5}, "New", {0x01, 0x03, 0x01, 0x04}, {CMPI_RC_OK, "OK"}},
        {1, {1, 2}, "ABCDEFGHIJKLMNOP", {0x00, 0x01, 0x00, 0x02}, {static_cast<CMPIrc>(0x47), "PARAMETER ERROR"}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        sim::loadScenario("default");
        Answer a = invoke(kPool, "CreateRAIDSet",
                          {{"MemberDisks", In::u32(c.disks.size())}, {"DiskArray", In::u32s(c.disks)},
                           {"Enc", In::u32(c.enc)}, {"Name", In::str(c.name)}});
        EXPECT_EQ(a.rc, c.expect.rc);
        EXPECT_EQ(a.message, c.expect.message);
        const std::vector<uint8_t> whole = sim::lastRequest(0x50);
        ASSERT_EQ(whole.size(), 1060u);
        EXPECT_EQ(whole[0], 0x20) << "the ioctl header is blank too";
        const uint8_t *b = whole.data() + 28;
        const uint16_t length = static_cast<uint16_t>(22 + 2 * c.disks.size());
        EXPECT_EQ(b[3] | (b[4] << 8), length);
        EXPECT_EQ(b[5], 0x50);
        EXPECT_EQ(b[6], c.disks.size());
        EXPECT_EQ(std::vector<uint8_t>(b + 7, b + 10), std::vector<uint8_t>(3, 0));
        std::string name(reinterpret_cast<const char *>(b + 10), 16);
        EXPECT_EQ(name, c.name + std::string(16 - c.name.size(), ' '));
        EXPECT_EQ(b[26], 1) << "mode";
        EXPECT_EQ(std::vector<uint8_t>(b + 27, b + 27 + c.pairs.size()), c.pairs);
        unsigned sum = 0;
        for (int i = 3; i <= 4 + length; ++i) sum += b[i];
        EXPECT_EQ(b[5 + length], static_cast<uint8_t>(sum));
        EXPECT_EQ(b[6 + length], 0x20) << "past the checksum";
    }
    EXPECT_TRUE(logged("SendCreateRAIDs: No.1"));
    EXPECT_TRUE(logged("TovraStoragePoolProviderInvokeMethod: diskArray[1] = 2"));
    EXPECT_TRUE(logged("CreateRAIDSet: Sarting"));
    EXPECT_TRUE(logged("ParseRAIDSetCommandCode: Ending return(71)"));
}

// The expand frame is 1024 payload bytes; "Encls" is read only up to the
// number of RAID sets in the pool cache.
TEST_F(PoolMethods, ExpandRaidSetSendsTheLongFrameAndReadsEnclsUpToTheCachedSetCount) {
    struct Case {
        size_t cachedSets;
        std::vector<uint8_t> pairs;
    };
    const Case cases[] = {
        {1, {0x01, 0x03, 0xFF, 0x04, 0xFF, 0x02}},
        {2, {0x01, 0x03, 0x01, 0x04, 0xFF, 0x02}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.cachedSets);
        sim::loadScenario("default");
        if (c.cachedSets == 1) sim::withModel([](sim::Model &m) {
            m.volumes[2].reset();
            m.raidSets[1].reset();
        });
        freshClock();
        ASSERT_EQ(enumInstances(kPool).objects.size(), c.cachedSets);
        invoke(kPool, "ExpandRAIDSet",
               {{"RAIDNo", In::u32(2)}, {"DiskArray", In::u32s({4, 5, 3})}, {"Encls", In::u32s({2, 2, 2})}});
        const std::vector<uint8_t> whole = sim::lastRequest(0x52);
        ASSERT_EQ(whole.size(), 1060u);
        const uint8_t *b = whole.data() + 28;
        EXPECT_EQ(std::vector<uint8_t>(b, b + 11),
                  (std::vector<uint8_t>{0x5E, 0x01, 0x61, 0x00, 0x04, 0x52, 0x01, 0x03, 0, 0, 0}));
        EXPECT_EQ(std::vector<uint8_t>(b + 11, b + 17), c.pairs);
        unsigned sum = 0;
        for (int i = 3; i <= 1028; ++i) sum += b[i];
        EXPECT_EQ(b[1029], static_cast<uint8_t>(sum));
    }
}

}  // namespace
