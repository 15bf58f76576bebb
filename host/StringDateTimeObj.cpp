// CMPIString (hdl is the NUL-terminated text itself) and CMPIDateTime.
#include "Objects.h"

namespace cimhost::rt {

namespace {

CMPIStatus stringRelease(CMPIString *s) { return Runtime::release(s, Kind::String); }

CMPIString *stringClone(const CMPIString *s, CMPIStatus *rc) {
    return guarded<CMPIString *>(rc, nullptr, [&]() -> CMPIString * {
        auto *obj = Runtime::resolve<StringObj>(s, rc);
        if (obj == nullptr) return nullptr;
        setRc(rc, CMPI_RC_OK);
        auto *copy = obj->isNull() ? Runtime::make<StringObj>(Lifetime::Clone, obj->flavor(), nullptr)
                                   : Runtime::make<StringObj>(Lifetime::Clone, obj->flavor(), obj->text());
        return copy->as<CMPIString>();
    });
}

const char *stringChars(const CMPIString *s, CMPIStatus *rc) {
    return guarded<const char *>(rc, nullptr, [&]() -> const char * {
        auto *obj = Runtime::resolve<StringObj>(s, rc);
        if (obj == nullptr) return nullptr;
        setRc(rc, CMPI_RC_OK);
        return obj->chars();
    });
}

CMPIStringFT stringFT = {CMPICurrentVersion, stringRelease, stringClone, stringChars};

CMPIStatus dateTimeRelease(CMPIDateTime *dt) { return Runtime::release(dt, Kind::DateTime); }

CMPIDateTime *dateTimeClone(const CMPIDateTime *dt, CMPIStatus *rc) {
    return guarded<CMPIDateTime *>(rc, nullptr, [&]() -> CMPIDateTime * {
        auto *obj = Runtime::resolve<DateTimeObj>(dt, rc);
        if (obj == nullptr) return nullptr;
        setRc(rc, CMPI_RC_OK);
        return Runtime::make<DateTimeObj>(Lifetime::Clone, obj->flavor(), obj->value())->as<CMPIDateTime>();
    });
}

CMPIUint64 dateTimeBinary(const CMPIDateTime *dt, CMPIStatus *rc) {
    return guarded<CMPIUint64>(rc, 0, [&]() -> CMPIUint64 {
        auto *obj = Runtime::resolve<DateTimeObj>(dt, rc);
        if (obj == nullptr) return 0;
        setRc(rc, CMPI_RC_OK);
        return obj->value().micros;
    });
}

CMPIString *dateTimeString(const CMPIDateTime *dt, CMPIStatus *rc) {
    return guarded<CMPIString *>(rc, nullptr, [&]() -> CMPIString * {
        auto *obj = Runtime::resolve<DateTimeObj>(dt, rc);
        if (obj == nullptr) return nullptr;
        setRc(rc, CMPI_RC_OK);
        return trackedString(obj->flavor(), obj->value().toCim());
    });
}

CMPIBoolean dateTimeIsInterval(const CMPIDateTime *dt, CMPIStatus *rc) {
    return guarded<CMPIBoolean>(rc, 0, [&]() -> CMPIBoolean {
        auto *obj = Runtime::resolve<DateTimeObj>(dt, rc);
        if (obj == nullptr) return 0;
        setRc(rc, CMPI_RC_OK);
        return obj->value().interval ? 1 : 0;
    });
}

CMPIDateTimeFT dateTimeFT = {CMPICurrentVersion, dateTimeRelease, dateTimeClone, dateTimeBinary, dateTimeString,
                             dateTimeIsInterval};

}  // namespace

StringObj::StringObj(const Flavor &flavor, std::string text)
    : Object(Kind::String, flavor, &stringFT), text_(std::move(text)) {
    setHdl(text_.data());
}

StringObj::StringObj(const Flavor &flavor, std::nullptr_t) : Object(Kind::String, flavor, &stringFT), null_(true) {
    setHdl(nullptr);
}

DateTimeObj::DateTimeObj(const Flavor &flavor, DateTimeV value)
    : Object(Kind::DateTime, flavor, &dateTimeFT), value_(value) {}

CMPIString *borrowedString(const Flavor &flavor, const std::string &text) {
    return Runtime::make<StringObj>(Lifetime::Borrowed, flavor, text)->as<CMPIString>();
}

CMPIString *trackedString(const Flavor &flavor, const std::string &text) {
    return Runtime::make<StringObj>(Lifetime::Tracked, flavor, text)->as<CMPIString>();
}

}  // namespace cimhost::rt
