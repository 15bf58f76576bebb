// Cache resets that reach every provider process without a broker up-call.
//
// A CIMOM may run the modules in one process or each in its own, and it
// serialises a process's broker up-calls, so a method cannot ask another
// module to drop its cache through the broker. Instead each class has a reset
// counter in a small shared file: a method bumps the counters of the classes
// it made stale, and a module compares its class's counter with the value it
// saw last before it trusts its instance cache.
//
// The file is `kCacheEpochsPath` (the environment variable TOVRA_CACHE_EPOCHS
// names another), created 0600 by the first process that needs it. A file that
// cannot be opened or mapped, is not a regular file, is not owned by this
// process's user or can be written by others is not used: the counters then
// live in this process only (logged once), which still serves every module
// loaded into it.
#pragma once

#include <atomic>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>

namespace tovra {

inline constexpr const char *kCacheEpochsPath = "/var/run/tovra-cache-epochs";

// Marks the instance caches of these classes stale in every process.
void announceCacheReset(std::initializer_list<const char *> classNames);

// One module's view of its class's counter.
class ResetWatch {
public:
    explicit ResetWatch(const char *className) : className_(className) {}
    // True when a reset of the class was announced since the last call (and
    // on the first call, when the cache is empty anyway).
    bool takeReset();
    // Whether takeReset would answer true, without taking the reset.
    bool pending();

private:
    std::optional<uint64_t> current();  // the class's counter, if it has a slot

    const char *className_;
    std::atomic<int> slot_{-1};
    std::atomic<uint64_t> seen_{UINT64_MAX};
};

// The counters of one file (or of this process, when the path is "" or the
// file cannot be used). Classes get their slot on first use.
class CounterBoard {
public:
    explicit CounterBoard(std::string path);
    ~CounterBoard();
    CounterBoard(const CounterBoard &) = delete;
    CounterBoard &operator=(const CounterBoard &) = delete;

    // The board every module of this process uses.
    static CounterBoard &process();

    void bump(const char *className);
    std::optional<uint64_t> value(const char *className);  // none: no slot
    int slotOf(const char *className);                     // -1: none
    uint64_t valueAt(int slot);
    // The file in use, or "" when the counters are this board's own.
    const char *file() const;

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace tovra
