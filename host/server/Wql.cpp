#include "Wql.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdlib>

namespace cimserver::wql {

using cimhost::DateTimeV;
using cimhost::iequals;
using cimhost::InstanceV;
using cimhost::Value;

namespace {

struct Failure {
    QueryError error;
};

[[noreturn]] void refuse(CMPIrc rc, std::string message) { throw Failure{{rc, std::move(message)}}; }
[[noreturn]] void invalid(std::string message) { refuse(CMPI_RC_ERR_INVALID_PARAMETER, std::move(message)); }
[[noreturn]] void unsupported(std::string message) { refuse(CMPI_RC_ERR_NOT_SUPPORTED, std::move(message)); }

// ---- tokens -----------------------------------------------------------------

struct Token {
    enum class Kind { Word, String, Number, Op, LParen, RParen, Comma, Star, Dot, Scope, End };
    Kind kind = Kind::End;
    std::string text;
    std::size_t at = 0;  // 1-based position in the query, for messages
};

std::string where(const Token &t) {
    return t.kind == Token::Kind::End ? "at the end of the query" : "at position " + std::to_string(t.at);
}

bool wordStart(char c) { return std::isalpha(static_cast<unsigned char>(c)) != 0 || c == '_'; }
bool wordPart(char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_'; }
bool digit(char c) { return c >= '0' && c <= '9'; }

std::vector<Token> tokens(std::string_view q) {
    std::vector<Token> out;
    std::size_t i = 0;
    auto add = [&](Token::Kind kind, std::size_t from, std::string text) {
        out.push_back({kind, std::move(text), from + 1});
    };
    while (i < q.size()) {
        char c = q[i];
        std::size_t from = i;
        if (c == ' ' || c == '\t' || c == '\n' || c == '\r') {
            ++i;
        } else if (wordStart(c)) {
            while (i < q.size() && wordPart(q[i])) ++i;
            add(Token::Kind::Word, from, std::string(q.substr(from, i - from)));
        } else if (c == '\'' || c == '"') {
            std::string text;
            for (++i;; ++i) {
                if (i >= q.size()) invalid("the string starting at position " + std::to_string(from + 1) + " is not closed");
                if (q[i] == c) {
                    if (i + 1 < q.size() && q[i + 1] == c) {
                        text += c;
                        ++i;
                        continue;
                    }
                    ++i;
                    break;
                }
                text += q[i];
            }
            add(Token::Kind::String, from, std::move(text));
        } else if (digit(c) || ((c == '-' || c == '+') && i + 1 < q.size() && (digit(q[i + 1]) || q[i + 1] == '.')) ||
                   (c == '.' && i + 1 < q.size() && digit(q[i + 1]))) {
            ++i;
            while (i < q.size() && (wordPart(q[i]) || q[i] == '.' ||
                                    ((q[i] == '-' || q[i] == '+') && (q[i - 1] == 'e' || q[i - 1] == 'E'))))
                ++i;
            add(Token::Kind::Number, from, std::string(q.substr(from, i - from)));
        } else if (c == '<' || c == '>' || c == '=' || c == '!') {
            std::string op(1, c);
            if (i + 1 < q.size() && (q[i + 1] == '=' || (c == '<' && q[i + 1] == '>'))) op += q[i + 1];
            if (op == "!") invalid("'!' at position " + std::to_string(from + 1) + " is not an operator (use <> or !=)");
            if (op == "==") invalid("'==' at position " + std::to_string(from + 1) + " is not an operator (use =)");
            i += op.size();
            add(Token::Kind::Op, from, op);
        } else if (c == ':' && i + 1 < q.size() && q[i + 1] == ':') {
            i += 2;
            add(Token::Kind::Scope, from, "::");
        } else {
            const Token::Kind kind = c == '(' ? Token::Kind::LParen
                                     : c == ')' ? Token::Kind::RParen
                                     : c == ',' ? Token::Kind::Comma
                                     : c == '*' ? Token::Kind::Star
                                     : c == '.' ? Token::Kind::Dot
                                                : Token::Kind::End;
            if (kind == Token::Kind::End) {
                auto u = static_cast<unsigned char>(c);
                std::string shown = u >= 0x20 && u < 0x7F ? std::string("'") + c + "'" : "byte " + std::to_string(u);
                invalid("unexpected " + shown + " at position " + std::to_string(from + 1));
            }
            ++i;
            add(kind, from, std::string(1, c));
        }
    }
    out.push_back({Token::Kind::End, {}, q.size() + 1});
    return out;
}

// ---- the tree ---------------------------------------------------------------

struct Literal {
    enum class Kind { String, Number, Boolean, Null };
    Kind kind = Kind::Null;
    std::string text;
    long double number = 0;
    bool boolean = false;
};

struct Operand {
    std::vector<std::string> path;  // a property (SourceInstance.Name: two parts); empty for a literal
    Literal literal;
    std::size_t at = 0;
    bool isProperty() const { return !path.empty(); }
    std::string name() const {
        std::string s;
        for (const std::string &p : path) s += (s.empty() ? "" : ".") + p;
        return s;
    }
};

enum class Op { Eq, Ne, Lt, Le, Gt, Ge };

}  // namespace

struct Node {
    enum class Kind { And, Or, Not, Compare, IsNull, Isa };
    Kind kind;
    std::vector<std::shared_ptr<const Node>> kids;
    Operand left, right;
    Op op = Op::Eq;
    bool negated = false;  // IS NOT NULL
    std::string cls;       // ISA
};

namespace {

bool keyword(const Token &t, const char *word) { return t.kind == Token::Kind::Word && iequals(t.text, word); }

constexpr const char *kReserved[] = {"SELECT", "FROM", "WHERE", "AND", "OR", "NOT", "IS", "NULL", "ISA", "TRUE",
                                     "FALSE", "LIKE"};
bool reserved(const Token &t) {
    return t.kind == Token::Kind::Word &&
           std::any_of(std::begin(kReserved), std::end(kReserved), [&](const char *w) { return iequals(t.text, w); });
}

// Words after the FROM class that belong to SQL this server does not evaluate.
constexpr const char *kUnsupportedClauses[] = {"JOIN", "INNER", "LEFT", "RIGHT", "FULL", "CROSS", "GROUP",
                                               "ORDER", "HAVING", "WITHIN", "UNION", "LIMIT", "AS"};

std::optional<long double> number(const std::string &text) {
    std::string s = text;
    bool negative = false;
    if (!s.empty() && (s[0] == '-' || s[0] == '+')) negative = s[0] == '-', s.erase(0, 1);
    if (s.size() > 2 && s[0] == '0' && (s[1] == 'x' || s[1] == 'X')) {
        std::uint64_t v = 0;
        auto [end, ec] = std::from_chars(s.data() + 2, s.data() + s.size(), v, 16);
        if (ec != std::errc() || end != s.data() + s.size()) return std::nullopt;
        return negative ? -static_cast<long double>(v) : static_cast<long double>(v);
    }
    if (s.empty() || s.find_first_not_of("0123456789.eE+-") != std::string::npos) return std::nullopt;
    char *end = nullptr;
    long double v = std::strtold(s.c_str(), &end);
    if (end != s.c_str() + s.size()) return std::nullopt;
    return negative ? -v : v;
}

class Parser {
public:
    explicit Parser(std::string_view text) : tokens_(tokens(text)) {}

    void query(std::string &from, std::optional<std::vector<std::string>> &selected,
               std::shared_ptr<const Node> &where) {
        if (!keyword(peek(), "SELECT")) invalid("a query starts with SELECT (" + found(peek()) + ")");
        next();
        if (peek().kind == Token::Kind::Star) {
            next();
        } else {
            selected.emplace();
            for (;;) {
                selected->push_back(propertyName("a property name or * after SELECT"));
                if (peek().kind != Token::Kind::Comma) break;
                next();
            }
        }
        if (!keyword(peek(), "FROM")) invalid("expected FROM " + where_(peek()) + " (" + found(peek()) + ")");
        next();
        const Token &cls = peek();
        if (cls.kind != Token::Kind::Word || reserved(cls)) invalid("expected a class name after FROM " + where_(cls));
        from = next().text;
        if (peek().kind == Token::Kind::Comma)
            unsupported("a query on several classes is not supported (" + where_(peek()) + "); filter one class");
        for (const char *w : kUnsupportedClauses)
            if (keyword(peek(), w)) unsupported(std::string(w) + " " + where_(peek()) + " is not supported in a filter");
        if (keyword(peek(), "WHERE")) {
            next();
            where = disjunction(0);
        }
        if (peek().kind != Token::Kind::End) invalid("unexpected " + found(peek()) + " " + where_(peek()));
    }

private:
    static std::string where_(const Token &t) { return wql::where(t); }
    static std::string found(const Token &t) {
        return t.kind == Token::Kind::End ? "nothing" : "'" + t.text + "'";
    }
    const Token &peek() const { return tokens_[pos_]; }
    const Token &next() { return tokens_[pos_ < tokens_.size() - 1 ? pos_++ : pos_]; }

    std::string propertyName(const char *expected) {
        const Token &t = peek();
        if (t.kind != Token::Kind::Word || reserved(t)) invalid(std::string("expected ") + expected + " " + where_(t));
        next();
        if (peek().kind == Token::Kind::Scope)
            unsupported("'" + t.text + "::' " + where_(peek()) + " is CQL, not WQL");
        return t.text;
    }

    void deeper(int depth) const {
        if (depth > Query::kMaxDepth) invalid("the condition is nested more than " + std::to_string(Query::kMaxDepth) + " deep");
    }

    std::shared_ptr<const Node> joined(Node::Kind kind, const char *word, int depth,
                                       std::shared_ptr<const Node> (Parser::*part)(int)) {
        auto first = (this->*part)(depth);
        if (!keyword(peek(), word)) return first;
        auto node = std::make_shared<Node>(Node{kind, {first}, {}, {}, Op::Eq, false, {}});
        while (keyword(peek(), word)) {
            next();
            node->kids.push_back((this->*part)(depth));
        }
        return node;
    }
    std::shared_ptr<const Node> disjunction(int depth) {
        return joined(Node::Kind::Or, "OR", depth, &Parser::conjunction);
    }
    std::shared_ptr<const Node> conjunction(int depth) {
        return joined(Node::Kind::And, "AND", depth, &Parser::negation);
    }
    std::shared_ptr<const Node> negation(int depth) {
        deeper(depth);
        if (keyword(peek(), "NOT")) {
            next();
            return std::make_shared<Node>(Node{Node::Kind::Not, {negation(depth + 1)}, {}, {}, Op::Eq, false, {}});
        }
        if (peek().kind == Token::Kind::LParen) {
            next();
            auto inner = disjunction(depth + 1);
            if (peek().kind != Token::Kind::RParen) invalid("expected ')' " + where_(peek()));
            next();
            return inner;
        }
        return comparison();
    }

    Operand operand() {
        const Token &t = peek();
        Operand o;
        o.at = t.at;
        switch (t.kind) {
            case Token::Kind::String:
                o.literal = {Literal::Kind::String, t.text, 0, false};
                next();
                return o;
            case Token::Kind::Number: {
                auto v = number(t.text);
                if (!v) invalid("'" + t.text + "' " + where_(t) + " is not a number");
                o.literal = {Literal::Kind::Number, t.text, *v, false};
                next();
                return o;
            }
            case Token::Kind::Word:
                if (keyword(t, "TRUE") || keyword(t, "FALSE")) {
                    o.literal = {Literal::Kind::Boolean, t.text, 0, keyword(t, "TRUE")};
                    next();
                    return o;
                }
                if (keyword(t, "NULL")) {
                    o.literal = {Literal::Kind::Null, t.text, 0, false};
                    next();
                    return o;
                }
                o.path.push_back(propertyName("a property or a literal"));
                while (peek().kind == Token::Kind::Dot) {
                    next();
                    o.path.push_back(propertyName("a property name after '.'"));
                }
                return o;
            default: invalid("expected a property or a literal " + where_(t) + " (" + found(t) + ")");
        }
    }

    std::shared_ptr<const Node> comparison() {
        Operand left = operand();
        const Token &t = peek();
        if (keyword(t, "IS")) {
            next();
            bool negated = false;
            if (keyword(peek(), "NOT")) {
                next();
                negated = true;
            }
            if (!keyword(peek(), "NULL")) invalid("expected NULL after IS " + where_(peek()));
            next();
            if (!left.isProperty()) invalid("IS NULL " + where_(t) + " needs a property on its left");
            return std::make_shared<Node>(Node{Node::Kind::IsNull, {}, left, {}, Op::Eq, negated, {}});
        }
        if (keyword(t, "ISA")) {
            next();
            const Token &cls = peek();
            if (cls.kind != Token::Kind::Word || reserved(cls)) invalid("expected a class name after ISA " + where_(cls));
            next();
            if (!left.isProperty()) invalid("ISA " + where_(t) + " needs an embedded instance property on its left");
            return std::make_shared<Node>(Node{Node::Kind::Isa, {}, left, {}, Op::Eq, false, cls.text});
        }
        if (keyword(t, "LIKE")) unsupported("LIKE " + where_(t) + " is not supported; compare with =");
        if (t.kind != Token::Kind::Op) invalid("expected a comparison operator " + where_(t) + " (" + found(t) + ")");
        next();
        const Op op = t.text == "=" ? Op::Eq
                      : t.text == "<>" || t.text == "!=" ? Op::Ne
                      : t.text == "<" ? Op::Lt
                      : t.text == "<=" ? Op::Le
                      : t.text == ">" ? Op::Gt
                                      : Op::Ge;
        Operand right = operand();
        for (const Operand *o : {&left, &right})
            if (!o->isProperty() && o->literal.kind == Literal::Kind::Null)
                invalid("NULL at position " + std::to_string(o->at) + " cannot be compared; use IS NULL");
        return std::make_shared<Node>(Node{Node::Kind::Compare, {}, left, right, op, false, {}});
    }

    std::vector<Token> tokens_;
    std::size_t pos_ = 0;
};

// ---- evaluation -------------------------------------------------------------

enum class Tri { False, True, Unknown };

Tri notOf(Tri t) { return t == Tri::Unknown ? t : t == Tri::True ? Tri::False : Tri::True; }

// A value in the form comparisons take.
using Comparable = std::variant<std::monostate, long double, std::string, bool, DateTimeV>;

Comparable comparable(const Value *v) {
    if (v == nullptr || v->isNull() || v->isArray()) return {};
    const CMPIType t = v->type();
    if (cimhost::isSignedType(t)) return static_cast<long double>(v->asSigned());
    if (cimhost::isUnsignedType(t)) return static_cast<long double>(v->asUnsigned());
    switch (t) {
        case CMPI_real32:
        case CMPI_real64: return static_cast<long double>(v->asReal());
        case CMPI_boolean: return v->asBool();
        case CMPI_string:
        case CMPI_chars: return v->asString();
        case CMPI_char16: return static_cast<long double>(v->asUnsigned());
        case CMPI_dateTime: return v->asDateTime();
        default: return {};
    }
}

Comparable comparable(const Literal &l) {
    switch (l.kind) {
        case Literal::Kind::String: return l.text;
        case Literal::Kind::Number: return l.number;
        case Literal::Kind::Boolean: return l.boolean;
        case Literal::Kind::Null: break;
    }
    return {};
}

Tri ordered(int c, Op op) {
    bool r = false;
    switch (op) {
        case Op::Eq: r = c == 0; break;
        case Op::Ne: r = c != 0; break;
        case Op::Lt: r = c < 0; break;
        case Op::Le: r = c <= 0; break;
        case Op::Gt: r = c > 0; break;
        case Op::Ge: r = c >= 0; break;
    }
    return r ? Tri::True : Tri::False;
}

template <class T> int order(const T &a, const T &b) { return a < b ? -1 : b < a ? 1 : 0; }

Tri compareDates(const DateTimeV &x, const DateTimeV &y, Op op) {
    if (x.interval != y.interval) return Tri::Unknown;
    return ordered(order(x.micros, y.micros), op);
}

// A datetime compares with text that is a datetime.
Tri compareDateText(const DateTimeV &x, const std::string &text, Op op, bool swapped) {
    auto y = DateTimeV::fromCim(text);
    if (!y) return Tri::Unknown;
    return swapped ? compareDates(*y, x, op) : compareDates(x, *y, op);
}

Tri compare(const Comparable &a, const Comparable &b, Op op) {
    if (auto *x = std::get_if<DateTimeV>(&a); x != nullptr && std::holds_alternative<std::string>(b))
        return compareDateText(*x, std::get<std::string>(b), op, false);
    if (auto *y = std::get_if<DateTimeV>(&b); y != nullptr && std::holds_alternative<std::string>(a))
        return compareDateText(*y, std::get<std::string>(a), op, true);
    if (a.index() != b.index() || std::holds_alternative<std::monostate>(a)) return Tri::Unknown;
    if (auto *x = std::get_if<long double>(&a)) return ordered(order(*x, std::get<long double>(b)), op);
    if (auto *x = std::get_if<std::string>(&a)) return ordered(x->compare(std::get<std::string>(b)), op);
    if (auto *x = std::get_if<bool>(&a)) {
        if (op != Op::Eq && op != Op::Ne) return Tri::Unknown;
        return ordered(*x == std::get<bool>(b) ? 0 : 1, op);
    }
    return compareDates(std::get<DateTimeV>(a), std::get<DateTimeV>(b), op);
}

// The property a path names; a path into an embedded instance follows it.
const Value *resolve(const InstanceV &inst, const std::vector<std::string> &path) {
    const InstanceV *current = &inst;
    const Value *v = nullptr;
    for (std::size_t i = 0; i < path.size(); ++i) {
        v = current->property(path[i]);
        if (v == nullptr) return nullptr;
        if (i + 1 < path.size()) {
            if (v->isNull() || v->type() != CMPI_instance) return nullptr;
            current = &v->asInstance();
        }
    }
    return v;
}

Tri evaluate(const Node &n, const InstanceV &inst, const Query::IsA &isA) {
    switch (n.kind) {
        case Node::Kind::And: {
            Tri r = Tri::True;
            for (const auto &k : n.kids) {
                Tri t = evaluate(*k, inst, isA);
                if (t == Tri::False) return t;
                if (t == Tri::Unknown) r = t;
            }
            return r;
        }
        case Node::Kind::Or: {
            Tri r = Tri::False;
            for (const auto &k : n.kids) {
                Tri t = evaluate(*k, inst, isA);
                if (t == Tri::True) return t;
                if (t == Tri::Unknown) r = t;
            }
            return r;
        }
        case Node::Kind::Not: return notOf(evaluate(*n.kids.front(), inst, isA));
        case Node::Kind::IsNull: {
            const Value *v = resolve(inst, n.left.path);
            bool isNull = v == nullptr || v->isNull();
            return isNull != n.negated ? Tri::True : Tri::False;
        }
        case Node::Kind::Isa: {
            const Value *v = resolve(inst, n.left.path);
            if (v == nullptr || v->isNull() || v->type() != CMPI_instance) return Tri::Unknown;
            return isA(v->asInstance().path.className, n.cls) ? Tri::True : Tri::False;
        }
        case Node::Kind::Compare: {
            auto side = [&](const Operand &o) {
                return o.isProperty() ? comparable(resolve(inst, o.path)) : comparable(o.literal);
            };
            return compare(side(n.left), side(n.right), n.op);
        }
    }
    return Tri::Unknown;
}

// ---- checks against the class -----------------------------------------------

std::string typeText(CMPIType t) { return cimhost::typeName(t); }

bool numericType(CMPIType t) {
    return cimhost::isIntegerType(t) || t == CMPI_real32 || t == CMPI_real64 || t == CMPI_char16;
}

void checkNode(const Node &n, const std::string &from, const Query::Declared &declared) {
    for (const auto &k : n.kids) checkNode(*k, from, declared);
    auto typeOf = [&](const Operand &o) -> std::optional<CMPIType> {
        auto t = declared(o.path.front());
        if (!t) invalid("class " + from + " has no property " + o.path.front() + " (position " + std::to_string(o.at) + ")");
        if (o.path.size() > 1) {
            if (*t != CMPI_string && *t != CMPI_instance)
                invalid(o.path.front() + " is a " + typeText(*t) + ", not an embedded instance (position " +
                        std::to_string(o.at) + ")");
            return std::nullopt;  // inside an embedded instance: its class is known only at delivery
        }
        return t;
    };
    switch (n.kind) {
        case Node::Kind::IsNull: typeOf(n.left); return;
        case Node::Kind::Isa:
            if (auto t = typeOf(n.left); t && *t != CMPI_string && *t != CMPI_instance)
                invalid("ISA needs an embedded instance; " + n.left.name() + " is a " + typeText(*t));
            return;
        case Node::Kind::Compare:
            for (const auto &[prop, other] : {std::pair{&n.left, &n.right}, std::pair{&n.right, &n.left}}) {
                if (!prop->isProperty()) continue;
                auto t = typeOf(*prop);
                if (!t) continue;
                const std::string what = prop->name() + " (a " + typeText(*t) + ")";
                if ((*t & CMPI_ARRAY) != 0) unsupported(what + " is an array; arrays cannot be compared in a filter");
                if (*t == CMPI_ref || *t == CMPI_instance) unsupported(what + " cannot be compared in a filter");
                if (other->isProperty()) continue;
                const Literal &lit = other->literal;
                const bool fits = numericType(*t)    ? lit.kind == Literal::Kind::Number
                                  : *t == CMPI_boolean ? lit.kind == Literal::Kind::Boolean
                                  : *t == CMPI_dateTime
                                      ? lit.kind == Literal::Kind::String && DateTimeV::fromCim(lit.text).has_value()
                                      : lit.kind == Literal::Kind::String;
                if (!fits)
                    invalid(what + " cannot be compared with " + (lit.kind == Literal::Kind::String ? "'" + lit.text + "'" : lit.text) +
                            " (position " + std::to_string(other->at) + ")");
            }
            return;
        default: return;
    }
}

}  // namespace

std::variant<Query, QueryError> Query::parse(std::string_view text) {
    if (text.size() > kMaxLength)
        return QueryError{CMPI_RC_ERR_INVALID_PARAMETER, "the query is longer than " + std::to_string(kMaxLength) + " bytes"};
    try {
        Query q;
        Parser(text).query(q.from_, q.selected_, q.where_);
        return q;
    } catch (const Failure &f) {
        return f.error;
    }
}

std::optional<QueryError> Query::check(const Declared &declared) const {
    try {
        if (selected_)
            for (const std::string &p : *selected_)
                if (!declared(p)) invalid("class " + from_ + " has no property " + p + " (in the SELECT list)");
        if (where_) checkNode(*where_, from_, declared);
        return std::nullopt;
    } catch (const Failure &f) {
        return f.error;
    }
}

bool Query::matches(const InstanceV &indication, const IsA &isA) const {
    return where_ == nullptr || evaluate(*where_, indication, isA) == Tri::True;
}

InstanceV Query::project(const InstanceV &indication) const {
    if (!selected_) return indication;
    InstanceV out{indication.path, {}};
    for (const auto &[name, v] : indication.properties)
        if (std::any_of(selected_->begin(), selected_->end(), [&](const std::string &s) { return iequals(s, name); }))
            out.properties.emplace_back(name, v);
    return out;
}

}  // namespace cimserver::wql
