// The caller privilege check against a context and an authorization service
// of the test's making: the principal as a CMPI string or as chars, the
// permission level in any integer type, read by its low byte.
#include "Privilege.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

// A context holding only "CMPIPrincipal", and a broker offering only what the
// check uses: object paths, argument lists, and a method call that records
// the user it is asked about and answers a fixed level.
class FakeCimom {
public:
    FakeCimom(CMPIData principal, CMPIData level) : principal_(principal), level_(level) {
        ctxFt_.getEntry = &getEntry;
        pathFt_.addKey = &addKey;
        argsFt_.addArg = &addArg;
        eft_.newObjectPath = &newObjectPath;
        eft_.newArgs = &newArgs;
        bft_.invokeMethod = &invokeMethod;
    }
    FakeCimom(const FakeCimom &) = delete;
    FakeCimom &operator=(const FakeCimom &) = delete;

    CMPIStatus check() { return tovra::ValidatePrivilege(&ctx_, &broker_); }
    int calls() const { return calls_; }
    const std::string &user() const { return user_; }

private:
    static FakeCimom &of(const void *hdl) { return *static_cast<FakeCimom *>(const_cast<void *>(hdl)); }
    static void ok(CMPIStatus *rc) {
        if (rc != nullptr) *rc = CMPIStatus{CMPI_RC_OK, nullptr};
    }

    static CMPIData getEntry(const CMPIContext *ctx, const char *name, CMPIStatus *rc) {
        ok(rc);
        if (std::strcmp(name, CMPIPrincipal) == 0) return of(ctx->hdl).principal_;
        CMPIData none{};
        none.type = CMPI_null;
        none.state = CMPI_nullValue | CMPI_notFound;
        return none;
    }
    static CMPIStatus addKey(CMPIObjectPath *, const char *, const CMPIValue *, const CMPIType) {
        return CMPIStatus{CMPI_RC_OK, nullptr};
    }
    static CMPIStatus addArg(const CMPIArgs *as, const char *name, const CMPIValue *value, const CMPIType type) {
        if (std::strcmp(name, "User") == 0 && type == CMPI_chars && value != nullptr)
            of(as->hdl).user_ = reinterpret_cast<const char *>(value);
        return CMPIStatus{CMPI_RC_OK, nullptr};
    }
    static CMPIObjectPath *newObjectPath(const CMPIBroker *mb, const char *, const char *, CMPIStatus *rc) {
        ok(rc);
        return &of(mb->hdl).path_;
    }
    static CMPIArgs *newArgs(const CMPIBroker *mb, CMPIStatus *rc) {
        ok(rc);
        return &of(mb->hdl).args_;
    }
    static CMPIData invokeMethod(const CMPIBroker *mb, const CMPIContext *, const CMPIObjectPath *,
                                 const char *method, const CMPIArgs *, CMPIArgs *, CMPIStatus *rc) {
        ok(rc);
        FakeCimom &self = of(mb->hdl);
        if (std::strcmp(method, "CheckPermissions") == 0) ++self.calls_;
        return self.level_;
    }

    CMPIData principal_;
    CMPIData level_;
    int calls_ = 0;
    std::string user_;
    CMPIContextFT ctxFt_{};
    CMPIContext ctx_{this, &ctxFt_};
    CMPIObjectPathFT pathFt_{};
    CMPIObjectPath path_{this, &pathFt_};
    CMPIArgsFT argsFt_{};
    CMPIArgs args_{this, &argsFt_};
    CMPIBrokerFT bft_{};
    CMPIBrokerEncFT eft_{};
    CMPIBroker broker_{this, &bft_, &eft_, nullptr, nullptr};
};

// A CMPIString whose characters are `text` (NULL allowed).
class FakeString {
public:
    explicit FakeString(const char *text) : text_(text) { ft_.getCharPtr = &chars; }
    FakeString(const FakeString &) = delete;
    FakeString &operator=(const FakeString &) = delete;
    CMPIString *get() { return &string_; }

private:
    static const char *chars(const CMPIString *s, CMPIStatus *) {
        return static_cast<const FakeString *>(s->hdl)->text_;
    }
    const char *text_;
    CMPIStringFT ft_{};
    CMPIString string_{this, &ft_};
};

// Data whose value union is first filled with 0xAA, so that a reader of more
// than the member written sees garbage.
CMPIData data(CMPIType type, CMPIValueState state = CMPI_goodValue) {
    CMPIData d{};
    std::memset(&d.value, 0xAA, sizeof d.value);
    d.type = type;
    d.state = state;
    return d;
}

CMPIData integer(CMPIType type, long long v) {
    CMPIData d = data(type);
    switch (type) {
        case CMPI_uint8: d.value.uint8 = static_cast<CMPIUint8>(v); break;
        case CMPI_uint16: d.value.uint16 = static_cast<CMPIUint16>(v); break;
        case CMPI_uint32: d.value.uint32 = static_cast<CMPIUint32>(v); break;
        case CMPI_uint64: d.value.uint64 = static_cast<CMPIUint64>(v); break;
        case CMPI_sint8: d.value.sint8 = static_cast<CMPISint8>(v); break;
        case CMPI_sint16: d.value.sint16 = static_cast<CMPISint16>(v); break;
        case CMPI_sint32: d.value.sint32 = static_cast<CMPISint32>(v); break;
        case CMPI_sint64: d.value.sint64 = static_cast<CMPISint64>(v); break;
        default: ADD_FAILURE() << "not an integer type"; break;
    }
    return d;
}

CMPIData chars(const char *text) {
    CMPIData d = data(CMPI_chars);
    d.value.chars = const_cast<char *>(text);
    return d;
}

CMPIData string(FakeString &s) {
    CMPIData d = data(CMPI_string);
    d.value.string = s.get();
    return d;
}

TEST(Privilege, ThePrincipalIsAnyStringAndTheLevelItsLowByte) {
    FakeString root("root"), empty(""), nullText(nullptr);
    CMPIData real = data(CMPI_real32);
    real.value.real32 = 5.0f;
    CMPIData level5String = data(CMPI_string);
    FakeString five("5");
    level5String.value.string = five.get();
    struct Case {
        const char *name;
        CMPIData principal;
        CMPIData level;
        CMPIrc expected;
        int calls;  // how often the authorization service was asked
    };
    const CMPIData u8five = integer(CMPI_uint8, 5);
    const std::vector<Case> cases = {
        // The principal: a CMPI string or chars with text; nothing else.
        {"string principal", string(root), u8five, CMPI_RC_OK, 1},
        {"chars principal", chars("root"), u8five, CMPI_RC_OK, 1},
        {"empty string", string(empty), u8five, CMPI_RC_ERR_ACCESS_DENIED, 0},
        {"empty chars", chars(""), u8five, CMPI_RC_ERR_ACCESS_DENIED, 0},
        {"string with NULL text", string(nullText), u8five, CMPI_RC_ERR_ACCESS_DENIED, 0},
        {"chars pointer NULL", chars(nullptr), u8five, CMPI_RC_ERR_ACCESS_DENIED, 0},
        {"NULL entry", data(CMPI_string, CMPI_nullValue), u8five, CMPI_RC_ERR_ACCESS_DENIED, 0},
        {"no entry", data(CMPI_null, CMPI_nullValue | CMPI_notFound), u8five, CMPI_RC_ERR_ACCESS_DENIED, 0},
        {"not a string", integer(CMPI_uint32, 5), u8five, CMPI_RC_ERR_ACCESS_DENIED, 0},
        // The level: 5 in its low byte, in any integer type.
        {"uint16 5", string(root), integer(CMPI_uint16, 5), CMPI_RC_OK, 1},
        {"uint32 5", string(root), integer(CMPI_uint32, 5), CMPI_RC_OK, 1},
        {"uint64 5", string(root), integer(CMPI_uint64, 5), CMPI_RC_OK, 1},
        {"sint8 5", string(root), integer(CMPI_sint8, 5), CMPI_RC_OK, 1},
        {"sint16 5", string(root), integer(CMPI_sint16, 5), CMPI_RC_OK, 1},
        {"sint32 5", string(root), integer(CMPI_sint32, 5), CMPI_RC_OK, 1},
        {"sint64 5", string(root), integer(CMPI_sint64, 5), CMPI_RC_OK, 1},
        {"uint16 0x0105, low byte 5", string(root), integer(CMPI_uint16, 0x0105), CMPI_RC_OK, 1},
        {"uint64 0x500000005, low byte 5", string(root), integer(CMPI_uint64, 0x500000005), CMPI_RC_OK, 1},
        {"sint32 -251, low byte 5", string(root), integer(CMPI_sint32, -251), CMPI_RC_OK, 1},
        {"uint16 0x0500, low byte 0", string(root), integer(CMPI_uint16, 0x0500), CMPI_RC_ERR_ACCESS_DENIED, 1},
        {"uint8 4", string(root), integer(CMPI_uint8, 4), CMPI_RC_ERR_ACCESS_DENIED, 1},
        {"sint64 6", string(root), integer(CMPI_sint64, 6), CMPI_RC_ERR_ACCESS_DENIED, 1},
        {"real32 5.0", string(root), real, CMPI_RC_ERR_ACCESS_DENIED, 1},
        {"string \"5\"", string(root), level5String, CMPI_RC_ERR_ACCESS_DENIED, 1},
        {"NULL uint8", string(root), data(CMPI_uint8, CMPI_nullValue), CMPI_RC_ERR_ACCESS_DENIED, 1},
        {"uint8 array", string(root), data(CMPI_uint8A), CMPI_RC_ERR_ACCESS_DENIED, 1},
        {"no value (failed call)", string(root), data(CMPI_null, CMPI_nullValue), CMPI_RC_ERR_ACCESS_DENIED, 1},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        FakeCimom cimom(c.principal, c.level);
        const CMPIStatus st = cimom.check();
        EXPECT_EQ(st.rc, c.expected);
        EXPECT_EQ(st.msg, nullptr);
        EXPECT_EQ(cimom.calls(), c.calls);
        EXPECT_EQ(cimom.user(), c.calls > 0 ? "root" : "");
    }
}

}  // namespace
