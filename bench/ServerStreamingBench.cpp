// Dictations streamed to vocle-server at speaking pace against the same audio uploaded whole: stop to
// text, partial lag behind speech, server CPU per audio second, and the word difference of the two roads.
// Targets: stop to text p50 <= 0.5 s for the 5 s and the 30 s utterance, streamed result within a WER of
// 0.02 of the whole file. Exit status 1 when missed.
#include <sndfile.h>
#include <sys/resource.h>

#include <cstdio>
#include <iostream>
#include <thread>

#include "ServerBenchSupport.h"
#include "foundation/Base64.h"
#include "foundation/Clock.h"
#include "support/WordErrors.h"

using namespace vocle;
using vocle::testing::wordErrors;
using vocle::testing::words;
using SteadyClock = std::chrono::steady_clock;

namespace {

const std::filesystem::path kClips = "/usr/share/pocketsphinx/test/data/librivox";

std::vector<int16_t> readClip(const std::string& name) {
    SF_INFO info{};
    SNDFILE* file = sf_open((kClips / (name + ".wav")).c_str(), SFM_READ, &info);
    if (!file) throw std::runtime_error("cannot read " + name);
    std::vector<int16_t> pcm(static_cast<size_t>(info.frames));
    sf_read_short(file, pcm.data(), info.frames);
    sf_close(file);
    return pcm;
}

double cpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// A WAV of 16 kHz mono samples, as the app's fallback road uploads (the AAC step is the client's).
std::string wavBytes(const std::vector<int16_t>& pcm) {
    auto le = [](std::string& out, uint32_t v, int bytes) {
        for (int i = 0; i < bytes; ++i) out.push_back(static_cast<char>((v >> (8 * i)) & 0xff));
    };
    std::string out = "RIFF";
    le(out, static_cast<uint32_t>(36 + pcm.size() * 2), 4);
    out += "WAVEfmt ";
    le(out, 16, 4);
    le(out, 1, 2);
    le(out, 1, 2);
    le(out, 16000, 4);
    le(out, 32000, 4);
    le(out, 2, 2);
    le(out, 16, 2);
    out += "data";
    le(out, static_cast<uint32_t>(pcm.size() * 2), 4);
    for (int16_t s : pcm) le(out, static_cast<uint16_t>(s), 2);
    return out;
}

struct Road {
    std::vector<double> stopToText;  // seconds
    std::vector<double> partialLag;  // seconds
    double cpu = 0;
    double audio = 0;
    size_t errors = 0;
    size_t refWords = 0;
};

const Json kOptions = {
    {"mode", {{"id", "M"}, {"name", "Default"}, {"type", "Clean"}, {"prompt", ""}, {"language", "en"}}},
    {"vocab_words", "Dashwood, John"},
    {"text_replacements", Json::array({{{"from", "new line"}, {"to", "\n"}}})}};

}  // namespace

int main(int argc, char** argv) {
    const int rounds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 3;
    server::ServerConfig config = bench::benchConfig();
    config.modelDir = VOCLE_POCKETSPHINX_MODEL_DIR;
    config.speechWorkers = 2;
    SystemClock clock;
    server::ServerApp app(config, clock);
    const int port = app.start();
    const std::string authorization = bench::signIn(config, port, "bench@example.com");
    const httplib::Headers headers = {{"Authorization", authorization}};

    struct Utterance {
        std::string label;
        std::vector<int16_t> pcm;
    };
    std::vector<Utterance> utterances(2);
    utterances[0] = {"5 s", readClip("sense_and_sensibility_01_austen_64kb-0890")};
    utterances[1].label = "30 s";
    for (const char* clip : {"0870", "0880", "0890", "0920", "0930", "0870"}) {
        const auto pcm = readClip(std::string("sense_and_sensibility_01_austen_64kb-") + clip);
        utterances[1].pcm.insert(utterances[1].pcm.end(), pcm.begin(), pcm.end());
    }

    bool met = true;
    std::printf("%d rounds per utterance, 250 ms chunks at speaking pace, pocketsphinx with 2 decoders\n",
                rounds);
    for (const Utterance& u : utterances) {
        const double seconds = static_cast<double>(u.pcm.size()) / 16000.0;
        Road streamed, whole;
        Json wholeBody = kOptions;
        wholeBody["audio"] = base64::encode(wavBytes(u.pcm));
        const std::string wholeText = toCompactJson(wholeBody);
        for (int round = 0; round < rounds; ++round) {
            // The design's road: the whole recording after the stop.
            httplib::Client plain("127.0.0.1", port);
            plain.set_read_timeout(300, 0);
            double cpu = cpuSeconds();
            auto start = SteadyClock::now();
            auto r = plain.Post("/transcribe", headers, wholeText, "application/json");
            whole.stopToText.push_back(bench::millisecondsSince(start) / 1000);
            whole.cpu += cpuSeconds() - cpu;
            whole.audio += seconds;
            if (!r || r->status != 200) {
                std::cerr << "POST /transcribe failed\n";
                return 2;
            }
            const std::string reference = parseJson(r->body).at("transcript");

            // The streaming road: one keep-alive connection, one request in flight.
            httplib::Client http("127.0.0.1", port);
            http.set_keep_alive(true);
            http.set_read_timeout(300, 0);
            Json open = kOptions;
            open["sample_rate"] = 16000;
            open["channels"] = 1;
            open["encoding"] = "s16le";
            cpu = cpuSeconds();
            auto opened = http.Post("/transcribe/stream", headers, toCompactJson(open), "application/json");
            if (!opened || opened->status != 200) {
                std::cerr << "POST /transcribe/stream failed\n";
                return 2;
            }
            const std::string id = parseJson(opened->body).at("stream_id");
            const auto began = SteadyClock::now();
            constexpr size_t kChunk = 4000;
            size_t seq = 0;
            for (size_t at = 0; at < u.pcm.size(); at += kChunk, ++seq) {
                const size_t n = std::min(kChunk, u.pcm.size() - at);
                // The chunk is sent once its last sample has been "captured".
                const auto captured = began + std::chrono::microseconds((at + n) * 1'000'000 / 16000);
                std::this_thread::sleep_until(captured);
                std::string bytes(reinterpret_cast<const char*>(u.pcm.data() + at), n * 2);
                auto c = http.Post(("/transcribe/stream/" + id + "/audio?seq=" + std::to_string(seq)).c_str(),
                                   headers, bytes, "application/octet-stream");
                if (!c || c->status != 200) {
                    std::cerr << "audio chunk failed\n";
                    return 2;
                }
                streamed.partialLag.push_back(
                    std::chrono::duration<double>(SteadyClock::now() - captured).count());
            }
            const auto stop = began + std::chrono::microseconds(u.pcm.size() * 1'000'000 / 16000);
            auto ended =
                http.Post(("/transcribe/stream/" + id + "/end").c_str(), headers, "", "application/json");
            streamed.stopToText.push_back(std::chrono::duration<double>(SteadyClock::now() - stop).count());
            streamed.cpu += cpuSeconds() - cpu;
            streamed.audio += seconds;
            if (!ended || ended->status != 200) {
                std::cerr << "stream end failed\n";
                return 2;
            }
            const auto ref = words(reference);
            streamed.refWords += ref.size();
            streamed.errors += wordErrors(ref, words(parseJson(ended->body).at("transcript")));
        }
        const double wer = static_cast<double>(streamed.errors) /
                           static_cast<double>(std::max<size_t>(1, streamed.refWords));
        const double p50 = bench::percentile(streamed.stopToText, 0.5);
        std::printf("%s utterance (%.1f s of audio)\n", u.label.c_str(), seconds);
        std::printf("  whole file:  stop to text p50 %.3f s, p95 %.3f s; CPU %.3f s per audio second\n",
                    bench::percentile(whole.stopToText, 0.5), bench::percentile(whole.stopToText, 0.95),
                    whole.cpu / whole.audio);
        std::printf(
            "  streamed:    stop to text p50 %.3f s, p95 %.3f s (target p50 <= 0.5 s: %s); partial lag "
            "p50 %.3f s, p95 %.3f s; CPU %.3f s per audio second\n",
            p50, bench::percentile(streamed.stopToText, 0.95), p50 <= 0.5 ? "met" : "MISSED",
            bench::percentile(streamed.partialLag, 0.5), bench::percentile(streamed.partialLag, 0.95),
            streamed.cpu / streamed.audio);
        std::printf(
            "  WER of the streamed result against the whole file: %.3f (%zu of %zu words; target <= 0.02: "
            "%s)\n",
            wer, streamed.errors, streamed.refWords, wer <= 0.02 ? "met" : "MISSED");
        met = met && p50 <= 0.5 && wer <= 0.02;
    }
    app.stop();
    std::filesystem::remove_all(config.dataDir);
    return met ? 0 : 1;
}
