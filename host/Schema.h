// The classes the host knows: the MOF it was given plus its own built-in
// classes, with the questions routing and type conversion ask of them.
#pragma once

#include "ClassRepository.h"
#include "Value.h"

#include <cmpidt.h>

#include <set>
#include <string>
#include <unordered_map>
#include <vector>

namespace cimhost {

// The CMPI type code of a declared CIM type.
CMPIType cmpiTypeOf(CimType type, bool isArray);

// The MOF default values of a class's properties (inherited ones included),
// typed as declared, in the repository's property order. Throws MofError when
// an inherited default does not fit the type of the property that overrides it.
NamedValues classDefaults(const ClassRepository &repo, std::string_view cls);

class Schema {
public:
    // Reads the built-in classes, then every MOF file or directory given;
    // throws MofError on a bad or inconsistent class set.
    explicit Schema(const std::vector<std::string> &mofPaths);

    const ClassDecl *find(std::string_view cls) const { return repo_.find(cls); }
    bool isA(std::string_view cls, std::string_view ancestor) const;
    // The class and every class below it (lower case).
    std::vector<std::string> subclasses(std::string_view cls) const;
    // Namespaces that hold at least one class (lower case).
    const std::set<std::string> &namespaces() const { return namespaces_; }
    using PropertyTypes = std::unordered_map<std::string, CMPIType, NoCaseHash, NoCaseEqual>;
    // The declared type of a property, or CMPI_null when it is not declared.
    CMPIType propertyType(std::string_view cls, std::string_view prop) const;
    // Every declared property type of a class, or nullptr for an unknown class.
    const PropertyTypes *propertyTypes(std::string_view cls) const;
    // Reference properties of an association class (inherited ones included).
    std::vector<const PropertyDecl *> references(std::string_view cls) const;
    // The MOF default values of a class's properties, inherited ones
    // included, typed as declared: what an instance made from the class starts
    // with. nullptr for an unknown class or one without defaults.
    const NamedValues *defaults(std::string_view cls) const;
    const MethodDecl *method(std::string_view cls, std::string_view name) const {
        return repo_.findMethod(cls, name);
    }

    // Class and namespace of the host's own user authorization service.
    static constexpr const char *kAuthClass = "VMware_UserAuthorizationService";
    static constexpr const char *kAuthNamespace = "root/cimv2";
    static constexpr const char *kAuthName = "VMware:UserAuthorizationService";

private:
    ClassRepository repo_;
    std::set<std::string> namespaces_;
    // Declared property types of every class, inherited ones included: asked
    // for each property of every instance a provider returns.
    std::unordered_map<std::string, PropertyTypes, NoCaseHash, NoCaseEqual> types_;
    std::unordered_map<std::string, NamedValues, NoCaseHash, NoCaseEqual> defaults_;
};

}  // namespace cimhost
