// Fuzz entry for the CIM-XML request decoder: any bytes as a request body.
// A decoded request is written back out as paths and values, so what the
// decoder builds is walked too.
#include "CimRequest.h"
#include "XmlWriter.h"

#include <libxml/parser.h>

#include <cstdint>
#include <variant>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const bool initialized = [] {
        xmlInitParser();
        return true;
    }();
    (void)initialized;
    cimserver::DecodeLimits limits;
    limits.maxElements = 2000;
    auto result = cimserver::decodeRequest(std::string_view(reinterpret_cast<const char *>(data), size), limits);
    if (auto *request = std::get_if<cimserver::CimRequest>(&result)) {
        std::string out;
        cimserver::XmlWriter w(out);
        if (!request->intrinsic) w.instanceName(request->target);
        for (const auto &p : request->params)
            if (p.value.kind == cimserver::RawValue::Kind::InstanceName ||
                p.value.kind == cimserver::RawValue::Kind::Reference)
                w.instanceName(p.value.path);
    }
    return 0;
}
