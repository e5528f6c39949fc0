#define KX_UNIT "kxreadreport"
#include "step/readreport.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <vector>

#include "support/assert.h"
#include "support/memory.h"
#include "support/threads.h"
#include "support/wstring.h"

struct kxReadReport {
    uint32_t max_per_code;
    std::vector<kx::ReadProblem> problems;
    std::array<uint64_t, KX_READ_CODE_COUNT> totals{};
    kxProgressFn progress = nullptr;
    void *progress_data = nullptr;
    uint32_t threads = 1;
};

namespace kx {

namespace {

struct CodeInfo {
    const char *name;
    kxReadSeverity severity;
};

// Indexed by code.
constexpr CodeInfo kCodes[KX_READ_CODE_COUNT] = {
    {"unknown", KX_SEVERITY_ERROR},
    {"unreadable-file", KX_SEVERITY_ERROR},
    {"syntax-error", KX_SEVERITY_ERROR},
    {"unknown-entity", KX_SEVERITY_ERROR},
    {"other-release-entity", KX_SEVERITY_ERROR},
    {"abstract-entity", KX_SEVERITY_ERROR},
    {"duplicate-id", KX_SEVERITY_ERROR},
    {"undefined-reference", KX_SEVERITY_ERROR},
    {"wrong-type", KX_SEVERITY_ERROR},
    {"wrong-attribute-count", KX_SEVERITY_ERROR},
    {"integer-out-of-range", KX_SEVERITY_ERROR},
    {"real-out-of-range", KX_SEVERITY_ERROR},
    {"malformed-escape", KX_SEVERITY_WARNING},
    {"schema-mismatch", KX_SEVERITY_WARNING},
    {"text-after-end", KX_SEVERITY_ERROR},
    {"id-out-of-range", KX_SEVERITY_ERROR},
    {"unsupported-instance", KX_SEVERITY_ERROR},
    {"nul-in-string", KX_SEVERITY_ERROR},
};

bool valid_code(kxReadCode code) { return code > 0 && code < KX_READ_CODE_COUNT; }

const ReadProblem *problem_at(const kxReadReport *report, uint32_t index) {
    kx_assert_not_null(report);
    if (report == nullptr) return nullptr;
    kx_assert(index < report->problems.size());
    return index < report->problems.size() ? &report->problems[index] : nullptr;
}

// A field of the problem at an index, or `absent` for a bad index.
template <typename T, typename Get>
T field_of(const kxReadReport *report, uint32_t index, T absent, Get get) {
    const ReadProblem *problem = problem_at(report, index);
    return problem != nullptr ? static_cast<T>(get(*problem)) : absent;
}

}  // namespace

kxReadSeverity read_code_severity(kxReadCode code) {
    return valid_code(code) ? kCodes[code].severity : KX_SEVERITY_ERROR;
}

std::string utf8_of(const char16_t *text) {
    if (text == nullptr) return std::string();
    char *utf8 = wstr_to_utf8(text);
    std::string result(utf8 != nullptr ? utf8 : "");
    mem_free(utf8);
    return result;
}

std::string text_format(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, arguments);
    va_end(arguments);
    std::string text(length > 0 ? static_cast<size_t>(length) : 0, '\0');
    if (length > 0) std::vsnprintf(text.data(), text.size() + 1, format, again);
    va_end(again);
    return text;
}

bool report_note(kxReadReport *report, kxReadCode code) {
    if (report == nullptr || !valid_code(code)) return false;
    return report->totals[code]++ < report->max_per_code;
}

void report_progress(const kxReadReport *report, uint64_t done, uint64_t total) {
    if (report == nullptr || report->progress == nullptr) return;
    MemPoolScope host_memory(nullptr);  // what the host makes meanwhile is not the read's
    report->progress(report->progress_data, done, total);
}

void report_keep(kxReadReport *report, ReadProblem &&problem) {
    if (report != nullptr) report->problems.push_back(std::move(problem));
}

void report_add(kxReadReport *report, ReadProblem &&problem) {
    if (report_note(report, problem.code)) report_keep(report, std::move(problem));
}

uint32_t report_threads(const kxReadReport *report) {
    if (report == nullptr) return 1;
    return report->threads == 0 ? threads_available() : report->threads;
}

kxReadReport *report_new_like(const kxReadReport *like) {
    return like != nullptr ? kxReadReport_new(like->max_per_code) : nullptr;
}

void report_merge(kxReadReport *into, kxReadReport **from, uint32_t lines_before) {
    if (*from == nullptr) return;
    std::array<uint64_t, KX_READ_CODE_COUNT> kept{};
    for (ReadProblem &problem : (*from)->problems) {
        kept[problem.code]++;
        if (problem.line != 0) problem.line += lines_before;
        report_add(into, std::move(problem));
    }
    for (size_t code = 0; code < KX_READ_CODE_COUNT && into != nullptr; code++)
        into->totals[code] += (*from)->totals[code] - kept[code];
    kxReadReport_free(from);
}

}  // namespace kx

using namespace kx;

extern "C" {

KX_API kxReadReport *kxReadReport_new(uint32_t max_per_code) {
    kxReadReport *report = new kxReadReport;
    report->max_per_code = max_per_code == 0 ? 100 : max_per_code;
    return report;
}

KX_API void kxReadReport_free(kxReadReport **report) {
    kx_assert_not_null(report);
    if (report == nullptr) return;
    delete *report;
    *report = nullptr;
}

KX_API void kxReadReport_clear(kxReadReport *report) {
    kx_assert_not_null(report);
    if (report == nullptr) return;
    report->problems.clear();
    report->totals.fill(0);
}

KX_API void kxReadReport_set_progress(kxReadReport *report, kxProgressFn progress, void *user_data) {
    kx_assert_not_null(report);
    if (report == nullptr) return;
    report->progress = progress;
    report->progress_data = user_data;
}

KX_API void kxReadReport_set_threads(kxReadReport *report, uint32_t threads) {
    kx_assert_not_null(report);
    if (report != nullptr) report->threads = threads;
}

KX_API uint32_t kxReadReport_count(const kxReadReport *report) {
    kx_assert_not_null(report);
    return report != nullptr ? static_cast<uint32_t>(report->problems.size()) : 0;
}

KX_API uint64_t kxReadReport_total(const kxReadReport *report, kxReadCode code) {
    kx_assert_not_null(report);
    if (report == nullptr) return 0;
    if (code != 0) return valid_code(code) ? report->totals[code] : 0;
    uint64_t total = 0;
    for (uint64_t count : report->totals) total += count;
    return total;
}

KX_API uint64_t kxReadReport_total_of_severity(const kxReadReport *report, kxReadSeverity severity) {
    kx_assert_not_null(report);
    if (report == nullptr) return 0;
    uint64_t total = 0;
    for (kxReadCode code = 1; code < KX_READ_CODE_COUNT; code++)
        if (kCodes[code].severity == severity) total += report->totals[code];
    return total;
}

KX_API kxReadSeverity kxReadReport_severity(const kxReadReport *report, uint32_t index) {
    return field_of(report, index, 0, [](const ReadProblem &problem) { return read_code_severity(problem.code); });
}

KX_API kxReadCode kxReadReport_code(const kxReadReport *report, uint32_t index) {
    return field_of(report, index, 0, [](const ReadProblem &problem) { return problem.code; });
}

KX_API uint32_t kxReadReport_line(const kxReadReport *report, uint32_t index) {
    return field_of(report, index, 0u, [](const ReadProblem &problem) { return problem.line; });
}

KX_API uint32_t kxReadReport_column(const kxReadReport *report, uint32_t index) {
    return field_of(report, index, 0u, [](const ReadProblem &problem) { return problem.column; });
}

KX_API uint32_t kxReadReport_file_id(const kxReadReport *report, uint32_t index) {
    return field_of(report, index, 0u, [](const ReadProblem &problem) { return problem.file_id; });
}

KX_API const char *kxReadReport_entity_name(const kxReadReport *report, uint32_t index) {
    return field_of<const char *>(report, index, "", [](const ReadProblem &problem) { return problem.entity_name.c_str(); });
}

KX_API uint32_t kxReadReport_attribute_index(const kxReadReport *report, uint32_t index) {
    return field_of(report, index, 0u, [](const ReadProblem &problem) { return problem.attribute_index; });
}

KX_API const char *kxReadReport_attribute_name(const kxReadReport *report, uint32_t index) {
    return field_of<const char *>(report, index, "", [](const ReadProblem &problem) { return problem.attribute_name.c_str(); });
}

KX_API const char *kxReadReport_message(const kxReadReport *report, uint32_t index) {
    return field_of<const char *>(report, index, "", [](const ReadProblem &problem) { return problem.message.c_str(); });
}

KX_API const char *kxReadCode_name(kxReadCode code) { return valid_code(code) ? kCodes[code].name : "unknown"; }

KX_API const char *kxReadSeverity_name(kxReadSeverity severity) {
    return severity == KX_SEVERITY_WARNING ? "warning" : "error";
}

}  // extern "C"
