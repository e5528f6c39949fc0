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

// Reads a file, saying on stderr why it could not be read. A lossless model
// writes back every real and string as it was.
inline std::optional<kx::Model> read_model(const char *command, const char *path, bool lossless = false) {
    kx::ReadDiagnostics diagnostics;
    std::optional<kx::Model> model = kx::Model::read(path, {lossless, 0}, &diagnostics);
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
    const kxExportStatus status = model.write(std::string(path));
    if (status == KX_EXPORT_OK) return true;
    std::fprintf(stderr, "kxifc %s: could not write \"%s\": %s\n", command, path, kxExportStatus_message(status));
    return false;
}

}  // namespace kxcli
