// kxifc: a command-line front end to the kxifcmodel library.
//
// Each subcommand is one entry of the table below: a name, its argument
// synopsis, a one-line summary and the function that runs it with the
// arguments that follow the name. Exit status: 0 on success, 1 when the work
// itself failed, 2 for a usage error.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

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

constexpr Command kCommands[] = {
    {"guid", "[N]", "print N (default 1) fresh 22-character compressed GUIDs, one per line",
     run_guid},
    {"header", "FILE", "print the schema release and the HEADER section fields of an IFC file",
     run_header},
};

void print_usage(std::FILE *out) {
    std::fprintf(out, "usage: kxifc <command> [arguments]\n       kxifc --help\n\ncommands:\n");
    for (const Command &command : kCommands)
        std::fprintf(out, "  %s %-8s %s\n", command.name, command.synopsis, command.summary);
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
        std::fprintf(stderr, "kxifc header: no readable HEADER section in \"%s\"\n", argv[0]);
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
