// CMPIBrokerExtFT: operating-system services over POSIX threads.
#include "HostCore.h"

#include <pthread.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>

namespace cimhost {

namespace {

using StartFn = CMPI_THREAD_RETURN(CMPI_THREAD_CDECL *)(void *);

char *resolveFileName(const char *filename) {
    if (filename == nullptr) return nullptr;
    std::string name = std::string("lib") + filename + ".so";
    char *out = static_cast<char *>(std::malloc(name.size() + 1));
    if (out != nullptr) std::memcpy(out, name.c_str(), name.size() + 1);
    return out;
}

CMPI_THREAD_TYPE newThread(StartFn start, void *parm, int detached) {
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    if (detached) pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    pthread_t thread{};
    int rc = pthread_create(&thread, &attr, start, parm);
    pthread_attr_destroy(&attr);
    return rc == 0 ? reinterpret_cast<CMPI_THREAD_TYPE>(thread) : nullptr;
}

int joinThread(CMPI_THREAD_TYPE thread, CMPI_THREAD_RETURN *retval) {
    return pthread_join(reinterpret_cast<pthread_t>(thread), retval);
}

int exitThread(CMPI_THREAD_RETURN value) { pthread_exit(value); }

int cancelThread(CMPI_THREAD_TYPE thread) { return pthread_cancel(reinterpret_cast<pthread_t>(thread)); }

int threadSleep(CMPIUint32 msec) {
    timespec ts{static_cast<time_t>(msec / 1000), static_cast<long>(msec % 1000) * 1000000L};
    while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
    }
    return 0;
}

std::mutex onceMutex;

int threadOnce(int *once, void (*init)(void)) {
    if (once == nullptr || init == nullptr) return EINVAL;
    std::lock_guard lock(onceMutex);
    if (*once == 0) {
        init();
        *once = 1;
    }
    return 0;
}

// The key lives in the low bits of the CMPI key type, which is wider.
int createThreadKey(CMPI_THREAD_KEY_TYPE *key, void (*cleanup)(void *)) {
    if (key == nullptr) return EINVAL;
    pthread_key_t k{};
    int rc = pthread_key_create(&k, cleanup);
    if (rc == 0) *key = static_cast<CMPI_THREAD_KEY_TYPE>(k);
    return rc;
}

int destroyThreadKey(CMPI_THREAD_KEY_TYPE key) { return pthread_key_delete(static_cast<pthread_key_t>(key)); }
void *getThreadSpecific(CMPI_THREAD_KEY_TYPE key) { return pthread_getspecific(static_cast<pthread_key_t>(key)); }
int setThreadSpecific(CMPI_THREAD_KEY_TYPE key, void *value) {
    return pthread_setspecific(static_cast<pthread_key_t>(key), value);
}

CMPI_MUTEX_TYPE newMutex(int) {
    auto *m = new pthread_mutex_t;
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(m, &attr);
    pthread_mutexattr_destroy(&attr);
    return m;
}

void destroyMutex(CMPI_MUTEX_TYPE m) {
    if (m == nullptr) return;
    pthread_mutex_destroy(static_cast<pthread_mutex_t *>(m));
    delete static_cast<pthread_mutex_t *>(m);
}

void lockMutex(CMPI_MUTEX_TYPE m) {
    if (m != nullptr) pthread_mutex_lock(static_cast<pthread_mutex_t *>(m));
}

void unlockMutex(CMPI_MUTEX_TYPE m) {
    if (m != nullptr) pthread_mutex_unlock(static_cast<pthread_mutex_t *>(m));
}

CMPI_COND_TYPE newCondition(int) {
    auto *c = new pthread_cond_t;
    pthread_cond_init(c, nullptr);
    return c;
}

void destroyCondition(CMPI_COND_TYPE c) {
    if (c == nullptr) return;
    pthread_cond_destroy(static_cast<pthread_cond_t *>(c));
    delete static_cast<pthread_cond_t *>(c);
}

int condWait(CMPI_COND_TYPE c, CMPI_MUTEX_TYPE m) {
    if (c == nullptr || m == nullptr) return EINVAL;
    return pthread_cond_wait(static_cast<pthread_cond_t *>(c), static_cast<pthread_mutex_t *>(m));
}

int timedCondWait(CMPI_COND_TYPE c, CMPI_MUTEX_TYPE m, struct timespec *wait) {
    if (c == nullptr || m == nullptr || wait == nullptr) return EINVAL;
    return pthread_cond_timedwait(static_cast<pthread_cond_t *>(c), static_cast<pthread_mutex_t *>(m), wait);
}

int signalCondition(CMPI_COND_TYPE c) {
    if (c == nullptr) return EINVAL;
    return pthread_cond_signal(static_cast<pthread_cond_t *>(c));
}

}  // namespace

CMPIBrokerExtFT extTable() {
    return CMPIBrokerExtFT{CMPIVersion200,   resolveFileName,  newThread,         joinThread,       exitThread,
                           cancelThread,     threadSleep,      threadOnce,        createThreadKey,  destroyThreadKey,
                           getThreadSpecific, setThreadSpecific, newMutex,        destroyMutex,     lockMutex,
                           unlockMutex,      newCondition,     destroyCondition,  condWait,         timedCondWait,
                           signalCondition};
}

}  // namespace cimhost
