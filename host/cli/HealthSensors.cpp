#include "HealthSensors.h"

#include <cctype>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <string>

namespace cimhost::cli {
namespace {

std::string num(double v) { return readingText(v); }

// Labels keep letters, digits, '.', '-' and '_'; anything else (spaces, '=',
// quotes) becomes '_', so no label needs quoting.
std::string labelPart(const std::string &text) {
    std::string out = text;
    for (char &c : out)
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '.' && c != '-' && c != '_') c = '_';
    return out;
}

struct SensorJudgement {
    State state = State::Ok;
    std::string problem;
    std::string warn, crit;  // plugin ranges for the performance data
};

// The nominal voltage a sensor's name gives ("12V", "3.3V", "+5V"), if any.
std::optional<double> nominalVolts(const std::string &name) {
    for (size_t i = 0; i < name.size(); ++i) {
        if (!std::isdigit(static_cast<unsigned char>(name[i]))) continue;
        char *end = nullptr;
        const double v = std::strtod(name.c_str() + i, &end);
        if ((*end == 'V' || *end == 'v') && v > 0) return v;
        i = static_cast<size_t>(end - name.c_str());
    }
    return std::nullopt;
}

SensorJudgement judgeTemperature(double reading, const std::string &, const HealthLimits &l) {
    SensorJudgement j{State::Ok, "", num(l.temperatureWarning), num(l.temperatureCritical)};
    const double limit = reading > l.temperatureCritical ? l.temperatureCritical : l.temperatureWarning;
    if (reading > limit) {
        j.state = reading > l.temperatureCritical ? State::Critical : State::Warning;
        j.problem = num(reading) + " C (above " + num(limit) + " C)";
    }
    return j;
}

SensorJudgement judgeVoltage(double reading, const std::string &name, const HealthLimits &l) {
    const std::optional<double> nominal = nominalVolts(name);
    if (!nominal) return {};
    const auto range = [&](double percent) {
        return num(*nominal * (1 - percent / 100)) + ":" + num(*nominal * (1 + percent / 100));
    };
    SensorJudgement j{State::Ok, "", range(l.voltageWarning), range(l.voltageCritical)};
    const double off = std::abs(reading - *nominal) / *nominal * 100;
    const double percent = off > l.voltageCritical ? l.voltageCritical : l.voltageWarning;
    if (off > percent) {
        j.state = off > l.voltageCritical ? State::Critical : State::Warning;
        j.problem = num(reading) + " V (more than " + num(percent) + "% off " + num(*nominal) + " V)";
    }
    return j;
}

SensorJudgement judgeFan(double reading, const std::string &, const HealthLimits &l) {
    SensorJudgement j{State::Ok, "", "", num(l.fanMinimum) + ":"};
    if (reading < l.fanMinimum) {
        j.state = State::Critical;
        j.problem = reading == 0 ? "stopped" : num(reading) + " RPM (below " + num(l.fanMinimum) + " RPM)";
    }
    return j;
}

SensorJudgement judgePower(double reading, const std::string &, const HealthLimits &) {
    if (reading != 0) return {};
    return {State::Warning, "power supply off", "", ""};
}

struct SensorKind {
    uint64_t type;           // the SensorTypes code
    const char *perfPrefix;  // nullptr: no performance data
    const char *uom;
    std::string (*shown)(double reading);  // the reading in the listing
    SensorJudgement (*judge)(double reading, const std::string &name, const HealthLimits &);
};

constexpr SensorKind kSensorKinds[] = {
    {1, "fan", "", [](double r) { return num(r) + " RPM"; }, judgeFan},
    {2, "volt", "V", [](double r) { return num(r) + " V"; }, judgeVoltage},
    {3, "temp", "C", [](double r) { return num(r) + " C"; }, judgeTemperature},
    {4, nullptr, "", [](double r) { return std::string(r != 0 ? "on" : "off"); }, judgePower},
};

}  // namespace

std::string readingText(double v) { return realText(CMPI_real32, v); }

std::vector<SensorVerdict> judgeSensors(const Snapshot &adapter, const HealthLimits &limits) {
    std::vector<SensorVerdict> out;
    for (const InstanceV &chassis : adapter.of("Tovra_Chassis")) {
        const std::string enclosure = text(chassis, "ElementName");
        const auto &names = list(chassis, "SensorNames");
        const auto &types = list(chassis, "SensorTypes");
        const auto &readings = list(chassis, "SensorReadings");
        for (size_t i = 0; i < names.size() && i < types.size() && i < readings.size(); ++i) {
            const std::string name = names[i].toText();
            const double reading = readings[i].asReal();
            const SensorKind *kind = nullptr;
            for (const SensorKind &k : kSensorKinds)
                if (k.type == types[i].asUnsigned()) kind = &k;
            SensorVerdict &v = out.emplace_back();
            v.component = {"sensor", enclosure + " " + name, State::Ok, "reading " + num(reading)};
            if (!std::isfinite(reading)) {  // a value no limit can judge
                v.component.state = State::Warning;
                v.component.detail = "reading not a number (" + num(reading) + ")";
                continue;
            }
            if (kind == nullptr) continue;
            const SensorJudgement s = kind->judge(reading, name, limits);
            v.component.state = s.state;
            v.component.detail = s.state != State::Ok ? s.problem : kind->shown(reading);
            if (kind->perfPrefix != nullptr)
                v.perf = PerfDatum{std::string(kind->perfPrefix) + "_" + labelPart(enclosure) + "_" + labelPart(name),
                                   reading, kind->uom, s.warn, s.crit, "", ""};
        }
    }
    return out;
}

}  // namespace cimhost::cli
