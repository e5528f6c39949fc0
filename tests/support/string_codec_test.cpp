// The STEP string escapes: what the writer produces and what the reader
// decodes.
#include <string>
#include <utility>

#include "support/writedata.h"
#include "support/wstring.h"
#include "test_support.h"

namespace {

using StringCodecTest = kxtest::LibraryTest;

std::u16string taken(char16_t *text) {
    std::u16string result(text);
    kx::wstr_destroy(&text);
    return result;
}

std::u16string encode(const std::u16string &text) { return taken(kxIfcWriteData_encode_string(text.c_str())); }
std::u16string decode(const std::u16string &text) { return taken(kxIfcWriteData_decode_string(text.c_str())); }

// Text and what the writer makes of it.
const std::pair<std::u16string, std::u16string> kEncoded[] = {
    // Quote and backslash are doubled; printable ASCII, '~' and the blank
    // included, stays as it is.
    {u"It's", u"It''s"}, {u"a\\b", u"a\\\\b"}, {u"''", u"''''"}, {u"", u""},
    {u" Wall-1 ~#$*()\".", u" Wall-1 ~#$*()\"."},
    // Every code unit outside printable ASCII gets its own group (two in a
    // row: two groups) in upper-case digits; a surrogate pair one half at a
    // time.
    {u"Wall \u00e9", u"Wall \\X2\\00E9\\X0\\"}, {u"a\nb", u"a\\X2\\000A\\X0\\b"}, {u"\t", u"\\X2\\0009\\X0\\"},
    {u"\u007f", u"\\X2\\007F\\X0\\"}, {u"\u00e9\u00e8", u"\\X2\\00E9\\X0\\\\X2\\00E8\\X0\\"},
    {u"\uFFFD", u"\\X2\\FFFD\\X0\\"}, {u"\U0001F600", u"\\X2\\D83D\\X0\\\\X2\\DE00\\X0\\"},
};

// Text as a file holds it and what the reader makes of it.
const std::pair<std::u16string, std::u16string> kDecoded[] = {
    // The writer's escapes, in either case.
    {u"It''s", u"It's"}, {u"a\\\\b", u"a\\b"}, {u"Wall \\X2\\00E9\\X0\\", u"Wall \u00e9"},
    {u"\\x2\\00e9\\x0\\", u"\u00e9"}, {u"\\X2\\D83D\\X0\\\\X2\\DE00\\X0\\", u"\U0001F600"}, {u"", u""},
    // Two-digit escapes; an escaped quote joins the quotes around it.
    {u"\\X\\E9t\\X\\E9", u"\u00e9t\u00e9"}, {u"\\x\\e9", u"\u00e9"}, {u"\\X\\0A", u"\n"},
    {u"a\\X\\27b", u"a'b"}, {u"\\X\\27\\X\\27", u"'"},
    // Kept literally: a group of several code units, a lone backslash,
    // cut-off escapes, escapes without hex digits, and what follows "\\".
    {u"\\X2\\00E900E8\\X0\\", u"\\X2\\00E900E8\\X0\\"}, {u"a\\b", u"a\\b"}, {u"end\\", u"end\\"},
    {u"\\X2\\00E", u"\\X2\\00E"}, {u"\\X2\\00E9\\X0", u"\\X2\\00E9\\X0"}, {u"\\X\\4", u"\\X\\4"},
    {u"\\X\\G1", u"\\X\\G1"}, {u"\\S\\a\\P", u"\\S\\a\\P"}, {u"\\\\X\\41", u"\\X\\41"},
};

TEST_F(StringCodecTest, EncodesAndDecodesTheEscapes) {
    for (const auto &[text, encoded] : kEncoded) EXPECT_EQ(encode(text), encoded) << kxtest::utf8(text.c_str());
    for (const auto &[text, decoded] : kDecoded) EXPECT_EQ(decode(text), decoded) << kxtest::utf8(text.c_str());
}

TEST_F(StringCodecTest, EveryCodeUnitRoundTrips) {
    std::u16string all;
    for (uint32_t c = 1; c <= 0xFFFF; c++) all.push_back(static_cast<char16_t>(c));
    const std::u16string encoded = encode(all);
    for (char16_t c : encoded) ASSERT_TRUE(c >= 0x20 && c <= 0x7E) << int(c);
    EXPECT_EQ(decode(encoded), all);
    for (const auto &pair : kEncoded) EXPECT_EQ(decode(encode(pair.first)), pair.first);
}

}  // namespace
