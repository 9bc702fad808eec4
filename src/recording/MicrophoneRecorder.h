#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "foundation/Error.h"
#include "foundation/MainQueue.h"
#include "foundation/OwnerToken.h"
#include "platform/capture.h"

namespace vocle {

class BluetoothAudioRouteManager;
class FileStorageManager;

// The microphone capture session and its file output: picks the input from the settings, starts the
// session, then starts the file once its channels report (or anyway after a bounded wait). Main queue
// only.
class MicrophoneRecorder {
  public:
    using FileFinished = std::function<void(std::optional<Error>)>;

    MicrophoneRecorder(MainQueue& mainQueue, Capture& capture, BluetoothAudioRouteManager& routeManager,
                       const FileStorageManager& storage);
    ~MicrophoneRecorder();

    // Starts the session and, when there is a target, the file output a little later. Problems the user
    // should see go to `reportError`; returns false when no session could be set up. `finished` runs on
    // the main queue when the file is complete.
    bool start(std::optional<std::filesystem::path> target, std::function<void(std::string)> reportError,
               FileFinished finished);
    // Hands every block written to the file to `tap` as well (on the capture thread); false when the
    // output cannot, or there is none.
    bool tapSamples(CaptureFileOutput::SampleTap tap);
    // Asks the file output to finish its file.
    void stopOutput();
    // Stops the session; when `announce`, says that the file is written.
    void stopSession(bool announce);
    // Drops session and output.
    void release();
    // Stops whatever still runs from an earlier recording and drops it.
    void reset();

    bool hasSession() const { return session_ != nullptr; }
    bool hasOutput() const { return output_ != nullptr; }
    // The microphone level, while the session runs.
    std::optional<float> level() const;

    static constexpr const char* kNoMicrophoneMessage =
        "No microphone found. Connect one or choose another input device in Settings.";
    static constexpr int kReadyAttempts = 30;
    static constexpr Seconds kReadyInterval{0.05};
    static constexpr Seconds kOutputStartDelay{0.12};
    // How long after its start the file output's state is logged.
    static constexpr Seconds kOutputCheckDelay{0.3};

  private:
    void startWhenReady(std::shared_ptr<CaptureFileOutput> output, std::filesystem::path url,
                        int attemptsLeft);
    void startFile(const std::shared_ptr<CaptureFileOutput>& output, const std::filesystem::path& url,
                   bool fallback);

    MainQueue& mainQueue_;
    Capture& capture_;
    BluetoothAudioRouteManager& routeManager_;
    const FileStorageManager& storage_;
    std::shared_ptr<CaptureSession> session_;
    std::shared_ptr<CaptureFileOutput> output_;
    FileFinished finished_;
    OwnerToken token_;
};

}  // namespace vocle
