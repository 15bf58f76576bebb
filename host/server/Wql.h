// The WQL of indication filters: SELECT * (or a property list) FROM one
// class, with an optional WHERE condition of comparisons (= <> != < <= > >=)
// between properties and literals, IS [NOT] NULL, ISA, AND, OR, NOT and
// parentheses. Keywords are case-insensitive; strings are quoted with ' or ",
// a doubled quote standing for itself. Conditions follow SQL's three-valued
// logic: a comparison with a NULL property is unknown, and only a condition
// that is true selects an indication.
//
// Text that is not such a query is refused with CMPI_RC_ERR_INVALID_PARAMETER;
// WQL this server does not evaluate (LIKE, joins, several classes, CQL's
// "Class::Property") with CMPI_RC_ERR_NOT_SUPPORTED. Either message names what
// is wrong and where.
#pragma once

#include "Value.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace cimserver::wql {

struct QueryError {
    CMPIrc rc;
    std::string message;
};

struct Node;

class Query {
public:
    // Queries longer than this, or nested deeper, are refused.
    static constexpr std::size_t kMaxLength = 4096;
    static constexpr int kMaxDepth = 32;

    static std::variant<Query, QueryError> parse(std::string_view text);

    const std::string &fromClass() const { return from_; }
    // The SELECT list; nullopt for "*".
    const std::optional<std::vector<std::string>> &selected() const { return selected_; }
    bool hasCondition() const { return where_ != nullptr; }

    // Checks the properties the query names against the FROM class: declared
    // gives a property's CMPI type, or nullopt when the class has none of
    // that name. A literal that cannot be compared with its property's type
    // is refused.
    using Declared = std::function<std::optional<CMPIType>(std::string_view property)>;
    std::optional<QueryError> check(const Declared &declared) const;

    // Whether the indication satisfies the WHERE condition (no condition:
    // every indication does). isA answers class inheritance for ISA.
    using IsA = std::function<bool(std::string_view cls, std::string_view ancestor)>;
    bool matches(const cimhost::InstanceV &indication, const IsA &isA) const;
    // The indication narrowed to the SELECT list.
    cimhost::InstanceV project(const cimhost::InstanceV &indication) const;

private:
    std::string from_;
    std::optional<std::vector<std::string>> selected_;
    std::shared_ptr<const Node> where_;
};

}  // namespace cimserver::wql
