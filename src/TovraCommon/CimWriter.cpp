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
    CMPIStatus st = okStatus();
    CMPIArray *arr = CMNewArray(broker_, static_cast<CMPICount>(values.size()), CMPI_uint16, &st);
    if (st.rc != CMPI_RC_OK || arr == nullptr) return;
    CMPICount i = 0;
    for (uint16_t value : values) {
        CMPIUint16 v = value;
        CMSetArrayElementAt(arr, i++, &v, CMPI_uint16);
    }
    CMSetProperty(inst_, name, &arr, CMPI_uint16A);
}

void PropertyWriter::strArray(const char *name, const std::vector<std::string> &values) {
    CMPIStatus st = okStatus();
    CMPIArray *arr = CMNewArray(broker_, static_cast<CMPICount>(values.size()), CMPI_string, &st);
    if (st.rc != CMPI_RC_OK || arr == nullptr) return;
    for (CMPICount i = 0; i < values.size(); ++i) {
        CMPIString *text = CMNewString(broker_, values[i].c_str(), nullptr);
        CMSetArrayElementAt(arr, i, &text, CMPI_string);
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
