#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "formatting/TemplateCatalogue.h"

namespace vocle::server {

// Deterministic formatting used when no chat model is configured, and as the fallback when one fails.
namespace text_formatter {

// Fillers removed, spoken punctuation ("full stop", "comma", "question mark", "exclamation mark") turned
// into marks, sentences capitalised, "i" as "I", and a full stop added when the text ends without one.
std::string clean(std::string_view transcript);

// Sentences of a cleaned text, each keeping its closing mark.
std::vector<std::string> sentences(std::string_view cleaned);

std::string format(Layout layout, std::string_view transcript);

}  // namespace text_formatter

}  // namespace vocle::server
