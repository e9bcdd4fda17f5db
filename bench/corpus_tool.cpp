// veltjs_corpus: writes the benchmark corpora as files, for comparing two builds of the library
// byte for byte and for running other tools on the same bytes.
//
//   veltjs_corpus DIR [--sizes 1,4,16] [--project N]
//
// DIR/SHAPE-SIZEmb.js for every shape and size (MB), DIR/project/scriptNNNN.js for a project of
// N realistic scripts (default 5,000), and DIR/list.txt naming every file in that order.
#include <cstdio>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "corpus.h"

namespace {

bool WriteFile(const std::filesystem::path& path, const std::string& text) {
    FILE* file = std::fopen(path.string().c_str(), "wb");
    if (!file) return false;
    bool ok = std::fwrite(text.data(), 1, text.size(), file) == text.size();
    return std::fclose(file) == 0 && ok;
}

}  // namespace

int main(int argc, char** argv) {
    std::string directory;
    std::vector<int> sizes = {1, 4, 16};
    int project = 5000;
    CLI::App app{"Writes the benchmark corpora as files: DIR/SHAPE-SIZEmb.js for every shape and size,\n"
                 "DIR/project/scriptNNNN.js for a project of realistic scripts, and DIR/list.txt naming them.",
                 "veltjs_corpus"};
    app.add_option("DIR", directory, "Directory to write into (created if missing)")->required();
    // One argument per --sizes, so that DIR may follow it.
    app.add_option("--sizes", sizes, "Sizes of each shape's script, in MB, comma-separated")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->check(CLI::Range(1, 1024))
        ->capture_default_str();
    // 0 for runs that need only the shapes.
    app.add_option("--project", project, "Number of scripts in the project")
        ->check(CLI::Range(0, std::numeric_limits<int>::max()))
        ->capture_default_str();
    CLI11_PARSE(app, argc, argv);

    std::filesystem::path dir = directory;
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
