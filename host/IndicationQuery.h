// The filter queries a subscription gives: the WQL subset
// "SELECT * | p1, p2 FROM <class> [WHERE <condition>]", keywords in any case.
#pragma once

#include <cmpidt.h>

#include <optional>
#include <string>
#include <vector>

namespace cimhost {

struct IndicationQuery {
    std::string text;
    std::string language;
    std::vector<std::string> properties;  // empty: "*"
    std::string fromClass;
    std::string where;  // the condition as written; empty: none
};

// Reads a query; on failure rc is CMPI_RC_ERR_QUERY_LANGUAGE_NOT_SUPPORTED
// (languages: WQL, CQL, DMTF:CQL, CIM:CQL) or CMPI_RC_ERR_INVALID_QUERY, and
// message says why.
std::optional<IndicationQuery> parseIndicationQuery(const std::string &text, const std::string &language,
                                                    CMPIrc &rc, std::string &message);

}  // namespace cimhost
