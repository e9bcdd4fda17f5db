#include "inputs.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "platform.h"

namespace fs = std::filesystem;

namespace {

bool EndsWithJs(const std::string& name) {
    return name.size() > 3 && name.compare(name.size() - 3, 3, ".js") == 0;
}

std::string JoinPath(const std::string& folder, const std::string& relative) {
    if (folder.empty()) return relative;
    char last = folder.back();
    if (last == '/' || last == '\\') return folder + relative;
    return folder + "/" + relative;
}

std::string ErrorText(const std::error_code& error) {
    // The C runtime's text where the error is an errno value, so messages read alike everywhere.
    if (error.category() == std::generic_category()) return ReasonText(error.value());
#ifndef _WIN32
    if (error.category() == std::system_category()) return ReasonText(error.value());
#endif
    return error.message();
}

void ExpandDirectory(const std::string& argument, std::vector<Input>& inputs) {
    std::error_code error;
    fs::path root = fs::u8path(argument);
    std::vector<std::string> found;
    fs::recursive_directory_iterator walk(root, fs::directory_options::skip_permission_denied, error);
    fs::recursive_directory_iterator end;
    while (!error && walk != end) {
        const fs::directory_entry& entry = *walk;
        std::error_code typeError;
        if (entry.is_regular_file(typeError) || (entry.is_symlink(typeError) && fs::is_regular_file(entry.path(), typeError))) {
            std::string relative = entry.path().lexically_relative(root).generic_u8string();
            if (EndsWithJs(relative)) found.push_back(relative);
        }
        walk.increment(error);
    }
    if (error) {
        Input failed;
        failed.path = argument;
        failed.listError = ErrorText(error);
        inputs.push_back(failed);
        return;
    }
    std::sort(found.begin(), found.end());
    for (const std::string& relative : found) {
        Input input;
        input.path = JoinPath(argument, relative);
        input.script = ScriptNameOf(input.path);
        inputs.push_back(input);
    }
}

}  // namespace

std::string ScriptNameOf(const std::string& path) {
    std::string name = path;
    size_t slash = name.find_last_of("/\\");
    if (slash != std::string::npos) name = name.substr(slash + 1);
    size_t dot = name.find_last_of('.');
    if (dot != std::string::npos && dot > 0) name = name.substr(0, dot);
    return name;
}

std::vector<Input> ExpandInputs(const std::vector<std::string>& arguments, std::vector<std::string>& emptyDirectories) {
    std::vector<Input> inputs;
    for (const std::string& argument : arguments) {
        if (argument == "-") {
            Input input;
            input.path = "<stdin>";
            input.script = "stdin";
            input.standardInput = true;
            inputs.push_back(input);
            continue;
        }
        std::error_code error;
        if (fs::is_directory(fs::u8path(argument), error)) {
            size_t before = inputs.size();
            ExpandDirectory(argument, inputs);
            if (inputs.size() == before) emptyDirectories.push_back(argument);
            continue;
        }
        Input input;
        input.path = argument;
        input.script = ScriptNameOf(argument);
        inputs.push_back(input);
    }
    return inputs;
}

bool ReadNamedFile(const std::string& path, std::string& contents, std::string& reason) {
    errno = 0;
    FILE* file = OpenFile(path, "r");
    if (!file) {
        reason = ReasonText(errno ? errno : ENOENT);
        return false;
    }
    errno = 0;
    bool ok = ReadAll(file, contents);
    int error = errno;
    std::fclose(file);
    if (!ok) reason = ReasonText(error ? error : EIO);
    return ok;
}

bool ReadInput(const Input& input, std::string& contents, std::string& reason) {
    if (!input.listError.empty()) {
        reason = input.listError;
        return false;
    }
    if (input.standardInput) {
        errno = 0;
        if (ReadAll(stdin, contents)) return true;
        reason = ReasonText(errno ? errno : EIO);
        return false;
    }
    std::error_code error;
    if (fs::is_directory(fs::u8path(input.path), error)) {
        reason = ReasonText(EISDIR);
        return false;
    }
    return ReadNamedFile(input.path, contents, reason);
}
