// The subtle rules of the CIM-XML layer, one table each: what the request
// decoder reads, how text is escaped, and what a users file may hold.
#include "CimRequest.h"
#include "Users.h"
#include "XmlWriter.h"

#include <crypt.h>

#include <gtest/gtest.h>

#include <limits>

using namespace cimserver;

namespace {

std::string wrap(const std::string &call) {
    return R"(<?xml version="1.0" encoding="utf-8" ?><CIM CIMVERSION="2.0" DTDVERSION="2.0"><MESSAGE ID="42" PROTOCOLVERSION="1.0"><SIMPLEREQ>)" +
           call + "</SIMPLEREQ></MESSAGE></CIM>";
}
const std::string kNs = R"(<LOCALNAMESPACEPATH><NAMESPACE NAME="tovra"></NAMESPACE><NAMESPACE NAME="cimv2"/></LOCALNAMESPACEPATH>)";

std::string imethod(const std::string &params) { return wrap(R"(<IMETHODCALL NAME="GetInstance">)" + kNs + params + "</IMETHODCALL>"); }

}  // namespace

TEST(CimXmlDecode, ReadsWhatClientsSend) {
    struct Case {
        const char *name;
        std::string body;
        std::function<void(const CimRequest &)> check;
    };
    const std::vector<Case> cases = {
        {"both NAMESPACE forms", imethod(""),
         [](const CimRequest &r) {
             EXPECT_EQ(r.nameSpace, "tovra/cimv2");
             EXPECT_EQ(r.messageId, "42");
             EXPECT_TRUE(r.intrinsic);
         }},
        {"character references and CDATA decode to UTF-8",
         imethod(R"(<IPARAMVALUE NAME="Role"><VALUE>&#252;&lt;<![CDATA[a&b]]></VALUE></IPARAMVALUE>)"),
         [](const CimRequest &r) { EXPECT_EQ(r.param("role")->value.text, "\xC3\xBC<a&b"); }},
        {"whitespace in a VALUE is kept", imethod(R"(<IPARAMVALUE NAME="Role"><VALUE> a	b
</VALUE></IPARAMVALUE>)"),
         [](const CimRequest &r) { EXPECT_EQ(r.param("Role")->value.text, " a\tb\n"); }},
        {"no child is NULL; VALUE.NULL in arrays",
         imethod(R"(<IPARAMVALUE NAME="A"/><IPARAMVALUE NAME="B"><VALUE.ARRAY><VALUE>x</VALUE><VALUE.NULL/></VALUE.ARRAY></IPARAMVALUE>)"),
         [](const CimRequest &r) {
             EXPECT_EQ(r.param("A")->value.kind, RawValue::Kind::Null);
             const RawValue &b = r.param("B")->value;
             ASSERT_EQ(b.items.size(), 2u);
             EXPECT_EQ(*b.items[0], "x");
             EXPECT_FALSE(b.items[1].has_value());
         }},
        {"keys: text, typed, and references with a host",
         imethod(R"(<IPARAMVALUE NAME="InstanceName"><INSTANCENAME CLASSNAME="C"><KEYBINDING NAME="S"><KEYVALUE>v</KEYVALUE></KEYBINDING><KEYBINDING NAME="N"><KEYVALUE VALUETYPE="numeric" TYPE="uint16">7</KEYVALUE></KEYBINDING><KEYBINDING NAME="R"><VALUE.REFERENCE><INSTANCEPATH><NAMESPACEPATH><HOST>h</HOST><LOCALNAMESPACEPATH><NAMESPACE NAME="root"/></LOCALNAMESPACEPATH></NAMESPACEPATH><INSTANCENAME CLASSNAME="D"><KEYBINDING NAME="K"><KEYVALUE VALUETYPE="boolean">TRUE</KEYVALUE></KEYBINDING></INSTANCENAME></INSTANCEPATH></VALUE.REFERENCE></KEYBINDING></INSTANCENAME></IPARAMVALUE>)"),
         [](const CimRequest &r) {
             const cimhost::ObjectPathV &p = r.param("InstanceName")->value.path;
             EXPECT_EQ(p.className, "C");
             EXPECT_EQ(p.key("S")->asString(), "v");
             EXPECT_EQ(p.key("N")->type(), CMPI_uint16);
             EXPECT_EQ(p.key("N")->asUnsigned(), 7u);
             const cimhost::ObjectPathV &ref = p.key("R")->asRef();
             EXPECT_EQ(ref.host, "h");
             EXPECT_EQ(ref.ns, "root");
             EXPECT_EQ(ref.key("K")->asString(), "TRUE");
         }},
        {"method call on an instance with typed and untyped parameters",
         wrap(R"(<METHODCALL NAME="M"><LOCALINSTANCEPATH>)" + kNs +
              R"(<INSTANCENAME CLASSNAME="C"><KEYBINDING NAME="K"><KEYVALUE>1</KEYVALUE></KEYBINDING></INSTANCENAME></LOCALINSTANCEPATH><PARAMVALUE NAME="A" PARAMTYPE="uint32"><VALUE>5</VALUE></PARAMVALUE><PARAMVALUE NAME="B"><VALUE.ARRAY><VALUE>1</VALUE></VALUE.ARRAY></PARAMVALUE></METHODCALL>)"),
         [](const CimRequest &r) {
             EXPECT_FALSE(r.intrinsic);
             EXPECT_FALSE(r.classTarget);
             EXPECT_EQ(r.target.ns, "tovra/cimv2");
             EXPECT_EQ(r.param("A")->paramType, "uint32");
             EXPECT_EQ(r.param("B")->paramType, "");
             EXPECT_EQ(r.param("B")->value.kind, RawValue::Kind::Array);
         }},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        DecodeResult d = decodeRequest(c.body);
        ASSERT_TRUE(std::holds_alternative<CimRequest>(d)) << std::get<RequestError>(d).detail;
        c.check(std::get<CimRequest>(d));
    }
}

TEST(CimXmlDecode, RefusesWhatIsNotARequest) {
    using K = RequestError::Kind;
    struct Case {
        const char *name;
        std::string body;
        K kind;
    };
    const std::vector<Case> cases = {
        {"two roots", imethod("") + "<CIM/>", K::NotWellFormed},
        {"parameter given twice", imethod(R"(<IPARAMVALUE NAME="A"/><IPARAMVALUE NAME="a"/>)"), K::NotValid},
        {"KEYVALUE not of its TYPE", imethod(R"(<IPARAMVALUE NAME="I"><INSTANCENAME CLASSNAME="C"><KEYBINDING NAME="N"><KEYVALUE TYPE="uint8">300</KEYVALUE></KEYBINDING></INSTANCENAME></IPARAMVALUE>)"), K::NotValid},
        {"NAMESPACE without NAME", wrap(R"(<IMETHODCALL NAME="X"><LOCALNAMESPACEPATH><NAMESPACE/></LOCALNAMESPACEPATH></IMETHODCALL>)"), K::NotValid},
        {"element inside VALUE", imethod(R"(<IPARAMVALUE NAME="A"><VALUE><B/></VALUE></IPARAMVALUE>)"), K::NotValid},
        {"METHODCALL without a path", wrap(R"(<METHODCALL NAME="M"><PARAMVALUE NAME="A"/></METHODCALL>)"), K::NotValid},
        {"DTD version 3", std::string(R"(<CIM CIMVERSION="2.0" DTDVERSION="3.1"/>)"), K::UnsupportedDtdVersion},
        {"internal DTD subset", "<!DOCTYPE CIM [<!ELEMENT CIM ANY>]>" + imethod("").substr(39), K::NotValid},
        {"external DTD", "<!DOCTYPE CIM SYSTEM \"http://127.0.0.1:1/cim.dtd\">" + imethod("").substr(39), K::NotValid},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        DecodeResult d = decodeRequest(c.body);
        ASSERT_TRUE(std::holds_alternative<RequestError>(d));
        EXPECT_EQ(static_cast<int>(std::get<RequestError>(d).kind), static_cast<int>(c.kind)) << std::get<RequestError>(d).detail;
    }
}

TEST(CimXmlWrite, EscapesText) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {R"(a<b & c>"d" 'e')", "a&lt;b &amp; c&gt;&quot;d&quot; &apos;e&apos;"},
        {"tab\tand\nline", "tab\tand\nline"},
        {"\xC3\xBC and \xE2\x82\xAC", "\xC3\xBC and \xE2\x82\xAC"},
        {"bell\x07", "bell\xEF\xBF\xBD"},
        {"latin-1 \xFC", "latin-1 \xEF\xBF\xBD"},
        {"cut \xE2\x82", "cut \xEF\xBF\xBD\xEF\xBF\xBD"},
        {"overlong \xC0\xAF", "overlong \xEF\xBF\xBD\xEF\xBF\xBD"},
        {"surrogate \xED\xA0\x80", "surrogate \xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},
    };
    for (const auto &[in, out] : cases) EXPECT_EQ(escaped(in), out) << in;
}

TEST(CimXmlWrite, ValuesAndKeys) {
    using cimhost::Value;
    struct Case {
        Value value;
        const char *xml;
    };
    cimhost::ObjectPathV ref{"tovra/cimv2", "C", "", {{"K", Value::boolean(true)}, {"N", Value::u32(3)}}};
    const std::vector<Case> cases = {
        {Value::boolean(false), "<VALUE>FALSE</VALUE>\n"},
        {Value::s64(-9223372036854775807LL), "<VALUE>-9223372036854775807</VALUE>\n"},
        {Value::u64(18446744073709551615ULL), "<VALUE>18446744073709551615</VALUE>\n"},
        {Value::real32(1.5f), "<VALUE>1.5</VALUE>\n"},
        {Value::char16(0xFC), "<VALUE>\xC3\xBC</VALUE>\n"},
        {Value::null(CMPI_string), ""},
        {Value::array(CMPI_uint16, {Value::u16(1), Value::null(CMPI_uint16)}), "<VALUE.ARRAY><VALUE>1</VALUE>\n<VALUE.NULL/></VALUE.ARRAY>\n"},
        {Value::ref(ref),
         "<VALUE.REFERENCE><LOCALINSTANCEPATH><LOCALNAMESPACEPATH><NAMESPACE NAME=\"tovra\"/>\n<NAMESPACE NAME=\"cimv2\"/>\n</LOCALNAMESPACEPATH>\n"
         "<INSTANCENAME CLASSNAME=\"C\"><KEYBINDING NAME=\"K\"><KEYVALUE VALUETYPE=\"boolean\">TRUE</KEYVALUE>\n</KEYBINDING>\n"
         "<KEYBINDING NAME=\"N\"><KEYVALUE VALUETYPE=\"numeric\">3</KEYVALUE>\n</KEYBINDING>\n</INSTANCENAME>\n</LOCALINSTANCEPATH>\n</VALUE.REFERENCE>\n"},
    };
    for (const Case &c : cases) {
        std::string out;
        XmlWriter(out).value(c.value);
        EXPECT_EQ(out, c.xml) << c.value.toText();
    }
}

// Reals in the shortest text that reads back to the same value of their own
// width; NaN and the infinities, which CIM-XML cannot write, as NULL.
TEST(CimXmlWrite, RealsInTheirShortestForm) {
    using cimhost::Value;
    const float inf = std::numeric_limits<float>::infinity();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    struct Case {
        Value value;
        const char *xml;
    };
    const std::vector<Case> cases = {
        {Value::real32(3.31f), "<VALUE>3.31</VALUE>\n"},
        {Value::real64(3.31), "<VALUE>3.31</VALUE>\n"},
        {Value::real64(static_cast<double>(3.31f)), "<VALUE>3.309999942779541</VALUE>\n"},
        {Value::real32(0.0f), "<VALUE>0</VALUE>\n"},
        {Value::real64(-0.0), "<VALUE>-0</VALUE>\n"},
        {Value::real32(-12.5f), "<VALUE>-12.5</VALUE>\n"},
        {Value::real32(0.1f), "<VALUE>0.1</VALUE>\n"},
        {Value::real64(0.1), "<VALUE>0.1</VALUE>\n"},
        {Value::real32(std::numeric_limits<float>::max()), "<VALUE>3.4028235e+38</VALUE>\n"},
        {Value::real32(std::numeric_limits<float>::denorm_min()), "<VALUE>1e-45</VALUE>\n"},
        {Value::real64(std::numeric_limits<double>::max()), "<VALUE>1.7976931348623157e+308</VALUE>\n"},
        {Value::real64(std::numeric_limits<double>::denorm_min()), "<VALUE>5e-324</VALUE>\n"},
        {Value::real64(6.02214076e23), "<VALUE>6.02214076e+23</VALUE>\n"},
        {Value::real64(-1.5e-10), "<VALUE>-1.5e-10</VALUE>\n"},
        {Value::real64(123456789012.0), "<VALUE>123456789012</VALUE>\n"},
        {Value::real32(nan), ""},
        {Value::real64(-nan), ""},
        {Value::real32(inf), ""},
        {Value::real64(-static_cast<double>(inf)), ""},
        {Value::array(CMPI_real32, {Value::real32(2.2f), Value::real32(inf), Value::real32(-0.75f)}),
         "<VALUE.ARRAY><VALUE>2.2</VALUE>\n<VALUE.NULL/><VALUE>-0.75</VALUE>\n</VALUE.ARRAY>\n"},
    };
    for (const Case &c : cases) {
        std::string out;
        XmlWriter(out).value(c.value);
        EXPECT_EQ(out, c.xml) << c.value.toText();
    }
    // A NaN property is a NULL property of its type; a NaN key has no text.
    std::string out;
    XmlWriter w(out);
    w.property("R", Value::real32(nan), CMPI_null);
    w.instanceName(cimhost::ObjectPathV{"", "C", "", {{"K", Value::real64(nan)}}});
    EXPECT_EQ(out, "<PROPERTY NAME=\"R\" TYPE=\"real32\"></PROPERTY>\n"
                   "<INSTANCENAME CLASSNAME=\"C\"><KEYBINDING NAME=\"K\"><KEYVALUE VALUETYPE=\"numeric\"></KEYVALUE>\n"
                   "</KEYBINDING>\n</INSTANCENAME>\n");
}

TEST(UsersFile, AcceptsStrongHashesOfRealPasswordsOnly) {
    const std::string hash = hashPassword("pw");
    auto cryptOf = [](const char *password, const char *setting) {
        crypt_data data{};
        return std::string(crypt_r(password, setting, &data));
    };
    const std::string sha512 = cryptOf("pw", "$6$saltsaltsalt$");
    const std::string emptyYescrypt = cryptOf("", hash.substr(0, hash.rfind('$') + 1).c_str());
    const std::string emptySha512 = cryptOf("", "$6$saltsaltsalt$");
    struct Case {
        const char *name;
        std::string text;
        bool loads;             // with the default policy
        bool loadsAllowingWeak;
    };
    const std::vector<Case> cases = {
        {"hash and level", "# comment\n\nalice:" + hash + ":5\n", true, true},
        {"SHA-512 hash", "bob:" + sha512 + ":1\n", false, true},
        {"MD5 hash", "bob:" + cryptOf("pw", "$1$saltsalt$") + ":1\n", false, true},
        {"hash of the empty password", "bob:" + emptyYescrypt + ":1\n", false, false},
        {"SHA-512 hash of the empty password", "bob:" + emptySha512 + ":1\n", false, false},
        {"hash that cannot be used", "bob:$6$salt$abcdefghijklmnop:1\n", false, false},
        {"unknown hash kind", "bob:$zz$abc$def:1\n", false, false},
        {"plain-text password", "alice:secret:5\n", false, false},
        {"missing level", "alice:" + hash + "\n", false, false},
        {"level out of range", "alice:" + hash + ":256\n", false, false},
        {"user listed twice", "a:" + hash + ":1\na:" + hash + ":2\n", false, false},
        {"empty name", ":" + hash + ":1\n", false, false},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        for (bool weak : {false, true}) {
            bool expected = weak ? c.loadsAllowingWeak : c.loads;
            if (expected)
                EXPECT_NO_THROW(Users::parse(c.text, "users", UsersPolicy{weak}));
            else
                EXPECT_THROW(Users::parse(c.text, "users", UsersPolicy{weak}), std::runtime_error);
        }
    }
}

TEST(UsersFile, VerifiesPasswords) {
    const std::string hash = hashPassword("pw");
    Users users = Users::parse("alice:" + hash + ":5\nbob:" + hashPassword("other") + ":1\n", "users");
    struct Case {
        const char *name;
        const char *user;
        std::string password;
        bool ok;
    };
    const std::vector<Case> cases = {
        {"right password", "alice", "pw", true},
        {"right password again, remembered", "alice", "pw", true},
        {"wrong case", "alice", "PW", false},
        {"another user's password", "bob", "pw", false},
        {"unknown user", "carol", "pw", false},
        {"a NUL after the password", "alice", std::string("pw\0tail", 7), false},
        {"empty password", "alice", "", false},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(users.verify(c.user, c.password), c.ok);
    }
    EXPECT_EQ(users.all().front().level, 5u);
    // An unknown user is checked against a hash of the same kind and cost as
    // a known one: yescrypt with the same parameters.
    auto setting = [](const std::string &h) { return h.substr(0, h.find('$', 3) + 1); };
    EXPECT_EQ(setting(users.hashFor("carol")), setting(hash));
    EXPECT_EQ(setting(hash).substr(0, 3), "$y$");
}
