#pragma once

#include "application/ClientGraph.h"
#include "application/ServiceGraph.h"
#include "foundation/DispatchQueue.h"
#include "foundation/Environment.h"
#include "foundation/VirtualMainQueue.h"
#include "platform/testing/FakeAccessibility.h"
#include "platform/testing/FakeAlerts.h"
#include "platform/testing/FakeAudioPlayback.h"
#include "platform/testing/FakeBrowserScripting.h"
#include "platform/testing/FakeCapture.h"
#include "platform/testing/FakeCoreAudio.h"
#include "platform/testing/FakeHotKeys.h"
#include "platform/testing/FakeIndicatorPanels.h"
#include "platform/testing/FakeKeyMonitor.h"
#include "platform/testing/FakeScreenCapture.h"
#include "platform/testing/FakeSyntheticKeys.h"
#include "platform/testing/FakeUrlOpener.h"
#include "platform/testing/FakeWorkspace.h"

namespace vocle::testing {

// Every operating-system service as a scriptable fake, the main queue on virtual time and dispatch queues
// the test drains itself: what the graphs are built on in unit tests.
struct FakePlatform {
    VirtualMainQueue queue;
    MapEnvironment env;
    ManualDispatchQueue background;
    InlineDispatchQueue inlineQueue;
    FakeCapture capture;
    FakeScreenCapture screen;
    FakeCoreAudio coreAudio;
    FakeAudioPlayback playback;
    FakeAlerts alerts;
    FakeUrlOpener urlOpener;
    FakeWorkspace workspace;
    FakeBrowserScripting scripting;
    FakeAccessibility accessibility;
    FakeHotKeys hotKeys{queue};
    FakeKeyMonitor keyMonitor{queue};
    FakeLocalKeyMonitor localKeyMonitor;
    FakeSyntheticKeys keys;
    FakePasteboard pasteboard;
    FakeIndicatorPanels panels;

    PlatformServices services(AppcastFetcher* fetcher = nullptr) {
        return {queue,     env,        capture,   screen,        coreAudio, playback,   alerts,
                urlOpener, workspace,  scripting, accessibility, hotKeys,   keyMonitor, localKeyMonitor,
                keys,      pasteboard, panels,    fetcher};
    }
    ServicePlatform servicePlatform() { return services().servicePlatform(); }
    // All blocking work waits on `background` until the test runs it.
    ClientQueues manualQueues() { return {background, background, background, background}; }
    // As above, but the route changes and the system audio samples run at once, as the engine tests need.
    ClientQueues engineQueues() { return {background, background, inlineQueue, inlineQueue}; }
};

}  // namespace vocle::testing
