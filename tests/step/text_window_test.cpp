// The moving window over a file: scanning through it, sliding only between
// statements as the reader does, gives the very tokens (kinds, texts, lines,
// columns, offsets) of scanning the whole text at once, whatever the
// window's size.
#include <string>

#include "step/scanner.h"
#include "step/textwindow.h"
#include "test_support.h"

namespace {

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

TEST(TextWindowTest, SlidingGivesTheTokensOfTheWholeText) {
    kxtest::TempDirectory directory("kxifc_window");
    std::string long_statement = "#9=IFCPOLYLOOP((";
    for (int i = 0; i < 300; i++) long_statement += (i ? ",#" : "#") + std::to_string(i + 10);
    long_statement += "));\n";
    const std::string tricky =
        "\xEF\xBB\xBFISO-10303-21;\r\nHEADER;FILE_NAME('a;b','it''s;',(''),'\\S\\'x;');ENDSEC;\nDATA;\n"
        "/* a comment; with 'quotes */#1=IFCLABEL('; /* not a comment */');\r\n#2 = IFCX(1.5E-3,.T.,\"0F\",$,*);\n" +
        long_statement + "#3=IFCY('\\S\\';',(1.,2.,3.,4.,5.,6.,7.,8.,9.,10.,11.,12.,13.,14.));\n#4=IFCZ('''');ENDSEC;END-ISO-10303-21;\n#5=('unterminated;";
    const std::string path = directory.write("tricky.ifc", tricky);
    const std::string expected = scan_whole(tricky);
    for (size_t capacity = 16; capacity < 160; capacity++)
        EXPECT_EQ(scan_through_window(path, capacity), expected) << capacity;

    for (const std::string &file : kxtest::sample_files())
        EXPECT_EQ(scan_through_window(file, 4096), scan_whole(kxtest::read_file(file))) << file;
}

TEST(TextWindowTest, FileProblems) {
    kxtest::TempDirectory directory("kxifc_window");
    EXPECT_STREQ(kx::TextWindow(kxtest::wide(directory.file("missing.ifc")).c_str()).problem(),
                 "the file cannot be opened");
    EXPECT_STREQ(kx::TextWindow(kxtest::wide(directory.path()).c_str()).problem(), "not a regular file");
    EXPECT_STREQ(kx::TextWindow(kxtest::wide(directory.write("empty.ifc", "")).c_str()).problem(),
                 "the file is empty");
}

}  // namespace
