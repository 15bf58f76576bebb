// The two text formats a scrape is answered in: what the Accept header
// chooses, how each kind of family is declared in each, and label values
// that stay on their line.
#include "Exposition.h"

#include <gtest/gtest.h>

#include <limits>

using namespace cimserver;

namespace {

constexpr auto OM = ExpositionFormat::OpenMetrics;
constexpr auto Text = ExpositionFormat::PrometheusText;

}  // namespace

TEST(Exposition, AcceptChoosesTheFormat) {
    const struct {
        const char *accept;  // null: no header
        ExpositionFormat format;
    } cases[] = {
        {nullptr, Text},
        {"*/*", Text},
        {"text/plain;version=0.0.4", Text},
        {"application/openmetrics-text", OM},
        {"Application/OpenMetrics-Text; version=1.0.0", OM},
        {"text/plain;q=0.5, application/openmetrics-text;version=1.0.0;q=0.9", OM},
        {"application/openmetrics-text; q=0", Text},
        {"application/openmetrics-text;q=0.0,text/plain", Text},
        {"application/openmetrics-textual", Text},
        {"application/openmetrics-text; q=bad", OM},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.accept != nullptr ? c.accept : "(none)");
        const std::string header = c.accept != nullptr ? c.accept : "";
        EXPECT_EQ(negotiateFormat(c.accept != nullptr ? &header : nullptr), c.format);
    }
}

TEST(Exposition, EachKindOfFamilyInEachFormat) {
    constexpr MetricFamily counter{"t_requests", MetricType::Counter, "", "Requests"};
    constexpr MetricFamily gauge{"t_size_bytes", MetricType::Gauge, "bytes", "Size"};
    constexpr MetricFamily info{"t_build", MetricType::Info, "", "Build"};
    constexpr MetricFamily states{"t_state", MetricType::StateSet, "", "State"};
    constexpr MetricFamily histogram{"t_wait_seconds", MetricType::Histogram, "seconds", "Wait"};
    static constexpr std::string_view twoStates[] = {"up", "down"};
    static constexpr double bounds[] = {0.001, 0.5};
    static constexpr uint64_t cumulative[] = {1, 3};
    const struct {
        const char *name;
        const MetricFamily *family;
        void (*write)(Exposition &);
        const char *openMetrics, *text;
    } cases[] = {
        {"counter", &counter, [](Exposition &e) { e.sample({{"code", "200"}}, 7); },
         "# HELP t_requests Requests\n# TYPE t_requests counter\nt_requests_total{code=\"200\"} 7\n# EOF\n",
         "# HELP t_requests_total Requests\n# TYPE t_requests_total counter\nt_requests_total{code=\"200\"} 7\n"},
        {"gauge with a unit", &gauge, [](Exposition &e) { e.sample({}, 4000787030016); },
         "# HELP t_size_bytes Size\n# TYPE t_size_bytes gauge\n# UNIT t_size_bytes bytes\nt_size_bytes 4000787030016\n# EOF\n",
         "# HELP t_size_bytes Size\n# TYPE t_size_bytes gauge\nt_size_bytes 4000787030016\n"},
        {"info", &info, [](Exposition &e) { e.info({{"version", "1.2"}}); },
         "# HELP t_build Build\n# TYPE t_build info\nt_build_info{version=\"1.2\"} 1\n# EOF\n",
         "# HELP t_build_info Build\n# TYPE t_build_info gauge\nt_build_info{version=\"1.2\"} 1\n"},
        {"state set", &states, [](Exposition &e) { e.stateSet({{"disk", "1"}}, twoStates, "down"); },
         "# HELP t_state State\n# TYPE t_state stateset\nt_state{disk=\"1\",t_state=\"up\"} 0\n"
         "t_state{disk=\"1\",t_state=\"down\"} 1\n# EOF\n",
         "# HELP t_state State\n# TYPE t_state gauge\nt_state{disk=\"1\",t_state=\"up\"} 0\n"
         "t_state{disk=\"1\",t_state=\"down\"} 1\n"},
        {"state set in no listed state", &states, [](Exposition &e) { e.stateSet({}, twoStates, "gone"); },
         "# HELP t_state State\n# TYPE t_state stateset\nt_state{t_state=\"up\"} 0\nt_state{t_state=\"down\"} 0\n# EOF\n",
         "# HELP t_state State\n# TYPE t_state gauge\nt_state{t_state=\"up\"} 0\nt_state{t_state=\"down\"} 0\n"},
        {"histogram", &histogram, [](Exposition &e) { e.histogram({}, bounds, cumulative, 4, 2.25); },
         "# HELP t_wait_seconds Wait\n# TYPE t_wait_seconds histogram\n# UNIT t_wait_seconds seconds\n"
         "t_wait_seconds_bucket{le=\"0.001\"} 1\nt_wait_seconds_bucket{le=\"0.5\"} 3\nt_wait_seconds_bucket{le=\"+Inf\"} 4\n"
         "t_wait_seconds_sum 2.25\nt_wait_seconds_count 4\n# EOF\n",
         "# HELP t_wait_seconds Wait\n# TYPE t_wait_seconds histogram\n"
         "t_wait_seconds_bucket{le=\"0.001\"} 1\nt_wait_seconds_bucket{le=\"0.5\"} 3\nt_wait_seconds_bucket{le=\"+Inf\"} 4\n"
         "t_wait_seconds_sum 2.25\nt_wait_seconds_count 4\n"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        for (auto [format, expected] : {std::pair{OM, c.openMetrics}, std::pair{Text, c.text}}) {
            Exposition e(format);
            e.family(*c.family);
            c.write(e);
            EXPECT_EQ(e.finish(), expected);
        }
    }
}

TEST(Exposition, LabelValuesStayOnTheirLine) {
    const struct {
        const char *name;
        std::string raw;
        const char *sample;  // as written, after labelText
    } cases[] = {
        {"quote and backslash", R"(a"b\c)", R"(g{v="a\"b\\c"} 1)"},
        {"line end and control characters", "a\nb\r\x01", R"(g{v="a?b??"} 1)"},
        {"bytes beyond ASCII", "caf\xc3\xa9", R"(g{v="caf??"} 1)"},
        {"a long value", std::string(300, 'x'), nullptr},
    };
    constexpr MetricFamily g{"g", MetricType::Gauge, "", "G"};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        Exposition e(Text);
        e.family(g);
        e.sample({{"v", labelText(c.raw)}}, 1);
        const std::string text = e.finish();
        const std::string last = text.substr(text.rfind('\n', text.size() - 2) + 1);
        if (c.sample != nullptr) {
            EXPECT_EQ(last, std::string(c.sample) + "\n");
        }
        EXPECT_LE(last.size(), 128u + 16u);
    }
}

TEST(Exposition, NumbersAsPrometheusReadsThem) {
    const struct {
        double value;
        const char *text;
    } cases[] = {
        {0, "0"}, {-3, "-3"}, {4.11, "4.11"}, {0.0005, "0.0005"}, {16003148120064, "16003148120064"},
        {1e20, "1e+20"}, {1e-9, "1e-09"}, {std::numeric_limits<double>::infinity(), "+Inf"},
        {std::numeric_limits<double>::quiet_NaN(), "NaN"},
    };
    constexpr MetricFamily g{"g", MetricType::Gauge, "", "G"};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        Exposition e(Text);
        e.family(g);
        e.sample({}, c.value);
        EXPECT_EQ(e.finish(), std::string("# HELP g G\n# TYPE g gauge\ng ") + c.text + "\n");
    }
}
