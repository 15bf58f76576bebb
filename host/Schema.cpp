#include "Schema.h"

#include "Objects.h"

#include <filesystem>

namespace cimhost {

namespace {

// The host's own classes. The authorization service stands in for the host
// operating system's one; it knows users only by the levels the host is given.
constexpr const char *kBuiltinMof = R"(
#pragma namespace("root/cimv2")
[Description("Stand-in for the host's user authorization service.")]
class VMware_UserAuthorizationService {
    [Key] string Name;
    [Description("The permission level of a user; 5 allows changes.")]
    uint8 CheckPermissions([IN] string User);
};
)";

}  // namespace

CMPIType cmpiTypeOf(CimType type, bool isArray) {
    CMPIType t = CMPI_null;
    switch (type) {
        case CimType::Boolean: t = CMPI_boolean; break;
        case CimType::String: t = CMPI_string; break;
        case CimType::Char16: t = CMPI_char16; break;
        case CimType::Uint8: t = CMPI_uint8; break;
        case CimType::Sint8: t = CMPI_sint8; break;
        case CimType::Uint16: t = CMPI_uint16; break;
        case CimType::Sint16: t = CMPI_sint16; break;
        case CimType::Uint32: t = CMPI_uint32; break;
        case CimType::Sint32: t = CMPI_sint32; break;
        case CimType::Uint64: t = CMPI_uint64; break;
        case CimType::Sint64: t = CMPI_sint64; break;
        case CimType::Real32: t = CMPI_real32; break;
        case CimType::Real64: t = CMPI_real64; break;
        case CimType::DateTime: t = CMPI_dateTime; break;
        case CimType::Reference: t = CMPI_ref; break;
    }
    return isArray ? static_cast<CMPIType>(t | CMPI_ARRAY) : t;
}

Schema::Schema(const std::vector<std::string> &mofPaths) {
    repo_.loadText(kBuiltinMof, "<host classes>");
    for (const std::string &path : mofPaths) {
        std::error_code ec;
        if (std::filesystem::is_directory(path, ec)) {
            repo_.loadDirectory(path);
        } else {
            repo_.loadFile(path);
        }
    }
    repo_.validate();
    for (const std::string &name : repo_.classNames()) {
        namespaces_.insert(lowerCase(repo_.find(name)->nameSpace));
        rt::registerClassKeys(name, repo_.keyNames(name));
        PropertyTypes &types = types_[name];
        for (const PropertyDecl *p : repo_.allProperties(name)) types[p->name] = cmpiTypeOf(p->type, p->isArray);
    }
}

bool Schema::isA(std::string_view cls, std::string_view ancestor) const {
    return iequals(cls, ancestor) || repo_.isA(cls, ancestor);
}

CMPIType Schema::propertyType(std::string_view cls, std::string_view prop) const {
    const PropertyTypes *types = propertyTypes(cls);
    if (types == nullptr) return CMPI_null;
    const auto p = types->find(prop);
    return p == types->end() ? CMPIType(CMPI_null) : p->second;
}

const Schema::PropertyTypes *Schema::propertyTypes(std::string_view cls) const {
    const auto c = types_.find(cls);
    return c == types_.end() ? nullptr : &c->second;
}

std::vector<const PropertyDecl *> Schema::references(std::string_view cls) const {
    std::vector<const PropertyDecl *> refs;
    for (const PropertyDecl *p : repo_.allProperties(cls))
        if (p->type == CimType::Reference) refs.push_back(p);
    return refs;
}

}  // namespace cimhost
