// Instance lines as the value writers print them: separators, nested lists
// and typed values, the base-type writers, the 120-column wrapping and ids.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <tuple>
#include <utility>

#include "core/coretypes.h"
#include "core/coretypes_io.h"
#include "support/writedata.h"
#include "support/wstring.h"
#include "record_helpers.h"
#include "test_support.h"

namespace {

class ValueWriterTest : public kxtest::LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        file_ = open_memstream(&buffer_, &size_);
        ASSERT_NE(file_, nullptr);
        writer_ = kxIfcWriteData_new(file_);
    }
    void TearDown() override {
        if (writer_ != nullptr) kxIfcWriteData_free(&writer_);
        std::fclose(file_);
        std::free(buffer_);
        LibraryTest::TearDown();
    }
    // Everything printed so far.
    std::string output() {
        std::fflush(file_);
        return std::string(buffer_, size_);
    }
    // Prints the collected parameters as "#id= NAME(...);".
    std::string line(const char16_t *name = u"IfcThing", uint32_t id = 1) {
        const size_t before = output().size();
        kxIfcWriteData_write_entity_line(writer_, name, id, nullptr);
        return output().substr(before);
    }
    kxIfcWriteData *writer_ = nullptr;

private:
    FILE *file_ = nullptr;
    char *buffer_ = nullptr;
    size_t size_ = 0;
};

void write_label(kxIfcWriteData *writer, const char16_t *text) {
    kxIfcWriteData_begin_typed_value(writer);
    kxIfcWriteData_write_string(writer, text);
    kxIfcWriteData_end_typed_value(writer, u"IFCLABEL");
}

// ---- separators and groups ----

TEST_F(ValueWriterTest, ValueFormsGroupsAndLinesWithTheWritersCounterOrTheirIdNestedOnesReferenced) {
    kxIfcWriteData_begin_parameters(writer_);
    kxIfcWriteData_write_integer(writer_, INT32_MIN);
    kxIfcWriteData_write_integer(writer_, 2147483647);
    kxIfcWriteData_write_reference(writer_, 4294967295u);
    kxIfcWriteData_write_real(writer_, -0.5);
    kxIfcWriteData_write_real(writer_, 1e-5);  // glibc: two exponent digits
    kxIfcWriteData_write_string(writer_, u"It's a\\b");
    kxIfcWriteData_write_string(writer_, u"");
    char16_t *owned = kx::wstr_copy(u".ELEMENT.");
    kxIfcWriteData_write_text_owned(writer_, &owned);
    EXPECT_EQ(owned, nullptr);
    // A group closed as the other kind; the type name is kept as given.
    kxIfcWriteData_begin_typed_value(writer_);
    kxIfcWriteData_write_integer(writer_, 1);
    kxIfcWriteData_end_list(writer_);
    kxIfcWriteData_begin_parameters(writer_);
    kxIfcWriteData_write_integer(writer_, 2);
    kxIfcWriteData_end_typed_value(writer_, u"IfcInteger");
    EXPECT_EQ(line(u"IfcRel_x9"), "#1= IFCREL_X9(-2147483648,2147483647,#4294967295,-0.5,1.E-05,'It''s a\\\\b','',"
                                  ".ELEMENT.,(1),IfcInteger(2));\n");
    kxIfcWriteData_begin_parameters(writer_);
    EXPECT_EQ(line(), "#1= IFCTHING();\n");

    // The base-type writers; an undefined logical comes out UNKNOWN.
    kxIfcWriteData_begin_parameters(writer_);
    kx::coretype_write_boolean(writer_, kxBTRUE);
    kx::coretype_write_boolean(writer_, kxBFALSE);
    for (kxLogical value : {kx::kLogicalTrue, kx::kLogicalFalse, kx::kLogicalUnknown, kx::kLogicalUndefined})
        kx::coretype_write_logical(writer_, value);
    kx::coretype_write_integer(writer_, -7);
    kx::coretype_write_real(writer_, 2.0);
    kx::coretype_write_string(writer_, u"It's");
    kx::coretype_write_string(writer_, nullptr);
    char three_bits[] = {'1', '0', '1'};
    kx::coretype_write_binary(writer_, kxBinary{three_bits, 3});
    kx::coretype_write_binary(writer_, kxBinary{nullptr, 0});  // nothing written
    EXPECT_EQ(line(), "#1= IFCTHING(.T.,.F.,.T.,.F.,.U.,.U.,-7,2.,'It''s',$,\"15\");\n");

    // Binary literals: the leading digit counts the unused high bits.
    kxIfcWriteData_begin_parameters(writer_);
    for (const char16_t *bits : {u"1", u"0101", u"11111", u"10000000", u"", u"011010011"})
        kxIfcWriteData_write_binary(writer_, bits);  // "" writes nothing at all
    EXPECT_EQ(line(), "#1= IFCTHING(\"31\",\"05\",\"31F\",\"080\",\"30D3\");\n");
    kxIfcWriteData_begin_parameters(writer_);
    std::string bits(1001, '1');
    kx::coretype_write_binary(writer_, kxBinary{bits.data(), 1001});  // past the stack buffer
    EXPECT_EQ(line(), "#1= IFCTHING(\"31" + std::string(250, 'F') + "\");\n");

    // A given id leaves the counter alone.
    const size_t start = output().size();
    const std::tuple<const char16_t *, uint32_t, uint32_t> lines[] = {
        {u"IfcA", 0xFFFFFFFFu, 1u}, {u"IfcB", 30u, 30u}, {u"IfcC", 0xFFFFFFFFu, 2u}};
    for (const auto &[name, given, expected] : lines) {
        uint32_t id = 0;
        kxIfcWriteData_begin_parameters(writer_);
        kxIfcWriteData_write_entity_line(writer_, name, given, &id);
        EXPECT_EQ(id, expected);
    }
    kxIfcWriteData_begin_parameters(writer_);
    kxIfcWriteData_write_entity_line(writer_, u"IfcD", 0xFFFFFFFFu, nullptr);
    EXPECT_EQ(output().substr(start), "#1= IFCA();\n#30= IFCB();\n#2= IFCC();\n#3= IFCD();\n");
    // An instance written while another is collected is referenced by it.
    kxIfcWriteData_begin_parameters(writer_);
    EXPECT_TRUE(kxIfcWriteData_is_writing_nested(writer_));
    kxIfcWriteData_write_integer(writer_, 5);
    kxIfcWriteData_begin_parameters(writer_);
    kxIfcWriteData_write_string(writer_, u"inner");
    write_label(writer_, u"label");
    kxIfcWriteData_write_entity_line(writer_, u"IfcInner", 0xFFFFFFFFu, nullptr);
    kxIfcWriteData_write_unset(writer_);
    kxIfcWriteData_write_entity_line(writer_, u"IfcOuter", 9, nullptr);
    EXPECT_FALSE(kxIfcWriteData_is_writing_nested(writer_));
    EXPECT_EQ(output().substr(start + 49), "#4= IFCINNER('inner',IFCLABEL('label'));\n#9= IFCOUTER(5,#4,$);\n");
}

// ---- wrapping at 120 columns ----

// A value of exactly `length` characters.
std::u16string value_of(size_t length, char16_t fill = u'A') { return std::u16string(length, fill); }

// A new line starts before the value that would pass column 120 (one ending
// at 120 stays); a value longer than a line stands alone unless it comes
// first; parentheses wrap like values, and a type name keeps its "(".
TEST_F(ValueWriterTest, WrapsBeforeColumn120AndMisuseIsReported) {
    const std::string a10(10, 'A'), a100(100, 'A'), a106(106, 'A'), a200(200, 'A');
    // "#1= IFCTHING(" is 13 columns; nine values of 10 with their commas reach 111.
    kxIfcWriteData_begin_parameters(writer_);
    for (int i = 0; i < 9; i++) kxIfcWriteData_write_text(writer_, value_of(10).c_str());
    kxIfcWriteData_write_text(writer_, value_of(8, u'B').c_str());
    kxIfcWriteData_write_text(writer_, value_of(10).c_str());
    std::string expected = "#1= IFCTHING(";
    for (int i = 0; i < 9; i++) expected += a10 + ",";
    EXPECT_EQ(line(), expected + "BBBBBBBB,\n" + a10 + ");\n");

    kxIfcWriteData_begin_parameters(writer_);
    kxIfcWriteData_write_text(writer_, value_of(200).c_str());
    kxIfcWriteData_write_integer(writer_, 1);
    kxIfcWriteData_write_text(writer_, value_of(200).c_str());
    kxIfcWriteData_write_integer(writer_, 2);
    EXPECT_EQ(line(), "#1= IFCTHING(" + a200 + ",\n1,\n" + a200 + ",\n2);\n");

    kxIfcWriteData_begin_parameters(writer_);
    kxIfcWriteData_write_text(writer_, value_of(106).c_str());  // 13 + 106 = 119
    kxIfcWriteData_begin_parameters(writer_);                  // comma: 120, "(" passes
    kxIfcWriteData_write_integer(writer_, 1);
    kxIfcWriteData_end_list(writer_);
    EXPECT_EQ(line(), "#1= IFCTHING(" + a106 + ",\n(1));\n");
    kxIfcWriteData_begin_parameters(writer_);
    kxIfcWriteData_begin_parameters(writer_);
    kxIfcWriteData_write_text(writer_, value_of(106).c_str());  // 120: the ")" goes on
    kxIfcWriteData_end_list(writer_);
    EXPECT_EQ(line(), "#1= IFCTHING((" + a106 + "\n));\n");
    kxIfcWriteData_begin_parameters(writer_);
    kxIfcWriteData_write_text(writer_, value_of(100).c_str());
    write_label(writer_, u"Wall");
    EXPECT_EQ(line(), "#1= IFCTHING(" + a100 + ",IFCLABEL(\n'Wall'));\n");
    // Closing without a group, NULL arguments, bad values for the base-type
    // writers and freeing with a group open are reported; what can be printed
    // still is.
    char bits[] = {'1', '0', 'x', '1'};
    expect_each_reported({
        {"num_stacked_buffers > 0", [&] { kxIfcWriteData_end_list(writer_); }},
        {"num_stacked_buffers > 0", [&] {
             kxIfcWriteData_write_integer(writer_, 4);
             EXPECT_EQ(line(), "#1= IFCTHING(4);\n");  // printed, then nothing to go back to
         }},
        {"(value_text) != NULL", [&] {
             kxIfcWriteData_begin_parameters(writer_);
             kxIfcWriteData_write_text(writer_, nullptr);
         }},
        {"(value_text) != NULL", [&] { kxIfcWriteData_write_string(writer_, nullptr); }},
        {"(write_data) != NULL", [] { kxIfcWriteData_write_integer(nullptr, 1); }},
        {"value == kxBFALSE", [&] { kx::coretype_write_boolean(writer_, 5); }},
        {"", [&] { kx::coretype_write_logical(writer_, 7); }},
        {"value.contents[i] == '1'", [&] { kx::coretype_write_binary(writer_, kxBinary{bits, 4}); }},
    });
    EXPECT_EQ(line(), "#1= IFCTHING(.F.,.U.,\"0B\");\n");
    expect_each_reported({{"num_stacked_buffers == 0", [&] {
        kxIfcWriteData_begin_parameters(writer_);
        kxIfcWriteData_free(&writer_);
    }}});
    EXPECT_EQ(writer_, nullptr);
}

// The STEP string escapes: what the writer produces and what the reader
// decodes.
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

TEST_F(StringCodecTest, EncodesAndDecodesTheEscapesAndEveryCodeUnitRoundTrips) {
    for (const auto &[text, encoded] : kEncoded) EXPECT_EQ(encode(text), encoded) << kxtest::utf8(text.c_str());
    for (const auto &[text, decoded] : kDecoded) EXPECT_EQ(decode(text), decoded) << kxtest::utf8(text.c_str());
    std::u16string all;
    for (uint32_t c = 1; c <= 0xFFFF; c++) all.push_back(static_cast<char16_t>(c));
    const std::u16string encoded = encode(all);
    for (char16_t c : encoded) ASSERT_TRUE(c >= 0x20 && c <= 0x7E) << int(c);
    EXPECT_EQ(decode(encoded), all);
    for (const auto &pair : kEncoded) EXPECT_EQ(decode(encode(pair.first)), pair.first);
}

// An instance printed as its values come (its head given first) and one
// whose values are collected until its head comes print alike: the same
// separators, wrapping at 120 columns and value forms, in both text modes,
// batched or not.

// Writes a random instance body: values of every form, some long enough to
// wrap, nested lists and typed values.
void write_values(kxIfcWriteData *output, uint64_t seed, bool named_first) {
    std::mt19937_64 random(seed);
    static const char16_t *const kTypeNames[] = {u"IFCLABEL", u"IFCLENGTHMEASURE", u"IFCA"};
    int depth = 0;
    const int count = 5 + static_cast<int>(random() % 40);
    for (int i = 0; i < count; i++) {
        switch (random() % 10) {
            case 0: kxIfcWriteData_write_reference(output, static_cast<uint32_t>(random() % 2000000000)); break;
            case 1: kxIfcWriteData_write_integer(output, static_cast<int32_t>(random())); break;
            case 2: kxIfcWriteData_write_real(output, std::ldexp(static_cast<double>(random() % 100000), -12 + static_cast<int>(random() % 40))); break;
            case 3: kxIfcWriteData_write_string(output, std::u16string(random() % 90, u'x').append(u"'\\\u00e9").c_str()); break;
            case 4: kxIfcWriteData_write_text(output, u".NOTDEFINED."); break;
            case 5: (random() & 1) != 0 ? kxIfcWriteData_write_unset(output) : kxIfcWriteData_write_derived(output); break;
            case 6:
            case 7:
                kxIfcWriteData_begin_parameters(output);
                depth++;
                break;
            case 8: {
                const char16_t *name = kTypeNames[random() % 3];
                if (named_first)
                    kxIfcWriteData_begin_named_value(output, name);
                else
                    kxIfcWriteData_begin_typed_value(output);
                kxIfcWriteData_write_real(output, static_cast<double>(random() % 1000) / 7.0);
                kxIfcWriteData_end_typed_value(output, name);
                break;
            }
            default:
                if (depth > 0) {
                    kxIfcWriteData_end_list(output);
                    depth--;
                }
                break;
        }
    }
    for (; depth > 0; depth--) kxIfcWriteData_end_list(output);
}

TEST(InstancePrintingTest, PrintedAsTheyComeOrCollectedAlike) {
    int wrapped = 0;
    for (bool lossless : {false, true}) {
        for (uint64_t seed = 1; seed <= 300; seed++) {
            const std::string collected = kxtest::written_text([&](kxIfcWriteData *output) {
                kxIfcWriteData_set_lossless(output, lossless);
                kxIfcWriteData_begin_parameters(output);
                write_values(output, seed, false);
                kxIfcWriteData_write_entity_line(output, u"IfcSomething", static_cast<uint32_t>(seed * 7919), nullptr);
            });
            const std::string printed = kxtest::written_text([&](kxIfcWriteData *output) {
                kxIfcWriteData_set_lossless(output, lossless);
                kxIfcWriteData_set_batched(output, (seed & 1) != 0);
                const uint32_t class_key = (seed & 2) != 0 ? 7 : 0xFFFFFFFFu;  // by index, or by address alone
                kxIfcWriteData_begin_instance(output, u"IfcSomething", class_key, static_cast<uint32_t>(seed * 7919));
                write_values(output, seed, true);
                kxIfcWriteData_end_instance(output);
            });
            ASSERT_EQ(printed, collected) << "seed " << seed << (lossless ? ", lossless" : "");
            if (printed.find('\n') + 1 < printed.size()) wrapped++;
        }
    }
    EXPECT_GT(wrapped, 100);  // the wrapping was exercised
}

}  // namespace
