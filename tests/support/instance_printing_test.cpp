// An instance printed as its values come (its head given first) and one
// whose values are collected until its head comes print alike: the same
// separators, wrapping at 120 columns and value forms, in both text modes,
// batched or not.
#include <cmath>
#include <random>
#include <string>

#include "record_helpers.h"
#include "support/writedata.h"

namespace {

// Writes a random instance body: values of every form, some long enough to
// wrap, nested lists and typed values.
void write_values(kxIfcWriteData *output, uint64_t seed, bool named_first) {
    std::mt19937_64 random(seed);
    static const char16_t *const kTypeNames[] = {u"IFCLABEL", u"IFCLENGTHMEASURE", u"IFCA"};
    int depth = 0;
    const int count = 5 + static_cast<int>(random() % 40);
    for (int i = 0; i < count; i++) {
        switch (random() % 10) {
            case 0: kxIfcWriteData_write_reference(output, static_cast<uint32_t>(random() % 2000000000)); break;
            case 1: kxIfcWriteData_write_integer(output, static_cast<int32_t>(random())); break;
            case 2: kxIfcWriteData_write_real(output, std::ldexp(static_cast<double>(random() % 100000), -12 + static_cast<int>(random() % 40))); break;
            case 3: kxIfcWriteData_write_string(output, std::u16string(random() % 90, u'x').append(u"'\\\u00e9").c_str()); break;
            case 4: kxIfcWriteData_write_text(output, u".NOTDEFINED."); break;
            case 5: (random() & 1) != 0 ? kxIfcWriteData_write_unset(output) : kxIfcWriteData_write_derived(output); break;
            case 6:
            case 7:
                kxIfcWriteData_begin_parameters(output);
                depth++;
                break;
            case 8: {
                const char16_t *name = kTypeNames[random() % 3];
                if (named_first)
                    kxIfcWriteData_begin_named_value(output, name);
                else
                    kxIfcWriteData_begin_typed_value(output);
                kxIfcWriteData_write_real(output, static_cast<double>(random() % 1000) / 7.0);
                kxIfcWriteData_end_typed_value(output, name);
                break;
            }
            default:
                if (depth > 0) {
                    kxIfcWriteData_end_list(output);
                    depth--;
                }
                break;
        }
    }
    for (; depth > 0; depth--) kxIfcWriteData_end_list(output);
}

TEST(InstancePrintingTest, PrintedAsTheyComeOrCollectedAlike) {
    int wrapped = 0;
    for (bool lossless : {false, true}) {
        for (uint64_t seed = 1; seed <= 300; seed++) {
            const std::string collected = kxtest::written_text([&](kxIfcWriteData *output) {
                kxIfcWriteData_set_lossless(output, lossless);
                kxIfcWriteData_begin_parameters(output);
                write_values(output, seed, false);
                kxIfcWriteData_write_entity_line(output, u"IfcSomething", static_cast<uint32_t>(seed * 7919), nullptr);
            });
            const std::string printed = kxtest::written_text([&](kxIfcWriteData *output) {
                kxIfcWriteData_set_lossless(output, lossless);
                kxIfcWriteData_set_batched(output, (seed & 1) != 0);
                kxIfcWriteData_begin_instance(output, u"IfcSomething", static_cast<uint32_t>(seed * 7919));
                write_values(output, seed, true);
                kxIfcWriteData_end_instance(output);
            });
            ASSERT_EQ(printed, collected) << "seed " << seed << (lossless ? ", lossless" : "");
            if (printed.find('\n') + 1 < printed.size()) wrapped++;
        }
    }
    EXPECT_GT(wrapped, 100);  // the wrapping was exercised
}

}  // namespace
