#define KX_UNIT "kxtextwindow"
#include "step/textwindow.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "support/memory.h"
#include "support/wstring.h"

namespace kx {
namespace {

bool starts_with_bom(const char *text, size_t length) {
    return length >= 3 && std::memcmp(text, "\xEF\xBB\xBF", 3) == 0;
}

// The first position from `i` (before `limit`) holding one of three
// characters, or `limit`: sixteen bytes a step where the processor can.
size_t find_first_of(const char *text, size_t i, size_t limit, char a, char b, char c) {
#if defined(__SSE2__)
    const __m128i wanted_a = _mm_set1_epi8(a), wanted_b = _mm_set1_epi8(b), wanted_c = _mm_set1_epi8(c);
    for (; i + 16 <= limit; i += 16) {
        const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i *>(text + i));
        const __m128i hits = _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(block, wanted_a), _mm_cmpeq_epi8(block, wanted_b)),
                                          _mm_cmpeq_epi8(block, wanted_c));
        const unsigned mask = static_cast<unsigned>(_mm_movemask_epi8(hits));
        if (mask != 0) return i + static_cast<size_t>(__builtin_ctz(mask));
    }
#endif
    while (i < limit && text[i] != a && text[i] != b && text[i] != c) i++;
    return i;
}

}  // namespace

TextWindow::TextWindow(const char16_t *path, size_t capacity) {
    char *name = wstr_to_utf8(path);
    descriptor_ = name != nullptr ? ::open(name, O_RDONLY | O_CLOEXEC | O_NONBLOCK) : -1;
    mem_free(name);
    struct stat info;
    if (descriptor_ < 0 || ::fstat(descriptor_, &info) != 0) {
        problem_ = "the file cannot be opened";
    } else if (!S_ISREG(info.st_mode)) {
        problem_ = "not a regular file";
    } else if (info.st_size <= 0) {
        problem_ = "the file is empty";
    } else {
        size_ = static_cast<uint64_t>(info.st_size);
        capacity_ = size_ < capacity ? static_cast<size_t>(size_) : (capacity > 16 ? capacity : 16);
        buffer_ = static_cast<char *>(mem_alloc(capacity_));
    }
}

TextWindow::~TextWindow() {
    mem_free(buffer_);
    if (descriptor_ >= 0) ::close(descriptor_);
}

bool TextWindow::start(Scanner *scanner) {
    if (!start_at(scanner, 0, 1)) return false;
    if (starts_with_bom(buffer_, used_)) {
        scanner->begin = scanner->cursor = scanner->line_start = buffer_ + 3;
        scanner->origin = 3;
    }
    return true;
}

bool TextWindow::start_at(Scanner *scanner, uint64_t offset, uint32_t line) {
    used_ = 0;
    loaded_ = offset < size_ ? offset : size_;
    boundary_at_ = 0;
    boundary_ = Boundary::OUTSIDE;
    complete_ = buffer_;
    ends_.clear();
    next_end_ = 0;
    if (!fill()) return false;
    find_statement_ends();
    scanner_init(scanner, buffer_, used_);
    scanner->origin = offset;
    scanner->line = line;
    return scanner->cursor < complete_ || at_end() || slide(scanner);
}

uint64_t TextWindow::next_instance_line(uint64_t offset) {
    char previous = 0;
    for (uint64_t at = offset; at < size_;) {
        const size_t wanted = static_cast<size_t>(size_ - at < capacity_ ? size_ - at : capacity_);
        const ssize_t got = ::pread(descriptor_, buffer_, wanted, static_cast<off_t>(at));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        for (size_t i = 0; i < static_cast<size_t>(got); i++) {
            if (buffer_[i] == '#' && previous == '\n') return at + i;
            previous = buffer_[i];
        }
        at += static_cast<uint64_t>(got);
    }
    return size_;
}

// Reads on until the buffer is full or holds the rest of the file.
bool TextWindow::fill() {
    while (used_ < capacity_ && !at_end()) {
        const size_t wanted = static_cast<size_t>(
            size_ - loaded_ < capacity_ - used_ ? size_ - loaded_ : capacity_ - used_);
        const ssize_t got = ::pread(descriptor_, buffer_ + used_, wanted, static_cast<off_t>(loaded_));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) {
            problem_ = "the file changed while it was read";
            return false;
        }
        used_ += static_cast<size_t>(got);
        loaded_ += static_cast<uint64_t>(got);
    }
    return true;
}

// Goes on looking for the ends of statements by the scanner's own rules for
// strings ('' and \S\ inside them) and comments. Short of the file's end it
// stops three bytes before the buffer's, so that every rule sees all the
// characters it looks at.
void TextWindow::find_statement_ends() {
    const char *text = buffer_;
    const size_t limit = at_end() ? used_ : (used_ > 3 ? used_ - 3 : 0);
    size_t i = boundary_at_;
    size_t last_end = static_cast<size_t>(complete_ - buffer_);
    Boundary state = boundary_;
    while (i < limit) {
        switch (state) {
        case Boundary::OUTSIDE:
            i = find_first_of(text, i, limit, '\'', ';', '/');
            if (i >= limit) break;
            if (text[i] == ';') {
                last_end = ++i;
                ends_.push_back(i);
            } else if (text[i] == '\'') {
                state = Boundary::STRING;
                i++;
            } else if (i + 1 < used_ && text[i + 1] == '*') {
                state = Boundary::COMMENT;
                i += 2;
            } else {
                i++;
            }
            break;
        case Boundary::STRING:
            i = find_first_of(text, i, limit, '\'', '\\', '\'');
            if (i >= limit) break;
            if (text[i] == '\\') {
                i += used_ - i >= 4 && text[i + 1] == 'S' && text[i + 2] == '\\' ? 4 : 1;
            } else if (i + 1 < used_ && text[i + 1] == '\'') {
                i += 2;
            } else {
                state = Boundary::OUTSIDE;
                i++;
            }
            break;
        case Boundary::COMMENT:
            while ((i = find_first_of(text, i, limit, '*', '*', '*')) < limit && !(i + 1 < used_ && text[i + 1] == '/')) i++;
            if (i < limit) {
                state = Boundary::OUTSIDE;
                i += 2;
            }
            break;
        }
    }
    boundary_at_ = i;
    boundary_ = state;
    complete_ = buffer_ + last_end;
}

// Moves the text the scanner still needs (from the start of its physical
// line, for columns) to the buffer's front and reads on behind it, growing
// the buffer while the statement at the scanner does not fit.
bool TextWindow::slide(Scanner *scanner) {
    while (scanner->cursor >= complete_ && !at_end()) {
        size_t keep = static_cast<size_t>(scanner->line_start - buffer_);
        if (keep > boundary_at_) keep = boundary_at_;
        const size_t cursor = static_cast<size_t>(scanner->cursor - buffer_) - keep;
        const size_t line_start = static_cast<size_t>(scanner->line_start - buffer_) - keep;
        const uint64_t origin = scanner_offset(*scanner, buffer_ + keep);
        used_ -= keep;
        std::memmove(buffer_, buffer_ + keep, used_);
        boundary_at_ -= keep;
        if (used_ > capacity_ / 2) {
            capacity_ *= 2;
            buffer_ = static_cast<char *>(mem_realloc(buffer_, capacity_));
        }
        // Every statement end found so far is behind the scanner.
        complete_ = buffer_;
        ends_.clear();
        next_end_ = 0;
        if (!fill()) return false;
        find_statement_ends();
        scanner->begin = buffer_;
        scanner->cursor = buffer_ + cursor;
        scanner->line_start = buffer_ + line_start;
        scanner->end = buffer_ + used_;
        scanner->origin = origin;
    }
    return true;
}

const char *TextWindow::statement_end_on_line(const Scanner &scanner) {
    const size_t from = static_cast<size_t>(scanner.cursor - buffer_);
    while (next_end_ < ends_.size() && ends_[next_end_] <= from) next_end_++;
    if (next_end_ == ends_.size()) return nullptr;
    const size_t end = ends_[next_end_];
    const char *text = buffer_ + from;
    const size_t length = end - from;
    return std::memchr(text, '\n', length) == nullptr && std::memchr(text, '\r', length) == nullptr ? buffer_ + end
                                                                                                    : nullptr;
}

}  // namespace kx
