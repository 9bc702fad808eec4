// The whole app under a private desktop: stop-to-text latency of dictation on both roads (streamed while
// spoken, and the whole file after the stop) for a 5 s and a 30 s utterance, how far the partials trail the
// speech, the server's CPU per second of audio, the idle cost and the start-up time.
// Usage: bench_dictation [DICTATIONS=20] [IDLE_SECONDS=60]; DICTATIONS per road and utterance.
// Prints each figure with its target; exit status 1 when a target is missed.
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>
#include <optional>
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
const fs::path kUtterance =
    "/usr/share/pocketsphinx/test/data/librivox/sense_and_sensibility_01_austen_64kb-0890.wav";

// The clips of the pocketsphinx test set one after the other (16 kHz mono s16), about 30 s of speech.
const std::vector<std::string> kLongParts = {"0870", "0880", "0890", "0920", "0930", "0890"};

std::string wavData(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), {});
    size_t at = 12;
    while (at + 8 <= bytes.size()) {
        const std::string id = bytes.substr(at, 4);
        uint32_t size = 0;
        std::memcpy(&size, bytes.data() + at + 4, 4);
        if (id == "data") return bytes.substr(at + 8, size);
        at += 8 + size + (size & 1);
    }
    throw std::runtime_error("no data chunk in " + file.string());
}

void writeLongUtterance(const fs::path& out) {
    std::string pcm;
    for (const auto& part : kLongParts)
        pcm += wavData(kUtterance.parent_path() / ("sense_and_sensibility_01_austen_64kb-" + part + ".wav"));
    auto u32 = [](uint32_t v) { return std::string(reinterpret_cast<const char*>(&v), 4); };
    auto u16 = [](uint16_t v) { return std::string(reinterpret_cast<const char*>(&v), 2); };
    std::ofstream f(out, std::ios::binary);
    f << "RIFF" << u32(36 + pcm.size()) << "WAVEfmt " << u32(16) << u16(1) << u16(1) << u32(16000)
      << u32(32000) << u16(2) << u16(16) << "data" << u32(pcm.size()) << pcm;
}

double wavSeconds(const fs::path& file) {
    return static_cast<double>(wavData(file).size()) / 32000.0;
}

double processCpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    auto seconds = [](const timeval& t) { return static_cast<double>(t.tv_sec) + t.tv_usec / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// "partials X s behind the audio on average, Y s at most" from the app's end-of-stream line.
std::optional<std::pair<double, double>> partialLag(const std::string& log, size_t from) {
    static const std::regex line(R"(partials ([0-9.]+) s behind the audio on average, ([0-9.]+) s at most)");
    std::smatch m;
    const std::string tail = log.substr(from);
    if (!std::regex_search(tail, m, line)) return std::nullopt;
    return std::make_pair(std::stod(m[1]), std::stod(m[2]));
}

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
            if (!times.count(stage) && m[2].str().find(text) != std::string::npos)
                times[stage] = std::stod(m[1]);
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

bool report(const std::string& name, double value, const std::string& unit, double target,
            bool lowerIsBetter = true) {
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
        if (!desktop.waitForLog("AppState: Initialization complete!", 60s))
            throw std::runtime_error("start-up did not complete");
        desktop.openTextTarget();

        // Idle: automatic mode switching follows the window in front; nothing is being dictated.
        const int pid = desktop.vocle().pid();
        std::this_thread::sleep_for(2s);
        const ProcessSample idleStart = sample(pid);
        std::this_thread::sleep_for(std::chrono::seconds(idleSeconds));
        const ProcessSample idleEnd = sample(pid);
        const double idleCpuPercent = 100.0 * (idleEnd.cpuSeconds - idleStart.cpuSeconds) / idleSeconds;

        const fs::path longUtterance = desktop.root() / "utterance-30s.wav";
        writeLongUtterance(longUtterance);
        struct Run {
            std::vector<double> total;
            std::vector<double> lagMean;
            std::vector<double> lagMax;
            std::map<std::string, std::vector<double>> stages;
            double cpuPerAudioSecond = 0;
        };
        std::map<std::pair<std::string, std::string>, Run> runs;
        const std::vector<std::pair<std::string, fs::path>> utterances = {{"5 s", kUtterance},
                                                                          {"30 s", longUtterance}};
        for (const std::string road : {"streamed", "whole file"}) {
            desktop.stopVocle();
            desktop.setEnvironment("VOCLE_STREAMING", road == "streamed" ? "1" : "0");
            desktop.startVocle();
            desktop.focusTextTarget();
            for (const auto& [label, utterance] : utterances) {
                Run& run = runs[{road, label}];
                double cpu = 0;
                double audio = 0;
                for (int i = 0; i < dictations; ++i) {
                    size_t from = desktop.logSize();
                    const double cpuBefore = processCpuSeconds();
                    desktop.pressKeys("ctrl+alt+space");
                    if (!desktop.waitForLog("audioOutput.isRecording after", 15s, from)) {
                        throw std::runtime_error("dictation " + std::to_string(i + 1) + " did not start");
                    }
                    const size_t dictationFrom = from;
                    desktop.play(utterance);
                    const std::string before = desktop.targetText();
                    from = desktop.logSize();
                    const double pressed = wallSeconds();
                    desktop.pressKeys("ctrl+alt+space");
                    if (!waitFor([&] { return desktop.targetText() != before; }, 120s, 5ms)) {
                        throw std::runtime_error("dictation " + std::to_string(i + 1) +
                                                 " brought no text:\n" + desktop.vocleLog().substr(from));
                    }
                    const double arrived = wallSeconds();
                    desktop.waitForLog("paste simulation completed", 5s, from);
                    cpu += processCpuSeconds() - cpuBefore;
                    audio += wavSeconds(utterance);
                    run.total.push_back(arrived - pressed);
                    if (auto lag = partialLag(desktop.vocleLog(), dictationFrom)) {
                        run.lagMean.push_back(lag->first);
                        run.lagMax.push_back(lag->second);
                    }
                    for (const auto& [stage, at] : stageTimes(desktop.vocleLog(), from))
                        run.stages[stage].push_back(at - pressed);
                    std::fprintf(stderr, "%s, %s, dictation %d: %.3f s\n", road.c_str(), label.c_str(), i + 1,
                                 arrived - pressed);
                }
                run.cpuPerAudioSecond = audio > 0 ? cpu / audio : 0;
            }
        }

        std::printf("Dictation: %d dictations per road of %s (5.3 s) and of %s (%.1f s)\n", dictations,
                    kUtterance.filename().c_str(), longUtterance.filename().c_str(),
                    wavSeconds(longUtterance));
        std::printf("%-12s %-6s %12s %12s %16s %16s %14s\n", "road", "length", "stop->text50", "stop->text95",
                    "partial lag mean", "partial lag max", "CPU s/audio s");
        for (const auto& [key, run] : runs) {
            std::printf("%-12s %-6s %10.3f s %10.3f s %14.3f s %14.3f s %14.3f\n", key.first.c_str(),
                        key.second.c_str(), percentile(run.total, 0.5), percentile(run.total, 0.95),
                        percentile(run.lagMean, 0.5), percentile(run.lagMax, 0.95), run.cpuPerAudioSecond);
        }
        for (const auto& [key, run] : runs) {
            if (key.first != "whole file") continue;
            for (const char* stage :
                 {"capture stopped", "compressed", "request sent", "answer received", "pasted"}) {
                const auto& v = run.stages.count(stage) ? run.stages.at(stage) : std::vector<double>{};
                std::printf("  %s %s: second press -> %-16s p50 %.3f s  p95 %.3f s  (%zu samples)\n",
                            key.first.c_str(), key.second.c_str(), stage, percentile(v, 0.5),
                            percentile(v, 0.95), v.size());
            }
        }
        for (const auto& label : {"5 s", "30 s"}) {
            const Run& run = runs[{"streamed", label}];
            allMet &= report(std::string("streamed ") + label + ": stop to text p50",
                             percentile(run.total, 0.5), "s", 0.5);
            allMet &= report(std::string("streamed ") + label + ": partial lag", percentile(run.lagMean, 0.5),
                             "s", 1.0);
        }
        allMet &= report("idle resident memory", idleEnd.rssKiB / 1024.0, "MB", 60);
        allMet &= report("idle CPU", idleCpuPercent, "%", 0.3);
        std::printf("%-34s %10.3f s\n", "start-up to a ready tray", ready - launched);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "bench_dictation: %s\n", e.what());
        return 2;
    }
    return allMet ? 0 : 1;
}
