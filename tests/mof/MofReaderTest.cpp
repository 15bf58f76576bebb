// The MOF reader and the repository's lookups on small hand-written inputs.
#include "ClassRepository.h"
#include "DefaultText.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <fstream>
#include <unistd.h>

using namespace cimhost;
namespace fs = std::filesystem;

namespace {

// A scratch directory removed when the test ends.
class TempDir {
public:
    TempDir() : path_(fs::temp_directory_path() / ("mof_test_" + std::to_string(::getpid()) + "_" + name())) {
        fs::remove_all(path_);
        fs::create_directories(path_);
    }
    ~TempDir() { fs::remove_all(path_); }
    std::string write(const std::string &relative, const std::string &text) const {
        const fs::path p = path_ / relative;
        fs::create_directories(p.parent_path());
        std::ofstream(p) << text;
        return p.string();
    }
    std::string path() const { return path_.string(); }

private:
    static std::string name() { return ::testing::UnitTest::GetInstance()->current_test_info()->name(); }
    fs::path path_;
};

// The MofError that loading `text` throws.
MofError loadError(ClassRepository &r, const std::string &text, const std::string &origin = "t.mof") {
    try {
        r.loadText(text, origin);
    } catch (const MofError &e) {
        return e;
    }
    ADD_FAILURE() << "no error for:\n" << text;
    return MofError("", 0, "");
}

MofError validateError(const ClassRepository &r) {
    try {
        r.validate();
    } catch (const MofError &e) {
        return e;
    }
    ADD_FAILURE() << "validate() passed";
    return MofError("", 0, "");
}

std::string qualifierValue(const std::vector<Qualifier> &qs, const char *name) {
    const Qualifier *q = findQualifier(qs, name);
    return q != nullptr ? q->value : "<absent>";
}

}  // namespace

TEST(MofReader, QualifierListsOnClassesAndReferences) {
    ClassRepository r;
    r.loadText(R"(
        class T_B { };
        [Association, Description("Two " "parts"
                                  " joined"), Version("1.0.0")]
        class T_A {
            [Key, Override("X") : ToSubclass DisableOverride, ValueMap{"1", "2"}, MaxLen(16)]
            T_B REF X;
            [key(false), Description("not a key")] T_B ref Y;
        };)");
    const ClassDecl *a = r.find("T_A");
    ASSERT_NE(a, nullptr);
    EXPECT_TRUE(a->isAssociation);
    EXPECT_EQ(qualifierValue(a->qualifiers, "description"), "Two parts joined");
    EXPECT_EQ(qualifierValue(a->qualifiers, "Version"), "1.0.0");

    const PropertyDecl *x = r.findProperty("T_A", "X");
    ASSERT_NE(x, nullptr);
    EXPECT_EQ(x->type, CimType::Reference);
    EXPECT_EQ(x->refClass, "T_B");
    EXPECT_TRUE(x->isKey);
    EXPECT_EQ(qualifierValue(x->qualifiers, "Key"), "true");
    EXPECT_EQ(qualifierValue(x->qualifiers, "Override"), "X");
    EXPECT_EQ(qualifierValue(x->qualifiers, "ValueMap"), R"({"1","2"})");
    EXPECT_EQ(qualifierValue(x->qualifiers, "MaxLen"), "16");
    EXPECT_FALSE(r.findProperty("T_A", "Y")->isKey);
    EXPECT_EQ(r.keyNames("T_A"), std::vector<std::string>{"X"});
    EXPECT_NO_THROW(r.validate());
}

TEST(MofReader, PropertyTypesArraysAndDefaults) {
    ClassRepository r;
    r.loadText(R"(
        class T_P {
            boolean Flag = TRUE;
            string S = "x" "y";
            char16 C = '\x41';
            UINT8 U8 = 5;
            sint8 S8 = -5;
            uint16 List[] = {1, 2, 0x10};
            sint16 S16 = +3;
            uint32 Fixed[4];
            sint32 S32 = 101b;
            uint64 U64 = NULL;
            sint64 S64 = 0;
            real32 R32 = 1.5;
            real64 R64 = -1.5e-3;
            datetime When = "20240101000000.000000+000";
            string Names[] = {"a", "b\"c"};
        };)");
    const std::vector<std::tuple<const char *, CimType, bool, const char *>> expected = {
        {"Flag", CimType::Boolean, false, "true"},
        {"S", CimType::String, false, "\"xy\""},
        {"C", CimType::Char16, false, "65"},
        {"U8", CimType::Uint8, false, "5"},
        {"S8", CimType::Sint8, false, "-5"},
        {"List", CimType::Uint16, true, "{1,2,16}"},
        {"S16", CimType::Sint16, false, "3"},
        {"Fixed", CimType::Uint32, true, ""},
        {"S32", CimType::Sint32, false, "5"},
        {"U64", CimType::Uint64, false, "null"},
        {"S64", CimType::Sint64, false, "0"},
        {"R32", CimType::Real32, false, "1.5"},
        {"R64", CimType::Real64, false, "-0.0015"},
        {"When", CimType::DateTime, false, "\"20240101000000.000000+000\""},
        {"Names", CimType::String, true, "{\"a\",\"b\\\"c\"}"},
    };
    const auto all = r.allProperties("t_p");
    ASSERT_EQ(all.size(), expected.size());
    for (std::size_t i = 0; i < all.size(); ++i) {
        const auto &[name, type, isArray, value] = expected[i];
        EXPECT_EQ(all[i]->name, name);
        EXPECT_EQ(all[i]->type, type) << name;
        EXPECT_EQ(all[i]->isArray, isArray) << name;
        EXPECT_EQ(defaultText(*all[i]), value) << name;
        EXPECT_EQ(cimTypeFromName(cimTypeName(type)), type);
    }
    EXPECT_STREQ(cimTypeName(CimType::DateTime), "datetime");
}

// A default value is read as the property's declared type: in range, of the
// right kind of literal, an array only for an array property.
TEST(MofReader, DefaultsAreReadAsTheDeclaredType) {
    struct Case {
        const char *declaration;  // of property P
        const char *value;        // defaultText(), or nullptr when the load fails
        const char *error = "";
    };
    const std::vector<Case> cases = {
        {"uint8 P = 255;", "255"},
        {"uint8 P = 0xFF;", "255"},
        {"uint8 P = 017;", "15"},
        {"uint8 P = 110b;", "6"},
        {"uint8 P = -0;", "0"},
        {"uint64 P = 18446744073709551615;", "18446744073709551615"},
        {"sint8 P = -128;", "-128"},
        {"sint8 P = -0x80;", "-128"},
        {"sint64 P = -9223372036854775808;", "-9223372036854775808"},
        {"real32 P = 3.31;", "3.309999942779541"},  // rounded to float
        {"real64 P = 3.31;", "3.31"},
        {"real64 P = 7;", "7"},
        {"char16 P = 'Z';", "90"},
        {"char16 P = '\\x263A';", "9786"},
        {"boolean P = False;", "false"},
        {"string P = \"a\" \"b\";", "\"ab\""},
        {"string P = NULL;", "null"},
        {"uint16 P[] = {};", "{}"},
        {"uint16 P[] = {1, NULL};", "{1,null}"},
        {"datetime P = \"00000001020304.000005:000\";", "\"00000001020304.000005:000\""},
        {"uint8 P = 256;", nullptr, "the default value '256' of P is not a uint8"},
        {"sint8 P = -129;", nullptr, "is not a sint8"},
        {"sint8 P = 128;", nullptr, "is not a sint8"},
        {"uint16 P = -1;", nullptr, "is not a uint16"},
        {"uint32 P = 1.5;", nullptr, "is not a uint32"},
        {"uint32 P = 12ab;", nullptr, "is not a uint32"},
        {"real32 P = 1e39;", nullptr, "is not a real32"},
        {"real64 P = \"1.5\";", nullptr, "is not a real64"},
        {"boolean P = 1;", nullptr, "is not a boolean"},
        {"string P = 5;", nullptr, "is not a string"},
        {"char16 P = \"Z\";", nullptr, "is not a char16"},
        {"datetime P = \"2024\";", nullptr, "is not a datetime"},
        {"uint8 P[] = {1, \"a\"};", nullptr, "is not a uint8 array element"},
        {"uint8 P = {1};", nullptr, "the default value '{' of P is not a uint8"},
        {"uint8 P[] = 1;", nullptr, "expected '{'"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.declaration);
        ClassRepository r;
        const std::string text = std::string("class T_D {\n  ") + c.declaration + "\n};";
        if (c.value == nullptr) {
            const MofError e = loadError(r, text);
            EXPECT_EQ(e.line(), 2);
            EXPECT_NE(std::string(e.what()).find(c.error), std::string::npos) << e.what();
            continue;
        }
        r.loadText(text, "t.mof");
        const PropertyDecl *p = r.findProperty("T_D", "P");
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(defaultText(*p), c.value);
    }
}

TEST(MofReader, MethodsAndParameterDirections) {
    ClassRepository r;
    r.loadText(R"(
        class T_Target { };
        class T_M {
            uint32 Go([IN] uint32 A, [IN, OUT] string B[], T_Target REF C,
                      [OUT, Description("out only")] uint16 D, [IN(false), OUT] sint8 E[16]);
            string Nothing();
        };)");
    const MethodDecl *m = r.findMethod("t_m", "go");
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(m->returnType, CimType::Uint32);
    ASSERT_EQ(m->params.size(), 5u);
    const auto &p = m->params;
    EXPECT_TRUE(p[0].in && !p[0].out && !p[0].isArray);
    EXPECT_TRUE(p[1].in && p[1].out && p[1].isArray && p[1].type == CimType::String);
    EXPECT_TRUE(p[2].in && !p[2].out);
    EXPECT_EQ(p[2].type, CimType::Reference);
    EXPECT_EQ(p[2].refClass, "T_Target");
    EXPECT_TRUE(!p[3].in && p[3].out);
    EXPECT_TRUE(!p[4].in && p[4].out && p[4].isArray);
    EXPECT_TRUE(r.findMethod("T_M", "Nothing")->params.empty());
    EXPECT_TRUE(r.allProperties("T_M").empty());
}

TEST(MofReader, StringEscapesAndComments) {
    ClassRepository r;
    r.loadText("// line comment with \"quotes\" and /* an opener\n"
               "[Description(\"q\\\"uote\\t\\\\ \\x41\\X00e9\" /* between */ \" end\")]\n"
               "class /* inside */ T_E // trailing\n"
               "{ /* a comment\n"
               "     over lines */ string S; };\n");
    const ClassDecl *e = r.find("T_E");
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(qualifierValue(e->qualifiers, "Description"), "q\"uote\t\\ A\xC3\xA9 end");
    EXPECT_NE(r.findProperty("T_E", "S"), nullptr);
}

TEST(MofReader, SkipsQualifierDeclarationsInstancesAndOtherPragmas) {
    ClassRepository r;
    r.loadText(R"(
        Qualifier Key : boolean = false, Scope(property, reference), Flavor(DisableOverride);
        Qualifier ValueMap : string[], Scope(property, method, parameter);
        #pragma locale ("en_US")
        #pragma deleteclass("T_Old", NOFAIL)
        instance of T_X as $x { Name = "a}b"; Values = {1, 2}; };
        [Key] class T_X { string Name; uint8 Values[]; };
        instance of T_X { Name = "c"; };
    )");
    EXPECT_EQ(r.classNames(), std::vector<std::string>{"T_X"});
}

TEST(MofReader, IncludesAreRelativeToTheIncludingFileAndInheritItsNamespace) {
    TempDir dir;
    const std::string main = dir.write("main.mof", R"(
        #pragma namespace("ns/a")
        #pragma include("sub/base.mof")
        class T_Main : T_Base { };)");
    dir.write("sub/base.mof", R"(
        #pragma include("leaf.mof")
        class T_Base : T_Leaf { };)");
    dir.write("sub/leaf.mof", R"(
        #pragma namespace("ns/b")
        #pragma include("../main.mof")
        class T_Leaf { };)");  // an include cycle ends at the file already read
    dir.write("other.mof", "class T_Plain { };");

    ClassRepository r;
    r.loadFile(main);
    EXPECT_EQ(r.find("T_Main")->nameSpace, "ns/a");  // the included file's pragma does not leak back
    EXPECT_EQ(r.find("T_Base")->nameSpace, "ns/a");
    EXPECT_EQ(r.find("T_Leaf")->nameSpace, "ns/b");
    EXPECT_TRUE(r.isA("T_Main", "T_Leaf"));

    // The directory walk skips the files already read through includes.
    r.loadDirectory(dir.path());
    EXPECT_EQ(r.find("T_Plain")->nameSpace, "root/cimv2");
    EXPECT_EQ(r.classNames().size(), 4u);
    EXPECT_NO_THROW(r.validate());
}

TEST(MofReader, ErrorsNameTheFileAndLine) {
    struct Case {
        const char *text;
        int line;
        const char *fragment;
    };
    const std::vector<Case> cases = {
        {"class T_A {\n  string S = \"open;\n};", 2, "unterminated string"},
        {"class T_A {\n  string S;\n}\nclass T_B { };", 4, "expected ';'"},
        {"class T_A {\n\n  uint128 S;\n};", 3, "unknown type 'uint128'"},
        {"\n/* never closed\nclass T_A { };", 2, "unterminated comment"},
        {"class T_A {\n  string S;\n  uint8 s;\n};", 3, "T_A.s is declared twice"},
        {"class T_A {\n  string Go([IN] uint8 A,\n    [IN] uint8 a);\n};", 3, "parameter a is declared twice"},
        {"class T_A {\n  string S;\n", 1, "class T_A is not closed"},
        {"[Key]\n\nproperty X;", 3, "expected 'class'"},
        {"class T_A { string S @ };", 1, "unexpected character '@'"},
        {"class T_A {\n string Name[x];\n};", 2, "expected ']' but found 'x'"},
        {"class T_A {\n string Name[-1];\n};", 2, "array size must be a decimal number"},
        {"\n#pragma include()\n", 2, "needs a file name"},
    };
    for (const Case &c : cases) {
        ClassRepository r;
        const MofError e = loadError(r, c.text);
        EXPECT_EQ(e.file(), "t.mof") << c.text;
        EXPECT_EQ(e.line(), c.line) << c.text;
        EXPECT_NE(std::string(e.what()).find(c.fragment), std::string::npos) << e.what();
        EXPECT_TRUE(r.classNames().empty());
    }

    // A class defined twice names both places; so does a missing include.
    TempDir dir;
    ClassRepository r;
    r.loadText("\nclass T_A { };", "first.mof");
    const MofError dup = loadError(r, "class t_a { };", "second.mof");
    EXPECT_STREQ(dup.what(), "second.mof:1: class t_a is already defined at first.mof:2");

    const std::string includer = dir.write("inc.mof", "class T_Z { };\n#pragma include(\"absent.mof\")\n");
    try {
        r.loadFile(includer);
        FAIL();
    } catch (const MofError &e) {
        EXPECT_EQ(e.file(), includer);
        EXPECT_EQ(e.line(), 2);
        EXPECT_NE(std::string(e.what()).find("cannot include 'absent.mof'"), std::string::npos);
    }
    EXPECT_EQ(r.find("T_Z"), nullptr);  // a failed load adds nothing
}

TEST(MofReader, FailedLoadKeepsEarlierClassesAndTheirAddresses) {
    ClassRepository r;
    r.loadText("class T_Keep { string S; };");
    const ClassDecl *keep = r.find("T_Keep");
    loadError(r, "class T_New { };\nclass T_Bad { string };");
    EXPECT_EQ(r.find("T_New"), nullptr);
    EXPECT_EQ(r.find("T_Keep"), keep);
    r.loadText("class T_New { };");  // and the name is free again
    EXPECT_NE(r.find("T_New"), nullptr);
}

TEST(ClassRepository, InheritanceLookups) {
    ClassRepository r;
    r.loadText(R"(
        class T_Base {
            [Key] string Id;
            string Text;
            uint8 Level;
            uint32 Act([IN] uint32 How);
        };
        class T_Mid : T_Base {
            [Override("Text")] string Text;
            string Extra;
        };
        class T_Leaf : T_Mid {
            [Override("Id"), Description("no Key here")] string Id;
            [Key] string Second;
            string Act2();
        };)");
    EXPECT_TRUE(r.isA("t_leaf", "T_BASE"));
    EXPECT_TRUE(r.isA("T_Leaf", "T_Leaf"));
    EXPECT_FALSE(r.isA("T_Base", "T_Leaf"));
    EXPECT_FALSE(r.isA("T_Unknown", "T_Unknown"));

    std::vector<std::string> names;
    for (const PropertyDecl *p : r.allProperties("T_Leaf")) names.push_back(p->name);
    EXPECT_EQ(names, (std::vector<std::string>{"Id", "Text", "Level", "Extra", "Second"}));
    EXPECT_EQ(r.findProperty("T_Leaf", "TEXT"), &r.find("T_Mid")->properties[0]);
    EXPECT_EQ(r.findProperty("T_Leaf", "id"), &r.find("T_Leaf")->properties[0]);
    EXPECT_EQ(r.findProperty("T_Leaf", "Missing"), nullptr);
    EXPECT_EQ(r.findMethod("T_Leaf", "act"), &r.find("T_Base")->methods[0]);
    EXPECT_EQ(r.findMethod("T_Base", "Act2"), nullptr);
    // A key stays a key when an override omits the qualifier.
    EXPECT_EQ(r.keyNames("T_Leaf"), (std::vector<std::string>{"Id", "Second"}));
    EXPECT_TRUE(r.keyNames("T_Unknown").empty());
    EXPECT_EQ(r.classNames(), (std::vector<std::string>{"T_Base", "T_Leaf", "T_Mid"}));
}

// A class's defaults come from the nearest declaration that gives one: an
// override without "= value" keeps the inherited default, "= NULL" drops it.
TEST(ClassRepository, DefaultsFollowTheNearestDeclaration) {
    ClassRepository r;
    r.loadText(R"(
        class T_Base {
            uint16 State = 5;
            uint16 Kept = 2;
            uint16 Dropped = 3;
            string None;
        };
        class T_Leaf : T_Base {
            uint16 State = 7;
            uint16 Kept;
            uint16 Dropped = NULL;
            string None = "set here";
            boolean Own = true;
        };)");
    struct Row {
        const char *cls;
        const char *property;
        const char *source;  // the class whose declaration gives the default
        const char *value;
    };
    const std::vector<Row> rows = {
        {"T_Base", "State", "T_Base", "5"},       {"T_Base", "Kept", "T_Base", "2"},
        {"T_Base", "Dropped", "T_Base", "3"},     {"T_Leaf", "State", "T_Leaf", "7"},
        {"T_Leaf", "Kept", "T_Base", "2"},        {"T_Leaf", "None", "T_Leaf", "\"set here\""},
        {"T_Leaf", "Own", "T_Leaf", "true"},
    };
    std::map<std::string, std::vector<std::string>> seen;
    for (const char *cls : {"T_Base", "T_Leaf"})
        for (const auto &d : r.defaultValues(cls)) {
            seen[cls].push_back(d.property->name);
            EXPECT_EQ(d.property, r.findProperty(cls, d.property->name));
        }
    for (const Row &row : rows) {
        SCOPED_TRACE(std::string(row.cls) + "." + row.property);
        const auto defaults = r.defaultValues(row.cls);
        const auto d = std::find_if(defaults.begin(), defaults.end(),
                                    [&](const auto &x) { return x.property->name == row.property; });
        ASSERT_NE(d, defaults.end());
        EXPECT_EQ(d->source, &*std::find_if(r.find(row.source)->properties.begin(),
                                            r.find(row.source)->properties.end(),
                                            [&](const PropertyDecl &p) { return p.name == row.property; }));
        EXPECT_EQ(defaultText(*d->source), row.value);
    }
    // In allProperties() order; none for Dropped in the leaf, nor for None in the base.
    EXPECT_EQ(seen["T_Base"], (std::vector<std::string>{"State", "Kept", "Dropped"}));
    EXPECT_EQ(seen["T_Leaf"], (std::vector<std::string>{"State", "Kept", "None", "Own"}));
}

TEST(ClassRepository, ValidateFindsDanglingAndMisplacedReferences) {
    struct Case {
        const char *text;
        int line;
        const char *fragment;
    };
    const std::vector<Case> cases = {
        {"class T_A { };\n\nclass T_B : T_Gone { };", 3, "T_B: superclass T_Gone is not defined"},
        {"class T_A : T_B { };\nclass T_B : T_A { };", 1, "circular"},
        {"class T_A { };\n[Association]\nclass T_L { T_A REF X; T_Gone REF Y; };", 3,
         "reference Y names an undefined class T_Gone"},
        {"class T_A {\n T_A REF Self;\n};", 1, "not an association"},
        {"class T_A {\n uint32 M(T_Gone REF P);\n};", 1, "parameter M.P names an undefined class"},
    };
    for (const Case &c : cases) {
        ClassRepository r;
        r.loadText(c.text, "v.mof");
        const MofError e = validateError(r);
        EXPECT_EQ(e.line(), c.line) << c.text;
        EXPECT_NE(std::string(e.what()).find(c.fragment), std::string::npos) << e.what();
        EXPECT_FALSE(r.isA("T_A", "T_Gone"));  // lookups stay safe on a broken table
        r.allProperties("T_A");
    }

    // A subclass of an association may declare references without repeating the qualifier.
    ClassRepository ok;
    ok.loadText("class T_E { };\n[Association] class T_Assoc { T_E REF A; };\nclass T_Sub : T_Assoc { T_E REF B; };");
    EXPECT_NO_THROW(ok.validate());
}
