// The same headers seen from C++: the plain structs must stay trivially
// copyable (returned in registers) and the macros must call the right slots.
#include <cmpimacs.h>
#include <gtest/gtest.h>

#include <cstring>
#include <type_traits>

extern "C" int abi_pin_c_compiled(void);

static_assert(std::is_trivially_copyable_v<CMPIStatus>);
static_assert(std::is_trivially_copyable_v<CMPIData>);
static_assert(std::is_standard_layout_v<CMPIData>);
static_assert(sizeof(CMPIData) == 24 && sizeof(CMPIStatus) == 16);

namespace {

CMPIStatus releaseString(CMPIString *) { return {CMPI_RC_OK, nullptr}; }
CMPIString *cloneString(const CMPIString *, CMPIStatus *rc) {
    if (rc) *rc = {CMPI_RC_ERR_NOT_SUPPORTED, nullptr};
    return nullptr;
}
const char *charPtr(const CMPIString *s, CMPIStatus *) { return static_cast<const char *>(s->hdl); }

CMPIStatus setStatusIfNull(CMPIStatus *st) {
    CMSetStatus(st, CMPI_RC_ERR_FAILED);
    CMReturn(CMPI_RC_OK);
}

}  // namespace

TEST(Abi, CAndCxxAgree) { EXPECT_EQ(abi_pin_c_compiled(), 1); }

TEST(Abi, StringMacrosReadTheHandleAndTheSlot) {
    CMPIStringFT ft{CMPICurrentVersion, releaseString, cloneString, charPtr};
    char text[] = "abc";
    CMPIString s{text, &ft};
    EXPECT_STREQ(CMGetCharPtr(&s), "abc");
    EXPECT_STREQ(CMGetCharsPtr(&s, nullptr), "abc");
    EXPECT_FALSE(CMIsNullObject(&s));
    CMPIString empty{nullptr, &ft};
    EXPECT_TRUE(CMIsNullObject(&empty));
    CMPIStatus rc{CMPI_RC_OK, nullptr};
    EXPECT_EQ(CMClone(&s, &rc), nullptr);
    EXPECT_EQ(rc.rc, CMPI_RC_ERR_NOT_SUPPORTED);
}

TEST(Abi, StatusMacrosAreNullSafe) {
    EXPECT_EQ(setStatusIfNull(nullptr).rc, CMPI_RC_OK);
    CMPIStatus st{CMPI_RC_OK, nullptr};
    setStatusIfNull(&st);
    EXPECT_EQ(st.rc, CMPI_RC_ERR_FAILED);
}

TEST(Abi, ValueStateMacros) {
    CMPIData d{};
    d.type = CMPI_uint8A;
    d.state = CMPI_keyValue | CMPI_nullValue;
    EXPECT_TRUE(CMIsArray(d));
    EXPECT_TRUE(CMIsKeyValue(d));
    EXPECT_TRUE(CMIsNullValue(d));
}
