// Defined types: each holds its value exactly as the base type its chain of
// definitions ends in, with that base type's in-band undefined value. The
// storage of every defined type is checked against the digest; the exported
// has-value and undefined-value pairs are exercised once per storage kind.
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>

#include "core/class.h"
#include "kxifc_schema.h"
#include "schema_digest.h"
#include "test_support.h"

namespace {

using kxtest::committed_digest;
using kxtest::narrow;

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

class DefinedTypesTest : public kxtest::LibraryTest {};

TEST_F(DefinedTypesTest, EachStorageKindUsesItsBaseTypesTest) {
    // STRING
    EXPECT_TRUE(kxIfcLabel_has_value(u""));
    EXPECT_TRUE(kxIfcLabel_has_value(u"Wall"));
    EXPECT_FALSE(kxIfcLabel_has_value(nullptr));
    EXPECT_EQ(kxIfcLabel_undefined_value(), nullptr);
    EXPECT_TRUE(kxIfcGloballyUniqueId_has_value(u"0123456789012345678901"));
    // INTEGER
    EXPECT_TRUE(kxIfcInteger_has_value(0));
    EXPECT_TRUE(kxIfcInteger_has_value(INT32_MIN));
    EXPECT_FALSE(kxIfcInteger_has_value(INT32_MAX));
    EXPECT_EQ(kxIfcInteger_undefined_value(), INT32_MAX);
    // BOOLEAN
    EXPECT_TRUE(kxIfcBoolean_has_value(0));
    EXPECT_TRUE(kxIfcBoolean_has_value(1));
    EXPECT_FALSE(kxIfcBoolean_has_value(-1));
    EXPECT_EQ(kxIfcBoolean_undefined_value(), -1);
    // LOGICAL: UNKNOWN is a value
    EXPECT_TRUE(kxIfcLogical_has_value(-1));
    EXPECT_TRUE(kxIfcLogical_has_value(0));
    EXPECT_TRUE(kxIfcLogical_has_value(1));
    EXPECT_FALSE(kxIfcLogical_has_value(-2));
    EXPECT_EQ(kxIfcLogical_undefined_value(), -2);
    // BINARY
    char bits[] = "101";
    EXPECT_TRUE(kxIfcBinary_has_value(kxBinary{bits, 3}));
    const kxBinary undefined = kxIfcBinary_undefined_value();
    EXPECT_EQ(undefined.contents, nullptr);
    EXPECT_EQ(undefined.num_bits, 0u);
    EXPECT_FALSE(kxIfcBinary_has_value(undefined));
}

// Every defined type of both releases: its storage is that of the base type
// its definition chain ends in, in each release where it is defined.
TEST_F(DefinedTypesTest, EveryDefinedTypeIsStoredAsItsBaseType) {
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
