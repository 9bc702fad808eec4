#pragma once

#include <string>

#include "CliAlerts.h"
#include "CliCommand.h"
#include "application/ServiceGraph.h"
#include "foundation/RunLoopMainQueue.h"
#include "platform/linux/PulseAudioPlayback.h"
#include "platform/linux/PulseCapture.h"
#include "platform/linux/PulseConnection.h"
#include "platform/linux/PulseCoreAudio.h"
#include "platform/linux/PulseScreenCapture.h"

namespace vocle::cli {

// The client's services for one command: the service graph on PulseAudio, a run loop on the system clock,
// the client's worker threads and alerts on standard error. The sound server is only contacted by the
// commands that record.
class CliGraph {
  public:
    // `appVersion` goes to the backend with every request.
    CliGraph(CliContext& ctx, std::string appVersion);

    SystemClock clock;
    RunLoopMainQueue queue{clock};
    PulseConnection pulse{"Vocle CLI"};
    PulseCapture capture{pulse, queue};
    PulseScreenCapture screen{pulse, queue};
    PulseCoreAudio coreAudio{pulse};
    PulseAudioPlayback playback{pulse};
    CliAlerts alerts;
    ThreadQueues threads;
    ServiceGraph services;
};

}  // namespace vocle::cli
