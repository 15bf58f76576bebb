// The adapter's classes as the providers serve them, enumerated once through
// the host, and the readers the reports share to take values out of them.
#pragma once

#include "Host.h"

#include <cstdint>
#include <initializer_list>
#include <map>
#include <string>
#include <vector>

namespace cimhost::cli {

inline constexpr const char kTovraNamespace[] = "tovra/cimv2";
inline constexpr const char kInteropNamespace[] = "root/interop";

struct ClassRef {
    const char *nameSpace;
    const char *className;
};

// One enumeration per class, its reply kept whatever it answered.
struct Snapshot {
    std::map<std::string, Reply> replies;
    bool failed = false;

    const std::vector<InstanceV> &of(const std::string &cls) const { return replies.at(cls).instances; }
    // The first class that failed, or nullptr.
    const std::pair<const std::string, Reply> *firstFailure() const;
};

Snapshot gather(Host &host, std::initializer_list<ClassRef> classes);

// A property as text ("" when absent or NULL).
std::string text(const InstanceV &i, const char *name);
// An unsigned property (0 when absent, NULL, an array or not a number).
uint64_t number(const InstanceV &i, const char *name);
// An array property (empty when absent, NULL or not an array).
const std::vector<Value> &list(const InstanceV &i, const char *name);

}  // namespace cimhost::cli
