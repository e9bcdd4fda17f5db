// What the tool compiles: files, standard input ("-") and directories.
#pragma once

#include <string>
#include <vector>

struct Input {
    std::string path;       // as shown in messages and output; "<stdin>" for standard input
    std::string script;     // the script name a host would pass: file name without folders and extension
    bool standardInput = false;
    std::string listError;  // set when a directory could not be listed
};

// Expands the command line's inputs in order: a directory becomes every "*.js" file below it,
// in sorted path order (paths joined with '/', on every platform). Directories that hold no such
// file are added to `emptyDirectories`.
std::vector<Input> ExpandInputs(const std::vector<std::string>& arguments, std::vector<std::string>& emptyDirectories);

// Reads the input's bytes; on failure returns false and sets `reason` ("No such file or
// directory").
bool ReadInput(const Input& input, std::string& contents, std::string& reason);

// Reads a file named on the command line (the --builtins list).
bool ReadNamedFile(const std::string& path, std::string& contents, std::string& reason);

// The file name without folders and extension.
std::string ScriptNameOf(const std::string& path);
