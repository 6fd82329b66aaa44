/// Whole files as texts.
#pragma once

#include <fstream>
#include <iterator>
#include <string>

/// @return the file's bytes; empty when there is no such file
inline std::string file_text(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline void write_file(const std::string &path, const std::string &text) {
    std::ofstream(path, std::ios::binary) << text;
}
