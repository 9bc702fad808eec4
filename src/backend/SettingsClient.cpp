#include "backend/SettingsClient.h"

namespace vocle {

Subscription SettingsClient::fetchSettings(BackendService::Completion<SettingsEnvelope> completion) {
    if (auto refused = backend_.refuseWithoutSession(completion)) return std::move(*refused);
    return backend_.request<SettingsEnvelope>("/settings", "GET", RequestBody::none(), std::move(completion));
}

Subscription SettingsClient::backupSettings(const SettingsDoc& settings,
                                            std::optional<int64_t> ifMatchVersion,
                                            BackendService::Completion<BackupResponse> completion) {
    if (auto refused = backend_.refuseWithoutSession(completion)) return std::move(*refused);
    Json body = Json::object();
    try {
        // Round-trip through text, as the document is sent: a member that cannot be encoded is left out.
        body["settings"] = Json::parse(settings.toJson().dump());
    } catch (const std::exception&) {
    }
    if (ifMatchVersion) body["if_match_version"] = *ifMatchVersion;
    return backend_.request<BackupResponse>("/settings", "POST", RequestBody::json(body),
                                            std::move(completion));
}

}  // namespace vocle
