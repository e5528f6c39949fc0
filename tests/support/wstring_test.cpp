#include <cfloat>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <string>

#include "kxifcmodel.h"
#include "support/memory.h"
#include "support/wstring.h"
#include "test_support.h"

namespace {

using kx::WideString;

// Copies a library string into a std::u16string and frees it.
std::u16string take(WideString text) {
    EXPECT_NE(text, nullptr);
    if (text == nullptr) return u"<null>";
    std::u16string copy(text);
    kx::wstr_destroy(&text);
    EXPECT_EQ(text, nullptr);
    return copy;
}

std::string take_utf8(char *text) {
    std::string copy(text);
    kx::mem_free_and_clear(&text);
    return copy;
}

using kxtest::wide;

class WideStringTest : public kxtest::LibraryTest {};

TEST_F(WideStringTest, NullWhereAStringIsRequiredIsReported) {
    expect_reports();
    EXPECT_EQ(kx::wstr_copy(nullptr), nullptr);
    EXPECT_TRUE(asserts().saw("(text) != NULL"));
    WideString held = nullptr;
    kx::wstr_destroy(&held);
    EXPECT_TRUE(asserts().saw("(*holder) != NULL"));
    EXPECT_EQ(kx::wstr_length(nullptr), 0u);
    EXPECT_FALSE(kx::wstr_equal(u"a", nullptr));
    EXPECT_EQ(asserts().reports().size(), 4u);
}

TEST_F(WideStringTest, ConcatenatesInPlaceEvenWithItself) {
    WideString text = kx::wstr_copy(u"Ifc");
    kx::wstr_concat(&text, u"Wall");
    kx::wstr_concat(&text, u"");
    EXPECT_EQ(std::u16string(text), u"IfcWall");
    kx::wstr_concat(&text, text + 3);  // the tail lives inside the held string
    EXPECT_EQ(take(text), u"IfcWallWall");
}

TEST_F(WideStringTest, CaseBlanksAndSearch) {
    WideString text = kx::wstr_copy(u"ifc_wall-\u00e9z");
    kx::wstr_to_upper(text);
    EXPECT_EQ(take(text), u"IFC_WALL-\u00e9Z");

    EXPECT_TRUE(kx::wstr_is_blank(u""));
    EXPECT_TRUE(kx::wstr_is_blank(u" \t\r\n "));
    EXPECT_FALSE(kx::wstr_is_blank(u"  x "));

    EXPECT_TRUE(kx::wstr_find_word(u"IFC2X3_TC1", u"2X3"));
    EXPECT_TRUE(kx::wstr_find_word(u"IFC4", u"IFC4"));
    EXPECT_FALSE(kx::wstr_find_word(u"IFC4", u"IFC4X"));
    EXPECT_FALSE(kx::wstr_find_word(u"IFC4", u"ifc"));
}

TEST_F(WideStringTest, ReplacesEveryOccurrence) {
    WideString text = kx::wstr_copy(u"it''s ''quoted''");
    kx::wstr_replace_all(&text, u"''", u"'");
    EXPECT_EQ(std::u16string(text), u"it's 'quoted'");
    kx::wstr_replace_all(&text, u"'", u"\\S\\'");  // grows
    EXPECT_EQ(std::u16string(text), u"it\\S\\'s \\S\\'quoted\\S\\'");
    kx::wstr_replace_all(&text, u"absent", u"x");
    kx::wstr_replace_all(&text, u"", u"x");  // nothing to look for
    EXPECT_EQ(take(text), u"it\\S\\'s \\S\\'quoted\\S\\'");

    text = kx::wstr_copy(u"aaaaa");
    kx::wstr_replace_all(&text, u"aa", u"b");  // left to right, no overlaps
    EXPECT_EQ(take(text), u"bba");
    text = kx::wstr_copy(u"xx");
    kx::wstr_replace_all(&text, u"x", u"");
    EXPECT_EQ(take(text), u"");
}

TEST_F(WideStringTest, InvalidUtf8BecomesReplacementCharacters) {
    struct Case {
        const char *utf8;
        std::u16string expected;
    };
    const Case cases[] = {
        {"\x80", u"\ufffd"},                              // stray continuation
        {"a\xbf" "b", u"a\ufffdb"},
        {"\xc0\x80", u"\ufffd\ufffd"},                    // overlong NUL
        {"\xc1\xbf", u"\ufffd\ufffd"},                    // overlong
        {"\xe0\x80\xaf", u"\ufffd\ufffd\ufffd"},          // overlong three-byte
        {"\xf0\x8f\xbf\xbf", u"\ufffd\ufffd\ufffd\ufffd"},  // overlong four-byte
        {"\xed\xa0\x80", u"\ufffd\ufffd\ufffd"},          // encoded high surrogate
        {"\xed\xbf\xbf", u"\ufffd\ufffd\ufffd"},          // encoded low surrogate
        {"\xf4\x90\x80\x80", u"\ufffd\ufffd\ufffd\ufffd"},  // beyond U+10FFFF
        {"\xf5\x80", u"\ufffd\ufffd"},                    // lead byte above F4
        {"\xff" "A", u"\ufffdA"},
        {"\xe2\x82", u"\ufffd"},                          // truncated at the end
        {"\xe2\x82" "A", u"\ufffdA"},                     // truncated mid-text
        {"\xf0\x9f\x98", u"\ufffd"},
        {"\xf0\x9f" "\xc3\xa9", u"\ufffd\u00e9"},         // next sequence survives
    };
    for (const Case &c : cases) EXPECT_EQ(take(kx::wstr_from_utf8(c.utf8)), c.expected) << c.utf8;
}

TEST_F(WideStringTest, EncodesUtf8AndReplacesLoneSurrogates) {
    EXPECT_EQ(take_utf8(kx::wstr_to_utf8(u"")), "");
    EXPECT_EQ(take_utf8(kx::wstr_to_utf8(u"A\u00e9\u20ac\U0001F600\U0010FFFF")),
              "A\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80\xf4\x8f\xbf\xbf");
    const char16_t lone_high_at_end[] = {u'a', 0xD83D, 0};
    const char16_t lone_low[] = {0xDE00, u'b', 0};
    const char16_t high_then_letter[] = {0xD83D, u'c', 0};
    const char16_t swapped_pair[] = {0xDE00, 0xD83D, 0};
    EXPECT_EQ(take_utf8(kx::wstr_to_utf8(lone_high_at_end)), "a\xef\xbf\xbd");
    EXPECT_EQ(take_utf8(kx::wstr_to_utf8(lone_low)), "\xef\xbf\xbd" "b");
    EXPECT_EQ(take_utf8(kx::wstr_to_utf8(high_then_letter)), "\xef\xbf\xbd" "c");
    EXPECT_EQ(take_utf8(kx::wstr_to_utf8(swapped_pair)), "\xef\xbf\xbd\xef\xbf\xbd");

    // Every scalar value survives UTF-16 -> UTF-8 -> UTF-16.
    for (uint32_t code = 1; code <= 0x10FFFF; code += (code < 0x30000 ? 1 : 0x101)) {
        if (code >= 0xD800 && code <= 0xDFFF) continue;
        char16_t units[3] = {};
        if (code < 0x10000) {
            units[0] = char16_t(code);
        } else {
            units[0] = char16_t(0xD800 + ((code - 0x10000) >> 10));
            units[1] = char16_t(0xDC00 + ((code - 0x10000) & 0x3FF));
        }
        char *utf8 = kx::wstr_to_utf8(units);
        WideString back = kx::wstr_from_utf8(utf8);
        kx::mem_free_and_clear(&utf8);
        ASSERT_EQ(std::u16string(back), std::u16string(units)) << std::hex << code;
        kx::wstr_destroy(&back);
    }
}

TEST_F(WideStringTest, FormatsIntegersTextAndCharacters) {
    const std::pair<std::u16string, std::u16string> cases[] = {
        {take(kx::wstr_format(u"%d %i %u %x %X %o %#x", -1, 42, 3000000000u, 255u, 255u, 8u, 255u)),
         u"-1 42 3000000000 ff FF 10 0xff"},
        {take(kx::wstr_format(u"%lld %zu", INT64_MIN, SIZE_MAX)), u"-9223372036854775808 18446744073709551615"},
        {take(kx::wstr_format(u"%hd %hu %hhd %llu", 70000, 70000, 300, UINT64_MAX)),
         u"4464 4464 44 18446744073709551615"},
        {take(kx::wstr_format(u"[%5d|%-5d|%05d|%+d|% d]", 42, 42, -42, 42, 42)), u"[   42|42   |-0042|+42| 42]"},
        {take(kx::wstr_format(u"[%.3d|%*d|%-*d|%*d]", 7, 4, 1, 3, 2, -4, 9)), u"[007|   1|2  |9   ]"},
        // Arguments after 32-bit and 64-bit ones are read from the right place.
        {take(kx::wstr_format(u"%ld %lld %ld %s", int32_t(1), 2LL, int32_t(3), u"four")), u"1 2 3 four"},
        {take(kx::wstr_format(u"'%s' %hs", u"\u00e9\U0001F600", "Caf\xe9")), u"'\u00e9\U0001F600' Caf\u00e9"},
        {take(kx::wstr_format(u"[%6s|%-6s|%.2s|%6.2hs]", u"abc", u"abc", u"abc", "xyz")), u"[   abc|abc   |ab|    xy]"},
        {take(kx::wstr_format(u"%s|%hs", static_cast<const char16_t *>(nullptr), static_cast<const char *>(nullptr))),
         u"(null)|(null)"},
        {take(kx::wstr_format(u"%c%c%3c%hc", 'A', 0x20AC, 'z', '\xe9')), u"A\u20ac  z\u00e9"},
        {take(kx::wstr_format(u"100%% \u00e9%d\u20ac", 5)), u"100% \u00e95\u20ac"},
        {take(kx::wstr_format(u"")), u""},
    };
    for (const auto &[got, expected] : cases) EXPECT_EQ(got, expected);
    int object = 0;
    char expected[64];
    std::snprintf(expected, sizeof expected, "%p", static_cast<void *>(&object));
    EXPECT_EQ(take(kx::wstr_format(u"%p", static_cast<void *>(&object))), wide(expected));
}

TEST_F(WideStringTest, FormatsFloatingPointAsPrintfDoes) {
    const char *specs[] = {"%f", "%F", "%e", "%E", "%g", "%G", "%+.3e", "%012.4f", "%-12.2f|",
                           "%#.0f", "%.0e", "%a", "%.17g"};
    const double values[] = {0.0, -0.0, 1.0, -123.456, 1e-300, 6.02214076e23, DBL_MAX,
                             1.0 / 0.0, -1.0 / 0.0};
    for (const char *spec : specs) {
        for (double value : values) {
            char expected[512];
            std::snprintf(expected, sizeof expected, spec, value);
            EXPECT_EQ(take(kx::wstr_format(wide(spec).c_str(), value)), wide(expected))
                << spec << " " << value;
        }
    }
    EXPECT_EQ(take(kx::wstr_format(u"%.*f", 2, 3.14159)), u"3.14");
    EXPECT_EQ(take(kx::wstr_format(u"%.*f", -1, 1.5)), u"1.500000");  // negative: no precision
    EXPECT_EQ(take(kx::wstr_format(u"%Lg", 2.5L)), u"2.5");
    // Longer than any fixed buffer.
    EXPECT_EQ(take(kx::wstr_format(u"%f", DBL_MAX)).size(), 316u);
    EXPECT_EQ(take(kx::wstr_format(u"%300d", 1)), std::u16string(299, u' ') + u"1");
}

TEST_F(WideStringTest, UnknownConversionIsReportedAndKept) {
    expect_reports();
    EXPECT_EQ(take(kx::wstr_format(u"a%qb %d", 7)), u"a%qb 7");
    EXPECT_EQ(take(kx::wstr_format(u"end%")), u"end%");
    ASSERT_EQ(asserts().reports().size(), 2u);
    EXPECT_EQ(asserts().reports()[0].condition, "");
    EXPECT_EQ(asserts().reports()[0].source, "kxwstring (KXIFCMODEL.DLL)");
}

TEST_F(WideStringTest, TextApiAcceptsNullsEverywhere) {
    EXPECT_EQ(kxWideString_new_from_utf8(nullptr), nullptr);
    EXPECT_EQ(kxWideString_to_utf8(nullptr), nullptr);
    EXPECT_EQ(kxWideString_length(nullptr), 0u);
    kxWChar *no_wide = nullptr;
    char *no_narrow = nullptr;
    kxWideString_free(&no_wide);
    kxUtf8String_free(&no_narrow);
    kxWideString_free(nullptr);
    kxUtf8String_free(nullptr);
}

}  // namespace
