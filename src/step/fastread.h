// The direct read of instance lines: for classes whose attributes are plain
// values, references, select values and lists of those, the parameters of a line go
// from the scanner straight into the record, without a parameter list. A
// line that does not fit its class exactly is handed back (the record reset)
// for the general read, which reports what is wrong with it. References to
// instances further on in the file are noted and resolved at the end.
#pragma once

#include <cstdint>

#include "kxifc_defs.h"
#include "kxifc_files.h"
#include "schema/aggregate.h"
#include "step/idindex.h"

struct kxBaseObject;
struct kxAggregate;
struct kxClass_t;

namespace kx {

struct Scanner;
struct Token;

// A reference to an id not read yet: where to store the instance once it
// exists, and the class it must be kind of (or, for a select, the select
// whose value it becomes).
struct ForwardReference {
    kxBaseObject *owner;
    kxAggregate *aggregate;   // NULL: a slot of the owner
    uint32_t place;           // byte offset in the owner, or index in the aggregate
    uint32_t file_id;
    uint32_t expected_class;  // an entity class, or a select class
    uint32_t attribute;       // from 1, in the owner's release
    uint32_t line;            // where the reference stands
    uint32_t column;
};

// A value a lenient read could not take: its attribute (from 1) and place.
struct BadValue {
    uint32_t attribute;
    uint32_t line;
    uint32_t column;
};

// Makes a select value through whatever owns the instances being read.
using CreateValueFn = kxBaseObject *(*)(void *context, const kxClass_t *klass);

struct FastReader {
    const IdIndex *ids = nullptr;
    kxIfcVersion_t version = ifc_version_not_defined;
    CreateValueFn create_value = nullptr;
    void *create_context = nullptr;
    bool lossless = false;
    kxReadReport *report = nullptr;
    bool count_differs = false;                  // the last line had too few or too many values,
    uint32_t given_attributes = 0;               // this many
    TrackedVector<BadValue> bad_values;          // values a lenient read passed over

    TrackedVector<uint8_t> class_is_direct;      // by class id
    TrackedVector<uint32_t> last_typed_member;   // by select class id: the member a typed value last named
    TrackedVector<ForwardReference> forward;
    TrackedVector<kxAggregateCell> scratch;      // elements of the lists being read
};

void fastread_init(FastReader *reader, const IdIndex *ids, kxIfcVersion_t version, CreateValueFn create_value,
                   void *create_context, bool lossless, kxReadReport *report);
inline bool fastread_class_is_direct(const FastReader &reader, const kxClass_t *klass);
// Reads "(...)" of a line into the instance. False when the line must be
// read by the general path: the record is then reset and the scanner's
// position is undefined (the caller seeks back).
// A line with anything to report (a string escape, a number out of range)
// is handed back too.
// A lenient read passes over the values that do not fit (their attributes
// stay unset, listed in `bad_values`) instead: it is used for lines too long
// to collect value by value.
bool fastread_line(FastReader *reader, Scanner *scanner, kxBaseObject *instance, bool lenient = false);
// Stores every forward reference; false when some named no instance of the
// right class (those places stay empty, and are reported when `report_lost`).
bool fastread_resolve(FastReader *reader, bool report_lost);

}  // namespace kx

#include "core/class.h"

inline bool kx::fastread_class_is_direct(const FastReader &reader, const kxClass_t *klass) {
    return reader.class_is_direct[klass->unique_class_id] != 0;
}
