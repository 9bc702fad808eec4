#pragma once

#include <memory>

#include "backend/BackendService.h"
#include "foundation/Log.h"
#include "foundation/NotificationCenter.h"
#include "foundation/VirtualMainQueue.h"
#include "integration/modes/LoopbackBackend.h"
#include "modes/ModeManager.h"
#include "modes/SettingsCoordinator.h"
#include "storage/DataFolder.h"
#include "storage/FileStorageManager.h"
#include "storage/LocalSettingsStore.h"
#include "storage/SessionStore.h"
#include "support/TempDir.h"

namespace vocle::testing {

// Real storage in a temporary folder and the real backend client talking HTTP to a loopback backend,
// with the main queue on virtual time.
struct IntegrationGraph {
    struct Options {
        bool signedIn = true;
        std::optional<std::string> backendURL;          // a real server instead of the loopback one
        std::optional<std::filesystem::path> dataHome;  // an existing data home instead of a fresh one
    };

    explicit IntegrationGraph(bool signedIn = true) : IntegrationGraph(Options{signedIn, {}, {}}) {}
    explicit IntegrationGraph(const Options& options) : folder(options.dataHome.value_or(dir.path())) {
        if (options.signedIn)
            sessions.save({server.validAccessToken, "refresh-1", "user-42", "ada@example.org"});
        backend = std::make_unique<BackendService>(options.backendURL.value_or(server.url()), "1.0", queue,
                                                   sessions, files.deviceId());
        coordinator = std::make_unique<SettingsCoordinator>(queue, *backend);
        modeManager = std::make_unique<ModeManager>(queue, center, modesStore, files, *coordinator);
    }
    ~IntegrationGraph() {
        modeManager.reset();
        coordinator.reset();
        backend.reset();
    }

    // Waits (in real time, for the network) until `count` uploads reached the backend and answered.
    bool waitForUploads(size_t count) {
        return runUntil(queue, [&] {
            return server.requests("POST", "/settings").size() >= count &&
                   coordinator->uploadsInFlight() == 0;
        });
    }

    std::shared_ptr<CapturingLogSink> logs = std::make_shared<CapturingLogSink>();
    ScopedLogSink scopedLogs{logs};
    TempDir dir;
    VirtualMainQueue queue;
    DataFolder folder;
    FileStorageManager files{folder, queue};
    LocalSettingsStore modesStore{folder, queue};
    SessionStore sessions{files};
    NotificationCenter center;
    LoopbackBackend server;
    std::unique_ptr<BackendService> backend;
    std::unique_ptr<SettingsCoordinator> coordinator;
    std::unique_ptr<ModeManager> modeManager;
};

}  // namespace vocle::testing
