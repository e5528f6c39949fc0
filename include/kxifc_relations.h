/*
 * kxifc_relations.h: one call per common objectified relationship. Each
 * either reuses a relationship that already links the relating object
 * (found through its inverse relation) and adds the related object to it,
 * or creates a new relationship in the model with a fresh GlobalId. Works on
 * IFC2X3 and IFC4 models alike. Compiles as C11 and as C++.
 */
#ifndef KXIFC_RELATIONS_H
#define KXIFC_RELATIONS_H

#include "kxifc_defs.h"
#include "kxifc_model.h"
#include "kxifc_schema.h"

KX_EXTERN_C_BEGIN

/* Aggregates the related object under the relating one, in the first
 * aggregation of the relating object whose Name equals name (both NULL, or
 * equal by exact comparison), or in a new IfcRelAggregates of that name. */
KX_API void kxRelCommon_append_rel_aggregates(const kxWChar *name, kxIfcObjectDefinition *relating_object,
                                              kxIfcObjectDefinition *related_object, kxIfcModel *ifc_model);

/* A new IfcRelConnectsElements between the two elements; stored through
 * relationship when it is not NULL. */
KX_API void kxRelCommon_append_rel_connects_elements(const kxWChar *name, kxIfcElement *relating_element,
                                                     kxIfcElement *related_element, kxIfcModel *ifc_model,
                                                     kxIfcRelConnectsElements **relationship);

/* A new IfcRelConnectsWithRealizingElements; the relationship takes the set
 * of realizing elements over. */
KX_API void kxRelCommon_append_rel_connects_with_realizing_elements(
    const kxWChar *name, kxIfcElement *relating_element, kxIfcElement *related_element,
    kxSetIfcElement *realizing_elements, kxIfcModel *ifc_model, kxIfcRelConnectsWithRealizingElements **relationship);

/* Defines the object by the property set: the first relationship that
 * already relates the property set, or a new IfcRelDefinesByProperties. In
 * IFC2X3 only an IfcObject is added. Stored through relationship when not
 * NULL. */
KX_API void kxRelCommon_append_rel_defines_by_properties(kxIfcPropertySetDefinition *property_set,
                                                         kxIfcObjectDefinition *object, kxIfcModel *ifc_model,
                                                         kxIfcRelDefinesByProperties **relationship);

/* Types the object by the type object (its first IfcRelDefinesByType, or a
 * new one). */
KX_API void kxRelCommon_append_rel_defines_by_type(kxIfcTypeObject *type_object, kxIfcObject *object,
                                                   kxIfcModel *ifc_model);

/* Contains the element in the spatial structure (its first containment
 * relationship, or a new IfcRelContainedInSpatialStructure). */
KX_API void kxRelCommon_append_rel_contained_in_spatial_structure(kxIfcProduct *relating_structure,
                                                                  kxIfcProduct *element, kxIfcModel *ifc_model);

/* Covers the element with the covering (its first IfcRelCoversBldgElements,
 * or a new one). */
KX_API void kxRelCommon_append_rel_covers_bldg_elements(kxIfcElement *element, kxIfcCovering *covering,
                                                        kxIfcModel *ifc_model);

/* References the element in the spatial element (its first
 * IfcRelReferencedInSpatialStructure, or a new one). */
KX_API void kxRelCommon_append_rel_referenced_in_spatial_structure(kxIfcProduct *element,
                                                                   kxIfcProduct *spatial_element,
                                                                   kxIfcModel *ifc_model);

/* A new IfcGroup (ObjectType set when given) and a new IfcRelAssignsToGroup
 * assigning the set of objects to it; the relationship takes the set over. */
KX_API void kxRelCommon_append_rel_assigns_to_group(kxSetIfcObjectDefinition *related_objects,
                                                    const kxWChar *group_object_type, kxIfcModel *ifc_model);

/* A new IfcRelAssignsToProduct assigning the set of objects to the product
 * (held through an IfcProductSelect, which only IFC4 models store); the
 * relationship takes the set over. */
KX_API void kxRelCommon_append_rel_assigns_to_product(const kxWChar *name, kxSetIfcObjectDefinition *related_objects,
                                                      kxIfcProduct *product, kxIfcModel *ifc_model);

KX_EXTERN_C_END

#endif
