// The broker's encapsulated objects as a provider sees them: strict statuses,
// string conventions, copies, keys, property filters, class tests, and the
// 1.0-level broker switch.
#include "HostFixture.h"
#include "Objects.h"

using namespace hosttest;

namespace {

class ObjectModel : public ::testing::Test {
protected:
    cimhost::Host host{testOptions()};
};

TEST_F(ObjectModel, StringsAreTheirCharactersAndReadBackAsCmpiString) {
    inRequest(host, [](const CMPIBroker *mb, const CMPIContext *) {
        CMPIStatus rc{};
        CMPIString *s = CMNewString(mb, "alpha", &rc);
        ASSERT_EQ(rc.rc, CMPI_RC_OK);
        EXPECT_STREQ(CMGetCharPtr(s), "alpha");  // hdl is the text itself
        EXPECT_EQ(CMGetCharsPtr(s, nullptr), CMGetCharPtr(s));
        EXPECT_EQ(CMNewString(mb, nullptr, &rc), nullptr);
        EXPECT_EQ(rc.rc, CMPI_RC_ERR_INVALID_PARAMETER);

        // Stored as chars, as a string object, or as a key: always read back as CMPI_string.
        CMPIObjectPath *op = CMNewObjectPath(mb, kNs, "Test_Widget", nullptr);
        CMAddKey(op, "Name", "alpha", CMPI_chars);
        CMPIInstance *inst = CMNewInstance(mb, op, nullptr);
        CMSetProperty(inst, "Caption", "chars", CMPI_chars);
        CMSetProperty(inst, "Other", &s, CMPI_string);
        EXPECT_EQ(text(CMGetProperty(inst, "Caption", nullptr)), "chars");
        EXPECT_EQ(text(CMGetProperty(inst, "Other", nullptr)), "alpha");
        CMPIData key = CMGetKey(op, "Name", nullptr);
        EXPECT_EQ(text(key), "alpha");
        EXPECT_TRUE(key.state & CMPI_keyValue);

        // A NULL chars pointer is a typed NULL.
        CMSetProperty(inst, "Caption", static_cast<const char *>(nullptr), CMPI_chars);
        CMPIData none = CMGetProperty(inst, "Caption", &rc);
        EXPECT_EQ(rc.rc, CMPI_RC_OK);
        EXPECT_EQ(none.type, CMPI_string);
        EXPECT_TRUE(none.state & CMPI_nullValue);
    });
}

TEST_F(ObjectModel, ArraysCheckIndexAndElementType) {
    inRequest(host, [](const CMPIBroker *mb, const CMPIContext *) {
        CMPIStatus rc{};
        CMPIArray *arr = CMNewArray(mb, 2, CMPI_uint16, &rc);
        ASSERT_EQ(rc.rc, CMPI_RC_OK);
        EXPECT_EQ(CMGetArrayCount(arr, nullptr), 2u);
        EXPECT_EQ(CMGetArrayType(arr, nullptr), CMPI_uint16);
        EXPECT_TRUE(CMGetArrayElementAt(arr, 1, nullptr).state & CMPI_nullValue);  // starts NULL

        CMPIUint16 v16 = 7;
        CMPIUint32 v32 = 7;
        EXPECT_EQ(CMSetArrayElementAt(arr, 1, &v16, CMPI_uint16).rc, CMPI_RC_OK);
        EXPECT_EQ(CMSetArrayElementAt(arr, 2, &v16, CMPI_uint16).rc, CMPI_RC_ERR_NO_SUCH_PROPERTY);
        EXPECT_EQ(CMSetArrayElementAt(arr, 0, &v32, CMPI_uint32).rc, CMPI_RC_ERR_TYPE_MISMATCH);
        EXPECT_EQ(CMSetArrayElementAt(arr, 0, nullptr, CMPI_null).rc, CMPI_RC_ERR_INVALID_PARAMETER);
        EXPECT_EQ(CMSetArrayElementAt(arr, 1, &v16, CMPI_null).rc, CMPI_RC_OK);  // NULLed with a dummy pointer
        EXPECT_TRUE(CMGetArrayElementAt(arr, 1, nullptr).state & CMPI_nullValue);

        CMPIData past = CMGetArrayElementAt(arr, 2, &rc);
        EXPECT_EQ(rc.rc, CMPI_RC_ERR_NO_SUCH_PROPERTY);
        EXPECT_TRUE(past.state & CMPI_nullValue);

        // A chars array keeps chars; it refuses string elements and a string array refuses chars.
        CMPIArray *chars = CMNewArray(mb, 1, CMPI_chars, nullptr);
        CMPIArray *strings = CMNewArray(mb, 1, CMPI_string, nullptr);
        CMPIString *s = CMNewString(mb, "x", nullptr);
        EXPECT_EQ(CMSetArrayElementAt(chars, 0, "red", CMPI_chars).rc, CMPI_RC_OK);
        EXPECT_EQ(CMSetArrayElementAt(chars, 0, &s, CMPI_string).rc, CMPI_RC_ERR_TYPE_MISMATCH);
        EXPECT_EQ(CMSetArrayElementAt(strings, 0, "red", CMPI_chars).rc, CMPI_RC_ERR_TYPE_MISMATCH);
        CMPIData red = CMGetArrayElementAt(chars, 0, nullptr);
        ASSERT_EQ(red.type, CMPI_chars);
        EXPECT_STREQ(red.value.chars, "red");
        EXPECT_EQ(CMNewArray(mb, 1, CMPI_args, &rc), nullptr);
        EXPECT_EQ(rc.rc, CMPI_RC_ERR_INVALID_DATA_TYPE);
    });
}

TEST_F(ObjectModel, CharsArraysBecomeStringArraysWhenSwitchedOn) {
    auto options = testOptions();
    options.charsArraysAsStrings = true;
    cimhost::Host stringArrays(options);
    inRequest(stringArrays, [](const CMPIBroker *mb, const CMPIContext *) {
        CMPIArray *arr = CMNewArray(mb, 1, CMPI_chars, nullptr);
        CMSetArrayElementAt(arr, 0, "red", CMPI_chars);
        EXPECT_EQ(CMGetArrayType(arr, nullptr), CMPI_string);
        EXPECT_EQ(text(CMGetArrayElementAt(arr, 0, nullptr)), "red");
    });
}

TEST_F(ObjectModel, ArgsAndContextAnswerUnknownNamesStrictly) {
    inRequest(host, [](const CMPIBroker *mb, const CMPIContext *ctx) {
        CMPIStatus rc{};
        CMPIArgs *args = CMNewArgs(mb, nullptr);
        char buffer[] = "first";
        CMAddArg(args, "Label", buffer, CMPI_chars);
        buffer[0] = 'X';  // the broker copied it
        EXPECT_EQ(text(CMGetArg(args, "label", nullptr)), "first");
        CMPIData missing = CMGetArg(args, "Nope", &rc);
        EXPECT_EQ(rc.rc, CMPI_RC_ERR_NO_SUCH_PROPERTY);
        EXPECT_EQ(missing.state & (CMPI_nullValue | CMPI_notFound), CMPI_nullValue | CMPI_notFound);
        CMPIString *name = nullptr;
        CMGetArgAt(args, 0, &name, &rc);
        EXPECT_EQ(text(name), "Label");
        CMGetArgAt(args, 1, &name, &rc);
        EXPECT_EQ(rc.rc, CMPI_RC_ERR_NO_SUCH_PROPERTY);

        EXPECT_EQ(text(CMGetContextEntry(ctx, CMPIPrincipal, nullptr)), "alice");
        CMGetContextEntry(ctx, "CMPIRole", &rc);
        EXPECT_EQ(rc.rc, CMPI_RC_ERR_NO_SUCH_PROPERTY);
        EXPECT_EQ(CMAddContextEntry(ctx, "Mine", nullptr, CMPI_uint32).rc, CMPI_RC_ERR_INVALID_PARAMETER);
        CMPIUint32 flags = 3;
        EXPECT_EQ(CMAddContextEntry(ctx, "Mine", &flags, CMPI_uint32).rc, CMPI_RC_OK);
        EXPECT_EQ(CMGetContextEntry(ctx, "Mine", nullptr).value.uint32, 3u);
        EXPECT_EQ(ctx->ft->clone(ctx, &rc), nullptr);
        EXPECT_EQ(rc.rc, CMPI_RC_ERR_NOT_SUPPORTED);
    });
}

TEST_F(ObjectModel, PrincipalCanBePresentWithNullCharactersOrAbsent) {
    host.setPrincipal("", cimhost::HostOptions::PrincipalEntry::NullText);
    inRequest(host, [](const CMPIBroker *, const CMPIContext *ctx) {
        CMPIStatus rc{};
        CMPIData p = CMGetContextEntry(ctx, CMPIPrincipal, &rc);
        EXPECT_EQ(rc.rc, CMPI_RC_OK);
        ASSERT_EQ(p.type, CMPI_string);
        ASSERT_NE(p.value.string, nullptr);
        EXPECT_EQ(CMGetCharsPtr(p.value.string, nullptr), nullptr);
    });
    host.setPrincipal("", cimhost::HostOptions::PrincipalEntry::Absent);
    inRequest(host, [](const CMPIBroker *, const CMPIContext *ctx) {
        CMPIStatus rc{};
        CMGetContextEntry(ctx, CMPIPrincipal, &rc);
        EXPECT_EQ(rc.rc, CMPI_RC_ERR_NO_SUCH_PROPERTY);
    });
}

TEST_F(ObjectModel, InstancesBuildTheirPathFromKeyProperties) {
    inRequest(host, [](const CMPIBroker *mb, const CMPIContext *) {
        CMPIStatus rc{};
        CMPIObjectPath *op = CMNewObjectPath(mb, kNs, "Test_Gadget", nullptr);
        CMAddKey(op, "Name", "g1", CMPI_chars);
        CMPIUint32 id = 7;
        CMAddKey(op, "Id", &id, CMPI_uint32);
        CMPIInstance *inst = CMNewInstance(mb, op, nullptr);
        EXPECT_EQ(text(CMGetProperty(inst, "Name", nullptr)), "g1");  // keys start as properties
        EXPECT_EQ(CMSetProperty(inst, "Undeclared", "ok", CMPI_chars).rc, CMPI_RC_OK);
        CMSetProperty(inst, "Name", "g2", CMPI_chars);
        EXPECT_EQ(CMGetPropertyCount(inst, nullptr), 3u);
        CMGetProperty(inst, "Owner", &rc);
        EXPECT_EQ(rc.rc, CMPI_RC_ERR_NO_SUCH_PROPERTY);
        CMGetPropertyAt(inst, 3, nullptr, &rc);
        EXPECT_EQ(rc.rc, CMPI_RC_ERR_NO_SUCH_PROPERTY);

        CMPIObjectPath *path = CMGetObjectPath(inst, nullptr);
        EXPECT_EQ(text(CMGetKey(path, "Name", nullptr)), "g2");
        EXPECT_EQ(CMGetKeyCount(path, nullptr), 2u);
        CMPIData key = CMGetKey(path, "Id", nullptr);
        EXPECT_EQ(key.type, CMPI_uint32);  // integer keys keep the type they were added with
        EXPECT_EQ(key.value.uint32, 7u);
        EXPECT_EQ(text(CMObjectPathToString(path, nullptr)), "test/cimv2:Test_Gadget.Name=\"g2\",Id=7");
        CMGetKey(path, "Owner", &rc);
        EXPECT_EQ(rc.rc, CMPI_RC_ERR_NO_SUCH_PROPERTY);

        CMPIObjectPath *other = CMNewObjectPath(mb, "", "Test_Gadget", nullptr);
        CMSetNameSpaceFromObjectPath(other, path);
        EXPECT_EQ(text(CMGetNameSpace(other, nullptr)), kNs);
        CMGetClassQualifier(other, "Description", &rc);
        EXPECT_EQ(rc.rc, CMPI_RC_ERR_NOT_SUPPORTED);
    });
}

TEST_F(ObjectModel, IntegerKeysWidenWhenSwitchedOn) {
    auto options = testOptions();
    options.widenIntegerKeys = true;
    cimhost::Host widening(options);
    inRequest(widening, [](const CMPIBroker *mb, const CMPIContext *) {
        CMPIObjectPath *op = CMNewObjectPath(mb, kNs, "Test_Gadget", nullptr);
        CMPIUint8 small = 200;
        CMAddKey(op, "Id", &small, CMPI_uint8);
        CMPIData key = CMGetKey(op, "Id", nullptr);
        EXPECT_EQ(key.type, CMPI_sint64);
        EXPECT_EQ(key.value.sint64, 200);
    });
}

// An instance made from a class path starts with the class's MOF defaults
// (inherited ones, overridden ones as the subclass says) under the path's keys.
TEST_F(ObjectModel, InstancesStartWithTheClassDefaults) {
    using cimhost::Value;
    struct Row {
        const char *cls;
        const char *property;
        Value expected;  // an untyped NULL: the property is not there
    };
    const auto when = cimhost::DateTimeV::fromCim("20240131123456.789012+060");
    ASSERT_TRUE(when);
    const Value codes = Value::array(CMPI_uint8, {Value::u8(1), Value::u8(2), Value::u8(3)});
    const std::vector<Row> rows = {
        {"Test_Defaults", "State", Value::u16(5)},
        {"Test_Defaults", "Flag", Value::boolean(true)},
        {"Test_Defaults", "Label", Value::string("none")},
        {"Test_Defaults", "Offset", Value::s32(-7)},
        {"Test_Defaults", "Ratio", Value::real32(3.31f)},
        {"Test_Defaults", "Letter", Value::char16('Q')},
        {"Test_Defaults", "Since", Value::dateTime(*when)},
        {"Test_Defaults", "Codes", codes},
        {"Test_Defaults", "Notes", Value()},
        {"Test_Defaults", "Caption", Value()},
        {"Test_Defaults", "Name", Value::string("k")},  // the key, not a default
        {"Test_DefaultsDerived", "State", Value::u16(9)},
        {"Test_DefaultsDerived", "Label", Value()},  // "= NULL" drops the inherited default
        {"Test_DefaultsDerived", "Codes", codes},     // an override without "= value" keeps it
        {"Test_DefaultsDerived", "Notes", Value::string("derived")},
        {"Test_DefaultsDerived", "Flag", Value::boolean(true)},
        {"Test_Widget", "Size", Value()},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(std::string(row.cls) + "." + row.property);
        std::optional<cimhost::InstanceV> made;
        inRequest(host, [&](const CMPIBroker *mb, const CMPIContext *) {
            CMPIObjectPath *op = CMNewObjectPath(mb, kNs, row.cls, nullptr);
            CMAddKey(op, "Name", "k", CMPI_chars);
            CMPIInstance *inst = CMNewInstance(mb, op, nullptr);
            ASSERT_NE(inst, nullptr);
            made = cimhost::rt::Runtime::resolve<cimhost::rt::InstanceObj>(inst, nullptr)->snapshot();
        });
        ASSERT_TRUE(made);
        const Value *v = made->property(row.property);
        if (row.expected.type() == CMPI_null) {
            EXPECT_EQ(v, nullptr) << v->toText();
            continue;
        }
        ASSERT_NE(v, nullptr);
        EXPECT_EQ(*v, row.expected) << v->toText() << " " << cimhost::typeName(v->type());
    }
    // A provider's value replaces the default; a provider's NULL is kept.
    inRequest(host, [](const CMPIBroker *mb, const CMPIContext *) {
        CMPIInstance *inst = CMNewInstance(mb, CMNewObjectPath(mb, kNs, "Test_Defaults", nullptr), nullptr);
        CMPIUint16 state = 2;
        CMSetProperty(inst, "State", &state, CMPI_uint16);
        CMSetProperty(inst, "Label", static_cast<const char *>(nullptr), CMPI_chars);
        EXPECT_EQ(CMGetProperty(inst, "State", nullptr).value.uint16, 2);
        EXPECT_TRUE(CMGetProperty(inst, "Label", nullptr).state & CMPI_nullValue);
        EXPECT_EQ(CMGetProperty(inst, "Offset", nullptr).value.sint32, -7);
    });
}

TEST_F(ObjectModel, ValuesAreCopiedOnSet) {
    inRequest(host, [](const CMPIBroker *mb, const CMPIContext *) {
        CMPIObjectPath *target = CMNewObjectPath(mb, kNs, "Test_Widget", nullptr);
        CMAddKey(target, "Name", "alpha", CMPI_chars);
        CMPIObjectPath *assoc = CMNewObjectPath(mb, kNs, "Test_WidgetGadget", nullptr);
        CMAddKey(assoc, "Holder", &target, CMPI_ref);
        CMAddKey(target, "Name", "changed", CMPI_chars);
        CMRelease(target);
        CMPIData holder = CMGetKey(assoc, "Holder", nullptr);
        ASSERT_EQ(holder.type, CMPI_ref);
        EXPECT_EQ(text(CMGetKey(holder.value.ref, "Name", nullptr)), "alpha");

        CMPIArray *arr = CMNewArray(mb, 1, CMPI_uint8, nullptr);
        CMPIUint8 one = 1, two = 2;
        CMSetArrayElementAt(arr, 0, &one, CMPI_uint8);
        CMPIInstance *inst = CMNewInstance(mb, assoc, nullptr);
        CMSetProperty(inst, "Codes", &arr, CMPI_uint8A);
        CMSetArrayElementAt(arr, 0, &two, CMPI_uint8);
        CMPIData codes = CMGetProperty(inst, "Codes", nullptr);
        ASSERT_EQ(codes.type, CMPI_uint8A);
        EXPECT_EQ(CMGetArrayElementAt(codes.value.array, 0, nullptr).value.uint8, 1);
        CMPIArray *wrong = CMNewArray(mb, 1, CMPI_uint16, nullptr);
        EXPECT_EQ(CMSetProperty(inst, "Codes", &wrong, CMPI_uint8A).rc, CMPI_RC_ERR_TYPE_MISMATCH);
    });
}

TEST_F(ObjectModel, PropertyFilterKeepsListedPropertiesAndGivenKeys) {
    inRequest(host, [](const CMPIBroker *mb, const CMPIContext *) {
        CMPIObjectPath *op = CMNewObjectPath(mb, kNs, "Test_Widget", nullptr);
        CMAddKey(op, "Name", "alpha", CMPI_chars);
        CMPIInstance *inst = CMNewInstance(mb, op, nullptr);
        CMPIUint8 slot = 1;
        CMSetProperty(inst, "Slot", &slot, CMPI_uint8);
        CMSetProperty(inst, "Caption", "c", CMPI_chars);
        const char *props[] = {"size", nullptr};
        const char *keys[] = {"Name", nullptr};
        EXPECT_EQ(CMSetPropertyFilter(inst, props, keys).rc, CMPI_RC_OK);
        EXPECT_EQ(CMGetPropertyCount(inst, nullptr), 1u);  // Name only; Slot and Caption dropped
        CMPIUint32 size = 5;
        EXPECT_EQ(CMSetProperty(inst, "Size", &size, CMPI_uint32).rc, CMPI_RC_OK);
        EXPECT_EQ(CMSetProperty(inst, "Slot", &slot, CMPI_uint8).rc, CMPI_RC_OK);  // ignored without complaint
        CMPIStatus rc{};
        CMGetProperty(inst, "Slot", &rc);
        EXPECT_EQ(rc.rc, CMPI_RC_ERR_NO_SUCH_PROPERTY);
        EXPECT_EQ(CMGetProperty(inst, "Size", nullptr).value.uint32, 5u);
        CMSetPropertyFilter(inst, nullptr, nullptr);  // all properties again
        CMSetProperty(inst, "Slot", &slot, CMPI_uint8);
        EXPECT_EQ(CMGetPropertyCount(inst, nullptr), 3u);
    });
}

TEST_F(ObjectModel, ClassPathIsAFollowsTheMof) {
    inRequest(host, [](const CMPIBroker *mb, const CMPIContext *) {
        CMPIStatus rc{};
        CMPIObjectPath *op = CMNewObjectPath(mb, kNs, "Test_Widget", nullptr);
        EXPECT_TRUE(CMClassPathIsA(mb, op, "Test_Element", &rc));
        EXPECT_EQ(rc.rc, CMPI_RC_OK);
        EXPECT_TRUE(CMClassPathIsA(mb, op, "test_widget", nullptr));
        EXPECT_FALSE(CMClassPathIsA(mb, op, "Test_Gadget", nullptr));
        EXPECT_FALSE(CMClassPathIsA(mb, nullptr, "Test_Element", &rc));
        EXPECT_EQ(rc.rc, CMPI_RC_ERR_INVALID_HANDLE);
        EXPECT_TRUE(CDIsOfType(mb, op, "CMPIObjectPath", nullptr));
        EXPECT_EQ(text(CDGetType(mb, op, nullptr)), "CMPIObjectPath");
    });
}

TEST_F(ObjectModel, MessagesUseTheDefaultTextWithInserts) {
    inRequest(host, [](const CMPIBroker *mb, const CMPIContext *) {
        CMPIStatus rc{};
        CMPIString *msg = CMGetMessage(mb, "id", "Disk $0 of $1 failed ($2)", &rc,
                                       CMFmtArgs3(CMFmtChars("d1"), CMFmtSint(3), CMFmtBoolean(1)));
        EXPECT_EQ(rc.rc, CMPI_RC_OK);
        EXPECT_EQ(text(msg), "Disk d1 of 3 failed (true)");
        EXPECT_EQ(CMLogMessage(mb, CMPI_SEV_INFO, "test", "logged", nullptr).rc, CMPI_RC_OK);
    });
    EXPECT_EQ(host.brokerLog().back(), "log(2) test: logged");
}

TEST_F(ObjectModel, StandardBrokerFillsEveryTwoPointOhSlot) {
    const CMPIBroker *mb = host.broker();
    EXPECT_EQ(mb->bft->brokerVersion, 200u);
    EXPECT_EQ(mb->eft->ftVersion, 200);
    EXPECT_EQ(mb->mft, nullptr);
    EXPECT_NE(mb->eft->newCMPIError, nullptr);
    EXPECT_NE(mb->eft->getMessage2, nullptr);
    inRequest(host, [](const CMPIBroker *b, const CMPIContext *) {
        CMPIInstance *inst = CMNewInstance(b, CMNewObjectPath(b, kNs, "Test_Widget", nullptr), nullptr);
        EXPECT_NE(inst->ft->setPropertyWithOrigin, nullptr);
    });
}

TEST(Cmpi10Broker, LeavesTheTwoPointOhSlotsNull) {
    auto options = testOptions();
    options.cmpi10Broker = true;
    cimhost::Host host(options);
    const CMPIBroker *mb = host.broker();
    EXPECT_EQ(mb->bft->brokerVersion, 0u);
    EXPECT_EQ(mb->eft->ftVersion, 1);
    EXPECT_EQ(mb->eft->newCMPIError, nullptr);
    EXPECT_EQ(mb->eft->openMessageFile, nullptr);
    EXPECT_EQ(mb->eft->closeMessageFile, nullptr);
    EXPECT_EQ(mb->eft->getMessage2, nullptr);
    inRequest(host, [](const CMPIBroker *b, const CMPIContext *) {
        CMPIInstance *inst = CMNewInstance(b, CMNewObjectPath(b, kNs, "Test_Widget", nullptr), nullptr);
        EXPECT_EQ(inst->ft->setPropertyWithOrigin, nullptr);
        cimhost::rt::ResultSink sink;
        auto *rslt = cimhost::rt::Runtime::make<cimhost::rt::ResultObj>(cimhost::rt::Lifetime::Tracked,
                                                                        cimhost::rt::Flavor{true}, &sink);
        EXPECT_EQ(rslt->as<CMPIResult>()->ft->returnError, nullptr);
    });
    // Providers still work through a 1.0-level broker.
    EXPECT_EQ(host.enumerateInstances(kNs, "Test_Widget").instances.size(), 2u);
}

TEST(Values, TextAndTypeConversions) {
    using cimhost::Value;
    EXPECT_EQ(Value::string("200").convertTo(CMPI_uint8), Value::u8(200));
    EXPECT_FALSE(Value::string("300").convertTo(CMPI_uint8));
    EXPECT_FALSE(Value::s32(-1).convertTo(CMPI_uint32));
    EXPECT_EQ(Value::u32(5).convertTo(CMPI_sint8), Value::s8(5));
    EXPECT_EQ(Value::string("a, b").convertTo(CMPI_stringA),
              Value::array(CMPI_string, {Value::string("a"), Value::string("b")}));
    EXPECT_EQ(Value::string("true").convertTo(CMPI_boolean), Value::boolean(true));

    auto path = cimhost::ObjectPathV::parse("test/cimv2:Test_Gadget.Name=\"g\\\"1\",Id=7");
    ASSERT_TRUE(path);
    EXPECT_EQ(path->key("Name")->asString(), "g\"1");
    EXPECT_EQ(path->toString(), "test/cimv2:Test_Gadget.Name=\"g\\\"1\",Id=7");

    auto when = cimhost::DateTimeV::fromCim("20240229235959.123456+060");
    ASSERT_TRUE(when);
    EXPECT_EQ(when->toCim(), "20240229235959.123456+060");
    EXPECT_EQ(when->micros % 1000000, 123456u);
    auto interval = cimhost::DateTimeV::fromCim("00000001020304.000005:000");
    ASSERT_TRUE(interval && interval->interval);
    EXPECT_EQ(interval->micros, ((24ull + 2) * 3600 + 3 * 60 + 4) * 1000000 + 5);
    EXPECT_FALSE(cimhost::DateTimeV::fromCim("2024022923595.123456+060"));
}

}  // namespace
