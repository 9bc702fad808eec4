#pragma once

#include <memory>

#include "application/ServiceGraph.h"
#include "foundation/Log.h"
#include "platform/testing/FakeHttpTransport.h"
#include "support/FakePlatform.h"
#include "support/TempDir.h"

namespace vocle::testing {

// The mode subsystem as the application builds it, taken from the service graph: real storage in a
// temporary folder and the real backend client on the scripted network, on virtual time. Signed out unless
// a test stores a session.
struct ModesTestGraph : FakePlatform {
    void cacheTemplates(const Json& templates) { files.saveCloudTemplatesCache(templates.dump()); }

    std::shared_ptr<CapturingLogSink> logs = std::make_shared<CapturingLogSink>();
    ScopedLogSink scopedLogs{logs};
    TempDir dir;
    std::shared_ptr<FakeHttpTransport> network = std::make_shared<FakeHttpTransport>(queue);
    ServiceGraph graph{servicePlatform(), manualQueues(),
                       ServiceOptions{"1.0", std::string("https://backend.test"), dir.path(), dir.path() / "tmp",
                                      std::vector<std::filesystem::path>{}, network}};
    DataFolder& folder = graph.folder;
    FileStorageManager& files = graph.files;
    LocalSettingsStore& modesStore = graph.modesStore;
    SessionStore& sessions = graph.sessions;
    NotificationCenter& center = graph.notifications;
    std::unique_ptr<BackendService>& backend = graph.backend;
    std::unique_ptr<SettingsCoordinator>& coordinator = graph.settingsCoordinator;
    std::unique_ptr<ModeManager>& modeManager = graph.modeManager;
};

}  // namespace vocle::testing
