// Files by wide name, formatted output, and the binary save stream: round
// trips and what a truncated or corrupt stream does.
#include <cstdio>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "support/files.h"
#include "support/memory.h"
#include "support/ptrmap.h"
#include "support/savestream.h"
#include "support/steplexer.h"
#include "support/wstring.h"
#include "test_support.h"

namespace {

namespace fs = std::filesystem;

// A path as UTF-16, decoded from UTF-8.
std::u16string wide_path(const std::string &path) {
    kx::WideString text = kx::wstr_from_utf8(path.c_str());
    std::u16string copy(text);
    kx::wstr_destroy(&text);
    return copy;
}

using kxtest::read_file;
using kxtest::utf8;

using FilesTest = kxtest::LibraryTest;

TEST_F(FilesTest, JoinSplitOpenLengthRenameDelete) {
    const auto join = [](const char16_t *dir, const char16_t *name) {
        kx::WideString joined = kx::file_join_path(dir, name);
        std::string result = utf8(joined);
        kx::wstr_destroy(&joined);
        return result;
    };
    for (const char16_t *dir : {u"/tmp/models", u"/tmp/models/"})
        for (const char16_t *name : {u"a.ifc", u"/a.ifc"}) EXPECT_EQ(join(dir, name), "/tmp/models/a.ifc");
    EXPECT_EQ(join(u"/", u"a.ifc"), "/a.ifc");
    EXPECT_EQ(join(u"", u"a.ifc"), "a.ifc");

    const auto split = [](const char16_t *path, kx_bool16 keep_extension) {
        kx::WideString directory = nullptr, base = nullptr;
        kx::file_split_path(path, &directory, &base, keep_extension);
        std::string result = utf8(directory) + "|" + utf8(base);
        kx::wstr_destroy(&directory);
        kx::wstr_destroy(&base);
        return result;
    };
    EXPECT_EQ(split(u"/data/site.v2/model.ifc", FALSO), "/data/site.v2|model");
    EXPECT_EQ(split(u"/data/site.v2/model.ifc", CIERTO), "/data/site.v2|model.ifc");
    EXPECT_EQ(split(u"/data/site.v2/model", FALSO), "/data/site.v2|model");
    EXPECT_EQ(split(u"model.tar.ifc", FALSO), "|model.tar");
    EXPECT_EQ(split(u"/.hidden", FALSO), "/|.hidden");
    EXPECT_EQ(split(u"/data/", FALSO), "/data|");

    kx::WideString base = nullptr;
    kx::file_split_path(u"a/b.c", nullptr, &base, FALSO);  // directory not wanted
    EXPECT_EQ(utf8(base), "b");
    kx::wstr_destroy(&base);
    // A non-ASCII name goes to the system as UTF-8.
    const std::u16string name = wide_path(dir().file("pl\xC3\xA1nta.ifc"));
    const std::u16string other = wide_path(dir().file("renamed.ifc"));
    EXPECT_FALSE(kx::file_exists(name.c_str()));
    EXPECT_EQ(kx::file_length(name.c_str()), 0u);
    EXPECT_EQ(kx::file_open(name.c_str(), "rb"), nullptr);

    FILE *file = kx::file_open(name.c_str(), "w");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(kx::file_printf(file, "#%d=IFCWALL(%s);\n", 12, "$"), 16);
    EXPECT_EQ(kx::file_printf_wide(file, u"%s %hs %lu %.2f\n", u"ENDSEC", "x", 4294967295u, 1.5),
              25);
    EXPECT_TRUE(kx::file_close(&file));
    EXPECT_EQ(file, nullptr);
    EXPECT_TRUE(fs::exists(fs::u8path(dir().file("pl\xC3\xA1nta.ifc"))));
    EXPECT_EQ(read_file(dir().file("pl\xC3\xA1nta.ifc")), "#12=IFCWALL($);\nENDSEC x 4294967295 1.50\n");

    EXPECT_TRUE(kx::file_exists(name.c_str()));
    EXPECT_EQ(kx::file_length(name.c_str()), 41u);
    EXPECT_TRUE(kx::file_rename(name.c_str(), other.c_str()));
    EXPECT_FALSE(kx::file_exists(name.c_str()));
    EXPECT_FALSE(kx::file_rename(name.c_str(), other.c_str()));
    EXPECT_TRUE(kx::file_exists(other.c_str()));

    kx::file_delete_if_exists(name.c_str());  // absent: quiet
    kx::file_delete_if_exists(other.c_str());
    EXPECT_FALSE(kx::file_exists(other.c_str()));

    const std::u16string directory = wide_path(dir().path());
    EXPECT_FALSE(kx::file_exists(directory.c_str()));  // a directory is not a file

    FILE *again = kx::file_open(other.c_str(), "wb");
    kx::file_close(&again);
    EXPECT_TRUE(kx::file_delete_checked(other.c_str()));
    expect_reports();
    EXPECT_FALSE(kx::file_delete_checked(other.c_str()));
    EXPECT_TRUE(asserts().saw("deleted"));
}

// Elements of the maps written by the stream tests.
struct Pair {
    uint32_t key;
    kx::WideString name;
};

Pair *pair_new(uint32_t key, const char16_t *name) {
    Pair *pair = kx::mem_new_zeroed<Pair>();
    pair->key = key;
    pair->name = kx::wstr_copy_optional(name);
    return pair;
}
void pair_destroy(void **holder) {
    Pair *pair = static_cast<Pair *>(*holder);
    kx::wstr_destroy_optional(&pair->name);
    kx::mem_free_and_clear(holder);
}
void *pair_copy(const void *element) {
    const Pair *pair = static_cast<const Pair *>(element);
    return pair_new(pair->key, pair->name);
}
uint32_t pair_key(const void *element) { return static_cast<const Pair *>(element)->key; }
kx_bool16 pair_write(kx::SaveStream *stream, const void *element) {
    const Pair *pair = static_cast<const Pair *>(element);
    kx::savestream_write_ulong(stream, pair->key);
    kx::savestream_write_string(stream, pair->name);
    return CIERTO;
}
void *pair_read(kx::SaveStream *stream) {
    const uint32_t key = kx::savestream_read_ulong(stream);
    kx::WideString name = kx::savestream_read_string(stream);
    if (kx::savestream_has_error(stream)) {
        kx::wstr_destroy_optional(&name);
        return nullptr;
    }
    Pair *pair = pair_new(key, nullptr);
    pair->name = name;
    return pair;
}

TEST_F(FilesTest, SaveStreamRoundTripAndTruncatedOrCorruptStreamsFailSafely) {
    const std::u16string name = wide_path(dir().file("table.bin"));
    kx::SaveStream *out = kx::savestream_register_binary_file(name.c_str(), "wb");
    ASSERT_NE(out, nullptr);
    kx::savestream_write_byte(out, 0);
    kx::savestream_write_byte(out, 255);
    // The last one holds a surrogate pair.
    const char16_t *const texts[] = {u"2O2Fr$t4X7Zf8NOew3FLOH", u"", nullptr, u"caf\u00e9 \U0001F3E0"};
    for (const char16_t *text : texts) kx::savestream_write_string(out, text);
    kx::OrderedPtrMap *map = kx::orderedmap_create(pair_key, pair_copy, pair_destroy);
    for (uint32_t key : {30u, 10u, 20u, 10u}) kx::orderedmap_insert(map, pair_new(key, u"g"));
    kx::savestream_write_ordered_map(out, map, pair_write);
    kx::savestream_write_byte(out, 42);
    EXPECT_FALSE(kx::savestream_has_error(out));
    EXPECT_TRUE(kx::savestream_free(&out));
    EXPECT_EQ(out, nullptr);

    kx::SaveStream *in = kx::savestream_register_binary_file(name.c_str(), "rb");
    ASSERT_NE(in, nullptr);
    EXPECT_EQ(kx::savestream_read_byte(in), 0);
    EXPECT_EQ(kx::savestream_read_byte(in), 255);
    for (const char16_t *expected : texts) {
        kx::WideString text = kx::savestream_read_string(in);
        EXPECT_EQ(kxtest::text_of(text), kxtest::text_of(expected));
        kx::wstr_destroy_optional(&text);
    }
    kx::OrderedPtrMap *back =
        kx::savestream_read_ordered_map(in, pair_read, pair_key, pair_copy, pair_destroy);
    ASSERT_EQ(kx::orderedmap_count(back), 4u);
    for (uint32_t i = 0; i < 4; i++)
        EXPECT_EQ(pair_key(kx::orderedmap_get(back, i)), pair_key(kx::orderedmap_get(map, i)));
    EXPECT_EQ(kx::savestream_read_byte(in), 42);
    EXPECT_FALSE(kx::savestream_has_error(in));
    // Reading past the end: 0 and the error flag.
    EXPECT_EQ(kx::savestream_read_byte(in), 0);
    EXPECT_TRUE(kx::savestream_has_error(in));
    EXPECT_FALSE(kx::savestream_free(&in));
    kx::orderedmap_destroy(&map);
    kx::orderedmap_destroy(&back);

    const std::u16string missing = wide_path(dir().file("no/such/dir/table.bin"));
    EXPECT_EQ(kx::savestream_register_binary_file(missing.c_str(), "wb"), nullptr);

    // A truncated or corrupt stream fails safely.
    out = kx::savestream_register_binary_file(name.c_str(), "wb");
    map = kx::orderedmap_create(pair_key, pair_copy, pair_destroy);
    for (uint32_t key = 0; key < 50; key++) kx::orderedmap_insert(map, pair_new(key, u"name"));
    kx::savestream_write_ordered_map(out, map, pair_write);
    kx::savestream_free(&out);
    kx::orderedmap_destroy(&map);
    const std::string whole = read_file(dir().file("table.bin"));

    // Every truncation of the file reads back as an error and an empty map.
    for (size_t length = 0; length < whole.size(); length += 7) {
        const std::u16string cut = wide_path(dir().write("cut.bin", whole.substr(0, length)));
        in = kx::savestream_register_binary_file(cut.c_str(), "rb");
        back = kx::savestream_read_ordered_map(in, pair_read, pair_key, pair_copy, pair_destroy);
        EXPECT_EQ(kx::orderedmap_count(back), 0u) << "length " << length;
        EXPECT_TRUE(kx::savestream_has_error(in));
        kx::orderedmap_destroy(&back);
        kx::savestream_free(&in);
    }

    // Huge counts must not allocate or loop for them.
    const std::u16string bad =
        wide_path(dir().write("bad.bin", std::string("\xff\xff\xff\x7f\x01\x00\x00\x00\xfe\xff\xff\xff", 12)));
    in = kx::savestream_register_binary_file(bad.c_str(), "rb");
    back = kx::savestream_read_ordered_map(in, pair_read, pair_key, pair_copy, pair_destroy);
    EXPECT_EQ(kx::orderedmap_count(back), 0u);
    kx::orderedmap_destroy(&back);
    kx::savestream_free(&in);
    in = kx::savestream_register_binary_file(bad.c_str(), "rb");
    kx::savestream_read_ulong(in);
    kx::savestream_read_ulong(in);
    EXPECT_EQ(kx::savestream_read_string(in), nullptr);  // length 0xFFFFFFFE
    EXPECT_TRUE(kx::savestream_has_error(in));
    kx::savestream_free(&in);

    // Reading a stream opened for writing is a misuse.
    expect_reports();
    out = kx::savestream_register_binary_file(name.c_str(), "wb");
    EXPECT_EQ(kx::savestream_read_byte(out), 0);
    EXPECT_TRUE(asserts().saw("!stream->writing"));
    kx::savestream_free(&out);
}

// The header lexer with small buffers that split tokens, and broken input
// (the header reader tests read real header text through it).
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

class StepLexerTest : public kxtest::LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        path_ = wide_path(dir().file(kFileName));
    }

    void write_file(const std::string &content) { dir().write(kFileName, content); }

    // A lexer over the file, set up as the header reader does.
    kx::StepLexer *open_lexer(uint32_t buffer_length = 0) {
        kx::ReservedWords *words = kx::steplexer_words_create();
        const char16_t *names[] = {u"ISO-10303-21", u"HEADER", u"FILE_DESCRIPTION", u"FILE_NAME",
                                   u"FILE_SCHEMA",  u"ENDSEC", u"DATA",             u"END-ISO-10303-21"};
        for (uint32_t i = 0; i < 8; i++) kx::steplexer_words_add(words, names[i], i + 1);
        kx::StepLexer *lexer = kx::steplexer_create(path_.c_str(), &words);
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
    std::u16string path_;
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

// A missing file releases the reserved words; binary garbage, an
// unterminated literal or comment end in an error or at the end, an empty
// file at the end; the literal of another token is a misuse.
TEST_F(StepLexerTest, MissingFileBinaryGarbageUnterminatedTextEmptyFileAndMisuse) {
    kx::ReservedWords *words = kx::steplexer_words_create();
    kx::steplexer_words_add(words, u"HEADER", 2);
    EXPECT_EQ(kx::steplexer_create(path_.c_str(), &words), nullptr);
    EXPECT_EQ(words, nullptr);  // taken over and released

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
    expect_reports();
    EXPECT_EQ(utf8(kx::steplexer_literal(lexer)), "HEADER");
    EXPECT_TRUE(asserts().saw("lexer->token == StepToken::Literal"));
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

}  // namespace
