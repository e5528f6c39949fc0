#define KX_UNIT "kxifcwritedata"
#include "support/writedata.h"

#include <charconv>
#include <cmath>
#include <cstring>

#include "support/assert.h"
#include "support/memory.h"
#include "support/numbers.h"
#include "support/realtext.h"
#include "support/steptext.h"
#include "support/wstring.h"

// Layout of the writer state.
//
// The items of every open group live in one array, outer groups first: a
// group is the run of items from its first slot to the end of the array.
// Opening a group reserves the slots its wrapping needs in front of it (the
// "(" of a list, the type name and "(" of a typed value), so closing a group
// only fills those slots and appends ")": the items never move, and the
// closed group simply becomes part of the run of the group around it. The
// text of the items lives in one byte buffer; an item refers to its text by
// offset and length. Both arrays are reused from one instance line to the
// next, so writing a model allocates next to nothing per line.
//
// An instance begun with kxIfcWriteData_begin_instance knows its head, so
// its items go straight onto the line as they come, through the same
// placing rules that print a collected group; only instances whose head
// comes at the end (kxIfcWriteData_write_entity_line) are collected first.
// Lines gather in one output buffer that is handed to the file in large
// pieces when the writer is batched, else after every line.
//
// Everything written to the file is 7-bit ASCII: values are formatted and
// encoded straight into bytes, and the few wide texts handed over ready-made
// (type names, enumeration literals) are narrowed when they are appended.

namespace {

enum ParameterKind : uint32_t {
    PARAMETER_TYPE_NAME = 0,
    PARAMETER_OPEN = 1,
    PARAMETER_CLOSE = 2,
    PARAMETER_UNSET = 3,
    PARAMETER_DERIVED = 4,
    PARAMETER_VALUE = 5,
    // Not an item: what precedes the first item of an instance line.
    PARAMETER_LINE_START = 6,
};

// The kind of group of a buffer.
constexpr uint32_t OPERATION_PARAMETERS = 0;  // an entity's parameters or a list
constexpr uint32_t OPERATION_TYPED_VALUE = 1;
constexpr uint32_t OPERATION_NONE = 0xFFFF;  // a fresh writer: no group

constexpr uint32_t MAX_LINE_COLUMNS = 120;
constexpr uint32_t NEXT_ID = 0xFFFFFFFFu;

// One item of a group. Items of the fixed kinds have no text of their own.
struct Parameter {
    uint32_t kind;
    uint32_t offset;   // into the text buffer
    uint32_t length;   // bytes of text
    uint32_t columns;  // characters the text takes on the line
};

// A suspended group: where the group opened on top of it starts.
struct SuspendedGroup {
    uint32_t first_slot;         // the first reserved slot of the group opened on top
    uint32_t reserved_slots;     // 1 for a list, 2 for a typed value
    uint32_t text_start;         // text buffer length when that group opened
    uint32_t suspended_operation;
};

struct ByteBuffer {
    char *data;
    uint32_t length;
    uint32_t capacity;
};

// A name narrowed once: its bytes in the cache's text.
struct NarrowName {
    const char16_t *wide;  // the name as handed over; nullptr: a free slot
    uint32_t offset;
    uint32_t length;
    uint32_t columns;
};

// Names of the schema's tables narrowed by the address of their wide
// text, which stays put and unchanged while the writer lives.
struct NameCache {
    NarrowName *slots;  // open addressing; a power of two of them
    uint32_t capacity;
    uint32_t count;
    ByteBuffer text;
    const NarrowName *last;  // the name looked up last: lines of one class often follow each other
    bool upper;              // names kept in upper case
};

// Where the instance line being printed stands.
struct LineState {
    uint32_t column;
    uint32_t previous_kind;  // PARAMETER_LINE_START before the first item
    bool may_break;          // the item being placed may start a new line
};

}  // namespace

struct kxIfcWriteData {
    uint32_t next_output_id;
    uint32_t current_operation;
    // All items of the open groups; the current group starts at current_start.
    Parameter *parameters;
    uint32_t num_parameters;
    uint32_t parameters_capacity;
    uint32_t current_start;
    ByteBuffer text;
    // The suspended groups, innermost last, with their operations.
    SuspendedGroup *stack;
    uint32_t num_stacked_buffers;
    uint32_t stack_capacity;
    // Printed lines not yet handed to the file, the last one perhaps still
    // being printed.
    ByteBuffer pending;
    LineState line;
    // Groups open in an instance printed as it is written, its own
    // parameters included; 0 when none is.
    uint32_t instance_depth;
    ByteBuffer scratch;  // a value being encoded
    NameCache class_names;  // upper case
    NameCache type_names;   // type names and literals, as given
    // The class names again, by the key their instances give (the class
    // id): found by an index instead of a hash, once per instance line.
    NarrowName *class_names_by_key;
    uint32_t class_keys_capacity;
    FILE *output;
    bool lossless;  // shortest exact reals, strings by the full escape rules
    bool batched;   // lines are handed over in large pieces
    bool failed;    // some output could not be written
};

namespace {

uint32_t grown_capacity(uint32_t capacity, uint64_t needed) {
    uint64_t grown = capacity < 64 ? 64 : static_cast<uint64_t>(capacity) * 2;
    while (grown < needed) grown *= 2;
    kx_assert(grown <= 0xFFFFFFFFull);
    return static_cast<uint32_t>(grown);
}

void bytes_grow(ByteBuffer *buffer, uint64_t needed) {
    buffer->capacity = grown_capacity(buffer->capacity, needed);
    buffer->data = static_cast<char *>(kx::mem_realloc(buffer->data, buffer->capacity));
}

// Room for `extra` more bytes; returns where they go.
char *bytes_reserve(ByteBuffer *buffer, uint32_t extra) {
    const uint64_t needed = static_cast<uint64_t>(buffer->length) + extra;
    if (needed > buffer->capacity) [[unlikely]]
        bytes_grow(buffer, needed);
    return buffer->data + buffer->length;
}

void bytes_append(ByteBuffer *buffer, const char *bytes, uint32_t length) {
    char *destination = bytes_reserve(buffer, length);
    if (length > 0) std::memcpy(destination, bytes, length);
    buffer->length += length;
}

void bytes_free(ByteBuffer *buffer) {
    kx::mem_free_and_clear(&buffer->data);
    buffer->length = 0;
    buffer->capacity = 0;
}

// Appends a wide text as bytes and returns the number of code units it had.
// Printable ASCII (all the library ever hands over) is copied unit by unit;
// anything else goes out as UTF-8, like the other text printers.
uint32_t bytes_append_wide(ByteBuffer *buffer, const char16_t *text) {
    // Room for short texts in one go; longer ones grow it as they are copied.
    constexpr uint32_t kChunk = 64;
    uint32_t i = 0;
    for (;;) {
        char *destination = bytes_reserve(buffer, kChunk);
        uint32_t copied = 0;
        while (copied < kChunk && text[i] != u'\0' && text[i] < 0x80)
            destination[copied++] = static_cast<char>(text[i++]);
        buffer->length += copied;
        if (copied < kChunk) break;
    }
    if (text[i] == u'\0') return i;
    char *utf8 = kx::wstr_to_utf8(text + i);
    bytes_append(buffer, utf8, static_cast<uint32_t>(std::strlen(utf8)));
    kx::mem_free(utf8);
    return i + kx::wstr_length(text + i);
}

// ---- names ----

size_t name_slot(const NameCache *cache, const char16_t *wide) {
    const uint64_t hash = (reinterpret_cast<uintptr_t>(wide) >> 1) * 0x9E3779B97F4A7C15ull;
    size_t slot = static_cast<size_t>(hash >> 32) & (cache->capacity - 1);
    while (cache->slots[slot].wide != nullptr && cache->slots[slot].wide != wide)
        slot = (slot + 1) & (cache->capacity - 1);
    return slot;
}

void name_cache_grow(NameCache *cache) {
    const NarrowName *old_slots = cache->slots;
    const uint32_t old_capacity = cache->capacity;
    cache->capacity = old_capacity == 0 ? 256 : old_capacity * 2;
    cache->slots = kx::mem_new_zeroed<NarrowName>(cache->capacity);
    for (uint32_t i = 0; i < old_capacity; i++)
        if (old_slots[i].wide != nullptr) cache->slots[name_slot(cache, old_slots[i].wide)] = old_slots[i];
    kx::mem_free(const_cast<NarrowName *>(old_slots));
    cache->last = nullptr;
}

// The narrow form of a name, made on its first use.
const NarrowName &cached_name(NameCache *cache, const char16_t *wide) {
    if (cache->last != nullptr && cache->last->wide == wide) return *cache->last;
    if (cache->capacity > 0) {
        const NarrowName &found = cache->slots[name_slot(cache, wide)];
        if (found.wide == wide) {
            cache->last = &found;
            return found;
        }
    }
    if (2 * (cache->count + 1) > cache->capacity) name_cache_grow(cache);
    NarrowName &name = cache->slots[name_slot(cache, wide)];
    ByteBuffer *text = &cache->text;
    name.wide = wide;
    name.offset = text->length;
    name.columns = bytes_append_wide(text, wide);
    name.length = text->length - name.offset;
    if (cache->upper) {
        for (char *c = text->data + name.offset; c < text->data + text->length; c++)
            if (*c >= 'a' && *c <= 'z') *c = static_cast<char>(*c - 'a' + 'A');
    }
    cache->count++;
    cache->last = &name;
    return name;
}

void name_cache_free(NameCache *cache) {
    kx::mem_free_and_clear(&cache->slots);
    cache->last = nullptr;
    bytes_free(&cache->text);
    cache->capacity = 0;
    cache->count = 0;
}

// ---- items and groups ----

Parameter *parameter_reserve(kxIfcWriteData *write_data, uint32_t extra) {
    const uint64_t needed = static_cast<uint64_t>(write_data->num_parameters) + extra;
    if (needed > write_data->parameters_capacity) {
        write_data->parameters_capacity =
            grown_capacity(write_data->parameters_capacity, needed);
        write_data->parameters = static_cast<Parameter *>(kx::mem_realloc(
            write_data->parameters, write_data->parameters_capacity * sizeof(Parameter)));
    }
    return write_data->parameters + write_data->num_parameters;
}

void parameter_append_fixed(kxIfcWriteData *write_data, uint32_t kind) {
    *parameter_reserve(write_data, 1) = Parameter{kind, 0, 1, 1};
    write_data->num_parameters++;
}

// A value item whose text is the last `length` bytes of the text buffer.
void parameter_append_text_tail(kxIfcWriteData *write_data, uint32_t kind, uint32_t length,
                                uint32_t columns) {
    *parameter_reserve(write_data, 1) =
        Parameter{kind, write_data->text.length - length, length, columns};
    write_data->num_parameters++;
}

void parameter_append_wide_value(kxIfcWriteData *write_data, const char16_t *text) {
    const uint32_t start = write_data->text.length;
    const uint32_t columns = bytes_append_wide(&write_data->text, text);
    parameter_append_text_tail(write_data, PARAMETER_VALUE, write_data->text.length - start,
                               columns);
}

// Opens an empty slot at `slot`, moving the items from there on up.
void parameters_open_slot(kxIfcWriteData *write_data, uint32_t slot) {
    parameter_reserve(write_data, 1);
    Parameter *items = write_data->parameters;
    std::memmove(items + slot + 1, items + slot,
                 (write_data->num_parameters - slot) * sizeof(Parameter));
    write_data->num_parameters++;
}

// Drops the item at `slot`, moving the items after it down.
void parameters_drop_slot(kxIfcWriteData *write_data, uint32_t slot) {
    Parameter *items = write_data->parameters;
    std::memmove(items + slot, items + slot + 1,
                 (write_data->num_parameters - slot - 1) * sizeof(Parameter));
    write_data->num_parameters--;
}

void begin_group(kxIfcWriteData *write_data, uint32_t operation) {
    if (write_data->num_stacked_buffers == write_data->stack_capacity) {
        write_data->stack_capacity = write_data->stack_capacity == 0
                                         ? 16
                                         : write_data->stack_capacity * 2;
        write_data->stack = static_cast<SuspendedGroup *>(kx::mem_realloc(
            write_data->stack, write_data->stack_capacity * sizeof(SuspendedGroup)));
    }
    const uint32_t reserved = operation == OPERATION_TYPED_VALUE ? 2 : 1;
    write_data->stack[write_data->num_stacked_buffers++] =
        SuspendedGroup{write_data->num_parameters, reserved, write_data->text.length,
                       write_data->current_operation};
    Parameter *slots = parameter_reserve(write_data, reserved);
    if (reserved == 2) slots[0] = Parameter{PARAMETER_TYPE_NAME, 0, 0, 0};
    slots[reserved - 1] = Parameter{PARAMETER_OPEN, 0, 1, 1};
    write_data->num_parameters += reserved;
    write_data->current_start = write_data->num_parameters;
    write_data->current_operation = operation;
}

// The suspended group becomes the current one again.
void pop_group(kxIfcWriteData *write_data) {
    const SuspendedGroup &top = write_data->stack[--write_data->num_stacked_buffers];
    write_data->current_operation = top.suspended_operation;
    if (write_data->num_stacked_buffers == 0) {
        write_data->current_start = 0;
    } else {
        const SuspendedGroup &outer = write_data->stack[write_data->num_stacked_buffers - 1];
        write_data->current_start = outer.first_slot + outer.reserved_slots;
    }
}

// Closes the current group as "(...)" or, with a type name, "NAME(...)".
void end_group(kxIfcWriteData *write_data, const char16_t *type_name) {
    const uint32_t num_stacked_buffers = write_data->num_stacked_buffers;
    kx_assert(num_stacked_buffers > 0);
    if (num_stacked_buffers == 0) return;
    SuspendedGroup &top = write_data->stack[num_stacked_buffers - 1];
    const uint32_t wanted = type_name != nullptr ? 2 : 1;
    if (top.reserved_slots != wanted) {
        // Closed as the other kind of group than it was opened.
        if (wanted == 2) {
            parameters_open_slot(write_data, top.first_slot);
        } else {
            parameters_drop_slot(write_data, top.first_slot);
        }
        top.reserved_slots = wanted;
    }
    Parameter *slots = write_data->parameters + top.first_slot;
    if (type_name != nullptr) {
        const uint32_t start = write_data->text.length;
        const uint32_t columns = bytes_append_wide(&write_data->text, type_name);
        slots[0] = Parameter{PARAMETER_TYPE_NAME, start, write_data->text.length - start, columns};
    }
    slots[wanted - 1] = Parameter{PARAMETER_OPEN, 0, 1, 1};
    parameter_append_fixed(write_data, PARAMETER_CLOSE);
    pop_group(write_data);
}

// ---- numbers ----

// Decimal digits of an unsigned long; returns the end.
// Both need room for 11 bytes at `destination`.
char *put_ulong(char *destination, uint32_t value) { return kx::put_decimal(value, destination); }

char *put_long(char *destination, int32_t value) {
    if (value < 0) *destination++ = '-';
    // The magnitude in unsigned arithmetic: INT32_MIN has no positive int32.
    const uint32_t magnitude = value < 0 ? 0u - static_cast<uint32_t>(value) : static_cast<uint32_t>(value);
    return kx::put_decimal(magnitude, destination);
}

// The real number format. The largest double takes 311 characters in the
// "%.1f" form; everything else is far shorter.
constexpr size_t REAL_TEXT_SIZE = 400;

// Like printf's "%.<precision>G" with a point always present ("1.E-05",
// "120."), whatever the locale.
uint32_t put_general(double value, int precision, char *text) {
    if (!std::isfinite(value)) {  // "INF.", "-INF.", "NAN."
        char *end = std::to_chars(text, text + 8, value).ptr;
        for (char *c = text; c < end; c++)
            if (*c >= 'a' && *c <= 'z') *c = static_cast<char>(*c - 'a' + 'A');
        *end++ = '.';
        return static_cast<uint32_t>(end - text);
    }
    kx::DecimalDigits decimal;
    kx::decimal_round(value, precision, &decimal);
    const bool plain = decimal.exponent >= -4 && decimal.exponent < precision;
    return kx::decimal_put(decimal, plain, text);
}

// Writes the real into `text` and returns the number of characters.
uint32_t format_real_text(double value, char *text) {
    static_assert(REAL_TEXT_SIZE >= kx::kDecimalTextSize);
    if (std::fabs(value) < 1e-08) {
        text[0] = '0';
        text[1] = '.';
        return 2;
    }
    if (value >= -2147483648.0 && value <= 2147483647.0) {
        const int32_t nearest = kx::number_round_to_long(value);
        if (std::fabs(static_cast<double>(nearest) - value) < 1e-08) {
            char *text_end = put_long(text, nearest);
            *text_end++ = '.';
            return static_cast<uint32_t>(text_end - text);
        }
        return put_general(value, 10, text);
    }
    const double whole = kx::number_round_decimals(value, 0);
    if (std::fabs(whole - value) < 0.10001) {
        const char *text_end =
            std::to_chars(text, text + REAL_TEXT_SIZE - 1, value, std::chars_format::fixed, 1).ptr;
        return static_cast<uint32_t>(text_end - text);
    }
    return put_general(value, 12, text);
}

// ---- strings ----

constexpr char HEX_DIGITS[] = "0123456789ABCDEF";

// The characters a code unit takes in an encoded string.
// Beyond ASCII every code unit is written as \X2\hhhh\X0\.
inline uint32_t encoded_width(char16_t c) { return c < 0x80 ? kx::kStepAsciiWidths[c] : 12; }

// Encodes the text into `destination` (room for 12 characters per code
// unit); returns the end. Char is char for the file, char16_t for strings.
template <typename Char>
Char *encode_into(const char16_t *text, Char *destination) {
    for (; *text != u'\0'; text++) {
        const char16_t c = *text;
        const uint32_t width = encoded_width(c);
        if (width == 1) {
            *destination++ = static_cast<Char>(c);
        } else if (width == 12) {
            destination[0] = '\\';
            destination[1] = 'X';
            destination[2] = '2';
            destination[3] = '\\';
            destination[4] = HEX_DIGITS[(c >> 12) & 0xF];
            destination[5] = HEX_DIGITS[(c >> 8) & 0xF];
            destination[6] = HEX_DIGITS[(c >> 4) & 0xF];
            destination[7] = HEX_DIGITS[c & 0xF];
            destination[8] = '\\';
            destination[9] = 'X';
            destination[10] = '0';
            destination[11] = '\\';
            destination += 12;
        } else {
            destination[0] = static_cast<Char>(c);
            destination[1] = static_cast<Char>(c);
            destination += 2;
        }
    }
    return destination;
}

inline int hex_value(char16_t c) {
    if (c >= u'0' && c <= u'9') return c - u'0';
    if (c >= u'A' && c <= u'F') return c - u'A' + 10;
    if (c >= u'a' && c <= u'f') return c - u'a' + 10;
    return -1;
}

// The value of `count` hexadecimal digits, or -1 when one is not a digit.
int32_t hex_run_value(const char16_t *digits, int count) {
    int32_t value = 0;
    for (int i = 0; i < count; i++) {
        const int digit = hex_value(digits[i]);
        if (digit < 0) return -1;
        value = (value << 4) | digit;
    }
    return value;
}

inline bool is_x(char16_t c) { return c == u'X' || c == u'x'; }

// Hands the pending output to the file.
void flush_pending(kxIfcWriteData *write_data) {
    const size_t length = write_data->pending.length;
    if (write_data->output != nullptr && length > 0 &&
        std::fwrite(write_data->pending.data, 1, length, write_data->output) != length)
        write_data->failed = true;
    write_data->pending.length = 0;
}

// A line is complete: handed over now, or once enough have gathered.
constexpr uint32_t BATCH_BYTES = 1u << 20;

void line_done(kxIfcWriteData *write_data) {
    if (!write_data->batched || write_data->pending.length >= BATCH_BYTES) flush_pending(write_data);
}

// ---- instance lines ----

// The separators before an item, by the kind of the item before it and its
// own: a comma between the items of a group, and whether the line may end
// before it (it does when the item would pass column 120). A type name and
// its "(" stay together; a ")" takes no comma; the first item of a line
// takes neither.
constexpr uint8_t SEPARATOR_COMMA = 1;
constexpr uint8_t SEPARATOR_MAY_BREAK = 2;
constexpr uint8_t SEPARATOR_BOTH = SEPARATOR_COMMA | SEPARATOR_MAY_BREAK;

constexpr uint8_t SEPARATORS[7][6] = {
    // Rows: the item before; columns: the item (TYPE_NAME, OPEN, CLOSE, UNSET, DERIVED, VALUE).
    /* after TYPE_NAME */ {SEPARATOR_COMMA, 0, SEPARATOR_MAY_BREAK, SEPARATOR_BOTH, SEPARATOR_BOTH, SEPARATOR_BOTH},
    /* after OPEN */ {0, SEPARATOR_MAY_BREAK, SEPARATOR_MAY_BREAK, SEPARATOR_MAY_BREAK, SEPARATOR_MAY_BREAK,
                      SEPARATOR_MAY_BREAK},
    /* after CLOSE */ {SEPARATOR_COMMA, SEPARATOR_BOTH, SEPARATOR_MAY_BREAK, SEPARATOR_BOTH, SEPARATOR_BOTH,
                       SEPARATOR_BOTH},
    /* after UNSET */ {SEPARATOR_COMMA, SEPARATOR_BOTH, SEPARATOR_MAY_BREAK, SEPARATOR_BOTH, SEPARATOR_BOTH,
                       SEPARATOR_BOTH},
    /* after DERIVED */ {SEPARATOR_COMMA, SEPARATOR_BOTH, SEPARATOR_MAY_BREAK, SEPARATOR_BOTH, SEPARATOR_BOTH,
                         SEPARATOR_BOTH},
    /* after VALUE */ {SEPARATOR_COMMA, SEPARATOR_BOTH, SEPARATOR_MAY_BREAK, SEPARATOR_BOTH, SEPARATOR_BOTH,
                       SEPARATOR_BOTH},
    /* at LINE_START */ {0, 0, 0, 0, 0, 0},
};

// The text of the items that have none of their own, by kind.
constexpr char FIXED_ITEM_TEXT[] = {'\0', '(', ')', '$', '*', '\0'};

// An item is placed in two steps around the writing of its text, so that a
// value can be formatted straight onto the line: item_start writes the
// comma and returns where the text goes (with room for `room` bytes and a
// line end); item_end ends the line before the text when the text would
// pass column 120.
// Both are small and on the path of every value: always inlined.
[[gnu::always_inline]] inline char *item_start(kxIfcWriteData *write_data, uint32_t kind, uint32_t room) {
    LineState &line = write_data->line;
    char *out = bytes_reserve(&write_data->pending, room + 2);
    const uint8_t separators = SEPARATORS[line.previous_kind][kind];
    if (separators & SEPARATOR_COMMA) {
        *out++ = ',';
        line.column++;
    }
    line.may_break = (separators & SEPARATOR_MAY_BREAK) != 0;
    return out;
}

[[gnu::always_inline]] inline void item_end(kxIfcWriteData *write_data, uint32_t kind, char *text, char *text_end,
                                            uint32_t columns) {
    LineState &line = write_data->line;
    if (line.may_break && line.column + columns > MAX_LINE_COLUMNS) {
        std::memmove(text + 1, text, static_cast<size_t>(text_end - text));
        *text = '\n';
        text_end++;
        line.column = 0;
    }
    line.column += columns;
    line.previous_kind = kind;
    write_data->pending.length = static_cast<uint32_t>(text_end - write_data->pending.data);
}

// Prints one item of ready text on the instance line.
void place_item(kxIfcWriteData *write_data, uint32_t kind, const char *text, uint32_t length,
                uint32_t columns) {
    char *out = item_start(write_data, kind, length);
    if (length <= 16) {
        for (uint32_t i = 0; i < length; i++) out[i] = text[i];
    } else {
        std::memcpy(out, text, length);
    }
    item_end(write_data, kind, out, out + length, columns);
}

[[gnu::always_inline]] inline void place_fixed_item(kxIfcWriteData *write_data, uint32_t kind) {
    char *out = item_start(write_data, kind, 1);
    *out = FIXED_ITEM_TEXT[kind];
    item_end(write_data, kind, out, out + 1, 1);
}

// Prints "#id= NAME(" with the class name (in upper case, `columns`
// characters) and starts placing items after it.
void begin_line(kxIfcWriteData *write_data, const char *class_name, uint32_t length, uint32_t columns,
                uint32_t id) {
    ByteBuffer *pending = &write_data->pending;
    char *const head = bytes_reserve(pending, length + 16);
    char *out = head;
    *out++ = '#';
    out = put_ulong(out, id);
    *out++ = '=';
    *out++ = ' ';
    const uint32_t head_columns = static_cast<uint32_t>(out - head);
    std::memcpy(out, class_name, length);
    out += length;
    *out++ = '(';
    pending->length += static_cast<uint32_t>(out - head);
    write_data->line = LineState{head_columns + columns + 1, PARAMETER_LINE_START, false};
}

// Closes the instance's parameters: ");" and the line end.
void end_line(kxIfcWriteData *write_data) {
    bytes_append(&write_data->pending, ");\n", 3);
    line_done(write_data);
}

// ---- items as they come: onto the line, or into the current group ----

// A value is formatted where value_start says, with room for `room`
// bytes, and ends at value_end: straight onto the line of an instance
// printed as it is written, else into the text of the current group. Its
// text is ASCII: a character per byte.
[[gnu::always_inline]] inline char *value_start(kxIfcWriteData *write_data, uint32_t room) {
    if (write_data->instance_depth > 0) return item_start(write_data, PARAMETER_VALUE, room);
    return bytes_reserve(&write_data->text, room);
}

[[gnu::always_inline]] inline void value_end(kxIfcWriteData *write_data, char *text, char *text_end) {
    const uint32_t length = static_cast<uint32_t>(text_end - text);
    if (write_data->instance_depth > 0) return item_end(write_data, PARAMETER_VALUE, text, text_end, length);
    write_data->text.length += length;
    parameter_append_text_tail(write_data, PARAMETER_VALUE, length, length);
}

void emit_fixed(kxIfcWriteData *write_data, uint32_t kind) {
    if (write_data->instance_depth > 0) {
        place_fixed_item(write_data, kind);
        return;
    }
    parameter_append_fixed(write_data, kind);
}

// Places a text of the schema's tables (a type name, an enumeration
// literal) as an item on the line, narrowed on its first use.
void place_schema_text(kxIfcWriteData *write_data, uint32_t kind, const char16_t *text) {
    const NarrowName &name = cached_name(&write_data->type_names, text);
    place_item(write_data, kind, write_data->type_names.text.data + name.offset, name.length, name.columns);
}

void emit_wide_value(kxIfcWriteData *write_data, const char16_t *text) {
    if (write_data->instance_depth > 0) {
        ByteBuffer *scratch = &write_data->scratch;
        scratch->length = 0;
        const uint32_t columns = bytes_append_wide(scratch, text);
        place_item(write_data, PARAMETER_VALUE, scratch->data, scratch->length, columns);
        return;
    }
    parameter_append_wide_value(write_data, text);
}

}  // namespace

kxIfcWriteData *kxIfcWriteData_new(FILE *output) {
    kx_assert_not_null(output);
    kxIfcWriteData *write_data = kx::mem_new_zeroed<kxIfcWriteData>();
    write_data->next_output_id = 1;
    write_data->current_operation = OPERATION_NONE;
    write_data->output = output;
    write_data->class_names.upper = true;
    return write_data;
}

void kxIfcWriteData_free(kxIfcWriteData **holder) {
    kx_assert_not_null(holder);
    if (holder == nullptr) return;
    kxIfcWriteData *write_data = *holder;
    kx_assert_not_null(write_data);
    if (write_data == nullptr) return;
    const uint32_t num_stacked_buffers = write_data->num_stacked_buffers;
    const uint32_t num_parameters = write_data->num_parameters;
    kx_assert(num_stacked_buffers == 0);
    kx_assert(num_parameters == 0);
    flush_pending(write_data);
    kx::mem_free(write_data->parameters);
    kx::mem_free(write_data->stack);
    bytes_free(&write_data->text);
    bytes_free(&write_data->pending);
    bytes_free(&write_data->scratch);
    name_cache_free(&write_data->class_names);
    name_cache_free(&write_data->type_names);
    kx::mem_free(write_data->class_names_by_key);
    kx::mem_free_and_clear(holder);
}

kx_bool16 kxIfcWriteData_is_writing_nested(const kxIfcWriteData *write_data) {
    kx_assert_not_null(write_data);
    if (write_data == nullptr) return FALSO;
    return write_data->num_stacked_buffers > 0 || write_data->instance_depth > 0 ? CIERTO : FALSO;
}

void kxIfcWriteData_begin_parameters(kxIfcWriteData *write_data) {
    kx_assert_not_null(write_data);
    if (write_data == nullptr) return;
    if (write_data->instance_depth > 0) {
        place_fixed_item(write_data, PARAMETER_OPEN);
        write_data->instance_depth++;
        return;
    }
    begin_group(write_data, OPERATION_PARAMETERS);
}

void kxIfcWriteData_begin_typed_value(kxIfcWriteData *write_data) {
    kx_assert_not_null(write_data);
    if (write_data == nullptr) return;
    // An instance printed as it is written needs the name first.
    kx_assert(write_data->instance_depth == 0);
    if (write_data->instance_depth > 0) return kxIfcWriteData_begin_named_value(write_data, u"");
    begin_group(write_data, OPERATION_TYPED_VALUE);
}

void kxIfcWriteData_begin_named_value(kxIfcWriteData *write_data, const char16_t *type_name) {
    kx_assert_not_null(write_data);
    kx_assert_not_null(type_name);
    if (write_data == nullptr || type_name == nullptr) return;
    if (write_data->instance_depth > 0) {
        place_schema_text(write_data, PARAMETER_TYPE_NAME, type_name);
        place_fixed_item(write_data, PARAMETER_OPEN);
        write_data->instance_depth++;
        return;
    }
    begin_group(write_data, OPERATION_TYPED_VALUE);
}

namespace {

// Closes a group of an instance printed as it is written.
void close_placed_group(kxIfcWriteData *write_data) {
    kx_assert(write_data->instance_depth > 1);
    if (write_data->instance_depth <= 1) return;
    place_fixed_item(write_data, PARAMETER_CLOSE);
    write_data->instance_depth--;
}

}  // namespace

void kxIfcWriteData_end_list(kxIfcWriteData *write_data) {
    kx_assert_not_null(write_data);
    if (write_data == nullptr) return;
    if (write_data->instance_depth > 0) return close_placed_group(write_data);
    end_group(write_data, nullptr);
}

void kxIfcWriteData_end_typed_value(kxIfcWriteData *write_data, const char16_t *type_name) {
    kx_assert_not_null(write_data);
    kx_assert_not_null(type_name);
    if (write_data == nullptr) return;
    if (write_data->instance_depth > 0) return close_placed_group(write_data);
    end_group(write_data, type_name != nullptr ? type_name : u"");
}

void kxIfcWriteData_write_reference(kxIfcWriteData *write_data, uint32_t output_file_id) {
    kx_assert_not_null(write_data);
    if (write_data == nullptr) return;
    char *text = value_start(write_data, 16);
    text[0] = '#';
    value_end(write_data, text, put_ulong(text + 1, output_file_id));
}

void kxIfcWriteData_write_integer(kxIfcWriteData *write_data, int32_t value) {
    kx_assert_not_null(write_data);
    if (write_data == nullptr) return;
    char *text = value_start(write_data, 16);
    value_end(write_data, text, put_long(text, value));
}

void kxIfcWriteData_write_real(kxIfcWriteData *write_data, double value) {
    kx_assert_not_null(write_data);
    if (write_data == nullptr) return;
    // Infinities and NaNs have no STEP form: the value is written unset.
    if (!std::isfinite(value)) return emit_fixed(write_data, PARAMETER_UNSET);
    char *text = value_start(write_data, REAL_TEXT_SIZE);
    const uint32_t length =
        write_data->lossless ? kx::step_format_real_shortest(value, text) : format_real_text(value, text);
    value_end(write_data, text, text + length);
}

void kxIfcWriteData_write_text(kxIfcWriteData *write_data, const char16_t *value_text) {
    kx_assert_not_null(write_data);
    kx_assert_not_null(value_text);
    if (write_data == nullptr || value_text == nullptr) return;
    emit_wide_value(write_data, value_text);
}

void kxIfcWriteData_write_literal(kxIfcWriteData *write_data, const char16_t *literal) {
    kx_assert_not_null(write_data);
    kx_assert_not_null(literal);
    if (write_data == nullptr || literal == nullptr) return;
    if (write_data->instance_depth == 0) return emit_wide_value(write_data, literal);
    place_schema_text(write_data, PARAMETER_VALUE, literal);
}

void kxIfcWriteData_write_text_owned(kxIfcWriteData *write_data, char16_t **value_text) {
    kx_assert_not_null(write_data);
    kx_assert_not_null(value_text);
    if (write_data == nullptr || value_text == nullptr) return;
    kx_assert_not_null(*value_text);
    if (*value_text == nullptr) return;
    emit_wide_value(write_data, *value_text);
    kx::wstr_destroy(value_text);
}

void kxIfcWriteData_write_string(kxIfcWriteData *write_data, const char16_t *value_text) {
    kx_assert_not_null(write_data);
    kx_assert_not_null(value_text);
    if (write_data == nullptr || value_text == nullptr) return;
    const uint32_t units = kx::wstr_length(value_text);
    char *start = value_start(write_data, units * 12 + 2);
    char *end = start;
    *end++ = '\'';
    // Most strings are mostly plain text: copied in blocks, up to the first
    // unit that needs the encoding rules of the text mode.
    const size_t plain = kx::step_copy_plain_prefix(value_text, units, end);
    end += plain;
    value_text += plain;
    end = write_data->lossless ? end + kx::step_encode_string(value_text, end) : encode_into(value_text, end);
    *end++ = '\'';
    value_end(write_data, start, end);
}

void kxIfcWriteData_write_binary(kxIfcWriteData *write_data, const char16_t *bits) {
    kx_assert_not_null(write_data);
    kx_assert_not_null(bits);
    if (write_data == nullptr || bits == nullptr) return;
    const uint32_t num_bits = kx::wstr_length(bits);
    if (num_bits == 0) return;
    // The first hex digit carries the bits that do not fill a whole one.
    const uint32_t unused_bits = (4 - num_bits % 4) % 4;
    const uint32_t num_digits = (num_bits + 3) / 4;
    char *start = value_start(write_data, num_digits + 3);
    char *end = start;
    *end++ = '"';
    *end++ = static_cast<char>('0' + unused_bits);
    uint32_t digit = 0;
    uint32_t bits_in_digit = unused_bits;
    for (uint32_t i = 0; i < num_bits; i++) {
        digit = (digit << 1) | (bits[i] != u'0' ? 1u : 0u);
        if (++bits_in_digit == 4) {
            *end++ = HEX_DIGITS[digit];
            digit = 0;
            bits_in_digit = 0;
        }
    }
    *end++ = '"';
    value_end(write_data, start, end);
}

void kxIfcWriteData_write_unset(kxIfcWriteData *write_data) {
    kx_assert_not_null(write_data);
    if (write_data == nullptr) return;
    emit_fixed(write_data, PARAMETER_UNSET);
}

void kxIfcWriteData_write_derived(kxIfcWriteData *write_data) {
    kx_assert_not_null(write_data);
    if (write_data == nullptr) return;
    emit_fixed(write_data, PARAMETER_DERIVED);
}

void kxIfcWriteData_write_entity_line(kxIfcWriteData *write_data, const char16_t *class_name,
                                      uint32_t output_file_id, uint32_t *id_out) {
    kx_assert_not_null(write_data);
    kx_assert_not_null(class_name);
    if (write_data == nullptr) return;
    if (class_name == nullptr) class_name = u"";

    const uint32_t id =
        output_file_id == NEXT_ID ? write_data->next_output_id++ : output_file_id;
    if (id_out != nullptr) *id_out = id;

    // A line printed as it was written is closed by kxIfcWriteData_end_instance.
    kx_assert(write_data->instance_depth == 0);
    ByteBuffer *name = &write_data->scratch;
    name->length = 0;
    const uint32_t columns = bytes_append_wide(name, class_name);
    for (char *c = name->data; c < name->data + name->length; c++)
        if (*c >= 'a' && *c <= 'z') *c = static_cast<char>(*c - 'a' + 'A');
    begin_line(write_data, name->data, name->length, columns, id);
    const Parameter *items = write_data->parameters;
    const char *text = write_data->text.data;
    for (uint32_t i = write_data->current_start; i < write_data->num_parameters; i++) {
        const Parameter &parameter = items[i];
        const bool own_text = parameter.kind == PARAMETER_VALUE || parameter.kind == PARAMETER_TYPE_NAME;
        kx_assert(parameter.kind <= PARAMETER_VALUE);
        place_item(write_data, parameter.kind, own_text ? text + parameter.offset : &FIXED_ITEM_TEXT[parameter.kind],
                   parameter.length, parameter.columns);
    }
    end_line(write_data);

    // The group is done: drop its items and its reserved slot, and go back
    // to the suspended group.
    const uint32_t num_stacked_buffers = write_data->num_stacked_buffers;
    kx_assert(num_stacked_buffers > 0);
    if (num_stacked_buffers == 0) {
        write_data->num_parameters = 0;
        write_data->text.length = 0;
        return;
    }
    const SuspendedGroup &top = write_data->stack[num_stacked_buffers - 1];
    write_data->num_parameters = top.first_slot;
    write_data->text.length = top.text_start;
    pop_group(write_data);
    // Written while another instance's parameters are being collected: that
    // instance refers to this one.
    if (write_data->num_stacked_buffers > 0) kxIfcWriteData_write_reference(write_data, id);
}

void kxIfcWriteData_write_line(kxIfcWriteData *write_data, const char16_t *text) {
    kx_assert_not_null(write_data);
    kx_assert_not_null(text);
    if (write_data == nullptr || text == nullptr) return;
    bytes_append_wide(&write_data->pending, text);
    bytes_append(&write_data->pending, ";\n", 2);
    line_done(write_data);
}

void kxIfcWriteData_write_newline(kxIfcWriteData *write_data) {
    kx_assert_not_null(write_data);
    if (write_data == nullptr) return;
    bytes_append(&write_data->pending, "\n", 1);
    line_done(write_data);
}

char16_t *kxIfcWriteData_encode_string(const char16_t *text) {
    kx_assert_not_null(text);
    if (text == nullptr) return kx::wstr_new_empty();
    uint32_t length = 0;
    for (const char16_t *c = text; *c != u'\0'; c++) length += encoded_width(*c);
    char16_t *encoded = static_cast<char16_t *>(kx::mem_alloc((length + 1) * sizeof(char16_t)));
    char16_t *end = encode_into(text, encoded);
    *end = u'\0';
    return encoded;
}

namespace {

// Keys beyond this are looked up by address alone.
constexpr uint32_t MAX_CLASS_KEYS = 1u << 16;

// The narrow form of a class name by its key, made on the first use of the
// key; a key met with another name than before is taken by the new name.
NarrowName keyed_class_name(kxIfcWriteData *write_data, const char16_t *class_name, uint32_t key) {
    if (key < write_data->class_keys_capacity && write_data->class_names_by_key[key].wide == class_name)
        return write_data->class_names_by_key[key];
    const NarrowName name = cached_name(&write_data->class_names, class_name);
    if (key >= MAX_CLASS_KEYS) return name;
    if (key >= write_data->class_keys_capacity) {
        const uint32_t old_capacity = write_data->class_keys_capacity;
        const uint32_t capacity = grown_capacity(old_capacity, static_cast<uint64_t>(key) + 1);
        write_data->class_names_by_key = static_cast<NarrowName *>(
            kx::mem_realloc(write_data->class_names_by_key, capacity * sizeof(NarrowName)));
        std::memset(write_data->class_names_by_key + old_capacity, 0, (capacity - old_capacity) * sizeof(NarrowName));
        write_data->class_keys_capacity = capacity;
    }
    write_data->class_names_by_key[key] = name;
    return name;
}

}  // namespace

uint32_t kxIfcWriteData_begin_instance(kxIfcWriteData *write_data, const char16_t *class_name, uint32_t class_key,
                                      uint32_t output_file_id) {
    kx_assert_not_null(write_data);
    kx_assert_not_null(class_name);
    if (write_data == nullptr) return output_file_id;
    kx_assert(!kxIfcWriteData_is_writing_nested(write_data));
    const uint32_t id = output_file_id == NEXT_ID ? write_data->next_output_id++ : output_file_id;
    const NarrowName name = keyed_class_name(write_data, class_name != nullptr ? class_name : u"", class_key);
    begin_line(write_data, write_data->class_names.text.data + name.offset, name.length, name.columns, id);
    write_data->instance_depth = 1;
    return id;
}

void kxIfcWriteData_end_instance(kxIfcWriteData *write_data) {
    kx_assert_not_null(write_data);
    if (write_data == nullptr) return;
    kx_assert(write_data->instance_depth == 1);
    if (write_data->instance_depth == 0) return;
    end_line(write_data);
    write_data->instance_depth = 0;
}

void kxIfcWriteData_set_batched(kxIfcWriteData *write_data, bool batched) {
    kx_assert_not_null(write_data);
    if (write_data == nullptr) return;
    write_data->batched = batched;
    if (batched) bytes_reserve(&write_data->pending, BATCH_BYTES + (BATCH_BYTES >> 4));
    if (!batched) flush_pending(write_data);
}

bool kxIfcWriteData_flush(kxIfcWriteData *write_data) {
    kx_assert_not_null(write_data);
    if (write_data == nullptr) return false;
    flush_pending(write_data);
    return !write_data->failed;
}

void kxIfcWriteData_set_lossless(kxIfcWriteData *write_data, bool lossless) {
    kx_assert_not_null(write_data);
    if (write_data != nullptr) write_data->lossless = lossless;
}

bool kxIfcWriteData_failed(const kxIfcWriteData *write_data) {
    return write_data == nullptr || write_data->failed;
}

bool kxIfcWriteData_is_lossless(const kxIfcWriteData *write_data) {
    return write_data != nullptr && write_data->lossless;
}

char16_t *kxIfcWriteData_decode_string(const char16_t *encoded_string) {
    kx_assert_not_null(encoded_string);
    if (encoded_string == nullptr) return kx::wstr_new_empty();
    const uint32_t length = kx::wstr_length(encoded_string);
    const char16_t *in = encoded_string;
    char16_t *decoded = static_cast<char16_t *>(kx::mem_alloc((length + 1) * sizeof(char16_t)));
    uint32_t num_decoded = 0;
    bool has_apostrophe = false;
    uint32_t i = 0;
    while (i < length) {
        char16_t c = in[i];
        uint32_t consumed = 1;
        if (c == u'\\' && i + 1 < length) {
            const uint32_t left = length - i;
            int32_t value;
            if (left >= 5 && is_x(in[i + 1]) && in[i + 2] == u'\\' &&
                (value = hex_run_value(in + i + 3, 2)) >= 0) {
                // \X\hh
                c = static_cast<char16_t>(value);
                consumed = 5;
            } else if (left >= 12 && is_x(in[i + 1]) && in[i + 2] == u'2' && in[i + 3] == u'\\' &&
                       in[i + 8] == u'\\' && is_x(in[i + 9]) && in[i + 10] == u'0' &&
                       in[i + 11] == u'\\' && (value = hex_run_value(in + i + 4, 4)) >= 0) {
                // \X2\hhhh\X0\: a group of exactly one code unit
                c = static_cast<char16_t>(value);
                consumed = 12;
            } else if (in[i + 1] == u'\\') {
                consumed = 2;
            }
        }
        if (c == u'\'') has_apostrophe = true;
        decoded[num_decoded++] = c;
        i += consumed;
    }
    // Quotes inside a string are doubled in the file.
    if (has_apostrophe) {
        uint32_t kept = 0;
        for (uint32_t j = 0; j < num_decoded; j++) {
            decoded[kept++] = decoded[j];
            if (decoded[j] == u'\'' && j + 1 < num_decoded && decoded[j + 1] == u'\'') j++;
        }
        num_decoded = kept;
    }
    decoded[num_decoded] = u'\0';
    return decoded;
}

char16_t *kxIfcWriteData_format_real(double value) {
    char text[REAL_TEXT_SIZE];
    const uint32_t length = format_real_text(value, text);
    return kx::wstr_from_narrow_n(text, length);
}
