/*
 * kxifcmodel.h: the whole public interface of kxifcmodel, an in-memory,
 * early-bound object model of IFC (IFC2X3 and IFC4) read from and written to
 * ISO 10303-21 files. Include this one header; it compiles as C11 and as C++.
 *
 * Sections:
 *   kxifc_defs.h         basic types, booleans, schema releases
 *   kxifc_version.h      generated: version of the headers and the library
 *   kxifc_diagnostics.h  assertion reports and memory usage
 *   kxifc_text.h         UTF-8 <-> UTF-16 conversion for hosts
 *   kxifc_coretypes.h    the six EXPRESS base types and their undefined values
 *   kxifc_guid.h         22-character compressed GUIDs
 *   kxifc_model.h        models, instances, classes, instance arrays
 *   kxifc_header.h       the file header record
 *   kxifc_files.h        lossless text mode, read reports
 *   kxifc_schema.h       generated: kx<Type>_class, enumerations, defined
 *                        types and aggregates of both schema releases
 *   kxifc_relations.h    relationship helpers (kxRelCommon_*)
 *   kxifc_units.h        units model conversor (kxUnitsModelConversor_*)
 *   kxifc_merger.h       model merger (kxIfcModelMerger_*)
 */
#ifndef KXIFCMODEL_H
#define KXIFCMODEL_H

#include "kxifc_defs.h"
#include "kxifc_version.h"
#include "kxifc_diagnostics.h"
#include "kxifc_text.h"
#include "kxifc_coretypes.h"
#include "kxifc_guid.h"
#include "kxifc_model.h"
#include "kxifc_header.h"
#include "kxifc_files.h"
#include "kxifc_schema.h"
#include "kxifc_relations.h"
#include "kxifc_units.h"
#include "kxifc_merger.h"

#endif
