// Writes metric families in the OpenMetrics text format (1.0.0) or in the
// Prometheus text format (0.0.4), from one description of each family. The
// formats differ in how counters, info and state-set families are declared
// (OpenMetrics names the family, 0.0.4 the sample; 0.0.4 has no info or state
// set, which become gauges), in the UNIT line and in the closing "# EOF".
#pragma once

#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace cimserver {

enum class ExpositionFormat { OpenMetrics, PrometheusText };

// OpenMetrics when the Accept header asks for it (with a quality above 0),
// the Prometheus text format otherwise.
ExpositionFormat negotiateFormat(const std::string *accept);
const char *contentTypeOf(ExpositionFormat format);

enum class MetricType { Gauge, Counter, StateSet, Info, Histogram };

// One family. name is the OpenMetrics family name: without "_total" for a
// counter, without "_info" for an info family; unit, when given, ends name.
struct MetricFamily {
    std::string_view name;
    MetricType type;
    std::string_view unit;
    std::string_view help;
};

struct Label {
    std::string_view name;
    std::string value;
};
using Labels = std::vector<Label>;

class Exposition {
public:
    explicit Exposition(ExpositionFormat format) : format_(format) {}

    // Starts a family: its HELP, TYPE and UNIT lines. Every sample up to the
    // next family belongs to it.
    void family(const MetricFamily &f);
    // A gauge's or a counter's value.
    void sample(const Labels &labels, double value);
    // One sample per state, 1 for the current one; a state not listed makes
    // every sample 0.
    void stateSet(const Labels &labels, std::span<const std::string_view> states, std::string_view current);
    void info(const Labels &labels);
    // Cumulative counts per upper bound (bounds ascending; +Inf is added).
    void histogram(const Labels &labels, std::span<const double> bounds, std::span<const uint64_t> cumulative,
                   uint64_t count, double sum);

    // The whole text; the writer is empty afterwards.
    std::string finish();

private:
    void line(std::string_view suffix, const Labels &labels, const Label *extra, double value);

    ExpositionFormat format_;
    const MetricFamily *current_ = nullptr;
    std::string out_;
};

// A label value as a client can rely on: printable ASCII only (anything else
// becomes '?'), at most 128 characters. The writer escapes it.
std::string labelText(std::string_view text);

}  // namespace cimserver
