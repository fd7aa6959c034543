#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <unistd.h>

// A file of the given text, for the life of the object.
class HexFile {
public:
    explicit HexFile(const std::string& text) { std::ofstream(path, std::ios::binary) << text; }
    ~HexFile() { std::remove(path.c_str()); }
    HexFile(const HexFile&) = delete;
    HexFile& operator=(const HexFile&) = delete;

    const std::string path = testing::TempDir() + "image" + std::to_string(getpid()) + ".hex";
};
