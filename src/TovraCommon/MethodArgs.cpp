#include "MethodArgs.h"

#include "CimWriter.h"

#include <algorithm>

namespace tovra {

namespace {

[[noreturn]] void wrongType(const char *missing, const char *wrong) { failMethod(wrong != nullptr ? wrong : missing); }

std::optional<uint64_t> integerOf(const CMPIData &d) {
    if (!(d.state & CMPI_nullValue) && d.type == CMPI_boolean) return d.value.boolean ? 1 : 0;
    return unsignedOf(d);
}

}  // namespace

void requireArgCount(const char *method, unsigned count, unsigned expected) {
    if (count != expected)
        throw MethodFailure(static_cast<CMPIrc>(49), std::string(method) + ": incorrect args number were received.");
}

unsigned ArgReader::count() const {
    if (in_ == nullptr || in_->hdl == nullptr) return 0;
    CMPIStatus st = okStatus();
    const CMPICount n = CMGetArgCount(in_, &st);
    return st.rc == CMPI_RC_OK ? n : 0;
}

bool ArgReader::has(const char *name) const {
    if (in_ == nullptr || in_->hdl == nullptr) return false;
    CMPIStatus st = okStatus();
    CMGetArg(in_, name, &st);
    return st.rc == CMPI_RC_OK;
}

CMPIData ArgReader::fetch(const char *name, const char *missing) const {
    if (in_ == nullptr || in_->hdl == nullptr) failMethod(missing);
    CMPIStatus st = okStatus();
    CMPIData d = CMGetArg(in_, name, &st);
    if (st.rc != CMPI_RC_OK) failMethod(missing);
    return d;
}

uint32_t ArgReader::number(const char *name, const char *missing, const char *wrong) const {
    const std::optional<uint64_t> v = integerOf(fetch(name, missing));
    if (!v) wrongType(missing, wrong);
    return static_cast<uint32_t>(*v);
}

std::string ArgReader::text(const char *name, const char *missing, const char *wrong) const {
    const CMPIData d = fetch(name, missing);
    if (d.type == CMPI_chars && !(d.state & CMPI_nullValue) && d.value.chars != nullptr) return d.value.chars;
    const char *s = stringOf(d);
    if (s == nullptr) wrongType(missing, wrong);
    return s;
}

std::vector<uint8_t> ArgReader::bytes(const char *name, const char *missing, const char *wrong,
                                      std::size_t limit) const {
    const CMPIData d = fetch(name, missing);
    if (!(d.type & CMPI_ARRAY) || (d.state & CMPI_nullValue) || d.value.array == nullptr ||
        d.value.array->hdl == nullptr)
        wrongType(missing, wrong);
    CMPIStatus st = okStatus();
    const CMPICount size = CMGetArrayCount(d.value.array, &st);
    if (st.rc != CMPI_RC_OK) wrongType(missing, wrong);
    std::vector<uint8_t> out(size, 0);
    const CMPICount read = static_cast<CMPICount>(std::min<std::size_t>(size, limit));
    for (CMPICount i = 0; i < read; ++i) {
        CMPIStatus es = okStatus();
        const std::optional<uint64_t> v = integerOf(CMGetArrayElementAt(d.value.array, i, &es));
        if (es.rc != CMPI_RC_OK || !v) wrongType(missing, wrong);
        out[i] = static_cast<uint8_t>(*v);
    }
    return out;
}

}  // namespace tovra
