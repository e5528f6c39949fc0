#define KX_UNIT "kxifcparser"
// Reading an exchange file into a model. The file is mapped into memory and
// its data section scanned line by line: each instance line creates its
// instance through its class descriptor, its parameters become a parameter
// list, and the class's init function takes its attributes from the list.
// References are resolved through an index from file id to instance; a line
// that refers forward is kept and initialised once every instance exists
// (or, in the two-pass read, a first pass creates every instance).
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "core/baseobject.h"
#include "core/class.h"
#include "kxifc_header.h"
#include "model/header.h"
#include "model/headerio.h"
#include "model/model.h"
#include "model/modelmngr.h"
#include "model/objtable.h"
#include "step/fastread.h"
#include "step/idindex.h"
#include "step/parseparlist.h"
#include "step/scanner.h"
#include "step/writedata.h"
#include "support/assert.h"
#include "support/memory.h"
#include "support/wstring.h"

namespace kx {

char16_t *step_string_value(const char *text, size_t length) {
    bool ascii = true, has_escapes = false;
    for (size_t i = 0; i < length; i++) {
        if (static_cast<unsigned char>(text[i]) >= 0x80) ascii = false;
        if (text[i] == '\\' || text[i] == '\'') has_escapes = true;
    }
    char16_t *value = nullptr;
    if (ascii) {
        value = static_cast<char16_t *>(mem_alloc((length + 1) * sizeof(char16_t)));
        for (size_t i = 0; i < length; i++) value[i] = static_cast<unsigned char>(text[i]);
        value[length] = 0;
    } else {
        value = wstr_from_narrow_n(text, length);
        char *copy = static_cast<char *>(mem_alloc(length + 1));
        std::memcpy(copy, text, length);
        copy[length] = 0;
        char16_t *utf16 = wstr_from_utf8(copy);
        // Valid UTF-8 converts without replacement characters.
        bool replaced = false;
        for (const char16_t *c = utf16; *c != 0; c++)
            if (*c == 0xFFFD) replaced = true;
        if (!replaced) std::swap(value, utf16);
        wstr_destroy(&utf16);
        mem_free(copy);
    }
    if (!has_escapes) return value;
    char16_t *decoded = kxIfcWriteData_decode_string(value);
    wstr_destroy(&value);
    return decoded;
}

namespace {

constexpr uint64_t kSinglePassLimit = 104857600;  // bytes; longer files are read in two passes

enum ParseMode : uint32_t { CREATE_ONLY = 0, PARSE_CREATED = 1, SINGLE_PASS = 2, SINGLE_PASS_SELECTED = 3 };

// A read-only mapping of a whole file.
class MappedFile {
public:
    explicit MappedFile(const char16_t *path) {
        char *name = wstr_to_utf8(path);
        descriptor_ = name != nullptr ? ::open(name, O_RDONLY | O_CLOEXEC) : -1;
        mem_free(name);
        struct stat info;
        if (descriptor_ < 0 || ::fstat(descriptor_, &info) != 0 || !S_ISREG(info.st_mode) || info.st_size <= 0)
            return;
        size_ = static_cast<size_t>(info.st_size);
        void *data = ::mmap(nullptr, size_, PROT_READ, MAP_PRIVATE, descriptor_, 0);
        if (data == MAP_FAILED) {
            size_ = 0;
            return;
        }
        ::madvise(data, size_, MADV_SEQUENTIAL);
        data_ = static_cast<const char *>(data);
    }
    ~MappedFile() {
        if (data_ != nullptr) ::munmap(const_cast<char *>(data_), size_);
        if (descriptor_ >= 0) ::close(descriptor_);
    }
    MappedFile(const MappedFile &) = delete;
    MappedFile &operator=(const MappedFile &) = delete;
    const char *data() const { return data_; }
    size_t size() const { return size_; }

private:
    int descriptor_ = -1;
    const char *data_ = nullptr;
    size_t size_ = 0;
};

// Upper-case entity names of one release -> class: an open-addressing hash
// table over the names' bytes, hashed and compared without case on the fly.
class NameTable {
public:
    explicit NameTable(kxIfcVersion_t version) : entries_(kSize, Entry{nullptr, 0}) {
        for (uint32_t id = 0; id < g_num_classes; id++) {
            const kxClass_t *klass = g_classes[id];
            if (!klass->is_entity || class_release(klass, version) == nullptr) continue;
            const char16_t *name = klass->upper_name;
            const size_t length = wstr_length(name);
            char text[128];
            for (size_t i = 0; i < length && i < sizeof text; i++) text[i] = static_cast<char>(name[i]);
            size_t slot = hash(text, length) & kMask;
            while (entries_[slot].klass != nullptr) slot = (slot + 1) & kMask;
            entries_[slot] = {klass, static_cast<uint32_t>(length)};
        }
    }
    // The class of an entity name as written in a file (any case).
    const kxClass_t *find(const char *text, size_t length) const {
        for (size_t slot = hash(text, length) & kMask;; slot = (slot + 1) & kMask) {
            const Entry &entry = entries_[slot];
            if (entry.klass == nullptr) return nullptr;
            if (entry.length == length && token_spells(entry.klass->upper_name, text, length)) return entry.klass;
        }
    }

private:
    static constexpr size_t kSize = 4096;  // a power of two, over four times the classes of a release
    static constexpr size_t kMask = kSize - 1;
    struct Entry {
        const kxClass_t *klass;
        uint32_t length;
    };

    static size_t hash(const char *text, size_t length) {
        uint64_t value = 14695981039346656037ull;
        // "| 0x20" folds letters to one case and leaves digits and '_' apart.
        for (size_t i = 0; i < length; i++) value = (value ^ static_cast<unsigned char>(text[i] | 0x20)) * 1099511628211ull;
        return static_cast<size_t>(value ^ (value >> 29));
    }
    TrackedVector<Entry> entries_;
};

struct DeferredLine {
    kxBaseObject *instance;
    const char *parameters;  // the line's first "("
    uint32_t line;
};

kxBaseObject *create_value_object(void *context, const kxClass_t *klass);

struct Parser {
    kxIfcVersion_t version;
    const TrackedVector<bool> *selection;  // SINGLE_PASS_SELECTED: class ids to read
    uint32_t object_id_counter = 0;
    uint32_t max_file_id = 0;
    PtrArray *objects = nullptr;
    PtrArray *value_objects = nullptr;  // select values made while reading (also in objects)
    PtrArray *object_tables = nullptr;
    kxIfcModelMngr_t *model_manager = nullptr;
    IdIndex ids;
    NameTable names;
    kxParseParList *parameters = nullptr;
    FastReader fast;
    TrackedVector<DeferredLine> deferred;
    bool with_errors = false;

    Parser(kxIfcVersion_t release, const TrackedVector<bool> *selected)
        : version(release), selection(selected), names(release) {
        fastread_init(&fast, &ids, release, &create_value_object, this);
    }
};

kxBaseObject *create_instance(Parser *parser, const kxClass_t *klass) {
    kxBaseObject *instance =
        class_new_instance(klass, parser->version, &parser->object_id_counter, parser->model_manager);
    if (instance == nullptr) return nullptr;
    ptrarray_append(parser->objects, instance);
    objtables_add_instance(parser->object_tables, instance);
    return instance;
}

// Select values made while init functions run: listed like any instance,
// numbered when the model is built.
kxBaseObject *create_value_object(void *context, const kxClass_t *klass) {
    Parser *parser = static_cast<Parser *>(context);
    kxBaseObject *instance = create_instance(parser, klass);
    if (instance != nullptr) ptrarray_append(parser->value_objects, instance);
    return instance;
}

char16_t *token_text(const Token &token) { return wstr_from_narrow_n(token.text, token.length); }

// Collects the parameters of one line, from its first "(" to the matching
// ")", into the parser's list. False on a syntax error. `unresolved` is set
// when a reference names an id not read yet.
bool collect_parameters(Parser *parser, Scanner *scanner, bool *unresolved) {
    kxParseParList *list = parser->parameters;
    kxParseParList_clear(list);
    uint32_t depth = 0;
    for (;;) {
        const Token token = scanner_next(scanner);
        const uint32_t line = token.line, column = token.column;
        switch (token.kind) {
        case TOKEN_BEGIN_PAR:
            kxParseParList_append(list, kxParserParam_nested_begin(line, column));
            depth++;
            break;
        case TOKEN_END_PAR:
            if (depth == 0) return false;
            kxParseParList_append(list, kxParserParam_nested_end(line, column));
            if (--depth == 0) return true;
            break;
        case TOKEN_COMMA:
            break;
        case TOKEN_ENTITY_REFERENCE: {
            kxBaseObject *instance = parser->ids.find(token.id);
            if (instance == nullptr) *unresolved = true;
            kxParseParList_append(list, kxParserParam_reference(token.id, instance, line, column));
            break;
        }
        case TOKEN_INT:
            kxParseParList_append(list, kxParserParam_integer(token.integer, line, column));
            break;
        case TOKEN_REAL:
            kxParseParList_append(list, kxParserParam_real(token.real, line, column));
            break;
        case TOKEN_STRING: {
            char16_t *text = step_string_value(token.text, token.length);
            kxParseParList_append(list, kxParserParam_string(&text, line, column));
            break;
        }
        case TOKEN_ENUM:
        case TOKEN_BOOLEAN:
        case TOKEN_HEX: {
            char16_t *text = token_text(token);
            kxParseParList_append(list, kxParserParam_literal(&text, line, column));
            break;
        }
        case TOKEN_NULL_VALUE:
            kxParseParList_append(list, kxParserParam_null(line, column));
            break;
        case TOKEN_DERIVED_VALUE:
            kxParseParList_append(list, kxParserParam_derived(line, column));
            break;
        case TOKEN_TYPE_NAME: {
            char16_t *text = token_text(token);
            wstr_to_upper(text);
            kxParseParList_append(list, kxParserParam_typed_name(&text, line, column));
            break;
        }
        default:
            return false;
        }
        if (depth == 0) return false;  // a value outside the parameters' parentheses
    }
}

// Skips the parameters of a line: from its first "(" to the matching ")".
bool skip_parameters(Scanner *scanner) {
    uint32_t depth = 0;
    for (;;) {
        const Token token = scanner_next(scanner);
        if (token.kind == TOKEN_BEGIN_PAR) {
            depth++;
        } else if (token.kind == TOKEN_END_PAR) {
            if (depth == 0) return false;
            if (--depth == 0) return true;
        } else if (token.kind == TOKEN_END || token.kind == TOKEN_DOTCOMA || depth == 0) {
            return false;
        }
    }
}

// Hands the collected parameters to the instance's class and checks that
// they fit: "(" first, the attributes, ")" last.
void initialise(Parser *parser, kxBaseObject *instance) {
    kxParseParList *list = parser->parameters;
    kxParserParam *parameter = nullptr;
    if (!kxParseParList_next(list, &parameter) || !kxParserParam_is_nested_begin(parameter)) {
        parser->with_errors = true;
        return;
    }
    baseobject_init_from_parse(instance, list);
    if (kxParseParList_has_errors(list) || !kxParseParList_next(list, &parameter) ||
        !kxParserParam_is_nested_end(parameter))
        parser->with_errors = true;
}

bool expect(Scanner *scanner, TokenKind kind) { return scanner_next(scanner).kind == kind; }

// One instance line, after its "#id". False on a syntax error.
bool parse_entity_line(Parser *parser, Scanner *scanner, const Token &id_token, ParseMode mode) {
    if (!expect(scanner, TOKEN_EQUAL)) return false;
    const Token name = scanner_next(scanner);
    if (name.kind == TOKEN_BEGIN_PAR) {
        // A complex instance "#n=(A(...)B(...))": not part of IFC; skipped.
        scanner_seek(scanner, name.text, name.line);
        parser->with_errors = true;
        return skip_parameters(scanner) && expect(scanner, TOKEN_DOTCOMA);
    }
    if (name.kind != TOKEN_TYPE_NAME) return false;
    const uint32_t file_id = id_token.id;
    if (file_id != 0xFFFFFFFFu && file_id > parser->max_file_id) parser->max_file_id = file_id;

    kxBaseObject *instance = nullptr;
    if (mode == PARSE_CREATED) {
        instance = parser->ids.find(file_id);
    } else {
        const kxClass_t *klass = parser->names.find(name.text, name.length);
        const bool wanted = mode != SINGLE_PASS_SELECTED ||
                            (klass != nullptr && (*parser->selection)[klass->unique_class_id]);
        if (klass == nullptr || class_is_abstract(klass, parser->version) || file_id == 0xFFFFFFFFu) {
            parser->with_errors = true;  // unknown here, or not instantiable: the line is skipped
        } else if (wanted) {
            if (parser->ids.find(file_id) != nullptr) {
                parser->with_errors = true;  // the id is defined twice: the first line stands
            } else {
                instance = create_instance(parser, klass);
                if (instance != nullptr) {
                    instance->output_file_id = file_id;
                    parser->ids.insert(file_id, instance);
                }
            }
        }
    }
    const char *parameters_start = scanner->cursor;
    const uint32_t parameters_line = scanner->line;
    if (instance == nullptr || mode == CREATE_ONLY)
        return skip_parameters(scanner) && expect(scanner, TOKEN_DOTCOMA);

    if (fastread_class_is_direct(parser->fast, instance->object_class)) {
        if (fastread_line(&parser->fast, scanner, instance)) return expect(scanner, TOKEN_DOTCOMA);
        scanner_seek(scanner, parameters_start, parameters_line);  // read it again, reporting what is wrong
    }
    bool unresolved = false;
    if (!collect_parameters(parser, scanner, &unresolved) || !expect(scanner, TOKEN_DOTCOMA)) return false;
    if (unresolved && mode != PARSE_CREATED)
        parser->deferred.push_back({instance, parameters_start, parameters_line});
    else
        initialise(parser, instance);
    return true;
}

// Gives the pages of the mapped file that the scanner has left well behind
// back to the system, so a large file does not stay resident while its
// model grows. (A line read again later faults its pages back in.)
void release_read_pages(Scanner *scanner, const char **released) {
    constexpr size_t kStep = 32u << 20;
    const uintptr_t page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    if (scanner->cursor - *released < static_cast<ptrdiff_t>(2 * kStep)) return;
    const uintptr_t from = reinterpret_cast<uintptr_t>(*released) & ~(page - 1);
    const uintptr_t to = (reinterpret_cast<uintptr_t>(scanner->cursor) - kStep) & ~(page - 1);
    if (to > from) ::madvise(reinterpret_cast<void *>(from), to - from, MADV_DONTNEED);
    *released = reinterpret_cast<const char *>(to);
}

// Reads the data section from the scanner's position (just after "DATA;")
// up to "ENDSEC;". False on a syntax error.
bool parse_data_section(Parser *parser, Scanner *scanner, ParseMode mode) {
    const char *released = scanner->begin;
    for (;;) {
        release_read_pages(scanner, &released);
        const Token token = scanner_next(scanner);
        if (token.kind == TOKEN_ENDSECTION) return expect(scanner, TOKEN_DOTCOMA);
        if (token.kind != TOKEN_ENTITY_ID || !parse_entity_line(parser, scanner, token, mode)) return false;
    }
}

// Lines that referred forward, once every instance exists.
void parse_deferred_lines(Parser *parser, Scanner *scanner) {
    for (const DeferredLine &line : parser->deferred) {
        scanner_seek(scanner, line.parameters, line.line);
        bool unresolved = false;
        if (collect_parameters(parser, scanner, &unresolved))
            initialise(parser, line.instance);
        else
            parser->with_errors = true;
    }
    parser->deferred.clear();
}

// Positions the scanner just after the "DATA;" that follows the header.
bool seek_data_section(Scanner *scanner) {
    for (;;) {
        const Token token = scanner_next(scanner);
        if (token.kind == TOKEN_END) return false;
        if (token.kind == TOKEN_DATA && expect(scanner, TOKEN_DOTCOMA)) return true;
    }
}

bool run_pass(Parser *parser, const MappedFile &file, ParseMode mode) {
    Scanner scanner;
    scanner_init(&scanner, file.data(), file.size());
    if (!seek_data_section(&scanner) || !parse_data_section(parser, &scanner, mode)) return false;
    // Anything but the closing keyword and the end of the file (a second
    // section, another file pasted after this one) is read past and reported.
    const Token closing = scanner_next(&scanner);
    const Token after = scanner_next(&scanner);
    if (closing.kind != TOKEN_END_ISO || after.kind != TOKEN_END || after.length != 0) parser->with_errors = true;
    if (mode == SINGLE_PASS || mode == SINGLE_PASS_SELECTED) {
        kxParseParList_set_allow_unresolved(parser->parameters, mode == SINGLE_PASS_SELECTED ? CIERTO : FALSO);
        parse_deferred_lines(parser, &scanner);
    }
    // References to instances that were not read are expected when only some
    // classes are read; otherwise they are errors of the file.
    if (!fastread_resolve(&parser->fast) && mode != SINGLE_PASS_SELECTED) parser->with_errors = true;
    return true;
}

void release_all(PtrArray **objects) {
    // Drop references between instances first, so that freeing them never
    // recurses along chains of references.
    for (uint32_t i = 0; i < ptrarray_count(*objects); i++)
        baseobject_detach_references(static_cast<kxBaseObject *>((*objects)->items[i]));
    ptrarray_destroy(objects, callback_cast<DestroyFn>(&baseobject_release));
}

}  // namespace

kxIfcModel *step_read_file(const char16_t *path, uint32_t read_mode, const TrackedVector<bool> *selection,
                           bool *with_errors) {
    *with_errors = false;
    kxIfcHeader *header = nullptr;
    if (path == nullptr || !header_read_section(path, &header)) return nullptr;
    kxIfcVersion_t version = ifc_version_not_defined;
    if (!kxIfcHeader_read_ifc_version(path, &version) || version >= NUM_RELEASES) {
        header_destroy(&header);
        return nullptr;
    }
    MappedFile file(path);
    if (file.data() == nullptr) {
        header_destroy(&header);
        return nullptr;
    }
    Parser parser(version, selection);
    parser.objects = ptrarray_create_with_capacity(0, 0x10000);
    parser.value_objects = ptrarray_create(0);
    parser.object_tables = objtables_new();
    parser.model_manager = modelmngr_new(&parser, nullptr, nullptr, nullptr, nullptr, nullptr);
    parser.parameters = kxParseParList_new(version, &create_value_object, &parser);

    bool ok;
    if (selection != nullptr) {
        ok = run_pass(&parser, file, SINGLE_PASS_SELECTED);
    } else {
        const bool two_passes = read_mode == 2 || (read_mode == 0 && file.size() > kSinglePassLimit);
        ok = two_passes ? run_pass(&parser, file, CREATE_ONLY) && run_pass(&parser, file, PARSE_CREATED)
                        : run_pass(&parser, file, SINGLE_PASS);
    }
    kxParseParList_free(&parser.parameters);
    kxIfcModel *model = nullptr;
    if (ok) {
        const uint32_t next_output_id = parser.max_file_id + 1;
        model = model_new_from_parts(&header, version, parser.object_id_counter, next_output_id, &parser.objects,
                                     &parser.object_tables, &parser.model_manager, parser.value_objects);
        *with_errors = parser.with_errors;
    } else {
        header_destroy(&header);
        release_all(&parser.objects);
        objtables_free(&parser.object_tables);
    }
    ptrarray_destroy_const(&parser.value_objects);
    if (parser.model_manager != nullptr) modelmngr_free(&parser.model_manager);
    return model;
}

}  // namespace kx

using namespace kx;

extern "C" {

KX_API kxIfcModel *kxIfcModel_read_from_step_file(const kxWChar *file_name, uint32_t read_mode,
                                                  kxBool *readed_with_errors) {
    kx_assert(read_mode <= 2);
    bool with_errors = false;
    kxIfcModel *model = read_mode <= 2 ? step_read_file(file_name, read_mode, nullptr, &with_errors) : nullptr;
    if (readed_with_errors != nullptr) *readed_with_errors = with_errors ? kxBTRUE : kxBFALSE;
    return model;
}

KX_API kxIfcModel *kxIfcModel_read_entities_of_selected_classes_from_step_file(const kxWChar *file_name,
                                                                               const kxArrayST *classes,
                                                                               kxBool *readed_with_errors) {
    kx_assert_not_null(classes);
    TrackedVector<bool> selection(g_num_classes, false);
    for (uint32_t i = 0; classes != nullptr && i < kxArrayST_dontuse_count(classes); i++) {
        const kxClass_t *klass = static_cast<const kxClass_t *>(kxArrayST_dontuse_get(classes, i));
        if (klass != nullptr) selection[klass->unique_class_id] = true;
    }
    bool with_errors = false;
    kxIfcModel *model = step_read_file(file_name, 0, &selection, &with_errors);
    if (readed_with_errors != nullptr) *readed_with_errors = with_errors ? kxBTRUE : kxBFALSE;
    return model;
}

}  // extern "C"
