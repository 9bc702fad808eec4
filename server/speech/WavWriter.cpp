#include "speech/WavWriter.h"

namespace vocle::server {

namespace {
void put32(std::string& out, uint32_t v) {
    for (int i = 0; i < 4; ++i) out.push_back(static_cast<char>((v >> (8 * i)) & 0xff));
}
void put16(std::string& out, uint16_t v) {
    out.push_back(static_cast<char>(v & 0xff));
    out.push_back(static_cast<char>(v >> 8));
}
}  // namespace

std::string encodeWav(const std::vector<int16_t>& samples, int sampleRate) {
    const auto dataBytes = static_cast<uint32_t>(samples.size() * 2);
    std::string out;
    out.reserve(44 + dataBytes);
    out += "RIFF";
    put32(out, 36 + dataBytes);
    out += "WAVEfmt ";
    put32(out, 16);
    put16(out, 1);  // PCM
    put16(out, 1);  // mono
    put32(out, static_cast<uint32_t>(sampleRate));
    put32(out, static_cast<uint32_t>(sampleRate * 2));
    put16(out, 2);
    put16(out, 16);
    out += "data";
    put32(out, dataBytes);
    for (int16_t s : samples) put16(out, static_cast<uint16_t>(s));
    return out;
}

}  // namespace vocle::server
