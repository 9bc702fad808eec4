#include "foundation/TimerHeap.h"

#include <algorithm>

namespace vocle {

namespace {
// std heap functions keep the largest element first; invert so the earliest (then oldest) wins.
bool later(const TimerHeap::Entry& a, const TimerHeap::Entry& b) {
    if (a.due != b.due) return a.due > b.due;
    return a.seq > b.seq;
}
}  // namespace

TimerHandle TimerHeap::push(double due, double interval, Task task, std::shared_ptr<TimerState> state) {
    if (!state) state = std::make_shared<TimerState>();
    heap_.push_back(Entry{due, nextSeq_++, interval, std::move(task), state});
    std::push_heap(heap_.begin(), heap_.end(), later);
    return TimerHandle(std::move(state));
}

const TimerHeap::Entry* TimerHeap::peek() {
    while (!heap_.empty() && heap_.front().state->cancelled) pop();
    return heap_.empty() ? nullptr : &heap_.front();
}

TimerHeap::Entry TimerHeap::pop() {
    std::pop_heap(heap_.begin(), heap_.end(), later);
    Entry e = std::move(heap_.back());
    heap_.pop_back();
    return e;
}

size_t TimerHeap::liveCount() const {
    return static_cast<size_t>(
        std::count_if(heap_.begin(), heap_.end(), [](const Entry& e) { return !e.state->cancelled; }));
}

}  // namespace vocle
