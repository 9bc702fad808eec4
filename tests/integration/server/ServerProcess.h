#pragma once

#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "support/TempDir.h"

extern char** environ;

namespace vocle::testing {

inline const std::filesystem::path kServerBinary =
    std::filesystem::path(VOCLE_BINARY_DIR) / "server" / "vocle-server";

// A loopback port nobody listens on right now.
inline int freeLoopbackPort() {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ::bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a);
    socklen_t length = sizeof a;
    getsockname(fd, reinterpret_cast<sockaddr*>(&a), &length);
    close(fd);
    return ntohs(a.sin_port);
}

// A plain blocking loopback connection, or -1.
inline int connectLoopback(int port) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    a.sin_port = htons(static_cast<uint16_t>(port));
    if (::connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

// The real vocle-server binary as a child process (no speech model), its stderr kept in a file.
class ServerProcess {
  public:
    ServerProcess(int port, const std::filesystem::path& dataDir, const std::filesystem::path& stderrFile,
                  std::vector<std::string> extraEnv = {})
        : stderrFile_(stderrFile) {
        std::vector<std::string> args = {kServerBinary.string(), "--listen", "127.0.0.1:" + std::to_string(port),
                                         "--data-dir", dataDir.string()};
        std::vector<std::string> env = {"VOCLE_SERVER_SPEECH_ENGINE=command", "VOCLE_SERVER_COMMAND=/bin/true"};
        for (auto& e : extraEnv) env.push_back(std::move(e));
        for (char** e = environ; *e; ++e) env.emplace_back(*e);
        std::vector<char*> argv, envp;
        for (auto& a : args) argv.push_back(a.data());
        argv.push_back(nullptr);
        for (auto& e : env) envp.push_back(e.data());
        envp.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 2, stderrFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
        if (posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), envp.data()) != 0) pid_ = -1;
        posix_spawn_file_actions_destroy(&actions);
    }
    ~ServerProcess() {
        if (pid_ > 0 && !exited_) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
    }

    bool started() const { return pid_ > 0; }

    // Polls until the port accepts or the process exits; false on exit or after `limit`.
    bool waitListening(int port, std::chrono::milliseconds limit) {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (std::chrono::steady_clock::now() < deadline) {
            if (hasExited()) return false;
            const int fd = connectLoopback(port);
            if (fd >= 0) {
                close(fd);
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return false;
    }

    bool hasExited() {
        if (exited_) return true;
        int status = 0;
        if (waitpid(pid_, &status, WNOHANG) == pid_) {
            exited_ = true;
            exitCode_ = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        }
        return exited_;
    }

    // Waits (bounded) for the process to end by itself; its exit code or -2 when it is still running.
    int waitExit(std::chrono::milliseconds limit) {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (!hasExited() && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        return exited_ ? exitCode_ : -2;
    }

    void killHard() {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
        exited_ = true;
    }

    std::string errorOutput() const { return readText(stderrFile_); }

  private:
    std::filesystem::path stderrFile_;
    pid_t pid_ = -1;
    bool exited_ = false;
    int exitCode_ = -1;
};

}  // namespace vocle::testing
