// Writes CIM-XML elements (DSP0201) into a string: values, paths, instances
// and the message envelope of a response.
#pragma once

#include "Value.h"

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace cimserver {

// Text fit for XML content and attributes: markup characters escaped, bytes
// that are not UTF-8 and control characters XML cannot carry replaced by U+FFFD.
void appendEscaped(std::string &out, std::string_view text);
std::string escaped(std::string_view text);

// The CIM type name of a CMPI type ("uint32", "string", "datetime"), arrays as
// their element type.
std::string cimTypeName(CMPIType type);

// The properties an instance is written with, in order, with their types.
struct PropertyShape {
    std::vector<std::pair<std::string, CMPIType>> props;
    std::unordered_map<std::string, std::size_t, cimhost::NoCaseHash, cimhost::NoCaseEqual> index;

    void add(const std::string &name, CMPIType type) {
        if (index.emplace(name, props.size()).second) props.emplace_back(name, type);
    }
};

class XmlWriter {
public:
    explicit XmlWriter(std::string &out) : out_(out) {}

    void open(std::string_view element) { out_ += '<', out_ += element, out_ += '>'; }
    void close(std::string_view element) { out_ += "</", out_ += element, out_ += ">\n"; }
    // "<E A="v" B="w">" with escaped values; selfClose writes "<E .../>".
    void openWith(std::string_view element, std::initializer_list<std::pair<const char *, std::string_view>> attrs,
                  bool selfClose = false);
    void raw(std::string_view text) { out_ += text; }

    void value(const cimhost::Value &v);  // VALUE, VALUE.ARRAY or VALUE.REFERENCE; nothing for NULL
    void localNamespacePath(std::string_view ns);
    void instanceName(const cimhost::ObjectPathV &path);
    // INSTANCEPATH: NAMESPACEPATH (host, namespace) and INSTANCENAME.
    void instancePath(const cimhost::ObjectPathV &path, std::string_view defaultHost);
    // A property of the given type (from the value, or the declaration when
    // the value is an untyped NULL).
    void property(std::string_view name, const cimhost::Value &v, CMPIType declared);
    // Every property of the shape (unset ones as NULL), then any the shape lacks.
    void instance(const cimhost::InstanceV &inst, const PropertyShape *shape = nullptr);

private:
    void scalarText(const cimhost::Value &v);
    void reference(const cimhost::ObjectPathV &path);
    std::string &out_;
};

}  // namespace cimserver
