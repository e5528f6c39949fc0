// The second pass of a two-pass read on several threads: every sample file
// and files with planted faults come out as the one-thread read makes them
// (and sample files as the one-pass read makes them), the same model written
// to the same bytes and the same report, in both text modes.
#include <sstream>
#include <string>

#include "kxifcmodel.h"
#include "test_support.h"

namespace {

class ParallelReadTest : public kxtest::LibraryTest {
protected:
    // The export of a read on `threads` threads and its report, as one text.
    std::string read_and_write(const std::string &path, uint32_t threads, kxTextMode text_mode, uint32_t mode = 2) {
        kxReadReport *report = kxReadReport_new(3);
        kxReadReport_set_threads(report, threads);
        kxWChar *name = kxWideString_new_from_utf8(path.c_str());
        kxBool errors = kxBFALSE;
        kxIfcModel *model = kxIfcModel_read_with_report(name, mode, text_mode, report, &errors);
        kxWideString_free(&name);
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
        kxWChar *base = kxWideString_new_from_utf8("written");
        kxWChar *directory = kxWideString_new_from_utf8(directory_.path().c_str());
        EXPECT_EQ(kxIfcModel_export_with_status(model, base, directory), KX_EXPORT_OK);
        kxWideString_free(&base);
        kxWideString_free(&directory);
        kxIfcModel_free(&model);
        return result + "\n" + kxtest::read_file(directory_.file("written.ifc"));
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

    kxtest::TempDirectory directory_{"kxifc_parallel"};
    kxtest::EnvGuard stamp_{"VELMTEST", "1"};
};

TEST_F(ParallelReadTest, SampleFilesReadAsOnOneThread) {
    KX_REQUIRE_SHARED("ifc");
    for (const std::string &path : kxtest::sample_files()) expect_same_whatever_the_threads(path, true);
}

// Faults in every part: values of the wrong type, references to ids no
// line defines, bad escapes, select values, unknown entities, repeated ids
// and, in some files, a syntax error in the first or the last part.
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
    const std::string header = "ISO-10303-21;\nHEADER;\nFILE_DESCRIPTION((''),'2;1');\nFILE_NAME('','',(''),(''),'',"
                               "'','');\nFILE_SCHEMA(('IFC4'));\nENDSEC;\nDATA;\n";
    const std::string end = "ENDSEC;\nEND-ISO-10303-21;\n";
    const size_t quarter = data.find('\n', data.size() / 4) + 1;
    const size_t last = data.find('\n', data.size() * 7 / 8) + 1;
    const std::string files[] = {
        header + data + end + "#1=IFCWALL();\n",
        header + data.substr(0, quarter) + "#9000= IFCDIRECTION((1.,=));\n" + data.substr(quarter) + end,
        header + data.substr(0, last) + "#9000= IFCDIRECTION((1.,=));\n" + data.substr(last) + end,
    };
    for (size_t i = 0; i < std::size(files); i++)
        expect_same_whatever_the_threads(directory_.write("faults" + std::to_string(i) + ".ifc", files[i]));
}

}  // namespace
