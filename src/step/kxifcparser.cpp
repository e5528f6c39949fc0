#define KX_UNIT "kxifcparser"
// Reading an exchange file into a model. The file is read through a moving
// window and its data section scanned line by line: each instance line
// creates its instance through its class descriptor, its parameters become a
// parameter list, and the class's init function takes its attributes from the
// list.
// References are resolved through an index from file id to instance; a line
// that refers forward is kept and initialised once every instance exists
// (or, in the two-pass read, a first pass creates every instance).
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <memory>
#include <thread>
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
#include "support/parseparlist.h"
#include "step/readreport.h"
#include "step/scanner.h"
#include "step/textwindow.h"
#include "support/steptext.h"
#include "support/writedata.h"
#include "support/assert.h"
#include "support/files.h"
#include "support/memory.h"
#include "support/pool.h"
#include "support/threads.h"
#include "support/wstring.h"

namespace kx {

namespace {

void note_issue(StringIssue *issue, kxReadCode code, size_t offset) {
    if (issue != nullptr && issue->count++ == 0) {
        issue->code = code;
        issue->offset = static_cast<uint32_t>(offset);
    }
}

// The token text as UTF-16: UTF-8 when the bytes are valid UTF-8, one byte
// per character otherwise. NUL bytes are left out (and noted).
char16_t *string_units(const char *text, size_t length, bool ascii, bool has_nul, StringIssue *issue) {
    TrackedVector<char> kept;
    if (has_nul) {
        note_issue(issue, KX_READ_NUL_IN_STRING, std::find(text, text + length, 0) - text);
        for (size_t i = 0; i < length; i++)
            if (text[i] != 0) kept.push_back(text[i]);
        text = kept.data();
        length = kept.size();
    }
    if (ascii) {
        char16_t *value = static_cast<char16_t *>(mem_alloc((length + 1) * sizeof(char16_t)));
        for (size_t i = 0; i < length; i++) value[i] = static_cast<unsigned char>(text[i]);
        value[length] = 0;
        return value;
    }
    char16_t *value = wstr_from_narrow_n(text, length);
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
    return value;
}

// Whether the fixed rules decode a NUL somewhere ("\X\00", or a one-unit
// "\X2\0000\X0\" group), which cuts their result short.
bool fixed_rules_decode_nul(const char16_t *units) {
    for (const char16_t *c = units; *c != 0; c++) {
        if (c[0] != u'\\' || (c[1] | 0x20) != u'x') continue;
        if (c[2] == u'\\' && c[3] == u'0' && c[4] == u'0') return true;
        if (c[2] == u'2' && c[3] == u'\\' && c[4] == u'0' && c[5] == u'0' && c[6] == u'0' && c[7] == u'0' &&
            c[8] == u'\\')
            return true;
    }
    return false;
}

// The fixed text rules decode only some escapes and keep the rest
// literally. Notes a NUL they cut the string at and, when warnings are
// wanted, what the full rules would have read otherwise.
char16_t *decode_fixed(const char16_t *units, StringIssue *issue) {
    char16_t *decoded = kxIfcWriteData_decode_string(units);
    if (issue == nullptr) return decoded;
    if (!issue->warnings_wanted) {
        if (fixed_rules_decode_nul(units)) note_issue(issue, KX_READ_NUL_IN_STRING, 0);
        return decoded;
    }
    StringIssue full_issue;
    char16_t *full = step_decode_string(units, wstr_length(units), &full_issue);
    if (full_issue.count > 0 || wstr_compare(full, decoded) != 0)
        note_issue(issue, full_issue.count > 0 ? full_issue.code : KX_READ_MALFORMED_ESCAPE, full_issue.offset);
    wstr_destroy(&full);
    return decoded;
}

}  // namespace

char16_t *step_string_value(const char *text, size_t length, bool lossless, StringIssue *issue) {
    unsigned char high_bits = 0;
    for (size_t i = 0; i < length; i++) high_bits |= static_cast<unsigned char>(text[i]);
    const bool ascii = high_bits < 0x80;
    const bool has_nul = std::memchr(text, 0, length) != nullptr;
    const bool has_escapes = std::memchr(text, '\\', length) != nullptr || std::memchr(text, '\'', length) != nullptr;
    char16_t *units = string_units(text, length, ascii, has_nul, issue);
    if (!has_escapes) return units;
    char16_t *decoded = lossless ? step_decode_string(units, wstr_length(units), issue) : decode_fixed(units, issue);
    wstr_destroy(&units);
    return decoded;
}

namespace {

constexpr uint64_t kSinglePassLimit = 104857600;  // bytes; longer files are read in two passes

enum ParseMode : uint32_t { CREATE_ONLY = 0, PARSE_CREATED = 1, SINGLE_PASS = 2, SINGLE_PASS_SELECTED = 3 };

// Upper-case entity names of one release -> class: an open-addressing hash
// table over the names' bytes, hashed and compared without case on the fly.
class NameTable {
public:
    explicit NameTable(kxIfcVersion_t version) : entries_(kSize, Entry{nullptr, 0, 0}) {
        for (uint32_t id = 0; id < g_num_classes; id++) {
            const kxClass_t *klass = g_classes[id];
            if (!klass->is_entity || class_release(klass, version) == nullptr) continue;
            const size_t offset = names_.size();
            for (const char16_t *c = klass->upper_name; *c != 0; c++) names_.push_back(static_cast<char>(*c));
            const size_t length = names_.size() - offset;
            size_t slot = hash(names_.data() + offset, length) & kMask;
            while (entries_[slot].klass != nullptr) slot = (slot + 1) & kMask;
            entries_[slot] = {klass, static_cast<uint32_t>(length), static_cast<uint32_t>(offset)};
        }
    }
    // The class of an entity name as written in a file (any case; upper
    // case, as exporters write it, is compared byte for byte).
    const kxClass_t *find(const char *text, size_t length) const {
        for (size_t slot = hash(text, length) & kMask;; slot = (slot + 1) & kMask) {
            const Entry &entry = entries_[slot];
            if (entry.klass == nullptr) return nullptr;
            if (entry.length == length && (std::memcmp(names_.data() + entry.offset, text, length) == 0 ||
                                           token_spells(entry.klass->upper_name, text, length)))
                return entry.klass;
        }
    }

private:
    static constexpr size_t kSize = 4096;  // a power of two, over four times the classes of a release
    static constexpr size_t kMask = kSize - 1;
    struct Entry {
        const kxClass_t *klass;
        uint32_t length;
        uint32_t offset;  // of its upper-case name in names_
    };

    // Eight characters a step; "| 0x20" folds letters to one case and
    // leaves digits and '_' apart.
    static size_t hash(const char *text, size_t length) {
        constexpr uint64_t kFold = 0x2020202020202020ull;
        constexpr uint64_t kMultiplier = 0x9E3779B97F4A7C15ull;
        uint64_t value = length * kMultiplier;
        size_t i = 0;
        for (; i + 8 <= length; i += 8) {
            uint64_t word;
            std::memcpy(&word, text + i, 8);
            value = ((value ^ (word | kFold)) * kMultiplier) ^ (value >> 32);
        }
        uint64_t tail = 0;
        std::memcpy(&tail, text + i, length - i);
        value = (value ^ (tail | kFold)) * kMultiplier;
        return static_cast<size_t>(value ^ (value >> 29));
    }
    TrackedVector<Entry> entries_;
    TrackedVector<char> names_;
};

// A line that referred forward, read once every instance exists: a copy of
// its text from the start of its first physical line (the file's text is
// read through a window that moves on), and where it stood.
struct DeferredLine {
    kxBaseObject *instance;
    size_t text_offset;        // in the parser's deferred text
    size_t text_length;
    size_t parameters_offset;  // of the line's first "(", from the copy's start
    uint32_t parameters_line;
    uint32_t id_line;
    uint32_t id_column;
};

// A problem of one parameter, found while collecting it, reported once the
// attribute it belongs to is known.
struct ParameterProblem {
    uint32_t parameter;  // index in the line's parameter list
    kxReadCode code;
};

kxBaseObject *create_value_object(void *context, const kxClass_t *klass);

// Where a part of the data section starts: a line at the start of a
// physical line, found by the first of two passes, from which the second
// pass reads that part on a thread of its own.
struct PartStart {
    uint64_t offset;
    uint32_t line;
    // The instances a part of a parallel first pass made before
    // `shift_end` were numbered from 0: the second pass, which reads
    // their lines anyway, adds the number of instances before the part.
    uint32_t object_id_shift = 0;
    uint64_t shift_end = 0;
};

constexpr uint64_t kNoStop = UINT64_MAX;

struct Parser {
    kxIfcVersion_t version;
    const TrackedVector<bool> *selection;  // SINGLE_PASS_SELECTED: class ids to read
    kxReadReport *report;
    bool lossless;
    uint32_t object_id_counter = 0;
    uint32_t max_file_id = 0;
    PtrArray *objects = nullptr;
    PtrArray *value_objects = nullptr;  // select values made while reading (also in objects)
    PtrArray *object_tables = nullptr;
    kxIfcModelMngr_t *model_manager = nullptr;
    IdIndex own_ids;
    IdIndex *ids;  // the reader's own, or shared with the other parts of a parallel pass
    NameTable names;
    kxParseParList *parameters = nullptr;
    FastReader fast;
    TrackedVector<DeferredLine> deferred;
    TrackedVector<char> deferred_text;
    TextWindow *file = nullptr;
    TrackedVector<ParameterProblem> parameter_problems;  // of the line being read
    // Lines (by file offset) the first of two passes created no instance
    // for, so the second pass never reads them into the instance of another
    // line with their id.
    TrackedVector<uint64_t> skipped_lines;
    size_t next_skipped_line = 0;
    bool with_errors = false;
    bool syntax_error = false;
    // Reading the parts of a pass in parallel: the parts after the first,
    // where this parser's part ends, and the first line it stopped at there.
    uint32_t parts_wanted = 1;
    TrackedVector<PartStart> part_starts;
    uint64_t stop_at = kNoStop;
    bool stopped = false;
    PartStart stopped_at{0, 0};
    // A later part of a parallel first pass: the ids of its lines are
    // checked and indexed when it is joined, in file order.
    bool ids_at_join = false;
    TrackedVector<uint32_t> created_ids;  // of its instances, in order
    PartStart object_ids{0, 0};           // in the second pass: what to add to object ids, and up to where
    const char16_t *path = nullptr;

    Parser(kxIfcVersion_t release, const TrackedVector<bool> *selected, kxReadReport *read_report, bool full_text,
           IdIndex *shared_ids = nullptr)
        : version(release), selection(selected), report(read_report), lossless(full_text),
          ids(shared_ids != nullptr ? shared_ids : &own_ids), names(release) {
        fastread_init(&fast, ids, release, &create_value_object, this, full_text, read_report);
    }
};

// ---- problems ----

// Counts a problem (the read then has errors, unless it is a warning) and,
// when the report keeps it, fills it in through `describe`.
template <typename Describe>
void note_problem(Parser *parser, kxReadCode code, Describe describe) {
    if (read_code_severity(code) == KX_SEVERITY_ERROR) parser->with_errors = true;
    if (!report_note(parser->report, code)) return;
    ReadProblem problem;
    problem.code = code;
    describe(problem);
    report_keep(parser->report, std::move(problem));
}

std::string token_string(const Token &token) { return std::string(token.text, token.length); }

std::string upper_token(const Token &token) {
    std::string text = token_string(token);
    for (char &c : text)
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 32);
    return text;
}

void place_at(ReadProblem &problem, const Token &token) {
    problem.line = token.line;
    problem.column = token.column;
}

const char *token_name(const Token &token) {
    static constexpr const char *kNames[] = {
        "ct_ENTITY_ID", "ct_ENTITY_REFERENCE", "ct_BOOLEAN", "ct_INT", "ct_REAL", "ct_STRING", "ct_ENUM",
        "ct_HEX", "ct_NULL_VALUE", "ct_DERIVED_VALUE", "ct_BEGIN_PAR", "ct_END_PAR", "ct_COMMA", "ct_EQUAL",
        "ct_DOTCOMA", "ct_BEGIN_ISO", "ct_END_ISO", "ct_HEADER", "ct_ENDSECTION", "ct_DATA",
        "ct_FILE_DESCRIPTION", "ct_FILE_NAME", "ct_FILE_SCHEMA", "ct_TYPE_NAME"};
    if (token.kind >= TOKEN_ENTITY_ID && token.kind <= TOKEN_TYPE_NAME) return kNames[token.kind - TOKEN_ENTITY_ID];
    return "$end";
}

// The read stops at a syntax error; the message is the parser's, placed as
// "Unexpected character '%s'. Line: %lu, column: %lu.".
bool fail_syntax(Parser *parser, const Token &token, TokenKind expected = TOKEN_END) {
    if (parser->syntax_error) return false;
    parser->syntax_error = true;
    note_problem(parser, KX_READ_SYNTAX_ERROR, [&](ReadProblem &problem) {
        place_at(problem, token);
        std::string message = text_format("syntax error, unexpected %s", token_name(token));
        if (expected != TOKEN_END)
            message += text_format(", expecting %s", token_name(Token{expected, "", 0, 0, 0, 0, 0, 0}));
        problem.message = text_format("Unexpected character '%s'. Line: %u, column: %u.", message.c_str(),
                                      token.line, token.column);
    });
    return false;
}

bool expect(Parser *parser, Scanner *scanner, TokenKind kind) {
    const Token token = scanner_next(scanner);
    return token.kind == kind || fail_syntax(parser, token, kind);
}

// ---- instances ----

kxBaseObject *create_instance(Parser *parser, const kxClass_t *klass) {
    kxBaseObject *instance =
        class_new_instance(klass, parser->version, &parser->object_id_counter, parser->model_manager);
    if (instance == nullptr) return nullptr;
    ptrarray_append(parser->objects, instance);
    // The later parts of a parallel pass list theirs once they are joined.
    if (parser->object_tables != nullptr) objtables_add_instance(parser->object_tables, instance);
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

void note_parameter_problem(Parser *parser, kxReadCode code) {
    parser->parameter_problems.push_back({kxParseParList_count(parser->parameters) - 1, code});
}

// Appends a number token: an integer beyond 32 bits goes on as its exact
// real (a REAL attribute takes it; an INTEGER one reports it), a real beyond
// the range of a double as "$" with its problem noted.
void append_number(Parser *parser, const Token &token) {
    kxParseParList *list = parser->parameters;
    if (token.kind == TOKEN_INT && token_integer_fits(token)) {
        kxParseParList_append(list, kxParserParam_integer(token.integer, token.line, token.column));
        return;
    }
    const double value = token.kind == TOKEN_INT ? scanner_real_value(token.text, token.length) : token.real;
    if (std::isfinite(value)) {
        kxParseParList_append(list, kxParserParam_real(value, token.line, token.column));
        if (token.kind == TOKEN_INT) note_parameter_problem(parser, KX_READ_INTEGER_OUT_OF_RANGE);
    } else {
        kxParseParList_append(list, kxParserParam_null(token.line, token.column));
        note_parameter_problem(parser, KX_READ_REAL_OUT_OF_RANGE);
    }
}

void append_string(Parser *parser, const Token &token) {
    StringIssue issue;
    issue.warnings_wanted = parser->report != nullptr;
    char16_t *text = step_string_value(token.text, token.length, parser->lossless, &issue);
    kxParseParList_append(parser->parameters, kxParserParam_string(&text, token.line, token.column));
    if (issue.count > 0) note_parameter_problem(parser, issue.code);
}

// The tokens a line's parameters hold besides "(" and ")".
bool is_parameter_item(TokenKind kind) {
    switch (kind) {
    case TOKEN_COMMA:
    case TOKEN_ENTITY_REFERENCE:
    case TOKEN_INT:
    case TOKEN_REAL:
    case TOKEN_STRING:
    case TOKEN_ENUM:
    case TOKEN_BOOLEAN:
    case TOKEN_HEX:
    case TOKEN_NULL_VALUE:
    case TOKEN_DERIVED_VALUE:
    case TOKEN_TYPE_NAME: return true;
    default: return false;
    }
}

// A token that is no parameter item, or an item outside the parentheses.
// Collecting and skipping a line stop at the same token with the same
// message, so that one and two passes report a broken line alike.
bool fail_parameter_token(Parser *parser, const Token &token, uint32_t depth) {
    return fail_syntax(parser, token, depth == 0 ? TOKEN_BEGIN_PAR : TOKEN_END_PAR);
}

// Collects the parameters of one line, from its first "(" to the matching
// ")", into the parser's list. False on a syntax error. `unresolved` is set
// when a reference names an id not read yet.
bool collect_parameters(Parser *parser, Scanner *scanner, bool *unresolved) {
    kxParseParList *list = parser->parameters;
    kxParseParList_clear(list);
    parser->parameter_problems.clear();
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
            if (depth == 0) return fail_syntax(parser, token);
            kxParseParList_append(list, kxParserParam_nested_end(line, column));
            if (--depth == 0) return true;
            break;
        case TOKEN_COMMA:
            break;
        case TOKEN_ENTITY_REFERENCE: {
            kxBaseObject *instance = parser->ids->find(token.id);
            if (instance == nullptr) *unresolved = true;
            kxParseParList_append(list, kxParserParam_reference(token.id, instance, line, column));
            break;
        }
        case TOKEN_INT:
        case TOKEN_REAL:
            append_number(parser, token);
            break;
        case TOKEN_STRING:
            append_string(parser, token);
            break;
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
            return fail_parameter_token(parser, token, depth);
        }
        if (depth == 0) return fail_parameter_token(parser, token, depth);
    }
}

// Skips the parameters of a line: from its first "(" to the matching ")".
bool skip_parameters(Parser *parser, Scanner *scanner) {
    uint32_t depth = 0;
    for (;;) {
        const Token token = scanner_next(scanner);
        if (token.kind == TOKEN_BEGIN_PAR) {
            depth++;
        } else if (token.kind == TOKEN_END_PAR) {
            if (depth == 0) return fail_syntax(parser, token);
            if (--depth == 0) return true;
        } else if (depth == 0 || !is_parameter_item(token.kind)) {
            return fail_parameter_token(parser, token, depth);
        }
    }
}

// ---- what a line's values lost ----

// The problem a marked parameter stands for.
kxReadCode marked_problem_code(const Parser *parser, const kxParserParam &parameter) {
    if (parameter.kind == i_TYPE_REFERENCE && parameter.value.reference.instance == nullptr &&
        parser->ids->find(parameter.value.reference.file_id) == nullptr)
        return KX_READ_UNDEFINED_REFERENCE;
    return KX_READ_WRONG_TYPE;
}

std::string describe_marked(const kxParserParam &parameter, kxReadCode code) {
    if (code == KX_READ_UNDEFINED_REFERENCE)
        return text_format("reference to undefined #%u", parameter.value.reference.file_id);
    std::string message = utf8_of(parameter.message);
    const std::string expected = utf8_of(parameter.expected_type);
    if (!expected.empty() && message.find(expected) == std::string::npos)
        message += text_format(" (expected %s)", expected.c_str());
    return message;
}

std::string describe_noted(kxReadCode code) {
    switch (code) {
    case KX_READ_INTEGER_OUT_OF_RANGE: return "integer beyond 32 bits";
    case KX_READ_REAL_OUT_OF_RANGE: return "real beyond the range of a double, read as unset";
    case KX_READ_NUL_IN_STRING: return "NUL character in a string, left out";
    default: return "string escape kept literally";
    }
}

// A line with more or fewer values than its class has attributes.
void report_attribute_count(Parser *parser, const kxBaseObject *instance, const Token &id_token, uint32_t given) {
    const ClassRelease *release = class_release(instance->object_class, parser->version);
    if (release == nullptr || given == release->num_attrs) return;
    note_problem(parser, KX_READ_WRONG_ATTRIBUTE_COUNT, [&](ReadProblem &problem) {
        place_at(problem, id_token);
        problem.file_id = id_token.id;
        problem.entity_name = utf8_of(instance->object_class->upper_name);
        problem.message = text_format("%u attributes given, %u expected", given, release->num_attrs);
    });
}

// Reports what the class's init function could not take from the line, by
// attribute: each value of the line at the top level is one attribute, in
// the schema's order.
void report_line_problems(Parser *parser, kxBaseObject *instance, const Token &id_token) {
    kxParseParList *list = parser->parameters;
    const kxClass_t *klass = instance->object_class;
    const ClassRelease *release = class_release(klass, parser->version);
    const uint32_t count = kxParseParList_count(list);
    size_t noted = 0;
    uint32_t attribute = 0;
    auto describe = [&](ReadProblem &problem, uint32_t at) {
        problem.file_id = id_token.id;
        problem.entity_name = utf8_of(klass->upper_name);
        problem.attribute_index = attribute;
        if (release != nullptr && attribute >= 1 && attribute <= release->num_attrs)
            problem.attribute_name = utf8_of(g_slots[release->attrs[attribute - 1].slot].name);
        const kxParserParam *parameter = kxParseParList_get(list, at);
        problem.line = parameter->line;
        problem.column = parameter->column;
    };
    for (uint32_t i = 1; i < count;) {
        const uint32_t end = kxParseParList_value_end(list, i);
        if (kxParserParam_is_nested_end(kxParseParList_get(list, i)) && end == i + 1 && i + 1 == count) break;
        attribute++;
        for (uint32_t j = i; j < end && j < count; j++) {
            const kxParserParam *parameter = kxParseParList_get(list, j);
            kxReadCode noted_code = 0;
            const auto &problems = parser->parameter_problems;
            for (; noted < problems.size() && problems[noted].parameter <= j; noted++)
                if (problems[noted].parameter == j) noted_code = problems[noted].code;
            // An integer beyond 32 bits is a problem only where a real did not do.
            if (noted_code == KX_READ_INTEGER_OUT_OF_RANGE && !parameter->has_error) noted_code = 0;
            if (noted_code != 0) {
                note_problem(parser, noted_code, [&](ReadProblem &problem) {
                    describe(problem, j);
                    problem.message = describe_noted(noted_code);
                });
            } else if (parameter->has_error) {
                const kxReadCode code = marked_problem_code(parser, *parameter);
                note_problem(parser, code, [&](ReadProblem &problem) {
                    describe(problem, j);
                    problem.message = describe_marked(*parameter, code);
                });
            }
        }
        i = end;
    }
    report_attribute_count(parser, instance, id_token, attribute);
}

// Hands the collected parameters to the instance's class and checks that
// they fit: "(" first, the attributes, ")" last.
void initialise(Parser *parser, kxBaseObject *instance, const Token &id_token) {
    kxParseParList *list = parser->parameters;
    kxParserParam *parameter = nullptr;
    if (!kxParseParList_next(list, &parameter) || !kxParserParam_is_nested_begin(parameter)) {
        parser->with_errors = true;
        return;
    }
    baseobject_init_from_parse(instance, list);
    const bool fits = !kxParseParList_has_errors(list) && kxParseParList_next(list, &parameter) &&
                      kxParserParam_is_nested_end(parameter);
    if (!fits) parser->with_errors = true;
    // Problems noted while collecting set the error flag by their severity.
    if (!fits || !parser->parameter_problems.empty()) report_line_problems(parser, instance, id_token);
}

// ---- lines ----

// Why a line of a known name creates no instance, reported; the line is
// skipped.
void report_skipped_name(Parser *parser, const Token &id_token, const Token &name) {
    const kxIfcVersion_t other = parser->version == KXIFCVERSION_IFC_4 ? KXIFCVERSION_IFC_2X3 : KXIFCVERSION_IFC_4;
    const kxClass_t *klass = parser->names.find(name.text, name.length);
    kxReadCode code = KX_READ_UNKNOWN_ENTITY;
    if (klass != nullptr) {
        code = KX_READ_ABSTRACT_ENTITY;
    } else if (parser->report != nullptr) {
        const NameTable other_names(other);
        if (other_names.find(name.text, name.length) != nullptr) code = KX_READ_OTHER_RELEASE_ENTITY;
    }
    note_problem(parser, code, [&](ReadProblem &problem) {
        place_at(problem, name);
        problem.file_id = id_token.id;
        problem.entity_name = upper_token(name);
        const char *release = parser->version == KXIFCVERSION_IFC_4 ? "IFC4" : "IFC2X3";
        const char *entity = problem.entity_name.c_str();
        if (code == KX_READ_ABSTRACT_ENTITY)
            problem.message = text_format("abstract entity %s cannot have instances; line skipped", entity);
        else if (code == KX_READ_OTHER_RELEASE_ENTITY)
            problem.message = text_format("%s is not an entity of %s; line skipped", entity, release);
        else
            problem.message = text_format("unknown entity %s; line skipped", entity);
    });
}

// The instance a line makes in a pass that creates instances, or NULL when
// the line is skipped (reported, except for classes a selective read leaves
// out).
kxBaseObject *create_line_instance(Parser *parser, const Token &id_token, const Token &name, ParseMode mode) {
    const uint32_t file_id = id_token.id;
    const kxClass_t *klass = parser->names.find(name.text, name.length);
    if (file_id == 0xFFFFFFFFu) {
        note_problem(parser, KX_READ_ID_OUT_OF_RANGE, [&](ReadProblem &problem) {
            place_at(problem, id_token);
            problem.entity_name = upper_token(name);
            problem.message = text_format("#%.*s is beyond the largest id, 4294967294; line skipped",
                                          static_cast<int>(id_token.length - 1), id_token.text + 1);
        });
        return nullptr;
    }
    if (klass == nullptr || class_is_abstract(klass, parser->version)) {
        report_skipped_name(parser, id_token, name);
        return nullptr;
    }
    if (mode == SINGLE_PASS_SELECTED && !(*parser->selection)[klass->unique_class_id]) return nullptr;
    if (!parser->ids_at_join && parser->ids->find(file_id) != nullptr) {
        note_problem(parser, KX_READ_DUPLICATE_ID, [&](ReadProblem &problem) {
            place_at(problem, id_token);
            problem.file_id = file_id;
            problem.entity_name = upper_token(name);
            problem.message = text_format("#%u is defined again; the first definition is kept", file_id);
        });
        return nullptr;
    }
    kxBaseObject *instance = create_instance(parser, klass);
    if (instance != nullptr) {
        instance->output_file_id = file_id;
        if (parser->ids_at_join)
            parser->created_ids.push_back(file_id);
        else
            parser->ids->insert(file_id, instance);
    }
    return instance;
}

// The instance of a line in the second of two passes: the one the first
// pass made for this very line, or NULL when it made none.
kxBaseObject *created_line_instance(Parser *parser, const Token &id_token, uint64_t line_offset) {
    TrackedVector<uint64_t> &skipped = parser->skipped_lines;
    if (parser->next_skipped_line < skipped.size() && skipped[parser->next_skipped_line] == line_offset) {
        parser->next_skipped_line++;
        return nullptr;
    }
    kxBaseObject *instance = parser->ids->find(id_token.id);
    if (instance != nullptr && line_offset < parser->object_ids.shift_end)
        instance->object_id += parser->object_ids.object_id_shift;
    return instance;
}

void defer_line(Parser *parser, kxBaseObject *instance, const Token &id_token, const char *parameters,
                uint32_t parameters_line, const char *end) {
    const char *start = id_token.text - (id_token.column - 1);  // the id's physical line
    TrackedVector<char> &text = parser->deferred_text;
    parser->deferred.push_back({instance, text.size(), static_cast<size_t>(end - start),
                                static_cast<size_t>(parameters - start), parameters_line, id_token.line,
                                id_token.column});
    text.insert(text.end(), start, end);
}

// Lines longer than this are not collected value by value when a value
// does not fit (that costs many times the line's size): they are read
// directly once more, passing over the values that do not fit.
constexpr ptrdiff_t kLongLineBytes = 1 << 20;

// Whether the parameters from the scanner's position run past the limit.
bool parameters_longer_than(const Scanner &scanner, ptrdiff_t limit) {
    Scanner probe = scanner;
    uint32_t depth = 0;
    for (;;) {
        const Token token = scanner_next(&probe);
        if (token.kind == TOKEN_END || token.kind == TOKEN_DOTCOMA) break;
        if (token.kind == TOKEN_BEGIN_PAR) depth++;
        if (token.kind == TOKEN_END_PAR && (depth == 0 || --depth == 0)) break;
    }
    return probe.cursor - scanner.cursor > limit;
}

// Reads a line of a direct class straight into its instance, reporting
// what it lost; false when the line must be collected and read the general
// way (the scanner's position is then undefined).
bool read_directly(Parser *parser, Scanner *scanner, kxBaseObject *instance, const Token &id_token,
                   const char *parameters, uint32_t parameters_line) {
    FastReader &fast = parser->fast;
    if (!fastread_line(&fast, scanner, instance)) {
        scanner_seek(scanner, parameters, parameters_line);
        if (!parameters_longer_than(*scanner, kLongLineBytes) || !fastread_line(&fast, scanner, instance, true))
            return false;
        const ClassRelease *release = class_release(instance->object_class, parser->version);
        for (const BadValue &bad : fast.bad_values) {
            note_problem(parser, KX_READ_WRONG_TYPE, [&](ReadProblem &problem) {
                problem.line = bad.line;
                problem.column = bad.column;
                problem.file_id = id_token.id;
                problem.entity_name = utf8_of(instance->object_class->upper_name);
                problem.attribute_index = bad.attribute;
                problem.attribute_name = utf8_of(g_slots[release->attrs[bad.attribute - 1].slot].name);
                problem.message = "the value does not fit the attribute's type; the attribute is left unset";
            });
        }
    }
    if (fast.count_differs) report_attribute_count(parser, instance, id_token, fast.given_attributes);
    return true;
}

// The first of two passes only creates instances: it moves from a line's
// "(" straight to its closing ';' when that lies on the same physical line
// (the window found it by the scanner's rules for strings and comments).
// What stands between is read, and any fault in it reported, by the
// second pass.
bool jump_over_parameters(Parser *parser, Scanner *scanner) {
    const char *p = scanner->cursor;
    while (p < scanner->end && *p == ' ') p++;
    if (p == scanner->end || *p != '(') return false;
    const char *end = parser->file->statement_end_on_line(*scanner);
    if (end == nullptr) return false;
    scanner->cursor = end - 1;
    return true;
}

// One instance line, after its "#id". False on a syntax error.
bool parse_entity_line(Parser *parser, Scanner *scanner, const Token &id_token, ParseMode mode) {
    if (!expect(parser, scanner, TOKEN_EQUAL)) return false;
    const uint64_t line_offset = scanner_offset(*scanner, id_token.text);
    const Token name = scanner_next(scanner);
    if (name.kind == TOKEN_BEGIN_PAR) {
        // A complex instance "#n=(A(...)B(...))": not part of IFC; skipped.
        scanner_seek(scanner, name.text, name.line);
        if (mode != PARSE_CREATED) {
            note_problem(parser, KX_READ_UNSUPPORTED_INSTANCE, [&](ReadProblem &problem) {
                place_at(problem, id_token);
                problem.file_id = id_token.id;
                problem.message = "complex instances are not part of IFC; line skipped";
            });
            if (mode == CREATE_ONLY) parser->skipped_lines.push_back(line_offset);
        } else {
            created_line_instance(parser, id_token, line_offset);
        }
        return skip_parameters(parser, scanner) && expect(parser, scanner, TOKEN_DOTCOMA);
    }
    if (name.kind != TOKEN_TYPE_NAME) return fail_syntax(parser, name, TOKEN_TYPE_NAME);
    const uint32_t file_id = id_token.id;
    if (file_id != 0xFFFFFFFFu && file_id > parser->max_file_id) parser->max_file_id = file_id;

    kxBaseObject *instance = mode == PARSE_CREATED ? created_line_instance(parser, id_token, line_offset)
                                                   : create_line_instance(parser, id_token, name, mode);
    if (instance == nullptr && mode == CREATE_ONLY) parser->skipped_lines.push_back(line_offset);
    const char *parameters_start = scanner->cursor;
    const uint32_t parameters_line = scanner->line;
    if (mode == CREATE_ONLY && jump_over_parameters(parser, scanner)) return expect(parser, scanner, TOKEN_DOTCOMA);
    if (instance == nullptr || mode == CREATE_ONLY)
        return skip_parameters(parser, scanner) && expect(parser, scanner, TOKEN_DOTCOMA);

    if (fastread_class_is_direct(parser->fast, instance->object_class)) {
        if (read_directly(parser, scanner, instance, id_token, parameters_start, parameters_line))
            return expect(parser, scanner, TOKEN_DOTCOMA);
        scanner_seek(scanner, parameters_start, parameters_line);  // read it again, reporting what is wrong
    }
    bool unresolved = false;
    if (!collect_parameters(parser, scanner, &unresolved) || !expect(parser, scanner, TOKEN_DOTCOMA)) return false;
    if (unresolved && mode != PARSE_CREATED)
        defer_line(parser, instance, id_token, parameters_start, parameters_line, scanner->cursor);
    else
        initialise(parser, instance, id_token);
    return true;
}

void report_unreadable(kxReadReport *report, std::string message) {
    ReadProblem problem;
    problem.code = KX_READ_UNREADABLE_FILE;
    problem.message = std::move(message);
    report_add(report, std::move(problem));
}

// The file could not be read on (it changed meanwhile): reported, and the
// read fails.
bool unreadable(Parser *parser) {
    report_unreadable(parser->report, parser->file->problem());
    return false;
}

// Notes where a line could start a part of the second pass: one part for
// each share of the file, at the first line beginning a physical line.
void note_part_start(Parser *parser, const Scanner &scanner, const Token &token) {
    const uint64_t share = parser->file->size() / parser->parts_wanted;
    const uint64_t offset = scanner_offset(scanner, token.text);
    if (token.column == 1 && offset >= share * (parser->part_starts.size() + 1))
        parser->part_starts.push_back({offset, token.line});
}

// Reads the data section from the scanner's position (just after "DATA;")
// up to "ENDSEC;", or up to the parser's stop. False on a syntax error.
bool parse_data_section(Parser *parser, Scanner *scanner, ParseMode mode) {
    constexpr uint64_t kProgressStep = 4 << 20;
    const uint64_t size = parser->file->size();
    uint64_t next_progress = kProgressStep;
    const bool find_parts = mode == CREATE_ONLY && parser->parts_wanted > 1 && parser->stop_at == kNoStop;
    for (;;) {
        if (!parser->file->ensure(scanner)) return unreadable(parser);
        const uint64_t done = scanner_offset(*scanner, scanner->cursor);
        if (done >= next_progress) {
            report_progress(parser->report, done, size);
            next_progress = done + kProgressStep;
        }
        const Token token = scanner_next(scanner);
        if (token.kind == TOKEN_ENTITY_ID) {
            const uint64_t offset = scanner_offset(*scanner, token.text);
            if (offset >= parser->stop_at) {  // the next part's
                parser->stopped = true;
                parser->stopped_at = {offset, token.line};
                return true;
            }
            if (find_parts && parser->part_starts.size() + 1 < parser->parts_wanted)
                note_part_start(parser, *scanner, token);
        }
        if (token.kind == TOKEN_ENDSECTION) {
            report_progress(parser->report, size, size);
            return expect(parser, scanner, TOKEN_DOTCOMA);
        }
        if (token.kind != TOKEN_ENTITY_ID) return fail_syntax(parser, token, TOKEN_ENTITY_ID);
        if (!parse_entity_line(parser, scanner, token, mode)) return false;
    }
}

// Lines that referred forward, once every instance exists.
void parse_deferred_lines(Parser *parser) {
    for (const DeferredLine &line : parser->deferred) {
        const char *text = parser->deferred_text.data() + line.text_offset;
        Scanner scanner;
        scanner_init(&scanner, text, line.text_length);
        scanner_seek(&scanner, text + line.parameters_offset, line.parameters_line);
        const Token id_token{TOKEN_ENTITY_ID, text, 0, line.id_line, line.id_column,
                             line.instance->output_file_id, 0, 0.0};
        bool unresolved = false;
        if (collect_parameters(parser, &scanner, &unresolved))
            initialise(parser, line.instance, id_token);
        else
            parser->with_errors = true;
    }
    parser->deferred.clear();
    parser->deferred_text.clear();
}

// Positions the scanner just after the "DATA;" that follows the header.
bool seek_data_section(Parser *parser, Scanner *scanner) {
    for (;;) {
        if (!parser->file->ensure(scanner)) return unreadable(parser);
        const Token token = scanner_next(scanner);
        if (token.kind == TOKEN_END) return fail_syntax(parser, token, TOKEN_DATA);
        if (token.kind == TOKEN_DATA && expect(parser, scanner, TOKEN_DOTCOMA)) return true;
    }
}

// Reads the data section, or the part of it from `start` (NULL: the first)
// up to the parser's stop, and what follows the data section when the part
// reaches it.
bool read_part(Parser *parser, ParseMode mode, const PartStart *start) {
    Scanner scanner;
    parser->stopped = false;
    if (start == nullptr) {
        if (!parser->file->start(&scanner)) return unreadable(parser);
        if (!seek_data_section(parser, &scanner)) return false;
    } else if (!parser->file->start_at(&scanner, start->offset, start->line)) {
        return unreadable(parser);
    }
    if (!parse_data_section(parser, &scanner, mode)) return false;
    if (parser->stopped) return true;
    // Anything but the closing keyword and the end of the file (a second
    // section, another file pasted after this one) is read past and reported.
    if (!parser->file->ensure(&scanner)) return unreadable(parser);
    const Token closing = scanner_next(&scanner);
    if (!parser->file->ensure(&scanner)) return unreadable(parser);
    const Token after = closing.kind == TOKEN_END_ISO ? scanner_next(&scanner) : closing;
    if (after.kind != TOKEN_END || after.length != 0) {
        const bool reported = mode != PARSE_CREATED;  // once per read
        if (reported) {
            note_problem(parser, KX_READ_TEXT_AFTER_END, [&](ReadProblem &problem) {
                place_at(problem, after);
                problem.message = closing.kind == TOKEN_END_ISO
                                      ? "text after END-ISO-10303-21; ignored"
                                      : "the data section is not followed by END-ISO-10303-21; the rest is ignored";
            });
        }
        parser->with_errors = true;
    }
    return true;
}

bool run_parts_in_parallel(Parser *parser);
bool create_in_parallel(Parser *parser);

bool run_pass(Parser *parser, ParseMode mode) {
    if (mode == PARSE_CREATED && !parser->part_starts.empty()) return run_parts_in_parallel(parser);
    const bool read = mode == CREATE_ONLY && parser->parts_wanted > 1 ? create_in_parallel(parser)
                                                                      : read_part(parser, mode, nullptr);
    if (!read) return false;
    if (mode == SINGLE_PASS || mode == SINGLE_PASS_SELECTED) {
        kxParseParList_set_allow_unresolved(parser->parameters, mode == SINGLE_PASS_SELECTED ? CIERTO : FALSO);
        parse_deferred_lines(parser);
    }
    // References to instances that were not read are expected when only some
    // classes are read; otherwise they are errors of the file.
    if (!fastread_resolve(&parser->fast, mode != SINGLE_PASS_SELECTED) && mode != SINGLE_PASS_SELECTED)
        parser->with_errors = true;
    return true;
}

// One later part of a parallel pass: a parser of its own, with its own
// window on the file, report and pool. In the first pass it starts at a
// guessed line and makes its lines' instances, which are numbered, filed
// and indexed by id once it is joined; in the second it reads over the
// shared id index, and the select values it makes are numbered and filed
// once it is joined.
struct PartReader {
    Parser parser;
    TextWindow window;
    PartStart start;
    ParseMode mode;
    Pool *pool = pool_new();  // what the part makes; the model's pool adopts it
    bool ok = false;
    bool joined = false;

    PartReader(Parser *main, ParseMode pass, PartStart part_start, uint64_t stop)
        : parser(main->version, nullptr, report_new_like(main->report), main->lossless,
                 pass == PARSE_CREATED ? main->ids : nullptr),
          window(main->path), start(part_start), mode(pass) {
        parser.path = main->path;
        parser.file = &window;
        parser.objects = ptrarray_create(0);
        parser.value_objects = ptrarray_create(0);
        parser.model_manager = main->model_manager;
        parser.parameters = kxParseParList_new(main->version, &create_value_object, &parser);
        parser.stop_at = stop;
        parser.ids_at_join = pass == CREATE_ONLY;
        if (pass == CREATE_ONLY) parser.object_tables = objtables_new();
        if (pass == PARSE_CREATED) {
            parser.object_ids = part_start;
            parser.skipped_lines = main->skipped_lines;
            const auto first =
                std::lower_bound(parser.skipped_lines.begin(), parser.skipped_lines.end(), start.offset);
            parser.next_skipped_line = static_cast<size_t>(first - parser.skipped_lines.begin());
        }
    }
    ~PartReader() {
        kxParseParList_free(&parser.parameters);
        // The instances of a part that was not taken in go with it.
        if (joined)
            ptrarray_destroy_const(&parser.objects);
        else
            baseobject_release_all(&parser.objects);
        ptrarray_destroy_const(&parser.value_objects);
        mem_destroy_optional(&parser.object_tables, &objtables_free);
        kxReadReport_free(&parser.report);  // NULL once merged
        mem_destroy_optional(&pool, &pool_release);
    }
    PartReader(const PartReader &) = delete;
    PartReader &operator=(const PartReader &) = delete;

    void run() {
        MemTallyScope tally;
        MemPoolScope memory(pool);
        ok = window.ok() ? read_part(&parser, mode, &start) : unreadable(&parser);
    }
};

using Parts = TrackedVector<std::unique_ptr<PartReader>>;

// Runs each part on a thread of its own (or on this one, when no thread
// can be started for it) while `first` runs on the calling thread.
template <typename First>
void run_parts(Parts &parts, First first) {
    ParallelSection section;
    std::vector<std::thread> threads;
    std::vector<PartReader *> inline_parts;
    for (auto &part : parts) {
        try {
            threads.emplace_back([&part] { part->run(); });
        } catch (...) {
            inline_parts.push_back(part.get());
        }
    }
    {
        MemTallyScope tally;
        first();
    }
    for (std::thread &thread : threads) thread.join();
    for (PartReader *part : inline_parts) part->run();
}

// Reads a pass in parts from the starts given, the first (up to the first
// start) on the calling thread; the parts are left for joining.
bool read_in_parts(Parser *parser, ParseMode mode, const TrackedVector<PartStart> &starts, Parts *parts) {
    for (size_t i = 0; i < starts.size(); i++)
        parts->push_back(std::make_unique<PartReader>(parser, mode, starts[i],
                                                      i + 1 < starts.size() ? starts[i + 1].offset : kNoStop));
    parser->stop_at = starts.front().offset;
    bool ok = true;
    run_parts(*parts, [&] { ok = read_part(parser, mode, nullptr); });
    parser->stop_at = kNoStop;
    return ok;
}

// Takes what a joined part made and found into the main parser, as if the
// main parser had read the part itself: the instances or select values it
// made (numbered and filed in the order made), its problems (their lines
// counted on by `lines_before`; none when an earlier part failed, where a
// one-thread read would have stopped), the lines it skipped and its
// references to ids no line defines.
void join_part(Parser *parser, PartReader &part, bool earlier_ok, uint32_t lines_before) {
    Parser &read = part.parser;
    part.joined = true;
    pool_adopt(parser->model_manager->pool, &part.pool);
    ptrarray_append_all(parser->objects, read.objects);
    if (part.mode == CREATE_ONLY) {
        parser->object_id_counter += ptrarray_count(read.objects);  // the second pass renumbers them
        ptrarray_clear(read.objects);                               // its room is not needed twice
        objtables_merge(parser->object_tables, &read.object_tables);
    } else {
        for (uint32_t i = 0; i < ptrarray_count(read.objects); i++) {
            kxBaseObject *value = static_cast<kxBaseObject *>(read.objects->items[i]);
            baseobject_renew_object_id(value, &parser->object_id_counter);
            objtables_add_instance(parser->object_tables, value);
        }
    }
    for (uint32_t i = 0; i < ptrarray_count(read.value_objects); i++)
        ptrarray_append(parser->value_objects, read.value_objects->items[i]);
    if (!earlier_ok) return;
    report_merge(parser->report, &read.report, lines_before);
    read.fast.report = nullptr;
    parser->with_errors = parser->with_errors || read.with_errors;
    parser->syntax_error = parser->syntax_error || read.syntax_error;
    parser->max_file_id = std::max(parser->max_file_id, read.max_file_id);
    parser->fast.forward.insert(parser->fast.forward.end(), read.fast.forward.begin(), read.fast.forward.end());
    if (part.mode == CREATE_ONLY)
        parser->skipped_lines.insert(parser->skipped_lines.end(), read.skipped_lines.begin(), read.skipped_lines.end());
}

// The second of two passes with its parts read on threads of their own,
// the first part on the calling thread. Every instance exists already, so a
// part only fills in its own lines' instances, making its select values and
// blocks in a pool of its own; what parts share (retain counts, memory
// tallies) takes atomic updates.
bool run_parts_in_parallel(Parser *parser) {
    Parts parts;
    bool ok = read_in_parts(parser, PARSE_CREATED, parser->part_starts, &parts);
    for (auto &part : parts) {
        join_part(parser, *part, ok, 0);
        ok = ok && part->ok;
    }
    parts.clear();
    if (!ok) return false;
    report_progress(parser->report, parser->file->size(), parser->file->size());
    if (!fastread_resolve(&parser->fast, true)) parser->with_errors = true;
    return true;
}

// Where the parts of a parallel first pass are guessed to start: at the
// first line starting with '#' past each share of the file. Its line number
// is known once the text before it has been read.
TrackedVector<PartStart> guess_part_starts(Parser *parser) {
    TrackedVector<PartStart> starts;
    const uint64_t size = parser->file->size();
    for (uint32_t k = 1; k < parser->parts_wanted; k++) {
        const uint64_t offset = parser->file->next_instance_line(size / parser->parts_wanted * k);
        if (offset < size && (starts.empty() || offset > starts.back().offset)) starts.push_back({offset, 1});
    }
    return starts;
}

// Indexes the instances a part of the first pass made, unless one of their
// ids is defined before them (then the index is left as it was).
bool index_part_ids(Parser *parser, const Parser &part) {
    const TrackedVector<uint32_t> &ids = part.created_ids;
    for (size_t i = 0; i < ids.size(); i++) {
        if (parser->ids->insert(ids[i], static_cast<kxBaseObject *>(part.objects->items[i]))) continue;
        while (i-- > 0) parser->ids->remove(ids[i]);
        return false;
    }
    return true;
}

// The first of two passes with the data section cut into parts at guessed
// line starts, read on threads of their own (the first on the calling
// thread). In file order, a part is taken in when the text before it
// stopped exactly at its start (the guess was no line inside a string or a
// comment) and none of its ids is defined before it; from the first part
// that is not, the rest is read on the calling thread, as one thread would.
// Where the parts start is where the second pass's start too.
bool create_in_parallel(Parser *parser) {
    const TrackedVector<PartStart> guesses = guess_part_starts(parser);
    if (guesses.empty()) return read_part(parser, CREATE_ONLY, nullptr);
    Parts parts;
    bool ok = read_in_parts(parser, CREATE_ONLY, guesses, &parts);
    bool stopped = parser->stopped;
    PartStart reached = parser->stopped_at;
    for (auto &part : parts) {
        if (!ok || !stopped) break;
        if (reached.offset != part->start.offset || !index_part_ids(parser, part->parser))
            return read_part(parser, CREATE_ONLY, &reached);
        reached.object_id_shift = parser->object_id_counter;
        reached.shift_end = part->parser.stopped ? part->parser.stopped_at.offset : kNoStop;
        join_part(parser, *part, true, reached.line - 1);
        parser->part_starts.push_back(reached);
        ok = part->ok;
        stopped = part->parser.stopped;
        reached = {part->parser.stopped_at.offset, part->parser.stopped_at.line + reached.line - 1};
    }
    return ok;
}

// Why a file's header cannot be read.
const char *unreadable_reason(const char16_t *path) {
    if (path == nullptr) return "no file name";
    if (file_is_regular(path)) return "no valid HEADER section";
    char *name = wstr_to_utf8(path);
    struct stat info;
    const bool exists = name != nullptr && ::stat(name, &info) == 0;
    mem_free(name);
    return exists ? "not a regular file" : "no such file";
}

// The release a header names; a name that is not exactly IFC2X3 or IFC4 but
// is read as one of them is reported.
bool read_release(const char16_t *path, const kxIfcHeader *header, kxReadReport *report, kxIfcVersion_t *version) {
    if (!kxIfcHeader_read_ifc_version(path, version) || *version >= NUM_RELEASES) {
        report_unreadable(report, text_format("FILE_SCHEMA names no release this library reads: '%s'",
                                              utf8_of(header->file_schema).c_str()));
        return false;
    }
    const char16_t *schema = header->file_schema;
    if (schema != nullptr && !wstr_equal_nocase(schema, u"IFC2X3") && !wstr_equal_nocase(schema, u"IFC4")) {
        ReadProblem problem;
        problem.code = KX_READ_SCHEMA_MISMATCH;
        problem.message = text_format("FILE_SCHEMA '%s' is read as %s; what it adds is not kept",
                                      utf8_of(schema).c_str(), *version == KXIFCVERSION_IFC_4 ? "IFC4" : "IFC2X3");
        report_add(report, std::move(problem));
    }
    return true;
}

}  // namespace

kxIfcModel *step_read_file(const char16_t *path, uint32_t read_mode, const TrackedVector<bool> *selection,
                           kxTextMode text_mode, kxReadReport *report, bool *with_errors) {
    *with_errors = false;
    kxIfcHeader *header = nullptr;
    if (path == nullptr || !header_read_section(path, &header, text_mode == KX_TEXT_MODE_LOSSLESS)) {
        report_unreadable(report, unreadable_reason(path));
        return nullptr;
    }
    kxIfcVersion_t version = ifc_version_not_defined;
    if (!read_release(path, header, report, &version)) {
        header_destroy(&header);
        return nullptr;
    }
    TextWindow file(path);
    if (!file.ok()) {
        report_unreadable(report, file.problem());
        header_destroy(&header);
        return nullptr;
    }
    Parser parser(version, selection, report, text_mode == KX_TEXT_MODE_LOSSLESS);
    parser.file = &file;
    parser.path = path;
    parser.objects = ptrarray_create_with_capacity(0, 0x10000);
    parser.value_objects = ptrarray_create(0);
    parser.object_tables = objtables_new();
    parser.model_manager = modelmngr_new(&parser, nullptr, nullptr, nullptr, nullptr, nullptr);
    MemPoolScope memory(parser.model_manager->pool);
    parser.parameters = kxParseParList_new(version, &create_value_object, &parser);

    bool ok;
    if (selection != nullptr) {
        ok = run_pass(&parser, SINGLE_PASS_SELECTED);
    } else {
        const bool two_passes = read_mode == 2 || (read_mode == 0 && file.size() > kSinglePassLimit);
        if (!two_passes) {
            ok = run_pass(&parser, SINGLE_PASS);
        } else {
            parser.parts_wanted = report_threads(report);
            ok = run_pass(&parser, CREATE_ONLY);
            if (ok) {
                parser.ids->freeze();  // every id is known
                ok = run_pass(&parser, PARSE_CREATED);
            }
        }
    }
    kxParseParList_free(&parser.parameters);
    kxIfcModel *model = nullptr;
    if (ok) {
        const uint32_t next_output_id = parser.max_file_id + 1;
        model = model_new_from_parts(&header, version, parser.object_id_counter, next_output_id, &parser.objects,
                                     &parser.object_tables, &parser.model_manager, parser.value_objects);
        model->text_mode = text_mode;
        *with_errors = parser.with_errors;
    } else {
        header_destroy(&header);
        baseobject_release_all(&parser.objects);
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
    kxIfcModel *model =
        read_mode <= 2 ? step_read_file(file_name, read_mode, nullptr, KX_TEXT_MODE_SPEC, nullptr, &with_errors)
                       : nullptr;
    if (readed_with_errors != nullptr) *readed_with_errors = with_errors ? kxBTRUE : kxBFALSE;
    return model;
}

KX_API kxIfcModel *kxIfcModel_read_with_report(const kxWChar *file_name, uint32_t read_mode, kxTextMode text_mode,
                                               kxReadReport *report, kxBool *readed_with_errors) {
    kx_assert(read_mode <= 2);
    kx_assert(text_mode == KX_TEXT_MODE_SPEC || text_mode == KX_TEXT_MODE_LOSSLESS);
    bool with_errors = false;
    kxIfcModel *model = nullptr;
    if (read_mode <= 2 && (text_mode == KX_TEXT_MODE_SPEC || text_mode == KX_TEXT_MODE_LOSSLESS))
        model = step_read_file(file_name, read_mode, nullptr, text_mode, report, &with_errors);
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
    kxIfcModel *model = step_read_file(file_name, 0, &selection, KX_TEXT_MODE_SPEC, nullptr, &with_errors);
    if (readed_with_errors != nullptr) *readed_with_errors = with_errors ? kxBTRUE : kxBFALSE;
    return model;
}

}  // extern "C"
