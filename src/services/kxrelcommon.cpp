#define KX_UNIT "kxrelcommon"
// Relationship helpers: each links objects through the release's own
// attributes of the relationship, reusing one found through the relating
// object's inverse relation where the helper reuses.
#include "kxifc_guid.h"
#include "kxifc_relations.h"
#include "support/assert.h"
#include "support/wstring.h"

namespace {

bool is_ifc4(const kxIfcModel *ifc_model) {
    switch (kxIfcModel_ifc_version(ifc_model)) {
    case KXIFCVERSION_IFC_2X3: return false;
    case KXIFCVERSION_IFC_4: return true;
    default: kx_assert_unreachable(); return true;
    }
}

// A new rooted instance of the class with a fresh GlobalId and, when given,
// a Name.
kxBaseObject *new_root(kxIfcModel *ifc_model, const kxClass_t *klass, const kxWChar *name) {
    kxBaseObject *instance = kxIfcModel_dontuse_new_object(ifc_model, klass);
    kxWChar *guid = kxCreateCompressedGuidString_Create();
    kxIfcRoot_set_GlobalId(instance, guid);
    kx::wstr_destroy_optional(&guid);
    if (name != nullptr) kxIfcRoot_set_Name(instance, name);
    return instance;
}

// The first element of an inverse relation's result, which is then freed.
kxBaseObject *first_of(kxArrayST *relations) {
    kxBaseObject *first = kxArrayST_dontuse_count(relations) > 0
                              ? static_cast<kxBaseObject *>(kxArrayST_dontuse_get(relations, 0))
                              : nullptr;
    kxArrayST_dontuse_free(&relations, nullptr);
    return first;
}

bool same_name(const kxWChar *a, const kxWChar *b) {
    if (a == nullptr || b == nullptr) return a == b;
    return kx::wstr_equal(a, b);
}

}  // namespace

extern "C" {

KX_API void kxRelCommon_append_rel_aggregates(const kxWChar *name, kxIfcObjectDefinition *relating_object,
                                              kxIfcObjectDefinition *related_object, kxIfcModel *ifc_model) {
    kx_assert_not_null(ifc_model);
    const bool ifc4 = is_ifc4(ifc_model);
    kxArrayST *relations = ifc4 ? kxIfcObjectDefinition_inverse_relation_IsDecomposedBy_v4(relating_object)
                                : kxIfcObjectDefinition_inverse_relation_IsDecomposedBy_v2x3(relating_object);
    kxBaseObject *relation = nullptr;
    for (uint32_t i = 0; i < kxArrayST_dontuse_count(relations) && relation == nullptr; i++) {
        kxBaseObject *candidate = static_cast<kxBaseObject *>(kxArrayST_dontuse_get(relations, i));
        if (same_name(kxIfcRoot_get_Name(candidate), name)) relation = candidate;
    }
    kxArrayST_dontuse_free(&relations, nullptr);
    if (relation == nullptr) {
        relation = new_root(ifc_model, kxIfcRelAggregates_class(), name);
        if (ifc4) {
            kxIfcRelAggregates_set_RelatedObjects_v4(relation, kxSetIfcObjectDefinition_new());
            kxIfcRelAggregates_set_RelatingObject_v4(relation, relating_object);
        } else {
            kxIfcRelAggregates_set_RelatedObjects_v2x3(relation, kxSetIfcObjectDefinition_new());
            kxIfcRelAggregates_set_RelatingObject_v2x3(relation, relating_object);
        }
    }
    kxSetIfcObjectDefinition *related = ifc4 ? kxIfcRelAggregates_get_RelatedObjects_v4(relation)
                                             : kxIfcRelDecomposes_get_RelatedObjects_v2x3(relation);
    kxSetIfcObjectDefinition_append_element(related, related_object);
}

KX_API void kxRelCommon_append_rel_connects_elements(const kxWChar *name, kxIfcElement *relating_element,
                                                     kxIfcElement *related_element, kxIfcModel *ifc_model,
                                                     kxIfcRelConnectsElements **relationship) {
    kx_assert_not_null(ifc_model);
    kxBaseObject *relation = new_root(ifc_model, kxIfcRelConnectsElements_class(), name);
    kxIfcRelConnectsElements_set_RelatingElement(relation, relating_element);
    kxIfcRelConnectsElements_set_RelatedElement(relation, related_element);
    if (relationship != nullptr) *relationship = relation;
}

KX_API void kxRelCommon_append_rel_connects_with_realizing_elements(
    const kxWChar *name, kxIfcElement *relating_element, kxIfcElement *related_element,
    kxSetIfcElement *realizing_elements, kxIfcModel *ifc_model, kxIfcRelConnectsWithRealizingElements **relationship) {
    kx_assert_not_null(ifc_model);
    kxBaseObject *relation = new_root(ifc_model, kxIfcRelConnectsWithRealizingElements_class(), name);
    kxIfcRelConnectsWithRealizingElements_set_RelatingElement(relation, relating_element);
    kxIfcRelConnectsWithRealizingElements_set_RelatedElement(relation, related_element);
    kxIfcRelConnectsWithRealizingElements_set_RealizingElements(relation, realizing_elements);
    if (relationship != nullptr) *relationship = relation;
}

KX_API void kxRelCommon_append_rel_defines_by_properties(kxIfcPropertySetDefinition *property_set,
                                                         kxIfcObjectDefinition *object, kxIfcModel *ifc_model,
                                                         kxIfcRelDefinesByProperties **relationship) {
    kx_assert_not_null(ifc_model);
    const bool ifc4 = is_ifc4(ifc_model);
    // The relationships relating the property set: the same inverse under
    // its name of each release.
    kxBaseObject *relation = first_of(ifc4 ? kxIfcPropertySetDefinition_inverse_relation_DefinesOccurrence(property_set)
                                           : kxIfcPropertySetDefinition_inverse_relation_PropertyDefinitionOf(property_set));
    if (relation == nullptr) {
        relation = new_root(ifc_model, kxIfcRelDefinesByProperties_class(), nullptr);
        if (ifc4) {
            kxIfcRelDefinesByProperties_set_RelatedObjects_v4(relation, kxSetIfcObjectDefinition_new());
            kxBaseObject *select = kxIfcModel_dontuse_new_object(ifc_model, kxIfcPropertySetDefinitionSelect_class());
            kxIfcPropertySetDefinitionSelect_set_kxIfcPropertySetDefinition(select, property_set);
            kxIfcRelDefinesByProperties_set_RelatingPropertyDefinition_v4(relation, select);
        } else {
            kxIfcRelDefinesByProperties_set_RelatedObjects_v2x3(relation, kxSetIfcObject_new());
            kxIfcRelDefinesByProperties_set_RelatingPropertyDefinition_v2x3(relation, property_set);
        }
    }
    if (ifc4) {
        kxSetIfcObjectDefinition_append_element(kxIfcRelDefinesByProperties_get_RelatedObjects_v4(relation), object);
    } else if (kxIfcObjectDefinition_dontuse_cast_to(object, kxIfcObject_class()) != nullptr) {
        // Only objects: a type object is left out in this release.
        kxSetIfcObject_append_element(kxIfcRelDefinesByProperties_get_RelatedObjects_v2x3(relation), object);
    }
    if (relationship != nullptr) *relationship = relation;
}

KX_API void kxRelCommon_append_rel_defines_by_type(kxIfcTypeObject *type_object, kxIfcObject *object,
                                                   kxIfcModel *ifc_model) {
    kx_assert_not_null(ifc_model);
    const bool ifc4 = is_ifc4(ifc_model);
    kxBaseObject *relation = first_of(ifc4 ? kxIfcTypeObject_inverse_relation_Types(type_object)
                                           : kxIfcTypeObject_inverse_relation_ObjectTypeOf(type_object));
    if (relation == nullptr) {
        relation = new_root(ifc_model, kxIfcRelDefinesByType_class(), nullptr);
        kxIfcRelDefinesByType_set_RelatingType(relation, type_object);
        if (ifc4)
            kxIfcRelDefinesByType_set_RelatedObjects_v4(relation, kxSetIfcObject_new());
        else
            kxIfcRelDefinesByType_set_RelatedObjects_v2x3(relation, kxSetIfcObject_new());
    }
    kxSetIfcObject *related = ifc4 ? kxIfcRelDefinesByType_get_RelatedObjects_v4(relation)
                                   : kxIfcRelDefinesByType_get_RelatedObjects_v2x3(relation);
    kxSetIfcObject_append_element(related, object);
}

KX_API void kxRelCommon_append_rel_contained_in_spatial_structure(kxIfcProduct *relating_structure,
                                                                  kxIfcProduct *element, kxIfcModel *ifc_model) {
    kx_assert_not_null(ifc_model);
    const bool ifc4 = is_ifc4(ifc_model);
    kxArrayST *relations = nullptr;
    if (kxIfcProduct_dontuse_is_typeof(relating_structure, kxIfcSpatialElement_class()) == kxBTRUE) {
        relations = kxIfcSpatialElement_inverse_relation_ContainsElements(relating_structure);
    } else {
        kx_assert(kxIfcProduct_dontuse_is_typeof(relating_structure, kxIfcSpatialStructureElement_class()) == kxBTRUE);
        relations = kxIfcSpatialStructureElement_inverse_relation_ContainsElements(relating_structure);
    }
    kxBaseObject *relation = first_of(relations);
    if (relation == nullptr) {
        relation = new_root(ifc_model, kxIfcRelContainedInSpatialStructure_class(), nullptr);
        kxIfcRelContainedInSpatialStructure_set_RelatedElements(relation, kxSetIfcProduct_new());
        if (ifc4)
            kxIfcRelContainedInSpatialStructure_set_RelatingStructure_v4(
                relation, kxIfcProduct_dontuse_cast_to(relating_structure, kxIfcSpatialElement_class()));
        else
            kxIfcRelContainedInSpatialStructure_set_RelatingStructure_v2x3(
                relation, kxIfcProduct_dontuse_cast_to(relating_structure, kxIfcSpatialStructureElement_class()));
    }
    kxSetIfcProduct_append_element(kxIfcRelContainedInSpatialStructure_get_RelatedElements(relation), element);
}

KX_API void kxRelCommon_append_rel_covers_bldg_elements(kxIfcElement *element, kxIfcCovering *covering,
                                                        kxIfcModel *ifc_model) {
    kx_assert_not_null(ifc_model);
    kxBaseObject *relation = first_of(kxIfcElement_inverse_relation_HasCoverings(element));
    if (relation == nullptr) {
        relation = new_root(ifc_model, kxIfcRelCoversBldgElements_class(), nullptr);
        kxIfcRelCoversBldgElements_set_RelatingBuildingElement(relation, element);
        kxIfcRelCoversBldgElements_set_RelatedCoverings(relation, kxSetIfcCovering_new());
    }
    kxSetIfcCovering_append_element(kxIfcRelCoversBldgElements_get_RelatedCoverings(relation), covering);
}

KX_API void kxRelCommon_append_rel_referenced_in_spatial_structure(kxIfcProduct *element,
                                                                   kxIfcProduct *spatial_element,
                                                                   kxIfcModel *ifc_model) {
    kx_assert_not_null(ifc_model);
    const bool ifc4 = is_ifc4(ifc_model);
    kxBaseObject *relation =
        first_of(ifc4 ? kxIfcSpatialElement_inverse_relation_ReferencesElements(spatial_element)
                      : kxIfcSpatialStructureElement_inverse_relation_ReferencesElements(spatial_element));
    if (relation == nullptr) {
        relation = new_root(ifc_model, kxIfcRelReferencedInSpatialStructure_class(), nullptr);
        kxIfcRelReferencedInSpatialStructure_set_RelatedElements(relation, kxSetIfcProduct_new());
        if (ifc4)
            kxIfcRelReferencedInSpatialStructure_set_RelatingStructure_v4(relation, spatial_element);
        else
            kxIfcRelReferencedInSpatialStructure_set_RelatingStructure_v2x3(
                relation, kxIfcProduct_dontuse_cast_to(spatial_element, kxIfcSpatialStructureElement_class()));
    }
    kxSetIfcProduct_append_element(kxIfcRelReferencedInSpatialStructure_get_RelatedElements(relation), element);
}

KX_API void kxRelCommon_append_rel_assigns_to_group(kxSetIfcObjectDefinition *related_objects,
                                                    const kxWChar *group_object_type, kxIfcModel *ifc_model) {
    kx_assert_not_null(ifc_model);
    kxBaseObject *group = new_root(ifc_model, kxIfcGroup_class(), nullptr);
    if (group_object_type != nullptr) kxIfcGroup_set_ObjectType(group, group_object_type);
    kxBaseObject *relation = new_root(ifc_model, kxIfcRelAssignsToGroup_class(), nullptr);
    kxIfcRelAssignsToGroup_set_RelatedObjects(relation, related_objects);
    kxIfcRelAssignsToGroup_set_RelatingGroup(relation, group);
}

KX_API void kxRelCommon_append_rel_assigns_to_product(const kxWChar *name, kxSetIfcObjectDefinition *related_objects,
                                                      kxIfcProduct *product, kxIfcModel *ifc_model) {
    kx_assert_not_null(ifc_model);
    kxBaseObject *relation = new_root(ifc_model, kxIfcRelAssignsToProduct_class(), name);
    kxIfcRelAssignsToProduct_set_RelatedObjects(relation, related_objects);
    kxBaseObject *select = kxIfcModel_dontuse_new_object(ifc_model, kxIfcProductSelect_class());
    if (select != nullptr) {
        kxIfcProductSelect_set_kxIfcProduct(select, product);
        kxIfcRelAssignsToProduct_set_RelatingProduct_v4(relation, select);
    }
}

}  // extern "C"
