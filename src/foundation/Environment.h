#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>

namespace vocle {

// Process environment behind an interface so path rules can be tested without touching the real one.
class Environment {
public:
    virtual ~Environment() = default;
    virtual std::optional<std::string> get(const std::string& name) const = 0;
};

class ProcessEnvironment final : public Environment {
public:
    std::optional<std::string> get(const std::string& name) const override;
};

class MapEnvironment final : public Environment {
public:
    MapEnvironment() = default;
    explicit MapEnvironment(std::map<std::string, std::string> values) : values_(std::move(values)) {}
    std::optional<std::string> get(const std::string& name) const override;
    void set(const std::string& name, const std::string& value) { values_[name] = value; }

private:
    std::map<std::string, std::string> values_;
};

// $XDG_DATA_HOME, else ~/.local/share (an empty or relative value is ignored, as the XDG rules say).
std::filesystem::path xdgDataHome(const Environment& env);
// $XDG_CONFIG_HOME, else ~/.config.
std::filesystem::path xdgConfigHome(const Environment& env);
// $TMPDIR, else /tmp.
std::filesystem::path temporaryDirectory(const Environment& env);

}  // namespace vocle
