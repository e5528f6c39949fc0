// The library's version, fixed when it is built (the header is configured
// from the project version).
#include "kxifc_version.h"

extern "C" {

KX_API const char *kxifcmodel_version(void) { return KXIFCMODEL_VERSION_STRING; }

KX_API int32_t kxifcmodel_version_number(void) { return KXIFCMODEL_VERSION_NUMBER; }

}
