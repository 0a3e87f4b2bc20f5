#include "TavriCommon/Settings.h"

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "TavriCommon/Exceptions.h"

namespace Tavri {

struct SettingsNode {
    enum class Kind { Group, Number, Word };

    Kind kind = Kind::Group;
    std::string path;
    std::string description;
    double number = 0.0;
    std::string word;
    std::vector<std::string> range;
    std::vector<std::pair<std::string, std::shared_ptr<SettingsNode>>> children;

    std::shared_ptr<SettingsNode> child(const std::string& name) const {
        for (const auto& entry : children)
            if (entry.first == name) return entry.second;
        return nullptr;
    }

    std::shared_ptr<SettingsNode> addChild(const std::string& name) {
        auto node = std::make_shared<SettingsNode>();
        node->path = path.empty() ? name : path + "/" + name;
        children.emplace_back(name, node);
        return node;
    }
};

namespace {

using Kind = SettingsNode::Kind;
using json = nlohmann::ordered_json;

std::vector<std::string> splitPath(const std::string& key) {
    std::vector<std::string> parts;
    std::string::size_type begin = 0;
    while (true) {
        const auto end = key.find('/', begin);
        parts.push_back(key.substr(begin, end - begin));
        if (end == std::string::npos) break;
        begin = end + 1;
    }
    if (key.empty() || std::any_of(parts.begin(), parts.end(), [](const auto& p) { return p.empty(); }))
        throw RuntimeException("Invalid settings key '" + key + "'");
    return parts;
}

std::shared_ptr<SettingsNode> find(const std::shared_ptr<SettingsNode>& root, const std::string& key) {
    auto node = root;
    for (const auto& part : splitPath(key)) {
        node = node->kind == Kind::Group ? node->child(part) : nullptr;
        if (!node) return nullptr;
    }
    return node;
}

// Walks to the leaf of `key`, making groups on the way; a leaf in the way of a group
// is an error, never silently replaced.
std::shared_ptr<SettingsNode> findOrMake(const std::shared_ptr<SettingsNode>& root, const std::string& key) {
    auto node = root;
    for (const auto& part : splitPath(key)) {
        if (node->kind != Kind::Group)
            throw RuntimeException("Setting '" + node->path + "' is not a group, cannot hold '" + key + "'");
        auto next = node->child(part);
        node = next ? next : node->addChild(part);
    }
    return node;
}

const char* kindName(Kind kind) {
    switch (kind) {
        case Kind::Group: return "a group";
        case Kind::Number: return "a number";
        case Kind::Word: return "a word";
    }
    return "unknown";
}

[[noreturn]] void wrongKind(const SettingsNode& node, Kind wanted) {
    throw RuntimeException("Setting '" + node.path + "' is " + kindName(node.kind) + ", not " + kindName(wanted));
}

json toJsonValue(const SettingsNode& node) {
    switch (node.kind) {
        case Kind::Number: return node.number;
        case Kind::Word:
            if (node.range.empty()) return node.word;
            return json{{"$value", node.word}, {"$range", node.range}};
        case Kind::Group: {
            json object = json::object();
            for (const auto& [name, child] : node.children) object[name] = toJsonValue(*child);
            return object;
        }
    }
    return nullptr;
}

void fromJsonValue(SettingsNode& node, const json& value, const std::string& origin) {
    if (value.is_number()) {
        node.kind = Kind::Number;
        node.number = value.get<double>();
    } else if (value.is_string()) {
        node.kind = Kind::Word;
        node.word = value.get<std::string>();
    } else if (value.is_object() && value.contains("$value")) {
        const auto& word = value.at("$value");
        const auto range = value.value("$range", json::array());
        if (!word.is_string() || !range.is_array() || !std::all_of(range.begin(), range.end(), [](const json& w) {
                return w.is_string();
            }))
            throw RuntimeException(origin + ": setting '" + node.path + "' has a malformed word with range");
        node.kind = Kind::Word;
        node.word = word.get<std::string>();
        node.range = range.get<std::vector<std::string>>();
    } else if (value.is_object()) {
        node.kind = Kind::Group;
        for (const auto& [name, child] : value.items()) {
            if (name.empty() || name.find('/') != std::string::npos)
                throw RuntimeException(origin + ": invalid settings key '" + name + "' under '" + node.path + "'");
            fromJsonValue(*node.addChild(name), child, origin);
        }
    } else {
        throw RuntimeException(origin + ": setting '" + node.path + "' must be a number, a word or a group, not " +
                               value.type_name());
    }
}

}  // namespace

TSettings::TSettings(const std::string& name) : node_(std::make_shared<SettingsNode>()) {
    node_->description = name;
}
TSettings::TSettings(std::shared_ptr<SettingsNode> node) : node_(std::move(node)) {}
TSettings::~TSettings() = default;

TSettings TSettings::addDouble(const std::string& key, double value, const std::string& description) {
    auto leaf = findOrMake(node_, key);
    if (leaf->kind == Kind::Group && !leaf->children.empty()) wrongKind(*leaf, Kind::Number);
    leaf->kind = Kind::Number;
    leaf->number = value;
    leaf->range.clear();
    leaf->description = description;
    return TSettings(leaf);
}

TSettings TSettings::addString(const std::string& key, const std::string& value, const std::string& description) {
    auto leaf = findOrMake(node_, key);
    if (leaf->kind == Kind::Group && !leaf->children.empty()) wrongKind(*leaf, Kind::Word);
    leaf->kind = Kind::Word;
    leaf->word = value;
    leaf->description = description;
    return TSettings(leaf);
}

bool TSettings::has(const std::string& key) const { return find(node_, key) != nullptr; }

const TSettings TSettings::operator[](const std::string& key) const {
    auto node = find(node_, key);
    if (!node) {
        const std::string where = node_->path.empty() ? "" : " under '" + node_->path + "'";
        throw RuntimeException("Setting '" + key + "' not found" + where);
    }
    return TSettings(node);
}

TSettings TSettings::operator[](const std::string& key) { return std::as_const(*this)[key]; }

double TSettings::toDouble() const {
    if (node_->kind != Kind::Number) wrongKind(*node_, Kind::Number);
    return node_->number;
}

std::string TSettings::toString() const {
    if (node_->kind != Kind::Word) wrongKind(*node_, Kind::Word);
    return node_->word;
}

TStringSetting TSettings::asString() {
    if (node_->kind != Kind::Word) wrongKind(*node_, Kind::Word);
    return TStringSetting(node_);
}

bool TSettings::isGroup() const { return node_->kind == Kind::Group; }
bool TSettings::isNumber() const { return node_->kind == Kind::Number; }
bool TSettings::isString() const { return node_->kind == Kind::Word; }
const std::string& TSettings::path() const { return node_->path; }

std::vector<std::string> TSettings::keys() const {
    std::vector<std::string> names;
    for (const auto& entry : node_->children) names.push_back(entry.first);
    return names;
}

std::string TSettings::toJson(int indent) const { return toJsonValue(*node_).dump(indent); }

TSettings TSettings::fromJson(const std::string& text, const std::string& origin) {
    json document;
    try {
        document = json::parse(text);
    } catch (const json::parse_error& error) {
        // nlohmann's text carries the line and column of the fault.
        throw RuntimeException("Failed to parse settings file '" + origin + "': " + error.what());
    }
    if (!document.is_object()) throw RuntimeException(origin + ": a settings file must hold a JSON object");
    auto root = std::make_shared<SettingsNode>();
    fromJsonValue(*root, document, origin);
    return TSettings(root);
}

void TSettings::saveJson(const std::string& fileName) const {
    std::ofstream out(fileName, std::ios::binary | std::ios::trunc);
    out << toJson() << '\n';
    if (!out.flush()) throw RuntimeException("Failed to write settings file '" + fileName + "'");
}

TSettings TSettings::loadJson(const std::string& fileName) {
    std::ifstream in(fileName, std::ios::binary);
    if (!in) throw RuntimeException("Failed to open settings file '" + fileName + "'");
    std::ostringstream text;
    text << in.rdbuf();
    return fromJson(text.str(), fileName);
}

TGroupSettings::TGroupSettings(const std::string& name, const std::string& description) : TSettings(name) {
    node_->description = description.empty() ? name : description;
}
TGroupSettings::~TGroupSettings() = default;

TStringSetting::TStringSetting(std::shared_ptr<SettingsNode> node) : TSettings(std::move(node)) {}
TStringSetting::~TStringSetting() = default;

void TStringSetting::setRange(const std::vector<std::string>& words) { node_->range = words; }

int TStringSetting::getEnumValue() const {
    const auto& range = node_->range;
    const auto found = std::find(range.begin(), range.end(), node_->word);
    if (found == range.end())
        throw RuntimeException("Setting '" + node_->path + "' holds '" + node_->word + "', which is not in its range");
    return static_cast<int>(found - range.begin());
}

}  // namespace Tavri
