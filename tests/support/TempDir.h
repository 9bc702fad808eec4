#pragma once

#include <filesystem>
#include <string>

namespace vocle::testing {

// A fresh folder under the system temporary directory, removed with its contents at scope end.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

void writeText(const std::filesystem::path& path, const std::string& text);
std::string readText(const std::filesystem::path& path);

}  // namespace vocle::testing
