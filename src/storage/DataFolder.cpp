#include "storage/DataFolder.h"

#include "foundation/FileIO.h"

namespace vocle {

std::filesystem::path DataFolder::appSupportDirectory() const {
    auto dir = dataHome_ / "Vocle";
    ensureDirectory(dir);
    return dir;
}

std::filesystem::path DataFolder::cacheDirectory() const {
    auto dir = appSupportDirectory() / "cache";
    ensureDirectory(dir);
    return dir;
}

}  // namespace vocle
