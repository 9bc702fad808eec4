#include <sndfile.h>

#include <cmath>
#include <iomanip>
#include <iostream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <system_error>

#include "CliCommand.h"
#include "CliGraph.h"
#include "core/AppConstants.h"
#include "recording/AudioMixer.h"
#include "recording/AudioRecordingService.h"

namespace vocle::cli {

namespace {

namespace fs = std::filesystem;

// The finished recording is the command's result: nothing is uploaded.
class KeepRecording final : public RecordingProcessor {
  public:
    std::optional<fs::path> file;
    void processRecording(const fs::path& audioFile, const Mode&, const std::string&,
                          const std::vector<Replacement>&,
                          std::function<void(Result<std::string>)> completion) override {
        file = audioFile;
        completion(std::string());
    }
};

class NoPaste final : public TranscriptPaster {
  public:
    void copyAndPaste(const std::string&) override {}
};

std::string describe(const fs::path& file) {
    SF_INFO info{};
    SNDFILE* f = sf_open(file.c_str(), SFM_READ, &info);
    if (!f) return file.string();
    sf_close(f);
    std::ostringstream out;
    out << file.string() << " (" << info.samplerate << " Hz, " << info.channels << " ch, " << std::fixed
        << std::setprecision(2) << static_cast<double>(info.frames) / info.samplerate << " s)";
    return out.str();
}

std::string meter(double level) {
    const int bars = static_cast<int>(std::lround(std::clamp((level + 60.0) / 60.0, 0.0, 1.0) * 30));
    std::ostringstream out;
    out << std::fixed << std::setprecision(1) << std::setw(6) << level << " dB [" << std::string(bars, '#')
        << std::string(30 - bars, ' ') << "]";
    return out.str();
}

int record(CliContext& ctx) {
    bool system = false;
    std::vector<std::string> positional;
    for (const auto& a : ctx.args) {
        if (a == "--system") {
            system = true;
        } else {
            positional.push_back(a);
        }
    }
    if (positional.size() != 2) throw CliError{"usage: vocle-cli record SECONDS OUT.wav [--system]", 2};
    double seconds = 0;
    try {
        seconds = std::stod(positional[0]);
    } catch (const std::exception&) {
        throw CliError{"SECONDS must be a number, got \"" + positional[0] + "\"", 2};
    }
    if (!(seconds > 0) || seconds > 3600) throw CliError{"SECONDS must be between 0 and 3600", 2};
    const fs::path out = positional[1];

    CliGraph cli(ctx, "");
    if (auto error = cli.pulse.ensureConnected()) throw CliError{"no sound server: " + error->description};
    RunLoopMainQueue& queue = cli.queue;
    ServiceGraph& graph = cli.services;
    KeepRecording processor;
    NoPaste paster;
    auto recorder = graph.makeRecordingService(processor, paster);
    AudioRecordingService& engine = *recorder;

    double lastLevel = -60.0;
    auto levels = graph.notifications.addObserver(Notifications::audioLevelUpdate, [&](const Notification& n) {
        if (auto l = n.number("level")) lastLevel = *l;
    });
    auto errors = engine.errorMessage.subscribe([&](const std::optional<std::string>& message) {
        if (message) ctx.err << "vocle-cli record: " << *message << "\n";
    });

    Mode mode = Mode::fresh("vocle-cli");
    mode.recordSystemAudio = system;
    engine.setRecordingContext(mode, "", {});
    ctx.out << "Recording " << seconds << " s from the "
            << (system ? "microphone and system audio" : "microphone") << "…\n";
    engine.startRecording();
    Timer meterTimer;
    meterTimer.startRepeating(queue, Seconds(1.0), [&] {
        ctx.out << meter(lastLevel) << "\n" << std::flush;
    });
    queue.runUntil([] { return false; }, Seconds(seconds));
    meterTimer.cancel();
    engine.stopRecording();
    const bool finished = queue.runUntil(
        [&] {
            return processor.file.has_value() ||
                   (!engine.isProcessing.get() && !engine.flags().isCleanupInProgress);
        },
        Seconds(15.0));
    if (!processor.file) {
        std::string kept;
        for (const auto& p : {engine.flags().micFileURL, engine.flags().audioFileURL})
            if (p && fs::exists(*p)) kept = " (the raw recording is kept at " + p->string() + ")";
        if (!finished) throw CliError{"the recording did not finish within 15 s" + kept};
        if (engine.flags().isCancelled) {
            throw CliError{"nothing was kept: the recording was shorter than 0.4 s or never reached -40 dB" +
                           kept};
        }
        throw CliError{"the recording produced no file" + kept};
    }
    std::error_code ec;
    fs::copy_file(*processor.file, out, fs::copy_options::overwrite_existing, ec);
    if (ec)
        throw CliError{"could not write " + out.string() + ": " + ec.message() + " (the recording is at " +
                       processor.file->string() + ")"};
    ctx.out << "Peak level " << std::fixed << std::setprecision(1) << engine.flags().maxObservedDBFS
            << " dB; wrote " << describe(out) << "\n";
    return 0;
}

int mix(CliContext& ctx) {
    if (ctx.args.size() != 3) throw CliError{"usage: vocle-cli mix MIC.wav SYS.wav OUT.wav", 2};
    if (auto error = AudioMixer::mix(ctx.args[0], ctx.args[1], ctx.args[2])) {
        throw CliError{error->description + " (" + error->domain + " " + std::to_string(error->code) + ")"};
    }
    ctx.out << "Mixed into " << describe(ctx.args[2]) << "\n";
    return 0;
}

}  // namespace

void addAudioCommands(std::vector<CliCommand>& commands) {
    commands.push_back(
        {"record", "record SECONDS OUT.wav [--system]",
         "record the microphone (and with --system the system audio, mixed in) through the engine, "
         "showing the level once a second",
         record});
    commands.push_back({"mix", "mix MIC.wav SYS.wav OUT.wav",
                        "mix two WAV files into one 32-bit float WAV at the larger rate and channel count",
                        mix});
}

}  // namespace vocle::cli
