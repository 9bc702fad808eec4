#include "foundation/FileIO.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <random>

namespace vocle {

namespace fs = std::filesystem;

std::optional<std::string> readFile(const fs::path& path, std::string* error) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        if (error) *error = "The file \"" + path.filename().string() + "\" couldn't be opened: " + std::strerror(errno);
        return std::nullopt;
    }
    std::string data;
    in.seekg(0, std::ios::end);
    const auto size = in.tellg();
    if (size > 0) {
        data.resize(static_cast<size_t>(size));
        in.seekg(0);
        in.read(data.data(), size);
    } else {
        // Not seekable (a pipe or a /proc file): read as a stream.
        in.clear();
        in.seekg(0);
        data.assign(std::istreambuf_iterator<char>(in), {});
    }
    if (in.bad()) {
        if (error) *error = "The file \"" + path.filename().string() + "\" couldn't be read";
        return std::nullopt;
    }
    return data;
}

bool writeFileAtomically(const fs::path& path, std::string_view data, std::string* error) {
    auto fail = [&](const std::string& what) {
        if (error) *error = what + " \"" + path.string() + "\": " + std::strerror(errno);
        return false;
    };
    thread_local std::mt19937_64 rng{std::random_device{}()};
    const fs::path temp = path.parent_path() / ("." + path.filename().string() + ".tmp-" + std::to_string(rng()));
    const int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0) return fail("Couldn't create a temporary file for");
    size_t written = 0;
    while (written < data.size()) {
        const ssize_t n = ::write(fd, data.data() + written, data.size() - written);
        if (n < 0) {
            if (errno == EINTR) continue;
            const int saved = errno;
            ::close(fd);
            ::unlink(temp.c_str());
            errno = saved;
            return fail("Couldn't write");
        }
        written += static_cast<size_t>(n);
    }
    if (::fsync(fd) != 0 || ::close(fd) != 0) {
        const int saved = errno;
        ::unlink(temp.c_str());
        errno = saved;
        return fail("Couldn't flush");
    }
    if (::rename(temp.c_str(), path.c_str()) != 0) {
        const int saved = errno;
        ::unlink(temp.c_str());
        errno = saved;
        return fail("Couldn't replace");
    }
    return true;
}

bool ensureDirectory(const fs::path& path, std::string* error) {
    std::error_code ec;
    fs::create_directories(path, ec);
    if (ec && !fs::is_directory(path)) {
        if (error) *error = ec.message();
        return false;
    }
    return true;
}

}  // namespace vocle
