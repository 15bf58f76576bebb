// Subscriptions through the server's intrinsic operations in root/interop:
// what is refused and why, the life of a filter, a destination and their
// subscription, who may touch them, and their survival of a restart.
#include "AlertSupport.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <regex>

using namespace servertest;

namespace {

std::regex pattern(const std::string &text) {
    return std::regex(std::regex_replace(text, std::regex(R"(\.\.\.)"), R"([\s\S]*)"));
}

struct Step {
    const char *name;
    std::string body;
    const char *user;    // "admin" (level 5) or "reader" (level 1)
    std::string expect;  // regular expression over the reply; "..." is any text
};

void run(const ServerProcess &server, const std::vector<Step> &steps) {
    for (const Step &s : steps) {
        SCOPED_TRACE(s.name);
        std::string reply = rawExchange(server.port(), interopPost(s.body, s.user));
        EXPECT_TRUE(std::regex_search(reply, pattern(s.expect))) << reply;
    }
}

std::string subscriptionFile(const char *name) {
    return "/tmp/tovra-alert-subscriptions-" + std::to_string(getpid()) + "-" + name;
}

const char *kOk = "<IRETURNVALUE>";
const char *kDeleted = "<IMETHODRESPONSE NAME=\"DeleteInstance\">\n<IRETURNVALUE>\n</IRETURNVALUE>";

}  // namespace

TEST(Subscriptions, RefusalsNameWhatIsWrong) {
    const std::string file = subscriptionFile("refusals");
    ServerProcess server(alertServerArgs(file), {}, Library::testProvider());
    const std::string ok = "SELECT * FROM Test_Signal";
    std::vector<Step> steps = {
        {"a query that does not read", createFilter("f", "SELECT * FROM Test_Signal WHERE Call ="), "admin",
         R"(ERROR CODE="4" DESCRIPTION="Query: expected a property or a literal at the end)"},
        {"LIKE", createFilter("f", "SELECT * FROM Test_Signal WHERE Call LIKE 'a%'"), "admin",
         R"(ERROR CODE="7" DESCRIPTION="Query: LIKE at position 38 is not supported)"},
        {"another language", createFilter("f", ok, "DMTF:CQL"), "admin",
         R"(ERROR CODE="7" DESCRIPTION="QueryLanguage DMTF:CQL is not supported; use WQL")"},
        {"a class no namespace has", createFilter("f", "SELECT * FROM Nothing"), "admin",
         R"(ERROR CODE="4" DESCRIPTION="Query: class Nothing does not exist in any namespace")"},
        {"a class that is no indication", createFilter("f", "SELECT * FROM Test_Defaults"), "admin",
         R"(ERROR CODE="7" DESCRIPTION="Query: Test_Defaults is not an indication class")"},
        {"a property the class lacks", createFilter("f", "SELECT * FROM Test_Signal WHERE Severity = 5"), "admin",
         R"(ERROR CODE="4" DESCRIPTION="Query: class Test_Signal has no property Severity)"},
        {"a literal of another type", createFilter("f", "SELECT * FROM Test_Signal WHERE Flag = 'yes'"), "admin",
         R"(ERROR CODE="4" DESCRIPTION="Query: Flag \(a boolean\) cannot be compared with &apos;yes&apos; \(position 40\))"},
        {"https", createDestination("d", "https://127.0.0.1:5000"), "admin",
         R"(ERROR CODE="7" DESCRIPTION="Destination: scheme https is not supported; use http")"},
        {"an address the server does not allow", createDestination("d", "http://192.0.2.7:5000/"), "admin",
         R"(ERROR CODE="4" DESCRIPTION="Destination: 192.0.2.7 is not a loopback address, nor one the server allows)"},
        {"a bad port", createDestination("d", "127.0.0.1:99999"), "admin",
         R"(ERROR CODE="4" DESCRIPTION="Destination: port 99999 is not a number from 1 to 65535")"},
        {"a subscription to nothing", createSubscription("none", "none"), "admin",
         R"(ERROR CODE="6" DESCRIPTION="Filter root/interop:CIM_IndicationFilter...does not exist")"},
        {"a reader creates", createFilter("f", ok), "reader",
         R"~(ERROR CODE="2" DESCRIPTION="subscriptions need read-write rights \(level 5\)")~"},
        {"a reader enumerates", interopBody("EnumerateInstanceNames", classParam("CIM_IndicationFilter")), "reader",
         R"(ERROR CODE="2")"},
        {"a reader gets", interopBody("GetInstance", instanceParam(filterName("f"))), "reader", R"(ERROR CODE="2")"},
        {"a reader deletes", interopBody("DeleteInstance", instanceParam(filterName("f"))), "reader", R"(ERROR CODE="2")"},
        {"CreateInstance of another class",
         interopBody("CreateInstance", R"(<IPARAMVALUE NAME="NewInstance"><INSTANCE CLASSNAME="Tovra_RegisteredProfile"></INSTANCE></IPARAMVALUE>)"),
         "admin", R"(ERROR CODE="7" DESCRIPTION="CreateInstance is not supported for Tovra_RegisteredProfile")"},
    };
    run(server, steps);
    EXPECT_EQ(access(file.c_str(), F_OK), -1) << "nothing was made, so nothing was kept";
}

TEST(Subscriptions, LifeOfASubscription) {
    const std::string file = subscriptionFile("life");
    unlink(file.c_str());
    ServerProcess server(alertServerArgs(file), {}, Library::testProvider());
    const std::string sub = subscriptionName("calls", "here");
    run(server, {
        {"a filter", createFilter("calls", "SELECT * FROM Test_Signal WHERE Call <> 'thread'"), "admin",
         R"(<INSTANCENAME CLASSNAME="CIM_IndicationFilter">...<KEYVALUE VALUETYPE="string">calls</KEYVALUE>)"},
        {"the same again", createFilter("calls", "SELECT * FROM Test_Signal"), "admin", R"(ERROR CODE="11")"},
        {"a destination without a scheme", createDestination("here", "127.0.0.1:" + std::to_string(deadPort())), "admin",
         R"(<INSTANCENAME CLASSNAME="CIM_ListenerDestinationCIMXML">)"},
        {"the subscription", createSubscription("calls", "here"), "admin",
         R"(<INSTANCENAME CLASSNAME="CIM_IndicationSubscription"><KEYBINDING NAME="Filter"><VALUE.REFERENCE><LOCALINSTANCEPATH>)"},
        {"the same again", createSubscription("calls", "here"), "admin", R"(ERROR CODE="11")"},
        {"the filter, got", interopBody("GetInstance", instanceParam(filterName("calls"))), "admin",
         R"(<PROPERTY NAME="Query" TYPE="string"><VALUE>SELECT \* FROM Test_Signal WHERE Call &lt;&gt; &apos;thread&apos;</VALUE>)"},
        {"the destination as kept", interopBody("GetInstance", instanceParam(destinationName("here"))), "admin",
         R"(<PROPERTY NAME="PersistenceType" TYPE="uint16"><VALUE>2</VALUE>...<PROPERTY NAME="Destination" TYPE="string"><VALUE>127.0.0.1:)"},
        {"the subscription, enabled", interopBody("GetInstance", instanceParam(sub)), "admin",
         R"(<PROPERTY NAME="SubscriptionState" TYPE="uint16"><VALUE>2</VALUE>)"},
        {"destinations through their superclass", interopBody("EnumerateInstanceNames", classParam("CIM_ListenerDestination")),
         "admin", R"(<INSTANCENAME CLASSNAME="CIM_ListenerDestinationCIMXML">)"},
        {"subscriptions", interopBody("EnumerateInstances", classParam("CIM_IndicationSubscription")), "admin",
         R"(<VALUE.NAMEDINSTANCE><INSTANCENAME CLASSNAME="CIM_IndicationSubscription">)"},
        {"what names the filter", interopBody("ReferenceNames", R"(<IPARAMVALUE NAME="ObjectName">)" + filterName("calls") +
                                  R"(</IPARAMVALUE><IPARAMVALUE NAME="ResultClass"><CLASSNAME NAME="CIM_IndicationSubscription"/></IPARAMVALUE>)"),
         "admin", R"(<OBJECTPATH><INSTANCEPATH><NAMESPACEPATH><HOST>...<INSTANCENAME CLASSNAME="CIM_IndicationSubscription"><KEYBINDING NAME="Filter">)"},
        {"what names the destination in the role of a filter", interopBody("References", R"(<IPARAMVALUE NAME="ObjectName">)" +
                                  destinationName("here") + R"(</IPARAMVALUE><IPARAMVALUE NAME="Role"><VALUE>Filter</VALUE></IPARAMVALUE>)"),
         "admin", "<IRETURNVALUE>\n</IRETURNVALUE>"},
        {"a filter in use", interopBody("DeleteInstance", instanceParam(filterName("calls"))), "admin",
         R"~(ERROR CODE="1" DESCRIPTION="the filter is named by 1 subscription\(s\)")~"},
        {"a destination in use", interopBody("DeleteInstance", instanceParam(destinationName("here"))), "admin",
         R"~(ERROR CODE="1" DESCRIPTION="the destination is named by 1 subscription\(s\)")~"},
        {"the subscription goes", interopBody("DeleteInstance", instanceParam(sub)), "admin", kDeleted},
        {"and is gone", interopBody("GetInstance", instanceParam(sub)), "admin", R"(ERROR CODE="6")"},
        {"the filter goes", interopBody("DeleteInstance", instanceParam(filterName("calls"))), "admin", kDeleted},
        {"the destination goes", interopBody("DeleteInstance", instanceParam(destinationName("here"))), "admin", kDeleted},
        {"no destination is left", interopBody("EnumerateInstanceNames", classParam("CIM_ListenerDestination")), "admin",
         "<IRETURNVALUE>\n</IRETURNVALUE>"},
        {"no filter is left", interopBody("EnumerateInstanceNames", classParam("CIM_IndicationFilter")), "admin",
         "<IRETURNVALUE>\n</IRETURNVALUE>"},
    });
    // The host heard of the subscription and of its end.
    const std::string log = server.log();
    EXPECT_EQ(log.find("activating"), std::string::npos) << log;
    unlink(file.c_str());
}

TEST(Subscriptions, KeptAcrossARestart) {
    const std::string file = subscriptionFile("restart");
    unlink(file.c_str());
    ListenerProcess listener({"--json"});
    {
        ServerProcess server(alertServerArgs(file), {}, Library::testProvider());
        run(server, {
            {"a filter", createFilter("kept", "SELECT * FROM Test_Signal WHERE Call = 'enableIndications'"), "admin", kOk},
            {"a destination", createDestination("kept", listener.url()), "admin", kOk},
            {"the subscription", createSubscription("kept", "kept"), "admin", kOk},
        });
        ASSERT_TRUE(eventually([&] { return listener.count(R"("Call":"enableIndications")") == 1; })) << listener.output();
        EXPECT_EQ(server.stop(), 0);
    }
    ServerProcess again(alertServerArgs(file), {}, Library::testProvider());
    run(again, {
        {"the subscription is back", interopBody("EnumerateInstanceNames", classParam("CIM_IndicationSubscription")),
         "admin", R"(<INSTANCENAME CLASSNAME="CIM_IndicationSubscription">)"},
        {"with its filter", interopBody("GetInstance", instanceParam(filterName("kept"))), "admin",
         R"(WHERE Call = &apos;enableIndications&apos;)"},
    });
    // Activated again at start-up: the provider's indications flow once more.
    EXPECT_TRUE(eventually([&] { return listener.count(R"("Call":"enableIndications")") == 2; })) << listener.output();
    EXPECT_NE(again.log().find("3 instance(s) restored"), std::string::npos) << again.log();
    unlink(file.c_str());
}
