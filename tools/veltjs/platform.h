// The few operating-system services the tool needs, with one spelling for Linux and Windows.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

// Standard input, output and error carry bytes, never translated line ends, so that every
// output is the same on both platforms.
void UseBinaryStandardStreams();

// The command line as UTF-8 strings (Windows hands programs its wide command line).
std::vector<std::string> CommandLineArguments(int argc, char** argv);

// True when standard error is a terminal that can show colour and in-place progress lines
// (on Windows this also switches the console to understand escape sequences).
bool StandardErrorIsTerminal();

// Opens a file named in UTF-8, in binary mode.
FILE* OpenFile(const std::string& path, const char* mode);

// Text of the C runtime's reason for `error` (an errno value).
std::string ReasonText(int error);

// Reads the whole of `file` into `contents`; false with errno set on a read error.
bool ReadAll(FILE* file, std::string& contents);

// A monotonic clock in seconds.
double SecondsNow();
