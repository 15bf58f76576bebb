// Who owns what: request objects released when the request ends, clones
// until released, early release, double release, releases of objects the
// broker owns, and handles that are no objects at all.
#include "HostFixture.h"

#include <thread>

using namespace hosttest;
using cimhost::Host;

namespace {

class Ownership : public ::testing::Test {
protected:
    Host host{testOptions()};
    cimhost::rt::Stats before = Host::objectStats();
};

TEST_F(Ownership, RequestObjectsAreReleasedWhenTheRequestEnds) {
    CMPIString *kept = nullptr;
    inRequest(host, [&](const CMPIBroker *mb, const CMPIContext *) {
        kept = CMNewString(mb, "kept", nullptr);
        CMPIObjectPath *op = CMNewObjectPath(mb, kNs, "Test_Widget", nullptr);
        CMNewInstance(mb, op, nullptr);
        CMGetClassName(op, nullptr);  // getter results belong to the request too
        EXPECT_EQ(Host::liveRequestObjects(), before.liveRequestObjects + 4);
    });
    EXPECT_EQ(Host::liveRequestObjects(), before.liveRequestObjects);

    // A provider that kept a request object past its request finds it poisoned.
    CMPIStatus rc{};
    EXPECT_EQ(CMGetCharsPtr(kept, &rc), nullptr);
    EXPECT_EQ(rc.rc, CMPI_RC_ERR_INVALID_HANDLE);
    EXPECT_STRNE(CMGetCharPtr(kept), "kept");
    EXPECT_EQ(Host::objectStats().useAfterRelease, before.useAfterRelease + 1);
}

TEST_F(Ownership, ClonesLiveUntilReleasedOnce) {
    CMPIArray *cached = nullptr;
    inRequest(host, [&](const CMPIBroker *mb, const CMPIContext *) {
        CMPIArray *arr = CMNewArray(mb, 1, CMPI_uint32, nullptr);
        CMPIUint32 v = 42;
        CMSetArrayElementAt(arr, 0, &v, CMPI_uint32);
        cached = CMClone(arr, nullptr);
    });
    EXPECT_EQ(Host::liveClones(), before.liveClones + 1);
    inRequest(host, [&](const CMPIBroker *, const CMPIContext *) {
        EXPECT_EQ(CMGetArrayElementAt(cached, 0, nullptr).value.uint32, 42u);
        EXPECT_EQ(CMRelease(cached).rc, CMPI_RC_OK);
    });
    EXPECT_EQ(Host::liveClones(), before.liveClones);
    EXPECT_EQ(CMRelease(cached).rc, CMPI_RC_ERR_INVALID_HANDLE);
    EXPECT_EQ(Host::objectStats().doubleRelease, before.doubleRelease + 1);
}

TEST_F(Ownership, EarlyReleaseFreesAtOnceAndTheRequestForgetsIt) {
    inRequest(host, [&](const CMPIBroker *mb, const CMPIContext *) {
        CMPIArgs *args = CMNewArgs(mb, nullptr);
        EXPECT_EQ(Host::liveRequestObjects(), before.liveRequestObjects + 1);
        EXPECT_EQ(CMRelease(args).rc, CMPI_RC_OK);
        EXPECT_EQ(Host::liveRequestObjects(), before.liveRequestObjects);
        EXPECT_EQ(CMRelease(args).rc, CMPI_RC_ERR_INVALID_HANDLE);
        CMPIStatus rc{};
        CMGetArgCount(args, &rc);
        EXPECT_EQ(rc.rc, CMPI_RC_ERR_INVALID_HANDLE);
    });
    auto after = Host::objectStats();
    EXPECT_EQ(after.doubleRelease, before.doubleRelease + 1);
    EXPECT_EQ(after.useAfterRelease, before.useAfterRelease + 1);
}

TEST_F(Ownership, ReleasingBrokerOwnedObjectsIsRefusedAndCounted) {
    inRequest(host, [&](const CMPIBroker *mb, const CMPIContext *ctx) {
        EXPECT_EQ(CMRelease(const_cast<CMPIContext *>(ctx)).rc, CMPI_RC_ERR_FAILED);
        EXPECT_EQ(text(CMGetContextEntry(ctx, CMPIPrincipal, nullptr)), "alice");  // still usable
        CMPIObjectPath *op = CMNewObjectPath(mb, kNs, "Test_Widget", nullptr);
        EXPECT_EQ(CMRelease(CMGetClassName(op, nullptr)).rc, CMPI_RC_ERR_FAILED);
    });
    EXPECT_EQ(Host::objectStats().invalidRelease, before.invalidRelease + 2);

    // The same from inside a provider: ctx, rslt, op, in args, a key string,
    // and one string of its own twice. The provider still answers.
    auto r = host.invokeMethod(host.path(kNs, "Test_Widget", {{"Name", cimhost::Value::string("alpha")}}),
                               "Misbehave");
    ASSERT_TRUE(r.ok()) << r.message;
    EXPECT_EQ(r.returnValue, cimhost::Value::string("survived"));
    auto after = Host::objectStats();
    EXPECT_EQ(after.invalidRelease, before.invalidRelease + 2 + 5);
    EXPECT_EQ(after.doubleRelease, before.doubleRelease + 1);
    EXPECT_EQ(Host::liveRequestObjects(), before.liveRequestObjects);
}

TEST_F(Ownership, NullAndForeignHandlesAreRefusedWithoutACrash) {
    inRequest(host, [](const CMPIBroker *mb, const CMPIContext *) {
        CMPIString *real = CMNewString(mb, "real", nullptr);
        CMPIString fake = *real;  // what a provider must never do
        CMPIStatus rc{};
        EXPECT_EQ(CMGetCharsPtr(&fake, &rc), nullptr);
        EXPECT_EQ(rc.rc, CMPI_RC_ERR_INVALID_HANDLE);
        // NULL, and addresses inside a live handle rather than at its start.
        for (const size_t offset : {size_t{0}, size_t{8}, size_t{16}, sizeof(CMPIString) + 1}) {
            void *inside = offset == 0 ? nullptr : reinterpret_cast<char *>(real) + offset;
            EXPECT_EQ(real->ft->getCharPtr(static_cast<CMPIString *>(inside), &rc), nullptr) << offset;
            EXPECT_EQ(rc.rc, CMPI_RC_ERR_INVALID_HANDLE) << offset;
        }
        EXPECT_STREQ(CMGetCharsPtr(real, nullptr), "real");
        CMPIInstance *inst = CMNewInstance(mb, CMNewObjectPath(mb, kNs, "Test_Widget", nullptr), nullptr);
        EXPECT_EQ(CMSetProperty(inst, "Caption", &real, CMPI_string).rc, CMPI_RC_OK);
        CMPIString *fakePtr = &fake;
        EXPECT_EQ(CMSetProperty(inst, "Caption", &fakePtr, CMPI_string).rc, CMPI_RC_ERR_INVALID_HANDLE);
        EXPECT_EQ(CMSetProperty(inst, "Caption", &real, static_cast<CMPIType>(0x7777)).rc,
                  CMPI_RC_ERR_INVALID_DATA_TYPE);
        EXPECT_EQ(CMNewInstance(mb, nullptr, &rc), nullptr);
        EXPECT_EQ(rc.rc, CMPI_RC_ERR_INVALID_HANDLE);
        EXPECT_EQ(CBEnumInstanceNames(mb, nullptr, CMNewObjectPath(mb, kNs, "Test_Widget", nullptr), &rc), nullptr);
        EXPECT_EQ(rc.rc, CMPI_RC_ERR_INVALID_HANDLE);
    });
}

TEST_F(Ownership, CountsStayFlatAcrossManyRequests) {
    for (int i = 0; i < 500; ++i) {
        ASSERT_TRUE(host.getInstance(host.path(kNs, "Test_Widget", {{"Name", cimhost::Value::string("beta")}})).ok());
        ASSERT_TRUE(host.associators(host.path(kNs, "Test_Widget", {{"Name", cimhost::Value::string("alpha")}})).ok());
    }
    EXPECT_EQ(Host::liveRequestObjects(), before.liveRequestObjects);
    EXPECT_EQ(Host::liveClones(), before.liveClones);
    EXPECT_EQ(Host::objectStats().useAfterRelease, before.useAfterRelease);
}

TEST_F(Ownership, AttachedThreadsOwnTheirObjectsUntilDetached) {
    inRequest(host, [&](const CMPIBroker *mb, const CMPIContext *ctx) {
        CMPIContext *threadCtx = CBPrepareAttachThread(mb, ctx);
        ASSERT_NE(threadCtx, nullptr);
        size_t duringThread = 0;
        std::thread worker([&] {
            EXPECT_EQ(CBAttachThread(mb, threadCtx).rc, CMPI_RC_OK);
            EXPECT_EQ(text(CMGetContextEntry(threadCtx, CMPIPrincipal, nullptr)), "alice");
            CMNewString(mb, "worker", nullptr);
            duringThread = Host::liveRequestObjects();
            EXPECT_EQ(CBDetachThread(mb, threadCtx).rc, CMPI_RC_OK);
        });
        worker.join();
        EXPECT_EQ(duringThread, Host::liveRequestObjects() + 2);  // the string and the principal's
    });
    EXPECT_EQ(Host::liveClones(), before.liveClones);
}

}  // namespace
