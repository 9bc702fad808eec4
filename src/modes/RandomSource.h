#pragma once

#include <mutex>
#include <random>

namespace vocle {

// Where the log throttles draw their numbers; tests inject a predictable one.
class RandomSource {
  public:
    virtual ~RandomSource() = default;
    // A uniformly drawn integer in [0, upperInclusive]. Thread-safe.
    virtual int next(int upperInclusive) = 0;
};

class SystemRandomSource final : public RandomSource {
  public:
    SystemRandomSource() : engine_(std::random_device{}()) {}
    int next(int upperInclusive) override {
        std::lock_guard lock(mutex_);
        return std::uniform_int_distribution<int>(0, upperInclusive)(engine_);
    }

  private:
    std::mutex mutex_;
    std::mt19937 engine_;
};

}  // namespace vocle
