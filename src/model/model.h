// The model: owner of every instance of one population, its header, its
// release, the counters that number instances, the per-class object tables
// and the model manager through which instances reach back to it.
#pragma once

#include <cstdint>

#include "kxifc_files.h"
#include "kxifc_model.h"
#include "support/ptrarray.h"

struct kxIfcModelMngr_t;

struct kxIfcModel {
    kxIfcHeader *header;
    kxIfcVersion_t ifc_version;
    uint32_t object_id_counter;
    uint32_t output_id_counter;
    kx::PtrArray *objects;        // creation order; the model's own reference to each
    kx::PtrArray *object_tables;  // kxIfcObjTable_t per unique class id
    kxIfcModelMngr_t *model_manager;
    int32_t text_mode;            // kxTextMode of its exports
    int32_t last_export_status;   // kxExportStatus
    kxProgressFn export_progress;
    void *export_progress_data;
};

namespace kx {

// A model built from parts read from a file; it takes each of them over,
// the reader's model manager included (every instance already points at it).
// The value objects the reader made (select values, all listed in objects
// too) get the output ids after the file's.
kxIfcModel *model_new_from_parts(kxIfcHeader **header, kxIfcVersion_t version, uint32_t object_id_counter,
                                 uint32_t output_id_counter, PtrArray **objects, PtrArray **object_tables,
                                 kxIfcModelMngr_t **model_manager, const PtrArray *value_objects);

// Moves every instance of the source model into the target: each is marked
// as moved, renumbered by the target, takes the target's model manager and
// is listed in the target's list and tables; the source ends empty (nothing
// is released).
void model_move_all_instances(kxIfcModel *source, kxIfcModel *target);

}  // namespace kx
