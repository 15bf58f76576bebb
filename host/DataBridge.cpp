// Values across the CMPI boundary: CMPIValue + type in, CMPIData out.
#include "Objects.h"

#include <cstring>

namespace cimhost::rt {

namespace {

bool isScalarType(CMPIType t) {
    switch (t) {
        case CMPI_boolean:
        case CMPI_char16:
        case CMPI_real32:
        case CMPI_real64:
        case CMPI_uint8:
        case CMPI_uint16:
        case CMPI_uint32:
        case CMPI_uint64:
        case CMPI_sint8:
        case CMPI_sint16:
        case CMPI_sint32:
        case CMPI_sint64: return true;
        default: return false;
    }
}

bool isStorableType(CMPIType t) {
    return isScalarType(t) || t == CMPI_string || t == CMPI_chars || t == CMPI_ref || t == CMPI_instance ||
           t == CMPI_dateTime;
}

bool isKnownType(CMPIType t) {
    return isStorableType(t) || t == CMPI_args || t == CMPI_class || t == CMPI_filter ||
           t == CMPI_enumeration || t == CMPI_ptr || t == CMPI_charsptr;
}

// Providers pass the address of a variable of the value's own width, which
// need not be aligned as a whole CMPIValue: read only those bytes.
template <class T> T load(const CMPIValue *v) {
    T out;
    std::memcpy(&out, v, sizeof out);
    return out;
}

Value scalarOf(const CMPIValue *v, CMPIType t) {
    switch (t) {
        case CMPI_boolean: return Value::boolean(load<CMPIBoolean>(v) != 0);
        case CMPI_char16: return Value::char16(load<CMPIChar16>(v));
        case CMPI_real32: return Value::real32(load<CMPIReal32>(v));
        case CMPI_real64: return Value::real64(load<CMPIReal64>(v));
        case CMPI_uint8: return Value::u8(load<CMPIUint8>(v));
        case CMPI_uint16: return Value::u16(load<CMPIUint16>(v));
        case CMPI_uint32: return Value::u32(load<CMPIUint32>(v));
        case CMPI_uint64: return Value::u64(load<CMPIUint64>(v));
        case CMPI_sint8: return Value::s8(load<CMPISint8>(v));
        case CMPI_sint16: return Value::s16(load<CMPISint16>(v));
        case CMPI_sint32: return Value::s32(load<CMPISint32>(v));
        default: return Value::s64(load<CMPISint64>(v));
    }
}

void putScalar(CMPIValue &out, const Value &v) {
    switch (v.type()) {
        case CMPI_boolean: out.boolean = v.asBool() ? 1 : 0; break;
        case CMPI_char16: out.char16 = static_cast<CMPIChar16>(v.asUnsigned()); break;
        case CMPI_real32: out.real32 = static_cast<CMPIReal32>(v.asReal()); break;
        case CMPI_real64: out.real64 = v.asReal(); break;
        case CMPI_uint8: out.uint8 = static_cast<CMPIUint8>(v.asUnsigned()); break;
        case CMPI_uint16: out.uint16 = static_cast<CMPIUint16>(v.asUnsigned()); break;
        case CMPI_uint32: out.uint32 = static_cast<CMPIUint32>(v.asUnsigned()); break;
        case CMPI_uint64: out.uint64 = v.asUnsigned(); break;
        case CMPI_sint8: out.sint8 = static_cast<CMPISint8>(v.asSigned()); break;
        case CMPI_sint16: out.sint16 = static_cast<CMPISint16>(v.asSigned()); break;
        case CMPI_sint32: out.sint32 = static_cast<CMPISint32>(v.asSigned()); break;
        case CMPI_sint64: out.sint64 = v.asSigned(); break;
        default: break;
    }
}

CMPIrc readArray(const CMPIArray *handle, CMPIType declared, Value &out) {
    CMPIType element = static_cast<CMPIType>(declared & ~CMPI_ARRAY);
    if (!isStorableType(element)) return isKnownType(element) ? CMPI_RC_ERR_NOT_SUPPORTED : CMPI_RC_ERR_INVALID_DATA_TYPE;
    if (handle == nullptr) {
        out = Value::null(declared);
        return CMPI_RC_OK;
    }
    CMPIStatus rc = status(CMPI_RC_OK);
    auto *arr = Runtime::resolve<ArrayObj>(handle, &rc);
    if (arr == nullptr) return rc.rc;
    // The array's own element type counts; a chars array may be attached as a string array.
    if (arr->elementType() != element && !(isTextType(arr->elementType()) && isTextType(element)))
        return CMPI_RC_ERR_TYPE_MISMATCH;
    out = arr->toValue();
    return CMPI_RC_OK;
}

}  // namespace

CMPIrc readValue(const CMPIValue *value, CMPIType type, Value &out) {
    if (type == CMPI_null) {
        out = Value();
        return CMPI_RC_OK;
    }
    if (type & CMPI_ARRAY) return readArray(value == nullptr ? nullptr : load<CMPIArray *>(value), type, out);
    if (!isKnownType(type)) return CMPI_RC_ERR_INVALID_DATA_TYPE;
    if (!isStorableType(type)) return CMPI_RC_ERR_NOT_SUPPORTED;
    if (value == nullptr) {
        out = Value::null(type);
        return CMPI_RC_OK;
    }
    if (isScalarType(type)) {
        out = scalarOf(value, type);
        return CMPI_RC_OK;
    }
    CMPIStatus rc = status(CMPI_RC_OK);
    switch (type) {
        case CMPI_chars:
            // The chars pointer itself is passed in place of the CMPIValue.
            out = Value::string(reinterpret_cast<const char *>(value));
            return CMPI_RC_OK;
        case CMPI_string: {
            auto *handle = load<CMPIString *>(value);
            if (handle == nullptr) {
                out = Value::null(CMPI_string);
                return CMPI_RC_OK;
            }
            auto *s = Runtime::resolve<StringObj>(handle, &rc);
            if (s == nullptr) return rc.rc;
            out = s->isNull() ? Value::null(CMPI_string) : Value::string(s->text());
            return CMPI_RC_OK;
        }
        case CMPI_ref: {
            auto *handle = load<CMPIObjectPath *>(value);
            if (handle == nullptr) {
                out = Value::null(CMPI_ref);
                return CMPI_RC_OK;
            }
            auto *p = Runtime::resolve<ObjectPathObj>(handle, &rc);
            if (p == nullptr) return rc.rc;
            out = Value::ref(p->data());
            return CMPI_RC_OK;
        }
        case CMPI_instance: {
            auto *handle = load<CMPIInstance *>(value);
            if (handle == nullptr) {
                out = Value::null(CMPI_instance);
                return CMPI_RC_OK;
            }
            auto *i = Runtime::resolve<InstanceObj>(handle, &rc);
            if (i == nullptr) return rc.rc;
            out = Value::instance(i->sharedSnapshot());
            return CMPI_RC_OK;
        }
        default: {  // CMPI_dateTime
            auto *handle = load<CMPIDateTime *>(value);
            if (handle == nullptr) {
                out = Value::null(CMPI_dateTime);
                return CMPI_RC_OK;
            }
            auto *d = Runtime::resolve<DateTimeObj>(handle, &rc);
            if (d == nullptr) return rc.rc;
            out = Value::dateTime(d->value());
            return CMPI_RC_OK;
        }
    }
}

CMPIData toData(const Value &value, const Flavor &flavor, bool isKey) {
    CMPIData d{};
    d.type = value.type();
    d.state = isKey ? CMPI_keyValue : CMPI_goodValue;
    if (value.isNull()) {
        d.state |= CMPI_nullValue;
        return d;
    }
    if (value.isArray()) {
        CMPIType element = value.elementType();
        if (element == CMPI_chars && flavor.charsArraysAsStrings) element = CMPI_string;
        d.type = static_cast<CMPIType>(element | CMPI_ARRAY);
        d.value.array =
            Runtime::make<ArrayObj>(Lifetime::Borrowed, flavor, element, value.asArray())->as<CMPIArray>();
        return d;
    }
    switch (value.type()) {
        case CMPI_string:
        case CMPI_chars:
            d.type = CMPI_string;
            d.value.string = borrowedString(flavor, value.asString());
            return d;
        case CMPI_ref:
            d.value.ref = Runtime::make<ObjectPathObj>(Lifetime::Borrowed, flavor, value.asRef())->as<CMPIObjectPath>();
            return d;
        case CMPI_instance:
            d.value.inst =
                Runtime::make<InstanceObj>(Lifetime::Borrowed, flavor, value.sharedInstance())->as<CMPIInstance>();
            return d;
        case CMPI_dateTime:
            d.value.dateTime =
                Runtime::make<DateTimeObj>(Lifetime::Borrowed, flavor, value.asDateTime())->as<CMPIDateTime>();
            return d;
        default: break;
    }
    if (isKey && isIntegerType(value.type()) && flavor.widenIntegerKeys) {
        d.type = CMPI_sint64;
        d.value.sint64 = isSignedType(value.type()) ? value.asSigned() : static_cast<CMPISint64>(value.asUnsigned());
        return d;
    }
    putScalar(d.value, value);
    return d;
}

CMPIData missingData() {
    CMPIData d{};
    d.type = CMPI_null;
    d.state = CMPI_nullValue | CMPI_notFound;
    return d;
}

void toClientForm(Value &value) {
    if (!value.isArray() || value.elementType() != CMPI_chars) return;
    value = value.isNull() ? Value::null(CMPI_stringA) : Value::array(CMPI_string, value.asArray());
}

}  // namespace cimhost::rt
