#pragma once

#include <memory>
#include <optional>

#include "application/ServiceGraph.h"
#include "foundation/Log.h"
#include "platform/testing/FakeHttpTransport.h"
#include "support/FakePlatform.h"
#include "support/TempDir.h"

namespace vocle::testing {

// The backend client from the service graph on the virtual queue with the scripted network: no thread, no
// socket.
struct FakeBackendHarness : FakePlatform {
    static constexpr const char* kOrigin = "https://backend.test";

    TempDir dir;
    std::shared_ptr<CapturingLogSink> logs = std::make_shared<CapturingLogSink>();
    ScopedLogSink scopedLogs{logs};
    std::shared_ptr<FakeHttpTransport> network = std::make_shared<FakeHttpTransport>(queue);
    ServiceGraph graph{servicePlatform(), manualQueues(),
                       ServiceOptions{"9.9.9", std::string(kOrigin), dir.path(), dir.path() / "tmp",
                                      std::vector<std::filesystem::path>{}, network}};
    FileStorageManager& files = graph.files;
    SessionStore& sessions = graph.sessions;

    // Stores the session and hands its tokens to the client, as a completed sign-in does.
    void signIn(const std::string& access = "acc-1", const std::string& refresh = "ref-1") {
        sessions.save(SupabaseSession{access, refresh, "user-1", "user@example.org"});
        graph.backend->setAccessToken(access);
        graph.backend->setRefreshToken(refresh);
    }
    BackendService& service() { return *graph.backend; }
    double now() const { return queue.now(); }
};

inline const std::string kSettingsEnvelope = R"({"settings_version": 3, "templates_version": 7})";

}  // namespace vocle::testing
