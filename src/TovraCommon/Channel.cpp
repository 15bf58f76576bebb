#include "Channel.h"

#include <algorithm>
#include <cstring>
#include <new>

pthread_mutex_t Mutex4IOCTL = PTHREAD_MUTEX_INITIALIZER;
time_t t1 = 0;
time_t t2 = 0;
std::atomic<unsigned int> WaTP{1800};
unsigned int controller_count = 1;

unsigned int GetControllerCount() { return controller_count; }

namespace tovra {

using namespace wire;

ExchangeBuffers::ExchangeBuffers(const char *caller) : fields_(new (std::nothrow) CMD_MESSAGE_FIELD[3]()) {
    if (!fields_) logAlert("%s: CMPI_RC_ERROR_SYSTEM\n", caller);
}

void ExchangeBuffers::clearReplies() {
    std::memset(reassembly(), 0, sizeof(CMD_MESSAGE_FIELD));
    std::memset(reply(), 0, sizeof(CMD_MESSAGE_FIELD));
}

constexpr uint8_t kDriverRequestMark = 0x24;

uint8_t frameRequest(CMD_MESSAGE_FIELD *m, uint8_t command, uint16_t length, std::span<const uint8_t> params) {
    uint8_t *b = m->messagedatabuffer;
    std::memset(b, 0, kMessageDataSize);
    // The checksum must stay inside the message buffer.
    length = std::clamp<uint16_t>(length, 1, kMessageDataSize - 6);
    b[0] = kStart0;
    b[1] = kStart1;
    b[2] = kStart2;
    putLE16(b + 3, length);
    b[5] = command;
    if (!params.empty()) std::memcpy(b + 6, params.data(), std::min<std::size_t>(params.size(), length - 1u));

    if (command == 0x02 || command == 0x03) {
        b[6] = kDriverRequestMark;
        return kDriverRequestMark;
    }
    if (isPasswordRequest(command, length)) {
        b[22] = sum8(b, 3, 20);
        return b[22];
    }
    const uint8_t checksum = frameChecksum(b, length);
    b[5 + length] = checksum;
    if (command == 0x23) b[6 + length] = kDriverRequestMark;
    return checksum;
}

bool sendRequest(int fd, CMD_MESSAGE_FIELD *m, unsigned long code) {
    t1 = platformTime();
    return platformIoctl(fd, code, m) != -1;
}


// Reassembly as the adapter's tools have always done it: a chunk whose first
// three bytes are the frame start begins a frame and sets the expected length
// from its bytes 3 and 4; chunks before any start are skipped; reading stops
// once the collected count reaches the payload length (not the frame size),
// which is kept as it is. The copy is bounded: a frame that would not fit the
// reassembly buffer fails the read.
ReplyAssembler::Step ReplyAssembler::feed(const uint8_t *chunk, std::size_t length) {
    // The reply buffer is zeroed before every read, so header bytes past the
    // chunk's length read as zero.
    uint8_t head[5] = {};
    std::memcpy(head, chunk, std::min(length, sizeof head));
    if (hasFrameStart(head)) {
        expected_ = getLE16(head + 3);
        if (expected_ == 0) return Step::ZeroLength;
        if (6u + expected_ > kBufferSize) return Step::TooLong;
        started_ = true;
    }
    if (!started_) return Step::NeedMore;
    // A driver that reports more bytes than its buffer holds is not believed.
    if (length > kMessageDataSize) return Step::TooLong;
    const std::size_t copied = std::min(length, kBufferSize - collected_);
    std::memcpy(frame_ + collected_, chunk, copied);
    collected_ += copied;
    if (collected_ < expected_) return Step::NeedMore;
    // A start chunk shorter than the header lets a later chunk write the
    // length's high byte: the frame must still fit for its checksum to be read.
    return 6u + getLE16(frame_ + 3) > kBufferSize ? Step::TooLong : Step::Complete;
}

ReplyStatus readReply(int fd, CMD_MESSAGE_FIELD *reassembly, CMD_MESSAGE_FIELD *reply, int limitSeconds,
                      const char *parser, unsigned long readCode) {
    std::memset(reassembly, 0, sizeof *reassembly);
    auto *frame = reinterpret_cast<uint8_t *>(reassembly);
    ReplyAssembler assembler(frame);
    for (;;) {
        t2 = platformTime();
        if (static_cast<long long>(t2 - t1) > limitSeconds) return ReplyStatus::TimedOut;
        MySleep(0, 3000);
        std::memset(reply, 0, sizeof *reply);
        if (platformIoctl(fd, readCode, reply) == -1) {
            logAlert("%s: ioctl READ Error\n", parser);
            return ReplyStatus::ReadError;
        }
        const ReplyAssembler::Step step = assembler.feed(reply->messagedatabuffer, reply->cmdmessage.Length);
        std::memset(reply, 0, sizeof *reply);
        switch (step) {
            case ReplyAssembler::Step::NeedMore:
                continue;
            case ReplyAssembler::Step::ZeroLength:
                return ReplyStatus::ZeroLength;
            case ReplyAssembler::Step::TooLong:
                return ReplyStatus::TooLong;
            case ReplyAssembler::Step::Complete: {
                const uint16_t length = getLE16(frame + 3);
                return frameChecksum(frame, length) == frame[5 + length] ? ReplyStatus::Complete
                                                                          : ReplyStatus::BadChecksum;
            }
        }
    }
}

bool readInventoryReply(CMPIStatus *status, int fd, CMD_MESSAGE_FIELD *reassembly, CMD_MESSAGE_FIELD *reply,
                        const char *parser, unsigned long readCode) {
    switch (readReply(fd, reassembly, reply, kInventoryLimit, parser, readCode)) {
        case ReplyStatus::Complete:
            return true;
        case ReplyStatus::ReadError:
            return false;
        case ReplyStatus::TimedOut:
        case ReplyStatus::ZeroLength:
        case ReplyStatus::BadChecksum:
        case ReplyStatus::TooLong:
            break;
    }
    *status = failedStatus();
    return false;
}

namespace {

constexpr const char *kLetterTexts[] = {
    "OK",
    "RAIDSET NOT NORMAL",
    "VOLUMESET NOT NORMAL",
    "NO RAIDSET",
    "NO VOLUMESET",
    "NO PHYSICAL DRIVE",
    "PARAMETER ERROR",
    "UNSUPPORTED COMMAND",
    "DISK CONFIG CHANGED",
    "INVALID PASSWORD",
    "NO DISK SPACE",
    "CHECKSUM ERROR",
    "PASSWORD REQUIRED",
    "NO MORE DATA",
    "INTERNAL ERROR",
    "FIRMWARE CRC ERROR",
    "FIRMWARE INVALID",
    "FIRMWARE UPDATE FAILED",
    "FIRMWARE NO HDD",
    "END OF DATA",
    "ENCRYPTION TYPE MISMATCH",
    "ENCRYPTION KEY LEN INVALID",
    "ENCRYPTION KEY INVALID",
    "DISK TEST FAILED",
};
static_assert(std::size(kLetterTexts) == 'X' - 'A' + 1);

}  // namespace

CommandResult resultOfLetter(uint8_t letter) {
    if (letter < 'A' || letter > 'X') return {0, nullptr};
    return {letter == 'A' ? 0u : letter, kLetterTexts[letter - 'A']};
}

CommandResult readCommandResult(int fd, CMD_MESSAGE_FIELD *reassembly, CMD_MESSAGE_FIELD *reply,
                                int limitSeconds, const char *parser, bool logEnding) {
    CommandResult result{0, nullptr};
    switch (readReply(fd, reassembly, reply, limitSeconds, parser)) {
        case ReplyStatus::Complete:
            if (replyLength(reassembly) == 1) result = resultOfLetter(replyPayload(reassembly)[0]);
            break;
        case ReplyStatus::TimedOut:
            result = {kCodeTimedOut, kTextTimedOut};
            break;
        case ReplyStatus::ReadError:
            result = {kCodeReadError, kTextReadError};
            break;
        case ReplyStatus::ZeroLength:
            result = {CMPI_RC_ERR_FAILED, kTextZeroLength};
            break;
        case ReplyStatus::BadChecksum:
            logAlert("%s: CMPI_RC_ERROR_SYSTEM\n", parser);
            result = {CMPI_RC_ERR_FAILED, kTextChecksum};
            break;
        case ReplyStatus::TooLong:
            result = {CMPI_RC_ERR_FAILED, kTextTooLong};
            break;
    }
    if (logEnding) logAlert("%s: Ending return(%d)\n", parser, static_cast<int>(result.code));
    return result;
}

}  // namespace tovra

using tovra::CommandResult;

CommandResult ParseSySCommandCode(int fd, CMD_MESSAGE_FIELD *cmdmessagefld, CMD_MESSAGE_FIELD *tmpcmdmessagefld) {
    return tovra::readCommandResult(fd, cmdmessagefld, tmpcmdmessagefld, tovra::kSettingsResultLimit,
                                    "ParseSySCommandCode", true);
}

CommandResult ParseDiskDriveCommandCode(int fd, CMD_MESSAGE_FIELD *cmdmessagefld,
                                        CMD_MESSAGE_FIELD *tmpcmdmessagefld) {
    return tovra::readCommandResult(fd, cmdmessagefld, tmpcmdmessagefld, tovra::kCommandResultLimit,
                                    "ParseDiskDriveCommandCode", true);
}

CommandResult ParseRAIDSetCommandCode(int fd, CMD_MESSAGE_FIELD *cmdmessagefld,
                                      CMD_MESSAGE_FIELD *tmpcmdmessagefld) {
    return tovra::readCommandResult(fd, cmdmessagefld, tmpcmdmessagefld, tovra::kCommandResultLimit,
                                    "ParseRAIDSetCommandCode", true);
}

CommandResult ParseVolumeCommandCode(int fd, CMD_MESSAGE_FIELD *cmdmessagefld,
                                     CMD_MESSAGE_FIELD *tmpcmdmessagefld) {
    return tovra::readCommandResult(fd, cmdmessagefld, tmpcmdmessagefld, tovra::kCommandResultLimit,
                                    "ParseVolumeCommandCode", false);
}
