/* Compiled as C11 with -pedantic -Werror: the umbrella header must be clean C. */
#include "kxifcmodel.h"

int kx_header_check_c(void);
int kx_header_check_c(void) { return kxBTRUE; }
