// Plain records of CIM class declarations as the MOF reader produces them,
// and the error type of everything that reads source files.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace cimhost {

enum class CimType {
    Boolean, String, Char16, Uint8, Sint8, Uint16, Sint16, Uint32, Sint32,
    Uint64, Sint64, Real32, Real64, DateTime, Reference
};

// A qualifier's value as MOF text: "true" for a flag (Key), the decoded text
// of a single string (Description("a" "b") gives "ab"), the literal of a
// number or identifier, and "{...}" with quoted strings for an array
// (ValueMap{"1","2"} gives {"1","2"}).
struct Qualifier {
    std::string name;
    std::string value;
};

// A MOF constant read as its declared type: booleans; unsigned integers and
// char16 as uint64; signed integers as int64; reals (real32 already rounded to
// float); strings and datetimes as text; NULL as monostate.
using MofScalar = std::variant<std::monostate, bool, uint64_t, int64_t, double, std::string>;

// The "= value" of a property declaration: NULL, one scalar, or an array's
// elements.
struct MofDefault {
    bool null = false;
    std::vector<MofScalar> elements;
};

struct PropertyDecl {
    std::string name;
    CimType type;
    bool isArray = false;
    bool isKey = false;
    std::string refClass;  // the REF target class, for CimType::Reference
    std::vector<Qualifier> qualifiers;
    std::optional<MofDefault> defaultValue;  // absent when the declaration gives none
};

// A parameter is IN unless it carries IN(false), or OUT without IN.
struct ParameterDecl {
    std::string name;
    CimType type;
    bool isArray = false;
    bool in = true;
    bool out = false;
    std::string refClass;
    std::vector<Qualifier> qualifiers;
};

struct MethodDecl {
    std::string name;
    CimType returnType;
    std::vector<ParameterDecl> params;
    std::vector<Qualifier> qualifiers;
};

struct ClassDecl {
    std::string name;
    std::string superclass;  // empty for a root class
    std::string nameSpace;   // from the file's #pragma namespace
    bool isAssociation = false;
    std::vector<Qualifier> qualifiers;
    std::vector<PropertyDecl> properties;
    std::vector<MethodDecl> methods;
};

// Error in a source file; what() reads "file:line: message" ("file: message"
// when no line applies).
class SourceError : public std::runtime_error {
public:
    SourceError(const std::string &file, int line, const std::string &message);
    const std::string &file() const { return file_; }
    int line() const { return line_; }

private:
    std::string file_;
    int line_;
};

class MofError : public SourceError {
public:
    using SourceError::SourceError;
};

const char *cimTypeName(CimType);                                  // "uint32", "string", "ref", ...
std::optional<CimType> cimTypeFromName(std::string_view keyword);  // case-insensitive; no "ref"

// Case-insensitive comparison and folding, as CIM names compare. Names are
// ASCII; other bytes compare as they are.
constexpr char lowerChar(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }
bool iequals(std::string_view a, std::string_view b);
std::string lowerCase(std::string_view s);
// A string in double quotes, with '"' and '\\' escaped.
std::string quoted(std::string_view s);

// Hash and equality for unordered containers keyed by CIM names; both are
// transparent, so a string_view looks up without building a string.
struct NoCaseHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view s) const noexcept {
        std::size_t h = 14695981039346656037ull;
        for (char c : s) h = (h ^ static_cast<unsigned char>(lowerChar(c))) * 1099511628211ull;
        return h;
    }
};
struct NoCaseEqual {
    using is_transparent = void;
    bool operator()(std::string_view a, std::string_view b) const noexcept { return iequals(a, b); }
};

// The value of qualifier `name` (case-insensitive), or nullptr.
const Qualifier *findQualifier(const std::vector<Qualifier> &qualifiers, std::string_view name);

}  // namespace cimhost
