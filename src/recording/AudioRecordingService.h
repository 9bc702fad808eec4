#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/Mode.h"
#include "core/Replacement.h"
#include "foundation/DispatchQueue.h"
#include "foundation/MainQueue.h"
#include "foundation/NotificationCenter.h"
#include "foundation/OwnerToken.h"
#include "foundation/Signal.h"
#include "platform/alerts.h"
#include "platform/capture.h"
#include "platform/screen_capture.h"
#include "recording/RecordingProcessor.h"
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
};

// The recording engine: microphone (and optionally system audio) to WAV files, level metering, the
// speech threshold and timeouts, coordinated stop and cancel, mixing and the hand-off to the upload
// pipeline. Its life cycle lives in boolean flags, not in one state enum. Main queue only.
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

    void setRecordingContext(const Mode& mode, const std::string& vocabulary,
                             const std::vector<Replacement>& replacements);
    void startRecording();
    void stopRecording();
    void cancelRecording();

    // Callbacks of a file recorder; the recorder slot is never filled by a start path.
    void audioRecorderDidFinishRecording(bool successfully);
    void audioRecorderEncodeErrorDidOccur(const Error& error);

    // The private life-cycle flags, read-only for diagnostics and tests.
    struct Flags {
        std::optional<std::filesystem::path> audioFileURL;
        std::optional<std::filesystem::path> micFileURL;
        std::optional<std::filesystem::path> systemFileURL;
        std::optional<std::filesystem::path> micRecordingURLOverride;
        std::optional<std::filesystem::path> pendingOutputURL;
        bool isSystemCapturePlanned = false;
        bool micFinished = false;
        bool scFinished = false;
        bool didKickOffMicStart = false;
        bool isCancelled = false;
        bool isCleanupInProgress = false;
        std::optional<double> recordingStartTime;
        float maxObservedDBFS = -60.0f;
        bool hasExceededSpeechThreshold = false;
    };
    const Flags& flags() const { return f_; }
    bool hasCaptureSession() const { return captureSession_ != nullptr; }
    bool hasSystemAudioStream() const { return scStream_ != nullptr; }
    bool isLevelTimerRunning() const { return levelTimer_.isActive(); }
    bool isAbandonedTimerArmed() const { return abandonedRecordingTimer_.isActive(); }
    bool isActiveTimerArmed() const { return activeRecordingTimer_.isActive(); }

    static constexpr double kLevelInterval = 0.05;
    static constexpr float kLevelFloor = -60.0f;
    static constexpr float kSpeechThreshold = -40.0f;
    static constexpr double kAbandonedTimeout = 60.0;
    static constexpr double kActiveTimeout = 600.0;
    static constexpr double kShortRecordingLimit = 0.4;
    static constexpr double kRouteRestoreDelay = 0.6;
    static constexpr const char* kNoMicrophoneMessage =
        "No microphone found. Connect one or choose another input device in Settings.";

  private:
    struct SystemAudioSink;

    void continueWithRecording();
    void resetCaptureState();
    void playStartSoundByModeRule();
    std::filesystem::path temporaryFile(const std::string& name) const;
    void removeStaleFile(const std::filesystem::path& path);

    void startMicrophoneCapture();
    void startMicrophoneUnlessCancelled();
    void startFileOutputWhenReady(std::shared_ptr<CaptureFileOutput> output, std::filesystem::path url,
                                  int attemptsLeft, double interval);
    void startFileOutput(const std::shared_ptr<CaptureFileOutput>& output, const std::filesystem::path& url,
                         bool fallback);
    void micFileDidFinish(std::optional<Error> error);

    void startSystemAudioCapture();
    void onSystemAudioStarted();
    void onSystemAudioStartFailed(const Error& error);
    void fallBackToMicrophoneOnly();
    void dropLateSystemStream();

    void startLevelTimer();
    void stopLevelTimer();
    void updateAudioLevels();
    void applyLevels(std::optional<float> mic, std::optional<float> sys, float peak, float level,
                     float normalized);
    void scheduleAbandonedRecordingTimeout();
    void scheduleActiveRecordingTimeout();
    void showRecordingLimitAlert();

    enum class StreamStop { coordinated, streamOnly, duringCancel };
    void stopSystemStream(StreamStop kind);
    void scheduleRouteRestore();
    void maybeMixAndProcess();
    void finalizeWithSingle(std::optional<std::filesystem::path> url);
    std::optional<Error> mixAudioFiles(const std::filesystem::path& mic, const std::filesystem::path& system,
                                       const std::filesystem::path& output);
    void processRecording(const std::filesystem::path& url);

    AudioRecordingServiceDependencies d_;
    Flags f_;

    std::optional<Mode> selectedMode_;
    std::string vocabWords_;
    std::vector<Replacement> textReplacements_;

    std::shared_ptr<CaptureSession> captureSession_;
    std::shared_ptr<CaptureFileOutput> audioOutput_;
    std::shared_ptr<SystemAudioStream> scStream_;
    // Written by the sample handler on the system-audio queue, released on the main queue.
    std::shared_ptr<SystemAudioSink> scSink_;
    bool audioRecorder_ = false;  // the recorder slot; no start path fills it

    TimerHandle levelTimer_;
    TimerHandle abandonedRecordingTimer_;
    TimerHandle activeRecordingTimer_;

    OwnerToken token_;  // last: destroyed first, so deferred work stops before the members go
};

}  // namespace vocle
