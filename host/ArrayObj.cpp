// CMPIArray: fixed size, typed elements, strict index and type checks.
#include "Objects.h"

namespace cimhost::rt {

namespace {

CMPIType visibleType(const ArrayObj &arr) {
    CMPIType t = arr.elementType();
    return (t == CMPI_chars && arr.flavor().charsArraysAsStrings) ? CMPIType(CMPI_string) : t;
}

CMPIStatus arrayRelease(CMPIArray *ar) { return Runtime::release(ar, Kind::Array); }

CMPIArray *arrayClone(const CMPIArray *ar, CMPIStatus *rc) {
    return guarded<CMPIArray *>(rc, nullptr, [&]() -> CMPIArray * {
        auto *obj = Runtime::resolve<ArrayObj>(ar, rc);
        if (obj == nullptr) return nullptr;
        setRc(rc, CMPI_RC_OK);
        return Runtime::make<ArrayObj>(Lifetime::Clone, obj->flavor(), obj->elementType(), obj->elements())
            ->as<CMPIArray>();
    });
}

CMPICount arraySize(const CMPIArray *ar, CMPIStatus *rc) {
    return guarded<CMPICount>(rc, 0, [&]() -> CMPICount {
        auto *obj = Runtime::resolve<ArrayObj>(ar, rc);
        if (obj == nullptr) return 0;
        setRc(rc, CMPI_RC_OK);
        return static_cast<CMPICount>(obj->elements().size());
    });
}

CMPIType arrayType(const CMPIArray *ar, CMPIStatus *rc) {
    return guarded<CMPIType>(rc, CMPI_null, [&]() -> CMPIType {
        auto *obj = Runtime::resolve<ArrayObj>(ar, rc);
        if (obj == nullptr) return CMPI_null;
        setRc(rc, CMPI_RC_OK);
        return visibleType(*obj);
    });
}

CMPIData arrayGet(const CMPIArray *ar, CMPICount index, CMPIStatus *rc) {
    return guarded<CMPIData>(rc, missingData(), [&]() -> CMPIData {
        auto *obj = Runtime::resolve<ArrayObj>(ar, rc);
        if (obj == nullptr) return missingData();
        if (index >= obj->elements().size()) {
            setRc(rc, CMPI_RC_ERR_NO_SUCH_PROPERTY);
            return missingData();
        }
        setRc(rc, CMPI_RC_OK);
        const Value &element = obj->elements()[index];
        CMPIType type = visibleType(*obj);
        if (type == CMPI_chars) {
            // A chars array keeps handing out chars: the pointer is the value.
            CMPIData d{};
            d.type = CMPI_chars;
            if (element.isNull()) {
                d.state = CMPI_nullValue;
            } else {
                d.value.chars = reinterpret_cast<char *>(borrowedString(obj->flavor(), element.asString())->hdl);
            }
            return d;
        }
        CMPIData d = toData(element, obj->flavor());
        if (element.isNull()) d.type = type;
        return d;
    });
}

CMPIStatus arraySet(CMPIArray *ar, CMPICount index, const CMPIValue *value, CMPIType type) {
    return guardedStatus([&]() -> CMPIStatus {
        CMPIStatus rc = status(CMPI_RC_OK);
        auto *obj = Runtime::resolve<ArrayObj>(ar, &rc);
        if (obj == nullptr) return rc;
        // As in a stock CIMOM, a NULL value pointer is refused even with CMPI_null.
        if (value == nullptr) return status(CMPI_RC_ERR_INVALID_PARAMETER);
        if (index >= obj->elements().size()) return status(CMPI_RC_ERR_NO_SUCH_PROPERTY);
        Value &slot = obj->elements()[index];
        if (type == CMPI_null) {
            slot = Value::null(obj->elementType());
            return rc;
        }
        bool fits = type == obj->elementType() ||
                    (isTextType(type) && isTextType(obj->elementType()) && obj->flavor().charsArraysAsStrings);
        if (!fits) return status(CMPI_RC_ERR_TYPE_MISMATCH);
        Value v;
        CMPIrc read = readValue(value, type, v);
        if (read != CMPI_RC_OK) return status(read);
        slot = std::move(v);
        return rc;
    });
}

CMPIArrayFT arrayFT = {CMPICurrentVersion, arrayRelease, arrayClone, arraySize, arrayType, arrayGet, arraySet};

}  // namespace

ArrayObj::ArrayObj(const Flavor &flavor, CMPIType elementType, Value::Array elements)
    : Object(Kind::Array, flavor, &arrayFT), elementType_(elementType), elements_(std::move(elements)) {}

}  // namespace cimhost::rt
