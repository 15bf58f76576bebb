// Fuzz entry for the filter language: any bytes as a query. A query that
// reads is checked against a class and evaluated against an indication with
// values of every kind, so the evaluator's paths run too.
#include "Wql.h"

#include <cstdint>
#include <string_view>
#include <variant>

namespace {

cimhost::InstanceV sample() {
    cimhost::InstanceV inner{{"ns", "Inner_Class", {}, {}}, {{"DeviceID", cimhost::Value::string("d")}}};
    cimhost::InstanceV v{{"ns", "Fuzz_Indication", {}, {}}, {}};
    v.properties = {{"A", cimhost::Value::u16(5)},
                    {"B", cimhost::Value::string("text")},
                    {"C", cimhost::Value::boolean(true)},
                    {"D", cimhost::Value::real64(-1.5)},
                    {"E", cimhost::Value::s64(-7)},
                    {"F", cimhost::Value::null(CMPI_string)},
                    {"T", cimhost::Value::dateTime(cimhost::DateTimeV{1000000, false, 0})},
                    {"S", cimhost::Value::instance(inner)}};
    return v;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const cimhost::InstanceV indication = sample();
    auto parsed = cimserver::wql::Query::parse(std::string_view(reinterpret_cast<const char *>(data), size));
    if (auto *q = std::get_if<cimserver::wql::Query>(&parsed)) {
        (void)q->check([](std::string_view p) -> std::optional<CMPIType> {
            for (const auto &[name, v] : indication.properties)
                if (cimhost::iequals(name, p)) return v.type() == CMPI_instance ? CMPIType(CMPI_string) : v.type();
            return std::nullopt;
        });
        (void)q->matches(indication, [](std::string_view a, std::string_view b) { return cimhost::iequals(a, b); });
        (void)q->project(indication);
    }
    return 0;
}
