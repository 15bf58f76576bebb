// The read commands and the wire layouts of their replies.
#include <cmath>

#include "SimSupport.h"

namespace simtest {
namespace {

class Inventory : public SimTest {
protected:
    Device d;
    Bytes raidSet(uint8_t no) { return transact(d, 0x20, {no, 0}); }
    Bytes volume(uint8_t no) { return transact(d, 0x21, {no, 0}); }
    Bytes disk(uint8_t enc, uint8_t slot) { return transact(d, 0x22, {slot, enc}); }
    Bytes misc(uint8_t selector) {
        Bytes params(525, 0);
        params[0] = 0x08;
        std::memcpy(params.data() + 1, "KeLpOrIn", 8);
        params[9] = selector;
        return transact(d, frame(0x1F, params));
    }
    Bytes enclosure(uint8_t index, uint8_t form, uint8_t sub) { return transact(d, 0x1B, {index, form, sub}); }
};

bool allZero(const Bytes &b) {
    return std::all_of(b.begin(), b.end(), [](uint8_t x) { return x == 0; });
}

TEST_F(Inventory, SystemInformationFillsEveryField) {
    const Bytes p = transact(d, 0x23);
    ASSERT_EQ(p.size(), 256u);
    EXPECT_EQ(text(p, 0, 40), "Tovra Technology Corp.");
    EXPECT_EQ(text(p, 40, 16), "TV12A0005531");
    EXPECT_EQ(text(p, 56, 16), "V1.56 2023-04-12");
    EXPECT_EQ(text(p, 88, 16), "B402-03");
    EXPECT_EQ(text(p, 104, 8), "TV-1883i");
    EXPECT_EQ(Bytes(p.begin() + 112, p.begin() + 116), (Bytes{192, 168, 10, 50}));
    EXPECT_EQ(w::getLE32(p.data() + 140), 2048u);
    EXPECT_EQ(Bytes(p.begin() + 152, p.begin() + 158), (Bytes{0x00, 0x1b, 0x4d, 0x2a, 0x10, 0x32}));
    EXPECT_EQ(p[164], 0x80);  // comA
    EXPECT_EQ(p[177], 32);
    EXPECT_EQ(p[178], 8);
    EXPECT_EQ(w::getLE32(p.data() + 148), 3u);  // events: the log's size unless given
    EXPECT_EQ(p[193], 2);                       // enclosures present unless given
    EXPECT_EQ(w::getLE64(p.data() + 200), 0x5001b4d50a2c1000ULL);
    EXPECT_EQ(text(p, 208, 8), "-16");

    sim::withModel([](sim::Model &m) { m.controller.vendor = std::string(40, ' '); });
    EXPECT_EQ(text(transact(d, 0x23), 0, 40), "");
}

TEST_F(Inventory, RaidSetReplyDerivesMembersStateAndFreeSpace) {
    const Bytes p = raidSet(0);
    ASSERT_EQ(p.size(), 248u);
    EXPECT_EQ(text(p, 0, 16), "Raid Set # 000");
    EXPECT_EQ(w::getLE64(p.data() + 16), 7814037168ULL);  // one member's blocks
    EXPECT_EQ(w::getLE32(p.data() + 24), 0u);
    EXPECT_EQ(Bytes(p.begin() + 28, p.begin() + 33), (Bytes{1, 2, 3, 4, 0}));  // slots, 1-based
    EXPECT_EQ(p[60], 4);
    EXPECT_EQ(p[62], 3);  // normal
    EXPECT_EQ(p[63], 2);  // volumes
    // Free per member after a RAID 5 and a RAID 6 volume, in 256 KiB units.
    const uint64_t used = (2000ULL * 1953125 + 2) / 3 + (1000ULL * 1953125) / 2;
    EXPECT_EQ(w::getLE32(p.data() + 84), (7814037168ULL - used) / 512);
    EXPECT_EQ(Bytes(p.begin() + 216, p.begin() + 220), (Bytes{1, 1, 1, 1}));  // enclosures, 1-based

    EXPECT_TRUE(allZero(raidSet(2)));  // empty numbers answer an all-zero DevArray
    EXPECT_TRUE(allZero(raidSet(200)));
}

TEST_F(Inventory, VolumeReplyCarriesStateBitsAndEmptyNumbersReadCapacityZero) {
    const Bytes p = volume(1);
    ASSERT_EQ(p.size(), 124u);
    EXPECT_EQ(text(p, 0, 16), "Volume Set # 001");
    EXPECT_EQ(w::getLE64(p.data() + 16), 1000ULL * 1953125);
    EXPECT_EQ(w::getLE32(p.data() + 36), 128u);  // 64 KiB in blocks
    EXPECT_EQ(p[49], 0);                         // SCSI id
    EXPECT_EQ(p[50], 1);                         // LUN
    EXPECT_EQ(p[54], 4);                         // members of the owning set
    EXPECT_EQ(p[55], 4);                         // RAID 6
    EXPECT_EQ(p[58], 0);                         // owning set
    EXPECT_EQ(w::getLE32(p.data() + 64), 0xC0u);  // write back, tagged queuing
    EXPECT_FALSE(text(p, 94, 16).empty());
    EXPECT_EQ(w::getLE64(volume(5).data() + 16), 0u);
}

TEST_F(Inventory, DiskReplyFillsTheUnionByDiskType) {
    const Bytes sas = disk(0, 0);
    ASSERT_EQ(sas.size(), 272u);
    EXPECT_EQ(text(sas, 0, 40), "ST4000NM0023");
    EXPECT_EQ(text(sas, 40, 20), "Z1Z0A1B2");
    EXPECT_EQ(w::getLE64(sas.data() + 68), 7814037168ULL);
    EXPECT_EQ(sas[76], 0x80);  // RAID member
    EXPECT_EQ(sas[81], 0);     // RAID set 0
    const uint64_t address = w::getLE64(sas.data() + 96);
    EXPECT_GT(address, 0x5000000000000000ULL);
    EXPECT_LE(address, 0x5001000000000000ULL);
    EXPECT_EQ(w::getLE16(sas.data() + 104), 7200);
    EXPECT_NE(w::getLE64(sas.data() + 112 + 8 * 4), 0u);

    const Bytes sata = disk(0, 4);
    EXPECT_EQ(sata[76], 0xA0);  // hot spare
    EXPECT_GT(w::getLE64(sata.data() + 96), 0x5001000000000000ULL);
    EXPECT_EQ(w::getLE16(sata.data() + 104), 1);  // first SMART attribute number
    EXPECT_EQ(sata[106], 200);
    EXPECT_EQ(sata[107], 51);

    EXPECT_EQ(text(disk(1, 3), 40, 20), "Z1Z0B7Q1");  // byte 6 is the slot, byte 7 the enclosure
    EXPECT_EQ(disk(0, 5)[76], 0x82);
    EXPECT_EQ(disk(0, 6)[76], 0x90);
    EXPECT_TRUE(allZero(disk(0, 7)));  // empty slot
    EXPECT_TRUE(allZero(disk(5, 0)));  // absent enclosure
}

TEST_F(Inventory, IdentifyAndCountQueriesFollowTheModel) {
    EXPECT_NE(transact(d, 0x13).at(0), 0);
    EXPECT_EQ(misc(4), (Bytes{2, 0x03, 0, 0, 0}));
    EXPECT_EQ(misc(5), (Bytes{3, 0x07, 0, 0, 0}));
    EXPECT_EQ(misc(3).at(0), 1);  // hot spares

    sim::loadScenario("bare");
    EXPECT_EQ(misc(4).at(0), 0);
    EXPECT_EQ(misc(5).at(0), 0);
    sim::withModel([](sim::Model &m) {
        for (auto &e : m.enclosures) e.slots.clear();
    });
    EXPECT_EQ(transact(d, 0x13).at(0), 0);

    Bytes badSignature(525, 0);
    badSignature[0] = 0x08;
    EXPECT_EQ(letterOf(transact(d, frame(0x1F, badSignature))), 'G');
}

TEST_F(Inventory, EnclosureCommandsDescribeSlotsSensorsAndBattery) {
    const Bytes p = transact(d, 0x1B, {1, 0});
    ASSERT_EQ(p.size(), 64u);
    EXPECT_EQ(text(p, 0, 8), "Tovra");
    EXPECT_EQ(text(p, 8, 16), "TV-8012 Expander");
    EXPECT_EQ(text(p, 24, 4), "0210");
    EXPECT_EQ(p[29], 1);                                        // EncNumber
    EXPECT_EQ(Bytes(p.begin() + 30, p.begin() + 35), (Bytes{12, 2, 2, 2, 1}));  // slots, V, F, P, T
    EXPECT_TRUE(allZero(transact(d, 0x1B, {7, 0})));

    const Bytes volts = enclosure(0, 1, 1);
    ASSERT_EQ(volts.size(), 1u + 3 * 24);
    EXPECT_EQ(volts[0], 3);
    EXPECT_EQ(text(volts, 1 + 24, 24), "5V");
    EXPECT_EQ(enclosure(0, 1, 4).at(0), 2);  // temperature descriptions

    const Bytes values = enclosure(0, 2, 0);
    ASSERT_EQ(values.size(), 4u + 4 * 6);
    EXPECT_EQ(Bytes(values.begin(), values.begin() + 4), (Bytes{3, 1, 0, 2}));
    float first;
    const uint32_t bits = w::getLE32(values.data() + 4);
    std::memcpy(&first, &bits, sizeof first);
    EXPECT_NEAR(first, 12.08, 1e-4);

    const Bytes battery = enclosure(0, 3, 0);
    EXPECT_EQ(battery.at(0), 1);
    EXPECT_EQ(battery.at(1), 100);
    EXPECT_EQ(letterOf(enclosure(0, 9, 0)), 'G');
}

TEST_F(Inventory, EventLogPollsReadsAndClears) {
    EXPECT_EQ(w::getLE16(transact(d, 0x19).data()), 3);
    const Bytes newest = transact(d, 0x1A, {0});
    ASSERT_EQ(newest.size(), 96u);
    EXPECT_EQ(w::getLE32(newest.data()), 1700003600u);
    EXPECT_EQ(text(newest, 32, 64), "Device Failed");
    EXPECT_EQ(letterOf(transact(d, 0x1A, {3})), 'T');
    EXPECT_EQ(letterOf(transact(d, 0x24)), 'A');
    EXPECT_EQ(w::getLE16(transact(d, 0x19).data()), 0);
}

TEST_F(Inventory, EdgeScenarioReachesTheRawDecoderInputs) {
    sim::loadScenario("edge");
    const Bytes rs0 = raidSet(0);
    EXPECT_EQ(text(rs0, 0, 16), "Edge Set");
    EXPECT_EQ(w::getLE32(rs0.data() + 24), 0x2u);  // the failed second member
    EXPECT_EQ(rs0[62], 6);
    EXPECT_TRUE(allZero(raidSet(1)));
    const Bytes rs3 = raidSet(3);
    EXPECT_EQ(text(rs3, 0, 16), "");
    EXPECT_EQ(w::getLE32(rs3.data() + 24), 1u);
    EXPECT_EQ(rs3[62], 9);

    const Bytes v0 = volume(0), v5 = volume(5);
    EXPECT_EQ(w::getLE32(v0.data() + 40), 0x40u);
    EXPECT_EQ(w::getLE32(v0.data() + 24), 0u);
    EXPECT_EQ(w::getLE32(v0.data() + 64), 0x8000u | 0xC0u);
    EXPECT_EQ(w::getLE32(v5.data() + 64) & 0x40008000u, 0x40008000u);
    EXPECT_EQ(v5[55], 7);
    EXPECT_EQ(w::getLE32(v5.data() + 36), 128u);
    EXPECT_EQ(w::getLE64(volume(1).data() + 16), 0u);

    const Bytes e1 = transact(d, 0x1B, {1, 0}), e2 = transact(d, 0x1B, {2, 0}), e3 = transact(d, 0x1B, {3, 0});
    EXPECT_EQ(Bytes(e1.begin(), e1.begin() + 28), Bytes(e2.begin(), e2.begin() + 28));
    EXPECT_EQ(e3[30], 0);  // sensors but no slots
    EXPECT_EQ(e3[31] + e3[32] + e3[33] + e3[34], 5);
    const Bytes zeroCapacity = disk(0, 5);  // reported as it is; readers skip it
    EXPECT_EQ(w::getLE64(zeroCapacity.data() + 68), 0u);
    EXPECT_EQ(text(zeroCapacity, 40, 20), "EDGE0005");
    EXPECT_EQ(w::getLE64(disk(0, 0).data() + 96), 0x5001000000000000ULL);
    EXPECT_EQ(disk(0, 6)[76], 0x30);
}

TEST_F(Inventory, FullScenarioFillsEverySlot) {
    sim::loadScenario("full");
    unsigned disks = 0;
    for (uint8_t e = 0; e < 12; ++e) {
        const uint8_t slots = transact(d, 0x1B, {e, 0}).at(30);
        EXPECT_EQ(slots, e == 0 ? 8 : 28);
        for (uint8_t s = 0; s < slots; ++s) disks += w::getLE64(disk(e, s).data() + 68) != 0;
    }
    EXPECT_EQ(disks, 316u);
    EXPECT_EQ(misc(4), (Bytes{8, 0xFF, 0, 0, 0}));
    EXPECT_EQ(misc(5), (Bytes{32, 0xFF, 0xFF, 0xFF, 0xFF}));
}

}  // namespace
}  // namespace simtest
