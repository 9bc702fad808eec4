// Converts 600 s of 48 kHz mono WAV with AudioFormatConverter and with the ffmpeg command line
// (`-c:a aac -b:a 128k`) on the same file in the same run; fails when ours is slower than 1.1x.
#include <sndfile.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "backend/AudioFormatConverter.h"
#include "foundation/Log.h"

namespace fs = std::filesystem;

namespace {

class Silent final : public vocle::LogSink {
    void write(std::string_view) override {}
};

bool writeSpeechLikeWav(const fs::path& path, int rate, int seconds) {
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE* f = sf_open(path.c_str(), SFM_WRITE, &info);
    if (!f) return false;
    std::mt19937 rng(1);
    std::normal_distribution<double> noise(0.0, 1.0);
    std::vector<short> block(static_cast<size_t>(rate));
    double low = 0;
    for (int s = 0; s < seconds; ++s) {
        for (size_t i = 0; i < block.size(); ++i) {
            // Low-passed noise with a syllable-rate envelope: busy enough to keep the encoder honest.
            low = 0.85 * low + 0.15 * noise(rng);
            const double t = static_cast<double>(s) + static_cast<double>(i) / rate;
            const double envelope = 0.55 + 0.45 * std::sin(2 * 3.14159265 * 4.0 * t);
            block[i] = static_cast<short>(std::clamp(low * envelope * 9000.0, -32000.0, 32000.0));
        }
        sf_write_short(f, block.data(), static_cast<sf_count_t>(block.size()));
    }
    sf_close(f);
    return true;
}

template <class F>
double seconds(F&& f) {
    const auto start = std::chrono::steady_clock::now();
    f();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
    const int rounds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 3;
    vocle::setLogSink(std::make_shared<Silent>());
    const fs::path dir = fs::temp_directory_path() / ("vocle-bench-conversion-" + std::to_string(::getpid()));
    fs::create_directories(dir);
    const fs::path wav = dir / "speech600.wav";
    if (!writeSpeechLikeWav(wav, 48000, 600)) {
        std::fprintf(stderr, "cannot write %s\n", wav.c_str());
        return 2;
    }
    const std::string command = "ffmpeg -nostdin -v error -y -i '" + wav.string() + "' -c:a aac -b:a 128k '" +
                                (dir / "ffmpeg.m4a").string() + "'";

    std::vector<double> ours, theirs;
    for (int r = 0; r < rounds; ++r) {
        // Alternate so that cache and frequency effects hit both sides alike.
        theirs.push_back(seconds([&] {
            if (std::system(command.c_str()) != 0) {
                std::fprintf(stderr, "ffmpeg failed\n");
                std::exit(2);
            }
        }));
        ours.push_back(seconds([&] {
            try {
                vocle::AudioFormatConverter().convertToMP3(wav, dir / "ours.m4a");
            } catch (const std::exception& e) {
                std::fprintf(stderr, "conversion failed: %s\n", e.what());
                std::exit(2);
            }
        }));
    }
    const double a = median(ours), b = median(theirs);
    const double ratio = a / b;
    std::printf("input: 600 s, 48000 Hz mono WAV, %ju bytes\n", static_cast<uintmax_t>(fs::file_size(wav)));
    std::printf("AudioFormatConverter: median %.3f s over %d rounds -> %ju bytes\n", a, rounds,
                static_cast<uintmax_t>(fs::file_size(dir / "ours.m4a")));
    std::printf("ffmpeg -c:a aac -b:a 128k: median %.3f s -> %ju bytes\n", b,
                static_cast<uintmax_t>(fs::file_size(dir / "ffmpeg.m4a")));
    std::printf("ratio %.3f (target <= 1.10): %s\n", ratio, ratio <= 1.10 ? "PASS" : "FAIL");
    fs::remove_all(dir);
    return ratio <= 1.10 ? 0 : 1;
}
