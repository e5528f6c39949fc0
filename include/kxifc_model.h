/*
 * kxifc_model.h: models, instances, classes and instance arrays.
 * Compiles as C11 and as C++.
 *
 * A host creates a model, sets its schema release, then creates instances
 * with kxIfcModel_dontuse_new_object(model, kx<Entity>_class()), reads and
 * writes them through the generated kx<Entity>_* accessors, and frees the
 * model, which releases every instance.
 */
#ifndef KXIFC_MODEL_H
#define KXIFC_MODEL_H

#include "kxifc_defs.h"

KX_EXTERN_C_BEGIN

/* Opaque handles. */
typedef struct kxIfcModel kxIfcModel;
typedef struct kxIfcHeader kxIfcHeader;
typedef struct kxBaseObject kxBaseObject;
typedef struct kxClass_t kxClass_t;
typedef struct kxArrayST kxArrayST;

/* ---- Classes ------------------------------------------------------------- */

/* Dense id of a class, 0..959. */
KX_API uint32_t kxClass_unique_id(const kxClass_t *klass);
/* Schema name of a class, such as "IfcWall" (static). */
KX_API const kxWChar *kxClass_ifc_name(const kxClass_t *klass);
/* kxBTRUE for entity classes, kxBFALSE for select types. */
KX_API kxBool kxClass_is_entity(const kxClass_t *klass);
/* Whether the class is abstract in the release (no instances). */
KX_API kxBool kxClass_is_abstract(const kxClass_t *klass, kxIfcVersion_t ifc_version);
/* Whether the class exists in the release. */
KX_API kxBool kxClass_exists_in_version(const kxClass_t *klass, kxIfcVersion_t ifc_version);
/* The class whose schema name equals the text ignoring case, or NULL. */
KX_API const kxClass_t *kxClass_find_by_name(const kxWChar *ifc_name);

/* ---- Models -------------------------------------------------------------- */

/* A new empty model: empty header, release not set (65535). */
KX_API kxIfcModel *kxIfcModel_new(void);
/* Sets the schema release; call once, before creating the first instance. */
KX_API void kxIfcModel_set_version(kxIfcModel *ifc_model, kxIfcVersion_t ifc_version);
/* The model's schema release. */
KX_API kxIfcVersion_t kxIfcModel_ifc_version(const kxIfcModel *ifc_model);
/* Frees the model and releases every instance; *ifc_model becomes NULL. */
KX_API void kxIfcModel_free(kxIfcModel **ifc_model);
/* Number of instances the model lists. */
KX_API uint32_t kxIfcModel_count_objects(const kxIfcModel *ifc_model);

/* A new instance of the class, numbered and listed by the model; NULL when
 * the class is abstract or does not exist in the model's release. */
KX_API kxBaseObject *kxIfcModel_dontuse_new_object(kxIfcModel *ifc_model, const kxClass_t *klass);
/* Drops the model's reference to an instance; *base_object becomes NULL. */
KX_API void kxIfcModel_dontuse_free_object(kxIfcModel *ifc_model, kxBaseObject **base_object);
/* The oldest instance of the class or of a subclass, or NULL. */
KX_API kxBaseObject *kxIfcModel_dontuse_get_first_occurrence_of_class(const kxIfcModel *ifc_model,
                                                                      const kxClass_t *klass);
/* New array of every instance of the class or a subclass, oldest first. */
KX_API kxArrayST *kxIfcModel_dontuse_get_objects_by_class(const kxIfcModel *ifc_model, const kxClass_t *klass);

/* Keeps an instance when it returns exactly 1. */
typedef int32_t (*kxIfcModelFilterFn)(kxBaseObject *instance, void *filter_data);
/* New array of the instances of the class (or subclasses) the filter keeps. */
KX_API kxArrayST *kxIfcModel_dontuse_get_filtered_objects_of_class(const kxIfcModel *ifc_model,
                                                                   const kxClass_t *klass,
                                                                   kxIfcModelFilterFn filter,
                                                                   void *filter_data);
/* Clears the visited flag of every instance. */
KX_API void kxIfcModel_clear_objects_visited_mask(kxIfcModel *ifc_model);

/* Called per instance; set *stop to 1 to end the visit. */
typedef void (*kxIfcModelVisitorFn)(kxBaseObject *instance, void *user_data, int32_t *stop);
/* Calls the visitor on every instance not yet visited, in creation order. */
KX_API void kxIfcModel_dontuse_visit_model(kxIfcModel *ifc_model, void *user_data, kxIfcModelVisitorFn visitor);

/* Replaces the model's header, taking the new one over (*header becomes NULL). */
KX_API void kxIfcModel_set_header(kxIfcModel *ifc_model, kxIfcHeader **header);
/* The model's header, still owned by the model. */
KX_API kxIfcHeader *kxIfcModel_get_header(const kxIfcModel *ifc_model);

/* ---- Files --------------------------------------------------------------- */

/* Writes the model as the exchange file <directory>/<file_name>.ifc: first
 * into <file_name>.ifctmp beside it, which then replaces any existing file
 * of the final name. The header record gets the time of the export as its
 * time stamp (empty when the environment variable VELMTEST is set) and the
 * FILE_SCHEMA text of the model's release; a blank FILE_NAME name is written
 * as "<file_name>.ifc". Nothing is written, and nothing reported, when the
 * temporary file cannot be created: the file's presence tells success. */
KX_API void kxIfcModel_export_model_to_file(kxIfcModel *ifc_model, const kxWChar *file_name,
                                            const kxWChar *directory);

/* Reads an exchange file (IFC2X3 or IFC4, told by its FILE_SCHEMA) into a
 * new model, or NULL when the file cannot be read: missing, no valid header,
 * an unknown schema, a syntax error. read_mode 0 reads files up to 100 MiB
 * in one pass and longer ones in two; 1 forces one pass, 2 two passes.
 * *readed_with_errors (when not NULL) tells whether some data did not fit
 * the schema (wrong types or counts, unknown entities, dangling references):
 * the model then holds what could be read. */
KX_API kxIfcModel *kxIfcModel_read_from_step_file(const kxWChar *file_name, uint32_t read_mode,
                                                  kxBool *readed_with_errors);
/* Reads only the instances of the given classes (a kxArrayST of
 * const kxClass_t pointers); references to other instances stay empty. */
KX_API kxIfcModel *kxIfcModel_read_entities_of_selected_classes_from_step_file(const kxWChar *file_name,
                                                                               const kxArrayST *classes,
                                                                               kxBool *readed_with_errors);

/* ---- Instances ----------------------------------------------------------- */

/* The instance's #id in a file; 4294967295 for NULL. */
KX_API uint32_t kxBaseObject_dontuse_object_output_file_id(const kxBaseObject *base_object);
/* Whether the instance is exactly of the class. */
KX_API kxBool kxBaseObject_dontuse_is_object_of_class(const kxBaseObject *base_object, const kxClass_t *klass);
/* Whether the instance is of the class or one of its subclasses. */
KX_API kxBool kxBaseObject_dontuse_is_object_kind_of(const kxBaseObject *base_object, const kxClass_t *klass);
/* Visited flag: read, set, clear. */
KX_API kxBool kxBaseObject_dontuse_has_been_visited(const kxBaseObject *base_object);
KX_API void kxBaseObject_dontuse_mark_as_visited(kxBaseObject *base_object);
KX_API void kxBaseObject_dontuse_clear_visited_flag(kxBaseObject *base_object);
/* Being-visited flag: read, set, clear. */
KX_API kxBool kxBaseObject_dontuse_is_being_visited(const kxBaseObject *base_object);
KX_API void kxBaseObject_dontuse_mark_as_being_visited(kxBaseObject *base_object);
KX_API void kxBaseObject_dontuse_clear_being_visited_flag(kxBaseObject *base_object);
/* Schema name of the instance's class, such as "IfcWall" (static). */
KX_API const kxWChar *kxBaseObject_dontuse_get_ifc_class_name(const kxBaseObject *base_object);
/* Text of the instance's PredefinedType (static), or NULL. */
KX_API kxWChar *kxBaseObject_dontuse_predefined_type_string(const kxBaseObject *base_object);

/* ---- Instance arrays (not owning their elements) ------------------------- */

typedef void (*kxArraySTDestroyFn)(void **element);
/* A new empty array. */
KX_API kxArrayST *kxArrayST_dontuse_new(kxArraySTDestroyFn element_destructor);
/* Frees the array (and its elements through the destructor, if given). */
KX_API void kxArrayST_dontuse_free(kxArrayST **array, kxArraySTDestroyFn element_destructor);
/* Number of elements. */
KX_API uint32_t kxArrayST_dontuse_count(const kxArrayST *array);
/* Element at a 0-based index. */
KX_API void *kxArrayST_dontuse_get(const kxArrayST *array, uint32_t index);
/* Replaces the element at an index. */
KX_API void kxArrayST_dontuse_set(kxArrayST *array, uint32_t index, void *element);
/* Appends an element. */
KX_API void kxArrayST_dontuse_append(kxArrayST *array, void *element);

KX_EXTERN_C_END

#endif
