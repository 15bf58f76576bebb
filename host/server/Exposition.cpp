#include "Exposition.h"

#include "Host.h"

#include <charconv>
#include <cmath>

namespace cimserver {

namespace {

std::string_view trimmed(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
    return s;
}

// The q parameter of one media range; 1 when absent or unreadable.
double quality(std::string_view params) {
    while (!params.empty()) {
        std::size_t semi = params.find(';');
        std::string_view param = trimmed(params.substr(0, semi));
        params = semi == std::string_view::npos ? std::string_view() : params.substr(semi + 1);
        if (param.size() < 2 || (param[0] != 'q' && param[0] != 'Q') || param[1] != '=') continue;
        std::string_view number = param.substr(2);
        double q = 1;
        auto [end, ec] = std::from_chars(number.data(), number.data() + number.size(), q);
        return ec == std::errc() && end == number.data() + number.size() ? q : 1;
    }
    return 1;
}

void appendNumber(std::string &out, double v) {
    if (std::isnan(v)) {
        out += "NaN";
    } else if (std::isinf(v)) {
        out += v > 0 ? "+Inf" : "-Inf";
    } else {
        // Plain decimals where they stay short (capacities, bucket bounds),
        // the shortest exact form otherwise.
        char text[64];
        const double magnitude = std::fabs(v);
        const bool fixed = v == 0 || (magnitude >= 1e-6 && magnitude < 1e17);
        auto [end, ec] = fixed ? std::to_chars(text, text + sizeof text, v, std::chars_format::fixed)
                               : std::to_chars(text, text + sizeof text, v);
        out.append(text, ec == std::errc() ? end : text);
    }
}

void appendEscapedValue(std::string &out, std::string_view value) {
    for (char c : value) {
        if (c == '\\')
            out += "\\\\";
        else if (c == '"')
            out += "\\\"";
        else if (c == '\n')
            out += "\\n";
        else
            out += c;
    }
}

std::string_view typeName(MetricType type, ExpositionFormat format) {
    const bool om = format == ExpositionFormat::OpenMetrics;
    switch (type) {
        case MetricType::Gauge: return "gauge";
        case MetricType::Counter: return "counter";
        case MetricType::StateSet: return om ? "stateset" : "gauge";
        case MetricType::Info: return om ? "info" : "gauge";
        case MetricType::Histogram: return "histogram";
    }
    return "unknown";
}

// The name a family is declared under: 0.0.4 names the sample.
std::string declaredName(const MetricFamily &f, ExpositionFormat format) {
    std::string name(f.name);
    if (format == ExpositionFormat::PrometheusText) {
        if (f.type == MetricType::Counter) name += "_total";
        if (f.type == MetricType::Info) name += "_info";
    }
    return name;
}

}  // namespace

ExpositionFormat negotiateFormat(const std::string *accept) {
    if (accept == nullptr) return ExpositionFormat::PrometheusText;
    std::string_view ranges = *accept;
    while (!ranges.empty()) {
        std::size_t comma = ranges.find(',');
        std::string_view range = ranges.substr(0, comma);
        ranges = comma == std::string_view::npos ? std::string_view() : ranges.substr(comma + 1);
        std::size_t semi = range.find(';');
        std::string_view type = trimmed(range.substr(0, semi));
        if (cimhost::iequals(type, "application/openmetrics-text") &&
            (semi == std::string_view::npos || quality(range.substr(semi + 1)) > 0))
            return ExpositionFormat::OpenMetrics;
    }
    return ExpositionFormat::PrometheusText;
}

const char *contentTypeOf(ExpositionFormat format) {
    return format == ExpositionFormat::OpenMetrics ? "application/openmetrics-text; version=1.0.0; charset=utf-8"
                                                   : "text/plain; version=0.0.4; charset=utf-8";
}

std::string labelText(std::string_view text) {
    constexpr std::size_t kMax = 128;
    std::string out;
    for (std::size_t i = 0; i < text.size() && out.size() < kMax; ++i) {
        auto c = static_cast<unsigned char>(text[i]);
        out += c >= 0x20 && c < 0x7f ? static_cast<char>(c) : '?';
    }
    return out;
}

void Exposition::family(const MetricFamily &f) {
    current_ = &f;
    const std::string name = declaredName(f, format_);
    out_ += "# HELP ";
    out_ += name;
    out_ += ' ';
    for (char c : f.help) out_ += c == '\n' ? ' ' : c;  // help texts are ours: no backslash to escape
    out_ += "\n# TYPE ";
    out_ += name;
    out_ += ' ';
    out_ += typeName(f.type, format_);
    out_ += '\n';
    if (format_ == ExpositionFormat::OpenMetrics && !f.unit.empty()) {
        out_ += "# UNIT ";
        out_ += name;
        out_ += ' ';
        out_ += f.unit;
        out_ += '\n';
    }
}

void Exposition::line(std::string_view suffix, const Labels &labels, const Label *extra, double value) {
    out_ += current_->name;
    out_ += suffix;
    if (!labels.empty() || extra != nullptr) {
        char separator = '{';
        auto add = [&](const Label &l) {
            out_ += separator;
            out_ += l.name;
            out_ += "=\"";
            appendEscapedValue(out_, l.value);
            out_ += '"';
            separator = ',';
        };
        for (const Label &l : labels) add(l);
        if (extra != nullptr) add(*extra);
        out_ += '}';
    }
    out_ += ' ';
    appendNumber(out_, value);
    out_ += '\n';
}

void Exposition::sample(const Labels &labels, double value) {
    line(current_->type == MetricType::Counter ? "_total" : "", labels, nullptr, value);
}

void Exposition::stateSet(const Labels &labels, std::span<const std::string_view> states, std::string_view current) {
    for (std::string_view state : states) {
        Label which{current_->name, std::string(state)};
        line("", labels, &which, state == current ? 1 : 0);
    }
}

void Exposition::info(const Labels &labels) { line("_info", labels, nullptr, 1); }

void Exposition::histogram(const Labels &labels, std::span<const double> bounds, std::span<const uint64_t> cumulative,
                           uint64_t count, double sum) {
    for (std::size_t i = 0; i < bounds.size() && i < cumulative.size(); ++i) {
        Label le{"le", {}};
        appendNumber(le.value, bounds[i]);
        line("_bucket", labels, &le, static_cast<double>(cumulative[i]));
    }
    Label inf{"le", "+Inf"};
    line("_bucket", labels, &inf, static_cast<double>(count));
    line("_sum", labels, nullptr, sum);
    line("_count", labels, nullptr, static_cast<double>(count));
}

std::string Exposition::finish() {
    if (format_ == ExpositionFormat::OpenMetrics) out_ += "# EOF\n";
    current_ = nullptr;
    std::string text = std::move(out_);
    out_.clear();
    return text;
}

}  // namespace cimserver
