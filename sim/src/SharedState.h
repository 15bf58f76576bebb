// One adapter for every process that shares a state file: each exchange runs
// under an exclusive lock on "<state file>.lock", starts from the file's
// current content when another process has replaced it since this process
// last read or wrote it, and a change is written back before the lock is let go.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace tovra::sim {

class SharedState {
public:
    SharedState() = default;
    ~SharedState();
    SharedState(const SharedState &) = delete;
    SharedState &operator=(const SharedState &) = delete;

    // Follows another state file (empty: none); forgets what was seen.
    void attach(const std::string &path);

    // Holds the exclusive lock while it lives; nests within one process.
    class Guard {
    public:
        explicit Guard(SharedState *s);
        ~Guard();
        Guard(const Guard &) = delete;
        Guard &operator=(const Guard &) = delete;

    private:
        SharedState *state_;
    };

    // A forked child must not share the parent's lock: it opens its own.
    void afterFork();

    // Whether the file differs from what this process last read or wrote.
    bool changedSinceSeen() const;
    // Records the file as it is now (after a read or a write).
    void markSeen();

private:
    struct Stamp {
        dev_t dev = 0;
        ino_t ino = 0;
        off_t size = -1;
        int64_t mtimeNs = 0;
        bool operator==(const Stamp &) const = default;
    };
    Stamp current() const;
    void lock();
    void unlock();

    std::string path_;
    int lockFd_ = -1;
    unsigned depth_ = 0;
    Stamp seen_;
};

}  // namespace tovra::sim
