#include "TavriCommon/Settings.h"

#include <algorithm>
#include <utility>

#include "TavriCommon/Exceptions.h"
#include "TavriCommon/SettingsNode.h"

namespace Tavri {

SettingsNode::~SettingsNode() {
    // Children this node alone holds are taken apart here, one at a time, so that freeing
    // a deep tree never nests one destructor call per level.
    std::vector<std::shared_ptr<SettingsNode>> pending = std::move(children);
    while (!pending.empty()) {
        std::shared_ptr<SettingsNode> node = std::move(pending.back());
        pending.pop_back();
        if (node.use_count() == 1)
            for (auto& grandchild : node->children) pending.push_back(std::move(grandchild));
    }
}

std::shared_ptr<SettingsNode> SettingsNode::child(const std::string& childName) const {
    for (const auto& node : children)
        if (node->name == childName) return node;
    return nullptr;
}

std::shared_ptr<SettingsNode> SettingsNode::addChild(const std::shared_ptr<SettingsNode>& group,
                                                     std::string childName) {
    auto node = std::make_shared<SettingsNode>();
    node->name = std::move(childName);
    node->parent = group;
    group->children.push_back(node);
    return node;
}

std::string SettingsNode::path() const {
    std::vector<const std::string*> names;
    std::shared_ptr<const SettingsNode> holder;
    for (const SettingsNode* node = this; node;) {
        if (!node->name.empty()) names.push_back(&node->name);
        holder = node->parent.lock();
        node = holder.get();
    }
    std::string text;
    for (auto name = names.rbegin(); name != names.rend(); ++name) {
        if (!text.empty()) text += '/';
        text += **name;
    }
    return text;
}

namespace {

using Kind = SettingsNode::Kind;

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
            throw RuntimeException("Setting '" + node->path() + "' is not a group, cannot hold '" + key + "'");
        auto next = node->child(part);
        if (!next && isReservedSettingsKey(part))
            throw RuntimeException("Invalid settings key '" + key + "': '" + part + "' is reserved for JSON files");
        node = next ? next : SettingsNode::addChild(node, part);
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
    throw RuntimeException("Setting '" + node.path() + "' is " + kindName(node.kind) + ", not " + kindName(wanted));
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
        const std::string where = node_->name.empty() ? "" : " under '" + node_->path() + "'";
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
std::string TSettings::path() const { return node_->path(); }

std::vector<std::string> TSettings::keys() const {
    std::vector<std::string> names;
    names.reserve(node_->children.size());
    for (const auto& child : node_->children) names.push_back(child->name);
    return names;
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
        throw RuntimeException("Setting '" + node_->path() + "' holds '" + node_->word + "', which is not in its range");
    return static_cast<int>(found - range.begin());
}

}  // namespace Tavri
