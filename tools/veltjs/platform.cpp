#include "platform.h"

#include <cerrno>
#include <chrono>
#include <cstring>

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#include <windows.h>
#include <shellapi.h>
#else
#include <unistd.h>
#endif

#ifdef _WIN32
namespace {

std::string ToUtf8(const wchar_t* text) {
    int size = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    if (size <= 1) return std::string();
    std::string out(static_cast<size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, -1, &out[0], size, nullptr, nullptr);
    out.resize(static_cast<size_t>(size - 1));
    return out;
}

std::wstring ToWide(const std::string& text) {
    int size = MultiByteToWideChar(CP_UTF8, 0, text.c_str(), -1, nullptr, 0);
    if (size <= 1) return std::wstring();
    std::wstring out(static_cast<size_t>(size), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text.c_str(), -1, &out[0], size);
    out.resize(static_cast<size_t>(size - 1));
    return out;
}

}  // namespace
#endif

void UseBinaryStandardStreams() {
#ifdef _WIN32
    _setmode(_fileno(stdin), _O_BINARY);
    _setmode(_fileno(stdout), _O_BINARY);
    _setmode(_fileno(stderr), _O_BINARY);
#endif
}

std::vector<std::string> CommandLineArguments(int argc, char** argv) {
    std::vector<std::string> arguments;
#ifdef _WIN32
    int count = 0;
    wchar_t** wide = CommandLineToArgvW(GetCommandLineW(), &count);
    if (wide) {
        for (int i = 0; i < count; i++) arguments.push_back(ToUtf8(wide[i]));
        LocalFree(wide);
        return arguments;
    }
#endif
    for (int i = 0; i < argc; i++) arguments.emplace_back(argv[i]);
    return arguments;
}

bool StandardErrorIsTerminal() {
#ifdef _WIN32
    if (!_isatty(_fileno(stderr))) return false;
    HANDLE console = GetStdHandle(STD_ERROR_HANDLE);
    DWORD mode = 0;
    if (!GetConsoleMode(console, &mode)) return false;
    if (mode & ENABLE_VIRTUAL_TERMINAL_PROCESSING) return true;
    return SetConsoleMode(console, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != 0;
#else
    return isatty(STDERR_FILENO) != 0;
#endif
}

FILE* OpenFile(const std::string& path, const char* mode) {
    std::string binary = std::string(mode) + "b";
#ifdef _WIN32
    return _wfopen(ToWide(path).c_str(), ToWide(binary).c_str());
#else
    return std::fopen(path.c_str(), binary.c_str());
#endif
}

std::string ReasonText(int error) {
    const char* text = std::strerror(error);
    return text ? text : "unknown error";
}

bool ReadAll(FILE* file, std::string& contents) {
    char buffer[65536];
    size_t read;
    while ((read = std::fread(buffer, 1, sizeof buffer, file)) > 0) contents.append(buffer, read);
    if (std::ferror(file)) {
        if (errno == 0) errno = EIO;
        return false;
    }
    return true;
}

double SecondsNow() {
    using Clock = std::chrono::steady_clock;
    return std::chrono::duration<double>(Clock::now().time_since_epoch()).count();
}
