// The frame every provider module shares: per-module state, the cached read
// operations (enumerate names, enumerate, get) with the time rule, the common
// answers (cleanup, unsupported operations), and the macros that stamp a
// module's exported factories, tables and named operations from its traits.
//
// A module supplies a traits type M with:
//   kPrefix      "Tovra<Module>Provider" (prefix of every symbol and log line)
//   kClass       its CIM class, kSuperClass the class requests are tested against
//   kGetKey      the key GetInstance compares
//   kKeys        null-terminated key list handed to the property filter
//   kCapacity    length of the working array of one rebuild
//   kReadsController  whether a rebuild first reads the controller identity
//   walk(w, emit) the records of a rebuild; for each, emit(keys, props)
//   using Ops = CachedInstanceOps<M> (or a subclass with its departures)
#pragma once

#include <cmpimacs.h>

#include "CacheEpochs.h"
#include "Channel.h"
#include "CimWriter.h"
#include "Controller.h"
#include "Platform.h"

#include <atomic>
#include <concepts>
#include <cstdint>
#include <ctime>
#include <exception>
#include <mutex>
#include <string>

namespace tovra {

enum class WalkResult { Complete, Abort };

// Outcome of comparing one cached instance with a GetInstance request.
enum class Visit { Found, NoMatch, Stop };

// What a module's walk sees: the status the inventory functions fill, the open
// device, and the controller record (read first when the module needs it).
struct WalkContext {
    CMPIStatus *status;
    int fd;
    const ControllerInfo *controller;
};

// Unsigned 32-bit age test: exactly WaTP seconds old is still fresh, and a
// clock set backwards wraps to a huge age, so the cache is rebuilt.
inline bool cacheIsStale(time_t now, time_t setTime) {
    return static_cast<uint32_t>(static_cast<uint32_t>(now) - static_cast<uint32_t>(setTime)) > WaTP.load();
}

inline std::string opName(const char *prefix, const char *op) { return std::string(prefix) + op; }

// A module whose traits have invokeMethod has a method provider: it answers
// "TimeCalibration", and so honours the resets methods announce. The others
// let their caches age.
template <class M>
concept HasMethodProvider = requires(const CMPIContext *ctx, const CMPIResult *rslt, const CMPIObjectPath *ref,
                                     const char *method, const CMPIArgs *in, CMPIArgs *out) {
    { M::invokeMethod(ctx, rslt, ref, method, in, out) } -> std::same_as<CMPIStatus>;
};

template <class M> struct ModuleState {
    static inline const CMPIBroker *_TovraBroker = nullptr;
    // What every factory of the module does with its broker. A CIMOM may call
    // a module's second factory while requests run on its first MI: storing
    // the same broker again would race with their reads, so only a new one is
    // stored.
    static void recordBroker(const CMPIBroker *broker) {
        if (_TovraBroker != broker) _TovraBroker = broker;
    }
    static inline CMPIArray *InstanceArray = nullptr;
    static inline CMPICount NumOfInst = 0;
    static inline CMPIArray *ObjectArray = nullptr;
    static inline CMPICount numOfObj = 0;
    static inline std::mutex Mutex4InsArray;
    static inline std::mutex Mutex4ObjArray;
    static inline std::atomic<time_t> SetInstTime{0};
    static inline std::atomic<time_t> ChkInstTime{0};
    static inline std::atomic<time_t> SetObjTime{0};
    static inline std::atomic<time_t> ChkObjTime{0};
    // Resets of this class announced by methods, in any process.
    static inline ResetWatch Resets{M::kClass};
};

// A result that takes everything and keeps nothing.
const CMPIResult *discardingResult();

// Namespace text of a request path ("" when it has none).
std::string nameSpaceOf(const CMPIObjectPath *ref);

// Runs one C entry point body, turning any exception into a failed status so
// nothing unwinds into the CIMOM.
template <class F> CMPIStatus guarded(F &&body) noexcept {
    try {
        return body();
    } catch (...) {
        return makeStatus(CMPI_RC_ERR_FAILED);
    }
}

template <class M> struct CommonOps {
    using S = ModuleState<M>;

    static CMPIStatus cleanup(CMPIBoolean terminating) {
        return makeStatus(terminating ? CMPI_RC_OK : CMPI_RC_NEVER_UNLOAD);
    }
    static CMPIStatus unsupported() { return makeStatus(CMPI_RC_ERR_NOT_SUPPORTED); }
    static bool classMatches(const CMPIObjectPath *ref, const char *op) {
        CMPIStatus st = okStatus();
        if (CMClassPathIsA(S::_TovraBroker, ref, M::kSuperClass, &st)) return true;
        logAlert("%s: CMClassPathIsNotA_SuperClassName\n", opName(M::kPrefix, op).c_str());
        return false;
    }

    // The end of every read operation: done, the failure line, the bare status.
    static CMPIStatus finish(const CMPIResult *rslt, const char *op, const CMPIStatus &st) {
        CMReturnDone(rslt);
        if (st.rc != CMPI_RC_OK) logAlert("%s: Not Return CMPI_RC_OK(0x%x)\n", opName(M::kPrefix, op).c_str(), st.rc);
        return makeStatus(st.rc);
    }
    // GetInstance's end also names what was looked for.
    static CMPIStatus finish(const CMPIResult *rslt, const char *op, const CMPIStatus &st, const std::string &wanted) {
        CMReturnDone(rslt);
        if (st.rc != CMPI_RC_OK)
            logAlert("%s: Not Return CMPI_RC_OK(0x%x, %s)\n", opName(M::kPrefix, op).c_str(), st.rc, wanted.c_str());
        return makeStatus(st.rc);
    }

    // An enumeration over the open device: class test, then body(fd, st) unless
    // the device cannot be opened, which answers 100.
    template <class Body>
    static CMPIStatus onDevice(const CMPIResult *rslt, const CMPIObjectPath *ref, const char *op, Body &&body) {
        CMPIStatus st = okStatus();
        if (classMatches(ref, op)) {
            DeviceFd device;
            if (!device.valid()) {
                logAlert("%s: CMPI_RC_ERR_FAILED(Fail to Open File)\n", opName(M::kPrefix, op).c_str());
                st = makeStatus(CMPI_RC_ERROR_SYSTEM);
            } else {
                body(device.get(), st);
            }
        }
        return finish(rslt, op, st);
    }
};

// The cached read operations. The object-path cache and the instance cache
// age independently; each is guarded by its own mutex for the whole operation.
template <class M> struct CachedInstanceOps : CommonOps<M> {
    using S = ModuleState<M>;
    using Base = CommonOps<M>;

    enum class Kind { Paths, Instances };

    static CMPIStatus enumInstanceNames(const CMPIContext *ctx, const CMPIResult *rslt,
                                        const CMPIObjectPath *ref) {
        return readOperation<Kind::Paths>(ctx, rslt, ref, nullptr);
    }
    static CMPIStatus enumInstances(const CMPIContext *ctx, const CMPIResult *rslt, const CMPIObjectPath *ref,
                                    const char **properties) {
        return readOperation<Kind::Instances>(ctx, rslt, ref, properties);
    }
    static CMPIStatus getInstance(const CMPIContext *ctx, const CMPIResult *rslt, const CMPIObjectPath *ref,
                                  const char **properties);

    // Offers the cached instances to fn under the instance lock; the first one
    // fn reports Found is returned through rslt. A compared instance that does
    // not match leaves the status not-found.
    template <class F>
    static bool findCached(const char *op, const CMPIResult *rslt, CMPIStatus &st, F &&fn);

    // Enumerates the class (which rebuilds the cache) when the instance cache
    // is stale. Must be called without the instance lock held.
    static bool refreshIfStale(const CMPIContext *ctx, const CMPIObjectPath *ref, CMPIStatus &st, const char *op);

protected:
    template <Kind K>
    static CMPIStatus readOperation(const CMPIContext *ctx, const CMPIResult *rslt, const CMPIObjectPath *ref,
                                    const char **properties);
    template <Kind K>
    static void rebuild(const CMPIResult *rslt, const CMPIObjectPath *ref, const char **properties, int fd,
                        CMPIStatus &st, const char *op);
    template <Kind K> static void replay(const CMPIResult *rslt, CMPIStatus &st, const char *op);
};

template <class M>
template <typename CachedInstanceOps<M>::Kind K>
CMPIStatus CachedInstanceOps<M>::readOperation(const CMPIContext *, const CMPIResult *rslt,
                                               const CMPIObjectPath *ref, const char **properties) {
    constexpr bool paths = K == Kind::Paths;
    const char *op = paths ? "EnumInstanceNames" : "EnumInstances";
    std::mutex &mutex = paths ? S::Mutex4ObjArray : S::Mutex4InsArray;
    std::lock_guard lock(mutex);
    return Base::onDevice(rslt, ref, op, [&](int fd, CMPIStatus &st) {
        const time_t now = platformTime();
        (paths ? S::ChkObjTime : S::ChkInstTime).store(now);
        // A method's reset zeroes the instance cache's time, as "TimeCalibration" does.
        if constexpr (!paths && HasMethodProvider<M>)
            if (S::Resets.takeReset()) S::SetInstTime.store(0);
        if (cacheIsStale(now, (paths ? S::SetObjTime : S::SetInstTime).load()))
            rebuild<K>(rslt, ref, properties, fd, st, op);
        else
            replay<K>(rslt, st, op);
    });
}

template <class M>
template <typename CachedInstanceOps<M>::Kind K>
void CachedInstanceOps<M>::rebuild(const CMPIResult *rslt, const CMPIObjectPath *ref, const char **properties,
                                   int fd, CMPIStatus &st, const char *op) {
    constexpr bool paths = K == Kind::Paths;
    const CMPIBroker *broker = S::_TovraBroker;
    ControllerInfo controller{};
    if constexpr (M::kReadsController) {
        if (!EnumTovraComputerSystemInfo(&st, fd, &controller)) return;
    }
    CMPIStatus arrSt = okStatus();
    CMPIArray *work = CMNewArray(broker, M::kCapacity, paths ? CMPI_ref : CMPI_instance, &arrSt);
    if (work == nullptr || arrSt.rc != CMPI_RC_OK) {
        st = arrSt;
        return;
    }
    const std::string ns = nameSpaceOf(ref);
    CMPICount count = 0;
    bool aborted = false;
    auto emit = [&](auto &&keys, auto &&props) -> bool {
        CMPIStatus s = okStatus();
        CMPIObjectPath *path = CMNewObjectPath(broker, ns.c_str(), M::kClass, &s);
        if (path == nullptr || s.rc != CMPI_RC_OK || count >= M::kCapacity) {
            aborted = true;
            return false;
        }
        KeyWriter keyWriter(path);
        keys(keyWriter);
        if constexpr (paths) {
            CMSetArrayElementAt(work, count, &path, CMPI_ref);
            CMReturnObjectPath(rslt, path);
        } else {
            CMPIInstance *inst = CMNewInstance(broker, path, &s);
            if (inst == nullptr || s.rc != CMPI_RC_OK) return true;  // skip this record
            PropertyWriter writer(broker, inst);
            props(writer);
            // The cache keeps the whole instance; the request's property list
            // narrows only the copy returned now.
            CMSetArrayElementAt(work, count, &inst, CMPI_instance);
            CMSetPropertyFilter(inst, properties, M::kKeys);
            CMReturnInstance(rslt, inst);
        }
        ++count;
        st = okStatus();
        return true;
    };
    WalkContext walk{&st, fd, &controller};
    if (M::walk(walk, emit) == WalkResult::Abort || aborted) return;

    CMPIStatus cloneSt = okStatus();
    CMPIArray *clone = CMClone(work, &cloneSt);
    CMPIArray *&cached = paths ? S::ObjectArray : S::InstanceArray;
    CMPICount &cachedCount = paths ? S::numOfObj : S::NumOfInst;
    // Readers walk the cache only under this module's mutex, which we hold,
    // so the replaced clone can be released here.
    if (cached != nullptr) CMRelease(cached);
    cached = clone;
    cachedCount = clone != nullptr ? count : 0;
    if (cloneSt.rc == CMPI_RC_OK && clone != nullptr && clone->hdl != nullptr && st.rc == CMPI_RC_OK) {
        (paths ? S::SetObjTime : S::SetInstTime).store(platformTime());
    } else if constexpr (!paths) {
        logAlert("%s: Error to clone an Instance\n", opName(M::kPrefix, op).c_str());
    }
}

template <class M>
template <typename CachedInstanceOps<M>::Kind K>
void CachedInstanceOps<M>::replay(const CMPIResult *rslt, CMPIStatus &st, const char *op) {
    constexpr bool paths = K == Kind::Paths;
    CMPIArray *cached = paths ? S::ObjectArray : S::InstanceArray;
    const CMPICount count = paths ? S::numOfObj : S::NumOfInst;
    for (CMPICount i = 0; i < count; ++i) {
        CMPIStatus s = okStatus();
        CMPIData d = CMGetArrayElementAt(cached, i, &s);
        if (s.rc != CMPI_RC_OK || d.type != (paths ? CMPI_ref : CMPI_instance)) {
            logAlert("%s: Found an exception\n", opName(M::kPrefix, op).c_str());
            st = s;  // the operation answers with the array call's status
            break;
        }
        if constexpr (paths) {
            if (d.value.ref != nullptr && d.value.ref->hdl != nullptr) CMReturnObjectPath(rslt, d.value.ref);
        } else {
            if (d.value.inst != nullptr && d.value.inst->hdl != nullptr) CMReturnInstance(rslt, d.value.inst);
        }
    }
}

template <class M>
template <class F>
bool CachedInstanceOps<M>::findCached(const char *op, const CMPIResult *rslt, CMPIStatus &st, F &&fn) {
    std::lock_guard lock(S::Mutex4InsArray);
    for (CMPICount i = 0; i < S::NumOfInst; ++i) {
        CMPIStatus s = okStatus();
        CMPIData d = CMGetArrayElementAt(S::InstanceArray, i, &s);
        if (s.rc != CMPI_RC_OK || d.type != CMPI_instance) {
            logAlert("%s: Found an exception\n", opName(M::kPrefix, op).c_str());
            st = s;
            return false;
        }
        if (d.value.inst == nullptr || d.value.inst->hdl == nullptr) continue;
        switch (fn(d.value.inst)) {
            case Visit::Found:
                CMReturnInstance(rslt, d.value.inst);
                st = okStatus();
                return true;
            case Visit::Stop:
                return false;
            case Visit::NoMatch:
                st = makeStatus(CMPI_RC_ERR_NOT_FOUND);
                break;
        }
    }
    return false;
}

template <class M>
bool CachedInstanceOps<M>::refreshIfStale(const CMPIContext *ctx, const CMPIObjectPath *ref, CMPIStatus &st,
                                          const char *op) {
    const time_t now = platformTime();
    S::ChkInstTime.store(now);
    bool stale = cacheIsStale(now, S::SetInstTime.load());
    if constexpr (HasMethodProvider<M>) stale = stale || S::Resets.pending();
    if (!stale) return true;
    // The module's own enumeration rebuilds the cache; it is called directly,
    // not through the broker, because a get-instance may itself be serving an
    // up-call (an association's), and a CIMOM that serialises up-calls would
    // never answer a second one.
    const CMPIStatus s = M::Ops::enumInstances(ctx, discardingResult(), ref, nullptr);
    if (s.rc != CMPI_RC_OK) {
        logAlert("%s: Error to create an Instance Enumeration\n", opName(M::kPrefix, op).c_str());
        st = s;
        return false;
    }
    return true;
}

template <class M>
CMPIStatus CachedInstanceOps<M>::getInstance(const CMPIContext *ctx, const CMPIResult *rslt,
                                             const CMPIObjectPath *ref, const char **) {
    const char *op = "GetInstance";
    CMPIStatus st = okStatus();
    std::string wanted;
    if (Base::classMatches(ref, op)) {
        CMPIData key = CMGetKey(ref, M::kGetKey, &st);
        // A key that is present but null or not a string ends the request with
        // the status the key read left: success, and no instance.
        const char *text = st.rc == CMPI_RC_OK ? stringOf(key) : nullptr;
        if (text == nullptr) {
            logAlert("%s: CMPI_RC_ERR_FAILED\n", opName(M::kPrefix, op).c_str());
        } else {
            wanted = text;
            if (refreshIfStale(ctx, ref, st, op)) {
                findCached(op, rslt, st, [&](const CMPIInstance *inst) {
                    CMPIStatus s = okStatus();
                    const char *value = stringOf(CMGetProperty(inst, M::kGetKey, &s));
                    if (s.rc != CMPI_RC_OK || value == nullptr) return Visit::Stop;
                    return wanted == value ? Visit::Found : Visit::NoMatch;
                });
            }
        }
    }
    return Base::finish(rslt, op, st, wanted);
}

}  // namespace tovra
