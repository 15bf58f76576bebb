// Helpers shared by the scenario reader and writer: checked conversions from
// JSON values to model fields, and the text forms of addresses.
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <type_traits>

#include "tovrasim/Model.h"

namespace tovra::sim::jsonfields {

using nlohmann::json;

[[noreturn]] inline void fail(const std::string &what) { throw std::runtime_error(what); }

inline uint64_t toU64(const json &v, const char *key) {
    if (v.is_boolean()) return v.get<bool>() ? 1 : 0;
    if (v.is_number_unsigned()) return v.get<uint64_t>();
    if (v.is_number_integer() && v.get<int64_t>() >= 0) return static_cast<uint64_t>(v.get<int64_t>());
    if (v.is_string()) {
        const std::string s = v.get<std::string>();
        char *end = nullptr;
        const unsigned long long x = std::strtoull(s.c_str(), &end, 0);
        if (!s.empty() && *end == '\0') return x;
    }
    fail(std::string("field \"") + key + "\" is not an unsigned number");
}

template <class T> T toUnsigned(const json &v, const char *key) {
    const uint64_t x = toU64(v, key);
    if (x > std::numeric_limits<T>::max()) fail(std::string("field \"") + key + "\" is out of range");
    return static_cast<T>(x);
}

template <class T> struct IsOptional : std::false_type {};
template <class T> struct IsOptional<std::optional<T>> : std::true_type {};
template <class T> struct IsArray : std::false_type {};
template <class T, std::size_t N> struct IsArray<std::array<T, N>> : std::true_type {};

template <class T> void convert(const json &v, const char *key, T &out);

template <std::size_t N> void convertBytes(const json &v, const char *key, std::array<uint8_t, N> &out) {
    if (v.is_string()) {  // "10.0.0.7" or "00:1b:4d:0a:0b:0c"
        const std::string s = v.get<std::string>();
        const bool dotted = s.find('.') != std::string::npos;
        std::istringstream in(s);
        std::string part;
        std::size_t i = 0;
        while (std::getline(in, part, dotted ? '.' : ':')) {
            if (i == N) fail(std::string("field \"") + key + "\" has too many parts");
            out[i++] = toUnsigned<uint8_t>(json(dotted ? part : "0x" + part), key);
        }
        if (i != N) fail(std::string("field \"") + key + "\" has too few parts");
        return;
    }
    if (!v.is_array() || v.size() != N)
        fail(std::string("field \"") + key + "\" needs " + std::to_string(N) + " bytes");
    for (std::size_t i = 0; i < N; ++i) out[i] = toUnsigned<uint8_t>(v[i], key);
}

template <class T> void convert(const json &v, const char *key, T &out) {
    if constexpr (std::is_same_v<T, bool>) {
        out = toU64(v, key) != 0;
    } else if constexpr (std::is_same_v<T, std::string>) {
        if (!v.is_string()) fail(std::string("field \"") + key + "\" is not a string");
        out = v.get<std::string>();
    } else if constexpr (std::is_floating_point_v<T>) {
        if (!v.is_number()) fail(std::string("field \"") + key + "\" is not a number");
        out = v.get<T>();
    } else if constexpr (std::is_same_v<T, int8_t>) {
        if (!v.is_number_integer() || v.get<int64_t>() < -128 || v.get<int64_t>() > 127)
            fail(std::string("field \"") + key + "\" is out of range");
        out = static_cast<int8_t>(v.get<int64_t>());
    } else if constexpr (std::is_unsigned_v<T>) {
        out = toUnsigned<T>(v, key);
    } else if constexpr (IsOptional<T>::value) {
        typename T::value_type x{};
        convert(v, key, x);
        out = x;
    } else if constexpr (IsArray<T>::value) {
        convertBytes(v, key, out);
    } else {
        static_assert(!sizeof(T), "unsupported field type");
    }
}

// Reads j[key] into out when present.
template <class T> void field(const json &j, const char *key, T &out) {
    if (j.contains(key)) convert(j.at(key), key, out);
}

inline std::string hex64(uint64_t v) {
    char buf[24];
    std::snprintf(buf, sizeof buf, "0x%016llx", static_cast<unsigned long long>(v));
    return buf;
}

inline std::string dotted(const std::array<uint8_t, 4> &a) {
    return std::to_string(a[0]) + "." + std::to_string(a[1]) + "." + std::to_string(a[2]) + "." +
           std::to_string(a[3]);
}

inline std::string colonHex(const std::array<uint8_t, 6> &a) {
    char buf[24];
    std::snprintf(buf, sizeof buf, "%02x:%02x:%02x:%02x:%02x:%02x", a[0], a[1], a[2], a[3], a[4], a[5]);
    return buf;
}

template <class T> void putOptional(json &j, const char *key, const std::optional<T> &v) {
    if (v) j[key] = *v;
}

// One list of the sSYSTEM_INFO fields, used for reading and writing.
template <class C, class F> void controllerNumbers(C &c, F &&f) {
    f("timeTick", c.timeTick), f("cpuSpeed", c.cpuSpeed), f("iCache", c.iCache), f("dCache", c.dCache);
    f("sCache", c.sCache), f("memorySize", c.memorySize), f("memorySpeed", c.memorySpeed), f("dhcp", c.dhcp);
    f("beeper", c.beeper), f("channelUsage", c.channelUsage), f("maxAtaMode", c.maxAtaMode);
    f("sdramEcc", c.sdramEcc), f("rebuildPriority", c.rebuildPriority), f("ideChannels", c.ideChannels);
    f("scsiHostChannels", c.scsiHostChannels), f("ideHostChannels", c.ideHostChannels);
    f("maxVolumeSet", c.maxVolumeSet), f("maxRaidSet", c.maxRaidSet), f("etherPort", c.etherPort);
    f("raid6Engine", c.raid6Engine), f("mib1", c.mib1), f("mib2", c.mib2), f("enterpriseNum", c.enterpriseNum);
    f("hostType", c.hostType), f("targetType", c.targetType), f("inBandEnable", c.inBandEnable);
    f("inBandChannel", c.inBandChannel), f("inBandId", c.inBandId), f("r5060Supported", c.r5060Supported);
    f("ntpSupported", c.ntpSupported), f("flag", c.flag);
}

template <class C, class F> void controllerTexts(C &c, F &&f) {
    f("vendor", c.vendor), f("serial", c.serial), f("firmware", c.firmware), f("boot", c.boot), f("mb", c.mb);
    f("model", c.model), f("modelExt", c.modelExt);
}

inline const char *kindName(SensorKind k) {
    switch (k) {
    case SensorKind::Voltage: return "voltage";
    case SensorKind::Fan: return "fan";
    case SensorKind::Power: return "power";
    case SensorKind::Temperature: return "temperature";
    }
    return "temperature";
}

}  // namespace tovra::sim::jsonfields
