#include "support/ChildProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

extern char** environ;

namespace vocle::testing {

namespace {

std::vector<std::string> mergedEnvironment(const std::map<std::string, std::string>& overrides) {
    std::map<std::string, std::string> merged;
    for (char** e = environ; *e; ++e) {
        const std::string entry = *e;
        const auto eq = entry.find('=');
        if (eq != std::string::npos) merged[entry.substr(0, eq)] = entry.substr(eq + 1);
    }
    for (const auto& [key, value] : overrides) {
        if (value.empty()) merged.erase(key);
        else merged[key] = value;
    }
    std::vector<std::string> out;
    for (const auto& [key, value] : merged) out.push_back(key + "=" + value);
    return out;
}

int decodeStatus(int status) {
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
    return -1;
}

}  // namespace

ChildProcess::ChildProcess(Options options) : options_(std::move(options)) {
    // A child that exits before reading its input must not take the test down with it.
    signal(SIGPIPE, SIG_IGN);
    if (options_.argv.empty()) throw std::invalid_argument("ChildProcess: no program");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    const std::string out = options_.outputFile ? options_.outputFile->string() : "/dev/null";
    posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    posix_spawn_file_actions_adddup2(&actions, 1, 2);
    int inputPipe[2] = {-1, -1};
    const bool piped = options_.input || options_.keepInputOpen;
    if (piped) {
        if (pipe(inputPipe) != 0) throw std::runtime_error("ChildProcess: pipe failed");
        posix_spawn_file_actions_adddup2(&actions, inputPipe[0], 0);
        posix_spawn_file_actions_addclose(&actions, inputPipe[1]);
    } else {
        posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    }
    // Its own process group, so terminate() also reaches what it starts.
    posix_spawnattr_t attr;
    posix_spawnattr_init(&attr);
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETPGROUP);
    posix_spawnattr_setpgroup(&attr, 0);

    std::vector<char*> argv;
    for (auto& a : options_.argv) argv.push_back(a.data());
    argv.push_back(nullptr);
    auto envStrings = mergedEnvironment(options_.environment);
    std::vector<char*> envp;
    for (auto& e : envStrings) envp.push_back(e.data());
    envp.push_back(nullptr);

    const int rc = posix_spawnp(&pid_, argv[0], &actions, &attr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attr);
    if (piped) {
        close(inputPipe[0]);
        inputFd_ = inputPipe[1];
        if (rc == 0 && options_.input) writeInput(*options_.input);
        if (rc != 0 || !options_.keepInputOpen) closeInput();
    }
    if (rc != 0) {
        throw std::runtime_error("ChildProcess: cannot start " + options_.argv[0] + ": " + std::strerror(rc));
    }
}

ChildProcess::~ChildProcess() {
    closeInput();
    terminate();
}

void ChildProcess::writeInput(const std::string& text) {
    size_t written = 0;
    while (inputFd_ >= 0 && written < text.size()) {
        const ssize_t n = write(inputFd_, text.data() + written, text.size() - written);
        if (n <= 0) break;
        written += static_cast<size_t>(n);
    }
}

void ChildProcess::closeInput() {
    if (inputFd_ >= 0) close(inputFd_);
    inputFd_ = -1;
}

bool ChildProcess::running() {
    if (status_ || pid_ <= 0) return false;
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) == pid_) {
        status_ = decodeStatus(status);
        return false;
    }
    return true;
}

std::optional<int> ChildProcess::waitForExit(std::chrono::milliseconds deadline) {
    waitFor([&] { return !running(); }, deadline, std::chrono::milliseconds(10));
    return status_;
}

void ChildProcess::terminate(std::chrono::milliseconds grace) {
    if (!running()) return;
    kill(-pid_, SIGTERM);
    if (!waitForExit(grace)) {
        kill(-pid_, SIGKILL);
        waitForExit(std::chrono::milliseconds(2000));
    }
}

std::string ChildProcess::output() const {
    if (!options_.outputFile) return {};
    std::ifstream in(*options_.outputFile, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

RunResult runProgram(ChildProcess::Options options, std::chrono::milliseconds deadline) {
    char pattern[] = "/tmp/vocle-run-XXXXXX";
    const int fd = mkstemp(pattern);
    if (fd < 0) throw std::runtime_error("runProgram: mkstemp failed");
    close(fd);
    options.outputFile = pattern;
    RunResult result;
    {
        ChildProcess child(options);
        const auto status = child.waitForExit(deadline);
        result.status = status.value_or(-1);
        if (!status) child.terminate();
        result.output = child.output();
    }
    std::remove(pattern);
    return result;
}

bool waitFor(const std::function<bool()>& condition, std::chrono::milliseconds deadline,
             std::chrono::milliseconds interval) {
    const auto end = std::chrono::steady_clock::now() + deadline;
    while (true) {
        if (condition()) return true;
        if (std::chrono::steady_clock::now() >= end) return false;
        std::this_thread::sleep_for(interval);
    }
}

}  // namespace vocle::testing
