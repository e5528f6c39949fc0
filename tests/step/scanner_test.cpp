// The data-section scanner: token kinds, priorities, values and counts.
#include <string>
#include <vector>

#include "step/scanner.h"
#include "test_support.h"

namespace {

struct Scanned {
    kx::TokenKind kind;
    std::string text;
};

std::vector<Scanned> scan(const std::string &text) {
    kx::Scanner scanner;
    kx::scanner_init(&scanner, text.data(), text.size());
    std::vector<Scanned> tokens;
    for (;;) {
        const kx::Token token = kx::scanner_next(&scanner);
        tokens.push_back({token.kind, std::string(token.text, token.length)});
        if (token.kind == kx::TOKEN_END) return tokens;
    }
}

std::vector<kx::TokenKind> kinds(const std::string &text) {
    std::vector<kx::TokenKind> result;
    for (const Scanned &token : scan(text)) result.push_back(token.kind);
    return result;
}

using kx::TokenKind;
constexpr TokenKind END = kx::TOKEN_END;

TEST(ScannerTest, EntityIdsAndReferences) {
    EXPECT_EQ(kinds("#12 ="), (std::vector<TokenKind>{kx::TOKEN_ENTITY_ID, kx::TOKEN_EQUAL, END}));
    EXPECT_EQ(kinds("#12\t="), (std::vector<TokenKind>{kx::TOKEN_ENTITY_ID, kx::TOKEN_EQUAL, END}));
    // A line end between the number and "=" makes it a reference.
    EXPECT_EQ(kinds("#12\n="), (std::vector<TokenKind>{kx::TOKEN_ENTITY_REFERENCE, kx::TOKEN_EQUAL, END}));
    kx::Scanner scanner;
    const std::string text = "#4294967295 #99999999999";
    kx::scanner_init(&scanner, text.data(), text.size());
    EXPECT_EQ(kx::scanner_next(&scanner).id, 4294967295u);
    EXPECT_EQ(kx::scanner_next(&scanner).id, 4294967295u);  // saturates, never wraps
    // A lone '#' is an unexpected character, which ends the input.
    EXPECT_EQ(scan("# 1").front().kind, END);
    EXPECT_EQ(scan("# 1").front().text, "#");
}

TEST(ScannerTest, StringsAndQuotes) {
    auto tokens = scan("'it''s' 'x'y'");
    EXPECT_EQ(tokens[0].kind, kx::TOKEN_STRING);
    EXPECT_EQ(tokens[0].text, "it''s");
    EXPECT_EQ(tokens[1].kind, kx::TOKEN_STRING);
    EXPECT_EQ(tokens[1].text, "x");
    EXPECT_EQ(tokens[2].kind, kx::TOKEN_TYPE_NAME);
    EXPECT_EQ(tokens[3].kind, END);  // the unterminated quote
    EXPECT_EQ(tokens[3].text, "'");
    // "\S\'" keeps its quote inside the string.
    tokens = scan("'a\\S\\'b' $");
    EXPECT_EQ(tokens[0].text, "a\\S\\'b");
    EXPECT_EQ(tokens[1].kind, kx::TOKEN_NULL_VALUE);
    EXPECT_EQ(kinds("'line\nbreak'"), (std::vector<TokenKind>{kx::TOKEN_STRING, END}));
}

TEST(ScannerTest, NumbersTakeTheLongestMatch) {
    EXPECT_EQ(kinds("00012"), (std::vector<TokenKind>{kx::TOKEN_INT, END}));
    EXPECT_EQ(kinds("-"), (std::vector<TokenKind>{kx::TOKEN_INT, END}));
    auto tokens = scan("1.5.");
    EXPECT_EQ(tokens[0].kind, kx::TOKEN_REAL);
    EXPECT_EQ(tokens[0].text, "1.5");
    EXPECT_EQ(tokens[1].kind, END);
    EXPECT_EQ(tokens[1].text, ".");
    for (const char *real : {"1.", "12.", ".5", "-.5", "+1.5E-3", "1.E5", "1E5", "3.e+2"}) {
        tokens = scan(real);
        EXPECT_EQ(tokens[0].kind, kx::TOKEN_REAL) << real;
        EXPECT_EQ(tokens[0].text, real);
    }
    // An exponent without digits is not part of the number.
    EXPECT_EQ(kinds("1E"), (std::vector<TokenKind>{kx::TOKEN_INT, kx::TOKEN_TYPE_NAME, END}));
}

TEST(ScannerTest, NumberValues) {
    EXPECT_EQ(kx::scanner_integer_value("-", 1), 0);
    EXPECT_EQ(kx::scanner_integer_value("-42", 3), -42);
    EXPECT_EQ(kx::scanner_integer_value("99999999999", 11), 2147483647);
    EXPECT_EQ(kx::scanner_integer_value("-99999999999", 12), -2147483647 - 1);
    for (const std::string real : {"0.", "1.5", "-0.000123", "1.E-05", "1234567.125", "6.02214076E23",
                                   "0.1", "2.2250738585072014E-308", "123456789012345678901234.5", "1E400"}) {
        EXPECT_EQ(kx::scanner_real_value(real.data(), real.size()), std::strtod(real.c_str(), nullptr)) << real;
    }
}

TEST(ScannerTest, EnumerationsBooleansAndHex) {
    EXPECT_EQ(kinds(".t. .F. .U."),
              (std::vector<TokenKind>{kx::TOKEN_BOOLEAN, kx::TOKEN_BOOLEAN, kx::TOKEN_BOOLEAN, END}));
    EXPECT_EQ(kinds(".ELEMENT. .TRUE. .UNKNOWN. .NOT_DEFINED2."),
              (std::vector<TokenKind>{kx::TOKEN_ENUM, kx::TOKEN_ENUM, kx::TOKEN_ENUM, kx::TOKEN_ENUM, END}));
    EXPECT_EQ(scan(".TRUE").front().kind, END);   // no closing dot
    EXPECT_EQ(scan(".A-B.").front().kind, END);   // '-' is not allowed inside
    EXPECT_EQ(kinds("\"0F\""), (std::vector<TokenKind>{kx::TOKEN_HEX, END}));
    EXPECT_EQ(scan("\"\"").front().kind, END);
}

TEST(ScannerTest, KeywordsOnlyForTheExactWord) {
    EXPECT_EQ(kinds("endsec Data header FILE_NAME file_schema File_Description"),
              (std::vector<TokenKind>{kx::TOKEN_ENDSECTION, kx::TOKEN_DATA, kx::TOKEN_HEADER, kx::TOKEN_FILE_NAME,
                                      kx::TOKEN_FILE_SCHEMA, kx::TOKEN_FILE_DESCRIPTION, END}));
    EXPECT_EQ(kinds("HEADERX DATAX FILE_NAMES"),
              (std::vector<TokenKind>{kx::TOKEN_TYPE_NAME, kx::TOKEN_TYPE_NAME, kx::TOKEN_TYPE_NAME, END}));
    EXPECT_EQ(kinds("ISO-10303-21; END-ISO-10303-21;"),
              (std::vector<TokenKind>{kx::TOKEN_BEGIN_ISO, kx::TOKEN_END_ISO, END}));
    // A blank before the semicolon: a type name, then an unexpected '-'.
    EXPECT_EQ(kinds("ISO -10303-21;").front(), kx::TOKEN_TYPE_NAME);
}

TEST(ScannerTest, LinesColumnsAndComments) {
    const std::string text = "/* a\ncomment */ #1=\r\n  IFCX(\r$);/* open";
    kx::Scanner scanner;
    kx::scanner_init(&scanner, text.data(), text.size());
    kx::Token token = kx::scanner_next(&scanner);
    EXPECT_EQ(token.kind, kx::TOKEN_ENTITY_ID);
    EXPECT_EQ(token.line, 2u);
    EXPECT_EQ(token.column, 12u);
    kx::scanner_next(&scanner);  // "="
    token = kx::scanner_next(&scanner);
    EXPECT_EQ(token.kind, kx::TOKEN_TYPE_NAME);
    EXPECT_EQ(token.line, 3u);  // CR LF counts once
    EXPECT_EQ(token.column, 3u);
    kx::scanner_next(&scanner);  // "("
    token = kx::scanner_next(&scanner);
    EXPECT_EQ(token.kind, kx::TOKEN_NULL_VALUE);
    EXPECT_EQ(token.line, 4u);  // a lone CR is a line end
    kx::scanner_next(&scanner);
    EXPECT_EQ(kx::scanner_next(&scanner).kind, kx::TOKEN_DOTCOMA);
    token = kx::scanner_next(&scanner);  // an unclosed comment ends the input quietly
    EXPECT_EQ(token.kind, END);
    EXPECT_EQ(token.length, 0u);
    // Bytes above 0x7F outside strings are unexpected.
    EXPECT_EQ(scan("\xC3\xA9").front().kind, END);
    EXPECT_EQ(scan("\xC3\xA9").front().text.size(), 1u);
}

}  // namespace
