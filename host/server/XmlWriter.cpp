#include "XmlWriter.h"

#include <charconv>
#include <cmath>

namespace cimserver {

using cimhost::ObjectPathV;
using cimhost::Value;

namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

// Length of the UTF-8 sequence starting at s[i], or 0 when it is not one.
std::size_t utf8Length(std::string_view s, std::size_t i) {
    auto b = [&](std::size_t k) { return static_cast<unsigned char>(s[k]); };
    unsigned char c = b(i);
    std::size_t n = c < 0x80 ? 1 : (c & 0xE0) == 0xC0 ? 2 : (c & 0xF0) == 0xE0 ? 3 : (c & 0xF8) == 0xF0 ? 4 : 0;
    if (n == 0 || i + n > s.size()) return 0;
    for (std::size_t k = 1; k < n; ++k)
        if ((b(i + k) & 0xC0) != 0x80) return 0;
    if (n == 2 && c < 0xC2) return 0;                               // overlong
    if (n == 3 && c == 0xE0 && b(i + 1) < 0xA0) return 0;           // overlong
    if (n == 3 && c == 0xED && b(i + 1) >= 0xA0) return 0;          // surrogates
    if (n == 4 && (c > 0xF4 || (c == 0xF0 && b(i + 1) < 0x90) || (c == 0xF4 && b(i + 1) >= 0x90))) return 0;
    return n;
}

void appendUtf8(std::string &out, uint32_t cp) {
    if (cp < 0x80) {
        out += static_cast<char>(cp);
    } else if (cp < 0x800) {
        out += static_cast<char>(0xC0 | (cp >> 6));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
        out += static_cast<char>(0xE0 | (cp >> 12));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    }
}

template <class T> void appendNumber(std::string &out, T v) {
    char buf[40];
    auto res = std::to_chars(buf, buf + sizeof buf, v);
    out.append(buf, res.ptr);
}

}  // namespace

void appendEscaped(std::string &out, std::string_view text) {
    for (std::size_t i = 0; i < text.size();) {
        // Plain printable ASCII goes out in one piece.
        std::size_t run = i;
        while (run < text.size()) {
            auto u = static_cast<unsigned char>(text[run]);
            if (u < 0x20 || u >= 0x7F || u == '&' || u == '<' || u == '>' || u == '"' || u == '\'') break;
            ++run;
        }
        out.append(text.substr(i, run - i));
        if (run == text.size()) break;
        i = run;
        char c = text[i];
        auto u = static_cast<unsigned char>(c);
        switch (c) {
            case '&': out += "&amp;"; ++i; continue;
            case '<': out += "&lt;"; ++i; continue;
            case '>': out += "&gt;"; ++i; continue;
            case '"': out += "&quot;"; ++i; continue;
            case '\'': out += "&apos;"; ++i; continue;
            default: break;
        }
        if (u < 0x20 && c != '\t' && c != '\n' && c != '\r') {
            out += kReplacement;
            ++i;
        } else if (u < 0x80) {
            out += c;
            ++i;
        } else if (std::size_t n = utf8Length(text, i); n != 0) {
            out.append(text.substr(i, n));
            i += n;
        } else {
            out += kReplacement;
            ++i;
        }
    }
}

std::string escaped(std::string_view text) {
    std::string out;
    appendEscaped(out, text);
    return out;
}

std::string cimTypeName(CMPIType type) {
    CMPIType element = static_cast<CMPIType>(type & ~CMPI_ARRAY);
    switch (element) {
        case CMPI_chars:
        case CMPI_null:
        case CMPI_instance: return "string";
        case CMPI_ref: return "reference";
        default: return cimhost::typeName(element);
    }
}

void XmlWriter::openWith(std::string_view element,
                         std::initializer_list<std::pair<const char *, std::string_view>> attrs, bool selfClose) {
    out_ += '<';
    out_ += element;
    for (const auto &[name, value] : attrs) {
        out_ += ' ';
        out_ += name;
        out_ += "=\"";
        appendEscaped(out_, value);
        out_ += '"';
    }
    out_ += selfClose ? "/>\n" : ">";
}

void XmlWriter::scalarText(const Value &v) {
    switch (v.type()) {
        case CMPI_boolean: out_ += v.asBool() ? "TRUE" : "FALSE"; break;
        case CMPI_char16: {
            std::string s;
            uint32_t cp = static_cast<uint32_t>(v.asUnsigned());
            appendUtf8(s, cp >= 0xD800 && cp < 0xE000 ? 0xFFFD : cp);
            appendEscaped(out_, s);
            break;
        }
        case CMPI_real32:
        case CMPI_real64:
            if (std::isfinite(v.asReal())) out_ += cimhost::realText(v.type(), v.asReal());
            break;
        case CMPI_dateTime: out_ += v.asDateTime().toCim(); break;
        case CMPI_string:
        case CMPI_chars: appendEscaped(out_, v.asString()); break;
        case CMPI_instance: {
            std::string inner;
            XmlWriter(inner).instance(v.asInstance());
            appendEscaped(out_, inner);
            break;
        }
        default:
            if (cimhost::isSignedType(v.type()))
                appendNumber(out_, v.asSigned());
            else if (cimhost::isUnsignedType(v.type()))
                appendNumber(out_, v.asUnsigned());
            else
                appendEscaped(out_, v.toText());
    }
}

void XmlWriter::reference(const ObjectPathV &path) {
    open("VALUE.REFERENCE");
    if (!path.ns.empty() && !path.host.empty()) {
        instancePath(path, path.host);
    } else if (!path.ns.empty()) {
        open("LOCALINSTANCEPATH");
        localNamespacePath(path.ns);
        instanceName(path);
        close("LOCALINSTANCEPATH");
    } else {
        instanceName(path);
    }
    close("VALUE.REFERENCE");
}

namespace {

// CIM-XML has no text for NaN and the infinities: such a real goes out as NULL.
bool writtenAsNull(const Value &v) {
    return v.isNull() || ((v.type() == CMPI_real32 || v.type() == CMPI_real64) && !std::isfinite(v.asReal()));
}

}  // namespace

void XmlWriter::value(const Value &v) {
    if (writtenAsNull(v)) return;
    if (v.isArray()) {
        open("VALUE.ARRAY");
        for (const Value &e : v.asArray()) {
            if (writtenAsNull(e)) {
                out_ += "<VALUE.NULL/>";
            } else if (e.type() == CMPI_ref) {
                reference(e.asRef());
            } else {
                open("VALUE");
                scalarText(e);
                close("VALUE");
            }
        }
        close("VALUE.ARRAY");
    } else if (v.type() == CMPI_ref) {
        reference(v.asRef());
    } else {
        open("VALUE");
        scalarText(v);
        close("VALUE");
    }
}

void XmlWriter::localNamespacePath(std::string_view ns) {
    open("LOCALNAMESPACEPATH");
    std::size_t start = 0;
    while (start <= ns.size()) {
        std::size_t slash = ns.find('/', start);
        std::string_view part = ns.substr(start, slash == std::string_view::npos ? std::string_view::npos : slash - start);
        if (!part.empty()) openWith("NAMESPACE", {{"NAME", part}}, true);
        if (slash == std::string_view::npos) break;
        start = slash + 1;
    }
    close("LOCALNAMESPACEPATH");
}

void XmlWriter::instanceName(const ObjectPathV &path) {
    openWith("INSTANCENAME", {{"CLASSNAME", path.className}});
    for (const auto &[name, v] : path.keys) {
        openWith("KEYBINDING", {{"NAME", name}});
        if (v.type() == CMPI_ref && !v.isNull()) {
            reference(v.asRef());
        } else {
            const char *kind = v.type() == CMPI_boolean                                   ? "boolean"
                               : cimhost::isIntegerType(v.type()) || v.type() == CMPI_real32 ||
                                         v.type() == CMPI_real64
                                   ? "numeric"
                                   : "string";
            openWith("KEYVALUE", {{"VALUETYPE", kind}});
            if (!writtenAsNull(v)) scalarText(v);
            close("KEYVALUE");
        }
        close("KEYBINDING");
    }
    close("INSTANCENAME");
}

void XmlWriter::instancePath(const ObjectPathV &path, std::string_view defaultHost) {
    open("INSTANCEPATH");
    open("NAMESPACEPATH");
    open("HOST");
    appendEscaped(out_, path.host.empty() ? defaultHost : std::string_view(path.host));
    close("HOST");
    localNamespacePath(path.ns);
    close("NAMESPACEPATH");
    instanceName(path);
    close("INSTANCEPATH");
}

void XmlWriter::property(std::string_view name, const Value &v, CMPIType declared) {
    CMPIType type = v.type() == CMPI_null ? declared : v.type();
    bool isArray = (type & CMPI_ARRAY) != 0 || v.isArray();
    std::string typeText = cimTypeName(type);
    if (static_cast<CMPIType>(type & ~CMPI_ARRAY) == CMPI_ref && !isArray) {
        openWith("PROPERTY.REFERENCE", {{"NAME", name}});
        value(v);
        close("PROPERTY.REFERENCE");
        return;
    }
    const char *element = isArray ? "PROPERTY.ARRAY" : "PROPERTY";
    if (static_cast<CMPIType>(type & ~CMPI_ARRAY) == CMPI_instance)
        openWith(element, {{"NAME", name}, {"TYPE", typeText}, {"EMBEDDEDOBJECT", "instance"}});
    else
        openWith(element, {{"NAME", name}, {"TYPE", typeText}});
    value(v);
    close(element);
}

void XmlWriter::instance(const cimhost::InstanceV &inst, const PropertyShape *shape) {
    openWith("INSTANCE", {{"CLASSNAME", inst.path.className}});
    const cimhost::NamedValues &props = inst.properties;
    if (shape != nullptr) {
        std::vector<const Value *> slots(shape->props.size(), nullptr);
        std::vector<std::size_t> extra;
        for (std::size_t i = 0; i < props.size(); ++i) {
            auto it = shape->index.find(props[i].first);
            if (it != shape->index.end())
                slots[it->second] = &props[i].second;
            else
                extra.push_back(i);
        }
        for (std::size_t k = 0; k < slots.size(); ++k) {
            const auto &[name, type] = shape->props[k];
            property(name, slots[k] != nullptr ? *slots[k] : Value::null(type), type);
        }
        for (std::size_t i : extra) property(props[i].first, props[i].second, CMPI_null);
    } else {
        for (const auto &[name, v] : props) property(name, v, CMPI_null);
    }
    close("INSTANCE");
}

}  // namespace cimserver
