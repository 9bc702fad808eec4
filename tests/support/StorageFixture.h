#pragma once

#include <memory>

#include "foundation/Log.h"
#include "foundation/VirtualMainQueue.h"
#include "storage/DataFolder.h"
#include "support/TempDir.h"

namespace vocle::testing {

// A data home in a temporary folder, a virtual clock and captured log lines.
struct StorageFixtureBase {
    TempDir home;
    VirtualMainQueue clock{800'000'000.0};
    std::shared_ptr<CapturingLogSink> logs = std::make_shared<CapturingLogSink>();
    ScopedLogSink scopedLogs{logs};
    DataFolder folder{home.path()};

    std::filesystem::path vocleFile(const std::string& name) const { return home.path() / "Vocle" / name; }
};

}  // namespace vocle::testing
