#define KX_UNIT "kxsteplexer"
#include "support/steplexer.h"

#include <cstdio>
#include <cstring>
#include <new>
#include <vector>

#include "support/assert.h"
#include "support/files.h"
#include "support/memory.h"

namespace kx {
namespace {

struct ReservedWord {
    WideString word;
    uint32_t code;
};

// A sequence recognised inside literals: kept as it is (replacement NULL) or
// replaced.
struct LiteralSymbol {
    WideString symbol;
    uint32_t length;
    WideString replacement;
};

constexpr uint32_t MIN_BUFFER_LENGTH = 16;

bool is_blank(int c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f' || c == '\v';
}

bool is_letter(int c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

bool starts_word(int c) { return is_letter(c) || c == '_'; }

bool continues_word(int c) { return starts_word(c) || (c >= '0' && c <= '9') || c == '-'; }

}  // namespace

struct ReservedWords {
    TrackedVector<ReservedWord> entries;
};

struct StepLexer {
    FILE *file;
    ReservedWords *words;
    TrackedVector<LiteralSymbol> symbols;  // longest first
    bool quoted_literals;
    bool started;

    uint8_t *buffer;
    uint32_t buffer_length;  // wanted size; the buffer grows past it only for long symbols
    uint32_t capacity;
    uint32_t position;  // next unread byte
    uint32_t filled;    // bytes of the buffer holding file data
    bool at_file_end;

    StepToken token;
    uint32_t word_code;
    TrackedVector<char16_t> text;  // the current token's text, NUL-terminated
};

ReservedWords *steplexer_words_create() {
    ReservedWords *words = static_cast<ReservedWords *>(mem_alloc(sizeof(ReservedWords)));
    new (words) ReservedWords{};
    return words;
}

void steplexer_words_add(ReservedWords *words, const char16_t *word, uint32_t code) {
    kx_assert_not_null(words);
    kx_assert_not_null(word);
    if (words == nullptr || word == nullptr) return;
    words->entries.push_back(ReservedWord{wstr_copy(word), code});
}

void steplexer_words_destroy(ReservedWords **words) {
    kx_assert_not_null(words);
    if (words == nullptr) return;
    kx_assert_not_null(*words);
    if (*words == nullptr) return;
    for (ReservedWord &entry : (*words)->entries) wstr_destroy(&entry.word);
    (*words)->~ReservedWords();
    mem_free_and_clear(words);
}

namespace {

// Makes at least `needed` unread bytes available when the file has them;
// false at the end of the input.
bool fill(StepLexer *lexer, uint32_t needed) {
    const uint32_t unread = lexer->filled - lexer->position;
    if (unread >= needed) return true;
    if (lexer->at_file_end) return false;
    if (lexer->position > 0) {
        std::memmove(lexer->buffer, lexer->buffer + lexer->position, unread);
        lexer->position = 0;
        lexer->filled = unread;
    }
    if (needed > lexer->capacity) {
        lexer->buffer = static_cast<uint8_t *>(mem_realloc(lexer->buffer, needed));
        lexer->capacity = needed;
    }
    while (lexer->filled < needed && !lexer->at_file_end) {
        const size_t got = std::fread(lexer->buffer + lexer->filled, 1,
                                      lexer->capacity - lexer->filled, lexer->file);
        if (got == 0) lexer->at_file_end = true;
        lexer->filled += static_cast<uint32_t>(got);
    }
    return lexer->filled - lexer->position >= needed;
}

// The byte `ahead` places past the next unread one, or -1 past the end.
inline int peek(StepLexer *lexer, uint32_t ahead = 0) {
    if (lexer->position + ahead < lexer->filled) [[likely]]
        return lexer->buffer[lexer->position + ahead];
    if (!fill(lexer, ahead + 1)) return -1;
    return lexer->buffer[lexer->position + ahead];
}

inline void advance(StepLexer *lexer, uint32_t count = 1) { lexer->position += count; }

void allocate_buffer(StepLexer *lexer) {
    uint32_t length = lexer->buffer_length;
    if (length < MIN_BUFFER_LENGTH) length = MIN_BUFFER_LENGTH;
    // Keep what is already read but not yet used.
    const uint32_t unread = lexer->filled - lexer->position;
    if (lexer->buffer != nullptr && lexer->position > 0) {
        std::memmove(lexer->buffer, lexer->buffer + lexer->position, unread);
        lexer->position = 0;
        lexer->filled = unread;
    }
    if (length < unread) length = unread;
    lexer->buffer = static_cast<uint8_t *>(mem_realloc(lexer->buffer, length));
    lexer->capacity = length;
}

void text_clear(StepLexer *lexer) { lexer->text.clear(); }

void text_append(StepLexer *lexer, char16_t c) { lexer->text.push_back(c); }

void text_append(StepLexer *lexer, const char16_t *s) {
    for (; *s != u'\0'; s++) lexer->text.push_back(*s);
}

void finish(StepLexer *lexer, StepToken token) {
    lexer->token = token;
    lexer->text.push_back(u'\0');
}

// The literal symbol that starts at the next unread byte, if any.
const LiteralSymbol *symbol_here(StepLexer *lexer) {
    const int first = peek(lexer);
    for (const LiteralSymbol &symbol : lexer->symbols) {
        if (symbol.symbol[0] != first) continue;
        uint32_t i = 1;
        while (i < symbol.length && peek(lexer, i) == symbol.symbol[i]) i++;
        if (i == symbol.length) return &symbol;
    }
    return nullptr;
}

void read_literal(StepLexer *lexer) {
    advance(lexer);  // the opening quote
    for (;;) {
        const int c = peek(lexer);
        if (c < 0) {
            finish(lexer, StepToken::Error);
            return;
        }
        if (const LiteralSymbol *symbol = symbol_here(lexer)) {
            text_append(lexer, symbol->replacement != nullptr ? symbol->replacement : symbol->symbol);
            advance(lexer, symbol->length);
            continue;
        }
        advance(lexer);
        if (c == '\'') {
            finish(lexer, StepToken::Literal);
            return;
        }
        text_append(lexer, static_cast<char16_t>(c));
    }
}

void read_word(StepLexer *lexer) {
    for (int c = peek(lexer); c >= 0 && continues_word(c); c = peek(lexer)) {
        text_append(lexer, static_cast<char16_t>(c));
        advance(lexer);
    }
    finish(lexer, StepToken::Word);
    for (const ReservedWord &entry : lexer->words->entries) {
        if (wstr_equal_nocase(entry.word, lexer->text.data())) {
            lexer->word_code = entry.code;
            break;
        }
    }
}

// Skips blanks and comments; false when an unterminated comment ended the
// input (the error token is then set).
bool skip_blanks_and_comments(StepLexer *lexer) {
    for (;;) {
        const int c = peek(lexer);
        if (c >= 0 && is_blank(c)) {
            advance(lexer);
            continue;
        }
        if (c != '/' || peek(lexer, 1) != '*') return true;
        advance(lexer, 2);
        for (;;) {
            const int inside = peek(lexer);
            if (inside < 0) {
                finish(lexer, StepToken::Error);
                return false;
            }
            if (inside == '*' && peek(lexer, 1) == '/') {
                advance(lexer, 2);
                break;
            }
            advance(lexer);
        }
    }
}

void next_token(StepLexer *lexer) {
    text_clear(lexer);
    lexer->word_code = ULONG_MAX32;
    if (lexer->token == StepToken::End || lexer->token == StepToken::Error) {
        finish(lexer, StepToken::End);
        return;
    }
    if (!skip_blanks_and_comments(lexer)) return;
    const int c = peek(lexer);
    switch (c) {
        case -1: finish(lexer, StepToken::End); return;
        case '(': advance(lexer); finish(lexer, StepToken::LeftParen); return;
        case ')': advance(lexer); finish(lexer, StepToken::RightParen); return;
        case ',': advance(lexer); finish(lexer, StepToken::Comma); return;
        case ';': advance(lexer); finish(lexer, StepToken::Semicolon); return;
        case '$': advance(lexer); finish(lexer, StepToken::Dollar); return;
        default: break;
    }
    if (c == '\'' && lexer->quoted_literals) {
        read_literal(lexer);
    } else if (starts_word(c)) {
        read_word(lexer);
    } else {
        advance(lexer);
        text_append(lexer, static_cast<char16_t>(c));
        finish(lexer, StepToken::Other);
    }
}

bool started(StepLexer *lexer) {
    kx_assert_not_null(lexer);
    if (lexer == nullptr) return false;
    kx_assert(lexer->started);
    if (!lexer->started) steplexer_start(lexer);
    return true;
}

}  // namespace

StepLexer *steplexer_create(const char16_t *file_name, ReservedWords **words) {
    kx_assert_not_null(file_name);
    kx_assert_not_null(words);
    ReservedWords *table = words != nullptr ? mem_take(words) : nullptr;
    kx_assert_not_null(table);
    FILE *file = file_name != nullptr ? file_open(file_name, "rb") : nullptr;
    if (file == nullptr) {
        if (table != nullptr) steplexer_words_destroy(&table);
        return nullptr;
    }
    if (table == nullptr) table = steplexer_words_create();
    StepLexer *lexer = static_cast<StepLexer *>(mem_alloc(sizeof(StepLexer)));
    new (lexer) StepLexer{};
    lexer->file = file;
    lexer->words = table;
    lexer->buffer_length = STEPLEXER_DEFAULT_BUFFER_LENGTH;
    lexer->token = StepToken::Other;
    lexer->word_code = ULONG_MAX32;
    lexer->text.push_back(u'\0');
    return lexer;
}

void steplexer_set_buffer_length(StepLexer *lexer, uint32_t length) {
    kx_assert_not_null(lexer);
    if (lexer == nullptr) return;
    lexer->buffer_length = length;
    if (lexer->buffer != nullptr) allocate_buffer(lexer);
}

void steplexer_quote_literals(StepLexer *lexer) {
    kx_assert_not_null(lexer);
    if (lexer != nullptr) lexer->quoted_literals = true;
}

void steplexer_add_literal_filter(StepLexer *lexer, const char16_t *symbol,
                                  const char16_t *replacement) {
    kx_assert_not_null(lexer);
    kx_assert_not_null(symbol);
    if (lexer == nullptr || symbol == nullptr) return;
    const uint32_t length = wstr_length(symbol);
    kx_assert(length > 0);
    if (length == 0) return;
    LiteralSymbol entry{wstr_copy(symbol), length, wstr_copy_optional(replacement)};
    // Longest first, so a longer sequence wins over its own beginning.
    auto place = lexer->symbols.begin();
    while (place != lexer->symbols.end() && place->length >= length) ++place;
    lexer->symbols.insert(place, entry);
}

void steplexer_add_literal_symbol(StepLexer *lexer, const char16_t *symbol) {
    steplexer_add_literal_filter(lexer, symbol, nullptr);
}

void steplexer_start(StepLexer *lexer) {
    kx_assert_not_null(lexer);
    if (lexer == nullptr) return;
    kx_assert(!lexer->started);
    if (lexer->started) return;
    lexer->started = true;
    allocate_buffer(lexer);
    next_token(lexer);
}

void steplexer_read_token(StepLexer *lexer) {
    if (started(lexer)) next_token(lexer);
}

StepToken steplexer_token(const StepLexer *lexer) {
    kx_assert_not_null(lexer);
    return lexer != nullptr ? lexer->token : StepToken::End;
}

kx_bool16 steplexer_token_is(const StepLexer *lexer, StepToken kind) {
    kx_assert_not_null(lexer);
    if (lexer == nullptr) return FALSO;
    return lexer->token == kind ? CIERTO : FALSO;
}

kx_bool16 steplexer_token_is_and_read(StepLexer *lexer, StepToken kind) {
    if (!steplexer_token_is(lexer, kind)) return FALSO;
    steplexer_read_token(lexer);
    return CIERTO;
}

kx_bool16 steplexer_word_is_and_read(StepLexer *lexer, uint32_t code) {
    kx_assert_not_null(lexer);
    if (lexer == nullptr) return FALSO;
    if (lexer->token != StepToken::Word || lexer->word_code != code || code == ULONG_MAX32)
        return FALSO;
    steplexer_read_token(lexer);
    return CIERTO;
}

kx_bool16 steplexer_skip_to_word_and_read(StepLexer *lexer, uint32_t code) {
    if (!started(lexer)) return FALSO;
    while (lexer->token != StepToken::End && lexer->token != StepToken::Error) {
        if (steplexer_word_is_and_read(lexer, code)) return CIERTO;
        next_token(lexer);
    }
    return FALSO;
}

const char16_t *steplexer_literal(const StepLexer *lexer) {
    kx_assert_not_null(lexer);
    if (lexer == nullptr) return u"";
    kx_assert(lexer->token == StepToken::Literal);
    return lexer->text.data();
}

const char16_t *steplexer_token_text(const StepLexer *lexer) {
    kx_assert_not_null(lexer);
    if (lexer == nullptr) return u"";
    return lexer->text.data();
}

uint32_t steplexer_word_code(const StepLexer *lexer) {
    kx_assert_not_null(lexer);
    return lexer != nullptr ? lexer->word_code : ULONG_MAX32;
}

void steplexer_destroy(StepLexer **lexer) {
    kx_assert_not_null(lexer);
    if (lexer == nullptr) return;
    kx_assert_not_null(*lexer);
    if (*lexer == nullptr) return;
    StepLexer *self = *lexer;
    file_close(&self->file);
    steplexer_words_destroy(&self->words);
    for (LiteralSymbol &symbol : self->symbols) {
        wstr_destroy(&symbol.symbol);
        wstr_destroy_optional(&symbol.replacement);
    }
    mem_free(self->buffer);
    self->~StepLexer();
    mem_free_and_clear(lexer);
}

}  // namespace kx
