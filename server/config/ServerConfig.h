#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "foundation/Environment.h"

namespace vocle::server {

class ConfigError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Everything the operator can set. Sources, later ones winning: built-in defaults, the JSON config file,
// VOCLE_SERVER_* environment variables, command-line options.
struct ServerConfig {
    std::string listenHost = "127.0.0.1";
    int listenPort = 8765;
    std::filesystem::path dataDir;
    // Empty: SQLite in dataDir. Otherwise a PostgreSQL connection string (postgresql://... or key=value).
    std::string databaseUrl;

    // Speech: "pocketsphinx" | "openai" | "command".
    std::string speechEngine = "pocketsphinx";
    std::filesystem::path modelDir;  // pocketsphinx en-us model folder
    int speechWorkers = 2;           // decoders kept loaded, so this many transcriptions run at once
    std::string openaiUrl;           // origin of an OpenAI-compatible API, e.g. http://127.0.0.1:9000
    std::string openaiApiKey;
    std::string openaiModel = "whisper-1";
    std::string command;  // program (and arguments) given the WAV path last
    double commandTimeoutSeconds = 120;

    // Optional chat model that applies the mode's prompt.
    std::string chatUrl;
    std::string chatApiKey;
    std::string chatModel = "gpt-4o-mini";

    // Mail: "outbox" | "smtp".
    std::string mailDelivery = "outbox";
    std::string mailFrom = "Vocle <no-reply@localhost>";
    std::string smtpUrl;  // smtp://host:port or smtps://host:port
    std::string smtpUser;
    std::string smtpPassword;

    double accessTokenTtlSeconds = 3600;
    double refreshTokenTtlSeconds = 30 * 24 * 3600;
    // Requests carrying the same spent pair this soon after its rotation receive the same new pair.
    double tokenGraceSeconds = 30;
    size_t maxBodyBytes = 60ull * 1024 * 1024;
    double maxAudioSeconds = 900;
    // A dictation stream with no request for this long is discarded and its decoder returned.
    double streamIdleSeconds = 10;
    size_t maxSupportMessageChars = 20000;

    // HTTP front: workers run complete requests; the loop reading them enforces the rest.
    int httpWorkers = 64;
    double headerTimeoutSeconds = 10;
    double idleTimeoutSeconds = 5;
    double bodyTimeoutSeconds = 60;
    size_t maxConnections = 4096;
    size_t maxConnectionsPerClient = 64;

    std::filesystem::path outboxDir() const { return dataDir / "outbox"; }
    std::filesystem::path databaseFile() const { return dataDir / "vocle-server.sqlite3"; }
};

struct CommandLine {
    bool showHelp = false;
    ServerConfig config;
};

std::string usageText();

// Applies one key (as written in the config file, e.g. "speech_engine") to the config; throws ConfigError.
void applyConfigValue(ServerConfig& config, const std::string& key, const std::string& value);

// Reads a JSON object of keys and values; unknown keys are errors so that typos do not pass silently.
void applyConfigFile(ServerConfig& config, const std::filesystem::path& file);

// VOCLE_SERVER_{KEY upper-cased}, e.g. VOCLE_SERVER_SPEECH_ENGINE.
void applyEnvironment(ServerConfig& config, const Environment& env);

// The whole start-up resolution; `args` excludes the program name.
CommandLine parseCommandLine(const std::vector<std::string>& args, const Environment& env);

}  // namespace vocle::server
