// The header lexer with small buffers that split tokens, and broken input
// (the header reader tests read real header text through it).
#include <random>
#include <string>
#include <vector>

#include "support/memory.h"
#include "support/steplexer.h"
#include "support/wstring.h"
#include "test_support.h"

namespace {

using kx::StepToken;

enum Word : uint32_t { ISO = 1, HEADER, FILE_DESCRIPTION, FILE_NAME, FILE_SCHEMA, ENDSEC, DATA, END_ISO };

const char *const HEADER_TEXT =
    "ISO-10303-21;\r\n"
    "HEADER;\n"
    "/* a comment with a ' quote; and ENDSEC */\n"
    "FILE_DESCRIPTION(('ViewDefinition [CoordinationView]'),'2;1');\n"
    "file_name('caf\\S\\'e.ifc','2024-01-01T10:00:00',('O''Brien'),(''),\n"
    "  'Processor /* not a comment */','App $ 1.0',$);\n"
    "FILE_SCHEMA(('IFC4'));\n"
    "ENDSEC;\n"
    "DATA;\n"
    "#1=IFCWALL('x',$,.T.);\n"
    "ENDSEC;\n"
    "END-ISO-10303-21;\n";

using kxtest::utf8;

class StepLexerTest : public kxtest::LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        ASSERT_TRUE(directory_.made());
        wide_path_ = kx::wstr_from_utf8(directory_.file(kFileName).c_str());
    }
    void TearDown() override {
        kx::wstr_destroy(&wide_path_);
        LibraryTest::TearDown();
    }

    void write_file(const std::string &content) { directory_.write(kFileName, content); }

    // A lexer over the file, set up as the header reader does.
    kx::StepLexer *open_lexer(uint32_t buffer_length = 0) {
        kx::ReservedWords *words = kx::steplexer_words_create();
        const char16_t *names[] = {u"ISO-10303-21", u"HEADER", u"FILE_DESCRIPTION", u"FILE_NAME",
                                   u"FILE_SCHEMA",  u"ENDSEC", u"DATA",             u"END-ISO-10303-21"};
        for (uint32_t i = 0; i < 8; i++) kx::steplexer_words_add(words, names[i], i + 1);
        kx::StepLexer *lexer = kx::steplexer_create(wide_path_, &words);
        EXPECT_EQ(words, nullptr);
        if (lexer == nullptr) return nullptr;
        if (buffer_length != 0) kx::steplexer_set_buffer_length(lexer, buffer_length);
        kx::steplexer_quote_literals(lexer);
        kx::steplexer_add_literal_symbol(lexer, u"\\S\\'");
        kx::steplexer_add_literal_filter(lexer, u"''", u"'");
        kx::steplexer_start(lexer);
        return lexer;
    }

    // Every token to the end, as "kind:text" (reserved words as "W<code>").
    static std::vector<std::string> all_tokens(kx::StepLexer *lexer, size_t limit = 1000000) {
        std::vector<std::string> tokens;
        while (tokens.size() < limit) {
            const StepToken kind = kx::steplexer_token(lexer);
            std::string text = utf8(kx::steplexer_token_text(lexer));
            if (kind == StepToken::Word && kx::steplexer_word_code(lexer) != kx::ULONG_MAX32)
                text = std::string("W").append(std::to_string(kx::steplexer_word_code(lexer)));
            tokens.push_back(std::to_string(static_cast<int>(kind)) + ":" + text);
            if (kind == StepToken::End) break;
            kx::steplexer_read_token(lexer);
        }
        return tokens;
    }

    static constexpr const char *kFileName = "lexer.ifc";
    kxtest::TempDirectory directory_{"kx_lexer"};
    kx::WideString wide_path_ = nullptr;
};

TEST_F(StepLexerTest, SmallBuffersGiveTheSameTokens) {
    // Bytes 0x80..0xFF become the code units of the same value.
    write_file(std::string(HEADER_TEXT) + "'\xE9\xFF' other #");
    kx::StepLexer *lexer = open_lexer();
    const std::vector<std::string> expected = all_tokens(lexer);
    kx::steplexer_destroy(&lexer);
    EXPECT_EQ(expected[expected.size() - 4], "5:\xC3\xA9\xC3\xBF");
    EXPECT_EQ(expected[expected.size() - 2], "7:#");
    for (uint32_t length : {1u, 5u, 16u, 17u, 19u, 23u, 64u, 200u}) {
        lexer = open_lexer(length);
        EXPECT_EQ(all_tokens(lexer), expected) << "buffer of " << length;
        kx::steplexer_destroy(&lexer);
    }
    // A buffer resized after the start keeps what it had read.
    lexer = open_lexer(16);
    kx::steplexer_read_token(lexer);
    kx::steplexer_set_buffer_length(lexer, 4096);
    std::vector<std::string> rest = all_tokens(lexer);
    EXPECT_EQ(rest, std::vector<std::string>(expected.begin() + 1, expected.end()));
    kx::steplexer_destroy(&lexer);
}

TEST_F(StepLexerTest, UnterminatedLiteralAndComment) {
    write_file("FILE_NAME('never closed, it''s");
    kx::StepLexer *lexer = open_lexer(16);
    EXPECT_TRUE(kx::steplexer_word_is_and_read(lexer, FILE_NAME));
    EXPECT_TRUE(kx::steplexer_token_is_and_read(lexer, StepToken::LeftParen));
    EXPECT_TRUE(kx::steplexer_token_is(lexer, StepToken::Error));
    EXPECT_EQ(utf8(kx::steplexer_token_text(lexer)), "never closed, it's");
    kx::steplexer_read_token(lexer);
    EXPECT_TRUE(kx::steplexer_token_is(lexer, StepToken::End));
    kx::steplexer_destroy(&lexer);

    write_file("HEADER; /* no end *");
    lexer = open_lexer();
    EXPECT_FALSE(kx::steplexer_skip_to_word_and_read(lexer, FILE_SCHEMA));
    EXPECT_TRUE(kx::steplexer_token_is(lexer, StepToken::Error));
    kx::steplexer_destroy(&lexer);

    write_file("");
    lexer = open_lexer();
    EXPECT_TRUE(kx::steplexer_token_is(lexer, StepToken::End));
    EXPECT_FALSE(kx::steplexer_skip_to_word_and_read(lexer, HEADER));
    kx::steplexer_read_token(lexer);
    EXPECT_TRUE(kx::steplexer_token_is(lexer, StepToken::End)) << "and stays there";
    kx::steplexer_destroy(&lexer);
}

TEST_F(StepLexerTest, BinaryGarbageEnds) {
    std::mt19937 random(3);
    std::string content("HEADER;\0'a\0b';", 14);
    content.push_back('\0');
    for (int i = 0; i < 200000; i++) content.push_back(static_cast<char>(random()));
    write_file(content);
    for (uint32_t length : {16u, 4096u}) {
        kx::StepLexer *lexer = open_lexer(length);
        const std::vector<std::string> tokens = all_tokens(lexer, 400000);
        EXPECT_EQ(tokens.back().substr(0, 2), "8:");  // reached the end (or an error before it)
        EXPECT_LE(tokens.size(), 200020u);
        kx::steplexer_destroy(&lexer);
    }
}

TEST_F(StepLexerTest, MissingFileReleasesTheTable) {
    kx::ReservedWords *words = kx::steplexer_words_create();
    kx::steplexer_words_add(words, u"HEADER", 2);
    EXPECT_EQ(kx::steplexer_create(wide_path_, &words), nullptr);
    EXPECT_EQ(words, nullptr);  // taken over and released
}

TEST_F(StepLexerTest, LiteralOfAnotherTokenIsReported) {
    write_file("HEADER;");
    kx::StepLexer *lexer = open_lexer();
    expect_reports();
    EXPECT_EQ(utf8(kx::steplexer_literal(lexer)), "HEADER");
    EXPECT_TRUE(asserts().saw("lexer->token == StepToken::Literal"));
    kx::steplexer_destroy(&lexer);
}

}  // namespace
