#pragma once

#include <memory>

#include "application/ServiceGraph.h"
#include "foundation/Log.h"
#include "integration/modes/LoopbackBackend.h"
#include "support/FakePlatform.h"
#include "support/TempDir.h"

namespace vocle::testing {

// The service graph with real storage in a temporary folder and the real backend client talking HTTP to a
// loopback backend, with the main queue on virtual time and fakes for the OS services.
struct IntegrationGraph : FakePlatform {
    struct Options {
        bool signedIn = true;
        std::optional<std::string> backendURL;          // a real server instead of the loopback one
        std::optional<std::filesystem::path> dataHome;  // an existing data home instead of a fresh one
    };

    explicit IntegrationGraph(bool signedIn = true) : IntegrationGraph(Options{signedIn, {}, {}}) {}
    explicit IntegrationGraph(const Options& options) : graph(build(options)) {}

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
    LoopbackBackend server;
    std::unique_ptr<ServiceGraph> graph;
    DataFolder& folder = graph->folder;
    FileStorageManager& files = graph->files;
    LocalSettingsStore& modesStore = graph->modesStore;
    SessionStore& sessions = graph->sessions;
    NotificationCenter& center = graph->notifications;
    std::unique_ptr<BackendService>& backend = graph->backend;
    std::unique_ptr<SettingsCoordinator>& coordinator = graph->settingsCoordinator;
    std::unique_ptr<ModeManager>& modeManager = graph->modeManager;

  private:
    // A signed-in run starts with the session already on disk, as after an earlier sign-in.
    std::unique_ptr<ServiceGraph> build(const Options& options) {
        const auto home = options.dataHome.value_or(dir.path());
        if (options.signedIn) {
            FileStorageManager earlier{DataFolder(home), queue};
            SessionStore(earlier).save({server.validAccessToken, "refresh-1", "user-42", "ada@example.org"});
        }
        return std::make_unique<ServiceGraph>(
            servicePlatform(), engineQueues(),
            ServiceOptions{"1.0", options.backendURL.value_or(server.url()), home, dir.path() / "tmp",
                           std::vector<std::filesystem::path>{}});
    }
};

}  // namespace vocle::testing
