// The STEP string escapes: what the writer produces and what the reader
// decodes.
#include <string>

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

std::u16string encode(const std::u16string &text) {
    return taken(kxIfcWriteData_encode_string(text.c_str()));
}

std::u16string decode(const std::u16string &text) {
    return taken(kxIfcWriteData_decode_string(text.c_str()));
}

TEST_F(StringCodecTest, QuoteAndBackslashAreDoubled) {
    EXPECT_EQ(encode(u"It's"), u"It''s");
    EXPECT_EQ(encode(u"a\\b"), u"a\\\\b");
    EXPECT_EQ(encode(u"''"), u"''''");
    EXPECT_EQ(encode(u""), u"");
    // Printable ASCII stays as it is, '~' and the blank included.
    EXPECT_EQ(encode(u" Wall-1 ~#$*()\"."), u" Wall-1 ~#$*()\".");
}

TEST_F(StringCodecTest, EveryCodeUnitOutsidePrintableAsciiGetsItsOwnGroup) {
    EXPECT_EQ(encode(u"Wall \u00e9"), u"Wall \\X2\\00E9\\X0\\");
    EXPECT_EQ(encode(u"a\nb"), u"a\\X2\\000A\\X0\\b");
    EXPECT_EQ(encode(u"\t"), u"\\X2\\0009\\X0\\");
    EXPECT_EQ(encode(u"\u007f"), u"\\X2\\007F\\X0\\");
    // Two in a row: two groups, not one group of two.
    EXPECT_EQ(encode(u"\u00e9\u00e8"), u"\\X2\\00E9\\X0\\\\X2\\00E8\\X0\\");
    EXPECT_EQ(encode(u"\uFFFD"), u"\\X2\\FFFD\\X0\\");  // upper-case digits
    // A surrogate pair is escaped one half at a time.
    EXPECT_EQ(encode(u"\U0001F600"), u"\\X2\\D83D\\X0\\\\X2\\DE00\\X0\\");
}

TEST_F(StringCodecTest, DecodesTheWritersEscapes) {
    EXPECT_EQ(decode(u"It''s"), u"It's");
    EXPECT_EQ(decode(u"a\\\\b"), u"a\\b");
    EXPECT_EQ(decode(u"Wall \\X2\\00E9\\X0\\"), u"Wall \u00e9");
    EXPECT_EQ(decode(u"\\x2\\00e9\\x0\\"), u"\u00e9");  // either case
    EXPECT_EQ(decode(u"\\X2\\D83D\\X0\\\\X2\\DE00\\X0\\"), u"\U0001F600");
    EXPECT_EQ(decode(u""), u"");
}

TEST_F(StringCodecTest, DecodesTwoDigitEscapes) {
    EXPECT_EQ(decode(u"\\X\\E9t\\X\\E9"), u"\u00e9t\u00e9");
    EXPECT_EQ(decode(u"\\x\\e9"), u"\u00e9");
    EXPECT_EQ(decode(u"\\X\\0A"), u"\n");
    // An escaped quote joins the quotes around it like any other.
    EXPECT_EQ(decode(u"a\\X\\27b"), u"a'b");
    EXPECT_EQ(decode(u"\\X\\27\\X\\27"), u"'");
}

TEST_F(StringCodecTest, KeepsWhatIsNotAnEscapeLiterally) {
    // A group of several code units is not decoded.
    EXPECT_EQ(decode(u"\\X2\\00E900E8\\X0\\"), u"\\X2\\00E900E8\\X0\\");
    // A lone backslash, cut-off escapes and escapes without hex digits.
    EXPECT_EQ(decode(u"a\\b"), u"a\\b");
    EXPECT_EQ(decode(u"end\\"), u"end\\");
    EXPECT_EQ(decode(u"\\X2\\00E"), u"\\X2\\00E");
    EXPECT_EQ(decode(u"\\X2\\00E9\\X0"), u"\\X2\\00E9\\X0");
    EXPECT_EQ(decode(u"\\X\\4"), u"\\X\\4");
    EXPECT_EQ(decode(u"\\X\\G1"), u"\\X\\G1");
    EXPECT_EQ(decode(u"\\S\\a\\P"), u"\\S\\a\\P");
    // "\\" is read first, so what follows it is plain text.
    EXPECT_EQ(decode(u"\\\\X\\41"), u"\\X\\41");
}

TEST_F(StringCodecTest, EveryCodeUnitRoundTrips) {
    std::u16string all;
    for (uint32_t c = 1; c <= 0xFFFF; c++) all.push_back(static_cast<char16_t>(c));
    const std::u16string encoded = encode(all);
    for (char16_t c : encoded) ASSERT_TRUE(c >= 0x20 && c <= 0x7E) << int(c);
    EXPECT_EQ(decode(encoded), all);

    for (const std::u16string text :
         {u"It's", u"a\\b", u"''''", u"\\X\\41", u"\\X2\\00E9\\X0\\", u"x\n\ty\u00e9'\\"})
        EXPECT_EQ(decode(encode(text)), text);
}

}  // namespace
