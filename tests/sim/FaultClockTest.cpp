// Fault injection, the virtual clock and syslog capture.
#include <syslog.h>
#include <time.h>

#include <stdexcept>

#include "SimSupport.h"

namespace simtest {
namespace {

class Faults : public SimTest {
protected:
    Device d;
    Bytes diskFrame() {
        if (send(d, frame(0x22, {0, 0})) != 0) return {};
        return readFrame(d, w::kIoctlRead, 50);
    }
};

const Bytes kZeroLengthFrame = {0x5E, 0x01, 0x61, 0x00, 0x00, 0x00};

TEST_F(Faults, CountedFaultsExpireAndNthStartsLater) {
    sim::addFault({sim::FaultKind::ZeroLength, 0x22, 0, 4});
    for (int i = 0; i < 4; ++i) EXPECT_EQ(diskFrame(), kZeroLengthFrame) << i;
    EXPECT_EQ(payloadOf(diskFrame()).size(), 272u);
    EXPECT_EQ(transact(d, 0x23).size(), 256u);  // other commands are untouched

    sim::clearFaults();
    sim::addFault({sim::FaultKind::BadChecksum, -1, 3, 1});
    EXPECT_TRUE(checksumOk(diskFrame()));
    EXPECT_TRUE(checksumOk(diskFrame()));
    EXPECT_FALSE(checksumOk(diskFrame()));
    EXPECT_TRUE(checksumOk(diskFrame()));
}

TEST_F(Faults, LostRepliesAndFailingIoctls) {
    sim::addFault({sim::FaultKind::NoReply, 0x22, 0, 1});
    EXPECT_TRUE(diskFrame().empty());

    sim::addFault({sim::FaultKind::ReadFail, 0x23, 0, 1});
    ASSERT_EQ(send(d, frame(0x23)), 0);
    EXPECT_EQ(readChunk(d).rc, -1);
    EXPECT_EQ(errno, EIO);

    // A failed write reaches no firmware: the RAID set is still there.
    sim::addFault({sim::FaultKind::WriteFail, 0x62, 0, 1});
    EXPECT_EQ(send(d, frame(0x62, {2})), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(sim::exchanges(0x62), 1u);
    EXPECT_NE(w::getLE64(transact(d, 0x21, {2, 0}).data() + 16), 0u);

    sim::addFault({sim::FaultKind::OpenFail, -1, 0, 1});
    const int failed = ::open(w::kDevicePath, O_RDWR);
    EXPECT_EQ(failed, -1);
    EXPECT_EQ(errno, ENOENT);
    Device again;
    EXPECT_GE(again.fd(), 0);
}

TEST_F(Faults, GarbageAndChunkFaultsShapeTheDelivery) {
    sim::addFault({sim::FaultKind::Garbage, 0x22, 0, 1, 1.0, 2});
    ASSERT_EQ(send(d, frame(0x22, {0, 0})), 0);
    for (int i = 0; i < 2; ++i) {
        const Chunk c = readChunk(d);
        ASSERT_EQ(c.data.size(), 8u);
        EXPECT_EQ(c.data[0], 0x5E);
        EXPECT_NE(c.data[2], 0x61);
    }
    EXPECT_EQ(readChunk(d).data.size(), 278u);

    sim::addFault({sim::FaultKind::Chunk, 0x23, 0, 0, 1.0, 5});
    ASSERT_EQ(send(d, frame(0x23)), 0);
    std::size_t total = 0;
    for (Chunk c = readChunk(d); !c.data.empty(); c = readChunk(d)) {
        EXPECT_EQ(c.data.size(), std::min<std::size_t>(5, 262 - total));
        total += c.data.size();
    }
    EXPECT_EQ(total, 262u);
    EXPECT_EQ(diskFrame().size(), 278u);  // other commands keep the default chunk
}

TEST_F(Faults, RatesAreRepeatable) {
    auto pattern = [&] {
        sim::clearFaults();
        sim::addFault({sim::FaultKind::BadChecksum, 0x22, 0, 0, 0.5});
        std::string bits;
        for (int i = 0; i < 64; ++i) bits += checksumOk(diskFrame()) ? '.' : 'x';
        return bits;
    };
    const std::string first = pattern();
    EXPECT_EQ(pattern(), first);
    const auto hits = std::count(first.begin(), first.end(), 'x');
    EXPECT_GT(hits, 16);
    EXPECT_LT(hits, 48);
}

TEST_F(Faults, TextFormMatchesTheStructuredForm) {
    sim::addFaults("cmd=0x22,kind=zerolength,count=2; kind=openfail,nth=2,count=1");
    EXPECT_EQ(diskFrame(), kZeroLengthFrame);
    EXPECT_EQ(diskFrame(), kZeroLengthFrame);
    EXPECT_EQ(payloadOf(diskFrame()).size(), 272u);
    Device first;
    EXPECT_GE(first.fd(), 0);
    Device second;
    EXPECT_EQ(second.fd(), -1);
    EXPECT_THROW(sim::addFaults("kind=sometimes"), std::invalid_argument);
    EXPECT_THROW(sim::addFaults("cmd=0x22"), std::invalid_argument);
    EXPECT_THROW(sim::addFaults("kind=delay,ms=abc"), std::invalid_argument);
}

TEST_F(Faults, DelayedReplyArrivesOnceTheVirtualClockPassesIt) {
    sim::useVirtualClock(true);
    sim::setTime(1000);
    sim::addFault({sim::FaultKind::Delay, 0x22, 0, 1, 1.0, 1500});
    ASSERT_EQ(send(d, frame(0x22, {0, 0})), 0);
    int emptyPolls = 0;
    while (readChunk(d).data.empty()) ASSERT_LT(++emptyPolls, 100);
    EXPECT_EQ(emptyPolls, 6);  // 1.5 s at 0.25 s per empty poll
    EXPECT_EQ(::time(nullptr), 1001);

    timespec twoSeconds{2, 0};
    EXPECT_EQ(::nanosleep(&twoSeconds, nullptr), 0);
    EXPECT_EQ(::time(nullptr), 1003);
    sim::advance(0.75);
    sim::setIdlePollStep(1.0);
    readChunk(d);  // nothing pending: one more step
    time_t out = 0;
    EXPECT_EQ(::time(&out), 1005);  // 1003.5 + 0.75 + 1
    EXPECT_EQ(out, 1005);

    sim::addFault({sim::FaultKind::NoReply, 0x23, 0, 1});
    ASSERT_EQ(send(d, frame(0x23)), 0);
    for (int i = 0; i < 200; ++i) ASSERT_TRUE(readChunk(d).data.empty());
    EXPECT_GE(::time(nullptr), 1200);  // enough for any reader's time limit
}

TEST_F(Faults, DelayWithTheRealClockHoldsTheReply) {
    sim::addFault({sim::FaultKind::Delay, 0x22, 0, 1, 1.0, 60000});
    ASSERT_EQ(send(d, frame(0x22, {0, 0})), 0);
    EXPECT_TRUE(readChunk(d).data.empty());
    const time_t before = ::time(nullptr);
    EXPECT_NEAR(static_cast<double>(before), sim::now(), 2.0);  // real time passes through
}

TEST_F(Faults, SyslogLinesAreCapturedWithTheirPriority) {
    sim::captureLog(true);
    ::syslog(LOG_ALERT, "%s: Sarting\n", "CreateRAIDSet");
    ::syslog(LOG_DEBUG, "%s: Ending(0x%x)\n", "ClearEvent", 0x42);
    const auto entries = sim::logEntries();
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].priority, LOG_ALERT);
    EXPECT_EQ(entries[0].text, "CreateRAIDSet: Sarting");
    EXPECT_EQ(sim::logLines()[1], "ClearEvent: Ending(0x42)");
    sim::clearLog();
    EXPECT_TRUE(sim::logLines().empty());
}

}  // namespace
}  // namespace simtest
