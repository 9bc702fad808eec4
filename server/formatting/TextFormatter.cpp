#include "formatting/TextFormatter.h"

#include <algorithm>
#include <set>

namespace vocle::server::text_formatter {

namespace {

std::string lower(std::string_view s) {
    std::string out(s);
    for (char& ch : out) ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
    return out;
}

bool isSentenceEnd(char ch) {
    return ch == '.' || ch == '?' || ch == '!';
}
bool isMark(char ch) {
    return isSentenceEnd(ch) || ch == ',' || ch == ';' || ch == ':';
}

std::vector<std::string> words(std::string_view text) {
    std::vector<std::string> out;
    std::string current;
    for (char ch : text) {
        if (std::isspace(static_cast<unsigned char>(ch))) {
            if (!current.empty()) out.push_back(std::move(current));
            current.clear();
        } else {
            current.push_back(ch);
        }
    }
    if (!current.empty()) out.push_back(std::move(current));
    return out;
}

// The word without the marks that follow it, lower-cased.
std::string bare(const std::string& word) {
    size_t end = word.size();
    while (end > 0 && isMark(word[end - 1])) --end;
    return lower(std::string_view(word).substr(0, end));
}

std::string trailingMarks(const std::string& word) {
    size_t end = word.size();
    while (end > 0 && isMark(word[end - 1])) --end;
    return word.substr(end);
}

void attachMark(std::vector<std::string>& out, const std::string& mark) {
    if (out.empty() || mark.empty()) return;
    std::string& last = out.back();
    while (!last.empty() && isMark(last.back())) last.pop_back();
    last += mark;
}

const std::set<std::string>& fillers() {
    static const std::set<std::string> set = {"um", "umm", "uh",  "uhh", "uhm", "erm",
                                              "er", "ah",  "hmm", "mm",  "mhm"};
    return set;
}

void capitalizeFirst(std::string& word) {
    for (char& ch : word) {
        if (std::isalpha(static_cast<unsigned char>(ch))) {
            ch = static_cast<char>(std::toupper(static_cast<unsigned char>(ch)));
            return;
        }
        if (std::isdigit(static_cast<unsigned char>(ch))) return;
    }
}

std::string join(const std::vector<std::string>& parts, std::string_view separator) {
    std::string out;
    for (size_t i = 0; i < parts.size(); ++i) {
        if (i) out += separator;
        out += parts[i];
    }
    return out;
}

std::string emailLayout(const std::string& cleaned) {
    static const std::set<std::string> greetings = {"hi", "hello", "hey", "dear"};
    static const std::set<std::string> notNames = {"i",  "i'm", "we",  "there", "just",
                                                   "so", "all", "and", "it",    "this"};
    static const std::set<std::string> closings = {"thanks", "thank", "best",     "regards",
                                                   "cheers", "kind",  "sincerely"};
    std::vector<std::string> ws = words(cleaned);
    std::string greeting = "Hi,";
    if (!ws.empty() && greetings.count(bare(ws[0]))) {
        size_t used = 1;
        std::string g = ws[0];
        if (trailingMarks(ws[0]).empty() && ws.size() > 2 && !notNames.count(bare(ws[1]))) {
            g += " " + ws[1];
            used = 2;
        }
        while (!g.empty() && isMark(g.back())) g.pop_back();
        std::string name = g.substr(g.find(' ') == std::string::npos ? g.size() : g.find(' ') + 1);
        if (!name.empty()) {
            capitalizeFirst(name);
            g = g.substr(0, g.find(' ')) + " " + name;
        }
        greeting = g + ",";
        ws.erase(ws.begin(), ws.begin() + static_cast<long>(used));
        if (!ws.empty()) capitalizeFirst(ws[0]);
    }
    std::vector<std::string> body = sentences(join(ws, " "));
    std::string closing = "Best regards,";
    if (!body.empty()) {
        const auto last = words(body.back());
        if (!last.empty() && closings.count(bare(last[0])) && last.size() <= 4) {
            closing = body.back();
            while (!closing.empty() && isMark(closing.back())) closing.pop_back();
            closing += ",";
            body.pop_back();
        }
    }
    std::string out = greeting + "\n\n";
    if (!body.empty()) out += join(body, " ") + "\n\n";
    return out + closing;
}

}  // namespace

std::string clean(std::string_view transcript) {
    const std::vector<std::string> in = words(transcript);
    std::vector<std::string> out;
    for (size_t i = 0; i < in.size(); ++i) {
        const std::string b = bare(in[i]);
        const std::string next = i + 1 < in.size() ? bare(in[i + 1]) : std::string();
        if ((b == "full" && next == "stop") || (b == "question" && next == "mark") ||
            (b == "exclamation" && (next == "mark" || next == "point"))) {
            if (!out.empty()) {
                attachMark(out, b == "full" ? "." : b == "question" ? "?" : "!");
                ++i;
                continue;
            }
        }
        if (b == "comma" && !out.empty() && i + 1 < in.size()) {
            attachMark(out, ",");
            continue;
        }
        if (fillers().count(b)) {
            const std::string marks = trailingMarks(in[i]);
            if (!marks.empty() && isSentenceEnd(marks.back())) attachMark(out, marks);
            continue;
        }
        out.push_back(in[i]);
    }
    bool sentenceStart = true;
    for (std::string& word : out) {
        const std::string b = bare(word);
        if (b == "i" || b.rfind("i'", 0) == 0) word[0] = 'I';
        if (sentenceStart) capitalizeFirst(word);
        sentenceStart = isSentenceEnd(word.back());
    }
    if (!out.empty()) {
        std::string& last = out.back();
        if (!isSentenceEnd(last.back())) {
            while (!last.empty() && isMark(last.back())) last.pop_back();
            if (last.empty()) {
                out.pop_back();
            } else {
                last += ".";
            }
        }
    }
    return join(out, " ");
}

std::vector<std::string> sentences(std::string_view cleaned) {
    std::vector<std::string> out;
    std::vector<std::string> current;
    for (std::string& word : words(cleaned)) {
        const bool end = isSentenceEnd(word.back());
        current.push_back(std::move(word));
        if (end) {
            out.push_back(join(current, " "));
            current.clear();
        }
    }
    if (!current.empty()) out.push_back(join(current, " "));
    return out;
}

std::string format(Layout layout, std::string_view transcript) {
    if (layout == Layout::Raw) return std::string(transcript);
    const std::string cleaned = clean(transcript);
    switch (layout) {
        case Layout::Raw:
        case Layout::Clean:
            return cleaned;
        case Layout::Message: {
            // Chat messages usually go without a closing full stop; questions and exclamations keep theirs.
            std::string message = cleaned;
            if (!message.empty() && message.back() == '.' &&
                (message.size() < 2 || message[message.size() - 2] != '.')) {
                message.pop_back();
            }
            return message;
        }
        case Layout::Email:
            return cleaned.empty() ? cleaned : emailLayout(cleaned);
        case Layout::SimpleNote:
            return join(sentences(cleaned), "\n");
        case Layout::OrganizedNote: {
            std::vector<std::string> lines;
            for (const auto& s : sentences(cleaned)) lines.push_back("- " + s);
            return join(lines, "\n");
        }
    }
    return cleaned;
}

}  // namespace vocle::server::text_formatter
