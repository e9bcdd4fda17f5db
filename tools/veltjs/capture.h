// Catches what the library writes to standard output (its tree dump before "We really expected
// to get something here...", the patch operations' messages) so that it never mixes with the
// tool's own output: file descriptor 1 points at a temporary file for the length of a call.
#pragma once

#include <string>

struct StdoutCapture {
    int savedDescriptor = -1;   // the real standard output while a capture runs
    int fileDescriptor = -1;    // the temporary file; a file, not a pipe, so no size can block
    bool ready = false;
};

// Opens the temporary file; false (and the library writes go to standard output as they are)
// when none can be made.
bool OpenCapture(StdoutCapture& capture);
void CloseCapture(StdoutCapture& capture);

// Points standard output at the capture file. Everything the tool printed before is flushed.
void BeginCapture(StdoutCapture& capture);
// Restores standard output and appends what was written meanwhile to `text`.
void EndCapture(StdoutCapture& capture, std::string& text);
