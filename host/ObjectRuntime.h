// The life of every CMPI object the host hands to a provider.
//
// A provider sees a 16-byte {hdl, ft} header. The header lives in a handle
// slot (HandleSlots.h) beside the pointer to the C++ object that holds the
// data. Every CMPI entry point checks its handle against the slots, so NULL,
// foreign and released handles are answered with CMPI_RC_ERR_INVALID_HANDLE
// instead of a crash.
//
// Ownership follows a CIMOM:
//  - Tracked: made through the broker during a request; released when the
//    request ends, or earlier by CMRelease.
//  - Borrowed: handed out by a getter (a property's string, an enumeration's
//    element); released when the request ends; CMRelease on it is an error.
//  - Clone: made by CMClone; lives until CMRelease.
//  - PassedIn: handed into a provider call (ctx, rslt, op, args); released
//    when that call returns; CMRelease on it is an error.
//
// Released objects: the data is freed at once; the header stays in a bounded
// quarantine with hdl pointing at a poison block and ft at a table whose every
// slot answers CMPI_RC_ERR_INVALID_HANDLE and counts a use after release.
// After the quarantine the slot is reused: a handle kept that long may name a
// newer object.
//
// The runtime is process-wide: cached clones may outlive the host that made
// them, as provider libraries keep them in statics.
#pragma once

#include <cmpift.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace cimhost::rt {

enum class Kind : uint8_t { String, Array, Instance, ObjectPath, Args, Enumeration, DateTime, Context, Result, SelectExp };
constexpr int kKindCount = 10;
const char *kindName(Kind kind);  // "CMPIInstance", ...

enum class Lifetime : uint8_t { Tracked, Borrowed, Clone, PassedIn };

// Behaviour switches an object inherits from the broker that made it.
struct Flavor {
    bool legacy = false;                // 1.0-level tables: 2.0-only slots NULL
    bool widenIntegerKeys = false;      // integer keys read back as sint64
    bool charsArraysAsStrings = false;  // chars arrays become string arrays
};

struct Header {
    void *hdl;
    const void *ft;
};

class Scope;
struct Slot;  // HandleSlots.h

class Object {
public:
    Object(const Object &) = delete;
    Object &operator=(const Object &) = delete;
    virtual ~Object() = default;

    Kind kind() const { return kind_; }
    const Flavor &flavor() const { return flavor_; }
    // The pointer a provider sees (CMPIInstance*, CMPIString*, ...).
    template <class C> C *as() const { return reinterpret_cast<C *>(header_); }

protected:
    Object(Kind kind, const Flavor &flavor, const void *ft);
    void setHdl(void *hdl) { header_->hdl = hdl; }

private:
    friend class Runtime;
    friend class Scope;
    Header *header_;
    Kind kind_;
    Flavor flavor_;
    Lifetime lifetime_ = Lifetime::Tracked;
    Scope *scope_ = nullptr;
    size_t slot_ = 0;
};

// Objects made on one thread during one request (or one attached thread).
class Scope {
public:
    Scope() = default;
    Scope(const Scope &) = delete;
    Scope &operator=(const Scope &) = delete;
    ~Scope();  // releases what is left

    static Scope *current();
    // Objects made on a thread with no request land here and live on.
    static Scope &stray();

private:
    friend class Runtime;
    void add(Object *obj);
    void remove(Object *obj);
    mutable std::mutex mutex_;
    std::vector<Object *> objects_;
};

// Makes a scope current on this thread for its lifetime.
class ScopeBinding {
public:
    explicit ScopeBinding(Scope *scope);
    ~ScopeBinding();
    ScopeBinding(const ScopeBinding &) = delete;
    ScopeBinding &operator=(const ScopeBinding &) = delete;

private:
    Scope *previous_;
};

struct Stats {
    size_t liveRequestObjects = 0;  // tracked and borrowed objects alive in any scope
    size_t liveClones = 0;
    uint64_t useAfterRelease = 0;  // calls through a released handle
    uint64_t doubleRelease = 0;
    uint64_t invalidRelease = 0;  // release of passed-in or borrowed objects
};

class Runtime {
public:
    static Stats stats();

    // Registers a new object with the given lifetime and returns it.
    template <class T, class... A> static T *make(Lifetime lifetime, const Flavor &flavor, A &&...args) {
        auto obj = std::make_unique<T>(flavor, std::forward<A>(args)...);
        adopt(obj.get(), lifetime);
        return obj.release();
    }

    // The live object behind a handle, or nullptr with rc set to
    // CMPI_RC_ERR_INVALID_HANDLE (NULL, foreign, released or another kind).
    static Object *lookup(const void *handle, Kind kind, CMPIStatus *rc);
    template <class T> static T *resolve(const void *handle, CMPIStatus *rc) {
        return static_cast<T *>(lookup(handle, T::kKind, rc));
    }
    // True when the handle is a live object of any kind; sets kind.
    static bool identify(const void *handle, Kind &kind);

    // CMRelease from a provider.
    static CMPIStatus release(void *handle, Kind kind);
    // Host-side release of a passed-in object once the provider call returned.
    static void dispose(Object *obj);

    static void noteUseAfterRelease();
    static void noteDoubleRelease();

private:
    static void adopt(Object *obj, Lifetime lifetime);
    static bool retire(Object *obj);  // unregisters; false if already released
    static void destroy(Object *obj);
    static Slot *destroyRetired(Object *obj);  // frees the data, poisons the header; the slot to give back
    static void destroyAll(std::vector<Object *> &objects);  // retire and destroy each that is still live
    friend class Scope;
};

// Table whose every slot counts a use after release and fails.
const void *poisonTable(Kind kind);
extern char poisonBlock[];

inline CMPIStatus status(CMPIrc rc) { return CMPIStatus{rc, nullptr}; }
inline void setRc(CMPIStatus *rc, CMPIrc code) {
    if (rc != nullptr) *rc = CMPIStatus{code, nullptr};
}

// Runs the body of a CMPI entry point; nothing unwinds into the provider.
template <class R, class F> R guarded(CMPIStatus *rc, R onError, F &&body) noexcept {
    try {
        return body();
    } catch (...) {
        setRc(rc, CMPI_RC_ERR_FAILED);
        return onError;
    }
}
template <class F> CMPIStatus guardedStatus(F &&body) noexcept {
    try {
        return body();
    } catch (...) {
        return status(CMPI_RC_ERR_FAILED);
    }
}

}  // namespace cimhost::rt
