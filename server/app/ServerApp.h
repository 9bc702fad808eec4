#pragma once

#include <memory>

#include "auth/OtpService.h"
#include "auth/TokenService.h"
#include "config/ServerConfig.h"
#include "formatting/ChatFormatter.h"
#include "formatting/TemplateCatalogue.h"
#include "formatting/TranscriptionService.h"
#include "formatting/TranscriptionStreams.h"
#include "foundation/Clock.h"
#include "http/ApiHandlers.h"
#include "http/HttpServer.h"
#include "mail/Mailer.h"
#include "speech/SpeechEngine.h"
#include "store/Database.h"
#include "store/SettingsStore.h"
#include "store/SupportStore.h"

namespace vocle::server {

// The composition root: builds every component from the configuration. Tests pass their own clock and
// may pass an engine (to share one loaded model across servers).
class ServerApp {
  public:
    ServerApp(const ServerConfig& config, const Clock& clock, std::shared_ptr<SpeechEngine> engine = nullptr);
    ~ServerApp();

    // Binds and serves on a background thread; returns the port.
    int start();
    // Binds and serves on the calling thread until stop().
    void run();
    void stop();

    ApiHandlers& api() { return *api_; }
    Database& database() { return *database_; }
    SpeechEngine& engine() { return *engine_; }
    TranscriptionStreams& streams() { return *streams_; }
    const ServerConfig& config() const { return config_; }

    static std::shared_ptr<SpeechEngine> makeEngine(const ServerConfig& config);

  private:
    ServerConfig config_;
    const Clock& clock_;
    std::unique_ptr<Database> database_;
    std::unique_ptr<Mailer> mailer_;
    std::shared_ptr<SpeechEngine> engine_;
    std::unique_ptr<ChatFormatter> chat_;
    TemplateCatalogue templates_;
    std::unique_ptr<TokenService> tokens_;
    std::unique_ptr<OtpService> otp_;
    std::unique_ptr<SettingsStore> settings_;
    std::unique_ptr<SupportStore> support_;
    std::unique_ptr<TranscriptionService> transcription_;
    std::unique_ptr<TranscriptionStreams> streams_;
    std::unique_ptr<ApiHandlers> api_;
    std::unique_ptr<HttpServer> http_;
};

}  // namespace vocle::server
