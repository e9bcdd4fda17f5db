#include "support/diagnostics.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

CompileException::CompileException(const char* text) : message(NewRefString(text)) {}

CompileException::CompileException(RefString* adopted) noexcept : message(adopted) {}

CompileException::CompileException(const CompileException& other) noexcept
    : std::exception(other), message(RetainRefString(other.message)), location(other.location) {}

CompileException::~CompileException() { ReleaseRefString(message); }

const char* CompileException::what() const noexcept {
    return message && message->text ? message->text : "";
}

static void BuildDiagnostic(StringBuilder& builder, uint32_t kind, const SourcePosition* location,
                            const char* format, va_list args) {
    const char* prefix = kind == kDiagnosticWarning ? "Warning : " : "Error : ";
    builder.capacity = kind == kDiagnosticWarning ? 16 : 13;
    builder.text = static_cast<char*>(CheckedMalloc(static_cast<size_t>(builder.capacity)));
    builder.length = static_cast<uint32_t>(std::strlen(prefix));
    std::memcpy(builder.text, prefix, builder.length + 1);
    if (location) {
        const char* file = location->fileName && *location->fileName ? (*location->fileName)->text : nullptr;
        AppendFormat(builder, "%s(%d) : ", file ? file : "", location->line);
    }
    AppendFormatV(builder, format, args);
    // The newline is written past the length without advancing it: the message text includes it
    // (Diagnostics.ReportWithLocationNamesFileAndLine), the builder's length does not.
    if (static_cast<int64_t>(builder.capacity) - builder.length < 2) ReserveText(builder, 2);
    builder.text[builder.length] = '\n';
    builder.text[builder.length + 1] = '\0';
}

static void Report(uint32_t kind, const SourcePosition* location, const char* format, va_list args) {
    StringBuilder builder{};
    try {
        BuildDiagnostic(builder, kind, location, format, args);
    } catch (...) {
        FreeStringBuilder(builder);
        throw;
    }
    if (kind == kDiagnosticWarning) {
        // A '%' in a warning is interpreted by printf: hosts that scan the output see the text
        // formatted (Diagnostics.WarningTextIsUsedAsAPrintfFormat).
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
        std::printf(builder.text);
#pragma GCC diagnostic pop
        FreeStringBuilder(builder);
        return;
    }
    // Out of memory for the exception's copy: the builder goes all the same.
    RefString* message;
    try {
        message = NewRefString(builder.text);
    } catch (...) {
        FreeStringBuilder(builder);
        throw;
    }
    FreeStringBuilder(builder);
    CompileException exception(message);
    if (location) exception.location = DiagnosticLocation{true, location->line, location->column, location->offset};
    throw exception;
}

void ReportDiagnostic(uint32_t kind, const SourcePosition* location, const char* format, ...) {
    va_list args;
    va_start(args, format);
    try {
        Report(kind, location, format, args);
    } catch (...) {
        va_end(args);
        throw;
    }
    va_end(args);
}

void ReportError(const SourcePosition* location, const char* format, ...) {
    va_list args;
    va_start(args, format);
    try {
        Report(kDiagnosticError, location, format, args);
    } catch (...) {
        va_end(args);
        throw;
    }
    va_end(args);
    std::abort();
}
