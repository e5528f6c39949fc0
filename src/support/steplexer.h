// StepLexer: a small tokenizer over a file, read through a buffer, that
// knows a table of reserved words (each with an unsigned-long code). It is
// enough to walk the header section of a STEP file without the full parser.
//
// Tokens: ( ) , ; $, literals (when single quotes are turned on: the text
// between ' and ', with the registered filters applied and the registered
// special symbols kept as they are; no other decoding), words (a letter or
// '_' followed by letters, digits, '_' and '-'; a word that matches a
// reserved word, ignoring case, carries its code), any other single
// character, the end of input, and an error token for an unterminated
// literal or comment. Blanks, line ends and /* */ comments are skipped.
// Every byte of the file becomes one UTF-16 unit (ISO-8859-1).
#pragma once

#include <cstdint>

#include "support/types.h"
#include "support/wstring.h"

namespace kx {

enum class StepToken : uint32_t {
    LeftParen,
    RightParen,
    Comma,
    Semicolon,
    Dollar,
    Literal,
    Word,
    Other,
    End,
    Error,
};

struct ReservedWords;

ReservedWords *steplexer_words_create();
void steplexer_words_add(ReservedWords *words, const char16_t *word, uint32_t code);
void steplexer_words_destroy(ReservedWords **words);

struct StepLexer;

constexpr uint32_t STEPLEXER_DEFAULT_BUFFER_LENGTH = 1u << 20;

// A lexer over the file; it takes the table over (the holder is cleared,
// also when the file cannot be opened, which gives NULL).
StepLexer *steplexer_create(const char16_t *file_name, ReservedWords **words);
void steplexer_set_buffer_length(StepLexer *lexer, uint32_t length);
// Single quotes delimit literals (otherwise ' is an "other" character).
void steplexer_quote_literals(StepLexer *lexer);
// A sequence that does not end a literal and is kept as it is (for "\S\'").
void steplexer_add_literal_symbol(StepLexer *lexer, const char16_t *symbol);
// A sequence replaced inside literals (for "''" by "'").
void steplexer_add_literal_filter(StepLexer *lexer, const char16_t *symbol,
                                  const char16_t *replacement);

// Reads the first token.
void steplexer_start(StepLexer *lexer);
// Advances to the next token (at the end, or after an error, the token
// stays End).
void steplexer_read_token(StepLexer *lexer);

StepToken steplexer_token(const StepLexer *lexer);
kx_bool16 steplexer_token_is(const StepLexer *lexer, StepToken kind);
// On equality also advances.
kx_bool16 steplexer_token_is_and_read(StepLexer *lexer, StepToken kind);
// Whether the token is the reserved word with that code; then advances.
kx_bool16 steplexer_word_is_and_read(StepLexer *lexer, uint32_t code);
// Advances until that reserved word (the current token included) and past
// it; FALSO when the input ends first.
kx_bool16 steplexer_skip_to_word_and_read(StepLexer *lexer, uint32_t code);
// The current literal's text, owned by the lexer until the next token.
const char16_t *steplexer_literal(const StepLexer *lexer);
// The text of the current word, literal or other character (empty for the
// punctuation tokens), owned by the lexer until the next token.
const char16_t *steplexer_token_text(const StepLexer *lexer);
// The code of the current reserved word; ULONG_MAX32 for anything else.
uint32_t steplexer_word_code(const StepLexer *lexer);

void steplexer_destroy(StepLexer **lexer);

}  // namespace kx
