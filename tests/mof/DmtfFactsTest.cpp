// Our MOF against the DMTF final schema a stock CIMOM compiles it with: the
// standard classes our host reads (mof/cim) have the DMTF class chain, keys
// and property types; the supplement carries exactly the standard classes the
// final schema lacks; and no Tovra_ class redeclares a standard property with
// another type. Default values match the schema's, which a stock CIMOM puts
// into every instance a provider makes from the class.
#include "DefaultText.h"
#include "ProjectRepository.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

using namespace cimhost;

namespace {

struct FactClass {
    std::string superclass;
    std::map<std::string, std::string> types;  // property -> "uint16[]", "ref CIM_X"
    std::set<std::string> keys;
    std::map<std::string, std::string> defaults;  // property -> MOF text of its "= value"
};

std::map<std::string, FactClass> loadFacts() {
    std::map<std::string, FactClass> facts;
    std::ifstream in(TOVRA_DMTF_FACTS);
    std::string line;
    FactClass *current = nullptr;
    while (std::getline(in, line)) {
        std::istringstream words(line);
        std::string first;
        if (!(words >> first) || first[0] == '#') continue;
        if (first == "class") {
            std::string name, colon, superclass;
            words >> name >> colon >> superclass;
            current = &facts[name];
            current->superclass = superclass;
            continue;
        }
        const bool key = first == "key";
        std::string type = key ? "" : first, name;
        if (key) words >> type;
        if (type == "ref") {
            std::string target;
            words >> target;
            type = "ref " + target;
        }
        words >> name;
        current->types[name] = type;
        if (key) current->keys.insert(name);
        std::string equals, value;
        if (words >> equals >> value && equals == "=") current->defaults[name] = value;
    }
    return facts;
}

const std::map<std::string, FactClass> &facts() {
    static const auto f = loadFacts();
    return f;
}

std::string typeText(const PropertyDecl &p) {
    if (p.type == CimType::Reference) return "ref " + p.refClass;
    return std::string(cimTypeName(p.type)) + (p.isArray ? "[]" : "");
}

// The facts' declaration of `prop` nearest to `cls` along its chain.
const std::string *factType(std::string cls, const std::string &prop) {
    for (auto it = facts().find(cls); it != facts().end(); it = facts().find(it->second.superclass)) {
        auto t = it->second.types.find(prop);
        if (t != it->second.types.end()) return &t->second;
    }
    return nullptr;
}

std::set<std::string> factKeys(std::string cls) {
    std::set<std::string> keys;
    for (auto it = facts().find(cls); it != facts().end(); it = facts().find(it->second.superclass))
        keys.insert(it->second.keys.begin(), it->second.keys.end());
    return keys;
}

std::set<std::string> supplementClasses() {
    ClassRepository r;
    r.loadFile(kMofDir + "/Tovra_CIMSupplement.mof");
    const auto names = r.classNames();
    return {names.begin(), names.end()};
}

bool isStandard(const std::string &cls) { return cls.rfind("CIM_", 0) == 0; }

}  // namespace

TEST(DmtfFacts, FactsAreRead) {
    ASSERT_GE(facts().size(), 40u);
    EXPECT_EQ(facts().at("CIM_Log").defaults, (std::map<std::string, std::string>{{"OverwritePolicy", "0"},
                                                                                   {"LogState", "4"}}));
    EXPECT_EQ(facts().at("CIM_Slot").types.at("Number"), "uint16");
    EXPECT_EQ(factKeys("CIM_Battery"),
              (std::set<std::string>{"SystemCreationClassName", "SystemName", "CreationClassName", "DeviceID"}));
}

TEST(DmtfFacts, StandardClassesHaveTheDmtfChainKeysAndTypes) {
    const std::set<std::string> supplement = supplementClasses();
    for (const std::string &cls : project().classNames()) {
        if (!isStandard(cls) || supplement.count(cls)) continue;
        SCOPED_TRACE(cls);
        auto fact = facts().find(cls);
        ASSERT_NE(fact, facts().end()) << "not in the DMTF final schema";
        const ClassDecl *decl = project().find(cls);
        EXPECT_EQ(decl->superclass, fact->second.superclass);
        const auto keys = project().keyNames(cls);
        EXPECT_EQ(std::set<std::string>(keys.begin(), keys.end()), factKeys(cls));
        for (const PropertyDecl &p : decl->properties) {
            auto declared = fact->second.types.find(p.name);
            if (declared == fact->second.types.end()) {
                ADD_FAILURE() << p.name << " is not declared by " << cls << " in the DMTF schema";
                continue;
            }
            EXPECT_EQ(typeText(p), declared->second) << p.name;
            const auto value = fact->second.defaults.find(p.name);
            EXPECT_EQ(defaultText(p), value == fact->second.defaults.end() ? "" : value->second) << p.name;
        }
        for (const auto &[name, value] : fact->second.defaults) {
            const bool declared = std::any_of(decl->properties.begin(), decl->properties.end(),
                                              [&](const PropertyDecl &p) { return p.name == name; });
            EXPECT_TRUE(declared) << name << " = " << value << " is a default of " << cls << " in the DMTF schema";
        }
    }
}

TEST(DmtfFacts, SupplementCarriesOnlyWhatTheFinalSchemaLacks) {
    const std::set<std::string> supplement = supplementClasses();
    EXPECT_EQ(supplement, (std::set<std::string>{"CIM_SASSATAPort"}));
    for (const std::string &cls : supplement) {
        SCOPED_TRACE(cls);
        EXPECT_EQ(facts().count(cls), 0u);
        const ClassDecl *decl = project().find(cls);
        ASSERT_NE(decl, nullptr);
        EXPECT_EQ(decl->nameSpace, "tovra/cimv2");
        EXPECT_TRUE(decl->properties.empty()) << "adds nothing a stock schema would not have";
        EXPECT_EQ(facts().count(decl->superclass), 1u) << decl->superclass;
    }
}

TEST(DmtfFacts, TovraClassesKeepTheStandardTypesAndReachTheSchema) {
    const std::set<std::string> supplement = supplementClasses();
    for (const std::string &cls : project().classNames()) {
        if (isStandard(cls)) continue;
        SCOPED_TRACE(cls);
        const ClassDecl *decl = project().find(cls);
        // The nearest standard ancestor is DMTF's or the supplement's.
        std::string standard = decl->superclass;
        while (!isStandard(standard) && project().find(standard) != nullptr)
            standard = project().find(standard)->superclass;
        EXPECT_TRUE(facts().count(standard) || supplement.count(standard)) << standard;
        if (supplement.count(standard)) standard = project().find(standard)->superclass;
        for (const PropertyDecl &p : decl->properties) {
            const std::string *type = factType(standard, p.name);
            if (type == nullptr) continue;  // our own property
            if (type->rfind("ref ", 0) == 0) {
                // A role may narrow the reference to a subclass of the standard's.
                ASSERT_EQ(p.type, CimType::Reference) << p.name;
                continue;
            }
            EXPECT_EQ(typeText(p), *type) << p.name;
        }
    }
}
