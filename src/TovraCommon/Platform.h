// The one seam to the operating system: device open/close, ioctl, the clock,
// sleeping and syslog. Everything else in the library calls these, so a test
// process can stand in the device, the clock and the log below them.
#pragma once

#include <ctime>

namespace tovra {

int platformOpen(const char *path, int flags);
int platformClose(int fd);
int platformIoctl(int fd, unsigned long request, void *arg);
time_t platformTime();

// printf-style; formats the text and hands it to syslog as "%s" at priority 1
// (alert), with no facility: every log line of the system.
void logAlert(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
// The same at priority 7 (debug), for the few lines the system writes so.
void logDebug(const char *fmt, ...) __attribute__((format(printf, 1, 2)));

// The adapter's driver device, opened read-write; closed when this goes away.
class DeviceFd {
public:
    DeviceFd();
    explicit DeviceFd(const char *path);
    ~DeviceFd();
    DeviceFd(DeviceFd &&other) noexcept;
    DeviceFd &operator=(DeviceFd &&other) noexcept;
    DeviceFd(const DeviceFd &) = delete;
    DeviceFd &operator=(const DeviceFd &) = delete;

    bool valid() const { return fd_ >= 0; }
    int get() const { return fd_; }

private:
    void reset();
    int fd_ = -1;
};

}  // namespace tovra

// Sleeps for the given time, resuming after interruptions.
void MySleep(long seconds, long nanoseconds);
