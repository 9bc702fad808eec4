#include "formatting/TemplateCatalogue.h"

namespace vocle::server {

namespace {
std::string lower(std::string s) {
    for (char& ch : s) ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
    return s;
}
}  // namespace

TemplateCatalogue::TemplateCatalogue() {
    templates_ = {
        {"11111111-1111-1111-1111-111111111111", "Raw", "", "English",
         "The words exactly as recognised, with nothing changed.", true, Layout::Raw},
        {kDefaultModeTypeId, "Clean",
         "Clean up the dictated text: remove filler words (um, uh, er), false starts and repetitions, fix "
         "capitalisation, punctuation and obvious grammar slips. Keep the speaker's words and meaning; do "
         "not "
         "add, summarise or answer anything.",
         "English", "Tidy text: fillers removed, sentences capitalised and punctuated.", true, Layout::Clean},
        {"33333333-3333-3333-3333-333333333333", "Message",
         "Format the dictated text as a short chat message: remove fillers, fix punctuation, keep it casual "
         "and "
         "concise, no greeting or sign-off unless spoken.",
         "English", "A chat message for Slack, Teams or a text.", true, Layout::Message},
        {"44444444-4444-4444-4444-444444444444", "Email",
         "Format the dictated text as an e-mail: a greeting line, the body in short paragraphs, and a "
         "sign-off. "
         "Remove fillers and fix punctuation; keep the speaker's content.",
         "English", "An e-mail with greeting, body and sign-off.", true, Layout::Email},
        {"55555555-5555-5555-5555-555555555555", "Simple Note",
         "Format the dictated text as a plain note: remove fillers, fix punctuation, one sentence per line.",
         "English", "A plain note, one sentence per line.", true, Layout::SimpleNote},
        {"66666666-6666-6666-6666-666666666666", "Organized Note",
         "Format the dictated text as an organised note: a bulleted list of the points made, in the order "
         "spoken, fillers removed.",
         "English", "A bulleted list of the points made.", true, Layout::OrganizedNote},
    };
}

Json TemplateCatalogue::document() const {
    Json types = Json::array();
    for (const auto& t : templates_) {
        types.push_back({{"id", t.id},
                         {"name", t.name},
                         {"prompt", t.prompt},
                         {"language", t.language},
                         {"description", t.description},
                         {"display", t.display}});
    }
    return Json{{"mode_types", types}};
}

const ModeTemplate* TemplateCatalogue::find(const std::optional<std::string>& modeTypeId,
                                            const std::string& typeName) const {
    if (modeTypeId) {
        for (const auto& t : templates_) {
            if (lower(t.id) == lower(*modeTypeId)) return &t;
        }
    }
    const std::string name = lower(typeName);
    for (const auto& t : templates_) {
        if (lower(t.name) == name) return &t;
    }
    return nullptr;
}

}  // namespace vocle::server
