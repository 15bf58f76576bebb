#include "MofLexer.h"

#include "ClassDecl.h"

#include <cctype>

namespace cimhost::mof {

namespace {

bool isIdentStart(char c) { return std::isalpha(static_cast<unsigned char>(c)) || c == '_'; }
bool isIdentChar(char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '_'; }
bool isDigit(char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; }

void appendUtf8(std::string &out, unsigned code) {
    if (code < 0x80) {
        out += static_cast<char>(code);
    } else if (code < 0x800) {
        out += static_cast<char>(0xC0 | (code >> 6));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else {
        out += static_cast<char>(0xE0 | (code >> 12));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    }
}

}  // namespace

bool Token::isWord(std::string_view word) const { return kind == TokenKind::Identifier && iequals(text, word); }

Lexer::Lexer(std::string_view text, std::string origin) : text_(text), origin_(std::move(origin)) {}

char Lexer::peekChar(std::size_t ahead) const {
    return pos_ + ahead < text_.size() ? text_[pos_ + ahead] : '\0';
}

char Lexer::take() {
    const char c = text_[pos_++];
    if (c == '\n') ++line_;
    return c;
}

void Lexer::fail(int line, const std::string &message) const { throw MofError(origin_, line, message); }

void Lexer::skipSpaceAndComments() {
    while (pos_ < text_.size()) {
        const char c = peekChar();
        if (std::isspace(static_cast<unsigned char>(c))) {
            take();
        } else if (c == '/' && peekChar(1) == '/') {
            while (pos_ < text_.size() && peekChar() != '\n') take();
        } else if (c == '/' && peekChar(1) == '*') {
            const int start = line_;
            pos_ += 2;
            while (!(peekChar() == '*' && peekChar(1) == '/')) {
                if (pos_ >= text_.size()) fail(start, "unterminated comment");
                take();
            }
            pos_ += 2;
        } else {
            return;
        }
    }
}

Token Lexer::next() {
    skipSpaceAndComments();
    if (pos_ >= text_.size()) return Token{TokenKind::End, "", line_};
    const char c = peekChar();
    if (c == '"') return lexString();
    if (c == '\'') return lexChar();
    if (isIdentStart(c)) return lexIdentifier();
    if (isDigit(c) || ((c == '-' || c == '+' || c == '.') && (isDigit(peekChar(1)) || peekChar(1) == '.')))
        return lexNumber();
    static constexpr std::string_view kPunct = "()[]{},;:=#$";
    if (kPunct.find(c) != std::string_view::npos) {
        take();
        return Token{TokenKind::Punct, std::string(1, c), line_};
    }
    fail(line_, std::string("unexpected character '") + c + "'");
}

Token Lexer::lexIdentifier() {
    Token t{TokenKind::Identifier, "", line_};
    while (pos_ < text_.size() && isIdentChar(peekChar())) t.text += take();
    return t;
}

// Numbers are kept as their literal text: decimal, hex (0x1F), binary (101b)
// and reals (1.5e-3) all pass; only array sizes are ever interpreted.
Token Lexer::lexNumber() {
    Token t{TokenKind::Number, "", line_};
    if (peekChar() == '-' || peekChar() == '+') t.text += take();
    while (pos_ < text_.size()) {
        const char c = peekChar();
        const bool exponentSign = (c == '-' || c == '+') && !t.text.empty() &&
                                  (t.text.back() == 'e' || t.text.back() == 'E') &&
                                  t.text.find_first_of("xX") == std::string::npos;
        if (!(isIdentChar(c) || c == '.' || exponentSign)) break;
        t.text += take();
    }
    return t;
}

void Lexer::appendEscape(std::string &out) {
    const int line = line_;
    take();  // the backslash
    if (pos_ >= text_.size()) fail(line, "unterminated string");
    const char c = take();
    switch (c) {
    case 'b': out += '\b'; return;
    case 't': out += '\t'; return;
    case 'n': out += '\n'; return;
    case 'f': out += '\f'; return;
    case 'r': out += '\r'; return;
    case '"': out += '"'; return;
    case '\'': out += '\''; return;
    case '\\': out += '\\'; return;
    case 'x':
    case 'X': {
        unsigned code = 0;
        int digits = 0;
        while (digits < 4 && std::isxdigit(static_cast<unsigned char>(peekChar()))) {
            const char h = take();
            code = code * 16 + static_cast<unsigned>(isDigit(h) ? h - '0' : std::tolower(h) - 'a' + 10);
            ++digits;
        }
        if (digits == 0) fail(line, "\\x escape without hex digits");
        appendUtf8(out, code);
        return;
    }
    default:
        fail(line, std::string("unknown escape '\\") + c + "'");
    }
}

Token Lexer::lexString() {
    Token t{TokenKind::String, "", line_};
    take();  // opening quote
    while (true) {
        if (pos_ >= text_.size() || peekChar() == '\n') fail(t.line, "unterminated string");
        const char c = peekChar();
        if (c == '"') break;
        if (c == '\\')
            appendEscape(t.text);
        else
            t.text += take();
    }
    take();  // closing quote
    return t;
}

Token Lexer::lexChar() {
    Token t{TokenKind::Char, "", line_};
    take();  // opening quote
    if (peekChar() == '\\')
        appendEscape(t.text);
    else if (pos_ < text_.size() && peekChar() != '\n' && peekChar() != '\'')
        t.text += take();
    if (peekChar() != '\'' || t.text.empty()) fail(t.line, "malformed character literal");
    take();
    return t;
}

}  // namespace cimhost::mof
