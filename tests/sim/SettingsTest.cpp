// The adapter's side of the controller settings: settings, address and the
// unlocked password kept in the state file and shown in the system information.
#include <cstdio>

#include "SimSupport.h"

namespace simtest {
namespace {

// A 0x1F settings request in form "A".
Bytes settingFrame(const Bytes &selector, const Bytes &value) {
    Bytes p(1023, 0);
    p[0] = 0x08;
    std::memcpy(p.data() + 1, "KeLpOrIn", 8);
    p[9] = 'A';
    std::copy(selector.begin(), selector.end(), p.begin() + 10);
    p[13] = static_cast<uint8_t>(value.size());
    std::copy(value.begin(), value.end(), p.begin() + 14);
    return sizedFrame(0x1F, 1024, p);
}

Bytes passwordCheck(const std::string &password) {
    Bytes f = frame(0x14, Bytes(16, 0));
    f[6] = static_cast<uint8_t>(password.size());
    std::copy(password.begin(), password.end(), f.begin() + 7);
    f[22] = w::sum8(f.data(), 3, 20);
    return f;
}

using SettingValues = SimTest;

TEST_F(SettingValues, KeptInTheStateFileAndShownInTheSystemInformation) {
    const std::string path = "/tmp/tovrasim-settings-" + std::to_string(::getpid()) + ".json";
    std::remove(path.c_str());
    sim::setStateFile(path);
    {
        Device d;
        ASSERT_EQ(letterOf(transact(d, passwordCheck("0000"))), 'A');
        ASSERT_EQ(letterOf(transact(d, settingFrame({0x01, 0x14, 0x00}, {255, 255, 240, 0}))), 'A');
        ASSERT_EQ(letterOf(transact(d, settingFrame({0x01, 0x88, 0x00}, {10, 3, 0, 1}))), 'A');
        ASSERT_EQ(letterOf(transact(d, 0x39, {0, 10, 3, 0, 9})), 'A');
        ASSERT_EQ(letterOf(transact(d, 0x31, {0})), 'A');
    }
    sim::setStateFile("");
    sim::loadScenario("default");
    sim::setStateFile(path);  // the saved adapter comes back
    Device d;
    const Bytes info = transact(d, 0x23);
    ASSERT_EQ(info.size(), 256u);
    EXPECT_EQ(Bytes(info.begin() + 112, info.begin() + 116), (Bytes{10, 3, 0, 9}));
    EXPECT_EQ(info[159], 0);  // beeper
    EXPECT_EQ(Bytes(info.begin() + 216, info.begin() + 224), (Bytes{255, 255, 240, 0, 10, 3, 0, 1}));
    EXPECT_EQ(letterOf(transact(d, 0x30)), 'A') << "the checked password still allows changes";
    sim::setStateFile("");
    std::remove(path.c_str());
}

}  // namespace
}  // namespace simtest
