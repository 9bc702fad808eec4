#pragma once

#include <memory>

#include "backend/BackendService.h"
#include "foundation/Log.h"
#include "foundation/NotificationCenter.h"
#include "foundation/VirtualMainQueue.h"
#include "modes/ModeManager.h"
#include "modes/SettingsCoordinator.h"
#include "platform/testing/FakeHttpTransport.h"
#include "storage/DataFolder.h"
#include "storage/FileStorageManager.h"
#include "storage/LocalSettingsStore.h"
#include "storage/SessionStore.h"
#include "support/TempDir.h"

namespace vocle::testing {

// The mode subsystem as the application builds it: real storage in a temporary folder and the real
// backend client on the scripted network, on virtual time. Signed out unless a test stores a session.
struct ModesTestGraph {
    ModesTestGraph() {
        backend = std::make_unique<BackendService>("https://backend.test", "1.0", queue, sessions, files.deviceId(), network);
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
    std::shared_ptr<FakeHttpTransport> network = std::make_shared<FakeHttpTransport>(queue);
    std::unique_ptr<BackendService> backend;
    std::unique_ptr<SettingsCoordinator> coordinator;
    std::unique_ptr<ModeManager> modeManager;
};

}  // namespace vocle::testing
