// The header record of a model: the data of the HEADER section of an
// exchange file. The record owns its eight members. A record made by
// kxIfcHeader_new_empty_header has none NULL; one built from a file's header
// section may lack the members of an entity the file did not carry (NULL).
#pragma once

#include "kxifc_header.h"
#include "support/valuearray.h"
#include "support/wstring.h"

struct kxIfcHeader {
    kx::WStrArray *description_data;    // FILE_DESCRIPTION description items
    kx::WideString file_name;           // FILE_NAME name
    kx::WideString time_stamp;          // FILE_NAME time stamp
    kx::WStrArray *author_data;         // FILE_NAME author items
    kx::WStrArray *organization_data;   // FILE_NAME organization items
    kx::WideString originating_system;  // FILE_NAME originating system
    kx::WStrArray *authorization_data;  // FILE_NAME authorization, as items
    // The schema name read from FILE_SCHEMA; once the header has been
    // written, the whole FILE_SCHEMA text that was written.
    kx::WideString file_schema;
};

namespace kx {

// A new record built from the eight values, which it takes over: every
// holder given is left NULL. An absent value (a NULL holder or a holder
// holding NULL) leaves its member NULL.
kxIfcHeader *header_new(WStrArray **description_data, WideString *file_name, WideString *time_stamp,
                        WStrArray **author_data, WStrArray **organization_data,
                        WideString *originating_system, WStrArray **authorization_data,
                        WideString *file_schema);

// Destroys the eight members and the record; *header becomes NULL.
void header_destroy(kxIfcHeader **header);

// Replace the member with *value, taken over (the holder is left NULL); the
// old string is destroyed.
void header_set_time_stamp(kxIfcHeader *header, WideString *time_stamp);
void header_set_file_schema(kxIfcHeader *header, WideString *file_schema);

}  // namespace kx
