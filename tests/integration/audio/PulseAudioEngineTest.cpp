#include <gtest/gtest.h>

extern "C" {
#include <libavutil/channel_layout.h>
#include <libswresample/swresample.h>
}

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <map>
#include <mutex>
#include <thread>

#include "core/AppConstants.h"
#include "foundation/RunLoopMainQueue.h"
#include "platform/linux/PulseAudioPlayback.h"
#include "platform/linux/PulseCapture.h"
#include "platform/linux/PulseConnection.h"
#include "platform/linux/PulseCoreAudio.h"
#include "platform/linux/PulseRecordStream.h"
#include "platform/linux/PulseScreenCapture.h"
#include "recording/SoundEffectLocator.h"
#include "support/ChildProcess.h"
#include "support/TestSoundServer.h"
#include "unit/recording/EngineHarness.h"

using namespace vocle;
using namespace vocle::testing;

namespace {

const char* kSpeech =
    "/usr/share/pocketsphinx/test/data/librivox/sense_and_sensibility_01_austen_64kb-0870.wav";

// Mono, at `rate`: the first channel of a file, resampled with libswresample.
std::vector<float> monoAt(const WavData& in, int rate) {
    std::vector<float> mono(in.frames());
    for (size_t i = 0; i < mono.size(); ++i) mono[i] = in.samples[i * in.channels];
    if (in.rate == rate) return mono;
    AVChannelLayout layout;
    av_channel_layout_default(&layout, 1);
    SwrContext* swr = nullptr;
    swr_alloc_set_opts2(&swr, &layout, AV_SAMPLE_FMT_FLT, rate, &layout, AV_SAMPLE_FMT_FLT, in.rate, 0,
                        nullptr);
    swr_init(swr);
    std::vector<float> out(static_cast<size_t>(swr_get_out_samples(swr, static_cast<int>(mono.size()))) + 64);
    uint8_t* o[1] = {reinterpret_cast<uint8_t*>(out.data())};
    const uint8_t* i[1] = {reinterpret_cast<const uint8_t*>(mono.data())};
    int n = swr_convert(swr, o, static_cast<int>(out.size()), i, static_cast<int>(mono.size()));
    out.resize(static_cast<size_t>(std::max(n, 0)));
    swr_free(&swr);
    av_channel_layout_uninit(&layout);
    return out;
}

double correlationAt(const std::vector<float>& a, const std::vector<float>& b, long lag, size_t from,
                     size_t len) {
    double ab = 0, aa = 0, bb = 0;
    for (size_t k = from; k < from + len; ++k) {
        const long j = static_cast<long>(k) + lag;
        if (j < 0 || static_cast<size_t>(j) >= b.size() || k >= a.size()) continue;
        ab += a[k] * b[j];
        aa += a[k] * a[k];
        bb += b[j] * b[j];
    }
    return aa > 0 && bb > 0 ? ab / std::sqrt(aa * bb) : 0.0;
}

// Best normalized waveform correlation of `source` found inside `captured`: a coarse search on 10 ms
// energy envelopes finds the offset (either way: the file may start after the first few milliseconds
// of the speech), a sample-level search around it measures the match.
double bestCorrelation(const std::vector<float>& source, const std::vector<float>& captured, int rate) {
    const size_t win = static_cast<size_t>(rate / 100);
    auto envelope = [win](const std::vector<float>& x) {
        std::vector<float> e(x.size() / win);
        for (size_t w = 0; w < e.size(); ++w) {
            double s = 0;
            for (size_t i = 0; i < win; ++i) s += x[w * win + i] * x[w * win + i];
            e[w] = static_cast<float>(std::sqrt(s / win));
        }
        return e;
    };
    const auto es = envelope(source), ec = envelope(captured);
    long bestLag = 0;
    double best = -1;
    for (long lag = -static_cast<long>(es.size()) / 2; lag + 100 < static_cast<long>(ec.size()); ++lag) {
        const double c = correlationAt(es, ec, lag, 0, es.size());
        if (c > best) best = c, bestLag = lag;
    }
    best = -1;
    const long centre = bestLag * static_cast<long>(win);
    const size_t excerpt = static_cast<size_t>(rate);  // one second of speech, from 2 s into the source
    for (long lag = centre - static_cast<long>(win); lag <= centre + static_cast<long>(win); ++lag) {
        best = std::max(best, correlationAt(source, captured, lag, static_cast<size_t>(2 * rate), excerpt));
    }
    return best;
}

// CTest runs each case in its own process, possibly side by side; they share the daemon's default
// devices and volumes, so one case holds the server at a time (the PulseAudio and the PipeWire copies
// of a case have servers of their own).
class ServerLock {
  public:
    explicit ServerLock(const TestSoundServer& server)
        : fd_(::open(("/tmp/vocle-" + server.name() + "-tests.lock").c_str(), O_CREAT | O_RDWR, 0666)) {
        if (fd_ >= 0) ::flock(fd_, LOCK_EX);
    }
    ~ServerLock() {
        if (fd_ >= 0) ::close(fd_);
    }

  private:
    int fd_;
};

class PulseAudioEngine : public ::testing::Test {
  protected:
    void SetUp() override {
        if (sound.kind() == TestSoundServer::Kind::pipewire) {
            // Its own server, whatever PULSE_SERVER the test script exported for PulseAudio.
            if (auto why = sound.unavailable()) {
                if (soundServerRequired()) FAIL() << *why;
                GTEST_SKIP() << *why;
            }
            ::setenv("PULSE_SERVER", sound.start().c_str(), 1);
        }
        serverLock = std::make_unique<ServerLock>(sound);
        if (auto error = pulse.ensureConnected()) {
            // CI must run these, so there a missing daemon fails rather than passing by skipping.
            if (soundServerRequired()) {
                FAIL() << "No " << sound.name() << " server reachable under CI (" << error->description
                       << ")";
            }
            GTEST_SKIP() << "No " << sound.name() << " server reachable (" << error->description
                         << "); start one with " << sound.startScript().filename().string();
        }
        auto sinks = pulse.sinks();
        ASSERT_TRUE(sinks.ok());
        bool speaker = false, feed = false;
        for (const auto& s : sinks.value()) {
            speaker |= s.name == "vocle_speaker";
            feed |= s.name == "vocle_mic_feed";
        }
        ASSERT_TRUE(speaker && feed) << "the " << sound.name() << " server lacks the test sinks; run "
                                     << sound.startScript();
        ASSERT_FALSE(pulse.setDefaultSink("vocle_speaker"));
        ASSERT_FALSE(pulse.setDefaultSource("vocle_mic"));
        ASSERT_TRUE(std::filesystem::exists(kSpeech)) << "install pocketsphinx-testdata";

        systemAudio = std::make_unique<SystemAudioController>(
            queue, background, coreAudio, playback, storage,
            std::vector<std::filesystem::path>{std::filesystem::path(VOCLE_SOURCE_DIR) / "data" / "sounds"});
        route = std::make_unique<BluetoothAudioRouteManager>(coreAudio, routeQueue);
        engine = std::make_unique<AudioRecordingService>(
            AudioRecordingServiceDependencies{queue, capture, screen, *systemAudio, *route, processor, paster,
                                              alerts, storage, notifications, systemAudioQueue, tmp.path()});
        levels = notifications.addObserver(Notifications::audioLevelUpdate, [this](const Notification& n) {
            loudest = std::max(loudest, n.number("level").value_or(-60.0));
        });
    }

    // Plays the speech file into a sink while the main loop runs, then lets the capture catch up.
    void playInto(const std::string& sink) {
        std::atomic<bool> done{false};
        int rc = -1;
        std::thread player([&] {
            rc = std::system(("paplay --device=" + sink + " '" + kSpeech + "'").c_str());
            done = true;
        });
        waitFor([&] { return done.load(); }, Seconds(30.0));
        player.join();
        ASSERT_EQ(rc, 0) << "paplay failed";
        queue.runUntil([] { return false; }, Seconds(0.5));
    }

    void record(const Mode& mode, const std::string& sink) {
        engine->setRecordingContext(mode, "", {});
        engine->startRecording();
        ASSERT_TRUE(queue.runUntil([&] { return engine->isRecording.get() && engine->hasCaptureSession(); },
                                   Seconds(5.0)));
        queue.runUntil([] { return false; }, Seconds(0.5));  // past the file-output start
        playInto(sink);
        engine->stopRecording();
        ASSERT_TRUE(queue.runUntil([&] { return !processor.calls.empty(); }, Seconds(10.0)))
            << "nothing was handed to processing";
    }

    uint32_t sourceRate(const std::string& name) {
        auto sources = pulse.sources();
        if (sources.ok())
            for (const auto& s : sources.value())
                if (s.name == name) return s.sampleFormat.rate;
        return 0;
    }

    // Unplug: the virtual microphone's module goes away (under a running stream, if there is one).
    int unplugMicrophone() {
        const int rc = std::system(
            "pactl unload-module $(pactl list short modules | awk '/module-remap-source/ && /vocle_mic/ "
            "{print $1}')");
        // PipeWire removes the node behind the module a moment later.
        waitFor([&] { return !capture.device("vocle_mic"); }, Seconds(3.0));
        return rc;
    }
    int plugMicrophoneBack() {
        return std::system((sound.startScript().string() + " >/dev/null 2>&1").c_str());
    }

    // Runs the main loop until `done`, looking every 20 ms (work on other threads posts nothing here).
    bool waitFor(const std::function<bool()>& done, Seconds timeout) {
        auto tick = queue.scheduleRepeating(Seconds(0.02), [] {});
        const bool ok = queue.runUntil(done, timeout);
        tick.cancel();
        return ok;
    }

    TestSoundServer sound = TestSoundServer::fromEnvironment();
    std::unique_ptr<ServerLock> serverLock;
    SystemClock clock;
    RunLoopMainQueue queue{clock};
    TempDir tmp;
    TempDir data;
    FileStorageManager storage{DataFolder(data.path()), clock};
    PulseConnection pulse{"Vocle tests"};
    PulseCapture capture{pulse, queue};
    PulseScreenCapture screen{pulse, queue};
    PulseCoreAudio coreAudio{pulse};
    PulseAudioPlayback playback{pulse};
    SerialThreadQueue background{"background"};
    SerialThreadQueue routeQueue{"app.vocleapp.Vocle.BluetoothAudioRouteManager"};
    SerialThreadQueue systemAudioQueue{"app.vocleapp.Vocle.SCStreamAudioQueue"};
    NotificationCenter notifications;
    ScriptedProcessor processor;
    RecordingPaster paster;
    FakeAlerts alerts;
    std::unique_ptr<SystemAudioController> systemAudio;
    std::unique_ptr<BluetoothAudioRouteManager> route;
    std::unique_ptr<AudioRecordingService> engine;
    double loudest = -60.0;  // the loudest published level
    Subscription levels;
};

TEST_F(PulseAudioEngine, MicrophonePathRecordsTheSpeechFromTheVirtualMicrophone) {
    Mode mode = Mode::fresh("Dictation");
    record(mode, "vocle_mic_feed");
    EXPECT_GE(loudest, -40.0);
    const auto file = processor.calls[0].file;
    EXPECT_EQ(file.filename().string().rfind("vocle_", 0), 0u);
    const auto captured = readWav(file);
    // The device's own rate, nothing resampled: PulseAudio's default 44.1 kHz, PipeWire's graph rate.
    EXPECT_EQ(captured.rate, static_cast<int>(sourceRate("vocle_mic")));
    EXPECT_GT(captured.frames(), static_cast<size_t>(7 * captured.rate));
    const auto source = monoAt(readWav(kSpeech), captured.rate);
    const double r = bestCorrelation(source, monoAt(captured, captured.rate), captured.rate);
    EXPECT_GT(r, 0.9) << "captured microphone audio does not match the speech played into it";
}

TEST_F(PulseAudioEngine, MonitorPathRecordsWhatTheSpeakerPlaysAndMixesItWithTheMicrophone) {
    Mode mode = Mode::fresh("Meeting");
    mode.recordSystemAudio = true;
    record(mode, "vocle_speaker");
    EXPECT_GE(loudest, -40.0);
    // vocle_{seconds}.wav is the mix; the sources are vocle_mic_{seconds}.wav and vocle_sys_{seconds}.wav.
    const auto name = processor.calls[0].file.filename().string();
    ASSERT_EQ(name.rfind("vocle_", 0), 0u);
    EXPECT_EQ(name.find("_mic_"), std::string::npos) << "the two sources were not mixed";
    EXPECT_EQ(name.find("_sys_"), std::string::npos) << "the two sources were not mixed";

    const auto system = readWav(tmp.path() / ("vocle_sys_" + name.substr(6)));
    const auto source = monoAt(readWav(kSpeech), system.rate);
    EXPECT_GT(bestCorrelation(source, monoAt(system, system.rate), system.rate), 0.9);
    // The microphone was silent, so the mix is the system audio at 0.9.
    const auto mixed = readWav(processor.calls[0].file);
    EXPECT_EQ(mixed.rate, system.rate);
    EXPECT_GT(bestCorrelation(source, monoAt(mixed, mixed.rate), mixed.rate), 0.9);
}

TEST_F(PulseAudioEngine, MicrophoneUnpluggedMidRecordingKeepsWhatWasRecordedAndNothingElse) {
    const auto began = std::chrono::steady_clock::now();
    engine->setRecordingContext(Mode::fresh("Dictation"), "", {});
    engine->startRecording();
    ASSERT_TRUE(
        waitFor([&] { return engine->isRecording.get() && engine->hasCaptureSession(); }, Seconds(5.0)));
    waitFor([] { return false; }, Seconds(0.5));

    std::atomic<bool> done{false};
    std::thread player([&] {
        std::system((std::string("paplay --device=vocle_mic_feed '") + kSpeech + "'").c_str());
        done = true;
    });
    waitFor([] { return false; }, Seconds(3.0));
    const int unloaded = unplugMicrophone();
    const std::chrono::duration<double> beforeUnplug = std::chrono::steady_clock::now() - began;
    waitFor([&] { return done.load(); }, Seconds(30.0));
    player.join();
    engine->stopRecording();
    const bool processed = waitFor([&] { return !processor.calls.empty(); }, Seconds(10.0));
    // Put the microphone back for the other cases before checking anything.
    const int restored = plugMicrophoneBack();
    ASSERT_EQ(unloaded, 0);
    ASSERT_EQ(restored, 0);
    ASSERT_TRUE(processed) << "the recording was not handed on after the microphone went away";
    const auto captured = readWav(processor.calls[0].file);
    EXPECT_GT(captured.frames(), static_cast<size_t>(captured.rate));  // the seconds before the unplug
    // The stream ends with its device: had the server moved it to what is left (PipeWire: the
    // speakers' monitor), the file would go on for the four seconds of playback after the unplug.
    const double seconds = static_cast<double>(captured.frames()) / captured.rate;
    EXPECT_LT(seconds, beforeUnplug.count() + 1.0)
        << "the recording went on from another source after its microphone was unplugged";
}

TEST_F(PulseAudioEngine, WithNoMicrophoneLeftTheSpeakersMonitorIsNotTakenForOne) {
    ASSERT_EQ(unplugMicrophone(), 0);
    // The servers fall back to a monitor as their default source (WirePlumber a moment later).
    const auto defaultIsListed = [&] {
        auto info = pulse.serverInfo();
        auto sources = pulse.sources();
        if (!info.ok() || !sources.ok()) return false;
        for (const auto& s : sources.value())
            if (s.name == info.value().defaultSource) return true;
        return false;
    };
    const bool settled = waitFor(defaultIsListed, Seconds(3.0));
    auto info = pulse.serverInfo();
    const auto fallback = capture.defaultDevice();
    const auto inputs = capture.devices();
    const int restored = plugMicrophoneBack();
    ASSERT_EQ(restored, 0);
    ASSERT_TRUE(settled) << "the server named no existing default source";
    ASSERT_TRUE(info.ok());
    EXPECT_NE(info.value().defaultSource, "vocle_mic");
    EXPECT_FALSE(fallback.has_value()) << "default input: " << (fallback ? fallback->uid : "");
    EXPECT_TRUE(inputs.empty());
    // WirePlumber makes the returned microphone the default a moment after it reappears.
    EXPECT_TRUE(waitFor(
        [&] {
            const auto device = capture.defaultDevice();
            return device && device->uid == "vocle_mic";
        },
        Seconds(3.0)))
        << "the microphone did not become the default input again";
}

TEST_F(PulseAudioEngine, MutesAndRestoresTheDefaultSinkVolume) {
    auto id = coreAudio.defaultDevice(AudioScope::output);
    ASSERT_TRUE(id.ok()) << id.error().description;
    EXPECT_EQ(coreAudio.deviceUID(id.value()).value(), "vocle_speaker");
    EXPECT_EQ(coreAudio.deviceName(id.value()).value(), "Vocle_Test_Speaker");
    ASSERT_FALSE(coreAudio.setVolume(id.value(), 0.8f));
    EXPECT_NEAR(coreAudio.volume(id.value()).value(), 0.8f, 0.001f);

    systemAudio->playStartSoundThenMute();
    waitFor([&] { return coreAudio.volume(id.value()).value() == 0.0f; }, Seconds(3.0));
    EXPECT_EQ(coreAudio.volume(id.value()).value(), 0.0f);
    systemAudio->restoreSystemAudio();
    waitFor([&] { return coreAudio.volume(id.value()).value() > 0.0f; }, Seconds(3.0));
    EXPECT_NEAR(coreAudio.volume(id.value()).value(), 0.8f, 0.001f);
    ASSERT_FALSE(coreAudio.setVolume(id.value(), 1.0f));
}

TEST_F(PulseAudioEngine, DeviceListsAndDefaultOutputSwitch) {
    auto inputs = capture.devices();
    ASSERT_FALSE(inputs.empty());
    bool mic = false;
    for (const auto& d : inputs) {
        EXPECT_EQ(d.uid.find(".monitor"), std::string::npos) << "monitors are not microphones";
        mic |= d.uid == "vocle_mic" && d.name == "Vocle_Test_Microphone";
    }
    EXPECT_TRUE(mic);
    EXPECT_EQ(capture.defaultDevice()->uid, "vocle_mic");

    auto list = coreAudio.deviceList();
    ASSERT_TRUE(list.ok());
    std::optional<AudioDeviceId> feed;
    for (auto id : list.value())
        if (coreAudio.deviceUID(id).value() == "vocle_mic_feed") feed = id;
    ASSERT_TRUE(feed.has_value());
    ASSERT_FALSE(coreAudio.setDefaultOutput(*feed));
    EXPECT_EQ(coreAudio.defaultDevice(AudioScope::output).value(), *feed);
    ASSERT_FALSE(pulse.setDefaultSink("vocle_speaker"));
    EXPECT_FALSE(coreAudio.setDefaultOutput(999999) == std::nullopt);
}

// What the route manager goes by: a sink of a call profile reads as a hands-free device, whether the
// server names the profile the PulseAudio way or the PipeWire way.
TEST_F(PulseAudioEngine, BluetoothCallProfilesReadAsHandsFree) {
    const std::vector<std::pair<std::string, std::string>> sinks = {
        {"vocle_bt_call", "api.bluez5.profile=headset-head-unit"},
        {"vocle_bt_gateway", "api.bluez5.profile=headset-audio-gateway"},
        {"vocle_bt_music", "api.bluez5.profile=a2dp-sink"},
        {"vocle_bt_pulse_call", "bluetooth.protocol=handsfree_head_unit"},
    };
    std::vector<std::string> modules;
    for (const auto& [name, profile] : sinks) {
        const auto loaded = runProgram({{"pactl", "load-module", "module-null-sink", "sink_name=" + name,
                                         "sink_properties='device.description=Headphones " + profile + "'"}});
        if (loaded.status == 0) modules.push_back(loaded.output.substr(0, loaded.output.find('\n')));
    }
    std::map<std::string, std::string> names;
    waitFor(
        [&] {
            names.clear();
            if (auto list = coreAudio.deviceList(); list.ok())
                for (auto id : list.value())
                    names[coreAudio.deviceUID(id).value()] = coreAudio.deviceName(id).value();
            return names.count("vocle_bt_pulse_call") > 0;
        },
        Seconds(3.0));
    for (const auto& module : modules) runProgram({{"pactl", "unload-module", module}});
    ASSERT_EQ(modules.size(), sinks.size());
    EXPECT_EQ(names["vocle_bt_call"], "Headphones Hands-Free");
    EXPECT_EQ(names["vocle_bt_gateway"], "Headphones Hands-Free");
    EXPECT_EQ(names["vocle_bt_music"], "Headphones");
    EXPECT_EQ(names["vocle_bt_pulse_call"], "Headphones Hands-Free");
}

// The route manager reads the default back right after setting it.
TEST_F(PulseAudioEngine, ANewDefaultOutputIsInEffectWhenTheSwitchReturns) {
    auto list = coreAudio.deviceList();
    ASSERT_TRUE(list.ok());
    std::optional<AudioDeviceId> speaker, feed;
    for (auto id : list.value()) {
        if (coreAudio.deviceUID(id).value() == "vocle_speaker") speaker = id;
        if (coreAudio.deviceUID(id).value() == "vocle_mic_feed") feed = id;
    }
    ASSERT_TRUE(speaker && feed);
    for (int round = 0; round < 10; ++round) {
        const AudioDeviceId wanted = round % 2 ? *speaker : *feed;
        ASSERT_FALSE(coreAudio.setDefaultOutput(wanted));
        ASSERT_EQ(coreAudio.defaultDevice(AudioScope::output).value(), wanted) << "round " << round;
        ASSERT_FALSE(pulse.setDefaultSource(round % 2 ? "vocle_mic" : "vocle_mic_feed.monitor"));
        ASSERT_EQ(capture.defaultDevice().has_value(), round % 2 == 1) << "round " << round;
    }
    ASSERT_FALSE(pulse.setDefaultSink("vocle_speaker"));
    ASSERT_FALSE(pulse.setDefaultSource("vocle_mic"));
}

// The microphone level and the start of the file output wait for the first blocks: on either server a
// record stream delivers soon after it starts, in blocks small enough for a smooth meter (the 20 ms
// fragment it asks for; without it both servers hand over seconds at a time).
TEST_F(PulseAudioEngine, RecordStreamDeliversSmallBlocksSoonAfterItStarts) {
    std::mutex mutex;
    std::vector<size_t> blocks;
    double rate = 0;
    std::optional<std::chrono::steady_clock::time_point> firstBlock;
    const auto began = std::chrono::steady_clock::now();
    PulseRecordStream stream(pulse, "vocle_mic", [&](const float*, size_t frames, int, double r) {
        std::lock_guard lock(mutex);
        if (!firstBlock) firstBlock = std::chrono::steady_clock::now();
        blocks.push_back(frames);
        rate = r;
    });
    std::atomic<bool> started{false};
    std::optional<Error> startError;
    stream.start([&](std::optional<Error> error) {
        startError = error;
        started = true;
    });
    waitFor(
        [&] {
            std::lock_guard lock(mutex);
            return blocks.size() >= 50;
        },
        Seconds(5.0));
    stream.stop();
    std::lock_guard lock(mutex);
    ASSERT_TRUE(started.load());
    ASSERT_FALSE(startError) << startError->description;
    ASSERT_GE(blocks.size(), 50u);
    const std::chrono::duration<double> wait = *firstBlock - began;
    // PipeWire answers within a quantum; PulseAudio's null sink behind the test microphone renders its
    // first block late (up to about 2 s, its default latency) until the stream's request reaches it.
    EXPECT_LT(wait.count(), 3.0) << "first block after " << wait.count() << " s";
    // Past the first few (servers hand over what piled up while starting), blocks of at most 50 ms.
    const size_t largest = *std::max_element(blocks.begin() + 5, blocks.end());
    EXPECT_LE(static_cast<double>(largest) / rate, 0.05) << largest << " frames at " << rate << " Hz";
}

// The output goes quiet 0.3 s after the start sound begins: the whole sound must have reached the
// speakers by then, at the sound volume of the settings, on either server (what the speakers' monitor
// heard, against the file's energy).
TEST_F(PulseAudioEngine, TheStartSoundIsHeardWholeAtItsVolumeBeforeTheOutputGoesQuiet) {
    auto file = findSoundFile("start", soundSearchDirectories(ProcessEnvironment{}));
    ASSERT_TRUE(file.has_value());
    const auto sound = readWav(*file);
    double soundEnergy = 0;
    for (size_t i = 0; i < sound.frames(); ++i)
        soundEnergy += sound.samples[i * sound.channels] * sound.samples[i * sound.channels];
    soundEnergy /= sound.rate;

    std::mutex mutex;
    double heard = 0;
    double rate = 0;
    size_t delivered = 0;  // frames
    PulseRecordStream monitor(pulse, "vocle_speaker.monitor",
                              [&](const float* s, size_t frames, int channels, double r) {
                                  std::lock_guard lock(mutex);
                                  for (size_t i = 0; i < frames; ++i)
                                      heard += s[i * channels] * s[i * channels];
                                  rate = r;
                                  delivered += frames;
                              });
    // Counted in delivered frames, not in time: PulseAudio's null sink hands over its first blocks late.
    const auto deliveredSeconds = [&] {
        std::lock_guard lock(mutex);
        return rate > 0 ? static_cast<double>(delivered) / rate : 0.0;
    };
    monitor.start([](std::optional<Error>) {});
    ASSERT_TRUE(waitFor([&] { return deliveredSeconds() >= 0.5; }, Seconds(5.0)));
    {
        std::lock_guard lock(mutex);
        heard = 0;
        delivered = 0;
    }
    auto id = coreAudio.defaultDevice(AudioScope::output);
    ASSERT_TRUE(id.ok());
    systemAudio->playStartSoundThenMute();
    const bool muted = waitFor([&] { return coreAudio.volume(id.value()).value() == 0.0f; }, Seconds(3.0));
    waitFor([&] { return deliveredSeconds() >= 1.5; }, Seconds(5.0));
    monitor.stop();
    systemAudio->restoreSystemAudio();
    waitFor([&] { return coreAudio.volume(id.value()).value() > 0.0f; }, Seconds(3.0));
    ASSERT_TRUE(muted);
    ASSERT_GT(coreAudio.volume(id.value()).value(), 0.0f) << "the output was not restored";

    const double volume = storage.loadSettings().soundVolume;
    std::lock_guard lock(mutex);
    ASSERT_GT(rate, 0);
    const double ratio = heard / rate / (soundEnergy * volume * volume);
    EXPECT_GT(ratio, 0.8) << "only part of the start sound was heard before the output went quiet";
    EXPECT_LT(ratio, 1.25) << "the start sound was louder than the sound volume setting";
}

TEST_F(PulseAudioEngine, SoundEffectPlaysToItsEnd) {
    auto file = findSoundFile("start", soundSearchDirectories(ProcessEnvironment{}));
    ASSERT_TRUE(file.has_value());
    std::atomic<bool> finished{false};
    systemAudio->playSoundEffect("start", [&] { finished = true; });
    EXPECT_TRUE(queue.runUntil([&] { return finished.load(); }, Seconds(3.0)));
    EXPECT_FALSE(systemAudio->isPlayingSoundEffect());
}

}  // namespace
