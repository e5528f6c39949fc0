// Read reports: one small file per problem the reader reports, with the
// code, place, id and attribute it must name, in every read mode; the
// report's bound; what a line with a bad value keeps; and reads on several
// threads, which must report and make what one thread does.
#include <sys/stat.h>

#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "kxifcmodel.h"
#include "test_support.h"

namespace {

class ReadReportTest : public kxtest::LibraryTest {
protected:
    // An exchange file with the data lines from line 8 on.
    std::string file(const std::string &data, const char *schema = "IFC4", const std::string &after = "") {
        return directory_.write("case.ifc", kxtest::step_file(data, schema, after));
    }
    kxIfcModel *read(const std::string &path, uint32_t mode, kxReadReport *report,
                     kxTextMode text_mode = KX_TEXT_MODE_LOSSLESS) {
        return kxIfcModel_read_with_report(kxtest::wide(path).c_str(), mode, text_mode, report, nullptr);
    }
    kxtest::TempDirectory directory_{"kxifc_report"};
};

// Reads whose second pass runs on several threads.
class ParallelReadTest : public ReadReportTest {
protected:
    // The export of a read on `threads` threads and its report, as one text.
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
        EXPECT_EQ(kxIfcModel_export_with_status(model, u"written", kxtest::wide(directory_.path()).c_str()),
                  KX_EXPORT_OK);
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

    kxtest::EnvGuard stamp_{"VELMTEST", "1"};  // empty time stamps: byte-identical exports
};

TEST_F(ReadReportTest, EachProblemIsReportedWithItsCodeAndPlace) {
    const struct {
        const char *data;
        const char *schema;
        const char *after;
        kxReadCode code;
        uint32_t line, column, file_id, attribute;
        bool model_read;
    } cases[] = {
        {"#1= IFCCARTESIANPOINT((0.,0.),;\n", "IFC4", "", KX_READ_SYNTAX_ERROR, 8, 31, 0, 0, false},
        {"#1= IFCNOSUCHTHING($);\n", "IFC4", "", KX_READ_UNKNOWN_ENTITY, 8, 5, 1, 0, true},
        {"#1= IFCELECTRICALELEMENT($,$,$,$,$,$,$,$);\n", "IFC4", "", KX_READ_OTHER_RELEASE_ENTITY, 8, 5, 1, 0, true},
        {"#1= IFCROOT('x',$,$,$);\n", "IFC4", "", KX_READ_ABSTRACT_ENTITY, 8, 5, 1, 0, true},
        {"#1= IFCCARTESIANPOINT((0.,0.));\n#1= IFCDIRECTION((1.,0.));\n", "IFC4", "", KX_READ_DUPLICATE_ID, 9, 1, 1,
         0, true},
        {"#1= IFCPOLYLINE((#2,#5));\n#2= IFCCARTESIANPOINT((0.,0.));\n", "IFC4", "", KX_READ_UNDEFINED_REFERENCE, 8,
         21, 1, 1, true},
        {"#1= IFCCARTESIANPOINT('a');\n", "IFC4", "", KX_READ_WRONG_TYPE, 8, 23, 1, 1, true},
        {"#1= IFCCARTESIANPOINT((0.,0.),$);\n", "IFC4", "", KX_READ_WRONG_ATTRIBUTE_COUNT, 8, 1, 1, 0, true},
        {"#1= IFCDIMENSIONALEXPONENTS(1,0,0,0,0,0,9999999999);\n", "IFC4", "", KX_READ_INTEGER_OUT_OF_RANGE, 8, 41,
         1, 7, true},
        {"#1= IFCCARTESIANPOINT((1.E400,0.));\n", "IFC4", "", KX_READ_REAL_OUT_OF_RANGE, 8, 24, 1, 1, true},
        {"#1= IFCPERSON($,'a\\Q\\',$,$,$,$,$,$);\n", "IFC4", "", KX_READ_MALFORMED_ESCAPE, 8, 17, 1, 2, true},
        {"#1= IFCCARTESIANPOINT((0.,0.));\n", "IFC4X3_ADD2", "", KX_READ_SCHEMA_MISMATCH, 0, 0, 0, 0, true},
        {"#1= IFCCARTESIANPOINT((0.,0.));\n", "IFC4", "#2= IFCDIRECTION((1.,0.));\n", KX_READ_TEXT_AFTER_END, 11, 1,
         0, 0, true},
        {"#4294967296= IFCCARTESIANPOINT((0.,0.));\n", "IFC4", "", KX_READ_ID_OUT_OF_RANGE, 8, 1, 0, 0, true},
        {"#1=(IFCA()IFCB());\n", "IFC4", "", KX_READ_UNSUPPORTED_INSTANCE, 8, 1, 1, 0, true},
        {"#1= IFCPERSON($,'a\\X\\00b',$,$,$,$,$,$);\n", "IFC4", "", KX_READ_NUL_IN_STRING, 8, 17, 1, 2, true},
        {"#1= IFCCARTESIANPOINT((0.,0.));\n", "NOT_IFC", "", KX_READ_UNREADABLE_FILE, 0, 0, 0, 0, false},
    };
    kxReadReport *report = kxReadReport_new(0);
    for (const auto &c : cases) {
        const std::string path = file(c.data, c.schema, c.after);
        for (uint32_t mode : {1u, 2u}) {
            for (kxTextMode text_mode : {KX_TEXT_MODE_SPEC, KX_TEXT_MODE_LOSSLESS}) {
                SCOPED_TRACE(testing::Message() << c.data << " mode " << mode << "/" << text_mode);
                kxReadReport_clear(report);
                kxIfcModel *model = read(path, mode, report, text_mode);
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
    kxReadReport_free(&report);
}

// Devices and pipes, which a reader could wait on for ever, are refused.
TEST_F(ReadReportTest, OnlyRegularFilesAreRead) {
    const std::string fifo = directory_.file("pipe.ifc");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    kxReadReport *report = kxReadReport_new(0);
    for (const std::string &path : {std::string("/dev/zero"), fifo, directory_.path()}) {
        SCOPED_TRACE(path);
        kxReadReport_clear(report);
        EXPECT_EQ(read(path, 0, report), nullptr);
        ASSERT_EQ(kxReadReport_count(report), 1u);
        EXPECT_EQ(kxReadReport_code(report, 0), KX_READ_UNREADABLE_FILE);
        EXPECT_STREQ(kxReadReport_message(report, 0), "not a regular file");
        EXPECT_EQ(kxIfcHeader_read_from_file(kxtest::wide(path).c_str()), nullptr);
    }
    kxReadReport_free(&report);
}

// A line too long to collect value by value is read directly, passing over
// the value that does not fit.
TEST_F(ReadReportTest, ABadValueInAVeryLongLineIsPassedOver) {
    std::string points;
    for (int i = 0; i < 400000; i++) points.append("#1,");  // 1.2 MB
    const std::string path = file(std::string("#1= IFCCARTESIANPOINT((0.,0.));\n#2= IFCPOLYLINE((")
                                      .append(points).append("'x'));\n#3= IFCPOLYLINE((#1,#1));\n"));
    kxReadReport *report = kxReadReport_new(0);
    kxIfcModel *model = read(path, 1, report);
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
        kxIfcModel *model = read(path, mode, report);
        ASSERT_NE(model, nullptr);
        EXPECT_EQ(reading.runs.size(), mode + 1);
        for (size_t pass = 0; pass < mode; pass++) EXPECT_GE(reading.runs[pass], 2u);  // the file is over 8 MiB
        kxIfcModel_set_export_progress(model, Progress::note, &exporting);
        EXPECT_EQ(kxIfcModel_export_with_status(model, u"progress", kxtest::wide(directory_.path()).c_str()),
                  KX_EXPORT_OK);
        EXPECT_EQ(exporting.runs, (std::vector<size_t>{5, 0}));  // 0, 65536, 131072, 196608, end
        EXPECT_EQ(exporting.last_total, 200000u);
        kxIfcModel_free(&model);
        kxReadReport_free(&report);
    }
}

// The second pass of a two-pass read on several threads: every sample file
// and files with planted faults come out as the one-thread read makes them
// (and sample files as the one-pass read makes them), the same model written
// to the same bytes and the same report, in both text modes.
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
    const size_t quarter = data.find('\n', data.size() / 4) + 1;
    const size_t last = data.find('\n', data.size() * 7 / 8) + 1;
    const std::string datas[] = {data, data.substr(0, quarter) + "#9000= IFCDIRECTION((1.,=));\n" + data.substr(quarter),
                                 data.substr(0, last) + "#9000= IFCDIRECTION((1.,=));\n" + data.substr(last)};
    expect_same_whatever_the_threads(file(datas[0], "IFC4", "#1=IFCWALL();\n"));
    for (const std::string &faults : {datas[1], datas[2]}) expect_same_whatever_the_threads(file(faults));
}

}  // namespace
