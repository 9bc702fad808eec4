#include "CliGraph.h"

namespace vocle::cli {

CliGraph::CliGraph(CliContext& ctx, std::string appVersion)
    : alerts(ctx.err, queue),
      services(ServicePlatform{queue, ctx.env, capture, screen, coreAudio, playback, alerts}, threads.refs(),
               ServiceOptions{std::move(appVersion)}) {}

}  // namespace vocle::cli
