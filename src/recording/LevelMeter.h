#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <vector>

#include "platform/capture.h"

namespace vocle {

// One meter reading: the optional source levels and what the indicator is drawn from.
struct LevelReading {
    std::optional<float> mic;
    std::optional<float> sys;
    float peak = -60.0f;
    float level = -60.0f;  // combined, dB in [-60, 0]
    float normalized = 0;  // 0…1
};

// The level arithmetic of the recording engine, free of timers and state so that each rule is tested
// on numbers alone.
class LevelMeter {
  public:
    static constexpr float kFloor = -60.0f;
    static constexpr double kAmplitudeFloor = 1e-6;

    // Mean of the per-channel dB readings of every connection; nothing when no channel reports.
    static std::optional<float> microphoneLevel(const std::vector<CaptureConnection>& connections);
    // Sources are added as amplitudes, not powers; with neither, the level is the floor.
    static LevelReading combine(std::optional<float> mic, std::optional<float> sys);
    // The largest of the peak and the source levels present.
    static float loudest(const LevelReading& reading);
    // 20·log10 of the mean square (not of the RMS) over interleaved float samples, clamped to [-60, 0];
    // the speech threshold is set against this scale.
    static float meanSquareDb(const float* samples, size_t frames, int channels);
    // A bar height: `random` is uniform in [0, 1) and becomes a factor in [0.8, 1.2).
    static float bar(float normalized, double random);
    // A uniform generator in [0, 1) for the bar jitter.
    static std::function<double()> defaultRandom();
};

}  // namespace vocle
