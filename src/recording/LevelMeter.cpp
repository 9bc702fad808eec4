#include "recording/LevelMeter.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <random>

namespace vocle {

std::optional<float> LevelMeter::microphoneLevel(const std::vector<CaptureConnection>& connections) {
    double sum = 0;
    size_t count = 0;
    for (const auto& connection : connections) {
        for (float db : connection.channelAveragePowerDb) {
            sum += db;
            ++count;
        }
    }
    if (count == 0) return std::nullopt;
    return static_cast<float>(sum / static_cast<double>(count));
}

LevelReading LevelMeter::combine(std::optional<float> mic, std::optional<float> sys) {
    LevelReading r{mic, sys, kFloor, kFloor, 0};
    if (mic || sys) {
        double x = (mic ? std::pow(10.0, *mic / 20.0) : 0.0) + (sys ? std::pow(10.0, *sys / 20.0) : 0.0);
        x = std::max(x, kAmplitudeFloor);
        r.level = static_cast<float>(std::clamp(20.0 * std::log10(x), -60.0, 0.0));
    }
    r.normalized = std::clamp((r.level + 60.0f) / 60.0f, 0.0f, 1.0f);
    return r;
}

float LevelMeter::loudest(const LevelReading& reading) {
    float loudest = reading.peak;
    if (reading.mic) loudest = std::max(loudest, *reading.mic);
    if (reading.sys) loudest = std::max(loudest, *reading.sys);
    return loudest;
}

float LevelMeter::meanSquareDb(const float* samples, size_t frames, int channels) {
    if (channels <= 0) return kFloor;
    double sum = 0;
    for (int c = 0; c < channels; ++c) {
        double sq = 0;
        for (size_t i = 0; i < frames; ++i) {
            const double v = samples[i * channels + c];
            sq += v * v;
        }
        sum += frames ? sq / static_cast<double>(frames) : 0.0;
    }
    const double m = sum / channels;
    return static_cast<float>(std::clamp(20.0 * std::log10(std::max(m, 1e-7)), -60.0, 0.0));
}

float LevelMeter::bar(float normalized, double random) {
    return normalized * static_cast<float>(0.8 + 0.4 * random);
}

std::function<double()> LevelMeter::defaultRandom() {
    auto engine = std::make_shared<std::mt19937>(std::random_device{}());
    return [engine] { return std::uniform_real_distribution<double>(0.0, 1.0)(*engine); };
}

}  // namespace vocle
