// Fuzz entry for what a listener reads: any bytes as an export request body.
// A decoded indication is written back out as CIM-XML and its values as
// text, so every value the decoder builds is walked.
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
    auto result = cimserver::decodeExportRequest(std::string_view(reinterpret_cast<const char *>(data), size), limits);
    if (auto *request = std::get_if<cimserver::ExportRequest>(&result)) {
        std::string out;
        cimserver::XmlWriter w(out);
        for (const auto &p : request->params) {
            if (p.value.kind == cimserver::RawValue::Kind::Instance) w.instance(p.value.instance);
            for (const auto &[name, v] : p.value.instance.properties) (void)v.toText();
        }
    }
    return 0;
}
