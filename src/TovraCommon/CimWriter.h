// Small typed writers over broker objects: keys of an object path and
// properties of an instance. Values are handed to the broker as CMPI expects
// (chars as the pointer itself, scalars by address); the broker copies them.
#pragma once

#include <cmpimacs.h>

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace tovra {

inline CMPIStatus okStatus() { return CMPIStatus{CMPI_RC_OK, nullptr}; }
inline CMPIStatus makeStatus(CMPIrc rc) { return CMPIStatus{rc, nullptr}; }

class KeyWriter {
public:
    explicit KeyWriter(CMPIObjectPath *op) : op_(op) {}
    void str(const char *name, const char *value) { CMAddKey(op_, name, value, CMPI_chars); }
    void str(const char *name, const std::string &value) { str(name, value.c_str()); }
    // The keys of a device of the adapter: its class, its id, and the
    // controller system that scopes it.
    void deviceKeys(const char *className, const char *deviceId, const char *systemName);

private:
    CMPIObjectPath *op_;
};

class PropertyWriter {
public:
    PropertyWriter(const CMPIBroker *broker, CMPIInstance *inst) : broker_(broker), inst_(inst) {}

    // A null text is published as a null property of type string.
    void str(const char *name, const char *value) { CMSetProperty(inst_, name, value, CMPI_chars); }
    void str(const char *name, const std::string &value) { str(name, value.c_str()); }
    void u8(const char *name, uint8_t v) { setScalar(name, CMPIUint8{v}, CMPI_uint8); }
    void u16(const char *name, uint16_t v) { setScalar(name, CMPIUint16{v}, CMPI_uint16); }
    void u32(const char *name, uint32_t v) { setScalar(name, CMPIUint32{v}, CMPI_uint32); }
    void u64(const char *name, uint64_t v) { setScalar(name, CMPIUint64{v}, CMPI_uint64); }
    void s16(const char *name, int16_t v) { setScalar(name, CMPISint16{v}, CMPI_sint16); }
    void r32(const char *name, float v) { setScalar(name, CMPIReal32{v}, CMPI_real32); }
    void boolean(const char *name, bool v) { setScalar(name, CMPIBoolean{v}, CMPI_boolean); }
    void u8Array(const char *name, const uint8_t *values, unsigned count);
    void u16Array(const char *name, std::initializer_list<uint16_t> values);
    void u16Array(const char *name, std::span<const uint16_t> values);
    void r32Array(const char *name, std::span<const float> values);
    void strArray(const char *name, const std::vector<std::string> &values);

private:
    template <class T> void setScalar(const char *name, T value, CMPIType type) {
        CMSetProperty(inst_, name, &value, type);
    }

    const CMPIBroker *broker_;
    CMPIInstance *inst_;
};

// Reads a string-typed value out of CMPIData; nullptr when the value is not a
// usable string (wrong type, null state, null handle).
const char *stringOf(const CMPIData &d);

// Reads any scalar integer value (keys and arguments may come with another
// integer type than declared); nullopt for null, arrays and non-integers.
std::optional<uint64_t> unsignedOf(const CMPIData &d);

}  // namespace tovra
