// A host loaded with the test provider library, and helpers over CMPI data.
#pragma once

#include "Host.h"

#include <cmpimacs.h>
#include <gtest/gtest.h>

#include <string>

namespace hosttest {

constexpr const char *kNs = "test/cimv2";

inline cimhost::HostOptions testOptions() {
    cimhost::HostOptions o;
    o.mofPaths = {TEST_MOF};
    o.registrationFile = TEST_REGISTRATION;
    o.providerDirs = {TEST_PROVIDER_DIR};
    o.principal = "alice";
    return o;
}

inline std::string text(const CMPIData &d) {
    if (d.type != CMPI_string || (d.state & CMPI_nullValue) || d.value.string == nullptr) return "<not a string>";
    const char *s = CMGetCharsPtr(d.value.string, nullptr);
    return s != nullptr ? s : "<NULL>";
}

inline std::string text(const CMPIString *s) {
    const char *c = s != nullptr ? CMGetCharsPtr(s, nullptr) : nullptr;
    return c != nullptr ? c : "<NULL>";
}

// Runs body as one request of a host.
template <class F> void inRequest(cimhost::Host &host, F &&body) {
    host.withRequest([&](const CMPIBroker *mb, const CMPIContext *ctx) { body(mb, ctx); });
}

}  // namespace hosttest
