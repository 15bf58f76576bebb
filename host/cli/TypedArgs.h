// Method arguments as a user types them: "name=value" where the value is an
// integer (decimal, 0x hex, or negative), a list of integers in brackets
// ("[1,2,3]" or "{1,2,3}"), a quoted string ('"123"'), "null", or any other
// text as a string. The host then converts each to the declared type.
#pragma once

#include "Reply.h"
#include "Value.h"

#include <string>
#include <vector>

namespace cimhost::cli {

Value typedArgument(const std::string &text);
// Throws std::invalid_argument for an item without "name=".
NamedValues typedArguments(const std::vector<std::string> &items);

// "Status = 66 (0x42): RAIDSET NOT NORMAL"
std::string statusLine(const Reply &reply);

}  // namespace cimhost::cli
