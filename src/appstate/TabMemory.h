#pragma once

#include "foundation/MainQueue.h"
#include "foundation/OwnerToken.h"
#include "foundation/Signal.h"
#include "storage/FileStorageManager.h"

namespace vocle {

// The main window's tab across launches: the home tab on the first launch, else the last one chosen.
// Leaving the first chosen tab ends the first-launch state. Main queue only.
class TabMemory {
public:
    TabMemory(MainQueue& mainQueue, const FileStorageManager& storage, Observable<int>& selectedTab,
              const Observable<bool>& isInitializing);

    void restore();
    // Every later choice is written, except while the app is still starting.
    void startPersisting();

private:
    void persist(int tab);

    MainQueue& mainQueue_;
    const FileStorageManager& storage_;
    Observable<int>& selectedTab_;
    const Observable<bool>& isInitializing_;
    Subscription subscription_;
    OwnerToken token_;
};

}  // namespace vocle
