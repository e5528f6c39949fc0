// Enumerations: member numbering across both releases, plain names, STEP
// literals, range checks and release membership, first on IfcWallTypeEnum in
// full and then for every enumeration of the schema against the digest.
#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "core/class.h"
#include "kxifc_schema.h"
#include "schema/engines.h"
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

TEST_F(EnumerationsTest, WallTypeTableIsExact) {
    struct Member {
        const char *name;
        bool in_2x3, in_4;
    };
    const Member members[] = {
        {"UNDEFINED", false, false},   {"STANDARD", true, true},      {"POLYGONAL", true, true},
        {"SHEAR", true, true},         {"ELEMENTEDWALL", true, true}, {"PLUMBINGWALL", true, true},
        {"USERDEFINED", true, true},   {"NOTDEFINED", true, true},    {"MOVABLE", false, true},
        {"PARAPET", false, true},      {"PARTITIONING", false, true}, {"SOLIDWALL", false, true},
    };
    const kx::EnumInfo *info = find_enum("IfcWallTypeEnum");
    ASSERT_NE(info, nullptr);
    ASSERT_EQ(info->num_values, 12u);
    for (int32_t value = 0; value < 12; value++) {
        const Member &member = members[value];
        SCOPED_TRACE(member.name);
        EXPECT_EQ(narrow(kxIfcWallTypeEnum_to_string(value)), member.name);
        EXPECT_EQ(narrow(kx::enum_to_literal(*info, value)),
                  value == 0 ? std::string(".KX_UNDEFINED.") : std::string(".") + member.name + ".");
        EXPECT_EQ(kxIfcWallTypeEnum_has_value(value), value == 0 ? kxBFALSE : kxBTRUE);
        EXPECT_EQ(kx::enum_is_member_of_release(*info, value, KXIFCVERSION_IFC_2X3) != 0, member.in_2x3);
        EXPECT_EQ(kx::enum_is_member_of_release(*info, value, KXIFCVERSION_IFC_4) != 0, member.in_4);
        EXPECT_EQ(kx::enum_is_member_of_release(*info, value, 2), 0);  // no other release
    }
    EXPECT_EQ(kxIfcWallTypeEnum_has_value(12), kxBFALSE);
    EXPECT_EQ(kxIfcWallTypeEnum_has_value(-1), kxBFALSE);
    EXPECT_EQ(kxIfcWallTypeEnum_has_value(INT32_MAX), kxBFALSE);
    EXPECT_EQ(narrow(info->type_name), "kxIfcWallTypeEnum");
    EXPECT_EQ(std::string(info->unit_label), "kxifcwalltypeenum (KXIFCMODEL.DLL)");
}

TEST_F(EnumerationsTest, OutOfRangeTextIsTheDefaultBranchReport) {
    expect_reports();
    EXPECT_EQ(kxIfcWallTypeEnum_to_string(12), nullptr);
    ASSERT_EQ(asserts().reports().size(), 1u);
    EXPECT_EQ(asserts().reports()[0].condition, "");
    EXPECT_EQ(asserts().reports()[0].source, "kxifcwalltypeenum (KXIFCMODEL.DLL)");
    asserts().clear();
    EXPECT_EQ(kxIfcWallTypeEnum_to_string(-1), nullptr);
    EXPECT_EQ(kx::enum_to_literal(*find_enum("IfcWallTypeEnum"), 12), nullptr);
    ASSERT_EQ(asserts().reports().size(), 2u);
    EXPECT_EQ(asserts().reports()[0].condition, "");
    EXPECT_EQ(asserts().reports()[1].condition, "");
}

TEST_F(EnumerationsTest, LiteralsReadIgnoringCase) {
    const kx::EnumInfo &info = *find_enum("IfcWallTypeEnum");
    EXPECT_EQ(kx::enum_from_literal(info, u".standard."), 1);
    EXPECT_EQ(kx::enum_from_literal(info, u".Standard."), 1);
    EXPECT_EQ(kx::enum_from_literal(info, u".SOLIDWALL."), 11);
    // The undefined literal is never matched; neither is a bare or unknown name.
    EXPECT_EQ(kx::enum_from_literal(info, u".KX_UNDEFINED."), 0);
    EXPECT_EQ(kx::enum_from_literal(info, u".kx_undefined."), 0);
    EXPECT_EQ(kx::enum_from_literal(info, u".UNDEFINED."), 0);
    EXPECT_EQ(kx::enum_from_literal(info, u"STANDARD"), 0);
    EXPECT_EQ(kx::enum_from_literal(info, u".STANDARDS."), 0);
    EXPECT_EQ(kx::enum_from_literal(info, u".CURTAIN."), 0);
    EXPECT_EQ(kx::enum_from_literal(info, u""), 0);
    EXPECT_EQ(kx::enum_from_literal(info, nullptr), 0);
    // A member of IFC4 only reads as its number, and is no member of IFC2X3.
    const int32_t movable = kx::enum_from_literal(info, u".MOVABLE.");
    EXPECT_EQ(movable, 8);
    EXPECT_FALSE(kx::enum_is_member_of_release(info, movable, KXIFCVERSION_IFC_2X3));
    EXPECT_TRUE(kx::enum_is_member_of_release(info, movable, KXIFCVERSION_IFC_4));
}

// Every enumeration: members numbered from 1 in IFC2X3 order, then the
// members IFC4 adds in IFC4 order; membership per release as the schema says.
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
}

}  // namespace
