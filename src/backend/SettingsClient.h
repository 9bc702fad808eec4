#pragma once

#include <cstdint>
#include <optional>

#include "backend/BackendService.h"
#include "backend/SettingsRecords.h"

namespace vocle {

// The settings and templates API: GET and POST "/settings".
class SettingsClient {
  public:
    explicit SettingsClient(BackendService& backend) : backend_(backend) {}

    [[nodiscard]] Subscription fetchSettings(BackendService::Completion<SettingsEnvelope> completion);
    // "if_match_version" only when given.
    [[nodiscard]] Subscription backupSettings(const SettingsDoc& settings,
                                              std::optional<int64_t> ifMatchVersion,
                                              BackendService::Completion<BackupResponse> completion);

  private:
    BackendService& backend_;
};

}  // namespace vocle
