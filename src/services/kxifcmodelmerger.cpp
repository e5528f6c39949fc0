#define KX_UNIT "kxifcmodelmerger"
// The model merger: reads a main file and secondary files of one project,
// moves every instance of each secondary model into the main model, hangs
// the secondary sites, buildings and storeys under their counterparts
// (matched by GlobalId), brings storeys of one GlobalId together, replaces
// GlobalIds that collide and keeps the replacements in a table file.
#include <cmath>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "core/baseobject.h"
#include "kxifc_guid.h"
#include "kxifc_merger.h"
#include "model/model.h"
#include "support/assert.h"
#include "support/files.h"
#include "support/geometry.h"
#include "support/memory.h"
#include "support/savestream.h"
#include "support/valuearray.h"
#include "support/wstring.h"

struct kxIfcModelMerger {
    kx::WideString main_file_name;
    kx::WStrArray *secondary_file_names;
};

namespace {

using namespace kx;

template <typename T>
using Vec = std::vector<T, TrackedAllocator<T>>;
using Text = std::basic_string<char16_t, std::char_traits<char16_t>, TrackedAllocator<char16_t>>;
using TextPair = std::pair<Text, Text>;
// GlobalId -> class of the instance bearing it; keys compare case-sensitively.
using UsedGuids = std::map<Text, const kxClass_t *, std::less<Text>,
                           TrackedAllocator<std::pair<const Text, const kxClass_t *>>>;
// (source name, original GlobalId) -> GlobalId assigned in the merged model.
using TranslationTable =
    std::map<TextPair, Text, std::less<TextPair>, TrackedAllocator<std::pair<const TextPair, Text>>>;

Text text(const char16_t *value) { return value != nullptr ? Text(value) : Text(); }

// ---- placements: rigid transforms ------------------------------------------

// x' = rotation * x + origin; the rotation's columns are the axes.
struct Frame {
    double rotation[3][3];
    double origin[3];
};

Frame identity_frame() { return Frame{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}, {0, 0, 0}}; }

Frame compose(const Frame &outer, const Frame &inner) {
    Frame result{};
    for (int i = 0; i < 3; i++) {
        for (int j = 0; j < 3; j++)
            for (int k = 0; k < 3; k++) result.rotation[i][j] += outer.rotation[i][k] * inner.rotation[k][j];
        result.origin[i] = outer.origin[i];
        for (int k = 0; k < 3; k++) result.origin[i] += outer.rotation[i][k] * inner.origin[k];
    }
    return result;
}

Frame inverse(const Frame &frame) {
    Frame result{};
    for (int i = 0; i < 3; i++)
        for (int j = 0; j < 3; j++) result.rotation[i][j] = frame.rotation[j][i];
    for (int i = 0; i < 3; i++)
        for (int k = 0; k < 3; k++) result.origin[i] -= result.rotation[i][k] * frame.origin[k];
    return result;
}

// The direction's ratios, or the default when it is absent.
void direction_of(kxBaseObject *direction, const double fallback[3], double result[3]) {
    for (int i = 0; i < 3; i++) result[i] = fallback[i];
    if (direction == nullptr) return;
    kxArrIfcReal *ratios = kxIfcDirection_get_DirectionRatios_v4(direction);
    const uint32_t count = ratios != nullptr ? kxArrIfcReal_count(ratios) : 0;
    for (uint32_t i = 0; i < 3; i++) result[i] = i < count ? kxArrIfcReal_get(ratios, i) : 0.0;
}

void unit_direction(double direction[3], const double fallback[3]) {
    const bool degenerate =
        std::fabs(direction[0]) <= 1.e-10 && std::fabs(direction[1]) <= 1.e-10 && std::fabs(direction[2]) <= 1.e-10;
    kx_assert_text(!degenerate, "fabs(x) > 1.e-10 || fabs(y) > 1.e-10 || fabs(z) > 1.e-10");
    if (degenerate) {
        for (int i = 0; i < 3; i++) direction[i] = fallback[i];
        return;
    }
    vector3_unit(&direction[0], &direction[1], &direction[2]);
}

// The frame of 3D axes: z from Axis, x from RefDirection made orthogonal to
// z (y = z x ref, x = y x z), all of unit length.
Frame frame_of_axes(kxBaseObject *axes) {
    static constexpr double kZ[3] = {0, 0, 1};
    static constexpr double kX[3] = {1, 0, 0};
    Frame frame = identity_frame();
    if (axes == nullptr) return frame;
    kxBaseObject *location = kxIfcAxis2Placement3D_get_Location(axes);
    kxArrIfcLengthMeasure *coordinates = location != nullptr ? kxIfcCartesianPoint_get_Coordinates(location) : nullptr;
    const uint32_t count = coordinates != nullptr ? kxArrIfcLengthMeasure_count(coordinates) : 0;
    for (uint32_t i = 0; i < 3; i++) frame.origin[i] = i < count ? kxArrIfcLengthMeasure_get(coordinates, i) : 0.0;
    double z[3], ref[3], y[3], x[3];
    direction_of(kxIfcAxis2Placement3D_get_Axis(axes), kZ, z);
    direction_of(kxIfcAxis2Placement3D_get_RefDirection(axes), kX, ref);
    unit_direction(z, kZ);
    unit_direction(ref, kX);
    vector3_cross(z, ref, y);
    if (!vector3_unit(&y[0], &y[1], &y[2])) {
        // RefDirection along Axis: any x orthogonal to z does.
        const double other[3] = {std::fabs(z[0]) < 0.9 ? 1.0 : 0.0, std::fabs(z[0]) < 0.9 ? 0.0 : 1.0, 0.0};
        vector3_cross(z, other, y);
        vector3_unit(&y[0], &y[1], &y[2]);
    }
    vector3_cross(y, z, x);
    for (int i = 0; i < 3; i++) {
        frame.rotation[i][0] = x[i];
        frame.rotation[i][1] = y[i];
        frame.rotation[i][2] = z[i];
    }
    return frame;
}

// The 3D axes of a local placement, or NULL (reported) when they are not 3D.
kxBaseObject *axes_of(kxBaseObject *local_placement) {
    kxBaseObject *select = kxIfcLocalPlacement_get_RelativePlacement(local_placement);
    if (select == nullptr) return nullptr;
    kxBaseObject *axes = kxIfcAxis2Placement_get_kxIfcAxis2Placement3D(select);
    kx_assert_text(axes != nullptr, "kxIfcAxis2Placement_get_type(relative_placement) == kxIfcAxis2Placement3D");
    return axes;
}

bool is_local_placement(kxBaseObject *placement) {
    return placement != nullptr && kxIfcObjectPlacement_dontuse_is_typeof(placement, kxIfcLocalPlacement_class());
}

// Global frame of a placement: its chain of relative placements composed
// from the outermost inwards. A placement that is not local counts as the
// identity; a chain longer than any sane file (a cycle) stops.
Frame global_frame(kxBaseObject *placement) {
    Frame result = identity_frame();
    for (uint32_t depth = 0; is_local_placement(placement) && depth < 10000; depth++) {
        result = compose(frame_of_axes(axes_of(placement)), result);
        placement = kxIfcLocalPlacement_get_PlacementRelTo(placement);
    }
    return result;
}

bool chain_contains(kxBaseObject *placement, const kxBaseObject *wanted) {
    for (uint32_t depth = 0; is_local_placement(placement) && depth < 10000; depth++) {
        if (placement == wanted) return true;
        placement = kxIfcLocalPlacement_get_PlacementRelTo(placement);
    }
    return false;
}

kxBaseObject *new_direction(kxIfcModel *model, const Frame &frame, int column) {
    kxBaseObject *direction = kxIfcModel_dontuse_new_object(model, kxIfcDirection_class());
    kxArrIfcReal *ratios = kxArrIfcReal_new();
    for (int i = 0; i < 3; i++) kxArrIfcReal_add(ratios, frame.rotation[i][column]);
    kxIfcDirection_set_DirectionRatios_v4(direction, ratios);
    return direction;
}

// The product keeps its place in global coordinates while its placement
// becomes relative to the parent's: local = inverse(parent global) * global.
void reexpress_placement(kxIfcModel *model, kxBaseObject *product, kxBaseObject *parent) {
    if (product == nullptr || parent == nullptr) return;
    if (!kxBaseObject_dontuse_is_object_kind_of(parent, kxIfcProduct_class())) return;  // a project has none
    kxBaseObject *old_reference_system = kxIfcProduct_get_ObjectPlacement(product);
    kxBaseObject *parent_reference_system = kxIfcProduct_get_ObjectPlacement(parent);
    if (old_reference_system == nullptr || parent_reference_system == nullptr) return;
    kx_assert_text(is_local_placement(old_reference_system),
                   "kxIfcObjectPlacement_is_typeof(old_reference_system, kxIfcLocalPlacement) == kxBTRUE");
    kx_assert_text(is_local_placement(parent_reference_system),
                   "kxIfcObjectPlacement_is_typeof(parent_reference_system, kxIfcLocalPlacement) == kxBTRUE");
    if (!is_local_placement(old_reference_system) || !is_local_placement(parent_reference_system)) return;
    // A shared placement, or a parent placed through the product's, stays.
    if (chain_contains(parent_reference_system, old_reference_system)) return;
    const Frame local = compose(inverse(global_frame(parent_reference_system)), global_frame(old_reference_system));
    kxBaseObject *location = kxIfcModel_dontuse_new_object(model, kxIfcCartesianPoint_class());
    kxArrIfcLengthMeasure *coordinates = kxArrIfcLengthMeasure_new();
    for (int i = 0; i < 3; i++) kxArrIfcLengthMeasure_add(coordinates, local.origin[i]);
    kxIfcCartesianPoint_set_Coordinates(location, coordinates);
    kxBaseObject *axes = kxIfcModel_dontuse_new_object(model, kxIfcAxis2Placement3D_class());
    kxIfcAxis2Placement3D_set_Location(axes, location);
    kxIfcAxis2Placement3D_set_Axis(axes, new_direction(model, local, 2));
    kxIfcAxis2Placement3D_set_RefDirection(axes, new_direction(model, local, 0));
    kxBaseObject *select = kxIfcModel_dontuse_new_object(model, kxIfcAxis2Placement_class());
    kxIfcAxis2Placement_set_kxIfcAxis2Placement3D(select, axes);
    kxIfcLocalPlacement_set_PlacementRelTo(old_reference_system, parent_reference_system);
    kxIfcLocalPlacement_set_RelativePlacement(old_reference_system, select);
}

// Height of a storey: Z of its placement's origin in global coordinates.
double storey_height(kxBaseObject *storey) {
    kxBaseObject *placement = kxIfcProduct_get_ObjectPlacement(storey);
    return placement != nullptr ? global_frame(placement).origin[2] : 0.0;
}

// ---- merge data ------------------------------------------------------------

struct StoreyMember {
    kxBaseObject *storey;  // NULL once unified into a reference storey
    double height;
};

struct StoreyGroup {
    Text global_id;
    Text long_name;
    kxBaseObject *reference;
    double reference_height;
    Vec<StoreyMember> members;
};

struct MergeData {
    kxIfcModel *model;  // the main model
    UsedGuids used_guids;
    TranslationTable translation_table;
    Text source_name;
    Vec<StoreyGroup> storey_groups;
    Vec<kxBaseObject *> replaced;  // spatial instances replaced by their counterparts
};

void set_source_name(MergeData &data, const char16_t *file_name) {
    WideString base_name = nullptr;
    file_split_path(file_name, nullptr, &base_name, CIERTO);
    data.source_name = text(base_name);
    wstr_destroy_optional(&base_name);
}

Text fresh_guid(MergeData &data, const kxClass_t *klass) {
    for (;;) {
        kxWChar *guid = kxCreateCompressedGuidString_Create();
        if (guid == nullptr) continue;
        Text candidate(guid);
        wstr_destroy_optional(&guid);
        if (data.used_guids.emplace(candidate, klass).second) return candidate;
    }
}

// The GlobalId of an aggregation the merge creates. The translation table
// keeps it under the GlobalIds of the two objects it joins (a key no real
// GlobalId can equal), so that merging the same files again gives it again.
Text aggregation_guid(MergeData &data, kxBaseObject *relating, kxBaseObject *related) {
    const TextPair key{data.source_name,
                       text(kxIfcRoot_get_GlobalId(relating)) + u"/" + text(kxIfcRoot_get_GlobalId(related))};
    const auto found = data.translation_table.find(key);
    if (found != data.translation_table.end() &&
        data.used_guids.emplace(found->second, kxIfcRelAggregates_class()).second)
        return found->second;
    Text guid = fresh_guid(data, kxIfcRelAggregates_class());
    data.translation_table[key] = guid;
    return guid;
}

// A new aggregation of the related object under the relating one.
void new_aggregation(MergeData &data, kxBaseObject *relating, kxBaseObject *related) {
    kxBaseObject *relation = kxIfcModel_dontuse_new_object(data.model, kxIfcRelAggregates_class());
    if (relation == nullptr) return;
    kxIfcRoot_set_GlobalId(relation, aggregation_guid(data, relating, related).c_str());
    kxSetIfcObjectDefinition *related_objects = kxSetIfcObjectDefinition_new();
    kxSetIfcObjectDefinition_append_element(related_objects, related);
    kxIfcRelAggregates_set_RelatedObjects_v4(relation, related_objects);
    kxIfcRelAggregates_set_RelatingObject_v4(relation, relating);
}

Vec<kxBaseObject *> elements_of(kxArrayST *array) {
    Vec<kxBaseObject *> result;
    for (uint32_t i = 0; i < kxArrayST_dontuse_count(array); i++)
        result.push_back(static_cast<kxBaseObject *>(kxArrayST_dontuse_get(array, i)));
    kxArrayST_dontuse_free(&array, nullptr);
    return result;
}

bool is_kind(const kxBaseObject *object, const kxClass_t *klass) {
    return object != nullptr && kxBaseObject_dontuse_is_object_kind_of(object, klass) == kxBTRUE;
}

// ---- references held by relationships ---------------------------------------

struct Swap {
    kxBaseObject *from;
    kxBaseObject *to;  // may be NULL: the reference is dropped
};

void swap_reference(kxBaseObject **reference, void *context) {
    const Swap *swap = static_cast<const Swap *>(context);
    if (*reference != swap->from) {
        // A select value inside the relationship holds its member itself.
        if (!kxClass_is_entity(baseobject_class(*reference)))
            (*reference)->object_class->hooks->for_each_reference(*reference, &swap_reference, context);
        return;
    }
    kxBaseObject *old = *reference;
    if (swap->to != nullptr) baseobject_retain(swap->to);
    *reference = swap->to;
    baseobject_release(&old);
}

// Every relationship of the model that refers to `from` refers to `to`
// instead (or to nothing when `to` is NULL).
void replace_in_relationships(kxIfcModel *model, kxBaseObject *from, kxBaseObject *to) {
    if (from == nullptr || from == to) return;
    Swap swap{from, to};
    for (kxBaseObject *relation : elements_of(kxIfcModel_dontuse_get_objects_by_class(model, kxIfcRelationship_class())))
        relation->object_class->hooks->for_each_reference(relation, &swap_reference, &swap);
}

// ---- storey groups -------------------------------------------------------------

void add_to_storey_groups(MergeData &data, kxBaseObject *storey) {
    const Text global_id = text(kxIfcRoot_get_GlobalId(storey));
    const double height = storey_height(storey);
    for (StoreyGroup &group : data.storey_groups) {
        if (group.global_id != global_id) continue;
        group.members.push_back({storey, height});
        if (height < group.reference_height) {
            group.reference = storey;
            group.reference_height = height;
        }
        return;
    }
    StoreyGroup group{global_id, text(kxIfcBuildingStorey_get_LongName_v4(storey)), storey, height, {}};
    group.members.push_back({storey, height});
    data.storey_groups.push_back(std::move(group));
}

void remove_from_parent_aggregations(kxBaseObject *object) {
    for (kxBaseObject *relation : elements_of(kxIfcObjectDefinition_inverse_relation_Decomposes_v4(object)))
        if (is_kind(relation, kxIfcRelAggregates_class()))
            kxSetIfcObjectDefinition_delete_element(kxIfcRelAggregates_get_RelatedObjects_v4(relation), object);
}

void unify_storeys(MergeData &data) {
    for (StoreyGroup &group : data.storey_groups) {
        for (StoreyMember &member : group.members) {
            if (member.storey == nullptr || member.storey == group.reference) continue;
            const uint32_t no_groups = static_cast<uint32_t>(data.storey_groups.size());
            kx_assert(no_groups > 0);
            kxBaseObject *nearest_reference_storey = nullptr;
            double nearest_distance = 0.0;
            for (const StoreyGroup &candidate : data.storey_groups) {
                const double distance = std::fabs(candidate.reference_height - member.height);
                if (nearest_reference_storey == nullptr || distance < nearest_distance) {
                    nearest_reference_storey = candidate.reference;
                    nearest_distance = distance;
                }
            }
            kx_assert_not_null(nearest_reference_storey);
            if (nearest_reference_storey == nullptr || nearest_reference_storey == member.storey) continue;
            for (kxBaseObject *relation :
                 elements_of(kxIfcObjectDefinition_inverse_relation_IsDecomposedBy_v4(member.storey))) {
                kxSetIfcObjectDefinition *related = kxIfcRelAggregates_get_RelatedObjects_v4(relation);
                for (uint32_t i = 0; related != nullptr && i < kxSetIfcObjectDefinition_count(related); i++) {
                    kxBaseObject *product = kxSetIfcObjectDefinition_get_element(related, i);
                    if (product == nullptr || is_kind(product, kxIfcBuildingStorey_class())) continue;
                    reexpress_placement(data.model, product, nearest_reference_storey);
                    new_aggregation(data, nearest_reference_storey, product);
                    kxSetIfcObjectDefinition_delete_element(related, product);
                    i--;
                }
            }
            // The reference storey already hangs under its own parent.
            remove_from_parent_aggregations(member.storey);
            replace_in_relationships(data.model, member.storey, nearest_reference_storey);
            data.replaced.push_back(member.storey);
            member.storey = nullptr;
        }
    }
}

// ---- spatial structure ---------------------------------------------------------

struct SpatialMerge {
    bool attached_elsewhere;
    kxBaseObject *counterpart;
};

Vec<kxBaseObject *> spatial_children(kxBaseObject *parent) {
    Vec<kxBaseObject *> children;
    for (kxBaseObject *relation : elements_of(kxIfcObjectDefinition_inverse_relation_IsDecomposedBy_v4(parent))) {
        if (!is_kind(relation, kxIfcRelAggregates_class())) continue;
        kxSetIfcObjectDefinition *related = kxIfcRelAggregates_get_RelatedObjects_v4(relation);
        for (uint32_t i = 0; related != nullptr && i < kxSetIfcObjectDefinition_count(related); i++) {
            kxBaseObject *child = kxSetIfcObjectDefinition_get_element(related, i);
            if (is_kind(child, kxIfcSite_class()) || is_kind(child, kxIfcBuilding_class()) ||
                is_kind(child, kxIfcBuildingStorey_class()))
                children.push_back(child);
        }
    }
    return children;
}

SpatialMerge merge_spatial(MergeData &data, kxBaseObject *object, kxBaseObject *parent, uint32_t depth);

// After a child of a relationship's set was merged: it leaves the set either
// way (attached elsewhere, or its counterpart already sits in the main
// structure); a matched child is replaced by its counterpart everywhere.
void settle_merged_child(MergeData &data, kxSetIfcObjectDefinition *related, uint32_t &index, kxBaseObject *child,
                         const SpatialMerge &result) {
    kxSetIfcObjectDefinition_delete_element(related, child);
    index--;
    if (!result.attached_elsewhere && result.counterpart != nullptr) {
        replace_in_relationships(data.model, child, result.counterpart);
        data.replaced.push_back(child);
    }
}

SpatialMerge merge_spatial(MergeData &data, kxBaseObject *object, kxBaseObject *parent, uint32_t depth) {
    const bool is_site = is_kind(object, kxIfcSite_class());
    const kxClass_t *kind = is_site ? kxIfcSite_class() : kxIfcBuilding_class();
    const Text global_id = text(kxIfcRoot_get_GlobalId(object));
    kxBaseObject *match = nullptr;
    for (kxBaseObject *child : spatial_children(parent)) {
        if (is_kind(child, kind) && child != object && text(kxIfcRoot_get_GlobalId(child)) == global_id &&
            !global_id.empty()) {
            match = child;
            break;
        }
    }
    if (match == nullptr || depth > 64) {
        reexpress_placement(data.model, object, parent);
        new_aggregation(data, parent, object);
        return {true, nullptr};
    }
    for (kxBaseObject *relation : elements_of(kxIfcObjectDefinition_inverse_relation_IsDecomposedBy_v4(object))) {
        if (!is_kind(relation, kxIfcRelAggregates_class())) continue;
        kxSetIfcObjectDefinition *related = kxIfcRelAggregates_get_RelatedObjects_v4(relation);
        for (uint32_t i = 0; related != nullptr && i < kxSetIfcObjectDefinition_count(related); i++) {
            kxBaseObject *related_object = kxSetIfcObjectDefinition_get_element(related, i);
            if ((is_site && is_kind(related_object, kxIfcSite_class())) ||
                is_kind(related_object, kxIfcBuilding_class())) {
                const SpatialMerge result = merge_spatial(data, related_object, match, depth + 1);
                settle_merged_child(data, related, i, related_object, result);
            } else if (!is_site) {
                const bool storey = is_kind(related_object, kxIfcBuildingStorey_class());
                kx_assert_text(storey, "kxIfcObjectDefinition_is_typeof(related_object, kxIfcBuildingStorey) == kxBTRUE");
                if (!storey) continue;  // stays in its relationship, which moves to the match
                add_to_storey_groups(data, related_object);
                reexpress_placement(data.model, related_object, match);
                new_aggregation(data, match, related_object);
                settle_merged_child(data, related, i, related_object, {true, nullptr});
            }
        }
    }
    return {false, match};
}

// ---- GlobalIds ---------------------------------------------------------------

struct Registration {
    MergeData *data;
    bool translate;  // moved instances get translated GlobalIds first
};

void register_instance(kxBaseObject *instance, void *context, int32_t *) {
    Registration *registration = static_cast<Registration *>(context);
    MergeData &data = *registration->data;
    if (!registration->translate)
        kx_assert_text(!baseobject_has_been_moved(instance),
                       "kxBaseObject_has_been_moved_to_other_model(base_object) == FALSO");
    else if (!baseobject_has_been_moved(instance))
        return;
    if (!is_kind(instance, kxIfcRoot_class())) return;
    const char16_t *global_id = kxIfcRoot_get_GlobalId(instance);
    if (global_id == nullptr) return;
    Text key(global_id);
    const bool used = data.used_guids.find(key) != data.used_guids.end();
    if (!registration->translate) {
        kx_assert_text(!used, "rbtree_exists(used_guids, global_id) == FALSO");
    } else if (used) {
        const TextPair entry_key{data.source_name, key};
        auto found = data.translation_table.find(entry_key);
        if (found == data.translation_table.end()) {
            found = data.translation_table.emplace(entry_key, fresh_guid(data, instance->object_class)).first;
        }
        key = found->second;
        kxIfcRoot_set_GlobalId(instance, key.c_str());
    }
    data.used_guids.emplace(key, instance->object_class);
}

void visit_registering(MergeData &data, bool translate) {
    Registration registration{&data, translate};
    kxIfcModel_clear_objects_visited_mask(data.model);
    kxIfcModel_dontuse_visit_model(data.model, &registration, &register_instance);
    kxIfcModel_clear_objects_visited_mask(data.model);
}

// ---- the translation table file ------------------------------------------------

void load_translation_table(MergeData &data, const char16_t *file_name) {
    if (file_name == nullptr || !file_exists(file_name)) return;
    SaveStream *stream = savestream_register_binary_file(file_name, "rb");
    if (stream == nullptr) return;
    const uint8_t file_version = savestream_read_byte(stream);
    kx_assert(file_version == 0);
    const uint32_t count = savestream_has_error(stream) ? 0 : savestream_read_ulong(stream);
    for (uint32_t i = 0; i < count && !savestream_has_error(stream); i++) {
        const uint8_t entry_version = savestream_read_byte(stream);
        WideString source = savestream_read_string(stream);
        WideString original = savestream_read_string(stream);
        WideString assigned = savestream_read_string(stream);
        if (!savestream_has_error(stream)) {
            kx_assert_text(entry_version == 0, "file_version == 0");
            if (source != nullptr && original != nullptr && assigned != nullptr)
                data.translation_table[TextPair{text(source), text(original)}] = text(assigned);
        }
        wstr_destroy_optional(&source);
        wstr_destroy_optional(&original);
        wstr_destroy_optional(&assigned);
    }
    savestream_free(&stream);
}

void save_translation_table(const MergeData &data, const char16_t *file_name) {
    if (file_exists(file_name)) {
        const kx_bool16 deleted = file_delete_checked(file_name);
        kx_assert(deleted == CIERTO);
    }
    SaveStream *stream = savestream_register_binary_file(file_name, "wb");
    if (stream == nullptr) return;
    savestream_write_byte(stream, 0);
    savestream_write_ulong(stream, static_cast<uint32_t>(data.translation_table.size()));
    for (const auto &[key, assigned] : data.translation_table) {
        savestream_write_byte(stream, 0);
        savestream_write_string(stream, key.first.c_str());
        savestream_write_string(stream, key.second.c_str());
        savestream_write_string(stream, assigned.c_str());
    }
    savestream_free(&stream);
}

// ---- merging -------------------------------------------------------------------

kxIfcModel *read_ifc4(const char16_t *file_name, bool *other_release) {
    *other_release = false;
    kxIfcModel *model = kxIfcModel_read_from_step_file(file_name, 0, nullptr);
    if (model == nullptr) return nullptr;
    const kxIfcVersion_t version = kxIfcModel_ifc_version(model);
    if (version != KXIFCVERSION_IFC_2X3 && version != KXIFCVERSION_IFC_4) kx_assert_unreachable();
    if (version != KXIFCVERSION_IFC_4) {
        *other_release = true;
        kxIfcModel_free(&model);
    }
    return model;
}

void free_instance(kxIfcModel *model, kxBaseObject *instance) {
    if (instance != nullptr) kxIfcModel_dontuse_free_object(model, &instance);
}

void merge_secondary(MergeData &data, kxIfcModel *secondary) {
    kxBaseObject *main_entities_model1 = kxIfcModel_dontuse_get_first_occurrence_of_class(data.model, kxIfcProject_class());
    kxBaseObject *main_entities_model2 = kxIfcModel_dontuse_get_first_occurrence_of_class(secondary, kxIfcProject_class());
    kx_assert_not_null(main_entities_model1);
    kx_assert_not_null(main_entities_model2);
    kxBaseObject *units1 = kxIfcModel_dontuse_get_first_occurrence_of_class(data.model, kxIfcUnitAssignment_class());
    kxBaseObject *units2 = kxIfcModel_dontuse_get_first_occurrence_of_class(secondary, kxIfcUnitAssignment_class());
    kxBaseObject *project1 = main_entities_model1;
    kxBaseObject *project2 = main_entities_model2;

    model_move_all_instances(secondary, data.model);

    if (project1 != nullptr && project2 != nullptr) {
        for (kxBaseObject *relation : elements_of(kxIfcProject_inverse_relation_IsDecomposedBy_v4(project2))) {
            if (!is_kind(relation, kxIfcRelAggregates_class())) continue;
            kxSetIfcObjectDefinition *related = kxIfcRelAggregates_get_RelatedObjects_v4(relation);
            for (uint32_t i = 0; related != nullptr && i < kxSetIfcObjectDefinition_count(related); i++) {
                kxBaseObject *related_object = kxSetIfcObjectDefinition_get_element(related, i);
                if (!is_kind(related_object, kxIfcSite_class())) {
                    const bool building = is_kind(related_object, kxIfcBuilding_class());
                    kx_assert_text(building, "kxIfcObjectDefinition_is_typeof(related_object, kxIfcBuilding) == kxBTRUE");
                    if (!building) continue;
                }
                const SpatialMerge result = merge_spatial(data, related_object, project1, 0);
                settle_merged_child(data, related, i, related_object, result);
            }
        }
    }

    visit_registering(data, true);

    for (uint32_t i = 0; i < ptrarray_count(data.model->objects); i++) {
        kxBaseObject *instance = static_cast<kxBaseObject *>(data.model->objects->items[i]);
        if (!baseobject_has_been_moved(instance)) continue;
        baseobject_clear_moved(instance);
        baseobject_set_output_file_id(instance, data.model->output_id_counter++);
    }

    // The secondary project and its unit assignment go; what referred to
    // them refers to the main model's own.
    if (project2 != nullptr && project2 != project1) {
        kxIfcProject_set_OwnerHistory(project2, nullptr);
        kxIfcProject_set_RepresentationContexts_v4(project2, nullptr);
        kxIfcProject_set_UnitsInContext_v4(project2, nullptr);
        if (units2 != nullptr && units2 != units1) {
            replace_in_relationships(data.model, units2, units1);
            free_instance(data.model, units2);
        }
        replace_in_relationships(data.model, project2, project1);
        free_instance(data.model, project2);
    }
}

// ---- after merging -------------------------------------------------------------

void count_reference(kxBaseObject **reference, void *context) {
    if (!is_kind(*reference, kxIfcOwnerHistory_class())) (*static_cast<uint32_t *>(context))++;
}

bool type_relationship_kept(kxBaseObject *relation) {
    kx_assert_text(is_kind(relation, kxIfcRelDefinesByType_class()),
                   "kxIfcRelationship_is_typeof(relation, kxIfcRelDefinesByType) == kxBTRUE");
    return kxIfcRelDefinesByType_get_RelatingType(relation) != nullptr;
}

// A relationship relates a relating side to a related side: one that refers
// to fewer than two instances (its owner history aside) has lost a side. A
// type relationship stays as long as its type does.
bool relationship_kept(kxBaseObject *relation) {
    if (is_kind(relation, kxIfcRelDefinesByType_class())) return type_relationship_kept(relation);
    uint32_t references = 0;
    relation->object_class->hooks->for_each_reference(relation, &count_reference, &references);
    return references >= 2;
}

void remove_rejected_relationships(MergeData &data) {
    for (kxBaseObject *relation :
         elements_of(kxIfcModel_dontuse_get_objects_by_class(data.model, kxIfcRelationship_class())))
        if (!relationship_kept(relation)) free_instance(data.model, relation);
}

// Final clean-up: the spatial instances replaced by their counterparts,
// relationships that an earlier removal left without a side, and styled
// items that style nothing leave the model.
void final_clean_up(MergeData &data) {
    for (kxBaseObject *instance : data.replaced) free_instance(data.model, instance);
    data.replaced.clear();
    remove_rejected_relationships(data);
    for (kxBaseObject *styled_item :
         elements_of(kxIfcModel_dontuse_get_objects_by_class(data.model, kxIfcStyledItem_class())))
        if (kxIfcStyledItem_get_Item(styled_item) == nullptr) free_instance(data.model, styled_item);
}

bool merger_check(const kxIfcModelMerger *model_merger) {
    kx_assert_not_null(model_merger);
    return model_merger != nullptr;
}

}  // namespace

extern "C" {

KX_API kxIfcModelMerger *kxIfcModelMerger_new(const kxWChar *main_file_name) {
    kxIfcModelMerger *model_merger = mem_new_zeroed<kxIfcModelMerger>();
    model_merger->main_file_name = wstr_copy_optional(main_file_name);
    model_merger->secondary_file_names = wstrarray_create(0);
    return model_merger;
}

KX_API void kxIfcModelMerger_add_secondary_model(kxIfcModelMerger *model_merger, const kxWChar *file_name) {
    if (!merger_check(model_merger) || file_name == nullptr) return;
    if (!wstrarray_exists(model_merger->secondary_file_names, file_name, nullptr))
        wstrarray_append(model_merger->secondary_file_names, file_name);
}

KX_API kxBool kxIfcModelMerger_merge_models(kxIfcModelMerger *model_merger, const kxWChar *translation_table_file_name,
                                            kxIfcModel **merged_model, kxArrString **files_not_merged) {
    kx_assert_not_null(merged_model);
    if (files_not_merged != nullptr) *files_not_merged = nullptr;
    if (merged_model != nullptr) *merged_model = nullptr;
    if (!merger_check(model_merger) || merged_model == nullptr || model_merger->main_file_name == nullptr)
        return kxBFALSE;

    bool other_release = false;
    kxIfcModel *main_model = read_ifc4(model_merger->main_file_name, &other_release);
    if (main_model == nullptr) return kxBFALSE;

    MergeData data{};
    data.model = main_model;
    load_translation_table(data, translation_table_file_name);

    set_source_name(data, model_merger->main_file_name);
    visit_registering(data, false);
    data.source_name.clear();

    for (kxBaseObject *storey :
         elements_of(kxIfcModel_dontuse_get_objects_by_class(main_model, kxIfcBuildingStorey_class())))
        add_to_storey_groups(data, storey);

    kxArrString *not_merged = kxArrString_new();
    const uint32_t count = wstrarray_count(model_merger->secondary_file_names);
    for (uint32_t i = 0; i < count; i++) {
        const char16_t *file_name = wstrarray_get(model_merger->secondary_file_names, i);
        kxIfcModel *secondary = read_ifc4(file_name, &other_release);
        // A file whose instances would run the main model out of ids is not merged.
        const bool ids_left = secondary != nullptr && ULONG_MAX32 - main_model->output_id_counter >
                                                          kxIfcModel_count_objects(secondary);
        if (!ids_left || kxIfcModel_ifc_version(secondary) != kxIfcModel_ifc_version(main_model)) {
            kxArrString_add(not_merged, file_name);
        } else {
            set_source_name(data, file_name);
            merge_secondary(data, secondary);
            data.source_name.clear();
        }
        if (secondary != nullptr) kxIfcModel_free(&secondary);
    }

    unify_storeys(data);
    remove_rejected_relationships(data);
    final_clean_up(data);

    if (kxArrString_count(not_merged) == 0) kxArrString_free(&not_merged);
    if (translation_table_file_name != nullptr) save_translation_table(data, translation_table_file_name);

    *merged_model = main_model;
    if (files_not_merged != nullptr)
        *files_not_merged = not_merged;
    else if (not_merged != nullptr)
        kxArrString_free(&not_merged);
    return kxBTRUE;
}

KX_API void kxIfcModelMerger_free(kxIfcModelMerger **model_merger) {
    kx_assert_not_null(model_merger);
    if (model_merger == nullptr) return;
    kx_assert_text(*model_merger != nullptr, "(*model_merger) != NULL");
    if (*model_merger == nullptr) return;
    wstr_destroy_optional(&(*model_merger)->main_file_name);
    wstrarray_destroy(&(*model_merger)->secondary_file_names);
    mem_free_and_clear(model_merger);
}

}  // extern "C"
