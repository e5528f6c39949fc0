// The data-section scanner: cuts exchange-file text held in memory into
// tokens, longest match first, counting lines and columns. It never reads
// past the end of its text and never allocates.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kx {

enum TokenKind : uint16_t {
    TOKEN_END = 0,               // end of input, or an unexpected character
    TOKEN_ENTITY_ID = 258,       // "#12" followed (after blanks) by "="
    TOKEN_ENTITY_REFERENCE = 259,
    TOKEN_BOOLEAN = 260,         // ".T.", ".F.", ".U."
    TOKEN_INT = 261,
    TOKEN_REAL = 262,
    TOKEN_STRING = 263,          // text without the quotes, '' still doubled
    TOKEN_ENUM = 264,            // ".NAME."
    TOKEN_HEX = 265,             // "\"0F\""
    TOKEN_NULL_VALUE = 266,      // "$"
    TOKEN_DERIVED_VALUE = 267,   // "*"
    TOKEN_BEGIN_PAR = 268,
    TOKEN_END_PAR = 269,
    TOKEN_COMMA = 270,
    TOKEN_EQUAL = 271,
    TOKEN_DOTCOMA = 272,
    TOKEN_BEGIN_ISO = 273,       // "ISO-10303-21;"
    TOKEN_END_ISO = 274,         // "END-ISO-10303-21;"
    TOKEN_HEADER = 275,
    TOKEN_ENDSECTION = 276,
    TOKEN_DATA = 277,
    TOKEN_FILE_DESCRIPTION = 278,
    TOKEN_FILE_NAME = 279,
    TOKEN_FILE_SCHEMA = 280,
    TOKEN_TYPE_NAME = 281,
};

struct Token {
    TokenKind kind;
    const char *text;   // the token's characters (for strings: between the quotes)
    size_t length;
    uint32_t line;
    uint32_t column;
    uint32_t id;        // ENTITY_ID and ENTITY_REFERENCE: the number after '#'
    int32_t integer;    // INT: its value
    double real;        // REAL: its value
};

struct Scanner {
    const char *begin;
    const char *cursor;
    const char *end;
    uint32_t line;
    const char *line_start;
    uint64_t origin;   // offset of `begin` in the whole text (the scanner may see a window of it)
};

// The offset of a position of the scanner's text in the whole text.
inline uint64_t scanner_offset(const Scanner &scanner, const char *position) {
    return scanner.origin + static_cast<uint64_t>(position - scanner.begin);
}

void scanner_init(Scanner *scanner, const char *text, size_t length);
// Moves the scanner to a position it has passed before, with its line.
void scanner_seek(Scanner *scanner, const char *position, uint32_t line);
// Reads the next token. An unexpected character gives TOKEN_END with the
// character as its text (length 1); the true end gives length 0.
Token scanner_next_token(Scanner *scanner);

// The same, with the most frequent tokens (punctuation after at most a few
// blanks) read inline.
inline Token scanner_next(Scanner *scanner) {
    const char *p = scanner->cursor;
    while (p < scanner->end && *p == ' ') p++;
    if (p < scanner->end) {
        TokenKind kind;
        switch (*p) {
        case '(': kind = TOKEN_BEGIN_PAR; break;
        case ')': kind = TOKEN_END_PAR; break;
        case ',': kind = TOKEN_COMMA; break;
        case '$': kind = TOKEN_NULL_VALUE; break;
        case '*': kind = TOKEN_DERIVED_VALUE; break;
        case ';': kind = TOKEN_DOTCOMA; break;
        case '=': kind = TOKEN_EQUAL; break;
        default: scanner->cursor = p; return scanner_next_token(scanner);
        }
        scanner->cursor = p + 1;
        return Token{kind, p, 1, scanner->line, static_cast<uint32_t>(p - scanner->line_start) + 1, 0, 0, 0.0};
    }
    scanner->cursor = p;
    return scanner_next_token(scanner);
}

// Number conversions of the scanner's token texts: an integer as the
// standard conversion gives it (a sign alone is 0; beyond the 32-bit range
// it saturates), a real exactly as strtod would.
int32_t scanner_integer_value(const char *text, size_t length);
double scanner_real_value(const char *text, size_t length);
// Whether an integer token's value fits 32 bits (else its value saturated).
bool scanner_integer_fits(const char *text, size_t length);
inline bool token_integer_fits(const Token &token) {
    return token.length < 10 || scanner_integer_fits(token.text, token.length);
}

// Whether a token's text spells a schema name, letters compared without case.
inline bool token_spells(const char16_t *name, const char *text, size_t length) {
    for (size_t i = 0; i < length; i++, name++) {
        if (*name == 0) return false;
        const char16_t c = *name >= u'a' && *name <= u'z' ? static_cast<char16_t>(*name - 32) : *name;
        const char t = text[i] >= 'a' && text[i] <= 'z' ? static_cast<char>(text[i] - 32) : text[i];
        if (c != static_cast<unsigned char>(t)) return false;
    }
    return *name == 0;
}

struct StringIssue;
// A new library string from a string token's text: UTF-8 when the bytes are
// valid UTF-8, one byte per character otherwise; escapes decoded by the full
// rules (lossless) or the fixed ones. What could not be kept is noted in
// *issue when it is not NULL (a NUL is always dropped).
char16_t *step_string_value(const char *text, size_t length, bool lossless, StringIssue *issue);

}  // namespace kx
