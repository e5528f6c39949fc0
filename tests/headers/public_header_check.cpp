// Compiled as C++ with -pedantic -Werror: the umbrella header and the C++
// layer must be clean C++.
#include "kxifcmodel.h"
#include "kxifcmodel.hpp"

int kx_header_check_cxx();
int kx_header_check_cxx() { return kxBTRUE; }
