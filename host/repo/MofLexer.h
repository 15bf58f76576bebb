// Tokens of the MOF subset that schema files use. Comments and white space
// are dropped; string and character literals arrive decoded.
#pragma once

#include <string>
#include <string_view>

namespace cimhost::mof {

enum class TokenKind { Identifier, String, Number, Char, Punct, End };

struct Token {
    TokenKind kind = TokenKind::End;
    std::string text;  // decoded for String and Char; the character itself for Punct
    int line = 0;

    bool isPunct(char c) const { return kind == TokenKind::Punct && text.size() == 1 && text[0] == c; }
    bool isWord(std::string_view word) const;  // identifier, case-insensitive
};

class Lexer {
public:
    Lexer(std::string_view text, std::string origin);

    Token next();
    const std::string &origin() const { return origin_; }

private:
    void skipSpaceAndComments();
    Token lexString();
    Token lexChar();
    Token lexNumber();
    Token lexIdentifier();
    void appendEscape(std::string &out);
    [[noreturn]] void fail(int line, const std::string &message) const;

    char peekChar(std::size_t ahead = 0) const;
    char take();

    std::string_view text_;
    std::string origin_;
    std::size_t pos_ = 0;
    int line_ = 1;
};

}  // namespace cimhost::mof
