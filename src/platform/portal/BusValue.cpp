#include "platform/portal/BusValue.h"

#include <sstream>

namespace vocle::portal {

std::string BusValue::signature() const {
    struct Visitor {
        std::string operator()(bool) const { return "b"; }
        std::string operator()(uint32_t) const { return "u"; }
        std::string operator()(int32_t) const { return "i"; }
        std::string operator()(uint64_t) const { return "t"; }
        std::string operator()(int64_t) const { return "x"; }
        std::string operator()(double) const { return "d"; }
        std::string operator()(const std::string&) const { return "s"; }
        std::string operator()(const ObjectPath&) const { return "o"; }
        std::string operator()(const BusArray& a) const {
            return "a" + (a.items.empty() ? a.elementSignature : a.items.front().signature());
        }
        std::string operator()(const BusDict&) const { return "a{sv}"; }
        std::string operator()(const BusStruct& s) const {
            std::string out = "(";
            for (const auto& field : s.fields) out += field.signature();
            return out + ")";
        }
    };
    return std::visit(Visitor{}, value_);
}

std::optional<uint32_t> BusValue::asUint() const {
    if (auto* u = std::get_if<uint32_t>(&value_)) return *u;
    if (auto* i = std::get_if<int32_t>(&value_); i && *i >= 0) return static_cast<uint32_t>(*i);
    return std::nullopt;
}

std::optional<bool> BusValue::asBool() const {
    if (auto* b = std::get_if<bool>(&value_)) return *b;
    return std::nullopt;
}

std::optional<std::string> dictString(const BusDict& dict, const std::string& key) {
    auto it = dict.find(key);
    if (it == dict.end()) return std::nullopt;
    if (auto* s = it->second.asString()) return *s;
    if (auto* o = it->second.asObjectPath()) return o->path;
    return std::nullopt;
}

std::optional<uint32_t> dictUint(const BusDict& dict, const std::string& key) {
    auto it = dict.find(key);
    return it == dict.end() ? std::nullopt : it->second.asUint();
}

namespace {

void write(std::ostream& out, const BusValue& value) {
    struct Visitor {
        std::ostream& out;
        void operator()(bool v) const { out << (v ? "true" : "false"); }
        void operator()(uint32_t v) const { out << v; }
        void operator()(int32_t v) const { out << v; }
        void operator()(uint64_t v) const { out << v; }
        void operator()(int64_t v) const { out << v; }
        void operator()(double v) const { out << v; }
        void operator()(const std::string& v) const { out << '"' << v << '"'; }
        void operator()(const ObjectPath& v) const { out << v.path; }
        void operator()(const BusArray& a) const {
            out << '[';
            for (size_t i = 0; i < a.items.size(); ++i) {
                if (i) out << ", ";
                write(out, a.items[i]);
            }
            out << ']';
        }
        void operator()(const BusDict& d) const {
            out << '{';
            bool first = true;
            for (const auto& [key, item] : d) {
                if (!first) out << ", ";
                first = false;
                out << '"' << key << "\": ";
                write(out, item);
            }
            out << '}';
        }
        void operator()(const BusStruct& s) const {
            out << '(';
            for (size_t i = 0; i < s.fields.size(); ++i) {
                if (i) out << ", ";
                write(out, s.fields[i]);
            }
            out << ')';
        }
    };
    std::visit(Visitor{out}, value.storage());
}

}  // namespace

std::string describe(const BusValue& value) {
    std::ostringstream out;
    write(out, value);
    return out.str();
}

}  // namespace vocle::portal
