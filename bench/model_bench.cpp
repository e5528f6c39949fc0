// Creating and freeing many instances in one model: time, memory and bytes
// per instance. Usage: model_bench [instances]   (default 1,000,000)
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "core/class.h"
#include "kxifcmodel.h"
#include "support/memory.h"

namespace {

double seconds_since(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

long peak_rss_kib() {
    struct rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

// Tracked bytes held by `count` fresh instances of one class.
double bytes_per_instance(const kxClass_t *klass, int count) {
    kxIfcModel *model = kxIfcModel_new();
    kxIfcModel_set_version(model, KXIFCVERSION_IFC_4);
    const int64_t before = kx::mem_usage().live_bytes;
    for (int i = 0; i < count; i++) kxIfcModel_dontuse_new_object(model, klass);
    const double per = double(kx::mem_usage().live_bytes - before) / count;
    kxIfcModel_free(&model);
    return per;
}

}  // namespace

int main(int argc, char **argv) {
    const int total = argc > 1 ? std::atoi(argv[1]) : 1000000;
    // A mix shaped like real files: mostly geometry, some products and relations.
    const std::vector<const kxClass_t *> mix = {
        kxIfcCartesianPoint_class(), kxIfcCartesianPoint_class(), kxIfcCartesianPoint_class(),
        kxIfcDirection_class(),      kxIfcPolyLoop_class(),       kxIfcFaceOuterBound_class(),
        kxIfcFace_class(),           kxIfcAxis2Placement3D_class(), kxIfcLocalPlacement_class(),
        kxIfcPropertySingleValue_class(), kxIfcWall_class(),      kxIfcRelDefinesByProperties_class(),
    };

    kxIfcModel *model = kxIfcModel_new();
    kxIfcModel_set_version(model, KXIFCVERSION_IFC_4);
    auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < total; i++) kxIfcModel_dontuse_new_object(model, mix[i % mix.size()]);
    const double create_s = seconds_since(start);
    const int64_t held = kx::mem_usage().live_bytes;
    start = std::chrono::steady_clock::now();
    kxIfcModel_free(&model);
    const double free_s = seconds_since(start);

    std::printf("instances            %d (mixed classes, IFC4)\n", total);
    std::printf("create               %.3f s  (%.0f ns per instance)\n", create_s, create_s * 1e9 / total);
    std::printf("free                 %.3f s  (%.0f ns per instance)\n", free_s, free_s * 1e9 / total);
    std::printf("tracked bytes held   %.1f MiB  (%.1f bytes per instance, tables included)\n",
                held / 1048576.0, double(held) / total);
    std::printf("peak tracked bytes   %.1f MiB\n", kx::mem_usage().peak_bytes / 1048576.0);
    std::printf("peak RSS             %.1f MiB\n", peak_rss_kib() / 1024.0);
    std::printf("IfcCartesianPoint    %.1f bytes per instance\n", bytes_per_instance(kxIfcCartesianPoint_class(), 100000));
    std::printf("IfcWall              %.1f bytes per instance\n", bytes_per_instance(kxIfcWall_class(), 100000));
    std::printf("leaked blocks        %lld\n", (long long)kx::mem_usage().live_blocks);
    return 0;
}
