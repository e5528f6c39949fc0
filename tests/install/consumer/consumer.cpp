// Reads a file through the installed library and its C++ layer.
#include <cstdio>

#include "kxifcmodel.hpp"

int main(int argc, char **argv) {
    if (argc != 2) return 2;
    const std::optional<kx::Model> model = kx::Model::read(argv[1]);
    if (!model) return 1;
    const kx::InstanceRange walls = model->by_type("IfcWall");
    if (walls.empty()) return 1;
    std::printf("C++: %u walls, the first named %s\n", walls.size(),
                kx::to_utf8(kxIfcWall_get_Name(walls[0].get())).c_str());
    return 0;
}
