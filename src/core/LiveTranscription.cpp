#include "core/LiveTranscription.h"

namespace vocle {

void PcmBuffer::append(const int16_t* samples, size_t count) {
    std::lock_guard lock(mutex_);
    if (closed_) return;
    const auto* bytes = reinterpret_cast<const char*>(samples);
    // s16le on the wire; every Linux target we build for is little-endian.
    bytes_.append(bytes, count * sizeof(int16_t));
    appended_ += count;
}

std::string PcmBuffer::take() {
    std::lock_guard lock(mutex_);
    std::string out;
    out.swap(bytes_);
    return out;
}

void PcmBuffer::close(bool discard) {
    std::lock_guard lock(mutex_);
    closed_ = true;
    if (discard) std::string().swap(bytes_);
}

uint64_t PcmBuffer::appendedSamples() const {
    std::lock_guard lock(mutex_);
    return appended_;
}

}  // namespace vocle
