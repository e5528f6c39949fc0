/*
 * kxifcmodel.hpp: a header-only C++ layer over the flat interface of
 * kxifcmodel (C++17 or later). Models and instance arrays free themselves,
 * texts come in as UTF-8 (std::string_view) or UTF-16 (std::u16string_view)
 * and go out as std::string or std::u16string, and nothing throws: a read
 * that fails gives an empty std::optional, a write its kxExportStatus.
 *
 *     kx::ReadDiagnostics diagnostics;
 *     auto model = kx::Model::read("house.ifc", {}, &diagnostics);
 *     if (!model) return 1;
 *     for (kx::Instance wall : model->by_type("IfcWall"))
 *         std::cout << wall.id() << ' ' << kx::to_utf8(kxIfcWall_get_Name(wall.get())) << '\n';
 *
 * The typed attribute accessors stay the generated C ones; pass them
 * Instance::get() and convert their results with the helpers below.
 */
#ifndef KXIFCMODEL_HPP
#define KXIFCMODEL_HPP

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kxifcmodel.h"

namespace kx {
// The names below get a namespace of their own in the symbols, so that they
// never meet the library's internal ones when a host links it statically.
inline namespace facade {

// ---- Texts ---------------------------------------------------------------

/* UTF-8 copy of a library text; "" for NULL. */
inline std::string to_utf8(const kxWChar *text) {
    char *converted = kxWideString_to_utf8(text);
    std::string result = converted != nullptr ? converted : "";
    kxUtf8String_free(&converted);
    return result;
}

/* UTF-16 copy of a library text; empty for NULL. */
inline std::u16string to_u16string(const kxWChar *text) {
    return text != nullptr ? std::u16string(text, kxWideString_length(text)) : std::u16string();
}

/* A NUL-terminated UTF-16 copy of a host text, to pass where the interface
 * takes a const kxWChar *. */
class WideText {
public:
    explicit WideText(std::u16string_view text) : text_(text) {}
    explicit WideText(std::string_view utf8) {
        const std::string terminated(utf8);
        kxWChar *converted = kxWideString_new_from_utf8(terminated.c_str());
        text_ = to_u16string(converted);
        kxWideString_free(&converted);
    }
    const kxWChar *get() const { return text_.c_str(); }
    operator const kxWChar *() const { return text_.c_str(); }

private:
    std::u16string text_;
};

// ---- Classes and instances ------------------------------------------------

/* The class of a schema name ("IfcWall", case ignored), or NULL. */
inline const kxClass_t *find_class(std::string_view name) { return kxClass_find_by_name(WideText(name)); }
inline const kxClass_t *find_class(std::u16string_view name) { return kxClass_find_by_name(WideText(name)); }

/* A borrowed handle of an instance of a model (entity or select value); the
 * model owns the instance. Compares by identity. */
class Instance {
public:
    Instance() = default;
    explicit Instance(kxBaseObject *object) : object_(object) {}

    kxBaseObject *get() const { return object_; }
    explicit operator bool() const { return object_ != nullptr; }
    bool operator==(const Instance &other) const { return object_ == other.object_; }
    bool operator!=(const Instance &other) const { return object_ != other.object_; }

    /* The #id the instance has in a file (4294967295 when none). */
    uint32_t id() const { return kxBaseObject_dontuse_object_output_file_id(object_); }
    /* Schema name of the instance's class, such as "IfcWall". */
    std::string class_name() const { return to_utf8(class_name_text()); }
    std::u16string class_name_u16() const { return to_u16string(class_name_text()); }
    /* Whether the instance is of the class or of a subclass; false for an
     * unknown name. */
    bool is_a(const kxClass_t *klass) const {
        return object_ != nullptr && klass != nullptr && kxBaseObject_dontuse_is_object_kind_of(object_, klass);
    }
    bool is_a(std::string_view class_name) const { return is_a(find_class(class_name)); }
    bool is_a(std::u16string_view class_name) const { return is_a(find_class(class_name)); }

private:
    const kxWChar *class_name_text() const {
        return object_ != nullptr ? kxBaseObject_dontuse_get_ifc_class_name(object_) : nullptr;
    }
    kxBaseObject *object_ = nullptr;
};

/* An owning range over a kxArrayST of instances, as class queries and
 * inverse relations return it:
 *     for (kx::Instance rel : kx::InstanceRange(kxIfcWall_inverse_relation_IsDefinedBy_v4(wall.get())))
 */
class InstanceRange {
public:
    class iterator {
    public:
        using iterator_category = std::random_access_iterator_tag;
        using value_type = Instance;
        using difference_type = std::ptrdiff_t;
        using pointer = void;
        using reference = Instance;

        iterator() = default;
        iterator(const kxArrayST *array, uint32_t index) : array_(array), index_(index) {}
        Instance operator*() const { return Instance(static_cast<kxBaseObject *>(kxArrayST_dontuse_get(array_, index_))); }
        iterator &operator++() { ++index_; return *this; }
        iterator operator++(int) { iterator before = *this; ++index_; return before; }
        bool operator==(const iterator &other) const { return index_ == other.index_; }
        bool operator!=(const iterator &other) const { return index_ != other.index_; }
        difference_type operator-(const iterator &other) const {
            return static_cast<difference_type>(index_) - static_cast<difference_type>(other.index_);
        }

    private:
        const kxArrayST *array_ = nullptr;
        uint32_t index_ = 0;
    };

    InstanceRange() = default;
    /* Takes the array over (NULL: an empty range). */
    explicit InstanceRange(kxArrayST *array) : array_(array) {}
    ~InstanceRange() {
        if (array_ != nullptr) kxArrayST_dontuse_free(&array_, nullptr);
    }
    InstanceRange(InstanceRange &&other) noexcept : array_(std::exchange(other.array_, nullptr)) {}
    InstanceRange &operator=(InstanceRange &&other) noexcept {
        std::swap(array_, other.array_);
        return *this;
    }
    InstanceRange(const InstanceRange &) = delete;
    InstanceRange &operator=(const InstanceRange &) = delete;

    uint32_t size() const { return array_ != nullptr ? kxArrayST_dontuse_count(array_) : 0; }
    bool empty() const { return size() == 0; }
    Instance operator[](uint32_t index) const { return *iterator(array_, index); }
    iterator begin() const { return iterator(array_, 0); }
    iterator end() const { return iterator(array_, size()); }
    std::vector<Instance> to_vector() const { return std::vector<Instance>(begin(), end()); }

private:
    kxArrayST *array_ = nullptr;
};

/* The elements of a generated aggregate (kxSetIfcProduct and the like) with
 * its count and get functions:
 *     kx::elements(set, kxSetIfcProduct_count, kxSetIfcProduct_get_element) */
template <typename Aggregate, typename Element>
std::vector<Instance> elements(const Aggregate *aggregate, uint32_t (*count)(const Aggregate *),
                               Element *(*get)(const Aggregate *, uint32_t)) {
    std::vector<Instance> result;
    const uint32_t n = aggregate != nullptr ? count(aggregate) : 0;
    result.reserve(n);
    for (uint32_t i = 0; i < n; ++i) result.emplace_back(get(aggregate, i));
    return result;
}

// ---- Read diagnostics ------------------------------------------------------

/* One problem a read met, copied out of the read report. */
struct ReadProblem {
    kxReadSeverity severity = KX_SEVERITY_WARNING;
    kxReadCode code = 0;
    uint32_t line = 0;            // 0: not tied to a place
    uint32_t column = 0;
    uint32_t file_id = 0;         // #n of the line, 0: none
    std::string entity;
    uint32_t attribute_index = 0;  // from 1, 0: none
    std::string attribute;
    std::string message;

    std::string_view code_name() const { return kxReadCode_name(code); }
    std::string_view severity_name() const { return kxReadSeverity_name(severity); }
};

/* What a read reported: the problems kept (the first of each code) and the
 * totals met. */
struct ReadDiagnostics {
    std::vector<ReadProblem> problems;
    uint64_t errors = 0;
    uint64_t warnings = 0;
    bool with_errors = false;  // some data did not fit the schema

    bool clean() const { return errors == 0 && warnings == 0 && !with_errors; }
};

namespace detail {

inline ReadDiagnostics diagnostics_from(const kxReadReport *report, bool with_errors) {
    ReadDiagnostics result;
    result.with_errors = with_errors;
    result.errors = kxReadReport_total_of_severity(report, KX_SEVERITY_ERROR);
    result.warnings = kxReadReport_total_of_severity(report, KX_SEVERITY_WARNING);
    const uint32_t n = kxReadReport_count(report);
    result.problems.reserve(n);
    for (uint32_t i = 0; i < n; ++i)
        result.problems.push_back({kxReadReport_severity(report, i), kxReadReport_code(report, i),
                                   kxReadReport_line(report, i), kxReadReport_column(report, i),
                                   kxReadReport_file_id(report, i), kxReadReport_entity_name(report, i),
                                   kxReadReport_attribute_index(report, i), kxReadReport_attribute_name(report, i),
                                   kxReadReport_message(report, i)});
    return result;
}

}  // namespace detail

// ---- Models ----------------------------------------------------------------

struct ReadOptions {
    bool lossless = false;   // KX_TEXT_MODE_LOSSLESS instead of the fixed text form
    uint32_t read_mode = 0;  // 0 automatic, 1 one pass, 2 two passes
    kxProgressFn progress = nullptr;  // told how far the read has got (bytes)
    void *progress_data = nullptr;
    uint32_t threads = 1;    // for the second pass of a two-pass read; 0: every core
};

/* Owns a kxIfcModel and frees it; move-only. */
class Model {
public:
    Model() = default;
    /* Takes the model over. */
    explicit Model(kxIfcModel *model) : model_(model) {}
    ~Model() { reset(); }
    Model(Model &&other) noexcept : model_(std::exchange(other.model_, nullptr)) {}
    Model &operator=(Model &&other) noexcept {
        std::swap(model_, other.model_);
        return *this;
    }
    Model(const Model &) = delete;
    Model &operator=(const Model &) = delete;

    /* A new empty model of the release. */
    static Model create(kxIfcVersion_t version) {
        Model model(kxIfcModel_new());
        kxIfcModel_set_version(model.get(), version);
        return model;
    }

    /* Reads a file; empty when it cannot be read. The diagnostics (when
     * given) receive what the read met, also when it fails. */
    static std::optional<Model> read(std::string_view path, ReadOptions options = {},
                                     ReadDiagnostics *diagnostics = nullptr) {
        return read_wide(WideText(path), options, diagnostics);
    }
    static std::optional<Model> read(std::u16string_view path, ReadOptions options = {},
                                     ReadDiagnostics *diagnostics = nullptr) {
        return read_wide(WideText(path), options, diagnostics);
    }

    /* Writes the model as the file at path (".ifc" added when the name lacks
     * it); KX_EXPORT_OK or why it failed (kxExportStatus_message). */
    kxExportStatus write(std::string_view path) { return write_wide(std::u16string(WideText(path).get())); }
    kxExportStatus write(std::u16string_view path) { return write_wide(std::u16string(path)); }
    /* Tells progress how far each later write has got (instances); NULL: none. */
    void set_write_progress(kxProgressFn progress, void *user_data) {
        kxIfcModel_set_export_progress(model_, progress, user_data);
    }

    kxIfcModel *get() const { return model_; }
    explicit operator bool() const { return model_ != nullptr; }
    /* Gives the model up to the caller, who frees it. */
    kxIfcModel *release() { return std::exchange(model_, nullptr); }
    void reset() {
        if (model_ != nullptr) kxIfcModel_free(&model_);
    }

    kxIfcVersion_t version() const { return kxIfcModel_ifc_version(model_); }
    /* Number of instances (entities and select values). */
    uint32_t size() const { return kxIfcModel_count_objects(model_); }

    /* A new instance of the class; empty when the class is unknown, abstract
     * or not of the model's release. */
    Instance create(const kxClass_t *klass) {
        return Instance(klass != nullptr ? kxIfcModel_dontuse_new_object(model_, klass) : nullptr);
    }
    Instance create(std::string_view class_name) { return create(find_class(class_name)); }

    /* The instances of the class and of its subclasses, oldest first; empty
     * for an unknown class. */
    InstanceRange instances_of(const kxClass_t *klass) const {
        return InstanceRange(klass != nullptr ? kxIfcModel_dontuse_get_objects_by_class(model_, klass) : nullptr);
    }
    InstanceRange by_type(std::string_view class_name) const { return instances_of(find_class(class_name)); }
    InstanceRange by_type(std::u16string_view class_name) const { return instances_of(find_class(class_name)); }

private:
    static std::optional<Model> read_wide(const WideText &path, ReadOptions options, ReadDiagnostics *diagnostics) {
        kxReadReport *report = diagnostics != nullptr || options.progress != nullptr || options.threads != 1
                                   ? kxReadReport_new(0)
                                   : nullptr;
        if (options.progress != nullptr) kxReadReport_set_progress(report, options.progress, options.progress_data);
        if (report != nullptr) kxReadReport_set_threads(report, options.threads);
        kxBool with_errors = kxBFALSE;
        kxIfcModel *model = kxIfcModel_read_with_report(
            path, options.read_mode, options.lossless ? KX_TEXT_MODE_LOSSLESS : KX_TEXT_MODE_SPEC, report,
            &with_errors);
        if (diagnostics != nullptr) *diagnostics = detail::diagnostics_from(report, with_errors != kxBFALSE);
        if (report != nullptr) kxReadReport_free(&report);
        if (model == nullptr) return std::nullopt;
        return Model(model);
    }

    // The export takes a folder and a name without ".ifc" (any case).
    kxExportStatus write_wide(std::u16string path) {
        const std::u16string_view extension = u".ifc";
        bool has_extension = path.size() > extension.size();
        for (size_t i = 0; has_extension && i < extension.size(); ++i) {
            const char16_t c = path[path.size() - extension.size() + i];
            has_extension = (c >= u'A' && c <= u'Z' ? c + (u'a' - u'A') : c) == extension[i];
        }
        if (has_extension) path.resize(path.size() - extension.size());
        const size_t slash = path.rfind(u'/');
        const std::u16string directory = slash == std::u16string::npos ? u"." : path.substr(0, slash == 0 ? 1 : slash);
        const std::u16string name = slash == std::u16string::npos ? path : path.substr(slash + 1);
        return kxIfcModel_export_with_status(model_, name.c_str(), directory.c_str());
    }

    kxIfcModel *model_ = nullptr;
};

}  // namespace facade
}  // namespace kx

#endif
