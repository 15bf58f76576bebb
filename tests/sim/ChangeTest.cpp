// Changing commands: RAID sets, hot spares, volumes, pass-through disks and
// settings, with the refusal letters and the state they leave behind.
#include "SimSupport.h"

namespace simtest {
namespace {

class Change : public SimTest {
protected:
    Device d;

    uint8_t diskState(uint8_t enc, uint8_t slot) { return transact(d, 0x22, {slot, enc}).at(76); }
    uint8_t diskRaidSet(uint8_t enc, uint8_t slot) { return transact(d, 0x22, {slot, enc}).at(81); }
    Bytes raidSet(uint8_t no) { return transact(d, 0x20, {no, 0}); }
    Bytes volume(uint8_t no) { return transact(d, 0x21, {no, 0}); }

    // The create request as the management software builds it: the whole
    // buffer blank-filled, pairs (enclosure byte, disk byte) as given.
    char createRaidSet(const std::string &name, const std::vector<std::pair<uint8_t, uint8_t>> &pairs) {
        const auto n = static_cast<uint8_t>(pairs.size());
        Bytes params(21 + 2 * n, 0x20);
        params[0] = n;
        params[1] = params[2] = params[3] = 0;
        std::copy(name.begin(), name.end(), params.begin() + 4);
        params[20] = 1;  // mode
        for (std::size_t i = 0; i < pairs.size(); ++i) {
            params[21 + 2 * i] = pairs[i].first;
            params[22 + 2 * i] = pairs[i].second;
        }
        if (send(d, sizedFrame(0x50, static_cast<uint16_t>(22 + 2 * n), params, 0x20), w::kIoctlWrite, 0x20) != 0)
            return '!';
        return letterOf(payloadOf(readFrame(d)));
    }

    char expand(uint8_t set, const std::vector<std::pair<uint8_t, uint8_t>> &pairs, uint16_t length = 1024) {
        Bytes params(5 + 2 * pairs.size(), 0);
        params[0] = set;
        params[1] = static_cast<uint8_t>(pairs.size());
        for (std::size_t i = 0; i < pairs.size(); ++i) {
            params[5 + 2 * i] = pairs[i].first;
            params[6 + 2 * i] = pairs[i].second;
        }
        return letterOf(transact(d, sizedFrame(0x52, length, params)));
    }

    char hotSpare(uint8_t command, uint8_t enc, uint8_t slot, uint8_t type = 0, uint8_t set = 0) {
        Bytes params = {0xFF, 0xFF, 0xFF, 0xFF, enc, slot};
        if (command == 0x54) params.insert(params.end(), {type, set, 0});
        else params.insert(params.end(), {0, 0, 0, 0});
        return letterOf(transact(d, 0x54 == command ? frame(0x54, params) : frame(0x55, params)));
    }

    struct VolumeDef {
        std::string name = "NewVol";
        uint64_t gb = 1000;
        uint8_t level = 3, stripe = 5, id = 0, lun = 3, tag = 1, cache = 1;
    };
    Bytes volumeParams(uint8_t number, const VolumeDef &v, std::size_t size) {
        Bytes p(size, 0);
        p[0] = number;
        std::copy(v.name.begin(), v.name.end(), p.begin() + 1);
        w::putLE64(p.data() + 17, v.gb * 1953125);
        p[25] = v.level;
        p[26] = v.stripe;
        p[28] = v.id;
        p[29] = v.lun;
        p[30] = v.tag;
        p[31] = v.cache;
        p[32] = 0x04;
        return p;
    }
    char createVolume(uint8_t set, const VolumeDef &v) {
        return letterOf(transact(d, frame(0x60, volumeParams(set, v, 41))));
    }
    char modifyVolume(uint8_t no, const VolumeDef &v) {
        return letterOf(transact(d, frame(0x61, volumeParams(no, v, 37))));
    }

    char passThrough(uint8_t command, uint8_t enc, uint8_t slot, uint8_t id = 0, uint8_t lun = 0) {
        if (command == 0x42) return letterOf(transact(d, 0x42, {enc, slot}));
        return letterOf(transact(d, command, {enc, slot, 0, id, lun, 1, 1, 0}));
    }
};

TEST_F(Change, CreateRaidSetDecodesTheDiskByteAsTheFrameCarriesIt) {
    // Enclosure byte 1: the disk byte is 0-based (slots 3 and 4 of the second enclosure).
    ASSERT_EQ(createRaidSet("NewSet", {{1, 3}, {1, 4}}), 'A');
    const Bytes rs = raidSet(2);
    EXPECT_EQ(text(rs, 0, 16), "NewSet");
    EXPECT_EQ(rs[60], 2);
    EXPECT_EQ(Bytes(rs.begin() + 216, rs.begin() + 218), (Bytes{2, 2}));
    EXPECT_EQ(diskState(1, 3), 0x80);
    EXPECT_EQ(diskRaidSet(1, 4), 2);

    // Enclosure byte 0: the disk byte is 1-based (6 names slot 5).
    ASSERT_EQ(passThrough(0x42, 0, 5), 'A');
    ASSERT_EQ(createRaidSet("Own", {{0, 6}}), 'A');
    EXPECT_EQ(diskRaidSet(0, 5), 3);
    EXPECT_EQ(createRaidSet("Zero", {{0, 0}}), 'F');
}

TEST_F(Change, RaidSetRulesRefuseWithTheirLetters) {
    EXPECT_EQ(createRaidSet("x", {{0, 1}}), 'G');          // slot 0 is a member already
    EXPECT_EQ(createRaidSet("x", {{0, 8}}), 'F');          // empty slot
    EXPECT_EQ(createRaidSet("x", {{1, 3}, {1, 3}}), 'G');  // the same disk twice
    EXPECT_EQ(createRaidSet("x", {{0, 7}}), 'G');          // failed disk
    EXPECT_EQ(createRaidSet("x", {}), 'G');
    EXPECT_EQ(letterOf(transact(d, 0x51, {0})), 'B');  // still holds volumes
    EXPECT_EQ(letterOf(transact(d, 0x51, {5})), 'D');
    EXPECT_EQ(letterOf(transact(d, 0x53, {7})), 'D');
    EXPECT_EQ(expand(6, {{1, 3}}), 'D');
    EXPECT_EQ(expand(0, {{1, 3}}), 'K');  // a 2 TB disk cannot join 4 TB members
    EXPECT_EQ(expand(0, {{1, 3}}, 8), 'G');     // an expand request is 1024 bytes long, no shorter
    EXPECT_EQ(expand(0, {{1, 3}}, 1023), 'G');
    EXPECT_EQ(expand(0, {{1, 3}}, 1025), 'G');
    EXPECT_EQ(text(raidSet(0), 0, 16), "Raid Set # 000");
}

TEST_F(Change, DeleteExpandOfflineAndActivateChangeTheSet) {
    ASSERT_EQ(letterOf(transact(d, 0x62, {2})), 'A');
    ASSERT_EQ(letterOf(transact(d, 0x51, {1})), 'A');
    EXPECT_EQ(raidSet(1).at(60), 0);
    EXPECT_EQ(diskState(1, 0), 0xC0);
    EXPECT_EQ(diskRaidSet(1, 0), 0xFF);

    sim::withModel([](sim::Model &m) {
        sim::Disk big = *m.disk(0, 0);
        big.serial = "BIGFREE1";
        big.state = sim::diskstate::Free;
        big.raidSet = sim::kNoRaidSet;
        m.enclosures[1].slots[6] = big;
    });
    const uint32_t freeBefore = w::getLE32(raidSet(0).data() + 84);
    ASSERT_EQ(expand(0, {{1, 6}}), 'A');
    const Bytes rs = raidSet(0);
    EXPECT_EQ(rs[60], 5);
    EXPECT_GT(w::getLE32(rs.data() + 84), freeBefore);  // volumes spread over more members

    ASSERT_EQ(letterOf(transact(d, 0x56, {0})), 'A');
    EXPECT_EQ(raidSet(0)[62], 1);
    EXPECT_EQ(w::getLE32(raidSet(0).data() + 24), 0x1Fu);
    EXPECT_EQ(w::getLE32(volume(0).data() + 40), 0x02u);  // its volumes fail
    EXPECT_EQ(expand(0, {{1, 3}}), 'B');
    ASSERT_EQ(letterOf(transact(d, 0x53, {0})), 'A');
    EXPECT_EQ(raidSet(0)[62], 3);
    EXPECT_EQ(w::getLE32(volume(0).data() + 40), 0u);
}

TEST_F(Change, HotSparesNeedFreeDisks) {
    EXPECT_EQ(hotSpare(0x54, 1, 3), 'A');
    EXPECT_EQ(diskState(1, 3), 0xA0);
    EXPECT_EQ(hotSpare(0x55, 1, 3), 'A');
    EXPECT_EQ(diskState(1, 3), 0xC0);
    EXPECT_EQ(hotSpare(0x54, 0, 0), 'G');        // a member
    EXPECT_EQ(hotSpare(0x54, 1, 3, 1, 5), 'D');  // dedicated to a missing set
    EXPECT_EQ(hotSpare(0x54, 1, 3, 2), 'G');     // unknown type
    EXPECT_EQ(hotSpare(0x55, 1, 4), 'G');        // not a hot spare
    EXPECT_EQ(hotSpare(0x55, 1, 9), 'F');

    ASSERT_EQ(hotSpare(0x54, 1, 3, 1, 1), 'A');  // dedicated hot spares go with their set
    ASSERT_EQ(letterOf(transact(d, 0x62, {2})), 'A');
    ASSERT_EQ(letterOf(transact(d, 0x51, {1})), 'A');
    EXPECT_EQ(diskState(1, 3), 0xC0);
}

TEST_F(Change, VolumesFollowCapacityLevelAndTargetRules) {
    ASSERT_EQ(createVolume(1, {}), 'A');
    const Bytes v = volume(3);  // the lowest free number
    EXPECT_EQ(text(v, 0, 16), "NewVol");
    EXPECT_EQ(w::getLE64(v.data() + 16), 1000ULL * 1953125);
    EXPECT_EQ(v[55], 3);
    EXPECT_EQ(w::getLE32(v.data() + 36), 256u);  // 128 KiB
    EXPECT_EQ(v[58], 1);
    EXPECT_EQ(v[50], 3);
    EXPECT_EQ(w::getLE32(v.data() + 64), 0xC0u);
    EXPECT_EQ(text(v, 94, 16).size(), 16u);

    EXPECT_EQ(createVolume(1, {.gb = 5000, .lun = 4}), 'K');
    EXPECT_EQ(createVolume(1, {.level = 4, .lun = 4}), 'G');  // RAID 6 needs four members
    EXPECT_EQ(createVolume(1, {.level = 5, .lun = 4}), 'G');
    EXPECT_EQ(createVolume(1, {.stripe = 9, .lun = 4}), 'G');
    EXPECT_EQ(createVolume(1, {.id = 16, .lun = 4}), 'G');
    EXPECT_EQ(createVolume(1, {.lun = 1}), 'G');  // 0/1 belongs to volume 1
    EXPECT_EQ(createVolume(6, {.lun = 4}), 'D');

    EXPECT_EQ(modifyVolume(3, {.name = "Grown", .gb = 1200}), 'A');
    EXPECT_EQ(text(volume(3), 0, 16), "Grown");
    EXPECT_EQ(modifyVolume(3, {.gb = 900}), 'G');  // volumes do not shrink
    EXPECT_EQ(modifyVolume(9, {}), 'E');

    sim::withModel([](sim::Model &m) { m.disk(1, 0)->state = sim::diskstate::Failed; });
    EXPECT_EQ(w::getLE32(volume(2).data() + 24), 0x1u);  // degraded
    EXPECT_EQ(modifyVolume(2, {.gb = 1600, .lun = 2}), 'C');
    EXPECT_EQ(createVolume(1, {.lun = 5}), 'B');

    EXPECT_EQ(letterOf(transact(d, 0x62, {3})), 'A');
    EXPECT_EQ(letterOf(transact(d, 0x62, {3})), 'E');
    EXPECT_EQ(w::getLE64(volume(3).data() + 16), 0u);
}

TEST_F(Change, PassThroughDisksNeedFreeDisksAndFreeTargets) {
    EXPECT_EQ(passThrough(0x40, 1, 4, 2, 0), 'A');
    EXPECT_EQ(diskState(1, 4), 0x82);
    EXPECT_EQ(passThrough(0x41, 1, 4, 2, 1), 'A');
    EXPECT_EQ(transact(d, 0x22, {4, 1}).at(84), 1);  // LUN in gpdScsi
    EXPECT_EQ(passThrough(0x40, 0, 0, 3, 0), 'G');  // a member
    EXPECT_EQ(passThrough(0x40, 0, 7, 3, 0), 'F');  // empty slot
    EXPECT_EQ(passThrough(0x40, 1, 3, 1, 0), 'G');  // 1/0 is taken by the disk in slot 6
    EXPECT_EQ(passThrough(0x40, 1, 3, 3, 8), 'G');
    EXPECT_EQ(passThrough(0x41, 1, 3, 3, 0), 'G');  // not a pass-through disk
    EXPECT_EQ(passThrough(0x42, 1, 4), 'A');
    EXPECT_EQ(diskState(1, 4), 0xC0);
    EXPECT_EQ(passThrough(0x42, 1, 4), 'G');
}

Bytes settingsParams(char form, Bytes selector, const Bytes &value, bool goodSignature = true) {
    Bytes p(1023, 0);
    p[0] = 0x08;
    std::memcpy(p.data() + 1, goodSignature ? "KeLpOrIn" : "KeLpOrIx", 8);
    p[9] = static_cast<uint8_t>(form);
    std::copy(selector.begin(), selector.end(), p.begin() + 10);
    if (form == 'A') {
        p[13] = static_cast<uint8_t>(value.size());
        std::copy(value.begin(), value.end(), p.begin() + 14);
    } else {
        w::putLE16(p.data() + 15, static_cast<uint16_t>(value.size()));
        std::copy(value.begin(), value.end(), p.begin() + 17);
    }
    return p;
}

TEST_F(Change, SettingsFormsStoreValuesBySelector) {
    sim::withModel([](sim::Model &m) { m.password.clear(); });  // no password: changes need no check
    auto set = [&](char form, Bytes selector, const Bytes &value, bool sig = true) {
        return letterOf(transact(d, sizedFrame(0x1F, 1024, settingsParams(form, selector, value, sig))));
    };
    EXPECT_EQ(set('A', {0x01, 0x14, 0x00}, {255, 255, 0, 0}), 'A');
    EXPECT_EQ(set('B', {0x01, 0xD6, 0x00}, {0x90, 0x1F}), 'A');
    EXPECT_EQ(set('A', {0x01, 0x27, 0x03}, {4}), 'A');
    EXPECT_EQ(set('A', {0x01, 0xD6, 0x00}, {80}), 'G');  // the port takes two bytes
    EXPECT_EQ(set('A', {0x01, 0x99, 0x09}, {1}), 'H');
    EXPECT_EQ(set('C', {0x01, 0x14, 0x00}, {1, 2, 3, 4}), 'G');
    EXPECT_EQ(set('A', {0x01, 0x9B, 0x00}, {0}, false), 'G');
    sim::withModel([](sim::Model &m) {
        EXPECT_EQ(m.settings.values["NetMask"], (Bytes{255, 255, 0, 0}));
        EXPECT_EQ(m.settings.values["HttpPort"], (Bytes{0x90, 0x1F}));
        EXPECT_EQ(m.settings.values["MAXCMDLen"], (Bytes{4}));
    });

    Bytes page(526, 0);
    page[0] = 0x08;
    std::memcpy(page.data() + 1, "KeLpOrIn", 8);
    page[11] = 2;  // page number 2, with no upload begun
    EXPECT_EQ(letterOf(transact(d, frame(0x1F, page))), 'R');

    EXPECT_EQ(letterOf(transact(d, 0x31, {0})), 'A');
    EXPECT_EQ(letterOf(transact(d, 0x31, {2})), 'G');
    EXPECT_EQ(letterOf(transact(d, 0x30)), 'A');
    EXPECT_EQ(letterOf(transact(d, 0x33, {1})), 'A');
    EXPECT_EQ(letterOf(transact(d, 0x39, {0, 10, 0, 0, 7})), 'A');
    const Bytes info = transact(d, 0x23);
    EXPECT_EQ(info[159], 0);  // beeper
    EXPECT_EQ(Bytes(info.begin() + 112, info.begin() + 120), (Bytes{10, 0, 0, 7, 10, 0, 0, 7}));
    sim::withModel([](sim::Model &m) {
        EXPECT_EQ(m.settings.lastFirmwarePage, 2u);
        EXPECT_EQ(m.settings.mode, 1);
    });
}

}  // namespace
}  // namespace simtest
