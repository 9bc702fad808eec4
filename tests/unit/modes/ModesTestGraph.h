#pragma once

#include <memory>

#include "backend/BackendService.h"
#include "foundation/Log.h"
#include "foundation/NotificationCenter.h"
#include "foundation/VirtualMainQueue.h"
#include "modes/ModeManager.h"
#include "modes/SettingsCoordinator.h"
#include "storage/DataFolder.h"
#include "storage/FileStorageManager.h"
#include "storage/LocalSettingsStore.h"
#include "storage/SessionStore.h"
#include "support/TempDir.h"

namespace vocle::testing {

// The mode subsystem as the application builds it: real storage in a temporary folder and the real
// backend client, on virtual time. Signed out, so a backup fails at once without touching the network
// (the uploads themselves are exercised by the integration tests).
struct ModesTestGraph {
    ModesTestGraph() {
        backend = std::make_unique<BackendService>("http://127.0.0.1:9", "1.0", queue, sessions, files);
        coordinator = std::make_unique<SettingsCoordinator>(queue, *backend);
        modeManager = std::make_unique<ModeManager>(queue, center, modesStore, files, *coordinator);
    }
    ~ModesTestGraph() {
        modeManager.reset();
        coordinator.reset();
        backend.reset();
    }

    void cacheTemplates(const Json& templates) { files.saveCloudTemplatesCache(templates.dump()); }

    std::shared_ptr<CapturingLogSink> logs = std::make_shared<CapturingLogSink>();
    ScopedLogSink scopedLogs{logs};
    TempDir dir;
    VirtualMainQueue queue;
    DataFolder folder{dir.path()};
    FileStorageManager files{folder, queue};
    LocalSettingsStore modesStore{folder, queue};
    SessionStore sessions{files};
    NotificationCenter center;
    std::unique_ptr<BackendService> backend;
    std::unique_ptr<SettingsCoordinator> coordinator;
    std::unique_ptr<ModeManager> modeManager;
};

}  // namespace vocle::testing
