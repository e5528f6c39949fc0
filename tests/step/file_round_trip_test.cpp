// Whole files through the library and back: every sample file is read,
// written, read again and written again; the two written files must be
// identical, and the second read must find nothing wrong.
#include <algorithm>
#include <string>
#include <vector>

#include "kxifcmodel.h"
#include "test_support.h"

namespace {

class FileRoundTripTest : public kxtest::LibraryTest {
protected:
    void SetUp() override {
        kxtest::LibraryTest::SetUp();
        ASSERT_TRUE(directory_.made());
    }

    kxIfcModel *read(const std::string &path, kxBool *errors) {
        kxWChar *name = kxWideString_new_from_utf8(path.c_str());
        kxIfcModel *model = kxIfcModel_read_from_step_file(name, 0, errors);
        kxWideString_free(&name);
        return model;
    }

    // Exports the model as <directory>/<base>.ifc and returns the path.
    std::string write(kxIfcModel *model, const char *base) {
        kxWChar *name = kxWideString_new_from_utf8(base);
        kxWChar *directory = kxWideString_new_from_utf8(directory_.path().c_str());
        kxIfcModel_export_model_to_file(model, name, directory);
        kxWideString_free(&name);
        kxWideString_free(&directory);
        return directory_.file(std::string(base) + ".ifc");
    }

    kxtest::TempDirectory directory_{"kxifc_round_trip"};
    kxtest::EnvGuard stamp_{"VELMTEST", "1"};  // empty time stamps: byte-identical exports
};

TEST_F(FileRoundTripTest, EverySampleFileSurvivesWritingAndReading) {
    KX_REQUIRE_SHARED("ifc");
    const std::vector<std::string> files = kxtest::sample_files();
    ASSERT_FALSE(files.empty());
    for (const std::string &path : files) {
        SCOPED_TRACE(path);
        kxBool errors = kxBFALSE;
        kxIfcModel *original = read(path, &errors);
        ASSERT_NE(original, nullptr);
        const uint32_t count = kxIfcModel_count_objects(original);
        const kxIfcVersion_t version = kxIfcModel_ifc_version(original);
        const std::string first = write(original, "first");
        kxIfcModel_free(&original);

        // Reals are written with ten significant digits, so a value close to
        // the rounding threshold may be written differently once; from the
        // second export on, the text is a fixed point.
        std::string previous = first;
        std::string texts[3];
        texts[0] = kxtest::read_file(first);
        for (int round = 1; round <= 2; round++) {
            kxIfcModel *again = read(previous, &errors);
            ASSERT_NE(again, nullptr);
            EXPECT_EQ(errors, kxBFALSE);  // what the library writes, it reads without a fault
            EXPECT_EQ(kxIfcModel_ifc_version(again), version);
            EXPECT_EQ(kxIfcModel_count_objects(again), count);
            previous = write(again, round == 1 ? "second" : "third");
            kxIfcModel_free(&again);
            texts[round] = kxtest::read_file(previous);
        }
        const std::string &first_text = texts[0];
        EXPECT_FALSE(first_text.empty());
        const size_t data = texts[1].find("\nDATA;\n");
        ASSERT_NE(data, std::string::npos);
        EXPECT_EQ(kxtest::first_difference(texts[1].substr(data), texts[2].substr(texts[2].find("\nDATA;\n"))), "");
        EXPECT_EQ(std::count(texts[0].begin(), texts[0].end(), '#'), std::count(texts[1].begin(), texts[1].end(), '#'));
        for (char c : first_text) ASSERT_TRUE(c == '\n' || (c >= 0x20 && c < 0x7F)) << "not 7-bit text";
    }
}

}  // namespace
