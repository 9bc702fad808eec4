#pragma once

#include <sndfile.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "application/ServiceGraph.h"
#include "foundation/Log.h"
#include "platform/testing/FakeHttpTransport.h"
#include "support/FakePlatform.h"
#include "support/TempDir.h"

namespace vocle::testing {

// The upload pipeline as the engine sees it: records each call and answers when told.
class ScriptedProcessor final : public RecordingProcessor {
  public:
    struct Call {
        std::filesystem::path file;
        Mode mode;
        std::string vocab;
        std::vector<Replacement> replacements;
        std::function<void(Result<std::string>)> completion;
    };
    std::vector<Call> calls;

    void processRecording(const std::filesystem::path& file, const Mode& mode, const std::string& vocab,
                          const std::vector<Replacement>& replacements,
                          std::function<void(Result<std::string>)> completion) override {
        calls.push_back({file, mode, vocab, replacements, std::move(completion)});
    }
};

class RecordingPaster final : public TranscriptPaster {
  public:
    std::vector<std::string> pasted;
    void copyAndPaste(const std::string& text) override { pasted.push_back(text); }
};

inline void writeWav(const std::filesystem::path& path, int rate, int channels,
                     const std::vector<float>& interleaved) {
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = channels;
    info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
    SNDFILE* f = sf_open(path.c_str(), SFM_WRITE, &info);
    if (!f) throw std::runtime_error(sf_strerror(nullptr));
    sf_writef_float(f, interleaved.data(), static_cast<sf_count_t>(interleaved.size() / channels));
    sf_close(f);
}

struct WavData {
    int rate = 0;
    int channels = 0;
    int format = 0;
    std::vector<float> samples;
    size_t frames() const { return channels ? samples.size() / channels : 0; }
};

inline WavData readWav(const std::filesystem::path& path) {
    SF_INFO info{};
    SNDFILE* f = sf_open(path.c_str(), SFM_READ, &info);
    if (!f)
        throw std::runtime_error(std::string("cannot open ") + path.string() + ": " + sf_strerror(nullptr));
    WavData d{info.samplerate, info.channels, info.format, std::vector<float>(info.frames * info.channels)};
    sf_readf_float(f, d.samples.data(), info.frames);
    sf_close(f);
    return d;
}

// A fresh engine, built by the service graph, on virtual time with fakes for every OS service; the
// network is scripted and nothing is answered unless a test says so.
struct EngineHarness : FakePlatform {
    TempDir tmp;
    TempDir data;
    std::shared_ptr<CapturingLogSink> logs = std::make_shared<CapturingLogSink>();
    ScopedLogSink scopedLogs{logs};
    std::shared_ptr<FakeHttpTransport> network = std::make_shared<FakeHttpTransport>(queue);
    const bool soundsWritten = writeSounds(data.path() / "sounds");
    ServiceGraph graph{servicePlatform(), engineQueues(),
                       ServiceOptions{"", std::string("https://backend.test"), data.path(), tmp.path(),
                                      std::vector<std::filesystem::path>{data.path() / "sounds"}, network}};
    FileStorageManager& storage = graph.files;
    NotificationCenter& notifications = graph.notifications;
    std::unique_ptr<SystemAudioController>& systemAudio = graph.systemAudio;
    std::unique_ptr<BluetoothAudioRouteManager>& route = graph.routeManager;
    ScriptedProcessor processor;
    RecordingPaster paster;
    std::unique_ptr<AudioRecordingService> engine = graph.makeRecordingService(processor, paster, [] { return 0.5; });

    EngineHarness() {
        coreAudio.add(1, "alsa_output.pci.analog-stereo", "Built-in Audio Analog Stereo", 0.7f);
        coreAudio.defaultOutput = 1;
    }
    ~EngineHarness() { engine.reset(); }

    static bool writeSounds(const std::filesystem::path& dir) {
        std::filesystem::create_directories(dir);
        writeText(dir / "start.aif", "FORM");
        writeText(dir / "stop.aif", "FORM");
        return true;
    }

    AudioRecordingService& e() { return *engine; }
    double t0() const { return 1'700'000'000.0; }
    std::filesystem::path file(const std::string& name) const { return tmp.path() / name; }

    Mode mode(bool systemAudio = false, bool mute = false) {
        Mode m = Mode::fresh("Dictation");
        m.recordSystemAudio = systemAudio;
        m.muteWhileRecording = mute;
        return m;
    }
    void start(Mode m) {
        engine->setRecordingContext(m, "Kubernetes, Vocle", {Replacement::make("new line", "\n")});
        engine->startRecording();
        queue.runUntilIdle();
    }
    // Names of the sounds played so far.
    std::vector<std::string> sounds() const {
        std::vector<std::string> names;
        for (const auto& p : playback.players) names.push_back(p->file.stem().string());
        return names;
    }
    void speak(float db) {
        for (auto& o : capture.outputs) o->channelPowerDb = {db};
    }
    // Whether the engine drops a start because the previous recording is still being cleaned up, as the
    // user sees it. When it does not, a new recording has started.
    bool refusesStart() {
        const char* refused = "⏳ Cleanup from previous recording still in progress. Delaying start.";
        const size_t before = logs->count(refused);
        start(mode());
        return logs->count(refused) > before;
    }
};

}  // namespace vocle::testing
