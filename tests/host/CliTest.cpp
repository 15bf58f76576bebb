// tovra-cim run as a process against the test provider library.
#include "ClassRepository.h"
#include "Format.h"
#include "Health.h"
#include "HostFixture.h"
#include "TypedArgs.h"

#include <sys/wait.h>

#include <cstdio>
#include <limits>

namespace {

struct CliRun {
    int status;
    std::string out;
};

CliRun cli(const std::string &arguments) {
    std::string command = std::string(TOVRA_CIM) + " --mof " TEST_MOF " --registration " TEST_REGISTRATION
                          " --provider-dir " TEST_PROVIDER_DIR " --principal alice " + arguments + " 2>&1";
    CliRun run{-1, {}};
    FILE *pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return run;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, pipe)) > 0) run.out.append(buf, n);
    int status = pclose(pipe);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

TEST(Cli, ListsClassesAndRunsOperations) {
    CliRun classes = cli("classes");
    EXPECT_EQ(classes.status, 0);
    EXPECT_NE(classes.out.find("Test_Widget test/cimv2 TestWidgetProvider instance,method\n"), std::string::npos)
        << classes.out;

    CliRun get = cli("gi test/cimv2 Test_Gadget Name=g1 Id=7 --properties Owner");
    EXPECT_EQ(get.status, 0) << get.out;
    EXPECT_EQ(get.out, "test/cimv2:Test_Gadget.Name=\"g1\",Id=7\n    Name = g1\n    Id = 7\n    Owner = alpha\n");

    CliRun invoke = cli("--permission alice=5 invoke test/cimv2 Test_Widget Describe Name=alpha --arg Slot=3 "
                     "--arg Label=hi --arg Items=a,b");
    EXPECT_EQ(invoke.status, 0) << invoke.out;
    EXPECT_EQ(invoke.out, "ReturnValue = Slot=3 Label=hi Items=2\nEcho = hi\nStatus = 0 (0x0)\n");
    // A declared string parameter keeps digits as written.
    CliRun digits = cli("--permission alice=5 invoke test/cimv2 Test_Widget Describe Name=alpha --arg Slot=0x1F "
                        "--arg Label=0042 --arg Items=[\\\"1\\\",2]");
    EXPECT_EQ(digits.status, 0) << digits.out;
    EXPECT_EQ(digits.out, "ReturnValue = Slot=31 Label=0042 Items=2\nEcho = 0042\nStatus = 0 (0x0)\n");
}

// Method arguments take the type their text shows; the host then converts
// them to the declared types.
TEST(Cli, MethodArgumentsAreTypedAsWritten) {
    using cimhost::Value;
    struct Case {
        const char *text;
        Value expected;
    };
    const Case cases[] = {
        {"7", Value::u64(7)},
        {"0x1F", Value::u64(31)},
        {"-2", Value::s64(-2)},
        {"[4, 5]", Value::array(CMPI_uint64, {Value::u64(4), Value::u64(5)})},
        {"{}", Value::array(CMPI_uint64, {})},
        {"\"123\"", Value::string("123")},
        {"null", Value::null(CMPI_string)},
        {"Vol 1", Value::string("Vol 1")},
        {"[4,x]", Value::string("[4,x]")},
        {"99999999999999999999", Value::string("99999999999999999999")},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(cimhost::cli::typedArgument(c.text), c.expected);
    }
    EXPECT_THROW(cimhost::cli::typedArguments({"=3"}), std::invalid_argument);
}

// The CLI's text and JSON show a real in the shortest form that reads back to
// the same value of its own width; JSON, which has no NaN or infinity, null.
// A parameter the method declares reads its text as the declared type; the
// explicit forms stay for the parameters it does not declare.
TEST(Cli, DeclaredParametersTakeTheirTypeFromTheMof) {
    using cimhost::Value;
    cimhost::ClassRepository mof;
    mof.loadFile(TEST_MOF);
    const cimhost::MethodDecl *describe = mof.findMethod("Test_Widget", "Describe");
    ASSERT_NE(describe, nullptr);
    const auto strings = [](std::vector<std::string> items) {
        Value::Array out;
        for (std::string &s : items) out.push_back(Value::string(std::move(s)));
        return Value::array(CMPI_string, std::move(out));
    };
    struct Case {
        const char *item;
        Value expected;
    };
    const Case cases[] = {
        {"Label=0000", Value::string("0000")},
        {"label=7", Value::string("7")},  // names compare without regard to case
        {"Label=\"quoted\"", Value::string("quoted")},
        {"Label=[4,5]", Value::string("[4,5]")},
        {"Label=null", Value::null(CMPI_string)},
        {"Slot=0x1F", Value::u8(31)},
        {"Slot=007", Value::u8(7)},
        {"Slot=300", Value::u64(300)},  // not a uint8: as written, for the host to refuse
        {"Slot=abc", Value::string("abc")},
        {"Count=4000000000", Value::u32(4000000000u)},
        {"Verbose=true", Value::boolean(true)},
        {"Items=[a, b]", strings({"a", "b"})},
        {"Items=a,b", strings({"a", "b"})},
        {"Items={\"0001\", \"x,y\"}", strings({"0001", "x,y"})},
        {"Items=[]", strings({})},
        {"Items=null", Value::null(CMPI_stringA)},
        {"Echo=0000", Value::u64(0)},   // an output parameter: typed as written
        {"Other=0000", Value::u64(0)},  // undeclared
        {"Other=\"0000\"", Value::string("0000")},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.item);
        const cimhost::NamedValues args = cimhost::cli::typedArguments({c.item}, describe);
        ASSERT_EQ(args.size(), 1u);
        EXPECT_EQ(args[0].second, c.expected) << args[0].second.toText() << " " << cimhost::typeName(args[0].second.type());
    }
}

TEST(Cli, RealsPrintInTheirShortestForm) {
    using cimhost::Value;
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    struct Case {
        Value value;
        const char *text;
        const char *json;
    };
    const Case cases[] = {
        {Value::real32(3.31f), "3.31", "3.31"},
        {Value::real64(3.31), "3.31", "3.31"},
        {Value::real32(0.0f), "0", "0.0"},
        {Value::real32(-12.5f), "-12.5", "-12.5"},
        {Value::real32(1e-45f), "1e-45", "1e-45"},
        {Value::real32(3.4028235e38f), "3.4028235e+38", "3.4028235e+38"},
        {Value::real64(1.7976931348623157e308), "1.7976931348623157e+308", "1.7976931348623157e+308"},
        {Value::real64(-2.5e-300), "-2.5e-300", "-2.5e-300"},
        {Value::real32(static_cast<float>(nan)), "nan", "null"},
        {Value::real64(-inf), "-inf", "null"},
        {Value::array(CMPI_real32, {Value::real32(0.1f), Value::real32(2.2f)}), "{0.1, 2.2}", "[0.1,2.2]"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(c.value.toText(), c.text);
        EXPECT_EQ(cimhost::cli::toJson(c.value).dump(), c.json);
    }
    // In a reply as the CLI prints it.
    cimhost::Reply reply;
    reply.returnValue = Value::real32(3.31f);
    EXPECT_EQ(cimhost::cli::toText(reply), "ReturnValue = 3.31\n");
}

TEST(Cli, PrintsJsonAndFailsWithTheStatus) {
    CliRun json = cli("ei test/cimv2 Test_Widget --json");
    ASSERT_EQ(json.status, 0) << json.out;
    auto parsed = cimhost::cli::Json::parse(json.out);
    ASSERT_EQ(parsed["instances"].size(), 2u);
    EXPECT_EQ(parsed["instances"][1]["properties"]["Slot"], 2);
    EXPECT_EQ(parsed["instances"][1]["properties"]["Tags"], (cimhost::cli::Json{"red", "beta"}));
    EXPECT_EQ(parsed["instances"][1]["path"]["keys"]["Name"], "beta");

    CliRun missing = cli("gi test/cimv2 Test_Widget Name=nobody");
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.out, "tovra-cim: CMPI_RC_ERR_NOT_FOUND (6)\n");
    CliRun badMof = cli("--mof /nonexistent.mof classes");
    EXPECT_EQ(badMof.status, 2);
}

// The health check's --since: a duration back from now or a UTC time; the
// event log's own time stamps read the same way.
TEST(Cli, SinceTakesDurationsAndUtcTimes) {
    const time_t now = 1700003600;  // 2023-11-14 23:13:20 UTC
    struct Case {
        const char *text;
        time_t expected;  // -1: refused
    };
    const Case cases[] = {
        {"0", now},
        {"90", now - 90},
        {"90s", now - 90},
        {"30m", now - 1800},
        {"24h", now - 86400},
        {"7d", now - 7 * 86400},
        {"2w", now - 14 * 86400},
        {"2023-11-14", 1699920000},
        {"2023-11-14 23:13:20", now},
        {"2023-11-14T23:13:20", now},
        {"1970-01-01 00:00:00", 0},
        {"24x", -1},
        {"h", -1},
        {"-5m", -1},
        {"2023-11-14 23:13", -1},
        {"2023-13-01", -1},
        {"2023-11-14 24:00:00", -1},
        {"2023-11-14 23:13:20Z", -1},
        {"1969-12-31", -1},
        {"", -1},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.text);
        if (c.expected < 0) {
            EXPECT_THROW(cimhost::cli::sinceTime(c.text, now), std::invalid_argument);
        } else {
            EXPECT_EQ(cimhost::cli::sinceTime(c.text, now), c.expected);
        }
    }
}

}  // namespace
