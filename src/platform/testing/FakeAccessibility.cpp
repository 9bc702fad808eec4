#include "platform/testing/FakeAccessibility.h"

namespace vocle::testing {

std::shared_ptr<FakeAXNode> FakeAXNode::make(std::string role) {
    auto node = std::make_shared<FakeAXNode>();
    node->role = {kAXSuccess, std::move(role)};
    return node;
}

std::shared_ptr<FakeAXNode> FakeAXNode::textField(std::string value) {
    auto node = make(kAXTextFieldRole);
    node->value = {kAXSuccess, std::move(value)};
    return node;
}

std::shared_ptr<FakeAXNode> FakeAXNode::add(std::shared_ptr<FakeAXNode> child) {
    children.push_back(child);
    return child;
}

bool FakeAccessibility::isProcessTrusted(bool prompt) {
    std::lock_guard lock(mutex_);
    if (prompt && !trusted_) ++prompts_;
    return trusted_;
}

AXElement FakeAccessibility::applicationElement(int processIdentifier) {
    return std::make_shared<App>(processIdentifier);
}

AXRead<AXElement> FakeAccessibility::focusedWindow(const AXElement& application) {
    std::lock_guard lock(mutex_);
    ++windowReads_;
    auto app = std::dynamic_pointer_cast<const App>(application);
    if (!app) return {kAXFailure, std::nullopt};
    if (auto e = windowErrors_.find(app->pid); e != windowErrors_.end()) return {e->second, std::nullopt};
    auto w = windows_.find(app->pid);
    if (w == windows_.end()) return {kAXNoValue, std::nullopt};
    return {kAXSuccess, AXElement(w->second)};
}

AXRead<std::string> FakeAccessibility::role(const AXElement& element) {
    std::lock_guard lock(mutex_);
    ++roleReads_;
    auto node = std::dynamic_pointer_cast<const FakeAXNode>(element);
    if (!node) return {kAXFailure, std::nullopt};
    return node->role;
}

AXRead<std::string> FakeAccessibility::stringValue(const AXElement& element) {
    auto node = std::dynamic_pointer_cast<const FakeAXNode>(element);
    if (!node) return {kAXFailure, std::nullopt};
    return node->value;
}

AXRead<std::vector<AXElement>> FakeAccessibility::children(const AXElement& element) {
    auto node = std::dynamic_pointer_cast<const FakeAXNode>(element);
    if (!node) return {kAXFailure, std::nullopt};
    if (node->childrenCode != kAXSuccess) return {node->childrenCode, std::nullopt};
    std::vector<AXElement> out(node->children.begin(), node->children.end());
    return {kAXSuccess, std::move(out)};
}

void FakeAccessibility::setTrusted(bool trusted) {
    std::lock_guard lock(mutex_);
    trusted_ = trusted;
}

void FakeAccessibility::setFocusedWindow(int pid, std::shared_ptr<FakeAXNode> window) {
    std::lock_guard lock(mutex_);
    windowErrors_.erase(pid);
    windows_[pid] = std::move(window);
}

void FakeAccessibility::setFocusedWindowError(int pid, int code) {
    std::lock_guard lock(mutex_);
    windowErrors_[pid] = code;
}

size_t FakeAccessibility::roleReads() const {
    std::lock_guard lock(mutex_);
    return roleReads_;
}

size_t FakeAccessibility::focusedWindowReads() const {
    std::lock_guard lock(mutex_);
    return windowReads_;
}

int FakeAccessibility::promptCount() const {
    std::lock_guard lock(mutex_);
    return prompts_;
}

}  // namespace vocle::testing
