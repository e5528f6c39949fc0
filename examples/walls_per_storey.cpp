// Lists the walls of each building storey with their single-value
// properties, through the C++ layer and the inverse relations:
// storey -> ContainsElements -> walls -> IsDefinedBy -> property sets.
//
//     walls_per_storey [FILE]     (default: the bundled sample house)
#include <cstdio>
#include <string>

#include "kxifcmodel.hpp"

namespace {

#ifdef KX_DEFAULT_SAMPLE
constexpr const char *kDefaultFile = KX_DEFAULT_SAMPLE;
#else
constexpr const char *kDefaultFile = "examples/data/sample_house.ifc";
#endif

// Members of IfcValue, numbered in the order of the select's member list
// (the numbers kxIfcValue_get_type returns), for the kinds shown here.
enum ValueMember : uint32_t {
    kVolumeMeasure = 1,
    kPositiveLengthMeasure = 12,
    kLengthMeasure = 13,
    kAreaMeasure = 18,
    kInteger = 23,
    kReal = 24,
    kBoolean = 25,
    kIdentifier = 26,
    kText = 27,
    kLabel = 28,
};

std::string value_text(const kxIfcValue *value) {
    switch (value != nullptr ? kxIfcValue_get_type(value) : 0) {
    case kVolumeMeasure: return std::to_string(kxIfcValue_get_kxIfcVolumeMeasure(value));
    case kPositiveLengthMeasure: return std::to_string(kxIfcValue_get_kxIfcPositiveLengthMeasure(value));
    case kLengthMeasure: return std::to_string(kxIfcValue_get_kxIfcLengthMeasure(value));
    case kAreaMeasure: return std::to_string(kxIfcValue_get_kxIfcAreaMeasure(value));
    case kInteger: return std::to_string(kxIfcValue_get_kxIfcInteger(value));
    case kReal: return std::to_string(kxIfcValue_get_kxIfcReal(value));
    case kBoolean: return kxIfcValue_get_kxIfcBoolean(value) == kxBTRUE ? "true" : "false";
    case kIdentifier: return kx::to_utf8(kxIfcValue_get_kxIfcIdentifier(value));
    case kText: return kx::to_utf8(kxIfcValue_get_kxIfcText(value));
    case kLabel: return kx::to_utf8(kxIfcValue_get_kxIfcLabel(value));
    case 0: return "(unset)";
    default: return "(other value)";
    }
}

// The property set a relationship defines its objects by (IFC4 holds it in a
// select, IFC2X3 directly).
kx::Instance property_set_of(const kx::Model &model, kx::Instance relationship) {
    if (model.version() == KXIFCVERSION_IFC_2X3)
        return kx::Instance(kxIfcRelDefinesByProperties_get_RelatingPropertyDefinition_v2x3(relationship.get()));
    const kxIfcPropertySetDefinitionSelect *select =
        kxIfcRelDefinesByProperties_get_RelatingPropertyDefinition_v4(relationship.get());
    return kx::Instance(select != nullptr ? kxIfcPropertySetDefinitionSelect_get_kxIfcPropertySetDefinition(select)
                                          : nullptr);
}

void print_properties(const kx::Model &model, kx::Instance wall) {
    kx::InstanceRange definitions(model.version() == KXIFCVERSION_IFC_2X3
                                      ? kxIfcObject_inverse_relation_IsDefinedBy_v2x3(wall.get())
                                      : kxIfcObject_inverse_relation_IsDefinedBy_v4(wall.get()));
    for (kx::Instance relationship : definitions) {
        if (!relationship.is_a("IfcRelDefinesByProperties")) continue;
        const kx::Instance set = property_set_of(model, relationship);
        if (!set.is_a("IfcPropertySet")) continue;
        for (kx::Instance property :
             kx::elements(kxIfcPropertySet_get_HasProperties(set.get()), kxSetIfcProperty_count,
                          kxSetIfcProperty_get_element)) {
            if (!property.is_a("IfcPropertySingleValue")) continue;
            std::printf("      %s.%s = %s\n", kx::to_utf8(kxIfcPropertySet_get_Name(set.get())).c_str(),
                        kx::to_utf8(kxIfcPropertySingleValue_get_Name(property.get())).c_str(),
                        value_text(kxIfcPropertySingleValue_get_NominalValue(property.get())).c_str());
        }
    }
}

}  // namespace

int main(int argc, char **argv) {
    const char *path = argc > 1 ? argv[1] : kDefaultFile;
    kx::ReadDiagnostics diagnostics;
    const std::optional<kx::Model> model = kx::Model::read(path, {}, &diagnostics);
    if (!model) {
        std::fprintf(stderr, "cannot read %s\n", path);
        for (const kx::ReadProblem &problem : diagnostics.problems)
            std::fprintf(stderr, "  line %u: %s\n", problem.line, problem.message.c_str());
        return 1;
    }
    std::printf("%s: %u instances, %llu read problems\n", path, model->size(),
                static_cast<unsigned long long>(diagnostics.errors + diagnostics.warnings));
    for (kx::Instance storey : model->by_type("IfcBuildingStorey")) {
        std::printf("storey #%u %s\n", storey.id(), kx::to_utf8(kxIfcBuildingStorey_get_Name(storey.get())).c_str());
        for (kx::Instance containment :
             kx::InstanceRange(kxIfcSpatialStructureElement_inverse_relation_ContainsElements(storey.get())))
            for (kx::Instance element :
                 kx::elements(kxIfcRelContainedInSpatialStructure_get_RelatedElements(containment.get()),
                              kxSetIfcProduct_count, kxSetIfcProduct_get_element)) {
                if (!element.is_a("IfcWall")) continue;
                std::printf("    %s #%u %s\n", element.class_name().c_str(), element.id(),
                            kx::to_utf8(kxIfcWall_get_Name(element.get())).c_str());
                print_properties(*model, element);
            }
    }
    return 0;
}
