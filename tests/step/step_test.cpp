// Reading exchange files: every sample file in every read mode, hostile or
// broken text that must fail or be reported without crashing or leaking, the
// inputs kept for the fuzzer, the window the reader sees the file through,
// and the read reports. Then the HEADER section: written from a record,
// read back from files (each entity optional, string lists in all their
// forms, the implementation level, malformed and truncated sections), and the
// release a file declares; and exporting a model to a file: the exact text of
// a small model, the temporary file and the replaced target, the written
// flags, the header record after an export, and reports for inconsistent
// instances.
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "core/baseobject.h"
#include "fuzz/exercise_reader.h"
#include "model/header.h"
#include "model/headerio.h"
#include "model/model.h"
#include "step/scanner.h"
#include "step/textwindow.h"
#include "support/memory.h"
#include "support/valuearray.h"
#include "support/writedata.h"
#include "support/wstring.h"
#include "kxifc_header.h"
#include "kxifc_model.h"
#include "kxifc_schema.h"
#include "kxifcmodel.h"
#include "model_fixture.h"
#include "record_helpers.h"
#include "test_support.h"

namespace {

class ReaderTest : public kxtest::LibraryTest {
protected:
    // Writes the text to a new file of the test's directory.
    std::string write_file(const std::string &text) {
        return dir().write("input" + std::to_string(files_written_++) + ".ifc", text);
    }
    // The same for an exchange file with the data lines from line 8 on.
    std::string file(const std::string &data, const char *schema = "IFC4", const std::string &after = "") {
        return write_file(kxtest::step_file(data, schema, after));
    }
    static kxIfcModel *read_reporting(const std::string &path, uint32_t mode, kxReadReport *report,
                                      kxTextMode text_mode = KX_TEXT_MODE_LOSSLESS) {
        return kxIfcModel_read_with_report(kxtest::wide(path).c_str(), mode, text_mode, report, nullptr);
    }

    struct Outcome {
        bool read;
        bool with_errors;
        uint32_t entities;
        uint32_t objects;
    };

    static void count_entity(kxBaseObject *instance, void *count, int32_t *) {
        if (kxClass_is_entity(kxClass_find_by_name(kxBaseObject_dontuse_get_ifc_class_name(instance))))
            ++*static_cast<uint32_t *>(count);
    }

    // Reads a file and frees the model again.
    static Outcome read(const std::string &path, uint32_t mode = 0) {
        kxBool errors = kxBFALSE;
        kxIfcModel *model = kxIfcModel_read_from_step_file(kxtest::wide(path).c_str(), mode, &errors);
        Outcome outcome{model != nullptr, errors == kxBTRUE, 0, 0};
        if (model != nullptr) {
            outcome.objects = kxIfcModel_count_objects(model);
            kxIfcModel_dontuse_visit_model(model, &outcome.entities, &count_entity);
            kxIfcModel_free(&model);
        }
        return outcome;
    }

    // The number of instance lines ("#n=") of a file's data section.
    static uint32_t instance_lines(const std::string &text) {
        uint32_t count = 0;
        bool in_string = false;
        for (size_t i = 0; i + 1 < text.size(); i++) {
            if (text[i] == '\'') in_string = !in_string;
            if (in_string || text[i] != '#') continue;
            size_t j = i + 1;
            while (j < text.size() && isdigit(static_cast<unsigned char>(text[j]))) j++;
            while (j < text.size() && text[j] == ' ') j++;
            if (j > i + 1 && j < text.size() && text[j] == '=') count++;
        }
        return count;
    }

    // The export of a read on `threads` threads, its report and its object
    // tables, as one text.
    std::string read_and_write(const std::string &path, uint32_t threads, kxTextMode text_mode, uint32_t mode = 2) {
        kxReadReport *report = kxReadReport_new(1000);  // keeps every problem: their order counts
        kxReadReport_set_threads(report, threads);
        kxBool errors = kxBFALSE;
        kxIfcModel *model = kxIfcModel_read_with_report(kxtest::wide(path).c_str(), mode, text_mode, report, &errors);
        std::string result = model == nullptr ? "no model\n" : errors ? "errors\n" : "clean\n";
        std::ostringstream problems;
        for (uint32_t i = 0; i < kxReadReport_count(report); i++)
            problems << kxReadCode_name(kxReadReport_code(report, i)) << ' ' << kxReadReport_line(report, i) << ':'
                     << kxReadReport_column(report, i) << " #" << kxReadReport_file_id(report, i) << ' '
                     << kxReadReport_message(report, i) << '\n';
        for (kxReadCode code = 1; code < KX_READ_CODE_COUNT; code++) problems << kxReadReport_total(report, code) << ' ';
        result += problems.str();
        kxReadReport_free(&report);
        if (model == nullptr) return result;
        // The object tables: instances of broad classes by creation.
        for (const kxClass_t *klass : {kxIfcRoot_class(), kxIfcRepresentationItem_class(), kxIfcProperty_class()}) {
            for (kxBaseObject *instance : kxtest::elements(kxIfcModel_dontuse_get_objects_by_class(model, klass)))
                result += std::to_string(kxBaseObject_dontuse_object_output_file_id(instance)) + ' ';
            result += '\n';
        }
        EXPECT_EQ(kxIfcModel_export_with_status(model, u"written", kxtest::wide(dir().path()).c_str()),
                  KX_EXPORT_OK);
        kxIfcModel_free(&model);
        return result + "\n" + kxtest::read_file(dir().file("written.ifc"));
    }

    // The same on 1, 2 and 3 threads; for a clean file, the same as a
    // one-pass read too.
    void expect_same_whatever_the_threads(const std::string &path, bool clean = false) {
        for (kxTextMode text_mode : {KX_TEXT_MODE_SPEC, KX_TEXT_MODE_LOSSLESS}) {
            SCOPED_TRACE(path + " text mode " + std::to_string(text_mode));
            const std::string one_thread = read_and_write(path, 1, text_mode);
            for (uint32_t threads : {2u, 3u})
                EXPECT_EQ(kxtest::first_difference(read_and_write(path, threads, text_mode), one_thread), "");
            if (clean) {
                EXPECT_EQ(kxtest::first_difference(read_and_write(path, 1, text_mode, 1), one_thread), "");
            }
        }
    }

    uint32_t files_written_ = 0;
    kxtest::EnvGuard stamp_{"VELMTEST", "1"};  // empty time stamps: byte-identical exports
};

// Every sample file, and the concatenated files where every id stands many
// times, reads the same in every mode, and its header declares its release
// (only the first header section of concatenated files is looked at).
TEST_F(ReaderTest, EverySampleFileAndConcatenatedFilesReadTheSameInEveryModeAndDeclareTheirRelease) {
    KX_REQUIRE_SHARED("ifc");
    // The releases of the files known to be there; any other file must at
    // least read.
    const std::map<std::string, kxIfcVersion_t> known = {
        {"AC20-FZK-Haus.ifc", KXIFCVERSION_IFC_4},
        {"ISSUE_044_test_IFCCOMPOSITEPROFILEDEF.ifc", KXIFCVERSION_IFC_2X3},
        {"ISSUE_171_IfcSurfaceCurveSweptAreaSolid.ifc", KXIFCVERSION_IFC_4},
        {"IfcOpenHouse_IFC4.ifc", KXIFCVERSION_IFC_4},
        {"Sample_entities.ifc", KXIFCVERSION_IFC_2X3},
        {"duplex.ifc", KXIFCVERSION_IFC_2X3},
        {"example.ifc", KXIFCVERSION_IFC_2X3},
        {"tested_sample_project.ifc", KXIFCVERSION_IFC_2X3},
        {"concatenated_files.ifc", KXIFCVERSION_IFC_2X3},
    };
    std::vector<std::string> files = kxtest::sample_files();
    ASSERT_GT(files.size(), 0u);
    const std::string concatenated = kxtest::shared_path("ifc-malformed/concatenated_files.ifc");
    if (!concatenated.empty()) files.push_back(concatenated);
    for (const std::string &path : files) {
        SCOPED_TRACE(path);
        const std::u16string name = kxtest::wide(path);
        kxIfcVersion_t version = ifc_version_not_defined;
        ASSERT_EQ(kxIfcHeader_read_ifc_version(name.c_str(), &version), kxBTRUE);
        const auto release = known.find(std::filesystem::path(path).filename().string());
        if (release != known.end()) {
            EXPECT_EQ(version, release->second);
        }
        kxIfcHeader *header = nullptr;
        ASSERT_TRUE(kx::header_read_section(name.c_str(), &header));
        EXPECT_NE(header->file_schema, nullptr);
        if (path == concatenated) {
            EXPECT_EQ(kxtest::narrow(header->file_name), "test.ifc");
        }
        kx::header_destroy(&header);
        // Two-pass reads on several threads make what a one-thread (and a
        // one-pass) read makes: the same model written to the same bytes and
        // the same report, in both text modes.
        if (path != concatenated) expect_same_whatever_the_threads(path, true);
        const Outcome automatic = read(path, 0), single = read(path, 1), two_passes = read(path, 2);
        ASSERT_TRUE(automatic.read && single.read && two_passes.read);
        if (path != concatenated) {
            EXPECT_EQ(automatic.entities, instance_lines(kxtest::read_file(path)));
        }
        EXPECT_EQ(single.objects, automatic.objects);
        EXPECT_EQ(two_passes.objects, automatic.objects);
        EXPECT_EQ(two_passes.entities, single.entities);
        EXPECT_EQ(single.with_errors, automatic.with_errors);
        EXPECT_EQ(two_passes.with_errors, automatic.with_errors);
        // Only the one imperfect sample (dangling references, a short line)
        // and the concatenated files have errors.
        EXPECT_EQ(automatic.with_errors, path == concatenated || path.find("example.ifc") != std::string::npos);
    }
}

TEST_F(ReaderTest, HostileTextAndEveryKeptFuzzerInputNeverCrashOrLeak) {
    std::string binary(4096, '\0');
    for (size_t i = 0; i < binary.size(); i++) binary[i] = static_cast<char>((i * 7919) % 251);
    const std::string data[] = {
        "#1=IFCCARTESIANPOINT(" + std::string(200000, '(') + std::string(200000, ')') + ");\n",
        "#4294967295=IFCCARTESIANPOINT((1.,2.));\n#4000000000=IFCPOLYLINE((#4294967295,#3999999999));\n",
        "#1=IFCPROPERTYSINGLEVALUE('a',$,IFCLABEL(IFCLABEL(IFCLABEL('x'))),$);\n",
        "#1=IFCPROPERTYSINGLEVALUE('a',$,IFCLENGTHMEASURE((1.,2.)),$);\n",
        "#1=IFCWALL(" + std::string(100000, ',') + ");\n",
        binary,
    };
    for (const std::string &lines : data) read(file(lines));
    read(write_file(""));
    // Every input the reader's fuzzer starts from or ever found a fault with
    // goes through the same round as in the fuzzer: read in one and two passes,
    // exported, read back, memory back where it was.
    int inputs = 0;
    for (const char *folder : {"seeds", "regressions"}) {
        const std::filesystem::path path = std::filesystem::path(KX_SOURCE_DIR) / "tests" / "fuzz" / folder;
        if (!std::filesystem::exists(path)) continue;
        for (const auto &entry : std::filesystem::directory_iterator(path)) {
            SCOPED_TRACE(entry.path().string());
            EXPECT_EQ(kxfuzz::exercise_reader(entry.path().string(), dir().path()), "");
            inputs++;
        }
    }
    EXPECT_GE(inputs, 2);
}

TEST_F(ReaderTest, EveryTruncationOfARealFileFailsOrReads) {
    KX_REQUIRE_SHARED("ifc/IfcOpenHouse_IFC4.ifc");
    const std::string text = kxtest::read_file(kxtest::shared_path("ifc/IfcOpenHouse_IFC4.ifc")).substr(0, 6000);
    for (size_t cut = 0; cut <= text.size(); cut += 97) {
        const Outcome outcome = read(write_file(text.substr(0, cut)));
        EXPECT_TRUE(!outcome.read || outcome.with_errors) << "cut at " << cut;
    }
}

TEST_F(ReaderTest, SelectedClassesOnly) {
    KX_REQUIRE_SHARED("ifc/duplex.ifc");
    kxWChar *name = kxWideString_new_from_utf8(kxtest::shared_path("ifc/duplex.ifc").c_str());
    kxArrayST *classes = kxArrayST_dontuse_new(nullptr);
    kxArrayST_dontuse_append(classes, const_cast<kxClass_t *>(kxIfcWallStandardCase_class()));
    kxArrayST_dontuse_append(classes, const_cast<kxClass_t *>(kxIfcOwnerHistory_class()));
    kxBool errors = kxBTRUE;
    kxIfcModel *model = kxIfcModel_read_entities_of_selected_classes_from_step_file(name, classes, &errors);
    ASSERT_NE(model, nullptr);
    EXPECT_EQ(errors, kxBFALSE);
    const auto walls = kxtest::elements(kxIfcModel_dontuse_get_objects_by_class(model, kxIfcWallStandardCase_class()));
    ASSERT_FALSE(walls.empty());
    EXPECT_EQ(kxtest::elements(kxIfcModel_dontuse_get_objects_by_class(model, kxIfcRoot_class())).size(), walls.size());
    // References among the selected classes are kept; to others, dropped.
    EXPECT_NE(kxIfcWallStandardCase_get_OwnerHistory(walls[0]), nullptr);
    EXPECT_EQ(kxIfcWallStandardCase_get_ObjectPlacement(walls[0]), nullptr);
    kxArrayST_dontuse_free(&classes, nullptr);
    kxIfcModel_free(&model);
    kxWideString_free(&name);
}

// The data-section scanner: token kinds, priorities, values and counts.
struct Scanned {
    kx::TokenKind kind;
    std::string text;
};

std::vector<Scanned> scan(const std::string &text) {
    kx::Scanner scanner;
    kx::scanner_init(&scanner, text.data(), text.size());
    std::vector<Scanned> tokens;
    for (;;) {
        const kx::Token token = kx::scanner_next(&scanner);
        tokens.push_back({token.kind, std::string(token.text, token.length)});
        if (token.kind == kx::TOKEN_END) return tokens;
    }
}

// The tokens of a text as "KIND:text" separated by blanks; an unexpected
// character ends them as END with its text.
std::string scanned(const std::string &text) {
    static const char *const kNames[] = {"ID",  "REF",  "BOOL",   "INT",    "REAL",   "STR",      "ENUM", "HEX",
                                         "$",   "*",    "(",      ")",      ",",      "=",        ";",    "ISO",
                                         "/ISO", "HEADER", "ENDSEC", "DATA", "FILE_DESCRIPTION", "FILE_NAME",
                                         "FILE_SCHEMA", "NAME"};
    std::string result;
    for (const Scanned &token : scan(text)) {
        result += token.kind == kx::TOKEN_END ? "END" : kNames[token.kind - kx::TOKEN_ENTITY_ID];
        result += ":" + token.text + (token.kind == kx::TOKEN_END ? "" : " ");
    }
    return result;
}

TEST(ScannerTest, KindsPrioritiesTextsNumberValuesLinesColumnsAndComments) {
    const std::pair<std::string, std::string> cases[] = {
        // "#12" is an id when "=" follows on its line, else a reference; a
        // lone '#' is unexpected.
        {"#12 =", "ID:#12 =:= END:"}, {"#12\t=", "ID:#12 =:= END:"}, {"#12\n=", "REF:#12 =:= END:"}, {"# 1", "END:#"},
        // Strings keep '' and \S\' inside and may span lines; an open quote is unexpected.
        {"'it''s' 'x'y'", "STR:it''s STR:x NAME:y END:'"}, {"'a\\S\\'b' $", "STR:a\\S\\'b $:$ END:"},
        {"'line\nbreak'", "STR:line\nbreak END:"},
        // Numbers take the longest match; an exponent needs digits.
        {"00012 -", "INT:00012 INT:- END:"}, {"1.5.", "REAL:1.5 END:."}, {"1E", "INT:1 NAME:E END:"},
        {"1. 12. .5 -.5 +1.5E-3 1.E5 1E5 3.e+2",
         "REAL:1. REAL:12. REAL:.5 REAL:-.5 REAL:+1.5E-3 REAL:1.E5 REAL:1E5 REAL:3.e+2 END:"},
        // Booleans are the three letters; other names between dots are enumerations.
        {".t. .F. .U. .TRUE. .NOT_DEFINED2.", "BOOL:.t. BOOL:.F. BOOL:.U. ENUM:.TRUE. ENUM:.NOT_DEFINED2. END:"},
        {".TRUE", "END:."}, {".A-B.", "END:."}, {"\"0F\" \"\"", "HEX:\"0F\" END:\""},
        // Keywords only for the exact word, in any case.
        {"endsec Data header FILE_NAME file_schema File_Description",
         "ENDSEC:endsec DATA:Data HEADER:header FILE_NAME:FILE_NAME FILE_SCHEMA:file_schema "
         "FILE_DESCRIPTION:File_Description END:"},
        {"HEADERX DATAX FILE_NAMES ISO-10303-21; END-ISO-10303-21;",
         "NAME:HEADERX NAME:DATAX NAME:FILE_NAMES ISO:ISO-10303-21; /ISO:END-ISO-10303-21; END:"},
        {"ISO -10303-21;", "NAME:ISO INT:-10303 INT:-21 ;:; END:"},
        // Bytes above 0x7F outside strings are unexpected.
        {"\xC3\xA9", "END:\xC3"},
    };
    for (const auto &[text, tokens] : cases) EXPECT_EQ(scanned(text), tokens) << text;
    // Digits are read a word at a time where eight bytes remain: runs of every
    // length up to past what 64 bits hold, with and without leading zeros, ending
    // anywhere near the end of the text, give the per-digit results (ids
    // saturate at the largest 32-bit value, never wrap; reals as strtod).
    kx::Scanner scanner;
    for (size_t length = 1; length <= 24; length++) {
        for (const char first : {'0', '9'}) {
            std::string digits(1, first);
            for (size_t i = 1; i < length; i++) digits += static_cast<char>('0' + (i * 7 + 3) % 10);
            uint64_t id = 0;
            for (const char c : digits) id = std::min<uint64_t>(id * 10 + static_cast<uint64_t>(c - '0'), 1ull << 32);
            std::string real = digits;
            real.insert(length / 2, 1, '.');
            for (const std::string &number : {"#" + digits, "-" + real}) {
                for (size_t blanks = 0; blanks < 9; blanks++) {
                    const size_t size = number.size() + blanks;
                    const auto exact = std::make_unique<char[]>(size);  // nothing readable past its end
                    std::memset(exact.get(), ' ', size);
                    std::memcpy(exact.get(), number.data(), number.size());
                    kx::scanner_init(&scanner, exact.get(), size);
                    const kx::Token token = kx::scanner_next(&scanner);
                    EXPECT_EQ(token.length, number.size()) << number;
                    if (number[0] == '#')
                        EXPECT_EQ(token.id, std::min<uint64_t>(id, 0xFFFFFFFFu)) << number;
                    else
                        EXPECT_EQ(token.real, std::strtod(number.c_str(), nullptr)) << number;
                }
            }
        }
    }
    const std::pair<std::string, int32_t> integers[] = {
        {"-", 0}, {"-42", -42}, {"99999999999", 2147483647}, {"-99999999999", -2147483647 - 1}};
    for (const auto &[text, value] : integers) EXPECT_EQ(kx::scanner_integer_value(text.data(), text.size()), value);
    for (const std::string real : {"0.", "1.5", "-0.000123", "1.E-05", "1234567.125", "6.02214076E23",
                                   "0.1", "2.2250738585072014E-308", "123456789012345678901234.5", "1E400"}) {
        EXPECT_EQ(kx::scanner_real_value(real.data(), real.size()), std::strtod(real.c_str(), nullptr)) << real;
    }
    // CR LF counts once and a lone CR is a line end.
    const std::string text = "/* a\ncomment */ #1=\r\n  IFCX(\r$);/* open";
    const std::tuple<kx::TokenKind, uint32_t, uint32_t> expected[] = {
        {kx::TOKEN_ENTITY_ID, 2, 12}, {kx::TOKEN_EQUAL, 2, 14},     {kx::TOKEN_TYPE_NAME, 3, 3},
        {kx::TOKEN_BEGIN_PAR, 3, 7},  {kx::TOKEN_NULL_VALUE, 4, 1}, {kx::TOKEN_END_PAR, 4, 2},
        {kx::TOKEN_DOTCOMA, 4, 3}};
    kx::scanner_init(&scanner, text.data(), text.size());
    for (const auto &[kind, line, column] : expected) {
        const kx::Token token = kx::scanner_next(&scanner);
        EXPECT_EQ(std::tuple(token.kind, token.line, token.column), std::tuple(kind, line, column));
    }
    const kx::Token token = kx::scanner_next(&scanner);  // an unclosed comment ends the input quietly
    EXPECT_EQ(token.kind, kx::TOKEN_END);
    EXPECT_EQ(token.length, 0u);
}

// The moving window over a file: scanning through it, sliding only between
// statements as the reader does, gives the very tokens (kinds, texts, lines,
// columns, offsets) of scanning the whole text at once, whatever the
// window's size.
std::string describe(const kx::Scanner &scanner, const kx::Token &token) {
    return std::to_string(token.kind) + " '" + std::string(token.text, token.length) + "' " +
           std::to_string(token.line) + ":" + std::to_string(token.column) + " @" +
           std::to_string(kx::scanner_offset(scanner, token.text)) + "\n";
}

std::string scan_whole(const std::string &text) {
    const size_t skipped = text.compare(0, 3, "\xEF\xBB\xBF") == 0 ? 3 : 0;
    kx::Scanner scanner;
    kx::scanner_init(&scanner, text.data() + skipped, text.size() - skipped);
    scanner.origin = skipped;
    std::string tokens;
    for (;;) {
        const kx::Token token = kx::scanner_next(&scanner);
        tokens += describe(scanner, token);
        if (token.kind == kx::TOKEN_END) return tokens;
    }
}

std::string scan_through_window(const std::string &path, size_t capacity) {
    const std::u16string name = kxtest::wide(path);
    kx::TextWindow window(name.c_str(), capacity);
    kx::Scanner scanner;
    if (!window.ok() || !window.start(&scanner)) return "cannot read";
    std::string tokens;
    for (bool statement_start = true;;) {
        if (statement_start && !window.ensure(&scanner)) return tokens + "cannot read on";
        const kx::Token token = kx::scanner_next(&scanner);
        tokens += describe(scanner, token);
        if (token.kind == kx::TOKEN_END) return tokens;
        statement_start = token.kind == kx::TOKEN_DOTCOMA || token.kind == kx::TOKEN_BEGIN_ISO ||
                          token.kind == kx::TOKEN_END_ISO;  // these two end with their ';'
    }
}

using ReaderWindowTest = ReaderTest;

TEST_F(ReaderWindowTest, SlidingGivesTheTokensOfTheWholeTextAndFileProblemsAreNamed) {
    std::string long_statement = "#9=IFCPOLYLOOP((";
    for (int i = 0; i < 300; i++) long_statement += (i ? ",#" : "#") + std::to_string(i + 10);
    long_statement += "));\n";
    const std::string tricky =
        "\xEF\xBB\xBFISO-10303-21;\r\nHEADER;FILE_NAME('a;b','it''s;',(''),'\\S\\'x;');ENDSEC;\nDATA;\n"
        "/* a comment; with 'quotes */#1=IFCLABEL('; /* not a comment */');\r\n#2 = IFCX(1.5E-3,.T.,\"0F\",$,*);\n" +
        long_statement + "#3=IFCY('\\S\\';',(1.,2.,3.,4.,5.,6.,7.,8.,9.,10.,11.,12.,13.,14.));\n#4=IFCZ('''');ENDSEC;END-ISO-10303-21;\n#5=('unterminated;";
    const std::string path = dir().write("tricky.ifc", tricky);
    const std::string expected = scan_whole(tricky);
    for (size_t capacity = 16; capacity < 160; capacity++)
        EXPECT_EQ(scan_through_window(path, capacity), expected) << capacity;

    for (const std::string &file : kxtest::sample_files())
        EXPECT_EQ(scan_through_window(file, 4096), scan_whole(kxtest::read_file(file))) << file;
    EXPECT_STREQ(kx::TextWindow(kxtest::wide(dir().file("missing.ifc")).c_str()).problem(),
                 "the file cannot be opened");
    EXPECT_STREQ(kx::TextWindow(kxtest::wide(dir().path()).c_str()).problem(), "not a regular file");
    EXPECT_STREQ(kx::TextWindow(kxtest::wide(dir().write("empty.ifc", "")).c_str()).problem(),
                 "the file is empty");
}

// Read reports: one small file per problem the reader reports, with the
// code, place, id and attribute it must name, in every read mode; progress;
// and reads on several threads, which must report and make what one thread
// does.
using ReadReportTest = ReaderTest;

using ParallelReadTest = ReaderTest;

TEST_F(ReadReportTest, EachProblemIsReportedWithItsCodeAndPlace) {
    struct Case {
        const char *data;
        kxReadCode code;
        uint32_t line, column, file_id, attribute;
        bool model_read;
        const char *schema = "IFC4";
        const char *after = "";
    };
    const Case cases[] = {
        {"#1= IFCCARTESIANPOINT((0.,0.),;\n", KX_READ_SYNTAX_ERROR, 8, 31, 0, 0, false},
        {"#1= IFCNOSUCHTHING($);\n", KX_READ_UNKNOWN_ENTITY, 8, 5, 1, 0, true},
        {"#1= IFCELECTRICALELEMENT($,$,$,$,$,$,$,$);\n", KX_READ_OTHER_RELEASE_ENTITY, 8, 5, 1, 0, true},
        {"#1= IFCROOT('x',$,$,$);\n", KX_READ_ABSTRACT_ENTITY, 8, 5, 1, 0, true},
        {"#1= IFCCARTESIANPOINT((0.,0.));\n#1= IFCDIRECTION((1.,0.));\n", KX_READ_DUPLICATE_ID, 9, 1, 1, 0, true},
        {"#1= IFCPOLYLINE((#2,#5));\n#2= IFCCARTESIANPOINT((0.,0.));\n",
         KX_READ_UNDEFINED_REFERENCE, 8, 21, 1, 1, true},
        {"#1= IFCCARTESIANPOINT('a');\n", KX_READ_WRONG_TYPE, 8, 23, 1, 1, true},
        {"#1= IFCCARTESIANPOINT((0.,0.),$);\n", KX_READ_WRONG_ATTRIBUTE_COUNT, 8, 1, 1, 0, true},
        {"#1= IFCDIMENSIONALEXPONENTS(1,0,0,0,0,0,9999999999);\n", KX_READ_INTEGER_OUT_OF_RANGE, 8, 41, 1, 7, true},
        {"#1= IFCCARTESIANPOINT((1.E400,0.));\n", KX_READ_REAL_OUT_OF_RANGE, 8, 24, 1, 1, true},
        {"#1= IFCPERSON($,'a\\Q\\',$,$,$,$,$,$);\n", KX_READ_MALFORMED_ESCAPE, 8, 17, 1, 2, true},
        {"#1= IFCCARTESIANPOINT((0.,0.));\n", KX_READ_SCHEMA_MISMATCH, 0, 0, 0, 0, true, "IFC4X3_ADD2"},
        {"#1= IFCCARTESIANPOINT((0.,0.));\n",
         KX_READ_TEXT_AFTER_END, 11, 1, 0, 0, true, "IFC4", "#2= IFCDIRECTION((1.,0.));\n"},
        {"#4294967296= IFCCARTESIANPOINT((0.,0.));\n", KX_READ_ID_OUT_OF_RANGE, 8, 1, 0, 0, true},
        {"#1=(IFCA()IFCB());\n", KX_READ_UNSUPPORTED_INSTANCE, 8, 1, 1, 0, true},
        {"#1= IFCPERSON($,'a\\X\\00b',$,$,$,$,$,$);\n", KX_READ_NUL_IN_STRING, 8, 17, 1, 2, true},
        {"#1= IFCCARTESIANPOINT((0.,0.));\n", KX_READ_UNREADABLE_FILE, 0, 0, 0, 0, false, "NOT_IFC"},
        {"#1=IFCCARTESIANPOINT(('a',2.));\n", KX_READ_WRONG_TYPE, 8, 23, 1, 1, true},
        {"#1=IFCDIRECTION((1.,0.));\n#2=IFCPOLYLINE((#1));\n", KX_READ_WRONG_TYPE, 9, 17, 2, 1, true},
        {"#1=IFCWALL('x',$,$,$,$,$,$,$,.NOSUCH.);\n", KX_READ_WRONG_TYPE, 8, 30, 1, 9, true},
        {"#1=IFCCARTESIANPOINT((1.,2.);\n", KX_READ_SYNTAX_ERROR, 8, 29, 0, 0, false},
        {"#1=IFCCARTESIANPOINT((1.,2.)));\n", KX_READ_SYNTAX_ERROR, 8, 30, 0, 0, false},
        // The ";" of a line with an open "(" comes lines later: stopped at the next line's id.
        {"#1=IFCCARTESIANPOINT((1.,2.)\n#2=IFCDIRECTION((1.,0.));\n", KX_READ_SYNTAX_ERROR, 9, 1, 0, 0, false},
        {"#1=IFCCARTESIANPOINT((1.,\xC3\xA9));\n", KX_READ_SYNTAX_ERROR, 8, 26, 0, 0, false},
        {"1=IFCCARTESIANPOINT((1.,2.));\n", KX_READ_SYNTAX_ERROR, 8, 1, 0, 0, false},
    };
    kxReadReport *report = kxReadReport_new(0);
    for (const auto &c : cases) {
        const std::string path = file(c.data, c.schema, c.after);
        for (uint32_t mode : {1u, 2u}) {
            for (kxTextMode text_mode : {KX_TEXT_MODE_SPEC, KX_TEXT_MODE_LOSSLESS}) {
                SCOPED_TRACE(testing::Message() << c.data << " mode " << mode << "/" << text_mode);
                kxReadReport_clear(report);
                kxIfcModel *model = read_reporting(path, mode, report, text_mode);
                EXPECT_EQ(model != nullptr, c.model_read);
                if (model != nullptr) kxIfcModel_free(&model);
                ASSERT_EQ(kxReadReport_count(report), 1u) << kxReadReport_message(report, 0);
                EXPECT_STREQ(kxReadCode_name(kxReadReport_code(report, 0)), kxReadCode_name(c.code));
                EXPECT_EQ(kxReadReport_line(report, 0), c.line);
                EXPECT_EQ(kxReadReport_column(report, 0), c.column);
                EXPECT_EQ(kxReadReport_file_id(report, 0), c.file_id);
                EXPECT_EQ(kxReadReport_attribute_index(report, 0), c.attribute);
                EXPECT_NE(*kxReadReport_message(report, 0), 0);
            }
        }
    }
    // A typed value where an instance belongs: an unknown name, then no
    // parameter list after it.
    kxReadReport_clear(report);
    EXPECT_EQ(read_reporting(file("#1=IFCLABEL'x';\n"), 1, report), nullptr);
    ASSERT_EQ(kxReadReport_count(report), 2u);
    EXPECT_EQ(kxReadReport_code(report, 0), KX_READ_UNKNOWN_ENTITY);
    EXPECT_EQ(kxReadReport_code(report, 1), KX_READ_SYNTAX_ERROR);
    EXPECT_EQ(kxReadReport_column(report, 1), 12u);
    kxReadReport_free(&report);
}

// Devices and pipes, which a reader could wait on for ever, are refused.
TEST_F(ReadReportTest, OnlyRegularFilesAreReadAndABadValueInAVeryLongLineIsPassedOver) {
    const std::string fifo = dir().file("pipe.ifc");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    kxReadReport *report = kxReadReport_new(0);
    for (const std::string &path : {std::string("/dev/zero"), fifo, dir().path()}) {
        SCOPED_TRACE(path);
        kxReadReport_clear(report);
        EXPECT_EQ(read_reporting(path, 0, report), nullptr);
        ASSERT_EQ(kxReadReport_count(report), 1u);
        EXPECT_EQ(kxReadReport_code(report, 0), KX_READ_UNREADABLE_FILE);
        EXPECT_STREQ(kxReadReport_message(report, 0), "not a regular file");
        EXPECT_EQ(kxIfcHeader_read_from_file(kxtest::wide(path).c_str()), nullptr);
    }
    // A line too long to collect value by value is read directly, passing over
    // the value that does not fit.
    std::string points;
    for (int i = 0; i < 400000; i++) points.append("#1,");  // 1.2 MB
    const std::string path = file(std::string("#1= IFCCARTESIANPOINT((0.,0.));\n#2= IFCPOLYLINE((")
                                      .append(points).append("'x'));\n#3= IFCPOLYLINE((#1,#1));\n"));
    kxReadReport_clear(report);
    kxIfcModel *model = read_reporting(path, 1, report);
    ASSERT_NE(model, nullptr);
    EXPECT_EQ(kxIfcModel_count_objects(model), 3u);
    ASSERT_EQ(kxReadReport_count(report), 1u);
    EXPECT_EQ(kxReadReport_code(report, 0), KX_READ_WRONG_TYPE);
    EXPECT_EQ(kxReadReport_line(report, 0), 9u);
    EXPECT_EQ(kxReadReport_column(report, 0), 17u);
    EXPECT_EQ(kxReadReport_attribute_index(report, 0), 1u);
    kxIfcModel_free(&model);
    kxReadReport_free(&report);
}

// Progress reaches the caller in steps that never go back, ending with
// done == total, in each pass of a read and in an export.
struct Progress {
    std::vector<size_t> runs{0};  // steps per run; a run ends with done == total
    uint64_t last_done = 0, last_total = 0;
    static void note(void *progress, uint64_t done, uint64_t total) {
        Progress &self = *static_cast<Progress *>(progress);
        EXPECT_LE(done, total);
        EXPECT_TRUE(self.runs.back() == 0 || done >= self.last_done);
        self.last_done = done;
        self.last_total = total;
        self.runs.back()++;
        if (done == total) self.runs.push_back(0);
    }
};

TEST_F(ReadReportTest, ProgressIsReportedUpToTheEnd) {
    std::string data;
    for (int i = 1; i <= 200000; i++)
        data.append("#").append(std::to_string(i)).append("= IFCCARTESIANPOINT((1.25,2.5,3.75));\n");
    const std::string path = file(data);
    for (uint32_t mode : {1u, 2u}) {
        Progress reading, exporting;
        kxReadReport *report = kxReadReport_new(0);
        kxReadReport_set_progress(report, Progress::note, &reading);
        kxIfcModel *model = read_reporting(path, mode, report);
        ASSERT_NE(model, nullptr);
        EXPECT_EQ(reading.runs.size(), mode + 1);
        for (size_t pass = 0; pass < mode; pass++) EXPECT_GE(reading.runs[pass], 2u);  // the file is over 8 MiB
        kxIfcModel_set_export_progress(model, Progress::note, &exporting);
        EXPECT_EQ(kxIfcModel_export_with_status(model, u"progress", kxtest::wide(dir().path()).c_str()),
                  KX_EXPORT_OK);
        EXPECT_EQ(exporting.runs, (std::vector<size_t>{5, 0}));  // 0, 65536, 131072, 196608, end
        EXPECT_EQ(exporting.last_total, 200000u);
        kxIfcModel_free(&model);
        kxReadReport_free(&report);
    }
}

// A two-pass read on several threads: files with planted faults come out as
// the one-thread read makes them, the same model written to the same bytes
// and the same report, in both text modes.
// Faults in every part: values of the wrong type, references to ids no
// line defines, bad escapes, select values, unknown entities, repeated ids
// and, in some files, a syntax error in the first or the last part, or a
// string over many lines where the parts would start.
TEST_F(ParallelReadTest, PlantedFaultsAreReportedAsOnOneThread) {
    std::ostringstream data_text;
    for (int i = 1; i <= 600; i++) {
        data_text << '#' << i << "= ";
        switch (i % 6) {
        case 0: data_text << "IFCCARTESIANPOINT((1.5,'x',3.));\n"; break;
        case 1: data_text << "IFCPOLYLOOP((#" << i - 1 << ",#99999));\n"; break;
        case 2: data_text << "IFCPROPERTYSINGLEVALUE('a\\Q\\',$,IFCLABEL('v'),$);\n"; break;
        case 3: data_text << "IFCNOSUCHTHING(1);\n"; break;
        case 4: data_text << "IFCDIRECTION((1.,0.,0.));\n#" << i << "= IFCDIRECTION((0.,1.));\n"; break;
        default: data_text << "IFCPROPERTYSINGLEVALUE('n',$,IFCINTEGER(9999999999),$);\n"; break;
        }
    }
    const std::string data = data_text.str();
    const size_t quarter = data.find('\n', data.size() / 4) + 1;
    const size_t last = data.find('\n', data.size() * 7 / 8) + 1;
    // A string whose lines look like instance lines, across every place a
    // part of the first pass could be guessed to start.
    std::string lines;
    for (int i = 0; i < 400; i++) lines += "\n#" + std::to_string(i + 1) + "= IFCWALL();";
    const std::string datas[] = {data, data.substr(0, quarter) + "#9000= IFCDIRECTION((1.,=));\n" + data.substr(quarter),
                                 data.substr(0, last) + "#9000= IFCDIRECTION((1.,=));\n" + data.substr(last),
                                 data.substr(0, quarter) + "#9000= IFCPROPERTYSINGLEVALUE('s',$,IFCTEXT('" + lines +
                                     "'),$);\n" + data.substr(quarter)};
    expect_same_whatever_the_threads(file(datas[0], "IFC4", "#1=IFCWALL();\n"));
    for (const std::string &faults : {datas[1], datas[2], datas[3]}) expect_same_whatever_the_threads(file(faults));
}

using kxtest::EnvGuard;
using kxtest::narrow;
using kxtest::text_of;
using kxtest::wide;

// A whole file around a header body (the lines between HEADER; and ENDSEC;).
std::string file_with_header(const std::string &body) {
    return "ISO-10303-21;\nHEADER;\n" + body + "ENDSEC;\n\nDATA;\n#1= IFCWALL('x',$,$,$,$,$,$,$);\nENDSEC;\nEND-ISO-10303-21;\n";
}

const char kDuplexHeader[] =
    "FILE_DESCRIPTION(('ViewDefinition [CoordinationView]'),'2;1');\n"
    "FILE_NAME('0001','2011-09-07T12:28:29',(''),(''),'Autodesk Revit Architecture 2011 - 1.0',"
    "'20100326_1700','');\n"
    "FILE_SCHEMA(('IFC2X3'));\n";

class HeaderSectionTest : public ReaderTest {
protected:
    void TearDown() override {
        if (header_ != nullptr) kx::header_destroy(&header_);
        ReaderTest::TearDown();
    }

    // Reads the header section of a file made from the text; keeps the
    // record in header_.
    bool read(const std::string &contents) {
        if (header_ != nullptr) kx::header_destroy(&header_);
        const std::u16string path = wide(write_file(contents));
        const bool read = kx::header_read_section(path.c_str(), &header_) == CIERTO;
        EXPECT_EQ(read, header_ != nullptr);
        return read;
    }
    bool read_body(const std::string &body) { return read(file_with_header(body)); }

    static std::string written(kxIfcHeader *header, const char16_t *name, kxIfcVersion_t version) {
        return kxtest::written_text(
            [&](kxIfcWriteData *output) { kx::header_write_section(header, name, version, output); });
    }

    // The items of a list as "('a','b')".
    static std::string items(const kx::WStrArray *list) {
        std::string text;
        for (uint32_t i = 0; i < kx::wstrarray_count(list); i++)
            text += (i == 0 ? "'" : ",'") + narrow(kx::wstrarray_get(list, i)) + "'";
        return "(" + text + ")";
    }

    kxIfcHeader *header_ = nullptr;
};

// ---- writing ----

TEST_F(HeaderSectionTest, ListsAreQuotedAndEncodedAuthorizationIsOneJoinedString) {
    EnvGuard stamp("VELMTEST", "1");
    header_ = kxIfcHeader_new_empty_header();
    kxIfcHeader_add_to_description(header_, u"ViewDefinition [CoordinationView]");
    kxIfcHeader_add_to_description(header_, u"It's");
    kxIfcHeader_set_file_name(header_, u"caf\u00e9.ifc");
    kxIfcHeader_add_to_author(header_, u"Ann");
    kxIfcHeader_add_to_author(header_, u"Bob");
    kxIfcHeader_add_to_organization(header_, u"a\\b");
    kxIfcHeader_set_originating_system(header_, u"Tool 'X'");
    kxIfcHeader_add_to_authorization(header_, u"a");
    kxIfcHeader_add_to_authorization(header_, u"b'c");
    EXPECT_EQ(written(header_, u"fallback.ifc", KXIFCVERSION_IFC_4),
              "HEADER;\n"
              "FILE_DESCRIPTION(('ViewDefinition [CoordinationView]', 'It''s'), '2;1');\n"
              "FILE_NAME('caf\\X2\\00E9\\X0\\.ifc', '', ('Ann', 'Bob'), ('a\\\\b'), "
              "'Orlith IFC Preprocessor 1.0', 'Tool ''X''', 'a;b''c');\n"
              "FILE_SCHEMA(('IFC4'));\n"
              "ENDSEC;\n");
    // A record without members is written like an empty one.
    kx::header_destroy(&header_);
    header_ = kx::header_new(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(written(header_, u"m.ifc", KXIFCVERSION_IFC_2X3),
              "HEADER;\nFILE_DESCRIPTION((''), '2;1');\n"
              "FILE_NAME('m.ifc', '', (''), (''), 'Orlith IFC Preprocessor 1.0', '', '');\n"
              "FILE_SCHEMA(('IFC2X3'));\nENDSEC;\n");
}

// ---- reading ----

TEST_F(HeaderSectionTest, StringListFormsDollarsKeywordCaseCommentsImplementationLevelAndRelease) {
    ASSERT_TRUE(read_body(
        "FILE_DESCRIPTION (($, 'a', $), '2;1') ;\n"
        "FILE_NAME ($, $, (), ($), 'pre', $, ('x', 'y'));\n"
        "FILE_SCHEMA (('IFC2X3'));\n"));
    EXPECT_NE(header_->file_name, nullptr);
    EXPECT_EQ(narrow(header_->file_name) + "|" + narrow(header_->time_stamp) + "|" +
                  narrow(header_->originating_system),
              "||");
    EXPECT_EQ(items(header_->description_data) + items(header_->author_data) + items(header_->organization_data) +
                  items(header_->authorization_data),
              "('a')()()('x','y')");
    // The authorization as one string, or "$", is a one-item list.
    for (const std::string authorization : {"Nobody", ""}) {
        const std::string value = authorization.empty() ? "$" : "'" + authorization + "'";
        ASSERT_TRUE(read_body("FILE_NAME('n','t',('a'),('o'),'p','s'," + value + ");\n"));
        EXPECT_EQ(items(header_->authorization_data), "('" + authorization + "')");
    }
    ASSERT_TRUE(read("ISO-10303-21;\n/* a comment; HEADER; */ header;\r\n/* produced by */\r\n"
                     "file_description(('d'),'2;1');\r\nfile_schema(('ifc4'));\r\nendsec;\r\n"));
    EXPECT_EQ(narrow(header_->file_schema), "ifc4");

    // The implementation level must be 2;1.
    EnvGuard ignore("KXIFCHEADER_IGNORE_ERRORS", nullptr);
    const std::string body = "FILE_DESCRIPTION(('d'),'2;2');\nFILE_SCHEMA(('IFC4'));\n";
    EXPECT_FALSE(read_body(body));
    {
        EnvGuard set("KXIFCHEADER_IGNORE_ERRORS", "1");
        EXPECT_TRUE(read_body(body));
        EXPECT_EQ(narrow(header_->file_schema), "IFC4");
        kxIfcVersion_t version = ifc_version_not_defined;
        const std::u16string path = wide(write_file(file_with_header(body)));
        EXPECT_EQ(kxIfcHeader_read_ifc_version(path.c_str(), &version), kxBTRUE);
        EXPECT_EQ(version, KXIFCVERSION_IFC_4);
    }
    EXPECT_FALSE(read_body(body)) << "the variable is looked at on every read";
    // The level is one string: a list of two, or none, is malformed.
    EXPECT_FALSE(read_body("FILE_DESCRIPTION(('d'),('2;1','2;1'));\n"));
    EXPECT_FALSE(read_body("FILE_DESCRIPTION(('d'),());\n"));
    EXPECT_TRUE(read_body("FILE_DESCRIPTION(('d'),('2;1'));\n"));
    kxIfcVersion_t version = KXIFCVERSION_IFC_4;
    const std::u16string no_schema = wide(write_file(file_with_header("FILE_DESCRIPTION(('d'),'2;1');\n")));
    EXPECT_EQ(kxIfcHeader_read_ifc_version(no_schema.c_str(), &version), kxBFALSE);
    EXPECT_EQ(static_cast<uint32_t>(version), 0xFFFFu);

    version = KXIFCVERSION_IFC_2X3;
    const std::u16string broken = wide(write_file("ISO-10303-21;\nHEADER;\nFILE_SCHEMA(('IFC4'))\n"));
    EXPECT_EQ(kxIfcHeader_read_ifc_version(broken.c_str(), &version), kxBFALSE);
    EXPECT_EQ(version, KXIFCVERSION_IFC_2X3) << "a failed read leaves the version alone";
    EXPECT_EQ(kxIfcHeader_read_ifc_version(wide(dir().file("none.ifc")).c_str(), &version), kxBFALSE);
}

TEST_F(HeaderSectionTest, MalformedOrTruncatedSectionsFailAndLongListsAreReported) {
    const char *bodies[] = {
        "FILE_DESCRIPTION(('d'),'2;1')\n",                              // no ";"
        "FILE_DESCRIPTION(('d' 'e'),'2;1');\n",                         // no "," between items
        "FILE_DESCRIPTION((('d')),'2;1');\n",                           // nested list
        "FILE_DESCRIPTION(('d'),'2;1',3);\n",                           // an extra value
        "FILE_NAME('n','t',(''),(''),'p','s');\n",                      // no authorization
        "FILE_NAME('n',5,(''),(''),'p','s','');\n",                     // not a string
        "FILE_SCHEMA(('IFC4','IFC2X3'));\n",                            // two schemas
        "FILE_SCHEMA(());\n",                                           // none
        "FILE_SCHEMA(('IFC4'));\nFILE_NAME('n','t',(''),(''),'p','s','');\n",  // out of order
        "FILE_POPULATION('x');\n",                                      // an entity of its own
        "FILE_DESCRIPTION(('d'),'2;1');\nFILE_DESCRIPTION(('d'),'2;1');\n",
    };
    for (const char *body : bodies) EXPECT_FALSE(read_body(body)) << body;
    EXPECT_FALSE(read(""));
    EXPECT_FALSE(read("ISO-10303-21;\nDATA;\nENDSEC;\n")) << "no HEADER";
    EXPECT_FALSE(read("ISO-10303-21;\nHEADER\nFILE_SCHEMA(('IFC4'));\nENDSEC;\n")) << "no ; after HEADER";
    EXPECT_FALSE(read("ISO-10303-21;\nHEADER;\nFILE_SCHEMA(('IFC4'));\nENDSEC\n")) << "no ; after ENDSEC";
    EXPECT_FALSE(read("ISO-10303-21;\nHEADER;\nFILE_NAME('unterminated")) << "open literal";
    EXPECT_FALSE(read("ISO-10303-21;\nHEADER;\n/* open comment")) << "open comment";
    EXPECT_FALSE(read(std::string("HEADER;\0\xff\xfe(((((", 13))) << "binary bytes";

    kxIfcHeader *earlier = kxIfcHeader_new_empty_header();
    header_ = earlier;
    EXPECT_FALSE(kx::header_read_section(wide(dir().file("missing.ifc")).c_str(), &header_));
    EXPECT_EQ(header_, nullptr) << "the holder is cleared";
    kx::header_destroy(&earlier);
    EXPECT_FALSE(kx::header_read_section(wide(dir().path()).c_str(), &header_)) << "a directory";
    const std::string whole = "ISO-10303-21;\nHEADER;\n" + std::string(kDuplexHeader) + "ENDSEC;";
    ASSERT_TRUE(read(whole));
    for (size_t length = 0; length < whole.size(); length++)
        EXPECT_FALSE(read(whole.substr(0, length))) << whole.substr(0, length);
    // Each item past the 1000th of a list is reported, and still read.
    std::string items = "'0'";
    for (int i = 1; i < 1003; i++) items += ",'" + std::to_string(i) + "'";
    expect_reports();
    ASSERT_TRUE(read_body("FILE_DESCRIPTION((" + items + "),'2;1');\n"));
    EXPECT_EQ(narrow(kx::wstrarray_get(header_->description_data, 1002)), "1002");
    ASSERT_EQ(asserts().reports().size(), 3u);
    EXPECT_EQ(asserts().reports()[0].condition, "num_iters < 1000");
}

// ---- the record ----

// The lists keep copies; an index at or past the count gives one shared
// static empty string, without a report.
TEST_F(HeaderSectionTest, ListsKeepCopiesIndexAtCountGivesTheStaticEmptyStringAndMisuseIsReported) {
    header_ = kxIfcHeader_new_empty_header();
    const kxWChar *empty = kxIfcHeader_get_author_field(header_, 0);
    EXPECT_EQ(text_of(empty), u"");
    const struct {
        void (*add)(kxIfcHeader *, const kxWChar *);
        const kxWChar *(*get)(const kxIfcHeader *, uint32_t);
    } lists[] = {{kxIfcHeader_add_to_author, kxIfcHeader_get_author_field},
                 {kxIfcHeader_add_to_organization, kxIfcHeader_get_organization_field},
                 {kxIfcHeader_add_to_authorization, kxIfcHeader_get_authorization_field},
                 {kxIfcHeader_add_to_description, kxIfcHeader_get_description_field}};
    for (const auto &list : lists) {
        char16_t item[] = u"Ann";
        list.add(header_, item);
        item[0] = u'X';
        EXPECT_EQ(text_of(list.get(header_, 0)), u"Ann");
        EXPECT_EQ(list.get(header_, 1), empty);
        EXPECT_EQ(list.get(header_, UINT32_MAX), empty);
    }

    // A built record takes its values over and may lack lists, which a
    // later addition makes.
    kx::header_destroy(&header_);
    kx::WideString name = kx::wstr_copy(u"f.ifc");
    const kxWChar *name_pointer = name;
    header_ = kx::header_new(nullptr, &name, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(kxIfcHeader_get_file_name(header_), name_pointer);
    kxIfcHeader_add_to_author(header_, u"Ann");
    EXPECT_EQ(text_of(kxIfcHeader_get_description_data(header_, 0)), u"Ann");

    EnvGuard stamp("VELMTEST", "1");
    kxIfcHeader *lacking = kx::header_new(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    kxIfcHeader *none = nullptr;
    kx::header_destroy(&header_);
    header_ = kxIfcHeader_new_empty_header();
    kxIfcHeader_set_file_name(header_, u"keep.ifc");
    std::string section;
    expect_each_reported({
        {"", [&] { section = written(header_, u"m.ifc", ifc_version_not_defined); }},  // an undefined release
        {"(value_container) != NULL", [&] { EXPECT_EQ(kxIfcHeader_author_fields_count(lacking), 0u); }},
        {"(value_container) != NULL", [&] { EXPECT_EQ(text_of(kxIfcHeader_get_organization_field(lacking, 0)), u""); }},
        {"(ifc_version) != NULL", [&] { EXPECT_EQ(kxIfcHeader_read_ifc_version(u"x.ifc", nullptr), kxBFALSE); }},
        {"(file_name) != NULL", [&] { EXPECT_EQ(kxIfcHeader_read_from_file(nullptr), nullptr); }},
        {"(header) != NULL", [&] { EXPECT_FALSE(kx::header_read_section(u"x.ifc", nullptr)); }},
        {"(header) != NULL", [&] { kx::header_destroy(nullptr); }},
        {"(*header) != NULL", [&] { kx::header_destroy(&none); }},
        {"(ifc_header) != NULL", [&] { kxIfcHeader_add_to_description(nullptr, u"x"); }},
        {"(ifc_header) != NULL", [&] { kxIfcHeader_set_file_name(nullptr, u"x"); }},
        {"(ifc_header) != NULL", [&] { kxIfcHeader_add_to_author(nullptr, u"x"); }},
        {"(ifc_header) != NULL", [&] { EXPECT_EQ(kxIfcHeader_get_file_name(nullptr), nullptr); }},
        {"(ifc_header) != NULL", [&] { EXPECT_EQ(kxIfcHeader_author_fields_count(nullptr), 0u); }},
        {"(ifc_header) != NULL", [&] { EXPECT_EQ(text_of(kxIfcHeader_get_description_data(nullptr, 0)), u""); }},
        {"(ifc_header) != NULL", [&] { EXPECT_EQ(text_of(kxIfcHeader_get_authorization_field(nullptr, 0)), u""); }},
        {"(value) != NULL", [&] { kxIfcHeader_set_file_name(header_, nullptr); }},
        {"(value) != NULL", [&] { kxIfcHeader_add_to_author(header_, nullptr); }},
    });
    EXPECT_NE(section.find("ENDSEC;\n"), std::string::npos) << "the section is still complete";
    EXPECT_EQ(text_of(kxIfcHeader_get_file_name(header_)), u"keep.ifc");
    EXPECT_EQ(kxIfcHeader_author_fields_count(header_), 0u);
    kx::header_destroy(&lacking);
}

using kxtest::is_time_stamp;
using kxtest::read_file;

const char kHeaderOfEmptyRecord[] =
    "ISO-10303-21;\n"
    "HEADER;\n"
    "FILE_DESCRIPTION((''), '2;1');\n"
    "FILE_NAME('wall.ifc', '', (''), (''), 'Orlith IFC Preprocessor 1.0', '', '');\n"
    "FILE_SCHEMA(('IFC4'));\n"
    "ENDSEC;\n"
    "\n";

class ExportTest : public kxtest::ModelFixture {
protected:
    void SetUp() override {
        ModelFixture::SetUp();
        model(KXIFCVERSION_IFC_4);
    }

    // #1 a wall, #2 the select value (no line of its own), #3 a property
    // holding the value.
    void build_wall_and_property() {
        wall_ = make(kxIfcWall_class());
        kxIfcWall_set_GlobalId(wall_, u"2O2Fr$t4X7Zf8NOew3FLOH");
        kxIfcWall_set_Name(wall_, u"Wall");
        value_ = make(kxIfcValue_class());
        kxIfcValue_set_kxIfcLengthMeasure(value_, 2500.0);
        property_ = make(kxIfcPropertySingleValue_class());
        kxIfcPropertySingleValue_set_Name(property_, u"Height");
        kxIfcPropertySingleValue_set_NominalValue(property_, value_);
    }

    void export_as(const std::string &name, const std::string &directory = "") {
        const std::u16string file_name = wide(name);
        const std::u16string folder = wide(directory.empty() ? dir().path() : directory);
        kxIfcModel_export_model_to_file(model_, file_name.c_str(), folder.c_str());
    }
    static bool exists(const std::string &file) { return std::filesystem::exists(file); }
    void expect_nothing_written() const {
        for (uint32_t i = 0; i < kxIfcModel_count_objects(model_); i++) {
            const kxBaseObject *instance = static_cast<kxBaseObject *>(model_->objects->items[i]);
            EXPECT_FALSE(kx::baseobject_has_been_written(instance)) << "#" << instance->output_file_id;
        }
    }

    kxBaseObject *wall_ = nullptr;
    kxBaseObject *value_ = nullptr;
    kxBaseObject *property_ = nullptr;
};

// ---- the text ----

TEST_F(ExportTest, SmallModelGivesTheExactFileAndInconsistentInstancesAreReported) {
    EnvGuard stamp("VELMTEST", "1");
    build_wall_and_property();
    ASSERT_EQ(value_->output_file_id, 2u);
    export_as("wall");
    EXPECT_EQ(read_file(dir().file("wall.ifc")),
              std::string(kHeaderOfEmptyRecord) +
                  "DATA;\n"
                  "#1= IFCWALL('2O2Fr$t4X7Zf8NOew3FLOH',$,'Wall',$,$,$,$,$,$);\n"
                  "#3= IFCPROPERTYSINGLEVALUE('Height',$,IFCLENGTHMEASURE(2500.),$);\n"
                  "ENDSEC;\n"
                  "END-ISO-10303-21;\n");
    EXPECT_FALSE(exists(dir().file("wall.ifctmp")));
    expect_nothing_written();

    // A NULL model, an instance already marked written and an entity without
    // an output id are reported; the written marks are cleared afterwards, so
    // the next export is clean.
    expect_each_reported({
        {"(ifc_model) != NULL",
         [&] { kxIfcModel_export_model_to_file(nullptr, u"x", wide(dir().path()).c_str()); }},
        {"kxBaseObject_has_been_written_to_output_file(base_object) == FALSO",
         [&] {
             wall_->flags |= kx::OBJECT_WRITTEN;
             export_as("twice");
         }},
    });
    EXPECT_FALSE(exists(dir().file("x.ifc")) || exists(dir().file("x.ifctmp")));
    expect_nothing_written();
    export_as("twice");
    EXPECT_TRUE(asserts().reports().empty()) << "the next export is clean";
    property_->output_file_id = kx::ULONG_MAX32;
    expect_each_reported({{"kxBaseObject_get_output_file_id(base_object) != ULONG_MAX", [&] { export_as("noid"); }}});
    EXPECT_TRUE(exists(dir().file("noid.ifc")));
    expect_nothing_written();
}

// ---- repeated exports and the header record ----

TEST_F(ExportTest, HeaderRecordKeepsTheTimeStampAndSchemaTextOfTheExport) {
    EnvGuard stamp("VELMTEST", nullptr);
    build_wall_and_property();
    kxIfcHeader *header = kxIfcModel_get_header(model_);
    kxIfcHeader_set_time_stamp(header, u"1999-01-01T00:00:00");
    kxIfcHeader_set_file_schema(header, u"IFC2X3");
    export_as("stamped");
    const std::string stamp_text = narrow(kxIfcHeader_get_timestamp(header));
    EXPECT_TRUE(is_time_stamp(stamp_text)) << stamp_text;
    EXPECT_EQ(narrow(kxIfcHeader_get_file_schema(header)), "FILE_SCHEMA(('IFC4'))");
    EXPECT_NE(read_file(dir().file("stamped.ifc")).find("FILE_NAME('stamped.ifc', '" + stamp_text + "', "),
              std::string::npos);

    // Exported again: only the stamp and the name differ.
    export_as("stamped2");
    const std::string later_stamp = narrow(kxIfcHeader_get_timestamp(header));
    EXPECT_TRUE(is_time_stamp(later_stamp)) << later_stamp;
    std::string earlier = read_file(dir().file("stamped.ifc"));
    std::string later = read_file(dir().file("stamped2.ifc"));
    earlier.replace(earlier.find("'" + stamp_text + "'"), stamp_text.size() + 2, "'T'");
    later.replace(later.find("'" + later_stamp + "'"), later_stamp.size() + 2, "'T'");
    later.replace(later.find("'stamped2.ifc'"), 14, "'stamped.ifc'");
    EXPECT_EQ(earlier, later);
}

// ---- files ----

// An export that cannot be completed says so, leaves an existing target as
// it was and leaves no temporary file behind.
TEST_F(ExportTest, AFailedExportLeavesTheTargetAndNoTrace) {
    for (int i = 0; i < 2000; i++) make(kxIfcCartesianPoint_class());
    const auto export_with_status = [this](const char *name, const std::string &folder) {
        return kxIfcModel_export_with_status(model_, wide(name).c_str(), wide(folder).c_str());
    };
    dir().write("kept.ifc", "kept");
    std::filesystem::create_directory(dir().file("folder.ifc"));
    ASSERT_EQ(mkdir(dir().file("taken.ifctmp").c_str(), 0700), 0);
    const struct {
        const char *name;
        std::string directory;
        kxExportStatus status;
    } cases[] = {
        {"", dir().path(), KX_EXPORT_BAD_NAME},
        {"..", dir().path(), KX_EXPORT_BAD_NAME},
        {"../escaped", dir().path(), KX_EXPORT_BAD_NAME},
        {"folder", dir().path(), KX_EXPORT_CANNOT_REPLACE},
        {"kept", dir().file("missing"), KX_EXPORT_CANNOT_CREATE},
        {"taken", dir().path(), KX_EXPORT_CANNOT_REPLACE},  // the temporary name is a folder
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(export_with_status(c.name, c.directory), c.status);
        EXPECT_EQ(kxIfcModel_last_export_status(model_), c.status);
        EXPECT_NE(std::string(kxExportStatus_message(c.status)), "");
    }
    EXPECT_FALSE(exists(dir().file("missing")));
    EXPECT_TRUE(std::filesystem::is_directory(dir().file("taken.ifctmp")));
    EXPECT_EQ(narrow(kxIfcHeader_get_file_schema(kxIfcModel_get_header(model_))), "") << "the header is untouched";
    // A file-size limit stops the writing half-way.
    struct rlimit old_limit;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &old_limit), 0);
    struct rlimit small = old_limit;
    small.rlim_cur = 4096;
    auto *old_handler = std::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    const kxExportStatus limited = export_with_status("kept", dir().path());
    setrlimit(RLIMIT_FSIZE, &old_limit);
    std::signal(SIGXFSZ, old_handler);
    EXPECT_EQ(limited, KX_EXPORT_WRITE_FAILED);
    EXPECT_EQ(read_file(dir().file("kept.ifc")), "kept");
    for (const auto &entry : std::filesystem::recursive_directory_iterator(dir().path()))
        EXPECT_NE(entry.path().filename(), "kept.ifctmp");
    expect_nothing_written();
    // Without the limit the same export replaces the file.
    EXPECT_EQ(export_with_status("kept", dir().path()), KX_EXPORT_OK);
    EXPECT_NE(read_file(dir().file("kept.ifc")).find("IFCCARTESIANPOINT"), std::string::npos);
}

}  // namespace
