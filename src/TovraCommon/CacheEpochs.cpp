#include "CacheEpochs.h"

#include "Platform.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <map>
#include <mutex>
#include <string>

namespace tovra {

namespace {

constexpr char kMagic[8] = {'T', 'V', 'R', 'E', 'P', 'O', 'C', '1'};
constexpr std::size_t kNameBytes = 56;
constexpr int kSlots = 63;

// One class's counter; the name is written once, under the file lock.
struct Slot {
    char name[kNameBytes];
    uint64_t counter;
};

struct Board {
    char magic[8];
    uint64_t reserved[7];
    Slot slots[kSlots];
};
static_assert(sizeof(Board) == 4096);

// The file's descriptor for the few moments a slot is assigned.
class LockedFile {
public:
    LockedFile(const std::string &path, const struct stat &expected) {
        fd_ = ::open(path.c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC);
        struct stat now{};
        if (fd_ >= 0 && (::fstat(fd_, &now) != 0 || now.st_ino != expected.st_ino || now.st_dev != expected.st_dev ||
                         ::flock(fd_, LOCK_EX) != 0)) {
            ::close(fd_);
            fd_ = -1;
        }
    }
    ~LockedFile() {
        if (fd_ >= 0) ::close(fd_);  // also drops the lock
    }
    LockedFile(const LockedFile &) = delete;
    LockedFile &operator=(const LockedFile &) = delete;
    bool ok() const { return fd_ >= 0; }

private:
    int fd_ = -1;
};

}  // namespace

class CounterBoard::Impl {
public:
    explicit Impl(std::string path) : path_(std::move(path)) {
        if (path_.empty()) return;  // asked to keep the counters in this process
        std::string why = mapShared();
        if (!why.empty()) logAlert("TovraCacheEpochs: %s not used (%s); cache resets reach this process only\n",
                                   path_.c_str(), why.c_str());
    }
    ~Impl() {
        if (shared_) ::munmap(board_, sizeof(Board));
    }
    Impl(const Impl &) = delete;
    Impl &operator=(const Impl &) = delete;

    // The slot of a class, assigned on first use; -1 when there is none. A
    // slot once found is remembered, so the file is locked once per class.
    int slotOf(const char *className) {
        if (className == nullptr || std::strlen(className) >= kNameBytes) return -1;
        std::lock_guard lock(mutex_);
        if (const auto known = slots_.find(className); known != slots_.end()) return known->second;
        int slot = -1;
        if (shared_) {
            LockedFile file(path_, identity_);
            if (!file.ok()) return -1;
            slot = findOrAssign(className);
        } else {
            slot = findOrAssign(className);
        }
        if (slot >= 0) slots_.emplace(className, slot);
        return slot;
    }

    std::atomic_ref<uint64_t> counter(int slot) { return std::atomic_ref<uint64_t>(board_->slots[slot].counter); }
    const char *file() const { return shared_ ? path_.c_str() : ""; }

private:

    // Maps the shared file; the reason it could not, or "".
    std::string mapShared() {
        const int fd = ::open(path_.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (fd < 0) return std::strerror(errno);
        std::string why;
        struct stat st{};
        void *mapped = MAP_FAILED;
        if (::fstat(fd, &st) != 0) {
            why = std::strerror(errno);
        } else if (!S_ISREG(st.st_mode)) {
            why = "not a regular file";
        } else if (st.st_uid != ::geteuid()) {
            why = "owned by another user";
        } else if ((st.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
            why = "writable by others";
        } else if (::flock(fd, LOCK_EX) != 0) {
            why = std::strerror(errno);
        } else {
            if (st.st_size < static_cast<off_t>(sizeof(Board)) && ::ftruncate(fd, sizeof(Board)) != 0)
                why = std::strerror(errno);
            if (why.empty()) mapped = ::mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
            if (why.empty() && mapped == MAP_FAILED) why = std::strerror(errno);
            if (mapped != MAP_FAILED) {
                auto *board = static_cast<Board *>(mapped);
                const bool fresh = std::all_of(std::begin(board->magic), std::end(board->magic),
                                               [](char c) { return c == 0; });
                if (fresh) std::memcpy(board->magic, kMagic, sizeof kMagic);
                if (std::memcmp(board->magic, kMagic, sizeof kMagic) != 0) {
                    why = "not a counter file";
                    ::munmap(mapped, sizeof(Board));
                    mapped = MAP_FAILED;
                }
            }
        }
        // The mapping keeps the open file, and with it a flock lock: unlock first.
        ::flock(fd, LOCK_UN);
        ::close(fd);
        if (mapped == MAP_FAILED) return why;
        board_ = static_cast<Board *>(mapped);
        identity_ = st;
        shared_ = true;
        return {};
    }

    int findOrAssign(const char *className) {
        for (int i = 0; i < kSlots; ++i) {
            char *name = board_->slots[i].name;
            if (name[0] == '\0') {
                std::strncpy(name, className, kNameBytes - 1);
                return i;
            }
            if (std::strncmp(name, className, kNameBytes) == 0) return i;
        }
        return -1;
    }

    std::mutex mutex_;
    std::map<std::string, int, std::less<>> slots_;  // classes whose slot is known
    std::string path_;
    struct stat identity_{};
    Board local_{};
    Board *board_ = &local_;
    bool shared_ = false;
};

CounterBoard::CounterBoard(std::string path) : impl_(std::make_unique<Impl>(std::move(path))) {}
CounterBoard::~CounterBoard() = default;

CounterBoard &CounterBoard::process() {
    static CounterBoard board([] {
        const char *configured = std::getenv("TOVRA_CACHE_EPOCHS");
        return std::string(configured != nullptr ? configured : kCacheEpochsPath);
    }());
    return board;
}

void CounterBoard::bump(const char *className) {
    if (const int slot = impl_->slotOf(className); slot >= 0) impl_->counter(slot).fetch_add(1);
}

std::optional<uint64_t> CounterBoard::value(const char *className) {
    const int slot = impl_->slotOf(className);
    if (slot < 0) return std::nullopt;
    return impl_->counter(slot).load();
}

int CounterBoard::slotOf(const char *className) { return impl_->slotOf(className); }
uint64_t CounterBoard::valueAt(int slot) { return impl_->counter(slot).load(); }
const char *CounterBoard::file() const { return impl_->file(); }

void announceCacheReset(std::initializer_list<const char *> classNames) {
    for (const char *className : classNames) {
        if (className == nullptr) break;
        CounterBoard::process().bump(className);
    }
}

std::optional<uint64_t> ResetWatch::current() {
    constexpr int kUnresolved = -1, kNoSlot = -2;
    int slot = slot_.load(std::memory_order_acquire);
    if (slot == kUnresolved) {
        slot = CounterBoard::process().slotOf(className_);
        if (slot < 0) slot = kNoSlot;
        slot_.store(slot, std::memory_order_release);
    }
    if (slot == kNoSlot) return std::nullopt;
    return CounterBoard::process().valueAt(slot);
}

bool ResetWatch::takeReset() {
    const std::optional<uint64_t> now = current();
    return now && seen_.exchange(*now) != *now;
}

bool ResetWatch::pending() {
    const std::optional<uint64_t> now = current();
    return now && seen_.load() != *now;
}



}  // namespace tovra
