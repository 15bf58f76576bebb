// The cache reset counters: a file two boards (two processes) share, and the
// files that are refused, which leave a board with counters of its own.
#include <CacheEpochs.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <functional>
#include <string>

namespace {

using tovra::CounterBoard;

class CacheEpochs : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/tovra-epochs-test-XXXXXX";
        ASSERT_NE(::mkdtemp(pattern), nullptr);
        dir_ = pattern;
    }
    void TearDown() override {
        for (const char *name : {"/board", "/target", "/dir"}) {
            std::remove((dir_ + name).c_str());
        }
        ::rmdir(dir_.c_str());
    }
    std::string file() const { return dir_ + "/board"; }
    std::string dir_;
};

TEST_F(CacheEpochs, BoardsOnOneFileSeeEachOthersResets) {
    CounterBoard first(file()), second(file());
    ASSERT_STREQ(first.file(), file().c_str());
    struct stat st{};
    ASSERT_EQ(::stat(file().c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u) << "only its owner may read or change it";

    EXPECT_EQ(first.value("Tovra_StoragePool"), 0u);
    second.bump("Tovra_StoragePool");
    second.bump("Tovra_StoragePool");
    second.bump("Tovra_DiskDrive");
    EXPECT_EQ(first.value("Tovra_StoragePool"), 2u);
    EXPECT_EQ(first.value("Tovra_DiskDrive"), 1u);
    EXPECT_EQ(first.value("Tovra_StorageVolume"), 0u);
    // A board opened later reads what is there; a name too long has no slot.
    CounterBoard third(file());
    EXPECT_EQ(third.value("Tovra_StoragePool"), 2u);
    EXPECT_EQ(third.value(std::string(56, 'x').c_str()), std::nullopt);
}

TEST_F(CacheEpochs, FilesThatCannotBeTrustedAreNotUsed) {
    struct Case {
        const char *name;
        std::function<void(const std::string &)> prepare;
    };
    const Case cases[] = {
        {"writable by others", [](const std::string &f) { ::close(::open(f.c_str(), O_CREAT | O_WRONLY, 0600)); ::chmod(f.c_str(), 0666); }},
        {"a symbolic link", [this](const std::string &f) {
             ::close(::open((dir_ + "/target").c_str(), O_CREAT | O_WRONLY, 0600));
             ASSERT_EQ(::symlink((dir_ + "/target").c_str(), f.c_str()), 0);
         }},
        {"not a counter file", [](const std::string &f) {
             FILE *out = std::fopen(f.c_str(), "w");
             std::fputs("something else entirely", out);
             std::fclose(out);
             ::chmod(f.c_str(), 0600);
         }},
        {"owned by another user", [](const std::string &f) {
             ::close(::open(f.c_str(), O_CREAT | O_WRONLY, 0600));
             if (::chown(f.c_str(), ::geteuid() + 1, static_cast<gid_t>(-1)) != 0) ::chmod(f.c_str(), 0622);
         }},
        {"a directory", [](const std::string &f) { ASSERT_EQ(::mkdir(f.c_str(), 0700), 0); }},
        {"in a missing directory", [](const std::string &) {}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        const std::string path = std::string(c.name) == "in a missing directory" ? dir_ + "/none/board" : file();
        c.prepare(path);
        CounterBoard board(path), other(path);
        EXPECT_STREQ(board.file(), "");
        // The board still counts, for the modules of its own process only.
        board.bump("Tovra_StoragePool");
        EXPECT_EQ(board.value("Tovra_StoragePool"), 1u);
        EXPECT_EQ(other.value("Tovra_StoragePool"), 0u);
        std::remove(path.c_str());
        ::rmdir(path.c_str());
        std::remove((dir_ + "/target").c_str());
    }
}

TEST_F(CacheEpochs, AnEmptyPathKeepsTheCountersInTheProcess) {
    CounterBoard board("");
    EXPECT_STREQ(board.file(), "");
    board.bump("Tovra_EventLog");
    EXPECT_EQ(board.value("Tovra_EventLog"), 1u);
}

}  // namespace
