#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <set>

#include "backend/BackendService.h"
#include "backend/SettingsClient.h"
#include "backend/SettingsRecords.h"
#include "foundation/MainQueue.h"
#include "foundation/OwnerToken.h"
#include "foundation/Signal.h"
#include "foundation/Timer.h"

namespace vocle {

// The one funnel of cloud backups: waits until a burst of changes is over and uploads only its last
// document. Local files are the callers' business. Main queue only.
class SettingsCoordinator {
  public:
    SettingsCoordinator(MainQueue& main, BackendService& backend);
    SettingsCoordinator(const SettingsCoordinator&) = delete;
    SettingsCoordinator& operator=(const SettingsCoordinator&) = delete;

    // Replaces any pending document; the upload starts kBackupDelay seconds after the last call.
    void scheduleBackup(SettingsDoc doc);

    bool hasPendingBackup() const { return saveDebouncer_.isActive(); }
    size_t uploadsInFlight() const { return cancellables_.size(); }

    static constexpr Seconds kBackupDelay{1.5};

  private:
    void upload(SettingsDoc doc);
    void finished(uint64_t id, const Result<BackupResponse, BackendError>& result);

    MainQueue& main_;
    SettingsClient settings_;
    Timer saveDebouncer_;
    // Running uploads are never cancelled by a newer schedule; each lives here until it answers.
    std::map<uint64_t, Subscription> cancellables_;
    std::set<uint64_t> finishedEarly_;
    uint64_t nextUpload_ = 0;
    OwnerToken token_;
};

}  // namespace vocle
