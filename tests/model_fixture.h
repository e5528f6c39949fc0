// A fixture that holds models of a release with instances made in them for
// the length of a test, freed before the base fixture checks tracked memory.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/baseobject.h"
#include "kxifc_model.h"
#include "test_support.h"

namespace kxtest {

// The array's elements, freeing the array; a missing array is a failure.
inline std::vector<kxBaseObject *> elements(kxArrayST *array, const char *missing = "NULL array") {
    std::vector<kxBaseObject *> result;
    if (array == nullptr) {
        ADD_FAILURE() << missing;
        return result;
    }
    for (uint32_t i = 0; i < kxArrayST_dontuse_count(array); i++)
        result.push_back(static_cast<kxBaseObject *>(kxArrayST_dontuse_get(array, i)));
    kxArrayST_dontuse_free(&array, nullptr);
    return result;
}

// Models made by the test, freed in TearDown.
class ModelFixture : public LibraryTest {
protected:
    void TearDown() override {
        for (kxIfcModel *&model : models_) kxIfcModel_free(&model);
        models_.clear();
        model_ = nullptr;
        LibraryTest::TearDown();
    }
    // A new model of the release; it becomes model_.
    kxIfcModel *model(kxIfcVersion_t release) {
        kxIfcModel *model = kxIfcModel_new();
        kxIfcModel_set_version(model, release);
        models_.push_back(model);
        model_ = model;
        return model;
    }
    // A new instance of the class in the model; none is a failure.
    static kxBaseObject *make(kxIfcModel *model, const kxClass_t *klass) {
        kxBaseObject *instance = kxIfcModel_dontuse_new_object(model, klass);
        EXPECT_NE(instance, nullptr);
        return instance;
    }
    // The same in model_.
    kxBaseObject *make(const kxClass_t *klass) { return make(model_, klass); }
    // The instance's output id as text.
    static std::string id(const kxBaseObject *instance) { return std::to_string(instance->output_file_id); }

    kxIfcModel *model_ = nullptr;  // the model made last

private:
    std::vector<kxIfcModel *> models_;
};

}  // namespace kxtest
