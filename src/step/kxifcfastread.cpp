#define KX_UNIT "kxifcfastread"
#include "step/fastread.h"

#include <cmath>
#include <cstring>

#include "core/baseobject.h"
#include "core/coretypes.h"
#include "schema/aggregate.h"
#include "schema/engines.h"
#include "schema/select.h"
#include "step/readreport.h"
#include "step/scanner.h"
#include "support/steptext.h"
#include "support/memory.h"
#include "support/threads.h"
#include "support/wstring.h"

namespace kx {

namespace {

bool is_plain_kind(uint8_t kind) {
    return kind == SLOT_STRING || kind == SLOT_REAL || kind == SLOT_INTEGER || kind == SLOT_BOOLEAN ||
           kind == SLOT_LOGICAL || kind == SLOT_ENUM;
}

bool is_direct_kind(uint8_t kind, uint32_t type_ref) {
    if (is_plain_kind(kind) || kind == SLOT_ENTITY) return true;
    if (kind == SLOT_AGGREGATE) {
        const AggregateInfo &info = g_aggregates[type_ref];
        return is_direct_kind(info.element_kind, info.element_ref);
    }
    // Select values are read directly when they are instances or plain
    // values; a binary or aggregate member hands its line back.
    return kind == SLOT_SELECT;
}

// The member of a select that an instance of the class fits, or 0.
uint32_t instance_member(const SelectInfo &info, const kxBaseObject *target, uint8_t release_bit) {
    for (uint32_t code = 1; code <= info.num_members; code++) {
        const SelectMember &member = info.members[code - 1];
        if ((member.releases & release_bit) != 0 && member.kind == SLOT_ENTITY &&
            class_is_kind_of(target->object_class, g_classes[member.type_ref], target->ifc_version))
            return code;
    }
    return 0;
}

// The value member of a select that a typed value's name names, or 0.
// Whether member `code` of a select is the plain type a typed value names.
bool member_is_named(const SelectInfo &info, uint32_t code, const Token &name, uint8_t release_bit) {
    const SelectMember &member = info.members[code - 1];
    if ((member.releases & release_bit) == 0 || member.kind == SLOT_ENTITY) return false;
    const char16_t *member_name =
        member.kind == SLOT_ENUM ? g_enums[member.type_ref].name : g_defined_types[member.type_ref].name;
    // Every name starts "Ifc": the letter after it rules most members out.
    if (name.length > 3 && (member_name[3] | 0x20) != (name.text[3] | 0x20)) return false;
    return token_spells(member_name, name.text, name.length);
}

// The member a typed value names, tried first against the member the same
// select took last (*last), for a file tends to repeat its value types.
uint32_t typed_member(const SelectInfo &info, const Token &name, uint8_t release_bit, uint32_t *last) {
    if (*last != 0 && member_is_named(info, *last, name, release_bit)) return *last;
    for (uint32_t code = 1; code <= info.num_members; code++)
        if (member_is_named(info, code, name, release_bit)) return *last = code;
    return 0;
}

// Stores an instance (holding one retain) at a place of a record or aggregate.
void store_at(kxBaseObject *owner, kxAggregate *aggregate, uint32_t place, kxBaseObject *value) {
    if (aggregate != nullptr)
        aggregate->items[place].object = value;
    else
        record_slot<kxBaseObject *>(owner, place) = value;
}

inline char upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; }

// A dotted token compared without case with a library literal.
bool literal_equals(const char *text, size_t length, const char16_t *literal) {
    for (size_t i = 0; i < length; i++, literal++)
        if (*literal == 0 || upper(text[i]) != static_cast<char>(*literal)) return false;
    return *literal == 0;
}

int32_t enum_value(const EnumInfo &info, const Token &token) {
    for (uint32_t value = 1; value < info.num_values; value++)
        if (literal_equals(token.text, token.length, info.literals[value])) return static_cast<int32_t>(value);
    return 0;
}

// BOOLEAN and LOGICAL: 1, 0, -1 (unknown), or 2 for a token that is neither.
int32_t truth_value(const Token &token, bool logical) {
    if (token.kind != TOKEN_BOOLEAN && token.kind != TOKEN_ENUM) return 2;
    if (token.length == 3 || literal_equals(token.text, token.length, u".TRUE.") ||
        literal_equals(token.text, token.length, u".FALSE.") ||
        literal_equals(token.text, token.length, u".UNKNOWN.")) {
        const char letter = upper(token.text[1]);
        if (letter == 'T') return 1;
        if (letter == 'F') return 0;
        if (letter == 'U' && logical) return -1;
    }
    return 2;
}

// A select value read from a line, made only once the whole line fitted
// (so a line handed back leaves no value objects behind).
struct PendingSelect {
    kxAggregate *aggregate;  // NULL: a slot of the instance
    uint32_t place;
    uint32_t select_class;
    uint32_t code;
    kxSelectValue value;     // an instance holds a retain
};

class LineReader {
public:
    LineReader(FastReader *reader, Scanner *scanner, kxBaseObject *instance)
        : reader_(reader), scanner_(scanner), instance_(instance),
          release_bit_(static_cast<uint8_t>(1u << instance->ifc_version)) {}

    ~LineReader() {
        // Values of a line that did not fit.
        for (PendingSelect &pending : pending_) release_pending(pending);
    }

    static void release_pending(PendingSelect &pending) {
        const SelectMember &member = g_classes[pending.select_class]->select->members[pending.code - 1];
        if (member.kind == SLOT_ENTITY) baseobject_release(&pending.value.object);
        if (member.kind == SLOT_STRING) wstr_destroy_optional(&pending.value.string);
    }

    // Makes the select values of a line that fitted.
    void make_selects() {
        for (PendingSelect &pending : pending_) {
            kxBaseObject *select = reader_->create_value(reader_->create_context, g_classes[pending.select_class]);
            kxSelectObject *object = reinterpret_cast<kxSelectObject *>(select);
            object->value = pending.value;
            object->type = pending.code;
            shared_count_add(&select->retain_count);  // the holder's reference; the list of instances keeps its own
            store_at(instance_, pending.aggregate, pending.place, select);
        }
        pending_.clear();
    }

    // Reads the attributes of the line. Too few values leave the rest unset
    // and too many are passed over: both are noted in `given_attributes`
    // for the caller to report, so a line that is merely short or long is
    // never collected again value by value.
    bool read_parameters() {
        const ClassRelease *release = class_release(instance_->object_class, instance_->ifc_version);
        if (scanner_next(scanner_).kind != TOKEN_BEGIN_PAR) return false;
        Token token = scanner_next(scanner_);
        for (uint32_t i = 0; i < release->num_attrs; i++) {
            if (token.kind == TOKEN_END_PAR) return counted(i);
            if (i > 0) {
                if (token.kind != TOKEN_COMMA) return false;
                token = scanner_next(scanner_);
            }
            const AttrRef &attr = release->attrs[i];
            attribute_ = i + 1;
            const size_t forward_mark = reader_->forward.size(), pending_mark = pending_.size();
            if (!read_attribute(token, g_slots[attr.slot], reinterpret_cast<char *>(instance_) + attr.offset,
                                attr.offset) &&
                !pass_over_bad_value(token, forward_mark, pending_mark))
                return false;
            token = scanner_next(scanner_);
        }
        return token.kind == TOKEN_END_PAR || (token.kind == TOKEN_COMMA && skip_extra_values(release->num_attrs));
    }

    // Whether a value that does not fit is passed over (its attribute left
    // unset and noted) instead of handing the whole line back.
    bool lenient = false;

private:
    // A value that did not fit its attribute, in a lenient read: what it
    // left behind goes, the value is noted and skipped. (A failed attribute
    // read stores nothing in its slot.)
    bool pass_over_bad_value(const Token &value, size_t forward_mark, size_t pending_mark) {
        if (!lenient) return false;
        reader_->forward.resize(forward_mark);
        for (size_t i = pending_mark; i < pending_.size(); i++) release_pending(pending_[i]);
        pending_.resize(pending_mark);
        reader_->bad_values.push_back({attribute_, value.line, value.column});
        scanner_seek(scanner_, value.text, value.line);
        return skip_value();
    }

    // Passes over one value: a token, a "(...)" group or a typed value.
    bool skip_value() {
        Token token = scanner_next(scanner_);
        if (token.kind == TOKEN_TYPE_NAME) token = scanner_next(scanner_);
        if (token.kind != TOKEN_BEGIN_PAR)
            return token.kind != TOKEN_END && token.kind != TOKEN_DOTCOMA && token.kind != TOKEN_COMMA &&
                   token.kind != TOKEN_END_PAR;
        for (uint32_t depth = 1; depth > 0;) {
            token = scanner_next(scanner_);
            if (token.kind == TOKEN_BEGIN_PAR) depth++;
            else if (token.kind == TOKEN_END_PAR) depth--;
            else if (token.kind == TOKEN_END || token.kind == TOKEN_DOTCOMA) return false;
        }
        return true;
    }

    // A line with another number of values than attributes: noted.
    bool counted(uint32_t given) {
        reader_->count_differs = true;
        reader_->given_attributes = given;
        return true;
    }

    // Counts and passes over the values after the last attribute, up to the
    // line's ")".
    bool skip_extra_values(uint32_t given) {
        uint32_t depth = 0;
        given++;
        for (;;) {
            const Token token = scanner_next(scanner_);
            if (token.kind == TOKEN_BEGIN_PAR) {
                depth++;
            } else if (token.kind == TOKEN_END_PAR) {
                if (depth == 0) return counted(given);
                depth--;
            } else if (token.kind == TOKEN_COMMA) {
                if (depth == 0) given++;
            } else if (token.kind == TOKEN_END || token.kind == TOKEN_DOTCOMA) {
                return false;
            }
        }
    }

    bool read_attribute(const Token &token, const SlotInfo &slot, char *address, uint32_t offset) {
        if (token.kind == TOKEN_NULL_VALUE || token.kind == TOKEN_DERIVED_VALUE) return true;
        if (slot.kind == SLOT_AGGREGATE)
            return token.kind == TOKEN_BEGIN_PAR && read_elements(slot.type_ref, reinterpret_cast<kxAggregate **>(address));
        if (slot.kind == SLOT_ENTITY)
            return read_reference(token, slot.type_ref, reinterpret_cast<kxBaseObject **>(address), nullptr, offset);
        if (slot.kind == SLOT_SELECT) return read_select(token, slot.type_ref, nullptr, offset);
        return read_value(token, slot.kind, slot.type_ref, address);
    }

    // A select value: an instance of one of its classes, or NAME(value).
    bool read_select(const Token &token, uint32_t select_class, kxAggregate *aggregate, uint32_t place) {
        const SelectInfo &info = *g_classes[select_class]->select;
        PendingSelect pending{aggregate, place, select_class, 0, kxSelectValue{}};
        if (token.kind == TOKEN_ENTITY_REFERENCE) {
            kxBaseObject *target = reader_->ids->find(token.id);
            if (target == nullptr) {
                note_forward(token, aggregate, place, select_class);
                return true;
            }
            pending.code = instance_member(info, target, release_bit_);
            if (pending.code == 0) return false;
            shared_count_add(&target->retain_count);
            pending.value.object = target;
        } else if (token.kind == TOKEN_TYPE_NAME) {
            pending.code = typed_member(info, token, release_bit_, &reader_->last_typed_member[select_class]);
            if (pending.code == 0 || scanner_next(scanner_).kind != TOKEN_BEGIN_PAR) return false;
            const SelectMember &member = info.members[pending.code - 1];
            if (!is_plain_kind(member.kind)) return false;
            const Token value = scanner_next(scanner_);
            if (!read_value(value, member.kind, member.type_ref, &pending.value)) return false;
            pending_.push_back(pending);  // owned now: freed by the destructor if the line fails
            return scanner_next(scanner_).kind == TOKEN_END_PAR;
        } else {
            return false;
        }
        pending_.push_back(pending);
        return true;
    }

    // A plain value into a slot or cell.
    bool read_value(const Token &token, uint8_t kind, uint32_t type_ref, void *address) {
        switch (kind) {
        case SLOT_STRING: {
            if (token.kind != TOKEN_STRING) return false;
            StringIssue issue;
            issue.warnings_wanted = reader_->report != nullptr;
            char16_t *value = step_string_value(token.text, token.length, reader_->lossless, &issue);
            if (issue.count > 0) {
                wstr_destroy(&value);
                return false;
            }
            *static_cast<char16_t **>(address) = value;
            return true;
        }
        case SLOT_REAL:
            if (token.kind == TOKEN_REAL && std::isfinite(token.real))
                *static_cast<double *>(address) = token.real;
            else if (token.kind == TOKEN_INT)
                *static_cast<double *>(address) =
                    token_integer_fits(token) ? token.integer : scanner_real_value(token.text, token.length);
            else
                return false;
            return true;
        case SLOT_INTEGER:
            if (token.kind != TOKEN_INT || !token_integer_fits(token)) return false;
            *static_cast<int32_t *>(address) = token.integer;
            return true;
        case SLOT_BOOLEAN:
        case SLOT_LOGICAL: {
            const int32_t value = truth_value(token, kind == SLOT_LOGICAL);
            if (value == 2) return false;
            *static_cast<int32_t *>(address) = value;
            return true;
        }
        case SLOT_ENUM: {
            if (token.kind != TOKEN_ENUM && token.kind != TOKEN_BOOLEAN) return false;
            const EnumInfo &info = g_enums[type_ref];
            const int32_t value = enum_value(info, token);
            if (value == 0 || !enum_is_member_of_release(info, value, reader_->version)) return false;
            *static_cast<int32_t *>(address) = value;
            return true;
        }
        default:
            return false;
        }
    }

    // A reference: stored now when the instance exists, noted otherwise.
    bool read_reference(const Token &token, uint32_t class_id, kxBaseObject **address, kxAggregate *aggregate,
                        uint32_t place) {
        if (token.kind != TOKEN_ENTITY_REFERENCE) return false;
        kxBaseObject *target = reader_->ids->find(token.id);
        if (target == nullptr) {
            note_forward(token, aggregate, place, class_id);
            return true;
        }
        if (!class_is_kind_of(target->object_class, g_classes[class_id], target->ifc_version)) return false;
        shared_count_add(&target->retain_count);
        *address = target;
        return true;
    }

    // The elements of a list whose "(" was read, up to its ")", into a new
    // aggregate made in one block once its size is known. Until then the
    // elements wait in the reader's scratch list (nested lists above their
    // outer list's), and places noted for later (forward references, select
    // values) name the scratch list by position.
    bool read_elements(uint32_t aggregate_index, kxAggregate **result) {
        const AggregateInfo &info = g_aggregates[aggregate_index];
        TrackedVector<kxAggregateCell> &scratch = reader_->scratch;
        const size_t base = scratch.size();
        const size_t forward_mark = reader_->forward.size(), pending_mark = pending_.size();
        Token token = scanner_next(scanner_);
        if (token.kind != TOKEN_END_PAR) {
            for (;;) {
                const uint32_t index = static_cast<uint32_t>(scratch.size());
                scratch.push_back(kxAggregateCell{});
                bool ok;
                if (info.element_kind == SLOT_AGGREGATE) {
                    kxAggregate *inner = nullptr;
                    ok = token.kind == TOKEN_BEGIN_PAR && read_elements(info.element_ref, &inner);
                    scratch[index].aggregate = inner;
                } else if (info.element_kind == SLOT_ENTITY) {
                    kxBaseObject *target = nullptr;
                    ok = read_reference(token, info.element_ref, &target, scratch_marker(), index);
                    scratch[index].object = target;
                } else if (info.element_kind == SLOT_SELECT) {
                    ok = read_select(token, info.element_ref, scratch_marker(), index);
                } else {
                    ok = read_value(token, info.element_kind, info.element_ref, &scratch[index]);
                }
                if (ok) {
                    token = scanner_next(scanner_);
                    if (token.kind == TOKEN_END_PAR) break;
                    ok = token.kind == TOKEN_COMMA;
                    if (ok) token = scanner_next(scanner_);
                }
                if (!ok) {
                    drop_scratch(base, aggregate_index);
                    return false;
                }
            }
        }
        const uint32_t count = static_cast<uint32_t>(scratch.size() - base);
        kxAggregate *aggregate = aggregate_from_cells(scratch.data() + base, count);
        scratch.resize(base);
        // Places noted in this list's scratch range now name the aggregate.
        for (size_t i = forward_mark; i < reader_->forward.size(); i++)
            settle(reader_->forward[i].aggregate, reader_->forward[i].place, aggregate, base);
        for (size_t i = pending_mark; i < pending_.size(); i++) settle(pending_[i].aggregate, pending_[i].place, aggregate, base);
        *result = aggregate;
        return true;
    }

    void note_forward(const Token &token, kxAggregate *aggregate, uint32_t place, uint32_t expected_class) {
        reader_->forward.push_back(
            {instance_, aggregate, place, token.id, expected_class, attribute_, token.line, token.column});
    }

    static kxAggregate *scratch_marker() {
        static kxAggregate marker{};
        return &marker;
    }

    static void settle(kxAggregate *&aggregate, uint32_t &place, kxAggregate *made, size_t base) {
        if (aggregate == scratch_marker() && place >= base) {
            aggregate = made;
            place -= static_cast<uint32_t>(base);
        }
    }

    // Frees what the scratch cells of a list that did not fit hold.
    void drop_scratch(size_t base, uint32_t aggregate_index) {
        TrackedVector<kxAggregateCell> &scratch = reader_->scratch;
        kxAggregate *held = aggregate_from_cells(scratch.data() + base, static_cast<uint32_t>(scratch.size() - base));
        scratch.resize(base);
        aggregate_free(&held, aggregate_index);
    }

    FastReader *reader_;
    Scanner *scanner_;
    kxBaseObject *instance_;
    uint8_t release_bit_;
    uint32_t attribute_ = 0;
    TrackedVector<PendingSelect> pending_;
};

// A reference that named no instance, or one of the wrong class.
void report_lost_reference(FastReader *reader, const ForwardReference &reference, const kxBaseObject *target) {
    const kxReadCode code = target == nullptr ? KX_READ_UNDEFINED_REFERENCE : KX_READ_WRONG_TYPE;
    if (!report_note(reader->report, code)) return;
    ReadProblem problem;
    problem.code = code;
    problem.line = reference.line;
    problem.column = reference.column;
    problem.file_id = reference.owner->output_file_id;
    problem.entity_name = utf8_of(reference.owner->object_class->upper_name);
    problem.attribute_index = reference.attribute;
    const ClassRelease *release = class_release(reference.owner->object_class, reference.owner->ifc_version);
    if (release != nullptr && reference.attribute >= 1 && reference.attribute <= release->num_attrs)
        problem.attribute_name = utf8_of(g_slots[release->attrs[reference.attribute - 1].slot].name);
    problem.message = target == nullptr
                          ? text_format("reference to undefined #%u", reference.file_id)
                          : text_format("#%u is %s, not %s", reference.file_id,
                                        utf8_of(target->object_class->upper_name).c_str(),
                                        utf8_of(g_classes[reference.expected_class]->type_name).c_str());
    report_keep(reader->report, std::move(problem));
}

// Removes the empty cells left by references that could not be resolved.
void remove_empty_cells(kxAggregate *aggregate) {
    uint32_t kept = 0;
    for (uint32_t i = 0; i < aggregate->count; i++)
        if (aggregate->items[i].object != nullptr) aggregate->items[kept++] = aggregate->items[i];
    aggregate->count = kept;
}

}  // namespace

void fastread_init(FastReader *reader, const IdIndex *ids, kxIfcVersion_t version, CreateValueFn create_value,
                   void *create_context, bool lossless, kxReadReport *report) {
    reader->ids = ids;
    reader->lossless = lossless;
    reader->report = report;
    reader->version = version;
    reader->create_value = create_value;
    reader->create_context = create_context;
    reader->class_is_direct.assign(g_num_classes, 0);
    reader->last_typed_member.assign(g_num_classes, 0);
    for (uint32_t id = 0; id < g_num_classes; id++) {
        const ClassRelease *release = class_release(g_classes[id], version);
        if (release == nullptr || !g_classes[id]->is_entity) continue;
        bool direct = true;
        for (uint32_t i = 0; i < release->num_attrs && direct; i++) {
            const SlotInfo &slot = g_slots[release->attrs[i].slot];
            direct = is_direct_kind(slot.kind, slot.type_ref);
        }
        reader->class_is_direct[id] = direct ? 1 : 0;
    }
}

bool fastread_line(FastReader *reader, Scanner *scanner, kxBaseObject *instance, bool lenient) {
    reader->count_differs = false;
    reader->bad_values.clear();
    const size_t forward_before = reader->forward.size();
    LineReader line(reader, scanner, instance);
    line.lenient = lenient;
    if (line.read_parameters()) {
        line.make_selects();
        return true;
    }
    reader->forward.resize(forward_before);
    entity_reset_record(instance);
    return false;
}

bool fastread_resolve(FastReader *reader, bool report_lost) {
    bool all_resolved = true;
    TrackedVector<kxAggregate *> with_gaps;
    for (const ForwardReference &reference : reader->forward) {
        kxBaseObject *target = reader->ids->find(reference.file_id);
        const kxClass_t *expected = g_classes[reference.expected_class];
        kxBaseObject *value = nullptr;
        if (target != nullptr && expected->select != nullptr) {
            // A select holding the instance, made now that its class is known.
            const uint32_t code = instance_member(*expected->select, target, static_cast<uint8_t>(1u << target->ifc_version));
            if (code != 0) {
                value = reader->create_value(reader->create_context, expected);
                kxSelectObject *select = reinterpret_cast<kxSelectObject *>(value);
                shared_count_add(&target->retain_count);
                select->value.object = target;
                select->type = code;
                shared_count_add(&value->retain_count);  // the holder's reference
            }
        } else if (target != nullptr && class_is_kind_of(target->object_class, expected, target->ifc_version)) {
            shared_count_add(&target->retain_count);
            value = target;
        }
        if (value == nullptr) {
            all_resolved = false;
            if (report_lost) report_lost_reference(reader, reference, target);
            if (reference.aggregate != nullptr) with_gaps.push_back(reference.aggregate);
            continue;
        }
        store_at(reference.owner, reference.aggregate, reference.place, value);
    }
    for (kxAggregate *aggregate : with_gaps) remove_empty_cells(aggregate);
    reader->forward.clear();
    return all_resolved;
}

}  // namespace kx
