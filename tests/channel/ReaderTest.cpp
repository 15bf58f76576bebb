// The reply reader through real ioctl calls: command results with their
// letters, failures and time limits; inventory reads with the retry rule.
#include "ChannelFixture.h"
#include "Controller.h"
#include "DiskInventory.h"

#include <thread>

namespace chantest {
namespace {

using Bytes = std::vector<uint8_t>;
using Parser = tovra::CommandResult (*)(int, CMD_MESSAGE_FIELD *, CMD_MESSAGE_FIELD *);

class CommandResults : public ChannelTest {
protected:
    // The beeper commands serve as plain one-letter commands: no password.
    void SetUp() override {
        ChannelTest::SetUp();
        sim::withModel([](sim::Model &m) { m.password.clear(); });
    }

    // Sends one firmware command and reads its result with `parse`.
    tovra::CommandResult run(Parser parse, uint8_t command, const Bytes &params = {}) {
        tovra::ExchangeBuffers buffers("test");
        tovra::IoctlLock lock;
        tovra::frameRequest(buffers.request(), command, static_cast<uint16_t>(params.size() + 1), params);
        EXPECT_TRUE(tovra::sendRequest(fd(), buffers.request()));
        return parse(fd(), buffers.reassembly(), buffers.reply());
    }
};

void expectResult(const tovra::CommandResult &got, unsigned code, const char *text) {
    EXPECT_EQ(got.code, code);
    if (text == nullptr)
        EXPECT_EQ(got.text, nullptr);
    else
        EXPECT_STREQ(got.text, text);
}

TEST_F(CommandResults, LettersAndEndingLines) {
    expectResult(run(ParseRAIDSetCommandCode, 0x30), 0, "OK");
    expectResult(run(ParseDiskDriveCommandCode, 0x31, {2}), 0x47, "PARAMETER ERROR");
    expectResult(run(ParseSySCommandCode, 0x23), 0, nullptr);  // a multi-byte reply has no letter
    expectResult(run(ParseVolumeCommandCode, 0x30), 0, "OK");
    EXPECT_EQ(sim::logLines(), (std::vector<std::string>{"ParseRAIDSetCommandCode: Ending return(0)",
                                                         "ParseDiskDriveCommandCode: Ending return(71)",
                                                         "ParseSySCommandCode: Ending return(0)"}));
}

TEST_F(CommandResults, ChannelFailures) {
    struct Case {
        sim::FaultKind kind;
        unsigned value;
        unsigned code;
        const char *text;
        const char *logLine;  // besides the ending line
    };
    const Case cases[] = {
        {sim::FaultKind::BadChecksum, 0, 1, "CheckSum Error", "ParseDiskDriveCommandCode: CMPI_RC_ERROR_SYSTEM"},
        {sim::FaultKind::ZeroLength, 0, 1, "Returnd Data Length 0", nullptr},
        {sim::FaultKind::ReadFail, 0, 100, "ioctl READ Error", "ParseDiskDriveCommandCode: ioctl READ Error"},
        {sim::FaultKind::Garbage, 3, 0, "OK", nullptr},
        {sim::FaultKind::Chunk, 7, 0, "OK", nullptr},
        // A first chunk of 4 bytes ends collection before the letter arrives.
        {sim::FaultKind::Chunk, 4, 1, "CheckSum Error", "ParseDiskDriveCommandCode: CMPI_RC_ERROR_SYSTEM"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(static_cast<int>(c.kind));
        sim::clearLog();
        sim::setTime(kStartTime);
        sim::addFault({c.kind, 0x30, 0, 1, 1.0, c.value});
        expectResult(run(ParseDiskDriveCommandCode, 0x30), c.code, c.text);
        EXPECT_LT(elapsed(), 1.0);  // none of these waits for the time limit
        if (c.logLine != nullptr) {
            EXPECT_EQ(logCount(c.logLine), 1);
        }
        EXPECT_EQ(logCount("ParseDiskDriveCommandCode: Ending return(" + std::to_string(c.code) + ")"), 1);
    }
}

TEST_F(CommandResults, TimeLimitsOfThirtyAndOneHundredTwentySeconds) {
    sim::addFault({sim::FaultKind::NoReply, 0x30});
    expectResult(run(ParseVolumeCommandCode, 0x30), 176, "Command Timed Out");
    EXPECT_GE(elapsed(), 31.0);
    EXPECT_LT(elapsed(), 32.0);

    sim::setTime(kStartTime);
    expectResult(run(ParseSySCommandCode, 0x30), 176, "Command Timed Out");
    EXPECT_GE(elapsed(), 121.0);
    EXPECT_LT(elapsed(), 122.0);
    EXPECT_EQ(logCount("ParseSySCommandCode: Ending return(176)"), 1);
}

class InventoryRetry : public ChannelTest {
protected:
    bool readController() { return EnumTovraComputerSystemInfo(&status, fd(), &controller); }
    ControllerInfo controller{};
    static constexpr const char *kRetryLine = "EnumTovraComputerSystemInfo command retry failed";
};

TEST_F(InventoryRetry, OneBadReplyIsRetried) {
    for (sim::FaultKind kind : {sim::FaultKind::NoReply, sim::FaultKind::ZeroLength, sim::FaultKind::BadChecksum}) {
        SCOPED_TRACE(static_cast<int>(kind));
        sim::resetCounters();
        sim::setTime(kStartTime);
        sim::addFault({kind, 0x23, 0, 1});
        controller = {};
        EXPECT_TRUE(readController());
        EXPECT_EQ(status.rc, CMPI_RC_OK);
        EXPECT_STREQ(controller.SerialNumber, "TV12A0005531");
        EXPECT_EQ(sim::exchanges(0x23), 2u);
        // One second is allowed: the attempt gives up once two have passed.
        if (kind == sim::FaultKind::NoReply) {
            EXPECT_GE(elapsed(), 2.0);
            EXPECT_LT(elapsed(), 3.0);
        } else {
            EXPECT_LT(elapsed(), 1.0);
        }
    }
    EXPECT_TRUE(sim::logLines().empty());
}

TEST_F(InventoryRetry, FiveTriesAtMostAndTheMessageAfterTheFourthRetry) {
    sim::addFault({sim::FaultKind::BadChecksum, 0x23});
    EXPECT_FALSE(readController());
    EXPECT_EQ(status.rc, CMPI_RC_ERR_FAILED);
    EXPECT_EQ(status.msg, nullptr);
    EXPECT_EQ(sim::exchanges(0x23), 5u);
    EXPECT_EQ(sim::logLines(), std::vector<std::string>{kRetryLine});

    // Four failures and a good fifth try: success, and still the message.
    sim::reset();
    status = {CMPI_RC_OK, nullptr};
    sim::addFault({sim::FaultKind::NoReply, 0x23, 0, 4});
    EXPECT_TRUE(readController());
    EXPECT_EQ(status.rc, CMPI_RC_OK);
    EXPECT_EQ(sim::exchanges(0x23), 5u);
    EXPECT_EQ(sim::logLines(), std::vector<std::string>{kRetryLine});
}

TEST_F(InventoryRetry, FailedIoctlsEndTheExchangeWithoutRetryUnlessTheStatusSaysSo) {
    sim::addFault({sim::FaultKind::ReadFail, 0x23, 0, 1});
    EXPECT_FALSE(readController());
    EXPECT_EQ(status.rc, CMPI_RC_OK);
    EXPECT_EQ(sim::exchanges(0x23), 1u);
    EXPECT_EQ(sim::logLines(), std::vector<std::string>{"ParseComputerSystem: ioctl READ Error"});

    // A firmware send failure leaves the status alone: no retry either.
    sim::addFault({sim::FaultKind::WriteFail, 0x23, 0, 1});
    EXPECT_FALSE(readController());
    EXPECT_EQ(status.rc, CMPI_RC_OK);
    EXPECT_EQ(sim::exchanges(0x23), 2u);

    // A driver request that cannot be sent sets the status and is retried.
    sim::addFault({sim::FaultKind::WriteFail, 0x02, 0, 1});
    SoftwareInfo driver{};
    EXPECT_TRUE(EnumTovraDriverInfo(&status, fd(), &driver));
    EXPECT_EQ(sim::exchanges(0x02), 2u);
    EXPECT_STREQ(driver.version, "v1.40.00.00-20230131");
}

TEST_F(InventoryRetry, SmallChunksAndGarbageBeforeTheFrame) {
    for (unsigned size : {19u, 255u}) {  // no boundary between L and L+5 bytes
        SCOPED_TRACE(size);
        sim::setChunkSize(size);
        sim::addFault({sim::FaultKind::Garbage, -1, 0, 2, 1.0, 2});
        controller = {};
        DiskInfo disk{};
        EXPECT_TRUE(readController());
        EXPECT_STREQ(controller.SerialNumber, "TV12A0005531");
        EXPECT_TRUE(EnumTovraDiskDriveSlotInfo(&status, fd(), 3, 1, &disk));
        EXPECT_STREQ(disk.SerialNumber, "Z1Z0B7Q1");
        EXPECT_EQ(status.rc, CMPI_RC_OK);
    }
    EXPECT_TRUE(sim::logLines().empty());
}

TEST_F(InventoryRetry, OneByteChunksNeverStartAFrame) {
    sim::setChunkSize(1);
    controller = {};
    EXPECT_FALSE(readController());
    EXPECT_EQ(status.rc, CMPI_RC_ERR_FAILED);
    EXPECT_EQ(sim::exchanges(0x23), 5u);
    EXPECT_EQ(logCount("EnumTovraComputerSystemInfo command retry failed"), 1);
}

TEST_F(InventoryRetry, ConcurrentReadersEachGetWholeExchanges) {
    auto reader = [] {
        tovra::DeviceFd device;
        int good = 0;
        for (int i = 0; i < 40; ++i) {
            CMPIStatus st{CMPI_RC_OK, nullptr};
            ControllerInfo c{};
            DiskInfo d{};
            good += EnumTovraComputerSystemInfo(&st, device.get(), &c) && std::string(c.SerialNumber) == "TV12A0005531";
            good += EnumTovraDiskDriveSlotInfo(&st, device.get(), 0, 1, &d) &&
                    std::string(d.SerialNumber) == "WD-WMAY04200001";
        }
        return good;
    };
    int first = 0, second = 0;
    std::thread other([&] { second = reader(); });
    first = reader();
    other.join();
    EXPECT_EQ(first, 80);
    EXPECT_EQ(second, 80);
}

}  // namespace
}  // namespace chantest
