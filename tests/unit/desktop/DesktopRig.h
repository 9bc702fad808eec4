#pragma once

#include <deque>
#include <memory>

#include "application/ClientGraph.h"
#include "application/DictationApp.h"
#include "foundation/Log.h"
#include "support/FakePlatform.h"
#include "support/TempDir.h"

namespace vocle::testing {

// Answers feed requests from a script the test fills; unanswered requests wait.
class ScriptedAppcastFetcher final : public AppcastFetcher {
public:
    void fetch(const std::string& url, std::function<void(Result<std::string>)> completion) override {
        urls.push_back(url);
        waiting.push_back(std::move(completion));
    }
    void answer(Result<std::string> result) {
        auto c = std::move(waiting.front());
        waiting.pop_front();
        c(std::move(result));
    }
    std::vector<std::string> urls;
    std::deque<std::function<void(Result<std::string>)>> waiting;
};

// The whole client graph on virtual time with fakes for every OS service and real files in a temp folder.
struct DesktopRig : FakePlatform {
    explicit DesktopRig(bool trusted = true) {
        accessibility.setTrusted(trusted);
        graph = std::make_unique<ClientGraph>(
            services(&fetcher), manualQueues(),
            ClientOptions{"1.2.0", std::string("http://127.0.0.1:9"), std::nullopt, std::nullopt, dir.path() / "data",
                          dir.path() / "tmp", std::vector<std::filesystem::path>{}});
        app = std::make_unique<DictationApp>(
            *graph, DictationApp::WindowHooks{[this] { ++activations; }, [this] { ++mainWindowOpens; },
                                              [this] { ++quits; }, [this] { return enableAccessibilityResult; }});
    }
    ~DesktopRig() {
        app.reset();
        graph.reset();
    }

    std::shared_ptr<CapturingLogSink> logs = std::make_shared<CapturingLogSink>();
    ScopedLogSink scoped{logs};
    TempDir dir;
    ScriptedAppcastFetcher fetcher;
    int activations = 0;
    int mainWindowOpens = 0;
    int quits = 0;
    bool enableAccessibilityResult = false;
    std::unique_ptr<ClientGraph> graph;
    std::unique_ptr<DictationApp> app;

    // Index of the first log line containing the fragment, or -1.
    long lineOf(const std::string& fragment) const {
        const auto lines = logs->lines();
        for (size_t i = 0; i < lines.size(); ++i)
            if (lines[i].find(fragment) != std::string::npos) return static_cast<long>(i);
        return -1;
    }
};

}  // namespace vocle::testing
