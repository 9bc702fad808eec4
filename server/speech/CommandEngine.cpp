#include "speech/CommandEngine.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>

#include "foundation/FileIO.h"
#include "foundation/Uuid.h"
#include "speech/WavWriter.h"

extern char** environ;

namespace vocle::server {

std::vector<std::string> CommandEngine::splitCommandLine(const std::string& line) {
    std::vector<std::string> out;
    std::string current;
    bool quoted = false, any = false;
    for (char ch : line) {
        if (ch == '"') {
            quoted = !quoted;
            any = true;
        } else if (!quoted && (ch == ' ' || ch == '\t')) {
            if (any) out.push_back(current);
            current.clear();
            any = false;
        } else {
            current.push_back(ch);
            any = true;
        }
    }
    if (any) out.push_back(current);
    return out;
}

CommandEngine::CommandEngine(std::string commandLine, std::filesystem::path scratchDir, double timeoutSeconds)
    : argv_(splitCommandLine(commandLine)),
      scratchDir_(std::move(scratchDir)),
      timeoutSeconds_(timeoutSeconds) {
    if (argv_.empty()) throw EngineError("The command engine needs a program to run");
}

std::string CommandEngine::transcribe(const std::vector<int16_t>& pcm, const SpeechRequest& request) {
    std::string error;
    if (!ensureDirectory(scratchDir_, &error))
        throw EngineError("Cannot create " + scratchDir_.string() + ": " + error);
    const auto wavPath = scratchDir_ / ("speech-" + Uuid::random().string() + ".wav");
    if (!writeFileAtomically(wavPath, encodeWav(pcm, 16000), &error))
        throw EngineError("Cannot write audio: " + error);
    struct Cleanup {
        std::filesystem::path path;
        ~Cleanup() {
            std::error_code ec;
            std::filesystem::remove(path, ec);
        }
    } cleanup{wavPath};

    std::vector<std::string> args = argv_;
    args.push_back(wavPath.string());
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);

    std::vector<std::string> envStrings;
    for (char** e = environ; *e; ++e) {
        if (std::strncmp(*e, "VOCLE_", 6) != 0) envStrings.emplace_back(*e);  // keeps server secrets out
    }
    envStrings.push_back("VOCLE_LANGUAGE=" + request.language);
    envStrings.push_back("VOCLE_PROMPT=" + request.prompt);
    envStrings.push_back("VOCLE_VOCABULARY=" + request.vocabulary);
    std::vector<char*> envp;
    for (auto& e : envStrings) envp.push_back(e.data());
    envp.push_back(nullptr);

    int out[2];
    if (pipe2(out, O_CLOEXEC) != 0) throw EngineError("Cannot create a pipe for the command");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    pid_t pid = 0;
    const int rc = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    close(out[1]);
    if (rc != 0) {
        close(out[0]);
        throw EngineError("The speech command \"" + argv_[0] +
                          "\" could not be started: " + std::strerror(rc));
    }

    std::string text;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(timeoutSeconds_);
    bool timedOut = false;
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            timedOut = true;
            break;
        }
        pollfd p{out[0], POLLIN, 0};
        const int ready = poll(&p, 1, static_cast<int>(left.count()));
        if (ready < 0 && errno == EINTR) continue;
        if (ready <= 0) {
            timedOut = ready == 0;
            break;
        }
        char buffer[4096];
        const ssize_t n = read(out[0], buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        text.append(buffer, static_cast<size_t>(n));
        if (text.size() > 1024 * 1024) {
            timedOut = false;
            kill(pid, SIGKILL);
            break;
        }
    }
    close(out[0]);
    if (timedOut) kill(pid, SIGKILL);
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (timedOut) throw EngineError("The speech command timed out");
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        throw EngineError("The speech command failed (exit status " +
                          std::to_string(WIFEXITED(status) ? WEXITSTATUS(status) : -1) + ")");
    }
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) text.pop_back();
    size_t begin = 0;
    while (begin < text.size() && std::isspace(static_cast<unsigned char>(text[begin]))) ++begin;
    return text.substr(begin);
}

}  // namespace vocle::server
