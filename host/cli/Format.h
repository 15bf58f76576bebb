// How tovra-cim shows what the host answers: readable text, or JSON for
// scripts.
#pragma once

#include "Reply.h"

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace cimhost::cli {

using Json = nlohmann::ordered_json;

Json toJson(const Value &value);
Json toJson(const ObjectPathV &path);
Json toJson(const InstanceV &instance);
// Paths, instances, or the method's return value and output arguments; an
// error becomes {"error": {"rc", "name", "message"}}.
Json toJson(const Reply &reply);
Json toJson(const std::vector<RegisteredClass> &classes);

// One path per line; instances as their path and indented "Name = value"
// lines; a method as "ReturnValue = ..." and its output arguments.
std::string toText(const Reply &reply);
// One line per class: class, namespace, provider, kinds.
std::string toText(const std::vector<RegisteredClass> &classes);
// "CMPI_RC_ERR_NOT_FOUND (6): message"
std::string errorText(const Reply &reply);

}  // namespace cimhost::cli
