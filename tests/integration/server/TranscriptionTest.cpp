#include <gtest/gtest.h>
#include <sndfile.h>

#include <fstream>
#include <sstream>
#include <thread>

#include "foundation/Base64.h"
#include "integration/server/ServerFixture.h"
#include "integration/server/SpeechMeasures.h"

using namespace vocle;
using namespace vocle::testing;

namespace {

// The package's reference transcription: "<s> words </s> (clip-id)" per line.
std::map<std::string, std::string> referenceTranscripts() {
    std::map<std::string, std::string> out;
    std::ifstream in(kLibrivox / "transcription");
    std::string line;
    while (std::getline(in, line)) {
        const auto open = line.rfind('(');
        const auto close = line.rfind(')');
        if (open == std::string::npos || close == std::string::npos) continue;
        std::string text = line.substr(0, open);
        for (const char* tag : {"<s>", "</s>"}) {
            const auto at = text.find(tag);
            if (at != std::string::npos) text.erase(at, std::strlen(tag));
        }
        out[line.substr(open + 1, close - open - 1)] = text;
    }
    return out;
}

// The AAC the app uploads: mono AAC in MPEG-4 at 48 kbit/s for 16 kHz speech, made with the ffmpeg tool.
std::string encodeAac(const std::filesystem::path& wav, const std::filesystem::path& out) {
    const std::string command = "ffmpeg -nostdin -loglevel error -y -i '" + wav.string() +
                                "' -c:a aac -b:a 48k -ac 1 -f ipod '" + out.string() + "'";
    EXPECT_EQ(std::system(command.c_str()), 0) << command;
    return readText(out);
}

Json transcribeBody(const std::string& audio, const std::string& type, const std::string& language = "en",
                    const std::string& vocabulary = "", Json replacements = Json::array(),
                    std::optional<std::string> modeTypeId = std::nullopt) {
    Json mode = {{"id", "6F0C1B8E-4D5A-4C1E-9F3B-2A7D8E9F0A1B"},
                 {"name", "Test"},
                 {"type", type},
                 {"prompt", ""},
                 {"language", language}};
    if (modeTypeId) mode["mode_type_id"] = *modeTypeId;
    return {{"audio", base64::encode(audio)},
            {"mode", mode},
            {"vocab_words", vocabulary},
            {"text_replacements", replacements}};
}

}  // namespace

TEST(ServerTranscriptionTest, WordErrorRateThroughTheServerMatchesPocketsphinxDirectly) {
    TestServer server;
    const Session session = server.signIn("ada@example.com");
    const auto references = referenceTranscripts();
    ASSERT_EQ(references.size(), 5u);

    // The same model and settings, run by hand on the samples libsndfile reads. Three clips keep the run
    // short; the direct run and the two uploads of each clip go at once to use both cores.
    const std::vector<std::string> clips = {"sense_and_sensibility_01_austen_64kb-0880",
                                            "sense_and_sensibility_01_austen_64kb-0890",
                                            "sense_and_sensibility_01_austen_64kb-0930"};
    ps_decoder_s* direct = server::PocketsphinxEngine::createDecoder(
        server::PocketsphinxModel::inFolder(VOCLE_POCKETSPHINX_MODEL_DIR));
    size_t refWords = 0, directErrors = 0, wavErrors = 0, aacErrors = 0;
    for (const auto& clip : clips) {
        ASSERT_TRUE(references.count(clip)) << clip;
        const auto wavPath = kLibrivox / (clip + ".wav");
        const auto ref = words(references.at(clip));
        refWords += ref.size();
        const std::string aac = encodeAac(wavPath, server.dir / (clip + ".m4a"));
        std::optional<httplib::Result> wav, m4a;
        std::thread wavUpload([&] {
            wav.emplace(server.post("/transcribe", transcribeBody(readText(wavPath), "raw"),
                                    session.authorization()));
        });
        std::thread aacUpload([&] {
            m4a.emplace(server.post("/transcribe", transcribeBody(aac, "raw"), session.authorization()));
        });
        const std::string directText = server::PocketsphinxEngine::recognize(direct, readWavSamples(wavPath));
        wavUpload.join();
        aacUpload.join();
        directErrors += wordErrors(ref, words(directText));

        ASSERT_TRUE(wav && *wav && m4a && *m4a);
        ASSERT_EQ((*wav)->status, 200) << (*wav)->body;
        ASSERT_EQ((*m4a)->status, 200) << (*m4a)->body;
        const std::string wavText = jsonOf(*wav).at("transcript");
        wavErrors += wordErrors(ref, words(wavText));
        EXPECT_EQ(wavText, directText) << clip;  // lossless input, same engine: the same words
        aacErrors += wordErrors(ref, words(jsonOf(*m4a).at("transcript")));
    }
    server::PocketsphinxEngine::freeDecoder(direct);
    const double directWer = static_cast<double>(directErrors) / static_cast<double>(refWords);
    const double wavWer = static_cast<double>(wavErrors) / static_cast<double>(refWords);
    const double aacWer = static_cast<double>(aacErrors) / static_cast<double>(refWords);
    RecordProperty("direct_wer", std::to_string(directWer));
    RecordProperty("wav_wer", std::to_string(wavWer));
    RecordProperty("aac_wer", std::to_string(aacWer));
    std::cout << "WER direct " << directWer << ", server WAV " << wavWer << ", server AAC " << aacWer << "\n";
    EXPECT_LE(std::abs(wavWer - directWer), 0.03);
    EXPECT_LE(aacWer - directWer, 0.03);
    EXPECT_LT(directWer, 0.5);  // the engine really recognises the speech
}

TEST(ServerTranscriptionTest, VocabularyFormattingAndReplacementsOnKnownTranscripts) {
    TestServer server([&](server::ServerConfig& c) {
        c.speechEngine = "command";
        c.command = "/bin/sh -c \"cat $TRANSCRIPT_FILE\"";
    });
    // The command engine strips VOCLE_* from the child's environment but keeps others.
    const auto transcriptFile = server.dir / "transcript.txt";
    setenv("TRANSCRIPT_FILE", transcriptFile.c_str(), 1);
    const Session session = server.signIn("ada@example.com");
    const std::string wav = readText(kLibrivox / "sense_and_sensibility_01_austen_64kb-0880.wav");
    auto run = [&](const std::string& spoken, const std::string& type, const std::string& vocabulary,
                   const Json& replacements, std::optional<std::string> typeId = std::nullopt) {
        writeText(transcriptFile, spoken);
        auto r = server.post("/transcribe", transcribeBody(wav, type, "en", vocabulary, replacements, typeId),
                             session.authorization());
        EXPECT_EQ(r->status, 200) << r->body;
        return jsonOf(r).at("transcript").get<std::string>();
    };
    const Json replacements = Json::array({{{"from", "slack at here"}, {"to", "@here"}},
                                           {{"from", "new line"}, {"to", "\n"}},
                                           {{"from", "at here"}, {"to", "WRONG"}}});
    EXPECT_EQ(run("um slack at here the deploy to kubernetis is done", "raw", "Kubernetes", replacements),
              "um @here the deploy to Kubernetes is done");
    EXPECT_EQ(run("um i pushed it to get hub new line see you", "Clean", "GitHub", replacements,
                  "22222222-2222-2222-2222-222222222222"),
              "I pushed it to GitHub\nsee you.");
    EXPECT_EQ(run("hi anna the build is green full stop thanks", "Email", "", Json::array()),
              "Hi Anna,\n\nThe build is green.\n\nThanks,");
    EXPECT_EQ(run("buy milk full stop call mom", "Organized Note", "", Json::array()),
              "- Buy milk.\n- Call mom.");
    EXPECT_EQ(run("buy milk full stop call mom", "Simple Note", "", Json::array()), "Buy milk.\nCall mom.");
    EXPECT_EQ(run("on my way", "Message", "", Json::array()), "On my way");
    EXPECT_EQ(run("custom mode text", "Custom", "", Json::array()), "Custom mode text.");
    unsetenv("TRANSCRIPT_FILE");
}

TEST(ServerTranscriptionTest, OpenAiEngineAndChatFormattingAgainstALoopbackPeer) {
    httplib::Server peer;
    std::mutex mutex;
    std::map<std::string, std::string> seenFields;
    std::string chatReply = "Formatted by the model.";
    std::string seenChatBody;
    peer.Post("/v1/audio/transcriptions", [&](const httplib::Request& req, httplib::Response& res) {
        std::lock_guard lock(mutex);
        for (const auto& [name, file] : req.files)
            seenFields[name] = name == "file" ? file.content.substr(0, 4) : file.content;
        seenFields["auth"] = req.get_header_value("Authorization");
        res.set_content(R"({"text":"um the meeting is at noon"})", "application/json");
    });
    peer.Post("/v1/chat/completions", [&](const httplib::Request& req, httplib::Response& res) {
        std::lock_guard lock(mutex);
        seenChatBody = req.body;
        res.set_content(
            toCompactJson(Json{
                {"choices", Json::array({{{"message", {{"role", "assistant"}, {"content", chatReply}}}}})}}),
            "application/json");
    });
    const int peerPort = peer.bind_to_any_port("127.0.0.1");
    std::thread peerThread([&] { peer.listen_after_bind(); });
    while (!peer.is_running()) std::this_thread::yield();

    const std::string origin = "http://127.0.0.1:" + std::to_string(peerPort);
    {
        TestServer server([&](server::ServerConfig& c) {
            c.speechEngine = "openai";
            c.openaiUrl = origin;
            c.openaiApiKey = "sk-test";
            c.chatUrl = origin;
            c.chatModel = "test-model";
        });
        const Session session = server.signIn("ada@example.com");
        const std::string wav = readText(kLibrivox / "sense_and_sensibility_01_austen_64kb-0880.wav");
        Json body = transcribeBody(wav, "Clean", "en-GB", "Noon, Anna");
        body["mode"]["prompt"] = "Make it tidy";
        auto r = server.post("/transcribe", body, session.authorization());
        ASSERT_EQ(r->status, 200) << r->body;
        // The model's reply shares too few words with "the meeting is at noon", so the Clean text wins.
        EXPECT_EQ(jsonOf(r).at("transcript"), "The meeting is at Noon.");
        {
            std::lock_guard lock(mutex);
            EXPECT_EQ(seenFields["file"], "RIFF");
            EXPECT_EQ(seenFields["language"], "en");
            EXPECT_EQ(seenFields["auth"], "Bearer sk-test");
            EXPECT_NE(seenFields["prompt"].find("Make it tidy"), std::string::npos);
            EXPECT_NE(seenFields["prompt"].find("Noon, Anna"), std::string::npos);
            const Json chat = parseJson(seenChatBody);
            EXPECT_EQ(chat.at("model"), "test-model");
            EXPECT_NE(chat.at("messages").at(0).at("content").get<std::string>().find("Make it tidy"),
                      std::string::npos);
            EXPECT_NE(chat.at("messages").at(1).at("content").get<std::string>().find("<transcript>"),
                      std::string::npos);
            chatReply = "The meeting is at Noon!";
        }
        r = server.post("/transcribe", body, session.authorization());
        EXPECT_EQ(jsonOf(r).at("transcript"), "The meeting is at Noon!");
        {
            std::lock_guard lock(mutex);
            chatReply = "Sure! Here is the formatted text: the meeting is at noon";
        }
        r = server.post("/transcribe", body, session.authorization());
        EXPECT_EQ(jsonOf(r).at("transcript"), "The meeting is at Noon.");
        {
            std::lock_guard lock(mutex);
            chatReply = "";
        }
        r = server.post("/transcribe", body, session.authorization());
        EXPECT_EQ(jsonOf(r).at("transcript"), "The meeting is at Noon.");
        body["mode"]["type"] = "raw";  // Raw never goes to the model
        r = server.post("/transcribe", body, session.authorization());
        EXPECT_EQ(jsonOf(r).at("transcript"), "um the meeting is at Noon");
    }
    peer.stop();
    peerThread.join();

    // With the upstream gone the answer is a 502 with a JSON error.
    TestServer orphan([&](server::ServerConfig& c) {
        c.speechEngine = "openai";
        c.openaiUrl = origin;
    });
    const Session session = orphan.signIn("ada@example.com");
    auto r = orphan.post(
        "/transcribe",
        transcribeBody(readText(kLibrivox / "sense_and_sensibility_01_austen_64kb-0880.wav"), "raw"),
        session.authorization());
    EXPECT_EQ(r->status, 502);
    EXPECT_TRUE(jsonOf(r).contains("error"));
}
