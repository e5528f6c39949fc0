/*
 * kxifc_merger.h: the model merger, which joins the IFC4 files of one
 * project into one model: a main file and secondary files are read, every
 * instance of each secondary model moves into the main model, sites,
 * buildings and storeys are matched by GlobalId, and GlobalIds that would
 * collide are replaced, optionally remembered in a translation table file so
 * that merging the same files again gives the same GlobalIds.
 * Compiles as C11 and as C++.
 */
#ifndef KXIFC_MERGER_H
#define KXIFC_MERGER_H

#include "kxifc_defs.h"
#include "kxifc_model.h"
#include "kxifc_schema.h"

KX_EXTERN_C_BEGIN

typedef struct kxIfcModelMerger kxIfcModelMerger;

/* A new merger of the given main file (the name is copied); no secondaries. */
KX_API kxIfcModelMerger *kxIfcModelMerger_new(const kxWChar *main_file_name);
/* Adds a secondary file (copied) unless an equal name is already listed. */
KX_API void kxIfcModelMerger_add_secondary_model(kxIfcModelMerger *model_merger, const kxWChar *file_name);
/* Merges the files. kxBTRUE with *merged_model set (the caller frees it)
 * unless the main file cannot be read or is not IFC4 (then kxBFALSE and
 * NULL). translation_table_file_name (or NULL) is read when it exists and
 * written afterwards. *files_not_merged (when the address is given) gets a
 * new list of the secondary names that could not be merged, or NULL. */
KX_API kxBool kxIfcModelMerger_merge_models(kxIfcModelMerger *model_merger,
                                            const kxWChar *translation_table_file_name,
                                            kxIfcModel **merged_model, kxArrString **files_not_merged);
/* Frees the merger; *model_merger becomes NULL. */
KX_API void kxIfcModelMerger_free(kxIfcModelMerger **model_merger);

KX_EXTERN_C_END

#endif
