// Scrolling the history screen through thousands of transcripts: every step repaints synchronously and
// is timed; regrouping the whole history is timed too. Offscreen unless a display is given.
#include "foundation/FileIO.h"
#include "foundation/VirtualMainQueue.h"
#include "screens/HistoryViewModel.h"
#include "storage/DataFolder.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QListView>
#include <QScrollBar>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <vector>

#include "ui/screens/HistoryView.h"

using namespace vocle;

namespace {

double percentile(std::vector<double> v, double p) {
    std::sort(v.begin(), v.end());
    return v[std::min(v.size() - 1, static_cast<size_t>(p * (v.size() - 1) + 0.5))];
}

}  // namespace

int main(int argc, char** argv) {
    const int entries = argc > 1 ? std::atoi(argv[1]) : 5000;
    if (!std::getenv("DISPLAY")) setenv("QT_QPA_PLATFORM", "offscreen", 1);
    QApplication app(argc, argv);

    char pattern[] = "/tmp/vocle-bench-XXXXXX";
    const std::filesystem::path dir = mkdtemp(pattern);
    VirtualMainQueue queue;
    const auto file = HistoryService(DataFolder{dir}, queue).historyFile();
    Json list = Json::array();
    const char* samples[] = {"Remind me to water the plants.",
                             "Send the quarterly numbers to Dana before Friday and copy the finance team.",
                             "Hi Sam, thanks for the quick turnaround on the review. Two small things: the second chart "
                             "needs a legend and the summary should mention the pilot customers."};
    const double span = 29.0 * 86400.0;
    for (int i = 0; i < entries; ++i)
        list.push_back(TranscriptionHistory{Uuid::random(), samples[i % 3], queue.now() - 60 - i * span / entries}.toJson());
    ensureDirectory(file.parent_path());
    writeFileAtomically(file, list.dump());
    HistoryService history(DataFolder{dir}, queue);
    HistoryViewModel vm(queue, history, [](const std::string&) {});

    HistoryView view(vm, nullptr);
    view.resize(470, 600);
    view.show();
    app.processEvents();

    QElapsedTimer timer;
    std::vector<double> grouping;
    for (int i = 0; i < 5; ++i) {
        timer.start();
        auto groups = HistoryViewModel::group(history.transcriptions.get(), queue.now());
        grouping.push_back(timer.nsecsElapsed() / 1e6);
    }
    std::vector<double> regroup;
    for (int i = 0; i < 5; ++i) {
        timer.start();
        vm.regroup();
        app.processEvents();
        regroup.push_back(timer.nsecsElapsed() / 1e6);
    }

    auto* bar = view.listView()->verticalScrollBar();
    std::vector<double> frames;
    for (int value = 0; value <= bar->maximum(); value += 90) {
        timer.start();
        bar->setValue(value);
        view.listView()->viewport()->repaint();
        frames.push_back(timer.nsecsElapsed() / 1e6);
    }
    std::filesystem::remove_all(dir);

    const double p99 = percentile(frames, 0.99);
    const double regroupMedian = percentile(regroup, 0.5);
    std::printf("history entries: %d, rows: %d, scroll steps: %zu\n", entries, view.listView()->model()->rowCount(),
                frames.size());
    std::printf("scroll step repaint: median %.2f ms, p99 %.2f ms, max %.2f ms (target p99 < 16 ms)\n",
                percentile(frames, 0.5), p99, percentile(frames, 1.0));
    std::printf("scroll p90 %.2f ms, p95 %.2f ms\n", percentile(frames, 0.90), percentile(frames, 0.95));
    std::printf("grouping alone: median %.2f ms\n", percentile(grouping, 0.5));
    std::printf("regroup + model reset: median %.2f ms (target < 100 ms)\n", regroupMedian);
    return p99 < 16.0 && regroupMedian < 100.0 ? 0 : 1;
}
