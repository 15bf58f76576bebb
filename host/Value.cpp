#include "Value.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

namespace cimhost {

namespace {

bool isRealType(CMPIType t) { return t == CMPI_real32 || t == CMPI_real64; }

int integerBits(CMPIType t) { return 8 << ((t >> 4) & 3); }

uint64_t unsignedMax(CMPIType t) {
    int bits = integerBits(t);
    return bits == 64 ? std::numeric_limits<uint64_t>::max() : (uint64_t{1} << bits) - 1;
}
int64_t signedMin(CMPIType t) {
    int bits = integerBits(t);
    return bits == 64 ? std::numeric_limits<int64_t>::min() : -(int64_t{1} << (bits - 1));
}
int64_t signedMax(CMPIType t) {
    int bits = integerBits(t);
    return bits == 64 ? std::numeric_limits<int64_t>::max() : (int64_t{1} << (bits - 1)) - 1;
}

std::string_view trim(std::string_view s) {
    while (!s.empty() && std::isspace(static_cast<unsigned char>(s.front()))) s.remove_prefix(1);
    while (!s.empty() && std::isspace(static_cast<unsigned char>(s.back()))) s.remove_suffix(1);
    return s;
}

std::optional<uint64_t> parseUnsigned(std::string_view text) {
    text = trim(text);
    if (text.empty() || text.front() == '-') return std::nullopt;
    std::string s(text);
    errno = 0;
    char *end = nullptr;
    unsigned long long v = std::strtoull(s.c_str(), &end, 0);
    if (errno != 0 || end == s.c_str() || *end != '\0') return std::nullopt;
    return v;
}

std::optional<int64_t> parseSigned(std::string_view text) {
    text = trim(text);
    if (text.empty()) return std::nullopt;
    std::string s(text);
    errno = 0;
    char *end = nullptr;
    long long v = std::strtoll(s.c_str(), &end, 0);
    if (errno != 0 || end == s.c_str() || *end != '\0') return std::nullopt;
    return v;
}

// Days since 1970-01-01 for a civil date, and back (proleptic Gregorian).
int64_t daysFromCivil(int64_t y, unsigned m, unsigned d) {
    y -= m <= 2;
    const int64_t era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<int64_t>(doe) - 719468;
}

void civilFromDays(int64_t z, int64_t &y, unsigned &m, unsigned &d) {
    z += 719468;
    const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const unsigned doe = static_cast<unsigned>(z - era * 146097);
    const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    d = doy - (153 * mp + 2) / 5 + 1;
    m = mp + (mp < 10 ? 3 : -9);
    y = static_cast<int64_t>(yoe) + era * 400 + (m <= 2);
}

bool allDigits(std::string_view s) {
    return std::all_of(s.begin(), s.end(), [](char c) { return std::isdigit(static_cast<unsigned char>(c)); });
}

uint64_t digits(std::string_view s) {
    uint64_t v = 0;
    for (char c : s) v = v * 10 + static_cast<uint64_t>(c - '0');
    return v;
}

std::string keyText(const Value &v) {
    if (v.isNull()) return "NULL";
    CMPIType t = v.type();
    if (isTextType(t)) return quoted(v.asString());
    if (t == CMPI_ref) return quoted(v.asRef().toString());
    if (t == CMPI_dateTime) return quoted(v.asDateTime().toCim());
    if (t == CMPI_boolean) return v.asBool() ? "TRUE" : "FALSE";
    return v.toText();
}

// Integers compare by number whatever their width, so a key added as uint8
// matches the same key widened to sint64.
bool keyValuesEqual(const Value &a, const Value &b) {
    if (!a.isNull() && !b.isNull() && isIntegerType(a.type()) && isIntegerType(b.type())) {
        bool aNeg = isSignedType(a.type()) && a.asSigned() < 0;
        bool bNeg = isSignedType(b.type()) && b.asSigned() < 0;
        return aNeg == bNeg && a.asUnsigned() == b.asUnsigned();
    }
    return a == b;
}

bool namedEqual(const NamedValues &a, const NamedValues &b, bool loose) {
    if (a.size() != b.size()) return false;
    for (const auto &[name, value] : a) {
        const Value *other = findNamed(b, name);
        if (other == nullptr || !(loose ? keyValuesEqual(value, *other) : value == *other)) return false;
    }
    return true;
}

}  // namespace

// ---- datetime --------------------------------------------------------------

std::string DateTimeV::toCim() const {
    char buf[96];
    if (interval) {
        uint64_t us = micros % 1000000, s = micros / 1000000;
        std::snprintf(buf, sizeof buf, "%08llu%02llu%02llu%02llu.%06llu:000",
                      static_cast<unsigned long long>(s / 86400), static_cast<unsigned long long>(s / 3600 % 24),
                      static_cast<unsigned long long>(s / 60 % 60), static_cast<unsigned long long>(s % 60),
                      static_cast<unsigned long long>(us));
        return buf;
    }
    int64_t local = static_cast<int64_t>(micros) + int64_t{utcOffsetMinutes} * 60 * 1000000;
    int64_t secs = local >= 0 ? local / 1000000 : (local - 999999) / 1000000;
    int64_t us = local - secs * 1000000;
    int64_t days = secs >= 0 ? secs / 86400 : (secs - 86399) / 86400;
    int64_t rem = secs - days * 86400;
    int64_t y;
    unsigned m, d;
    civilFromDays(days, y, m, d);
    std::snprintf(buf, sizeof buf, "%04lld%02u%02u%02lld%02lld%02lld.%06lld%c%03d", static_cast<long long>(y), m, d,
                  static_cast<long long>(rem / 3600), static_cast<long long>(rem / 60 % 60),
                  static_cast<long long>(rem % 60), static_cast<long long>(us), utcOffsetMinutes < 0 ? '-' : '+',
                  std::abs(utcOffsetMinutes));
    return buf;
}

std::optional<DateTimeV> DateTimeV::fromCim(std::string_view t) {
    if (t.size() != 25 || t[14] != '.') return std::nullopt;
    std::string_view head = t.substr(0, 14), frac = t.substr(15, 6), tail = t.substr(22, 3);
    if (!allDigits(head) || !allDigits(frac) || !allDigits(tail)) return std::nullopt;
    DateTimeV v;
    if (t[21] == ':') {
        if (tail != "000") return std::nullopt;
        uint64_t days = digits(head.substr(0, 8)), h = digits(head.substr(8, 2)), mi = digits(head.substr(10, 2)),
                 s = digits(head.substr(12, 2));
        if (h > 23 || mi > 59 || s > 59) return std::nullopt;
        v.interval = true;
        v.micros = ((days * 24 + h) * 60 + mi) * 60 * 1000000 + s * 1000000 + digits(frac);
        return v;
    }
    if (t[21] != '+' && t[21] != '-') return std::nullopt;
    uint64_t y = digits(head.substr(0, 4)), mo = digits(head.substr(4, 2)), d = digits(head.substr(6, 2)),
             h = digits(head.substr(8, 2)), mi = digits(head.substr(10, 2)), s = digits(head.substr(12, 2));
    if (mo < 1 || mo > 12 || d < 1 || d > 31 || h > 23 || mi > 59 || s > 60) return std::nullopt;
    v.utcOffsetMinutes = static_cast<int>(digits(tail)) * (t[21] == '-' ? -1 : 1);
    int64_t days = daysFromCivil(static_cast<int64_t>(y), static_cast<unsigned>(mo), static_cast<unsigned>(d));
    int64_t local = ((days * 24 + static_cast<int64_t>(h)) * 60 + static_cast<int64_t>(mi)) * 60 +
                    static_cast<int64_t>(s);
    int64_t utc = local * 1000000 + static_cast<int64_t>(digits(frac)) -
                  int64_t{v.utcOffsetMinutes} * 60 * 1000000;
    if (utc < 0) return std::nullopt;
    v.micros = static_cast<uint64_t>(utc);
    return v;
}

// ---- value -----------------------------------------------------------------

Value Value::null(CMPIType type) {
    Value v;
    v.type_ = type == CMPI_chars ? CMPIType(CMPI_string) : type;
    return v;
}
Value Value::boolean(bool v) { return Value(CMPI_boolean, v); }
Value Value::char16(uint16_t v) { return Value(CMPI_char16, uint64_t{v}); }
Value Value::real32(float v) { return Value(CMPI_real32, double{v}); }
Value Value::real64(double v) { return Value(CMPI_real64, v); }
Value Value::string(std::string v) { return Value(CMPI_string, std::move(v)); }
Value Value::dateTime(DateTimeV v) { return Value(CMPI_dateTime, v); }
Value Value::ref(ObjectPathV v) { return Value(CMPI_ref, std::make_shared<const ObjectPathV>(std::move(v))); }
Value Value::instance(InstanceV v) {
    return Value(CMPI_instance, std::make_shared<const InstanceV>(std::move(v)));
}
Value Value::instance(std::shared_ptr<const InstanceV> v) {
    if (!v) return null(CMPI_instance);
    return Value(CMPI_instance, std::move(v));
}
Value Value::array(CMPIType elementType, Array elements) {
    return Value(static_cast<CMPIType>(elementType | CMPI_ARRAY), std::move(elements));
}

Value Value::unsignedOf(CMPIType type, uint64_t v) { return Value(type, v & unsignedMax(type)); }

Value Value::signedOf(CMPIType type, int64_t v) {
    int bits = integerBits(type);
    if (bits < 64) {
        uint64_t mask = (uint64_t{1} << bits) - 1, raw = static_cast<uint64_t>(v) & mask;
        v = (raw & (uint64_t{1} << (bits - 1))) ? static_cast<int64_t>(raw | ~mask) : static_cast<int64_t>(raw);
    }
    return Value(type, v);
}

uint64_t Value::asUnsigned() const {
    if (auto *s = std::get_if<int64_t>(&data_)) return static_cast<uint64_t>(*s);
    return std::get<uint64_t>(data_);
}

int64_t Value::asSigned() const {
    if (auto *u = std::get_if<uint64_t>(&data_)) return static_cast<int64_t>(*u);
    return std::get<int64_t>(data_);
}

std::string Value::toText() const {
    if (isNull()) return "NULL";
    if (isArray()) {
        std::string out = "{";
        for (const Value &e : asArray()) out += (out.size() > 1 ? ", " : "") + e.toText();
        return out + "}";
    }
    switch (type_) {
        case CMPI_boolean: return asBool() ? "true" : "false";
        case CMPI_real32:
        case CMPI_real64: return realText(type_, asReal());
        case CMPI_string:
        case CMPI_chars: return asString();
        case CMPI_dateTime: return asDateTime().toCim();
        case CMPI_ref: return asRef().toString();
        case CMPI_instance: return "instance of " + asInstance().path.className;
        default: break;
    }
    if (isSignedType(type_)) return std::to_string(asSigned());
    return std::to_string(asUnsigned());
}

std::optional<Value> Value::parse(CMPIType type, std::string_view text) {
    if (type & CMPI_ARRAY) {
        CMPIType element = static_cast<CMPIType>(type & ~CMPI_ARRAY);
        Array items;
        std::string_view rest = trim(text);
        while (!rest.empty()) {
            size_t comma = rest.find(',');
            auto item = parse(element, trim(rest.substr(0, comma)));
            if (!item) return std::nullopt;
            items.push_back(std::move(*item));
            if (comma == std::string_view::npos) break;
            rest = rest.substr(comma + 1);
        }
        return array(element == CMPI_chars ? CMPIType(CMPI_string) : element, std::move(items));
    }
    if (isTextType(type)) return string(std::string(text));
    if (isUnsignedType(type)) {
        auto v = parseUnsigned(text);
        if (!v || *v > unsignedMax(type)) return std::nullopt;
        return unsignedOf(type, *v);
    }
    if (isSignedType(type)) {
        auto v = parseSigned(text);
        if (!v || *v < signedMin(type) || *v > signedMax(type)) return std::nullopt;
        return signedOf(type, *v);
    }
    switch (type) {
        case CMPI_boolean: {
            auto t = trim(text);
            if (iequals(t, "true") || t == "1") return boolean(true);
            if (iequals(t, "false") || t == "0") return boolean(false);
            return std::nullopt;
        }
        case CMPI_char16: {
            if (text.size() == 1) return char16(static_cast<unsigned char>(text[0]));
            auto v = parseUnsigned(text);
            if (!v || *v > 0xFFFF) return std::nullopt;
            return char16(static_cast<uint16_t>(*v));
        }
        case CMPI_real32:
        case CMPI_real64: {
            std::string s(trim(text));
            char *end = nullptr;
            double v = std::strtod(s.c_str(), &end);
            if (s.empty() || *end != '\0') return std::nullopt;
            return type == CMPI_real32 ? real32(static_cast<float>(v)) : real64(v);
        }
        case CMPI_dateTime: {
            auto v = DateTimeV::fromCim(trim(text));
            if (!v) return std::nullopt;
            return dateTime(*v);
        }
        case CMPI_ref: {
            auto v = ObjectPathV::parse(trim(text));
            if (!v) return std::nullopt;
            return ref(std::move(*v));
        }
        default: return std::nullopt;
    }
}

std::optional<Value> Value::convertTo(CMPIType target) const {
    if (target == CMPI_chars) target = CMPI_string;
    if (isNull()) return null(target);
    if (type_ == target || (isTextType(type_) && isTextType(target))) return Value(target, data_);
    // Text parses as any type, arrays as comma-separated elements.
    if (isTextType(type_)) return parse(target, asString());
    if ((target & CMPI_ARRAY) != (type_ & CMPI_ARRAY)) return std::nullopt;
    if (target & CMPI_ARRAY) {
        CMPIType element = static_cast<CMPIType>(target & ~CMPI_ARRAY);
        Array items;
        for (const Value &e : asArray()) {
            auto c = e.convertTo(element);
            if (!c) return std::nullopt;
            items.push_back(std::move(*c));
        }
        return array(element, std::move(items));
    }
    if (isIntegerType(type_) || type_ == CMPI_char16) {
        bool negative = isSignedType(type_) && asSigned() < 0;
        if (isUnsignedType(target) || target == CMPI_char16) {
            uint64_t max = target == CMPI_char16 ? 0xFFFF : unsignedMax(target);
            if (negative || asUnsigned() > max) return std::nullopt;
            return target == CMPI_char16 ? char16(static_cast<uint16_t>(asUnsigned()))
                                         : unsignedOf(target, asUnsigned());
        }
        if (isSignedType(target)) {
            if (!negative && asUnsigned() > static_cast<uint64_t>(signedMax(target))) return std::nullopt;
            if (negative && asSigned() < signedMin(target)) return std::nullopt;
            return signedOf(target, asSigned());
        }
        if (isRealType(target)) {
            double d = negative ? static_cast<double>(asSigned()) : static_cast<double>(asUnsigned());
            return target == CMPI_real32 ? real32(static_cast<float>(d)) : real64(d);
        }
        return std::nullopt;
    }
    if (isRealType(type_) && isRealType(target))
        return target == CMPI_real32 ? real32(static_cast<float>(asReal())) : real64(asReal());
    return std::nullopt;
}

bool Value::operator==(const Value &other) const {
    bool sameType = type_ == other.type_ || (isTextType(elementType()) && isTextType(other.elementType()) &&
                                             isArray() == other.isArray());
    if (!sameType || data_.index() != other.data_.index()) return false;
    if (auto *p = std::get_if<std::shared_ptr<const ObjectPathV>>(&data_))
        return **p == *std::get<std::shared_ptr<const ObjectPathV>>(other.data_);
    if (auto *i = std::get_if<std::shared_ptr<const InstanceV>>(&data_))
        return **i == *std::get<std::shared_ptr<const InstanceV>>(other.data_);
    return data_ == other.data_;
}

// ---- named values, paths, instances ----------------------------------------

const Value *findNamed(const NamedValues &list, std::string_view name) {
    for (const auto &[n, v] : list)
        if (iequals(n, name)) return &v;
    return nullptr;
}

void setNamed(NamedValues &list, std::string_view name, Value value) {
    for (auto &[n, v] : list) {
        if (iequals(n, name)) {
            v = std::move(value);
            return;
        }
    }
    list.emplace_back(std::string(name), std::move(value));
}

std::string ObjectPathV::toString() const {
    std::string out;
    if (!host.empty()) out += "//" + host + "/";
    if (!ns.empty()) out += ns + ":";
    out += className;
    for (size_t i = 0; i < keys.size(); ++i) out += (i == 0 ? "." : ",") + keys[i].first + "=" + keyText(keys[i].second);
    return out;
}

std::optional<ObjectPathV> ObjectPathV::parse(std::string_view text) {
    ObjectPathV p;
    if (text.substr(0, 2) == "//") {
        size_t slash = text.find('/', 2);
        if (slash == std::string_view::npos) return std::nullopt;
        p.host = std::string(text.substr(2, slash - 2));
        text.remove_prefix(slash + 1);
    }
    size_t dot = text.find('.'), colon = text.find(':');
    if (colon != std::string_view::npos && colon < dot) {
        p.ns = std::string(text.substr(0, colon));
        text.remove_prefix(colon + 1);
        dot = text.find('.');
    }
    p.className = std::string(text.substr(0, dot));
    if (p.className.empty()) return std::nullopt;
    if (dot == std::string_view::npos) return p;
    std::string_view rest = text.substr(dot + 1);
    while (!rest.empty()) {
        size_t eq = rest.find('=');
        if (eq == std::string_view::npos || eq == 0) return std::nullopt;
        std::string name(trim(rest.substr(0, eq)));
        rest.remove_prefix(eq + 1);
        Value value;
        if (!rest.empty() && rest.front() == '"') {
            std::string s;
            size_t i = 1;
            for (; i < rest.size() && rest[i] != '"'; ++i) {
                if (rest[i] == '\\' && i + 1 < rest.size()) ++i;
                s += rest[i];
            }
            if (i >= rest.size()) return std::nullopt;
            rest.remove_prefix(i + 1);
            value = Value::string(std::move(s));
        } else {
            size_t comma = rest.find(',');
            std::string_view raw = trim(rest.substr(0, comma));
            rest.remove_prefix(comma == std::string_view::npos ? rest.size() : comma);
            if (iequals(raw, "TRUE") || iequals(raw, "FALSE")) {
                value = Value::boolean(iequals(raw, "TRUE"));
            } else if (auto u = parseUnsigned(raw)) {
                value = Value::u64(*u);
            } else if (auto s = parseSigned(raw)) {
                value = Value::s64(*s);
            } else {
                return std::nullopt;
            }
        }
        p.keys.emplace_back(std::move(name), std::move(value));
        if (!rest.empty()) {
            if (rest.front() != ',') return std::nullopt;
            rest.remove_prefix(1);
        }
    }
    return p;
}

bool ObjectPathV::operator==(const ObjectPathV &other) const {
    return iequals(ns, other.ns) && iequals(className, other.className) && namedEqual(keys, other.keys, true);
}

bool InstanceV::operator==(const InstanceV &other) const {
    return path == other.path && namedEqual(properties, other.properties, false);
}

std::string realText(CMPIType type, double v) {
    if (std::isnan(v)) return "nan";
    char buf[40];
    const auto res = type == CMPI_real32 ? std::to_chars(buf, buf + sizeof buf, static_cast<float>(v))
                                         : std::to_chars(buf, buf + sizeof buf, v);
    return std::string(buf, res.ptr);
}

std::string typeName(CMPIType type) {
    std::string suffix = (type & CMPI_ARRAY) ? "[]" : "";
    switch (type & ~CMPI_ARRAY) {
        case CMPI_null: return "null" + suffix;
        case CMPI_boolean: return "boolean" + suffix;
        case CMPI_char16: return "char16" + suffix;
        case CMPI_real32: return "real32" + suffix;
        case CMPI_real64: return "real64" + suffix;
        case CMPI_uint8: return "uint8" + suffix;
        case CMPI_uint16: return "uint16" + suffix;
        case CMPI_uint32: return "uint32" + suffix;
        case CMPI_uint64: return "uint64" + suffix;
        case CMPI_sint8: return "sint8" + suffix;
        case CMPI_sint16: return "sint16" + suffix;
        case CMPI_sint32: return "sint32" + suffix;
        case CMPI_sint64: return "sint64" + suffix;
        case CMPI_instance: return "instance" + suffix;
        case CMPI_ref: return "ref" + suffix;
        case CMPI_args: return "args" + suffix;
        case CMPI_class: return "class" + suffix;
        case CMPI_filter: return "filter" + suffix;
        case CMPI_enumeration: return "enumeration" + suffix;
        case CMPI_string: return "string" + suffix;
        case CMPI_chars: return "chars" + suffix;
        case CMPI_dateTime: return "datetime" + suffix;
        case CMPI_ptr: return "ptr" + suffix;
        case CMPI_charsptr: return "charsptr" + suffix;
        default: return "type(" + std::to_string(type) + ")";
    }
}

std::string rcName(CMPIrc rc) {
    switch (static_cast<int>(rc)) {
        case CMPI_RC_OK: return "CMPI_RC_OK";
        case CMPI_RC_ERR_FAILED: return "CMPI_RC_ERR_FAILED";
        case CMPI_RC_ERR_ACCESS_DENIED: return "CMPI_RC_ERR_ACCESS_DENIED";
        case CMPI_RC_ERR_INVALID_NAMESPACE: return "CMPI_RC_ERR_INVALID_NAMESPACE";
        case CMPI_RC_ERR_INVALID_PARAMETER: return "CMPI_RC_ERR_INVALID_PARAMETER";
        case CMPI_RC_ERR_INVALID_CLASS: return "CMPI_RC_ERR_INVALID_CLASS";
        case CMPI_RC_ERR_NOT_FOUND: return "CMPI_RC_ERR_NOT_FOUND";
        case CMPI_RC_ERR_NOT_SUPPORTED: return "CMPI_RC_ERR_NOT_SUPPORTED";
        case CMPI_RC_ERR_CLASS_HAS_CHILDREN: return "CMPI_RC_ERR_CLASS_HAS_CHILDREN";
        case CMPI_RC_ERR_CLASS_HAS_INSTANCES: return "CMPI_RC_ERR_CLASS_HAS_INSTANCES";
        case CMPI_RC_ERR_INVALID_SUPERCLASS: return "CMPI_RC_ERR_INVALID_SUPERCLASS";
        case CMPI_RC_ERR_ALREADY_EXISTS: return "CMPI_RC_ERR_ALREADY_EXISTS";
        case CMPI_RC_ERR_NO_SUCH_PROPERTY: return "CMPI_RC_ERR_NO_SUCH_PROPERTY";
        case CMPI_RC_ERR_TYPE_MISMATCH: return "CMPI_RC_ERR_TYPE_MISMATCH";
        case CMPI_RC_ERR_QUERY_LANGUAGE_NOT_SUPPORTED: return "CMPI_RC_ERR_QUERY_LANGUAGE_NOT_SUPPORTED";
        case CMPI_RC_ERR_INVALID_QUERY: return "CMPI_RC_ERR_INVALID_QUERY";
        case CMPI_RC_ERR_METHOD_NOT_AVAILABLE: return "CMPI_RC_ERR_METHOD_NOT_AVAILABLE";
        case CMPI_RC_ERR_METHOD_NOT_FOUND: return "CMPI_RC_ERR_METHOD_NOT_FOUND";
        case 18: return "CMPI_RC_NO_MORE_ELEMENTS";
        case CMPI_RC_DO_NOT_UNLOAD: return "CMPI_RC_DO_NOT_UNLOAD";
        case CMPI_RC_NEVER_UNLOAD: return "CMPI_RC_NEVER_UNLOAD";
        case CMPI_RC_ERR_INVALID_HANDLE: return "CMPI_RC_ERR_INVALID_HANDLE";
        case CMPI_RC_ERR_INVALID_DATA_TYPE: return "CMPI_RC_ERR_INVALID_DATA_TYPE";
        case CMPI_RC_ERROR_SYSTEM: return "CMPI_RC_ERROR_SYSTEM";
        case CMPI_RC_ERROR: return "CMPI_RC_ERROR";
        default: return "rc(" + std::to_string(static_cast<int>(rc)) + ")";
    }
}

}  // namespace cimhost
