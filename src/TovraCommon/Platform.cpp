#include "Platform.h"

#include "Wire.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <string>

namespace tovra {

int platformOpen(const char *path, int flags) { return ::open(path, flags); }

int platformClose(int fd) { return ::close(fd); }

int platformIoctl(int fd, unsigned long request, void *arg) { return ::ioctl(fd, request, arg); }

time_t platformTime() { return ::time(nullptr); }

namespace {

void vlog(int priority, const char *fmt, va_list args) {
    char small[512];
    va_list again;
    va_copy(again, args);
    const int needed = std::vsnprintf(small, sizeof small, fmt, args);
    if (needed < 0) {
        va_end(again);
        return;
    }
    if (static_cast<std::size_t>(needed) < sizeof small) {
        va_end(again);
        ::syslog(priority, "%s", small);
        return;
    }
    std::string text(static_cast<std::size_t>(needed) + 1, '\0');
    std::vsnprintf(text.data(), text.size(), fmt, again);
    va_end(again);
    ::syslog(priority, "%s", text.c_str());
}

}  // namespace

void logAlert(const char *fmt, ...) {
    va_list args;
    va_start(args, fmt);
    vlog(LOG_ALERT, fmt, args);
    va_end(args);
}

void logDebug(const char *fmt, ...) {
    va_list args;
    va_start(args, fmt);
    vlog(LOG_DEBUG, fmt, args);
    va_end(args);
}

DeviceFd::DeviceFd() : DeviceFd(wire::kDevicePath) {}

DeviceFd::DeviceFd(const char *path) : fd_(platformOpen(path, O_RDWR)) {}

DeviceFd::~DeviceFd() { reset(); }

DeviceFd::DeviceFd(DeviceFd &&other) noexcept : fd_(other.fd_) { other.fd_ = -1; }

DeviceFd &DeviceFd::operator=(DeviceFd &&other) noexcept {
    if (this != &other) {
        reset();
        fd_ = other.fd_;
        other.fd_ = -1;
    }
    return *this;
}

void DeviceFd::reset() {
    if (fd_ >= 0) platformClose(fd_);
    fd_ = -1;
}

}  // namespace tovra

void MySleep(long seconds, long nanoseconds) {
    timespec wanted{seconds, nanoseconds};
    timespec left{};
    while (::nanosleep(&wanted, &left) == -1 && errno == EINTR) wanted = left;
}
