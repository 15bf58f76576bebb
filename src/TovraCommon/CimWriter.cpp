#include "CimWriter.h"

#include "Controller.h"

namespace tovra {

void KeyWriter::deviceKeys(const char *className, const char *deviceId, const char *systemName) {
    str("CreationClassName", className);
    str("DeviceID", deviceId);
    str("SystemCreationClassName", SystemCreationClassName);
    str("SystemName", systemName);
}

void PropertyWriter::u8Array(const char *name, const uint8_t *values, unsigned count) {
    CMPIStatus st = okStatus();
    CMPIArray *arr = CMNewArray(broker_, count, CMPI_uint8, &st);
    if (st.rc != CMPI_RC_OK || arr == nullptr) return;
    for (unsigned i = 0; i < count; ++i) {
        CMPIUint8 v = values[i];
        CMSetArrayElementAt(arr, i, &v, CMPI_uint8);
    }
    CMSetProperty(inst_, name, &arr, CMPI_uint8A);
}

void PropertyWriter::u16Array(const char *name, std::initializer_list<uint16_t> values) {
    u16Array(name, std::span<const uint16_t>(values.begin(), values.size()));
}

// Builds an array of `type` from the values (each converted to the CMPI value
// type V) and sets it as the property.
template <class V, class T>
static void setArray(const CMPIBroker *broker, CMPIInstance *inst, const char *name, std::span<const T> values,
                     CMPIType type) {
    CMPIStatus st = okStatus();
    CMPIArray *arr = CMNewArray(broker, static_cast<CMPICount>(values.size()), type, &st);
    if (st.rc != CMPI_RC_OK || arr == nullptr) return;
    CMPICount i = 0;
    for (const T &value : values) {
        V v = static_cast<V>(value);
        CMSetArrayElementAt(arr, i++, &v, type);
    }
    CMSetProperty(inst, name, &arr, type | CMPI_ARRAY);
}

void PropertyWriter::u16Array(const char *name, std::span<const uint16_t> values) {
    setArray<CMPIUint16>(broker_, inst_, name, values, CMPI_uint16);
}

void PropertyWriter::r32Array(const char *name, std::span<const float> values) {
    setArray<CMPIReal32>(broker_, inst_, name, values, CMPI_real32);
}

// Elements are broker strings: every CIMOM accepts them in a string array.
void PropertyWriter::strArray(const char *name, const std::vector<std::string> &values) {
    CMPIStatus st = okStatus();
    CMPIArray *arr = CMNewArray(broker_, static_cast<CMPICount>(values.size()), CMPI_string, &st);
    if (st.rc != CMPI_RC_OK || arr == nullptr) return;
    CMPICount i = 0;
    for (const std::string &value : values) {
        CMPIString *text = CMNewString(broker_, value.c_str(), &st);
        if (st.rc != CMPI_RC_OK || text == nullptr) return;
        CMSetArrayElementAt(arr, i++, &text, CMPI_string);
    }
    CMSetProperty(inst_, name, &arr, CMPI_stringA);
}

const char *stringOf(const CMPIData &d) {
    if (d.type != CMPI_string || (d.state & CMPI_nullValue) || d.value.string == nullptr) return nullptr;
    return CMGetCharsPtr(d.value.string, nullptr);
}

std::optional<uint64_t> unsignedOf(const CMPIData &d) {
    if ((d.state & CMPI_nullValue) || (d.type & CMPI_ARRAY)) return std::nullopt;
    switch (d.type) {
        case CMPI_uint8: return d.value.uint8;
        case CMPI_uint16: return d.value.uint16;
        case CMPI_uint32: return d.value.uint32;
        case CMPI_uint64: return d.value.uint64;
        case CMPI_sint8: return static_cast<uint64_t>(d.value.sint8);
        case CMPI_sint16: return static_cast<uint64_t>(d.value.sint16);
        case CMPI_sint32: return static_cast<uint64_t>(d.value.sint32);
        case CMPI_sint64: return static_cast<uint64_t>(d.value.sint64);
        default: return std::nullopt;
    }
}

}  // namespace tovra
