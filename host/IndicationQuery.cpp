#include "IndicationQuery.h"

#include "Value.h"

#include <array>
#include <cctype>

namespace cimhost {

namespace {

bool isNameChar(char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_'; }

class Reader {
public:
    explicit Reader(const std::string &s) : s_(s) {}
    void skipSpace() {
        while (pos_ < s_.size() && std::isspace(static_cast<unsigned char>(s_[pos_])) != 0) ++pos_;
    }
    bool keyword(std::string_view word) {
        skipSpace();
        if (s_.size() - pos_ < word.size() || !iequals(std::string_view(s_).substr(pos_, word.size()), word))
            return false;
        const size_t end = pos_ + word.size();
        if (end < s_.size() && isNameChar(s_[end])) return false;
        pos_ = end;
        return true;
    }
    bool symbol(char c) {
        skipSpace();
        if (pos_ >= s_.size() || s_[pos_] != c) return false;
        ++pos_;
        return true;
    }
    std::string name() {
        skipSpace();
        const size_t start = pos_;
        while (pos_ < s_.size() && isNameChar(s_[pos_])) ++pos_;
        return s_.substr(start, pos_ - start);
    }
    std::string rest() {
        skipSpace();
        std::string r = s_.substr(pos_);
        while (!r.empty() && std::isspace(static_cast<unsigned char>(r.back())) != 0) r.pop_back();
        pos_ = s_.size();
        return r;
    }
    bool atEnd() {
        skipSpace();
        return pos_ == s_.size();
    }

private:
    const std::string &s_;
    size_t pos_ = 0;
};

constexpr std::array<std::string_view, 4> kLanguages{"WQL", "CQL", "DMTF:CQL", "CIM:CQL"};

}  // namespace

std::optional<IndicationQuery> parseIndicationQuery(const std::string &text, const std::string &language,
                                                    CMPIrc &rc, std::string &message) {
    bool known = false;
    for (std::string_view l : kLanguages) known = known || iequals(l, language);
    if (!known) {
        rc = CMPI_RC_ERR_QUERY_LANGUAGE_NOT_SUPPORTED;
        message = "query language '" + language + "' is not supported (WQL, CQL)";
        return std::nullopt;
    }
    rc = CMPI_RC_ERR_INVALID_QUERY;
    IndicationQuery q{text, language, {}, {}, {}};
    Reader r(text);
    if (!r.keyword("SELECT")) {
        message = "the query does not start with SELECT";
        return std::nullopt;
    }
    if (!r.symbol('*')) {
        do {
            std::string p = r.name();
            if (p.empty()) {
                message = "SELECT wants * or property names";
                return std::nullopt;
            }
            q.properties.push_back(std::move(p));
        } while (r.symbol(','));
    }
    if (!r.keyword("FROM") || (q.fromClass = r.name()).empty()) {
        message = "the query names no class after FROM";
        return std::nullopt;
    }
    if (r.keyword("WHERE")) {
        q.where = r.rest();
        if (q.where.empty()) {
            message = "WHERE without a condition";
            return std::nullopt;
        }
    } else if (!r.atEnd()) {
        message = "unexpected text after the class name";
        return std::nullopt;
    }
    rc = CMPI_RC_OK;
    return q;
}

}  // namespace cimhost
