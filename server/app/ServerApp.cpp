#include "app/ServerApp.h"

#include <sys/stat.h>

#include "foundation/FileIO.h"
#include "foundation/Log.h"
#include "mail/OutboxMailer.h"
#include "mail/SmtpMailer.h"
#include "speech/CommandEngine.h"
#include "speech/OpenAiEngine.h"
#include "speech/PocketsphinxEngine.h"

namespace vocle::server {

std::shared_ptr<SpeechEngine> ServerApp::makeEngine(const ServerConfig& config) {
    if (config.speechEngine == "openai") {
        return std::make_shared<OpenAiEngine>(
            OpenAiSettings{config.openaiUrl, config.openaiApiKey, config.openaiModel});
    }
    if (config.speechEngine == "command") {
        return std::make_shared<CommandEngine>(config.command, config.dataDir / "tmp",
                                               config.commandTimeoutSeconds);
    }
    return std::make_shared<PocketsphinxEngine>(PocketsphinxModel::inFolder(config.modelDir),
                                                config.speechWorkers);
}

ServerApp::ServerApp(const ServerConfig& config, const Clock& clock, std::shared_ptr<SpeechEngine> engine)
    : config_(config), clock_(clock) {
    std::string error;
    if (!ensureDirectory(config_.dataDir, &error)) {
        throw ConfigError("Cannot create data folder " + config_.dataDir.string() + ": " + error);
    }
    ::chmod(config_.dataDir.c_str(), 0700);
    if (config_.databaseUrl.empty()) {
        database_ = std::make_unique<Database>(config_.databaseFile());
    } else {
        if (!Database::isPostgres(config_.databaseUrl))
            throw ConfigError("database_url must be a PostgreSQL connection string (postgresql://...)");
        database_ = Database::open(config_.databaseUrl);
        log("vocle-server: using the PostgreSQL database");
    }
    if (config_.mailDelivery == "smtp") {
        mailer_ = std::make_unique<SmtpMailer>(
            SmtpSettings{config_.smtpUrl, config_.smtpUser, config_.smtpPassword}, clock_);
    } else {
        mailer_ = std::make_unique<OutboxMailer>(config_.outboxDir(), clock_);
    }
    engine_ = engine ? std::move(engine) : makeEngine(config_);
    if (!config_.chatUrl.empty()) {
        chat_ = std::make_unique<OpenAiChatFormatter>(
            ChatSettings{config_.chatUrl, config_.chatApiKey, config_.chatModel});
    }
    tokens_ = std::make_unique<TokenService>(*database_, clock_, config_.accessTokenTtlSeconds,
                                             config_.refreshTokenTtlSeconds, config_.tokenGraceSeconds);
    if (const int purged = tokens_->purgeExpired(); purged > 0)
        log("vocle-server: removed ", purged, " expired tokens");
    otp_ = std::make_unique<OtpService>(*database_, *tokens_, *mailer_, clock_, config_.mailFrom);
    settings_ = std::make_unique<SettingsStore>(*database_, clock_);
    support_ = std::make_unique<SupportStore>(*database_, clock_);
    transcription_ =
        std::make_unique<TranscriptionService>(*engine_, templates_, chat_.get(), config_.maxAudioSeconds);
    streams_ = std::make_unique<TranscriptionStreams>(*engine_, *transcription_, clock_,
                                                      config_.maxAudioSeconds, config_.streamIdleSeconds);
    api_ = std::make_unique<ApiHandlers>(*otp_, *tokens_, *settings_, templates_, *support_, *transcription_,
                                         *streams_, config_.maxSupportMessageChars);
    HttpLimits limits;
    limits.maxBodyBytes = config_.maxBodyBytes;
    limits.workers = config_.httpWorkers;
    limits.headerTimeoutSeconds = config_.headerTimeoutSeconds;
    limits.idleTimeoutSeconds = config_.idleTimeoutSeconds;
    limits.bodyTimeoutSeconds = config_.bodyTimeoutSeconds;
    limits.maxConnections = config_.maxConnections;
    limits.maxConnectionsPerClient = config_.maxConnectionsPerClient;
    http_ = std::make_unique<HttpServer>(*api_, limits);
    http_->onConnectionLost(
        [streams = streams_.get()](uint64_t connection) { streams->connectionClosed(connection); });
    http_->onTick([streams = streams_.get()] { streams->expireIdle(); });
}

ServerApp::~ServerApp() {
    stop();
}

int ServerApp::start() {
    const int port = http_->bind(config_.listenHost, config_.listenPort);
    http_->start();
    return port;
}

void ServerApp::run() {
    const int port = http_->bind(config_.listenHost, config_.listenPort);
    log("vocle-server: listening on ", config_.listenHost, ":", port, " (data in ", config_.dataDir.string(),
        ", speech engine ", engine_->name(), ", mail ", config_.mailDelivery, ")");
    http_->run();
}

void ServerApp::stop() {
    if (http_) http_->stop();
}

}  // namespace vocle::server
