#include "platform/testing/FakeBrowserScripting.h"

namespace vocle::testing {

bool FakeBrowserScripting::isAvailable() const {
    std::lock_guard lock(mutex_);
    return available_;
}

ScriptOutcome FakeBrowserScripting::execute(const std::string& source) {
    std::lock_guard lock(mutex_);
    executed_.push_back(source);
    auto it = queued_.find(source);
    if (it == queued_.end() || it->second.empty()) return default_;
    ScriptOutcome outcome = std::move(it->second.front());
    it->second.pop_front();
    return outcome;
}

void FakeBrowserScripting::setAvailable(bool available) {
    std::lock_guard lock(mutex_);
    available_ = available;
}

void FakeBrowserScripting::enqueue(const std::string& source, ScriptOutcome outcome) {
    std::lock_guard lock(mutex_);
    queued_[source].push_back(std::move(outcome));
}

void FakeBrowserScripting::setDefaultOutcome(ScriptOutcome outcome) {
    std::lock_guard lock(mutex_);
    default_ = std::move(outcome);
}

std::vector<std::string> FakeBrowserScripting::executed() const {
    std::lock_guard lock(mutex_);
    return executed_;
}

}  // namespace vocle::testing
