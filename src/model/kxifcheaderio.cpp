#define KX_UNIT "kxifcheader"
#include "model/headerio.h"

#include <cstdlib>
#include <ctime>
#include <vector>

#include "support/writedata.h"
#include "support/assert.h"
#include "support/files.h"
#include "support/memory.h"
#include "support/steplexer.h"
#include "support/steptext.h"
#include "support/valuearray.h"
#include "support/wstring.h"

namespace kx {
namespace {

// Written as the FILE_NAME preprocessor version, whatever the record holds.
constexpr char16_t kPreprocessorVersion[] = u"Orlith IFC Preprocessor 1.0";
// The only implementation level the reader accepts (ignoring case).
constexpr char16_t kImplementationLevel[] = u"2;1";

constexpr char kEnvEmptyTimeStamp[] = "VELMTEST";
constexpr char kEnvIgnoreErrors[] = "KXIFCHEADER_IGNORE_ERRORS";

// The header's lists hold only strings: no element type of their own.
constexpr uint32_t kHeaderListType = 0;

// Reserved words of the header section.
enum HeaderWord : uint32_t {
    WORD_HEADER = 0,
    WORD_ENDSEC = 1,
    WORD_FILE_DESCRIPTION = 2,
    WORD_FILE_NAME = 3,
    WORD_FILE_SCHEMA = 4,
};

constexpr uint32_t kHeaderReadBufferLength = 0x100000;

// ---------------------------------------------------------------------------
// Writing

// A text grown piece by piece in tracked memory; linear however many items
// a list holds.
class TextBuilder {
public:
    explicit TextBuilder(bool lossless = false) : lossless_(lossless) {}
    void append(const char16_t *text) {
        for (; *text != u'\0'; text++) units_.push_back(*text);
    }
    // The item STEP-encoded.
    void append_encoded(const char16_t *text) {
        WideString encoded = encode(text, lossless_);
        append(encoded);
        wstr_destroy(&encoded);
    }
    WideString take() {
        WideString text = wstr_copy_n(units_.data(), units_.size());
        units_.clear();
        return text;
    }

    // A new string: the text STEP-encoded by the fixed or the lossless rules.
    static WideString encode(const char16_t *text, bool lossless) {
        if (!lossless) return kxIfcWriteData_encode_string(text);
        WideString encoded = static_cast<WideString>(mem_alloc((step_encoded_bound(wstr_length(text)) + 1) * sizeof(char16_t)));
        encoded[step_encode_string(text, encoded)] = u'\0';
        return encoded;
    }

private:
    bool lossless_;
    std::vector<char16_t, TrackedAllocator<char16_t>> units_;
};

uint32_t list_count(const WStrArray *list) { return list != nullptr ? wstrarray_count(list) : 0; }

const char16_t *or_empty(const char16_t *text) { return text != nullptr ? text : u""; }

// "('a', 'b')", each item encoded; "('')" for an empty (or absent) list.
WideString list_text(const WStrArray *list, bool lossless) {
    const uint32_t count = list_count(list);
    if (count == 0) return wstr_copy(u"('')");
    TextBuilder text(lossless);
    text.append(u"(");
    for (uint32_t i = 0; i < count; i++) {
        if (i > 0) text.append(u", ");
        text.append(u"'");
        text.append_encoded(or_empty(wstrarray_get(list, i)));
        text.append(u"'");
    }
    text.append(u")");
    return text.take();
}

// One quoted string holding every item encoded, joined by ";" ("'a;b'");
// "''" when there is none.
WideString authorization_text(const WStrArray *list, bool lossless) {
    const uint32_t count = list_count(list);
    TextBuilder text(lossless);
    text.append(u"'");
    for (uint32_t i = 0; i < count; i++) {
        if (i > 0) text.append(u";");
        text.append_encoded(or_empty(wstrarray_get(list, i)));
    }
    text.append(u"'");
    return text.take();
}

// The local time of writing, or an empty text when VELMTEST exists (so that
// two exports of one model are identical).
WideString new_time_stamp() {
    if (std::getenv(kEnvEmptyTimeStamp) != nullptr) return wstr_new_empty();
    const std::time_t now = std::time(nullptr);
    std::tm fecha{};
    const std::tm *fecha_tm = localtime_r(&now, &fecha);
    kx_assert_not_null(fecha_tm);
    if (fecha_tm == nullptr) return wstr_new_empty();
    char text[100];
    const size_t copiados = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", fecha_tm);
    kx_assert(copiados > 0);
    return wstr_from_narrow_n(text, copiados);
}

const char16_t *schema_name(kxIfcVersion_t version) {
    switch (version) {
        case KXIFCVERSION_IFC_2X3: return u"IFC2X3";
        case KXIFCVERSION_IFC_4: return u"IFC4";
        default: kx_assert_unreachable(); return u"";
    }
}

// ---------------------------------------------------------------------------
// Reading

// Everything the section gives, before it becomes a record. Owned; NULL
// while not read.
struct SectionContents {
    WStrArray *description_data;
    WideString implementation_level;
    WideString file_name;
    WideString time_stamp;
    WStrArray *author_data;
    WStrArray *organization_data;
    WideString preprocessor_version;
    WideString originating_system;
    WStrArray *authorization_data;
    WideString file_schema;
};

void destroy_list(WStrArray **list) { mem_destroy_optional(list, wstrarray_destroy); }

void section_contents_destroy(SectionContents *section_contents) {
    destroy_list(&section_contents->description_data);
    wstr_destroy_optional(&section_contents->implementation_level);
    wstr_destroy_optional(&section_contents->file_name);
    wstr_destroy_optional(&section_contents->time_stamp);
    destroy_list(&section_contents->author_data);
    destroy_list(&section_contents->organization_data);
    wstr_destroy_optional(&section_contents->preprocessor_version);
    wstr_destroy_optional(&section_contents->originating_system);
    destroy_list(&section_contents->authorization_data);
    wstr_destroy_optional(&section_contents->file_schema);
}

bool expect(StepLexer *lexer, StepToken kind) { return steplexer_token_is_and_read(lexer, kind) == CIERTO; }

// The current literal as a new string, its escapes still in (they are
// decoded once the whole section is read); then advances.
WideString take_literal(StepLexer *lexer) {
    WideString value = wstr_copy(steplexer_literal(lexer));
    steplexer_read_token(lexer);
    return value;
}

// A string: one literal, or "$" for an empty one.
bool read_string(StepLexer *lexer, WideString *value) {
    if (steplexer_token_is(lexer, StepToken::Literal)) {
        wstr_destroy_optional(value);
        *value = take_literal(lexer);
        return true;
    }
    if (steplexer_token_is_and_read(lexer, StepToken::Dollar)) {
        wstr_destroy_optional(value);
        *value = wstr_new_empty();
        return true;
    }
    return false;
}

// A list of strings, parenthesised ("('a', 'b')", "()", "($)") or a bare
// literal ("'2;1'"). Every turn takes at least one token, so the loop ends
// with the input at the latest.
bool read_string_list(StepLexer *lexer, WStrArray **list) {
    destroy_list(list);
    *list = wstrarray_create(kHeaderListType);
    bool parenthesised = false;
    uint32_t num_iters = 0;
    for (;;) {
        // Past 1000 items the list is reported, and still read.
        kx_assert(num_iters < 1000);
        if (steplexer_token_is_and_read(lexer, StepToken::LeftParen)) {
            if (num_iters == 0) parenthesised = true;
            if (steplexer_token_is(lexer, StepToken::Literal)) {
                WideString item = take_literal(lexer);
                wstrarray_append_take(*list, &item);
            }
        } else if (steplexer_token_is(lexer, StepToken::Literal)) {
            WideString item = take_literal(lexer);
            wstrarray_append_take(*list, &item);
        }
        num_iters++;
        if (steplexer_token_is_and_read(lexer, StepToken::Comma)) continue;
        if (steplexer_token_is(lexer, StepToken::RightParen)) {
            if (parenthesised) steplexer_read_token(lexer);
            return true;
        }
        if (parenthesised && steplexer_token_is_and_read(lexer, StepToken::Dollar)) continue;
        return false;
    }
}

// FILE_DESCRIPTION(<descriptions>, <implementation level>);
bool read_file_description(StepLexer *lexer, SectionContents *section_contents) {
    if (!expect(lexer, StepToken::LeftParen)) return false;
    if (!read_string_list(lexer, &section_contents->description_data)) return false;
    if (!expect(lexer, StepToken::Comma)) return false;
    WStrArray *level = nullptr;
    const bool read = read_string_list(lexer, &level);
    if (read && wstrarray_count(level) == 1) {
        wstr_destroy_optional(&section_contents->implementation_level);
        section_contents->implementation_level = wstrarray_get_copy(level, 0);
    }
    const bool one_level = read && section_contents->implementation_level != nullptr;
    destroy_list(&level);
    if (!one_level) return false;
    return expect(lexer, StepToken::RightParen) && expect(lexer, StepToken::Semicolon);
}

// FILE_NAME(<name>, <time stamp>, <authors>, <organizations>, <preprocessor>,
// <originating system>, <authorization>);
bool read_file_name(StepLexer *lexer, SectionContents *section_contents) {
    if (!expect(lexer, StepToken::LeftParen)) return false;
    if (!read_string(lexer, &section_contents->file_name) || !expect(lexer, StepToken::Comma)) return false;
    if (!read_string(lexer, &section_contents->time_stamp) || !expect(lexer, StepToken::Comma)) return false;
    if (!read_string_list(lexer, &section_contents->author_data) || !expect(lexer, StepToken::Comma))
        return false;
    if (!read_string_list(lexer, &section_contents->organization_data) || !expect(lexer, StepToken::Comma))
        return false;
    if (!read_string(lexer, &section_contents->preprocessor_version) || !expect(lexer, StepToken::Comma))
        return false;
    if (!read_string(lexer, &section_contents->originating_system) || !expect(lexer, StepToken::Comma))
        return false;
    // The authorization: one string (a one-item list) or a list of strings.
    if (steplexer_token_is(lexer, StepToken::Literal) || steplexer_token_is(lexer, StepToken::Dollar)) {
        WideString authorization = nullptr;
        read_string(lexer, &authorization);
        destroy_list(&section_contents->authorization_data);
        section_contents->authorization_data = wstrarray_create(kHeaderListType);
        wstrarray_append_take(section_contents->authorization_data, &authorization);
    } else if (!read_string_list(lexer, &section_contents->authorization_data)) {
        return false;
    }
    return expect(lexer, StepToken::RightParen) && expect(lexer, StepToken::Semicolon);
}

// FILE_SCHEMA((<schema>)); exactly one schema name.
bool read_file_schema(StepLexer *lexer, SectionContents *section_contents) {
    if (!expect(lexer, StepToken::LeftParen)) return false;
    WStrArray *schemas = nullptr;
    const bool read = read_string_list(lexer, &schemas);
    if (read && wstrarray_count(schemas) == 1) {
        wstr_destroy_optional(&section_contents->file_schema);
        section_contents->file_schema = wstrarray_get_copy(schemas, 0);
    }
    const bool one_schema = read && section_contents->file_schema != nullptr;
    destroy_list(&schemas);
    if (!one_schema) return false;
    return expect(lexer, StepToken::RightParen) && expect(lexer, StepToken::Semicolon);
}

// From HEADER to ENDSEC; each of the three entities is optional, in their
// order.
bool read_section(StepLexer *lexer, SectionContents *section_contents) {
    kx_assert_not_null(section_contents);
    if (section_contents == nullptr) return false;
    if (!steplexer_skip_to_word_and_read(lexer, WORD_HEADER)) return false;
    if (!expect(lexer, StepToken::Semicolon)) return false;
    if (steplexer_word_is_and_read(lexer, WORD_FILE_DESCRIPTION) &&
        !read_file_description(lexer, section_contents))
        return false;
    if (steplexer_word_is_and_read(lexer, WORD_FILE_NAME) && !read_file_name(lexer, section_contents))
        return false;
    if (steplexer_word_is_and_read(lexer, WORD_FILE_SCHEMA) && !read_file_schema(lexer, section_contents))
        return false;
    return steplexer_word_is_and_read(lexer, WORD_ENDSEC) && expect(lexer, StepToken::Semicolon);
}

// Without FILE_DESCRIPTION there is no level, and nothing to refuse.
// Decodes the escapes of every string read, by the full or the fixed rules.
void decode_section(SectionContents *section_contents, bool full_decoding) {
    auto decode = [full_decoding](WideString *text) {
        if (*text == nullptr) return;
        WideString decoded = full_decoding ? step_decode_string(*text, wstr_length(*text), nullptr)
                                           : kxIfcWriteData_decode_string(*text);
        wstr_destroy(text);
        *text = decoded;
    };
    for (WStrArray *list : {section_contents->description_data, section_contents->author_data,
                            section_contents->organization_data, section_contents->authorization_data}) {
        for (uint32_t i = 0; i < list_count(list); i++) {
            WideString item = wstrarray_get_copy(list, i);
            decode(&item);
            wstrarray_set_take(list, i, &item);
        }
    }
    for (WideString *text : {&section_contents->implementation_level, &section_contents->file_name,
                             &section_contents->time_stamp, &section_contents->preprocessor_version,
                             &section_contents->originating_system, &section_contents->file_schema})
        decode(text);
}

bool implementation_level_accepted(const char16_t *implementation_level) {
    if (std::getenv(kEnvIgnoreErrors) != nullptr) return true;
    if (implementation_level == nullptr) return true;
    return wstr_equal_nocase(implementation_level, kImplementationLevel);
}

StepLexer *new_header_lexer(const char16_t *file_name) {
    ReservedWords *words = steplexer_words_create();
    steplexer_words_add(words, u"HEADER", WORD_HEADER);
    steplexer_words_add(words, u"ENDSEC", WORD_ENDSEC);
    steplexer_words_add(words, u"FILE_DESCRIPTION", WORD_FILE_DESCRIPTION);
    steplexer_words_add(words, u"FILE_NAME", WORD_FILE_NAME);
    steplexer_words_add(words, u"FILE_SCHEMA", WORD_FILE_SCHEMA);
    StepLexer *lexer = steplexer_create(file_name, &words);
    if (lexer == nullptr) return nullptr;
    steplexer_set_buffer_length(lexer, kHeaderReadBufferLength);
    steplexer_quote_literals(lexer);
    steplexer_add_literal_symbol(lexer, u"\\S\\'");
    steplexer_add_literal_filter(lexer, u"''", u"'");
    steplexer_start(lexer);
    return lexer;
}

// The release a schema name declares; FALSO when it names none.
kx_bool16 release_of_schema(const char16_t *file_schema, kxIfcVersion_t *ifc_version) {
    struct SchemaWord {
        const char16_t *word;
        kxIfcVersion_t version;
    };
    // Searched in this order: the first found decides.
    static constexpr SchemaWord kSchemaWords[] = {
        {u"IFC4", KXIFCVERSION_IFC_4},
        {u"IFC2X4", KXIFCVERSION_IFC_4},
        {u"IFC2X3", KXIFCVERSION_IFC_2X3},
        {u"IFC2X", KXIFCVERSION_IFC_2X3},
    };
    *ifc_version = ifc_version_not_defined;
    if (file_schema == nullptr) return FALSO;
    WideString upper = wstr_copy(file_schema);
    wstr_to_upper(upper);
    kx_bool16 found = FALSO;
    for (const SchemaWord &entry : kSchemaWords) {
        if (wstr_find_word(upper, entry.word)) {
            *ifc_version = entry.version;
            found = CIERTO;
            break;
        }
    }
    wstr_destroy(&upper);
    return found;
}

}  // namespace

void header_write_section(kxIfcHeader *header, const char16_t *file_name_written, kxIfcVersion_t version,
                          kxIfcWriteData *output) {
    kx_assert_not_null(header);
    kx_assert_not_null(file_name_written);
    kx_assert_not_null(output);
    if (header == nullptr || output == nullptr) return;

    kxIfcWriteData_write_line(output, u"HEADER");

    const bool lossless = kxIfcWriteData_is_lossless(output);
    WideString description = list_text(header->description_data, lossless);
    WideString line = wstr_format(u"FILE_DESCRIPTION(%s, '2;1')", description);
    kxIfcWriteData_write_line(output, line);
    wstr_destroy(&line);
    wstr_destroy(&description);

    WideString time_stamp = new_time_stamp();
    header_set_time_stamp(header, &time_stamp);
    WideString file_schema = wstr_format(u"FILE_SCHEMA(('%s'))", schema_name(version));
    header_set_file_schema(header, &file_schema);

    const char16_t *name = header->file_name;
    if (name == nullptr || wstr_is_blank(name)) name = or_empty(file_name_written);
    WideString encoded_name = TextBuilder::encode(name, lossless);
    WideString authors = list_text(header->author_data, lossless);
    WideString organizations = list_text(header->organization_data, lossless);
    WideString originating_system = TextBuilder::encode(or_empty(header->originating_system), lossless);
    WideString authorization = authorization_text(header->authorization_data, lossless);
    line = wstr_format(u"FILE_NAME('%s', '%s', %s, %s, '%s', '%s', %s)", encoded_name, header->time_stamp,
                       authors, organizations, kPreprocessorVersion, originating_system, authorization);
    kxIfcWriteData_write_line(output, line);
    wstr_destroy(&line);
    wstr_destroy(&authorization);
    wstr_destroy(&originating_system);
    wstr_destroy(&organizations);
    wstr_destroy(&authors);
    wstr_destroy(&encoded_name);

    kxIfcWriteData_write_line(output, header->file_schema);
    kxIfcWriteData_write_line(output, u"ENDSEC");
}

kx_bool16 header_read_section(const char16_t *file_name, kxIfcHeader **header, bool full_decoding) {
    kx_assert_not_null(header);
    if (header == nullptr) return FALSO;
    *header = nullptr;
    kx_assert_not_null(file_name);
    if (file_name == nullptr || !file_is_regular(file_name)) return FALSO;
    StepLexer *lexer = new_header_lexer(file_name);
    if (lexer == nullptr) return FALSO;

    SectionContents section_contents{};
    bool read = read_section(lexer, &section_contents);
    steplexer_destroy(&lexer);
    decode_section(&section_contents, full_decoding);
    if (read && !implementation_level_accepted(section_contents.implementation_level)) read = false;
    if (read) {
        *header = header_new(&section_contents.description_data, &section_contents.file_name,
                             &section_contents.time_stamp, &section_contents.author_data,
                             &section_contents.organization_data, &section_contents.originating_system,
                             &section_contents.authorization_data, &section_contents.file_schema);
    }
    // What the record does not keep (preprocessor version, implementation
    // level), or everything after a failure.
    section_contents_destroy(&section_contents);
    return read ? CIERTO : FALSO;
}

}  // namespace kx

// ---- Files ------------------------------------------------------------------

extern "C" KX_API kxBool kxIfcHeader_read_ifc_version(const kxWChar *file_name, kxIfcVersion_t *ifc_version) {
    kx_assert_not_null(ifc_version);
    if (ifc_version == nullptr) return kxBFALSE;
    kxIfcHeader *header = nullptr;
    if (!kx::header_read_section(file_name, &header)) return kxBFALSE;
    const kx_bool16 found = kx::release_of_schema(header->file_schema, ifc_version);
    kx::header_destroy(&header);
    return found ? kxBTRUE : kxBFALSE;
}

extern "C" KX_API kxIfcHeader *kxIfcHeader_read_from_file(const kxWChar *file_name) {
    kxIfcHeader *header = nullptr;
    kx::header_read_section(file_name, &header);
    return header;
}

extern "C" KX_API void kxIfcHeader_free(kxIfcHeader **ifc_header) { kx::header_destroy(ifc_header); }
