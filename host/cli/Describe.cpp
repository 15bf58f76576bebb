#include "Describe.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <stdexcept>

namespace cimhost::cli {

namespace {

std::string qualifierText(const std::vector<Qualifier> &qualifiers, std::string_view name) {
    const Qualifier *q = findQualifier(qualifiers, name);
    return q != nullptr ? q->value : std::string{};
}

std::string typeText(const ParameterDecl &p) {
    std::string type = p.type == CimType::Reference ? p.refClass + " ref" : cimTypeName(p.type);
    return p.isArray ? type + "[]" : type;
}

std::string direction(const ParameterDecl &p) { return p.in && p.out ? "in/out" : p.out ? "out" : "in"; }

nlohmann::json methodJson(const MethodDecl &m) {
    nlohmann::json params = nlohmann::json::array();
    for (const ParameterDecl &p : m.params)
        params.push_back({{"name", p.name},
                          {"type", typeText(p)},
                          {"direction", direction(p)},
                          {"description", qualifierText(p.qualifiers, "Description")}});
    return {{"name", m.name},
            {"returns", cimTypeName(m.returnType)},
            {"description", qualifierText(m.qualifiers, "Description")},
            {"parameters", params}};
}

void methodText(const MethodDecl &m, std::ostream &out) {
    out << m.name << "  returns " << cimTypeName(m.returnType) << '\n';
    if (std::string d = qualifierText(m.qualifiers, "Description"); !d.empty()) out << "  " << d << '\n';
    size_t nameWidth = 0, typeWidth = 0;
    for (const ParameterDecl &p : m.params) {
        nameWidth = std::max(nameWidth, p.name.size());
        typeWidth = std::max(typeWidth, typeText(p).size());
    }
    for (const ParameterDecl &p : m.params) {
        const std::string type = typeText(p);
        out << "    " << p.name << std::string(nameWidth - p.name.size() + 2, ' ') << type
            << std::string(typeWidth - type.size() + 1, ' ') << direction(p);
        if (std::string d = qualifierText(p.qualifiers, "Description"); !d.empty()) out << "  " << d;
        out << '\n';
    }
}

}  // namespace

void describe(const ClassRepository &mof, const std::string &cls, const std::string &method, std::ostream &out,
              bool json) {
    const ClassDecl *decl = mof.find(cls);
    if (decl == nullptr) throw std::invalid_argument("no class " + cls + " in the MOF");
    std::vector<const MethodDecl *> methods;
    if (!method.empty()) {
        const MethodDecl *m = mof.findMethod(cls, method);
        if (m == nullptr) throw std::invalid_argument("class " + decl->name + " has no method " + method);
        methods.push_back(m);
    } else {
        for (const MethodDecl &m : decl->methods) methods.push_back(&m);
    }
    if (json) {
        nlohmann::json list = nlohmann::json::array();
        for (const MethodDecl *m : methods) list.push_back(methodJson(*m));
        out << nlohmann::json{{"class", decl->name},
                              {"namespace", decl->nameSpace},
                              {"description", qualifierText(decl->qualifiers, "Description")},
                              {"methods", list}}
                   .dump(2)
            << '\n';
        return;
    }
    out << decl->name << " (" << decl->nameSpace << ")\n";
    if (std::string d = qualifierText(decl->qualifiers, "Description"); !d.empty() && method.empty())
        out << "  " << d << '\n';
    if (methods.empty()) out << "  no methods\n";
    for (const MethodDecl *m : methods) {
        out << '\n';
        methodText(*m, out);
    }
}

std::string expectedArguments(const MethodDecl &method) {
    std::string names;
    size_t count = 0;
    for (const ParameterDecl &p : method.params) {
        if (!p.in) continue;
        names += (count++ == 0 ? "" : ", ") + p.name;
    }
    return method.name + " takes " + std::to_string(count) + (count == 1 ? " argument" : " arguments") +
           (count == 0 ? "" : ": " + names);
}

}  // namespace cimhost::cli
