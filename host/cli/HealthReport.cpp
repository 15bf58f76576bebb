#include "HealthReport.h"

#include "HealthSensors.h"

#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <future>
#include <iostream>
#include <thread>

namespace cimhost::cli {
namespace {

constexpr size_t kSummaryProblems = 5;

std::string num(double v) { return readingText(v); }

}  // namespace

std::string summary(const Verdict &verdict) {
    if (verdict.state == State::Unknown) return verdict.reason;
    const auto problems = verdict.problems();
    std::string out;
    if (problems.empty()) return verdict.overview + ": all OK";
    for (size_t i = 0; i < problems.size() && i < kSummaryProblems; ++i)
        out += (i == 0 ? "" : "; ") + problems[i]->name + " " + problems[i]->detail;
    if (problems.size() > kSummaryProblems)
        out += "; and " + std::to_string(problems.size() - kSummaryProblems) + " more";
    return out;
}

std::string perfText(const std::vector<PerfDatum> &perfdata) {
    std::string out;
    for (const PerfDatum &p : perfdata) {
        std::string item = p.label + "=" + num(p.value) + p.uom;
        const std::string fields[] = {p.warn, p.crit, p.min, p.max};
        size_t used = std::size(fields);
        while (used > 0 && fields[used - 1].empty()) --used;
        for (size_t i = 0; i < used; ++i) item += ";" + fields[i];
        out += (out.empty() ? "" : " ") + item;
    }
    return out;
}

std::string firstLine(const Verdict &verdict) {
    std::string line = std::string("TOVRA ") + stateName(verdict.state) + " - " + summary(verdict);
    if (!verdict.perfdata.empty()) line += " | " + perfText(verdict.perfdata);
    return line;
}

Json toJson(const Verdict &verdict) {
    const auto component = [](const Component &c) {
        return Json{{"kind", c.kind}, {"name", c.name}, {"state", stateName(c.state)}, {"detail", c.detail}};
    };
    Json doc = {{"state", stateName(verdict.state)},
                {"exitCode", static_cast<int>(verdict.state)},
                {"summary", summary(verdict)}};
    Json problems = Json::array(), components = Json::array(), perfdata = Json::array();
    for (const Component *c : verdict.problems()) problems.push_back(component(*c));
    for (const Component &c : verdict.components) components.push_back(component(c));
    for (const PerfDatum &p : verdict.perfdata) {
        // The value as the text shows it (12.08, not the float's 12.0799999...);
        // JSON has no NaN or infinity.
        Json item = {{"label", p.label}, {"value", std::isfinite(p.value) ? Json::parse(num(p.value)) : Json()}};
        const std::pair<const char *, const std::string *> optional[] = {
            {"uom", &p.uom}, {"warn", &p.warn}, {"crit", &p.crit}, {"min", &p.min}, {"max", &p.max}};
        for (const auto &[name, value] : optional)
            if (!value->empty()) item[name] = *value;
        perfdata.push_back(std::move(item));
    }
    doc["problems"] = std::move(problems);
    doc["components"] = std::move(components);
    doc["perfdata"] = std::move(perfdata);
    return doc;
}

void printVerdict(const Verdict &verdict, std::ostream &out, bool verbose, bool json) {
    if (json) {
        out << toJson(verdict).dump(2) << '\n';
        return;
    }
    out << firstLine(verdict) << '\n';
    if (!verbose) return;
    for (const Component &c : verdict.components)
        out << '[' << stateName(c.state) << "] " << c.kind << ": " << c.name << ' ' << c.detail << '\n';
}

int runHealth(std::function<Verdict()> check, double timeoutSeconds, bool verbose, bool json) {
    // Shared with the thread, which may outlive this frame's wait.
    auto answer = std::make_shared<std::promise<Verdict>>();
    std::future<Verdict> verdict = answer->get_future();
    std::thread worker([answer, check = std::move(check)] {
        Verdict v;
        try {
            v = check();
        } catch (const std::exception &e) {
            v = unknownVerdict(e.what());
        }
        answer->set_value(std::move(v));
    });
    if (verdict.wait_for(std::chrono::duration<double>(timeoutSeconds)) != std::future_status::ready) {
        printVerdict(unknownVerdict("no answer from the adapter within " + num(timeoutSeconds) + " s"), std::cout,
                     false, json);
        std::cout.flush();
        std::fflush(nullptr);
        _exit(static_cast<int>(State::Unknown));  // the provider call may never return
    }
    worker.join();
    const Verdict v = verdict.get();
    printVerdict(v, std::cout, verbose, json);
    return static_cast<int>(v.state);
}

}  // namespace cimhost::cli
