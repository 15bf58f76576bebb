// The controller channel: request framing, the reply reader, the one-letter
// command results, the exchange buffers and the retry rule shared by every
// inventory read. All firmware traffic of the process is serialised by
// Mutex4IOCTL.
#pragma once

#include <cmpidt.h>
#include <pthread.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <memory>
#include <span>

#include "Platform.h"
#include "Wire.h"

// The lock around one request frame and its reply.
extern pthread_mutex_t Mutex4IOCTL;
// Time the last request was sent, and of the last check while reading a reply.
// Both are meaningful only under Mutex4IOCTL.
extern time_t t1;
extern time_t t2;
// Lifetime of the providers' instance caches, in seconds. Read without a
// lock by every cache test; changed only by the method SetWaTP.
extern std::atomic<unsigned int> WaTP;
// The system serves exactly one adapter.
extern unsigned int controller_count;
unsigned int GetControllerCount();

namespace tovra {

// Reply time limits in whole seconds, counted from the send.
inline constexpr int kInventoryLimit = 1;
inline constexpr int kCommandResultLimit = 30;
inline constexpr int kSettingsResultLimit = 120;

inline constexpr CMPIStatus failedStatus() { return CMPIStatus{CMPI_RC_ERR_FAILED, nullptr}; }

// Holds Mutex4IOCTL for its lifetime.
class IoctlLock {
public:
    IoctlLock() { pthread_mutex_lock(&Mutex4IOCTL); }
    ~IoctlLock() { pthread_mutex_unlock(&Mutex4IOCTL); }
    IoctlLock(const IoctlLock &) = delete;
    IoctlLock &operator=(const IoctlLock &) = delete;
};

// The three zero-filled ioctl buffers of one exchange: the request, the
// reassembly buffer the reply frame is collected in, and the buffer each reply
// chunk is read into. A failed allocation is logged with the caller's name.
class ExchangeBuffers {
public:
    explicit ExchangeBuffers(const char *caller);
    bool ok() const { return fields_ != nullptr; }
    CMD_MESSAGE_FIELD *request() { return &fields_[0]; }
    CMD_MESSAGE_FIELD *reassembly() { return &fields_[1]; }
    CMD_MESSAGE_FIELD *reply() { return &fields_[2]; }
    // Zeroes the reassembly and reply buffers before another attempt.
    void clearReplies();

private:
    std::unique_ptr<CMD_MESSAGE_FIELD[]> fields_;
};

// Frames a request of payload length `length` (the command byte plus its
// parameters) into m->messagedatabuffer, which is zeroed first. The parameters
// go to offset 6 on. Kept exceptions: the password requests 0x14 and 0x32 sum
// bytes 3..20 into byte 22; the system information request 0x23 carries 0x24
// after its checksum; the driver requests 0x02 and 0x03 carry 0x24 where the
// checksum would stand. Returns the checksum byte written.
uint8_t frameRequest(CMD_MESSAGE_FIELD *m, uint8_t command, uint16_t length,
                     std::span<const uint8_t> params = {});

// Stamps t1 and writes the framed request with the given ioctl code.
bool sendRequest(int fd, CMD_MESSAGE_FIELD *m, unsigned long code = wire::kIoctlWrite);

// Collects one reply frame from read chunks into a 1060-byte buffer. A chunk
// beginning with the frame start (0x5E 0x01 0x61) starts the frame and gives
// the expected payload length; chunks before it are skipped. Collection ends
// once the collected bytes reach the payload length; a frame longer than the
// buffer is refused.
class ReplyAssembler {
public:
    enum class Step { NeedMore, Complete, ZeroLength, TooLong };

    explicit ReplyAssembler(uint8_t *frame) : frame_(frame) {}
    Step feed(const uint8_t *chunk, std::size_t length);
    bool started() const { return started_; }
    std::size_t collected() const { return collected_; }

private:
    uint8_t *frame_;
    std::size_t collected_ = 0;
    std::size_t expected_ = 167;
    bool started_ = false;
};

enum class ReplyStatus { Complete, TimedOut, ReadError, ZeroLength, BadChecksum, TooLong };

// The reply loop of every reader: polls the read ioctl every 3 microseconds
// until a whole frame with a good checksum sits at the start of `reassembly`
// (the whole 1060 bytes serve as the frame buffer), or gives up once more than
// `limitSeconds` have passed since t1. A failed read ioctl is logged as
// "<parser>: ioctl READ Error".
ReplyStatus readReply(int fd, CMD_MESSAGE_FIELD *reassembly, CMD_MESSAGE_FIELD *reply, int limitSeconds,
                      const char *parser, unsigned long readCode = wire::kIoctlRead);

// Inventory reader: true on a good frame. A time-out, empty frame, bad checksum
// or oversized frame sets the status to 1 (so the exchange is retried); a failed
// read ioctl leaves the status as it is.
bool readInventoryReply(CMPIStatus *status, int fd, CMD_MESSAGE_FIELD *reassembly, CMD_MESSAGE_FIELD *reply,
                        const char *parser, unsigned long readCode = wire::kIoctlRead);

// The reply frame collected in a reassembly buffer.
inline const uint8_t *frameBytes(const CMD_MESSAGE_FIELD *m) { return reinterpret_cast<const uint8_t *>(m); }
inline uint16_t replyLength(const CMD_MESSAGE_FIELD *m) { return wire::getLE16(frameBytes(m) + 3); }
inline const uint8_t *replyPayload(const CMD_MESSAGE_FIELD *m) { return frameBytes(m) + 5; }

// The numeric result of a firmware command and its text (a constant string,
// or null when there is none).
struct CommandResult {
    unsigned code;
    const char *text;
};

// The firmware's result letters: "A" is 0 "OK", "B" to "X" their own code with
// their text, anything else 0 without text.
CommandResult resultOfLetter(uint8_t letter);

// The channel's own result codes (beside 1 for the failures below).
inline constexpr unsigned kCodeTimedOut = 0xB0;
inline constexpr unsigned kCodeReadError = 100;

inline constexpr const char kTextTimedOut[] = "Command Timed Out";
inline constexpr const char kTextReadError[] = "ioctl READ Error";
inline constexpr const char kTextZeroLength[] = "Returnd Data Length 0";
inline constexpr const char kTextChecksum[] = "CheckSum Error";
// A reply frame longer than the 1060-byte reassembly buffer.
inline constexpr const char kTextTooLong[] = "Reply Frame Too Long";

// Command-result reader: 176 on time-out, 100 on a failed read, 1 on an empty
// frame, a bad checksum (also logged as "<parser>: CMPI_RC_ERROR_SYSTEM") or an
// oversized frame; otherwise the result letter of a one-byte reply, 0 without
// text for a longer one. With logEnding it logs "<parser>: Ending return(<code>)".
CommandResult readCommandResult(int fd, CMD_MESSAGE_FIELD *reassembly, CMD_MESSAGE_FIELD *reply,
                                int limitSeconds, const char *parser, bool logEnding);

// One inventory exchange with the retry rule. `send(request)` frames and
// writes the request; `parse(reassembly, reply)` reads and decodes the reply.
// Each attempt runs under Mutex4IOCTL. When the first attempt leaves the
// status at 1, up to four retries follow after pauses of 4, 5, 6 and 7
// microseconds, each with fresh reply buffers and the status reset; the
// fourth retry logs "<caller> command retry failed" and ends the exchange
// whatever its outcome.
template <class Send, class Parse>
bool exchangeWithRetry(CMPIStatus *status, const char *caller, Send &&send, Parse &&parse) {
    ExchangeBuffers buffers(caller);
    if (!buffers.ok()) return false;
    auto attempt = [&] {
        IoctlLock lock;
        return send(buffers.request()) && parse(buffers.reassembly(), buffers.reply());
    };
    bool result = attempt();
    if (status->rc != CMPI_RC_ERR_FAILED) return result;
    long delay = 4000;
    for (int retry = 1;; ++retry) {
        MySleep(0, delay);
        {
            IoctlLock lock;
            buffers.clearReplies();
            *status = CMPIStatus{CMPI_RC_OK, nullptr};
            result = send(buffers.request()) && parse(buffers.reassembly(), buffers.reply());
        }
        if (retry == 4) {
            logAlert("%s command retry failed\n", caller);
            return result;
        }
        delay += 1000;
        if (status->rc != CMPI_RC_ERR_FAILED) return result;
    }
}

}  // namespace tovra

// Command-result readers of the method modules (controller settings: 120 s;
// disk drive, RAID set, volume: 30 s). The volume reader writes no ending line.
tovra::CommandResult ParseSySCommandCode(int fd, CMD_MESSAGE_FIELD *cmdmessagefld,
                                         CMD_MESSAGE_FIELD *tmpcmdmessagefld);
tovra::CommandResult ParseDiskDriveCommandCode(int fd, CMD_MESSAGE_FIELD *cmdmessagefld,
                                               CMD_MESSAGE_FIELD *tmpcmdmessagefld);
tovra::CommandResult ParseRAIDSetCommandCode(int fd, CMD_MESSAGE_FIELD *cmdmessagefld,
                                             CMD_MESSAGE_FIELD *tmpcmdmessagefld);
tovra::CommandResult ParseVolumeCommandCode(int fd, CMD_MESSAGE_FIELD *cmdmessagefld,
                                            CMD_MESSAGE_FIELD *tmpcmdmessagefld);
