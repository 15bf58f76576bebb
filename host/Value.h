// Plain C++ values of the CIM types: what the host stores inside its CMPI
// objects and what it hands to its clients (tests, the CLI, a server).
#pragma once

#include "ClassDecl.h"

#include <cmpidt.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace cimhost {

struct ObjectPathV;
struct InstanceV;

// CIM names compare without regard to case (iequals comes with the class records).
inline std::string lower(std::string_view s) { return lowerCase(s); }

// Kinds of CMPI type codes (scalars; an array flag makes every test false).
inline bool isUnsignedType(CMPIType t) { return (t & (CMPI_UINT | CMPI_SINT)) == CMPI_UINT && !(t & ~0xF0); }
inline bool isSignedType(CMPIType t) { return (t & (CMPI_UINT | CMPI_SINT)) == CMPI_SINT && !(t & ~0xF0); }
inline bool isIntegerType(CMPIType t) { return isUnsignedType(t) || isSignedType(t); }
inline bool isTextType(CMPIType t) { return t == CMPI_string || t == CMPI_chars; }

// A CIM datetime: a point in time (microseconds since 1970-01-01 UTC, with
// the UTC offset it was written with) or an interval (microseconds).
struct DateTimeV {
    uint64_t micros = 0;
    bool interval = false;
    int utcOffsetMinutes = 0;

    std::string toCim() const;  // the 25-character CIM form
    static std::optional<DateTimeV> fromCim(std::string_view text);
    bool operator==(const DateTimeV &) const = default;
};

class Value {
public:
    using Array = std::vector<Value>;

    Value() = default;  // untyped null
    static Value null(CMPIType type);
    static Value boolean(bool v);
    static Value char16(uint16_t v);
    static Value u8(uint8_t v) { return unsignedOf(CMPI_uint8, v); }
    static Value u16(uint16_t v) { return unsignedOf(CMPI_uint16, v); }
    static Value u32(uint32_t v) { return unsignedOf(CMPI_uint32, v); }
    static Value u64(uint64_t v) { return unsignedOf(CMPI_uint64, v); }
    static Value s8(int8_t v) { return signedOf(CMPI_sint8, v); }
    static Value s16(int16_t v) { return signedOf(CMPI_sint16, v); }
    static Value s32(int32_t v) { return signedOf(CMPI_sint32, v); }
    static Value s64(int64_t v) { return signedOf(CMPI_sint64, v); }
    static Value real32(float v);
    static Value real64(double v);
    static Value unsignedOf(CMPIType type, uint64_t v);  // value truncated to the type's width
    static Value signedOf(CMPIType type, int64_t v);
    static Value string(std::string v);
    static Value dateTime(DateTimeV v);
    static Value ref(ObjectPathV v);
    static Value instance(InstanceV v);
    // Shares an instance that nobody changes any more.
    static Value instance(std::shared_ptr<const InstanceV> v);
    // An array; elementType is the type without the array bit.
    static Value array(CMPIType elementType, Array elements);

    CMPIType type() const { return type_; }
    bool isNull() const { return std::holds_alternative<std::monostate>(data_); }
    bool isArray() const { return (type_ & CMPI_ARRAY) != 0; }
    CMPIType elementType() const { return static_cast<CMPIType>(type_ & ~CMPI_ARRAY); }

    // Accessors; each throws std::bad_variant_access on the wrong kind.
    bool asBool() const { return std::get<bool>(data_); }
    uint64_t asUnsigned() const;  // any integer (signed ones reinterpreted), char16
    int64_t asSigned() const;
    double asReal() const { return std::get<double>(data_); }
    const std::string &asString() const { return std::get<std::string>(data_); }
    const DateTimeV &asDateTime() const { return std::get<DateTimeV>(data_); }
    const ObjectPathV &asRef() const { return *std::get<std::shared_ptr<const ObjectPathV>>(data_); }
    const InstanceV &asInstance() const { return *std::get<std::shared_ptr<const InstanceV>>(data_); }
    const std::shared_ptr<const InstanceV> &sharedInstance() const {
        return std::get<std::shared_ptr<const InstanceV>>(data_);
    }
    const Array &asArray() const { return std::get<Array>(data_); }

    // Display form: strings unquoted, references as path text, arrays in braces.
    std::string toText() const;

    // Parses text as a value of the given type (arrays: comma-separated
    // elements); nullopt when the text does not fit the type.
    static std::optional<Value> parse(CMPIType type, std::string_view text);

    // The same value as another type: integers with range checks, strings
    // parsed, chars treated as strings; nullopt when it does not convert.
    std::optional<Value> convertTo(CMPIType target) const;

    bool operator==(const Value &other) const;

private:
    using Data = std::variant<std::monostate, bool, uint64_t, int64_t, double, std::string, DateTimeV,
                              std::shared_ptr<const ObjectPathV>, std::shared_ptr<const InstanceV>, Array>;
    template <class T> Value(CMPIType type, T &&data) : type_(type), data_(std::forward<T>(data)) {}

    CMPIType type_ = CMPI_null;
    Data data_;
};

using NamedValues = std::vector<std::pair<std::string, Value>>;

// Lookup and replace by case-insensitive name, keeping first-set order.
const Value *findNamed(const NamedValues &list, std::string_view name);
void setNamed(NamedValues &list, std::string_view name, Value value);

struct ObjectPathV {
    std::string ns;
    std::string className;
    std::string host;
    NamedValues keys;

    const Value *key(std::string_view name) const { return findNamed(keys, name); }
    // "ns:Class.Key=\"text\",Num=3" (with "//host/" in front when a host is set).
    std::string toString() const;
    // Reverse of toString; key values become strings, integers or references.
    static std::optional<ObjectPathV> parse(std::string_view text);
    // Equal ignoring host, with case-insensitive class and key names.
    bool operator==(const ObjectPathV &other) const;
};

struct InstanceV {
    ObjectPathV path;
    NamedValues properties;

    const Value *property(std::string_view name) const { return findNamed(properties, name); }
    bool operator==(const InstanceV &other) const;
};

// A real in the shortest text that reads back to the same value of its own
// width (real32 as a float, real64 as a double): "3.31", "-0.5", "1e+20".
// NaN and the infinities come out as "nan", "inf" and "-inf".
std::string realText(CMPIType type, double v);

// Name of a CMPI type code ("uint8", "string[]", ...).
std::string typeName(CMPIType type);
// Name of a status code ("CMPI_RC_ERR_NOT_FOUND").
std::string rcName(CMPIrc rc);

}  // namespace cimhost
