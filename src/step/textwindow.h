// A sliding window over an exchange file: the scanner reads the file's text
// from a buffer of a few MiB that is refilled as it goes, instead of from a
// copy of the whole file. The buffer always holds whole statements (text up
// to a ';' outside strings and comments), so a statement is scanned without
// ever meeting the window's edge; a statement longer than the buffer makes it
// grow. The file is read, not mapped: another process cutting it short while
// it is read makes the read fail instead of faulting.
#pragma once

#include <cstddef>
#include <cstdint>

#include "step/scanner.h"
#include "support/memory.h"

namespace kx {

class TextWindow {
public:
    // `capacity`: the buffer's first size (it grows for longer statements).
    explicit TextWindow(const char16_t *path, size_t capacity = 1u << 20);
    ~TextWindow();
    TextWindow(const TextWindow &) = delete;
    TextWindow &operator=(const TextWindow &) = delete;

    // Whether the file could be opened; problem() says why not.
    bool ok() const { return problem_ == nullptr; }
    const char *problem() const { return problem_; }
    uint64_t size() const { return size_; }

    // Fills the window from the start of the file (again, for another pass)
    // and sets the scanner over it, past a UTF-8 byte-order mark.
    bool start(Scanner *scanner);
    // The same from a statement that starts physical line `line` at `offset`.
    bool start_at(Scanner *scanner, uint64_t offset, uint32_t line);
    // Where the first physical line at or after `offset` that starts with
    // '#' begins (an instance line, unless it lies inside a string or a
    // comment), or size() when there is none (or the file cannot be read).
    uint64_t next_instance_line(uint64_t offset);
    // Makes sure the statement at the scanner's position is whole in the
    // window, sliding it on when the scanner has passed every whole
    // statement. False when the file could not be read (problem() says why).
    bool ensure(Scanner *scanner) { return scanner->cursor < complete_ || at_end() || slide(scanner); }
    // Where the statement at the scanner's position ends (just past its
    // ';'), or NULL when that is not known, or when the statement runs on
    // over a line end (the scanner counts lines as it goes).
    const char *statement_end_on_line(const Scanner &scanner);

private:
    enum class Boundary : uint8_t { OUTSIDE, STRING, COMMENT };

    bool at_end() const { return loaded_ == size_; }
    bool slide(Scanner *scanner);
    bool fill();
    void find_statement_ends();

    int descriptor_ = -1;
    uint64_t size_ = 0;
    const char *problem_ = nullptr;
    char *buffer_ = nullptr;
    size_t capacity_ = 0;
    size_t used_ = 0;            // bytes of the buffer holding text
    uint64_t loaded_ = 0;        // file offset just past the buffer's text
    const char *complete_ = nullptr;  // just past the last whole statement in the buffer
    size_t boundary_at_ = 0;     // buffer offset where the statement search goes on
    Boundary boundary_ = Boundary::OUTSIDE;
    TrackedVector<size_t> ends_;     // buffer offsets just past each statement's ';', in order
    size_t next_end_ = 0;            // the first of them not behind the scanner
};

}  // namespace kx
