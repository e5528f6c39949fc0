// kxifc info FILE: what a file holds: release, header fields, entity
// instances per class, the spatial structure with the number of elements
// each part contains, and the units the project states.
#include <algorithm>
#include <map>
#include <set>
#include <unordered_map>
#include <utility>
#include <vector>

#include "commands.h"

namespace kxcli {
namespace {

constexpr const char *kUsage =
    "usage: kxifc info FILE\n"
    "Prints the schema release, the header fields, the number of entity instances of each class,\n"
    "the spatial structure (project > site > building > storey, with the number of elements\n"
    "contained in each) and the units the project uses.\n";

// Deeper structures than this are cut (a file may nest without end).
constexpr int kMaxDepth = 32;

// The header fields in file order: one value, or a list of them.
struct HeaderField {
    const char *label;
    const kxWChar *(*value)(const kxIfcHeader *);
    uint32_t (*count)(const kxIfcHeader *);
    const kxWChar *(*item)(const kxIfcHeader *, uint32_t);
};
constexpr HeaderField kHeaderFields[] = {
    {"schema", kxIfcHeader_get_file_schema, nullptr, nullptr},
    {"description", nullptr, kxIfcHeader_description_fields_count, kxIfcHeader_get_description_field},
    {"name", kxIfcHeader_get_file_name, nullptr, nullptr},
    {"time stamp", kxIfcHeader_get_timestamp, nullptr, nullptr},
    {"author", nullptr, kxIfcHeader_author_fields_count, kxIfcHeader_get_author_field},
    {"organization", nullptr, kxIfcHeader_organization_fields_count, kxIfcHeader_get_organization_field},
    {"originating system", kxIfcHeader_get_originating_system, nullptr, nullptr},
    {"authorization", nullptr, kxIfcHeader_authorization_fields_count, kxIfcHeader_get_authorization_field},
};

// "label: text" per value the file carries; nothing for absent ones.
void print_header(const kxIfcHeader *header) {
    if (header == nullptr) return;
    for (const HeaderField &field : kHeaderFields) {
        const uint32_t n = field.value != nullptr ? 1 : field.count(header);
        for (uint32_t i = 0; i < n; ++i) {
            const kxWChar *text = field.value != nullptr ? field.value(header) : field.item(header, i);
            if (text != nullptr && text[0] != 0) std::printf("%s: %s\n", field.label, kx::to_utf8(text).c_str());
        }
    }
}

// Instances per class name; select values (objects of their own) are not
// entity instances and are left out.
void count_instance(kxBaseObject *instance, void *user_data, int32_t * /*stop*/) {
    auto &counts = *static_cast<std::unordered_map<const kxWChar *, unsigned long> *>(user_data);
    ++counts[kxBaseObject_dontuse_get_ifc_class_name(instance)];
}

void print_counts(const kx::Model &model) {
    std::unordered_map<const kxWChar *, unsigned long> by_name;
    kxIfcModel_clear_objects_visited_mask(model.get());
    kxIfcModel_dontuse_visit_model(model.get(), &by_name, count_instance);
    std::vector<std::pair<std::string, unsigned long>> ranked;
    unsigned long total = 0;
    for (const auto &[name, count] : by_name) {
        const kxClass_t *klass = kxClass_find_by_name(name);
        if (klass == nullptr || !kxClass_is_entity(klass)) continue;
        ranked.emplace_back(kx::to_utf8(name), count);
        total += count;
    }
    std::sort(ranked.begin(), ranked.end(), [](const auto &a, const auto &b) {
        return a.second != b.second ? a.second > b.second : a.first < b.first;
    });
    std::printf("entity instances: %lu\n", total);
    for (const auto &[name, count] : ranked) std::printf("  %-44s %lu\n", name.c_str(), count);
}

// ---- spatial structure ----

// The objects a spatial part is decomposed into.
std::vector<kx::Instance> parts_of(const kx::Model &model, kx::Instance whole) {
    const bool old_release = model.version() == KXIFCVERSION_IFC_2X3;
    std::vector<kx::Instance> parts;
    for (kx::Instance relationship :
         kx::InstanceRange(old_release ? kxIfcObjectDefinition_inverse_relation_IsDecomposedBy_v2x3(whole.get())
                                       : kxIfcObjectDefinition_inverse_relation_IsDecomposedBy_v4(whole.get()))) {
        const kxSetIfcObjectDefinition *related =
            old_release ? kxIfcRelDecomposes_get_RelatedObjects_v2x3(relationship.get())
                        : kxIfcRelAggregates_get_RelatedObjects_v4(relationship.get());
        for (kx::Instance part :
             kx::elements(related, kxSetIfcObjectDefinition_count, kxSetIfcObjectDefinition_get_element))
            if (part) parts.push_back(part);
    }
    return parts;
}

// Number of elements the spatial part contains directly.
size_t contained_count(const kx::Model &model, kx::Instance part) {
    const bool old_release = model.version() == KXIFCVERSION_IFC_2X3;
    if (!part.is_a(old_release ? "IfcSpatialStructureElement" : "IfcSpatialElement")) return 0;
    size_t count = 0;
    for (kx::Instance relationship :
         kx::InstanceRange(old_release ? kxIfcSpatialStructureElement_inverse_relation_ContainsElements(part.get())
                                       : kxIfcSpatialElement_inverse_relation_ContainsElements(part.get())))
        count += kx::elements(kxIfcRelContainedInSpatialStructure_get_RelatedElements(relationship.get()),
                              kxSetIfcProduct_count, kxSetIfcProduct_get_element)
                     .size();
    return count;
}

void print_structure(const kx::Model &model, kx::Instance part, int depth, std::set<kxBaseObject *> &seen) {
    if (depth > kMaxDepth || !seen.insert(part.get()).second) return;
    std::printf("%*s%s \"%s\"", 2 * depth, "", part.class_name().c_str(),
                kx::to_utf8(kxIfcRoot_get_Name(part.get())).c_str());
    if (!part.is_a("IfcProject")) std::printf(" (%zu elements)", contained_count(model, part));
    std::putchar('\n');
    for (kx::Instance child : parts_of(model, part))
        if (child.is_a("IfcSpatialStructureElement") || child.is_a("IfcSpatialElement"))
            print_structure(model, child, depth + 1, seen);
}

// ---- units ----

std::string named_unit_text(kx::Instance unit) {
    if (unit.is_a("IfcSIUnit")) {
        const kxIfcSIPrefix prefix = kxIfcSIUnit_get_Prefix(unit.get());
        std::string text = kxIfcSIPrefix_has_value(prefix) ? kx::to_utf8(kxIfcSIPrefix_to_string(prefix)).append(" ") : "";
        return text.append(kx::to_utf8(kxIfcSIUnitName_to_string(kxIfcSIUnit_get_Name(unit.get()))));
    }
    if (unit.is_a("IfcConversionBasedUnit"))
        return std::string("\"").append(kx::to_utf8(kxIfcConversionBasedUnit_get_Name(unit.get()))).append("\" (conversion-based)");
    return unit.class_name();
}

// Every member of a unit select is an entity, so any member getter gives
// the unit held, whose class then tells its kind.
void print_unit(const kx::Model &model, const kxIfcUnit *select) {
    const kx::Instance unit(kxIfcUnit_get_kxIfcNamedUnit(select));
    if (unit.is_a("IfcNamedUnit")) {
        std::printf("  %s: %s\n", kx::to_utf8(kxIfcUnitEnum_to_string(kxIfcNamedUnit_get_UnitType(unit.get()))).c_str(),
                    named_unit_text(unit).c_str());
    } else if (unit.is_a("IfcDerivedUnit")) {
        std::printf("  %s: derived from %u units\n",
                    kx::to_utf8(kxIfcDerivedUnitEnum_to_string(kxIfcDerivedUnit_get_UnitType(unit.get()))).c_str(),
                    kxSetIfcDerivedUnitElement_count(kxIfcDerivedUnit_get_Elements(unit.get())));
    } else if (unit.is_a("IfcMonetaryUnit")) {
        const std::string currency =
            model.version() == KXIFCVERSION_IFC_2X3
                ? kx::to_utf8(kxIfcCurrencyEnum_to_string(kxIfcMonetaryUnit_get_Currency_v2x3(unit.get())))
                : kx::to_utf8(kxIfcMonetaryUnit_get_Currency_v4(unit.get()));
        std::printf("  currency: %s\n", currency.c_str());
    }
}

void print_units(const kx::Model &model) {
    const kx::InstanceRange assignments = model.by_type("IfcUnitAssignment");
    std::printf("units:%s\n", assignments.empty() ? " none stated" : "");
    if (assignments.empty()) return;
    const kxSetIfcUnit *units = kxIfcUnitAssignment_get_Units(assignments[0].get());
    for (uint32_t i = 0, n = units != nullptr ? kxSetIfcUnit_count(units) : 0; i < n; ++i)
        if (const kxBaseObject *unit = kxSetIfcUnit_get_element(units, i)) print_unit(model, unit);
}

}  // namespace

int run_info(int argc, char **argv) {
    if (argc != 1 || wants_help(argc, argv)) return print_usage_of(kUsage, wants_help(argc, argv));
    const std::optional<kx::Model> model = read_model("info", argv[0]);
    if (!model) return kExitFailure;
    std::printf("file: %s\nrelease: %s\n", argv[0], release_text(model->version()));
    print_header(kxIfcModel_get_header(model->get()));
    print_counts(*model);
    std::printf("spatial structure:\n");
    std::set<kxBaseObject *> seen;
    for (kx::Instance project : model->by_type("IfcProject")) print_structure(*model, project, 1, seen);
    print_units(*model);
    return std::fflush(stdout) == 0 ? kExitOk : kExitFailure;
}

}  // namespace kxcli
