// kxifc merge MAIN.ifc SECONDARY.ifc... -o OUT.ifc [--table FILE]: joins the
// IFC4 files of one project into one through the model merger.
#include "commands.h"

namespace kxcli {
namespace {

constexpr const char *kUsage =
    "usage: kxifc merge MAIN.ifc SECONDARY.ifc... -o OUT.ifc [--table FILE]\n"
    "Moves every instance of the secondary IFC4 files into the model of the main one, matching\n"
    "sites, buildings and storeys by GlobalId and replacing GlobalIds that would collide, and\n"
    "writes the result as OUT.ifc. With --table, the replaced GlobalIds are read from and\n"
    "written to FILE, so that merging the same files again gives the same GlobalIds.\n"
    "Lists the secondary files that could not be merged; exit 1 when there are any or when\n"
    "the main file cannot be read.\n";

}  // namespace

int run_merge(int argc, char **argv) {
    if (wants_help(argc, argv)) return print_usage_of(kUsage, true);
    const Arguments arguments = parse_arguments(argc, argv, {"-o", "--table"}, {});
    if (!arguments.error.empty()) return usage_error("merge", arguments.error, kUsage);
    if (arguments.files.size() < 2) return usage_error("merge", "give a main file and at least one more", kUsage);
    if (arguments.value("-o") == nullptr) return usage_error("merge", "give the output file with -o", kUsage);

    kxIfcModelMerger *merger = kxIfcModelMerger_new(kx::WideText(std::string_view(arguments.files[0])));
    for (size_t i = 1; i < arguments.files.size(); ++i)
        kxIfcModelMerger_add_secondary_model(merger, kx::WideText(std::string_view(arguments.files[i])));
    const char *table = arguments.value("--table");
    kxIfcModel *merged = nullptr;
    kxArrString *not_merged = nullptr;
    const kxBool done = kxIfcModelMerger_merge_models(
        merger, table != nullptr ? kx::WideText(std::string_view(table)).get() : nullptr, &merged, &not_merged);
    kxIfcModelMerger_free(&merger);
    kx::Model model(merged);
    const uint32_t failures = not_merged != nullptr ? kxArrString_count(not_merged) : 0;
    for (uint32_t i = 0; i < failures; ++i)
        std::printf("not merged: %s\n", kx::to_utf8(kxArrString_get(not_merged, i)).c_str());
    if (not_merged != nullptr) kxArrString_free(&not_merged);
    if (!done || !model) {
        std::fprintf(stderr, "kxifc merge: the main file \"%s\" cannot be read or is not IFC4\n", arguments.files[0]);
        return kExitFailure;
    }
    if (!write_model("merge", model, arguments.value("-o"))) return kExitFailure;
    std::printf("merged %zu of %zu files into %s (%u instances)\n", arguments.files.size() - failures,
                arguments.files.size(), arguments.value("-o"), model.size());
    return failures == 0 && std::fflush(stdout) == 0 ? kExitOk : kExitFailure;
}

}  // namespace kxcli
