// The type library: the list of every class, and the keyword tables of
// every type name of both releases, built afresh from the constant schema
// tables on each call.
#pragma once

#include "support/ptrarray.h"
#include "support/valuearray.h"

namespace kx {

// A new array of the 960 class descriptors (not owned), in the order of
// their names compared without case. The caller destroys the array only.
PtrArray *typelibrary_all_classes();

// Three new parallel arrays: every keyword (copies), its keyword id (its
// index) and its class descriptor (NULL for defined, enumeration and
// aggregate types). The caller owns the arrays.
void typelibrary_keyword_tables(WStrArray **keywords, ULongArray **unique_class_id, PtrArray **entity_classes);

}  // namespace kx
