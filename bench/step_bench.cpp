// Reading, writing and freeing one exchange file: time, throughput and
// memory. Usage: step_bench FILE.ifc [read_mode [threads]]
// (bench/make_large_ifc.py makes a large file from a sample one). Built
// against an earlier revision (bench/compare_builds.sh), without
// KX_BENCH_THREADS, it reads on one thread through the oldest interface.
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "kxifcmodel.h"
#include "support/memory.h"

namespace {

double seconds_since(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double peak_rss_mib() {
    struct rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss / 1024.0;
}

double file_mib(const std::string &path) {
    struct stat info;
    return stat(path.c_str(), &info) == 0 ? info.st_size / 1048576.0 : 0.0;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s FILE.ifc [read_mode [threads]]\n", argv[0]);
        return 2;
    }
    const std::string path = argv[1];
    const uint32_t mode = argc > 2 ? static_cast<uint32_t>(std::atoi(argv[2])) : 0;
    const uint32_t threads = argc > 3 ? static_cast<uint32_t>(std::atoi(argv[3])) : 1;
    const double size = file_mib(path);
    kxWChar *name = kxWideString_new_from_utf8(path.c_str());

    auto start = std::chrono::steady_clock::now();
    kxBool errors = kxBFALSE;
#ifdef KX_BENCH_THREADS
    kxReadReport *report = kxReadReport_new(0);
    kxReadReport_set_threads(report, threads);
    kxIfcModel *model = kxIfcModel_read_with_report(name, mode, KX_TEXT_MODE_SPEC, report, &errors);
    kxReadReport_free(&report);
#else
    kxIfcModel *model = kxIfcModel_read_from_step_file(name, mode, &errors);
#endif
    const double read_s = seconds_since(start);
    kxWideString_free(&name);
    if (model == nullptr) {
        std::fprintf(stderr, "cannot read %s\n", path.c_str());
        return 1;
    }
    const double rss_after_read = peak_rss_mib();
    const int64_t held = kx::mem_usage().live_bytes;

    char directory[] = "/tmp/kxifc_bench_XXXXXX";
    if (mkdtemp(directory) == nullptr) return 1;
    kxWChar *out_name = kxWideString_new_from_utf8("written");
    kxWChar *out_directory = kxWideString_new_from_utf8(directory);
    start = std::chrono::steady_clock::now();
    kxIfcModel_export_model_to_file(model, out_name, out_directory);
    const double write_s = seconds_since(start);
    const std::string written = std::string(directory) + "/written.ifc";
    const double written_size = file_mib(written);
    std::remove(written.c_str());
    rmdir(directory);
    kxWideString_free(&out_name);
    kxWideString_free(&out_directory);

    const uint32_t objects = kxIfcModel_count_objects(model);
    start = std::chrono::steady_clock::now();
    kxIfcModel_free(&model);
    const double free_s = seconds_since(start);

    std::printf("file                 %s (%.1f MiB), %u instances, errors %s\n", path.c_str(), size, objects,
                errors ? "yes" : "no");
    std::printf("read                 %.3f s  %.1f MB/s  (%u thread%s)\n", read_s, size * 1.048576 / read_s, threads,
                threads == 1 ? "" : "s");
    std::printf("model memory         %.1f MiB tracked (%.2fx the file), peak RSS %.1f MiB (%.2fx)\n",
                held / 1048576.0, held / 1048576.0 / size, rss_after_read, rss_after_read / size);
    std::printf("write                %.3f s  %.1f MB/s (%.1f MiB written)\n", write_s,
                written_size * 1.048576 / write_s, written_size);
    std::printf("free                 %.3f s\n", free_s);
    return 0;
}
