// The kxifc subcommands that live in files of their own (info, merge,
// units), and the small helpers they share. Each run function gets the
// arguments after the subcommand's name and returns the exit status.
#pragma once

#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <unistd.h>

#include "kxifcmodel.hpp"

namespace kxcli {

constexpr int kExitOk = 0;
constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

int run_info(int argc, char **argv);
int run_merge(int argc, char **argv);
int run_units(int argc, char **argv);

// Whether any argument asks for help.
inline bool wants_help(int argc, char **argv) {
    for (int i = 0; i < argc; ++i)
        if (std::strcmp(argv[i], "--help") == 0 || std::strcmp(argv[i], "-h") == 0) return true;
    return false;
}

// Prints the usage text to stdout for --help (exit 0) or to stderr after a
// usage error (exit 2).
inline int print_usage_of(const char *usage, bool asked) {
    std::fputs(usage, asked ? stdout : stderr);
    return asked ? kExitOk : kExitUsage;
}

// A command line split into files, options with a value ("-o OUT") and
// flags ("--si").
struct Arguments {
    std::vector<const char *> files;
    std::map<std::string, const char *, std::less<>> values;
    std::set<std::string, std::less<>> flags;
    std::string error;  // why the line does not parse; empty when it does

    const char *value(std::string_view name) const {
        const auto found = values.find(name);
        return found != values.end() ? found->second : nullptr;
    }
    bool has(std::string_view name) const { return flags.count(name) != 0; }
};

inline Arguments parse_arguments(int argc, char **argv, std::initializer_list<std::string_view> value_options,
                                 std::initializer_list<std::string_view> flag_options) {
    const auto listed = [](std::initializer_list<std::string_view> names, std::string_view name) {
        for (std::string_view known : names)
            if (known == name) return true;
        return false;
    };
    Arguments parsed;
    for (int i = 0; i < argc && parsed.error.empty(); ++i) {
        const std::string_view argument = argv[i];
        if (listed(value_options, argument)) {
            if (i + 1 == argc)
                parsed.error = std::string(argument).append(" needs a value");
            else if (!parsed.values.emplace(argument, argv[i + 1]).second)
                parsed.error = std::string(argument).append(" given twice");
            ++i;
        } else if (listed(flag_options, argument)) {
            parsed.flags.emplace(argument);
        } else if (argument.size() > 1 && argument[0] == '-') {
            parsed.error = std::string("unknown option ").append(argument);
        } else {
            parsed.files.push_back(argv[i]);
        }
    }
    return parsed;
}

// Prints the parse error and the usage to stderr; the usage exit status.
inline int usage_error(const char *command, const std::string &error, const char *usage) {
    std::fprintf(stderr, "kxifc %s: %s\n", command, error.c_str());
    return print_usage_of(usage, false);
}

// "IFC4", "IFC2X3" or "unknown".
inline const char *release_text(kxIfcVersion_t version) {
    switch (version) {
    case KXIFCVERSION_IFC_4: return "IFC4";
    case KXIFCVERSION_IFC_2X3: return "IFC2X3";
    default: return "unknown";
    }
}

// A progress line on stderr ("kxifc copy: reading 45%") for long reads and
// writes: shown only when stderr is a terminal and only once the work has
// reported a step short of its end (short work stays silent); erased when
// the work is done.
class ProgressLine {
public:
    ProgressLine(const char *command, const char *action)
        : command_(command), action_(action), terminal_(isatty(STDERR_FILENO) == 1) {}
    ~ProgressLine() { erase(); }
    ProgressLine(const ProgressLine &) = delete;
    ProgressLine &operator=(const ProgressLine &) = delete;

    // A kxProgressFn whose user data is the ProgressLine.
    static void report(void *line, uint64_t done, uint64_t total) {
        static_cast<ProgressLine *>(line)->show(done, total);
    }

private:
    void show(uint64_t done, uint64_t total) {
        if (!terminal_) return;
        if (done >= total || done == 0) {
            if (done >= total) erase();
            return;
        }
        const int percent = static_cast<int>(done * 100 / total);
        if (percent == percent_) return;
        percent_ = percent;
        std::fprintf(stderr, "\rkxifc %s: %s %d%%", command_, action_, percent);
        std::fflush(stderr);
    }
    void erase() {
        if (percent_ < 0) return;
        std::fprintf(stderr, "\r\033[K");
        std::fflush(stderr);
        percent_ = -1;
    }

    const char *command_;
    const char *action_;
    bool terminal_;
    int percent_ = -1;  // shown; -1 while nothing is on the line
};

// Reads a file on every core, saying on stderr why it could not be read. A
// lossless model writes back every real and string as it was.
inline std::optional<kx::Model> read_model(const char *command, const char *path, bool lossless = false) {
    kx::ReadDiagnostics diagnostics;
    ProgressLine progress(command, "reading");
    std::optional<kx::Model> model =
        kx::Model::read(path, {lossless, 0, ProgressLine::report, &progress, 0}, &diagnostics);
    if (!model) {
        std::fprintf(stderr, "kxifc %s: \"%s\" is not a readable IFC file", command, path);
        if (!diagnostics.problems.empty()) std::fprintf(stderr, ": %s", diagnostics.problems[0].message.c_str());
        std::fputc('\n', stderr);
    } else if (!diagnostics.clean()) {
        std::fprintf(stderr, "kxifc %s: \"%s\": %llu problems met while reading; going on with what was read\n",
                     command, path, static_cast<unsigned long long>(diagnostics.errors + diagnostics.warnings));
    }
    return model;
}

// Writes a model, saying on stderr why it could not be written.
inline bool write_model(const char *command, kx::Model &model, const char *path) {
    ProgressLine progress(command, "writing");
    model.set_write_progress(ProgressLine::report, &progress);
    const kxExportStatus status = model.write(std::string(path));
    model.set_write_progress(nullptr, nullptr);
    if (status == KX_EXPORT_OK) return true;
    std::fprintf(stderr, "kxifc %s: could not write \"%s\": %s\n", command, path, kxExportStatus_message(status));
    return false;
}

}  // namespace kxcli
