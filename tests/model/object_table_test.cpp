// One object table: a non-owning list of instances of a class and its kinds.
#include <cstdint>
#include <vector>

#include "core/baseobject.h"
#include "kxifc_model.h"
#include "kxifc_schema.h"
#include "model/objtable.h"
#include "model_fixture.h"
#include "test_support.h"

namespace {

class ObjectTableTest : public kxtest::ModelFixture {
protected:
    void SetUp() override {
        ModelFixture::SetUp();
        model(KXIFCVERSION_IFC_4);
    }
    void TearDown() override {
        for (kxIfcObjTable_t *&table : tables_) kx::objtable_free(&table);
        ModelFixture::TearDown();
    }
    kxIfcObjTable_t *table(const kxClass_t *klass) {
        tables_.push_back(kx::objtable_new(klass, 0x10000));
        return tables_.back();
    }
    static std::vector<kxBaseObject *> listed(const kxIfcObjTable_t *object_table) {
        kxArrayST *array = kxArrayST_dontuse_new(nullptr);
        kx::objtable_all(object_table, array);
        return kxtest::elements(array);
    }
    std::vector<kxIfcObjTable_t *> tables_;
};

using List = std::vector<kxBaseObject *>;

TEST_F(ObjectTableTest, AddAcceptsKindsAndReportsOtherClasses) {
    kxBaseObject *wall = make(kxIfcWall_class());
    kxBaseObject *standard = make(kxIfcWallStandardCase_class());
    kxBaseObject *beam = make(kxIfcBeam_class());
    kxIfcObjTable_t *walls = table(kxIfcWall_class());
    EXPECT_EQ(kx::objtable_first(walls), nullptr);
    kx::objtable_add(walls, wall);
    kx::objtable_add(walls, standard);
    EXPECT_TRUE(asserts().reports().empty());
    EXPECT_EQ(listed(walls), (List{wall, standard}));
    EXPECT_EQ(kx::objtable_first(walls), wall);

    expect_reports();
    kx::objtable_add(walls, beam);
    EXPECT_TRUE(asserts().saw("kxBaseObject_is_kind_of(base_object, object_table->klass) == CIERTO"));
}

TEST_F(ObjectTableTest, RemoveKeepsTheOrderOfTheRestAndReportsAnUnlistedInstance) {
    kxBaseObject *a = make(kxIfcWall_class());
    kxBaseObject *b = make(kxIfcWall_class());
    kxBaseObject *c = make(kxIfcWallStandardCase_class());
    kxBaseObject *d = make(kxIfcWall_class());
    kxIfcObjTable_t *walls = table(kxIfcWall_class());
    for (kxBaseObject *o : {a, b, c}) kx::objtable_add(walls, o);
    kx::objtable_remove(walls, b);
    EXPECT_EQ(listed(walls), (List{a, c}));
    kx::objtable_remove(walls, a);
    EXPECT_EQ(kx::objtable_first(walls), c);
    EXPECT_TRUE(asserts().reports().empty());

    expect_reports();
    kx::objtable_remove(walls, d);
    ASSERT_EQ(asserts().reports().size(), 1u);
    EXPECT_TRUE(asserts().saw("idx != ULONG_MAX"));
    EXPECT_EQ(listed(walls), (List{c}));
}

TEST_F(ObjectTableTest, MergeAppendsTheSecondTableAndEmptiesIt) {
    kxBaseObject *a = make(kxIfcWall_class());
    kxBaseObject *b = make(kxIfcWall_class());
    kxBaseObject *c = make(kxIfcWallStandardCase_class());
    kxBaseObject *d = make(kxIfcWall_class());
    kxIfcObjTable_t *first = table(kxIfcWall_class());
    kxIfcObjTable_t *second = table(kxIfcWall_class());
    kx::objtable_add(first, b);
    kx::objtable_add(first, a);
    kx::objtable_add(second, d);
    kx::objtable_add(second, c);
    kx::objtable_merge(first, second);
    EXPECT_EQ(listed(first), (List{b, a, d, c}));
    EXPECT_TRUE(listed(second).empty());
    EXPECT_EQ(kx::objtable_first(second), nullptr);
    // The emptied table is still usable.
    kx::objtable_add(second, a);
    EXPECT_EQ(listed(second), (List{a}));
    // Merging an empty table changes nothing.
    kxIfcObjTable_t *empty = table(kxIfcWall_class());
    kx::objtable_merge(first, empty);
    EXPECT_EQ(listed(first), (List{b, a, d, c}));
}

}  // namespace
