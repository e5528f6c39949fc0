// Compiled as C++ with -pedantic -Werror: the umbrella header must be clean C++.
#include "kxifcmodel.h"

int kx_header_check_cxx();
int kx_header_check_cxx() { return kxBTRUE; }
