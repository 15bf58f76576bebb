// What a class's methods take, as the MOF declares and describes them: the
// help a user reads before invoking one.
#pragma once

#include "ClassRepository.h"

#include <ostream>
#include <string>

namespace cimhost::cli {

// The class's own methods (or only `method`, which may be inherited), each
// with its description and one line per parameter: name, type, direction,
// description. Throws std::invalid_argument for an unknown class or method.
void describe(const ClassRepository &mof, const std::string &cls, const std::string &method, std::ostream &out,
              bool json);

// "CreateRAIDSet takes 4 arguments: MemberDisks, DiskArray, Enc, Name"
std::string expectedArguments(const MethodDecl &method);

}  // namespace cimhost::cli
