#include "appstate/TabMemory.h"

#include "core/AppConstants.h"
#include "foundation/Log.h"

namespace vocle {

TabMemory::TabMemory(MainQueue& mainQueue, const FileStorageManager& storage, Observable<int>& selectedTab,
                     const Observable<bool>& isInitializing)
    : mainQueue_(mainQueue), storage_(storage), selectedTab_(selectedTab), isInitializing_(isInitializing) {}

void TabMemory::restore() {
    const auto onboarding = storage_.loadOnboardingState();
    if (onboarding.isFirstLaunch) {
        selectedTab_.set(Tab::home);
    } else {
        selectedTab_.set(onboarding.lastSelectedTab < 0 ? 0 : onboarding.lastSelectedTab);
    }
    log("AppState: Initial selectedTab = ", selectedTab_.get(),
        ", isFirstLaunch = ", boolText(onboarding.isFirstLaunch));
}

void TabMemory::startPersisting() {
    subscription_ = selectedTab_.subscribe(token_.guard([this](const int& tab) {
        if (isInitializing_.get() || tab < 0) return;
        persist(tab);
    }), &mainQueue_);
}

void TabMemory::persist(int tab) {
    auto state = storage_.loadOnboardingState();
    state.lastSelectedTab = tab;
    storage_.saveOnboardingState(state);
    state = storage_.loadOnboardingState();
    state.isFirstLaunch = false;
    storage_.saveOnboardingState(state);
}

}  // namespace vocle
