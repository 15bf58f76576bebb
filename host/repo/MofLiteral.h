// MOF literals read as constants of a declared CIM type, for default values.
#pragma once

#include "ClassDecl.h"
#include "MofLexer.h"

#include <optional>

namespace cimhost::mof {

// The literal `t` (strings already concatenated) as a constant of `type`, or
// nullopt when it does not fit: another kind of literal, a number out of the
// type's range or malformed. Integers may be decimal, hex (0x1F), octal (017)
// or binary (101b); datetimes are 25-character strings; references have no
// literal form.
std::optional<MofScalar> typedLiteral(CimType type, const Token &t);

}  // namespace cimhost::mof
