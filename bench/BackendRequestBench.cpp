// Builds the transcription request for a 10 MB recording and reports its cost: time against one plain
// Base64 pass over the same bytes, and the peak of live heap bytes while BackendService.transcribeAudio
// builds the body (target: the recording plus its encoded body, i.e. no third copy of the audio).
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <new>
#include <random>
#include <string>

#include "backend/BackendService.h"
#include "backend/TranscriptionClient.h"
#include "foundation/Base64.h"
#include "foundation/Log.h"
#include "foundation/VirtualMainQueue.h"
#include "storage/DataFolder.h"
#include "storage/SessionStore.h"

namespace {

std::atomic<size_t> liveBytes{0};
std::atomic<size_t> peakBytes{0};

void track(size_t n) {
    const size_t now = liveBytes.fetch_add(n) + n;
    size_t peak = peakBytes.load();
    while (now > peak && !peakBytes.compare_exchange_weak(peak, now)) {
    }
}

class Silent final : public vocle::LogSink {
    void write(std::string_view) override {}
};

template <class F>
double bestOf(int rounds, F&& f) {
    double best = 1e9;
    for (int i = 0; i < rounds; ++i) {
        const auto start = std::chrono::steady_clock::now();
        f();
        best =
            std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    return best;
}

}  // namespace

// Every allocation carries its size in front so that frees can be counted.
void* operator new(size_t n) {
    auto* p = static_cast<size_t*>(std::malloc(n + sizeof(std::max_align_t)));
    if (!p) throw std::bad_alloc();
    *p = n;
    track(n);
    return reinterpret_cast<char*>(p) + sizeof(std::max_align_t);
}
void operator delete(void* p) noexcept {
    if (!p) return;
    auto* base = reinterpret_cast<size_t*>(static_cast<char*>(p) - sizeof(std::max_align_t));
    liveBytes.fetch_sub(*base);
    std::free(base);
}
void operator delete(void* p, size_t) noexcept {
    operator delete(p);
}

int main() {
    constexpr size_t kAudioBytes = 10 * 1000 * 1000;
    vocle::setLogSink(std::make_shared<Silent>());
    std::string audio(kAudioBytes, '\0');
    std::mt19937 rng(3);
    for (auto& c : audio) c = static_cast<char>(rng());
    vocle::Mode mode = vocle::Mode::fresh("Default");
    const std::vector<vocle::Replacement> replacements{vocle::Replacement::make("period", ".")};

    // Time: the whole body against a bare Base64 pass.
    std::string encoded(vocle::base64::encodedSize(audio.size()), '\0');
    const double encodeOnly =
        bestOf(5, [&] { vocle::base64::encodeInto(audio.data(), audio.size(), encoded.data()); });
    size_t bodySize = 0;
    const double body = bestOf(5, [&] {
        bodySize =
            vocle::TranscriptionClient::transcriptionBody(audio, mode, "Vocle, libcurl", replacements).size();
    });

    // Memory: the real call, which consumes the recording and keeps the body for its retries.
    const auto dir =
        std::filesystem::temp_directory_path() / ("vocle-bench-request-" + std::to_string(::getpid()));
    size_t peakOverBaseline = 0;
    {
        vocle::VirtualMainQueue queue;
        vocle::FileStorageManager files(vocle::DataFolder(dir), queue);
        vocle::SessionStore sessions(files);
        sessions.save(vocle::SupabaseSession{"a", "r", "u", "e@x.org"});
        vocle::BackendService backend("http://127.0.0.1:9", "bench", queue, sessions, files.deviceId());
        std::string recording = audio;             // what the upload pipeline reads from disk
        const size_t baseline = liveBytes.load();  // includes the recording itself
        peakBytes = baseline;
        auto call = vocle::TranscriptionClient(backend).transcribeAudio(std::move(recording), mode, "Vocle, libcurl",
                                                                 replacements, [](auto) {});
        peakOverBaseline = peakBytes.load() - baseline;
    }
    std::filesystem::remove_all(dir);

    const size_t encodedSize = vocle::base64::encodedSize(kAudioBytes);
    const double copiesHeld = double(kAudioBytes + peakOverBaseline) / double(kAudioBytes);
    const bool memoryOk = peakOverBaseline <= encodedSize + 256 * 1024;
    const double passes = body / encodeOnly;
    std::printf("recording: %zu bytes, body: %zu bytes\n", kAudioBytes, bodySize);
    std::printf("build body: %.2f ms, one Base64 pass: %.2f ms -> %.2f passes' worth\n", body * 1e3,
                encodeOnly * 1e3, passes);
    std::printf(
        "transcribeAudio peak heap over the recording: %zu bytes (Base64 body alone: %zu) -> %.2fx the "
        "audio held at the peak\n",
        peakOverBaseline, encodedSize, copiesHeld);
    std::printf("memory: %s (recording + body, no third copy); time: %s (< 1.5 passes)\n",
                memoryOk ? "PASS" : "FAIL", passes < 1.5 ? "PASS" : "FAIL");
    return memoryOk && passes < 1.5 ? 0 : 1;
}
