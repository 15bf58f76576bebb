// CMPIBrokerEncFT: object factories, class tests, object descriptions,
// messages and logging.
#include "HostCore.h"

#include "Objects.h"

#include <cstdarg>
#include <ctime>

namespace cimhost {

namespace {

using rt::Lifetime;
using rt::Runtime;

template <class R, class F> R factory(const CMPIBroker *mb, CMPIStatus *rc, F &&make) {
    return rt::guarded<R>(rc, R{}, [&]() -> R {
        HostCore *core = HostCore::of(mb, rc);
        if (core == nullptr) return R{};
        rt::setRc(rc, CMPI_RC_OK);
        return make(*core);
    });
}

CMPIInstance *newInstance(const CMPIBroker *mb, const CMPIObjectPath *op, CMPIStatus *rc) {
    return factory<CMPIInstance *>(mb, rc, [&](HostCore &core) -> CMPIInstance * {
        auto *path = Runtime::resolve<rt::ObjectPathObj>(op, rc);
        if (path == nullptr) return nullptr;
        // The path's keys start out as the instance's properties, then the
        // class's MOF default values of the properties the keys do not give.
        InstanceV data{path->data(), path->data().keys};
        if (const NamedValues *defaults = core.schema().defaults(path->data().className))
            for (const auto &[name, value] : *defaults)
                if (findNamed(data.properties, name) == nullptr) data.properties.emplace_back(name, value);
        return Runtime::make<rt::InstanceObj>(Lifetime::Tracked, core.flavor(), std::move(data))->as<CMPIInstance>();
    });
}

CMPIObjectPath *newObjectPath(const CMPIBroker *mb, const char *ns, const char *cn, CMPIStatus *rc) {
    return factory<CMPIObjectPath *>(mb, rc, [&](HostCore &core) -> CMPIObjectPath * {
        if (cn == nullptr) {
            rt::setRc(rc, CMPI_RC_ERR_INVALID_PARAMETER);
            return nullptr;
        }
        ObjectPathV path{ns != nullptr ? ns : "", cn, "", {}};
        return Runtime::make<rt::ObjectPathObj>(Lifetime::Tracked, core.flavor(), std::move(path))->as<CMPIObjectPath>();
    });
}

CMPIArgs *newArgs(const CMPIBroker *mb, CMPIStatus *rc) {
    return factory<CMPIArgs *>(mb, rc, [&](HostCore &core) {
        return Runtime::make<rt::ArgsObj>(Lifetime::Tracked, core.flavor(), NamedValues{})->as<CMPIArgs>();
    });
}

CMPIString *newString(const CMPIBroker *mb, const char *data, CMPIStatus *rc) {
    return factory<CMPIString *>(mb, rc, [&](HostCore &core) -> CMPIString * {
        if (data == nullptr) {
            rt::setRc(rc, CMPI_RC_ERR_INVALID_PARAMETER);
            return nullptr;
        }
        return rt::trackedString(core.flavor(), data);
    });
}

bool isElementType(CMPIType t) {
    switch (t) {
        case CMPI_boolean: case CMPI_char16: case CMPI_real32: case CMPI_real64:
        case CMPI_uint8: case CMPI_uint16: case CMPI_uint32: case CMPI_uint64:
        case CMPI_sint8: case CMPI_sint16: case CMPI_sint32: case CMPI_sint64:
        case CMPI_string: case CMPI_chars: case CMPI_ref: case CMPI_instance: case CMPI_dateTime: return true;
        default: return false;
    }
}

CMPIArray *newArray(const CMPIBroker *mb, CMPICount max, CMPIType type, CMPIStatus *rc) {
    return factory<CMPIArray *>(mb, rc, [&](HostCore &core) -> CMPIArray * {
        CMPIType element = static_cast<CMPIType>(type & ~CMPI_ARRAY);
        if (!isElementType(element)) {
            rt::setRc(rc, CMPI_RC_ERR_INVALID_DATA_TYPE);
            return nullptr;
        }
        if (element == CMPI_chars && core.flavor().charsArraysAsStrings) element = CMPI_string;
        Value::Array elements(max, Value::null(element == CMPI_chars ? CMPIType(CMPI_string) : element));
        return Runtime::make<rt::ArrayObj>(Lifetime::Tracked, core.flavor(), element, std::move(elements))
            ->as<CMPIArray>();
    });
}

CMPIDateTime *makeDateTime(HostCore &core, DateTimeV value) {
    return Runtime::make<rt::DateTimeObj>(Lifetime::Tracked, core.flavor(), value)->as<CMPIDateTime>();
}

CMPIDateTime *newDateTime(const CMPIBroker *mb, CMPIStatus *rc) {
    return factory<CMPIDateTime *>(mb, rc, [&](HostCore &core) {
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        DateTimeV v;
        v.micros = static_cast<uint64_t>(now.tv_sec) * 1000000 + static_cast<uint64_t>(now.tv_nsec / 1000);
        return makeDateTime(core, v);
    });
}

CMPIDateTime *newDateTimeFromBinary(const CMPIBroker *mb, CMPIUint64 binTime, CMPIBoolean interval, CMPIStatus *rc) {
    return factory<CMPIDateTime *>(mb, rc, [&](HostCore &core) {
        DateTimeV v;
        v.micros = binTime;
        v.interval = interval != 0;
        return makeDateTime(core, v);
    });
}

CMPIDateTime *newDateTimeFromChars(const CMPIBroker *mb, const char *utcTime, CMPIStatus *rc) {
    return factory<CMPIDateTime *>(mb, rc, [&](HostCore &core) -> CMPIDateTime * {
        auto v = utcTime != nullptr ? DateTimeV::fromCim(utcTime) : std::nullopt;
        if (!v) {
            rt::setRc(rc, CMPI_RC_ERR_INVALID_PARAMETER);
            return nullptr;
        }
        return makeDateTime(core, *v);
    });
}

// A filter's query (WQL or CQL, see IndicationQuery.h); its FROM class must
// be known. The projection is NULL for "SELECT *", else a string array.
CMPISelectExp *newSelectExp(const CMPIBroker *mb, const char *query, const char *lang, CMPIArray **projection,
                            CMPIStatus *rc) {
    return factory<CMPISelectExp *>(mb, rc, [&](HostCore &core) -> CMPISelectExp * {
        if (projection != nullptr) *projection = nullptr;
        if (query == nullptr || lang == nullptr) {
            rt::setRc(rc, CMPI_RC_ERR_INVALID_PARAMETER);
            return nullptr;
        }
        auto *se = core.makeSelectExp(query, lang, Lifetime::Tracked, rc);
        if (se == nullptr || projection == nullptr || se->query().properties.empty()) return se ? se->as<CMPISelectExp>() : nullptr;
        Value::Array names;
        for (const std::string &p : se->query().properties) names.push_back(Value::string(p));
        *projection = Runtime::make<rt::ArrayObj>(Lifetime::Tracked, core.flavor(), CMPIType(CMPI_string), std::move(names))
                          ->as<CMPIArray>();
        return se->as<CMPISelectExp>();
    });
}

CMPIBoolean classPathIsA(const CMPIBroker *mb, const CMPIObjectPath *op, const char *type, CMPIStatus *rc) {
    return factory<CMPIBoolean>(mb, rc, [&](HostCore &core) -> CMPIBoolean {
        auto *path = Runtime::resolve<rt::ObjectPathObj>(op, rc);
        if (path == nullptr) return 0;
        if (type == nullptr) {
            rt::setRc(rc, CMPI_RC_ERR_INVALID_PARAMETER);
            return 0;
        }
        return core.schema().isA(path->data().className, type) ? 1 : 0;
    });
}

std::string describeNamed(const NamedValues &values) {
    std::string out;
    for (const auto &[name, value] : values) out += (out.empty() ? "" : ", ") + name + "=" + value.toText();
    return out;
}

// A description of any broker object, for debugging.
std::optional<std::string> describe(const void *object) {
    rt::Kind kind;
    if (!Runtime::identify(object, kind)) return std::nullopt;
    switch (kind) {
        case rt::Kind::String: {
            auto *s = Runtime::resolve<rt::StringObj>(object, nullptr);
            return s->isNull() ? std::string("NULL") : s->text();
        }
        case rt::Kind::ObjectPath: return Runtime::resolve<rt::ObjectPathObj>(object, nullptr)->data().toString();
        case rt::Kind::Instance: {
            auto *i = Runtime::resolve<rt::InstanceObj>(object, nullptr);
            return "instance of " + i->data().path.className + " {" + describeNamed(i->data().properties) + "}";
        }
        case rt::Kind::Array: return Runtime::resolve<rt::ArrayObj>(object, nullptr)->toValue().toText();
        case rt::Kind::Args: return describeNamed(Runtime::resolve<rt::ArgsObj>(object, nullptr)->args());
        case rt::Kind::Context: return describeNamed(Runtime::resolve<rt::ContextObj>(object, nullptr)->entries());
        case rt::Kind::DateTime: return Runtime::resolve<rt::DateTimeObj>(object, nullptr)->value().toCim();
        case rt::Kind::Enumeration:
            return "enumeration of " +
                   std::to_string(Runtime::resolve<rt::EnumerationObj>(object, nullptr)->items().size());
        case rt::Kind::Result: return std::string("result");
        case rt::Kind::SelectExp: return Runtime::resolve<rt::SelectExpObj>(object, nullptr)->query().text;
    }
    return std::nullopt;
}

CMPIString *toString(const CMPIBroker *mb, const void *object, CMPIStatus *rc) {
    return factory<CMPIString *>(mb, rc, [&](HostCore &core) -> CMPIString * {
        auto text = describe(object);
        if (!text) {
            rt::setRc(rc, CMPI_RC_ERR_INVALID_HANDLE);
            return nullptr;
        }
        return rt::trackedString(core.flavor(), *text);
    });
}

CMPIBoolean isOfType(const CMPIBroker *mb, const void *object, const char *type, CMPIStatus *rc) {
    return factory<CMPIBoolean>(mb, rc, [&](HostCore &) -> CMPIBoolean {
        rt::Kind kind;
        if (!Runtime::identify(object, kind)) {
            rt::setRc(rc, CMPI_RC_ERR_INVALID_HANDLE);
            return 0;
        }
        return type != nullptr && std::string(type) == rt::kindName(kind) ? 1 : 0;
    });
}

CMPIString *getType(const CMPIBroker *mb, const void *object, CMPIStatus *rc) {
    return factory<CMPIString *>(mb, rc, [&](HostCore &core) -> CMPIString * {
        rt::Kind kind;
        if (!Runtime::identify(object, kind)) {
            rt::setRc(rc, CMPI_RC_ERR_INVALID_HANDLE);
            return nullptr;
        }
        return rt::trackedString(core.flavor(), rt::kindName(kind));
    });
}

// The default message with $0..$9 replaced by the (type, value) pairs.
std::string formatMessage(const char *defMsg, CMPICount count, va_list args) {
    std::vector<std::string> inserts;
    for (CMPICount i = 0; i < count && i < 10; ++i) {
        int type = va_arg(args, int);
        switch (type) {
            case CMPI_sint32: inserts.push_back(std::to_string(va_arg(args, int))); break;
            case CMPI_uint32: inserts.push_back(std::to_string(va_arg(args, unsigned int))); break;
            case CMPI_boolean: inserts.push_back(va_arg(args, int) ? "true" : "false"); break;
            case CMPI_real64: inserts.push_back(std::to_string(va_arg(args, double))); break;
            case CMPI_sint64: inserts.push_back(std::to_string(va_arg(args, long long))); break;
            case CMPI_uint64: inserts.push_back(std::to_string(va_arg(args, unsigned long long))); break;
            case CMPI_chars: {
                const char *s = va_arg(args, const char *);
                inserts.push_back(s != nullptr ? s : "");
                break;
            }
            case CMPI_string: {
                auto *s = Runtime::resolve<rt::StringObj>(va_arg(args, CMPIString *), nullptr);
                inserts.push_back(s != nullptr ? s->text() : "");
                break;
            }
            default: i = count; break;  // an unknown type: its size is unknown too
        }
    }
    std::string out;
    for (const char *p = defMsg != nullptr ? defMsg : ""; *p != '\0'; ++p) {
        if (p[0] == '$' && p[1] >= '0' && p[1] <= '9' && static_cast<size_t>(p[1] - '0') < inserts.size()) {
            out += inserts[static_cast<size_t>(p[1] - '0')];
            ++p;
        } else {
            out += *p;
        }
    }
    return out;
}

CMPIString *messageString(const CMPIBroker *mb, const char *defMsg, CMPIStatus *rc, CMPICount count, va_list args) {
    return factory<CMPIString *>(mb, rc, [&](HostCore &core) {
        return rt::trackedString(core.flavor(), formatMessage(defMsg, count, args));
    });
}

CMPIString *getMessage(const CMPIBroker *mb, const char *, const char *defMsg, CMPIStatus *rc, CMPICount count, ...) {
    va_list args;
    va_start(args, count);
    CMPIString *s = messageString(mb, defMsg, rc, count, args);
    va_end(args);
    return s;
}

CMPIString *getMessage2(const CMPIBroker *mb, const char *, const CMPIMsgFileHandle, const char *defMsg,
                        CMPIStatus *rc, CMPICount count, ...) {
    va_list args;
    va_start(args, count);
    CMPIString *s = messageString(mb, defMsg, rc, count, args);
    va_end(args);
    return s;
}

CMPIStatus logLine(const CMPIBroker *mb, const char *what, int level, const char *id, const char *text,
                   const CMPIString *string) {
    return rt::guardedStatus([&]() -> CMPIStatus {
        CMPIStatus rc = rt::status(CMPI_RC_OK);
        HostCore *core = HostCore::of(mb, &rc);
        if (core == nullptr) return rc;
        std::string message = text != nullptr ? text : "";
        if (string != nullptr) {
            auto *s = Runtime::resolve<rt::StringObj>(string, &rc);
            if (s == nullptr) return rc;
            message = s->text();
        }
        core->log(std::string(what) + "(" + std::to_string(level) + ") " + (id != nullptr ? id : "") + ": " + message);
        return rc;
    });
}

CMPIStatus logMessage(const CMPIBroker *mb, int severity, const char *id, const char *text, const CMPIString *string) {
    return logLine(mb, "log", severity, id, text, string);
}

CMPIStatus trace(const CMPIBroker *mb, int level, const char *component, const char *text, const CMPIString *string) {
    return logLine(mb, "trace", level, component, text, string);
}

CMPIError *newCMPIError(const CMPIBroker *, const char *, const char *, const char *, const CMPIErrorSeverity,
                        const CMPIErrorProbableCause, const CMPIrc, CMPIStatus *rc) {
    rt::setRc(rc, CMPI_RC_ERR_NOT_SUPPORTED);
    return nullptr;
}

// Message files are not read: every message is its default text.
char messageFileToken;

CMPIStatus openMessageFile(const CMPIBroker *, const char *, CMPIMsgFileHandle *handle) {
    if (handle == nullptr) return rt::status(CMPI_RC_ERR_INVALID_PARAMETER);
    *handle = &messageFileToken;
    return rt::status(CMPI_RC_OK);
}

CMPIStatus closeMessageFile(const CMPIBroker *, const CMPIMsgFileHandle) { return rt::status(CMPI_RC_OK); }

}  // namespace

CMPIBrokerEncFT encTable(bool legacy) {
    CMPIBrokerEncFT t{CMPIVersion200, newInstance,   newObjectPath, newArgs,    newString,
                      newArray,       newDateTime,   newDateTimeFromBinary,     newDateTimeFromChars,
                      newSelectExp,   classPathIsA,  toString,      isOfType,   getType,
                      getMessage,     logMessage,    trace,         newCMPIError, openMessageFile,
                      closeMessageFile, getMessage2};
    if (legacy) {
        // A 1.0-level broker: version 1 and no 2.0 services.
        t.ftVersion = 1;
        t.newCMPIError = nullptr;
        t.openMessageFile = nullptr;
        t.closeMessageFile = nullptr;
        t.getMessage2 = nullptr;
    }
    return t;
}

}  // namespace cimhost
