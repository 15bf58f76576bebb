// Method arguments as a user types them: "name=value". A parameter the
// method declares takes the value as text of its declared type ("0000" for a
// string parameter stays "0000"; "0x1F" for a uint8 is 31; "[a,b]" or "a,b"
// for an array), quotes around a string and "null" still understood. For an
// undeclared parameter the text shows the type: an integer (decimal, 0x hex,
// or negative), a list of integers in brackets ("[1,2,3]" or "{1,2,3}"), a
// quoted string ('"123"'), "null", or any other text as a string. The host
// then converts each to the declared type.
#pragma once

#include "ClassDecl.h"
#include "Reply.h"
#include "Value.h"

#include <string>
#include <vector>

namespace cimhost::cli {

Value typedArgument(const std::string &text);
// The text as the declared parameter's type; typedArgument() when it does
// not read as that type (the host then refuses it with the reason).
Value declaredArgument(const ParameterDecl &param, const std::string &text);
// Throws std::invalid_argument for an item without "name=". `method` is the
// method's declaration, when known.
NamedValues typedArguments(const std::vector<std::string> &items, const MethodDecl *method = nullptr);

// "Status = 66 (0x42): RAIDSET NOT NORMAL"
std::string statusLine(const Reply &reply);

}  // namespace cimhost::cli
