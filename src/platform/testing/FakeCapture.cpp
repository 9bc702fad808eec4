#include "platform/testing/FakeCapture.h"

#include <sndfile.h>

namespace vocle::testing {

std::vector<CaptureConnection> FakeCaptureFileOutput::connections() const {
    ++checks;
    CaptureConnection c;
    c.enabled = connectionEnabled;
    const bool isReady = ready ? ready() : (channelsReadyOnCheck > 0 && checks >= channelsReadyOnCheck);
    if (isReady) c.channelAveragePowerDb = channelPowerDb;
    return {c};
}

void FakeCaptureFileOutput::startRecording(const std::filesystem::path& file, DidFinish didFinish) {
    ++startCount;
    recording_ = true;
    recordingTo = file;
    didFinish_ = std::move(didFinish);
}

void FakeCaptureFileOutput::stopRecording() {
    ++stopCount;
    if (!recording_) return;
    recording_ = false;
    if (writeFileOnStop && recordingTo) {
        SF_INFO info{};
        info.samplerate = fileRate;
        info.channels = 1;
        info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
        if (SNDFILE* f = sf_open(recordingTo->c_str(), SFM_WRITE, &info)) {
            std::vector<float> samples(fileFrames, fileSample);
            sf_writef_float(f, samples.data(), static_cast<sf_count_t>(samples.size()));
            sf_close(f);
        }
    }
    if (finishOnStop) finish(finishError);
}

void FakeCaptureFileOutput::feed(const std::vector<float>& interleaved, int channels, double rate) {
    if (recording_ && tap)
        tap(interleaved.data(), interleaved.size() / static_cast<size_t>(channels), channels, rate);
}

void FakeCaptureFileOutput::finish(std::optional<Error> error) {
    if (auto f = std::exchange(didFinish_, nullptr)) f(std::move(error));
}

std::optional<Error> FakeCaptureSession::createInput(const CaptureDevice& device) {
    if (inputError) return inputError;
    input = device;
    return std::nullopt;
}

bool FakeCaptureSession::addInput() {
    inputAdded = acceptInput;
    return acceptInput;
}

bool FakeCaptureSession::addOutput(std::shared_ptr<CaptureFileOutput> out) {
    if (!acceptOutput) return false;
    output = std::move(out);
    return true;
}

void FakeCaptureSession::removeAll() {
    ++removeAllCount;
    input.reset();
    inputAdded = false;
    output.reset();
}

void FakeCapture::requestAccess(std::function<void(bool)> completion) {
    ++accessRequests;
    if (accessAnswer) return completion(*accessAnswer);
    pendingAccess_ = std::move(completion);
}

void FakeCapture::answerAccess(bool granted) {
    if (auto f = std::exchange(pendingAccess_, nullptr)) f(granted);
}

std::optional<CaptureDevice> FakeCapture::device(const std::string& uid) const {
    for (const auto& d : devices())
        if (d.uid == uid) return d;
    return std::nullopt;
}

std::optional<CaptureDevice> FakeCapture::defaultDevice() const {
    return defaultUid ? device(*defaultUid) : std::nullopt;
}

std::shared_ptr<CaptureSession> FakeCapture::makeSession() {
    if (failSessions) return nullptr;
    auto s = std::make_shared<FakeCaptureSession>();
    if (configureSession) configureSession(*s);
    sessions.push_back(s);
    return s;
}

std::shared_ptr<CaptureFileOutput> FakeCapture::makeFileOutput() {
    if (failSessions) return nullptr;
    auto o = std::make_shared<FakeCaptureFileOutput>();
    if (configureOutput) configureOutput(*o);
    outputs.push_back(o);
    return o;
}

}  // namespace vocle::testing
