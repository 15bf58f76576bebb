// What a client operation on the host answers, and the filters it takes.
#pragma once

#include "Value.h"

#include <optional>
#include <string>
#include <vector>

namespace cimhost {

using PropertyList = std::vector<std::string>;

// Filters of associators/associatorNames; an empty text means no filter.
struct AssocFilter {
    std::string assocClass;
    std::string resultClass;
    std::string role;
    std::string resultRole;
};

struct Reply {
    CMPIrc rc = CMPI_RC_OK;
    std::string message;
    std::vector<ObjectPathV> paths;      // name operations
    std::vector<InstanceV> instances;    // instance operations
    std::optional<Value> returnValue;    // invokeMethod
    NamedValues outArgs;                 // invokeMethod

    bool ok() const { return rc == CMPI_RC_OK; }
    static Reply error(CMPIrc rc, std::string message) {
        Reply r;
        r.rc = rc;
        r.message = std::move(message);
        return r;
    }
};

// One class served by a provider, as the registration names it.
struct RegisteredClass {
    std::string className;
    std::string nameSpace;
    std::string provider;
    std::vector<std::string> kinds;
};

}  // namespace cimhost
