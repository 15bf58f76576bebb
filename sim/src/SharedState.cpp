#include "SharedState.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>

#include "RealLibc.h"

namespace tovra::sim {

SharedState::~SharedState() {
    if (lockFd_ >= 0) real::close(lockFd_);
}

void SharedState::attach(const std::string &path) {
    if (lockFd_ >= 0 && depth_ == 0) {
        real::close(lockFd_);
        lockFd_ = -1;
    }
    path_ = path;
    seen_ = Stamp{};
}

void SharedState::afterFork() {
    if (lockFd_ >= 0) real::close(lockFd_);
    lockFd_ = -1;
    depth_ = 0;
}

SharedState::Stamp SharedState::current() const {
    struct stat st {};
    if (path_.empty() || ::stat(path_.c_str(), &st) != 0) return Stamp{};
    return Stamp{st.st_dev, st.st_ino, st.st_size, static_cast<int64_t>(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec};
}

bool SharedState::changedSinceSeen() const { return !path_.empty() && !(current() == seen_); }

void SharedState::markSeen() { seen_ = current(); }

// Without a lock file (an unwritable folder) the exchange still runs, unshared.
void SharedState::lock() {
    if (path_.empty() || depth_++ > 0) return;
    if (lockFd_ < 0) lockFd_ = real::open((path_ + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (lockFd_ < 0) return;
    while (::flock(lockFd_, LOCK_EX) != 0 && errno == EINTR) {
    }
}

void SharedState::unlock() {
    if (path_.empty() || depth_ == 0 || --depth_ > 0) return;
    if (lockFd_ >= 0) ::flock(lockFd_, LOCK_UN);
}

SharedState::Guard::Guard(SharedState *s) : state_(s) { state_->lock(); }

SharedState::Guard::~Guard() { state_->unlock(); }

}  // namespace tovra::sim
