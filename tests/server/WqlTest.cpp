// The filter language: which queries are taken and how each refusal reads,
// which indications a condition selects, and the checks against a class.
#include "Wql.h"

#include <gtest/gtest.h>

using namespace cimserver;
using cimhost::InstanceV;
using cimhost::Value;

namespace {

wql::Query parsed(const std::string &text) {
    auto q = wql::Query::parse(text);
    if (auto *e = std::get_if<wql::QueryError>(&q)) ADD_FAILURE() << text << ": " << e->message;
    return std::holds_alternative<wql::Query>(q) ? std::get<wql::Query>(q) : wql::Query{};
}

// An alert of a failed disk, with an embedded instance as a state change carries.
InstanceV alert() {
    InstanceV disk{{"tovra/cimv2", "Tovra_DiskDrive", {}, {}}, {{"DeviceID", Value::string("Disk 3")}}};
    InstanceV a{{"tovra/cimv2", "Tovra_AlertIndication", {}, {}}, {}};
    a.properties = {{"PerceivedSeverity", Value::u16(6)},
                    {"AlertType", Value::u16(5)},
                    {"ProbableCause", Value::u16(86)},
                    {"Message", Value::string("Disk 3 failed")},
                    {"OtherSeverity", Value::null(CMPI_string)},
                    {"Trending", Value::s32(-2)},
                    {"Acknowledged", Value::boolean(false)},
                    {"IndicationTime", Value::dateTime(*cimhost::DateTimeV::fromCim("20261124093551.000000+000"))},
                    {"SourceInstance", Value::instance(disk)}};
    return a;
}

bool isA(std::string_view cls, std::string_view ancestor) {
    return cimhost::iequals(cls, ancestor) || (cimhost::iequals(cls, "Tovra_DiskDrive") && cimhost::iequals(ancestor, "CIM_DiskDrive"));
}

}  // namespace

TEST(Wql, AcceptedQueriesSelectByTheirCondition) {
    struct Case {
        const char *query;
        bool selected;  // for the disk alert above
    };
    const std::vector<Case> cases = {
        {"SELECT * FROM Tovra_AlertIndication", true},
        {"select * from CIM_AlertIndication where PerceivedSeverity >= 5", true},
        {"SELECT * FROM CIM_AlertIndication WHERE AlertType = 5 AND ProbableCause = 86", true},
        {"SELECT * FROM CIM_AlertIndication WHERE AlertType = 5 AND ProbableCause = 87", false},
        {"SELECT * FROM CIM_AlertIndication WHERE AlertType = 4 OR ProbableCause = 86", true},
        {"SELECT * FROM X WHERE PerceivedSeverity<>6", false},
        {"SELECT * FROM X WHERE PerceivedSeverity != 5", true},
        {"SELECT * FROM X WHERE PerceivedSeverity < 6 OR PerceivedSeverity > 6", false},
        {"SELECT * FROM X WHERE PerceivedSeverity <= 6 AND 6 >= PerceivedSeverity", true},
        {"SELECT * FROM X WHERE 5 < PerceivedSeverity", true},
        {"SELECT * FROM X WHERE PerceivedSeverity = 0x6", true},
        {"SELECT * FROM X WHERE PerceivedSeverity = 6.0", true},
        {"SELECT * FROM X WHERE Trending = -2", true},
        {"SELECT * FROM X WHERE Message = 'Disk 3 failed'", true},
        {"SELECT * FROM X WHERE Message = \"Disk 3 failed\"", true},
        {"SELECT * FROM X WHERE Message = 'disk 3 failed'", false},
        {"SELECT * FROM X WHERE Message > 'Disk 2'", true},
        {"SELECT * FROM X WHERE Message = 'it''s'", false},
        {"SELECT * FROM X WHERE Acknowledged = FALSE", true},
        {"SELECT * FROM X WHERE Acknowledged <> true", true},
        {"SELECT * FROM X WHERE IndicationTime > '20260101000000.000000+000'", true},
        {"SELECT * FROM X WHERE IndicationTime < '20261124103551.000000+060'", false},
        {"SELECT * FROM X WHERE OtherSeverity IS NULL", true},
        {"SELECT * FROM X WHERE Missing IS NULL AND Message IS NOT NULL", true},
        // Three-valued logic: a comparison with NULL is unknown, and so is its negation.
        {"SELECT * FROM X WHERE OtherSeverity = 'x'", false},
        {"SELECT * FROM X WHERE NOT OtherSeverity = 'x'", false},
        {"SELECT * FROM X WHERE NOT OtherSeverity = 'x' OR AlertType = 5", true},
        {"SELECT * FROM X WHERE NOT (AlertType = 4)", true},
        {"SELECT * FROM X WHERE ((AlertType = 5) AND (NOT ProbableCause = 1 OR PerceivedSeverity = 0))", true},
        {"SELECT * FROM X WHERE SourceInstance ISA CIM_DiskDrive", true},
        {"SELECT * FROM X WHERE SourceInstance ISA CIM_StorageVolume", false},
        {"SELECT * FROM X WHERE SourceInstance.DeviceID = 'Disk 3'", true},
        {"SELECT * FROM X WHERE Message.Inner = 'x'", false},
        // Values of a type the literal does not fit compare as unknown.
        {"SELECT * FROM X WHERE Message = 5", false},
        {"SELECT PerceivedSeverity, Message FROM X", true},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.query);
        EXPECT_EQ(parsed(c.query).matches(alert(), isA), c.selected);
    }
}

TEST(Wql, RefusedQueriesNameWhatIsWrong) {
    struct Case {
        std::string query;
        CMPIrc rc;
        const char *message;  // a part of the message
    };
    const std::vector<Case> cases = {
        {"", CMPI_RC_ERR_INVALID_PARAMETER, "starts with SELECT (nothing)"},
        {"DELETE FROM X", CMPI_RC_ERR_INVALID_PARAMETER, "starts with SELECT ('DELETE')"},
        {"SELECT FROM X", CMPI_RC_ERR_INVALID_PARAMETER, "a property name or * after SELECT at position 8"},
        {"SELECT * X", CMPI_RC_ERR_INVALID_PARAMETER, "expected FROM at position 10"},
        {"SELECT * FROM", CMPI_RC_ERR_INVALID_PARAMETER, "class name after FROM at the end"},
        {"SELECT * FROM WHERE", CMPI_RC_ERR_INVALID_PARAMETER, "class name after FROM at position 15"},
        {"SELECT * FROM X WHERE", CMPI_RC_ERR_INVALID_PARAMETER, "property or a literal at the end"},
        {"SELECT * FROM X WHERE A", CMPI_RC_ERR_INVALID_PARAMETER, "comparison operator at the end"},
        {"SELECT * FROM X WHERE A = ", CMPI_RC_ERR_INVALID_PARAMETER, "property or a literal at the end"},
        {"SELECT * FROM X WHERE A = 'open", CMPI_RC_ERR_INVALID_PARAMETER, "string starting at position 27 is not closed"},
        {"SELECT * FROM X WHERE A == 1", CMPI_RC_ERR_INVALID_PARAMETER, "'==' at position 25"},
        {"SELECT * FROM X WHERE A ! 1", CMPI_RC_ERR_INVALID_PARAMETER, "'!' at position 25"},
        {"SELECT * FROM X WHERE A = 1 B = 2", CMPI_RC_ERR_INVALID_PARAMETER, "unexpected 'B' at position 29"},
        {"SELECT * FROM X WHERE (A = 1", CMPI_RC_ERR_INVALID_PARAMETER, "expected ')' at the end"},
        {"SELECT * FROM X WHERE A = 1)", CMPI_RC_ERR_INVALID_PARAMETER, "unexpected ')' at position 28"},
        {"SELECT * FROM X WHERE A = NULL", CMPI_RC_ERR_INVALID_PARAMETER, "use IS NULL"},
        {"SELECT * FROM X WHERE A IS 5", CMPI_RC_ERR_INVALID_PARAMETER, "expected NULL after IS"},
        {"SELECT * FROM X WHERE 5 IS NULL", CMPI_RC_ERR_INVALID_PARAMETER, "needs a property on its left"},
        {"SELECT * FROM X WHERE A ISA", CMPI_RC_ERR_INVALID_PARAMETER, "class name after ISA"},
        {"SELECT * FROM X WHERE A = 1x", CMPI_RC_ERR_INVALID_PARAMETER, "'1x' at position 27 is not a number"},
        {"SELECT * FROM X WHERE A = 1 ; DROP", CMPI_RC_ERR_INVALID_PARAMETER, "unexpected ';' at position 29"},
        {"SELECT * FROM X WHERE A = '\x01' AND \x7f", CMPI_RC_ERR_INVALID_PARAMETER, "unexpected byte 127"},
        {"SELECT * FROM X WHERE " + std::string(40, '(') + "A = 1" + std::string(40, ')'),
         CMPI_RC_ERR_INVALID_PARAMETER, "nested more than 32 deep"},
        {"SELECT * FROM X WHERE " + std::string(5000, 'A'), CMPI_RC_ERR_INVALID_PARAMETER, "longer than 4096 bytes"},
        {"SELECT * FROM X WHERE A LIKE 'D%'", CMPI_RC_ERR_NOT_SUPPORTED, "LIKE at position 25 is not supported"},
        {"SELECT * FROM X, Y", CMPI_RC_ERR_NOT_SUPPORTED, "several classes"},
        {"SELECT * FROM X JOIN Y", CMPI_RC_ERR_NOT_SUPPORTED, "JOIN at position 17"},
        {"SELECT * FROM X ORDER BY A", CMPI_RC_ERR_NOT_SUPPORTED, "ORDER at position 17"},
        {"SELECT * FROM X WHERE X::A = 1", CMPI_RC_ERR_NOT_SUPPORTED, "is CQL, not WQL"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.query.substr(0, 80));
        auto q = wql::Query::parse(c.query);
        ASSERT_TRUE(std::holds_alternative<wql::QueryError>(q));
        const auto &e = std::get<wql::QueryError>(q);
        EXPECT_EQ(e.rc, c.rc);
        EXPECT_NE(e.message.find(c.message), std::string::npos) << e.message;
    }
}

TEST(Wql, ChecksAgainstTheClass) {
    auto declared = [](std::string_view p) -> std::optional<CMPIType> {
        static const std::vector<std::pair<const char *, CMPIType>> props = {
            {"PerceivedSeverity", CMPI_uint16}, {"Message", CMPI_string},   {"IndicationTime", CMPI_dateTime},
            {"Acknowledged", CMPI_boolean},     {"SourceInstance", CMPI_string}, {"MessageArguments", CMPI_stringA},
            {"Count", CMPI_real64}};
        for (const auto &[name, type] : props)
            if (cimhost::iequals(name, p)) return type;
        return std::nullopt;
    };
    struct Case {
        const char *query;
        CMPIrc rc;            // CMPI_RC_OK: the query fits the class
        const char *message;  // a part of the message
    };
    const std::vector<Case> cases = {
        {"SELECT * FROM C WHERE PerceivedSeverity >= 5 AND Message <> 'x' AND Count < 1.5", CMPI_RC_OK, ""},
        {"SELECT * FROM C WHERE IndicationTime > '20260101000000.000000+000' AND Acknowledged = TRUE", CMPI_RC_OK, ""},
        {"SELECT * FROM C WHERE SourceInstance ISA CIM_DiskDrive AND SourceInstance.Anything = 3", CMPI_RC_OK, ""},
        {"SELECT Message FROM C WHERE PerceivedSeverity = Count", CMPI_RC_OK, ""},
        {"SELECT Nothing FROM C", CMPI_RC_ERR_INVALID_PARAMETER, "no property Nothing (in the SELECT list)"},
        {"SELECT * FROM C WHERE Severity = 5", CMPI_RC_ERR_INVALID_PARAMETER, "class C has no property Severity (position 23)"},
        {"SELECT * FROM C WHERE Nothing IS NULL", CMPI_RC_ERR_INVALID_PARAMETER, "no property Nothing"},
        {"SELECT * FROM C WHERE PerceivedSeverity = 'high'", CMPI_RC_ERR_INVALID_PARAMETER,
         "PerceivedSeverity (a uint16) cannot be compared with 'high' (position 43)"},
        {"SELECT * FROM C WHERE Message = 5", CMPI_RC_ERR_INVALID_PARAMETER, "Message (a string) cannot be compared with 5"},
        {"SELECT * FROM C WHERE Acknowledged = 1", CMPI_RC_ERR_INVALID_PARAMETER, "Acknowledged (a boolean)"},
        {"SELECT * FROM C WHERE IndicationTime > 'yesterday'", CMPI_RC_ERR_INVALID_PARAMETER, "IndicationTime (a datetime)"},
        {"SELECT * FROM C WHERE PerceivedSeverity ISA CIM_X", CMPI_RC_ERR_INVALID_PARAMETER, "PerceivedSeverity is a uint16"},
        {"SELECT * FROM C WHERE PerceivedSeverity.X = 1", CMPI_RC_ERR_INVALID_PARAMETER, "not an embedded instance"},
        {"SELECT * FROM C WHERE MessageArguments = 'x'", CMPI_RC_ERR_NOT_SUPPORTED, "arrays cannot be compared"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.query);
        auto error = parsed(c.query).check(declared);
        if (c.rc == CMPI_RC_OK) {
            EXPECT_FALSE(error) << error->message;
            continue;
        }
        ASSERT_TRUE(error);
        EXPECT_EQ(error->rc, c.rc);
        EXPECT_NE(error->message.find(c.message), std::string::npos) << error->message;
    }
}

TEST(Wql, ASelectListNarrowsTheIndication) {
    InstanceV narrowed = parsed("SELECT message, PerceivedSeverity FROM X").project(alert());
    ASSERT_EQ(narrowed.properties.size(), 2u);
    EXPECT_EQ(narrowed.properties[0].first, "PerceivedSeverity");
    EXPECT_EQ(narrowed.properties[1].first, "Message");
    EXPECT_EQ(narrowed.path.className, "Tovra_AlertIndication");
}
