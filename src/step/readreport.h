// Read reports: the problems a read met, each with its code, severity and
// place, kept up to a bound per code and counted beyond it. The reader only
// builds a problem's texts when the report will keep it, so a file with
// millions of faults costs a counter per fault.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "kxifc_files.h"

namespace kx {

struct ReadProblem {
    kxReadCode code = 0;
    uint32_t line = 0;
    uint32_t column = 0;
    uint32_t file_id = 0;
    std::string entity_name;      // upper case, as the file spells it
    uint32_t attribute_index = 0; // from 1 in the schema's order; 0: none
    std::string attribute_name;
    std::string message;
};

// Counts one problem of the code; true when the report keeps its details
// (then hand them to report_keep). A NULL report keeps nothing.
bool report_note(kxReadReport *report, kxReadCode code);
void report_keep(kxReadReport *report, ReadProblem &&problem);
// Tells the report's progress callback, if any, how far a read has got.
void report_progress(const kxReadReport *report, uint64_t done, uint64_t total);
// Both at once, for problems whose texts are cheap.
void report_add(kxReadReport *report, ReadProblem &&problem);

// The threads a read with the report may use (1 for a NULL report).
uint32_t report_threads(const kxReadReport *report);
// A report that keeps as much as `like` would (NULL for NULL), without a
// progress callback: what one thread of a parallel read notes.
kxReadReport *report_new_like(const kxReadReport *like);
// Appends what `from` noted to `into`, as if `into` had noted it itself
// after what it holds, and frees `from`. Its line numbers count from a
// part's first line: `lines_before` is added to them.
void report_merge(kxReadReport *into, kxReadReport **from, uint32_t lines_before);

kxReadSeverity read_code_severity(kxReadCode code);
std::string utf8_of(const char16_t *text);
// printf into a std::string.
std::string text_format(const char *format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace kx
