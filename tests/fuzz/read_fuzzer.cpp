// libFuzzer target: the reader, the export and the reader again on every
// input (see exercise_reader.h). Any difference aborts, so the fuzzer keeps
// the input.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "exercise_reader.h"

namespace {

const std::string &work_directory() {
    static const std::string directory = [] {
        char pattern[] = "/tmp/kxifc_fuzz_XXXXXX";
        const char *made = mkdtemp(pattern);
        return std::string(made != nullptr ? made : "/tmp");
    }();
    return directory;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string input = work_directory() + "/input.ifc";
    FILE *file = std::fopen(input.c_str(), "wb");
    if (file == nullptr) return 0;
    std::fwrite(data, 1, size, file);
    std::fclose(file);
    const std::string problem = kxfuzz::exercise_reader(input, work_directory());
    if (!problem.empty()) {
        std::fprintf(stderr, "read_fuzzer: %s\n", problem.c_str());
        std::abort();
    }
    return 0;
}
