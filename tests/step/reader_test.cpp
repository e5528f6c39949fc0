// Reading exchange files: every sample file in every read mode, hostile or
// broken text that must fail or be reported without crashing or leaking, the
// inputs kept for the fuzzer, the window the reader sees the file through,
// and the read reports.
#include <sys/stat.h>

#include <cctype>
#include <filesystem>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "fuzz/exercise_reader.h"
#include "step/scanner.h"
#include "step/textwindow.h"
#include "kxifcmodel.h"
#include "model_fixture.h"
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

    uint32_t files_written_ = 0;
};

// Every sample file, and the concatenated files where every id stands many
// times, reads the same in every mode.
TEST_F(ReaderTest, EverySampleFileAndConcatenatedFilesReadTheSameInEveryMode) {
    KX_REQUIRE_SHARED("ifc");
    std::vector<std::string> files = kxtest::sample_files();
    const std::string concatenated = kxtest::shared_path("ifc-malformed/concatenated_files.ifc");
    if (!concatenated.empty()) files.push_back(concatenated);
    for (const std::string &path : files) {
        SCOPED_TRACE(path);
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
    kx::Scanner scanner;
    const std::string ids = "#4294967295 #99999999999";
    kx::scanner_init(&scanner, ids.data(), ids.size());
    EXPECT_EQ(kx::scanner_next(&scanner).id, 4294967295u);
    EXPECT_EQ(kx::scanner_next(&scanner).id, 4294967295u);  // saturates, never wraps
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

// Two-pass reads on several threads.
class ParallelReadTest : public ReaderTest {
protected:
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

    kxtest::EnvGuard stamp_{"VELMTEST", "1"};  // empty time stamps: byte-identical exports
};

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

// A two-pass read on several threads: every sample file
// and files with planted faults come out as the one-thread read makes them
// (and sample files as the one-pass read makes them), the same model written
// to the same bytes and the same report, in both text modes.
TEST_F(ParallelReadTest, SampleFilesReadAsOnOneThread) {
    KX_REQUIRE_SHARED("ifc");
    for (const std::string &path : kxtest::sample_files()) expect_same_whatever_the_threads(path, true);
}

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

}  // namespace
