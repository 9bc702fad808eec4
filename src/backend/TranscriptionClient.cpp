#include "backend/TranscriptionClient.h"

#include "backend/LanguageCodes.h"
#include "backend/ResponseRecords.h"
#include "foundation/Base64.h"
#include "foundation/Log.h"

namespace vocle {

Json TranscriptionClient::transcriptionModeObject(const Mode& mode) {
    Json m = Json::object();
    m["id"] = mode.id.string();
    m["name"] = mode.name;
    m["type"] = mode.type.value_or("raw");
    m["prompt"] = mode.prompt;
    m["language"] = languageCode(mode.language);
    if (mode.modeTypeId) m["mode_type_id"] = *mode.modeTypeId;
    return m;
}

Json TranscriptionClient::transcriptionOptions(const Mode& mode, const std::string& vocabWords,
                                               const std::vector<Replacement>& textReplacements) {
    Json replacements = Json::array();
    for (const auto& r : textReplacements)
        replacements.push_back(Json{{"from", r.original}, {"to", r.replacement}});
    return Json{{"mode", transcriptionModeObject(mode)},
                {"vocab_words", vocabWords},
                {"text_replacements", std::move(replacements)}};
}

std::string TranscriptionClient::transcriptionBody(const std::string& audioData, const Mode& mode,
                                                   const std::string& vocabWords,
                                                   const std::vector<Replacement>& textReplacements) {
    const std::string restText = transcriptionOptions(mode, vocabWords, textReplacements)
                                     .dump();  // "{...}"; may throw on text that is not UTF-8

    // {"audio":"<base64>",<rest without its opening brace>
    static constexpr std::string_view head = "{\"audio\":\"";
    const size_t encoded = base64::encodedSize(audioData.size());
    std::string body;
    body.reserve(head.size() + encoded + 2 + restText.size());
    body.append(head);
    body.resize(head.size() + encoded);
    base64::encodeInto(audioData.data(), audioData.size(), body.data() + head.size());
    body.append("\",");
    body.append(restText, 1, std::string::npos);
    return body;
}

Subscription TranscriptionClient::transcribeAudio(std::string audioData, const Mode& mode,
                                                  const std::string& vocabWords,
                                                  const std::vector<Replacement>& textReplacements,
                                                  BackendService::Completion<std::string> completion) {
    log("BackendService - transcribeAudio called");
    log("Audio data size: ", audioData.size(), " bytes");
    log("Base URL: ", backend_.baseURL());
    log("Access token: ", backend_.accessToken().empty() ? "empty" : "provided");

    auto report = [completion = std::move(completion)](Result<TranscribeResponse, BackendError> result) {
        if (result.ok()) {
            log("Received transcription response");
            completion(std::move(result.value().transcript));
        } else {
            log("Transcription request failed: ", result.error().errorDescription());
            completion(result.error());
        }
    };
    auto fail = [&](BackendError error) {
        return backend_.deliverError<TranscribeResponse>(std::move(error), report);
    };

    if (backend_.accessToken().empty()) {
        log("ERROR: Access token is empty");
        auto subscription = fail(BackendError::authenticationFailed());
        backend_.reportRejectedSession();
        return subscription;
    }
    const std::string url = backend_.endpoint("/transcribe");
    if (!BackendService::isValidURL(url)) {
        log("ERROR: Invalid URL: ", backend_.baseURL(), "/transcribe");
        return fail(BackendError::invalidURL());
    }
    log("Using endpoint: ", url);

    const std::string code = languageCode(mode.language);
    log("Mode details:");
    log("  - Name: ", mode.name);
    log("  - Type: ", mode.type.value_or("raw"));
    log("  - Prompt: ", mode.prompt);
    log("  - Language: ", mode.language, " \u2192 ", code);

    log("Text replacements being sent to backend:");
    for (size_t i = 0; i < textReplacements.size(); ++i) {
        log("  ", i + 1, ". \"", textReplacements[i].original, "\" \u2192 \"",
            textReplacements[i].replacement, "\"");
    }

    RequestBody body;
    try {
        body = RequestBody::raw(transcriptionBody(audioData, mode, vocabWords, textReplacements));
    } catch (const std::exception& e) {
        body.serialisationError = e.what();
    }
    // The body now holds the audio; the raw bytes are not needed again.
    std::string().swap(audioData);
    log("Sending transcription request with mode: ", mode.name);

    return backend_.requestWithRetry<TranscribeResponse>(0, backend_.mainQueue().clock().monotonicNow(), url,
                                                         "POST", std::move(body), std::move(report));
}

}  // namespace vocle
