#include "progress.h"

#include <cinttypes>

#include "platform.h"

namespace {

constexpr double kQuietSeconds = 1.0;
constexpr double kRedrawSeconds = 0.1;
constexpr size_t kBarWidth = 60;

}  // namespace

std::string GroupThousands(uint64_t value) {
    std::string digits = std::to_string(value);
    std::string out;
    for (size_t i = 0; i < digits.size(); i++) {
        if (i > 0 && (digits.size() - i) % 3 == 0) out += ',';
        out += digits[i];
    }
    return out;
}

std::string FormatSize(uint64_t bytes) {
    if (bytes < 1000) return std::to_string(bytes) + (bytes == 1 ? " byte" : " bytes");
    const char* units[] = {"kB", "MB", "GB", "TB"};
    double value = static_cast<double>(bytes) / 1000.0;
    size_t unit = 0;
    while (value >= 999.95 && unit + 1 < sizeof units / sizeof units[0]) {
        value /= 1000.0;
        unit++;
    }
    char text[32];
    std::snprintf(text, sizeof text, "%.1f %s", value, units[unit]);
    return text;
}

std::string SummaryLine(const char* verb, const RunTotals& totals, double seconds) {
    char time[32];
    std::snprintf(time, sizeof time, "%.2f s", seconds);
    return std::string(verb) + " " + GroupThousands(totals.scripts) + (totals.scripts == 1 ? " script, " : " scripts, ") +
           FormatSize(totals.sourceBytes) + ", " + GroupThousands(totals.failed) + " failed, " + time + "\n";
}

std::string ProgressText(uint64_t done, uint64_t total, size_t width) {
    std::string count = " " + GroupThousands(done) + "/" + GroupThousands(total) + " scripts";
    size_t inner = width > count.size() + 2 ? width - count.size() - 2 : 0;
    if (inner > kBarWidth) inner = kBarWidth;
    size_t filled = total ? static_cast<size_t>(static_cast<double>(inner) * static_cast<double>(done) / static_cast<double>(total)) : inner;
    if (filled > inner) filled = inner;
    std::string bar = "[" + std::string(filled, '=');
    if (filled < inner) bar += '>' + std::string(inner - filled - 1, ' ');
    return bar + "]" + count;
}

void UpdateProgress(Progress& progress, uint64_t done, uint64_t total, FILE* err) {
    if (!progress.enabled) return;
    double now = SecondsNow();
    if (now - progress.start < kQuietSeconds || now - progress.lastDraw < kRedrawSeconds) return;
    progress.lastDraw = now;
    std::string text = "\r" + ProgressText(done, total, 79) + "\x1b[K";
    std::fwrite(text.data(), 1, text.size(), err);
    std::fflush(err);
    progress.shown = true;
}

void ClearProgress(Progress& progress, FILE* err) {
    if (!progress.shown) return;
    std::fputs("\r\x1b[K", err);
    progress.shown = false;
}
