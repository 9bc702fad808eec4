#include "speech/OpenAiEngine.h"

#include "foundation/Json.h"
#include "speech/AudioDecoder.h"
#include "speech/WavWriter.h"

namespace vocle::server {

std::string OpenAiEngine::promptFor(const SpeechRequest& request) {
    std::string prompt = request.prompt;
    if (!request.vocabulary.empty()) {
        if (!prompt.empty()) prompt += "\n";
        prompt += "Vocabulary: " + request.vocabulary;
    }
    return prompt;
}

std::string OpenAiEngine::transcribe(const std::vector<int16_t>& pcm, const SpeechRequest& request) {
    std::vector<MultipartPart> parts;
    parts.push_back({"file", encodeWav(pcm, kSpeechSampleRate), "audio.wav", "audio/wav"});
    parts.push_back({"model", settings_.model, "", ""});
    parts.push_back({"response_format", "json", "", ""});
    if (!request.language.empty()) {
        // The API takes ISO 639-1; the app sends regional codes such as "en-GB".
        parts.push_back(
            {"language", request.language.substr(0, request.language.find_first_of("-_")), "", ""});
    }
    const std::string prompt = promptFor(request);
    if (!prompt.empty()) parts.push_back({"prompt", prompt, "", ""});
    CurlResponse response;
    try {
        response = client_.postMultipart(joinUrl(settings_.baseUrl, "/v1/audio/transcriptions"),
                                         settings_.apiKey, parts);
    } catch (const std::exception& e) {
        throw EngineError(std::string("The transcription service could not be reached: ") + e.what(), true);
    }
    if (response.status < 200 || response.status > 299) {
        throw EngineError("The transcription service answered with status " + std::to_string(response.status),
                          true);
    }
    try {
        const Json json = parseJson(response.body);
        return requireString(json, "text");
    } catch (const DecodingError&) {
        throw EngineError("The transcription service sent an answer without text", true);
    }
}

}  // namespace vocle::server
