// The value writers: one instance at a time is assembled into a buffer of
// parameter items (nested lists and typed values through a stack of
// buffers), then printed as one instance line of an exchange file, wrapped
// at 120 columns. Also the STEP string encoding and decoding and the real
// number format. Internal to the library.
#pragma once

#include <cstdint>
#include <cstdio>

#include "support/types.h"

struct kxIfcWriteData;

// Opens/closes groups and appends values to the current group.
kxIfcWriteData *kxIfcWriteData_new(FILE *output);
void kxIfcWriteData_free(kxIfcWriteData **write_data);
kx_bool16 kxIfcWriteData_is_writing_nested(const kxIfcWriteData *write_data);
void kxIfcWriteData_begin_parameters(kxIfcWriteData *write_data);
void kxIfcWriteData_begin_typed_value(kxIfcWriteData *write_data);
// A typed value whose name is known before its value (the name is given
// again when it is closed). The only kind an instance begun with
// kxIfcWriteData_begin_instance takes. The names given to this and to
// kxIfcWriteData_begin_instance are kept narrowed by their address: they
// must stay unchanged while the writer lives, as the schema's names do.
void kxIfcWriteData_begin_named_value(kxIfcWriteData *write_data, const char16_t *type_name);
void kxIfcWriteData_end_list(kxIfcWriteData *write_data);
void kxIfcWriteData_end_typed_value(kxIfcWriteData *write_data, const char16_t *type_name);
void kxIfcWriteData_write_reference(kxIfcWriteData *write_data, uint32_t output_file_id);
void kxIfcWriteData_write_integer(kxIfcWriteData *write_data, int32_t value);
void kxIfcWriteData_write_real(kxIfcWriteData *write_data, double value);
// Ready text: ".NOTDEFINED.", ".T.", ".U." and other pre-formatted tokens.
void kxIfcWriteData_write_text(kxIfcWriteData *write_data, const char16_t *text);
// Ready text that stays unchanged while the writer lives (an enumeration
// literal of the schema, ".T."): narrowed once and then found by address.
void kxIfcWriteData_write_literal(kxIfcWriteData *write_data, const char16_t *literal);
void kxIfcWriteData_write_text_owned(kxIfcWriteData *write_data, char16_t **text);
// A string value: encoded and wrapped in single quotes.
void kxIfcWriteData_write_string(kxIfcWriteData *write_data, const char16_t *text);
// A binary value given as its bits ('0'/'1' characters): written as the
// STEP binary literal, a double-quoted hex text led by the count of unused
// leading bits ("0" for whole nibbles).
void kxIfcWriteData_write_binary(kxIfcWriteData *write_data, const char16_t *bits);
void kxIfcWriteData_write_unset(kxIfcWriteData *write_data);
void kxIfcWriteData_write_derived(kxIfcWriteData *write_data);

// Prints "#id= NAME(...);" from the current buffer. An id of 0xFFFFFFFF
// takes the next id of the writer's own counter; the id used is stored
// through id_out when it is not NULL.
void kxIfcWriteData_write_entity_line(kxIfcWriteData *write_data, const char16_t *class_name,
                                      uint32_t output_file_id, uint32_t *id_out);
// An instance line printed as its values come: "#id= NAME(" at once, each
// value as it is written, ");" at kxIfcWriteData_end_instance. Not while
// another instance is open. An id of 0xFFFFFFFF takes the next id of the
// writer's counter; returns the id used. The class key is a small number
// that stands for the name (the class id), for finding its narrow form by
// index; 0xFFFFFFFF when there is none.
uint32_t kxIfcWriteData_begin_instance(kxIfcWriteData *write_data, const char16_t *class_name, uint32_t class_key,
                                       uint32_t output_file_id);
void kxIfcWriteData_end_instance(kxIfcWriteData *write_data);
// Prints text followed by ";" and a line end (file frame and header).
void kxIfcWriteData_write_line(kxIfcWriteData *write_data, const char16_t *text);
void kxIfcWriteData_write_newline(kxIfcWriteData *write_data);

// The lossless mode: reals in their shortest exact form, strings by the
// full escape rules (one \X2\ group per run of non-ASCII code units).
void kxIfcWriteData_set_lossless(kxIfcWriteData *write_data, bool lossless);
bool kxIfcWriteData_is_lossless(const kxIfcWriteData *write_data);
// Batched, the writer hands its lines to the file in pieces of about a
// megabyte instead of one by one; kxIfcWriteData_flush (or freeing the
// writer) hands over the rest. Flushing tells whether all output so far
// could be written.
void kxIfcWriteData_set_batched(kxIfcWriteData *write_data, bool batched);
bool kxIfcWriteData_flush(kxIfcWriteData *write_data);
// Whether some output could not be written (a full disk, a size limit).
bool kxIfcWriteData_failed(const kxIfcWriteData *write_data);

// New strings: the STEP string encoding of a text, and its decoding.
char16_t *kxIfcWriteData_encode_string(const char16_t *text);
char16_t *kxIfcWriteData_decode_string(const char16_t *encoded);
// New string: a real in the exchange-file form ("0.", "3.", "-0.5", "1.E-05").
char16_t *kxIfcWriteData_format_real(double value);
