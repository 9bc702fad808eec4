#pragma once

#include <memory>
#include <optional>

#include "backend/BackendService.h"
#include "foundation/Log.h"
#include "foundation/VirtualMainQueue.h"
#include "platform/testing/FakeHttpTransport.h"
#include "storage/DataFolder.h"
#include "storage/FileStorageManager.h"
#include "storage/SessionStore.h"
#include "support/TempDir.h"

namespace vocle::testing {

// The backend client on the virtual queue with the scripted network: no thread, no socket.
struct FakeBackendHarness {
    VirtualMainQueue queue;
    TempDir dir;
    FileStorageManager files{DataFolder(dir.path()), queue};
    SessionStore sessions{files};
    std::shared_ptr<CapturingLogSink> logs = std::make_shared<CapturingLogSink>();
    ScopedLogSink scopedLogs{logs};
    std::shared_ptr<FakeHttpTransport> network = std::make_shared<FakeHttpTransport>(queue);
    std::unique_ptr<BackendService> backend;

    static constexpr const char* kOrigin = "https://backend.test";

    void signIn(const std::string& access = "acc-1", const std::string& refresh = "ref-1") {
        sessions.save(SupabaseSession{access, refresh, "user-1", "user@example.org"});
    }
    BackendService& service() {
        if (!backend)
            backend = std::make_unique<BackendService>(kOrigin, "9.9.9", queue, sessions, files.deviceId(), network);
        return *backend;
    }
    double now() const { return queue.now(); }
};

inline const std::string kSettingsEnvelope = R"({"settings_version": 3, "templates_version": 7})";

}  // namespace vocle::testing
