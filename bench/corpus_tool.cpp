// veltjs_corpus: writes the benchmark corpora as files, for comparing two builds of the library
// byte for byte and for running other tools on the same bytes.
//
//   veltjs_corpus DIR [--sizes 1,4,16] [--project N]
//
// DIR/SHAPE-SIZEmb.js for every shape and size (MB), DIR/project/scriptNNNN.js for a project of
// N realistic scripts (default 5,000), and DIR/list.txt naming every file in that order.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "corpus.h"

namespace {

bool WriteFile(const std::filesystem::path& path, const std::string& text) {
    FILE* file = std::fopen(path.string().c_str(), "wb");
    if (!file) return false;
    bool ok = std::fwrite(text.data(), 1, text.size(), file) == text.size();
    return std::fclose(file) == 0 && ok;
}

std::vector<int> ParseSizes(const char* text) {
    std::vector<int> sizes;
    for (const char* p = text; *p;) {
        sizes.push_back(std::atoi(p));
        const char* comma = std::strchr(p, ',');
        if (!comma) break;
        p = comma + 1;
    }
    return sizes;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: veltjs_corpus DIR [--sizes 1,4,16] [--project N]\n");
        return 2;
    }
    std::filesystem::path dir = argv[1];
    std::vector<int> sizes = {1, 4, 16};
    int project = 5000;
    for (int i = 2; i + 1 < argc; i += 2) {
        if (std::strcmp(argv[i], "--sizes") == 0) sizes = ParseSizes(argv[i + 1]);
        else if (std::strcmp(argv[i], "--project") == 0) project = std::atoi(argv[i + 1]);
    }
    std::filesystem::create_directories(dir / "project");
    std::string list;
    for (const bench::Shape& shape : bench::Shapes()) {
        for (int mb : sizes) {
            std::filesystem::path path = dir / (std::string(shape.name) + "-" + std::to_string(mb) + "mb.js");
            if (!WriteFile(path, bench::MakeShape(shape, static_cast<size_t>(mb) << 20))) {
                std::fprintf(stderr, "veltjs_corpus: cannot write %s\n", path.string().c_str());
                return 1;
            }
            list += path.string() + "\n";
        }
    }
    for (int i = 0; i < project; i++) {
        char name[32];
        std::snprintf(name, sizeof name, "script%04d.js", i);
        std::filesystem::path path = dir / "project" / name;
        if (!WriteFile(path, bench::MakeProjectScript(i))) {
            std::fprintf(stderr, "veltjs_corpus: cannot write %s\n", path.string().c_str());
            return 1;
        }
        list += path.string() + "\n";
    }
    return WriteFile(dir / "list.txt", list) ? 0 : 1;
}
