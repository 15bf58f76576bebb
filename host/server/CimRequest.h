// A CIM-XML operation request as the client sent it, and the decoder that
// reads one from an HTTP body with bounds on size, depth, element and
// attribute counts; its cost is linear in the body's size.
#pragma once

#include "Value.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace cimserver {

// A parameter value before it is typed: typing needs the operation (intrinsic
// parameters) or the method's declaration (untyped method parameters).
struct RawValue {
    enum class Kind { Null, Text, Array, ClassName, InstanceName, Reference, Instance, Other };
    Kind kind = Kind::Null;
    std::string text;                               // Text; ClassName
    std::vector<std::optional<std::string>> items;  // Array; nullopt is VALUE.NULL
    cimhost::ObjectPathV path;                      // InstanceName; Reference
    cimhost::InstanceV instance;                    // Instance: properties typed as the TYPE attributes say
};

struct NamedParam {
    std::string name;
    std::string paramType;  // PARAMTYPE of a method parameter; empty when untyped
    RawValue value;
};

struct CimRequest {
    std::string messageId;
    bool intrinsic = true;
    std::string method;          // IMETHODCALL or METHODCALL NAME
    std::string nameSpace;       // "tovra/cimv2"
    cimhost::ObjectPathV target;  // method calls: the class or instance path
    bool classTarget = false;     // the method call names a class
    std::vector<NamedParam> params;

    const NamedParam *param(std::string_view name) const;
};

// Why a body is refused before any operation runs; each maps to one HTTP
// status and CIMError header.
struct RequestError {
    enum class Kind {
        NotWellFormed,               // 400 request-not-well-formed
        NotValid,                    // 400 request-not-valid
        UnsupportedCimVersion,       // 501 unsupported-cim-version
        UnsupportedDtdVersion,       // 501 unsupported-dtd-version
        UnsupportedProtocolVersion,  // 501 unsupported-protocol-version
        MultipleRequests,            // 501 multiple-requests-unsupported
    };
    Kind kind;
    std::string detail;
};

struct DecodeLimits {
    std::size_t maxBytes = 1 << 20;
    int maxDepth = 40;
    std::size_t maxElements = 20000;
    std::size_t maxNameBytes = 256;  // NAME, CLASSNAME and similar attributes
    std::size_t maxAttributesPerElement = 32;
    std::size_t maxAttributes = 40000;  // in the whole body
};

using DecodeResult = std::variant<CimRequest, RequestError>;

DecodeResult decodeRequest(std::string_view body, const DecodeLimits &limits = {});

// An export request (a CIM listener's side): EXPMETHODCALL and its
// EXPPARAMVALUEs; instances among them are read as in an operation request.
struct ExportRequest {
    std::string messageId;
    std::string protocolVersion;  // MESSAGE PROTOCOLVERSION
    std::string method;           // EXPMETHODCALL NAME
    std::vector<NamedParam> params;

    const NamedParam *param(std::string_view name) const;
};

using ExportDecodeResult = std::variant<ExportRequest, RequestError>;

ExportDecodeResult decodeExportRequest(std::string_view body, const DecodeLimits &limits = {});

int httpStatusOf(RequestError::Kind kind);
const char *cimErrorHeaderOf(RequestError::Kind kind);

}  // namespace cimserver
