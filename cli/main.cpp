// kxifc: a command-line front end to the kxifcmodel library.
//
// Each subcommand is one entry of the table below: a name, its argument
// synopsis, a one-line summary and the function that runs it with the
// arguments that follow the name. Exit status: 0 on success, 1 when the work
// itself failed, 2 for a usage error.
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <system_error>
#include <unordered_map>
#include <utility>
#include <vector>

#include "commands.h"
#include "kxifcmodel.h"

namespace {

constexpr int kExitOk = 0;
constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

struct Command {
    const char *name;
    const char *synopsis;
    const char *summary;
    int (*run)(int argc, char **argv);  // argv[0] is the first argument after the name
};

int run_guid(int argc, char **argv);
int run_header(int argc, char **argv);
int run_stats(int argc, char **argv);
int run_copy(int argc, char **argv);
int run_check(int argc, char **argv);

constexpr Command kCommands[] = {
    {"guid", "[N]", "print N (default 1) fresh 22-character compressed GUIDs, one per line",
     run_guid},
    {"header", "FILE", "print the schema release and the HEADER section fields of an IFC file",
     run_header},
    {"stats", "[--all] [FILE]", "read an IFC file (default: the bundled sample); print release,\n"
     "         entity instance count, read speed and the most frequent classes\n"
     "         (--all: every class present, by name)",
     run_stats},
    {"copy", "[--spec-text] IN OUT.ifc", "read an IFC file and write its model out again as OUT.ifc,\n"
     "         losing nothing (--spec-text: the fixed text form); exit 1 when\n"
     "         the input had errors (what was read is still written)",
     run_copy},
    {"check", "FILE", "list what an IFC file holds that does not fit its schema or the\n"
     "         exchange format, as FILE:LINE:COL: lines; exit 0 clean, 1 problems\n"
     "         found, 2 unreadable",
     run_check},
    {"info", "FILE", "print the schema, header fields, entity instance counts, spatial\n"
     "         structure and units of an IFC file",
     kxcli::run_info},
    {"merge", "MAIN SEC... -o OUT", "merge IFC4 files of one project into OUT (--help for more)",
     kxcli::run_merge},
    {"units", "IN -o OUT OPTIONS", "convert the units of a whole model (--help for the options)",
     kxcli::run_units},
};

void print_usage(std::FILE *out) {
    std::fprintf(out, "usage: kxifc <command> [arguments]\n       kxifc --help\n\ncommands:\n");
    for (const Command &command : kCommands)
        std::fprintf(out, "  %-6s %s\n         %s\n", command.name, command.synopsis, command.summary);
}

// Largest count `guid` accepts, to keep a typo from flooding the terminal.
constexpr unsigned long kMaxGuidCount = 10000000;

// Parses a decimal count from 1 to kMaxGuidCount; false for anything else.
bool parse_count(const char *text, unsigned long *count) {
    if (text[0] < '0' || text[0] > '9') return false;  // no sign, no blanks
    errno = 0;
    char *end = nullptr;
    const unsigned long value = std::strtoul(text, &end, 10);
    if (errno != 0 || *end != '\0' || value == 0 || value > kMaxGuidCount) return false;
    *count = value;
    return true;
}

int run_guid(int argc, char **argv) {
    unsigned long count = 1;
    if (argc > 1) {
        std::fprintf(stderr, "kxifc guid: too many arguments\n");
        return kExitUsage;
    }
    if (argc == 1 && !parse_count(argv[0], &count)) {
        std::fprintf(stderr, "kxifc guid: N must be a whole number from 1 to %lu, not \"%s\"\n",
                     kMaxGuidCount, argv[0]);
        return kExitUsage;
    }
    for (unsigned long i = 0; i < count; ++i) {
        kxWChar *guid = kxCreateCompressedGuidString_Create();
        if (guid == nullptr) {
            std::fprintf(stderr, "kxifc guid: no random GUID could be made\n");
            return kExitFailure;
        }
        char *text = kxWideString_to_utf8(guid);
        std::fputs(text, stdout);
        std::fputc('\n', stdout);
        kxUtf8String_free(&text);
        kxWideString_free(&guid);
    }
    return std::fflush(stdout) == 0 ? kExitOk : kExitFailure;
}

// "label: text" for a field the file carries; nothing for an absent one.
void print_field(const char *label, const kxWChar *value) {
    if (value == nullptr) return;
    char *text = kxWideString_to_utf8(value);
    std::printf("%s: %s\n", label, text);
    kxUtf8String_free(&text);
}

// One "label: item" line per item of a header list.
void print_items(const char *label, const kxIfcHeader *header, uint32_t (*count)(const kxIfcHeader *),
                 const kxWChar *(*item)(const kxIfcHeader *, uint32_t)) {
    const uint32_t n = count(header);
    for (uint32_t i = 0; i < n; i++) print_field(label, item(header, i));
}

const char *release_name(kxBool known, kxIfcVersion_t version) {
    if (!known) return "unknown";
    return version == KXIFCVERSION_IFC_4 ? "IFC4" : "IFC2X3";
}

int run_header(int argc, char **argv) {
    if (argc != 1) {
        std::fprintf(stderr, "kxifc header: give exactly one file\n");
        return kExitUsage;
    }
    kxWChar *file_name = kxWideString_new_from_utf8(argv[0]);
    kxIfcHeader *header = kxIfcHeader_read_from_file(file_name);
    kxIfcVersion_t version = ifc_version_not_defined;
    const kxBool known = header != nullptr ? kxIfcHeader_read_ifc_version(file_name, &version) : kxBFALSE;
    kxWideString_free(&file_name);
    if (header == nullptr) {
        std::error_code error;
        const auto status = std::filesystem::status(argv[0], error);
        const char *why = error || !std::filesystem::exists(status)          ? "no such file"
                          : !std::filesystem::is_regular_file(status)         ? "not a regular file"
                                                                              : "no readable HEADER section";
        std::fprintf(stderr, "kxifc header: \"%s\": %s\n", argv[0], why);
        return kExitFailure;
    }
    std::printf("release: %s\n", release_name(known, version));
    print_field("schema", kxIfcHeader_get_file_schema(header));
    print_items("description", header, kxIfcHeader_description_fields_count, kxIfcHeader_get_description_field);
    print_field("name", kxIfcHeader_get_file_name(header));
    print_field("time stamp", kxIfcHeader_get_timestamp(header));
    print_items("author", header, kxIfcHeader_author_fields_count, kxIfcHeader_get_author_field);
    print_items("organization", header, kxIfcHeader_organization_fields_count, kxIfcHeader_get_organization_field);
    print_field("originating system", kxIfcHeader_get_originating_system(header));
    print_items("authorization", header, kxIfcHeader_authorization_fields_count,
                kxIfcHeader_get_authorization_field);
    kxIfcHeader_free(&header);
    return std::fflush(stdout) == 0 ? kExitOk : kExitFailure;
}

// The file `stats` reads when given none: the sample this project ships.
#ifdef KXIFC_DEFAULT_SAMPLE
constexpr const char *kDefaultSample = KXIFC_DEFAULT_SAMPLE;
#else
constexpr const char *kDefaultSample = "examples/data/sample_house.ifc";
#endif

// How many classes `stats` lists (more when the last of them is tied).
constexpr size_t kTopClasses = 10;

// A model read from a file with its read report, freed when it goes out of
// scope.
class ReadModel {
public:
    ReadModel(const char *command, const char *path, bool *with_errors, kxTextMode text_mode = KX_TEXT_MODE_LOSSLESS)
        : report_(kxReadReport_new(0)) {
        kxWChar *file_name = kxWideString_new_from_utf8(path);
        kxBool errors = kxBFALSE;
        kxcli::ProgressLine progress(command, "reading");
        kxReadReport_set_progress(report_, kxcli::ProgressLine::report, &progress);
        kxReadReport_set_threads(report_, 0);  // every core
        model_ = kxIfcModel_read_with_report(file_name, 0, text_mode, report_, &errors);
        kxReadReport_set_progress(report_, nullptr, nullptr);
        kxWideString_free(&file_name);
        *with_errors = errors != kxBFALSE;
    }
    ~ReadModel() {
        if (model_ != nullptr) kxIfcModel_free(&model_);
        kxReadReport_free(&report_);
    }
    ReadModel(const ReadModel &) = delete;
    ReadModel &operator=(const ReadModel &) = delete;
    kxIfcModel *get() const { return model_; }
    const kxReadReport *report() const { return report_; }

private:
    kxIfcModel *model_ = nullptr;
    kxReadReport *report_ = nullptr;
};

// One compiler-style line per problem kept: "FILE:LINE:COL: error: #id
// NAME attribute N (Name): message".
void print_problems(std::FILE *out, const char *path, const kxReadReport *report) {
    const uint32_t count = kxReadReport_count(report);
    for (uint32_t i = 0; i < count; i++) {
        std::fprintf(out, "%s:", path);
        if (kxReadReport_line(report, i) != 0)
            std::fprintf(out, "%u:%u:", kxReadReport_line(report, i), kxReadReport_column(report, i));
        std::fprintf(out, " %s: ", kxReadSeverity_name(kxReadReport_severity(report, i)));
        const uint32_t id = kxReadReport_file_id(report, i), attribute = kxReadReport_attribute_index(report, i);
        const char *entity = kxReadReport_entity_name(report, i);
        if (id != 0) std::fprintf(out, "#%u%s", id, *entity != 0 ? " " : "");
        std::fputs(entity, out);
        if (attribute != 0)
            std::fprintf(out, " attribute %u (%s)", attribute, kxReadReport_attribute_name(report, i));
        if (id != 0 || *entity != 0 || attribute != 0) std::fputs(": ", out);
        std::fprintf(out, "%s\n", kxReadReport_message(report, i));
    }
}

// "N errors, M warnings", then one line per code met with its count.
void print_problem_summary(std::FILE *out, const kxReadReport *report) {
    std::fprintf(out, "%llu errors, %llu warnings\n",
                 static_cast<unsigned long long>(kxReadReport_total_of_severity(report, KX_SEVERITY_ERROR)),
                 static_cast<unsigned long long>(kxReadReport_total_of_severity(report, KX_SEVERITY_WARNING)));
    for (kxReadCode code = 1; code < KX_READ_CODE_COUNT; code++) {
        const uint64_t total = kxReadReport_total(report, code);
        if (total > 0)
            std::fprintf(out, "  %-24s %llu\n", kxReadCode_name(code), static_cast<unsigned long long>(total));
    }
}

int run_check(int argc, char **argv) {
    if (argc != 1) {
        std::fprintf(stderr, "kxifc check: give exactly one file\n");
        return kExitUsage;
    }
    bool with_errors = false;
    ReadModel read("check", argv[0], &with_errors);
    print_problems(stdout, argv[0], read.report());
    const uint64_t kept = kxReadReport_count(read.report());
    const uint64_t total = kxReadReport_total(read.report(), 0);
    if (total > kept)
        std::printf("(%llu more problems not listed)\n", static_cast<unsigned long long>(total - kept));
    print_problem_summary(stdout, read.report());
    if (std::fflush(stdout) != 0) return kExitFailure;
    if (read.get() == nullptr) return kExitUsage;
    return total > 0 ? kExitFailure : kExitOk;
}

std::string utf8(const kxWChar *text) {
    char *converted = kxWideString_to_utf8(text);
    std::string result = converted != nullptr ? converted : "";
    kxUtf8String_free(&converted);
    return result;
}

// Instances per class name. The names are static strings of the library, one
// per class, so the visit counts by pointer and names are compared later.
void count_instance(kxBaseObject *instance, void *user_data, int32_t * /*stop*/) {
    auto &counts = *static_cast<std::unordered_map<const kxWChar *, unsigned long> *>(user_data);
    ++counts[kxBaseObject_dontuse_get_ifc_class_name(instance)];
}

int run_stats(int argc, char **argv) {
    const bool all = argc > 0 && std::strcmp(argv[0], "--all") == 0;
    if (all) argc--, argv++;
    if (argc > 1) {
        std::fprintf(stderr, "kxifc stats: give at most one file\n");
        return kExitUsage;
    }
    const char *path = argc == 1 ? argv[0] : kDefaultSample;
    std::error_code size_error;
    const std::uintmax_t size = std::filesystem::file_size(path, size_error);
    if (size_error) {
        std::fprintf(stderr, "kxifc stats: cannot read \"%s\": %s\n", path, size_error.message().c_str());
        return kExitFailure;
    }

    bool with_errors = false;
    const auto start = std::chrono::steady_clock::now();
    ReadModel read("stats", path, &with_errors);
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    if (read.get() == nullptr) {
        std::fprintf(stderr, "kxifc stats: \"%s\" is not a readable IFC file\n", path);
        return kExitFailure;
    }
    kxIfcModel *model = read.get();

    // Count the instances of each class; select values (held in objects of
    // their own) are counted apart from the instances of entities.
    std::unordered_map<const kxWChar *, unsigned long> by_name;
    kxIfcModel_clear_objects_visited_mask(model);
    kxIfcModel_dontuse_visit_model(model, &by_name, count_instance);
    std::map<std::string, unsigned long> entity_counts;
    unsigned long entities = 0;
    unsigned long select_values = 0;
    for (const auto &[name, count] : by_name) {
        const kxClass_t *klass = kxClass_find_by_name(name);
        if (klass != nullptr && !kxClass_is_entity(klass)) {
            select_values += count;
            continue;
        }
        entity_counts[utf8(name)] += count;
        entities += count;
    }
    std::vector<std::pair<std::string, unsigned long>> ranked(entity_counts.begin(), entity_counts.end());
    std::stable_sort(ranked.begin(), ranked.end(),
                     [](const auto &a, const auto &b) { return a.second > b.second; });

    const double seconds = elapsed.count();
    const double megabytes = static_cast<double>(size) / 1e6;
    std::printf("file: %s\n", path);
    std::printf("release: %s\n", release_name(kxBTRUE, kxIfcModel_ifc_version(model)));
    std::printf("instances: %lu (and %lu select values held as objects)\n", entities, select_values);
    std::printf("read errors: %s\n", with_errors ? "yes" : "no");
    if (seconds > 0)
        std::printf("read time: %.3f ms (%.3f MB, %.1f MB/s)\n", seconds * 1e3, megabytes, megabytes / seconds);
    else
        std::printf("read time: 0 ms (%.3f MB)\n", megabytes);
    if (all) {
        std::printf("classes:\n");
        std::map<std::string, unsigned long> upper_counts;
        for (const auto &[name, count] : entity_counts) {
            std::string upper = name;
            std::transform(upper.begin(), upper.end(), upper.begin(),
                           [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
            upper_counts[upper] += count;
        }
        for (const auto &[name, count] : upper_counts) std::printf("  %-40s %lu\n", name.c_str(), count);
        return std::fflush(stdout) == 0 ? kExitOk : kExitFailure;
    }
    // The first kTopClasses, then those as frequent as the last of them (a
    // cut through a tie would drop classes by the accident of their names),
    // up to kTopClasses more; the rest of a long tie is summed up.
    std::printf("most frequent classes:\n");
    size_t shown = std::min(ranked.size(), kTopClasses);
    while (shown < ranked.size() && shown < 2 * kTopClasses && ranked[shown].second == ranked[shown - 1].second)
        shown++;
    for (size_t i = 0; i < shown; i++)
        std::printf("  %-40s %lu\n", ranked[i].first.c_str(), ranked[i].second);
    size_t tied = 0;
    while (shown > 0 && shown + tied < ranked.size() && ranked[shown + tied].second == ranked[shown - 1].second)
        tied++;
    if (tied > 0)
        std::printf("  (%zu more classes with %lu instances each)\n", tied, ranked[shown - 1].second);
    return std::fflush(stdout) == 0 ? kExitOk : kExitFailure;
}

// "x.ifc" without its extension (compared ignoring case); other names as
// they are.
std::string without_ifc_extension(const std::string &name) {
    constexpr const char *kExtension = ".ifc";
    const size_t n = std::strlen(kExtension);
    if (name.size() > n) {
        std::string tail = name.substr(name.size() - n);
        std::transform(tail.begin(), tail.end(), tail.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        if (tail == kExtension) return name.substr(0, name.size() - n);
    }
    return name;
}

int run_copy(int argc, char **argv) {
    const bool spec_text = argc > 0 && std::strcmp(argv[0], "--spec-text") == 0;
    if (spec_text) argc--, argv++;
    if (argc != 2) {
        std::fprintf(stderr, "kxifc copy: give an input file and an output file\n");
        return kExitUsage;
    }
    const char *input = argv[0];
    const std::filesystem::path output(argv[1]);
    const std::string base_name = without_ifc_extension(output.filename().string());
    if (base_name.empty() || base_name == "." || base_name == "..") {
        std::fprintf(stderr, "kxifc copy: \"%s\" names no file\n", argv[1]);
        return kExitUsage;
    }
    const std::filesystem::path directory = output.has_parent_path() ? output.parent_path() : ".";
    const std::filesystem::path written = directory / (base_name + ".ifc");

    bool with_errors = false;
    ReadModel read("copy", input, &with_errors, spec_text ? KX_TEXT_MODE_SPEC : KX_TEXT_MODE_LOSSLESS);
    if (read.get() == nullptr) {
        print_problems(stderr, input, read.report());
        std::fprintf(stderr, "kxifc copy: \"%s\" is not a readable IFC file\n", input);
        return kExitFailure;
    }
    if (kxReadReport_total(read.report(), 0) > 0) {
        std::fprintf(stderr, "kxifc copy: \"%s\": ", input);
        print_problem_summary(stderr, read.report());
    }
    if (with_errors)
        std::fprintf(stderr, "kxifc copy: \"%s\" holds data that does not fit its schema; copying what was read"
                     " (kxifc check lists it)\n", input);

    kxWChar *file_name = kxWideString_new_from_utf8(base_name.c_str());
    kxWChar *folder = kxWideString_new_from_utf8(directory.string().c_str());
    kxcli::ProgressLine progress("copy", "writing");
    kxIfcModel_set_export_progress(read.get(), kxcli::ProgressLine::report, &progress);
    const kxExportStatus status = kxIfcModel_export_with_status(read.get(), file_name, folder);
    kxWideString_free(&file_name);
    kxWideString_free(&folder);
    if (status != KX_EXPORT_OK) {
        std::fprintf(stderr, "kxifc copy: could not write \"%s\": %s\n", written.string().c_str(),
                     kxExportStatus_message(status));
        return kExitFailure;
    }
    std::printf("copied %s (%s, %u instances) to %s\n", input,
                release_name(kxBTRUE, kxIfcModel_ifc_version(read.get())),
                static_cast<unsigned>(kxIfcModel_count_objects(read.get())), written.string().c_str());
    if (std::fflush(stdout) != 0) return kExitFailure;
    return with_errors ? kExitFailure : kExitOk;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc < 2) {
        print_usage(stderr);
        return kExitUsage;
    }
    const char *name = argv[1];
    if (std::strcmp(name, "--help") == 0 || std::strcmp(name, "-h") == 0 ||
        std::strcmp(name, "help") == 0) {
        print_usage(stdout);
        return kExitOk;
    }
    for (const Command &command : kCommands)
        if (std::strcmp(name, command.name) == 0) return command.run(argc - 2, argv + 2);
    std::fprintf(stderr, "kxifc: unknown command \"%s\"\n\n", name);
    print_usage(stderr);
    return kExitUsage;
}
