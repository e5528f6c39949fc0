// The C++ layer: reads with diagnostics as values, owning ranges, UTF-8 and
// UTF-16 texts, writing and reading back.
#include "kxifcmodel.hpp"

#include "test_support.h"

namespace {

class FacadeTest : public kxtest::LibraryTest {};

struct ReadCase {
    const char *name;
    const char *data;  // nullptr: no file at all
    bool readable;
    kxReadCode code;   // the first problem's code, 0: clean
    uint32_t line;
};

TEST_F(FacadeTest, ReadGivesTheModelOrNothingAndTheProblemsAsValues) {
    const ReadCase cases[] = {
        {"clean", "#1=IFCWALL('2O2Fr$t4X7Zf8NOew3FLOH',$,'W',$,$,$,$,$,$);\n", true, 0, 0},
        {"dangling", "#1=IFCWALL('2O2Fr$t4X7Zf8NOew3FLOH',#9,'W',$,$,$,$,$,$);\n", true,
         KX_READ_UNDEFINED_REFERENCE, 8},
        {"syntax", "#1=IFCWALL('2O2Fr$t4X7Zf8NOew3FLOH',,,;\n", false, KX_READ_SYNTAX_ERROR, 8},
        {"missing", nullptr, false, KX_READ_UNREADABLE_FILE, 0},
    };
    kxtest::TempDirectory directory("kx_facade_read");
    expect_reports();
    for (const ReadCase &c : cases) {
        SCOPED_TRACE(c.name);
        const std::string path = c.data != nullptr
                                     ? directory.write(std::string(c.name) + ".ifc",
                                                       kxtest::step_file(c.data))
                                     : directory.file("missing.ifc");
        kx::ReadDiagnostics diagnostics;
        const std::optional<kx::Model> model = kx::Model::read(path, {}, &diagnostics);
        EXPECT_EQ(model.has_value(), c.readable);
        EXPECT_EQ(diagnostics.clean(), c.code == 0);
        if (c.code == 0) continue;
        ASSERT_FALSE(diagnostics.problems.empty());
        EXPECT_EQ(diagnostics.problems[0].code, c.code) << diagnostics.problems[0].message;
        EXPECT_EQ(diagnostics.problems[0].code_name(), kxReadCode_name(c.code));
        if (c.line != 0) {
            EXPECT_EQ(diagnostics.problems[0].line, c.line);
        }
        EXPECT_FALSE(diagnostics.problems[0].message.empty());
    }
}

TEST_F(FacadeTest, BuiltModelWritesAndReadsBackThroughRangesAndTexts) {
    const std::string name = "Wand \xC3\xA4 \xE6\x9D\xB1 \xF0\x9F\x8F\xA0";  // a, a CJK sign, an emoji
    kxtest::TempDirectory directory("kx_facade_write");
    {
        kx::Model model = kx::Model::create(KXIFCVERSION_IFC_4);
        EXPECT_FALSE(model.create("IfcBuildingElement"));  // abstract
        EXPECT_FALSE(model.create("IfcNoSuchThing"));
        const kx::Instance storey = model.create("IfcBuildingStorey");
        for (int i = 0; i < 2; ++i) {
            const kx::Instance wall = model.create(kxIfcWall_class());
            kxIfcWall_set_Name(wall.get(), kx::WideText(name));
            kxRelCommon_append_rel_contained_in_spatial_structure(storey.get(), wall.get(), model.get());
        }
        kx::Model moved = std::move(model);
        EXPECT_FALSE(model);
        EXPECT_EQ(moved.write(directory.file("house.IFC")), KX_EXPORT_OK);  // written as house.ifc
    }
    const std::optional<kx::Model> model = kx::Model::read(directory.file("house.ifc"), {true, 0}, nullptr);
    ASSERT_TRUE(model);
    EXPECT_EQ(kxIfcModel_text_mode(model->get()), KX_TEXT_MODE_LOSSLESS);
    kx::InstanceRange walls = model->by_type(u"ifcbuildingelement");  // subtypes, any case
    ASSERT_EQ(walls.size(), 2u);
    for (kx::Instance wall : walls) {
        EXPECT_EQ(wall.class_name_u16(), u"IfcWall");
        EXPECT_TRUE(wall.is_a(u"IFCWALL"));
        EXPECT_FALSE(wall.is_a("IfcSlab"));
        EXPECT_EQ(kx::to_u16string(kxIfcWall_get_Name(wall.get())), u"Wand \u00e4 \u6771 \U0001F3E0");
    }
    EXPECT_LT(walls[0].id(), walls[1].id());
    // Each wall sees the one containment through its inverse.
    const kx::InstanceRange storeys = model->instances_of(kxIfcBuildingStorey_class());
    kx::InstanceRange containments(kxIfcSpatialStructureElement_inverse_relation_ContainsElements(storeys[0].get()));
    ASSERT_EQ(containments.size(), 1u);
    for (kx::Instance wall : walls)
        EXPECT_EQ(kx::InstanceRange(kxIfcElement_inverse_relation_ContainedInStructure(wall.get())).to_vector(),
                  containments.to_vector());
}

}  // namespace
