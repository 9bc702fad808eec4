#include "config/ServerConfig.h"

#include <charconv>
#include <functional>
#include <map>

#include "foundation/FileIO.h"
#include "foundation/Json.h"

namespace vocle::server {

namespace {

double parseNumber(const std::string& key, const std::string& value, double min) {
    double result = 0;
    const char* end = value.data() + value.size();
    auto [ptr, ec] = std::from_chars(value.data(), end, result);
    if (ec != std::errc() || ptr != end || result < min) {
        throw ConfigError("Invalid value for " + key + ": \"" + value + "\"");
    }
    return result;
}

using Setter = std::function<void(ServerConfig&, const std::string&, const std::string&)>;

const std::map<std::string, Setter>& setters() {
    static const std::map<std::string, Setter> table = {
        {"listen",
         [](ServerConfig& c, const std::string& k, const std::string& v) {
             const auto colon = v.rfind(':');
             if (colon == std::string::npos || colon == 0)
                 throw ConfigError("Invalid value for " + k + ": \"" + v + "\" (expected HOST:PORT)");
             const double port = parseNumber(k, v.substr(colon + 1), 0);
             if (port > 65535) throw ConfigError("Invalid port in " + k + ": \"" + v + "\"");
             c.listenHost = v.substr(0, colon);
             if (c.listenHost.size() > 2 && c.listenHost.front() == '[' && c.listenHost.back() == ']') {
                 c.listenHost = c.listenHost.substr(1, c.listenHost.size() - 2);
             }
             c.listenPort = static_cast<int>(port);
         }},
        {"data_dir", [](ServerConfig& c, const std::string&, const std::string& v) { c.dataDir = v; }},
        {"database_url", [](ServerConfig& c, const std::string&, const std::string& v) { c.databaseUrl = v; }},
        {"speech_engine",
         [](ServerConfig& c, const std::string& k, const std::string& v) {
             if (v != "pocketsphinx" && v != "openai" && v != "command") {
                 throw ConfigError("Invalid value for " + k + ": \"" + v +
                                   "\" (pocketsphinx, openai or command)");
             }
             c.speechEngine = v;
         }},
        {"model_dir", [](ServerConfig& c, const std::string&, const std::string& v) { c.modelDir = v; }},
        {"speech_workers",
         [](ServerConfig& c, const std::string& k, const std::string& v) {
             c.speechWorkers = static_cast<int>(parseNumber(k, v, 1));
         }},
        {"openai_url", [](ServerConfig& c, const std::string&, const std::string& v) { c.openaiUrl = v; }},
        {"openai_api_key",
         [](ServerConfig& c, const std::string&, const std::string& v) { c.openaiApiKey = v; }},
        {"openai_model",
         [](ServerConfig& c, const std::string&, const std::string& v) { c.openaiModel = v; }},
        {"command", [](ServerConfig& c, const std::string&, const std::string& v) { c.command = v; }},
        {"command_timeout_seconds",
         [](ServerConfig& c, const std::string& k, const std::string& v) {
             c.commandTimeoutSeconds = parseNumber(k, v, 1);
         }},
        {"chat_url", [](ServerConfig& c, const std::string&, const std::string& v) { c.chatUrl = v; }},
        {"chat_api_key", [](ServerConfig& c, const std::string&, const std::string& v) { c.chatApiKey = v; }},
        {"chat_model", [](ServerConfig& c, const std::string&, const std::string& v) { c.chatModel = v; }},
        {"mail_delivery",
         [](ServerConfig& c, const std::string& k, const std::string& v) {
             if (v != "outbox" && v != "smtp")
                 throw ConfigError("Invalid value for " + k + ": \"" + v + "\" (outbox or smtp)");
             c.mailDelivery = v;
         }},
        {"mail_from", [](ServerConfig& c, const std::string&, const std::string& v) { c.mailFrom = v; }},
        {"smtp_url", [](ServerConfig& c, const std::string&, const std::string& v) { c.smtpUrl = v; }},
        {"smtp_user", [](ServerConfig& c, const std::string&, const std::string& v) { c.smtpUser = v; }},
        {"smtp_password",
         [](ServerConfig& c, const std::string&, const std::string& v) { c.smtpPassword = v; }},
        {"access_token_ttl_seconds",
         [](ServerConfig& c, const std::string& k, const std::string& v) {
             c.accessTokenTtlSeconds = parseNumber(k, v, 1);
         }},
        {"refresh_token_ttl_seconds",
         [](ServerConfig& c, const std::string& k, const std::string& v) {
             c.refreshTokenTtlSeconds = parseNumber(k, v, 1);
         }},
        {"token_grace_seconds",
         [](ServerConfig& c, const std::string& k, const std::string& v) {
             c.tokenGraceSeconds = parseNumber(k, v, 0);
         }},
        {"max_body_bytes",
         [](ServerConfig& c, const std::string& k, const std::string& v) {
             c.maxBodyBytes = static_cast<size_t>(parseNumber(k, v, 1024));
         }},
        {"max_audio_seconds", [](ServerConfig& c, const std::string& k,
                                 const std::string& v) { c.maxAudioSeconds = parseNumber(k, v, 1); }},
        {"stream_idle_seconds", [](ServerConfig& c, const std::string& k,
                                   const std::string& v) { c.streamIdleSeconds = parseNumber(k, v, 1); }},
        {"max_support_message_chars",
         [](ServerConfig& c, const std::string& k, const std::string& v) {
             c.maxSupportMessageChars = static_cast<size_t>(parseNumber(k, v, 1));
         }},
        {"http_workers",
         [](ServerConfig& c, const std::string& k, const std::string& v) {
             c.httpWorkers = static_cast<int>(parseNumber(k, v, 1));
         }},
        {"header_timeout_seconds",
         [](ServerConfig& c, const std::string& k, const std::string& v) {
             c.headerTimeoutSeconds = parseNumber(k, v, 0.1);
         }},
        {"idle_timeout_seconds",
         [](ServerConfig& c, const std::string& k, const std::string& v) {
             c.idleTimeoutSeconds = parseNumber(k, v, 0.1);
         }},
        {"body_timeout_seconds",
         [](ServerConfig& c, const std::string& k, const std::string& v) {
             c.bodyTimeoutSeconds = parseNumber(k, v, 0.1);
         }},
        {"max_connections",
         [](ServerConfig& c, const std::string& k, const std::string& v) {
             c.maxConnections = static_cast<size_t>(parseNumber(k, v, 1));
         }},
        {"max_connections_per_client",
         [](ServerConfig& c, const std::string& k, const std::string& v) {
             c.maxConnectionsPerClient = static_cast<size_t>(parseNumber(k, v, 1));
         }},
    };
    return table;
}

std::string upper(std::string s) {
    for (char& ch : s) ch = static_cast<char>(std::toupper(static_cast<unsigned char>(ch)));
    return s;
}

}  // namespace

std::string usageText() {
    return "Usage: vocle-server [--listen HOST:PORT] [--data-dir DIR] [--config FILE]\n"
           "\n"
           "The Vocle backend: e-mail code sign-in, settings and templates, transcription, support "
           "messages.\n"
           "\n"
           "Options:\n"
           "  --listen HOST:PORT  address to serve on (default 127.0.0.1:8765)\n"
           "  --data-dir DIR      folder for the SQLite database and the mail outbox\n"
           "                      (default $XDG_DATA_HOME/vocle-server)\n"
           "  --config FILE       JSON object of settings (keys below)\n"
           "  --help              show this text\n"
           "\n"
           "Settings (config file key, or environment variable VOCLE_SERVER_<KEY in upper case>):\n"
           "  listen, data_dir\n"
           "  database_url               PostgreSQL connection string (postgresql://USER@HOST/DB or\n"
           "                             \"host=... dbname=...\"); default: SQLite in the data folder\n"
           "  speech_engine              pocketsphinx (default), openai or command\n"
           "  model_dir                  pocketsphinx en-us model folder\n"
           "  speech_workers             transcriptions run at once (default 2)\n"
           "  openai_url, openai_api_key, openai_model   OpenAI-compatible /v1/audio/transcriptions\n"
           "  command, command_timeout_seconds           program given a WAV path, printing the text\n"
           "  chat_url, chat_api_key, chat_model         optional chat model applying the mode's prompt\n"
           "  mail_delivery              outbox (default: files in DATA_DIR/outbox) or smtp\n"
           "  mail_from, smtp_url, smtp_user, smtp_password\n"
           "  access_token_ttl_seconds   default 3600\n"
           "  refresh_token_ttl_seconds  default 2592000 (30 days)\n"
           "  token_grace_seconds        a spent pair is renewed again this long after its rotation (default 30)\n"
           "  max_body_bytes             default 62914560 (60 MB)\n"
           "  max_audio_seconds          default 900\n"
           "  max_support_message_chars  default 20000\n"
           "  http_workers               requests handled at once (default 64)\n"
           "  header_timeout_seconds     time to send a request head (default 10)\n"
           "  idle_timeout_seconds       keep-alive pause between requests (default 5)\n"
           "  body_timeout_seconds       longest pause in a body or while taking an answer (default 60)\n"
           "  max_connections            open connections in all (default 4096)\n"
           "  max_connections_per_client open connections per client address (default 64)\n";
}

void applyConfigValue(ServerConfig& config, const std::string& key, const std::string& value) {
    auto it = setters().find(key);
    if (it == setters().end()) throw ConfigError("Unknown setting \"" + key + "\"");
    it->second(config, key, value);
}

void applyConfigFile(ServerConfig& config, const std::filesystem::path& file) {
    std::string error;
    auto text = readFile(file, &error);
    if (!text) throw ConfigError("Cannot read config file " + file.string() + ": " + error);
    Json json;
    try {
        json = parseJson(*text);
    } catch (const DecodingError& e) {
        throw ConfigError("Config file " + file.string() + " is not valid JSON: " + e.what());
    }
    if (!json.is_object()) throw ConfigError("Config file " + file.string() + " must hold a JSON object");
    for (const auto& [key, value] : json.items()) {
        if (value.is_string()) {
            applyConfigValue(config, key, value.get<std::string>());
        } else if (value.is_number()) {
            applyConfigValue(config, key, value.dump());
        } else {
            throw ConfigError("Setting \"" + key + "\" in " + file.string() +
                              " must be a string or a number");
        }
    }
}

void applyEnvironment(ServerConfig& config, const Environment& env) {
    for (const auto& [key, setter] : setters()) {
        const auto value = env.get("VOCLE_SERVER_" + upper(key));
        if (value && !value->empty()) setter(config, "VOCLE_SERVER_" + upper(key), *value);
    }
}

CommandLine parseCommandLine(const std::vector<std::string>& args, const Environment& env) {
    CommandLine result;
    std::optional<std::string> configFile, listen, dataDir;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        auto takeValue = [&](std::optional<std::string>& slot) {
            const auto eq = arg.find('=');
            if (eq != std::string::npos) {
                slot = arg.substr(eq + 1);
            } else if (i + 1 < args.size()) {
                slot = args[++i];
            } else {
                throw ConfigError("Option " + arg + " needs a value");
            }
        };
        const std::string name = arg.substr(0, arg.find('='));
        if (arg == "--help" || arg == "-h") {
            result.showHelp = true;
        } else if (name == "--listen") {
            takeValue(listen);
        } else if (name == "--data-dir") {
            takeValue(dataDir);
        } else if (name == "--config") {
            takeValue(configFile);
        } else {
            throw ConfigError("Unknown option \"" + arg + "\" (see --help)");
        }
    }
    if (result.showHelp) return result;
    if (configFile) applyConfigFile(result.config, *configFile);
    applyEnvironment(result.config, env);
    if (listen) applyConfigValue(result.config, "listen", *listen);
    if (dataDir) applyConfigValue(result.config, "data_dir", *dataDir);
    if (result.config.dataDir.empty()) result.config.dataDir = xdgDataHome(env) / "vocle-server";
    if (result.config.modelDir.empty()) result.config.modelDir = VOCLE_POCKETSPHINX_MODEL_DIR;
    if (result.config.mailDelivery == "smtp" && result.config.smtpUrl.empty()) {
        throw ConfigError("mail_delivery smtp needs smtp_url");
    }
    if (result.config.speechEngine == "openai" && result.config.openaiUrl.empty()) {
        throw ConfigError("speech_engine openai needs openai_url");
    }
    if (result.config.speechEngine == "command" && result.config.command.empty()) {
        throw ConfigError("speech_engine command needs command");
    }
    return result;
}

}  // namespace vocle::server
