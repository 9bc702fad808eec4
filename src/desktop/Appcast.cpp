#include "desktop/Appcast.h"

#include <cctype>
#include <cstdint>

namespace vocle {

namespace {

std::string decodeEntities(const std::string& s) {
    std::string out;
    out.reserve(s.size());
    for (size_t i = 0; i < s.size(); ++i) {
        if (s[i] != '&') {
            out += s[i];
            continue;
        }
        const size_t semi = s.find(';', i);
        if (semi == std::string::npos || semi - i > 10) {
            out += s[i];
            continue;
        }
        const std::string name = s.substr(i + 1, semi - i - 1);
        if (name == "amp") out += '&';
        else if (name == "lt") out += '<';
        else if (name == "gt") out += '>';
        else if (name == "quot") out += '"';
        else if (name == "apos") out += '\'';
        else if (!name.empty() && name[0] == '#') {
            unsigned long code = 0;
            try {
                code = name.size() > 1 && (name[1] == 'x' || name[1] == 'X') ? std::stoul(name.substr(2), nullptr, 16)
                                                                               : std::stoul(name.substr(1));
            } catch (...) {
                out += s.substr(i, semi - i + 1);
                i = semi;
                continue;
            }
            // UTF-8 encode.
            if (code < 0x80) out += static_cast<char>(code);
            else if (code < 0x800) {
                out += static_cast<char>(0xC0 | (code >> 6));
                out += static_cast<char>(0x80 | (code & 0x3F));
            } else if (code < 0x10000) {
                out += static_cast<char>(0xE0 | (code >> 12));
                out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
                out += static_cast<char>(0x80 | (code & 0x3F));
            } else {
                out += static_cast<char>(0xF0 | (code >> 18));
                out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
                out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
                out += static_cast<char>(0x80 | (code & 0x3F));
            }
        } else {
            out += s.substr(i, semi - i + 1);
        }
        i = semi;
    }
    return out;
}

std::string trim(const std::string& s) {
    size_t b = 0, e = s.size();
    while (b < e && std::isspace(static_cast<unsigned char>(s[b]))) ++b;
    while (e > b && std::isspace(static_cast<unsigned char>(s[e - 1]))) --e;
    return s.substr(b, e - b);
}

// Text content of an element body: CDATA kept verbatim, everything else entity-decoded.
std::string textContent(const std::string& body) {
    std::string out;
    size_t pos = 0;
    while (pos < body.size()) {
        const size_t cdata = body.find("<![CDATA[", pos);
        if (cdata == std::string::npos) {
            out += decodeEntities(body.substr(pos));
            break;
        }
        out += decodeEntities(body.substr(pos, cdata - pos));
        const size_t end = body.find("]]>", cdata);
        if (end == std::string::npos) {
            out += body.substr(cdata + 9);
            break;
        }
        out += body.substr(cdata + 9, end - cdata - 9);
        pos = end + 3;
    }
    return trim(out);
}

// Finds <name ...> or <name .../> at or after pos, not matching longer names ("<link" vs "<linked").
size_t findTag(const std::string& xml, const std::string& name, size_t pos) {
    for (;;) {
        pos = xml.find("<" + name, pos);
        if (pos == std::string::npos) return pos;
        const char next = pos + 1 + name.size() < xml.size() ? xml[pos + 1 + name.size()] : '\0';
        if (next == '>' || next == '/' || std::isspace(static_cast<unsigned char>(next))) return pos;
        pos += 1;
    }
}

struct Element {
    std::string attributes;  // raw text between the name and '>'
    std::string body;
    bool found = false;
};

Element element(const std::string& xml, const std::string& name, size_t from = 0, size_t* endOut = nullptr) {
    Element e;
    const size_t start = findTag(xml, name, from);
    if (start == std::string::npos) return e;
    const size_t close = xml.find('>', start);
    if (close == std::string::npos) return e;
    e.found = true;
    const size_t attrStart = start + 1 + name.size();
    const bool selfClosing = xml[close - 1] == '/';
    e.attributes = xml.substr(attrStart, close - attrStart - (selfClosing ? 1 : 0));
    if (selfClosing) {
        if (endOut) *endOut = close + 1;
        return e;
    }
    // Bodies may hold CDATA with anything in it; skip over it when looking for the end tag.
    size_t search = close + 1;
    for (;;) {
        const size_t endTag = xml.find("</" + name, search);
        const size_t cdata = xml.find("<![CDATA[", search);
        if (cdata != std::string::npos && (endTag == std::string::npos || cdata < endTag)) {
            const size_t cdataEnd = xml.find("]]>", cdata);
            if (cdataEnd == std::string::npos) break;
            search = cdataEnd + 3;
            continue;
        }
        if (endTag == std::string::npos) break;
        e.body = xml.substr(close + 1, endTag - close - 1);
        if (endOut) *endOut = xml.find('>', endTag) + 1;
        return e;
    }
    e.found = false;
    return e;
}

std::string attribute(const std::string& attributes, const std::string& name) {
    size_t pos = 0;
    while ((pos = attributes.find(name, pos)) != std::string::npos) {
        const bool boundary = pos == 0 || std::isspace(static_cast<unsigned char>(attributes[pos - 1]));
        size_t p = pos + name.size();
        while (p < attributes.size() && std::isspace(static_cast<unsigned char>(attributes[p]))) ++p;
        if (boundary && p < attributes.size() && attributes[p] == '=') {
            ++p;
            while (p < attributes.size() && std::isspace(static_cast<unsigned char>(attributes[p]))) ++p;
            if (p < attributes.size() && (attributes[p] == '"' || attributes[p] == '\'')) {
                const char quote = attributes[p];
                const size_t end = attributes.find(quote, p + 1);
                if (end != std::string::npos) return decodeEntities(attributes.substr(p + 1, end - p - 1));
            }
        }
        pos += name.size();
    }
    return {};
}

std::string childText(const std::string& body, const std::string& name) {
    const Element e = element(body, name);
    return e.found ? textContent(e.body) : std::string();
}

struct Part {
    enum Kind { number, text } kind;
    uint64_t value = 0;
    std::string str;
};

std::vector<Part> splitVersion(const std::string& v) {
    std::vector<Part> parts;
    size_t i = 0;
    while (i < v.size()) {
        const unsigned char c = static_cast<unsigned char>(v[i]);
        if (std::isdigit(c)) {
            uint64_t n = 0;
            while (i < v.size() && std::isdigit(static_cast<unsigned char>(v[i]))) {
                n = n * 10 + static_cast<uint64_t>(v[i] - '0');
                ++i;
            }
            parts.push_back({Part::number, n, {}});
        } else if (std::isalpha(c)) {
            std::string s;
            while (i < v.size() && std::isalpha(static_cast<unsigned char>(v[i]))) s += v[i++];
            parts.push_back({Part::text, 0, s});
        } else {
            ++i;  // separators only split
        }
    }
    return parts;
}

}  // namespace

std::string AppcastItem::infoURL() const {
    if (!link.empty()) return link;
    if (!releaseNotesLink.empty()) return releaseNotesLink;
    return downloadURL;
}

int compareVersions(const std::string& a, const std::string& b) {
    const auto pa = splitVersion(a);
    const auto pb = splitVersion(b);
    const size_t n = std::max(pa.size(), pb.size());
    for (size_t i = 0; i < n; ++i) {
        if (i >= pa.size()) return pb[i].kind == Part::text ? 1 : -1;
        if (i >= pb.size()) return pa[i].kind == Part::text ? -1 : 1;
        const Part& x = pa[i];
        const Part& y = pb[i];
        if (x.kind != y.kind) return x.kind == Part::number ? 1 : -1;  // "1.0.1" > "1.0b"
        if (x.kind == Part::number) {
            if (x.value != y.value) return x.value < y.value ? -1 : 1;
        } else if (x.str != y.str) {
            return x.str < y.str ? -1 : 1;
        }
    }
    return 0;
}

Result<std::vector<AppcastItem>> parseAppcast(const std::string& xml) {
    const Element channel = element(xml, "channel");
    if (findTag(xml, "rss", 0) == std::string::npos || !channel.found)
        return Error{"Appcast", 1, "the update feed is not an RSS document"};
    std::vector<AppcastItem> items;
    size_t pos = 0;
    for (;;) {
        size_t end = 0;
        const Element item = element(channel.body, "item", pos, &end);
        if (!item.found) break;
        pos = end;
        AppcastItem it;
        it.title = childText(item.body, "title");
        it.link = childText(item.body, "link");
        it.pubDate = childText(item.body, "pubDate");
        it.releaseNotes = childText(item.body, "description");
        it.releaseNotesLink = childText(item.body, "sparkle:releaseNotesLink");
        const Element enclosure = element(item.body, "enclosure");
        if (enclosure.found) {
            it.downloadURL = attribute(enclosure.attributes, "url");
            it.version = attribute(enclosure.attributes, "sparkle:version");
            it.shortVersion = attribute(enclosure.attributes, "sparkle:shortVersionString");
        }
        if (it.version.empty()) it.version = childText(item.body, "sparkle:version");
        if (it.shortVersion.empty()) it.shortVersion = childText(item.body, "sparkle:shortVersionString");
        if (it.version.empty()) it.version = it.shortVersion;
        if (!it.version.empty()) items.push_back(std::move(it));
    }
    return items;
}

std::optional<AppcastItem> newestItem(const std::vector<AppcastItem>& items) {
    std::optional<AppcastItem> best;
    for (const auto& it : items)
        if (!best || compareVersions(it.version, best->version) > 0) best = it;
    return best;
}

}  // namespace vocle
