// Server time for one transcription against the same engine run directly on the same audio.
// Target: server median within 1.15x of the direct median. Exit status 1 when missed.
#include <sndfile.h>

#include <cstdio>
#include <iostream>

#include "ServerBenchSupport.h"
#include "foundation/Base64.h"
#include "foundation/Clock.h"
#include "foundation/Log.h"
#include "speech/PocketsphinxEngine.h"

using namespace vocle;

int main(int argc, char** argv) {
    const int rounds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 5;
    const std::filesystem::path clip =
        "/usr/share/pocketsphinx/test/data/librivox/sense_and_sensibility_01_austen_64kb-0870.wav";

    server::ServerConfig config = bench::benchConfig();
    config.modelDir = VOCLE_POCKETSPHINX_MODEL_DIR;
    config.speechWorkers = 1;
    SystemClock clock;
    server::ServerApp app(config, clock);
    const int port = app.start();
    const std::string authorization = bench::signIn(config, port, "bench@example.com");

    SF_INFO info{};
    SNDFILE* file = sf_open(clip.c_str(), SFM_READ, &info);
    std::vector<int16_t> pcm(static_cast<size_t>(info.frames));
    sf_read_short(file, pcm.data(), info.frames);
    sf_close(file);
    ps_decoder_s* direct =
        server::PocketsphinxEngine::createDecoder(server::PocketsphinxModel::inFolder(config.modelDir));

    const std::string body = toCompactJson(Json{
        {"audio", base64::encode(bench::readAll(clip))},
        {"mode", {{"id", "M"}, {"name", "Default"}, {"type", "Clean"}, {"prompt", ""}, {"language", "en"}}},
        {"vocab_words", "Dashwood, John"},
        {"text_replacements", Json::array({{{"from", "new line"}, {"to", "\n"}}})}});
    httplib::Client client("127.0.0.1", port);
    client.set_read_timeout(300, 0);

    std::vector<double> directMs, serverMs;
    for (int i = 0; i < rounds + 1; ++i) {  // the first round warms caches and is not counted
        auto start = std::chrono::steady_clock::now();
        server::PocketsphinxEngine::recognize(direct, pcm);
        const double d = bench::millisecondsSince(start);
        start = std::chrono::steady_clock::now();
        auto r = client.Post("/transcribe", {{"Authorization", authorization}}, body, "application/json");
        const double s = bench::millisecondsSince(start);
        if (!r || r->status != 200) {
            std::cerr << "transcription request failed\n";
            return 2;
        }
        if (i == 0) continue;
        directMs.push_back(d);
        serverMs.push_back(s);
    }
    server::PocketsphinxEngine::freeDecoder(direct);
    app.stop();
    std::filesystem::remove_all(config.dataDir);

    const double directMedian = bench::percentile(directMs, 0.5);
    const double serverMedian = bench::percentile(serverMs, 0.5);
    const double ratio = serverMedian / directMedian;
    std::printf("transcription of %s (%.1f s of audio), %d rounds\n", clip.filename().c_str(),
                static_cast<double>(pcm.size()) / 16000.0, rounds);
    std::printf("  pocketsphinx direct: median %.1f ms\n", directMedian);
    std::printf("  through vocle-server: median %.1f ms\n", serverMedian);
    std::printf("  ratio %.3f (target <= 1.15): %s\n", ratio, ratio <= 1.15 ? "met" : "MISSED");
    return ratio <= 1.15 ? 0 : 1;
}
