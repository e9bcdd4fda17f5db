// Compile errors in the form editors and CI parse: "FILE:LINE:COL: error: MESSAGE", the source
// line and a caret under the column.
#pragma once

#include <cstdint>
#include <string>

#include "support/diagnostics.h"

struct ErrorReport {
    std::string file;
    std::string native;      // the library's text, unchanged ("Error : file(line) : message\n")
    std::string message;     // the message alone
    bool located = false;
    int32_t line = 0;        // from 1, as the library counts
    int32_t column = 0;      // bytes from the start of the line, from 1
    std::string sourceLine;  // the line's text (a window of it when it is very long)
    int32_t caretOffset = 0; // bytes of sourceLine before the caret
};

// `location` is what the library remembered when it raised the error (its `offset` counts the
// characters the lexer had advanced over; the character at offset - 2 is where it stopped).
ErrorReport DescribeError(const std::string& file, const std::string& source, const char* native,
                          const DiagnosticLocation& location);

// The error as the tool prints it; escape sequences for colour when `colour` is set.
std::string FormatError(const ErrorReport& report, bool colour);

// A one-line tool message: "veltjs: error: TEXT\n" or "veltjs: warning: TEXT\n".
std::string ToolMessage(const char* severity, const std::string& text, bool colour);
