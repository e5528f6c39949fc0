// The built shared library loaded beside the static one the tests link, to
// call its exported functions by name (families too large to name in
// code). It keeps its own memory accounting and assertion count, which a
// test compares before and after.
#pragma once

#include <dlfcn.h>
#include <sys/stat.h>

#include <string>
#include <type_traits>

#include <gtest/gtest.h>

#include "kxifc_model.h"

namespace kxtest {

struct SharedLibrary {
    void *handle = nullptr;
    kxIfcModel *(*model_new)() = nullptr;
    void (*set_version)(kxIfcModel *, kxIfcVersion_t) = nullptr;
    void (*model_free)(kxIfcModel **) = nullptr;
    kxBaseObject *(*new_object)(kxIfcModel *, const kxClass_t *) = nullptr;
    const kxClass_t *(*find_class)(const kxWChar *) = nullptr;
    kxBool (*exists_in)(const kxClass_t *, kxIfcVersion_t) = nullptr;
    kxBool (*is_abstract)(const kxClass_t *, kxIfcVersion_t) = nullptr;
    uint32_t (*array_count)(const kxArrayST *) = nullptr;
    void (*array_free)(kxArrayST **, kxArraySTDestroyFn) = nullptr;
    void (*memory_usage)(int64_t *, int64_t *) = nullptr;
    uint64_t (*assert_count)() = nullptr;

    static std::string path() { return std::string(KX_BINARY_DIR) + "/src/libkxifcmodel.so"; }
    static bool built() {
        struct stat info;
        return stat(path().c_str(), &info) == 0;
    }
    // An exported function by name, or NULL.
    template <typename F>
    F *function(const std::string &name) const {
        return reinterpret_cast<F *>(dlsym(handle, name.c_str()));
    }
    bool open() {
        handle = dlopen(path().c_str(), RTLD_NOW | RTLD_LOCAL);
        if (handle == nullptr) return false;
        bool all = true;
        auto bind = [&](auto *&target, const char *name) {
            target = function<std::remove_pointer_t<std::remove_reference_t<decltype(target)>>>(name);
            all = all && target != nullptr;
        };
        bind(model_new, "kxIfcModel_new");
        bind(set_version, "kxIfcModel_set_version");
        bind(model_free, "kxIfcModel_free");
        bind(new_object, "kxIfcModel_dontuse_new_object");
        bind(find_class, "kxClass_find_by_name");
        bind(exists_in, "kxClass_exists_in_version");
        bind(is_abstract, "kxClass_is_abstract");
        bind(array_count, "kxArrayST_dontuse_count");
        bind(array_free, "kxArrayST_dontuse_free");
        bind(memory_usage, "kxMemory_get_usage");
        bind(assert_count, "kxDiagnostics_assert_count");
        return all;
    }
    // What the library holds and has reported, to compare before and after.
    struct Usage {
        int64_t blocks = 0, bytes = 0;
        uint64_t reports = 0;
    };
    Usage usage() const {
        Usage now;
        memory_usage(&now.blocks, &now.bytes);
        now.reports = assert_count();
        return now;
    }
    // Expects the library back where it was: nothing kept, nothing reported.
    void expect_usage_back_at(const Usage &before) const {
        const Usage after = usage();
        EXPECT_EQ(after.blocks, before.blocks);
        EXPECT_EQ(after.bytes, before.bytes);
        EXPECT_EQ(after.reports, before.reports);
    }
    ~SharedLibrary() {
        if (handle != nullptr) dlclose(handle);
    }
};

// Skips the current test when the shared library has not been built.
#define KX_REQUIRE_SHARED_LIBRARY()                                                        \
    do {                                                                                   \
        if (!::kxtest::SharedLibrary::built())                                             \
            GTEST_SKIP() << "shared library not built: " << ::kxtest::SharedLibrary::path(); \
    } while (0)

}  // namespace kxtest
