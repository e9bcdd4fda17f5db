#include "diagnostic_view.h"

#include <cstring>

namespace {

const char kBold[] = "\x1b[1m";
const char kRed[] = "\x1b[1;31m";
const char kMagenta[] = "\x1b[1;35m";
const char kGreen[] = "\x1b[1;32m";
const char kReset[] = "\x1b[0m";

// Source lines longer than this are shown as a window around the column.
constexpr size_t kLineWindowBefore = 120;
constexpr size_t kLineWindowAfter = 80;

// Bytes of the character starting with `lead`, stepping exactly as the library's source
// reader does (so character counts agree with its offsets, valid UTF-8 or not).
size_t CharacterLength(unsigned char lead) {
    if (lead < 0x80) return 1;
    if ((lead & 0xF8) == 0xF0) return 4;
    if ((lead & 0xF0) == 0xE0) return 3;
    return 2;
}

bool IsLineBreak(char c) { return c == '\n' || c == '\r'; }

bool IsContinuation(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

std::string StripPrefix(const std::string& text, const std::string& prefix) {
    return text.compare(0, prefix.size(), prefix) == 0 ? text.substr(prefix.size()) : text;
}

}  // namespace

ErrorReport DescribeError(const std::string& file, const std::string& source, const char* native,
                          const DiagnosticLocation& location) {
    ErrorReport report;
    report.file = file;
    report.native = native ? native : "";
    std::string message = report.native;
    while (!message.empty() && IsLineBreak(message.back())) message.pop_back();
    message = StripPrefix(message, "Error : ");
    if (location.known) {
        message = StripPrefix(message, file + "(" + std::to_string(location.line) + ") : ");
    }
    report.message = message;
    if (!location.known) return report;

    // The library sees the source up to its first NUL byte.
    size_t length = std::strlen(source.c_str());
    size_t at = 0;
    for (int64_t characters = static_cast<int64_t>(location.offset) - 2; characters > 0 && at < length; characters--) {
        at += CharacterLength(static_cast<unsigned char>(source[at]));
    }
    if (at > length) at = length;
    size_t lineStart = at;
    while (lineStart > 0 && !IsLineBreak(source[lineStart - 1])) lineStart--;
    size_t lineEnd = at;
    while (lineEnd < length && !IsLineBreak(source[lineEnd])) lineEnd++;

    report.located = true;
    report.line = location.line;
    report.column = static_cast<int32_t>(at - lineStart + 1);
    size_t windowStart = at - lineStart > kLineWindowBefore ? at - kLineWindowBefore : lineStart;
    while (windowStart < at && IsContinuation(source[windowStart])) windowStart++;
    size_t windowEnd = lineEnd - at > kLineWindowAfter ? at + kLineWindowAfter : lineEnd;
    while (windowEnd < lineEnd && IsContinuation(source[windowEnd])) windowEnd++;
    report.sourceLine = source.substr(windowStart, windowEnd - windowStart);
    report.caretOffset = static_cast<int32_t>(at - windowStart);
    return report;
}

std::string FormatError(const ErrorReport& report, bool colour) {
    std::string out;
    if (colour) out += kBold;
    out += report.file;
    if (report.located) out += ":" + std::to_string(report.line) + ":" + std::to_string(report.column);
    out += ": ";
    out += colour ? std::string(kRed) + "error: " + kReset + kBold : std::string("error: ");
    out += report.message;
    if (colour) out += kReset;
    out += "\n";
    if (!report.located) return out;
    out += report.sourceLine + "\n";
    for (int32_t i = 0; i < report.caretOffset; i++) {
        char c = report.sourceLine[static_cast<size_t>(i)];
        if (c == '\t') {
            out += '\t';
        } else if (!IsContinuation(c)) {
            out += ' ';
        }
    }
    out += colour ? std::string(kGreen) + "^" + kReset : std::string("^");
    out += "\n";
    return out;
}

std::string ToolMessage(const char* severity, const std::string& text, bool colour) {
    bool error = std::strcmp(severity, "error") == 0;
    std::string out = colour ? std::string(kBold) + "veltjs: " + (error ? kRed : kMagenta) + severity + ":" + kReset
                             : std::string("veltjs: ") + severity + ":";
    return out + " " + text + "\n";
}
