// The controller settings frames byte for byte: the settings table, both
// forms at every width, the password frames with their checksum at byte 22,
// the short commands, the firmware page; and dotted-address parsing.
#include "ChannelFixture.h"
#include "ControllerSettings.h"

#include <cstring>
#include <map>

namespace chantest {
namespace {

using Bytes = std::vector<uint8_t>;
namespace w = tovra::wire;

// An expected message buffer: frame start, length, command, the named bytes,
// and the checksum at 5 + length over bytes 3..4 + length.
struct ExpectedFrame {
    Bytes bytes = Bytes(w::kMessageDataSize, 0);
    ExpectedFrame(uint8_t command, uint16_t length) {
        bytes[0] = 0x5E, bytes[1] = 0x01, bytes[2] = 0x61;
        w::putLE16(&bytes[3], length);
        bytes[5] = command;
    }
    ExpectedFrame &at(std::size_t offset, const Bytes &values) {
        std::copy(values.begin(), values.end(), bytes.begin() + static_cast<std::ptrdiff_t>(offset));
        return *this;
    }
    Bytes checksummed(std::size_t sumLast, std::size_t checksumAt) {
        bytes[checksumAt] = w::sum8(bytes.data(), 3, sumLast);
        return bytes;
    }
    Bytes standard() {
        const uint16_t length = w::getLE16(&bytes[3]);
        return checksummed(4u + length, 5u + length);
    }
};

Bytes buffer(const CMD_MESSAGE_FIELD &m) { return Bytes(m.messagedatabuffer, m.messagedatabuffer + w::kMessageDataSize); }

const Bytes kSignature = {'K', 'e', 'L', 'p', 'O', 'r', 'I', 'n'};

using SettingsTable = NoLeaks;

// Every setting's selector and width, as the adapter defines them, and the
// form its method sends.
TEST_F(SettingsTable, SelectorsWidthsAndForms) {
    struct Row {
        const char *name;
        Bytes selector;
        uint8_t width;
        char form;
    };
    const Row rows[] = {
        {"NetMask", {0x01, 0x14, 0x00}, 4, 'B'},      {"Gateway", {0x01, 0x88, 0x00}, 4, 'B'},
        {"NCQ", {0x01, 0x9B, 0x00}, 1, 'A'},          {"DiskCache", {0x01, 0x9F, 0x00}, 1, 'A'},
        {"Truncation", {0x01, 0xEF, 0x00}, 1, 'A'},   {"CPUFan", {0x01, 0xF9, 0x00}, 1, 'A'},
        {"HttpPort", {0x01, 0xD6, 0x00}, 2, 'B'},     {"TelnetPort", {0x01, 0xF0, 0x00}, 2, 'B'},
        {"SMTPPort", {0x01, 0x02, 0x03}, 2, 'B'},     {"HDDReadAhead", {0x01, 0x01, 0x03}, 1, 'A'},
        {"HDDLED", {0x01, 0x08, 0x03}, 1, 'A'},       {"AutoActivate", {0x01, 0x0C, 0x03}, 1, 'A'},
        {"HDDQdepth", {0x01, 0x14, 0x03}, 1, 'A'},    {"SASMux", {0x01, 0x15, 0x03}, 1, 'A'},
        {"VolReadAhead", {0x01, 0x17, 0x03}, 1, 'A'}, {"SES2Support", {0x01, 0x18, 0x03}, 1, 'A'},
        {"MAXCMDLen", {0x01, 0x27, 0x03}, 1, 'A'},    {"WriteSame", {0x01, 0x34, 0x03}, 1, 'A'},
        {"HPDRebuilding", {0x01, 0x36, 0x03}, 1, 'A'},
    };
    EXPECT_EQ(std::size(tovra::kSettings), std::size(rows));
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        const tovra::SettingDef *s = tovra::findSetting(row.name);
        ASSERT_NE(s, nullptr);
        EXPECT_EQ(Bytes(s->selector.begin(), s->selector.end()), row.selector);
        EXPECT_EQ(s->width, row.width);
        EXPECT_EQ(s->form, row.form);
    }
    EXPECT_EQ(tovra::findSetting("Password"), nullptr);
    EXPECT_EQ(tovra::findSetting("ncq"), nullptr) << "names are exact";
}

using SettingsFrame = NoLeaks;

// Form "A": [15] "A", [16..18] selector, [19] n, [20..] value. Form "B":
// [15] "B", [16..18] selector, [19..20] 0, [21..22] n (LE16), [23..] value.
// Both: 1024 payload bytes, [6] 0x08, [7..14] signature, checksum at 1029.
TEST_F(SettingsFrame, BothFormsAtEveryWidth) {
    struct Row {
        const char *setting;
        char form;
        Bytes value;
        Bytes from15;  // expected bytes from offset 15 on
    };
    const Row rows[] = {
        {"NCQ", 'A', {0x01}, {'A', 0x01, 0x9B, 0x00, 0x01, 0x01}},
        {"NCQ", 'B', {0x01}, {'B', 0x01, 0x9B, 0x00, 0x00, 0x00, 0x01, 0x00, 0x01}},
        {"HttpPort", 'A', {0x90, 0x1F}, {'A', 0x01, 0xD6, 0x00, 0x02, 0x90, 0x1F}},
        {"SMTPPort", 'B', {0x19, 0x00}, {'B', 0x01, 0x02, 0x03, 0x00, 0x00, 0x02, 0x00, 0x19, 0x00}},
        {"NetMask", 'A', {255, 255, 255, 0}, {'A', 0x01, 0x14, 0x00, 0x04, 255, 255, 255, 0}},
        {"Gateway", 'B', {192, 168, 1, 254}, {'B', 0x01, 0x88, 0x00, 0x00, 0x00, 0x04, 0x00, 192, 168, 1, 254}},
        {"MAXCMDLen", 'A', {0x80}, {'A', 0x01, 0x27, 0x03, 0x01, 0x80}},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(std::string(row.setting) + " form " + row.form);
        CMD_MESSAGE_FIELD m{};
        std::memset(m.messagedatabuffer, 0xEE, sizeof m.messagedatabuffer);
        tovra::frameSetting(&m, *tovra::findSetting(row.setting), row.form, row.value);
        const Bytes expected = ExpectedFrame(0x1F, 1024).at(6, {0x08}).at(7, kSignature).at(15, row.from15).standard();
        EXPECT_EQ(buffer(m), expected);
        EXPECT_EQ(m.messagedatabuffer[1029], w::sum8(m.messagedatabuffer, 3, 1028));
    }
}

using PasswordFrame = NoLeaks;

// [6] n, [7..6+n] the characters; the checksum at 22 sums bytes 3..20 only,
// so the fifteenth character (byte 21) is left out.
TEST_F(PasswordFrame, ChecksumAt22LeavesByte21Out) {
    struct Row {
        uint8_t command;
        std::string password;
        uint8_t checksum;
    };
    const Row rows[] = {
        {0x14, "0000", 0xE9},
        {0x32, "0000", 0x07},
        {0x14, "ABCDEFGHIJKLMNO", 0x1D},
        {0x32, "ABCDEFGHIJKLMNO", 0x3B},
        {0x32, "", 0x43},
        {0x14, "ABCDEFGHIJKLMNOPQ", 0x1D},  // cut to the fifteen the frame holds
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.password);
        CMD_MESSAGE_FIELD m{};
        tovra::framePassword(&m, row.command, row.password);
        const std::string kept = row.password.substr(0, 15);
        ExpectedFrame expected(row.command, 17);
        expected.at(6, {static_cast<uint8_t>(kept.size())}).at(7, Bytes(kept.begin(), kept.end()));
        expected.bytes[22] = row.checksum;
        EXPECT_EQ(buffer(m), expected.bytes);
    }
}

using ShortFrames = NoLeaks;

TEST_F(ShortFrames, AddressBeeperModeAndFirmwarePage) {
    CMD_MESSAGE_FIELD m{};
    tovra::frameSetIP(&m, {10, 0, 0, 7});
    EXPECT_EQ(Bytes(m.messagedatabuffer, m.messagedatabuffer + 13),
              (Bytes{0x5E, 0x01, 0x61, 0x06, 0x00, 0x39, 0x00, 10, 0, 0, 7, 0x50, 0x00}));

    // The senders frame into the caller's buffer; a write the simulator
    // refuses is reported with status 1 and the sender's ending line.
    sim::reset();
    sim::captureLog(true);
    sim::clearLog();
    sim::addFault({.kind = sim::FaultKind::WriteFail, .command = 0x31});
    {
        tovra::DeviceFd device;
        CMPIStatus st{CMPI_RC_OK, nullptr};
        EXPECT_TRUE(SendMuteBeeper(&st, device.get(), &m));
        EXPECT_EQ(Bytes(m.messagedatabuffer, m.messagedatabuffer + 7),
                  (Bytes{0x5E, 0x01, 0x61, 0x01, 0x00, 0x30, 0x31}));
        EXPECT_TRUE(SendSetMode(&st, device.get(), &m, 2));
        EXPECT_EQ(Bytes(m.messagedatabuffer, m.messagedatabuffer + 8),
                  (Bytes{0x5E, 0x01, 0x61, 0x02, 0x00, 0x33, 0x02, 0x37}));
        EXPECT_EQ(st.rc, CMPI_RC_OK);
        EXPECT_FALSE(SendSetBeeper(&st, device.get(), &m, 1));
        EXPECT_EQ(Bytes(m.messagedatabuffer, m.messagedatabuffer + 8),
                  (Bytes{0x5E, 0x01, 0x61, 0x02, 0x00, 0x31, 0x01, 0x34}));
        EXPECT_EQ(st.rc, CMPI_RC_ERR_FAILED);
    }
    const auto lines = sim::logLines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "SendMuteBeeper: Ending(0x0)"), 1);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "SendSetBeeper: Ending(0x1)"), 1);
    sim::clearFaults();
    sim::captureLog(false);

    // Firmware page: L 527, [17..18] page number, [19..530] data, checksum at 532.
    const Bytes data(512, 0xAA);
    tovra::frameFirmwarePage(&m, 0x0102, data);
    ExpectedFrame page(0x1F, 527);
    page.at(6, {0x08}).at(7, kSignature).at(17, {0x02, 0x01}).at(19, data);
    EXPECT_EQ(buffer(m), page.standard());
    tovra::frameFirmwarePage(&m, 3, Bytes(100, 0x55));  // the last page is zero-filled
    EXPECT_EQ(m.messagedatabuffer[118], 0x55);
    EXPECT_EQ(m.messagedatabuffer[119], 0x00);
}

using DottedAddress = NoLeaks;

TEST_F(DottedAddress, FourDecimalPartsAndNothingElse) {
    const std::map<std::string, std::optional<std::array<uint8_t, 4>>> rows = {
        {"192.168.1.100", std::array<uint8_t, 4>{192, 168, 1, 100}},
        {"0.0.0.0", std::array<uint8_t, 4>{0, 0, 0, 0}},
        {"255.255.255.255", std::array<uint8_t, 4>{255, 255, 255, 255}},
        {"010.001.000.007", std::array<uint8_t, 4>{10, 1, 0, 7}},  // decimal, not octal
        {"", std::nullopt},
        {"10.0.0", std::nullopt},
        {"10.0.0.7.1", std::nullopt},
        {"10.0.0.256", std::nullopt},
        {"10.0.0.0007", std::nullopt},
        {"10..0.7", std::nullopt},
        {"10.0.0.7.", std::nullopt},
        {" 10.0.0.7", std::nullopt},
        {"10.0.0.7 ", std::nullopt},
        {"+10.0.0.7", std::nullopt},
        {"10.0.0.-7", std::nullopt},
        {"a.b.c.d", std::nullopt},
        {"0x0A.0.0.7", std::nullopt},
        {"fe80::1", std::nullopt},
    };
    for (const auto &[text, expected] : rows) EXPECT_EQ(tovra::parseDottedAddress(text), expected) << text;
}

}  // namespace
}  // namespace chantest
