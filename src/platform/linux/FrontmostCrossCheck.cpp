#include "platform/linux/FrontmostCrossCheck.h"

#include "foundation/Log.h"

namespace vocle {

FrontmostCrossCheck::FrontmostCrossCheck(MainQueue& main, Workspace& compositor, Workspace& accessibility)
    : main_(main), compositor_(compositor), accessibility_(accessibility) {
    auto onActivation = [this](const std::optional<RunningApplication>&) { schedule(); };
    compositorSubscription_ = compositor_.observeActivations(onActivation);
    accessibilitySubscription_ = accessibility_.observeActivations(onActivation);
}

FrontmostCrossCheck::~FrontmostCrossCheck() {
    pending_.cancel();
}

void FrontmostCrossCheck::schedule() {
    pending_.cancel();
    pending_ = main_.postAfter(Seconds(kSettleSeconds), owner_.guard([this] { compare(); }));
}

void FrontmostCrossCheck::compare() {
    const auto compositor = compositor_.frontmostApplication();
    const auto accessibility = accessibility_.frontmostApplication();
    // An application that does not publish its widgets is simply unseen on the bus: no disagreement.
    if (!compositor || !accessibility || !compositor->bundleIdentifier || !accessibility->bundleIdentifier)
        return;
    if (*compositor->bundleIdentifier == *accessibility->bundleIdentifier) {
        lastReported_.reset();
        return;
    }
    const std::string pair = *compositor->bundleIdentifier + "\n" + *accessibility->bundleIdentifier;
    if (lastReported_ == pair) return;
    lastReported_ = pair;
    log("⚠️ Frontmost application: the compositor says ", *compositor->bundleIdentifier,
        ", the accessibility bus says ", *accessibility->bundleIdentifier);
}

}  // namespace vocle
