#include "modes/SettingsCoordinator.h"

#include "foundation/Log.h"
#include "foundation/MainQueueCheck.h"

namespace vocle {

SettingsCoordinator::SettingsCoordinator(MainQueue& main, BackendService& backend)
    : main_(main), settings_(backend) {}

void SettingsCoordinator::scheduleBackup(SettingsDoc doc) {
    VOCLE_ASSERT_MAIN_QUEUE(main_);
    saveDebouncer_.start(main_, kBackupDelay, token_.guard([this, doc = std::move(doc)] { upload(doc); }));
}

void SettingsCoordinator::upload(SettingsDoc doc) {
    const uint64_t id = nextUpload_++;
    auto subscription = settings_.backupSettings(
        doc, std::nullopt,
        token_.guard([this, id](Result<BackupResponse, BackendError> result) { finished(id, result); }));
    // A backend that answers synchronously has already finished this upload.
    if (!finishedEarly_.erase(id)) cancellables_.emplace(id, std::move(subscription));
}

void SettingsCoordinator::finished(uint64_t id, const Result<BackupResponse, BackendError>& result) {
    if (result.ok()) {
        log("SettingsCoordinator: Cloud backup successful, version ", result.value().settingsVersion);
    } else {
        // A refused session is the backend client's to report (BackendService::sessionRejected).
        log("SettingsCoordinator: Cloud backup failed - ", result.error().errorDescription());
    }
    // Released after this call returns: the subscription is still delivering.
    if (cancellables_.count(id)) {
        main_.post(token_.guard([this, id] { cancellables_.erase(id); }));
    } else {
        finishedEarly_.insert(id);
    }
}

}  // namespace vocle
