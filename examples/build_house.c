/* A C host that builds a small but complete IFC4 building through the public
 * interface only, writes it as an exchange file and reads that file back.
 *
 *   build_house [DIRECTORY [NAME]]     (defaults: "." and "sample_house")
 *
 * The model: a project with its units and its 3D geometric context; a site,
 * a building and one storey aggregated under it; four walls and a floor
 * slab, each placed relative to the storey and shaped by an extruded
 * rectangle, contained in the storey; one property set shared by the walls.
 *
 * GlobalIds come from a counter, not from random GUIDs, so that the output is
 * the same on every run (with VELMTEST set, the header's time stamp is empty
 * too). Exit status 0 only when the file was written and reads back without
 * errors into a model with as many instances as the one that was written. */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "kxifcmodel.h"

/* ---- the house ---------------------------------------------------------- */

#define HOUSE_LENGTH 10.0   /* along x, metres */
#define HOUSE_WIDTH 8.0     /* along y */
#define WALL_THICKNESS 0.2
#define WALL_HEIGHT 3.0
#define SLAB_THICKNESS 0.2
#define WALL_COUNT 4

/* Everything the builder shares: the model, the GlobalId counter, a failure
 * flag, and the few instances many others refer to. */
typedef struct Builder {
    kxIfcModel *model;
    uint64_t next_guid;
    int failed;
    kxIfcCartesianPoint *origin;
    kxIfcDirection *z_axis;
    kxIfcDirection *x_axis;
    kxIfcAxis2Placement3D *world; /* origin, z up, x east */
    kxIfcGeometricRepresentationContext *context;
} Builder;

static kxBaseObject *make(Builder *b, const kxClass_t *klass) {
    kxBaseObject *instance = kxIfcModel_dontuse_new_object(b->model, klass);
    if (instance == NULL) {
        char *name = kxWideString_to_utf8(kxClass_ifc_name(klass));
        fprintf(stderr, "build_house: no %s could be created\n", name != NULL ? name : "instance");
        kxUtf8String_free(&name);
        b->failed = 1;
    }
    return instance;
}

/* ---- deterministic GlobalIds -------------------------------------------- */

/* The 64 characters of a compressed GUID, one per 6-bit digit. */
static const char kGuidAlphabet[] =
    "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz_$";

/* Fixed upper 64 bits of every GlobalId of this example; the counter gives
 * the lower 64. */
static const uint64_t kGuidPrefix = UINT64_C(0x4B5869666300C0DE);

/* Writes the next GlobalId into text (23 units with the terminator): the
 * 128-bit number prefix:counter as one 2-bit digit ('0'..'3') followed by
 * twenty-one 6-bit digits, most significant first. */
static void next_guid(Builder *b, kxWChar text[23]) {
    const uint64_t half[2] = {kGuidPrefix, b->next_guid++};
    int bit = 0; /* bits taken so far, from the most significant */
    for (int i = 0; i < 22; i++) {
        const int width = i == 0 ? 2 : 6;
        unsigned digit = 0;
        for (int k = 0; k < width; k++, bit++) {
            const uint64_t word = half[bit / 64];
            digit = (digit << 1) | (unsigned)((word >> (63 - bit % 64)) & 1u);
        }
        text[i] = (kxWChar)kGuidAlphabet[digit];
    }
    text[22] = 0;
}

/* A new rooted instance (IfcRoot subtype) with its GlobalId and name. */
static kxBaseObject *make_rooted(Builder *b, const kxClass_t *klass, const kxWChar *name) {
    kxBaseObject *instance = make(b, klass);
    if (instance == NULL) return NULL;
    kxWChar guid[23];
    next_guid(b, guid);
    kxIfcRoot_set_GlobalId(instance, guid);
    if (name != NULL) kxIfcRoot_set_Name(instance, name);
    return instance;
}

/* ---- enumerations ------------------------------------------------------- */

/* The value of the enumeration member with the given plain name, found
 * through the enumeration's own has-value and to-string functions; 0 (the
 * undefined value) when there is none. */
static int32_t enum_value(Builder *b, kxBool (*has_value)(int32_t), const kxWChar *(*to_string)(int32_t),
                          const char *name) {
    for (int32_t value = 1; has_value(value); value++) {
        const kxWChar *text = to_string(value);
        size_t i = 0;
        while (name[i] != '\0' && text[i] == (kxWChar)(unsigned char)name[i]) i++;
        if (name[i] == '\0' && text[i] == 0) return value;
    }
    fprintf(stderr, "build_house: no enumeration member %s\n", name);
    b->failed = 1;
    return 0;
}

/* ---- geometry ----------------------------------------------------------- */

static kxIfcCartesianPoint *point(Builder *b, int dimensions, double x, double y, double z) {
    kxIfcCartesianPoint *p = make(b, kxIfcCartesianPoint_class());
    if (p == NULL) return NULL;
    kxArrIfcLengthMeasure *coordinates = kxArrIfcLengthMeasure_new();
    kxArrIfcLengthMeasure_add(coordinates, x);
    kxArrIfcLengthMeasure_add(coordinates, y);
    if (dimensions == 3) kxArrIfcLengthMeasure_add(coordinates, z);
    kxIfcCartesianPoint_set_Coordinates(p, coordinates); /* takes it over */
    return p;
}

static kxIfcDirection *direction(Builder *b, double x, double y, double z) {
    kxIfcDirection *d = make(b, kxIfcDirection_class());
    if (d == NULL) return NULL;
    kxArrIfcReal *ratios = kxArrIfcReal_new();
    kxArrIfcReal_add(ratios, x);
    kxArrIfcReal_add(ratios, y);
    kxArrIfcReal_add(ratios, z);
    kxIfcDirection_set_DirectionRatios_v4(d, ratios);
    return d;
}

/* Axes at a location, z up, x along ref (NULL leaves the defaults). */
static kxIfcAxis2Placement3D *axes(Builder *b, kxIfcCartesianPoint *location, kxIfcDirection *ref) {
    kxIfcAxis2Placement3D *a = make(b, kxIfcAxis2Placement3D_class());
    if (a == NULL) return NULL;
    kxIfcAxis2Placement3D_set_Location(a, location);
    if (ref != NULL) {
        kxIfcAxis2Placement3D_set_Axis(a, b->z_axis);
        kxIfcAxis2Placement3D_set_RefDirection(a, ref);
    }
    return a;
}

/* A new IfcAxis2Placement select object holding 3D axes. */
static kxIfcAxis2Placement *axes_select(Builder *b, kxIfcAxis2Placement3D *placement) {
    kxIfcAxis2Placement *select = make(b, kxIfcAxis2Placement_class());
    if (select != NULL) kxIfcAxis2Placement_set_kxIfcAxis2Placement3D(select, placement);
    return select;
}

/* A local placement by the given axes, relative to another placement (NULL:
 * relative to the world coordinate system). */
static kxIfcLocalPlacement *placement(Builder *b, kxIfcLocalPlacement *relative_to,
                                      kxIfcAxis2Placement3D *placement_axes) {
    kxIfcLocalPlacement *p = make(b, kxIfcLocalPlacement_class());
    if (p == NULL) return NULL;
    if (relative_to != NULL) kxIfcLocalPlacement_set_PlacementRelTo(p, relative_to);
    kxIfcLocalPlacement_set_RelativePlacement(p, axes_select(b, placement_axes));
    return p;
}

/* The Body shape of a box: an x_dim by y_dim rectangle whose corner lies at
 * the local origin, extruded upward by depth. */
static kxIfcProductDefinitionShape *box_shape(Builder *b, const kxWChar *profile_name, double x_dim,
                                              double y_dim, double depth) {
    kxIfcAxis2Placement2D *centre = make(b, kxIfcAxis2Placement2D_class());
    if (centre != NULL) kxIfcAxis2Placement2D_set_Location(centre, point(b, 2, x_dim / 2, y_dim / 2, 0));

    kxIfcRectangleProfileDef *profile = make(b, kxIfcRectangleProfileDef_class());
    kxIfcExtrudedAreaSolid *solid = make(b, kxIfcExtrudedAreaSolid_class());
    kxIfcShapeRepresentation *body = make(b, kxIfcShapeRepresentation_class());
    kxIfcProductDefinitionShape *shape = make(b, kxIfcProductDefinitionShape_class());
    if (profile == NULL || solid == NULL || body == NULL || shape == NULL) return NULL;

    kxIfcRectangleProfileDef_set_ProfileType(
        profile, enum_value(b, kxIfcProfileTypeEnum_has_value, kxIfcProfileTypeEnum_to_string, "AREA"));
    kxIfcRectangleProfileDef_set_ProfileName(profile, profile_name);
    kxIfcRectangleProfileDef_set_Position(profile, centre);
    kxIfcRectangleProfileDef_set_XDim(profile, x_dim);
    kxIfcRectangleProfileDef_set_YDim(profile, y_dim);

    kxIfcExtrudedAreaSolid_set_SweptArea(solid, profile);
    kxIfcExtrudedAreaSolid_set_Position(solid, b->world);
    kxIfcExtrudedAreaSolid_set_ExtrudedDirection(solid, b->z_axis);
    kxIfcExtrudedAreaSolid_set_Depth(solid, depth);

    kxSetIfcRepresentationItem *items = kxSetIfcRepresentationItem_new();
    kxSetIfcRepresentationItem_append_element(items, solid);
    kxIfcShapeRepresentation_set_ContextOfItems(body, b->context);
    kxIfcShapeRepresentation_set_RepresentationIdentifier(body, u"Body");
    kxIfcShapeRepresentation_set_RepresentationType(body, u"SweptSolid");
    kxIfcShapeRepresentation_set_Items(body, items);

    kxListIfcRepresentation *representations = kxListIfcRepresentation_new();
    kxListIfcRepresentation_append_element(representations, body);
    kxIfcProductDefinitionShape_set_Representations(shape, representations);
    return shape;
}

/* ---- project, units, context -------------------------------------------- */

static kxIfcSIUnit *si_unit(Builder *b, kxSetIfcUnit *units, const char *unit_type, const char *name) {
    kxIfcSIUnit *unit = make(b, kxIfcSIUnit_class());
    kxIfcUnit *select = make(b, kxIfcUnit_class());
    if (unit == NULL || select == NULL) return NULL;
    kxIfcSIUnit_set_UnitType(unit, enum_value(b, kxIfcUnitEnum_has_value, kxIfcUnitEnum_to_string, unit_type));
    kxIfcSIUnit_set_Name(unit, enum_value(b, kxIfcSIUnitName_has_value, kxIfcSIUnitName_to_string, name));
    kxIfcUnit_set_kxIfcNamedUnit(select, unit);
    kxSetIfcUnit_append_element(units, select);
    return unit;
}

static kxIfcProject *build_project(Builder *b) {
    kxIfcProject *project = make_rooted(b, kxIfcProject_class(), u"Sample house");
    if (project == NULL) return NULL;
    kxIfcProject_set_Description(project, u"A small house built by the kxifcmodel C example");
    kxIfcProject_set_LongName_v4(project, u"Sample house project");
    kxIfcProject_set_Phase_v4(project, u"Design");

    kxIfcUnitAssignment *assignment = make(b, kxIfcUnitAssignment_class());
    if (assignment == NULL) return NULL;
    kxSetIfcUnit *units = kxSetIfcUnit_new();
    si_unit(b, units, "LENGTHUNIT", "METRE");
    si_unit(b, units, "AREAUNIT", "SQUARE_METRE");
    si_unit(b, units, "VOLUMEUNIT", "CUBIC_METRE");
    si_unit(b, units, "PLANEANGLEUNIT", "RADIAN");
    kxIfcUnitAssignment_set_Units(assignment, units);
    kxIfcProject_set_UnitsInContext_v4(project, assignment);

    b->origin = point(b, 3, 0, 0, 0);
    b->z_axis = direction(b, 0, 0, 1);
    b->x_axis = direction(b, 1, 0, 0);
    b->world = axes(b, b->origin, NULL);
    b->context = make(b, kxIfcGeometricRepresentationContext_class());
    if (b->context == NULL) return NULL;
    kxIfcGeometricRepresentationContext_set_ContextType(b->context, u"Model");
    kxIfcGeometricRepresentationContext_set_CoordinateSpaceDimension(b->context, 3);
    kxIfcGeometricRepresentationContext_set_Precision_v4(b->context, 1e-5);
    kxIfcGeometricRepresentationContext_set_WorldCoordinateSystem(b->context, axes_select(b, b->world));

    kxSetIfcRepresentationContext *contexts = kxSetIfcRepresentationContext_new();
    kxSetIfcRepresentationContext_append_element(contexts, b->context);
    kxIfcProject_set_RepresentationContexts_v4(project, contexts);
    return project;
}

/* ---- relationships ------------------------------------------------------ */

static void aggregate(Builder *b, const kxWChar *name, kxIfcObjectDefinition *whole, kxIfcObjectDefinition *part) {
    kxIfcRelAggregates *rel = make_rooted(b, kxIfcRelAggregates_class(), name);
    if (rel == NULL) return;
    kxSetIfcObjectDefinition *parts = kxSetIfcObjectDefinition_new();
    kxSetIfcObjectDefinition_append_element(parts, part);
    kxIfcRelAggregates_set_RelatingObject_v4(rel, whole);
    kxIfcRelAggregates_set_RelatedObjects_v4(rel, parts);
}

/* ---- main ----------------------------------------------------------------- */

/* Builds the house into b->model; false when something could not be made. */
static int build_house(Builder *b) {
    kxIfcProject *project = build_project(b);
    if (project == NULL) return 0;

    const int32_t element = enum_value(b, kxIfcElementCompositionEnum_has_value,
                                       kxIfcElementCompositionEnum_to_string, "ELEMENT");

    kxIfcSite *site = make_rooted(b, kxIfcSite_class(), u"Site");
    kxIfcBuilding *building = make_rooted(b, kxIfcBuilding_class(), u"House");
    kxIfcBuildingStorey *storey = make_rooted(b, kxIfcBuildingStorey_class(), u"Ground floor");
    if (site == NULL || building == NULL || storey == NULL) return 0;

    kxIfcLocalPlacement *site_placement = placement(b, NULL, b->world);
    kxIfcSite_set_ObjectPlacement(site, site_placement);
    kxIfcSite_set_CompositionType(site, element);
    kxIfcSite_set_RefElevation(site, 0.0);

    kxIfcLocalPlacement *building_placement = placement(b, site_placement, b->world);
    kxIfcBuilding_set_ObjectPlacement(building, building_placement);
    kxIfcBuilding_set_CompositionType(building, element);

    kxIfcLocalPlacement *storey_placement = placement(b, building_placement, b->world);
    kxIfcBuildingStorey_set_ObjectPlacement(storey, storey_placement);
    kxIfcBuildingStorey_set_CompositionType(storey, element);
    kxIfcBuildingStorey_set_Elevation(storey, 0.0);

    aggregate(b, u"Project site", project, site);
    aggregate(b, u"Site building", site, building);
    aggregate(b, u"Building storeys", building, storey);

    /* Four walls running anticlockwise round the plan, each drawn along its
     * local x axis from its start corner, thickness to the inside (left). */
    static const struct {
        const char16_t *name;
        double x, y;   /* start corner */
        double dx, dy; /* direction */
        double length;
    } walls[WALL_COUNT] = {
        {u"South wall", 0.0, 0.0, 1.0, 0.0, HOUSE_LENGTH},
        {u"East wall", HOUSE_LENGTH, 0.0, 0.0, 1.0, HOUSE_WIDTH},
        {u"North wall", HOUSE_LENGTH, HOUSE_WIDTH, -1.0, 0.0, HOUSE_LENGTH},
        {u"West wall", 0.0, HOUSE_WIDTH, 0.0, -1.0, HOUSE_WIDTH},
    };
    const int32_t standard = enum_value(b, kxIfcWallTypeEnum_has_value, kxIfcWallTypeEnum_to_string, "STANDARD");
    kxSetIfcProduct *contents = kxSetIfcProduct_new();
    kxSetIfcObjectDefinition *walls_with_properties = kxSetIfcObjectDefinition_new();
    for (int i = 0; i < WALL_COUNT; i++) {
        kxIfcWall *wall = make_rooted(b, kxIfcWall_class(), walls[i].name);
        if (wall == NULL) break;
        kxIfcWall_set_ObjectType(wall, u"Exterior wall");
        kxIfcWall_set_PredefinedType_v4(wall, standard);
        kxIfcDirection *along = walls[i].dx == 1.0 ? b->x_axis : direction(b, walls[i].dx, walls[i].dy, 0.0);
        kxIfcCartesianPoint *start =
            walls[i].x == 0.0 && walls[i].y == 0.0 ? b->origin : point(b, 3, walls[i].x, walls[i].y, 0.0);
        kxIfcAxis2Placement3D *wall_axes = axes(b, start, along);
        kxIfcWall_set_ObjectPlacement(wall, placement(b, storey_placement, wall_axes));
        kxIfcWall_set_Representation(wall, box_shape(b, u"Wall section", walls[i].length, WALL_THICKNESS,
                                                     WALL_HEIGHT));
        kxSetIfcProduct_append_element(contents, wall);
        kxSetIfcObjectDefinition_append_element(walls_with_properties, wall);
    }

    kxIfcSlab *slab = make_rooted(b, kxIfcSlab_class(), u"Ground slab");
    if (slab != NULL) {
        kxIfcSlab_set_PredefinedType(slab,
                                     enum_value(b, kxIfcSlabTypeEnum_has_value, kxIfcSlabTypeEnum_to_string, "FLOOR"));
        /* The slab lies under the floor level: its top is at the storey's 0. */
        kxIfcAxis2Placement3D *slab_axes = axes(b, point(b, 3, 0.0, 0.0, -SLAB_THICKNESS), NULL);
        kxIfcSlab_set_ObjectPlacement(slab, placement(b, storey_placement, slab_axes));
        kxIfcSlab_set_Representation(slab, box_shape(b, u"Slab outline", HOUSE_LENGTH, HOUSE_WIDTH, SLAB_THICKNESS));
        kxSetIfcProduct_append_element(contents, slab);
    }

    kxIfcRelContainedInSpatialStructure *contained =
        make_rooted(b, kxIfcRelContainedInSpatialStructure_class(), u"Ground floor contents");
    if (contained != NULL) {
        kxIfcRelContainedInSpatialStructure_set_RelatedElements(contained, contents);
        kxIfcRelContainedInSpatialStructure_set_RelatingStructure_v4(contained, storey);
    } else {
        kxSetIfcProduct_free(&contents);
    }

    /* Pset_WallCommon: IsExternal = TRUE, Height = the wall height. */
    kxIfcValue *is_external_value = make(b, kxIfcValue_class());
    kxIfcValue *height_value = make(b, kxIfcValue_class());
    kxIfcPropertySingleValue *is_external = make(b, kxIfcPropertySingleValue_class());
    kxIfcPropertySingleValue *height = make(b, kxIfcPropertySingleValue_class());
    kxIfcPropertySet *pset = make_rooted(b, kxIfcPropertySet_class(), u"Pset_WallCommon");
    kxIfcPropertySetDefinitionSelect *definition = make(b, kxIfcPropertySetDefinitionSelect_class());
    kxIfcRelDefinesByProperties *defines =
        make_rooted(b, kxIfcRelDefinesByProperties_class(), u"Wall common properties");
    if (is_external_value == NULL || height_value == NULL || is_external == NULL || height == NULL ||
        pset == NULL || definition == NULL || defines == NULL) {
        kxSetIfcObjectDefinition_free(&walls_with_properties);
        return 0;
    }
    kxIfcValue_set_kxIfcBoolean(is_external_value, kxBTRUE);
    kxIfcPropertySingleValue_set_Name(is_external, u"IsExternal");
    kxIfcPropertySingleValue_set_NominalValue(is_external, is_external_value);
    kxIfcValue_set_kxIfcLengthMeasure(height_value, WALL_HEIGHT);
    kxIfcPropertySingleValue_set_Name(height, u"Height");
    kxIfcPropertySingleValue_set_NominalValue(height, height_value);

    kxSetIfcProperty *properties = kxSetIfcProperty_new();
    kxSetIfcProperty_append_element(properties, is_external);
    kxSetIfcProperty_append_element(properties, height);
    kxIfcPropertySet_set_HasProperties(pset, properties);

    kxIfcPropertySetDefinitionSelect_set_kxIfcPropertySetDefinition(definition, pset);
    kxIfcRelDefinesByProperties_set_RelatedObjects_v4(defines, walls_with_properties);
    kxIfcRelDefinesByProperties_set_RelatingPropertyDefinition_v4(defines, definition);
    return !b->failed;
}

/* The header: what the file is and who wrote it (the time stamp is set by
 * the export). */
static void describe_file(kxIfcModel *model, const kxWChar *file_name) {
    kxIfcHeader *header = kxIfcHeader_new_empty_header();
    kxIfcHeader_add_to_description(header, u"ViewDefinition [DesignTransferView]");
    kxIfcHeader_set_file_name(header, file_name);
    kxIfcHeader_add_to_author(header, u"kxifcmodel examples");
    kxIfcHeader_add_to_organization(header, u"kxifcmodel");
    kxIfcHeader_set_originating_system(header, u"kxifcmodel build_house example");
    kxIfcModel_set_header(model, &header); /* takes it over */
}

int main(int argc, char **argv) {
    if (argc > 3) {
        fprintf(stderr, "usage: build_house [DIRECTORY [NAME]]\n");
        return 2;
    }
    const char *directory = argc > 1 ? argv[1] : ".";
    const char *name = argc > 2 ? argv[2] : "sample_house";
    int64_t blocks_before = 0, bytes_before = 0;
    kxMemory_get_usage(&blocks_before, &bytes_before);
    const uint64_t reports_before = kxDiagnostics_assert_count();

    Builder b = {0};
    b.model = kxIfcModel_new();
    kxIfcModel_set_version(b.model, KXIFCVERSION_IFC_4);
    b.next_guid = 1;
    int ok = build_house(&b);
    const uint32_t written_count = kxIfcModel_count_objects(b.model);

    /* Write <directory>/<name>.ifc. */
    size_t path_size = strlen(directory) + strlen(name) + sizeof "/.ifc";
    char *path = malloc(path_size);
    char *file_name_utf8 = malloc(strlen(name) + sizeof ".ifc");
    kxWChar *w_directory = kxWideString_new_from_utf8(directory);
    kxWChar *w_name = kxWideString_new_from_utf8(name);
    kxWChar *w_path = NULL;
    if (path == NULL || file_name_utf8 == NULL) {
        ok = 0;
    } else {
        snprintf(path, path_size, "%s/%s.ifc", directory, name);
        snprintf(file_name_utf8, strlen(name) + sizeof ".ifc", "%s.ifc", name);
        w_path = kxWideString_new_from_utf8(path);
    }
    if (ok) {
        kxWChar *w_file_name = kxWideString_new_from_utf8(file_name_utf8);
        describe_file(b.model, w_file_name);
        kxWideString_free(&w_file_name);
        remove(path); /* so that the read below proves this export wrote it */
        kxIfcModel_export_model_to_file(b.model, w_name, w_directory);
    }
    kxIfcModel_free(&b.model);

    /* Read it back. */
    if (ok) {
        kxBool read_with_errors = kxBTRUE;
        kxIfcModel *read = kxIfcModel_read_from_step_file(w_path, 0, &read_with_errors);
        if (read == NULL) {
            fprintf(stderr, "build_house: %s was not written or cannot be read\n", path);
            ok = 0;
        } else {
            const uint32_t read_count = kxIfcModel_count_objects(read);
            printf("wrote %s: %u instances; read back: %u instances, %s\n", path, (unsigned)written_count,
                   (unsigned)read_count, read_with_errors ? "with errors" : "no errors");
            ok = !read_with_errors && read_count == written_count;
            kxIfcModel_free(&read);
        }
    }
    kxWideString_free(&w_path);
    kxWideString_free(&w_name);
    kxWideString_free(&w_directory);
    free(file_name_utf8);
    free(path);

    /* Everything the library handed out has gone back. */
    int64_t blocks_after = 0, bytes_after = 0;
    kxMemory_get_usage(&blocks_after, &bytes_after);
    if (blocks_after != blocks_before || bytes_after != bytes_before) {
        fprintf(stderr, "build_house: %lld blocks (%lld bytes) not freed\n",
                (long long)(blocks_after - blocks_before), (long long)(bytes_after - bytes_before));
        ok = 0;
    }
    if (kxDiagnostics_assert_count() != reports_before) {
        fprintf(stderr, "build_house: the library reported failed checks\n");
        ok = 0;
    }
    return ok ? EXIT_SUCCESS : EXIT_FAILURE;
}
