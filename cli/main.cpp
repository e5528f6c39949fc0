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

constexpr Command kCommands[] = {
    {"guid", "[N]", "print N (default 1) fresh 22-character compressed GUIDs, one per line",
     run_guid},
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
