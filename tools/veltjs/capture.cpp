#include "capture.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>
#include <windows.h>
#define VELTJS_DUP _dup
#define VELTJS_DUP2 _dup2
#define VELTJS_CLOSE _close
#define VELTJS_READ _read
#define VELTJS_LSEEK _lseeki64
#else
#include <unistd.h>
#define VELTJS_DUP dup
#define VELTJS_DUP2 dup2
#define VELTJS_CLOSE close
#define VELTJS_READ read
#define VELTJS_LSEEK lseek
#endif

namespace {

int OpenTemporaryFile() {
#ifdef _WIN32
    wchar_t folder[MAX_PATH + 1];
    wchar_t path[MAX_PATH + 1];
    if (!GetTempPathW(MAX_PATH + 1, folder) || !GetTempFileNameW(folder, L"vjs", 0, path)) return -1;
    // Deleted by the system when closed, however the process ends.
    return _wopen(path, _O_RDWR | _O_BINARY | _O_TRUNC | _O_TEMPORARY | _O_NOINHERIT, _S_IREAD | _S_IWRITE);
#else
    FILE* file = std::tmpfile();
    if (!file) return -1;
    int descriptor = dup(fileno(file));
    std::fclose(file);
    return descriptor;
#endif
}

void Rewind(int descriptor) {
    VELTJS_LSEEK(descriptor, 0, SEEK_SET);
#ifdef _WIN32
    _chsize_s(descriptor, 0);
#else
    if (ftruncate(descriptor, 0) != 0) {
        // Left as it is: the next capture starts at offset 0 and reads only what it wrote.
    }
#endif
}

}  // namespace

bool OpenCapture(StdoutCapture& capture) {
    capture.fileDescriptor = OpenTemporaryFile();
    if (capture.fileDescriptor < 0) return false;
    capture.ready = true;
    return true;
}

void CloseCapture(StdoutCapture& capture) {
    if (capture.fileDescriptor >= 0) VELTJS_CLOSE(capture.fileDescriptor);
    capture.fileDescriptor = -1;
    capture.ready = false;
}

void BeginCapture(StdoutCapture& capture) {
    if (!capture.ready) return;
    std::fflush(stdout);
    capture.savedDescriptor = VELTJS_DUP(1);
    if (capture.savedDescriptor < 0) return;
    Rewind(capture.fileDescriptor);
    if (VELTJS_DUP2(capture.fileDescriptor, 1) < 0) {
        VELTJS_CLOSE(capture.savedDescriptor);
        capture.savedDescriptor = -1;
    }
}

void EndCapture(StdoutCapture& capture, std::string& text) {
    if (capture.savedDescriptor < 0) return;
    std::fflush(stdout);
    VELTJS_DUP2(capture.savedDescriptor, 1);
    VELTJS_CLOSE(capture.savedDescriptor);
    capture.savedDescriptor = -1;
#ifdef _WIN32
    _setmode(1, _O_BINARY);
#endif
    // Only what this call wrote: the shared offset is where its writes ended.
    long long end = static_cast<long long>(VELTJS_LSEEK(capture.fileDescriptor, 0, SEEK_CUR));
    if (end <= 0) return;
    VELTJS_LSEEK(capture.fileDescriptor, 0, SEEK_SET);
    size_t start = text.size();
    text.resize(start + static_cast<size_t>(end));
    size_t done = 0;
    while (done < static_cast<size_t>(end)) {
        unsigned chunk = static_cast<unsigned>(std::min<size_t>(static_cast<size_t>(end) - done, 1u << 30));
        auto got = VELTJS_READ(capture.fileDescriptor, &text[start + done], chunk);
        if (got <= 0) break;
        done += static_cast<size_t>(got);
    }
    text.resize(start + done);
}
