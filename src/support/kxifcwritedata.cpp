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
    // The instance line being printed.
    ByteBuffer line;
    FILE *output;
    bool lossless;  // shortest exact reals, strings by the full escape rules
    bool failed;    // some output could not be written
};

namespace {

uint32_t grown_capacity(uint32_t capacity, uint64_t needed) {
    uint64_t grown = capacity < 64 ? 64 : static_cast<uint64_t>(capacity) * 2;
    while (grown < needed) grown *= 2;
    kx_assert(grown <= 0xFFFFFFFFull);
    return static_cast<uint32_t>(grown);
}

// Room for `extra` more bytes; returns where they go.
char *bytes_reserve(ByteBuffer *buffer, uint32_t extra) {
    const uint64_t needed = static_cast<uint64_t>(buffer->length) + extra;
    if (needed > buffer->capacity) {
        buffer->capacity = grown_capacity(buffer->capacity, needed);
        buffer->data = static_cast<char *>(kx::mem_realloc(buffer->data, buffer->capacity));
    }
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
    const uint32_t units = kx::wstr_length(text);
    char *destination = bytes_reserve(buffer, units);
    uint32_t i = 0;
    while (i < units && text[i] < 0x80) {
        destination[i] = static_cast<char>(text[i]);
        i++;
    }
    buffer->length += i;
    if (i < units) {
        char *utf8 = kx::wstr_to_utf8(text + i);
        bytes_append(buffer, utf8, static_cast<uint32_t>(std::strlen(utf8)));
        kx::mem_free(utf8);
    }
    return units;
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

void parameter_append_value(kxIfcWriteData *write_data, const char *bytes, uint32_t length) {
    bytes_append(&write_data->text, bytes, length);
    parameter_append_text_tail(write_data, PARAMETER_VALUE, length, length);
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
char *put_ulong(char *destination, uint32_t value) {
    return std::to_chars(destination, destination + 10, value).ptr;
}

char *put_long(char *destination, int32_t value) {
    return std::to_chars(destination, destination + 11, value).ptr;
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
uint32_t format_real_text(double value, char (&text)[REAL_TEXT_SIZE]) {
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
inline uint32_t encoded_width(char16_t c) {
    if (c < 0x20 || c > 0x7E) return 12;
    return (c == u'\'' || c == u'\\') ? 2 : 1;
}

// Encodes the text into `destination` (room for 12 characters per code
// unit); returns the end. Char is char for the file, char16_t for strings.
template <typename Char>
Char *encode_into(const char16_t *text, Char *destination) {
    for (; *text != u'\0'; text++) {
        const char16_t c = *text;
        if (c < 0x20 || c > 0x7E) {
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
        } else if (c == u'\'' || c == u'\\') {
            destination[0] = static_cast<Char>(c);
            destination[1] = static_cast<Char>(c);
            destination += 2;
        } else {
            *destination++ = static_cast<Char>(c);
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

// Prints the buffer as it stands to the output.
void print_bytes(kxIfcWriteData *write_data, const char *bytes, size_t length) {
    if (write_data->output != nullptr && length > 0 &&
        std::fwrite(bytes, 1, length, write_data->output) != length)
        write_data->failed = true;
}

}  // namespace

kxIfcWriteData *kxIfcWriteData_new(FILE *output) {
    kx_assert_not_null(output);
    kxIfcWriteData *write_data = kx::mem_new_zeroed<kxIfcWriteData>();
    write_data->next_output_id = 1;
    write_data->current_operation = OPERATION_NONE;
    write_data->output = output;
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
    kx::mem_free(write_data->parameters);
    kx::mem_free(write_data->stack);
    bytes_free(&write_data->text);
    bytes_free(&write_data->line);
    kx::mem_free_and_clear(holder);
}

kx_bool16 kxIfcWriteData_is_writing_nested(const kxIfcWriteData *write_data) {
    kx_assert_not_null(write_data);
    if (write_data == nullptr) return FALSO;
    return write_data->num_stacked_buffers > 0 ? CIERTO : FALSO;
}

void kxIfcWriteData_begin_parameters(kxIfcWriteData *write_data) {
    kx_assert_not_null(write_data);
    if (write_data == nullptr) return;
    begin_group(write_data, OPERATION_PARAMETERS);
}

void kxIfcWriteData_begin_typed_value(kxIfcWriteData *write_data) {
    kx_assert_not_null(write_data);
    if (write_data == nullptr) return;
    begin_group(write_data, OPERATION_TYPED_VALUE);
}

void kxIfcWriteData_end_list(kxIfcWriteData *write_data) {
    kx_assert_not_null(write_data);
    if (write_data == nullptr) return;
    end_group(write_data, nullptr);
}

void kxIfcWriteData_end_typed_value(kxIfcWriteData *write_data, const char16_t *type_name) {
    kx_assert_not_null(write_data);
    kx_assert_not_null(type_name);
    if (write_data == nullptr) return;
    end_group(write_data, type_name != nullptr ? type_name : u"");
}

void kxIfcWriteData_write_reference(kxIfcWriteData *write_data, uint32_t output_file_id) {
    kx_assert_not_null(write_data);
    if (write_data == nullptr) return;
    char text[16];
    text[0] = '#';
    const char *end = put_ulong(text + 1, output_file_id);
    parameter_append_value(write_data, text, static_cast<uint32_t>(end - text));
}

void kxIfcWriteData_write_integer(kxIfcWriteData *write_data, int32_t value) {
    kx_assert_not_null(write_data);
    if (write_data == nullptr) return;
    char text[16];
    const char *end = put_long(text, value);
    parameter_append_value(write_data, text, static_cast<uint32_t>(end - text));
}

void kxIfcWriteData_write_real(kxIfcWriteData *write_data, double value) {
    kx_assert_not_null(write_data);
    if (write_data == nullptr) return;
    // Infinities and NaNs have no STEP form: the value is written unset.
    if (!std::isfinite(value)) {
        parameter_append_fixed(write_data, PARAMETER_UNSET);
        return;
    }
    char text[REAL_TEXT_SIZE];
    const uint32_t length =
        write_data->lossless ? kx::step_format_real_shortest(value, text) : format_real_text(value, text);
    parameter_append_value(write_data, text, length);
}

void kxIfcWriteData_write_text(kxIfcWriteData *write_data, const char16_t *value_text) {
    kx_assert_not_null(write_data);
    kx_assert_not_null(value_text);
    if (write_data == nullptr || value_text == nullptr) return;
    parameter_append_wide_value(write_data, value_text);
}

void kxIfcWriteData_write_text_owned(kxIfcWriteData *write_data, char16_t **value_text) {
    kx_assert_not_null(write_data);
    kx_assert_not_null(value_text);
    if (write_data == nullptr || value_text == nullptr) return;
    kx_assert_not_null(*value_text);
    if (*value_text == nullptr) return;
    parameter_append_wide_value(write_data, *value_text);
    kx::wstr_destroy(value_text);
}

void kxIfcWriteData_write_string(kxIfcWriteData *write_data, const char16_t *value_text) {
    kx_assert_not_null(write_data);
    kx_assert_not_null(value_text);
    if (write_data == nullptr || value_text == nullptr) return;
    ByteBuffer *text = &write_data->text;
    const uint32_t units = kx::wstr_length(value_text);
    char *start = bytes_reserve(text, units * 12 + 2);
    char *end = start;
    *end++ = '\'';
    end = write_data->lossless ? end + kx::step_encode_string(value_text, end) : encode_into(value_text, end);
    *end++ = '\'';
    const uint32_t length = static_cast<uint32_t>(end - start);
    text->length += length;
    parameter_append_text_tail(write_data, PARAMETER_VALUE, length, length);
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
    ByteBuffer *text = &write_data->text;
    char *start = bytes_reserve(text, num_digits + 3);
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
    const uint32_t length = static_cast<uint32_t>(end - start);
    text->length += length;
    parameter_append_text_tail(write_data, PARAMETER_VALUE, length, length);
}

void kxIfcWriteData_write_unset(kxIfcWriteData *write_data) {
    kx_assert_not_null(write_data);
    if (write_data == nullptr) return;
    parameter_append_fixed(write_data, PARAMETER_UNSET);
}

void kxIfcWriteData_write_derived(kxIfcWriteData *write_data) {
    kx_assert_not_null(write_data);
    if (write_data == nullptr) return;
    parameter_append_fixed(write_data, PARAMETER_DERIVED);
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

    // "#%lu= %s(" with the class name in upper case.
    ByteBuffer *line = &write_data->line;
    line->length = 0;
    char head[16];
    head[0] = '#';
    char *head_end = put_ulong(head + 1, id);
    *head_end++ = '=';
    *head_end++ = ' ';
    bytes_append(line, head, static_cast<uint32_t>(head_end - head));
    const uint32_t name_start = line->length;
    uint32_t column = static_cast<uint32_t>(head_end - head) + bytes_append_wide(line, class_name);
    for (uint32_t i = name_start; i < line->length; i++) {
        char &c = line->data[i];
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    }
    bytes_append(line, "(", 1);
    column += 1;

    // The parameters: at most a comma, a line end and the text per item.
    const Parameter *items = write_data->parameters;
    const uint32_t first = write_data->current_start;
    const uint32_t count = write_data->num_parameters;
    const uint32_t text_bytes =
        write_data->text.length -
        (write_data->num_stacked_buffers > 0
             ? write_data->stack[write_data->num_stacked_buffers - 1].text_start
             : 0);
    char *out = bytes_reserve(line, text_bytes + 3 * (count - first) + 3);
    const char *text = write_data->text.data;
    uint32_t kind_prev = PARAMETER_OPEN;
    for (uint32_t i = first; i < count; i++) {
        const Parameter &parameter = items[i];
        const uint32_t kind = parameter.kind;
        if (i > first) {
            bool comma = false;
            bool may_break = true;
            switch (kind) {
                case PARAMETER_TYPE_NAME:
                    comma = kind_prev != PARAMETER_OPEN;
                    may_break = false;
                    break;
                case PARAMETER_UNSET:
                case PARAMETER_DERIVED:
                case PARAMETER_VALUE: comma = kind_prev != PARAMETER_OPEN; break;
                case PARAMETER_OPEN:
                    comma = kind_prev != PARAMETER_OPEN && kind_prev != PARAMETER_TYPE_NAME;
                    may_break = kind_prev != PARAMETER_TYPE_NAME;
                    break;
                case PARAMETER_CLOSE: break;
                default: kx_assert_unreachable(); break;
            }
            if (comma) {
                *out++ = ',';
                column++;
            }
            if (may_break && column + parameter.columns > MAX_LINE_COLUMNS) {
                *out++ = '\n';
                column = 0;
            }
        }
        switch (kind) {
            case PARAMETER_OPEN: *out++ = '('; break;
            case PARAMETER_CLOSE: *out++ = ')'; break;
            case PARAMETER_UNSET: *out++ = '$'; break;
            case PARAMETER_DERIVED: *out++ = '*'; break;
            case PARAMETER_TYPE_NAME:
            case PARAMETER_VALUE:
                std::memcpy(out, text + parameter.offset, parameter.length);
                out += parameter.length;
                break;
            default: kx_assert_unreachable(); break;
        }
        column += parameter.columns;
        kind_prev = kind;
    }
    *out++ = ')';
    *out++ = ';';
    *out++ = '\n';
    line->length = static_cast<uint32_t>(out - line->data);
    print_bytes(write_data, line->data, line->length);

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
    ByteBuffer *line = &write_data->line;
    line->length = 0;
    bytes_append_wide(line, text);
    bytes_append(line, ";\n", 2);
    print_bytes(write_data, line->data, line->length);
}

void kxIfcWriteData_write_newline(kxIfcWriteData *write_data) {
    kx_assert_not_null(write_data);
    if (write_data == nullptr) return;
    print_bytes(write_data, "\n", 1);
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
