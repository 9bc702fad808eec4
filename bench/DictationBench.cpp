// The whole app under a private desktop: stop-to-text latency of dictation split into its stages, the
// idle cost, and the start-up time. Usage: bench_dictation [DICTATIONS=20] [IDLE_SECONDS=60].
// Prints each figure with its target; exit status 1 when a target is missed.
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/desktop/DesktopHarness.h"

using namespace vocle::testing;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

namespace {

// About five seconds of speech: "unless to be rather cold hearted and rather selfish is to be ill disposed".
const fs::path kUtterance = "/usr/share/pocketsphinx/test/data/librivox/sense_and_sensibility_01_austen_64kb-0890.wav";

double wallSeconds() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

// The app's own "TIMESTAMP: {t} - {stage}" lines after `from`, first occurrence of each stage.
std::map<std::string, double> stageTimes(const std::string& log, size_t from) {
    static const std::vector<std::pair<std::string, std::string>> kStages = {
        {"capture stopped", "starting audio processing"},
        {"compressed", "MP3 compression completed"},
        {"request sent", "bytes to backend"},
        {"answer received", "backend request completed"},
        {"pasted", "paste simulation completed"},
    };
    std::map<std::string, double> times;
    std::istringstream in(log.substr(from));
    std::string line;
    static const std::regex timestamp(R"(TIMESTAMP: ([0-9.]+) - (.*))");
    while (std::getline(in, line)) {
        std::smatch m;
        if (!std::regex_search(line, m, timestamp)) continue;
        for (const auto& [stage, text] : kStages) {
            if (!times.count(stage) && m[2].str().find(text) != std::string::npos) times[stage] = std::stod(m[1]);
        }
    }
    return times;
}

double percentile(std::vector<double> values, double p) {
    if (values.empty()) return 0;
    std::sort(values.begin(), values.end());
    const size_t index = std::min(values.size() - 1, static_cast<size_t>(p * (values.size() - 1) + 0.5));
    return values[index];
}

struct ProcessSample {
    double cpuSeconds = 0;
    long rssKiB = 0;
};

ProcessSample sample(int pid) {
    ProcessSample s;
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string content((std::istreambuf_iterator<char>(stat)), {});
    const auto close = content.rfind(')');
    std::istringstream fields(content.substr(close + 2));
    std::vector<std::string> f((std::istream_iterator<std::string>(fields)), {});
    const double tick = static_cast<double>(sysconf(_SC_CLK_TCK));
    // utime and stime are fields 14 and 15 of the line, 12 and 13 after the name.
    if (f.size() > 13) s.cpuSeconds = (std::stod(f[11]) + std::stod(f[12])) / tick;
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmRSS:", 0) == 0) s.rssKiB = std::stol(line.substr(6));
    }
    return s;
}

bool report(const std::string& name, double value, const std::string& unit, double target, bool lowerIsBetter = true) {
    const bool met = lowerIsBetter ? value <= target : value >= target;
    std::printf("%-34s %10.3f %-3s target %s %.3f %s  %s\n", name.c_str(), value, unit.c_str(),
                lowerIsBetter ? "<=" : ">=", target, unit.c_str(), met ? "met" : "MISSED");
    return met;
}

}  // namespace

int main(int argc, char** argv) {
    const int dictations = argc > 1 ? std::max(1, std::atoi(argv[1])) : 20;
    const int idleSeconds = argc > 2 ? std::max(1, std::atoi(argv[2])) : 60;
    bool allMet = true;
    try {
        DesktopHarness desktop;
        desktop.signIn("bench@example.com");

        // Ready: the tray, the indicator and the shortcut handlers are bound to the application state.
        const double launched = wallSeconds();
        desktop.startVocle("AppDelegate registered app state toggle handler");
        const double ready = wallSeconds();
        if (!desktop.waitForLog("AppState: Initialization complete!", 60s)) throw std::runtime_error("start-up did not complete");
        desktop.openTextTarget();

        // Idle: automatic mode switching follows the window in front; nothing is being dictated.
        const int pid = desktop.vocle().pid();
        std::this_thread::sleep_for(2s);
        const ProcessSample idleStart = sample(pid);
        std::this_thread::sleep_for(std::chrono::seconds(idleSeconds));
        const ProcessSample idleEnd = sample(pid);
        const double idleCpuPercent = 100.0 * (idleEnd.cpuSeconds - idleStart.cpuSeconds) / idleSeconds;

        std::map<std::string, std::vector<double>> stages;
        std::vector<double> total;
        for (int i = 0; i < dictations; ++i) {
            size_t from = desktop.logSize();
            desktop.pressKeys("alt+space");
            if (!desktop.waitForLog("audioOutput.isRecording after", 15s, from)) {
                throw std::runtime_error("dictation " + std::to_string(i + 1) + " did not start");
            }
            desktop.play(kUtterance);
            const std::string before = desktop.targetText();
            from = desktop.logSize();
            const double pressed = wallSeconds();
            desktop.pressKeys("alt+space");
            if (!waitFor([&] { return desktop.targetText() != before; }, 60s, 5ms)) {
                throw std::runtime_error("dictation " + std::to_string(i + 1) + " brought no text:\n" +
                                         desktop.vocleLog().substr(from));
            }
            const double arrived = wallSeconds();
            desktop.waitForLog("paste simulation completed", 5s, from);
            total.push_back(arrived - pressed);
            for (const auto& [stage, at] : stageTimes(desktop.vocleLog(), from)) stages[stage].push_back(at - pressed);
            std::fprintf(stderr, "dictation %d: %.3f s\n", i + 1, arrived - pressed);
        }

        std::printf("Dictation: %d dictations of %s\n", dictations, kUtterance.filename().c_str());
        for (const char* stage : {"capture stopped", "compressed", "request sent", "answer received", "pasted"}) {
            const auto& v = stages[stage];
            std::printf("  second press -> %-16s p50 %.3f s  p95 %.3f s  (%zu samples)\n", stage,
                        percentile(v, 0.5), percentile(v, 0.95), v.size());
        }
        allMet &= report("stop to text p50", percentile(total, 0.5), "s", 1.5);
        std::printf("%-34s %10.3f s\n", "stop to text p95", percentile(total, 0.95));
        allMet &= report("idle resident memory", idleEnd.rssKiB / 1024.0, "MB", 60);
        allMet &= report("idle CPU", idleCpuPercent, "%", 0.3);
        std::printf("%-34s %10.3f s\n", "start-up to a ready tray", ready - launched);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "bench_dictation: %s\n", e.what());
        return 2;
    }
    return allMet ? 0 : 1;
}
