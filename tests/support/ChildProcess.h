#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace vocle::testing {

// A program the test starts and owns: its output goes to a file, it is terminated (then killed) when
// the object goes, and it is never left behind by a failing assertion.
class ChildProcess {
  public:
    struct Options {
        std::vector<std::string> argv;
        // Added to (or replacing) the test's own environment; an empty value removes the variable.
        std::map<std::string, std::string> environment;
        std::optional<std::filesystem::path> outputFile;  // stdout and stderr; /dev/null when absent
        std::optional<std::string> input;                 // written to stdin, which is then closed
        bool keepInputOpen = false;                       // stdin stays a pipe for writeInput()
    };

    explicit ChildProcess(Options options);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    int pid() const { return pid_; }
    bool running();
    // The exit status once it ended within the deadline (a signal is reported as 128 + number).
    std::optional<int> waitForExit(std::chrono::milliseconds deadline);
    void terminate(std::chrono::milliseconds grace = std::chrono::milliseconds(3000));
    std::string output() const;
    // With keepInputOpen: more standard input, and its end.
    void writeInput(const std::string& text);
    void closeInput();

  private:
    Options options_;
    int pid_ = -1;
    int inputFd_ = -1;
    std::optional<int> status_;
};

// Runs a program to its end and returns its exit status and output.
struct RunResult {
    int status = -1;
    std::string output;
};
RunResult runProgram(ChildProcess::Options options, std::chrono::milliseconds deadline = std::chrono::seconds(60));

// Polls `condition` every `interval` until it holds or the deadline passes; true when it held.
bool waitFor(const std::function<bool()>& condition, std::chrono::milliseconds deadline,
             std::chrono::milliseconds interval = std::chrono::milliseconds(20));

}  // namespace vocle::testing
