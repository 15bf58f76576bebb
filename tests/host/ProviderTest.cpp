// The test provider library loaded through the registration, as a stock
// CIMOM loads one: routing, typed arguments, up-calls serialised per provider process, the
// authorization service, providers that fail to initialize, and several
// client operations at once.
#include "HostFixture.h"

#include <algorithm>
#include <atomic>
#include <thread>

using namespace hosttest;
using cimhost::Host;
using cimhost::ObjectPathV;
using cimhost::Reply;
using cimhost::Value;

namespace {

class Providers : public ::testing::Test {
protected:
    Host host{testOptions()};

    ObjectPathV widget(const std::string &name) { return host.path(kNs, "Test_Widget", {{"Name", Value::string(name)}}); }
    ObjectPathV gadget(const std::string &name, const std::string &id) {
        return host.path(kNs, "Test_Gadget", {{"Name", Value::string(name)}, {"Id", Value::string(id)}});
    }
    static std::vector<std::string> names(const Reply &r) {
        std::vector<std::string> out;
        for (const auto &p : r.paths) out.push_back(p.key("Name") ? p.key("Name")->asString() : p.className);
        for (const auto &i : r.instances) out.push_back(i.property("Name") ? i.property("Name")->asString() : "?");
        std::sort(out.begin(), out.end());
        return out;
    }
};

TEST_F(Providers, EnumeratesAndGetsThroughTheRegistry) {
    Reply paths = host.enumerateInstanceNames(kNs, "Test_Widget");
    ASSERT_TRUE(paths.ok()) << paths.message;
    EXPECT_EQ(names(paths), (std::vector<std::string>{"alpha", "beta"}));
    EXPECT_EQ(paths.paths[0].toString(), "test/cimv2:Test_Widget.Name=\"alpha\"");

    Reply all = host.enumerateInstances(kNs, "Test_Widget");
    ASSERT_EQ(all.instances.size(), 2u);
    const cimhost::InstanceV &alpha = all.instances[0];
    EXPECT_EQ(*alpha.property("Slot"), Value::u8(1));
    EXPECT_EQ(*alpha.property("Enabled"), Value::boolean(true));
    EXPECT_EQ(*alpha.property("Tags"), Value::array(CMPI_string, {Value::string("red"), Value::string("alpha")}));
    EXPECT_EQ(*alpha.property("Codes"), Value::array(CMPI_uint16, {Value::u16(10), Value::u16(11)}));
    EXPECT_EQ(alpha.path, widget("alpha"));

    // A superclass request reaches the providers of its nearest registered subclasses.
    Reply elements = host.enumerateInstanceNames(kNs, "Test_Element");
    ASSERT_TRUE(elements.ok()) << elements.message;
    EXPECT_EQ(names(elements), (std::vector<std::string>{"alpha", "beta", "g1", "g2", "g3"}));

    Reply one = host.getInstance(widget("beta"));
    ASSERT_TRUE(one.ok()) << one.message;
    ASSERT_EQ(one.instances.size(), 1u);
    EXPECT_EQ(*one.instances[0].property("Size"), Value::u32(200));
    EXPECT_EQ(host.getInstance(widget("gamma")).rc, CMPI_RC_ERR_NOT_FOUND);
}

TEST_F(Providers, ClientKeysAndPropertyListsFollowTheMof) {
    Reply g = host.getInstance(gadget("g2", "8"));  // the key arrives as text, typed uint32 by the MOF
    ASSERT_TRUE(g.ok()) << g.message;
    ASSERT_EQ(g.instances.size(), 1u);
    EXPECT_EQ(*g.instances[0].path.key("Id"), Value::u32(8));
    EXPECT_EQ(host.getInstance(gadget("g2", "eight")).rc, CMPI_RC_ERR_INVALID_PARAMETER);

    // Returned types the MOF does not declare are accepted and logged once.
    host.enumerateInstances(kNs, "Test_Gadget");
    auto log = host.brokerLog();
    EXPECT_EQ(std::count(log.begin(), log.end(), "Test_Gadget.Weight is declared uint16 but was returned as uint32"), 1);

    cimhost::PropertyList only{"size"};
    Reply some = host.enumerateInstances(kNs, "Test_Widget", &only);
    ASSERT_EQ(some.instances.size(), 2u);
    for (const auto &inst : some.instances) {
        ASSERT_EQ(inst.properties.size(), 2u);
        EXPECT_EQ(inst.properties[0].first, "Name");  // the key stays
        EXPECT_EQ(inst.properties[1].first, "Size");
    }
}

TEST_F(Providers, AnswersUnknownAndUnservedRequestsWithStandardStatuses) {
    EXPECT_EQ(host.enumerateInstanceNames(kNs, "Test_Nothing").rc, CMPI_RC_ERR_INVALID_CLASS);
    EXPECT_EQ(host.enumerateInstanceNames(kNs, "Test_Orphan").rc, CMPI_RC_ERR_NOT_SUPPORTED);
    EXPECT_EQ(host.enumerateInstanceNames("no/such", "Test_Widget").rc, CMPI_RC_ERR_INVALID_NAMESPACE);
    EXPECT_EQ(host.invokeMethod(widget("alpha"), "Explode").rc, CMPI_RC_ERR_METHOD_NOT_FOUND);
    EXPECT_EQ(host.associatorNames(widget("alpha"), {"Test_Nothing", "", "", ""}).rc, CMPI_RC_ERR_INVALID_PARAMETER);
}

TEST_F(Providers, ProvidersThatFailToInitializeFailEveryOperation) {
    // Test_Broken lists "method" but its library exports no method factory.
    for (const Reply &r : {host.enumerateInstanceNames(kNs, "Test_Broken"),
                           host.getInstance(host.path(kNs, "Test_Broken", {{"Name", Value::string("x")}})),
                           host.invokeMethod(host.path(kNs, "Test_Broken", {{"Name", Value::string("x")}}), "Ping")}) {
        EXPECT_EQ(r.rc, CMPI_RC_ERR_FAILED);
        EXPECT_EQ(r.message, "Error initializing provider");
    }
    // Test_Failing's factory hands back a table with a failed status.
    EXPECT_EQ(host.enumerateInstances(kNs, "Test_Failing").rc, CMPI_RC_ERR_FAILED);
    auto log = host.brokerLog();
    EXPECT_TRUE(std::any_of(log.begin(), log.end(), [](const std::string &l) {
        return l.find("exports no TestBrokenProvider_Create_MethodMI") != std::string::npos;
    }));
}

TEST_F(Providers, AssociationsReachTheOtherEndsThroughTheBroker) {
    Reply held = host.associatorNames(widget("alpha"));
    ASSERT_TRUE(held.ok()) << held.message;
    EXPECT_EQ(names(held), (std::vector<std::string>{"g1", "g2"}));
    EXPECT_EQ(*held.paths[0].key("Id"), Value::u32(7));

    // From a gadget: two get-instance up-calls, the second to the widget provider.
    Reply holder = host.associators(gadget("g3", "9"));
    ASSERT_TRUE(holder.ok()) << holder.message;
    EXPECT_EQ(names(holder), (std::vector<std::string>{"beta"}));

    EXPECT_EQ(host.associatorNames(widget("alpha"), {"", "Test_Element", "Holder", ""}).paths.size(), 2u);
    EXPECT_TRUE(host.associatorNames(widget("alpha"), {"", "", "Held", ""}).paths.empty());
    EXPECT_TRUE(host.associatorNames(widget("alpha"), {"", "Test_Widget", "", ""}).paths.empty());

    Reply refs = host.references(widget("beta"), "Test_WidgetGadget", "Holder");
    ASSERT_EQ(refs.instances.size(), 1u);
    EXPECT_EQ(refs.instances[0].property("Held")->asRef(), gadget("g3", "9"));
    EXPECT_EQ(refs.instances[0].path.key("Holder")->asRef(), widget("beta"));
    EXPECT_EQ(host.referenceNames(widget("alpha")).paths.size(), 2u);

    Reply pairs = host.enumerateInstanceNames(kNs, "Test_WidgetGadget");
    ASSERT_TRUE(pairs.ok()) << pairs.message;
    EXPECT_EQ(pairs.paths.size(), 3u);
    Reply pair = host.getInstance(pairs.paths[2]);
    ASSERT_EQ(pair.instances.size(), 1u);
    EXPECT_EQ(pair.instances[0].path, pairs.paths[2]);
}

// Up-calls are serialised per provider process, as a stock CIMOM does: one
// made while serving an up-call of the same process would wait forever
// there, so it fails at once, naming both calls, and so does the request.
TEST(UpcallLocks, ANestedUpcallFailsFastNamingBothCalls) {
    using Layout = cimhost::HostOptions::ProcessLayout;
    struct Case {
        Layout layout;
        const char *method;
        CMPIrc rc;
        const char *message;
    };
    const std::string nested =
        "nested up-call would deadlock a stock CIMOM: InvokeMethod VMware_UserAuthorizationService.CheckPermissions "
        "made by TestWidgetProvider InvokeMethod Test_Widget waits for the up-call lock of provider process ";
    const std::string holder = ", held by InvokeMethod Test_Widget.CheckAccess made by TestWidgetProvider InvokeMethod Test_Widget";
    const Case cases[] = {
        {Layout::ByLibrary, "Nest", CMPI_RC_ERR_FAILED, "libcimhost_testprovider.so"},
        {Layout::PerProvider, "Nest", CMPI_RC_ERR_FAILED, "TestWidgetProvider"},
        // One up-call from a client's request is served.
        {Layout::ByLibrary, "CheckAccess", CMPI_RC_OK, ""},
        {Layout::PerProvider, "CheckAccess", CMPI_RC_OK, ""},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.method) + (c.layout == Layout::ByLibrary ? " by library" : " per provider"));
        cimhost::HostOptions options = testOptions();
        options.layout = c.layout;
        cimhost::Host host(options);
        host.setPermission("alice", 5);
        const Reply r = host.invokeMethod(host.path(kNs, "Test_Widget", {{"Name", Value::string("alpha")}}), c.method);
        EXPECT_EQ(r.rc, c.rc);
        if (c.rc == CMPI_RC_OK) {
            EXPECT_EQ(r.returnValue, Value::u8(5));
        } else {
            EXPECT_EQ(r.message, nested + c.message + holder);
            const auto log = host.brokerLog();
            EXPECT_NE(std::find(log.begin(), log.end(), r.message), log.end()) << "the refusal is logged";
        }
    }
}

TEST_F(Providers, MethodArgumentsTakeTheDeclaredTypes) {
    Reply r = host.invokeMethod(widget("alpha"), "describe",
                                {{"Slot", Value::u32(3)},
                                 {"label", Value::string("x")},
                                 {"Count", Value::string("7")},
                                 {"Verbose", Value::boolean(true)},
                                 {"Items", Value::string("a,b,c")}});
    ASSERT_TRUE(r.ok()) << r.message;
    EXPECT_EQ(r.returnValue, Value::string("Slot=3 Label=x Count=7 Verbose=true Items=3"));
    ASSERT_EQ(r.outArgs.size(), 1u);
    EXPECT_EQ(r.outArgs[0], (std::pair<std::string, Value>{"Echo", Value::string("x")}));

    EXPECT_EQ(host.invokeMethod(widget("alpha"), "Describe", {{"Slot", Value::u32(300)}}).rc,
              CMPI_RC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(host.invokeMethod(widget("alpha"), "Describe", {{"Bogus", Value::u8(1)}}).rc,
              CMPI_RC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(host.invokeMethod(widget("alpha"), "Describe", {{"Echo", Value::string("out only")}}).rc,
              CMPI_RC_ERR_INVALID_PARAMETER);
}

TEST_F(Providers, AuthorizationServiceAnswersTheConfiguredLevel) {
    auto check = [&] { return host.invokeMethod(widget("alpha"), "CheckAccess"); };
    EXPECT_EQ(check().returnValue, Value::u8(0));  // unknown users get 0
    host.setPermission("alice", 5);
    EXPECT_EQ(check().returnValue, Value::u8(5));
    host.setPrincipal("bob");
    EXPECT_EQ(check().returnValue, Value::u8(0));
    host.setPrincipal("", cimhost::HostOptions::PrincipalEntry::NullText);
    EXPECT_EQ(check().rc, CMPI_RC_ERR_ACCESS_DENIED);

    // The service is a class like any other.
    ObjectPathV service = host.path("root/cimv2", "VMware_UserAuthorizationService",
                                    {{"Name", Value::string("VMware:UserAuthorizationService")}});
    EXPECT_EQ(host.enumerateInstanceNames("root/cimv2", "VMware_UserAuthorizationService").paths,
              std::vector<ObjectPathV>{service});
    EXPECT_EQ(host.invokeMethod(service, "CheckPermissions", {{"User", Value::string("alice")}}).returnValue,
              Value::u8(5));
    ObjectPathV wrong = host.path("root/cimv2", "VMware_UserAuthorizationService", {{"Name", Value::string("x")}});
    EXPECT_EQ(host.invokeMethod(wrong, "CheckPermissions", {{"User", Value::string("alice")}}).rc,
              CMPI_RC_ERR_NOT_FOUND);
}

TEST_F(Providers, ProvidersAreHandedTheRequestContext) {
    EXPECT_EQ(host.invokeMethod(widget("alpha"), "Context").returnValue,
              Value::string("CMPIPrincipal=alice;CMPIInvocationFlags=0;CMPIInitNameSpace=test/cimv2;"));
    host.setPrincipal("", cimhost::HostOptions::PrincipalEntry::Absent);
    EXPECT_EQ(host.invokeMethod(widget("alpha"), "Context").returnValue,
              Value::string("CMPIInvocationFlags=0;CMPIInitNameSpace=test/cimv2;"));
}

TEST_F(Providers, SeveralClientOperationsRunAtOnce) {
    host.setPermission("alice", 5);
    const size_t baseline = Host::liveRequestObjects();
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 50; ++i) {
                bool ok = true;
                switch ((t + i) % 4) {
                    case 0: ok = host.enumerateInstances(kNs, "Test_Element").instances.size() == 5; break;
                    case 1: ok = host.getInstance(widget("beta")).instances.size() == 1; break;
                    case 2: ok = host.associatorNames(gadget("g1", "7")).paths.size() == 1; break;
                    case 3: ok = host.invokeMethod(widget("alpha"), "CheckAccess").returnValue == Value::u8(5); break;
                }
                if (!ok) ++failures;
            }
        });
    }
    for (auto &t : threads) t.join();
    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(Host::liveRequestObjects(), baseline);
}

TEST(ProviderLoading, BadRegistrationsAreRefusedAtStart) {
    auto options = testOptions();
    options.mofPaths.clear();  // Test_Widget is then unknown
    EXPECT_THROW(Host{options}, std::runtime_error);
    options = testOptions();
    options.providerDirs = {"/nonexistent"};
    Host host(options);  // libraries load lazily, so the failure shows per request
    EXPECT_EQ(host.enumerateInstanceNames(kNs, "Test_Widget").message, "Error initializing provider");
}

}  // namespace
