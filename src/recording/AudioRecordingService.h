#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/LiveTranscription.h"
#include "core/Mode.h"
#include "core/RecordingProcessor.h"
#include "core/Replacement.h"
#include "foundation/DispatchQueue.h"
#include "foundation/MainQueue.h"
#include "foundation/NotificationCenter.h"
#include "foundation/OwnerToken.h"
#include "foundation/Signal.h"
#include "foundation/Timer.h"
#include "platform/alerts.h"
#include "platform/capture.h"
#include "platform/screen_capture.h"
#include "recording/LevelMeter.h"
#include "recording/MicrophoneRecorder.h"
#include "recording/RecordingFinisher.h"
#include "recording/RecordingFlags.h"
#include "recording/SystemAudioRecorder.h"
#include "recording/TranscriptPaster.h"
#include "storage/FileStorageManager.h"

namespace vocle {

class SystemAudioController;
class BluetoothAudioRouteManager;

// Everything the engine talks to. The system-audio queue is where sample blocks are written; in
// production a SerialThreadQueue named "app.vocleapp.Vocle.SCStreamAudioQueue".
struct AudioRecordingServiceDependencies {
    MainQueue& mainQueue;
    Capture& capture;
    ScreenCapture& screenCapture;
    SystemAudioController& systemAudio;
    BluetoothAudioRouteManager& routeManager;
    RecordingProcessor& processor;
    TranscriptPaster& paster;
    Alerts& alerts;
    const FileStorageManager& storage;
    NotificationCenter& notifications;
    DispatchQueue& systemAudioQueue;
    std::filesystem::path temporaryDirectory;
    // Uniform real in [0, 1) for the bar jitter; a default generator when empty.
    std::function<double()> random = {};
    // Microphone-only recordings are streamed to it as they are captured; none: every recording goes
    // whole to `processor`.
    LiveTranscriber* liveTranscriber = nullptr;
};

// The recording engine: starts microphone (and optionally system audio) capture, meters the level,
// applies the speech threshold and timeouts, and coordinates stop and cancel. Capture, metering
// arithmetic and the mix-and-hand-off are its collaborators'; the life cycle lives here, in boolean
// flags, not in one state enum. Main queue only.
class AudioRecordingService {
  public:
    explicit AudioRecordingService(AudioRecordingServiceDependencies deps);
    ~AudioRecordingService();
    AudioRecordingService(const AudioRecordingService&) = delete;
    AudioRecordingService& operator=(const AudioRecordingService&) = delete;

    // Published state; every write publishes (observers that need the main queue ask for it).
    Observable<bool> isRecording{false};
    Observable<bool> isProcessing{false};
    Observable<std::string> processedText{""};
    Observable<std::vector<float>> audioLevels{std::vector<float>{0, 0, 0}};
    Observable<std::optional<std::string>> errorMessage;
    // The recogniser's best text so far while a streamed recording runs; emptied at each start.
    Observable<std::string> partialText{""};

    void setRecordingContext(const Mode& mode, const std::string& vocabulary,
                             const std::vector<Replacement>& replacements);
    // Refused at once, with errorMessage set, when nothing could be heard (inputProblem()).
    void startRecording();
    // Why a recording now would hear nothing: no sound server, or no input device on it. Asks the
    // sound server, so it follows a server or a microphone that comes and goes.
    std::optional<std::string> inputProblem() const;
    static constexpr const char* kNoSoundServerMessage =
        "Vocle cannot hear anything: no sound server is running. Start PipeWire or PulseAudio (for example "
        "with \"systemctl --user start pipewire-pulse\"), then try again.";
    static constexpr const char* kNoInputDeviceMessage =
        "Vocle cannot hear anything: no microphone was found. Connect a microphone or turn on an input "
        "device in your sound settings, then try again.";
    void stopRecording();
    void cancelRecording();

    // Callbacks of a file recorder; the recorder slot is never filled by a start path.
    void audioRecorderDidFinishRecording(bool successfully);
    void audioRecorderEncodeErrorDidOccur(const Error& error);

    // The private life-cycle flags, read-only for diagnostics and tests.
    using Flags = RecordingFlags;
    const Flags& flags() const { return f_; }
    bool hasCaptureSession() const { return mic_.hasSession(); }
    bool hasSystemAudioStream() const { return sys_.hasStream(); }
    bool isLevelTimerRunning() const { return levelTimer_.isActive(); }
    bool isStreaming() const { return f_.liveStream != nullptr; }
    bool isAbandonedTimerArmed() const { return abandonedRecordingTimer_.isActive(); }
    bool isActiveTimerArmed() const { return activeRecordingTimer_.isActive(); }

    static constexpr Seconds kLevelInterval{0.05};
    static constexpr float kLevelFloor = -60.0f;
    static constexpr float kSpeechThreshold = -40.0f;
    static constexpr Seconds kAbandonedTimeout{60.0};
    static constexpr Seconds kActiveTimeout{600.0};
    static constexpr Seconds kShortRecordingLimit{0.4};
    static constexpr Seconds kRouteRestoreDelay{0.6};
    // The microphone starts a little after the decision to record, so the device is not reconfigured
    // under a start that is still settling.
    static constexpr Seconds kMicrophoneStartDelay{0.2};
    static constexpr Seconds kParallelMicrophoneStartDelay{0.1};
    static constexpr Seconds kMicrophoneAfterSystemAudioDelay{0.15};
    static constexpr Seconds kMicrophoneFallbackDelay{0.2};
    static constexpr const char* kNoMicrophoneMessage = MicrophoneRecorder::kNoMicrophoneMessage;

  private:
    void continueWithRecording();
    void resetCaptureState();
    void playStartSoundByModeRule();
    // A path in the temporary directory, with any file left there from an earlier run removed.
    std::filesystem::path freshTemporaryFile(const std::string& name) const;

    void startMicrophoneCapture();
    void startMicrophoneUnlessCancelled();
    void micFileDidFinish(std::optional<Error> error);
    void startLiveStream();
    void cancelLiveStream();

    void startSystemAudioCapture();
    void onSystemAudioStarted();
    void onSystemAudioStartFailed(const Error& error);
    void abortSystemAudioStart();
    void fallBackToMicrophoneOnlySoon();

    void startLevelTimer();
    void stopLevelTimer();
    void updateAudioLevels();
    void applyLevels(const LevelReading& reading);
    void scheduleAbandonedRecordingTimeout();
    void scheduleActiveRecordingTimeout();
    void showRecordingLimitAlert();

    enum class StreamStop { coordinated, streamOnly, duringCancel };
    void stopSystemStream(StreamStop kind);
    void scheduleRouteRestore();
    void maybeMixAndProcess();

    AudioRecordingServiceDependencies d_;
    Flags f_;
    RecordingContext context_;

    MicrophoneRecorder mic_;
    SystemAudioRecorder sys_;
    RecordingFinisher finisher_;
    bool audioRecorder_ = false;  // the recorder slot; no start path fills it

    Timer levelTimer_;
    Timer abandonedRecordingTimer_;
    Timer activeRecordingTimer_;

    OwnerToken token_;  // last: destroyed first, so deferred work stops before the members go
};

}  // namespace vocle
