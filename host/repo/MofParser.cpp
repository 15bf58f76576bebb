#include "MofParser.h"

#include "MofLexer.h"
#include "MofLiteral.h"

#include <charconv>

namespace cimhost {

namespace {

using mof::Lexer;
using mof::Token;
using mof::TokenKind;

bool isFalse(const Qualifier *q) { return q != nullptr && iequals(q->value, "false"); }
bool isSet(const Qualifier *q) { return q != nullptr && !isFalse(q); }

class Parser {
public:
    Parser(std::string_view text, const std::string &origin, std::string nameSpace, const MofSink &sink)
        : lexer_(text, origin), nameSpace_(std::move(nameSpace)), sink_(sink) {
        advance();
    }

    void run() {
        while (cur_.kind != TokenKind::End) production();
    }

private:
    // --- token helpers -------------------------------------------------
    void advance() { cur_ = lexer_.next(); }

    [[noreturn]] void fail(const std::string &message, int line = 0) const {
        throw MofError(lexer_.origin(), line > 0 ? line : cur_.line, message);
    }

    std::string describe(const Token &t) const {
        switch (t.kind) {
        case TokenKind::End: return "end of file";
        case TokenKind::String: return "string " + quoted(t.text);
        default: return "'" + t.text + "'";
        }
    }

    void expectPunct(char c) {
        if (!cur_.isPunct(c)) fail(std::string("expected '") + c + "' but found " + describe(cur_));
        advance();
    }

    bool acceptPunct(char c) {
        if (!cur_.isPunct(c)) return false;
        advance();
        return true;
    }

    std::string expectIdentifier(const char *what) {
        if (cur_.kind != TokenKind::Identifier) fail(std::string("expected ") + what + " but found " + describe(cur_));
        std::string name = cur_.text;
        advance();
        return name;
    }

    // --- productions -----------------------------------------------------
    void production() {
        if (cur_.isPunct('#')) return pragma();
        if (cur_.isWord("qualifier")) return skipThrough(';');
        std::vector<Qualifier> qualifiers;
        if (cur_.isPunct('[')) qualifiers = qualifierList();
        if (cur_.isWord("class")) return classDecl(std::move(qualifiers));
        if (cur_.isWord("instance")) return skipInstance();
        fail("expected 'class', 'instance of', 'qualifier' or '#pragma' but found " + describe(cur_));
    }

    void pragma() {
        const int line = cur_.line;
        advance();
        if (!cur_.isWord("pragma")) fail("expected 'pragma' after '#'");
        advance();
        const std::string name = expectIdentifier("a pragma name");
        std::string argument;
        bool hasArgument = false;
        if (cur_.isPunct('(')) {
            advance();
            for (int depth = 1; depth > 0;) {
                if (cur_.kind == TokenKind::End) fail("unterminated #pragma " + name, line);
                if (cur_.isPunct('(')) ++depth;
                if (cur_.isPunct(')')) --depth;
                if (cur_.kind == TokenKind::String && !hasArgument) {
                    argument = stringSequence();
                    hasArgument = true;
                    continue;
                }
                advance();
            }
        }
        if (iequals(name, "include")) {
            if (!hasArgument || argument.empty()) fail("#pragma include needs a file name", line);
            sink_.onInclude(argument, nameSpace_, line);
        } else if (iequals(name, "namespace")) {
            if (!hasArgument || argument.empty()) fail("#pragma namespace needs a namespace name", line);
            nameSpace_ = argument;
        }
    }

    // Skips a declaration up to and including `end` at nesting depth 0.
    void skipThrough(char end) {
        const int line = cur_.line;
        int depth = 0;
        while (true) {
            if (cur_.kind == TokenKind::End) fail(std::string("missing '") + end + "'", line);
            if (depth == 0 && cur_.isPunct(end)) break;
            if (cur_.isPunct('(') || cur_.isPunct('{') || cur_.isPunct('[')) ++depth;
            if (cur_.isPunct(')') || cur_.isPunct('}') || cur_.isPunct(']')) --depth;
            advance();
        }
        advance();
    }

    void skipInstance() {
        advance();
        if (!cur_.isWord("of")) fail("expected 'of' after 'instance'");
        const int line = cur_.line;
        while (!acceptPunct('{')) {
            if (cur_.kind == TokenKind::End || cur_.isPunct(';')) fail("instance declaration without a body", line);
            advance();
        }
        skipThrough('}');
        expectPunct(';');
    }

    std::string stringSequence() {
        std::string text;
        while (cur_.kind == TokenKind::String) {
            text += cur_.text;
            advance();
        }
        return text;
    }

    // One constant value as MOF text; strings are decoded (and concatenated)
    // unless `quote` asks for their literal form.
    std::string scalarValue(bool quote) {
        switch (cur_.kind) {
        case TokenKind::String: {
            std::string s = stringSequence();
            return quote ? quoted(s) : s;
        }
        case TokenKind::Char: {
            std::string s = "'" + cur_.text + "'";
            advance();
            return s;
        }
        case TokenKind::Number: {
            std::string s = cur_.text;
            advance();
            return s;
        }
        case TokenKind::Identifier: {
            std::string s = cur_.text;
            if (cur_.isWord("true") || cur_.isWord("false") || cur_.isWord("null")) s = lowerCase(s);
            advance();
            return s;
        }
        default:
            if (cur_.isPunct('$')) {  // instance alias
                advance();
                return "$" + expectIdentifier("an alias name");
            }
            fail("expected a value but found " + describe(cur_));
        }
    }

    std::string arrayValue() {
        expectPunct('{');
        std::string text = "{";
        if (!cur_.isPunct('}')) {
            do {
                if (text.size() > 1) text += ',';
                text += scalarValue(true);
            } while (acceptPunct(','));
        }
        expectPunct('}');
        return text + "}";
    }

    std::vector<Qualifier> qualifierList() {
        expectPunct('[');
        std::vector<Qualifier> list;
        do {
            Qualifier q{expectIdentifier("a qualifier name"), "true"};
            if (acceptPunct('(')) {
                q.value = scalarValue(false);
                if (cur_.isPunct(',')) {  // a list in parentheses, kept as an array
                    std::string text = "{" + q.value;
                    while (acceptPunct(',')) text += "," + scalarValue(true);
                    q.value = text + "}";
                }
                expectPunct(')');
            } else if (cur_.isPunct('{')) {
                q.value = arrayValue();
            }
            if (acceptPunct(':'))  // flavors: ToSubclass, DisableOverride, ...
                while (cur_.kind == TokenKind::Identifier) advance();
            if (findQualifier(list, q.name) != nullptr) fail("qualifier " + q.name + " given twice");
            list.push_back(std::move(q));
        } while (acceptPunct(','));
        expectPunct(']');
        return list;
    }

    // "[]" or "[N]" after a name; true when present.
    bool arraySuffix() {
        if (!acceptPunct('[')) return false;
        if (cur_.kind == TokenKind::Number) {
            unsigned size = 0;
            const auto [end, ec] = std::from_chars(cur_.text.data(), cur_.text.data() + cur_.text.size(), size);
            if (ec != std::errc() || end != cur_.text.data() + cur_.text.size())
                fail("array size must be a decimal number");
            advance();
        }
        expectPunct(']');
        return true;
    }

    void skipDefaultValue() {
        if (!acceptPunct('=')) return;
        if (cur_.isPunct('{'))
            arrayValue();
        else
            scalarValue(false);
    }

    // "= value" of a property, read as its declared type.
    std::optional<MofDefault> defaultValue(const PropertyDecl &p) {
        if (!acceptPunct('=')) return std::nullopt;
        MofDefault d;
        if (cur_.isWord("null")) {
            advance();
            d.null = true;
            return d;
        }
        if (!p.isArray) {
            d.elements.push_back(typedScalar(p));
            return d;
        }
        expectPunct('{');
        if (!cur_.isPunct('}')) {
            do {
                d.elements.push_back(typedScalar(p));
            } while (acceptPunct(','));
        }
        expectPunct('}');
        return d;
    }

    MofScalar typedScalar(const PropertyDecl &p) {
        if (cur_.isWord("null")) {
            advance();
            return std::monostate{};
        }
        Token t = cur_;
        if (t.kind == TokenKind::String)
            t.text = stringSequence();
        else
            advance();
        const auto v = mof::typedLiteral(p.type, t);
        if (!v)
            fail("the default value " + describe(t) + " of " + p.name + " is not a " + cimTypeName(p.type) +
                     (p.isArray ? " array element" : ""),
                 t.line);
        return *v;
    }

    CimType dataType(const std::string &word, int line) {
        const auto type = cimTypeFromName(word);
        if (!type) fail("unknown type '" + word + "'", line);
        return *type;
    }

    void classDecl(std::vector<Qualifier> qualifiers) {
        const int line = cur_.line;
        advance();
        ClassDecl cls;
        cls.name = expectIdentifier("a class name");
        cls.nameSpace = nameSpace_;
        if (acceptPunct(':')) cls.superclass = expectIdentifier("a superclass name");
        cls.isAssociation = isSet(findQualifier(qualifiers, "Association"));
        cls.qualifiers = std::move(qualifiers);
        expectPunct('{');
        while (!acceptPunct('}')) {
            if (cur_.kind == TokenKind::End) fail("class " + cls.name + " is not closed", line);
            feature(cls);
        }
        expectPunct(';');
        sink_.onClass(std::move(cls), line);
    }

    void checkUnique(const ClassDecl &cls, const std::string &name, int line) {
        for (const PropertyDecl &p : cls.properties)
            if (iequals(p.name, name)) fail(cls.name + "." + name + " is declared twice", line);
        for (const MethodDecl &m : cls.methods)
            if (iequals(m.name, name)) fail(cls.name + "." + name + " is declared twice", line);
    }

    void feature(ClassDecl &cls) {
        std::vector<Qualifier> qualifiers;
        if (cur_.isPunct('[')) qualifiers = qualifierList();
        const int line = cur_.line;
        const std::string typeWord = expectIdentifier("a type");
        if (cur_.isWord("ref")) {
            advance();
            PropertyDecl p{};
            p.name = expectIdentifier("a reference name");
            p.type = CimType::Reference;
            p.refClass = typeWord;
            checkUnique(cls, p.name, line);
            if (cur_.isPunct('(')) fail("methods returning references are not supported");
            if (arraySuffix()) fail("a reference property cannot be an array", line);
            skipDefaultValue();
            expectPunct(';');
            p.isKey = isSet(findQualifier(qualifiers, "Key"));
            p.qualifiers = std::move(qualifiers);
            cls.properties.push_back(std::move(p));
            return;
        }
        const CimType type = dataType(typeWord, line);
        const std::string name = expectIdentifier("a property or method name");
        checkUnique(cls, name, line);
        if (cur_.isPunct('(')) {
            MethodDecl m{};
            m.name = name;
            m.returnType = type;
            m.params = parameters();
            m.qualifiers = std::move(qualifiers);
            cls.methods.push_back(std::move(m));
            expectPunct(';');
            return;
        }
        PropertyDecl p{};
        p.name = name;
        p.type = type;
        p.isArray = arraySuffix();
        p.defaultValue = defaultValue(p);
        expectPunct(';');
        p.isKey = isSet(findQualifier(qualifiers, "Key"));
        p.qualifiers = std::move(qualifiers);
        cls.properties.push_back(std::move(p));
    }

    std::vector<ParameterDecl> parameters() {
        expectPunct('(');
        std::vector<ParameterDecl> params;
        if (acceptPunct(')')) return params;
        do {
            std::vector<Qualifier> qualifiers;
            if (cur_.isPunct('[')) qualifiers = qualifierList();
            const int line = cur_.line;
            const std::string typeWord = expectIdentifier("a parameter type");
            ParameterDecl p{};
            if (cur_.isWord("ref")) {
                advance();
                p.type = CimType::Reference;
                p.refClass = typeWord;
            } else {
                p.type = dataType(typeWord, line);
            }
            p.name = expectIdentifier("a parameter name");
            p.isArray = arraySuffix();
            skipDefaultValue();
            const Qualifier *in = findQualifier(qualifiers, "IN");
            const Qualifier *out = findQualifier(qualifiers, "OUT");
            p.out = isSet(out);
            p.in = in != nullptr ? !isFalse(in) : !p.out;
            p.qualifiers = std::move(qualifiers);
            for (const ParameterDecl &other : params)
                if (iequals(other.name, p.name)) fail("parameter " + p.name + " is declared twice", line);
            params.push_back(std::move(p));
        } while (acceptPunct(','));
        expectPunct(')');
        return params;
    }

    Lexer lexer_;
    std::string nameSpace_;
    const MofSink &sink_;
    Token cur_;
};

}  // namespace

void parseMof(std::string_view text, const std::string &origin, const std::string &nameSpace, const MofSink &sink) {
    Parser(text, origin, nameSpace, sink).run();
}

}  // namespace cimhost
