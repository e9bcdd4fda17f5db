// The run's summary line and the progress bar, both on standard error.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "script_result.h"

// 2000 -> "2,000".
std::string GroupThousands(uint64_t value);
// Decimal units: "512 bytes", "12.3 kB", "11.6 MB", "1.2 GB".
std::string FormatSize(uint64_t bytes);
// "compiled 2,000 scripts, 11.6 MB, 3 failed, 1.84 s\n"
std::string SummaryLine(const char* verb, const RunTotals& totals, double seconds);
// "[=========>          ] 1,234/2,000 scripts" in `width` columns or fewer.
std::string ProgressText(uint64_t done, uint64_t total, size_t width);

struct Progress {
    bool enabled = false;   // standard error is a terminal and the run is not quiet
    double start = 0;
    double lastDraw = 0;
    bool shown = false;     // a bar is on the screen now
};

// Draws the bar once the run has taken more than a second, at most ten times a second.
void UpdateProgress(Progress& progress, uint64_t done, uint64_t total, FILE* err);
// Clears the bar's line so that a message can be printed there.
void ClearProgress(Progress& progress, FILE* err);
