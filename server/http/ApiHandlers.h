#pragma once

#include "auth/OtpService.h"
#include "auth/TokenService.h"
#include "formatting/TemplateCatalogue.h"
#include "formatting/TranscriptionService.h"
#include "formatting/TranscriptionStreams.h"
#include "http/ApiTypes.h"
#include "store/SettingsStore.h"
#include "store/SupportStore.h"

namespace vocle::server {

// The endpoints, over plain request and response values so they can be driven without sockets.
class ApiHandlers {
  public:
    ApiHandlers(OtpService& otp, TokenService& tokens, SettingsStore& settings,
                const TemplateCatalogue& templates, SupportStore& support,
                TranscriptionService& transcription, TranscriptionStreams& streams,
                size_t maxSupportMessageChars)
        : otp_(otp),
          tokens_(tokens),
          settings_(settings),
          templates_(templates),
          support_(support),
          transcription_(transcription),
          streams_(streams),
          maxSupportMessageChars_(maxSupportMessageChars) {}

    // Never throws: every failure becomes a JSON {"error"} response.
    ApiResponse handle(const ApiRequest& request);

  private:
    // Handlers fill `response`; a failure thrown as HttpError keeps the headers already set, so a token
    // rotation is never lost to a later error in the same request.
    void route(const ApiRequest& request, ApiResponse& response);
    void sendOtp(const ApiRequest& request, ApiResponse& response);
    void verifyOtp(const ApiRequest& request, ApiResponse& response);
    void getSettings(const ApiRequest& request, ApiResponse& response);
    void postSettings(const ApiRequest& request, ApiResponse& response);
    void transcribe(const ApiRequest& request, ApiResponse& response);
    void supportMessage(const ApiRequest& request, ApiResponse& response);
    // POST /transcribe/stream, POST .../{id}/audio?seq=N, POST .../{id}/end, DELETE .../{id}
    bool routeStream(const ApiRequest& request, ApiResponse& response);
    void openStream(const ApiRequest& request, ApiResponse& response);
    void streamAudio(const ApiRequest& request, const std::string& id, ApiResponse& response);
    void endStream(const ApiRequest& request, const std::string& id, ApiResponse& response);
    void cancelStream(const ApiRequest& request, const std::string& id, ApiResponse& response);

    // Resolves the caller; a rotation's new tokens are added to `response`. Throws HttpError(401).
    std::string requireUser(const ApiRequest& request, ApiResponse& response);
    std::optional<std::string> optionalUser(const ApiRequest& request, ApiResponse& response);

    OtpService& otp_;
    TokenService& tokens_;
    SettingsStore& settings_;
    const TemplateCatalogue& templates_;
    SupportStore& support_;
    TranscriptionService& transcription_;
    TranscriptionStreams& streams_;
    size_t maxSupportMessageChars_;
};

}  // namespace vocle::server
