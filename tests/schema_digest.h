// Test-side reader of the committed schema digest (schema/ifc.digest), so
// that tests derive what the schema says independently of the generated
// tables. Record formats are documented at the top of tools/express_digest.py.
#pragma once

#include <algorithm>
#include <array>
#include <cctype>
#include <fstream>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "test_support.h"  // narrow and wide: library strings are UTF-16, schema names ASCII

namespace kxtest {

constexpr int kReleases = 2;  // 0: IFC2X3, 1: IFC4

struct DigestEntity {
    bool exists[kReleases] = {false, false};
    std::string super[kReleases];  // empty for a root
    bool abstract[kReleases] = {false, false};
};

template <typename T>
using PerRelease = std::array<std::optional<T>, kReleases>;

struct Digest {
    std::map<std::string, DigestEntity> entities;
    std::map<std::string, PerRelease<std::vector<std::string>>> enums;
    std::map<std::string, PerRelease<std::vector<std::string>>> selects;
    std::map<std::string, PerRelease<std::string>> types;
    std::vector<std::string> attribute_types;  // every explicit attribute's type text
    bool loaded = false;

    // Supertypes of an entity in a release, root first.
    std::vector<std::string> chain(const std::string &name, int release) const {
        std::vector<std::string> result;
        std::string parent = entities.at(name).super[release];
        while (!parent.empty()) {
            result.push_back(parent);
            parent = entities.at(parent).super[release];
        }
        std::reverse(result.begin(), result.end());
        return result;
    }
};

inline std::vector<int> digest_releases(const std::string &tag) {
    if (tag == "2") return {0};
    if (tag == "4") return {1};
    if (tag == "24") return {0, 1};
    return {};
}

inline std::vector<std::string> digest_split(const std::string &text, char separator) {
    std::vector<std::string> parts;
    std::string part;
    std::istringstream stream(text);
    while (std::getline(stream, part, separator)) parts.push_back(part);
    return parts;
}

inline Digest read_digest(const std::string &path) {
    Digest digest;
    std::ifstream in(path);
    if (!in) return digest;
    std::string line;
    DigestEntity *current = nullptr;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream fields(line);
        std::string record;
        fields >> record;
        if (record == "entity") {
            std::string name, tag, super, abstract;
            fields >> name >> tag >> super >> abstract;
            current = &digest.entities[name];
            for (int release : digest_releases(tag)) {
                current->exists[release] = true;
                current->super[release] = super == "-" ? std::string() : super;
                current->abstract[release] = abstract == "1";
            }
        } else if (record == "enum" || record == "select") {
            std::string name, tag, members;
            fields >> name >> tag >> members;
            auto &entry = (record == "enum" ? digest.enums : digest.selects)[name];
            for (int release : digest_releases(tag)) entry[release] = digest_split(members, ',');
        } else if (record == "type") {
            std::string name, tag, underlying;
            fields >> name >> tag >> underlying;
            auto &entry = digest.types[name];
            for (int release : digest_releases(tag)) entry[release] = underlying;
        } else if (record == "attr") {
            std::string tag, name, optional, type;
            fields >> tag >> name >> optional >> type;
            digest.attribute_types.push_back(type);
        }
    }
    digest.loaded = true;
    return digest;
}

// The committed digest, read once per test program.
inline const Digest &committed_digest() {
    static const Digest digest = read_digest(std::string(KX_SOURCE_DIR) + "/schema/ifc.digest");
    return digest;
}

inline std::string lower(std::string text) {
    for (char &c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

inline std::string upper(std::string text) {
    for (char &c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

// EXPRESS simple base types (REAL, STRING(255), BINARY(32)FIXED ...): the
// base word, or empty when the text names something else.
inline std::string simple_base(const std::string &type_text) {
    static const std::set<std::string> bases = {"REAL", "NUMBER", "INTEGER", "BOOLEAN",
                                                "LOGICAL", "STRING", "BINARY"};
    size_t end = 0;
    while (end < type_text.size() && std::isupper(static_cast<unsigned char>(type_text[end]))) end++;
    if (end == 0 || (end < type_text.size() && type_text[end] != '(')) return std::string();
    const std::string word = type_text.substr(0, end);
    return bases.count(word) != 0 ? word : std::string();
}

}  // namespace kxtest
