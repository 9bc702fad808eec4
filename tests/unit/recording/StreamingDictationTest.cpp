#include <gtest/gtest.h>

#include <cmath>
#include <thread>

#include "backend/StreamingTranscriber.h"
#include "foundation/Json.h"
#include "recording/SpeechResampler.h"
#include "unit/recording/EngineHarness.h"

using namespace vocle;
using namespace vocle::testing;

namespace {

// 10 ms of a 48 kHz stereo tone: 160 samples once at 16 kHz mono.
std::vector<float> block48k(float amplitude = 0.3f) {
    std::vector<float> v(480 * 2);
    for (size_t i = 0; i < 480; ++i)
        v[2 * i] = v[2 * i + 1] = amplitude * std::sin(0.05f * static_cast<float>(i));
    return v;
}

// The engine of the harness, rebuilt to stream its microphone-only recordings; the whole-file road is
// the harness's scripted processor.
struct StreamingHarness : EngineHarness {
    StreamingTranscriber transcriber{queue, *graph.backend, processor};

    StreamingHarness() {
        engine = graph.makeRecordingService(
            processor, paster, [] { return 0.5; }, &transcriber);
        graph.backend->setAccessToken("acc-1");
        graph.backend->setRefreshToken("ref-1");
    }
    ~StreamingHarness() { engine.reset(); }

    FakeCaptureFileOutput& output() { return capture.lastOutput(); }
    // Starts a microphone-only dictation and lets the file output start.
    void startSpeaking() {
        start(mode());
        queue.advance(0.35);
        speak(-20.0f);
        queue.advance(0.1);  // the level timer sees the speech
    }
    void feed(int blocks) {
        for (int i = 0; i < blocks; ++i) output().feed(block48k(), 2, 48000);
    }
    // Index of the only request to `path` that waits for an answer.
    size_t waitingFor(const std::string& pathPrefix) const {
        for (size_t i : network->waiting())
            if (network->sent()[i].path().rfind(pathPrefix, 0) == 0) return i;
        ADD_FAILURE() << "nothing waits for " << pathPrefix;
        return SIZE_MAX;
    }
    size_t sentTo(const std::string& pathPrefix) const {
        size_t n = 0;
        for (const auto& s : network->sent()) n += s.path().rfind(pathPrefix, 0) == 0;
        return n;
    }
    void answer(const std::string& pathPrefix, long status, std::string body) {
        ASSERT_TRUE(
            network->answer(waitingFor(pathPrefix), FakeHttpTransport::response(status, std::move(body))));
        queue.runUntilIdle();
    }
    void open() { answer("/transcribe/stream", 200, R"({"stream_id": "s-1"})"); }
    size_t failureLines() const { return logs->count("Streaming transcription failed ("); }
};

TEST(StreamingDictation, ChunksGoOutEveryQuarterSecondOneAtATimeAndTheFinalAnswerIsPasted) {
    StreamingHarness h;
    h.startSpeaking();
    ASSERT_EQ(h.sentTo("/transcribe/stream"), 1u) << "the stream opens when the recording starts";
    const Json openBody = Json::parse(h.network->sent()[0].body());
    EXPECT_EQ(openBody["sample_rate"], 16000);
    EXPECT_EQ(openBody["encoding"], "s16le");
    EXPECT_EQ(openBody["vocab_words"], "Kubernetes, Vocle");
    EXPECT_EQ(openBody["mode"]["name"], "Dictation");
    EXPECT_FALSE(openBody.contains("audio"));
    EXPECT_EQ(*h.network->sent()[0].request.header("Authorization"), "Bearer acc-1;refresh=ref-1");
    h.open();

    h.feed(25);  // 250 ms of audio
    h.queue.advance(0.25);
    ASSERT_EQ(h.sentTo("/transcribe/stream/s-1/audio"), 1u);
    const auto& first = h.network->sent().back();
    EXPECT_EQ(first.path(), "/transcribe/stream/s-1/audio?seq=0");
    EXPECT_EQ(first.body().size(), 25u * 160 * 2);
    EXPECT_EQ(*first.request.header("Content-Type"), "application/octet-stream");

    // While the chunk is unanswered nothing else is sent; the audio waits for the next chunk.
    h.feed(50);
    h.queue.advance(1.0);
    EXPECT_EQ(h.sentTo("/transcribe/stream/s-1/audio"), 1u);
    h.answer("/transcribe/stream/s-1/audio", 200, R"({"partial": "hello", "seq": 0})");
    EXPECT_EQ(h.e().partialText.get(), "hello");
    h.queue.advance(0.25);
    ASSERT_EQ(h.sentTo("/transcribe/stream/s-1/audio"), 2u);
    EXPECT_EQ(h.network->sent().back().path(), "/transcribe/stream/s-1/audio?seq=1");
    EXPECT_EQ(h.network->sent().back().body().size(), 50u * 160 * 2);
    h.answer("/transcribe/stream/s-1/audio", 200, R"({"partial": "hello wor", "seq": 1})");

    // At the stop the rest goes out, then the end; the answer takes the usual way to the clipboard.
    h.feed(3);
    h.e().stopRecording();
    h.queue.runUntilIdle();
    EXPECT_EQ(h.network->sent().back().path(), "/transcribe/stream/s-1/audio?seq=2");
    EXPECT_EQ(h.network->sent().back().body().size(), 3u * 160 * 2);
    h.answer("/transcribe/stream/s-1/audio", 200, R"({"partial": "hello world", "seq": 2})");
    h.answer("/transcribe/stream/s-1/end", 200, R"({"transcript": "Hello world."})");
    EXPECT_EQ(h.paster.pasted, std::vector<std::string>{"Hello world."});
    EXPECT_EQ(h.e().processedText.get(), "Hello world.");
    EXPECT_TRUE(h.logs->contains(" - dictation flow complete"));
    EXPECT_TRUE(h.processor.calls.empty()) << "the whole file was not sent";
    EXPECT_EQ(h.failureLines(), 0u);
    // The file is still written for the road of the whole file.
    EXPECT_TRUE(std::filesystem::exists(h.file("vocle_1700000000.wav")));
    h.queue.runUntilIdle();
    EXPECT_EQ(h.transcriber.activeStreams(), 0u);
}

struct FailureCase {
    const char* name;
    // Drives the stream to its failure; the recording is stopped afterwards.
    std::function<void(StreamingHarness&)> fail;
    bool expectDelete;
    const char* reason;
};

class StreamingFallback : public ::testing::TestWithParam<FailureCase> {};

TEST_P(StreamingFallback, TheWholeFileGoesTheUsualRoadWithOneLineSayingWhy) {
    StreamingHarness h;
    h.startSpeaking();
    GetParam().fail(h);
    h.feed(5);
    h.e().stopRecording();
    h.queue.runUntilIdle();
    // Some failures are found only after the stop; give every timeout its time.
    h.queue.advance(StreamingUploader::kEndTimeout.count() + 1);

    ASSERT_EQ(h.processor.calls.size(), 1u);
    EXPECT_EQ(h.processor.calls[0].file, h.file("vocle_1700000000.wav"));
    EXPECT_EQ(h.processor.calls[0].vocab, "Kubernetes, Vocle");
    EXPECT_EQ(h.failureLines(), 1u);
    EXPECT_TRUE(h.logs->contains(GetParam().reason)) << "expected the reason: " << GetParam().reason;
    size_t deletes = 0;
    for (const auto& s : h.network->sent()) deletes += s.request.method == "DELETE";
    EXPECT_EQ(deletes, GetParam().expectDelete ? 1u : 0u);

    h.processor.calls[0].completion(std::string("from the file"));
    h.queue.runUntilIdle();
    EXPECT_EQ(h.paster.pasted, std::vector<std::string>{"from the file"});
}

INSTANTIATE_TEST_SUITE_P(
    EachFailureKind, StreamingFallback,
    ::testing::Values(
        FailureCase{
            "OlderServerWithoutTheRoute",
            [](StreamingHarness& h) { h.answer("/transcribe/stream", 404, R"({"error": "Not found"})"); },
            false, "the server has no streaming route"},
        FailureCase{"NetworkErrorAtTheOpen",
                    [](StreamingHarness& h) {
                        ASSERT_TRUE(
                            h.network->answer(h.waitingFor("/transcribe/stream"),
                                              FakeHttpTransport::failure("Couldn't connect to server")));
                        h.queue.runUntilIdle();
                    },
                    false, "Couldn't connect to server"},
        FailureCase{"OpenNeverAnswered",
                    [](StreamingHarness& h) { h.queue.advance(StreamingUploader::kRequestTimeout.count()); },
                    false, "no answer to the open request within 5.0 s"},
        FailureCase{"ServerErrorOnAChunk",
                    [](StreamingHarness& h) {
                        h.open();
                        h.feed(10);
                        h.queue.advance(0.25);
                        h.answer("/transcribe/stream/s-1/audio", 503, R"({"error": "decoder crashed"})");
                    },
                    true, "audio chunk 0: HTTP 503"},
        FailureCase{"ChunkNeverAnswered",
                    [](StreamingHarness& h) {
                        h.open();
                        h.feed(10);
                        h.queue.advance(0.25 + StreamingUploader::kRequestTimeout.count());
                    },
                    true, "no answer to an audio chunk within 5.0 s"},
        FailureCase{"EndNeverAnswered",
                    [](StreamingHarness& h) {
                        h.open();
                        h.network->replyStatus(200, R"({"partial": "", "seq": 0})");  // the last chunk
                    },
                    true, "no answer to the end of the stream within 15.0 s"},
        FailureCase{"ServerErrorAtTheEnd",
                    [](StreamingHarness& h) {
                        h.open();
                        // Answer the end with a 500 as soon as it is asked for.
                        h.network->replyStatus(200, R"({"partial": "", "seq": 0})");
                        h.network->replyStatus(500, R"({"error": "engine failed"})");
                    },
                    true, "final transcript: HTTP 500"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(StreamingDictation, ACancelMidStreamDeletesTheStreamAndTranscribesNothing) {
    StreamingHarness h;
    h.startSpeaking();
    h.open();
    h.feed(30);
    h.queue.advance(0.25);
    ASSERT_EQ(h.sentTo("/transcribe/stream/s-1/audio"), 1u);

    h.e().cancelRecording();
    h.queue.runUntilIdle();
    EXPECT_EQ(h.network->cancelledCount(), 1u) << "the chunk under way is abandoned";
    const auto& del = h.network->sent().back();
    EXPECT_EQ(del.request.method, "DELETE");
    EXPECT_EQ(del.path(), "/transcribe/stream/s-1");
    EXPECT_EQ(h.transcriber.activeStreams(), 1u) << "kept until the server has answered the DELETE";
    h.answer("/transcribe/stream/s-1", 204, "");
    h.queue.advance(StreamingUploader::kEndTimeout.count() + 1);

    EXPECT_EQ(h.transcriber.activeStreams(), 0u);
    EXPECT_TRUE(h.processor.calls.empty());
    EXPECT_TRUE(h.paster.pasted.empty());
    EXPECT_EQ(h.sentTo("/transcribe/stream/s-1/end"), 0u);
    EXPECT_EQ(h.failureLines(), 0u);
    EXPECT_FALSE(h.refusesStart());
}

TEST(StreamingDictation, TheTeeAppendsFromTheCaptureThreadWithoutAMainQueueTaskPerBlock) {
    StreamingHarness h;
    h.startSpeaking();
    h.open();
    const size_t pendingBefore = h.queue.pendingCount();
    std::thread capture([&] { h.feed(200); });
    capture.join();
    EXPECT_EQ(h.queue.pendingCount(), pendingBefore);
    h.queue.advance(0.25);
    ASSERT_EQ(h.sentTo("/transcribe/stream/s-1/audio"), 1u);
    EXPECT_EQ(h.network->sent().back().body().size(), 200u * 160 * 2)
        << "all of it, converted to 16 kHz mono";
}

TEST(StreamingDictation, SystemAudioModesAndAnOffSwitchKeepTheWholeFileRoad) {
    StreamingHarness h;
    h.start(h.mode(/*systemAudio=*/true));
    h.queue.advance(1.0);
    EXPECT_EQ(h.sentTo("/transcribe/stream"), 0u);
    EXPECT_FALSE(h.e().isStreaming());

    StreamingHarness off;
    off.transcriber.setEnabled(false);
    off.startSpeaking();
    EXPECT_EQ(off.sentTo("/transcribe/stream"), 0u);
    EXPECT_FALSE(off.e().isStreaming());
}

TEST(StreamingDictation, AnOutputWithoutSamplesDoesNotStream) {
    StreamingHarness h;
    h.capture.configureOutput = [](FakeCaptureFileOutput& o) { o.offersSamples = false; };
    h.startSpeaking();
    h.queue.advance(1.0);
    EXPECT_FALSE(h.e().isStreaming());
    h.e().stopRecording();
    h.queue.runUntilIdle();
    EXPECT_EQ(h.processor.calls.size(), 1u);
}

TEST(SpeechResampler, ConvertsToSixteenKilohertzMonoAcrossBlockBoundaries) {
    SpeechResampler r;
    std::vector<int16_t> out;
    // 48 kHz stereo, left and right opposite halves of a constant: the mono mean.
    std::vector<float> stereo(2 * 4801);
    for (size_t i = 0; i < 4801; ++i) {
        stereo[2 * i] = 0.5f;
        stereo[2 * i + 1] = 0.0f;
    }
    // Odd block sizes: the phase carries over.
    size_t done = 0;
    for (size_t n : {7u, 1000u, 3794u}) {
        r.process(stereo.data() + 2 * done, n, 2, 48000, out);
        done += n;
    }
    EXPECT_EQ(out.size(), 1600u);
    for (int16_t s : out) ASSERT_NEAR(s, 8192, 1);

    std::vector<int16_t> same;
    SpeechResampler passthrough;
    const std::vector<float> mono{0.0f, 1.0f, -1.0f, 2.0f};
    passthrough.process(mono.data(), 4, 1, 16000, same);
    EXPECT_EQ(same, (std::vector<int16_t>{0, 32767, -32767, 32767})) << "16 kHz passes through, clipped";

    std::vector<int16_t> up;
    SpeechResampler upsampler;
    const std::vector<float> slow{0.25f, -0.25f};
    upsampler.process(slow.data(), 2, 1, 8000, up);
    EXPECT_EQ(up, (std::vector<int16_t>{8192, 8192, -8192, -8192}));
}

}  // namespace
