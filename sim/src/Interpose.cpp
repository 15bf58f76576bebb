// C library interposers. Each forwards to the next definition (the C library,
// found with dlsym(RTLD_NEXT)) unless it concerns the simulated device or a
// simulator mode (virtual clock, log capture) is on. They work both from
// LD_PRELOAD and when a program links this library before the C library.
#undef _FORTIFY_SOURCE
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

#include "Engine.h"
#include "RealLibc.h"
#include "Wire.h"

#define TOVRASIM_INTERPOSE extern "C" __attribute__((visibility("default")))

extern "C" {
int __open_2(const char *path, int flags);
int __open64_2(const char *path, int flags);
void __syslog_chk(int priority, int flag, const char *format, ...);
void __vsyslog_chk(int priority, int flag, const char *format, va_list ap);
}

namespace {

using tovra::sim::Engine;

// Resolved on first use; a race only resolves the same pointer twice.
template <class Fn> Fn next(std::atomic<Fn> &slot, const char *name) {
    Fn fn = slot.load(std::memory_order_acquire);
    if (!fn) {
        fn = reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
        slot.store(fn, std::memory_order_release);
    }
    return fn;
}

#define TOVRASIM_NEXT(type, name)                 \
    type next_##name() {                          \
        static std::atomic<type> slot{nullptr};   \
        return next(slot, #name);                 \
    }

using OpenFn = int (*)(const char *, int, ...);
using Open2Fn = int (*)(const char *, int);
using OpenatFn = int (*)(int, const char *, int, ...);
using CloseFn = int (*)(int);
using IoctlFn = int (*)(int, unsigned long, ...);
using TimeFn = time_t (*)(time_t *);
using NanosleepFn = int (*)(const timespec *, timespec *);
using VsyslogFn = void (*)(int, const char *, va_list);
using VsyslogChkFn = void (*)(int, int, const char *, va_list);

TOVRASIM_NEXT(OpenFn, open)
TOVRASIM_NEXT(OpenFn, open64)
TOVRASIM_NEXT(Open2Fn, __open_2)
TOVRASIM_NEXT(Open2Fn, __open64_2)
TOVRASIM_NEXT(OpenatFn, openat)
TOVRASIM_NEXT(CloseFn, close)
TOVRASIM_NEXT(IoctlFn, ioctl)
TOVRASIM_NEXT(TimeFn, time)
TOVRASIM_NEXT(NanosleepFn, nanosleep)
TOVRASIM_NEXT(VsyslogFn, vsyslog)
TOVRASIM_NEXT(VsyslogChkFn, __vsyslog_chk)

int missing() {
    errno = ENOSYS;
    return -1;
}

bool isDevicePath(const char *path) { return path && std::strcmp(path, tovra::wire::kDevicePath) == 0; }

mode_t modeArgument(int flags, va_list ap) {
    return (flags & O_CREAT) || (flags & O_TMPFILE) == O_TMPFILE ? static_cast<mode_t>(va_arg(ap, int)) : 0;
}

std::string format(const char *fmt, va_list ap) {
    va_list copy;
    va_copy(copy, ap);
    const int n = std::vsnprintf(nullptr, 0, fmt, copy);
    va_end(copy);
    if (n <= 0) return {};
    std::string s(static_cast<std::size_t>(n) + 1, '\0');
    std::vsnprintf(s.data(), s.size(), fmt, ap);
    s.resize(static_cast<std::size_t>(n));
    return s;
}

// Captures a line when capture is on; the caller forwards otherwise.
bool captured(int priority, const char *fmt, va_list ap) {
    Engine &engine = Engine::get();
    if (!engine.capturing()) return false;
    engine.capture(priority, format(fmt, ap));
    return true;
}

}  // namespace

namespace tovra::sim::real {

int open(const char *path, int flags, mode_t mode) {
    const auto fn = next_open();
    return fn ? fn(path, flags, mode) : missing();
}

int close(int fd) {
    const auto fn = next_close();
    return fn ? fn(fd) : missing();
}

}  // namespace tovra::sim::real

// --- descriptors ---------------------------------------------------------------

TOVRASIM_INTERPOSE int open(const char *path, int flags, ...) {
    va_list ap;
    va_start(ap, flags);
    const mode_t mode = modeArgument(flags, ap);
    va_end(ap);
    if (isDevicePath(path)) return Engine::get().openDevice(flags);
    const auto fn = next_open();
    return fn ? fn(path, flags, mode) : missing();
}

TOVRASIM_INTERPOSE int open64(const char *path, int flags, ...) {
    va_list ap;
    va_start(ap, flags);
    const mode_t mode = modeArgument(flags, ap);
    va_end(ap);
    if (isDevicePath(path)) return Engine::get().openDevice(flags);
    const auto fn = next_open64();
    return fn ? fn(path, flags, mode) : missing();
}

TOVRASIM_INTERPOSE int __open_2(const char *path, int flags) {
    if (isDevicePath(path)) return Engine::get().openDevice(flags);
    const auto fn = next___open_2();
    return fn ? fn(path, flags) : missing();
}

TOVRASIM_INTERPOSE int __open64_2(const char *path, int flags) {
    if (isDevicePath(path)) return Engine::get().openDevice(flags);
    const auto fn = next___open64_2();
    return fn ? fn(path, flags) : missing();
}

TOVRASIM_INTERPOSE int openat(int dirfd, const char *path, int flags, ...) {
    va_list ap;
    va_start(ap, flags);
    const mode_t mode = modeArgument(flags, ap);
    va_end(ap);
    if (isDevicePath(path)) return Engine::get().openDevice(flags);
    const auto fn = next_openat();
    return fn ? fn(dirfd, path, flags, mode) : missing();
}

TOVRASIM_INTERPOSE int close(int fd) {
    Engine &engine = Engine::get();
    if (engine.isDeviceFd(fd)) return engine.closeDevice(fd);
    const auto fn = next_close();
    return fn ? fn(fd) : missing();
}

TOVRASIM_INTERPOSE int ioctl(int fd, unsigned long request, ...) noexcept {
    va_list ap;
    va_start(ap, request);
    void *arg = va_arg(ap, void *);
    va_end(ap);
    Engine &engine = Engine::get();
    if (engine.isDeviceFd(fd)) {
        try {
            return engine.ioctlDevice(fd, request, arg);
        } catch (...) {
            errno = EIO;
            return -1;
        }
    }
    const auto fn = next_ioctl();
    return fn ? fn(fd, request, arg) : missing();
}

// --- clock -------------------------------------------------------------------------

TOVRASIM_INTERPOSE time_t time(time_t *out) noexcept {
    Engine &engine = Engine::get();
    if (!engine.clock.isVirtual()) {
        const auto fn = next_time();
        return fn ? fn(out) : static_cast<time_t>(missing());
    }
    const time_t t = engine.clock.virtualSeconds();  // atomic: no engine lock
    if (out) *out = t;
    return t;
}

TOVRASIM_INTERPOSE int nanosleep(const timespec *request, timespec *remaining) {
    Engine &engine = Engine::get();
    if (!engine.clock.isVirtual()) {
        const auto fn = next_nanosleep();
        return fn ? fn(request, remaining) : missing();
    }
    if (!request) {
        errno = EFAULT;
        return -1;
    }
    if (request->tv_sec < 0 || request->tv_nsec < 0 || request->tv_nsec >= 1000000000) {
        errno = EINVAL;
        return -1;
    }
    engine.clock.advanceNs(static_cast<int64_t>(request->tv_sec) * 1000000000 + request->tv_nsec);
    if (remaining) *remaining = timespec{};
    return 0;
}

// --- syslog ------------------------------------------------------------------------

TOVRASIM_INTERPOSE void vsyslog(int priority, const char *fmt, va_list ap) {
    if (captured(priority, fmt, ap)) return;
    if (const auto fn = next_vsyslog()) fn(priority, fmt, ap);
}

TOVRASIM_INTERPOSE void syslog(int priority, const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    vsyslog(priority, fmt, ap);
    va_end(ap);
}

TOVRASIM_INTERPOSE void __vsyslog_chk(int priority, int flag, const char *fmt, va_list ap) {
    if (captured(priority, fmt, ap)) return;
    if (const auto fn = next___vsyslog_chk()) fn(priority, flag, fmt, ap);
}

TOVRASIM_INTERPOSE void __syslog_chk(int priority, int flag, const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    __vsyslog_chk(priority, flag, fmt, ap);
    va_end(ap);
}

// Read the environment while the library loads, before a host can change it.
__attribute__((constructor)) static void tovrasimLoad() { Engine::get(); }
