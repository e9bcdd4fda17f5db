// Source positions, the compile exception and the one reporting routine.
#pragma once

#include <cstdint>
#include <exception>

#include "support/strings.h"

// Where a token or node came from. The two handles share the lexer's strings.
struct SourcePosition {
    RefString** source;
    RefString** fileName;
    int32_t line;     // from 1
    int32_t column;   // never printed
    int32_t offset;   // characters advanced over; goes into the position buffer
};

// Where an error was raised, as the position record said then (line and column as the lexer
// counts them, offset in characters advanced over).
struct DiagnosticLocation {
    bool known;       // false when there was no error, or it had no location
    int32_t line;
    int32_t column;
    int32_t offset;
};

class CompileException : public std::exception {
public:
    explicit CompileException(const char* text);
    // Takes over a RefString that already holds the text.
    explicit CompileException(RefString* adopted) noexcept;
    CompileException(const CompileException& other) noexcept;
    CompileException& operator=(const CompileException&) = delete;
    ~CompileException() override;
    const char* what() const noexcept override;

    RefString* message;
    DiagnosticLocation location{};
};

constexpr uint32_t kDiagnosticWarning = 1;
constexpr uint32_t kDiagnosticError = 0;

// kind 1 prints a warning to standard output (its text used as the format) and returns; any
// other kind throws CompileException with "Error : " + "file(line) : " + message + "\n".
void ReportDiagnostic(uint32_t kind, const SourcePosition* location, const char* format, ...)
    VELTJS_PRINTF(3, 4);
[[noreturn]] void ReportError(const SourcePosition* location, const char* format, ...) VELTJS_PRINTF(2, 3);

