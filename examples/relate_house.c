/* A C host that puts a small IFC4 house together through the relationship
 * helpers (kxRelCommon_*): the spatial breakdown, walls contained in their
 * storeys, a wall type and a shared property set. Lengths are in
 * millimetres. It writes the house, reads it back and checks each wall's
 * relations through the inverse attributes.
 *
 *   relate_house DIRECTORY NAME     (writes DIRECTORY/NAME.ifc) */
#include <stdio.h>
#include <stdlib.h>

#include "kxifcmodel.h"

#define STOREY_COUNT 2
#define WALLS_PER_STOREY 3
#define STOREY_HEIGHT 3000.0 /* mm */

/* A new instance of an IfcRoot subtype with a fresh GlobalId and a name. */
static kxBaseObject *rooted(kxIfcModel *model, const kxClass_t *klass, const kxWChar *name) {
    kxBaseObject *instance = kxIfcModel_dontuse_new_object(model, klass);
    kxWChar *guid = kxCreateCompressedGuidString_Create();
    kxIfcRoot_set_GlobalId(instance, guid);
    kxIfcRoot_set_Name(instance, name);
    kxWideString_free(&guid);
    return instance;
}

static void add_unit(kxIfcModel *model, kxSetIfcUnit *units, kxIfcUnitEnum type, kxIfcSIPrefix prefix,
                     kxIfcSIUnitName name) {
    kxIfcSIUnit *unit = kxIfcModel_dontuse_new_object(model, kxIfcSIUnit_class());
    kxIfcSIUnit_set_UnitType(unit, type);
    kxIfcSIUnit_set_Prefix(unit, prefix);
    kxIfcSIUnit_set_Name(unit, name);
    kxIfcUnit *select = kxIfcModel_dontuse_new_object(model, kxIfcUnit_class());
    kxIfcUnit_set_kxIfcNamedUnit(select, unit);
    kxSetIfcUnit_append_element(units, select);
}

/* The property set every wall shares: its height. */
static kxIfcPropertySet *wall_properties(kxIfcModel *model) {
    kxIfcValue *height_value = kxIfcModel_dontuse_new_object(model, kxIfcValue_class());
    kxIfcValue_set_kxIfcLengthMeasure(height_value, STOREY_HEIGHT);
    kxIfcPropertySingleValue *height = kxIfcModel_dontuse_new_object(model, kxIfcPropertySingleValue_class());
    kxIfcPropertySingleValue_set_Name(height, u"Height");
    kxIfcPropertySingleValue_set_NominalValue(height, height_value);
    kxSetIfcProperty *properties = kxSetIfcProperty_new();
    kxSetIfcProperty_append_element(properties, height);
    kxIfcPropertySet *set = rooted(model, kxIfcPropertySet_class(), u"Pset_WallCommon");
    kxIfcPropertySet_set_HasProperties(set, properties);
    return set;
}

static void build(kxIfcModel *model) {
    kxIfcProject *project = rooted(model, kxIfcProject_class(), u"Related house");
    kxIfcUnitAssignment *assignment = kxIfcModel_dontuse_new_object(model, kxIfcUnitAssignment_class());
    kxSetIfcUnit *units = kxSetIfcUnit_new();
    add_unit(model, units, kxIfcUnitEnum_LENGTHUNIT, kxIfcSIPrefix_MILLI, kxIfcSIUnitName_METRE);
    add_unit(model, units, kxIfcUnitEnum_AREAUNIT, kxIfcSIPrefix_UNDEFINED, kxIfcSIUnitName_SQUARE_METRE);
    add_unit(model, units, kxIfcUnitEnum_VOLUMEUNIT, kxIfcSIPrefix_UNDEFINED, kxIfcSIUnitName_CUBIC_METRE);
    kxIfcUnitAssignment_set_Units(assignment, units);
    kxIfcProject_set_UnitsInContext_v4(project, assignment);

    kxIfcSite *site = rooted(model, kxIfcSite_class(), u"Site");
    kxIfcBuilding *building = rooted(model, kxIfcBuilding_class(), u"House");
    kxRelCommon_append_rel_aggregates(u"Project site", project, site, model);
    kxRelCommon_append_rel_aggregates(u"Site buildings", site, building, model);

    kxIfcWallType *wall_type = rooted(model, kxIfcWallType_class(), u"Brick wall");
    kxIfcWallType_set_PredefinedType(wall_type, kxIfcWallTypeEnum_SOLIDWALL);
    kxIfcPropertySet *properties = wall_properties(model);
    static const kxWChar *const storey_names[STOREY_COUNT] = {u"Ground floor", u"First floor"};
    for (int s = 0; s < STOREY_COUNT; s++) {
        kxIfcBuildingStorey *storey = rooted(model, kxIfcBuildingStorey_class(), storey_names[s]);
        kxIfcBuildingStorey_set_Elevation(storey, s * STOREY_HEIGHT);
        /* Both storeys join the one aggregation of that name. */
        kxRelCommon_append_rel_aggregates(u"Building storeys", building, storey, model);
        for (int w = 0; w < WALLS_PER_STOREY; w++) {
            kxIfcWall *wall = rooted(model, kxIfcWall_class(), u"Wall");
            kxRelCommon_append_rel_contained_in_spatial_structure(storey, wall, model);
            kxRelCommon_append_rel_defines_by_type(wall_type, wall, model);
            kxRelCommon_append_rel_defines_by_properties(properties, wall, model, NULL);
        }
    }
}

/* Number of elements of a new inverse array, which it frees. */
static uint32_t count_and_free(kxArrayST *array) {
    const uint32_t count = kxArrayST_dontuse_count(array);
    kxArrayST_dontuse_free(&array, NULL);
    return count;
}

/* Every wall is in one storey, typed once and defined by one property set;
 * the relationships were shared, not repeated. */
static int check(const kxIfcModel *model) {
    kxArrayST *walls = kxIfcModel_dontuse_get_objects_by_class(model, kxIfcWall_class());
    int ok = kxArrayST_dontuse_count(walls) == STOREY_COUNT * WALLS_PER_STOREY;
    for (uint32_t i = 0; ok && i < kxArrayST_dontuse_count(walls); i++) {
        const kxIfcWall *wall = kxArrayST_dontuse_get(walls, i);
        ok = count_and_free(kxIfcElement_inverse_relation_ContainedInStructure(wall)) == 1 &&
             count_and_free(kxIfcObject_inverse_relation_IsTypedBy(wall)) == 1 &&
             count_and_free(kxIfcObject_inverse_relation_IsDefinedBy_v4(wall)) == 1;
    }
    kxArrayST_dontuse_free(&walls, NULL);
    const struct {
        const kxClass_t *klass;
        uint32_t count;
    } relationships[] = {{kxIfcRelAggregates_class(), 3},
                         {kxIfcRelContainedInSpatialStructure_class(), STOREY_COUNT},
                         {kxIfcRelDefinesByType_class(), 1},
                         {kxIfcRelDefinesByProperties_class(), 1}};
    for (size_t i = 0; ok && i < sizeof relationships / sizeof relationships[0]; i++)
        ok = count_and_free(kxIfcModel_dontuse_get_objects_by_class(model, relationships[i].klass)) ==
             relationships[i].count;
    return ok;
}

int main(int argc, char **argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: relate_house DIRECTORY NAME\n");
        return 2;
    }
    kxIfcModel *model = kxIfcModel_new();
    kxIfcModel_set_version(model, KXIFCVERSION_IFC_4);
    build(model);
    kxWChar *directory = kxWideString_new_from_utf8(argv[1]);
    kxWChar *name = kxWideString_new_from_utf8(argv[2]);
    const kxExportStatus status = kxIfcModel_export_with_status(model, name, directory);
    kxIfcModel_free(&model);
    kxWideString_free(&name);
    kxWideString_free(&directory);
    if (status != KX_EXPORT_OK) {
        fprintf(stderr, "relate_house: %s\n", kxExportStatus_message(status));
        return 1;
    }

    char path[4096];
    snprintf(path, sizeof path, "%s/%s.ifc", argv[1], argv[2]);
    kxWChar *file_name = kxWideString_new_from_utf8(path);
    kxBool with_errors = kxBTRUE;
    kxIfcModel *read = kxIfcModel_read_from_step_file(file_name, 0, &with_errors);
    kxWideString_free(&file_name);
    const int ok = read != NULL && !with_errors && check(read);
    printf("%s: %u instances, relations %s\n", path, read != NULL ? kxIfcModel_count_objects(read) : 0,
           ok ? "as built" : "NOT as built");
    kxIfcModel_free(&read);
    return ok ? EXIT_SUCCESS : EXIT_FAILURE;
}
