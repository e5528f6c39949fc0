// Select values: an instance head, the value of the member held and the
// member's code (0 when nothing is held). Members are numbered from 1 in the
// order of the select's member table.
#pragma once

#include <cstdint>

#include "core/baseobject.h"
#include "kxifc_defs.h"

struct kxAggregate;

union kxSelectValue {
    double real;
    int32_t integer;         // INTEGER, BOOLEAN, LOGICAL and enumeration members
    char16_t *string;        // owned
    kxBaseObject *object;    // retained
    kxAggregate *aggregate;  // owned
    kxBinary binary;         // owned contents
};

struct kxSelectObject {
    kxBaseObject base;
    kxSelectValue value;
    uint32_t type;
    uint32_t reserved;
};

namespace kx {
// Releases or frees the member held and leaves the select empty.
void select_clear(kxSelectObject *select);
}  // namespace kx
