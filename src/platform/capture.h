#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "foundation/Error.h"

namespace vocle {

// Microphone capture: a session with one input device and one file output that writes a WAV file.
// Calls are made on the main queue and every callback arrives there, after the call that asked for it
// has returned.

enum class MicrophoneAuthorization { notDetermined, restricted, denied, authorized };

// Whether anything can be heard at all: a sound server to talk to, and an input device on it.
enum class InputAvailability { available, noSoundServer, noInputDevice };

struct CaptureDevice {
    std::string uid;   // persistent identifier (the PulseAudio source name)
    std::string name;  // what the user sees (the source description)
};

// One connection of a file output; each audio channel reports its average power in dB over the
// latest block of samples.
struct CaptureConnection {
    bool enabled = true;
    std::vector<float> channelAveragePowerDb;
};

class CaptureFileOutput {
public:
    using DidFinish = std::function<void(std::optional<Error>)>;
    virtual ~CaptureFileOutput() = default;

    virtual std::vector<CaptureConnection> connections() const = 0;
    // Starts writing `file` as WAV. `didFinish` is called exactly once after stopRecording(), on the main
    // queue, with an error when the file may be incomplete.
    virtual void startRecording(const std::filesystem::path& file, DidFinish didFinish) = 0;
    virtual bool isRecording() const = 0;
    virtual void stopRecording() = 0;

    // Sees every block that goes into the file, after the level is taken from it, on the capture thread
    // (interleaved float samples at the device's rate). Set before startRecording. False when the
    // platform cannot offer the samples.
    using SampleTap = std::function<void(const float* interleaved, size_t frames, int channels, double rate)>;
    virtual bool setSampleTap(SampleTap tap) {
        (void)tap;
        return false;
    }
};

class CaptureSession {
public:
    virtual ~CaptureSession() = default;

    // Makes the input for a device; an error when it cannot be opened.
    virtual std::optional<Error> createInput(const CaptureDevice& device) = 0;
    // Adds the input made last; false when the session refuses it.
    virtual bool addInput() = 0;
    virtual bool addOutput(std::shared_ptr<CaptureFileOutput> output) = 0;
    // Drops every input and output (the preflight reset).
    virtual void removeAll() = 0;
    virtual void startRunning() = 0;
    virtual void stopRunning() = 0;
    virtual bool isRunning() const = 0;
};

class Capture {
public:
    virtual ~Capture() = default;

    virtual MicrophoneAuthorization authorizationStatus() const = 0;
    // Asks the sound server now (it may have gone or come back since the last call).
    virtual InputAvailability inputAvailability() const { return InputAvailability::available; }
    // The answer arrives on the main queue.
    virtual void requestAccess(std::function<void(bool granted)> completion) = 0;

    virtual std::optional<CaptureDevice> device(const std::string& uid) const = 0;
    virtual std::optional<CaptureDevice> defaultDevice() const = 0;
    virtual std::vector<CaptureDevice> devices() const = 0;

    // Null when the platform cannot make one.
    virtual std::shared_ptr<CaptureSession> makeSession() = 0;
    virtual std::shared_ptr<CaptureFileOutput> makeFileOutput() = 0;
};

}  // namespace vocle
