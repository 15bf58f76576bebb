// Reader of the MOF subset that real schema files use: class declarations
// with qualifiers, properties (and their default values, read as the declared
// type), references and methods; #pragma include and
// #pragma namespace. Qualifier declarations and "instance of" blocks are
// parsed and skipped; other pragmas are ignored.
#pragma once

#include "ClassDecl.h"

#include <functional>
#include <string>
#include <string_view>

namespace cimhost {

struct MofSink {
    // A complete class; nameSpace is already set. `line` is where it begins.
    std::function<void(ClassDecl &&cls, int line)> onClass;
    // #pragma include("path"): path as written, and the namespace in force.
    std::function<void(const std::string &path, const std::string &nameSpace, int line)> onInclude;
};

// Parses `text` (named `origin` in errors), starting in `nameSpace`, and
// hands each class and include to `sink` in file order. Throws MofError.
void parseMof(std::string_view text, const std::string &origin, const std::string &nameSpace, const MofSink &sink);

}  // namespace cimhost
