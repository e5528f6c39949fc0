// The lossless text mode: reals in their shortest exact STEP form, strings
// by every escape of the exchange format, and whole files that come back
// with every value as it was.
#include <algorithm>
#include <bit>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <random>
#include <string>

#include "step/scanner.h"
#include "support/steptext.h"
#include "support/wstring.h"
#include "kxifcmodel.h"
#include "record_helpers.h"
#include "test_support.h"

namespace {

using LosslessTextTest = kxtest::LibraryTest;

std::string shortest(double value) {
    char text[kx::kShortestRealSize];
    return std::string(text, kx::step_format_real_shortest(value, text));
}

// Whether the scanner reads the whole text as one real, to this very double.
bool reads_back_exactly(const std::string &text, double value) {
    kx::Scanner scanner;
    kx::scanner_init(&scanner, text.data(), text.size());
    const kx::Token token = kx::scanner_next(&scanner);
    return token.kind == kx::TOKEN_REAL && token.length == text.size() &&
           std::bit_cast<uint64_t>(token.real) == std::bit_cast<uint64_t>(value);
}

TEST_F(LosslessTextTest, RealsAreTheShortestExactStepText) {
    const struct {
        double value;
        const char *text;
    } cases[] = {
        {0.0, "0."}, {-0.0, "-0."}, {1e-9, "1.E-09"}, {2.0, "2."}, {-120.0, "-120."}, {100000.0, "100000."},
        {5.00000001012284, "5.00000001012284"}, {0.766044443119, "0.766044443119"}, {1e20, "1.E+20"},
        {-2.5e-7, "-2.5E-07"}, {DBL_MAX, "1.7976931348623157E+308"}, {4.9406564584124654e-324, "5.E-324"},
    };
    for (const auto &c : cases) EXPECT_EQ(shortest(c.value), c.text) << c.value;
    // No STEP real stands for an infinity or a NaN: in either form they are
    // written unset.
    for (bool lossless : {false, true}) {
        const std::string line = kxtest::written_text([lossless](kxIfcWriteData *output) {
            kxIfcWriteData_set_lossless(output, lossless);
            kxIfcWriteData_begin_parameters(output);
            for (double value : {HUGE_VAL, -HUGE_VAL, std::nan("")}) kxIfcWriteData_write_real(output, value);
            kxIfcWriteData_write_entity_line(output, u"IfcCartesianPoint", 1, nullptr);
        });
        EXPECT_EQ(line, "#1= IFCCARTESIANPOINT($,$,$);\n");
    }
    // Random bit patterns of every magnitude, subnormals included.
    std::mt19937_64 random(7);
    for (int i = 0; i < 200000; i++) {
        double value = std::bit_cast<double>(random());
        if (!std::isfinite(value)) continue;
        const std::string text = shortest(value);
        ASSERT_TRUE(reads_back_exactly(text, value)) << text;
    }
}

std::u16string decode(const std::u16string &text, kx::StringIssue *issue) {
    char16_t *decoded = kx::step_decode_string(text.data(), text.size(), issue);
    std::u16string result(decoded);
    kx::wstr_destroy(&decoded);
    return result;
}

std::u16string encode(const std::u16string &text) {
    std::u16string encoded(kx::step_encoded_bound(text.size()), u'\0');
    encoded.resize(kx::step_encode_string(text.c_str(), encoded.data()));
    return encoded;
}

TEST_F(LosslessTextTest, StringsDecodeByEveryEscapeAndEncodeBackToThemselves) {
    const struct {
        std::u16string file_text;
        std::u16string value;
        kxReadCode issue;
        std::u16string written;  // empty: as in the file
    } cases[] = {
        {u"Schriftgr\\X2\\00F600DF\\X0\\e", u"Schriftgr\u00f6\u00dfe", 0, u""},
        {u"\\X4\\0001F600\\X0\\!", u"\U0001F600!", 0, u"\\X2\\D83DDE00\\X0\\!"},
        {u"\\X2\\D83DDE00\\X0\\", u"\U0001F600", 0, u""},
        {u"Wohn\\X\\FCberbauung", u"Wohn\u00fcberbauung", 0, u"Wohn\\X2\\00FC\\X0\\berbauung"},
        {u"\\S\\D", u"\u00c4", 0, u"\\X2\\00C4\\X0\\"},
        {u"\\PE\\\\S\\d", u"\u0444", 0, u"\\X2\\0444\\X0\\"},   // ISO 8859-5
        {u"\\PB\\\\S\\a\\PA\\\\S\\a", u"\u00e1\u00e1", 0, u"\\X2\\00E100E1\\X0\\"},
        {u"It''s a\\\\b", u"It's a\\b", 0, u""},
        {u"a\\X2\\00E\\X0\\b", u"a\\X2\\00E\\X0\\b", KX_READ_MALFORMED_ESCAPE, u"a\\\\X2\\\\00E\\\\X0\\\\b"},
        {u"\\Q\\", u"\\Q\\", KX_READ_MALFORMED_ESCAPE, u"\\\\Q\\\\"},
        {u"x\\X\\00y", u"xy", KX_READ_NUL_IN_STRING, u"xy"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(kxtest::utf8(c.file_text.c_str()));
        kx::StringIssue issue;
        EXPECT_EQ(decode(c.file_text, &issue), c.value);
        EXPECT_EQ(issue.code, c.issue);
        EXPECT_EQ(encode(c.value), c.written.empty() ? c.file_text : c.written);
    }
    // Any text at all, lone surrogates and controls included, comes back.
    std::mt19937 random(11);
    for (int i = 0; i < 20000; i++) {
        std::u16string text(random() % 12, u'a');
        for (char16_t &unit : text) unit = static_cast<char16_t>(random() % 3 == 0 ? 1 + random() % 0xFFFF : 0x20 + random() % 0x5F);
        kx::StringIssue issue;
        ASSERT_EQ(decode(encode(text), &issue), text);
        ASSERT_EQ(issue.count, 0u);
    }
}

class LosslessFileTest : public kxtest::LibraryTest {
protected:
    kxIfcModel *read(const std::string &path, kxReadReport *report) {
        return kxIfcModel_read_with_report(kxtest::wide(path).c_str(), 0, KX_TEXT_MODE_LOSSLESS, report, nullptr);
    }
    // Exports the model as <directory>/<base>.ifc; its text.
    std::string write(kxIfcModel *model, const std::string &base) {
        kxIfcModel_export_model_to_file(model, kxtest::wide(base).c_str(), kxtest::wide(dir().path()).c_str());
        return kxtest::read_file(dir().file(base + ".ifc"));
    }
    kxtest::EnvGuard stamp_{"VELMTEST", "1"};  // empty time stamps: byte-identical exports
};

// Where two data sections first disagree, value by value: reals bit for
// bit, strings once decoded, everything else by its text ("" when equal).
std::string first_lost_value(const std::string &original, const std::string &written) {
    kx::Scanner a, b;
    const size_t from_a = original.find("DATA;"), from_b = written.find("DATA;");
    kx::scanner_init(&a, original.data() + from_a, original.size() - from_a);
    kx::scanner_init(&b, written.data() + from_b, written.size() - from_b);
    for (;;) {
        const kx::Token x = kx::scanner_next(&a), y = kx::scanner_next(&b);
        const bool numbers = (x.kind == kx::TOKEN_REAL || x.kind == kx::TOKEN_INT) &&
                             (y.kind == kx::TOKEN_REAL || y.kind == kx::TOKEN_INT);
        bool same = x.kind == y.kind || numbers;
        if (same && numbers) {
            same = std::bit_cast<uint64_t>(kx::scanner_real_value(x.text, x.length)) ==
                   std::bit_cast<uint64_t>(kx::scanner_real_value(y.text, y.length));
        } else if (same && x.kind == kx::TOKEN_STRING) {
            char16_t *u = kx::step_string_value(x.text, x.length, true, nullptr);
            char16_t *v = kx::step_string_value(y.text, y.length, true, nullptr);
            same = kx::wstr_equal(u, v);
            kx::wstr_destroy(&u);
            kx::wstr_destroy(&v);
        } else if (same && x.kind != kx::TOKEN_END) {
            same = strncasecmp(x.text, y.text, std::max(x.length, y.length)) == 0;
        }
        if (!same) return "line " + std::to_string(x.line) + ": " + std::string(x.text, x.length) + " <> " + std::string(y.text, y.length);
        if (x.kind == kx::TOKEN_ENDSECTION || x.kind == kx::TOKEN_END) return "";
    }
}

// The header fields an export keeps as they were read, as one text (an
// empty list is written as one empty item: empty items are left out).
std::string header_fields(const kxIfcModel *model) {
    const kxIfcHeader *header = kxIfcModel_get_header(model);
    std::string text = kxtest::utf8(kxIfcHeader_get_originating_system(header));
    const struct {
        uint32_t (*count)(const kxIfcHeader *);
        const kxWChar *(*get)(const kxIfcHeader *, uint32_t);
    } lists[] = {{kxIfcHeader_description_fields_count, kxIfcHeader_get_description_field},
                 {kxIfcHeader_author_fields_count, kxIfcHeader_get_author_field},
                 {kxIfcHeader_organization_fields_count, kxIfcHeader_get_organization_field},
                 {kxIfcHeader_authorization_fields_count, kxIfcHeader_get_authorization_field}};
    for (const auto &list : lists)
        for (uint32_t i = 0; i < list.count(header); i++)
            if (*list.get(header, i) != 0) text.append("|").append(kxtest::utf8(list.get(header, i)));
    return text;
}

TEST_F(LosslessFileTest, EverySampleFileComesBackAsItWasAndReachesAFixedPointInTheFixedTextMode) {
    KX_REQUIRE_SHARED("ifc");
    for (const std::string &path : kxtest::sample_files()) {
        SCOPED_TRACE(path);
        kxReadReport *report = kxReadReport_new(0);
        kxIfcModel *model = read(path, report);
        ASSERT_NE(model, nullptr);
        EXPECT_EQ(kxIfcModel_text_mode(model), KX_TEXT_MODE_LOSSLESS);
        const bool clean = kxReadReport_total(report, 0) == 0;
        const std::string header = header_fields(model);
        const std::string first = write(model, "first");
        kxIfcModel_free(&model);
        // A file the reader found faults in cannot come back as it was;
        // what was read must still reach a fixed point.
        if (clean) {
            EXPECT_EQ(first_lost_value(kxtest::read_file(path), first), "");
        }
        kxReadReport_clear(report);
        model = read(dir().file("first.ifc"), report);
        ASSERT_NE(model, nullptr);
        EXPECT_EQ(kxReadReport_total(report, 0), 0u);
        EXPECT_EQ(header_fields(model), header);
        EXPECT_EQ(write(model, "second"), first);
        kxIfcModel_free(&model);
        kxReadReport_free(&report);

        // In the fixed text mode the file is read, written, read again and
        // written again. What the library writes it reads without a fault;
        // reals are written with ten significant digits, so a value close to
        // the rounding threshold may change once, and from the second export
        // on the data section is a fixed point.
        std::string texts[3], name = path;
        uint32_t count = 0;
        kxIfcVersion_t version = ifc_version_not_defined;
        for (int round = 0; round < 3; round++) {
            kxBool errors = kxBFALSE;
            kxIfcModel *model = kxIfcModel_read_from_step_file(kxtest::wide(name).c_str(), 0, &errors);
            ASSERT_NE(model, nullptr);
            if (round == 0) {
                count = kxIfcModel_count_objects(model);
                version = kxIfcModel_ifc_version(model);
            }
            EXPECT_TRUE(round == 0 || errors == kxBFALSE) << "round " << round;
            EXPECT_EQ(kxIfcModel_ifc_version(model), version);
            EXPECT_EQ(kxIfcModel_count_objects(model), count);
            texts[round] = write(model, "round" + std::to_string(round));
            name = dir().file("round" + std::to_string(round) + ".ifc");
            kxIfcModel_free(&model);
        }
        const size_t data = texts[1].find("\nDATA;\n");
        ASSERT_NE(data, std::string::npos);
        EXPECT_EQ(kxtest::first_difference(texts[1].substr(data), texts[2].substr(texts[2].find("\nDATA;\n"))), "");
        EXPECT_EQ(std::count(texts[0].begin(), texts[0].end(), '#'), std::count(texts[1].begin(), texts[1].end(), '#'));
        for (char c : texts[0]) ASSERT_TRUE(c == '\n' || (c >= 0x20 && c < 0x7F)) << "not 7-bit text";
    }
}

}  // namespace
