// The classes a server describes to clients (GetClass, EnumerateClasses,
// EnumerateClassNames), read from the same MOF as the host. A namespace shows
// the classes compiled into it and the schema classes they derive from.
// Properties carry their MOF default values.
#pragma once

#include "ClassRepository.h"
#include "XmlWriter.h"

#include <cmpidt.h>

#include <map>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

namespace cimserver {

struct ClassQuery {
    bool localOnly = true;
    bool includeQualifiers = true;
    bool includeClassOrigin = false;
    std::optional<std::vector<std::string>> propertyList;  // nullopt: every property
};

class ClassCatalog {
public:
    explicit ClassCatalog(const std::vector<std::string> &mofPaths);

    bool hasNamespace(std::string_view ns) const;
    const cimhost::ClassDecl *find(std::string_view ns, std::string_view cls) const;
    // Classes of the namespace whose superclass is `parent` (empty: the root
    // classes); with `deep`, every class below instead. Repository order.
    std::vector<const cimhost::ClassDecl *> subclasses(std::string_view ns, std::string_view parent, bool deep) const;
    // A CLASS element.
    void appendClass(std::string &out, const cimhost::ClassDecl &cls, const ClassQuery &query) const;

    bool isA(std::string_view cls, std::string_view ancestor) const { return repo_.isA(cls, ancestor); }
    // The namespaces that show the class.
    std::vector<std::string> namespacesOf(std::string_view cls) const;
    // An indication class: it or an ancestor carries the Indication qualifier,
    // or it derives from CIM_Indication.
    bool isIndication(std::string_view cls) const;
    // The CMPI type of a property of the class (inherited ones included).
    std::optional<CMPIType> propertyType(std::string_view cls, std::string_view property) const;

    // Every property of a class with its CMPI type, in declaration order
    // (inherited first): the shape instances are written in.
    const PropertyShape *shape(std::string_view cls) const;

private:
    std::vector<const cimhost::ClassDecl *> ancestry(std::string_view cls) const;  // root first
    std::string originOf(std::string_view cls, std::string_view member, bool method) const;

    cimhost::ClassRepository repo_;
    std::map<std::string, std::set<std::string>> visible_;  // lower-case namespace -> lower-case class names
    std::unordered_map<std::string, PropertyShape, cimhost::NoCaseHash, cimhost::NoCaseEqual> shapes_;
    // Each class's property defaults, written as the VALUE of its CLASS properties.
    std::unordered_map<std::string, cimhost::NamedValues, cimhost::NoCaseHash, cimhost::NoCaseEqual> defaults_;
};

}  // namespace cimserver
