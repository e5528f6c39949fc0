// Enumerations: member numbering across both releases, plain names, STEP
// literals, range checks and release membership, for every enumeration of
// the schema against the digest.
#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "core/class.h"
#include "schema/engines.h"
#include "kxifc_schema.h"
#include "schema_digest.h"
#include "test_support.h"

namespace {

using kxtest::committed_digest;
using kxtest::narrow;

const kx::EnumInfo *find_enum(const std::string &name) {
    for (uint32_t i = 0; i < kx::g_num_enums; i++)
        if (narrow(kx::g_enums[i].name) == name) return &kx::g_enums[i];
    return nullptr;
}

class EnumerationsTest : public kxtest::LibraryTest {};

// Every enumeration: members numbered from 1 in IFC2X3 order, then the
// members IFC4 adds in IFC4 order; membership per release as the schema says;
// text out of range.
TEST_F(EnumerationsTest, EveryEnumerationFollowsTheNumberingRule) {
    const auto &digest = committed_digest();
    ASSERT_TRUE(digest.loaded);
    ASSERT_EQ(kx::g_num_enums, digest.enums.size());
    EXPECT_EQ(kx::g_num_enums, 230u);
    uint32_t with_dropped_members = 0, with_added_members = 0;
    for (const auto &[name, per_release] : digest.enums) {
        SCOPED_TRACE(name);
        const kx::EnumInfo *info = find_enum(name);
        ASSERT_NE(info, nullptr);
        const std::vector<std::string> none;
        const std::vector<std::string> &in_2x3 = per_release[0] ? *per_release[0] : none;
        const std::vector<std::string> &in_4 = per_release[1] ? *per_release[1] : none;
        std::vector<std::string> expected = in_2x3;
        for (const std::string &member : in_4)
            if (std::find(expected.begin(), expected.end(), member) == expected.end()) expected.push_back(member);
        auto contains = [](const std::vector<std::string> &list, const std::string &member) {
            return std::find(list.begin(), list.end(), member) != list.end();
        };
        if (per_release[0] && per_release[1]) {
            if (expected.size() > in_2x3.size()) with_added_members++;
            if (expected.size() > in_4.size()) with_dropped_members++;
        }

        ASSERT_EQ(info->num_values, expected.size() + 1);
        EXPECT_EQ(narrow(info->type_name), "kx" + name);
        EXPECT_EQ(std::string(info->unit_label), kxtest::lower("kx" + name) + " (KXIFCMODEL.DLL)");
        EXPECT_EQ(narrow(info->names[0]), "UNDEFINED");
        EXPECT_EQ(narrow(info->literals[0]), ".KX_UNDEFINED.");
        EXPECT_EQ(info->releases[0], 0);
        EXPECT_FALSE(kx::enum_has_value(*info, 0));
        EXPECT_FALSE(kx::enum_has_value(*info, static_cast<int32_t>(info->num_values)));
        EXPECT_EQ(kx::enum_from_literal(*info, u".KX_UNDEFINED."), 0);
        EXPECT_EQ(kx::enum_from_literal(*info, nullptr), 0);
        // Outside the members or the releases nothing is a member.
        EXPECT_FALSE(kx::enum_is_member_of_release(*info, 0, KXIFCVERSION_IFC_4));
        EXPECT_FALSE(kx::enum_is_member_of_release(*info, static_cast<int32_t>(info->num_values), KXIFCVERSION_IFC_4));
        EXPECT_FALSE(kx::enum_is_member_of_release(*info, 1, 2));
        for (size_t i = 0; i < expected.size(); i++) {
            const int32_t value = static_cast<int32_t>(i + 1);
            const std::string &member = expected[i];
            EXPECT_EQ(narrow(info->names[value]), member);
            EXPECT_EQ(narrow(kx::enum_to_string(*info, value)), member);
            EXPECT_EQ(narrow(kx::enum_to_literal(*info, value)), "." + member + ".");
            EXPECT_TRUE(kx::enum_has_value(*info, value));
            EXPECT_EQ(kx::enum_from_literal(*info, kxtest::wide(std::string(".").append(kxtest::lower(member)).append(".")).c_str()), value);
            const bool member_2x3 = contains(in_2x3, member), member_4 = contains(in_4, member);
            EXPECT_EQ(info->releases[value], (member_2x3 ? kx::IN_IFC2X3 : 0) | (member_4 ? kx::IN_IFC4 : 0))
                << member;
            EXPECT_EQ(kx::enum_is_member_of_release(*info, value, KXIFCVERSION_IFC_2X3) != 0, member_2x3) << member;
            EXPECT_EQ(kx::enum_is_member_of_release(*info, value, KXIFCVERSION_IFC_4) != 0, member_4) << member;
        }
    }
    // Both directions of change occur in the schema, so both paths were checked.
    EXPECT_GT(with_added_members, 0u);
    EXPECT_GT(with_dropped_members, 0u);
    // Text out of range is a default branch that must not be reached:
    // reported with no condition.
    expect_each_reported({
        {"", [] { EXPECT_EQ(kxIfcWallTypeEnum_to_string(12), nullptr); }},
        {"", [] { EXPECT_EQ(kxIfcWallTypeEnum_to_string(-1), nullptr); }},
        {"", [] { EXPECT_EQ(kx::enum_to_literal(*find_enum("IfcWallTypeEnum"), 12), nullptr); }},
    });
}

// Defined types: each holds its value exactly as the base type its chain of
// definitions ends in, checked for every defined type against the digest.
// The storage kind of a type text in a release, following defined types
// down to an EXPRESS base type or an aggregate.
uint8_t expected_kind(const kxtest::Digest &digest, std::string type_text, int release) {
    for (int depth = 0; depth < 16; depth++) {
        if (type_text.find('/') != std::string::npos) return kx::SLOT_AGGREGATE;
        const std::string base = kxtest::simple_base(type_text);
        if (base == "REAL" || base == "NUMBER") return kx::SLOT_REAL;
        if (base == "INTEGER") return kx::SLOT_INTEGER;
        if (base == "STRING") return kx::SLOT_STRING;
        if (base == "BOOLEAN") return kx::SLOT_BOOLEAN;
        if (base == "LOGICAL") return kx::SLOT_LOGICAL;
        if (base == "BINARY") return kx::SLOT_BINARY;
        if (digest.enums.count(type_text) != 0) return kx::SLOT_ENUM;
        if (digest.entities.count(type_text) != 0) return kx::SLOT_ENTITY;
        if (digest.selects.count(type_text) != 0) return kx::SLOT_SELECT;
        const auto &definition = digest.types.at(type_text);
        type_text = definition[release] ? *definition[release] : *definition[1 - release];
    }
    ADD_FAILURE() << "type chain too deep at " << type_text;
    return 0xFF;
}

const kx::DefinedTypeInfo *find_defined_type(const std::string &name) {
    for (uint32_t i = 0; i < kx::g_num_defined_types; i++)
        if (narrow(kx::g_defined_types[i].name) == name) return &kx::g_defined_types[i];
    return nullptr;
}

// Every defined type of both releases: its storage is that of the base type
// its definition chain ends in, in each release where it is defined.
TEST_F(EnumerationsTest, EveryDefinedTypeIsStoredAsItsBaseType) {
    const auto &digest = committed_digest();
    ASSERT_TRUE(digest.loaded);
    ASSERT_EQ(kx::g_num_defined_types, digest.types.size());
    EXPECT_EQ(kx::g_num_defined_types, 135u);
    uint32_t per_kind[10] = {};
    for (const auto &[name, per_release] : digest.types) {
        SCOPED_TRACE(name);
        const kx::DefinedTypeInfo *info = find_defined_type(name);
        ASSERT_NE(info, nullptr);
        EXPECT_EQ(narrow(info->upper_name), kxtest::upper(name));
        EXPECT_EQ(info->releases, (per_release[0] ? kx::IN_IFC2X3 : 0) | (per_release[1] ? kx::IN_IFC4 : 0));
        for (int release = 0; release < kxtest::kReleases; release++) {
            if (!per_release[release]) continue;
            EXPECT_EQ(info->kind, expected_kind(digest, *per_release[release], release)) << "release " << release;
        }
        ASSERT_LT(info->kind, 10);
        per_kind[info->kind]++;
        if (info->kind != kx::SLOT_AGGREGATE) continue;
        // An aggregate type: container and element storage as defined.
        const std::string &text = per_release[1] ? *per_release[1] : *per_release[0];
        ASSERT_LT(info->type_ref, kx::g_num_aggregates);
        const kx::AggregateInfo &aggregate = kx::g_aggregates[info->type_ref];
        const std::string container = text.substr(0, text.find('['));
        EXPECT_EQ(aggregate.container, container == "LIST" ? 0 : container == "ARRAY" ? 2 : 1);
        const std::string element = text.substr(text.rfind('/') + 1);
        EXPECT_EQ(aggregate.element_kind, expected_kind(digest, element, per_release[1] ? 1 : 0));
    }
    EXPECT_EQ(per_kind[kx::SLOT_AGGREGATE], 5u);
    EXPECT_EQ(per_kind[kx::SLOT_ENUM] + per_kind[kx::SLOT_ENTITY] + per_kind[kx::SLOT_SELECT], 0u);
    EXPECT_GT(per_kind[kx::SLOT_REAL], 80u);
    EXPECT_EQ(find_defined_type("IfcPositiveLengthMeasure")->kind, kx::SLOT_REAL);
    EXPECT_EQ(find_defined_type("IfcLabel")->kind, kx::SLOT_STRING);
    EXPECT_EQ(find_defined_type("IfcPropertySetDefinitionSet")->kind, kx::SLOT_AGGREGATE);
}

}  // namespace
