// The request/reply protocol of the simulated driver, through real ioctl calls.
#include <sys/wait.h>

#include <atomic>
#include <thread>

#include "SimSupport.h"

namespace simtest {
namespace {

class Protocol : public SimTest {};

TEST_F(Protocol, BadFramesGetTheChecksumLetter) {
    Device d;
    ASSERT_GE(d.fd(), 0);
    EXPECT_EQ(transact(d, 0x23).size(), 256u);

    Bytes wrongSum = frame(0x23);
    wrongSum.back() += 1;
    EXPECT_EQ(letterOf(transact(d, wrongSum)), 'L');

    Bytes wrongStart = frame(0x23);
    wrongStart[2] = 0x62;
    EXPECT_EQ(letterOf(transact(d, wrongStart)), 'L');

    EXPECT_EQ(letterOf(transact(d, Bytes{0x5E, 0x01, 0x61, 0x00, 0x00, 0x00})), 'L');  // L = 0
    EXPECT_EQ(sim::exchanges(0x23), 3u);  // bad frames are counted by their command byte
    EXPECT_EQ(sim::exchanges(), 4u);
}

TEST_F(Protocol, UnknownCommandsAndShortFramesAreRefused) {
    Device d;
    EXPECT_EQ(letterOf(transact(d, 0x77)), 'H');
    EXPECT_EQ(letterOf(transact(d, 0x22)), 'G');  // a disk request needs slot and enclosure
}

// The password requests sum bytes 3..20 only and store the sum at byte 22.
Bytes passwordFrame(uint8_t command, const std::string &password, bool standardChecksum = false) {
    Bytes f(23, 0);
    f[0] = w::kStart0;
    f[1] = w::kStart1;
    f[2] = w::kStart2;
    f[3] = 17;
    f[5] = command;
    f[6] = static_cast<uint8_t>(password.size());
    std::copy(password.begin(), password.end(), f.begin() + 7);
    f[22] = standardChecksum ? w::sum8(f.data(), 3, 21) : w::sum8(f.data(), 3, 20);
    return f;
}

TEST_F(Protocol, PasswordFramesLeaveByte21OutOfTheChecksum) {
    Device d;
    EXPECT_EQ(letterOf(transact(d, passwordFrame(0x14, "0000"))), 'A');
    EXPECT_EQ(letterOf(transact(d, passwordFrame(0x14, "0001"))), 'J');

    const std::string longest = "ABCDEFGHIJKLMNO";  // 15 characters: the last one is byte 21
    EXPECT_EQ(letterOf(transact(d, passwordFrame(0x32, longest, true))), 'L');
    EXPECT_EQ(letterOf(transact(d, passwordFrame(0x14, "0000"))), 'A');  // the change needs a check first
    EXPECT_EQ(letterOf(transact(d, passwordFrame(0x32, longest))), 'A');
    EXPECT_EQ(letterOf(transact(d, passwordFrame(0x14, longest))), 'A');
    EXPECT_EQ(letterOf(transact(d, passwordFrame(0x14, "0000"))), 'J');
}

TEST_F(Protocol, RepliesArriveInChunksOfTheConfiguredSize) {
    Device d;
    for (unsigned size : {1u, 7u, 100u}) {
        sim::setChunkSize(size);
        ASSERT_EQ(send(d, frame(0x23)), 0);
        Bytes whole;
        for (;;) {
            const Chunk c = readChunk(d);
            ASSERT_EQ(c.rc, 0);
            if (c.data.empty()) break;
            EXPECT_EQ(c.data.size(), std::min<std::size_t>(size, 262 - whole.size()));
            whole.insert(whole.end(), c.data.begin(), c.data.end());
        }
        EXPECT_EQ(whole.size(), 262u) << "chunk size " << size;
        EXPECT_TRUE(checksumOk(whole));
    }
}

TEST_F(Protocol, NothingPendingReadsLengthZeroAndLeavesTheBuffer) {
    Device d;
    CMD_MESSAGE_FIELD m;
    std::memset(&m, 0xAB, sizeof m);
    ASSERT_EQ(::ioctl(d.fd(), w::kIoctlRead, &m), 0);
    EXPECT_EQ(m.cmdmessage.Length, 0u);
    EXPECT_EQ(m.messagedatabuffer[0], 0xAB);

    transact(d, 0x13);  // a reply read to its end leaves nothing behind
    EXPECT_TRUE(readChunk(d).data.empty());
}

TEST_F(Protocol, DriverAndPciRequestsUseTheirOwnCodes) {
    Device d;
    ASSERT_EQ(send(d, Bytes{0x5E, 0x01, 0x61, 0x01, 0x00, 0x02, 0x24}, w::kIoctlDriverInfo), 0);
    const Bytes driver = payloadOf(readFrame(d, w::kIoctlDriverInfo));
    ASSERT_EQ(driver.size(), 40u);
    EXPECT_EQ(text(driver, 0, 32), "v1.40.00.00-20230131");
    EXPECT_EQ(text(driver, 32, 8), "tovdrv");

    ASSERT_EQ(send(d, Bytes{0x5E, 0x01, 0x61, 0x01, 0x00, 0x03, 0x24}, w::kIoctlPciInfo), 0);
    const Bytes pci = payloadOf(readFrame(d, w::kIoctlRead));
    ASSERT_EQ(pci.size(), 32u);
    EXPECT_EQ(text(pci, 0, 16), "x8");
    EXPECT_EQ(text(pci, 16, 16), "5.0 GT/s");
    EXPECT_EQ(sim::exchanges(0x02), 1u);
    EXPECT_EQ(sim::exchanges(0x03), 1u);

    CMD_MESSAGE_FIELD m{};
    EXPECT_EQ(::ioctl(d.fd(), 0xC4244199UL, &m), -1);
    EXPECT_EQ(errno, ENOTTY);
}

TEST_F(Protocol, OtherPathsAndDescriptorsPassThrough) {
    int pipeFds[2];
    ASSERT_EQ(::pipe(pipeFds), 0);
    ASSERT_EQ(::write(pipeFds[1], "abc", 3), 3);
    int queued = 0;
    EXPECT_EQ(::ioctl(pipeFds[0], FIONREAD, &queued), 0);
    EXPECT_EQ(queued, 3);
    EXPECT_EQ(::close(pipeFds[0]), 0);
    EXPECT_EQ(::close(pipeFds[1]), 0);

    const int null = ::open("/dev/null", O_RDWR);
    ASSERT_GE(null, 0);
    EXPECT_EQ(sim::openDescriptors(), 0u);
    EXPECT_EQ(::close(null), 0);
    EXPECT_EQ(::open("/nonexistent/tovdrv", O_RDWR), -1);
    EXPECT_EQ(errno, ENOENT);

    {
        Device d;
        const int viaOpenat = ::openat(AT_FDCWD, w::kDevicePath, O_RDWR | O_CLOEXEC);
        ASSERT_GE(viaOpenat, 0);
        EXPECT_EQ(sim::openDescriptors(), 2u);
        EXPECT_NE(::fcntl(viaOpenat, F_GETFD) & FD_CLOEXEC, 0);  // a real descriptor
        EXPECT_EQ(::close(viaOpenat), 0);
        EXPECT_EQ(sim::openDescriptors(), 1u);
    }
    EXPECT_EQ(sim::openDescriptors(), 0u);
}

TEST_F(Protocol, EachDescriptorKeepsItsOwnReply) {
    Device a, b;
    ASSERT_EQ(send(a, frame(0x20, {0, 0})), 0);
    ASSERT_EQ(send(b, frame(0x21, {0, 0})), 0);
    EXPECT_EQ(payloadOf(readFrame(b)).size(), 124u);
    EXPECT_EQ(payloadOf(readFrame(a)).size(), 248u);
}

TEST_F(Protocol, ThreadsAndForkedChildrenShareNoLock) {
    // Every thread is mid-traffic when the process forks, and none has ended:
    // a thread that ended unjoined before the fork would live on in the
    // child's books as a leaked thread.
    std::atomic<bool> allGood{true}, forked{false};
    std::atomic<int> running{0};
    std::atomic<unsigned> sent{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 6; ++t)
        threads.emplace_back([&, t] {
            Device d;
            bool counted = false;
            for (int i = 0; i < 40 || !forked; ++i) {
                if (transact(d, 0x22, {static_cast<uint8_t>(i % 8), static_cast<uint8_t>(t % 2)}).size() != 272)
                    allGood = false;
                ++sent;
                if (!counted) ++running, counted = true;
            }
        });
    while (running < 6) std::this_thread::yield();
    // The child must find the lock free and the model copied.
    const pid_t pid = ::fork();
    if (pid == 0) {
        Device d;
        const Bytes info = transact(d, 0x23);
        _exit(info.size() == 256 && text(info, 40, 16) == "TV12A0005531" ? 0 : 1);
    }
    forked = true;
    for (auto &t : threads) t.join();
    int status = 0;
    ASSERT_EQ(::waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "child status " << status;
    EXPECT_TRUE(allGood);
    EXPECT_EQ(sim::exchanges(0x22), sent.load());
    EXPECT_EQ(sim::openDescriptors(), 0u);
}

}  // namespace
}  // namespace simtest
