#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vocle {

// Key-cap labels of the stored modifier bits in the words of a Linux keyboard: "Ctrl", "Alt", "Shift",
// "Super", in that order (the order GNOME and Plasma write shortcuts in). The stored bits keep their
// original names (Control, Option, Shift, Command), so settings files stay compatible.
std::vector<std::string> modifierKeyCaps(uint64_t modifiers);

// A shortcut as one line of text: the parts joined with "+" ("Ctrl+Alt+Space").
std::string joinKeyCaps(const std::vector<std::string>& parts);

}  // namespace vocle
