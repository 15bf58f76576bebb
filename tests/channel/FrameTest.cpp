// Request frames byte for byte, the result-letter table, and the reply
// assembler fed with hand-made chunks.
#include "ChannelFixture.h"
#include "Controller.h"
#include "DiskInventory.h"
#include "EnclosureInventory.h"
#include "RaidInventory.h"

#include <cstring>
#include <functional>

namespace chantest {
namespace {

using Bytes = std::vector<uint8_t>;
namespace w = tovra::wire;

Bytes head(const CMD_MESSAGE_FIELD &m, std::size_t n) { return Bytes(m.messagedatabuffer, m.messagedatabuffer + n); }

using RequestFrame = NoLeaks;
using ResultLetters = NoLeaks;

bool zeroFrom(const CMD_MESSAGE_FIELD &m, std::size_t first) {
    return std::all_of(m.messagedatabuffer + first, m.messagedatabuffer + w::kMessageDataSize,
                       [](uint8_t b) { return b == 0; });
}

TEST_F(RequestFrame, KeptExceptionsOfTheChecksumRule) {
    CMD_MESSAGE_FIELD m{};
    std::memset(&m, 0xAA, sizeof m);  // framing starts from a clean message buffer
    tovra::frameRequest(&m, 0x23, 1);
    EXPECT_EQ(head(m, 8), (Bytes{0x5E, 0x01, 0x61, 0x01, 0x00, 0x23, 0x24, 0x24}));
    EXPECT_TRUE(zeroFrom(m, 8));

    for (uint8_t command : {0x02, 0x03}) {
        tovra::frameRequest(&m, command, 1);
        EXPECT_EQ(head(m, 7), (Bytes{0x5E, 0x01, 0x61, 0x01, 0x00, command, 0x24}));
        EXPECT_TRUE(zeroFrom(m, 7));
    }

    // Password requests leave byte 21 out of the sum stored at 22.
    Bytes password(16, 0);
    password[0] = 3;
    password[1] = 'a', password[2] = 'b', password[3] = 'c';
    password[15] = 0x40;  // lands on byte 21
    for (uint8_t command : {0x14, 0x32}) {
        tovra::frameRequest(&m, command, 17, password);
        EXPECT_EQ(m.messagedatabuffer[21], 0x40);
        EXPECT_EQ(m.messagedatabuffer[22], w::sum8(m.messagedatabuffer, 3, 20));
        EXPECT_NE(m.messagedatabuffer[22], w::sum8(m.messagedatabuffer, 3, 21));
    }

    // Settings frames: 1024 payload bytes, checksum at 1029.
    Bytes settings(1023, 0);
    settings[0] = 0x08;
    settings[9] = 'A';
    settings[1022] = 0x7F;
    tovra::frameRequest(&m, 0x1F, 1024, settings);
    EXPECT_EQ(w::getLE16(m.messagedatabuffer + 3), 1024);
    EXPECT_EQ(m.messagedatabuffer[1028], 0x7F);
    EXPECT_EQ(m.messagedatabuffer[1029], w::frameChecksum(m.messagedatabuffer, 1024));
    EXPECT_TRUE(zeroFrom(m, 1030));
}

using Sender = std::function<bool(CMPIStatus *, int, CMD_MESSAGE_FIELD *)>;

struct SenderCase {
    const char *name;
    Sender send;
    Bytes frame;  // the whole expected frame, checksum included
};

class Senders : public ChannelTest {};

TEST_F(Senders, FrameEveryInventoryRequestAndStampTheSendTime) {
    const SenderCase cases[] = {
        {"SendRAIDsInfo", [](auto s, int f, auto m) { return SendRAIDsInfo(s, f, m, 3); },
         {0x5E, 0x01, 0x61, 0x03, 0x00, 0x20, 0x03, 0x00, 0x26}},
        {"SendVolumeInfo", [](auto s, int f, auto m) { return SendVolumeInfo(s, f, m, 31); },
         {0x5E, 0x01, 0x61, 0x03, 0x00, 0x21, 0x1F, 0x00, 0x43}},
        {"SendDiskInfo", [](auto s, int f, auto m) { return SendDiskInfo(s, f, m, 5, 1); },
         {0x5E, 0x01, 0x61, 0x03, 0x00, 0x22, 0x05, 0x01, 0x2B}},
        {"SendIdentify", [](auto s, int f, auto m) { return SendIdentify(s, f, m); },
         {0x5E, 0x01, 0x61, 0x01, 0x00, 0x13, 0x14}},
        {"SendBatteryStatus", [](auto s, int f, auto m) { return SendBatteryStatus(s, f, m, 0); },
         {0x5E, 0x01, 0x61, 0x04, 0x00, 0x1B, 0x00, 0x03, 0x00, 0x22}},
        {"SendEnclosureTemperatureDescription",
         [](auto s, int f, auto m) { return SendEnclosureTemperatureDescription(s, f, m, 2); },
         {0x5E, 0x01, 0x61, 0x04, 0x00, 0x1B, 0x02, 0x01, 0x04, 0x26}},
        {"SendEnclosureValue", [](auto s, int f, auto m) { return SendEnclosureValue(s, f, m, 1); },
         {0x5E, 0x01, 0x61, 0x04, 0x00, 0x1B, 0x01, 0x02, 0x00, 0x22}},
        {"SendEnclosureVoltageDescription",
         [](auto s, int f, auto m) { return SendEnclosureVoltageDescription(s, f, m, 1); },
         {0x5E, 0x01, 0x61, 0x04, 0x00, 0x1B, 0x01, 0x01, 0x01, 0x22}},
    };
    for (const SenderCase &c : cases) {
        SCOPED_TRACE(c.name);
        sim::advance(1);
        CMD_MESSAGE_FIELD m{};
        ASSERT_TRUE(c.send(&status, fd(), &m));
        EXPECT_EQ(head(m, c.frame.size()), c.frame);
        EXPECT_TRUE(zeroFrom(m, c.frame.size()));
        EXPECT_EQ(t1, static_cast<time_t>(sim::now()));
    }

    // The enclosure property request sums to the enclosure number + 0x1E.
    for (int enc = 0; enc < 12; ++enc) {
        CMD_MESSAGE_FIELD m{};
        ASSERT_TRUE(SendEnclosureProperty(&status, fd(), &m, enc));
        EXPECT_EQ(head(m, 9), (Bytes{0x5E, 0x01, 0x61, 0x03, 0x00, 0x1B, static_cast<uint8_t>(enc), 0x00,
                                     static_cast<uint8_t>(enc + 0x1E)}));
    }

    CMD_MESSAGE_FIELD m{};
    ASSERT_TRUE(SendMISC(&status, fd(), &m, 4));
    const Bytes misc = {0x5E, 0x01, 0x61, 0x0E, 0x02, 0x1F, 0x08, 'K', 'e', 'L', 'p', 'O', 'r', 'I', 'n', 4};
    EXPECT_EQ(head(m, 16), misc);
    EXPECT_EQ(m.messagedatabuffer[531], w::frameChecksum(m.messagedatabuffer, 526));
    EXPECT_EQ(status.rc, CMPI_RC_OK);
}

TEST_F(ResultLetters, TableAndUnknownLetters) {
    const std::pair<uint8_t, tovra::CommandResult> cases[] = {
        {'A', {0, "OK"}},
        {'B', {0x42, "RAIDSET NOT NORMAL"}},
        {'G', {0x47, "PARAMETER ERROR"}},
        {'L', {0x4C, "CHECKSUM ERROR"}},
        {'X', {0x58, "DISK TEST FAILED"}},
        {'Z', {0, nullptr}},
        {'@', {0, nullptr}},
        {'a', {0, nullptr}},
    };
    for (const auto &[letter, want] : cases) {
        const tovra::CommandResult got = tovra::resultOfLetter(letter);
        EXPECT_EQ(got.code, want.code) << letter;
        if (want.text == nullptr)
            EXPECT_EQ(got.text, nullptr) << letter;
        else
            EXPECT_STREQ(got.text, want.text) << letter;
    }
}

// A reply frame of the given payload with a correct checksum.
Bytes replyFrame(const Bytes &payload) {
    const auto length = static_cast<uint16_t>(payload.size());
    Bytes f(6u + length, 0);
    f[0] = 0x5E, f[1] = 0x01, f[2] = 0x61;
    w::putLE16(f.data() + 3, length);
    std::copy(payload.begin(), payload.end(), f.begin() + 5);
    f[5 + length] = w::frameChecksum(f.data(), length);
    return f;
}

using Step = tovra::ReplyAssembler::Step;

class Assembler : public NoLeaks {
protected:
    uint8_t frame[w::kBufferSize] = {};
    tovra::ReplyAssembler assembler{frame};

    Step feed(const Bytes &chunk) { return assembler.feed(chunk.data(), chunk.size()); }
    // Feeds `bytes` in chunks of `size`; the step after the last chunk.
    Step feedChunked(const Bytes &bytes, std::size_t size) {
        Step step = Step::NeedMore;
        for (std::size_t at = 0; at < bytes.size() && step == Step::NeedMore; at += size)
            step = feed(Bytes(bytes.begin() + at, bytes.begin() + std::min(bytes.size(), at + size)));
        return step;
    }
};

TEST_F(Assembler, SkipsChunksBeforeTheFrameAndStopsAtThePayloadLength) {
    const Bytes reply = replyFrame(Bytes(200, 0x42));
    // Garbage chunks, and a chunk that holds the start bytes but not at its
    // beginning, are skipped.
    EXPECT_EQ(feed({0x5E, 0x01, 0x00, 0xEE}), Step::NeedMore);
    EXPECT_EQ(feed({0xEE, 0x5E, 0x01, 0x61, 0x01, 0x00, 'A', 0x02}), Step::NeedMore);
    EXPECT_FALSE(assembler.started());
    EXPECT_EQ(feedChunked(reply, 64), Step::Complete);
    EXPECT_TRUE(std::equal(reply.begin(), reply.end(), frame));
}

TEST_F(Assembler, CollectionEndsOnceThePayloadLengthIsReached) {
    // The count is compared with the payload length, not the frame size: a
    // first chunk of 5 bytes already "completes" a one-byte reply, without
    // its payload and checksum bytes.
    EXPECT_EQ(feed(Bytes{0x5E, 0x01, 0x61, 0x01, 0x00}), Step::Complete);
    EXPECT_EQ(assembler.collected(), 5u);
    // A chunk shorter than the start bytes never starts a frame.
    uint8_t other[w::kBufferSize] = {};
    tovra::ReplyAssembler a(other);
    const Bytes reply = replyFrame({'A'});
    for (uint8_t b : reply) EXPECT_EQ(a.feed(&b, 1), Step::NeedMore);
    EXPECT_FALSE(a.started());
}

TEST_F(Assembler, EmptyAndOversizedFramesFailAtOnce) {
    EXPECT_EQ(feedChunked({0x5E, 0x01, 0x61, 0x00, 0x00, 0x00}, 6), Step::ZeroLength);

    // 6 + 1055 bytes cannot fit the 1060-byte buffer: refused once the length is in.
    tovra::ReplyAssembler big(frame);
    const Bytes header = {0x5E, 0x01, 0x61, 0x1F, 0x04};
    EXPECT_EQ(big.feed(header.data(), header.size()), Step::TooLong);

    // A driver chunk longer than the message buffer is refused too, once a
    // frame has started; before that it is garbage and skipped.
    uint8_t other[w::kBufferSize] = {};
    tovra::ReplyAssembler bad(other);
    Bytes chunk(w::kMessageDataSize + 1, 0);
    EXPECT_EQ(bad.feed(chunk.data(), chunk.size()), Step::NeedMore);
    std::copy(header.begin(), header.end(), chunk.begin());
    EXPECT_EQ(bad.feed(chunk.data(), chunk.size()), Step::TooLong);
}

TEST_F(Assembler, ALengthCompletedByALaterChunkMustStillFit) {
    // The start chunk holds only the length's low byte (expected 255); the
    // next chunk's first byte becomes the high byte, 0x7F.
    EXPECT_EQ(feed({0x5E, 0x01, 0x61, 0xFF}), Step::NeedMore);
    EXPECT_EQ(feed(Bytes(300, 0x7F)), Step::TooLong);

    // The same split with a length that fits completes normally.
    uint8_t other[w::kBufferSize] = {};
    tovra::ReplyAssembler a(other);
    const Bytes first = {0x5E, 0x01, 0x61, 0x10};
    const Bytes rest(300, 0x00);
    EXPECT_EQ(a.feed(first.data(), first.size()), Step::NeedMore);
    EXPECT_EQ(a.feed(rest.data(), rest.size()), Step::Complete);
}

TEST_F(Assembler, LargestFrameFitsAndTrailingBytesAreNotCopiedPastTheBuffer) {
    Bytes reply = replyFrame(Bytes(1054, 0x33));
    ASSERT_EQ(reply.size(), w::kBufferSize);
    reply.resize(2 * w::kMessageDataSize, 0xEE);  // junk after the frame in the last chunk
    EXPECT_EQ(feedChunked(reply, w::kMessageDataSize), Step::Complete);
    EXPECT_EQ(assembler.collected(), w::kBufferSize);
    EXPECT_EQ(frame[w::kBufferSize - 1], w::frameChecksum(frame, 1054));
}

}  // namespace
}  // namespace chantest
